// Requests and responses in the app data record: the command and exact body
// keys of every class the record carries, how a received record turns back
// into a request or response, and every limit of the text, media-message,
// sign-in and state-scene bodies at its boundary with its logged line.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "ports/linux/image_codec.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "support/KitFixture.h"
#include "transport/AppCommunicate.h"

namespace mirelo::testing {
namespace {

String chars(std::size_t n, char c = 'a') { return String(std::string(n, c)); }

// The record's dictionary without the header keys.
Dictionary bodyOf(const AppCommunicateData& record) {
  Dictionary body;
  for (const auto& [k, v] : record.propertList()) {
    if (k != "command" && k != "returnFromApp" && k != "result" && k != "isAutoResend" && k != "sdkver" &&
        k != "account" && k != "universalLink") {
      body.set(k, v);
    }
  }
  return body;
}

Dictionary with(Dictionary d, std::initializer_list<Dictionary::Entry> extra) {
  for (const auto& [k, v] : extra) d.set(k, v);
  return d;
}

// The keys a flattened web page adds (see the media flattening tests).
Dictionary webpageKeys(const char* url) {
  return Dictionary{{"objectType", "5"},          {"withShareTicket", false},
                    {"disableForward", false},    {"appbrandisupdatablemessage", false},
                    {"appbrandissecrectmessage", false}, {"miniprogramType", 0},
                    {"tesselObjectSubType", "0"}, {"musicVideoDuration", "0"},
                    {"musicVideoIssueData", "0"}, {"mediaUrl", url}};
}

std::shared_ptr<MRMediaMessage> webpageMessage(const char* title = "T") {
  auto message = MRMediaMessage::message();
  message->title = title;
  auto page = MRWebpageObject::object();
  page->webpageUrl = "https://w";
  message->mediaObject = page;
  return message;
}

std::shared_ptr<MRStateSceneDataObject> stateScene(const char* url = "https://state") {
  auto scene = MRStateSceneDataObject::object();
  scene->stateId = "sid";
  scene->token = "tok";
  auto jump = MRStateJumpUrlInfo::object();
  jump->url = url;
  scene->stateJumpDataInfo = jump;
  return scene;
}

class RecordConversionTest : public KitTest {
 protected:
  // A JPEG thumbnail padded with zero bytes to exactly `size` bytes; the
  // decoder stops at the image's end marker and ignores the padding.
  static Data paddedJpeg(std::size_t size) {
    auto image = linuxport::Bitmap::blank(16, 16);
    std::string jpeg = platform::current().imageCodec->jpegRepresentation(*image, 0.6).toString();
    jpeg.resize(size, '\0');
    return Data::adopt(std::move(jpeg));
  }

  static std::shared_ptr<AppCommunicateData> received(Dictionary dict) {
    return AppCommunicateData::initWithPropertList(std::move(dict));
  }

  // Sends `req` into a fresh record as the send pipeline does.
  bool convert(const std::shared_ptr<BaseReq>& req, const std::shared_ptr<MRMediaInternalMessage>& internal = nullptr) {
    record = AppCommunicateData();
    record.sdkVer = "1.9.2";
    logs.clear();
    return record.ReqToData(req, internal);
  }

