// Returning URLs: the checks before anything is read, recognition of the host's forms, records
// handed over by command number, and records of another app that must not crash or mislead.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "support/PeerFixture.h"
#include "util/BinaryPlist.h"

namespace mirelo::testing {
namespace {

using sim::PeerHostRequest;
using sim::PeerMediaContent;

// A record header as the messenger writes it.
Dictionary record(const char* command, Dictionary extra = {}) {
  Dictionary d{{"command", Value(command)}, {"returnFromApp", Value("1")}, {"result", Value("0")}};
  for (const auto& [k, v] : extra) d.set(k, v);
  return d;
}

class IncomingUrlTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(registerHost());
  }

  const std::string answerUrl = hostSchemeUrl("platformId=mirelo");
};

TEST_F(IncomingUrlTest, RefusesAMissingUrlOrDelegateAnotherActivityTypeOrNoRegistration) {
  EXPECT_FALSE(MRApi::handleOpenURL(std::nullopt, delegate));
  EXPECT_TRUE(logged("mrlog:Error:handle open url fail, url is nil"));
  EXPECT_FALSE(MRApi::handleOpenURL(URL::fromString(hostSchemeUrl("pay?ret=0")), nullptr));
  EXPECT_TRUE(logged("mrlog:Error:handle open url fail, delegate is nil"));
  EXPECT_FALSE(MRApi::handleOpenUniversalLink(UserActivity{String(NSUserActivityTypeBrowsingWeb), std::nullopt},
                                              delegate));
  EXPECT_EQ(logsContaining("url is nil").size(), 2u);
  for (const char* type : {"NSUserActivityTypeViewing", "", "nsuseractivitytypebrowsingweb"}) {
    EXPECT_FALSE(MRApi::handleOpenUniversalLink(UserActivity{String(type), URL::fromString(hostLinkUrl("pay?ret=0"))},
                                                delegate));
    EXPECT_TRUE(logged("mrlog:activity type[" + std::string(type) + "] not be handled by Mirelo SDK"));
  }
  EXPECT_FALSE(MRApi::handleOpenUniversalLink(UserActivity{String(), std::nullopt}, delegate));
  EXPECT_TRUE(logged("mrlog:activity type[(null)] not be handled by Mirelo SDK"));
  EXPECT_EQ(delegate->calls(), 0u);
  EXPECT_TRUE(MRApi::handleOpenUniversalLink(browsingActivity(hostLinkUrl("pay?ret=0")), delegate));
  // Nor is anything handled for an unregistered kit.
  MireloIdentityHandler::registerAppID(String(), String());
  EXPECT_FALSE(openHost(hostSchemeUrl("pay?ret=0")));
  EXPECT_TRUE(logged("mrlog:Error:handle open url fail, no register appID!"));
  MireloIdentityHandler::registerAppID(String(""), String(kHostUniversalLink));
  EXPECT_FALSE(openHost(hostSchemeUrl("pay?ret=0")));
  EXPECT_EQ(logsContaining("no register appID!").size(), 2u);
  EXPECT_FALSE(MRApi::isURLContainApi("pay", URL::fromString(hostSchemeUrl("pay?ret=0"))));
  EXPECT_EQ(delegate->calls(), 1u);
}

TEST_F(IncomingUrlTest, UrlsOfAnotherAddresseeAreRefusedBeforeThePasteboardIsRead) {
  const std::vector<std::string> urls = {
      "otherapp://pay?ret=0",
      std::string(kHostAppId) + "x://pay?ret=0",
      // The universal link must go on with the app id at once.
      std::string(kHostUniversalLink) + "otherapp/pay?ret=0",
      std::string(kHostUniversalLink) + "x/" + kHostAppId + "/pay?ret=0",
      "https://host.example.com/" + std::string(kHostAppId) + "/pay?ret=0",
      "https://elsewhere.example.com/mirelo/" + std::string(kHostAppId) + "/pay?ret=0",
      "mirelo://app/" + std::string(kHostAppId) + "/pay?ret=0",
  };
  plantRecord(record("2020"));
  const std::uint64_t changes = device->pasteboardChangeCount();
  for (const std::string& url : urls) {
    SCOPED_TRACE(url);
    logs.clear();
    EXPECT_FALSE(MRApi::handleOpenURL(URL::fromString(url), delegate));
    EXPECT_TRUE(logged("mrlog:url can not be handled by Mirelo SDK, registerAppId:" + std::string(kHostAppId) +
                       ", registerUniversalLink:" + kHostUniversalLink + ", url:" + url));
    EXPECT_EQ(logs.size(), 1u);
  }
  EXPECT_EQ(device->pasteboardChangeCount(), changes) << "nothing was read from the pasteboard";
  EXPECT_EQ(delegate->calls(), 0u);
  EXPECT_TRUE(MRApi::handleOpenURL(URL::fromString(answerUrl), delegate)) << "the record was left for its reader";
  EXPECT_EQ(delegate->resps.size(), 1u);
}

