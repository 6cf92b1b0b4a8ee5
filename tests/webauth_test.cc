// The web sign-in of a host without the messenger, end to end: the page
// walks through the mobile-check and SMS-authorise pages, and the hand-backs
// come in through the host's own scheme to MRApi::handleOpenURL.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/MRWebSignIn.h"
#include "mirelo/model/Model.h"
#include "support/PeerFixture.h"
#include "webauth/WapAuthHandler.h"

namespace mirelo::testing {
namespace {

using Log = std::vector<std::string>;

const std::string kMobileCheck = "https://open.mirelo.app/connect/mobilecheck?appid=mr0123456789abcdef&uid=";
const std::string kSmsAuthorize =
    "https://open.mirelo.app/connect/smsauthorize?appid=mr0123456789abcdef"
    "&redirect_uri=mr0123456789abcdef%3A%2F%2Foauth&response_type=code&scope=snsapi_userinfo&state=st-1&uid=";

WapAuthHandler& handler() { return WapAuthHandler::shareWapAuthHandlerInstance(); }
std::string uid() { return std::to_string(handler().timeStamp()); }

class WebSignInTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    peer->uninstall();
    ASSERT_TRUE(registerHost());
  }

  // Asks for sign-in as the host does, without the messenger; with `drain`
  // the page comes up and loads.  The page on top.
  sim::SimWebPage* start(const std::shared_ptr<MRApiDelegate>& signInDelegate, bool drain = true) {
    auto req = std::make_shared<SendAuthReq>();
    req->scope = "snsapi_userinfo";
    req->state = "st-1";
    int started = -1;
    MRApi::sendAuthReq(req, hostScreen, signInDelegate, [&](bool ok) { started = ok; });
    EXPECT_EQ(started, 1) << "the web sign-in always starts";
    if (drain) device->runUntilIdle();
    return device->topWebPage();
  }

  std::shared_ptr<platform::ViewController> hostScreen = std::make_shared<platform::ViewController>();
};

TEST_F(WebSignInTest, AFullRunHandsTheCodeToTheHost) {
  sim::SimWebPage* page = start(delegate, false);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->title(), "Mirelo登录");
  EXPECT_EQ(page->leftBarButtonTitle(), std::optional<std::string>("取消"));
  EXPECT_FALSE(page->prefersMobileContentMode());
  EXPECT_TRUE(page->loads().empty()) << "the mobile check loads once the page is on screen";
  device->runUntilIdle();
  const std::string mobileCheck = kMobileCheck + uid();
  EXPECT_EQ(page->url(), mobileCheck);

  // The mobile-check page hands back; the system opens the host with it.
  const std::string handBack = hostSchemeUrl("wapoauth?mobile_ticket=t%2B1&lang=zh_CN");
  EXPECT_FALSE(page->navigate(handBack));
  device->runUntilIdle();
  ASSERT_EQ(hostOpens.size(), 1u);
  EXPECT_TRUE(hostOpens[0].handled);
  const std::string sms = kSmsAuthorize + uid() + "&mobile_ticket=t%2B1&lang=zh_CN";
  EXPECT_EQ(page->url(), sms);
  EXPECT_TRUE(delegate->resps.empty());

  // The SMS-authorise page redirects to the host with the code.
  const std::string codeBack = hostSchemeUrl("oauth?code=CODE1&state=st-1");
  EXPECT_FALSE(page->navigate(codeBack));
  device->runUntilIdle();
  EXPECT_FALSE(handler().running());
  EXPECT_EQ(handler().webViewController(), nullptr);
  EXPECT_EQ(device->presentedCount(), 0u);
  ASSERT_EQ(delegate->resps.size(), 1u);
  const auto resp = std::dynamic_pointer_cast<SendAuthResp>(delegate->resps[0]);
  ASSERT_NE(resp, nullptr);
  EXPECT_EQ(resp->code, "CODE1");
  EXPECT_EQ(resp->state, "st-1");
  EXPECT_EQ(resp->errCode, 0);
  EXPECT_EQ(device->screenLog(), (Log{"present Mirelo登录", "load " + mobileCheck, "navigate " + handBack + " cancel",
                                      "load " + sms, "navigate " + codeBack + " cancel", "dismiss Mirelo登录"}));
}

