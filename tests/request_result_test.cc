// A result per request: what the handler and delegate see on answers, cancels, failures, a return
// without an answer, and answers another app forges, repeats or echoes.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "api/MRApiInternal.h"
#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "mirelo/MireloPayExt.h"
#include "mirelo/platform/ProcessState.h"
#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

using sim::Outcome;
enum Kind { Answered, Cancelled, Failed, NotOpened, Superseded };  // MRResult's alternatives, in order
constexpr const char* kEvil = "com.example.evil";

class RequestResultTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(registerHost());
    sim::AppManifest evil;
    evil.bundleId = kEvil;
    device->install(evil);
    peer->setTokenPolicy(tokenPolicy(sim::TokenPolicy::Action::Proceed));
    MRApi::setUnmatchedAnswerObserver([this](const MRUnmatchedAnswer& a) { unmatched.push_back(a.reason); });
  }
  // Keeps the kind of a result, its refusal and whether a cancel was by return.
  template <class R>
  void keep(const R& r) {
    results.push_back(static_cast<int>(r.index()));
    if (auto* n = std::get_if<MRNotOpened>(&r)) refusals.push_back(n->refusal);
    if (r.index() == Cancelled) byReturn.push_back(std::visit([](const auto& v) {
      if constexpr (requires { v.byReturn; }) return v.byReturn; else return false; }, r));
  }
  // Sends `req`; every result is kept.
  void send(const std::shared_ptr<BaseReq>& req) {
    MRApi::sendWithResult(req, [this](const MRAnyResult& r) { keep(r); });
    device->runUntilIdle();
  }
  void fromEvil(const std::string& url) {
    device->openURL(url, kEvil);
    device->runUntilIdle();
  }
  static std::shared_ptr<BaseReq> share() { return textShare(); }
  static std::shared_ptr<BaseReq> pay() { return filledPay(); }
  static std::shared_ptr<SendAuthReq> signIn(const char* state = "s1") {
    return makeReq<SendAuthReq>([&](auto& r) { r.scope = "snsapi_userinfo"; r.state = state; });
  }
  std::vector<int> results;
  std::vector<MRRefusal> refusals;
  std::vector<bool> byReturn;
  std::vector<MRUnmatchedReason> unmatched;
};

TEST_F(RequestResultTest, AnswersNobodyAskedForReachNoHandlerAndStrictlyNoDelegate) {
  struct Case {
    const char* name;
    std::function<void()> run;
    MRUnmatchedReason reason;
    std::vector<int> results;
    bool strictDelivers;
  };
  int n = 0;  // every forged URL is new, so that none is a second copy
  const auto answer = [&] { return hostSchemeUrl("oauth?code=C&state=s1&n=" + std::to_string(++n)); };
  const Case cases[] = {
      {"forged", [&] { fromEvil(hostSchemeUrl("oauth?code=FORGED&n=" + std::to_string(++n))); }, MRUnmatchedReason::Unsolicited, {}, false},
      {"duplicate", [&] { send(signIn()); fromEvil(device->openLog().back().url); }, MRUnmatchedReason::Duplicate,
       {Answered}, false},
      {"wrong state", [&] { peer->setDefaultOutcome(Outcome::noAnswer()); send(signIn());
         fromEvil(hostSchemeUrl("oauth?code=X&state=evil&n=" + std::to_string(++n))); }, MRUnmatchedReason::WrongState, {}, false},
      {"wrong kind", [&] { peer->setDefaultOutcome(Outcome::noAnswer()); send(pay()); fromEvil(answer()); },
       MRUnmatchedReason::WrongKind, {}, false},
      {"late, after a cancel", [&] { peer->setDefaultOutcome(Outcome::noAnswer()); send(signIn());
         device->switchToApp(kHostBundleId); device->advance(MRApi::cancelGracePeriod() + 0.1); openHost(answer()); },
       MRUnmatchedReason::Late, {Cancelled}, true},
  };
  for (const MRAnswerPolicy policy : {MRAnswerPolicy::Standard, MRAnswerPolicy::Strict}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + (policy == MRAnswerPolicy::Strict ? " strict" : ""));
      peer->setDefaultOutcome(Outcome::success());
      MRApi::sendWithResult(share(), nullptr);  // answered: nothing is pending
      device->runUntilIdle();
      MRApi::setAnswerPolicy(policy);
      results.clear();
      unmatched.clear();
      delegate->resps.clear();
      c.run();
      EXPECT_EQ(results, c.results);
      ASSERT_EQ(unmatched.size(), 1u) << peer->transcript();
      EXPECT_EQ(unmatched[0], c.reason);
      const std::size_t delivered = c.results.empty() || c.results[0] == Cancelled ? 0 : 1;
      EXPECT_EQ(delegate->resps.size(), delivered + (policy == MRAnswerPolicy::Standard || c.strictDelivers));
    }
  }
}

