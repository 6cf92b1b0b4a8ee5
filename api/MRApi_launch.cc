// How the messenger is opened: by universal link with the keychain token and
// a context id, or by the messenger's scheme, with one fallback from a
// failed universal link to a scheme URL marked as a degrade.
#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"
#include "mirelo/platform/Platform.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

// The keychain token, for a universal link that will be opened with the
// universal-links-only option.  Where the system cannot promise that (below
// iOS 10, or a version the kit cannot read), an https URL may open in the
// browser: the token stays out of it.
String tokenForUniversalLink() {
  if (!MireloApiUtil::isiOS10plus()) {
    mrlog::line("universal-links-only opening is unavailable, the launch carries no token");
    return String();
  }
  return MireloIdentityHandler::loadTokenFromKeychain();
}

}  // namespace

void MRApiInternal::launchMireloWithExtralUrl(const String& extraUrl, bool forceScheme, const String& contextId,
                                      MRLaunchCompletion completion) {
  const bool byScheme = forceScheme || MRApi::isDefaultLaunchByScheme();
  const bool appendBundleID = MireloApiUtil::isiOS13plus() && MireloApiUtil::isMRSupportUniversalLinkAPI();

  if (byScheme) {
    std::optional<URL> url = MireloIdentityHandler::genMireloUrlSchemeUrl(extraUrl, appendBundleID, false);
    launchApplicationWithUrl(url, [completion = std::move(completion)](bool success) {
      mrlog::line("launch app with scheme url ret:%@", success);
      if (completion) completion(success, false);
    });
    return;
  }

  String token = tokenForUniversalLink();
  std::optional<URL> universalLink =
      MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(extraUrl, token, contextId);
  // Built before anything is tried, so that the fallback does not depend on
  // what the first attempt changed.
  std::optional<URL> degradeUrl = MireloIdentityHandler::genMireloUrlSchemeUrl(extraUrl, appendBundleID, true);
  launchApplicationWithUrl(universalLink, [universalLink, degradeUrl, completion = std::move(completion)](
                                              bool success) mutable {
    if (success) {
      mrlog::line("launch app with universal link, ret:%@", true);
      if (completion) completion(true, true);
      return;
    }
    mrlog::error("lauch app fail and need degrade, url:%@, schemeURL:%@", universalLink, degradeUrl);
    launchApplicationWithUrl(degradeUrl, [degradeUrl, completion = std::move(completion)](bool degraded) {
      mrlog::line("degrade launch app ret:%@, with url:%@", degraded, degradeUrl);
      if (completion) completion(degraded, false);
    });
  });
}

void MRApiInternal::launchApplicationWithUrl(const std::optional<URL>& url, MROpenCompletion completion) {
  if (!url) {
    mrlog::error("launch app fail, url is nil!");
    if (completion) completion(false);
    return;
  }
  const std::string& text = url->absoluteString();
  const bool https = text.rfind("https", 0) == 0;
  platform::Application& app = *platform::current().application;
  if (https && MireloApiUtil::isiOS10plus()) {
    app.openURL(text, /*universalLinksOnly=*/true, [text, completion = std::move(completion)](bool success) {
      if (success) {
        mrlog::line("launch app with ul only success");
      } else {
        mrlog::error("launch app with ul only fail, url:%@", text);
      }
      if (completion) completion(success);
    });
    return;
  }
  const bool success = app.openURL(text);
  if (success) {
    mrlog::line("launch app with url success");
  } else {
    mrlog::error("launch app fail, isUlLaunch:%@, url:%@", https, text);
  }
  if (completion) completion(success);
}

void MRApiInternal::delayLaunchMRWithRefreshTokenFail(const Dictionary& params) {
  mrlog::line("delay launch mr with refresh token fail");
  const Value isShare = params.mrApi_numberForKey("isShare");
  const Value errCode = params.mrApi_numberForKey("errCode");
  const String errMsg = params.mrApi_stringForKey("errMsg");
  const String appId = MireloIdentityHandler::registerAppID();
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  const String bundleId = platform::current().bundle->bundleIdentifier();

  const String extraUrl = format("refreshTokenFail/?%@=%@&%@=%@&%@=%@&%@=%@", "bundleID",
                                 bundleId.mrApi_stringByEscapingForURLArgument(), "isShare", isShare, "errCode",
                                 errCode, "errMsg", errMsg.mrApi_stringByEscapingForURLArgument());
  std::optional<URL> url = MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(
      extraUrl, tokenForUniversalLink(), String());

  if (MireloApiUtil::isMRSupportUniversalLinkAPI()) {
    auto appData = std::make_shared<AppCommunicateData>();
    appData->sdkVer = kMireloSDKVersion;
    if (!MRApi::isDefaultLaunchByScheme()) appData->universalLink = universalLink;
    appData->MakeCommand(0);
    if (!AppCommunicate::setAppCommunicateData(appData, appId)) {
      mrlog::error("refresh token fail, set appdata fail");
    } else {
      MRRequestTracker::shared().ownRecordWritten();
    }
  }
  launchApplicationWithUrl(url, [url](bool success) { mrlog::line("openURL success:%d, url:%@", success, url); });
}

}  // namespace mirelo
