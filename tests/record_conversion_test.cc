// Requests and responses in the app data record: commands, bodies, read-back, and each limit with its line.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "ports/linux/image_codec.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "support/KitFixture.h"
#include "support/RecordTestUtil.h"

namespace mirelo::testing {
namespace {

// The body of `webpageMessage(title)`.
Dictionary webpageKeys(const char* title = "T") {
  return mediaKeys("5", {{"mediaUrl", "https://w"}, {"title", title}});
}

std::shared_ptr<MRMediaMessage> webpageMessage(const char* title = "T") {
  auto message = MRMediaMessage::message();
  message->title = title;
  message->mediaObject = make<MRWebpageObject>([](auto& p) { p.webpageUrl = "https://w"; });
  return message;
}

std::shared_ptr<MRStateSceneDataObject> stateScene(const char* url = "https://state") {
  auto scene = MRStateSceneDataObject::object();
  scene->stateId = "sid";
  scene->token = "tok";
  scene->stateJumpDataInfo = make<MRStateJumpUrlInfo>([url](auto& j) { j.url = url; });
  return scene;
}

// The keys `stateScene()` adds.
Dictionary stateSceneKeys() {
  return {{"stateId", "sid"}, {"stateToken", "tok"}, {"stateJumpType", "0"}, {"stateUrl", "https://state"},
          {"scene", "4"}};
}

// A name, a change to a valid request, and the lines its conversion logs (none: it passes).
using ReqCase = std::tuple<std::string, std::function<void(SendMessageToMRReq&)>, Lines>;
const std::string kFail = "mrlog:Error:covert req to data fail";

class RecordConversionTest : public KitTest {
 protected:
  // A JPEG thumbnail padded with zeros (which the decoder ignores) to exactly `size` bytes.
  static Data paddedJpeg(std::size_t size) {
    auto image = linuxport::Bitmap::blank(16, 16);
    std::string jpeg = platform::current().imageCodec->jpegRepresentation(*image, 0.6).toString();
    jpeg.resize(size, '\0');
    return Data::adopt(std::move(jpeg));
  }

  // Sends `req` into a fresh record as the send pipeline does.
  bool convert(const std::shared_ptr<BaseReq>& req, std::shared_ptr<MRMediaInternalMessage> internal = nullptr) {
    record = AppCommunicateData();
    record.sdkVer = "1.9.2";
    logs.clear();
    return record.ReqToData(req, internal);
  }

