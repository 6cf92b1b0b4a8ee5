// The log sink and the registration do not tear when another thread races
// them (a debug build's public calls abort off the main thread, as the last
// test checks).  Also built alone for ThreadSanitizer (mirelo_thread_stress).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "util/Log.h"
#include "util/MainThread.h"

namespace mirelo {
namespace {

// Runs `race` on another thread while `main` runs 20,000 times here.
template <class Race, class Main>
void raced(Race race, Main main) {
  platform::resetProcessState();
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done.load()) race();
  });
  for (int i = 0; i < 20000; ++i) main(i);
  done = true;
  other.join();
  platform::resetProcessState();
}

TEST(ThreadStress, TheLogSinkChangesWhileAnotherThreadLogs) {
  MRLogUtil& log = MRLogUtil::sharedInstance();
  auto delegate = std::make_shared<MRApiLogDelegate>();
  std::atomic<int> lines{0};
  raced(
      [] {
        mrlog::line("line mirelo_auth_token=%@", "secret");
        mrlog::detail("detail");
      },
        [&](int i) {
          if (i % 2) log.removeLog();
          else if (i % 4) log.configLogDelegate(delegate, MRLogLevelDetail);
          else log.configLogBlock([&](const std::string&) { ++lines; }, MRLogLevelNormal);
        });
}

TEST(ThreadStress, RegistrationRacesItsReaders) {
  std::atomic<int> torn{0};
  raced(
      [&] {
        const String id = MireloIdentityHandler::registerAppID();
        if (!id.isNull() && id != "mrfirst" && id != "mrsecond") ++torn;
        const String link = MireloIdentityHandler::registerUniversalLink();
        if (!link.isNull() && !link.hasPrefix("https://")) ++torn;
      },
      [](int i) {
        if (i % 2) MireloIdentityHandler::registerAppID("mrfirst", "https://first.example.com/a/long/path/");
        else MireloIdentityHandler::registerAppID("mrsecond", "https://second.example.com/");
      });
  EXPECT_EQ(torn.load(), 0);
}

TEST(ThreadStressDeathTest, APublicCallOffTheMainThreadAbortsInADebugBuild) {
  if (!mainThreadChecksEnabled()) GTEST_SKIP() << "a release build checks nothing";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        auto device = sim::SimDevice::create();
        sim::AppManifest manifest;
        manifest.bundleId = "com.example.host";
        platform::setCurrent(device->install(manifest).platform());
        std::thread([] { (void)MRApi::getApiVersion(); }).join();
      },
      "MRApi::getApiVersion called off the main thread");
}

}  // namespace
}  // namespace mirelo
