// The send pipeline: every outgoing request and response is filled into a
// fresh app data record, put on the pasteboard, named by its command URL and
// handed to the launch strategy.
#include <mutex>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"
#include "util/MainThread.h"
#include "webauth/WapAuthHandler.h"

namespace mirelo {

namespace {

// The command URL of every response.
constexpr const char* kSendRespCommand = "sendresp/?";

std::mutex& counterMutex() {
  static std::mutex m;
  return m;
}
std::uint32_t& counter() {
  static std::uint32_t value = 0;
  return value;
}
void resetCounter() {
  std::lock_guard<std::mutex> lock(counterMutex());
  counter() = 0;
}

void finish(const MRSendCompletion& completion, bool success) {
  if (completion) completion(success);
}

// Why a launch that went ahead did not open the messenger.
MRRefusal launchRefusal() {
  if (!MRApi::isMRAppInstalled()) return MRRefusal{MRRefusalReason::MessengerMissing, "the messenger is not installed"};
  return MRRefusal{MRRefusalReason::LaunchFailed, "launch app fail"};
}

}  // namespace

const void* MRApiInternal::delayedCallTarget() {
  static const char kTarget = 0;
  return &kTarget;
}

std::uint32_t MRApiInternal::genAutoIncreaceID() {
  platform::registerProcessReset(&resetCounter);
  std::lock_guard<std::mutex> lock(counterMutex());
  return ++counter();  // wraps silently at 2^32
}

std::string MRApiInternal::genContextId(const std::shared_ptr<BaseReq>& req) {
  const std::string seed = format("%@_%p_%@", MireloApiUtil::genCurrentTime(),
                                  static_cast<const void*>(req.get()), genAutoIncreaceID());
  return MireloApiUtil::sha256(seed);
}

void MRApi::sendReq(const std::shared_ptr<BaseReq>& req, MRSendCompletion completion) {
  requireMainThread("MRApi::sendReq");
  MRApiInternal::sendReq(req, false, false, std::move(completion));
}

void MRApiInternal::sendReq(const std::shared_ptr<BaseReq>& req, bool isAutoResend, bool forceScheme,
                    MRSendCompletion completion) {
  sendReq(req, isAutoResend, forceScheme, std::move(completion), nullptr);
}

void MRApiInternal::sendReq(const std::shared_ptr<BaseReq>& req, bool isAutoResend, bool forceScheme,
                            MRSendCompletion completion, MRResultHandler<BaseResp> handler) {
  // A new request supersedes a pending delayed re-send or relaunch.
  platform::current().runLoop->cancelPerforms(delayedCallTarget());

  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  auto appData = std::make_shared<AppCommunicateData>();
  appData->sdkVer = kMireloSDKVersion;
  appData->isAutoResend = isAutoResend;
  if (!MRApi::isDefaultLaunchByScheme() && !forceScheme) appData->universalLink = universalLink;

  const auto fail = [&](MRRefusalReason reason, std::string message) {
    finish(completion, false);
    MRRequestTracker::refused(std::move(handler), MRRefusal{reason, std::move(message)});
  };
  // A refusal whose reason is the line it logs.
  const auto refuse = [&](MRRefusalReason reason, const char* line) {
    mrlog::error(line);
    fail(reason, line);
  };
  mrlog::line("send req[%@], appID:%@, universalLink:%@, sdkVersion:%@", req, appId, universalLink,
              appData->sdkVer);
  if (!req) {
    return refuse(MRRefusalReason::InvalidRequest, "send req fail, req is nil!");
  }
  if (appId.empty()) {
    return refuse(MRRefusalReason::NotRegistered, "send req fail, no register appID!");
  }
  if (universalLink.empty()) {
    return refuse(MRRefusalReason::NotRegistered, "send req fail, no register universal link!");
  }
  {
    // The conversion names the field that broke its limit.
    mrlog::ErrorCapture capture;
    if (!MRApiInternal::fillAppData(appData, req)) {
      const std::string why = capture.first();
      mrlog::error("send req fail, fill appdata fail!");
      return fail(MRRefusalReason::RefusedByLimit, why);
    }
  }
  // The command is tested first: only a header-only record needs the
  // capability query.
  bool wroteRecord = false;
  if (appData->command() == 0 && !MireloApiUtil::isMRSupportUniversalLinkAPI()) {
    mrlog::line("no need to setComm, isMRSupportULAPI:%@, command:%@", false, appData->command());
  } else if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
    return refuse(MRRefusalReason::PasteboardFailed, "send req fail, setComm ret=nil");
  } else {
    wroteRecord = true;
    MRRequestTracker::shared().ownRecordWritten();
  }
  String extraUrl;
  {
    mrlog::ErrorCapture capture;
    extraUrl = genExtraUrlByReq(req, appData);
    if (extraUrl.empty()) {
      const std::string why = capture.first();
      mrlog::error("send req fail, extra url is nil!");
      // The record never reached the messenger.
      if (wroteRecord) MRRequestTracker::shared().restoreUserPasteboard();
      return fail(MRRefusalReason::RefusedByLimit, why);
    }
  }
  const String contextId = isAutoResend ? String() : String(genContextId(req));
  const std::string command = extraUrl.str().substr(0, extraUrl.str().find('/') + 1);
  launchMireloWithExtralUrl(
      extraUrl, forceScheme, contextId,
      [req, contextId, command, isAutoResend, wroteRecord, completion = std::move(completion),
       handler = std::move(handler)](bool success, bool launchedByUniversalLink) mutable {
        // Only a first send that reached the messenger by universal link
        // waits for a token.
        if (success && !isAutoResend && launchedByUniversalLink) {
          MireloIdentityHandler::shareInstance().setContextReq(req, contextId);
        }
        if (success && !isAutoResend) MRRequestTracker::shared().launched(req, command, contextId, std::move(handler));
        if (!success) {
          // The messenger never saw the record: the user's text goes back.
          if (wroteRecord) MRRequestTracker::shared().restoreUserPasteboard();
          MRRequestTracker::refused(std::move(handler), launchRefusal());
        }
        finish(completion, success);
      });
}