  AppCommunicateData record;
};

// ---- requests ---------------------------------------------------------------------------

TEST_F(RecordConversionTest, EveryRequestClassWritesItsCommandAndExactlyItsBody) {
  struct Case {
    std::string name;
    std::function<std::shared_ptr<BaseReq>()> make;
    std::uint64_t command;
    Dictionary body;
  };
  const Data ext = Data::copy("ext-bytes");
  auto internal = std::make_shared<MRMediaInternalMessage>();
  internal->objectType = kObjectTypeWebpage;
  internal->mediaUrl = "https://w";
  internal->title = "T";
  const Dictionary internalKeys = with(webpageKeys("https://w"), {{"title", "T"}});

  const std::vector<Case> cases = {
      {"text to a specified session",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->bText = true;
         r->text = "hello";
         r->scene = MRSceneSpecifiedSession;
         r->openID = "me";
         r->toUserOpenId = "you";
         return r;
       },
       1020,
       {{"title", "hello"}, {"scene", "3"}, {"openID", "me"}, {"userOpenID", "you"}}},
      {"media message",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->message = webpageMessage();
         r->message->description = "D";
         r->message->mediaTagName = "tag";
         r->message->messageExt = "mx";
         r->message->messageAction = "ma";
         r->scene = MRSceneTimeline;
         return r;
       },
       1010,
       with(webpageKeys("https://w"), {{"title", "T"},
                                       {"description", "D"},
                                       {"mediaTagName", "tag"},
                                       {"messageExt", "mx"},
                                       {"messageAction", "ma"},
                                       {"scene", "1"}})},
      {"state text takes the text as state title",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->bText = true;
         r->text = "status";
         r->scene = MRSceneState;
         r->sceneDataObject = stateScene();
         return r;
       },
       1020,
       {{"title", "status"},
        {"stateId", "sid"},
        {"stateTitle", "status"},
        {"stateToken", "tok"},
        {"stateJumpType", "0"},
        {"stateUrl", "https://state"},
        {"scene", "4"}}},
      {"state media",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->message = webpageMessage();
         r->scene = MRSceneState;
         r->sceneDataObject = stateScene();
         return r;
       },
       1010,
       with(webpageKeys("https://w"), {{"title", "T"},
                                       {"stateId", "sid"},
                                       {"stateToken", "tok"},
                                       {"stateJumpType", "0"},
                                       {"stateUrl", "https://state"},
                                       {"scene", "4"}})},
      {"mini-program launch",
       [] {
         auto r = MRLaunchMiniProgramReq::object();
         r->userName = "gh_1";
         r->path = "p";
         r->miniProgramType = 2;
         r->extMsg = "m";
         r->extDic = Dictionary{{"k", "v"}};
         return r;
       },
       1080,
       {{"tinyAppExtDic", Dictionary{{"k", "v"}}},
        {"userName", "gh_1"},
        {"path", "p"},
        {"miniProgramType", "2"},
        {"extMsg", "m"}}},
      {"mini-program launch, bare", [] { return MRLaunchMiniProgramReq::object(); }, 1080,
       {{"miniProgramType", "0"}}},
      {"redirecting page",
       [] {
         auto r = std::make_shared<MRLaunchMraRedirectingPageReq>();
         r->ticket = "tk";
         r->extDict = std::make_shared<Dictionary>(Dictionary{{"a", 1}});
         return r;
       },
       1090,
       {{"tinyAppExtDic", Dictionary{{"a", 1}}}, {"ticket", "tk"}}},
      {"get message",
       [] {
         auto r = std::make_shared<GetMessageFromMRReq>();
         r->lang = "en";
         r->country = "GB";
         r->openID = "not written";
         return r;
       },
       2000,
       {{"language", "en"}, {"country", "GB"}}},
      {"show message with an internal message",
       [] {
         auto r = std::make_shared<ShowMessageFromMRReq>();
         r->openID = "me";
         return r;
       },
       1010,
       with(internalKeys, {{"openID", "me"}})},
      {"launch from messenger", [] {
         auto r = std::make_shared<LaunchFromMRReq>();
         r->country = "FR";
         return r;
       },
       2040, {{"country", "FR"}}},
      {"business view",
       [ext] {
         auto r = MROpenBusinessViewReq::object();
         r->businessType = "bt";
         r->openID = "me";
         r->extData = ext;
         return r;
       },
       2080,
       with(internalKeys, {{"openID", "me"}, {"fileData", ext}})},
      {"channel video, mini-program jump",
       [ext] {
         auto r = MRChannelShareVideoReq::object();
         r->localIdentifier = "lib/1";
         r->extData = ext;
         auto jump = std::make_shared<MRChannelJumpMiniProgramInfo>();
         jump->wording = "Go";
         jump->extData = "je";
         jump->userName = "gh_1";
         jump->path = "p";
         r->jumpInfo = jump;
         return r;
       },
       2090,
       {{"finderLocalIdentifier", "lib/1"},
        {"finderExtData", ext},
        {"finderJumpInfo", true},
        {"finderJumpInfoType", "0"},
        {"finderJumpInfoWording", "Go"},
        {"finderJumpInfoExtData", "je"},
        {"finderJumpInfoTinyAppUsername", "gh_1"},
        {"finderJumpInfoTinyAppPath", "p"}}},
      {"channel video, URL jump",
       [] {
         auto r = MRChannelShareVideoReq::object();
         r->localIdentifier = "lib/1";
         auto jump = std::make_shared<MRChannelJumpUrlInfo>();
         jump->url = "https://h5";
         r->jumpInfo = jump;
         return r;
       },
       2090,
       {{"finderLocalIdentifier", "lib/1"},
        {"finderJumpInfo", true},
        {"finderJumpInfoType", "1"},
        {"finderJumpInfoH5Url", "https://h5"}}},
      {"channel video, jump without a target",
       [] {
         auto r = MRChannelShareVideoReq::object();
         r->localIdentifier = "lib/1";
         r->jumpInfo = std::make_shared<MRChannelBaseJumpInfo>();
         r->jumpInfo->wording = "nowhere";
         return r;
       },
       2090,
       {{"finderLocalIdentifier", "lib/1"}, {"finderJumpInfo", false}}},
      {"channel profile",
       [] {
         auto r = MRChannelOpenProfileReq::object();
         r->userName = "finder";
         return r;
       },
       2100,
       {{"finderUserName", "finder"}}},
      {"channel live",
       [] {
         auto r = MRChannelOpenLiveReq::object();
         r->feedID = "f";
         r->nonceID = "n";
         return r;
       },
       2110,
       {{"finderFeedID", "f"}, {"finderNonceID", "n"}}},
      {"channel feed",
       [] {
         auto r = MRChannelOpenFeedReq::object();
         r->feedID = "f";
         r->nonceID = "n";
         r->notGetReleatedList = true;
         return r;
       },
       2120,
       {{"finderFeedID", "f"}, {"finderNonceID", "n"}, {"notGetReleatedList", true}}},
      {"customer service",
       [] {
         auto r = MROpenCustomerServiceReq::object();
         r->url = "https://kf";
         r->corpid = "corp";
         return r;
       },
       2130,
       {{"url", "https://kf"}, {"corpid", "corp"}}},
      {"any other request", [] { return std::make_shared<PayReq>(); }, 0, {}},
      {"sign-in travels in the URL", [] { return std::make_shared<SendTdiAuthReq>(); }, 0, {}},
      {"null request", [] { return std::shared_ptr<BaseReq>(); }, 0, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const bool withInternal = c.name.find("show") == 0 || c.name.find("business") == 0;
    ASSERT_TRUE(convert(c.make(), withInternal ? internal : nullptr));
    EXPECT_EQ(record.command(), c.command);
    ASSERT_TRUE(record.hasDictionary());
    EXPECT_EQ(record.propertList().get("command"), Value(std::to_string(c.command)));
    EXPECT_EQ(record.propertList().get("sdkver"), Value("1.9.2"));
    EXPECT_EQ(bodyOf(record), c.body);
    EXPECT_EQ(logsContaining("Error:"), std::vector<std::string>{});
  }
}

