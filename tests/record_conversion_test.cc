// Requests and responses in the app data record: the command and exact body
// keys of every class the record carries, how a received record turns back
// into a request or response, and every limit of the text, media-message,
// sign-in and state-scene bodies at its boundary with its logged line.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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

template <class T, class F>
std::shared_ptr<T> make(F fill) {
  auto r = std::make_shared<T>();
  fill(*r);
  return r;
}

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

Dictionary with(Dictionary d, const Dictionary& extra) {
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
  return {
      {"stateId", "sid"}, {"stateToken", "tok"}, {"stateJumpType", "0"}, {"stateUrl", "https://state"}, {"scene", "4"}};
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
    std::shared_ptr<BaseReq> req;
    std::uint64_t command;
    Dictionary body;
  };
  const Data ext = Data::copy("ext-bytes");
  auto internal = std::make_shared<MRMediaInternalMessage>();
  internal->objectType = kObjectTypeWebpage;
  internal->mediaUrl = "https://w";
  internal->title = "T";
  const Dictionary internalKeys = with(webpageKeys("https://w"), {{"title", "T"}});
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
       with(webpageKeys("https://w"), {{"title", "T"}, {"description", "D"}, {"mediaTagName", "tag"},
                                       {"messageExt", "mx"}, {"messageAction", "ma"}, {"scene", "1"}})},
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
       1010, with(with(webpageKeys("https://w"), {{"title", "T"}}), stateKeys)},
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const bool withInternal = c.name.find("show") == 0 || c.name.find("business") == 0;
    ASSERT_TRUE(convert(c.req, withInternal ? internal : nullptr));
    EXPECT_EQ(record.command(), c.command);
    ASSERT_TRUE(record.hasDictionary());
    EXPECT_EQ(record.propertList().get("command"), Value(std::to_string(c.command)));
    EXPECT_EQ(record.propertList().get("sdkver"), Value("1.9.2"));
    EXPECT_EQ(bodyOf(record), c.body);
    EXPECT_EQ(logsContaining("Error:"), std::vector<std::string>{});
  }
  // Without an internal message a show request has an empty body, and the
  // record reads back as no request.
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

  // A text request with a null text passes in the state scene only.
  auto nullText = make<SendMessageToMRReq>([](auto& r) {
    r.scene = MRSceneState;
    r.bText = true;
    r.sceneDataObject = stateScene();
  });
  ASSERT_TRUE(convert(nullText));
  EXPECT_EQ(nullText->text, "");
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
      kindCast<MRStateSceneDataObject>(r.sceneDataObject)->stateJumpDataInfo =
          make<MRStateJumpUrlInfo>([&](auto& j) { j.url = url; });
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
      auto req = make<SendMessageToMRReq>([&](auto& r) {
        r.scene = MRSceneState;
        r.bText = !media;
        r.text = "t";
        if (media) r.message = webpageMessage();
        r.sceneDataObject = stateScene();
      });
      c.set(*req);
      EXPECT_EQ(convert(req), c.lines.empty());
      EXPECT_EQ(logs, c.lines);
      // The scene goes into the record whatever the outcome.
      EXPECT_EQ(record.propertList().get("scene"), Value("4"));
    }
  }
}

// ---- responses --------------------------------------------------------------------------------

