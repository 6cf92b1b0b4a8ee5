#include "tools/signin-server/SignInServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <png.h>
#include <qrencode.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_set>

namespace mirelo::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxHeadBytes = 16 * 1024;
constexpr int kSocketTimeoutSeconds = 10;
constexpr int kAcceptPollMillis = 250;
// After an answer the server reads what the client still sends, for at
// most this long, so that closing never resets the connection under data
// the client has not read yet.
constexpr int kLingerMillis = 1000;
constexpr std::size_t kLingerBytes = 64 * 1024;
// A QR module is drawn as this many pixels, with a quiet zone of four
// modules around the code.
constexpr int kQrScale = 4;
constexpr int kQrMargin = 4;
// How often a held or delayed answer looks whether its client is still
// there.
constexpr int kClientCheckMillis = 50;

Clock::duration realSeconds(double s) {
  if (!(s > 0)) s = 0;
  if (s > 1e6) s = 1e6;
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s));
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

std::string jsonString(std::string_view s) {
  std::string out = "\"";
  for (char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", u);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string randomHex(std::size_t bytes) {
  std::vector<unsigned char> raw(bytes);
  if (RAND_bytes(raw.data(), static_cast<int>(raw.size())) != 1) return std::string(bytes * 2, '0');
  static const char* kDigits = "0123456789abcdef";
  std::string out;
  for (unsigned char b : raw) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

std::string base64(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  out.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return out;
}

const char* reasonPhrase(int status) {
  switch (status) {
    case 200: return "OK";
    case 204: return "No Content";
    case 206: return "Partial Content";
    case 400: return "Bad Request";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 408: return "Request Timeout";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    default: return "Status";
  }
}

// ---- certificates ----

struct OpenSslFree {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(X509* p) const { X509_free(p); }
  void operator()(SSL_CTX* p) const { SSL_CTX_free(p); }
  void operator()(SSL* p) const { SSL_free(p); }
  void operator()(BIO* p) const { BIO_free(p); }
};
using Key = std::unique_ptr<EVP_PKEY, OpenSslFree>;
using Cert = std::unique_ptr<X509, OpenSslFree>;
using Ctx = std::unique_ptr<SSL_CTX, OpenSslFree>;
using Ssl = std::unique_ptr<SSL, OpenSslFree>;
using Bio = std::unique_ptr<BIO, OpenSslFree>;

Key makeKey() { return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")); }

bool addExtension(X509* cert, X509V3_CTX* ctx, int nid, const char* value) {
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, ctx, nid, value);
  if (!ext) return false;
  const bool ok = X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  return ok;
}

std::string subjectAltNames() {
  std::string san;
  for (const std::string& name : SignInServer::hostNames()) san += "DNS:" + name + ",";
  return san + "IP:127.0.0.1";
}

// A certificate for `key`: the authority's own (self-signed) when `issuer`
// is null, else a server certificate signed by the issuer.
Cert makeCertificate(EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey) {
  Cert cert(X509_new());
  if (!cert) return nullptr;
  X509* x = cert.get();
  std::uint64_t serial = 0;
  if (RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) != 1) return nullptr;
  serial = (serial >> 1) | 1;  // positive and non-zero
  const char* commonName = issuer ? "open.mirelo.app" : "Mirelo sign-in test authority";
  X509_NAME* name = X509_get_subject_name(x);
  if (X509_set_version(x, 2) != 1 || ASN1_INTEGER_set_uint64(X509_get_serialNumber(x), serial) != 1 ||
      !X509_gmtime_adj(X509_getm_notBefore(x), -3600) || !X509_gmtime_adj(X509_getm_notAfter(x), 7L * 24 * 3600) ||
      X509_set_pubkey(x, key) != 1 ||
      X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Mirelo test"), -1, -1,
                                 0) != 1 ||
      X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                 0) != 1 ||
      X509_set_issuer_name(x, issuer ? X509_get_subject_name(issuer) : name) != 1) {
    return nullptr;
  }
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer ? issuer : x, x, nullptr, nullptr, 0);
  bool ok = addExtension(x, &ctx, NID_subject_key_identifier, "hash");
  if (issuer) {
    const std::string san = subjectAltNames();
    ok = ok && addExtension(x, &ctx, NID_authority_key_identifier, "keyid:always") &&
         addExtension(x, &ctx, NID_basic_constraints, "critical,CA:FALSE") &&
         addExtension(x, &ctx, NID_key_usage, "critical,digitalSignature,keyEncipherment") &&
         addExtension(x, &ctx, NID_ext_key_usage, "serverAuth") &&
         addExtension(x, &ctx, NID_subject_alt_name, san.c_str());
  } else {
    ok = ok && addExtension(x, &ctx, NID_basic_constraints, "critical,CA:TRUE,pathlen:0") &&
         addExtension(x, &ctx, NID_key_usage, "critical,keyCertSign,cRLSign");
  }
  if (!ok || X509_sign(x, issuerKey ? issuerKey : key, EVP_sha256()) <= 0) return nullptr;
  return cert;
}