TEST_F(RecordConversionTest, MiniProgramRequestsLogTheirExtensionDictionary) {
  ASSERT_TRUE(convert(MRLaunchMiniProgramReq::object()));
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:LaunchMiniProgram todata extDic=(null)"});
  auto page = std::make_shared<MRLaunchMraRedirectingPageReq>();
  page->extDict = std::make_shared<Dictionary>(Dictionary{{"key", "value"}});
  ASSERT_TRUE(convert(page));
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].rfind("mrlog:LaunchMraRedirectingPage todata extDic=", 0), 0u) << logs[0];
  EXPECT_NE(logs[0].find("value"), std::string::npos) << logs[0];
}

TEST_F(RecordConversionTest, BareStateSceneRequestBecomesAnEmptyTextMessage) {
  // A media message without an object: the request itself is changed.
  auto req = std::make_shared<SendMessageToMRReq>();
  req->scene = MRSceneState;
  req->message = MRMediaMessage::message();
  auto scene = stateScene();
  req->sceneDataObject = scene;
  ASSERT_TRUE(convert(req));
  EXPECT_EQ(record.command(), 1020u);
  EXPECT_TRUE(req->bText);
  EXPECT_EQ(req->text, "");
  EXPECT_TRUE(isKindOf<MRTextObject>(req->message->mediaObject));
  EXPECT_TRUE(scene->stateTitle.isNull());  // an empty text gives no title
  EXPECT_EQ(bodyOf(record), (Dictionary{{"stateId", "sid"},
                                        {"stateToken", "tok"},
                                        {"stateJumpType", "0"},
                                        {"stateUrl", "https://state"},
                                        {"scene", "4"}}));

  // No message at all, and a text request with a null text.
  auto bare = std::make_shared<SendMessageToMRReq>();
  bare->scene = MRSceneState;
  bare->sceneDataObject = stateScene();
  ASSERT_TRUE(convert(bare));
  EXPECT_EQ(bare->message, nullptr);
  EXPECT_TRUE(bare->bText);
  EXPECT_EQ(bare->text, "");
  auto nullText = std::make_shared<SendMessageToMRReq>();
  nullText->scene = MRSceneState;
  nullText->bText = true;
  nullText->sceneDataObject = stateScene();
  ASSERT_TRUE(convert(nullText));
  EXPECT_EQ(nullText->text, "");
  // Outside the state scene a null text is refused.
  nullText->scene = MRSceneSession;
  nullText->text = String();
  EXPECT_FALSE(convert(nullText));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:text is empty!", "mrlog:Error:covert req to data fail"}));
}