  AppCommunicateData record;
};

// ---- requests ---------------------------------------------------------------------------

TEST_F(RecordConversionTest, EveryRequestClassWritesItsCommandAndExactlyItsBody) {
  using Case = std::tuple<std::string, std::shared_ptr<BaseReq>, std::uint64_t, Dictionary>;
  const Data ext = Data::copy("ext-bytes");
  auto internal = std::make_shared<MRMediaInternalMessage>();
  internal->objectType = kObjectTypeWebpage;
  internal->mediaUrl = "https://w";
  internal->title = "T";
  const Dictionary internalKeys = webpageKeys();
  const Dictionary stateKeys = stateSceneKeys();

  const std::vector<Case> cases = {
      {"text to a specified session", make<SendMessageToMRReq>([](auto& r) {
         r.bText = true;
         r.text = "hello";
         r.scene = MRSceneSpecifiedSession;
         r.openID = "me";
         r.toUserOpenId = "you";
       }),
       1020, {{"title", "hello"}, {"scene", "3"}, {"openID", "me"}, {"userOpenID", "you"}}},
      {"media message", make<SendMessageToMRReq>([](auto& r) {
         r.message = webpageMessage();
         r.message->description = "D";
         r.message->mediaTagName = "tag";
         r.message->messageExt = "mx";
         r.message->messageAction = "ma";
         r.scene = MRSceneTimeline;
       }),
       1010,
       with(webpageKeys(), {{"description", "D"}, {"mediaTagName", "tag"}, {"messageExt", "mx"},
                            {"messageAction", "ma"}, {"scene", "1"}})},
      {"state text takes the text as state title", make<SendMessageToMRReq>([](auto& r) {
         r.bText = true;
         r.text = "status";
         r.scene = MRSceneState;
         r.sceneDataObject = stateScene();
       }),
       1020, with(stateKeys, {{"title", "status"}, {"stateTitle", "status"}})},
      {"state media", make<SendMessageToMRReq>([](auto& r) {
         r.message = webpageMessage();
         r.scene = MRSceneState;
         r.sceneDataObject = stateScene();
       }),
       1010, with(webpageKeys(), stateKeys)},
      {"mini-program launch", make<MRLaunchMiniProgramReq>([](auto& r) {
         r.userName = "gh_1";
         r.path = "p";
         r.miniProgramType = 2;
         r.extMsg = "m";
         r.extDic = Dictionary{{"k", "v"}};
       }),
       1080,
       {{"tinyAppExtDic", Dictionary{{"k", "v"}}}, {"userName", "gh_1"}, {"path", "p"}, {"miniProgramType", "2"},
        {"extMsg", "m"}}},
      {"mini-program launch, bare", MRLaunchMiniProgramReq::object(), 1080, {{"miniProgramType", "0"}}},
      {"redirecting page", make<MRLaunchMraRedirectingPageReq>([](auto& r) {
         r.ticket = "tk";
         r.extDict = std::make_shared<Dictionary>(Dictionary{{"a", 1}});
       }),
       1090, {{"tinyAppExtDic", Dictionary{{"a", 1}}}, {"ticket", "tk"}}},
      {"get message", make<GetMessageFromMRReq>([](auto& r) {
         r.lang = "en";
         r.country = "GB";
         r.openID = "not written";
       }),
       2000, {{"language", "en"}, {"country", "GB"}}},
      {"show message with an internal message", make<ShowMessageFromMRReq>([](auto& r) { r.openID = "me"; }), 1010,
       with(internalKeys, {{"openID", "me"}})},
      {"launch from messenger", make<LaunchFromMRReq>([](auto& r) { r.country = "FR"; }), 2040, {{"country", "FR"}}},
      {"business view", make<MROpenBusinessViewReq>([&](auto& r) {
         r.businessType = "bt";
         r.openID = "me";
         r.extData = ext;
       }),
       2080, with(internalKeys, {{"openID", "me"}, {"fileData", ext}})},
      {"channel video, mini-program jump", make<MRChannelShareVideoReq>([&](auto& r) {
         r.localIdentifier = "lib/1";
         r.extData = ext;
         r.jumpInfo = make<MRChannelJumpMiniProgramInfo>([](auto& j) {
           j.wording = "Go";
           j.extData = "je";
           j.userName = "gh_1";
           j.path = "p";
         });
       }),
       2090,
       {{"finderLocalIdentifier", "lib/1"}, {"finderExtData", ext}, {"finderJumpInfo", true},
        {"finderJumpInfoType", "0"}, {"finderJumpInfoWording", "Go"}, {"finderJumpInfoExtData", "je"},
        {"finderJumpInfoTinyAppUsername", "gh_1"}, {"finderJumpInfoTinyAppPath", "p"}}},
      {"channel video, URL jump", make<MRChannelShareVideoReq>([](auto& r) {
         r.localIdentifier = "lib/1";
         r.jumpInfo = make<MRChannelJumpUrlInfo>([](auto& j) { j.url = "https://h5"; });
       }),
       2090,
       {{"finderLocalIdentifier", "lib/1"}, {"finderJumpInfo", true}, {"finderJumpInfoType", "1"},
        {"finderJumpInfoH5Url", "https://h5"}}},
      {"channel video, jump without a target", make<MRChannelShareVideoReq>([](auto& r) {
         r.localIdentifier = "lib/1";
         r.jumpInfo = make<MRChannelBaseJumpInfo>([](auto& j) { j.wording = "nowhere"; });
       }),
       2090, {{"finderLocalIdentifier", "lib/1"}, {"finderJumpInfo", false}}},
      {"channel profile", make<MRChannelOpenProfileReq>([](auto& r) { r.userName = "finder"; }), 2100,
       {{"finderUserName", "finder"}}},
      {"channel live", make<MRChannelOpenLiveReq>([](auto& r) { r.feedID = "f"; r.nonceID = "n"; }), 2110,
       {{"finderFeedID", "f"}, {"finderNonceID", "n"}}},
      {"channel feed", make<MRChannelOpenFeedReq>([](auto& r) {
         r.feedID = "f";
         r.nonceID = "n";
         r.notGetReleatedList = true;
       }),
       2120, {{"finderFeedID", "f"}, {"finderNonceID", "n"}, {"notGetReleatedList", true}}},
      {"customer service", make<MROpenCustomerServiceReq>([](auto& r) { r.url = "https://kf"; r.corpid = "corp"; }),
       2130, {{"url", "https://kf"}, {"corpid", "corp"}}},
      {"any other request", std::make_shared<PayReq>(), 0, {}},
      {"sign-in travels in the URL", std::make_shared<SendTdiAuthReq>(), 0, {}},
      {"null request", nullptr, 0, {}},
  };
  for (const auto& [name, req, command, body] : cases) {
    SCOPED_TRACE(name);
    const bool withInternal = name.find("show") == 0 || name.find("business") == 0;
    ASSERT_TRUE(convert(req, withInternal ? internal : nullptr));
    EXPECT_EQ(record.command(), command);
    ASSERT_TRUE(record.hasDictionary());
    EXPECT_EQ(record.propertList().get("command"), Value(std::to_string(command)));
    EXPECT_EQ(record.propertList().get("sdkver"), Value("1.9.2"));
    EXPECT_EQ(bodyOf(record), body);
    EXPECT_EQ(logsContaining("Error:"), Lines{});
  }
  // Without an internal message a show request has an empty body and reads back as no request.
  ASSERT_TRUE(convert(std::make_shared<ShowMessageFromMRReq>()));
  EXPECT_EQ(bodyOf(record), Dictionary{});
  EXPECT_EQ(received(record.propertList())->DataToReq(), nullptr);
}

TEST_F(RecordConversionTest, BareStateSceneRequestBecomesAnEmptyTextMessage) {
  // A media message without an object: the request itself is changed.
  auto scene = stateScene();
  auto req = make<SendMessageToMRReq>([&](auto& r) {
    r.scene = MRSceneState;
    r.message = MRMediaMessage::message();
    r.sceneDataObject = scene;
  });
  ASSERT_TRUE(convert(req));
  EXPECT_EQ(record.command(), 1020u);
  EXPECT_TRUE(req->bText);
  EXPECT_EQ(req->text, "");
  EXPECT_TRUE(isKindOf<MRTextObject>(req->message->mediaObject));
  EXPECT_TRUE(scene->stateTitle.isNull());  // an empty text gives no title
  EXPECT_EQ(bodyOf(record), stateSceneKeys());
}

TEST_F(RecordConversionTest, StateSceneChecksRunInOrder) {
  auto jumpTo = [](const String& url) {
    return [url](SendMessageToMRReq& r) {
      kindCast<MRStateSceneDataObject>(r.sceneDataObject)->stateJumpDataInfo =
          make<MRStateJumpUrlInfo>([&](auto& j) { j.url = url; });
    };
  };
  auto state = [](std::function<void(MRStateSceneDataObject&)> f) {
    return [f](SendMessageToMRReq& r) { f(*kindCast<MRStateSceneDataObject>(r.sceneDataObject)); };
  };
  const std::vector<ReqCase> cases = {
      {"all at 10240",
       [&](SendMessageToMRReq& r) {
         jumpTo(chars(10240))(r);
         state([](auto& s) { s.stateId = chars(10240); s.stateTitle = chars(10240); s.token = chars(10240); })(r);
       },
       {}},
      {"stateId 10241", state([](auto& s) { s.stateId = chars(10241); }),
       {"mrlog:Error:stateId too large, largest size is 10240", kFail}},
      {"stateTitle 10241", state([](auto& s) { s.stateTitle = chars(10241); }),
       {"mrlog:Error:stateTitle too large, largest size is 10240", kFail}},
      {"token 10241", state([](auto& s) { s.token = chars(10241); }),
       {"mrlog:Error:token too large, largest size is 10240", kFail}},
      {"url 10241", jumpTo(chars(10241)), {"mrlog:Error:url too large, largest size is 10240", kFail}},
      {"empty url", jumpTo(""), {"mrlog:Error:state jump url should not be null!", kFail}},
      {"jump that is not a URL jump",
       state([](auto& s) { s.stateJumpDataInfo = std::make_shared<MRStateJumpInfo>(); }),
       {"mrlog:Error:state jump url should not be null!", kFail}},
      {"no scene data", [](SendMessageToMRReq& r) { r.sceneDataObject = nullptr; },
       {"mrlog:Error:scene object is nil", kFail}},
      // Scene data of another kind fails without a line of its own.
      {"base scene data", [](SendMessageToMRReq& r) { r.sceneDataObject = std::make_shared<MRSceneDataObject>(); },
       {kFail}},
      // The text is checked before the scene data.
      {"state text 10241", [](SendMessageToMRReq& r) { r.text = chars(10241); r.sceneDataObject = nullptr; },
       {"mrlog:Error:text length[10241] over limit[10240]!", kFail}},
  };
  for (bool media : {false, true}) {
    for (const auto& [name, set, lines] : cases) {
      if (media && name == "state text 10241") continue;
      SCOPED_TRACE(name + (media ? " (media)" : " (text)"));
      auto req = make<SendMessageToMRReq>([&](auto& r) {
        r.scene = MRSceneState;
        r.bText = !media;
        r.text = "t";
        if (media) r.message = webpageMessage();
        r.sceneDataObject = stateScene();
      });
      set(*req);
      EXPECT_EQ(convert(req), lines.empty());
      EXPECT_EQ(logs, lines);
      // The scene goes into the record whatever the outcome.
      EXPECT_EQ(record.propertList().get("scene"), Value("4"));
    }
  }
}

// ---- responses --------------------------------------------------------------------------------

// The answers read back through the messenger peer in the round trips; here the exact bodies.
TEST_F(RecordConversionTest, EveryResponseClassWritesItsCommandAndExactlyItsBody) {
  using Case = std::tuple<std::shared_ptr<BaseResp>, std::uint64_t, Dictionary>;
  std::vector<Case> cases = {
      {make<SendAuthResp>([](auto& r) {
         r.state = "st";
         r.code = "not written";
         r.errCode = ErrCodeAuthDeny;
       }),
       2030, {{"state", "st"}}},
      {make<GetMessageFromMRResp>([](auto& r) {
         r.bText = true;
         r.text = "answer";
         r.message = webpageMessage();
       }),
       1020, {{"title", "answer"}}},
      {make<GetMessageFromMRResp>([](auto& r) {
         r.text = "not written";
         r.message = webpageMessage("Page");
       }),
       1010, webpageKeys("Page")},
      {std::make_shared<ShowMessageFromMRResp>(), 1070, {}},
      {make<SendMessageToMRResp>([](auto& r) { r.lang = "de"; r.country = "AT"; }), 2020,
       {{"language", "de"}, {"country", "AT"}}},
      {make<MROpenBusinessViewResp>([](auto& r) { r.extMsg = "x"; r.businessType = "bt"; }), 2080,
       {{"messageExt", "x"}, {"businessType", "bt"}}},
      {std::make_shared<MRChannelOpenFeedResp>(), 2120, {}},  // an unset extMsg writes nothing
  };
  // The answers that carry only their extMsg, under "messageExt".
  auto extMsgOnly = [&cases](auto resp, std::uint64_t command) {
    resp->extMsg = "x";
    cases.push_back({resp, command, {{"messageExt", "x"}}});
  };
  extMsgOnly(std::make_shared<CreateChatRoomResp>(), 2050);
  extMsgOnly(std::make_shared<JoinChatRoomResp>(), 2060);
  extMsgOnly(std::make_shared<MRLaunchMiniProgramResp>(), 2070);
  extMsgOnly(std::make_shared<MRChannelShareVideoResp>(), 2090);
  extMsgOnly(std::make_shared<MRChannelOpenProfileResp>(), 2100);
  extMsgOnly(std::make_shared<MRChannelOpenLiveResp>(), 2110);
  extMsgOnly(std::make_shared<MRChannelOpenFeedResp>(), 2120);
  extMsgOnly(std::make_shared<MROpenCustomerServiceResp>(), 2130);
  for (const auto& [resp, command, body] : cases) {
    SCOPED_TRACE(resp->className());
    AppCommunicateData sent;
    sent.result = resp->errCode;
    logs.clear();
    ASSERT_TRUE(sent.RespToData(resp));
    EXPECT_EQ(logs, Lines{});
    EXPECT_EQ(sent.command(), command);
    EXPECT_EQ(bodyOf(sent), body);
    EXPECT_EQ(sent.propertList().get("result"), Value(std::to_string(resp->errCode)));
  }
}

TEST_F(RecordConversionTest, UnknownAndFailingResponses) {
  ASSERT_TRUE(record.RespToData(std::make_shared<PayResp>()));
  EXPECT_FALSE(record.hasDictionary());
  EXPECT_TRUE(record.RespToData(nullptr));
  EXPECT_EQ(logs, (Lines{"mrlog:Error:un know resp", "mrlog:Error:un know resp"}));

  logs.clear();
  EXPECT_FALSE(record.RespToData(make<GetMessageFromMRResp>([](auto& r) { r.bText = true; })));
  EXPECT_EQ(logs, (Lines{"mrlog:Error:text is empty!", "mrlog:Error:gen resp fail"}));

  logs.clear();
  EXPECT_FALSE(record.RespToData(std::make_shared<GetMessageFromMRResp>()));
  EXPECT_EQ(logs, (Lines{"mrlog:Error:mediaMessage is nil", "mrlog:Error:gen resp fail"}));
}

// ---- limits of the bodies -------------------------------------------------------------------------

TEST_F(RecordConversionTest, TextLimitHoldsAtItsBoundary) {
  auto text = [](const String& t) {
    return make<SendMessageToMRReq>([&](auto& r) {
      r.bText = true;
      r.text = t;
    });
  };
  ASSERT_TRUE(convert(text(chars(10240))));
  EXPECT_EQ(record.propertList().get("title").stringValue().length(), 10240u);
  EXPECT_EQ(received(record.propertList())->textMessage().length(), 10240u);

  EXPECT_FALSE(convert(text(chars(10241))));
  EXPECT_EQ(logs, (Lines{"mrlog:Error:text length[10241] over limit[10240]!", kFail}));
  EXPECT_FALSE(record.propertList().contains("title"));
  EXPECT_FALSE(convert(text("")));
  EXPECT_EQ(logs.front(), "mrlog:Error:text is empty!");

  // The reader: only a 1020 record, only up to the limit.
  EXPECT_TRUE(received({{"command", "1020"}, {"title", chars(10241)}})->textMessage().isNull());
  EXPECT_TRUE(received({{"command", "1010"}, {"title", "t"}})->textMessage().isNull());
  EXPECT_TRUE(received({{"command", "1020"}, {"title", 5}})->textMessage().isNull());
  EXPECT_EQ(received({{"command", "1020"}, {"title", ""}})->textMessage(), "");
}

TEST_F(RecordConversionTest, MediaMessageLimitsAndFailuresOfTheObjectAndTheMessage) {
  // The thumbnail must decode as an image: a small JPEG padded with zeros.
  const Data thumb65536 = paddedJpeg(65536);
  ASSERT_NE(platform::current().imageCodec->decode(thumb65536), nullptr);
  const Data thumb65537 = paddedJpeg(65537);
  const std::string linkFail = "mrlog:Error:make link object fail";
  auto msg = [](std::function<void(MRMediaMessage&)> f) { return [f](SendMessageToMRReq& r) { f(*r.message); }; };
  auto object = [](std::shared_ptr<MRMediaObject> o) {
    return [o](SendMessageToMRReq& r) { r.message->mediaObject = o; };
  };
  const std::vector<ReqCase> cases = {
      {"title 512", msg([](auto& m) { m.title = chars(512); }), {}},
      {"title 513", msg([](auto& m) { m.title = chars(513); }),
       {"mrlog:Error:mediaMessage title too large,largest size is 512", kFail}},
      {"description 1024", msg([](auto& m) { m.description = chars(1024); }), {}},
      {"description 1025", msg([](auto& m) { m.description = chars(1025); }),
       {"mrlog:Error:mediaMessage description too large,largest size is 1024", kFail}},
      {"thumb 65536", msg([&](auto& m) { m.thumbData = thumb65536; }), {}},
      {"thumb 65537", msg([&](auto& m) { m.thumbData = thumb65537; }),
       {"mrlog:Error:mediaMessage thumbData too large,largest size is 65536", kFail}},
      {"thumb not an image", msg([](auto& m) { m.thumbData = Data::copy("not an image"); }),
       {"mrlog:Error:mediaMessage thumbData can not be translate into  UIImage", kFail}},
      {"thumb empty", msg([](auto& m) { m.thumbData = Data::emptyData(); }),
       {"mrlog:Error:mediaMessage thumbData can not be translate into  UIImage", kFail}},
      {"tag 64", msg([](auto& m) { m.mediaTagName = chars(64); }), {}},
      {"tag 65", msg([](auto& m) { m.mediaTagName = chars(65); }),
       {"mrlog:Error:mediaMessage mediaTagName too large, largest size is 64", kFail}},
      {"messageExt 2048", msg([](auto& m) { m.messageExt = chars(2048); }), {}},
      {"messageExt 2049", msg([](auto& m) { m.messageExt = chars(2049); }),
       {"mrlog:Error:mediaMessage messageExt too large, largest size is 2048", kFail}},
      {"messageAction 2048", msg([](auto& m) { m.messageAction = chars(2048); }), {}},
      {"messageAction 2049", msg([](auto& m) { m.messageAction = chars(2049); }),
       {"mrlog:Error:mediaMessage messageAction too large, largest size is 2048", kFail}},
      // Checked in order: the title before the thumbnail.
      {"title and thumb", msg([](auto& m) { m.title = chars(513); m.thumbData = Data::copy("x"); }),
       {"mrlog:Error:mediaMessage title too large,largest size is 512", kFail}},
      {"no message", [](SendMessageToMRReq& r) { r.message = nullptr; }, {"mrlog:Error:mediaMessage is nil", kFail}},
      {"no object", object(nullptr), {"mrlog:Error:media object is nil", linkFail, kFail}},
      {"location", object(MRLocationObject::object()), {"mrlog:Error: unkow object", linkFail, kFail}},
      {"music video without a title",
       [](SendMessageToMRReq& r) {
         r.message->title = String();
         r.message->mediaObject = make<MRMusicVideoObject>([](auto& mv) {
           mv.musicUrl = "u";
           mv.musicDataUrl = "d";
           mv.singerName = "s";
         });
       },
       {"mrlog:Error:title is nill", kFail}},
  };
  for (const auto& [name, set, lines] : cases) {
    SCOPED_TRACE(name);
    auto req = make<SendMessageToMRReq>([](auto& r) { r.message = webpageMessage(); });
    set(*req);
    EXPECT_EQ(convert(req), lines.empty());
    EXPECT_EQ(logs, lines);
    EXPECT_EQ(record.command(), 1010u);
    // Of the failures only the music video wrote its keys: it checks the title after writing them.
    EXPECT_EQ(record.propertList().contains("objectType"), lines.empty() || name == "music video without a title");
  }
}

TEST_F(RecordConversionTest, SignInBodiesAndTheirReaders) {
  using Case = std::tuple<std::string, std::shared_ptr<SendAuthReq>, std::string>;  // line empty: passes
  auto auth = [](const String& scope, const String& state) {
    return make<SendTdiAuthReq>([&](auto& r) {
      r.scope = scope;
      r.state = state;
    });
  };
  const std::vector<Case> cases = {
      {"null", nullptr, "auth is nil"},
      {"no scope", auth(String(), "s"), "scope is nil or too large"},
      {"scope 1025", auth(chars(1025), "s"), "scope is nil or too large"},
      {"state 1025", auth("snsapi_userinfo", chars(1025)), "auth state is nil or too large"},
      {"both at 1024", auth(chars(1024), chars(1024)), ""},
      {"no state", auth("snsapi_userinfo", String()), ""},
      {"empty scope", auth("", String()), ""},
  };
  for (const auto& [name, req, line] : cases) {
    SCOPED_TRACE(name);
    AppCommunicateData body;
    body.initCommonField(kCommandAuthRequest);
    logs.clear();
    EXPECT_EQ(body.MakeAuthRequest(req), line.empty());
    if (!line.empty()) {
      EXPECT_EQ(logs, Lines{"mrlog:Error:" + line});
      continue;
    }
    EXPECT_EQ(logs, Lines{});
    auto back = received(body.propertList())->authRequest();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->scope, req->scope);
    EXPECT_EQ(back->state, req->state);
    EXPECT_EQ(body.propertList().contains("state"), !req->state.isNull());
  }

