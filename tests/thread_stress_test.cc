// The kit's API is main-thread only, but its log sink and registration must
// not crash or tear when another thread races them anyway.  Built also
// under ThreadSanitizer by scripts/test.sh (the kit's internal entry points
// are used, since a debug build's public ones abort off the main thread,
// which the last test checks).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "util/Log.h"
#include "util/MainThread.h"

namespace mirelo {
namespace {

constexpr int kRounds = 20000;

class Sink : public MRApiLogDelegate {
 public:
  void onLog(const std::string& log, MRLogLevel) override { lines.fetch_add(log.empty() ? 0 : 1); }
  std::atomic<int> lines{0};
};

TEST(ThreadStress, TheLogSinkChangesWhileAnotherThreadLogs) {
  platform::resetProcessState();
  MRLogUtil& log = MRLogUtil::sharedInstance();
  std::atomic<int> blockLines{0};
  auto delegate = std::make_shared<Sink>();
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; !done.load(); ++i) {
      mrlog::line("line %d mirelo_auth_token=secret%d", i, i);
      mrlog::detail("detail %d", i);
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    switch (i % 4) {
      case 0: log.configLogBlock([&](const std::string&) { blockLines.fetch_add(1); }, MRLogLevelNormal); break;
      case 1: log.removeLog(); break;
      case 2: log.configLogDelegate(delegate, MRLogLevelDetail); break;
      default: log.removeLog(); break;
    }
  }
  done = true;
  writer.join();
  log.removeLog();
  platform::resetProcessState();
}

TEST(ThreadStress, RegistrationRacesItsReaders) {
  platform::resetProcessState();
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done.load()) {
      const String id = MireloIdentityHandler::registerAppID();
      const String link = MireloIdentityHandler::registerUniversalLink();
      // Each value is one of the two written, whole.
      if (!id.isNull() && id != "mrfirst" && id != "mrsecond") torn.fetch_add(1);
      if (!link.isNull() && link.view().find("https://") != 0) torn.fetch_add(1);
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    if (i % 2) MireloIdentityHandler::registerAppID("mrfirst", "https://first.example.com/path/that/is/long/");
    else MireloIdentityHandler::registerAppID("mrsecond", "https://second.example.com/");
  }
  done = true;
  reader.join();
  EXPECT_EQ(torn.load(), 0);
  platform::resetProcessState();
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