std::string pemOf(X509* cert) {
  Bio bio(BIO_new(BIO_s_mem()));
  if (!bio || PEM_write_bio_X509(bio.get(), cert) != 1) return "";
  char* data = nullptr;
  const long len = BIO_get_mem_data(bio.get(), &data);
  return len > 0 ? std::string(data, static_cast<std::size_t>(len)) : "";
}

// Writes `text` to a new private temporary file; its path, or "".
std::string writeTempFile(const std::string& text) {
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/mirelo-signin-ca-XXXXXX.pem";
  const int fd = mkstemps(path.data(), 4);
  if (fd < 0) return "";
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  if (done != text.size()) {
    ::unlink(path.c_str());
    return "";
  }
  return path;
}

// ---- HTTP ----

// True when the client has closed its side (or the socket failed): a held
// answer has no one left to go to.
bool clientGone(int fd) {
  pollfd p{fd, POLLRDHUP, 0};
  return ::poll(&p, 1, 0) > 0 && (p.revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0;
}

struct Head {
  SignInRequest request;
  bool ok = false;
};

Head parseHead(std::string_view text) {
  Head head;
  const auto lineEnd = text.find("\r\n");
  const std::string_view first = text.substr(0, lineEnd);
  const auto s1 = first.find(' ');
  const auto s2 = s1 == std::string_view::npos ? s1 : first.find(' ', s1 + 1);
  if (s1 == std::string_view::npos || s2 == std::string_view::npos || s1 == 0 ||
      !first.substr(s2 + 1).starts_with("HTTP/1.")) {
    return head;
  }
  SignInRequest& r = head.request;
  r.method = std::string(first.substr(0, s1));
  r.target = std::string(first.substr(s1 + 1, s2 - s1 - 1));
  const auto q = r.target.find('?');
  r.path = r.target.substr(0, q);
  if (q != std::string::npos) r.query = r.target.substr(q + 1);
  std::string_view rest = lineEnd == std::string_view::npos ? std::string_view() : text.substr(lineEnd + 2);
  while (!rest.empty()) {
    const auto end = rest.find("\r\n");
    const std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 2);
    if (line.empty()) break;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) continue;
    r.headers.emplace_back(std::string(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1))));
  }
  head.ok = true;
  return head;
}

std::string responseHead(const SignInAnswer& a) {
  std::string h = "HTTP/1.1 " + std::to_string(a.status) + " " + reasonPhrase(a.status) + "\r\n";
  if (!a.contentType.empty()) h += "Content-Type: " + a.contentType + "\r\n";
  h += "Content-Length: " + std::to_string(a.announcedLength.value_or(a.body.size())) + "\r\n";
  h += "Connection: close\r\n\r\n";
  return h;
}

bool sslWriteAll(SSL* ssl, std::string_view bytes) {
  while (!bytes.empty()) {
    const int chunk = static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 20));
    const int n = SSL_write(ssl, bytes.data(), chunk);
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

// ---- answers ----

SignInAnswer SignInAnswer::json(std::string body, int status) {
  SignInAnswer a;
  a.status = status;
  a.body = std::move(body);
  return a;
}

