// The send pipeline and the launch strategy, end to end: what the messenger receives, how it is
// opened on each kind of system and messenger, and when a request waits for a token.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/model/Model.h"
#include "support/PeerFixture.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

std::shared_ptr<MRCardItem> card(String id, String ext) {
  auto item = std::make_shared<MRCardItem>();
  item->cardId = std::move(id);
  item->extMsg = std::move(ext);
  return item;
}

class SendPipelineTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    peer->setDefaultOutcome(sim::Outcome::noAnswer());
    peer->setTokenPolicy(tokenPolicy(sim::TokenPolicy::Action::Proceed));
    ASSERT_TRUE(registerHost());
  }

  // Sends `req` and drains the run loop; the completion's answer, or -1 when never called.
  int send(const std::shared_ptr<BaseReq>& req, bool isAutoResend = false, bool forceScheme = false) {
    int result = -1;
    int calls = 0;
    MRApiInternal::sendReq(req, isAutoResend, forceScheme, [&](bool ok) {
      result = ok ? 1 : 0;
      ++calls;
    });
    device->runUntilIdle();
    EXPECT_LE(calls, 1) << "the completion runs exactly once";
    return result;
  }

  const sim::ReceivedRequest& last() {
    static const sim::ReceivedRequest kNone;
    return peer->lastReceived() ? *peer->lastReceived() : kNone;
  }

  // Puts a messenger with `options` in place of the peer, answering nothing.
  void reinstallPeer(const sim::MessengerPeer::Options& options) {
    peer->uninstall();
    peer = sim::MessengerPeer::install(*device, options);
    peer->setDefaultOutcome(sim::Outcome::noAnswer());
    peer->setTokenPolicy(tokenPolicy(sim::TokenPolicy::Action::Proceed));
  }

  std::string pendingContextId() { return MireloIdentityHandler::shareInstance().contextID().str(); }
};

struct RequestCase {
  const char* name;
  std::shared_ptr<BaseReq> req;
  const char* command;                                     // the path the messenger sees
  std::vector<std::pair<const char*, const char*>> query;  // decoded
  std::int64_t recordCommand;
};

// The messenger's decoded reading of the query, and the record that goes along.
TEST_F(SendPipelineTest, EveryRequestReachesTheMessengerWithItsCommandQueryAndRecord) {
  const RequestCase cases[] = {
      {"text share", textShare("hello"), "sendreq/", {}, 1020},
      {"sign-in", makeReq<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; r.state = "xyz&1"; }), "auth/",
       {{"scope", "snsapi_userinfo"}, {"state", "xyz&1"}}, 0},
      {"mini program",
       makeReq<MRLaunchMiniProgramReq>([](auto& r) {
         r.userName = "gh_abc";
         r.path = "pages/index?x=1";
         r.miniProgramType = 2;
       }),
       "jumpMra/", {{"userName", "gh_abc"}, {"path", "pages/index?x=1"}, {"miniProgramType", "2"}}, 1080},
      {"business view", makeReq<MROpenBusinessViewReq>([](auto& r) { r.businessType = "shop"; r.query = "a=1&b=2"; }),
       "jumpFakeNativeMra/", {{"businessType", "shop"}, {"query", "a=1&b=2"}, {"extInfo", ""}}, 2080},
      // The page address is escaped for the outer query and once more inside.
      {"nontax pay", makeReq<MRNontaxPayReq>([](auto& r) { r.urlString = "https://pay.example.com/?a=1&b=\xC3\xA9"; }),
       "opentypewebview/", {{"type", "3"}, {"query", "url=https%3A%2F%2Fpay.example.com%2F%3Fa%3D1%26b%3D%C3%A9"}}, 0},
  };
  for (const RequestCase& c : cases) {
    SCOPED_TRACE(c.name);
    peer->clearLog();
    ASSERT_EQ(send(c.req), 1);
    ASSERT_NE(peer->lastReceived(), nullptr);
    const sim::ReceivedRequest& got = last();
    EXPECT_EQ(got.appId, kHostAppId);
    EXPECT_EQ(got.command, c.command);
    for (const auto& [key, value] : c.query) EXPECT_EQ(got.queryValue(key), value) << key;
    EXPECT_TRUE(got.viaUniversalLink);
    EXPECT_EQ(got.bundleId, kHostBundleId);
    EXPECT_TRUE(got.notes.empty()) << got.describe();
    ASSERT_TRUE(got.hasRecord);
    EXPECT_EQ(got.recordString("sdkver"), "1.9.2");
    EXPECT_EQ(got.recordString("universalLink"), kHostUniversalLink);
    if (c.recordCommand) {
      EXPECT_EQ(got.recordCommand, c.recordCommand);
    }
  }
  EXPECT_EQ(last().nestedQuery("query").mrApi_stringForKey("url"), "https://pay.example.com/?a=1&b=\xC3\xA9");
}