TEST_F(RequestResultTest, ComingBackWithoutAnAnswerCancelsAfterTheGracePeriod) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  MRApi::setCancelGracePeriod(5);
  MRApi::send(signIn(""), [this](const MRResult<SendAuthResp>& r) { keep(r); });
  device->runUntilIdle();
  device->switchToApp(kHostBundleId);
  device->advance(4.9);
  EXPECT_TRUE(results.empty()) << "still within the grace period";
  device->switchToApp(kMessengerBundleId);  // back to the messenger: the clock stops
  device->advance(10);
  EXPECT_TRUE(results.empty());
  device->switchToApp(kHostBundleId);
  device->advance(5.1);
  ASSERT_EQ(results, std::vector<int>{Cancelled});
  EXPECT_EQ(byReturn, std::vector<bool>{true});
}

TEST_F(RequestResultTest, ANewerRequestSupersedesAndTheWaitingOneNeverAnswers) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  std::vector<int> first;
  MireloPayExt::pay(Dictionary{{"sign", Value("s")}, {"package", Value("p")}, {"partnerid", Value("p")},
                               {"prepayid", Value("p")}, {"noncestr", Value("n")}},
                    [&](const MRResult<PayResp>& r) { first.push_back(static_cast<int>(r.index())); });
  device->runUntilIdle();
  send(share());
  EXPECT_EQ(first, std::vector<int>{Superseded});
  EXPECT_TRUE(openHost(hostSchemeUrl("pay?ret=0")));
  EXPECT_EQ(first.size(), 1u);
  EXPECT_EQ(unmatched, std::vector<MRUnmatchedReason>{MRUnmatchedReason::WrongKind});
}

TEST_F(RequestResultTest, AnAnswerAfterARelaunchReachesTheRestoredHandler) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  send(pay());
  device->relaunch(kHostBundleId);
  ASSERT_TRUE(registerHost());
  std::vector<std::string> restored;
  MRApi::setRestoredResultHandler([&](const MRRestoredRequest& req, const MRAnyResult& r) {
    restored.push_back(req.requestClass + " " + req.command + " " + std::to_string(r.index()));
  });
  EXPECT_TRUE(openHost(hostSchemeUrl("pay?ret=0")));
  EXPECT_EQ(restored, std::vector<std::string>{"PayReq pay/ 0"});
  EXPECT_TRUE(results.empty()) << "the first run's handler died with it";
}

TEST_F(RequestResultTest, TheHostsOwnRecordNeverComesBackButTheMessengersDoes) {
  for (auto req : {share(), std::static_pointer_cast<BaseReq>(MROpenCustomerServiceReq::object())}) {
    if (auto service = kindCast<MROpenCustomerServiceReq>(req)) service->url = service->corpid = "c";
    peer->setDefaultOutcome(Outcome::noAnswer());  // the messenger leaves the record where it was
    send(req);
    unmatched.clear();
    fromEvil(hostSchemeUrl("platformId=mirelo"));
    EXPECT_TRUE(delegate->reqs.empty() && delegate->resps.empty());
    EXPECT_EQ(unmatched, std::vector<MRUnmatchedReason>{MRUnmatchedReason::OwnRecord});
  }
  sim::PeerHostRequest show;
  show.appId = kHostAppId;
  ASSERT_TRUE(peer->sendGetMessage(show));
  device->runUntilIdle();
  EXPECT_EQ(deliveredClasses(), std::vector<std::string>{"GetMessageFromMRReq"});
}