TEST_F(IncomingUrlTest, IsUrlContainApiMatchesTheNameAsAPrefixInBothForms) {
  struct Case {
    const char* name;
    std::string url;
    bool expected;
  };
  const std::string appId = kHostAppId;
  const std::string link = kHostUniversalLink;
  const Case cases[] = {
      {"pay", appId + "://pay?ret=0", true},
      {"pay", appId + "://payinsurance", true},  // a plain prefix test
      {"pay", appId + "://jointpay?ret=0", false},
      {"pay", appId + ":///pay", false},
      {"pay", link + appId + "/pay?ret=0", true},
      {"pay", link + appId + "pay?ret=0", false},
      {"pay", link + appId + "/Pay", false},
      {"pay", "other://pay", false},
      {"", appId + "://anything", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MRApi::isURLContainApi(c.name, URL::fromString(c.url)), c.expected) << c.name << " in " << c.url;
  }
  EXPECT_FALSE(MRApi::isURLContainApi("pay", std::nullopt));
}

struct DispatchCase {
  const char* name;
  Dictionary record;
  bool handled;
  std::vector<std::string> delivered;  // class names, requests first
  std::string invalidLinePrefix = "";  // "" when none
  std::string invalidLineSuffix = "";
};

std::vector<DispatchCase> dispatchCases() {
  return {
      {"2010 send with locale", record("2010", {{"language", Value("de")}, {"country", Value("DE")}}), true,
       {"SendMessageToMRResp"}},
      {"2020 send", record("2020"), true, {"SendMessageToMRResp"}},
      {"2030 sign-in", record("2030", {{"state", Value("s")}}), true, {"SendAuthResp"}},
      {"2030 tdi sign-in", record("2030", {{"tdi_ext_info", Value("x")}}), true, {"SendTdiAuthResp"}},
      // The other commands' records are delivered in the round-trip tests.
      // The channel rows fall through to the next row's class test: one delivery, then the invalid line.
      {"2090 share video", record("2090"), false, {"MRChannelShareVideoResp"},
       "mrlog:Error:resp[<MRChannelShareVideoResp: 0x", "] is invaild for command[2090]"},
      {"2100 open profile", record("2100"), false, {"MRChannelOpenProfileResp"},
       "mrlog:Error:resp[<MRChannelOpenProfileResp: 0x", "] is invaild for command[2100]"},
      {"2110 open live", record("2110"), false, {"MRChannelOpenLiveResp"},
       "mrlog:Error:resp[<MRChannelOpenLiveResp: 0x", "] is invaild for command[2110]"},
      {"2120 open feed", record("2120"), true, {"MRChannelOpenFeedResp"}},
      // A show-message record without its media message decodes to nothing.
      {"1010 without media", record("1010", {{"title", Value("t")}}), false, {},
       "mrlog:Error:req[(null)] is invaild for command[1010]"},
      {"3000 unknown", record("3000"), true, {}},
      {"0 header only", record("0"), true, {}},
      {"-1 command", record("-1"), true, {}},
      {"1020 text, not for the host", record("1020", {{"title", Value("t")}}), true, {}},
      // Records written carelessly by another app.
      {"command as a number", Dictionary{{"command", Value(2020)}}, true, {}},
      {"no command", Dictionary{{"result", Value("0")}}, true, {}},
      {"huge result", record("2020", {{"result", Value("99999999999999999999")}}), true, {"SendMessageToMRResp"}},
      {"wrongly typed keys",
       record("2030", {{"state", Value(5)}, {"language", Value(Array{})}, {"tdi_ext_info", Value(Data::copy("x"))},
                       {"mireloVersion", Value("big")}, {"scene", Value(Dictionary{})}}),
       true, {"SendAuthResp"}},
      {"huge command", record("99999999999999999999"), true, {}},
  };
}

TEST_F(IncomingUrlTest, RecordsAreDeliveredByCommandNumber) {
  for (const DispatchCase& c : dispatchCases()) {
    SCOPED_TRACE(c.name);
    logs.clear();
    delegate->reqs.clear();
    delegate->resps.clear();
    plantRecord(c.record);
    EXPECT_EQ(openHost(answerUrl), c.handled);
    EXPECT_EQ(deliveredClasses(), c.delivered);
    for (const auto& r : delegate->resps) ASSERT_NE(r, nullptr);
    for (const auto& r : delegate->reqs) ASSERT_NE(r, nullptr);
    const std::vector<std::string> invalid = logsContaining("is invaild for command[");
    if (c.invalidLinePrefix.empty()) {
      EXPECT_TRUE(invalid.empty()) << invalid.front();
    } else {
      ASSERT_EQ(invalid.size(), 1u);
      EXPECT_EQ(invalid[0].rfind(c.invalidLinePrefix, 0), 0u) << invalid[0];
      EXPECT_TRUE(String(invalid[0]).hasSuffix(c.invalidLineSuffix)) << invalid[0];
    }
    EXPECT_EQ(logsContaining("mrlog:command:").size(), 1u);
  }
}