void MRApi::sendWithResult(const std::shared_ptr<BaseReq>& req, MRResultHandler<BaseResp> handler) {
  MRApiInternal::sendReq(req, false, false, nullptr, std::move(handler));
}

std::string MRApiInternal::genState() {
  std::uint8_t bytes[16] = {};
  const auto& crypto = platform::current().crypto;
  if (!crypto || !crypto->randomBytes(bytes, sizeof bytes)) {
    // No secure source: a digest of the time and the counter still differs
    // per request.
    return MireloApiUtil::sha256(format("%@_%@", platform::current().runLoop->now(), genAutoIncreaceID()))
        .substr(0, 32);
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  for (std::uint8_t b : bytes) {
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 15]);
  }
  return out;
}

namespace {

// The delegate the web sign-in answers: it ends a pending sign-in on the
// user's cancel and passes every response on to the host's delegate.
class WebSignInDelegate : public MRApiDelegate {
 public:
  explicit WebSignInDelegate(std::weak_ptr<MRApiDelegate> host) : host_(std::move(host)) {}
  void onResp(const std::shared_ptr<BaseResp>& resp) override {
    MRRequestTracker::shared().webSignInCancelled(resp);
    if (auto host = host_.lock()) host->onResp(resp);
  }

 private:
  std::weak_ptr<MRApiDelegate> host_;
};

// The web sign-in holds its delegate weakly: the kit keeps the wrapper.
std::shared_ptr<MRApiDelegate>& webSignInDelegate() {
  static std::shared_ptr<MRApiDelegate> held;
  return held;
}

void dropWebSignInDelegate() { webSignInDelegate().reset(); }

}  // namespace

void MRApi::sendAuth(const std::shared_ptr<SendAuthReq>& req,
                     const std::shared_ptr<platform::ViewController>& viewController,
                     const std::shared_ptr<MRApiDelegate>& delegate, MRResultHandler<SendAuthResp> handler) {
  MRResultHandler<BaseResp> any;
  if (handler) {
    any = [handler = std::move(handler)](const MRAnyResult& result) { handler(typedResult<SendAuthResp>(result)); };
  }
  platform::current().runLoop->cancelPerforms(MRApiInternal::delayedCallTarget());
  if (!req) {
    mrlog::error("req is nil");
    return MRRequestTracker::refused(std::move(any), MRRefusal{MRRefusalReason::InvalidRequest, "req is nil"});
  }
  if (req->state.empty()) req->state = MRApiInternal::genState();
  if (isMRAppInstalled()) return sendWithResult(req, std::move(any));
  const String appId = MireloIdentityHandler::registerAppID();
  if (appId.empty()) {
    mrlog::error("send req fail, no register appID!");
    return MRRequestTracker::refused(std::move(any),
                                     MRRefusal{MRRefusalReason::NotRegistered, "send req fail, no register appID!"});
  }
  platform::registerProcessReset(&dropWebSignInDelegate);
  webSignInDelegate() = std::make_shared<WebSignInDelegate>(delegate);
  WapAuthHandler::shareWapAuthHandlerInstance().beginWapAuth(req, viewController, appId, webSignInDelegate());
  MRRequestTracker::shared().launched(req, "wapauth", String(), std::move(any), /*inApp=*/true);
}

