// Registration, capability queries and the log switch of MRApi.
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"

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
  requireMainThread("MRApi::registerApp");
  if (appId.length() == 0) {
    mrlog::error("register fail, appId is nil!");
    return false;
  }
  if (universalLink.length() == 0) {
    mrlog::error("register fail, universal link is nil!");
    return false;
  }
  if (!universalLink.hasPrefix("https")) {
    mrlog::error("register fail, universal link must be https link!");
    return false;
  }
  if (universalLink.contains("?")) {
    mrlog::error("register fail, universal link can not contain query!");
    return false;
  }
  // The Info.plist is read once for the four scheme checks.
  const Dictionary info = platform::current().bundle->infoDictionary();
  for (const char* scheme : {kMireloScheme, kMireloULAPIScheme}) {
    if (!listsQueryScheme(info, scheme)) {
      mrlog::error("register fail,  Mirelo scheme(%@) is not be added to LSApplicationQueriesSchemes in plist!",
                   scheme);
      return false;
    }
  }
  for (const char* scheme : {kMireloScheme, kMireloULAPIScheme}) {
    if (registersUrlScheme(info, scheme)) {
      mrlog::error("register fail, URL types should not register Mirelo scheme(%@)!", scheme);
      return false;
    }
  }
  String link = universalLink.hasSuffix("/") ? universalLink : String(universalLink.str() + "/");
  MireloIdentityHandler::registerAppID(appId, link);
  return true;
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
