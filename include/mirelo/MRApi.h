// The Mirelo Kit's public entry points.
//
// A host app registers once with its app id and universal link, then sends
// requests to the Mirelo messenger and receives its answers.  Every call is
// made on the main thread.  No call throws: a refusal logs one line to the
// host's log sink and answers false or null (or calls its completion with
// false).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "mirelo/MRResult.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/UserActivity.h"
#include "mirelo/Value.h"
#include "mirelo/model/Model.h"

namespace mirelo {

namespace platform {
class ViewController;
}  // namespace platform

// The host's receiver of the messenger's requests and answers.  Both
// operations are optional: the defaults do nothing.  Called on the main
// thread from inside handleOpenURL / handleOpenUniversalLink.
class MRApiDelegate {
 public:
  virtual ~MRApiDelegate() = default;
  // A request the messenger sends to the host.
  virtual void onReq(const std::shared_ptr<BaseReq>& req) { (void)req; }
  // The messenger's answer to one of the host's requests.
  virtual void onResp(const std::shared_ptr<BaseResp>& resp) { (void)resp; }
};

// Whether the messenger was opened.
using MRSendCompletion = std::function<void(bool success)>;

// ---- universal-link self-check ----

// The steps of the self-check, in order.
enum MRULCheckStep : std::int64_t {
  MRULCheckStepParams = 0,
  MRULCheckStepSystemVersion = 1,
  MRULCheckStepMireloVersion = 2,
  MRULCheckStepSDKInnerOperation = 3,
  MRULCheckStepLaunchMirelo = 4,
  MRULCheckStepBackToCurrentApp = 5,
  MRULCheckStepFinal = 6,
};

// The outcome of one self-check step.
class MRCheckULStepResult {
 public:
  // initWithCheckResult:errorInfo:suggestion:
  MRCheckULStepResult(bool checkResult, String info, String advice)
      : success(checkResult), errorInfo(std::move(info)), suggestion(std::move(advice)) {}
  bool success = false;
  String errorInfo;
  String suggestion;
  // Why a failed step failed, as a value (reason None on success); the
  // message is errorInfo.
  MRRefusal refusal;
  // "MRCheckULStepResult[success: %u, errorInfo: %@, suggestion: %@]"
  std::string description() const;
};

using MRULCheckCompletion =
    std::function<void(MRULCheckStep step, const std::shared_ptr<MRCheckULStepResult>& result)>;

// Log levels of startLogByLevel.
enum MRLogLevel : std::int64_t {
  MRLogLevelNormal = 0,
  MRLogLevelDetail = 1,
};

// A log sink object.  onLog is optional: the default does nothing.
class MRApiLogDelegate {
 public:
  virtual ~MRApiLogDelegate() = default;
  // One log line and the configured level.
  virtual void onLog(const std::string& log, MRLogLevel level) { (void)log; (void)level; }
};

using MRLogBlock = std::function<void(const std::string& log)>;

class MRApi {
 public:
  MRApi() = delete;

  // ---- registration and capability queries ----
  // Validates the universal link and the host's Info.plist and stores both
  // values for the process.  False (with a logged line) on the first failed
  // check; a previous registration then stays in force.
  static bool registerApp(const String& appId, const String& universalLink);
  // The same; on refusal `*refusal` (when given) receives the reason and the
  // logged text, and is emptied on success.
  static bool registerApp(const String& appId, const String& universalLink, MRRefusal* refusal);
  // True when `scheme` is listed in the host's LSApplicationQueriesSchemes.
  static bool isAppRegisterQueryScheme(const String& scheme);
  // True when `scheme` is one of the host's own URL schemes.
  static bool isAppRegisterMireloSecheme(const String& scheme);
  // Whether the messenger is installed / supports the API / the state API.
  static bool isMRAppInstalled();
  static bool isMRAppSupportApi();
  static bool isMRAppSupportStateAPI();
  // The messenger's page in the app store.
  static std::string getMRAppInstallUrl();
  // The kit's version, "1.9.2".
  static std::string getApiVersion();
  // The messenger's version as last reported by the messenger; 0 if unknown.
  static std::uint32_t tryGetMireloVersion();
  // Opens the messenger without a request.
  static bool openMRApp();
  // True when launches go by the messenger's URL scheme rather than by
  // universal link: below iOS 12, or when the messenger lacks the
  // universal-link interface.
  static bool isDefaultLaunchByScheme();

  // ---- logging ----
  // Without a sink, the kit's error lines (every refusal) go to the
  // platform's system log, so that a false is never silent; other lines are
  // dropped.  With a sink, every line goes to the sink alone.  Logged values
  // are cut to 16 KiB, and tokens show only as a digest.
  // Sends every later log line to `logBlock` (a null block changes nothing).
  static void startLogByLevel(MRLogLevel level, MRLogBlock logBlock);
  // Sends every later log line to `logDelegate`, held weakly.  Ignored while
  // another delegate is set: call stopLog first.
  static void startLogByLevel(MRLogLevel level, const std::shared_ptr<MRApiLogDelegate>& logDelegate);
  // Removes the block and the delegate; the level stays.
  static void stopLog();

