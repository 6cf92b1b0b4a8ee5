// The pasteboard store: the "content" item, the user's text under "old_text", refusals, and hostile items.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "record/AppCommunicateData.h"
#include "support/KitFixture.h"
#include "support/RecordTestUtil.h"
#include "transport/AppCommunicate.h"
#include "util/BinaryPlist.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

class PasteboardStoreTest : public KitTest {
 protected:
  // A text-share record as the send pipeline fills it.
  static std::shared_ptr<AppCommunicateData> textRecord(const char* title) {
    auto record = std::make_shared<AppCommunicateData>();
    record->sdkVer = kMireloSDKVersion;
    record->MakeCommand(kCommandTextMessage);
    record->dictionaryData().set("title", title);
    return record;
  }
  // The "content" item decoded, as the messenger would see it.
  Value contentItem() const { return bplist::decode(device->pasteboardData("content")); }
  void putContent(const Value& item) { device->setPasteboardData(bplist::encode(item), "content"); }
  bool contentIsGone() const { return device->pasteboardData("content").empty(); }
};

// A bplist00 whose one object, a container of `marker` (0xA0 or 0xD0), claims `count` absent elements.
Data containerClaiming(int marker, std::uint64_t count) {
  std::string object = bytesOf({marker | 0x0F, 0x13});
  putBE(object, count, 8);
  return Data::copy(assemble({object}));
}

// The record goes under the app id with the user's text, if any; the read restores the text and
// clears the item (it stays, holding no bytes, when there is no text to restore).
TEST_F(PasteboardStoreTest, RoundTripRestoresTheUsersTextAndEmptiesTheItem) {
  for (const String& userText : {String(), String(""), String("the user's text")}) {
    SCOPED_TRACE(userText.description());
    if (!userText.isNull()) device->setPasteboardString(userText.str());
    logs.clear();
    ASSERT_TRUE(AppCommunicate::setAppCommunicateData(textRecord("hello"), kHostAppId));
    EXPECT_EQ(logs, Lines{"mrlog:set property list"});
    Dictionary expected{{kHostAppId, Dictionary{{"command", "1020"}, {"returnFromApp", "0"}, {"result", "1"},
                                                 {"sdkver", "1.9.2"}, {"isAutoResend", false}, {"title", "hello"}}}};
    if (!userText.empty()) expected.set("old_text", userText);
    EXPECT_EQ(contentItem(), Value(expected));

    logs.clear();
    auto record = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(logs, Lines{"mrlog:clear property list"});
    EXPECT_EQ(record->propertList().mrApi_stringForKey("title"), "hello");
    EXPECT_TRUE(record->fileData.isNull());
    EXPECT_EQ(device->pasteboardString(), userText.empty() ? String() : userText);
    EXPECT_EQ(device->pasteboardData("content").isNull(), !userText.empty());
    EXPECT_TRUE(contentIsGone());

    // The read cleared it: a second read finds nothing.
    logs.clear();
    EXPECT_EQ(AppCommunicate::appCommunicateDataForAppID(kHostAppId), nullptr);
    EXPECT_EQ(logs, (Lines{"mrlog:Error:pasteData[(null)] is empty", "mrlog:Error:pasteDictionary is nil",
                           "mrlog:Error:dict is nil"}));
  }
}

TEST_F(PasteboardStoreTest, AWriteForAnotherAppIdReplacesTheRecord) {
  ASSERT_TRUE(AppCommunicate::setAppCommunicateData(textRecord("for A"), "appA"));
  ASSERT_TRUE(AppCommunicate::setAppCommunicateData(textRecord("for B"), "appB"));
  ASSERT_TRUE(contentItem().isDictionary());
  EXPECT_EQ(contentItem().asDictionary()->size(), 1u);
  EXPECT_TRUE(contentItem().asDictionary()->contains("appB"));

  logs.clear();
  EXPECT_EQ(AppCommunicate::appCommunicateDataForAppID("appA"), nullptr);
  EXPECT_EQ(logs, (Lines{"mrlog:clear property list", "mrlog:Error:dict is nil"}));
  // Reading A cleared B's record too.
  EXPECT_TRUE(contentIsGone());
  EXPECT_TRUE(AppCommunicate::propertyListForAppID("appB").isNull());
}

