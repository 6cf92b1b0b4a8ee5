// The one place that keeps the host's identity towards the messenger: the
// registered app id and universal link (process-wide), the request waiting
// for a token and its context id, the token in the keychain, the state of a
// running universal-link self-check, and the launch URLs that carry them.
//
// The token is stored as a generic-password keychain item of the host app
// (service "MireloOpenSDKKeyChainService_<bundle id>", account
// "MireloOpenSDKKeyChainAccount", readable after the first unlock, this
// device only) whose value is a keyed archive of the token's UTF-8 bytes.
// The token itself is never logged, only its SHA-256.
//
// The context request, its id and the self-check state live in memory and
// die with the process; the token survives.  Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "identity/MRError.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/Value.h"

namespace mirelo {

class BaseReq;
class MRCheckULStepResult;

inline constexpr const char* kTokenRecordErrorDomain = "MROpenSDKRefreshTokenError";
inline constexpr const char* kMireloKeyChainService = "MireloOpenSDKKeyChainService";
inline constexpr const char* kMireloKeyChainAccount = "MireloOpenSDKKeyChainAccount";

// Codes of the token store's errors.  1 and 2 are not used.
enum TokenRecordError : std::int64_t {
  TokenRecordErrorNoContext = 3,        // no request is waiting for a token
  TokenRecordErrorEmptyParam = 4,       // empty token or context id
  TokenRecordErrorContextMismatch = 5,  // the context id is not the pending one
  TokenRecordErrorKeychain = 6,         // the token could not be stored
};

// Launch-URL query keys.
inline constexpr const char* kMireloAuthTokenKey = "mirelo_auth_token";
inline constexpr const char* kMireloAuthContextIdKey = "mirelo_auth_context_id";
inline constexpr const char* kMireloAppBundleIdKey = "mirelo_app_bundleId";
inline constexpr const char* kMireloDegradeLaunchKey = "mirelo_degrade_launch_by_scheme";

class MireloIdentityHandler {
 public:
  using CheckCompletion = std::function<void(std::int64_t step, std::shared_ptr<MRCheckULStepResult> result)>;

  // The shared handler, created on first use.
  static MireloIdentityHandler& shareInstance();

  // ---- registration (process-wide) ----
  // Stores the registration (both values replace the previous ones).
  static void registerAppID(const String& appID, const String& universalLink);
  // The registered values (copies); null before registration.
  static String registerAppID();
  static String registerUniversalLink();

  // ---- token ----
  // The stored token, or null (with a logged line) when there is none or
  // its item cannot be read.
  static String loadTokenFromKeychain();
  // An error of the token store's domain; its userInfo holds the
  // description only when the description is non-empty.
  static MRError errorWithCode(std::int64_t code, const String& description);
  // A new query naming this host's token item: class, service, account and
  // accessibility, nothing else.  Callers may add keys to it.
  static Dictionary keychainQuery();

  // ---- launch URLs ----
  // The messenger's universal link for the registered app id, followed by
  // `extraUrl` and the token, context id and bundle id query items.
  // nullopt before registration or when the text is not a URL.
  static std::optional<URL> genMireloUniversalLinkWithExtraUrl(const String& extraUrl, const String& token,
                                                                const String& contextId);
  // "mirelo://app/<app id>/" followed by `extraUrl`, the bundle id (when
  // asked for) and the degrade mark (when degraded).
  static std::optional<URL> genMireloUrlSchemeUrl(const String& extraUrl, bool appendBundleID, bool isDegrade);
  // `url` with "key=<escaped value>" appended after "?" or "&"; `url`
  // unchanged (and a logged line) when any of the three is empty.
  static String appendQueryToUrl(const String& url, const String& key, const String& value);

  // ---- context ----
  // Keeps `req` as the request waiting for a token, with its context id.
  void setContextReq(std::shared_ptr<BaseReq> req, const String& contextId);
  std::shared_ptr<BaseReq> contextRequest() const { return contextReq_; }
  void clearContext();
  // Whether a request is pending under exactly `contextId`.
  bool checkContextID(const String& contextId) const;
  // Stores `token` when it answers the pending request `contextID`.  False,
  // with `*error` set when `error` is given, on any failure; the context is
  // left in place either way.
  bool checkAndRecordTokenToKeychain(const String& token, const String& contextID, MRError* error);

  // Whether the messenger was already told that the token for the pending
  // request could not be recorded (once per pending request).
  bool refreshFailureReported() const { return refreshFailureReported_; }
  void setRefreshFailureReported(bool reported) { refreshFailureReported_ = reported; }

  // ---- plain accessors ----
  bool universalLinkCheckEnable() const { return universalLinkCheckEnable_; }
  void setUniversalLinkCheckEnable(bool enable) { universalLinkCheckEnable_ = enable; }
  const CheckCompletion& checkCompletion() const { return checkCompletion_; }
  void setCheckCompletion(CheckCompletion completion) { checkCompletion_ = std::move(completion); }
  std::shared_ptr<BaseReq> contextReq() const { return contextReq_; }
  void setContextReq(std::shared_ptr<BaseReq> req) { contextReq_ = std::move(req); }
  const String& contextID() const { return contextID_; }
  void setContextID(const String& contextID) { contextID_ = contextID; }

 private:
  MireloIdentityHandler() = default;
  static void resetProcessState();

  bool universalLinkCheckEnable_ = false;
  CheckCompletion checkCompletion_;
  std::shared_ptr<BaseReq> contextReq_;
  String contextID_;
  bool refreshFailureReported_ = false;
};

}  // namespace mirelo
