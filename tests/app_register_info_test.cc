// The app display records: round trips, the archive's keys and kinds, and
// archives written by others.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "appinfo/AppRegisterInfo.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"

namespace mirelo {
namespace {

AppRegisterInfo fullInfo() {
  AppRegisterInfo i;
  i.appAddedByUser = true;
  i.appID = "mr0123";
  i.appIdentifier = "com.example.app";
  i.appName = "Name";
  i.appName4ZhTw = "名稱";
  i.appName4EnUs = "Name (US)";
  i.appDescription = "Desc";
  i.appDescription4EnUs = "Desc (US)";
  i.appDescription4ZhTw = "描述";
  i.appInstallUrl = "https://example.com/install";
  i.needUpdateInfo = true;
  i.needUpdateIcon = false;
  i.needUpdateWatermark = true;
  i.appInfoVer = 0xFEDCBA9876543210ull;  // above the signed range
  i.appIconUrl = "https://example.com/icon.png";
  i.appWatermarkUrl = "https://example.com/wm.png";
  i.lastUpdateInfoTime = 0xFFFFFFF0u;
  i.lastUpdateWatermarkTime = 2;
  i.lastUpdateIconTime = 3;
  i.appTypeList = "1,2";
  i.appDevInfo = "dev";
  i.appInfoFlag = 0x80000001u;
  i.appUpdateVersion = 7;
  i.appCanShowNew = true;
  i.isNewApp = false;
  i.appDownloadUrl = "https://example.com/dl";
  i.appDownloadUrlMD5 = "d41d8cd98f00b204e9800998ecf8427e";
  i.nextUpdateInfoTime = 0xFFFFFFFFu;
  i.rankWeight = 99;
  return i;
}

// The root record of an archive, with "$objects" for following references.
struct Decoded {
  Value plist;
  const Array* objects = nullptr;
  const Dictionary* record = nullptr;
};
Decoded decodeRecord(const Data& archive) {
  Decoded d;
  d.plist = bplist::decode(archive);
  const Dictionary* top = d.plist.asDictionary();
  if (!top) return d;
  d.objects = top->get("$objects").asArray();
  if (d.objects && d.objects->size() > 1) d.record = (*d.objects)[1].asDictionary();
  return d;
}

Data recordArchive(Dictionary record, Array strings, const char* className) {
  Array objects{Value("$null")};
  record.set("$class", Value(Uid{2 + strings.size()}));
  objects.push_back(Value(std::move(record)));
  for (const Value& s : strings) objects.push_back(s);
  objects.push_back(Value(Dictionary{{"$classname", Value(className)},
                                     {"$classes", Value(Array{Value(className), Value("NSObject")})}}));
  return bplist::encode(Value(Dictionary{{"$version", Value(100000)},
                                         {"$archiver", Value("NSKeyedArchiver")},
                                         {"$top", Value(Dictionary{{"root", Value(Uid{1})}})},
                                         {"$objects", Value(std::move(objects))}}));
}

TEST(AppRegisterInfo, RoundTripKeepsEveryArchivedPropertyButRankWeight) {
  for (const AppRegisterInfo& original : {fullInfo(), AppRegisterInfo()}) {
    const Data archive = original.archive();
    ASSERT_FALSE(archive.isNull());
    std::string error;
    const auto back = AppRegisterInfo::unarchive(archive, &error);
    ASSERT_TRUE(back.has_value()) << error;
    // Every archived property made it back: writing again gives the same bytes.
    EXPECT_EQ(back->archive(), archive);
    EXPECT_EQ(back->rankWeight, 0u);
  }
}

TEST(AppRegisterInfo, ArchiveUsesTheFixedKeysKindsAndOrder) {
  const Decoded d = decodeRecord(fullInfo().archive());
  ASSERT_NE(d.record, nullptr);
  enum Kind { B, O, I };
  const std::vector<std::pair<std::string, Kind>> expected{
      {"added", B}, {"appID", O}, {"appIdentifier", O}, {"appName", O}, {"appName4ZhTw", O},
      {"appName4EnUs", O}, {"description", O}, {"description4EnUs", O}, {"description4ZhTw", O},
      {"appurl", O}, {"needUpdateInfo", B}, {"needUpdateIcon", B}, {"needUpdateWaterMark", B},
      {"appInfoVer", I}, {"appiconurl", O}, {"appwatermarkurl", O}, {"lastUpdateInfoTime", I},
      {"lastUpdateWatermarkTime", I}, {"lastUpdateIconTime", I}, {"apptypelist", O}, {"appdevinfo", O},
      {"appinfoflag", I}, {"appupdateversion", I}, {"appcanshownew", B}, {"isnewapp", B},
      {"appdownloadurl", O}, {"appdownloadurlmd5", O}, {"nextupdateinfotime", I}, {"$class", O}};
  ASSERT_EQ(d.record->size(), expected.size());
  std::size_t i = 0;
  for (const auto& [key, value] : *d.record) {
    SCOPED_TRACE(key);
    EXPECT_EQ(key, expected[i].first);
    switch (expected[i].second) {
      case B: EXPECT_TRUE(value.isBool()); break;
      case O: EXPECT_TRUE(value.isUid()); break;
      case I: EXPECT_TRUE(value.isInteger()); break;
    }
    ++i;
  }
  // 32-bit keys hold the 32-bit pattern; the 64-bit version its own.
  EXPECT_EQ(d.record->get("appinfoflag"), Value(static_cast<std::int32_t>(0x80000001u)));
  EXPECT_EQ(d.record->get("nextupdateinfotime"), Value(-1));
  EXPECT_EQ(d.record->get("lastUpdateInfoTime"), Value(0xFFFFFFF0ll));
  const Uid cls = *d.record->get("$class").asUid();
  ASSERT_LT(cls.value, d.objects->size());
  EXPECT_EQ((*d.objects)[cls.value],
            Value(Dictionary{{"$classname", Value("AppRegisterInfo")},
                             {"$classes", Value(Array{Value("AppRegisterInfo"), Value("NSObject")})}}));
}

TEST(AppRegisterInfo, ReadsArchivesWrittenByOthers) {
  // Only a few keys, "needUpdateWaterMark" among the absent ones; the
  // version time written as a wide integer.
  const Data archive = recordArchive(Dictionary{{"appName", Value(Uid{2})},
                                                {"appID", Value(Uid{3})},
                                                {"needUpdateIcon", Value(true)},
                                                {"nextupdateinfotime", Value(std::int64_t{0x100000005})},
                                                {"appinfoflag", Value(std::int64_t{0x100000005})},
                                                {"appurl", Value(Uid{0})},
                                                {"appDevInfo", Value(Uid{2})}},
                                     Array{Value("Shown"), Value("mr9")}, "AppRegisterInfo");
  const auto info = AppRegisterInfo::unarchive(archive);
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->appName, "Shown");
  EXPECT_EQ(info->appID, "mr9");
  EXPECT_TRUE(info->needUpdateIcon);
  EXPECT_FALSE(info->needUpdateWatermark);
  EXPECT_FALSE(info->needUpdateInfo);
  // Read as a native integer, kept as 32 bits; the 32-bit key refuses it.
  EXPECT_EQ(info->nextUpdateInfoTime, 5u);
  EXPECT_EQ(info->appInfoFlag, 0u);
  EXPECT_TRUE(info->appInstallUrl.isNull());
  EXPECT_TRUE(info->appDevInfo.isNull());  // the key is "appdevinfo"
  EXPECT_EQ(info->description(), "{ name:Shown appid:mr9}");
  EXPECT_EQ(AppRegisterInfo().description(), "{ name:(null) appid:(null)}");
}

TEST(AppRegisterInfo, SettingItemRoundTripsInItsOwnKeysAndNeitherReadsTheOtherNorDamagedArchives) {
  AppSettingItem item;
  item.appID = "mr1";
  item.openID = "";
  item.flag = 0xFFFFFFFFu;
  item.appAddedByUser = true;
  const auto back = AppSettingItem::unarchive(item.archive());
  ASSERT_TRUE(back.has_value());
  EXPECT_EQ(back->appID, "mr1");
  EXPECT_EQ(back->openID, "");
  EXPECT_FALSE(back->openID.isNull());
  EXPECT_EQ(back->flag, 0xFFFFFFFFu);
  EXPECT_TRUE(back->appAddedByUser);

  const Decoded d = decodeRecord(item.archive());
  ASSERT_NE(d.record, nullptr);
  std::vector<std::string> keys;
  for (const auto& [k, v] : *d.record) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{"appID", "openID", "flag", "appAddedByUser", "$class"}));
  EXPECT_EQ(d.record->get("flag"), Value(-1));

  const auto blank = AppSettingItem::unarchive(AppSettingItem().archive());
  ASSERT_TRUE(blank.has_value());
  EXPECT_TRUE(blank->openID.isNull());

  const Data others[] = {
      item.archive(),
      KeyedArchiver::archivedDataWithRootObject(String("AppRegisterInfo")),
      Data::copy("not an archive"),
  };
  for (std::size_t i = 0; i < std::size(others); ++i) {
    std::string error;
    EXPECT_FALSE(AppRegisterInfo::unarchive(others[i], &error).has_value()) << i;
    EXPECT_FALSE(error.empty()) << i;
  }
  EXPECT_FALSE(AppSettingItem::unarchive(fullInfo().archive()).has_value());
}

}  // namespace
}  // namespace mirelo
