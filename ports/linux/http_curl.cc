#include "ports/linux/http_curl.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <unordered_map>
#include <utility>

namespace mirelo::linuxport {
namespace {

// How long the worker sleeps in one wait when nothing happens; a new
// transfer, a cancel or the destructor wakes it at once.
constexpr int kPollMillis = 1000;
// Sockets the transport keeps open at once; further transfers wait.
constexpr long kMaxConnections = 32;
constexpr double kDefaultTimeoutSeconds = 60;
constexpr double kMaxTimeoutSeconds = 24 * 3600;

void initCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

CURLM* multiOf(void* p) { return static_cast<CURLM*>(p); }

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
  }
  return true;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n')) {
    s.remove_suffix(1);
  }
  return s;
}

// An HTTP method is a token: letters only here, which covers every method
// a client sends.
bool isMethod(const std::string& m) {
  if (m.empty() || m.size() > 16) return false;
  for (char c : m) {
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))) return false;
  }
  return true;
}

// True for an absolute http or https URL with a host, as libcurl reads it.
bool isWebURL(const std::string& url) {
  CURLU* u = curl_url();
  if (!u) return false;
  bool ok = false;
  if (curl_url_set(u, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
    char* scheme = nullptr;
    char* host = nullptr;
    if (curl_url_get(u, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
        curl_url_get(u, CURLUPART_HOST, &host, 0) == CURLUE_OK) {
      const std::string_view s(scheme);
      ok = (s == "http" || s == "https") && host[0] != '\0';
    }
    curl_free(scheme);
    curl_free(host);
  }
  curl_url_cleanup(u);
  return ok;
}

// A host name as a route key: no empty name, no port, no white space.
bool isHostName(std::string_view host) {
  if (host.empty() || host.size() > 253) return false;
  for (char c : host) {
    if (c == ':' || c == '/' || static_cast<unsigned char>(c) <= ' ') return false;
  }
  return true;
}

std::int64_t parseContentLength(std::string_view value) {
  value = trim(value);
  if (value.empty()) return -1;
  std::int64_t n = -1;
  const auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), n);
  if (ec != std::errc() || end != value.data() + value.size() || n < 0) return -1;
  return n;
}

platform::HttpError urlError(std::int64_t code, const char* text) {
  platform::HttpError e;
  e.code = code;
  e.localizedDescription = text;
  return e;
}

}  // namespace

// One transfer: its easy handle and what has been read of its answer.
// Lives on the worker thread once started.
struct CurlHttp::Transfer {
  CurlHttp* owner = nullptr;
  TransferId id = 0;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  curl_slist* connectTo = nullptr;

  std::int64_t status = 0;
  std::vector<std::pair<std::string, std::string>> fields;
  std::size_t headerBytes = 0;
  std::size_t bodyBytes = 0;
  bool responseSent = false;
  bool overLimit = false;

  ~Transfer() {
    if (easy) curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    curl_slist_free_all(connectTo);
  }

