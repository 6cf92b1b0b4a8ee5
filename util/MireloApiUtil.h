// Device and version facts, the messenger's and the host's URL forms,
// recognition of returning URLs, and small encodings.  Stateless apart from
// three caches (system version, screen scale, iPad), which a simulated
// relaunch clears.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/Value.h"

namespace mirelo {

// Build constants shared by every part of the kit.
inline constexpr const char* kMireloSDKVersion = "1.9.2";
// The messenger's universal-link host (https).
inline constexpr const char* kMireloUniversalLinkHost = "open.mirelo.app";
// The open platform's https hosts: the web sign-in pages and the QR-code
// request are served by the first, the QR-code long-poll by the second.
// Tests point them at a local server through the device's host routing, so
// the names (and the certificate check against them) stay as shipped.
inline constexpr const char* kMireloOpenPlatformBaseUrl = "https://open.mirelo.app";
inline constexpr const char* kMireloLongPollBaseUrl = "https://long.open.mirelo.app";
// The messenger's page in the app store.
inline constexpr const char* kMireloAppInstallUrl = "https://apps.apple.com/app/mirelo/id1000000001";
// The user-defaults key of the messenger's version.
inline constexpr const char* kMireloVersionDefaultsKey = "MRMireloVersionNSUserDefaultsKey";

class MireloApiUtil {
 public:
  MireloApiUtil() = delete;

  // ---- device and version ----
  static bool isiOS10plus();  // version > 9.9
  static bool isiOS12plus();  // version > 11.9
  static bool isiOS13plus();  // version > 12.9
  // The system version parsed as a C decimal ("12.9.1" -> 12.9), cached
  // once a value of at least 0.1 was read.
  static double systemVersion();
  static bool is2xScreen();
  static bool isiPad();
  static std::string getSDKVersion();
  // Seconds since 1970, truncated to 32 bits.
  static std::uint32_t genCurrentTime();

  // ---- messenger and host URLs ----
  // "mirelo://app/<appId>/"; nullopt (and "app is nil") for a null app id.
  static std::optional<URL> getMireloSchemeUrl(const String& appId);
  // "https://<messenger host>/app/<appId>/"; nullopt for a null app id.
  static std::optional<URL> getMireloUniversalLink(const String& appId);
  // "<scheme>://"
  static std::optional<URL> getAppUrl(const String& scheme);
  static std::string genSchemePrefixWithAppId(const String& appId);
  static std::string genUniversalLinkPrefixWithAppId(const String& appId, const String& universalLink);
  // "<scheme>://platformId=mirelo" and, with a non-empty extra, "/<extra>".
  static std::optional<URL> getAppUrlWithPlatformId(const String& scheme);
  static std::optional<URL> getAppUrlWithPlatformId(const String& scheme, const String& otherArgs);
  static bool launchApp(const String& scheme);
  static bool isAppInstalledWithCatchException(const String& scheme);
  static bool isAppInstalledWithoutCatchException(const String& scheme);
  static bool isMRAppSupportApi();
  static bool isMRSupportUniversalLinkAPI();

  // ---- recognition of returning URLs ----
  static bool isAppOpenUrl(const std::optional<URL>& url, const String& appId, const String& universalLink);
  static bool isOpenUrlApiCall(const std::optional<URL>& url, const String& apiName, const String& appId,
                               const String& universalLink);

  // ---- encodings ----
  // 64 lower-case hex characters of the SHA-256 of the UTF-8 text; "" for null.
  static std::string sha256(const String& text);
  // Standard Base64; null Data for null, empty or invalid text.
  static Data DecodeWithBase64(const String& text);
  // Splits at "&" and "="; see the implementation for the exact rules.
  static Dictionary parseURLParams(const String& query);

  // ---- property lists ----
  // Binary property list (bplist00) of `plist`; null Data (and a logged
  // line) for a null value or one that cannot be encoded.
  static Data dataFromPropertyList(const Value& plist);
  // The value decoded from binary property-list bytes; a null Value (and a
  // logged line) for null, empty or malformed data.  Data objects inside the
  // result share the input's bytes.
  static Value propertyListFromData(const Data& data);
};

}  // namespace mirelo