TEST_F(RecordConversionTest, EveryResponseClassWritesItsCommandAndReadsBack) {
  struct Case {
    std::string name;
    std::shared_ptr<BaseResp> resp;
    std::uint64_t command;
    Dictionary body;
    // The body of the answer the host reads back, written again (none: no answer reads back).
    std::optional<Dictionary> again;
  };
  auto business = make<MROpenBusinessViewResp>([](auto& r) {
    r.extMsg = "x";
    r.businessType = "bt";
    r.errCode = ErrCodeUserCancel;
  });
  std::vector<Case> cases = {
      {"sign-in (the state is not read back)", make<SendAuthResp>([](auto& r) {
         r.state = "st";
         r.code = "not written";
         r.errCode = ErrCodeAuthDeny;
       }),
       2030, {{"state", "st"}}, Dictionary{}},
      {"text answer", make<GetMessageFromMRResp>([](auto& r) {
         r.bText = true;
         r.text = "answer";
         r.message = webpageMessage();
       }),
       1020, {{"title", "answer"}}, std::nullopt},
      {"media answer", make<GetMessageFromMRResp>([](auto& r) {
         r.text = "not written";
         r.message = webpageMessage("Page");
       }),
       1010, with(webpageKeys("https://w"), {{"title", "Page"}}), std::nullopt},
      {"show answer", std::make_shared<ShowMessageFromMRResp>(), 1070, {}, std::nullopt},
      // 2020 carries the errCode only.
      {"send answer", make<SendMessageToMRResp>([](auto& r) { r.lang = "de"; r.country = "AT"; }), 2020,
       {{"language", "de"}, {"country", "AT"}}, Dictionary{}},
      {"business view", business, 2080, {{"messageExt", "x"}, {"businessType", "bt"}},
       Dictionary{{"messageExt", "x"}, {"businessType", "bt"}}},
      {"unset extMsg", std::make_shared<MRChannelOpenFeedResp>(), 2120, {}, Dictionary{}},
  };
  // The answers that carry only their extMsg, under "messageExt".
  auto extMsgOnly = [&cases](auto resp, std::uint64_t command) {
    resp->extMsg = "x";
    resp->errCode = ErrCodeUserCancel;
    cases.push_back({resp->className(), resp, command, {{"messageExt", "x"}}, Dictionary{{"messageExt", "x"}}});
  };
  extMsgOnly(std::make_shared<CreateChatRoomResp>(), 2050);
  extMsgOnly(std::make_shared<JoinChatRoomResp>(), 2060);
  extMsgOnly(std::make_shared<MRLaunchMiniProgramResp>(), 2070);
  extMsgOnly(std::make_shared<MRChannelShareVideoResp>(), 2090);
  extMsgOnly(std::make_shared<MRChannelOpenProfileResp>(), 2100);
  extMsgOnly(std::make_shared<MRChannelOpenLiveResp>(), 2110);
  extMsgOnly(std::make_shared<MRChannelOpenFeedResp>(), 2120);
  extMsgOnly(std::make_shared<MROpenCustomerServiceResp>(), 2130);
  ASSERT_TRUE(registerHost());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto sent = std::make_shared<AppCommunicateData>();
    sent->returnFromApp = true;
    sent->result = c.resp->errCode;
    logs.clear();
    ASSERT_TRUE(sent->RespToData(c.resp));
    EXPECT_EQ(logs, std::vector<std::string>{});
    EXPECT_EQ(sent->command(), c.command);
    EXPECT_EQ(bodyOf(*sent), c.body);
    EXPECT_EQ(sent->propertList().get("result"), Value(std::to_string(c.resp->errCode)));
    // Through the pasteboard, as the other side reads it.
    ASSERT_TRUE(AppCommunicate::setAppCommunicateData(sent, kHostAppId));
    auto received = AppCommunicate::appCommunicateDataForAppID(kHostAppId);
    ASSERT_NE(received, nullptr);
    EXPECT_TRUE(received->returnFromApp);
    auto back = received->DataToResp();
    if (!c.again) {
      EXPECT_EQ(back, nullptr);
      continue;
    }
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->className(), c.resp->className());
    EXPECT_EQ(back->errCode, c.resp->errCode);
    AppCommunicateData again;
    ASSERT_TRUE(again.RespToData(back));
    EXPECT_EQ(bodyOf(again), *c.again);
  }
}

TEST_F(RecordConversionTest, UnknownAndFailingResponses) {
  ASSERT_TRUE(record.RespToData(std::make_shared<PayResp>()));
  EXPECT_FALSE(record.hasDictionary());
  EXPECT_TRUE(record.RespToData(nullptr));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:un know resp", "mrlog:Error:un know resp"}));

  logs.clear();
  EXPECT_FALSE(record.RespToData(make<GetMessageFromMRResp>([](auto& r) { r.bText = true; })));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:text is empty!", "mrlog:Error:gen resp fail"}));

  logs.clear();
  EXPECT_FALSE(record.RespToData(std::make_shared<GetMessageFromMRResp>()));
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:mediaMessage is nil", "mrlog:Error:gen resp fail"}));
}

