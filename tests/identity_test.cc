// The token and context store on the simulated device: the order of the
// record checks, the keychain item, replacement, relaunch, unreadable items.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "mirelo/model/Model.h"
#include "support/KitFixture.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

namespace kc = platform::keychain;

const std::string kHostService = std::string("MireloOpenSDKKeyChainService_") + kHostBundleId;
constexpr const char* kEmptySha256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

Data archiveOf(Array objects, std::uint64_t root = 1) {
  return bplist::encode(Value(Dictionary{{"$version", Value(100000)},
                                         {"$archiver", Value("NSKeyedArchiver")},
                                         {"$top", Value(Dictionary{{"root", Value(Uid{root})}})},
                                         {"$objects", Value(std::move(objects))}}));
}

class IdentityTest : public KitTest {
 protected:
  MireloIdentityHandler& handler() { return MireloIdentityHandler::shareInstance(); }

  std::shared_ptr<BaseReq> pend(const String& cid) {
    auto req = std::make_shared<SendAuthReq>();
    handler().setContextReq(req, cid);
    return req;
  }

  // A keychain item of this host holding `value`, as another writer (or a
  // damaged store) might have left it.
  void plant(const Value& value) {
    Dictionary item = MireloIdentityHandler::keychainQuery();
    item.set(kc::kSecValueData, value);
    host->keychainItems().push_back(item);
  }
};

// ---- recording a token -------------------------------------------------

TEST_F(IdentityTest, RecordChecksRunInOrderAndFailuresKeepTheContext) {
  struct Case {
    const char* name;
    bool pending;
    String storedCid;
    String token;
    String givenCid;
    std::int64_t code;
    std::string description;
  };
  const Case cases[] = {
      // With nothing pending even a valid pair fails with 3.
      {"no context", false, String(), "tok", "cid", 3, "app no context, req[(null)], contextID[(null)]"},
      {"empty stored id", true, "", "tok", "cid", 3, "app no context, req[<SendAuthReq: 0x"},
      {"empty token", true, "cid", "", "cid", 4, std::string("mr token[") + kEmptySha256 + "] or contextId[cid] is nil!"},
      {"null token", true, "cid", String(), "cid", 4, "mr token[] or contextId[cid] is nil!"},
      {"null id", true, "cid", "tok", String(), 4,
       "mr token[" + MireloApiUtil::sha256("tok") + "] or contextId[(null)] is nil!"},
      {"other id", true, "cid", "tok", "other", 5, "context[cid-other] not match"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    handler().clearContext();
    std::shared_ptr<BaseReq> req;
    if (c.pending) req = pend(c.storedCid);
    logs.clear();
    MRError error;
    EXPECT_FALSE(handler().checkAndRecordTokenToKeychain(c.token, c.givenCid, &error));
    EXPECT_EQ(error.domain, "MROpenSDKRefreshTokenError");
    EXPECT_EQ(error.code, c.code);
    EXPECT_EQ(error.localizedDescription().str().rfind(c.description, 0), 0u) << error.localizedDescription().str();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0], "mrlog:Error:set token fail, errCode:" + std::to_string(c.code) + ", errLog:" +
                           error.localizedDescription().str());
    // Nothing was written and the pending request is still there.
    EXPECT_TRUE(host->keychainItems().empty());
    EXPECT_EQ(handler().contextRequest(), req);
  }
}

TEST_F(IdentityTest, RecordStoresAKeyedArchiveOfTheTokenBytesAndANewerTokenReplacesIt) {
  auto req = pend("ctx-1");
  logs.clear();
  MRError untouched = MireloIdentityHandler::errorWithCode(42, "kept");
  ASSERT_TRUE(handler().checkAndRecordTokenToKeychain("tök-1", "ctx-1", &untouched));
  EXPECT_EQ(untouched.code, 42);
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:fail to delete Keychain before add status:-25300",
                                            "mrlog:token sha256:" + MireloApiUtil::sha256("tök-1")}));
  // Recording does not clear the context: the caller re-sends and clears.
  EXPECT_EQ(handler().contextRequest(), req);
  EXPECT_EQ(handler().contextID(), "ctx-1");

  ASSERT_EQ(host->keychainItems().size(), 1u);
  const Dictionary& item = host->keychainItems()[0];
  Dictionary attributes = item;
  attributes.remove(kc::kSecValueData);
  // The attributes as installs of earlier versions stored them; the service names the host's bundle.
  const Dictionary expected{{kc::kSecClass, Value(kc::kSecClassGenericPassword)},
                            {kc::kSecAttrService, Value(kHostService)},
                            {kc::kSecAttrAccount, Value("MireloOpenSDKKeyChainAccount")},
                            {kc::kSecAttrAccessible, Value(kc::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly)}};
  EXPECT_EQ(attributes, expected);
  const Data* value = item.get(kc::kSecValueData).asData();
  ASSERT_NE(value, nullptr);
  // The value is the archive whose root is the plain data of the UTF-8 bytes.
  EXPECT_EQ(*value, archiveOf(Array{Value("$null"), Value(Data::copy("tök-1"))}));

  logs.clear();
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "tök-1");
  EXPECT_TRUE(logs.empty());

  // A newer token replaces the older one.
  pend("c2");
  logs.clear();
  ASSERT_TRUE(handler().checkAndRecordTokenToKeychain("second", "c2", nullptr));
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:token sha256:" + MireloApiUtil::sha256("second")});
  EXPECT_EQ(host->keychainItems().size(), 1u);
  // A relaunch ends the in-memory state; the keychain keeps the token.
  handler().setUniversalLinkCheckEnable(true);
  handler().setCheckCompletion([](std::int64_t, std::shared_ptr<MRCheckULStepResult>) { ADD_FAILURE(); });
  device->relaunch(kHostBundleId);
  MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
  EXPECT_EQ(handler().contextRequest(), nullptr);
  EXPECT_TRUE(handler().contextID().isNull());
  EXPECT_FALSE(handler().universalLinkCheckEnable());
  EXPECT_FALSE(handler().checkCompletion());
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "second");
}