TEST_F(PasteboardStoreTest, RefusedAppIdsRecordsAndListsLeaveTheItemAlone) {
  auto record = textRecord("t");
  const std::string desc = record->description();
  using Case = std::tuple<const char*, String, std::shared_ptr<AppCommunicateData>, std::string>;
  const Case cases[] = {
      {"null app id", String(), record, "appId[(null)], appid.length:0, or data[" + desc + "] invaild"},
      {"empty app id", "", record, "appId[], appid.length:0, or data[" + desc + "] invaild"},
      {"null record", "mr42", nullptr, "appId[mr42], appid.length:4, or data[(null)] invaild"},
  };
  ASSERT_TRUE(AppCommunicate::setAppCommunicateData(textRecord("kept"), kHostAppId));
  const Data before = device->pasteboardData("content");
  for (const auto& [name, appId, data, writeLine] : cases) {
    SCOPED_TRACE(name);
    logs.clear();
    EXPECT_FALSE(AppCommunicate::setAppCommunicateData(data, appId));
    EXPECT_EQ(logs, Lines{"mrlog:Error:" + writeLine});
    if (data) {
      logs.clear();
      EXPECT_EQ(AppCommunicate::appCommunicateDataForAppID(appId), nullptr);
      EXPECT_TRUE(AppCommunicate::propertyListForAppID(appId).isNull());
      const std::string readLine = "mrlog:Error:appID[" + appId.description() + "] invaild";
      EXPECT_EQ(logs, (Lines{readLine, readLine}));
    }
  }
  // A record that never wrote its header has no property list; a null inside a container cannot be encoded.
  logs.clear();
  EXPECT_FALSE(AppCommunicate::setAppCommunicateData(std::make_shared<AppCommunicateData>(), "mr"));
  EXPECT_FALSE(AppCommunicate::setPropertyList(Value("x"), String()));
  EXPECT_FALSE(AppCommunicate::setPropertyList(Value(Array{Value(1), Value()}), "mr"));
  ASSERT_EQ(logs.size(), 4u);
  EXPECT_EQ(logs[0], "mrlog:Error:propertyList[(null)] or appId[mr] is nil");
  EXPECT_EQ(logs[1], "mrlog:Error:propertyList[x] or appId[(null)] is nil");
  EXPECT_EQ(logs[2].rfind("mrlog:Error:error occur:", 0), 0u) << logs[2];
  EXPECT_EQ(logs[3], "mrlog:Error:data coverted is empty");
  // None of the refusals touched the item.
  EXPECT_TRUE(device->pasteboardData("content").sharesStorageWith(before));
}

TEST_F(PasteboardStoreTest, ANonDictionaryItemIsClearedAndYieldsNil) {
  device->setPasteboardString("user");
  Dictionary notAString{{kHostAppId, Dictionary{{"command", "1020"}}}, {"old_text", 5}};
  using Case = std::tuple<const char*, Value>;
  const Case cases[] = {{"array", Array{"a", 1}}, {"string", Value("content")}};
  for (const auto& [name, item] : cases) {
    SCOPED_TRACE(name);
    putContent(item);
    logs.clear();
    EXPECT_FALSE(AppCommunicate::propertyListForAllApp().has_value());
    EXPECT_EQ(logs, (Lines{"mrlog:clear property list",
                           "mrlog:Error:idPaste[" + item.description() + "] is not dictionary"}));
    EXPECT_TRUE(contentIsGone());
  }

  // An "old_text" that is not a string is not restored.
  putContent(notAString);
  auto all = AppCommunicate::propertyListForAllApp();
  ASSERT_TRUE(all.has_value());
  EXPECT_EQ(*all, notAString);
  EXPECT_TRUE(device->pasteboardString().isNull());
}

