// The universal-link self-check against the messenger peer: each step that
// can fail, the return leg by universal link and by scheme, a return leg
// without the test context id, and the texts reported and logged.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/platform/ProcessState.h"
#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

constexpr const char* kTestContextId = "TestAutoCheckContextId_a4c123b1612dd272d1371c17149d439536b3216f";
constexpr const char* kTestText = "Test Message From Mirelo SDK Auto Check Method";
const std::string kGuide =
    "Common problems self-check guide: [Mirelo\xE5\xBC\x80\xE6\x94\xBE\xE5\xB9\xB3\xE5\x8F\xB0"
    "App iOS\xE7\xAB\xAF\xE6\x8E\xA5\xE5\x85\xA5\xE6\x96\xB0\xE7\x89\x88\xE6\x9C\xAC"
    "SDK \xE5\xB8\xB8\xE8\xA7\x81\xE9\x97\xAE\xE9\xA2\x98\xE8\x87\xAA\xE6\x9F\xA5\xE6\x8C\x87\xE5\xBC\x95]"
    "https://developers.mirelo.app/doc/ios/universal-link-self-check";

struct Step {
  std::int64_t step;
  bool success;
  std::string errorInfo;
  std::string suggestion;
};

class SelfCheckTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(registerHost());
  }

  MRULCheckCompletion recorder(std::vector<Step>* into) {
    return [into](MRULCheckStep step, const std::shared_ptr<MRCheckULStepResult>& result) {
      ASSERT_NE(result, nullptr);
      EXPECT_FALSE(result->errorInfo.isNull());
      EXPECT_FALSE(result->suggestion.isNull());
      into->push_back({step, result->success, result->errorInfo.str(), result->suggestion.str()});
    };
  }

  // Forgets the process state (as a relaunch does) and registers again.
  void restartKit() {
    platform::resetProcessState();
    MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
    ASSERT_TRUE(registerHost());
  }

  // Installs the messenger again with other options.
  void reinstallPeer(sim::MessengerPeer::Options options) {
    peer->uninstall();
    peer = sim::MessengerPeer::install(*device, std::move(options));
  }

  static std::string line(const Step& s) {
    return std::string(s.success ? "mrlog:" : "mrlog:Error:") + "MRCheckULStepResult[success: " +
           (s.success ? "1" : "0") + ", errorInfo: " + s.errorInfo + ", suggestion: " + s.suggestion + "]";
  }

  void expectSteps(const std::vector<Step>& got, const std::vector<Step>& expected) {
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(got[i].step, expected[i].step) << i;
      EXPECT_EQ(got[i].success, expected[i].success) << i;
      EXPECT_EQ(got[i].errorInfo, expected[i].errorInfo) << i;
      EXPECT_EQ(got[i].suggestion, expected[i].suggestion) << i;
      EXPECT_TRUE(logged(line(expected[i]))) << line(expected[i]);
    }
  }

  MireloIdentityHandler& identity() { return MireloIdentityHandler::shareInstance(); }
};

const Step kStep0{0, false, "appId or universalLink is nil",
                  "Please pass the correct parameters when calling the +[MRApi register:universalLink:] function"};
const Step kStep1{1, false,
                  "The current system version is lower than iOS 12.0. Below iOS 12, scheme is used by default",
                  "No need to check Universal Link"};
const Step kStep2{2, false,
                  "The current version of Mirelo does not support the Universal Link. Please upgrade Mirelo.",
                  "Please upgrade Mirelo to the latest version."};
const Step kStep4{4, false, "The universal link for Mirelo is not in effect.",
                  "You can try uninstalling and reinstalling Mirelo."};
const Step kStep5Link{5, true,
                      "Universal Link check passed. The application is launched by Mirelo via Universal Link", ""};
const Step kStep5Scheme{5, false, "Universal Link check failed. The application is launched by Mirelo via scheme",
                        kGuide};
const Step kStep6{6, true, "All Check Passed!", ""};

