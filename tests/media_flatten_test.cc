// Media objects in the app data record: each class's keys, their limits, and what received records read as.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "mirelo/model/Model.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "support/KitFixture.h"
#include "support/RecordTestUtil.h"
#include "transport/AppCommunicate.h"

namespace mirelo::testing {
namespace {

// One buffer shared by every large case: slices of it cost no memory.
const Data& bigBuffer() {
  static const Data kBig = Data::adopt(std::vector<std::uint8_t>(26214401, 0x5a));
  return kBig;
}
Data bytes(std::size_t n) { return bigBuffer().slice(0, n); }

class ForeignObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(ForeignObject)
};

// Every media class with every field set, and the exact keys it flattens to.
using ObjectCase = std::tuple<std::string, std::shared_ptr<MRMediaObject>, Dictionary>;

std::vector<ObjectCase> everyObjectClass() {
  const Data data = Data::copy("payload");
  const Data hd = Data::copy("hd-thumb");
  return {
      {"image", make<MRImageObject>([&](auto& o) { o.imageData = data; }), mediaKeys("2", {{"fileData", data}})},
      {"music", make<MRMusicObject>([](auto& o) {
         o.musicUrl = "https://m/u";
         o.musicLowBandUrl = "https://m/l";
         o.musicDataUrl = "https://m/d";
         o.musicLowBandDataUrl = "https://m/ld";
         o.songAlbumUrl = "https://m/a";
         o.songLyric = "la la";
       }),
       mediaKeys("3", {{"mediaUrl", "https://m/u"}, {"mediaLowBandUrl", "https://m/l"}, {"songLyric", "la la"},
                       {"mediaDataUrl", "https://m/d"}, {"mediaLowBandDataUrl", "https://m/ld"},
                       {"songAlbumUrl", "https://m/a"}})},
      {"video", make<MRVideoObject>([](auto& o) {
         o.videoUrl = "https://v/u";
         o.videoLowBandUrl = "https://v/l";
       }),
       mediaKeys("4", {{"mediaUrl", "https://v/u"}, {"mediaLowBandUrl", "https://v/l"}})},
      {"webpage", make<MRWebpageObject>([](auto& o) { o.webpageUrl = "https://w"; }),
       mediaKeys("5", {{"mediaUrl", "https://w"}})},
      {"file", make<MRFileObject>([&](auto& o) { o.fileExtension = "pdf"; o.fileData = data; }),
       mediaKeys("6", {{"fileExt", "pdf"}, {"fileData", data}})},
      {"appExtend",
       make<MRAppExtendObject>([&](auto& o) { o.url = "https://x"; o.extInfo = "ext"; o.fileData = data; }),
       mediaKeys("7", {{"mediaUrl", "https://x"}, {"extInfo", "ext"}, {"fileData", data}})},
      {"emoticon", make<MREmoticonObject>([&](auto& o) { o.emoticonData = data; }),
       mediaKeys("8", {{"fileData", data}})},
      {"miniProgram", make<MRMiniProgramObject>([&](auto& o) {
         o.webpageUrl = "https://fallback";
         o.userName = "gh_1";
         o.path = "pages/a?x=1";
         o.hdImageData = hd;
         o.withShareTicket = true;
         o.miniProgramType = MRMiniProgramTypePreview;
         o.disableForward = true;
         o.isUpdatableMessage = true;
         o.isSecretMessage = true;
         o.extraInfoDic = std::make_shared<Dictionary>(Dictionary{{"k", "v"}});
       }),
       mediaKeys("36", {{"withShareTicket", true}, {"disableForward", true}, {"appbrandisupdatablemessage", true},
                        {"appbrandissecrectmessage", true}, {"miniprogramType", 2}, {"mediaUrl", "https://fallback"},
                        {"appBrandUserName", "gh_1"}, {"appBrandPath", "pages/a?x=1"}, {"hdThumbData", hd},
                        {"appbrandextrainfo", Dictionary{{"k", "v"}}}})},
      {"videoFile", make<MRVideoFileObject>([&](auto& o) { o.videoFileData = data; }),
       mediaKeys("38", {{"fileData", data}})},
      {"gameVideoFile", make<MRGameVideoFileObject>([&](auto& o) {
         o.videoFileData = data;
         o.videoUrl = "https://cdn/v";
         o.thumbUrl = "https://cdn/t";
       }),
       mediaKeys("39",
                 {{"fileData", data}, {"sightCdnVideoUrl", "https://cdn/v"}, {"sightCdnThumbUrl", "https://cdn/t"}})},
      {"enterpriseCard", make<MREnterpriseCardObject>([](auto& o) { o.cardInfo = "{\"card\":1}"; o.msgType = -7; }),
       mediaKeys("45", {{"enterpriseCardInfo", "{\"card\":1}"}, {"enterpriseCardMsgType", -7}})},
      {"dynamicVideoMiniProgram", make<MRDynamicVideoMiniProgramObject>([&](auto& o) {
         o.webpageUrl = "https://fallback";
         o.userName = "gh_2";
         o.path = "p";
         o.hdImageData = hd;
         o.withShareTicket = true;
         o.disableForward = true;
         o.miniProgramType = MRMiniProgramTypeTest;
         o.videoSource = "https://cdn/src";
         o.appThumbUrl = "https://cdn/thumb";
       }),
       mediaKeys("46", {{"withShareTicket", true}, {"disableForward", true}, {"miniprogramType", 1},
                        {"mediaUrl", "https://fallback"}, {"appBrandUserName", "gh_2"}, {"appBrandPath", "p"},
                        {"hdThumbData", hd}, {"sightCdnVideoUrl", "https://cdn/src"},
                        {"sightAppThumbUrl", "https://cdn/thumb"}})},
      {"tessel", make<MRTesselObject>([&](auto& o) { o.subType = -3; o.data = data; o.extInfo = "t"; }),
       mediaKeys("49", {{"tesselObjectSubType", "-3"}, {"fileData", data}, {"extInfo", "t"}})},
      {"gameLive", make<MRGameLiveObject>([](auto& o) {
         o.extraInfoDic = std::make_shared<Dictionary>(Dictionary{{"room", "42"}});
       }),
       mediaKeys("70", {{"gameLiveExtraInfo", Dictionary{{"room", "42"}}}})},
      {"musicVideo", make<MRMusicVideoObject>([&](auto& o) {
         o.musicUrl = "https://mv/u";
         o.musicDataUrl = "https://mv/d";
         o.singerName = "Singer";
         o.duration = 4294967295u;
         o.songLyric = "lyric";
         o.hdAlbumThumbData = hd;
         o.albumName = "Album";
         o.musicGenre = "Pop";
         o.issueDate = 18446744073709551615ull;
         o.identification = "id";
         o.musicOperationUrl = "https://mv/op";
       }),
       mediaKeys("76", {{"musicVideoDuration", "4294967295"}, {"musicVideoIssueData", "18446744073709551615"},
                        {"mediaUrl", "https://mv/u"}, {"mediaDataUrl", "https://mv/d"}, {"songLyric", "lyric"},
                        {"musicVideoSingetName", "Singer"}, {"musicVideoHDThumbData", hd},
                        {"musicVideoAlbumName", "Album"}, {"musicVideoMusicGenre", "Pop"},
                        {"musicVideoIdentification", "id"}, {"musicVideoOperationUrl", "https://mv/op"}})},
  };
}

class MediaFlattenTest : public KitTest {
 protected:
  // Flattens `o` into a fresh record.
  bool flatten(const std::shared_ptr<MRMediaObject>& o) {
    record = AppCommunicateData();
    record.initCommonField(kCommandMediaMessage);
    return record.MakeLinkObject(o);
  }
  static Dictionary mediaRecord(const Dictionary& body) {
    return with(Dictionary{{"command", "1010"}, {"returnFromApp", "1"}, {"result", "0"}}, body);
  }