TEST_F(PasteboardStoreTest, UndecodableItemsFromAnotherAppStayAndYieldNil) {
  using Case = std::tuple<const char*, Data>;
  const Data valid = bplist::encode(Dictionary{{kHostAppId, Dictionary{{"command", "1020"}}}});
  const Case cases[] = {
      {"garbage", Data::copy("\x01\x02not a property list at all\xff")},
      {"bplist magic only", Data::copy("bplist00")},
      {"truncated", valid.slice(0, valid.size() - 5)},
      {"array claiming a huge count", containerClaiming(0xA0, 0x7FFFFFFFFFFFFFFFull)},
      {"dictionary claiming a huge count", containerClaiming(0xD0, UINT64_MAX)},
  };
  for (const auto& [name, item] : cases) {
    SCOPED_TRACE(name);
    device->setPasteboardData(item, "content");
    logs.clear();
    EXPECT_EQ(AppCommunicate::appCommunicateDataForAppID(kHostAppId), nullptr);
    ASSERT_EQ(logs.size(), 4u);
    EXPECT_EQ(logs[0].rfind("mrlog:Error:error occur:", 0), 0u) << logs[0];
    EXPECT_EQ(logs[1], "mrlog:Error:idPaste is nil");
    EXPECT_EQ(logs[2], "mrlog:Error:pasteDictionary is nil");
    EXPECT_EQ(logs[3], "mrlog:Error:dict is nil");
    EXPECT_TRUE(device->pasteboardData("content").sharesStorageWith(item));
  }
}

TEST_F(PasteboardStoreTest, WrongValueKindsUnderTheHeaderKeysGiveTheDefaults) {
  // Every header key but the command holds a kind the record does not expect.
  const Dictionary mistyped{{"command", "2020"},          {"returnFromApp", 0},
                            {"result", 0},                 {"scene", Array{"4"}},
                            {"account", Data::copy("acc")}, {"sdkver", 192},
                            {"universalLink", Dictionary{{"u", "v"}}}, {"openID", true},
                            {"language", Value(Date{1})},  {"country", Value(Uid{3})},
                            {"userOpenID", 1.5},           {"mireloVersion", "42"},
                            {"fileData", "not bytes"}};
  putContent(Dictionary{{kHostAppId, mistyped}});
  auto record = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->command(), kCommandSendMessageResp);
  EXPECT_TRUE(record->returnFromApp);
  EXPECT_EQ(record->result, 1);
  EXPECT_EQ(record->scene, 0);
  for (const String* s : {&record->conversationAccount, &record->sdkVer, &record->universalLink, &record->openID,
                          &record->lang, &record->country, &record->toUserOpenID}) {
    EXPECT_TRUE(s->isNull());
  }
  EXPECT_TRUE(record->fileData.isNull());
  EXPECT_EQ(record->propertList(), mistyped);
  EXPECT_FALSE(host->userDefaults().contains(kMireloVersionDefaultsKey));

  // Not a dictionary under the app id: no record.
  putContent(Dictionary{{kHostAppId, "1020"}});
  logs.clear();
  EXPECT_EQ(AppCommunicate::appCommunicateDataForAppID(kHostAppId), nullptr);
  EXPECT_EQ(logs, (Lines{"mrlog:clear property list", "mrlog:Error:dict is nil"}));
}


// The only check that a record read back shares the item's bytes instead of copying them.
TEST_F(PasteboardStoreTest, FileDataTravelsWithoutCopiesOnTheReadSide) {
  std::string bytes(1 << 20, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 131);
  const Data payload = Data::adopt(std::move(bytes));
  auto record = std::make_shared<AppCommunicateData>();
  record->MakeCommand(kCommandMediaMessage);
  record->dictionaryData().set("fileData", payload);
  ASSERT_TRUE(AppCommunicate::setAppCommunicateData(record, kHostAppId));
  // The record keeps sharing the payload it was given.
  EXPECT_TRUE(record->propertList().get("fileData").asData()->sharesStorageWith(payload));

  const Data onPasteboard = device->pasteboardData("content");
  auto back = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->fileData, payload);
  // Both the field and the dictionary's value are views of the item's bytes.
  EXPECT_TRUE(back->fileData.sharesStorageWith(onPasteboard));
  EXPECT_TRUE(back->propertList().get("fileData").asData()->sharesStorageWith(onPasteboard));
}
}  // namespace
}  // namespace mirelo::testing
