// The send pipeline: every outgoing request and response is filled into a
// fresh app data record, put on the pasteboard, named by its command URL and
// handed to the launch strategy.
#include <mutex>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
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
  // A new request supersedes a pending delayed re-send or relaunch.
  platform::current().runLoop->cancelPerforms(delayedCallTarget());

  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  auto appData = std::make_shared<AppCommunicateData>();
  appData->sdkVer = kMireloSDKVersion;
  appData->isAutoResend = isAutoResend;
  if (!MRApi::isDefaultLaunchByScheme() && !forceScheme) appData->universalLink = universalLink;

  mrlog::line("send req[%@], appID:%@, universalLink:%@, sdkVersion:%@", req, appId, universalLink,
              appData->sdkVer);
  if (!req) {
    mrlog::error("send req fail, req is nil!");
    return finish(completion, false);
  }
  if (appId.empty()) {
    mrlog::error("send req fail, no register appID!");
    return finish(completion, false);
  }
  if (universalLink.empty()) {
    mrlog::error("send req fail, no register universal link!");
    return finish(completion, false);
  }
  if (!MRApiInternal::fillAppData(appData, req)) {
    mrlog::error("send req fail, fill appdata fail!");
    return finish(completion, false);
  }
  // The command is tested first: only a header-only record needs the
  // capability query.
  if (appData->command() == 0 && !MireloApiUtil::isMRSupportUniversalLinkAPI()) {
    mrlog::line("no need to setComm, isMRSupportULAPI:%@, command:%@", false, appData->command());
  } else if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
    mrlog::error("send req fail, setComm ret=nil");
    return finish(completion, false);
  }
  const String extraUrl = genExtraUrlByReq(req, appData);
  if (extraUrl.empty()) {
    mrlog::error("send req fail, extra url is nil!");
    return finish(completion, false);
  }
  const String contextId = isAutoResend ? String() : String(genContextId(req));
  launchMireloWithExtralUrl(extraUrl, forceScheme, contextId,
                            [req, contextId, isAutoResend, completion = std::move(completion)](
                                bool success, bool launchedByUniversalLink) {
                              // Only a first send that reached the messenger by
                              // universal link waits for a token.
                              if (success && !isAutoResend && launchedByUniversalLink) {
                                MireloIdentityHandler::shareInstance().setContextReq(req, contextId);
                              }
                              finish(completion, success);
                            });
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
  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  auto appData = std::make_shared<AppCommunicateData>();
  appData->sdkVer = kMireloSDKVersion;
  appData->returnFromApp = true;
  if (resp) appData->result = resp->errCode;
  if (!MRApi::isDefaultLaunchByScheme()) appData->universalLink = universalLink;

  mrlog::line("send resp[%@], appid:%@, universalLink:%@, sdkVer:%@", resp, appId, universalLink, appData->sdkVer);
  if (!resp) {
    mrlog::error("send resp fail, resp is nil!");
    return finish(completion, false);
  }
  if (appId.empty()) {
    mrlog::error("send resp fail, no register appID!");
    return finish(completion, false);
  }
  if (universalLink.empty()) {
    mrlog::error("send resp fail, no register universal link!");
    return finish(completion, false);
  }
  if (!MRApiInternal::fillAppData(appData, resp)) {
    mrlog::error("send resp fail, fill appdata fail!");
    return finish(completion, false);
  }
  if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
    mrlog::error("send resp fail, setComm ret=nil");
    return finish(completion, false);
  }
  MRApiInternal::launchMireloWithExtralUrl(kSendRespCommand, false, String(),
                            [completion = std::move(completion)](bool success, bool) { finish(completion, success); });
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