TEST_F(SelfCheckTest, EachFailingStepReportsOnceAndStops) {
  struct Case {
    const char* name;
    std::function<void()> arrange;
    Step expected;
  };
  const Case cases[] = {
      {"no universal link registered",
       [] { MireloIdentityHandler::registerAppID(kHostAppId, String("")); }, kStep0},
      {"iOS 11",
       [this] {
         device->setSystemVersion("11.4");
         restartKit();
       },
       kStep1},
      {"messenger without the universal-link interface",
       [this] {
         sim::MessengerPeer::Options options;
         options.universalLinkApi = false;
         reinstallPeer(options);
       },
       kStep2},
      {"messenger that does not claim its universal links",
       [this] {
         sim::MessengerPeer::Options options;
         options.claimUniversalLinks = false;
         reinstallPeer(options);
       },
       kStep4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    device->setSystemVersion("13.0");
    reinstallPeer({});
    restartKit();
    c.arrange();
    logs.clear();
    std::vector<Step> steps;
    MRApi::checkUniversalLinkReady(recorder(&steps));
    device->runUntilIdle();
    expectSteps(steps, {c.expected});
    EXPECT_FALSE(identity().universalLinkCheckEnable());
    EXPECT_FALSE(identity().checkCompletion());
    EXPECT_EQ(delegate->calls(), 0u);
  }
}

// The messenger's return by universal link passes every step; by scheme
// it fails step five only.
TEST_F(SelfCheckTest, TheReturnRouteDecidesStepFive) {
  for (const bool byLink : {true, false}) {
    SCOPED_TRACE(byLink ? "universal link" : "scheme");
    peer->clearLog();
    hostOpens.clear();
    logs.clear();
    peer->setSelfCheckPolicy({true, byLink ? sim::AnswerRoute::Auto : sim::AnswerRoute::Scheme, String()});
    std::vector<Step> steps;
    MRApi::checkUniversalLinkReady(recorder(&steps));
    EXPECT_TRUE(peer->received().empty());
    device->runUntilIdle();
    ASSERT_EQ(peer->received().size(), 1u);
    const sim::ReceivedRequest& launch = peer->received()[0];
    EXPECT_TRUE(launch.viaUniversalLink);
    EXPECT_EQ(launch.contextId, kTestContextId);
    EXPECT_TRUE(launch.token.isNull());
    EXPECT_EQ(launch.text(), kTestText);
    EXPECT_EQ(launch.recordString("universalLink"), kHostUniversalLink);
    EXPECT_TRUE(logged("mrlog:Successfully starting Mirelo with the universal link."));
    if (byLink) {
      expectSteps(steps, {kStep5Link, kStep6});
    } else {
      expectSteps(steps, {kStep5Scheme});
    }
    ASSERT_FALSE(hostOpens.empty());
    EXPECT_EQ(hostOpens.back().viaUniversalLink, byLink);
    EXPECT_TRUE(hostOpens.back().handled);
    EXPECT_FALSE(identity().universalLinkCheckEnable());
    EXPECT_FALSE(identity().checkCompletion());
    EXPECT_EQ(delegate->calls(), 0u);
  }
}

// A return without the test id leaves the check waiting; a later check replaces the waiting callback.
TEST_F(SelfCheckTest, AReturnWithoutTheTestIdLeavesTheCheckWaitingAndALaterCheckReplacesIt) {
  MRApi::checkUniversalLinkReady(nullptr);  // a nil completion checks nothing
  device->runUntilIdle();
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:completion is nil"});
  EXPECT_TRUE(peer->received().empty());
  peer->setSelfCheckPolicy({false, sim::AnswerRoute::Auto, String()});
  std::vector<Step> steps;
  MRApi::checkUniversalLinkReady(recorder(&steps));
  device->runUntilIdle();
  EXPECT_TRUE(steps.empty()) << "a launch alone reports nothing";
  EXPECT_TRUE(identity().universalLinkCheckEnable());

  openHost(hostSchemeUrl("platformId=mirelo"));
  EXPECT_TRUE(logged("mrlog:Error:universal link check enable but contextId is error., contextID:(null)"));
  openHost(hostLinkUrl("pay?ret=-2&mirelo_auth_context_id=TestAutoCheckContextId_0"));
  EXPECT_TRUE(logged("mrlog:Error:universal link check enable but contextId is error., "
                     "contextID:TestAutoCheckContextId_0"));
  EXPECT_EQ(deliveredClasses(), std::vector<std::string>{"PayResp"}) << "the URL goes on to the handlers";
  EXPECT_TRUE(steps.empty());
  EXPECT_TRUE(identity().universalLinkCheckEnable());

  // The registered link as a plain prefix: any path and query after it pass.
  EXPECT_TRUE(openHost(hostLinkUrl("some/extra/path?x=1&mirelo_auth_context_id=") + kTestContextId));
  expectSteps(steps, {kStep5Link, kStep6});
  EXPECT_FALSE(identity().universalLinkCheckEnable());

  std::vector<Step> first;
  std::vector<Step> second;
  MRApi::checkUniversalLinkReady(recorder(&first));
  device->runUntilIdle();
  MRApi::checkUniversalLinkReady(recorder(&second));
  device->runUntilIdle();
  EXPECT_TRUE(openHost(hostSchemeUrl("platformId=mirelo?mirelo_auth_context_id=") + kTestContextId));
  EXPECT_TRUE(first.empty());
  expectSteps(second, {kStep5Scheme});
}

}  // namespace
}  // namespace mirelo::testing