TEST_F(WebSignInTest, CancelAsksFirstAndQuittingAnswersOnlyALiveDelegate) {
  enum class Who { Recording, Silent, Gone };
  const struct {
    const char* name;
    const char* button;
    Who who;
    bool stillRunning;
  } cases[] = {
      {"stay", "继续登录", Who::Recording, true},
      {"quit, recording delegate", "退出登录", Who::Recording, false},
      {"quit, delegate without onResp", "退出登录", Who::Silent, false},
      {"quit, delegate gone", "退出登录", Who::Gone, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto recording = std::make_shared<RecordingDelegate>();
    std::shared_ptr<MRApiDelegate> signInDelegate = recording;
    if (c.who == Who::Silent) signInDelegate = std::make_shared<MRApiDelegate>();
    sim::SimWebPage* page = start(signInDelegate);
    ASSERT_NE(page, nullptr);
    if (c.who == Who::Gone) {
      signInDelegate.reset();
      recording.reset();
    }

    ASSERT_TRUE(page->tapLeftBarButton());
    sim::SimAlert* alert = device->topAlert();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->title(), "");
    EXPECT_EQ(alert->message(), "取消后将退出本次登录");
    std::vector<std::pair<std::string, platform::AlertActionStyle>> actions;
    for (const auto& a : alert->actions()) actions.emplace_back(a.title, a.style);
    EXPECT_EQ(actions, (decltype(actions){{"退出登录", platform::AlertActionStyle::Default},
                                          {"继续登录", platform::AlertActionStyle::Cancel}}));
    EXPECT_TRUE(handler().running()) << "asking changes nothing";

    ASSERT_TRUE(alert->tap(c.button));
    device->runUntilIdle();
    EXPECT_EQ(device->topAlert(), nullptr);
    EXPECT_EQ(handler().running(), c.stillRunning);
    EXPECT_EQ(device->presentedCount(), c.stillRunning ? 1u : 0u);
    if (c.stillRunning) {
      EXPECT_EQ(device->topWebPage(), page);
    }
    if (recording) {
      const bool answered = c.who == Who::Recording && !c.stillRunning;
      ASSERT_EQ(recording->resps.size(), answered ? 1u : 0u);
      if (answered) {
        const auto resp = std::dynamic_pointer_cast<SendAuthResp>(recording->resps[0]);
        ASSERT_NE(resp, nullptr);
        EXPECT_EQ(resp->errCode, ErrCodeUserCancel);
        EXPECT_EQ(resp->type, 0);
        for (const String& unset : {resp->errStr, resp->code, resp->state, resp->lang, resp->country}) {
          EXPECT_TRUE(unset.isNull());
        }
      }
    }
    EXPECT_TRUE(delegate->resps.empty()) << "the host's URL delegate is not the sign-in's";
  }
}

TEST_F(WebSignInTest, OnlyAHandBackWithParametersDuringARunIsConsumed) {
  const struct {
    const char* tail;
    bool running;
    bool consumed;
  } cases[] = {
      {"wapoauth?ticket=1", true, true},
      {"wapoauth?", true, false},
      {"wapoauth", true, false},
      {"wapoauth/?ticket=1", true, false},
      {"wapoauth?ticket=1", false, false},
  };
  for (const auto& c : cases) {
    const std::string url = hostSchemeUrl(c.tail);
    SCOPED_TRACE(url + (c.running ? " running" : " idle"));
    if (c.running) {
      start(delegate);
    } else {
      handler().endWapAuth();
    }
    logs.clear();
    const std::size_t loadsBefore = c.running ? device->topWebPage()->loads().size() : 0;
    EXPECT_EQ(openHost(url), c.consumed);
    if (c.running) {
      EXPECT_EQ(device->topWebPage()->loads().size(), loadsBefore + (c.consumed ? 1 : 0));
    }
    // A URL the sign-in leaves goes on to the other handlers and the
    // pasteboard, which holds no record here.
    EXPECT_EQ(logged("mrlog:appdata is nil, url:" + url), !c.consumed);
  }
  EXPECT_FALSE(handler().handleWapOAuthOpenUrl(std::nullopt));
  start(delegate);
  EXPECT_FALSE(handler().handleWapOAuthOpenUrl(URL::fromString("other0001://wapoauth?ticket=1")));
}

TEST_F(WebSignInTest, OnlyAnIPadOnIOS13AsksForTheMobileLayout) {
  const struct {
    const char* model;
    const char* version;
    bool preferencesAvailable;
    bool mobile;
  } cases[] = {
      {"iPad", "13.0", true, true},   {"iPad", "14.2.1", true, true}, {"iPad", "12.4", true, false},
      {"iPhone", "13.0", true, false}, {"iPad", "13.0", false, false}, {"iPad Pro", "13.0", true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.model) + " " + c.version + (c.preferencesAvailable ? "" : " without preferences"));
    // A device's model never changes while the kit runs: a new launch reads it.
    device->relaunch(kHostBundleId);
    device->runKitAs(kHostBundleId);
    ASSERT_TRUE(registerHost());
    device->setModel(c.model);
    device->setSystemVersion(c.version);
    device->setWebPagePreferencesAvailable(c.preferencesAvailable);
    sim::SimWebPage* page = start(delegate);
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->prefersMobileContentMode(), c.mobile);
  }
}

TEST_F(WebSignInTest, ThePageDelegateOperations) {
  sim::SimWebPage* page = start(delegate);
  handler().onHiddenLeftBar();
  EXPECT_EQ(page->leftBarButtonTitle(), std::nullopt);
  EXPECT_FALSE(page->tapLeftBarButton());
  handler().onShowLeftBar();
  EXPECT_EQ(page->leftBarButtonTitle(), std::optional<std::string>("取消"));
  ASSERT_TRUE(page->tapLeftBarButton());
  ASSERT_TRUE(device->topAlert()->tap("继续登录"));

  handler().onCancelOAuthWebView();
  EXPECT_EQ(device->presentedCount(), 0u);
  EXPECT_FALSE(handler().running());
  EXPECT_NE(handler().webViewController(), nullptr) << "kept until the next run";
  EXPECT_TRUE(delegate->resps.empty());
}