  // ---- sending ----
  // Sends a request to the messenger: the record goes onto the pasteboard,
  // the command URL opens the messenger.  `completion` (may be empty)
  // learns whether the messenger was opened; the answer comes back later
  // through handleOpenURL.
  static void sendReq(const std::shared_ptr<BaseReq>& req, MRSendCompletion completion);
  // Sends a sign-in request; without the messenger on the device the user
  // signs in on the web, in a web view presented from `viewController`.
  // `delegate` is held weakly and receives the web sign-in's cancel answer
  // (a SendAuthResp with ErrCodeUserCancel): keep it alive for the whole
  // sign-in, since a delegate that is gone gets nothing (an error line says
  // so).  See also mirelo/MRWebSignIn.h.
  static void sendAuthReq(const std::shared_ptr<SendAuthReq>& req,
                          const std::shared_ptr<platform::ViewController>& viewController,
                          const std::shared_ptr<MRApiDelegate>& delegate, MRSendCompletion completion);
  // Answers a request the messenger sent to the host.
  static void sendResp(const std::shared_ptr<BaseResp>& resp, MRSendCompletion completion);
  // sendResp whose completion learns why the messenger was not opened: an
  // empty refusal (reason None) when it was.  Called once, on the main run
  // loop, never from inside this call; may be empty.
  static void sendResponse(const std::shared_ptr<BaseResp>& resp,
                           std::function<void(const MRRefusal& refusal)> completion);

  // ---- a result per request ----
  // Sends `req` like sendReq and reports what became of it to `handler`,
  // exactly once, on the main thread and never from inside this call:
  //   MRAnswered   the messenger answered with errCode 0 (the response of
  //                the request's own class, MRResponseFor<Req>);
  //   MRCancelled  the user cancelled in the messenger (-2), or came back to
  //                the host without answering and no answer came within the
  //                grace period (byReturn);
  //   MRFailed     the messenger answered with another code;
  //   MRNotOpened  the messenger was never opened (the refusal says why);
  //   MRSuperseded a newer request replaced this one first.
  // Only an answer matched to this request reaches the handler; answers go
  // to the delegate given to handleOpenURL as before.  The handler lives in
  // memory: after a relaunch the answer goes to setRestoredResultHandler's.
  template <class Req>
  static void send(const std::shared_ptr<Req>& req, MRResultHandler<typename MRResponseFor<Req>::type> handler) {
    using Resp = typename MRResponseFor<Req>::type;
    sendWithResult(std::static_pointer_cast<BaseReq>(req),
                   handler ? MRResultHandler<BaseResp>([handler = std::move(handler)](const MRAnyResult& result) {
                     handler(typedResult<Resp>(result));
                   })
                           : MRResultHandler<BaseResp>());
  }
  static void sendWithResult(const std::shared_ptr<BaseReq>& req, MRResultHandler<BaseResp> handler);
  // Sign-in with a result: like sendAuthReq (the web sign-in in a page
  // presented from `viewController` when the messenger is missing; there the
  // user's own cancel is MRCancelled).  When `req->state` is empty the kit
  // sets a random state on it and checks it on the answer.  `delegate` (may
  // be null) still receives the web sign-in's cancel response.
  static void sendAuth(const std::shared_ptr<SendAuthReq>& req,
                       const std::shared_ptr<platform::ViewController>& viewController,
                       const std::shared_ptr<MRApiDelegate>& delegate, MRResultHandler<SendAuthResp> handler);

  // ---- matching answers to requests ----
  // What the delegate receives of answers that match no pending request
  // (default Standard: everything, as always).  See MRAnswerPolicy.
  static void setAnswerPolicy(MRAnswerPolicy policy);
  static MRAnswerPolicy answerPolicy();
  // Seconds after the host becomes active again, with a request pending
  // whose answer has not come, before the request is reported cancelled.
  // Default 2 s (kMRDefaultCancelGracePeriod), measured on the run loop's
  // clock; a negative or non-finite value restores the default.
  static void setCancelGracePeriod(double seconds);
  static double cancelGracePeriod();
  // Called (main thread) for every answer that reached no result handler:
  // unsolicited, of the wrong kind or state, a second copy, late, or the
  // host's own record.  Each is also logged and counted.
  static void setUnmatchedAnswerObserver(MRUnmatchedAnswerObserver observer);
  static std::uint64_t unmatchedAnswerCount(MRUnmatchedReason reason);
  // Receives the result of a request an earlier run of the process sent
  // (its identity is kept in the host's user defaults).  Set it at launch,
  // before forwarding the launch URL to handleOpenURL.
  static void setRestoredResultHandler(MRRestoredResultHandler handler);

  // ---- receiving ----
  // Hands a URL that opened the host to the kit.  True when the URL was the
  // messenger's and was consumed.
  static bool handleOpenURL(const std::optional<URL>& url, const std::shared_ptr<MRApiDelegate>& delegate);
  // The same for a universal-link launch (a browsing-web user activity).
  static bool handleOpenUniversalLink(const UserActivity& userActivity,
                                      const std::shared_ptr<MRApiDelegate>& delegate);
  // True when `url` is the messenger's answer named `apiName`.
  static bool isURLContainApi(const String& apiName, const std::optional<URL>& url);

  // ---- universal-link self-check ----
  // Checks the host's universal-link set-up step by step, reporting each
  // step to `completion`.
  static void checkUniversalLinkReady(MRULCheckCompletion completion);
};

}  // namespace mirelo