// The card list and business query read by key.
TEST_F(SendPipelineTest, TheMessengerReadsTheJsonAndNestedQueriesOfTheCommands) {
  ASSERT_EQ(send(makeReq<AddCardToMRCardPackageReq>([&](auto& r) {
    r.cardAry = std::make_shared<MRCardItemArray>(
        MRCardItemArray{card("c 1", "{\"a\": [1]}"), card("\xE4\xB8\xAD", String())});
  })), 1);
  EXPECT_EQ(last().json,
            Value(Dictionary{{"id0", "c 1"}, {"ext0", "{\"a\": [1]}"}, {"id1", "\xE4\xB8\xAD"}, {"ext1", ""}}));
  EXPECT_TRUE(last().notes.empty()) << last().describe();

  const Dictionary query{{"title", "Caf\xC3\xA9 & bar?"}, {"tags", Array{"a b", "c#d"}}};
  ASSERT_EQ(send(makeReq<MROpenBusinessWebViewReq>([&](auto& r) {
    r.businessType = 2;
    r.queryInfoDic = std::make_shared<Dictionary>(query);
  })), 1);
  EXPECT_EQ(last().command, "openbusinesswebview/");
  EXPECT_EQ(last().queryValue("type"), "2");
  EXPECT_EQ(last().queryJson("query"), Value(query));
  EXPECT_TRUE(last().notes.empty()) << last().describe();
}