  AppCommunicateData record;
};

TEST_F(MediaFlattenTest, EveryClassWritesExactlyItsKeysAndReadsBackThroughThePasteboardExceptMiniPrograms) {
  ASSERT_TRUE(registerHost());
  for (const auto& [name, object, keys] : everyObjectClass()) {
    SCOPED_TRACE(name);
    logs.clear();
    ASSERT_TRUE(flatten(object));
    EXPECT_EQ(bodyOf(record), keys);  // kinds too: "2" and 2, 0 and false differ
    // Only the Tessel payload logs (its lengths).
    const std::vector<std::string> noted = {"mrlog:object extInfo length:1", "mrlog:object data length:7"};
    EXPECT_EQ(logs, name == "tessel" ? noted : std::vector<std::string>());

    auto req = std::make_shared<SendMessageToMRReq>();
    req->message = MRMediaMessage::message();
    req->message->title = "T";
    req->message->messageAction = "act";
    req->message->mediaObject = object;
    AppCommunicateData sent;
    ASSERT_TRUE(sent.ReqToData(req));
    ASSERT_TRUE(AppCommunicate::setAppCommunicateData(std::make_shared<AppCommunicateData>(sent), kHostAppId));
    auto back = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
    ASSERT_NE(back, nullptr);
    logs.clear();
    auto message = back->mediaMessage();
    if (name == "miniProgram" || name == "dynamicVideoMiniProgram") {
      EXPECT_EQ(message, nullptr);
      EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:nsAppBrandUserName format is not right"});
      continue;
    }
    ASSERT_NE(message, nullptr);
    ASSERT_NE(message->mediaObject, nullptr);
    EXPECT_EQ(message->mediaObject->className(), req->message->mediaObject->className());
    EXPECT_EQ(message->title, "T");
    EXPECT_EQ(message->messageAction, "act");
    // Written again, the message gives the same record body.
    AppCommunicateData again;
    again.initCommonField(kCommandMediaMessage);
    ASSERT_TRUE(again.MakeMediaMessage(message));
    Dictionary expected = bodyOf(sent);
    expected.remove("scene");
    EXPECT_EQ(bodyOf(again), expected);
  }
}

// Each limit at its boundary (in UTF-16 units) with its exact line; incomplete objects are refused too.
TEST_F(MediaFlattenTest, LimitsHoldAtTheirBoundariesAndIncompleteObjectsAreRefused) {
  using Case = std::tuple<std::string, std::shared_ptr<MRMediaObject>, std::string>;  // line: empty: passes
  // Each builds a valid object, then sets the field under test.
  auto webpage = [](const String& url) { return make<MRWebpageObject>([&](auto& o) { o.webpageUrl = url; }); };
  auto music = [](std::function<void(MRMusicObject&)> set) {
    return make<MRMusicObject>([&](auto& o) { o.musicUrl = "https://m"; set(o); });
  };
  auto image = [](std::size_t n) { return make<MRImageObject>([&](auto& o) { o.imageData = bytes(n); }); };
  auto musicVideo = [](std::function<void(MRMusicVideoObject&)> set) {
    return make<MRMusicVideoObject>([&](auto& o) {
      o.musicUrl = "https://mv";
      o.musicDataUrl = "https://mv/d";
      o.singerName = "S";
      set(o);
    });
  };
  auto mini = [](std::function<void(MRMiniProgramObject&)> set) {
    return make<MRMiniProgramObject>([&](auto& o) { o.webpageUrl = "https://w"; set(o); });
  };
  std::string accents;
  for (int i = 0; i < 10240; ++i) accents += "\xC3\xA9";
  auto text = MRTextObject::object();
  text->contentText = "hello";
  auto emptyLive = MRGameLiveObject::object();
  emptyLive->extraInfoDic = std::make_shared<Dictionary>();
  const std::vector<Case> cases = {
      {"url 10240", webpage(chars(10240)), ""},
      {"url 10241", webpage(chars(10241)), "object url too large, largest size is 10240"},
      {"lowBand 10241", music([](auto& o) { o.musicLowBandUrl = chars(10241); }),
       "object lowBandUrl too large, largest size is 10240"},
      {"dataUrl 10240", music([](auto& o) { o.musicDataUrl = chars(10240); }), ""},
      {"dataUrl 10241", music([](auto& o) { o.musicDataUrl = chars(10241); }),
       "object dataUrl too large, largest size is 10240"},
      {"lowBandData 10241", music([](auto& o) { o.musicLowBandDataUrl = chars(10241); }),
       "object lowBandDataUrl too large, largest size is 10240"},
      {"songAlbumUrl 10240", music([](auto& o) { o.songAlbumUrl = chars(10240); }), ""},
      {"songAlbumUrl 10241", music([](auto& o) { o.songAlbumUrl = chars(10241); }),
       "object songAlbumUrl too large, largest size is 10240"},
      {"songLyric 32768", music([](auto& o) { o.songLyric = chars(32768); }), ""},
      {"songLyric 32769", music([](auto& o) { o.songLyric = chars(32769); }),
       "object songLyric too large, largest size is 32768"},
      {"extInfo 2048", make<MRAppExtendObject>([](auto& o) { o.extInfo = chars(2048); }), ""},
      {"extInfo 2049", make<MRAppExtendObject>([](auto& o) { o.extInfo = chars(2049); }),
       "object extInfo too large, largest size is 2048"},
      {"fileExt 64", make<MRFileObject>([](auto& o) { o.fileData = bytes(1); o.fileExtension = chars(64); }), ""},
      {"fileExt 65", make<MRFileObject>([](auto& o) { o.fileData = bytes(1); o.fileExtension = chars(65); }),
       "object fileExt too large, largest size is 64"},
      {"image 26214400", image(26214400), ""},
      {"image 26214401", image(26214401), "object image data too large, largest size is 26214400"},
      {"file 26214401", make<MRFileObject>([](auto& o) { o.fileData = bytes(26214401); }), ""},
      {"emoticon 26214401", make<MREmoticonObject>([](auto& o) { o.emoticonData = bytes(26214401); }), ""},
      {"hdThumb 131072", mini([](auto& o) { o.hdImageData = bytes(131072); }), ""},
      {"hdThumb 131073", mini([](auto& o) { o.hdImageData = bytes(131073); }),
       "object hdThumbData too large, largest size is 131072"},
      {"miniProgramType 2", mini([](auto& o) { o.miniProgramType = 2; }), ""},
      {"miniProgramType 3", mini([](auto& o) { o.miniProgramType = 3; }), "miniProgramType is invaild"},
      {"dynamic miniProgramType 3", make<MRDynamicVideoMiniProgramObject>([](auto& o) {
         o.webpageUrl = "https://w";
         o.miniProgramType = UINT64_MAX;
       }),
       "miniProgramType is invaild"},
      {"hdAlbumThumb 10485760", musicVideo([](auto& o) { o.hdAlbumThumbData = bytes(10485760); }), ""},
      {"hdAlbumThumb 10485761", musicVideo([](auto& o) { o.hdAlbumThumbData = bytes(10485761); }),
       "object hdAlbumThumbData too large, size is 10485761"},
      {"singer missing", musicVideo([](auto& o) { o.singerName = ""; }),
       "musicUrl\u3001musicDataUrl and singerName can not be nil"},
      {"album 1024", musicVideo([](auto& o) { o.albumName = chars(1024); o.musicGenre = chars(1024); }), ""},
      {"album 1025", musicVideo([](auto& o) { o.albumName = chars(1025); }),
       "albumName\u3001musicGenre or identification is too large"},
      {"operation 10240", musicVideo([](auto& o) { o.musicOperationUrl = chars(10240); }), ""},
      {"operation 10241", musicVideo([](auto& o) { o.musicOperationUrl = chars(10241); }),
       "musicOperationUrl is too large"},
      // The first failing check wins: URL (4) before hd thumbnail (9).
      {"url before hdThumb",
       mini([](auto& o) { o.webpageUrl = chars(10241); o.hdImageData = bytes(131073); }),
       "object url too large, largest size is 10240"},
      {"10240 two-byte characters", webpage(accents), ""},
      {"an emoji is two units", webpage(std::string(10239, 'a') + "\xF0\x9F\x98\x80"),
       "object url too large, largest size is 10240"},
      {"null", nullptr, "media object is nil"},
      {"text", text, " unkow object"},
      {"foreign", std::make_shared<ForeignObject>(), " unkow object"},
      {"bare webpage", MRWebpageObject::object(), "object lose some param"},
      {"empty url", webpage(""), "object lose some param"},
      {"empty file", make<MRFileObject>([](auto& o) { o.fileData = Data::emptyData(); o.fileExtension = "txt"; }),
       "object lose some param"},
      {"live without dictionary", MRGameLiveObject::object(), "object lose some param"},
      {"live with empty dictionary", emptyLive, "object lose some param"},
      {"music video without anything", MRMusicVideoObject::object(), "object lose some param"},
  };
  for (const auto& [name, object, line] : cases) {
    SCOPED_TRACE(name);
    logs.clear();
    EXPECT_EQ(flatten(object), line.empty());
    if (line.empty()) {
      EXPECT_EQ(logs, std::vector<std::string>{});
      EXPECT_TRUE(record.propertList().contains("objectType"));
    } else {
      EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:" + line});
      EXPECT_EQ(bodyOf(record), Dictionary{});
    }
  }
}

TEST_F(MediaFlattenTest, OverLimitValuesReadBackAsNull) {
  auto rec = received(mediaRecord({{"objectType", "7"}, {"title", chars(513)}, {"description", chars(1024)},
                                   {"thumbData", bytes(65537)}, {"mediaTagName", chars(65)},
                                   {"messageExt", chars(2049)}, {"messageAction", chars(2048)},
                                   {"mediaUrl", chars(10241)}, {"extInfo", chars(2049)}, {"fileData", bytes(26214401)},
                                   {"songLyric", chars(32769)}, {"musicVideoAlbumName", chars(1025)},
                                   {"musicVideoMusicGenre", chars(1024)}, {"hdThumbData", bytes(131073)},
                                   {"musicVideoHDThumbData", bytes(10485761)}, {"miniprogramType", 3}}));
  auto m = rec->mediaInternalMessage();
  ASSERT_NE(m, nullptr);
  EXPECT_TRUE(m->title.isNull());
  EXPECT_EQ(m->description.length(), 1024u);
  EXPECT_TRUE(m->thumbData.isNull());
  EXPECT_TRUE(m->mediaTagName.isNull());
  EXPECT_TRUE(m->messageExt.isNull());
  EXPECT_EQ(m->messageAction.length(), 2048u);
  EXPECT_TRUE(m->mediaUrl.isNull());
  EXPECT_TRUE(m->extInfo.isNull());
  EXPECT_EQ(m->fileData.size(), 26214401u);  // an app-extension payload may be this large
  EXPECT_TRUE(m->songLyric.isNull());
  EXPECT_TRUE(m->musicVideoAlbumName.isNull());
  EXPECT_EQ(m->musicVideoMusicGenre.length(), 1024u);
  EXPECT_TRUE(m->hdThumbData.isNull());
  EXPECT_TRUE(m->musicVideoHdAlbumThumbData.isNull());
  EXPECT_EQ(m->appBrandMiniProgramType, 0u);

  // The limits follow the object type: an image's data and a Tessel's extInfo.
  EXPECT_TRUE(received(mediaRecord({{"objectType", "2"}, {"fileData", bytes(26214401)}}))
                  ->mediaInternalMessage()->fileData.isNull());
  EXPECT_EQ(received(mediaRecord({{"objectType", "2"}, {"fileData", bytes(26214400)}}))
                ->mediaInternalMessage()->fileData.size(), 26214400u);
  EXPECT_EQ(received(mediaRecord({{"objectType", "49"}, {"extInfo", chars(5000)}}))
                ->mediaInternalMessage()->extInfo.length(), 5000u);
  EXPECT_TRUE(logs.empty());
}

// A hostile app's record: wrong kinds, absent keys, absurd numbers. Nothing crashes; wrong kinds read as null.
TEST_F(MediaFlattenTest, HostileRecordsReadAsNullOrEmptyFields) {
  using TypeCase = std::tuple<Value, bool, std::uint64_t>;
  const std::vector<TypeCase> types = {{Value(), false, 0},     {Value(5), false, 0},        {Value("-5"), true, 0},
                                       {Value("99999999999999999999999"), true, 0},
                                       {Value("5 "), true, 5},  {Value("1000"), true, 1000}};
  for (const auto& [objectType, hasMessage, type] : types) {
    SCOPED_TRACE(objectType.description());
    Dictionary dict = mediaRecord({{"mediaUrl", "https://w"},
                                   {"title", 7},
                                   {"fileData", "not bytes"},
                                   {"gameLiveExtraInfo", Array{}},
                                   {"musicVideoDuration", "99999999999"},
                                   {"musicVideoIssueData", Data::copy("1")},
                                   {"tesselObjectSubType", "-99999999999"},
                                   {"miniprogramType", -1},
                                   {"enterpriseCardMsgType", "12"}});
    if (!objectType.isNull()) dict.set("objectType", objectType);
    auto rec = received(std::move(dict));
    auto m = rec->mediaInternalMessage();
    ASSERT_EQ(m != nullptr, hasMessage);
    if (m == nullptr) continue;
    EXPECT_EQ(m->objectType, type);
    EXPECT_TRUE(m->title.isNull());
    EXPECT_TRUE(m->fileData.isNull());
    EXPECT_EQ(m->gameLiveExtraInfoDic, nullptr);
    EXPECT_EQ(m->musicVideoIssueDate, 0u);
    EXPECT_EQ(m->musicVideoDuration, 0u);          // out of the 32-bit range
    EXPECT_EQ(m->tesselSubType, INT32_MIN);         // clamped, as the record's other integers
    EXPECT_EQ(m->appBrandMiniProgramType, 0u);      // outside 0...2
    EXPECT_EQ(m->enterpriseCardMsgType, 0);         // a string, not a number
    auto message = rec->mediaMessage();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->mediaObject != nullptr, type == 5);
  }

