// A local HTTPS server that plays the open platform's side of the QR-code
// sign-in, for the tests and the demo.
//
// It listens on 127.0.0.1 only, on an ephemeral port unless told otherwise.
// At start it makes a certificate authority of its own and a server
// certificate signed by it, naming open.mirelo.app, long.open.mirelo.app,
// localhost and 127.0.0.1, and writes the authority as PEM to a temporary
// file (caPath()) that stop() removes.  Only a client that trusts that file
// accepts the server; nothing else on the machine does.  Clients keep the
// real host names and send them to the server's port (SimDevice::routeHost).
//
// Two endpoints:
//   "/connect/sdk/qrconnect"  the QR request.  Answers from queueQrAnswer in
//       order; when none is queued, the standard answer: a fresh uuid and a
//       real QR code (PNG) of the confirm URL carrying that uuid.
//   "/connect/l/qrconnect"    the long poll.  Answers from queuePollAnswer in
//       order; when none is queued, it holds the request until one is
//       queued, for at most Options::emptyPollHoldSeconds, and otherwise
//       answers poll state 408 ({"mr_errcode":408}, HTTP 200), as the
//       platform does when nothing happened during a long poll.
// Any other path is answered with HTTP 404.  Every answer closes its
// connection.  Every request is recorded.
//
// Bounded everywhere: a request head over 16 KiB is refused, at most
// Options::maxConnections connections are served at once (more are closed
// at once), sockets time out after 10 seconds of silence, and the server
// stops by itself after Options::idleTimeoutSeconds without a request.
// A held or delayed answer ends early when its client closes the
// connection.  stop() (and the destructor) ends held answers and joins every
// thread.
//
// Thread-safe: every member may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mirelo::testing {

// One scripted answer.
struct SignInAnswer {
  int status = 200;
  std::string body;
  // Sent as "Content-Type" unless empty.
  std::string contentType = "application/json";
  // The Content-Length written in the head; nullopt: the body's length.
  // One larger than the body makes a body cut short: the server sends the
  // body and closes the connection.
  std::optional<std::size_t> announcedLength;
  // Real seconds the server waits before answering (cut short by stop, or
  // by the client closing the connection).
  double delaySeconds = 0;
  // Never answers: the connection stays open until the server stops or the
  // client closes it.
  bool holdUntilStop = false;

  // A JSON body with `status`.
  static SignInAnswer json(std::string body, int status = 200);
  // A poll answer: {"mr_errcode":state} or {"mr_errcode":state,"mr_code":"code"}.
  static SignInAnswer pollState(int state, std::optional<std::string> code = std::nullopt);
  // A JSON poll answer without "mr_errcode".
  static SignInAnswer missingState();
  // A body that is not JSON (text/plain).
  static SignInAnswer notJson();
  // An HTTP error status with a short text body, such as 404.
  static SignInAnswer httpStatus(int status);
  // `answer` with HTTP status 206 (Partial Content).
  static SignInAnswer partialContent(SignInAnswer answer);
  // `answer` whose head announces its whole body but only the first
  // `sentBytes` bytes are sent before the connection closes.
  static SignInAnswer shortBody(SignInAnswer answer, std::size_t sentBytes);
  // `answer` sent after `seconds` of real time.
  static SignInAnswer slow(SignInAnswer answer, double seconds);
  // No answer until the server stops (or the client gives up).
  static SignInAnswer held();
};

// One request as the server read it.
struct SignInRequest {
  std::string method;
  std::string target;  // path and query as sent
  std::string path;
  std::string query;   // after "?", "" when none
  std::vector<std::pair<std::string, std::string>> headers;  // as sent, in order

  // The first header of `name` (ignoring case), or nullopt.
  std::optional<std::string> header(std::string_view name) const;
  // The value of the query parameter `name` as sent (not unescaped), or
  // nullopt.
  std::optional<std::string> queryValue(std::string_view name) const;
};

class SignInServer {
 public:
  static constexpr const char* kQrPath = "/connect/sdk/qrconnect";
  static constexpr const char* kPollPath = "/connect/l/qrconnect";

  struct Options {
    // 0: an ephemeral port.
    int port = 0;
    // The server stops by itself after this many seconds without a request
    // while no connection is open.
    double idleTimeoutSeconds = 120;
    // How long a poll waits for a queued answer before answering 408.
    double emptyPollHoldSeconds = 1;
    std::size_t maxConnections = 32;
  };

  SignInServer();
  explicit SignInServer(Options options);
  // stop().
  ~SignInServer();
  SignInServer(const SignInServer&) = delete;
  SignInServer& operator=(const SignInServer&) = delete;

  // Makes the certificates, writes the CA file, binds and starts serving.
  // False, with the reason in error(), when a step fails (nothing is left
  // behind then).  Once only.
  bool start();
  // Stops serving: held and delayed answers end without an answer, every
  // thread is joined, the CA file is removed.  Idempotent.
  void stop();
  // True from start() until stop() or the idle time-out.
  bool running() const;
  // Waits, in real time, until the server has stopped (by stop() or idle);
  // false when `seconds` ran out first.
  bool waitUntilStopped(double seconds) const;

  int port() const;
  // The PEM file of the certificate authority ("" before start and after
  // stop).
  std::string caPath() const;
  std::string error() const;
  // The host names the certificate carries (besides IP 127.0.0.1).
  static std::vector<std::string> hostNames();

  // ---- the QR request ----
  void queueQrAnswer(SignInAnswer answer);
  // The standard QR-request answer for `uuid`:
  // {"errcode":0,"uuid":"...","qrcode":{"qrcodelength":N,"qrcodebase64":"..."}}.
  static SignInAnswer qrAnswer(const std::string& uuid);
  // The uuid of the last standard QR answer sent ("" when none).
  std::string lastUuid() const;
  // What the QR code of `uuid` encodes.
  static std::string confirmUrl(const std::string& uuid);
  // A PNG picture of the QR code of `text` (empty when it cannot be made).
  static std::string qrPng(const std::string& text);

  // ---- the long poll ----
  void queuePollAnswer(SignInAnswer answer);
  std::size_t pollAnswersLeft() const;
  // Drops every queued QR and poll answer not yet used.
  void clearAnswers();

  // ---- records ----
  std::vector<SignInRequest> requests() const;
  // Requests to `path` so far.
  std::vector<SignInRequest> requestsTo(std::string_view path) const;
  // Waits, in real time, until at least `count` requests were recorded;
  // false when `seconds` ran out first.
  bool waitForRequests(std::size_t count, double seconds) const;
  void clearRequests();
  // Connections open now (a held answer keeps its connection open until
  // the client closes it).
  std::size_t openConnections() const;
  // Waits, in real time, until no connection is open; false when `seconds`
  // ran out first.
  bool waitForNoConnections(double seconds) const;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace mirelo::testing
