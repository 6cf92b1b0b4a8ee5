// Launch URLs: the messenger's universal link or its scheme URL, followed by
// the command (the extra URL) and the identity query items.
#include "identity/MireloIdentityHandler.h"

#include "mirelo/platform/Platform.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

String hostBundleIdentifier() { return platform::current().bundle->bundleIdentifier(); }

std::optional<URL> finish(const String& urlStr) {
  std::optional<URL> url = URL::fromString(urlStr.view());
  if (!url) mrlog::error("urlStr:%@", urlStr);
  return url;
}

}  // namespace

String MireloIdentityHandler::appendQueryToUrl(const String& url, const String& key, const String& value) {
  if (url.empty()) {
    mrlog::error("url is nil");
    return url;
  }
  if (key.empty() || value.empty()) {
    mrlog::error("key[%@] or value[%@] invaild", key, value);
    return url;
  }
  std::string out = url.str();
  if (!url.contains("?")) {
    out += "?";
  } else {
    // A text that does not parse as a URL counts as having an empty query:
    // the pair then follows the old query without a separator.  The
    // messenger has always received it that way.
    const std::optional<URL> parsed = URL::fromString(url.view());
    if (parsed && !parsed->query().empty()) out += "&";
  }
  out += format("%@=%@", key, value.mrApi_stringByEscapingForURLArgument());
  return String(std::move(out));
}

std::optional<URL> MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(const String& extraUrl,
                                                                            const String& token,
                                                                            const String& contextId) {
  const String appId = registerAppID();
  if (appId.empty()) {
    mrlog::error("register app is nil");
    return std::nullopt;
  }
  String urlStr = format("https://%@/app/%@/", kMireloUniversalLinkHost, appId);
  if (!extraUrl.empty()) urlStr = format("%@%@", urlStr, extraUrl);
  if (!token.empty()) urlStr = appendQueryToUrl(urlStr, kMireloAuthTokenKey, token);
  if (!contextId.empty()) urlStr = appendQueryToUrl(urlStr, kMireloAuthContextIdKey, contextId);
  urlStr = appendQueryToUrl(urlStr, kMireloAppBundleIdKey, hostBundleIdentifier());
  return finish(urlStr);
}

std::optional<URL> MireloIdentityHandler::genMireloUrlSchemeUrl(const String& extraUrl, bool appendBundleID,
                                                               bool isDegrade) {
  const String appId = registerAppID();
  if (appId.empty()) {
    mrlog::error("register app is nil");
    return std::nullopt;
  }
  String urlStr = format("mirelo://app/%@/", appId);
  if (!extraUrl.empty()) urlStr = format("%@%@", urlStr, extraUrl);
  if (appendBundleID) urlStr = appendQueryToUrl(urlStr, kMireloAppBundleIdKey, hostBundleIdentifier());
  if (isDegrade) urlStr = appendQueryToUrl(urlStr, kMireloDegradeLaunchKey, "1");
  return finish(urlStr);
}

}  // namespace mirelo
