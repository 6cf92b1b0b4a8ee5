// Registration, capability queries and the log switch of MRApi.
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"

#include "identity/MireloIdentityHandler.h"
#include "mirelo/platform/Platform.h"
#include "util/Log.h"
#include "util/MRLogUtil.h"
#include "util/MireloApiUtil.h"
#include "util/MainThread.h"

namespace mirelo {

namespace {

constexpr const char* kMireloScheme = "mirelo";
constexpr const char* kMireloULAPIScheme = "mireloULAPI";

// Whether `scheme` is among the Info.plist's "LSApplicationQueriesSchemes".
bool listsQueryScheme(const Dictionary& info, const String& scheme) {
  const Array* schemes = info.mrApi_arrayForKey("LSApplicationQueriesSchemes");
  if (!schemes || schemes->empty()) return false;
  for (const Value& entry : *schemes) {
    const std::string* s = entry.asString();
    if (s && scheme == *s) return true;
  }
  return false;
}

// Whether `scheme` is among the Info.plist's own URL schemes.
bool registersUrlScheme(const Dictionary& info, const String& scheme) {
  const Array* types = info.mrApi_arrayForKey("CFBundleURLTypes");
  if (!types || types->empty()) return false;
  for (const Value& type : *types) {
    const Dictionary* dict = type.asDictionary();
    if (!dict) continue;
    const Array* schemes = dict->mrApi_arrayForKey("CFBundleURLSchemes");
    if (!schemes) continue;
    for (const Value& entry : *schemes) {
      const std::string* s = entry.asString();
      if (s && scheme == *s) return true;
    }
  }
  return false;
}

}  // namespace

bool MRApi::registerApp(const String& appId, const String& universalLink) {
  return registerApp(appId, universalLink, nullptr);
}

bool MRApi::registerApp(const String& appId, const String& universalLink, MRRefusal* refusal) {
  requireMainThread("MRApi::registerApp");
  MRRefusal ignored;
  MRRefusal& out = refusal ? *refusal : ignored;
  out = MRRefusal{};
  const auto refuse = [&](MRRefusalReason reason, std::string message) {
    mrlog::error("%@", message);
    out = MRRefusal{reason, std::move(message)};
    return false;
  };
  if (appId.length() == 0) return refuse(MRRefusalReason::AppIdEmpty, "register fail, appId is nil!");
  if (universalLink.length() == 0) {
    return refuse(MRRefusalReason::UniversalLinkEmpty, "register fail, universal link is nil!");
  }
  if (!universalLink.hasPrefix("https")) {
    return refuse(MRRefusalReason::UniversalLinkNotHttps, "register fail, universal link must be https link!");
  }
  if (universalLink.contains("?")) {
    return refuse(MRRefusalReason::UniversalLinkHasQuery, "register fail, universal link can not contain query!");
  }
  // The Info.plist is read once for the four scheme checks.
  const Dictionary info = platform::current().bundle->infoDictionary();
  for (const char* scheme : {kMireloScheme, kMireloULAPIScheme}) {
    if (!listsQueryScheme(info, scheme)) {
      return refuse(MRRefusalReason::QuerySchemeMissing,
                    format("register fail,  Mirelo scheme(%@) is not be added to LSApplicationQueriesSchemes in plist!",
                           scheme));
    }
  }
  for (const char* scheme : {kMireloScheme, kMireloULAPIScheme}) {
    if (registersUrlScheme(info, scheme)) {
      return refuse(MRRefusalReason::MireloSchemeRegistered,
                    format("register fail, URL types should not register Mirelo scheme(%@)!", scheme));
    }
  }
  String link = universalLink.hasSuffix("/") ? universalLink : String(universalLink.str() + "/");
  MireloIdentityHandler::registerAppID(appId, link);
  // From launch on, the kit watches the host come back for a pending request.
  MRRequestTracker::shared().attach();
  return true;
}

void MRApi::setAnswerPolicy(MRAnswerPolicy policy) { MRRequestTracker::shared().setPolicy(policy); }

MRAnswerPolicy MRApi::answerPolicy() { return MRRequestTracker::shared().policy(); }

void MRApi::setCancelGracePeriod(double seconds) { MRRequestTracker::shared().setGracePeriod(seconds); }

double MRApi::cancelGracePeriod() { return MRRequestTracker::shared().gracePeriod(); }

void MRApi::setUnmatchedAnswerObserver(MRUnmatchedAnswerObserver observer) {
  MRRequestTracker::shared().setUnmatchedObserver(std::move(observer));
}

std::uint64_t MRApi::unmatchedAnswerCount(MRUnmatchedReason reason) {
  return MRRequestTracker::shared().unmatchedCount(reason);
}

void MRApi::setRestoredResultHandler(MRRestoredResultHandler handler) {
  MRRequestTracker::shared().setRestoredHandler(std::move(handler));
}

bool MRApi::isAppRegisterQueryScheme(const String& scheme) {
  requireMainThread("MRApi::isAppRegisterQueryScheme");
  return listsQueryScheme(platform::current().bundle->infoDictionary(), scheme);
}

bool MRApi::isAppRegisterMireloSecheme(const String& scheme) {
  requireMainThread("MRApi::isAppRegisterMireloSecheme");
  return registersUrlScheme(platform::current().bundle->infoDictionary(), scheme);
}

bool MRApi::isMRAppInstalled() { requireMainThread("MRApi::isMRAppInstalled"); return platform::current().application->canOpenURL("mirelo://"); }

bool MRApi::isMRAppSupportApi() { requireMainThread("MRApi::isMRAppSupportApi"); return MireloApiUtil::isMRAppSupportApi(); }

bool MRApi::isMRAppSupportStateAPI() { requireMainThread("MRApi::isMRAppSupportStateAPI"); return platform::current().application->canOpenURL("mireloStateAPI://"); }

std::string MRApi::getMRAppInstallUrl() { requireMainThread("MRApi::getMRAppInstallUrl"); return kMireloAppInstallUrl; }

std::string MRApi::getApiVersion() { requireMainThread("MRApi::getApiVersion"); return kMireloSDKVersion; }

std::uint32_t MRApi::tryGetMireloVersion() {
  requireMainThread("MRApi::tryGetMireloVersion");
  Value v = platform::current().userDefaults->objectForKey(kMireloVersionDefaultsKey);
  if (!v.isNumber() && !v.isBool()) return 0;
  return v.unsignedIntValue();
}

bool MRApi::isDefaultLaunchByScheme() {
  requireMainThread("MRApi::isDefaultLaunchByScheme");
  if (!MireloApiUtil::isiOS12plus()) return true;
  return !MireloApiUtil::isMRSupportUniversalLinkAPI();
}

bool MRApi::openMRApp() {
  requireMainThread("MRApi::openMRApp");
  String appId = MireloIdentityHandler::registerAppID();
  std::optional<URL> url = isDefaultLaunchByScheme() ? MireloApiUtil::getMireloSchemeUrl(appId)
                                                     : MireloApiUtil::getMireloUniversalLink(appId);
  if (!url) return false;
  return platform::current().application->openURL(url->absoluteString());
}

void MRApi::startLogByLevel(MRLogLevel level, MRLogBlock logBlock) {
  requireMainThread("MRApi::startLogByLevel");
  MRLogUtil::sharedInstance().configLogBlock(std::move(logBlock), level);
}

void MRApi::startLogByLevel(MRLogLevel level, const std::shared_ptr<MRApiLogDelegate>& logDelegate) {
  requireMainThread("MRApi::startLogByLevel");
  MRLogUtil::sharedInstance().configLogDelegate(logDelegate, level);
}

void MRApi::stopLog() { requireMainThread("MRApi::stopLog"); MRLogUtil::sharedInstance().removeLog(); }

}  // namespace mirelo