TEST_F(IncomingUrlTest, RecordsOfAnotherAppOrGarbageGiveNothing) {
  const std::pair<const char*, Data> cases[] = {
      {"another app's record", bplist::encode(Value(Dictionary{{"mrother", Value(record("2020"))}}))},
      {"record not a dictionary", bplist::encode(Value(Dictionary{{kHostAppId, Value("2020")}}))},
      {"item not a dictionary", bplist::encode(Value(Array{Value(record("2020"))}))},
      {"not a property list", Data::copy("definitely not bplist")},
      {"truncated property list", Data::copy(std::string_view("bplist00\xd1\x01\x02", 11))},
      {"empty item", Data::copy("")},
  };
  for (const auto& [name, item] : cases) {
    SCOPED_TRACE(name);
    logs.clear();
    device->setPasteboardData(item, "content");
    EXPECT_FALSE(openHost(answerUrl));
    EXPECT_TRUE(logged("mrlog:appdata is nil, url:" + answerUrl));
    EXPECT_EQ(delegate->calls(), 0u);
  }
}

// A delegate that implements only onResp.
class RespOnlyDelegate : public MRApiDelegate {
 public:
  void onResp(const std::shared_ptr<BaseResp>& resp) override { resps.push_back(resp); }
  std::vector<std::shared_ptr<BaseResp>> resps;
};

TEST_F(IncomingUrlTest, RequestsFromTheMessengerReachOnReq) {
  PeerMediaContent media;
  media.title = "A title";
  media.objectType = 5;
  media.objectKeys.set("mediaUrl", Value("https://example.com/page"));
  PeerHostRequest show;
  show.appId = kHostAppId;
  show.openID = "open-1";
  show.media = media;
  ASSERT_TRUE(peer->sendShowMessage(show));
  device->runUntilIdle();
  ASSERT_EQ(delegate->reqs.size(), 1u) << peer->transcript();
  const auto* shown = dynamic_cast<const ShowMessageFromMRReq*>(delegate->reqs[0].get());
  ASSERT_NE(shown, nullptr);
  ASSERT_NE(shown->message, nullptr);
  EXPECT_EQ(shown->message->title, "A title");
  EXPECT_EQ(shown->openID, "open-1");

  PeerHostRequest plain;
  plain.appId = kHostAppId;
  ASSERT_TRUE(peer->sendGetMessage(plain));
  device->runUntilIdle();
  plain.route = sim::AnswerRoute::UniversalLink;
  plain.universalLink = kHostUniversalLink;
  ASSERT_TRUE(peer->sendLaunch(plain));
  device->runUntilIdle();
  EXPECT_EQ(deliveredClasses(),
            (std::vector<std::string>{"ShowMessageFromMRReq", "GetMessageFromMRReq", "LaunchFromMRReq"}));
  EXPECT_TRUE(hostOpens.back().viaUniversalLink);

  // A delegate without onReq gets nothing, and the call still succeeds.
  auto respOnly = std::make_shared<RespOnlyDelegate>();
  hostHandler = [&](const sim::OpenContext& context) {
    return MRApi::handleOpenURL(URL::fromString(context.url), respOnly);
  };
  ASSERT_TRUE(peer->sendShowMessage(show));
  device->runUntilIdle();
  EXPECT_TRUE(hostOpens.back().handled);
  EXPECT_TRUE(respOnly->resps.empty());
  EXPECT_TRUE(logged("mrlog:command:1010"));
}

TEST_F(IncomingUrlTest, UrlHandlersComeBeforeThePasteboardAndARecordIsReadOnce) {
  plantRecord(record("2020", {{"result", Value("-2")}}));
  const std::uint64_t changes = device->pasteboardChangeCount();
  EXPECT_TRUE(openHost(hostLinkUrl("pay?ret=-1")));
  EXPECT_EQ(deliveredClasses(), std::vector<std::string>{"PayResp"});
  EXPECT_EQ(device->pasteboardChangeCount(), changes) << "the record stays for the next answer";
  EXPECT_TRUE(openHost(answerUrl));
  EXPECT_EQ(deliveredClasses(), (std::vector<std::string>{"PayResp", "SendMessageToMRResp"}));
  EXPECT_EQ(delegate->resps[1]->errCode, -2);
  EXPECT_FALSE(openHost(answerUrl));
  EXPECT_TRUE(logged("mrlog:appdata is nil, url:" + answerUrl));
  EXPECT_EQ(delegate->resps.size(), 2u);
}

}  // namespace
}  // namespace mirelo::testing
