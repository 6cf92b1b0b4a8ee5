// Launch URLs: the messenger's universal link or its scheme URL, followed by
// the command (the extra URL) and the identity query items.
#include "identity/MireloIdentityHandler.h"

#include <string>
#include <string_view>

#include "mirelo/platform/Platform.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

String hostBundleIdentifier() { return platform::current().bundle->bundleIdentifier(); }

std::optional<URL> finish(const std::string& urlStr) {
  std::optional<URL> url = URL::fromString(urlStr);
  if (!url) mrlog::error("urlStr:%@", urlStr);
  return url;
}

// The query of a URL text as it is written: what follows the first "?" up
// to a "#", empty when there is no "?" before any "#".  For a text that
// parses as a URL this is the query the parser reports (no "?" or "#" can
// come earlier in a valid URL).
std::string_view writtenQuery(std::string_view text) {
  std::size_t mark = 0;
  while (mark < text.size() && text[mark] != '?' && text[mark] != '#') ++mark;
  if (mark == text.size() || text[mark] == '#') return std::string_view();
  const std::string_view query = text.substr(mark + 1);
  return query.substr(0, query.find('#'));
}

// What is known of a URL text while pairs are appended to it.  Parsing is
// what launch URLs cost most, so a text is parsed only when the separator
// depends on it, and once it is known to parse it is not parsed again: an
// appended pair ("=", "&", "?", letters, digits, "-._~", "%XX" escapes and
// the "(null)" of a missing value) never makes a valid URL invalid.
struct UrlText {
  std::string text;
  bool knownValid = false;
};

// Appends "<key>=<escaped value>" after "?" (no "?" yet) or "&" (a
// non-empty query of a valid URL), as appendQueryToUrl does once the text
// and the key are known to be non-empty.
void appendPair(UrlText& url, std::string_view key, const String& value) {
  if (value.empty()) {
    mrlog::error("key[%@] or value[%@] invaild", key, value);
    return;
  }
  if (url.text.find('?') == std::string::npos) {
    url.text += '?';
  } else if (!writtenQuery(url.text).empty()) {
    // A text that does not parse as a URL counts as having an empty query:
    // the pair then follows the old query without a separator.  The
    // messenger has always received it that way.
    if (!url.knownValid) url.knownValid = URL::fromString(url.text).has_value();
    if (url.knownValid) url.text += '&';
  }
  const String escaped = value.mrApi_stringByEscapingForURLArgument();
  url.text += key;
  url.text += '=';
  url.text += escaped.isNull() ? std::string_view("(null)") : escaped.view();
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
  UrlText text{url.str()};
  appendPair(text, key.view(), value);
  return String(std::move(text.text));
}

std::optional<URL> MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(const String& extraUrl,
                                                                            const String& token,
                                                                            const String& contextId) {
  const String& appId = registerAppID();
  if (appId.empty()) {
    mrlog::error("register app is nil");
    return std::nullopt;
  }
  UrlText url;
  url.text.reserve(256);
  url.text.append("https://").append(kMireloUniversalLinkHost).append("/app/").append(appId.view()).append("/");
  if (!extraUrl.empty()) url.text += extraUrl.view();
  if (!token.empty()) appendPair(url, kMireloAuthTokenKey, token);
  if (!contextId.empty()) appendPair(url, kMireloAuthContextIdKey, contextId);
  appendPair(url, kMireloAppBundleIdKey, hostBundleIdentifier());
  return finish(url.text);
}

std::optional<URL> MireloIdentityHandler::genMireloUrlSchemeUrl(const String& extraUrl, bool appendBundleID,
                                                               bool isDegrade) {
  const String& appId = registerAppID();
  if (appId.empty()) {
    mrlog::error("register app is nil");
    return std::nullopt;
  }
  UrlText url;
  url.text.reserve(128);
  url.text.append("mirelo://app/").append(appId.view()).append("/");
  if (!extraUrl.empty()) url.text += extraUrl.view();
  if (appendBundleID) appendPair(url, kMireloAppBundleIdKey, hostBundleIdentifier());
  if (isDegrade) appendPair(url, kMireloDegradeLaunchKey, "1");
  return finish(url.text);
}

}  // namespace mirelo