  void sendResponse() {
    if (responseSent) return;
    responseSent = true;
    Event ev;
    ev.transfer = id;
    ev.kind = Event::Kind::Response;
    ev.response.statusCode = status;
    if (status == 0) {
      long code = 0;
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &code);
      ev.response.statusCode = code;
    }
    // Repeated fields are joined with ", ", as the platform's responses do;
    // the first spelling of the name is kept.
    std::vector<std::pair<std::string, std::string>> merged;
    for (auto& [name, value] : fields) {
      bool joined = false;
      for (auto& m : merged) {
        if (equalsIgnoringCase(m.first, name)) {
          m.second += ", " + value;
          joined = true;
          break;
        }
      }
      if (!joined) merged.emplace_back(std::move(name), std::move(value));
    }
    fields.clear();
    for (auto& [name, value] : merged) {
      if (equalsIgnoringCase(name, "Content-Length")) ev.response.expectedContentLength = parseContentLength(value);
      ev.response.allHeaderFields.set(name, Value(std::move(value)));
    }
    owner->deliver(std::move(ev));
  }

  static std::size_t onHeader(char* buffer, std::size_t size, std::size_t count, void* userdata) {
    auto* t = static_cast<Transfer*>(userdata);
    const std::size_t len = size * count;
    t->headerBytes += len;
    if (t->headerBytes > kMaxHeaderBytes) {
      t->overLimit = true;
      return 0;
    }
    if (t->responseSent) return len;  // trailers of a chunked body
    std::string_view line(buffer, len);
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
    if (line.starts_with("HTTP/")) {
      // A new status line: an interim (1xx) answer may come before the
      // final one, and only the final one counts.
      t->status = 0;
      t->fields.clear();
      const auto space = line.find(' ');
      if (space != std::string_view::npos) {
        const std::string_view rest = line.substr(space + 1);
        std::int64_t code = 0;
        const auto [end, ec] = std::from_chars(rest.data(), rest.data() + std::min<std::size_t>(rest.size(), 3), code);
        if (ec == std::errc() && end == rest.data() + 3) t->status = code;
      }
      return len;
    }
    if (line.empty()) {
      if (t->status >= 200) t->sendResponse();
      return len;
    }
    if ((line.front() == ' ' || line.front() == '\t') && !t->fields.empty()) {
      // An obsolete folded continuation of the previous field.
      t->fields.back().second += " ";
      t->fields.back().second += trim(line);
      return len;
    }
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return len;
    t->fields.emplace_back(std::string(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1))));
    return len;
  }

  static std::size_t onBody(char* buffer, std::size_t size, std::size_t count, void* userdata) {
    auto* t = static_cast<Transfer*>(userdata);
    const std::size_t len = size * count;
    t->sendResponse();
    if (len > kMaxBodyBytes - t->bodyBytes) {
      t->overLimit = true;
      return 0;
    }
    t->bodyBytes += len;
    if (len == 0) return 0;
    Event ev;
    ev.transfer = t->id;
    ev.kind = Event::Kind::Data;
    ev.data = Data::copy(buffer, len);
    t->owner->deliver(std::move(ev));
    return len;
  }

  void finish(CURLcode result) {
    Event ev;
    ev.transfer = id;
    // A body cut short of its announced length still finishes: the receiver
    // sees what arrived and the announced length.
    const bool finished = !overLimit && (result == CURLE_OK || (result == CURLE_PARTIAL_FILE && responseSent));
    if (finished) {
      sendResponse();
      ev.kind = Event::Kind::Finished;
    } else {
      ev.kind = Event::Kind::Failed;
      ev.error = errorFor(result, overLimit);
    }
    owner->deliver(std::move(ev));
  }
};

platform::HttpError CurlHttp::errorFor(int curlCode, bool overLimit) {
  if (overLimit) return urlError(-1103, "resource exceeds maximum size");
  switch (static_cast<CURLcode>(curlCode)) {
    case CURLE_OPERATION_TIMEDOUT:
      return urlError(-1001, "The request timed out.");
    case CURLE_COULDNT_RESOLVE_HOST:
      return urlError(-1003, "A server with the spe" "cified hostname could not be found.");
    case CURLE_COULDNT_CONNECT:
      return urlError(-1004, "Could not connect to the server.");
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      return urlError(-1005, "The network connection was lost.");
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      return urlError(-1202, "The certificate for this server is invalid.");
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
      return urlError(-1200, "An SSL error has occurred and a secure connection to the server cannot be made.");
    case CURLE_FILESIZE_EXCEEDED:
      return urlError(-1103, "resource exceeds maximum size");
    default:
      return urlError(-1, "unknown error");
  }
}

platform::HttpError CurlHttp::timedOut() { return errorFor(CURLE_OPERATION_TIMEDOUT, false); }

CurlHttp::CurlHttp(Deliver deliver) : deliver_(std::move(deliver)) {
  initCurlOnce();
  CURLM* multi = curl_multi_init();
  if (multi) curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, kMaxConnections);
  multi_ = multi;
  if (multi_) worker_ = std::thread([this] { run(); });
}

CurlHttp::~CurlHttp() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
    live_.clear();
  }
  if (multi_) curl_multi_wakeup(multiOf(multi_));
  if (worker_.joinable()) worker_.join();
  toAdd_.clear();
  if (multi_) curl_multi_cleanup(multiOf(multi_));
}

bool CurlHttp::setRoute(const std::string& host, const std::string& address, int port) {
  if (!isHostName(host)) return false;
  std::string key;
  for (char c : host) key += lowerAscii(c);
  std::lock_guard<std::mutex> lock(mutex_);
  if (address.empty()) {
    routes_.erase(key);
    return true;
  }
  if (port < 1 || port > 65535) return false;
  for (char c : address) {
    if (c == '/' || c == '[' || c == ']' || static_cast<unsigned char>(c) <= ' ') return false;
  }
  // An IPv6 address is written in brackets.
  const std::string addr = address.find(':') != std::string::npos ? "[" + address + "]" : address;
  routes_[key] = addr + ":" + std::to_string(port);
  return true;
}