TEST_F(RecordConversionTest, StateSceneChecksRunInOrder) {
  struct Case {
    std::string name;
    std::function<void(SendMessageToMRReq&)> set;
    std::vector<std::string> lines;  // empty: passes
  };
  auto jumpTo = [](const String& url) {
    return [url](SendMessageToMRReq& r) {
      auto jump = MRStateJumpUrlInfo::object();
      jump->url = url;
      kindCast<MRStateSceneDataObject>(r.sceneDataObject)->stateJumpDataInfo = jump;
    };
  };
  auto state = [](std::function<void(MRStateSceneDataObject&)> f) {
    return [f](SendMessageToMRReq& r) { f(*kindCast<MRStateSceneDataObject>(r.sceneDataObject)); };
  };
  const std::string fail = "mrlog:Error:covert req to data fail";
  const std::vector<Case> cases = {
      {"all at 10240",
       [&](SendMessageToMRReq& r) {
         jumpTo(chars(10240))(r);
         state([](auto& s) { s.stateId = chars(10240); s.stateTitle = chars(10240); s.token = chars(10240); })(r);
       },
       {}},
      {"stateId 10241", state([](auto& s) { s.stateId = chars(10241); }),
       {"mrlog:Error:stateId too large, largest size is 10240", fail}},
      {"stateTitle 10241", state([](auto& s) { s.stateTitle = chars(10241); }),
       {"mrlog:Error:stateTitle too large, largest size is 10240", fail}},
      {"token 10241", state([](auto& s) { s.token = chars(10241); }),
       {"mrlog:Error:token too large, largest size is 10240", fail}},
      {"url 10241", jumpTo(chars(10241)), {"mrlog:Error:url too large, largest size is 10240", fail}},
      {"empty url", jumpTo(""), {"mrlog:Error:state jump url should not be null!", fail}},
      {"jump that is not a URL jump",
       state([](auto& s) { s.stateJumpDataInfo = std::make_shared<MRStateJumpInfo>(); }),
       {"mrlog:Error:state jump url should not be null!", fail}},
      {"no jump", state([](auto& s) { s.stateJumpDataInfo = nullptr; }),
       {"mrlog:Error:state jump url should not be null!", fail}},
      {"no scene data", [](SendMessageToMRReq& r) { r.sceneDataObject = nullptr; },
       {"mrlog:Error:scene object is nil", fail}},
      // Scene data of another kind fails without a line of its own.
      {"base scene data", [](SendMessageToMRReq& r) { r.sceneDataObject = std::make_shared<MRSceneDataObject>(); },
       {fail}},
      // The text is checked before the scene data.
      {"state text 10241", [](SendMessageToMRReq& r) { r.text = chars(10241); r.sceneDataObject = nullptr; },
       {"mrlog:Error:text length[10241] over limit[10240]!", fail}},
  };
  for (bool media : {false, true}) {
    for (const auto& c : cases) {
      if (media && c.name == "state text 10241") continue;
      SCOPED_TRACE(c.name + (media ? " (media)" : " (text)"));
      auto req = std::make_shared<SendMessageToMRReq>();
      req->scene = MRSceneState;
      req->bText = !media;
      req->text = "t";
      if (media) req->message = webpageMessage();
      req->sceneDataObject = stateScene();
      c.set(*req);
      EXPECT_EQ(convert(req), c.lines.empty());
      EXPECT_EQ(logs, c.lines);
      // The scene goes into the record whatever the outcome.
      EXPECT_EQ(record.propertList().get("scene"), Value("4"));
    }
  }
}

TEST_F(RecordConversionTest, OtherRequestsWithoutTheUniversalLinkApiLeaveTheRecordAsItIs) {
  device->uninstall(kMessengerBundleId);
  device->install(messengerManifest(/*withUniversalLinkApi=*/false));
  ASSERT_TRUE(convert(std::make_shared<OpenRankListReq>()));
  EXPECT_FALSE(record.hasDictionary());
  EXPECT_EQ(record.command(), 0u);
  // The record's earlier contents stay too.
  record.initCommonField(kCommandTextMessage);
  ASSERT_TRUE(record.ReqToData(std::make_shared<PayReq>()));
  EXPECT_EQ(record.command(), 1020u);
  // Requests the record carries are not affected.
  ASSERT_TRUE(convert(MRChannelOpenProfileReq::object()));
  EXPECT_EQ(record.command(), 2100u);
}

// ---- responses --------------------------------------------------------------------------------

