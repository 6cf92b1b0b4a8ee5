// The app data record: the header it writes and how a received property list reads back.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>

#include "record/AppCommunicateData.h"
#include "support/KitFixture.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

class AppDataRecordTest : public KitTest {
 protected:
  bool defaultsHaveVersion() { return host->userDefaults().contains(kMireloVersionDefaultsKey); }
};

// A fresh record has no dictionary; the header snapshots the fields, and a second call drops the body.
TEST_F(AppDataRecordTest, HeaderIsASnapshotOfTheFieldsAndEachCallStartsANewDictionary) {
  AppCommunicateData record;
  EXPECT_FALSE(record.hasDictionary());
  record.returnFromApp = true;
  record.isAutoResend = true;
  record.result = -3;
  record.conversationAccount = "";  // empty is set
  record.sdkVer = kMireloSDKVersion;
  record.universalLink = kHostUniversalLink;
  record.openID = "o1";  // body keys are the conversions' business
  record.initCommonField(kCommandAuthResp);
  record.dictionaryData().set("state", "s");
  const Dictionary withBody{{"command", "2030"},     {"returnFromApp", "1"},
                            {"result", "-3"},        {"account", ""},
                            {"sdkver", "1.9.2"},     {"universalLink", kHostUniversalLink},
                            {"isAutoResend", true},  {"state", "s"}};
  EXPECT_EQ(record.propertList(), withBody);

  // Changed after the header: nothing reaches the dictionary.
  record.result = 0;
  record.returnFromApp = false;
  record.isAutoResend = false;
  record.lang = "en";
  EXPECT_EQ(record.propertList(), withBody);

  // A second call drops the body and snapshots the fields anew: the four
  // header keys, the flag as a boolean, never as the text "0".
  record.sdkVer = String();
  record.conversationAccount = String();
  record.universalLink = String();
  record.initCommonField(UINT64_MAX);
  EXPECT_EQ(record.propertList(), (Dictionary{{"command", "18446744073709551615"},
                                              {"returnFromApp", "0"},
                                              {"result", "0"},
                                              {"isAutoResend", false}}));
  EXPECT_TRUE(logs.empty());
}

TEST_F(AppDataRecordTest, HeaderFieldsReadBackByTheirRules) {
  using Case = std::tuple<const char*, Dictionary, std::uint64_t, bool, std::int32_t, std::int32_t>;
  const Case cases[] = {
      {"returnFromApp absent reads true", {{"command", "1020"}}, 1020, true, 1, 0},
      {"returnFromApp 0", {{"command", "1020"}, {"returnFromApp", "0"}}, 1020, false, 1, 0},
      {"returnFromApp true is not 1", {{"command", "1020"}, {"returnFromApp", "true"}}, 1020, false, 1, 0},
      {"returnFromApp as a number counts as absent", {{"command", "1"}, {"returnFromApp", 0}}, 1, true, 1, 0},
      {"command -1 is all bits set", {{"command", "-1"}}, UINT64_MAX, true, 1, 0},
      {"command below the 32-bit range clamps, then widens",
       {{"command", "-99999999999"}},
       static_cast<std::uint64_t>(static_cast<std::int64_t>(INT32_MIN)), true, 1, 0},
      {"command above the 32-bit range clamps", {{"command", "4294967296"}}, INT32_MAX, true, 1, 0},
      {"result and scene", {{"command", "2020"}, {"result", "-2"}, {"scene", "4"}}, 2020, true, -2, 4},
  };
  for (const auto& [name, dict, command, returnFromApp, result, scene] : cases) {
    SCOPED_TRACE(name);
    auto record = AppCommunicateData::initWithPropertList(dict);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->command(), command);
    EXPECT_EQ(record->returnFromApp, returnFromApp);
    EXPECT_EQ(record->result, result);
    EXPECT_EQ(record->scene, scene);
    // Whatever the command, the body readers find every key of the input.
    EXPECT_TRUE(record->hasDictionary());
    EXPECT_EQ(record->propertList(), dict);
  }
}