// A run restarted from its own cancel answer stays; every process draws a new uid.
TEST_F(WebSignInTest, ANewSignInStartedFromTheCancelAnswerStaysOnScreen) {
  auto answering = std::make_shared<ReenteringDelegate>();
  answering->then = [&] { start(delegate, false); };
  sim::SimWebPage* first = start(answering);
  ASSERT_NE(first, nullptr);
  const std::string firstUid = uid();
  ASSERT_TRUE(first->tapLeftBarButton());
  ASSERT_TRUE(device->topAlert()->tap("退出登录"));
  device->runUntilIdle();
  ASSERT_EQ(answering->resps.size(), 1u);
  EXPECT_TRUE(handler().running());
  EXPECT_EQ(device->presentedCount(), 1u);
  sim::SimWebPage* second = device->topWebPage();
  ASSERT_NE(second, nullptr);
  EXPECT_NE(uid(), firstUid);
  EXPECT_EQ(second->url(), kMobileCheck + uid());

  // The uid comes from a secure random source: a fresh process draws anew.
  device->relaunch(kHostBundleId);
  device->runKitAs(kHostBundleId);
  ASSERT_TRUE(registerHost());
  start(delegate);
  EXPECT_NE(uid(), firstUid);
}

// Only a URL the system opens leaves the web view; of the host's scheme
// only this run's hand-backs, so a hostile page cannot answer for the
// host.  By default the rest is as the platform has it; strict narrows it.
TEST_F(WebSignInTest, AHostilePageCannotAnswerForTheHostNorRewriteTheAuthorisePage) {
  const struct {
    std::string url;
    bool strict, allowed;
    std::optional<bool> opened;  // nullopt: not offered to the system
  } cases[] = {
      {"https://open.mirelo.app/connect/help", false, true, std::nullopt},
      {"http://example.com/", false, true, std::nullopt},
      {"nobodys-scheme://page", false, true, false},
      {"mirelo://app/x/", false, true, false},
      {hostSchemeUrl("wapoauth?ticket=1"), false, false, true},
      {hostSchemeUrl("oauth?code=C&state=forged"), false, false, std::nullopt},
      {hostSchemeUrl("pay/?returnKey=k&ret=0"), false, false, std::nullopt},
      {"MR0123456789ABCDEF://pay/?ret=0", false, false, std::nullopt},
      {"http://example.com/", true, false, std::nullopt},
      {"otherapp://launch", true, false, std::nullopt},
      {"https://open.mirelo.app/connect/help", true, true, std::nullopt},
      {hostSchemeUrl("wapoauth?ticket=1"), true, false, true},
  };
  sim::SimWebPage* page = start(delegate);
  ASSERT_NE(page, nullptr);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url + (c.strict ? " strict" : ""));
    MRSetWebSignInOptions({c.strict});
    device->clearOpenLog();
    const std::string before = page->url();
    EXPECT_EQ(page->navigate(c.url), c.allowed);
    EXPECT_EQ(page->url(), c.allowed ? c.url : before);
    ASSERT_EQ(device->openLog().size(), c.opened ? 1u : 0u);
    if (c.opened) {
      EXPECT_EQ(device->openLog()[0].success, *c.opened);
    }
    EXPECT_EQ(device->screenLog().back(), "navigate " + c.url + (c.allowed ? " allow" : " cancel"));
    device->runUntilIdle();
  }
  MRSetWebSignInOptions({});
  EXPECT_TRUE(delegate->resps.empty());
  EXPECT_TRUE(handler().running());

  // Another app's hand-back cannot add the kit's own keys a second time.
  ASSERT_TRUE(openHost(hostSchemeUrl("wapoauth?mobile_ticket=t&redirect_uri=evil%3A%2F%2F&SCOPE=all&lang=zh")));
  EXPECT_EQ(page->url(), kSmsAuthorize + uid() + "&mobile_ticket=t&lang=zh");
  // The code with the request's state leaves the page and ends the run.
  EXPECT_FALSE(page->navigate(hostSchemeUrl("oauth?code=C&state=st-1")));
  device->runUntilIdle();
  ASSERT_EQ(delegate->resps.size(), 1u);
  EXPECT_FALSE(handler().running());
}

// The only check of how a hand-back's query is split.
TEST(WapAuthParams, SplitsWithoutUnescapingAndSkipsPiecesWithoutAValue) {
  const struct {
    const char* query;
    Dictionary expected;
  } cases[] = {
      {"a=1&b=%20x", Dictionary{{"a", Value("1")}, {"b", Value("%20x")}}},
      {"a=1=2&flag&=v", Dictionary{{"a", Value("1")}, {"", Value("v")}}},
      {"", Dictionary{}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    EXPECT_EQ(WapAuthHandler::parseURLParams(c.query), c.expected);
  }
  EXPECT_EQ(WapAuthHandler::parseURLParams(String()), Dictionary{});
}

}  // namespace
}  // namespace mirelo::testing