TEST_F(RecordConversionTest, EveryResponseClassWritesItsCommandAndReadsBack) {
  struct Case {
    std::string name;
    std::function<std::shared_ptr<BaseResp>()> make;
    std::uint64_t command;
    Dictionary body;
    // What the host reads back from the record (null: nothing).
    std::function<void(const std::shared_ptr<BaseResp>&)> check;
  };
  auto extMsg = [](auto resp) {
    resp->extMsg = "x";
    resp->errCode = ErrCodeUserCancel;
    return resp;
  };
  auto readsExtMsg = [](auto* kind) {
    return [](const std::shared_ptr<BaseResp>& r) {
      using T = std::remove_pointer_t<decltype(kind)>;
      auto back = kindCast<T>(r);
      ASSERT_NE(back, nullptr);
      EXPECT_EQ(back->extMsg, "x");
      EXPECT_EQ(back->errCode, ErrCodeUserCancel);
    };
  };
  const std::vector<Case> cases = {
      {"sign-in",
       [] {
         auto r = std::make_shared<SendAuthResp>();
         r->state = "st";
         r->code = "not written";
         r->errCode = ErrCodeAuthDeny;
         return r;
       },
       2030, {{"state", "st"}},
       [](const std::shared_ptr<BaseResp>& r) {
         ASSERT_NE(r, nullptr);
         EXPECT_EQ(r->className(), "SendAuthResp");
         EXPECT_EQ(r->errCode, ErrCodeAuthDeny);
       }},
      {"text answer",
       [] {
         auto r = std::make_shared<GetMessageFromMRResp>();
         r->bText = true;
         r->text = "answer";
         r->message = webpageMessage();
         return r;
       },
       1020, {{"title", "answer"}}, nullptr},
      {"media answer",
       [] {
         auto r = std::make_shared<GetMessageFromMRResp>();
         r->text = "not written";
         r->message = webpageMessage("Page");
         return r;
       },
       1010, with(webpageKeys("https://w"), {{"title", "Page"}}), nullptr},
      {"show answer", [] { return std::make_shared<ShowMessageFromMRResp>(); }, 1070, {}, nullptr},
      {"send answer",
       [] {
         auto r = std::make_shared<SendMessageToMRResp>();
         r->lang = "de";
         r->country = "AT";
         return r;
       },
       2020, {{"language", "de"}, {"country", "AT"}},
       [](const std::shared_ptr<BaseResp>& r) {
         auto back = kindCast<SendMessageToMRResp>(r);
         ASSERT_NE(back, nullptr);
         EXPECT_TRUE(back->lang.isNull());  // 2020 carries errCode only
       }},
      {"create chat room", [&] { return extMsg(std::make_shared<CreateChatRoomResp>()); }, 2050,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<CreateChatRoomResp*>(nullptr))},
      {"join chat room", [&] { return extMsg(std::make_shared<JoinChatRoomResp>()); }, 2060, {{"messageExt", "x"}},
       readsExtMsg(static_cast<JoinChatRoomResp*>(nullptr))},
      {"mini program", [&] { return extMsg(std::make_shared<MRLaunchMiniProgramResp>()); }, 2070,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MRLaunchMiniProgramResp*>(nullptr))},
      {"business view",
       [&] {
         auto r = extMsg(std::make_shared<MROpenBusinessViewResp>());
         r->businessType = "bt";
         return r;
       },
       2080, {{"messageExt", "x"}, {"businessType", "bt"}},
       [](const std::shared_ptr<BaseResp>& r) {
         auto back = kindCast<MROpenBusinessViewResp>(r);
         ASSERT_NE(back, nullptr);
         EXPECT_EQ(back->extMsg, "x");
         EXPECT_EQ(back->businessType, "bt");
         EXPECT_EQ(back->errCode, ErrCodeUserCancel);
       }},
      {"channel video", [&] { return extMsg(std::make_shared<MRChannelShareVideoResp>()); }, 2090,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MRChannelShareVideoResp*>(nullptr))},
      {"channel profile", [&] { return extMsg(std::make_shared<MRChannelOpenProfileResp>()); }, 2100,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MRChannelOpenProfileResp*>(nullptr))},
      {"channel live", [&] { return extMsg(std::make_shared<MRChannelOpenLiveResp>()); }, 2110,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MRChannelOpenLiveResp*>(nullptr))},
      {"channel feed", [&] { return extMsg(std::make_shared<MRChannelOpenFeedResp>()); }, 2120,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MRChannelOpenFeedResp*>(nullptr))},
      {"customer service", [&] { return extMsg(std::make_shared<MROpenCustomerServiceResp>()); }, 2130,
       {{"messageExt", "x"}}, readsExtMsg(static_cast<MROpenCustomerServiceResp*>(nullptr))},
      {"unset extMsg", [] { return std::make_shared<MRChannelOpenFeedResp>(); }, 2120, {},
       [](const std::shared_ptr<BaseResp>& r) {
         auto back = kindCast<MRChannelOpenFeedResp>(r);
         ASSERT_NE(back, nullptr);
         EXPECT_TRUE(back->extMsg.isNull());
       }},
  };
  ASSERT_TRUE(registerHost());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto resp = c.make();
    auto sent = std::make_shared<AppCommunicateData>();
    sent->returnFromApp = true;
    sent->result = resp->errCode;
    logs.clear();
    ASSERT_TRUE(sent->RespToData(resp));
    EXPECT_EQ(logs, std::vector<std::string>{});
    EXPECT_EQ(sent->command(), c.command);
    EXPECT_EQ(bodyOf(*sent), c.body);
    EXPECT_EQ(sent->propertList().get("result"), Value(std::to_string(resp->errCode)));
    // Through the pasteboard, as the other side reads it.
    ASSERT_TRUE(AppCommunicate::setAppCommunicateData(sent, kHostAppId));
    auto back = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->returnFromApp);
    if (c.check) c.check(back->DataToResp());
  }
}

TEST_F(RecordConversionTest, UnknownAndFailingResponses) {
  auto unknown = std::make_shared<PayResp>();
  ASSERT_TRUE(record.RespToData(unknown));
  EXPECT_FALSE(record.hasDictionary());
  EXPECT_TRUE(record.RespToData(nullptr));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:un know resp", "mrlog:Error:un know resp"}));

  logs.clear();
  auto empty = std::make_shared<GetMessageFromMRResp>();
  empty->bText = true;
  EXPECT_FALSE(record.RespToData(empty));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:text is empty!", "mrlog:Error:gen resp fail"}));

  logs.clear();
  auto noMessage = std::make_shared<GetMessageFromMRResp>();
  EXPECT_FALSE(record.RespToData(noMessage));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:mediaMessage is nil", "mrlog:Error:gen resp fail"}));
}

// ---- received records -----------------------------------------------------------------------------