SignInAnswer SignInAnswer::pollState(int state, std::optional<std::string> code) {
  std::string body = "{\"mr_errcode\":" + std::to_string(state);
  if (code) body += ",\"mr_code\":" + jsonString(*code);
  return json(body + "}");
}

SignInAnswer SignInAnswer::missingState() { return json("{\"mr_msg\":\"waiting\"}"); }

SignInAnswer SignInAnswer::notJson() {
  SignInAnswer a;
  a.body = "<html><body>service busy</body></html>";
  a.contentType = "text/plain";
  return a;
}

SignInAnswer SignInAnswer::httpStatus(int status) {
  SignInAnswer a;
  a.status = status;
  a.body = std::string(reasonPhrase(status)) + "\n";
  a.contentType = "text/plain";
  return a;
}

SignInAnswer SignInAnswer::partialContent(SignInAnswer answer) {
  answer.status = 206;
  return answer;
}

SignInAnswer SignInAnswer::shortBody(SignInAnswer answer, std::size_t sentBytes) {
  answer.announcedLength = answer.body.size();
  if (sentBytes < answer.body.size()) answer.body.resize(sentBytes);
  return answer;
}

SignInAnswer SignInAnswer::slow(SignInAnswer answer, double seconds) {
  answer.delaySeconds = seconds;
  return answer;
}

SignInAnswer SignInAnswer::held() {
  SignInAnswer a;
  a.holdUntilStop = true;
  return a;
}

std::optional<std::string> SignInRequest::header(std::string_view name) const {
  for (const auto& [n, v] : headers) {
    if (equalsIgnoringCase(n, name)) return v;
  }
  return std::nullopt;
}

std::optional<std::string> SignInRequest::queryValue(std::string_view name) const {
  std::string_view rest = query;
  while (!rest.empty()) {
    const auto amp = rest.find('&');
    const std::string_view pair = rest.substr(0, amp);
    rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
    const auto eq = pair.find('=');
    if (pair.substr(0, eq) == name) return std::string(eq == std::string_view::npos ? "" : pair.substr(eq + 1));
  }
  return std::nullopt;
}

// ---- the server ----

struct SignInServer::Impl {
  Options options;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  bool started = false;
  bool stopping = false;
  bool stopped = false;  // every thread joined, files removed
  std::string error;
  std::string caPath;
  int port = 0;
  std::deque<SignInAnswer> qrAnswers;
  std::deque<SignInAnswer> pollAnswers;
  std::string lastUuid;
  std::vector<SignInRequest> records;
  std::unordered_set<int> openSockets;
  std::size_t openConnections = 0;
  Clock::time_point lastActivity = Clock::now();

  int listenFd = -1;
  int wakeFd = -1;
  Ctx ctx;
  std::thread acceptor;
  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };
  std::vector<Worker> workers;  // the acceptor's, until it is joined

  // Marks the server as stopping and wakes every wait; the caller holds
  // `mutex`.
  void beginStop() {
    if (stopping) return;
    stopping = true;
    for (int fd : openSockets) ::shutdown(fd, SHUT_RDWR);
    if (wakeFd >= 0) {
      const std::uint64_t one = 1;
      [[maybe_unused]] const ssize_t n = ::write(wakeFd, &one, sizeof one);
    }
    changed.notify_all();
  }

  // Waits, with `lock` held on `mutex`, until `ready()`, the server stops,
  // the client on `fd` goes away or `until` passes; true when `ready()`.
  template <class Ready>
  bool waitOn(std::unique_lock<std::mutex>& lock, int fd, Clock::time_point until, Ready ready) {
    for (;;) {
      if (ready()) return true;
      if (stopping || Clock::now() >= until || clientGone(fd)) return false;
      changed.wait_until(lock, std::min(until, Clock::now() + std::chrono::milliseconds(kClientCheckMillis)));
    }
  }

  void acceptLoop();
  void serve(int fd);
  // The answer to `r`, or nullopt when the server stops meanwhile.
  std::optional<SignInAnswer> answerFor(const SignInRequest& r, int fd);
  void reapWorkers(bool all);
};

