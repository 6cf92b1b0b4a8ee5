#include "identity/MireloIdentityHandler.h"

#include <cstdint>
#include <mutex>
#include <string_view>

#include "mirelo/model/Base.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "util/KeyedArchive.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace kc = platform::keychain;

namespace {

// Guarded by a mutex: the API is main-thread only, but a registration raced
// by another thread's call must not tear.
struct Registration {
  String appID;
  String universalLink;
};

std::mutex& registrationMutex() {
  static std::mutex m;
  return m;
}

Registration& registration() {
  static Registration r;
  return r;
}

void resetRegistration() {
  std::lock_guard<std::mutex> lock(registrationMutex());
  registration() = Registration{};
}

// The last keychain value that held a token, and that token.  Every
// universal-link launch loads the token, the keychain hands back the same
// bytes until the token changes, and unarchiving them is most of what a
// load costs.
struct DecodedToken {
  Data archive;
  String token;
};

DecodedToken& lastDecodedToken() {
  static DecodedToken last;
  return last;
}

void forgetDecodedToken() { lastDecodedToken() = DecodedToken{}; }

// The token held in a keychain item's value: a keyed archive whose root is
// non-empty data holding UTF-8 text.  Null otherwise.
String tokenFromArchive(const Data& archive) {
  DecodedToken& last = lastDecodedToken();
  if (!last.archive.isNull() && last.archive == archive) return last.token;
  KeyedUnarchiver unarchiver(archive);
  if (unarchiver.raised()) {
    mrlog::error("Unarchive failed: %@", unarchiver.exceptionDescription());
    return String();
  }
  if (!unarchiver.rootIsKindOf("NSData")) return String();
  const Data* bytes = unarchiver.rootObject().asData();
  if (!bytes || bytes->empty() || !isWellFormedUtf8(bytes->view())) return String();
  platform::registerProcessReset(&forgetDecodedToken);
  last = DecodedToken{archive, String(bytes->view())};
  return last.token;
}

}  // namespace

MireloIdentityHandler& MireloIdentityHandler::shareInstance() {
  static MireloIdentityHandler& instance = [] () -> MireloIdentityHandler& {
    static MireloIdentityHandler handler;
    platform::registerProcessReset(&MireloIdentityHandler::resetProcessState);
    return handler;
  }();
  return instance;
}

void MireloIdentityHandler::resetProcessState() {
  MireloIdentityHandler& h = shareInstance();
  h.universalLinkCheckEnable_ = false;
  h.checkCompletion_ = nullptr;
  h.contextReq_ = nullptr;
  h.contextID_ = String();
  h.refreshFailureReported_ = false;
}

void MireloIdentityHandler::registerAppID(const String& appID, const String& universalLink) {
  platform::registerProcessReset(&resetRegistration);
  std::lock_guard<std::mutex> lock(registrationMutex());
  registration().appID = appID;
  registration().universalLink = universalLink;
}

String MireloIdentityHandler::registerAppID() {
  std::lock_guard<std::mutex> lock(registrationMutex());
  return registration().appID;
}

String MireloIdentityHandler::registerUniversalLink() {
  std::lock_guard<std::mutex> lock(registrationMutex());
  return registration().universalLink;
}

// ---- context ---------------------------------------------------------------

void MireloIdentityHandler::setContextReq(std::shared_ptr<BaseReq> req, const String& contextId) {
  mrlog::line("req:%@, cid:%@", req, contextId);
  contextReq_ = std::move(req);
  contextID_ = contextId;
  refreshFailureReported_ = false;
}

void MireloIdentityHandler::clearContext() {
  mrlog::line("clear context");
  contextID_ = String();
  contextReq_ = nullptr;
  refreshFailureReported_ = false;
}

bool MireloIdentityHandler::checkContextID(const String& contextId) const {
  if (contextId.empty()) {
    mrlog::error("cid is nil");
    return false;
  }
  if (!contextReq_ || contextID_.empty()) {
    mrlog::error("app no context, req[%@], cid[%@]", contextReq_, contextId);
    return false;
  }
  return contextID_ == contextId;
}

// ---- token -----------------------------------------------------------------

MRError MireloIdentityHandler::errorWithCode(std::int64_t code, const String& description) {
  MRError error;
  error.domain = kTokenRecordErrorDomain;
  error.code = code;
  if (!description.empty()) error.userInfo.set(NSLocalizedDescriptionKey, Value(description));
  return error;
}

Dictionary MireloIdentityHandler::keychainQuery() {
  const String bundleId = platform::current().bundle->bundleIdentifier();
  Dictionary query;
  query.set(kc::kSecClass, Value(kc::kSecClassGenericPassword));
  query.set(kc::kSecAttrService, Value(format("%@_%@", kMireloKeyChainService, bundleId)));
  query.set(kc::kSecAttrAccount, Value(kMireloKeyChainAccount));
  query.set(kc::kSecAttrAccessible, Value(kc::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly));
  return query;
}

bool MireloIdentityHandler::checkAndRecordTokenToKeychain(const String& token, const String& contextID,
                                                          MRError* error) {
  std::int64_t code = 0;
  std::string description;
  if (!contextReq_ || contextID_.empty()) {
    code = TokenRecordErrorNoContext;
    description = format("app no context, req[%@], contextID[%@]", contextReq_, contextID_);
  } else if (token.empty() || contextID.empty()) {
    code = TokenRecordErrorEmptyParam;
    description = format("mr token[%@] or contextId[%@] is nil!", MireloApiUtil::sha256(token), contextID);
  } else if (!(contextID_ == contextID)) {
    code = TokenRecordErrorContextMismatch;
    description = format("context[%@-%@] not match", contextID_, contextID);
  } else {
    const Data tokenData = Data::copy(token.view());
    if (tokenData.empty()) {
      code = TokenRecordErrorKeychain;
      description = format("convert token to nsdata[%@] length is 0", tokenData);
    } else {
      platform::Keychain& keychain = *platform::current().keychain;
      Dictionary query = keychainQuery();
      const std::int32_t deleted = keychain.itemDelete(query);
      if (deleted != kc::errSecSuccess) mrlog::error("fail to delete Keychain before add status:%d", deleted);
      query.set(kc::kSecValueData, Value(KeyedArchiver::archivedDataWithRootObject(tokenData)));
      const std::int32_t added = keychain.itemAdd(query);
      if (added != kc::errSecSuccess) {
        code = TokenRecordErrorKeychain;
        description = format("fail to add Keychain status:%d", added);
      }
    }
  }
  if (code == 0) {
    mrlog::line("token sha256:%@", MireloApiUtil::sha256(token));
    return true;
  }
  mrlog::error("set token fail, errCode:%@, errLog:%@", Value(code), description);
  if (error) *error = errorWithCode(code, description);
  return false;
}

String MireloIdentityHandler::loadTokenFromKeychain() {
  Dictionary query = keychainQuery();
  query.set(kc::kSecReturnData, Value(true));
  query.set(kc::kSecMatchLimit, Value(kc::kSecMatchLimitOne));
  Value result;
  const std::int32_t status = platform::current().keychain->itemCopyMatching(query, &result);
  String token;
  const Data* keyData = result.asData();
  if (status == kc::errSecSuccess && keyData) {
    token = tokenFromArchive(*keyData);
  } else {
    mrlog::error("fail to load Keychain status:%d, keyData null:%d", status, keyData ? 0 : 1);
  }
  if (token.empty()) {
    mrlog::line("token[%@] is null", token);
    return String();
  }
  return token;
}

}  // namespace mirelo