TEST_F(RecordConversionTest, ReceivedRecordsBecomeTheirRequests) {
  const Dictionary media{{"objectType", "5"}, {"mediaUrl", "https://w"}, {"title", "T"}};
  auto header = [](const char* command) {
    return Dictionary{{"command", command}, {"openID", "o"}, {"language", "zh"}, {"country", "CN"}};
  };

  auto get = kindCast<GetMessageFromMRReq>(received(header("2000"))->DataToReq());
  ASSERT_NE(get, nullptr);
  EXPECT_EQ(get->openID, "o");
  EXPECT_EQ(get->lang, "zh");
  EXPECT_EQ(get->country, "CN");

  auto launch = kindCast<LaunchFromMRReq>(received(header("2040"))->DataToReq());
  ASSERT_NE(launch, nullptr);
  EXPECT_EQ(launch->message, nullptr);
  EXPECT_EQ(launch->country, "CN");
  Dictionary launchWithMedia = header("2040");
  for (const auto& [k, v] : media) launchWithMedia.set(k, v);
  launch = kindCast<LaunchFromMRReq>(received(launchWithMedia)->DataToReq());
  ASSERT_NE(launch, nullptr);
  ASSERT_NE(launch->message, nullptr);
  EXPECT_EQ(launch->message->title, "T");

  Dictionary show = header("1010");
  for (const auto& [k, v] : media) show.set(k, v);
  auto shown = kindCast<ShowMessageFromMRReq>(received(show)->DataToReq());
  ASSERT_NE(shown, nullptr);
  EXPECT_EQ(shown->openID, "o");
  EXPECT_EQ(shown->lang, "zh");
  auto page = kindCast<MRWebpageObject>(shown->message->mediaObject);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->webpageUrl, "https://w");

  // 1010 without a media message, and commands that carry no request.
  EXPECT_EQ(received(header("1010"))->DataToReq(), nullptr);
  for (const char* command : {"1020", "1030", "2010", "2030", "3000", "-1", "x"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(received(header(command))->DataToReq(), nullptr);
  }
  EXPECT_EQ(AppCommunicateData().DataToReq(), nullptr);
  EXPECT_TRUE(logs.empty());
}

TEST_F(RecordConversionTest, ShowMessageRequestTravelsWithItsInternalMessage) {
  ASSERT_TRUE(registerHost());
  auto internal = std::make_shared<MRMediaInternalMessage>();
  internal->objectType = kObjectTypeMusicVideo;
  internal->title = "Song";
  internal->mediaUrl = "https://mv";
  internal->mediaDataUrl = "https://mv/d";
  internal->musicVideoSingerName = "Singer";
  internal->musicVideoDuration = 215;
  internal->musicVideoIssueDate = 1700000000;
  internal->gameLiveExtraInfoDic = std::make_shared<Dictionary>(Dictionary{{"ignored", true}});
  auto req = std::make_shared<ShowMessageFromMRReq>();
  auto sent = std::make_shared<AppCommunicateData>();
  ASSERT_TRUE(sent->ReqToData(req, internal));
  ASSERT_TRUE(AppCommunicate::setAppCommunicateData(sent, kHostAppId));
  auto back = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
  ASSERT_NE(back, nullptr);
  auto internalBack = back->mediaInternalMessage();
  ASSERT_NE(internalBack, nullptr);
  EXPECT_EQ(internalBack->musicVideoIssueDate, 1700000000u);
  ASSERT_NE(internalBack->gameLiveExtraInfoDic, nullptr);
  auto shown = kindCast<ShowMessageFromMRReq>(back->DataToReq());
  ASSERT_NE(shown, nullptr);
  auto video = kindCast<MRMusicVideoObject>(shown->message->mediaObject);
  ASSERT_NE(video, nullptr);
  EXPECT_EQ(shown->message->title, "Song");
  EXPECT_EQ(video->singerName, "Singer");
  EXPECT_EQ(video->duration, 215u);
  EXPECT_EQ(video->issueDate, 1700000000u);

  // Without an internal message the body is empty and nothing decodes.
  AppCommunicateData bare;
  ASSERT_TRUE(bare.ReqToData(req));
  EXPECT_EQ(bodyOf(bare), Dictionary{});
  EXPECT_EQ(received(bare.propertList())->DataToReq(), nullptr);
}