TEST_F(AppDataRecordTest, StringFieldsReadBackAndTheRestIsLeftAlone) {
  const Data payload = Data::copy("payload");
  const Dictionary dict{{"command", "2010"},     {"account", "acc"},       {"openID", "oid"},
                        {"sdkver", "1.9.2"},     {"language", "zh_CN"},    {"country", "CN"},
                        {"userOpenID", "to"},    {"universalLink", "https://u.example.com/"},
                        {"isAutoResend", true},  {"fileData", payload},    {"title", "body key"}};
  auto record = AppCommunicateData::initWithPropertList(dict);
  EXPECT_EQ(record->command(), kCommandSendMessageRespWithLocale);
  EXPECT_EQ(record->conversationAccount, "acc");
  EXPECT_EQ(record->openID, "oid");
  EXPECT_EQ(record->sdkVer, "1.9.2");
  EXPECT_EQ(record->lang, "zh_CN");
  EXPECT_EQ(record->country, "CN");
  EXPECT_EQ(record->toUserOpenID, "to");
  EXPECT_EQ(record->universalLink, "https://u.example.com/");
  // Never read back here: the flag, and the payload (the store sets it).
  EXPECT_FALSE(record->isAutoResend);
  EXPECT_TRUE(record->fileData.isNull());
  EXPECT_EQ(record->propertList(), dict);
  // The copy shares the payload's bytes.
  EXPECT_TRUE(record->propertList().get("fileData").asData()->sharesStorageWith(payload));
}

// A command that is not a string: nothing is read, not even the messenger's version.
TEST_F(AppDataRecordTest, WithoutAStringCommandNothingIsReadAndNoDictionaryIsKept) {
  auto record = AppCommunicateData::initWithPropertList(
      Dictionary{{"command", Data::copy("1020")}, {"openID", "oid"}, {"result", "0"}, {"mireloVersion", 42}});
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->command(), kCommandNone);
  EXPECT_FALSE(record->hasDictionary());
  EXPECT_TRUE(record->openID.isNull());
  EXPECT_EQ(record->result, 1);
  EXPECT_FALSE(defaultsHaveVersion());
}

TEST_F(AppDataRecordTest, OnlyANonZeroMessengerVersionIsStored) {
  // Zero in the low 32 bits, or not a number: not stored.
  for (const Value& version : {Value(0), Value(std::uint64_t{1} << 32), Value("42")}) {
    AppCommunicateData::initWithPropertList(Dictionary{{"command", "1020"}, {"mireloVersion", version}});
    EXPECT_FALSE(defaultsHaveVersion()) << version.description();
  }
  AppCommunicateData::initWithPropertList(Dictionary{{"command", "1020"}, {"mireloVersion", 42}});
  // A later record without a version leaves the stored one alone.
  AppCommunicateData::initWithPropertList(Dictionary{{"command", "1020"}, {"mireloVersion", 0}});
  EXPECT_EQ(host->userDefaults().get(kMireloVersionDefaultsKey), Value(42));
}

// The text the kit's log lines print for a record.
TEST_F(AppDataRecordTest, DescriptionPrintsNullsAndNumbers) {
  AppCommunicateData record;
  EXPECT_EQ(record.description(),
            "{scene:0, openID:(null), sdkVer:(null), lang:(null), country:(null), toUserOpenID:(null), "
            "universalLink:(null), isAutoResend:0}");
  record.scene = -4;
  record.openID = "";
  record.sdkVer = "1.9.2";
  record.lang = "en";
  record.country = "US";
  record.toUserOpenID = "to";
  record.universalLink = kHostUniversalLink;
  record.isAutoResend = true;
  record.conversationAccount = "not printed";
  EXPECT_EQ(record.description(),
            "{scene:-4, openID:, sdkVer:1.9.2, lang:en, country:US, toUserOpenID:to, "
            "universalLink:https://host.example.com/mirelo/, isAutoResend:1}");
}

}  // namespace
}  // namespace mirelo::testing