  // No dictionary at all, and a record without "command".
  EXPECT_EQ(AppCommunicateData().mediaInternalMessage(), nullptr);
  EXPECT_EQ(received(Dictionary{{"objectType", "5"}})->mediaMessage(), nullptr);
  EXPECT_TRUE(logs.empty());
}

// Only the kit's own internal messages become mini programs; received ones are refused above.
TEST_F(MediaFlattenTest, InternalMessagesOfTheKitItselfConvertMiniProgramsToo) {
  MRMediaInternalMessage internal;
  internal.objectType = kObjectTypeMiniProgram;
  internal.appBrandUserName = "gh_1";
  internal.appBrandMiniProgramType = 1;
  internal.isAppBrandSecretMessage = true;
  auto mini = kindCast<MRMiniProgramObject>(internal.mediaMessage()->mediaObject);
  ASSERT_NE(mini, nullptr);
  EXPECT_EQ(mini->userName, "gh_1");
  EXPECT_EQ(mini->miniProgramType, 1u);
  EXPECT_TRUE(mini->isSecretMessage);
  EXPECT_FALSE(mini->isUpdatableMessage);
  internal.objectType = 12345;
  EXPECT_EQ(internal.mediaMessage()->mediaObject, nullptr);
}

}  // namespace
}  // namespace mirelo::testing