TEST_F(RecordConversionTest, ReceivedRecordsBecomeTheirResponses) {
  auto tdi = kindCast<SendTdiAuthResp>(
      received({{"command", "2030"}, {"result", "-4"}, {"tdi_ext_info", "tdi"}})->DataToResp());
  ASSERT_NE(tdi, nullptr);
  EXPECT_EQ(tdi->tdiExtInfo, "tdi");
  EXPECT_EQ(tdi->errCode, -4);
  for (const Value& notTdi : {Value(""), Value(), Value(5), Value(Data::copy("tdi"))}) {
    SCOPED_TRACE(notTdi.description());
    Dictionary dict{{"command", "2030"}};
    if (!notTdi.isNull()) dict.set("tdi_ext_info", notTdi);
    auto auth = received(dict)->DataToResp();
    ASSERT_NE(auth, nullptr);
    EXPECT_EQ(auth->className(), "SendAuthResp");
    EXPECT_EQ(auth->errCode, 1);  // no "result": the record's default
  }

  auto withLocale = kindCast<SendMessageToMRResp>(
      received({{"command", "2010"}, {"result", "0"}, {"language", "ja"}, {"country", "JP"}})->DataToResp());
  ASSERT_NE(withLocale, nullptr);
  EXPECT_EQ(withLocale->lang, "ja");
  EXPECT_EQ(withLocale->country, "JP");
  EXPECT_EQ(withLocale->errCode, 0);

  // Wrong kinds under the body keys read as null.
  auto business = kindCast<MROpenBusinessViewResp>(
      received({{"command", "2080"}, {"messageExt", 3}, {"businessType", Array{}}})->DataToResp());
  ASSERT_NE(business, nullptr);
  EXPECT_TRUE(business->extMsg.isNull());
  EXPECT_TRUE(business->businessType.isNull());

  for (const char* command : {"1010", "1020", "1030", "1070", "2000", "2040", "3000", "-1"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(received({{"command", command}})->DataToResp(), nullptr);
  }
  EXPECT_EQ(AppCommunicateData().DataToResp(), nullptr);
}

// ---- limits of the bodies -------------------------------------------------------------------------

TEST_F(RecordConversionTest, TextLimitHoldsAtItsBoundary) {
  auto text = [](const String& t) {
    auto r = std::make_shared<SendMessageToMRReq>();
    r->bText = true;
    r->text = t;
    return r;
  };
  ASSERT_TRUE(convert(text(chars(10240))));
  EXPECT_EQ(record.propertList().get("title").stringValue().length(), 10240u);
  EXPECT_EQ(received(record.propertList())->textMessage().length(), 10240u);

  EXPECT_FALSE(convert(text(chars(10241))));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:text length[10241] over limit[10240]!",
                                            "mrlog:Error:covert req to data fail"}));
  EXPECT_FALSE(record.propertList().contains("title"));
  EXPECT_FALSE(convert(text("")));
  EXPECT_EQ(logs.front(), "mrlog:Error:text is empty!");

  // The reader: only a 1020 record, only up to the limit.
  EXPECT_TRUE(received({{"command", "1020"}, {"title", chars(10241)}})->textMessage().isNull());
  EXPECT_TRUE(received({{"command", "1010"}, {"title", "t"}})->textMessage().isNull());
  EXPECT_TRUE(received({{"command", "1020"}, {"title", 5}})->textMessage().isNull());
  EXPECT_EQ(received({{"command", "1020"}, {"title", ""}})->textMessage(), "");
}