void CurlHttp::setCertificateAuthorities(const std::string& path) {
  std::lock_guard<std::mutex> lock(mutex_);
  caFile_ = path;
}

CurlHttp::TransferId CurlHttp::start(const platform::HttpRequest& request) {
  if (!multi_ || !isMethod(request.method) || !isWebURL(request.url)) return 0;
  auto t = std::make_unique<Transfer>();
  t->owner = this;
  t->easy = curl_easy_init();
  if (!t->easy) return 0;
  CURL* e = t->easy;
  std::string caFile;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    caFile = caFile_;
    for (const auto& [host, target] : routes_) {
      const std::string entry = host + "::" + target;
      curl_slist* next = curl_slist_append(t->connectTo, entry.c_str());
      if (!next) return 0;
      t->connectTo = next;
    }
  }

  curl_easy_setopt(e, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(e, CURLOPT_PROXY, "");
  curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
  if (!caFile.empty()) {
    // Only the given authorities: neither the system's bundle nor its
    // certificate directory.
    curl_easy_setopt(e, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(e, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  if (t->connectTo) curl_easy_setopt(e, CURLOPT_CONNECT_TO, t->connectTo);
  double timeout = request.timeoutSeconds;
  if (!(timeout > 0) || !std::isfinite(timeout)) timeout = kDefaultTimeoutSeconds;
  if (timeout > kMaxTimeoutSeconds) timeout = kMaxTimeoutSeconds;
  curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(std::lround(timeout * 1000))));
  curl_easy_setopt(e, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxBodyBytes));

  if (request.method == "GET") {
    curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
  } else if (request.method == "HEAD") {
    curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
  } else {
    curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
  if (request.cachePolicy == platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData) {
    for (const char* h : {"Cache-Control: no-cache", "Pragma: no-cache"}) {
      curl_slist* next = curl_slist_append(t->headers, h);
      if (!next) return 0;
      t->headers = next;
    }
    curl_easy_setopt(e, CURLOPT_HTTPHEADER, t->headers);
  }
  curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
  curl_easy_setopt(e, CURLOPT_HEADERDATA, t.get());
  curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  curl_easy_setopt(e, CURLOPT_WRITEDATA, t.get());
  curl_easy_setopt(e, CURLOPT_PRIVATE, static_cast<void*>(t.get()));

  TransferId id = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stop_) return 0;
    id = nextId_++;
    t->id = id;
    live_.insert(id);
    toAdd_.push_back(std::move(t));
  }
  curl_multi_wakeup(multiOf(multi_));
  return id;
}

void CurlHttp::cancel(TransferId id) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (live_.erase(id) == 0) return;
    toCancel_.push_back(id);
  }
  curl_multi_wakeup(multiOf(multi_));
}

std::size_t CurlHttp::active() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return live_.size();
}

void CurlHttp::deliver(Event&& event) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stop_ || !live_.contains(event.transfer)) return;
  if (event.kind == Event::Kind::Failed || event.kind == Event::Kind::Finished) live_.erase(event.transfer);
  if (deliver_) deliver_(std::move(event));
}

void CurlHttp::run() {
  CURLM* multi = multiOf(multi_);
  std::unordered_map<TransferId, std::unique_ptr<Transfer>> running;
  auto drop = [&](TransferId id) {
    const auto it = running.find(id);
    if (it == running.end()) return;
    curl_multi_remove_handle(multi, it->second->easy);
    running.erase(it);
  };
  for (;;) {
    std::deque<std::unique_ptr<Transfer>> adds;
    std::vector<TransferId> cancels;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stop_) break;
      adds.swap(toAdd_);
      cancels.swap(toCancel_);
    }
    for (auto& t : adds) {
      if (curl_multi_add_handle(multi, t->easy) != CURLM_OK) {
        t->finish(CURLE_FAILED_INIT);
        continue;
      }
      const TransferId id = t->id;
      running.emplace(id, std::move(t));
    }
    for (TransferId id : cancels) drop(id);

    int stillRunning = 0;
    curl_multi_perform(multi, &stillRunning);
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(multi, &left)) {
      if (msg->msg != CURLMSG_DONE) continue;
      const CURLcode result = msg->data.result;
      void* priv = nullptr;
      curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, &priv);
      auto* t = static_cast<Transfer*>(priv);
      if (!t) continue;
      t->finish(result);
      drop(t->id);
    }
    curl_multi_poll(multi, nullptr, 0, kPollMillis, nullptr);
  }
  for (auto& [id, t] : running) curl_multi_remove_handle(multi, t->easy);
  running.clear();
}

}  // namespace mirelo::linuxport
