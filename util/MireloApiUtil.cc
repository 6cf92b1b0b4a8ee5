// Device and version facts, the messenger's and the host's URL forms,
// recognition of returning URLs, small encodings and the property-list codec
// entry points.

#include "util/MireloApiUtil.h"

#include <atomic>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <mutex>
#include <string_view>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "util/BinaryPlist.h"
#include "util/Log.h"

namespace mirelo {

namespace {

// The three process-wide caches.  Version and scale are written without
// ordering (every writer stores the same answer); the iPad answer is
// computed once under a lock.  A relaunch clears all three.
struct DeviceCaches {
  enum : int { kUnknown = 0, kNo = 1, kYes = 2 };
  std::atomic<double> version{0};
  std::atomic<int> twoXScreen{kUnknown};
  std::mutex iPadLock;
  int iPad = kUnknown;  // guarded by iPadLock
};

void resetDeviceCaches();

DeviceCaches& caches() {
  static DeviceCaches instance;
  static const bool registered = [] {
    platform::registerProcessReset(&resetDeviceCaches);
    return true;
  }();
  (void)registered;
  return instance;
}

void resetDeviceCaches() {
  DeviceCaches& c = caches();
  c.version.store(0);
  c.twoXScreen.store(DeviceCaches::kUnknown);
  std::lock_guard<std::mutex> lock(c.iPadLock);
  c.iPad = DeviceCaches::kUnknown;
}

// The leading decimal number of `text`, as C's strtod reads a decimal in the
// C locale ("12.9.1" -> 12.9, "abc" -> 0), whatever the process locale.
double parseLeadingDecimal(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  if (i < text.size() && text[i] == '+') ++i;  // from_chars takes "-" but not "+"
  double value = 0;
  const char* first = text.data() + i;
  const auto result = std::from_chars(first, text.data() + text.size(), value, std::chars_format::general);
  if (result.ec == std::errc::invalid_argument) return 0;
  return value;  // out of range: from_chars leaves value unset (0)
}

platform::Platform& device() { return platform::current(); }

// How a string prints in "%@": its text, or "(null)".
std::string_view printed(const String& s) { return s.isNull() ? std::string_view("(null)") : s.view(); }

// Whether `text` begins with the concatenation of `parts`.  The returning
// URLs are tested against several such prefixes on every answer, so they
// are compared piece by piece instead of being formatted first.
bool startsWithAll(std::string_view text, std::initializer_list<std::string_view> parts) {
  for (const std::string_view part : parts) {
    if (text.substr(0, part.size()) != part) return false;
    text.remove_prefix(part.size());
  }
  return true;
}

bool canOpen(const std::string& url) {
  auto app = device().application;
  return app && app->canOpenURL(url);
}

}  // namespace

// ---- device and version ---------------------------------------------------

double MireloApiUtil::systemVersion() {
  DeviceCaches& c = caches();
  double version = c.version.load();
  if (version < 0.1) {
    auto dev = device().device;
    version = dev ? parseLeadingDecimal(dev->systemVersion().view()) : 0;
    c.version.store(version);
  }
  return version;
}

bool MireloApiUtil::isiOS10plus() { return systemVersion() > 9.9; }
bool MireloApiUtil::isiOS12plus() { return systemVersion() > 11.9; }
bool MireloApiUtil::isiOS13plus() { return systemVersion() > 12.9; }

bool MireloApiUtil::is2xScreen() {
  DeviceCaches& c = caches();
  int answer = c.twoXScreen.load();
  if (answer == DeviceCaches::kUnknown) {
    auto dev = device().device;
    const std::optional<double> scale = dev ? dev->screenScale() : std::nullopt;
    answer = scale && *scale == 2.0 ? DeviceCaches::kYes : DeviceCaches::kNo;
    c.twoXScreen.store(answer);
  }
  return answer == DeviceCaches::kYes;
}

bool MireloApiUtil::isiPad() {
  DeviceCaches& c = caches();
  std::lock_guard<std::mutex> lock(c.iPadLock);
  if (c.iPad == DeviceCaches::kUnknown) {
    auto dev = device().device;
    const bool pad = dev && dev->model().hasPrefix("iPad");
    c.iPad = pad ? DeviceCaches::kYes : DeviceCaches::kNo;
  }
  return c.iPad == DeviceCaches::kYes;
}

std::string MireloApiUtil::getSDKVersion() { return kMireloSDKVersion; }

std::uint32_t MireloApiUtil::genCurrentTime() {
  auto loop = device().runLoop;
  const double now = loop ? loop->now() : 0;
  // Seconds since 1970 fit in 64 bits long after any real clock; anything
  // unrepresentable reads as 0.
  if (!std::isfinite(now) || now < 0 || now >= 9.2e18) return 0;
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now));
}

// ---- messenger and host URLs ----------------------------------------------

std::optional<URL> MireloApiUtil::getMireloSchemeUrl(const String& appId) {
  if (appId.isNull()) {
    mrlog::error("app is nil");
    return std::nullopt;
  }
  return URL::fromString(format("mirelo://app/%@/", appId));
}

std::optional<URL> MireloApiUtil::getMireloUniversalLink(const String& appId) {
  if (appId.isNull()) {
    mrlog::error("app is nil");
    return std::nullopt;
  }
  return URL::fromString(format("https://%@/app/%@/", kMireloUniversalLinkHost, appId));
}

std::optional<URL> MireloApiUtil::getAppUrl(const String& scheme) {
  if (scheme.isNull()) {
    mrlog::error("app is nil");
    return std::nullopt;
  }
  return URL::fromString(format("%@://", scheme));
}

std::string MireloApiUtil::genSchemePrefixWithAppId(const String& appId) { return format("%@://", appId); }