TEST_F(RecordConversionTest, MediaMessageLimitsHoldAtTheirBoundaries) {
  // The thumbnail must decode as an image: a small JPEG padded with zeros.
  const Data thumb65536 = paddedJpeg(65536);
  ASSERT_NE(platform::current().imageCodec->decode(thumb65536), nullptr);
  const Data thumb65537 = paddedJpeg(65537);
  struct Case {
    std::string name;
    std::function<void(MRMediaMessage&)> set;
    std::string line;  // empty: passes
  };
  const std::vector<Case> cases = {
      {"title 512", [](auto& m) { m.title = chars(512); }, ""},
      {"title 513", [](auto& m) { m.title = chars(513); }, "mediaMessage title too large,largest size is 512"},
      {"description 1024", [](auto& m) { m.description = chars(1024); }, ""},
      {"description 1025", [](auto& m) { m.description = chars(1025); },
       "mediaMessage description too large,largest size is 1024"},
      {"thumb 65536", [&](auto& m) { m.thumbData = thumb65536; }, ""},
      {"thumb 65537", [&](auto& m) { m.thumbData = thumb65537; },
       "mediaMessage thumbData too large,largest size is 65536"},
      {"thumb not an image", [](auto& m) { m.thumbData = Data::copy("not an image"); },
       "mediaMessage thumbData can not be translate into  UIImage"},
      {"thumb empty", [](auto& m) { m.thumbData = Data::emptyData(); },
       "mediaMessage thumbData can not be translate into  UIImage"},
      {"tag 64", [](auto& m) { m.mediaTagName = chars(64); }, ""},
      {"tag 65", [](auto& m) { m.mediaTagName = chars(65); },
       "mediaMessage mediaTagName too large, largest size is 64"},
      {"messageExt 2048", [](auto& m) { m.messageExt = chars(2048); }, ""},
      {"messageExt 2049", [](auto& m) { m.messageExt = chars(2049); },
       "mediaMessage messageExt too large, largest size is 2048"},
      {"messageAction 2048", [](auto& m) { m.messageAction = chars(2048); }, ""},
      {"messageAction 2049", [](auto& m) { m.messageAction = chars(2049); },
       "mediaMessage messageAction too large, largest size is 2048"},
      // Checked in order: the title before the thumbnail.
      {"title and thumb", [](auto& m) { m.title = chars(513); m.thumbData = Data::copy("x"); },
       "mediaMessage title too large,largest size is 512"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto req = std::make_shared<SendMessageToMRReq>();
    req->message = webpageMessage();
    c.set(*req->message);
    const bool ok = convert(req);
    EXPECT_EQ(ok, c.line.empty());
    if (c.line.empty()) {
      EXPECT_EQ(logs, std::vector<std::string>{});
      // What was written reads back unchanged.
      auto back = received(record.propertList())->mediaMessage();
      ASSERT_NE(back, nullptr);
      EXPECT_EQ(back->title, req->message->title);
      EXPECT_EQ(back->description, req->message->description);
      EXPECT_EQ(back->thumbData, req->message->thumbData);
      EXPECT_EQ(back->mediaTagName, req->message->mediaTagName);
      EXPECT_EQ(back->messageExt, req->message->messageExt);
      EXPECT_EQ(back->messageAction, req->message->messageAction);
    } else {
      EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:" + c.line, "mrlog:Error:covert req to data fail"}));
      EXPECT_FALSE(record.propertList().contains("objectType"));
    }
  }
}

TEST_F(RecordConversionTest, MediaMessageFailuresOfTheObjectAndTheMessage) {
  struct Case {
    std::string name;
    std::function<std::shared_ptr<MRMediaMessage>()> make;
    std::vector<std::string> lines;
  };
  const std::string fail = "mrlog:Error:covert req to data fail";
  const std::vector<Case> cases = {
      {"no message", [] { return std::shared_ptr<MRMediaMessage>(); }, {"mrlog:Error:mediaMessage is nil", fail}},
      {"no object", [] { return MRMediaMessage::message(); },
       {"mrlog:Error:media object is nil", "mrlog:Error:make link object fail", fail}},
      {"location",
       [] {
         auto m = MRMediaMessage::message();
         m->mediaObject = MRLocationObject::object();
         return m;
       },
       {"mrlog:Error: unkow object", "mrlog:Error:make link object fail", fail}},
      {"music video without a title",
       [] {
         auto m = MRMediaMessage::message();
         auto mv = MRMusicVideoObject::object();
         mv->musicUrl = "u";
         mv->musicDataUrl = "d";
         mv->singerName = "s";
         m->mediaObject = mv;
         return m;
       },
       {"mrlog:Error:title is nill", fail}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto req = std::make_shared<SendMessageToMRReq>();
    req->message = c.make();
    EXPECT_FALSE(convert(req));
    EXPECT_EQ(logs, c.lines);
    EXPECT_EQ(record.command(), 1010u);
  }
}

TEST_F(RecordConversionTest, SignInBodiesAndTheirReaders) {
  struct Case {
    std::string name;
    std::shared_ptr<SendAuthReq> req;
    std::string line;  // empty: passes
  };
  auto auth = [](const String& scope, const String& state) {
    auto r = std::make_shared<SendTdiAuthReq>();
    r->scope = scope;
    r->state = state;
    return r;
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    AppCommunicateData body;
    body.initCommonField(kCommandAuthRequest);
    logs.clear();
    EXPECT_EQ(body.MakeAuthRequest(c.req), c.line.empty());
    if (!c.line.empty()) {
      EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:" + c.line});
      continue;
    }
    EXPECT_EQ(logs, std::vector<std::string>{});
    auto back = received(body.propertList())->authRequest();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->scope, c.req->scope);
    EXPECT_EQ(back->state, c.req->state);
    EXPECT_EQ(body.propertList().contains("state"), !c.req->state.isNull());
  }

  // The reader refuses what the writer would refuse, and other commands.
  EXPECT_EQ(received({{"command", "1030"}, {"scope", chars(1025)}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "1030"}, {"scope", "s"}, {"state", chars(1025)}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "1030"}, {"state", "s"}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "1030"}, {"scope", 1}})->authRequest(), nullptr);
  EXPECT_EQ(received({{"command", "2030"}, {"scope", "s"}})->authRequest(), nullptr);

  auto resp = received({{"command", "1030"}, {"result", "0"}, {"state", "st"}})->authResp();
  ASSERT_NE(resp, nullptr);
  EXPECT_EQ(resp->state, "st");
  EXPECT_EQ(resp->errCode, 0);
  EXPECT_EQ(received({{"command", "2030"}, {"state", "st"}})->authResp(), nullptr);
}

TEST_F(RecordConversionTest, TinyAppExtensionDictionaryReadsBackFromALaunchRecord) {
  auto launch = MRLaunchMiniProgramReq::object();
  launch->userName = "gh_1";
  launch->extDic = Dictionary{{"nested", Dictionary{{"n", 1}}}, {"s", "v"}};
  ASSERT_TRUE(convert(launch));
  auto ext = received(record.propertList())->tinyAppExtDic();
  ASSERT_TRUE(ext.has_value());
  EXPECT_EQ(*ext, *launch->extDic);
  // The request's dictionary is a copy: changing it afterwards changes
  // nothing in the record.
  launch->extDic->set("s", "changed");
  EXPECT_EQ(record.propertList().mrApi_dictionaryForKey("tinyAppExtDic")->get("s"), Value("v"));

  EXPECT_FALSE(received({{"command", "1090"}, {"tinyAppExtDic", Dictionary{}}})->tinyAppExtDic().has_value());
  EXPECT_FALSE(received({{"command", "1080"}, {"tinyAppExtDic", "x"}})->tinyAppExtDic().has_value());
  EXPECT_FALSE(received({{"command", "1080"}})->tinyAppExtDic().has_value());
}

}  // namespace
}  // namespace mirelo::testing