TEST_F(SendPipelineTest, RefusalsLogTheirLineAndCompleteWithNo) {
  struct Case {
    const char* name;
    std::shared_ptr<BaseReq> req;
    const char* line;
  };
  auto badTitle = makeReq<SendMessageToMRReq>([](auto& r) { r.message = MRMediaMessage::message(); });
  badTitle->message->title = std::string(513, 't');
  badTitle->message->mediaObject = MRWebpageObject::object();
  const Case cases[] = {
      {"nil request", nullptr, "mrlog:Error:send req fail, req is nil!"},
      {"record refused", badTitle, "mrlog:Error:send req fail, fill appdata fail!"},
      {"command refused", std::make_shared<SendAuthReq>(), "mrlog:Error:send req fail, extra url is nil!"},
      {"unknown request", std::make_shared<BaseReq>(), "mrlog:Error:send req fail, extra url is nil!"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    logs.clear();
    peer->clearLog();
    EXPECT_EQ(send(c.req), 0);
    EXPECT_TRUE(logged(c.line));
    EXPECT_EQ(peer->lastReceived(), nullptr);
  }
  // The nil request is still announced before it is refused.
  logs.clear();
  send(nullptr);
  ASSERT_FALSE(logs.empty());
  EXPECT_EQ(logs[0], std::string("mrlog:send req[(null)], appID:") + kHostAppId + ", universalLink:" +
                         kHostUniversalLink + ", sdkVersion:1.9.2");
}

TEST_F(SendPipelineTest, NothingIsSentBeforeRegistration) {
  device->relaunch(kHostBundleId);
  MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
  EXPECT_EQ(send(textShare("x")), 0);
  EXPECT_TRUE(logged("mrlog:Error:send req fail, no register appID!"));
  int result = -1;
  MRApi::sendResp(std::make_shared<GetMessageFromMRResp>(), [&](bool ok) { result = ok; });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(logged("mrlog:Error:send resp fail, no register appID!"));
}

TEST_F(SendPipelineTest, WithoutTheUniversalLinkInterfaceAHeaderOnlyRecordLeavesThePasteboardAlone) {
  reinstallPeer({.universalLinkApi = false});
  device->setPasteboardString("the user's text");
  ASSERT_EQ(send(std::make_shared<MROfflinePayReq>()), 1);
  EXPECT_EQ(device->pasteboardString(), "the user's text");
  EXPECT_FALSE(last().hasRecord);
  EXPECT_EQ(last().base, sim::LaunchBase::Scheme);
  EXPECT_TRUE(logged("mrlog:no need to setComm, isMRSupportULAPI:0, command:0"));

  ASSERT_EQ(send(textShare("hi")), 1);  // a record with a body is always written
  EXPECT_TRUE(last().hasRecord);
  EXPECT_EQ(last().text(), "hi");
  EXPECT_EQ(last().oldText, "the user's text");
}

struct LaunchCase {
  const char* version;
  bool universalLinkApi;
  bool forceScheme;
  bool expectUniversalLink;
  bool expectBundleIdOnScheme;
};

TEST_F(SendPipelineTest, LaunchMatrixOfSystemMessengerAndForcedScheme) {
  const LaunchCase cases[] = {
      {"11.4", true, false, false, false},   // the version rule wins
      {"12.2", true, false, true, false},    // bundle id needs iOS 13
      {"12.2", true, true, false, false},
      {"13.1", true, false, true, true},
      {"13.1", false, false, false, false},
      {"13.1", true, true, false, true},
  };
  for (const LaunchCase& c : cases) {
    SCOPED_TRACE(std::string(c.version) + (c.universalLinkApi ? " UL-API" : " no-UL-API") +
                 (c.forceScheme ? " forced" : ""));
    device->setSystemVersion(c.version);
    device->relaunch(kHostBundleId);
    reinstallPeer({.universalLinkApi = c.universalLinkApi});
    ASSERT_TRUE(registerHost());

    ASSERT_EQ(send(textShare("m"), false, c.forceScheme), 1);
    const auto& got = last();
    EXPECT_EQ(got.viaUniversalLink, c.expectUniversalLink);
    EXPECT_FALSE(got.degraded);
    EXPECT_EQ(got.recordString("universalLink").isNull(), !c.expectUniversalLink);
    if (c.expectUniversalLink) {
      EXPECT_EQ(got.contextId.str().size(), 64u) << "a SHA-256 in hex";
      EXPECT_EQ(got.bundleId, kHostBundleId);
      EXPECT_EQ(pendingContextId(), got.contextId.str()) << "a first send by universal link waits for a token";
    } else {
      EXPECT_EQ(got.bundleId.isNull(), !c.expectBundleIdOnScheme);
      EXPECT_TRUE(pendingContextId().empty()) << "a send by scheme never waits for a token";
    }
  }
}

TEST_F(SendPipelineTest, AnUnclaimedUniversalLinkDegradesToTheSchemeExactlyOnce) {
  reinstallPeer({.claimUniversalLinks = false});

  bool launched = false;
  bool byLink = true;
  int calls = 0;
  MRApiInternal::launchMireloWithExtralUrl("sendreq/?", false, "cid1", [&](bool ok, bool viaLink) {
    launched = ok;
    byLink = viaLink;
    ++calls;
  });
  device->runUntilIdle();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(launched);
  EXPECT_FALSE(byLink);
  ASSERT_EQ(device->openLog().size(), 2u);
  EXPECT_FALSE(device->openLog()[0].success);
  EXPECT_TRUE(device->openLog()[0].universalLinksOnly);
  EXPECT_EQ(device->openLog()[1].url.rfind("mirelo://app/", 0), 0u);
  EXPECT_TRUE(last().degraded);
  EXPECT_EQ(logsContaining("lauch app fail and need degrade").size(), 1u);

  // A degraded first send does not wait for a token either.
  ASSERT_EQ(send(textShare("x")), 1);
  EXPECT_TRUE(pendingContextId().empty());
}

TEST_F(SendPipelineTest, OpeningUrlsBySystemVersion) {
  // A nil URL reports NO without touching the system.
  device->clearOpenLog();
  bool opened = true;
  bool reported = true;
  MRApiInternal::launchApplicationWithUrl(std::nullopt, [&](bool ok) { reported = ok; });
  EXPECT_FALSE(reported);
  EXPECT_TRUE(device->openLog().empty());
  EXPECT_TRUE(logged("mrlog:Error:launch app fail, url is nil!"));

  // A scheme URL opens synchronously even on iOS 13; a failure names isUlLaunch.
  device->setSystemVersion("13.0");
  device->relaunch(kHostBundleId);
  MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
  MRApiInternal::launchApplicationWithUrl(URL::fromString("nosuchapp://x"), [&](bool ok) { opened = ok; });
  EXPECT_FALSE(opened);
  EXPECT_TRUE(logged("mrlog:Error:launch app fail, isUlLaunch:0, url:nosuchapp://x"));
}

TEST_F(SendPipelineTest, ANewRequestCancelsAPendingDelayedResend) {
  auto pending = textShare("pending");
  device->clearOpenLog();
  platform::current().runLoop->performAfter(MRApiInternal::delayedCallTarget(), 0.1,
                                            [pending] { MRApiInternal::delaySendContextReq(pending, false); });
  ASSERT_EQ(send(textShare("new")), 1);
  peer->clearLog();
  device->advance(1.0);
  EXPECT_EQ(peer->lastReceived(), nullptr) << "the delayed re-send was cancelled";

  // Left alone, the delayed re-send goes out as an automatic re-send.
  platform::current().runLoop->performAfter(MRApiInternal::delayedCallTarget(), 0.1,
                                            [pending] { MRApiInternal::delaySendContextReq(pending, true); });
  device->advance(0.1);
  ASSERT_NE(peer->lastReceived(), nullptr);
  EXPECT_EQ(last().text(), "pending");
  EXPECT_FALSE(last().viaUniversalLink);
  EXPECT_TRUE(logsContaining("context req:").size() == 1u);
  MRApiInternal::delaySendContextReq(nullptr, false);
  EXPECT_TRUE(logged("mrlog:Error:context req is nil!"));
}

// The relaunch with an error is followed end to end in the token-flow tests.
TEST_F(SendPipelineTest, ATokenRefreshFailureWithoutAnErrorPrintsTheNullObject) {
  MRApiInternal::delayLaunchMRWithRefreshTokenFail(Dictionary{{"isShare", Value(false)}});
  device->runUntilIdle();
  ASSERT_NE(peer->lastReceived(), nullptr);
  EXPECT_EQ(last().command, "refreshTokenFail/");
  EXPECT_EQ(last().queryValue("isShare"), "0");
  EXPECT_EQ(last().queryValue("errCode"), "(null)");
  EXPECT_EQ(last().queryValue("errMsg"), "(null)");
}

}  // namespace
}  // namespace mirelo::testing