void SignInServer::Impl::reapWorkers(bool all) {
  std::erase_if(workers, [&](Worker& w) {
    if (!all && !w.done->load()) return false;
    if (w.thread.joinable()) w.thread.join();
    return true;
  });
}

void SignInServer::Impl::acceptLoop() {
  for (;;) {
    pollfd fds[2] = {{listenFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
    const int n = ::poll(fds, 2, kAcceptPollMillis);
    reapWorkers(false);
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (stopping) return;
      if (openConnections == 0 && Clock::now() - lastActivity > realSeconds(options.idleTimeoutSeconds)) {
        beginStop();
        return;
      }
    }
    if (n <= 0 || !(fds[0].revents & POLLIN)) continue;
    const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    timeval tv{kSocketTimeoutSeconds, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (workers.size() >= options.maxConnections) {
        ::close(fd);
        continue;
      }
      openSockets.insert(fd);
      ++openConnections;
      lastActivity = Clock::now();
    }
    auto done = std::make_shared<std::atomic<bool>>(false);
    workers.push_back({std::thread([this, fd, done] {
                         serve(fd);
                         done->store(true);
                       }),
                       done});
  }
}

std::optional<SignInAnswer> SignInServer::Impl::answerFor(const SignInRequest& r, int fd) {
  std::unique_lock<std::mutex> lock(mutex);
  if (r.path == kQrPath) {
    if (!qrAnswers.empty()) {
      SignInAnswer a = std::move(qrAnswers.front());
      qrAnswers.pop_front();
      return a;
    }
    lastUuid = randomHex(8);
    const std::string uuid = lastUuid;
    lock.unlock();
    return qrAnswer(uuid);
  }
  if (r.path == kPollPath) {
    // A long poll: wait for the test to script what happens.
    const bool got = waitOn(lock, fd, Clock::now() + realSeconds(options.emptyPollHoldSeconds),
                            [&] { return !pollAnswers.empty(); });
    if (stopping || (!got && clientGone(fd))) return std::nullopt;
    if (!got) return SignInAnswer::pollState(408);
    SignInAnswer a = std::move(pollAnswers.front());
    pollAnswers.pop_front();
    changed.notify_all();
    return a;
  }
  return SignInAnswer::httpStatus(404);
}

void SignInServer::Impl::serve(int fd) {
  // A write to a connection the client closed must fail, not end the
  // process: SIGPIPE stays blocked (and pending, then dropped) in this
  // thread.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

  Ssl ssl(SSL_new(ctx.get()));
  if (ssl && SSL_set_fd(ssl.get(), fd) == 1 && SSL_accept(ssl.get()) == 1) {
    std::string head;
    char buf[4096];
    bool complete = false;
    while (head.size() <= kMaxHeadBytes) {
      const int n = SSL_read(ssl.get(), buf, sizeof buf);
      if (n <= 0) break;
      head.append(buf, static_cast<std::size_t>(n));
      if (head.find("\r\n\r\n") != std::string::npos) {
        complete = true;
        break;
      }
    }
    std::optional<SignInAnswer> answer;
    if (complete) {
      const Head parsed = parseHead(head);
      if (parsed.ok) {
        {
          std::lock_guard<std::mutex> lock(mutex);
          records.push_back(parsed.request);
          lastActivity = Clock::now();
          changed.notify_all();
        }
        answer = answerFor(parsed.request, fd);
      } else {
        answer = SignInAnswer::httpStatus(400);
      }
    } else if (head.size() > kMaxHeadBytes) {
      answer = SignInAnswer::httpStatus(431);
    }  // else the client went away before asking anything
    bool send = answer.has_value();
    if (send && (answer->holdUntilStop || answer->delaySeconds > 0)) {
      // Held until the server stops or the client gives up; delayed until
      // its time unless either happens first.
      const auto until =
          answer->holdUntilStop ? Clock::time_point::max() : Clock::now() + realSeconds(answer->delaySeconds);
      std::unique_lock<std::mutex> lock(mutex);
      waitOn(lock, fd, until, [] { return false; });
      send = !answer->holdUntilStop && !stopping && !clientGone(fd);
    }
    if (send && sslWriteAll(ssl.get(), responseHead(*answer)) && sslWriteAll(ssl.get(), answer->body)) {
      SSL_shutdown(ssl.get());
      // Let the client read everything before the socket goes.
      ::shutdown(fd, SHUT_WR);
      const auto until = Clock::now() + std::chrono::milliseconds(kLingerMillis);
      std::size_t drained = 0;
      while (drained < kLingerBytes) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (left <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left)) <= 0) break;
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) break;
        drained += static_cast<std::size_t>(n);
      }
    }
  }
  ssl.reset();
  ERR_clear_error();
  std::lock_guard<std::mutex> lock(mutex);
  openSockets.erase(fd);
  ::close(fd);
  --openConnections;
  lastActivity = Clock::now();
  changed.notify_all();
}