// ---- received records -----------------------------------------------------------------------------
// The messenger's own requests reach the delegate end to end in the
// incoming-URL tests; here the fields and the commands that are no request.

TEST_F(RecordConversionTest, ReceivedRecordsBecomeTheirRequests) {
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
  launch = kindCast<LaunchFromMRReq>(
      received(with(header("2040"), {{"objectType", "5"}, {"mediaUrl", "https://w"}, {"title", "T"}}))->DataToReq());
  ASSERT_NE(launch, nullptr);
  ASSERT_NE(launch->message, nullptr);
  EXPECT_EQ(launch->message->title, "T");

  // 1010 without a media message, and commands that carry no request.
  for (const char* command : {"1010", "1020", "1030", "2010", "2030", "3000", "-1", "x"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(received(header(command))->DataToReq(), nullptr);
  }
  EXPECT_EQ(AppCommunicateData().DataToReq(), nullptr);
  EXPECT_TRUE(logs.empty());
}

// The class each answer's command reads as is proven in the round trips.
TEST_F(RecordConversionTest, ReceivedRecordsBecomeTheirResponses) {
  auto tdi = kindCast<SendTdiAuthResp>(
      received({{"command", "2030"}, {"result", "-4"}, {"tdi_ext_info", "tdi"}})->DataToResp());
  ASSERT_NE(tdi, nullptr);
  EXPECT_EQ(tdi->tdiExtInfo, "tdi");
  EXPECT_EQ(tdi->errCode, -4);
  for (const Value& notTdi : {Value(""), Value(), Value(Data::copy("tdi"))}) {
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
    return make<SendMessageToMRReq>([&](auto& r) {
      r.bText = true;
      r.text = t;
    });
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

TEST_F(RecordConversionTest, MediaMessageLimitsAndFailuresOfTheObjectAndTheMessage) {
  // The thumbnail must decode as an image: a small JPEG padded with zeros.
  const Data thumb65536 = paddedJpeg(65536);
  ASSERT_NE(platform::current().imageCodec->decode(thumb65536), nullptr);
  const Data thumb65537 = paddedJpeg(65537);
  struct Case {
    std::string name;
    std::function<void(SendMessageToMRReq&)> set;
    std::vector<std::string> lines;  // empty: passes
  };
  const std::string fail = "mrlog:Error:covert req to data fail";
  const std::string linkFail = "mrlog:Error:make link object fail";
  auto msg = [](std::function<void(MRMediaMessage&)> f) { return [f](SendMessageToMRReq& r) { f(*r.message); }; };
  auto object = [](std::shared_ptr<MRMediaObject> o) {
    return [o](SendMessageToMRReq& r) { r.message->mediaObject = o; };
  };
  const std::vector<Case> cases = {
      {"title 512", msg([](auto& m) { m.title = chars(512); }), {}},
      {"title 513", msg([](auto& m) { m.title = chars(513); }),
       {"mrlog:Error:mediaMessage title too large,largest size is 512", fail}},
      {"description 1024", msg([](auto& m) { m.description = chars(1024); }), {}},
      {"description 1025", msg([](auto& m) { m.description = chars(1025); }),
       {"mrlog:Error:mediaMessage description too large,largest size is 1024", fail}},
      {"thumb 65536", msg([&](auto& m) { m.thumbData = thumb65536; }), {}},
      {"thumb 65537", msg([&](auto& m) { m.thumbData = thumb65537; }),
       {"mrlog:Error:mediaMessage thumbData too large,largest size is 65536", fail}},
      {"thumb not an image", msg([](auto& m) { m.thumbData = Data::copy("not an image"); }),
       {"mrlog:Error:mediaMessage thumbData can not be translate into  UIImage", fail}},
      {"thumb empty", msg([](auto& m) { m.thumbData = Data::emptyData(); }),
       {"mrlog:Error:mediaMessage thumbData can not be translate into  UIImage", fail}},
      {"tag 64", msg([](auto& m) { m.mediaTagName = chars(64); }), {}},
      {"tag 65", msg([](auto& m) { m.mediaTagName = chars(65); }),
       {"mrlog:Error:mediaMessage mediaTagName too large, largest size is 64", fail}},
      {"messageExt 2048", msg([](auto& m) { m.messageExt = chars(2048); }), {}},
      {"messageExt 2049", msg([](auto& m) { m.messageExt = chars(2049); }),
       {"mrlog:Error:mediaMessage messageExt too large, largest size is 2048", fail}},
      {"messageAction 2048", msg([](auto& m) { m.messageAction = chars(2048); }), {}},
      {"messageAction 2049", msg([](auto& m) { m.messageAction = chars(2049); }),
       {"mrlog:Error:mediaMessage messageAction too large, largest size is 2048", fail}},
      // Checked in order: the title before the thumbnail.
      {"title and thumb", msg([](auto& m) { m.title = chars(513); m.thumbData = Data::copy("x"); }),
       {"mrlog:Error:mediaMessage title too large,largest size is 512", fail}},
      {"no message", [](SendMessageToMRReq& r) { r.message = nullptr; }, {"mrlog:Error:mediaMessage is nil", fail}},
      {"no object", object(nullptr), {"mrlog:Error:media object is nil", linkFail, fail}},
      {"location", object(MRLocationObject::object()), {"mrlog:Error: unkow object", linkFail, fail}},
      {"music video without a title",
       [](SendMessageToMRReq& r) {
         r.message->title = String();
         r.message->mediaObject = make<MRMusicVideoObject>([](auto& mv) {
           mv.musicUrl = "u";
           mv.musicDataUrl = "d";
           mv.singerName = "s";
         });
       },
       {"mrlog:Error:title is nill", fail}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto req = make<SendMessageToMRReq>([](auto& r) { r.message = webpageMessage(); });
    c.set(*req);
    EXPECT_EQ(convert(req), c.lines.empty());
    EXPECT_EQ(logs, c.lines);
    EXPECT_EQ(record.command(), 1010u);
    if (!c.lines.empty()) {
      // The music video checks the title after writing its keys.
      EXPECT_EQ(record.propertList().contains("objectType"), c.name == "music video without a title");
      continue;
    }
    // What was written reads back unchanged.
    auto back = received(record.propertList())->mediaMessage();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->title, req->message->title);
    EXPECT_EQ(back->description, req->message->description);
    EXPECT_EQ(back->thumbData, req->message->thumbData);
    EXPECT_EQ(back->mediaTagName, req->message->mediaTagName);
    EXPECT_EQ(back->messageExt, req->message->messageExt);
    EXPECT_EQ(back->messageAction, req->message->messageAction);
  }
}

TEST_F(RecordConversionTest, SignInBodiesAndTheirReaders) {
  struct Case {
    std::string name;
    std::shared_ptr<SendAuthReq> req;
    std::string line;  // empty: passes
  };
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
  EXPECT_EQ(received({{"command", "2030"}, {"scope", "s"}})->authRequest(), nullptr);

  auto resp = received({{"command", "1030"}, {"result", "0"}, {"state", "st"}})->authResp();
  ASSERT_NE(resp, nullptr);
  EXPECT_EQ(resp->state, "st");
  EXPECT_EQ(resp->errCode, 0);
  EXPECT_EQ(received({{"command", "2030"}, {"state", "st"}})->authResp(), nullptr);
}

TEST_F(RecordConversionTest, TinyAppExtensionDictionaryIsLoggedAndReadsBackFromALaunchRecord) {
  ASSERT_TRUE(convert(MRLaunchMiniProgramReq::object()));
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:LaunchMiniProgram todata extDic=(null)"});
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
