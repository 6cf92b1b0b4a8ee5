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
// Finish codes:
//    0  the user confirmed; the code is set
//   -1  no session id; an empty, cut-short, oversized or non-JSON poll
//       answer; poll state 407, 500 or any other unknown or missing state
//   -2  the connection failed, or the HTTP status was neither 200 nor 206
//   -3  the QR answer was not a JSON object or carried no usable picture
//   -4  poll state 403
//   -5  poll state 402
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/platform/Platform.h"

namespace mirelo {

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
  // arrives later through the delegate); false while a session runs.
  bool Auth(const String& appId, const String& nonceStr, const String& timeStamp, const String& scope,
            const String& signature, const String& schemeData);
  // Ends any session without a callback.  Always true.
  bool StopAuth();

  // ---- the session's steps ----
  void resetAll();
  void resetConnection();
  bool sendAuthRequest(const std::optional<URL>& url);
  void startTimeoutCheck();
  void stopTimeoutCheck();
  void startPolling();
  void handleError(int errCode);
  void handleGotQrcode();
  void handleResponse(const String& text);

  // ---- state ----
  std::weak_ptr<MireloAuthAPIDelegate> delegate;
  const String sdkVersion{"2.0"};
  // True from a successful start until the session ends.
  bool isAuthing = false;
  // The body length the current answer announced.
  std::uint32_t retContentLength = 0;
  // 0 waiting for the QR code (also idle), 1 polling, 2 scanned and polling.
  std::uint32_t status = 0;
  std::shared_ptr<platform::HttpConnection> connection;
  std::vector<std::uint8_t> respData;
  String uuid;
  Data qrCodeData;
  String authCode;
  // The pending re-poll timer (0: none).
  platform::RunLoop::TimerId timer = 0;
  // The last non-final poll state, sent back on the next poll.
  std::int64_t lastState = 0;
  std::int64_t httpRetStatusCode = 0;

  // ---- the connection's events (platform::HttpConnectionDelegate) ----
  void didReceiveResponse(const platform::HttpResponse& response) override;
  void didReceiveData(const Data& data) override;
  void didFailWithError(const platform::HttpError& error) override;
  void didFinishLoading() override;

 private:

  bool connect(const std::string& urlText, double timeoutSeconds);
  // Ends the session and then reports `errCode` with `code`.
  void finish(int errCode, const String& code);
  String delegateDescription() const;

  // Expires when the object is destroyed, so that a step can tell whether a
  // delegate call destroyed it.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace mirelo