TEST_F(RequestResultTest, BareRefreshTokenUrlsRelaunchAtMostOncePerPendingRequest) {
  for (const bool pending : {false, true}) {
    SCOPED_TRACE(pending);
    peer->setDefaultOutcome(Outcome::noAnswer());
    if (pending) send(share());
    const std::size_t before = peer->received().size();
    for (int i = 0; i < 5; ++i) fromEvil(hostSchemeUrl("refreshToken?mirelo_auth_token=t"));
    device->advance(1);
    EXPECT_EQ(peer->received().size(), before + (pending ? 1 : 0)) << peer->transcript();
  }
}

TEST_F(RequestResultTest, RefusalsAreValues) {
  send(textShare(std::string(20000, 'a')));
  peer->uninstall();
  device->setPasteboardString("account 12-34");
  send(share());
  auto answer = std::make_shared<GetMessageFromMRResp>();
  answer->bText = true;
  answer->text = "x";
  MRApi::sendResponse(answer, [&](const MRRefusal& r) { keep(MRAnyResult(MRNotOpened{r})); });
  device->runUntilIdle();
  ASSERT_EQ(results, (std::vector<int>{NotOpened, NotOpened, NotOpened}));
  EXPECT_EQ(refusals[0].reason, MRRefusalReason::RefusedByLimit);
  EXPECT_NE(refusals[0].message.find("limit"), std::string::npos) << refusals[0].message;
  EXPECT_EQ(refusals[1].reason, MRRefusalReason::MessengerMissing);
  EXPECT_EQ(refusals[2].reason, MRRefusalReason::MessengerMissing);
  EXPECT_EQ(device->pasteboardString(), "account 12-34") << "a failed launch puts the user's text back";
}

TEST_F(RequestResultTest, ATokenNeverRidesALinkThatMayOpenInTheBrowser) {
  auto& identity = MireloIdentityHandler::shareInstance();
  identity.setContextReq(share(), "cid");
  ASSERT_TRUE(identity.checkAndRecordTokenToKeychain("secret-token", "cid", nullptr));
  peer->uninstall();
  for (const char* version : {"9.3", "beta", "13.0"}) {
    device->setSystemVersion(version);
    platform::resetProcessState();  // the kit reads the version once per process
    ASSERT_TRUE(registerHost());
    MRApiInternal::delayLaunchMRWithRefreshTokenFail(Dictionary{});
    device->runUntilIdle();
    const sim::OpenEvent& open = device->openLog().back();
    EXPECT_EQ(open.url.find("mirelo_auth_token") != std::string::npos, version == std::string("13.0")) << version;
    EXPECT_FALSE(open.openedInBrowser && open.url.find("mirelo_auth_token") != std::string::npos);
  }
}

TEST_F(RequestResultTest, TheWebSignInReportsTheUsersCancel) {
  peer->uninstall();
  MRApi::sendAuth(signIn(""), nullptr, delegate, [this](const MRResult<SendAuthResp>& r) { keep(r); });
  device->runUntilIdle();
  ASSERT_NE(device->topWebPage(), nullptr);
  device->topWebPage()->tapLeftBarButton();
  device->topAlert()->tap("退出登录");
  EXPECT_EQ(results, std::vector<int>{Cancelled});
  EXPECT_EQ(byReturn, std::vector<bool>{false}) << "the user's own cancel, not a return";
  EXPECT_EQ(delegate->resps.size(), 1u);
}

}  // namespace
}  // namespace mirelo::testing