SignInServer::SignInServer() : SignInServer(Options{}) {}

SignInServer::SignInServer(Options options) : impl_(std::make_unique<Impl>()) { impl_->options = options; }

SignInServer::~SignInServer() { stop(); }

std::vector<std::string> SignInServer::hostNames() { return {"open.mirelo.app", "long.open.mirelo.app", "localhost"}; }

bool SignInServer::start() {
  Impl& s = *impl_;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.started) {
      s.error = "already started";
      return false;
    }
    s.started = true;
  }
  auto fail = [&](const char* why) {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.error = why;
    if (!s.caPath.empty()) ::unlink(s.caPath.c_str());
    s.caPath.clear();
    if (s.listenFd >= 0) ::close(s.listenFd);
    if (s.wakeFd >= 0) ::close(s.wakeFd);
    s.listenFd = s.wakeFd = -1;
    s.ctx.reset();
    s.stopping = s.stopped = true;
    s.changed.notify_all();
    return false;
  };

  const Key caKey = makeKey();
  const Key serverKey = makeKey();
  if (!caKey || !serverKey) return fail("cannot make keys");
  const Cert caCert = makeCertificate(caKey.get(), nullptr, nullptr);
  if (!caCert) return fail("cannot make the authority's certificate");
  const Cert serverCert = makeCertificate(serverKey.get(), caCert.get(), caKey.get());
  if (!serverCert) return fail("cannot make the server certificate");

  Ctx ctx(SSL_CTX_new(TLS_server_method()));
  if (!ctx || SSL_CTX_set_min_proto_version(ctx.get(), TLS1_2_VERSION) != 1 ||
      SSL_CTX_use_certificate(ctx.get(), serverCert.get()) != 1 ||
      SSL_CTX_use_PrivateKey(ctx.get(), serverKey.get()) != 1 || SSL_CTX_check_private_key(ctx.get()) != 1) {
    return fail("cannot set up TLS");
  }
  const std::string pem = pemOf(caCert.get());
  const std::string path = pem.empty() ? "" : writeTempFile(pem);
  if (path.empty()) return fail("cannot write the authority's file");
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.caPath = path;
    s.ctx = std::move(ctx);
  }

  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail("cannot open a socket");
  s.listenFd = fd;
  const int yes = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (s.options.port < 0 || s.options.port > 65535) return fail("bad port");
  addr.sin_port = htons(static_cast<std::uint16_t>(s.options.port));
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return fail("cannot bind 127.0.0.1");
  if (::listen(fd, 64) != 0) return fail("cannot listen");
  socklen_t len = sizeof addr;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return fail("cannot read the port");
  s.wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (s.wakeFd < 0) return fail("cannot make an event");
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.port = ntohs(addr.sin_port);
    s.lastActivity = Clock::now();
  }
  s.acceptor = std::thread([&s] { s.acceptLoop(); });
  return true;
}

void SignInServer::stop() {
  Impl& s = *impl_;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.started || s.stopped) return;
    s.beginStop();
  }
  if (s.acceptor.joinable()) s.acceptor.join();
  s.reapWorkers(true);
  std::lock_guard<std::mutex> lock(s.mutex);
  if (s.listenFd >= 0) ::close(s.listenFd);
  if (s.wakeFd >= 0) ::close(s.wakeFd);
  s.listenFd = s.wakeFd = -1;
  if (!s.caPath.empty()) ::unlink(s.caPath.c_str());
  s.caPath.clear();
  s.ctx.reset();
  s.stopped = true;
  s.changed.notify_all();
}

