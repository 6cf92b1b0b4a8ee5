// Sign-in by QR code, for a device without the messenger.
//
// MireloAuthSDK asks the open platform for a sign-in QR code, hands the
// picture to the host, then long-polls the platform until the user has
// scanned the code with the messenger on another device and confirmed it;
// finally it hands the host an authorisation code.  One object runs one
// sign-in at a time.  The host supplies the signed parameters (nonce,
// timestamp, scope, signature); the kit does not compute the signature.
//
// Threading: call it on the main thread.  Its connection events and its
// 2-second re-poll timer run on the platform's main run loop, and the
// delegate is called there.
//
// Outcomes: every session that started ends with exactly one
// onAuthFinish call (0 with the code, or a negative code below), after
// which the object is idle and a new Auth is accepted, even from inside
// that call.  The only silent ends are a refused start (a session already
// running, or no URL) and a poll connection that could not be made.
//
// Each session has its own identity: a host that stops the session and
// starts a new one from inside any delegate call gets a clean new session;
// nothing of the old one (its re-poll timer, its connection, the rest of the
// step that called the host) touches the new one.
//
// Finish codes (MireloAuthFinishCode):
//    0  kMireloAuthSuccess: the user confirmed; the code is set
//   -1  kMireloAuthFailed: no session id; an empty, cut-short, oversized or
//       non-JSON poll answer; poll state 407, 500 or any other unknown or
//       missing state
//   -2  kMireloAuthConnectionFailed: the connection failed, or the HTTP
//       status was neither 200 nor 206
//   -3  kMireloAuthNoQrcode: the QR answer was not a JSON object or carried
//       no usable picture
//   -4  kMireloAuthState403: poll state 403
//   -5  kMireloAuthState402: poll state 402
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/platform/Platform.h"

namespace mirelo {

// The codes onAuthFinish reports (see above).
enum MireloAuthFinishCode : int {
  kMireloAuthSuccess = 0,
  kMireloAuthFailed = -1,
  kMireloAuthConnectionFailed = -2,
  kMireloAuthNoQrcode = -3,
  kMireloAuthState403 = -4,
  kMireloAuthState402 = -5,
};

// Why Auth refused to start a session.
enum class MireloAuthRefusal : int {
  kNone = 0,              // the session started
  kAlreadyRunning = 1,    // a session runs (not logged)
  kInvalidUrl = 2,        // the parameters made no URL (not logged)
  kNoConnection = 3,      // the platform made no connection ("connection is nil")
};

struct MireloAuthStartResult {
  MireloAuthRefusal refusal = MireloAuthRefusal::kNone;
  // The refusal in words, as the log line gives it when there is one;
  // empty when the session started.
  std::string message;
};

// The host's receiver of a QR sign-in's events.  Every operation is
// optional: the defaults do nothing.
class MireloAuthAPIDelegate {
 public:
  virtual ~MireloAuthAPIDelegate() = default;
  // The QR code to show.  `image` is null when the picture could not be
  // decoded; the bytes are in MireloAuthSDK::qrCodeData during the call.
  virtual void onAuthGotQrcode(const std::shared_ptr<platform::Image>& image) { (void)image; }
  // The user has scanned the code (reported once per session).
  virtual void onQrcodeScanned() {}
  // The session ended: 0 with the authorisation code, or a negative code.
  virtual void onAuthFinish(int errCode, const String& authCode) {
    (void)errCode;
    (void)authCode;
  }
};

class MireloAuthSDK : public platform::HttpConnectionDelegate {
 public:
  // The most bytes a platform answer may have; a longer one ends the
  // session with -1.  A QR picture is a few kilobytes.
  static constexpr std::size_t kMaxAnswerBytes = 1024 * 1024;

  MireloAuthSDK();
  ~MireloAuthSDK() override;
  MireloAuthSDK(const MireloAuthSDK&) = delete;
  MireloAuthSDK& operator=(const MireloAuthSDK&) = delete;

  // Starts a session: true when the QR-code request went out (the code
  // arrives later through the delegate); false while a session runs, and
  // when the request could not be made.
  bool Auth(const String& appId, const String& nonceStr, const String& timeStamp, const String& scope,
            const String& signature, const String& schemeData);
  // The same, telling why a start was refused.
  bool Auth(const String& appId, const String& nonceStr, const String& timeStamp, const String& scope,
            const String& signature, const String& schemeData, MireloAuthStartResult* result);
  // Ends any session without a callback.  Always true.
  bool StopAuth();

  // The receiver of the session's events, held weakly.
  std::weak_ptr<MireloAuthAPIDelegate> delegate;

  // ---- state, read only ----
  const String& sdkVersion() const { return sdkVersion_; }
  // True from a successful start until the session ends.
  bool isAuthing() const { return isAuthing_; }
  // The body length the current answer announced.
  std::uint32_t retContentLength() const { return retContentLength_; }
  // 0 waiting for the QR code (also idle), 1 polling, 2 scanned and polling.
  std::uint32_t status() const { return status_; }
  // Whether a request is in flight.
  bool hasConnection() const { return static_cast<bool>(connection_); }
  const String& uuid() const { return uuid_; }
  // The QR picture's bytes, while a session polls.
  const Data& qrCodeData() const { return qrCodeData_; }
  const String& authCode() const { return authCode_; }
  // The pending re-poll timer (0: none).
  platform::RunLoop::TimerId timer() const { return timer_; }
  // The last non-final poll state, sent back on the next poll.
  std::int64_t lastState() const { return lastState_; }
  std::int64_t httpRetStatusCode() const { return httpRetStatusCode_; }
  // Changes with every session (and every end of one).
  std::uint64_t sessionId() const { return session_; }

  // ---- the connection's events (platform::HttpConnectionDelegate) ----
  void didReceiveResponse(const platform::HttpResponse& response) override;
  void didReceiveData(const Data& data) override;
  void didFailWithError(const platform::HttpError& error) override;
  void didFinishLoading() override;

 private:
  // ---- the session's steps ----
  void resetAll();
  void resetConnection();
  bool sendAuthRequest(const std::optional<URL>& url, MireloAuthStartResult* result);
  void startTimeoutCheck();
  void stopTimeoutCheck();
  void startPolling();
  void handleError(int errCode);
  void handleGotQrcode();
  void handleResponse(const String& text);

  bool connect(const std::string& urlText, double timeoutSeconds);
  // Ends the session and then reports `errCode` with `code`.
  void finish(int errCode, const String& code);
  String delegateDescription() const;
  // Whether the session `session` is still the current one after a call
  // out to the host (which may have destroyed this object).
  bool stillCurrent(const std::weak_ptr<bool>& self, std::uint64_t session) const {
    return !self.expired() && session == session_ && isAuthing_;
  }

  const String sdkVersion_{"2.0"};
  bool isAuthing_ = false;
  std::uint32_t retContentLength_ = 0;
  std::uint32_t status_ = 0;
  std::shared_ptr<platform::HttpConnection> connection_;
  std::vector<std::uint8_t> respData_;
  String uuid_;
  Data qrCodeData_;
  String authCode_;
  platform::RunLoop::TimerId timer_ = 0;
  std::int64_t lastState_ = 0;
  std::int64_t httpRetStatusCode_ = 0;
  std::uint64_t session_ = 0;

  // Expires when the object is destroyed, so that a step can tell whether a
  // delegate call destroyed it.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace mirelo