std::string MireloApiUtil::genUniversalLinkPrefixWithAppId(const String& appId, const String& universalLink) {
  return format("%@%@", universalLink, appId);
}

std::optional<URL> MireloApiUtil::getAppUrlWithPlatformId(const String& scheme) {
  return URL::fromString(format("%@://%@", scheme, "platformId=mirelo"));
}

std::optional<URL> MireloApiUtil::getAppUrlWithPlatformId(const String& scheme, const String& otherArgs) {
  std::string text = format("%@://%@", scheme, "platformId=mirelo");
  if (!otherArgs.empty()) text += format("/%@", otherArgs);
  return URL::fromString(text);
}

bool MireloApiUtil::launchApp(const String& scheme) {
  const std::optional<URL> url = getAppUrl(scheme);
  if (!url) return false;
  auto app = device().application;
  return app && app->openURL(url->absoluteString());
}

bool MireloApiUtil::isAppInstalledWithCatchException(const String& scheme) {
  if (scheme.isNull()) {
    mrlog::error("app is nil");
    return false;
  }
  try {
    return isAppInstalledWithoutCatchException(scheme);
  } catch (...) {
    return false;
  }
}

// Whatever the platform call raises passes through.
bool MireloApiUtil::isAppInstalledWithoutCatchException(const String& scheme) {
  if (scheme.isNull()) return false;
  const std::optional<URL> url = URL::fromString(format("%@://", scheme));
  if (!url) return false;  // the system cannot be asked about a non-URL
  return canOpen(url->absoluteString());
}

bool MireloApiUtil::isMRAppSupportApi() { return canOpen("mirelo://"); }

bool MireloApiUtil::isMRSupportUniversalLinkAPI() { return canOpen("mireloULAPI://"); }

// ---- recognition of returning URLs ----------------------------------------

// A URL of the app id's own scheme, or one that starts with the registered
// universal link directly followed by the app id.  Both are plain prefix
// tests on the whole text, so a longer id that begins with the app id passes
// too; the handlers behind this check read the command from the path.
bool MireloApiUtil::isAppOpenUrl(const std::optional<URL>& url, const String& appId, const String& universalLink) {
  if (appId.isNull()) {
    mrlog::error("app is nil");
    return false;
  }
  if (!url) return false;
  // The prefixes of genSchemePrefixWithAppId and genUniversalLinkPrefixWithAppId.
  const std::string_view text = url->absoluteString();
  return startsWithAll(text, {printed(appId), "://"}) || startsWithAll(text, {printed(universalLink), printed(appId)});
}

// "<app id>://<name>" or "<universal link><app id>/<name>", as formatted
// from the three strings (a null one prints "(null)").
bool MireloApiUtil::isOpenUrlApiCall(const std::optional<URL>& url, const String& apiName, const String& appId,
                                     const String& universalLink) {
  if (!url) return false;
  const std::string_view text = url->absoluteString();
  return startsWithAll(text, {printed(appId), "://", printed(apiName)}) ||
         startsWithAll(text, {printed(universalLink), printed(appId), "/", printed(apiName)});
}

// ---- encodings ------------------------------------------------------------

std::string MireloApiUtil::sha256(const String& text) {
  if (text.isNull()) return "";
  auto crypto = device().crypto;
  if (!crypto) return "";
  const std::string& bytes = text.str();
  const std::array<std::uint8_t, 32> digest = crypto->sha256(bytes.data(), bytes.size());
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(digest.size() * 2);
  for (std::uint8_t b : digest) {
    hex.push_back(kHex[b >> 4]);
    hex.push_back(kHex[b & 0x0F]);
  }
  return hex;
}

Data MireloApiUtil::DecodeWithBase64(const String& text) {
  if (text.empty()) return Data();
  auto crypto = device().crypto;
  if (!crypto) return Data();
  return crypto->base64Decode(text.view());
}

// Splits at every "&", each piece at every "=".  A piece with at least two
// parts maps its first part to its second (parts after the second are
// dropped, so "z=2=3" gives z -> 2); a piece without "=" is ignored; a later
// duplicate replaces an earlier one.  Nothing is unescaped here.
Dictionary MireloApiUtil::parseURLParams(const String& query) {
  Dictionary params;
  if (query.isNull()) return params;
  const std::string_view text = query.view();
  std::size_t pieceStart = 0;
  while (true) {
    const std::size_t amp = text.find('&', pieceStart);
    const std::string_view piece =
        text.substr(pieceStart, amp == std::string_view::npos ? std::string_view::npos : amp - pieceStart);
    const std::size_t eq = piece.find('=');
    if (eq != std::string_view::npos) {
      const std::string_view key = piece.substr(0, eq);
      std::string_view value = piece.substr(eq + 1);
      const std::size_t nextEq = value.find('=');
      if (nextEq != std::string_view::npos) value = value.substr(0, nextEq);
      params.mrApi_safeSetObject(Value(value), String(key));
    }
    if (amp == std::string_view::npos) break;
    pieceStart = amp + 1;
  }
  return params;
}

// ---- property lists -------------------------------------------------------

Data MireloApiUtil::dataFromPropertyList(const Value& plist) {
  if (plist.isNull()) {
    mrlog::error("propertyList is nil");
    return Data();
  }
  std::string error;
  Data data = bplist::encode(plist, &error);
  if (data.isNull()) mrlog::error("error occur:%@", error);
  return data;
}

Value MireloApiUtil::propertyListFromData(const Data& data) {
  if (data.empty()) {
    mrlog::error("data[%@] is empty", data);
    return Value();
  }
  std::string error;
  Value value = bplist::decode(data, &error);
  if (value.isNull()) mrlog::error("error occur:%@", error);
  return value;
}

}  // namespace mirelo