bool SignInServer::running() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->started && !impl_->stopping;
}

bool SignInServer::waitUntilStopped(double seconds) const {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  return impl_->changed.wait_for(lock, realSeconds(seconds), [&] { return impl_->stopping; });
}

int SignInServer::port() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->port;
}

std::string SignInServer::caPath() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->caPath;
}

std::string SignInServer::error() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->error;
}

void SignInServer::queueQrAnswer(SignInAnswer answer) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->qrAnswers.push_back(std::move(answer));
  impl_->changed.notify_all();
}

std::string SignInServer::confirmUrl(const std::string& uuid) {
  return "https://open.mirelo.app/connect/confirm?uuid=" + uuid;
}

std::string SignInServer::qrPng(const std::string& text) {
  QRcode* qr = QRcode_encodeString(text.c_str(), 0, QR_ECLEVEL_M, QR_MODE_8, 1);
  if (!qr) return "";
  const int modules = qr->width;
  const int side = (modules + 2 * kQrMargin) * kQrScale;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(side) * static_cast<std::size_t>(side), 255);
  for (int y = 0; y < modules; ++y) {
    for (int x = 0; x < modules; ++x) {
      if (!(qr->data[y * modules + x] & 1)) continue;  // bit 0: a dark module
      for (int dy = 0; dy < kQrScale; ++dy) {
        const std::size_t row = static_cast<std::size_t>((y + kQrMargin) * kQrScale + dy);
        const std::size_t col = static_cast<std::size_t>((x + kQrMargin) * kQrScale);
        std::fill_n(pixels.begin() + static_cast<std::ptrdiff_t>(row * static_cast<std::size_t>(side) + col), kQrScale,
                    std::uint8_t{0});
      }
    }
  }
  QRcode_free(qr);

  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(side);
  image.height = static_cast<png_uint_32>(side);
  image.format = PNG_FORMAT_GRAY;
  png_alloc_size_t size = 0;
  if (!png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data(), 0, nullptr) || size == 0) {
    png_image_free(&image);
    return "";
  }
  std::string out(size, '\0');
  if (!png_image_write_to_memory(&image, out.data(), &size, 0, pixels.data(), 0, nullptr)) {
    png_image_free(&image);
    return "";
  }
  out.resize(size);
  return out;
}

SignInAnswer SignInServer::qrAnswer(const std::string& uuid) {
  const std::string png = qrPng(confirmUrl(uuid));
  return SignInAnswer::json("{\"errcode\":0,\"uuid\":" + jsonString(uuid) + ",\"qrcode\":{\"qrcodelength\":" +
                            std::to_string(png.size()) + ",\"qrcodebase64\":" + jsonString(base64(png)) + "}}");
}

std::string SignInServer::lastUuid() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->lastUuid;
}

void SignInServer::queuePollAnswer(SignInAnswer answer) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->pollAnswers.push_back(std::move(answer));
  impl_->changed.notify_all();
}

std::size_t SignInServer::pollAnswersLeft() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->pollAnswers.size();
}

void SignInServer::clearAnswers() {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->qrAnswers.clear();
  impl_->pollAnswers.clear();
}

std::vector<SignInRequest> SignInServer::requests() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->records;
}

std::vector<SignInRequest> SignInServer::requestsTo(std::string_view path) const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  std::vector<SignInRequest> out;
  for (const SignInRequest& r : impl_->records) {
    if (r.path == path) out.push_back(r);
  }
  return out;
}

bool SignInServer::waitForRequests(std::size_t count, double seconds) const {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  return impl_->changed.wait_for(lock, realSeconds(seconds), [&] { return impl_->records.size() >= count; });
}

void SignInServer::clearRequests() {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->records.clear();
}

std::size_t SignInServer::openConnections() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->openConnections;
}

bool SignInServer::waitForNoConnections(double seconds) const {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  return impl_->changed.wait_for(lock, realSeconds(seconds), [&] { return impl_->openConnections == 0; });
}

}  // namespace mirelo::testing