// ---- loading -----------------------------------------------------------

TEST_F(IdentityTest, MissingOrUnreadableItemsLoadAsNilWithoutCrashing) {
  EXPECT_TRUE(MireloIdentityHandler::loadTokenFromKeychain().isNull());
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:fail to load Keychain status:-25300, keyData null:1",
                                            "mrlog:token[(null)] is null"}));
  const Dictionary mutableData{{"$classname", Value("NSMutableData")},
                               {"$classes", Value(Array{Value("NSMutableData"), Value("NSData"), Value("NSObject")})}};
  const struct {
    const char* name;
    Value value;
    bool unarchiveFails;  // the line "Unarchive failed: ..." comes first
  } cases[] = {
      {"garbage", Value(Data::copy("\x01garbage\xff")), true},
      {"dangling root", Value(archiveOf(Array{Value("$null")}, 5)), true},
      {"string archive", Value(KeyedArchiver::archivedDataWithRootObject(String("tok"))), false},
      {"empty data archive", Value(KeyedArchiver::archivedDataWithRootObject(Data::emptyData())), false},
      {"not UTF-8", Value(KeyedArchiver::archivedDataWithRootObject(Data::copy("\xc3\x28"))), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    host->keychainItems().clear();
    plant(c.value);
    logs.clear();
    EXPECT_TRUE(MireloIdentityHandler::loadTokenFromKeychain().isNull());
    ASSERT_EQ(logs.size(), c.unarchiveFails ? 2u : 1u);
    if (c.unarchiveFails) {
      EXPECT_EQ(logs[0].rfind("mrlog:Error:Unarchive failed: ", 0), 0u) << logs[0];
    }
    EXPECT_EQ(logs.back(), "mrlog:token[(null)] is null");
  }

  // An item without a value is found but brings no data back.
  host->keychainItems().clear();
  host->keychainItems().push_back(MireloIdentityHandler::keychainQuery());
  logs.clear();
  EXPECT_TRUE(MireloIdentityHandler::loadTokenFromKeychain().isNull());
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:fail to load Keychain status:0, keyData null:1",
                                            "mrlog:token[(null)] is null"}));
  // The record form of mutable data is a valid token archive.
  host->keychainItems().clear();
  plant(Value(archiveOf(Array{Value("$null"),
                              Value(Dictionary{{"NS.data", Value(Data::copy("tok"))}, {"$class", Value(Uid{2})}}),
                              Value(mutableData)})));
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "tok");
}

// ---- context ------------------------------------------------------------

TEST_F(IdentityTest, ContextIsLoggedAndCheckContextIdAnswersOnlyForThePendingId) {
  handler().clearContext();
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:clear context"});
  logs.clear();
  auto req = pend("cid-7");
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].rfind("mrlog:req:<SendAuthReq: 0x", 0), 0u) << logs[0];
  EXPECT_TRUE(logs[0].ends_with(">, cid:cid-7")) << logs[0];
  EXPECT_EQ(handler().contextRequest(), req);
  const struct {
    const char* name;
    bool pending;
    String storedCid, given;
    bool result;
    std::string line;  // "" when nothing is logged
  } cases[] = {
      {"null id", true, "c", String(), false, "mrlog:Error:cid is nil"},
      {"empty id", true, "c", "", false, "mrlog:Error:cid is nil"},
      {"nothing pending", false, String(), "c", false, "mrlog:Error:app no context, req[(null)], cid[c]"},
      {"empty stored id", true, "", "c", false, "mrlog:Error:app no context, req[<SendAuthReq: 0x"},
      {"same id", true, "c", "c", true, ""},
      {"other id", true, "c", "C", false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    handler().clearContext();
    if (c.pending) pend(c.storedCid);
    logs.clear();
    EXPECT_EQ(handler().checkContextID(c.given), c.result);
    if (c.line.empty()) {
      EXPECT_TRUE(logs.empty());
    } else {
      ASSERT_EQ(logs.size(), 1u);
      EXPECT_EQ(logs[0].rfind(c.line, 0), 0u) << logs[0];
    }
  }
}

}  // namespace
}  // namespace mirelo::testing