void MRApi::sendAuthReq(const std::shared_ptr<SendAuthReq>& req,
                        const std::shared_ptr<platform::ViewController>& viewController,
                        const std::shared_ptr<MRApiDelegate>& delegate, MRSendCompletion completion) {
  requireMainThread("MRApi::sendAuthReq");
  platform::current().runLoop->cancelPerforms(MRApiInternal::delayedCallTarget());
  if (!req) {
    mrlog::error("req is nil");
    return finish(completion, false);
  }
  if (!isMRAppInstalled()) {
    const bool started = WapAuthHandler::shareWapAuthHandlerInstance().beginWapAuth(
        req, viewController, MireloIdentityHandler::registerAppID(), delegate);
    return finish(completion, started);
  }
  sendReq(req, std::move(completion));
}

void MRApi::sendResp(const std::shared_ptr<BaseResp>& resp, MRSendCompletion completion) {
  requireMainThread("MRApi::sendResp");
  MRApiInternal::sendResp(resp, [completion = std::move(completion)](const MRRefusal& refusal) {
    finish(completion, !refusal);
  });
}

void MRApi::sendResponse(const std::shared_ptr<BaseResp>& resp, std::function<void(const MRRefusal&)> completion) {
  requireMainThread("MRApi::sendResponse");
  // Reported on the run loop, never from inside this call.
  MRApiInternal::sendResp(resp, [completion = std::move(completion)](const MRRefusal& refusal) {
    if (!completion) return;
    platform::current().runLoop->post([completion, refusal] { completion(refusal); });
  });
}

void MRApiInternal::sendResp(const std::shared_ptr<BaseResp>& resp, std::function<void(const MRRefusal&)> completion) {
  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  auto appData = std::make_shared<AppCommunicateData>();
  appData->sdkVer = kMireloSDKVersion;
  appData->returnFromApp = true;
  if (resp) appData->result = resp->errCode;
  if (!MRApi::isDefaultLaunchByScheme()) appData->universalLink = universalLink;

  const auto fail = [&](MRRefusalReason reason, std::string message) {
    if (completion) completion(MRRefusal{reason, std::move(message)});
  };
  // A refusal whose reason is the line it logs.
  const auto refuse = [&](MRRefusalReason reason, const char* line) {
    mrlog::error(line);
    fail(reason, line);
  };
  mrlog::line("send resp[%@], appid:%@, universalLink:%@, sdkVer:%@", resp, appId, universalLink, appData->sdkVer);
  if (!resp) {
    return refuse(MRRefusalReason::InvalidRequest, "send resp fail, resp is nil!");
  }
  if (appId.empty()) {
    return refuse(MRRefusalReason::NotRegistered, "send resp fail, no register appID!");
  }
  if (universalLink.empty()) {
    return refuse(MRRefusalReason::NotRegistered, "send resp fail, no register universal link!");
  }
  {
    mrlog::ErrorCapture capture;
    if (!MRApiInternal::fillAppData(appData, resp)) {
      const std::string why = capture.first();
      mrlog::error("send resp fail, fill appdata fail!");
      return fail(MRRefusalReason::RefusedByLimit, why);
    }
  }
  if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
    return refuse(MRRefusalReason::PasteboardFailed, "send resp fail, setComm ret=nil");
  }
  MRRequestTracker::shared().ownRecordWritten();
  MRApiInternal::launchMireloWithExtralUrl(kSendRespCommand, false, String(),
                                           [completion = std::move(completion)](bool success, bool) {
                                             if (!success) MRRequestTracker::shared().restoreUserPasteboard();
                                             if (completion) completion(success ? MRRefusal{} : launchRefusal());
                                           });
}

bool MRApiInternal::fillAppData(const std::shared_ptr<AppCommunicateData>& appData, const std::shared_ptr<BaseReq>& req) {
  if (!req) {
    mrlog::error("fill appdata fail, req is nil!");
    return false;
  }
  if (!appData) {
    mrlog::error("fill appdata fail, app data is nil!");
    return false;
  }
  return appData->ReqToData(req);
}

bool MRApiInternal::fillAppData(const std::shared_ptr<AppCommunicateData>& appData, const std::shared_ptr<BaseResp>& resp) {
  if (!resp) {
    mrlog::error("fill appdata fail, resp is nil!");
    return false;
  }
  if (!appData) {
    mrlog::error("fill appdata fail, app data is nil!");
    return false;
  }
  return appData->RespToData(resp);
}

void MRApiInternal::delaySendContextReq(const std::shared_ptr<BaseReq>& contextReq, bool forceScheme) {
  if (contextReq) {
    mrlog::line("context req:%@", contextReq);
    sendReq(contextReq, true, forceScheme, nullptr);
  } else {
    mrlog::error("context req is nil!");
  }
}

}  // namespace mirelo
