// The universal-link self-check: a harmless text message goes to the
// messenger by universal link with a fixed test context id, and the
// messenger is expected to open the host back through the host's universal
// link.  Each step is reported to the host's callback.  While the check
// waits for the return leg its state lives in the identity handler.
#include <memory>
#include <string>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"
#include "util/MainThread.h"

namespace mirelo {

namespace {

constexpr const char* kTestText = "Test Message From Mirelo SDK Auto Check Method";
constexpr const char* kTestContextId = "TestAutoCheckContextId_a4c123b1612dd272d1371c17149d439536b3216f";

constexpr const char* kGuideUrl = "https://developers.mirelo.app/doc/ios/universal-link-self-check";

// Texts of the steps: what failed (or passed) and what to do.
constexpr const char* kParamsInfo = "appId or universalLink is nil";
constexpr const char* kParamsAdvice =
    "Please pass the correct parameters when calling the +[MRApi register:universalLink:] function";
constexpr const char* kSystemVersionInfo =
    "The current system version is lower than iOS 12.0. Below iOS 12, scheme is used by default";
constexpr const char* kSystemVersionAdvice = "No need to check Universal Link";
constexpr const char* kMireloVersionInfo =
    "The current version of Mirelo does not support the Universal Link. Please upgrade Mirelo.";
constexpr const char* kMireloVersionAdvice = "Please upgrade Mirelo to the latest version.";
constexpr const char* kInnerInfo = "Mirelo SDK inner Error.";
constexpr const char* kInnerAdvice = "Unknown error, please try again.";
constexpr const char* kLaunchInfo = "The universal link for Mirelo is not in effect.";
constexpr const char* kLaunchAdvice = "You can try uninstalling and reinstalling Mirelo.";
constexpr const char* kBackByLinkInfo =
    "Universal Link check passed. The application is launched by Mirelo via Universal Link";
constexpr const char* kBackBySchemeInfo =
    "Universal Link check failed. The application is launched by Mirelo via scheme";
constexpr const char* kGuideText =
    "Common problems self-check guide: [Mirelo\xE5\xBC\x80\xE6\x94\xBE\xE5\xB9\xB3\xE5\x8F\xB0"
    "App iOS\xE7\xAB\xAF\xE6\x8E\xA5\xE5\x85\xA5\xE6\x96\xB0\xE7\x89\x88\xE6\x9C\xAC"
    "SDK \xE5\xB8\xB8\xE8\xA7\x81\xE9\x97\xAE\xE9\xA2\x98\xE8\x87\xAA\xE6\x9F\xA5\xE6\x8C\x87\xE5\xBC\x95]";
constexpr const char* kFinalInfo = "All Check Passed!";

void fail(const MRULCheckCompletion& completion, MRULCheckStep step, const char* info, const char* advice) {
  MRApiInternal::checkUniversalLinkCallback(completion, step, false, info, advice);
}

// The waiting state keeps the callback in the identity handler's form.
MireloIdentityHandler::CheckCompletion toStored(MRULCheckCompletion completion) {
  return [completion = std::move(completion)](std::int64_t step, std::shared_ptr<MRCheckULStepResult> result) {
    completion(static_cast<MRULCheckStep>(step), result);
  };
}

MRULCheckCompletion fromStored(MireloIdentityHandler::CheckCompletion stored) {
  if (!stored) return nullptr;
  return [stored = std::move(stored)](MRULCheckStep step, const std::shared_ptr<MRCheckULStepResult>& result) {
    stored(step, result);
  };
}

String orEmpty(const String& s) { return s.empty() ? String("") : s; }

// The reason, as a value, of a step that failed.
MRRefusalReason refusalOfStep(MRULCheckStep step) {
  switch (step) {
    case MRULCheckStepParams: return MRRefusalReason::NotRegistered;
    case MRULCheckStepSystemVersion: return MRRefusalReason::SystemTooOld;
    case MRULCheckStepMireloVersion: return MRRefusalReason::MessengerTooOld;
    case MRULCheckStepLaunchMirelo: return MRRefusalReason::LaunchFailed;
    case MRULCheckStepBackToCurrentApp: return MRRefusalReason::ReturnedByScheme;
    default: return MRRefusalReason::InnerError;
  }
}

}  // namespace

std::string MRCheckULStepResult::description() const {
  return format("MRCheckULStepResult[success: %u, errorInfo: %@, suggestion: %@]", success, errorInfo, suggestion);
}

void MRApiInternal::checkUniversalLinkCallback(const MRULCheckCompletion& completion, MRULCheckStep step, bool success,
                                       const String& errorInfo, const String& suggestion) {
  auto result = std::make_shared<MRCheckULStepResult>(success, orEmpty(errorInfo), orEmpty(suggestion));
  if (!success) result->refusal = MRRefusal{refusalOfStep(step), result->errorInfo.str()};
  if (completion) completion(step, result);
  if (success) {
    mrlog::line("%@", result->description());
  } else {
    mrlog::error("%@", result->description());
  }
}

void MRApi::checkUniversalLinkReady(MRULCheckCompletion completion) {
  requireMainThread("MRApi::checkUniversalLinkReady");
  if (!completion) {
    mrlog::error("completion is nil");
    return;
  }
  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  if (appId.empty() || universalLink.empty()) {
    return fail(completion, MRULCheckStepParams, kParamsInfo, kParamsAdvice);
  }

  auto appData = std::make_shared<AppCommunicateData>();
  appData->sdkVer = kMireloSDKVersion;
  appData->universalLink = universalLink;
  auto message = std::make_shared<MRMediaMessage>();
  message->title = kTestText;
  message->description = kTestText;
  auto textObject = std::make_shared<MRTextObject>();
  textObject->contentText = kTestText;
  message->mediaObject = textObject;
  auto req = std::make_shared<SendMessageToMRReq>();
  req->bText = true;
  req->text = kTestText;
  req->scene = MRSceneSession;
  req->message = message;

  if (!MireloApiUtil::isiOS12plus()) {
    return fail(completion, MRULCheckStepSystemVersion, kSystemVersionInfo, kSystemVersionAdvice);
  }
  if (!MireloApiUtil::isMRSupportUniversalLinkAPI()) {
    return fail(completion, MRULCheckStepMireloVersion, kMireloVersionInfo, kMireloVersionAdvice);
  }
  if (!MRApiInternal::fillAppData(appData, std::static_pointer_cast<BaseReq>(req))) {
    return fail(completion, MRULCheckStepSDKInnerOperation, kInnerInfo, kInnerAdvice);
  }
  if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
    return fail(completion, MRULCheckStepSDKInnerOperation, kInnerInfo, kInnerAdvice);
  }
  MRRequestTracker::shared().ownRecordWritten();
  const String extraUrl = MRApiInternal::genExtraUrlByReq(req, appData);
  if (extraUrl.empty()) {
    return fail(completion, MRULCheckStepSDKInnerOperation, kInnerInfo, kInnerAdvice);
  }
  const std::optional<URL> url =
      MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(extraUrl, String(), kTestContextId);
  MRApiInternal::launchApplicationWithUrl(url, [completion = std::move(completion)](bool success) {
    if (!success) return fail(completion, MRULCheckStepLaunchMirelo, kLaunchInfo, kLaunchAdvice);
    mrlog::line("Successfully starting Mirelo with the universal link.");
    MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
    identity.setUniversalLinkCheckEnable(true);
    identity.setCheckCompletion(toStored(completion));
  });
}

