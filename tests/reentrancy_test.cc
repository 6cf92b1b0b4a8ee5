// Every public entry point called again from inside every callback the kit
// makes (send completion, onResp, onReq, the payment callback, the
// self-check callback, the log sink), on the simulated device with the
// messenger peer.  Whether the callback runs inside the call or later, the
// kit must not crash, lose or double a callback, or leave stale state.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/MireloPayExt.h"
#include "support/PeerFixture.h"
#include "util/MRLogUtil.h"

namespace mirelo::testing {
namespace {

class ReentryTest : public PeerKitTest {
 protected:
  // Calls every public entry point once (not again from the callbacks these
  // calls cause).  Every send it makes counts its completions.
  void reenter() {
    if (depth_ > 0) return;
    ++depth_;
    MRApi::registerApp(kHostAppId, kHostUniversalLink);
    (void)MRApi::isAppRegisterQueryScheme("mirelo");
    (void)MRApi::isAppRegisterMireloSecheme(kHostAppId);
    (void)MRApi::isMRAppInstalled();
    (void)MRApi::isMRAppSupportApi();
    (void)MRApi::isMRAppSupportStateAPI();
    (void)MRApi::getMRAppInstallUrl();
    (void)MRApi::getApiVersion();
    (void)MRApi::tryGetMireloVersion();
    (void)MRApi::isDefaultLaunchByScheme();
    (void)MRApi::isURLContainApi("oauth", URL::fromString(hostSchemeUrl("oauth?code=1")));
    (void)MRApi::handleOpenURL(URL::fromString("other://x"), delegate);
    (void)MRApi::handleOpenUniversalLink(browsingActivity("https://elsewhere.example.com/"), delegate);
    MRApi::startLogByLevel(MRLogLevelNormal, MRLogUtil::sharedInstance().logBlock());
    auto text = std::make_shared<SendMessageToMRReq>();
    text->bText = true;
    text->text = "again";
    MRApi::sendReq(text, counted());
    MRApi::sendResp(std::make_shared<GetMessageFromMRResp>(), counted());
    MRApi::checkUniversalLinkReady([](MRULCheckStep, const std::shared_ptr<MRCheckULStepResult>&) {});
    MireloPayExt::payOrder(order(), [this](std::int32_t, const String&) { ++payCallbacks; });
    --depth_;
  }

  MRSendCompletion counted() {
    const std::size_t i = completions.size();
    completions.push_back(0);
    return [this, i](bool) { ++completions[i]; };
  }

  static Dictionary order() {
    Dictionary o;
    for (const char* k : {"noncestr", "package", "partnerid", "prepayid", "sign"}) o.set(k, Value(std::string("v")));
    o.set("timestamp", Value(std::int64_t{1}));
    return o;
  }

  // Lets everything pending happen, then checks that every send's
  // completion ran exactly once.
  void settle() {
    device->advance(5);
    device->runUntilIdle();
    for (std::size_t i = 0; i < completions.size(); ++i) EXPECT_EQ(completions[i], 1) << "send " << i;
  }

  std::shared_ptr<SendMessageToMRReq> share() {
    auto req = std::make_shared<SendMessageToMRReq>();
    req->bText = true;
    req->text = "first";
    return req;
  }

  std::vector<int> completions;
  int payCallbacks = 0;

 private:
  int depth_ = 0;
};

class ReenteringDelegate : public RecordingDelegate {
 public:
  void onReq(const std::shared_ptr<BaseReq>& req) override {
    RecordingDelegate::onReq(req);
    if (then) std::exchange(then, nullptr)();
  }
  void onResp(const std::shared_ptr<BaseResp>& resp) override {
    RecordingDelegate::onResp(resp);
    if (then) std::exchange(then, nullptr)();
  }
  std::function<void()> then;
};

TEST_F(ReentryTest, FromTheSendCompletion) {
  ASSERT_TRUE(registerHost());
  int outer = 0;
  MRApi::sendReq(share(), [&](bool) {
    ++outer;
    reenter();
  });
  settle();
  EXPECT_EQ(outer, 1);
  // The first share's answer arrives once, with the rest.
  EXPECT_GE(delegate->resps.size(), 1u);
}

TEST_F(ReentryTest, FromOnRespAndOnReq) {
  ASSERT_TRUE(registerHost());
  auto reentering = std::make_shared<ReenteringDelegate>();
  delegate = reentering;
  reentering->then = [&] { reenter(); };
  MRApi::sendReq(share(), counted());
  settle();
  ASSERT_FALSE(reentering->resps.empty());
  EXPECT_EQ(reentering->resps[0]->className(), "SendMessageToMRResp");

  reentering->then = [&] { reenter(); };
  sim::PeerHostRequest show;
  show.appId = kHostAppId;
  ASSERT_TRUE(peer->sendGetMessage(show));
  settle();
  ASSERT_FALSE(reentering->reqs.empty());
}

TEST_F(ReentryTest, FromThePaymentCallback) {
  ASSERT_TRUE(MireloPayExt::registerApp(kHostAppId, kHostUniversalLink));
  hostHandler = [](const sim::OpenContext& context) {
    if (context.viaUniversalLink) return MireloPayExt::handleUniversalLink(browsingActivity(context.url));
    return MireloPayExt::handleUrl(URL::fromString(context.url));
  };
  int outer = 0;
  MireloPayExt::payOrder(order(), [&](std::int32_t, const String&) {
    ++outer;
    reenter();
  });
  settle();
  EXPECT_EQ(outer, 1);
  EXPECT_LE(payCallbacks, 1);
}

TEST_F(ReentryTest, FromTheSelfCheckCallback) {
  ASSERT_TRUE(registerHost());
  int steps = 0;
  bool final = false;
  MRApi::checkUniversalLinkReady([&](MRULCheckStep step, const std::shared_ptr<MRCheckULStepResult>& result) {
    ++steps;
    if (step == MRULCheckStepFinal || !result->success) final = true;
    reenter();
  });
  settle();
  EXPECT_TRUE(final);
  EXPECT_GE(steps, 1);
}

TEST_F(ReentryTest, FromTheLogSink) {
  ASSERT_TRUE(registerHost());
  // The sink re-enters on the first lines only: every re-entry logs, and
  // its sends are answered with more lines.
  int reentries = 0;
  MRApi::startLogByLevel(MRLogLevelNormal, [this, &reentries](const std::string& line) {
    logs.push_back(line);
    if (reentries < 3 && ++reentries) reenter();
  });
  int outer = 0;
  MRApi::sendReq(share(), [&](bool) { ++outer; });
  settle();
  EXPECT_EQ(outer, 1);
}

}  // namespace
}  // namespace mirelo::testing
