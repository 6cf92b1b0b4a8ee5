// The Mirelo Kit's public entry points.
//
// A host app registers once with its app id and universal link, then sends
// requests to the Mirelo messenger and receives its answers.  Every call is
// made on the main thread.  No call throws: a refusal logs one line to the
// host's log sink and answers false or null (or calls its completion with
// false).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "mirelo/String.h"

namespace mirelo {

// Log levels of startLogByLevel.
enum MRLogLevel : std::int64_t {
  MRLogLevelNormal = 0,
  MRLogLevelDetail = 1,
};

// A log sink object.  onLog is optional: the default does nothing.
class MRApiLogDelegate {
 public:
  virtual ~MRApiLogDelegate() = default;
  // One log line and the configured level.
  virtual void onLog(const std::string& log, MRLogLevel level) { (void)log; (void)level; }
};

using MRLogBlock = std::function<void(const std::string& log)>;

class MRApi {
 public:
  MRApi() = delete;

  // ---- registration and capability queries ----
  // Validates the universal link and the host's Info.plist and stores both
  // values for the process.  False (with a logged line) on the first failed
  // check; a previous registration then stays in force.
  static bool registerApp(const String& appId, const String& universalLink);
  // True when `scheme` is listed in the host's LSApplicationQueriesSchemes.
  static bool isAppRegisterQueryScheme(const String& scheme);
  // True when `scheme` is one of the host's own URL schemes.
  static bool isAppRegisterMireloSecheme(const String& scheme);
  // Whether the messenger is installed / supports the API / the state API.
  static bool isMRAppInstalled();
  static bool isMRAppSupportApi();
  static bool isMRAppSupportStateAPI();
  // The messenger's page in the app store.
  static std::string getMRAppInstallUrl();
  // The kit's version, "1.9.2".
  static std::string getApiVersion();
  // The messenger's version as last reported by the messenger; 0 if unknown.
  static std::uint32_t tryGetMireloVersion();
  // Opens the messenger without a request.
  static bool openMRApp();
  // True when launches go by the messenger's URL scheme rather than by
  // universal link: below iOS 12, or when the messenger lacks the
  // universal-link interface.
  static bool isDefaultLaunchByScheme();

  // ---- logging ----
  // Sends every later log line to `logBlock` (a null block changes nothing).
  static void startLogByLevel(MRLogLevel level, MRLogBlock logBlock);
  // Sends every later log line to `logDelegate`, held weakly.  Ignored while
  // another delegate is set: call stopLog first.
  static void startLogByLevel(MRLogLevel level, const std::shared_ptr<MRApiLogDelegate>& logDelegate);
  // Removes the block and the delegate; the level stays.
  static void stopLog();
};

}  // namespace mirelo