bool MRApiInternal::handleOpenUniversalLinkCheck(const std::optional<URL>& url) {
  const Dictionary params = MireloApiUtil::parseURLParams(url ? url->query() : String());
  const String contextId =
      params.mrApi_stringForKey(kMireloAuthContextIdKey).mrApi_stringByUnescapingFromURLArgument();
  if (contextId != kTestContextId) {
    mrlog::error("%@, contextID:%@", "universal link check enable but contextId is error.", contextId);
    return false;
  }
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  const bool byUniversalLink =
      !universalLink.empty() && url && String(url->absoluteString()).hasPrefix(universalLink.view());

  MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
  // A copy: the host's callback may replace the stored one while it runs.
  const MRULCheckCompletion completion = fromStored(identity.checkCompletion());
  if (completion) {
    if (byUniversalLink) {
      checkUniversalLinkCallback(completion, MRULCheckStepBackToCurrentApp, true, kBackByLinkInfo, "");
      checkUniversalLinkCallback(completion, MRULCheckStepFinal, true, kFinalInfo, "");
    } else {
      const std::string guide = std::string(kGuideText) + kGuideUrl;
      checkUniversalLinkCallback(completion, MRULCheckStepBackToCurrentApp, false, kBackBySchemeInfo, guide);
    }
  }
  identity.setUniversalLinkCheckEnable(false);
  identity.setCheckCompletion(nullptr);
  return true;
}

}  // namespace mirelo
