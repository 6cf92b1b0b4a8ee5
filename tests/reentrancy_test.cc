// Every public entry point called again from inside the send completion, onResp and onReq (the QR
// delegate's are in qr_signin_test.cc): no crash, and every send's completion runs exactly once.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/MireloPayExt.h"
#include "support/PeerFixture.h"
#include "util/MRLogUtil.h"

namespace mirelo::testing {
namespace {

class ReentryTest : public PeerKitTest {
 protected:
  // Every public entry point once (not again from what these calls cause).
  void reenter() {
    if (std::exchange(inside_, true)) return;
    MRApi::registerApp(kHostAppId, kHostUniversalLink);
    (void)(MRApi::isAppRegisterQueryScheme("mirelo") + MRApi::isAppRegisterMireloSecheme(kHostAppId) +
           MRApi::isMRAppInstalled() + MRApi::isMRAppSupportApi() + MRApi::isMRAppSupportStateAPI() +
           MRApi::tryGetMireloVersion() + MRApi::isDefaultLaunchByScheme() +
           MRApi::getMRAppInstallUrl().size() + MRApi::getApiVersion().size());
    (void)MRApi::isURLContainApi("oauth", URL::fromString(hostSchemeUrl("oauth?code=1")));
    (void)MRApi::handleOpenURL(URL::fromString("other://x"), delegate);
    (void)MRApi::handleOpenUniversalLink(browsingActivity("https://elsewhere.example.com/"), delegate);
    MRApi::startLogByLevel(MRLogLevelNormal, MRLogUtil::sharedInstance().logBlock());
    MRApi::sendReq(textShare(), counted());
    MRApi::sendResp(std::make_shared<GetMessageFromMRResp>(), counted());
    MRApi::checkUniversalLinkReady([](MRULCheckStep, const std::shared_ptr<MRCheckULStepResult>&) {});
    MireloPayExt::payOrder(order(), [](std::int32_t, const String&) {});
    inside_ = false;
  }
  MRSendCompletion counted(std::function<void()> then = nullptr) {
    completions.push_back(0);
    return [this, i = completions.size() - 1, then](bool) {
      ++completions[i];
      if (then) then();
    };
  }
  static Dictionary order() {
    Dictionary o;
    for (const char* k : {"noncestr", "package", "partnerid", "prepayid", "sign"}) o.set(k, Value(std::string("v")));
    return o;
  }
  void settle() {
    device->advance(5);
    device->runUntilIdle();
    for (std::size_t i = 0; i < completions.size(); ++i) EXPECT_EQ(completions[i], 1) << "send " << i;
  }
  std::vector<int> completions;

 private:
  bool inside_ = false;
};

TEST_F(ReentryTest, FromTheSendCompletionOnRespAndOnReq) {
  ASSERT_TRUE(registerHost());
  auto reentering = std::make_shared<ReenteringDelegate>();
  delegate = reentering;
  MRApi::sendReq(textShare(), counted([&] { reenter(); }));
  settle();
  reentering->then = [&] { reenter(); };
  MRApi::sendReq(textShare(), counted());
  settle();
  ASSERT_FALSE(reentering->resps.empty());
  reentering->then = [&] { reenter(); };
  sim::PeerHostRequest get;
  get.appId = kHostAppId;
  ASSERT_TRUE(peer->sendGetMessage(get));
  settle();
  EXPECT_FALSE(reentering->reqs.empty());
}

}  // namespace
}  // namespace mirelo::testing