  // The reader refuses what the writer would refuse, and other commands.
  EXPECT_EQ(received({{"command", "1030"}, {"scope", chars(1025)}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "1030"}, {"scope", "s"}, {"state", chars(1025)}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "1030"}, {"state", "s"}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "2030"}, {"scope", "s"}})->authRequest(), nullptr);
}

TEST_F(RecordConversionTest, TinyAppExtensionDictionaryIsLoggedAndReadsBackFromALaunchRecord) {
  ASSERT_TRUE(convert(MRLaunchMiniProgramReq::object()));
  EXPECT_EQ(logs, Lines{"mrlog:LaunchMiniProgram todata extDic=(null)"});
  ASSERT_TRUE(convert(make<MRLaunchMraRedirectingPageReq>(
      [](auto& r) { r.extDict = std::make_shared<Dictionary>(Dictionary{{"key", "value"}}); })));
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].rfind("mrlog:LaunchMraRedirectingPage todata extDic=", 0), 0u) << logs[0];
  EXPECT_NE(logs[0].find("value"), std::string::npos) << logs[0];

  auto launch = make<MRLaunchMiniProgramReq>([](auto& r) {
    r.userName = "gh_1";
    r.extDic = Dictionary{{"nested", Dictionary{{"n", 1}}}, {"s", "v"}};
  });
  ASSERT_TRUE(convert(launch));
  auto ext = received(record.propertList())->tinyAppExtDic();
  ASSERT_TRUE(ext.has_value());
  EXPECT_EQ(*ext, *launch->extDic);
  // The record holds a copy of the request's dictionary.
  launch->extDic->set("s", "changed");
  EXPECT_EQ(record.propertList().mrApi_dictionaryForKey("tinyAppExtDic")->get("s"), Value("v"));
  EXPECT_FALSE(received({{"command", "1090"}, {"tinyAppExtDic", Dictionary{}}})->tinyAppExtDic().has_value());
  EXPECT_FALSE(received({{"command", "1080"}, {"tinyAppExtDic", "x"}})->tinyAppExtDic().has_value());
}

}  // namespace
}  // namespace mirelo::testing
