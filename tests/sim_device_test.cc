// The simulated device beyond the platform contract (tests/contract): its
// routing rules, paste notices and relaunch.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo {
namespace {

namespace kc = platform::keychain;
using sim::AppManifest;
using sim::OpenContext;
using sim::SimDevice;

constexpr const char* kMessenger = "com.mirelo.messenger";
constexpr const char* kHost = "com.example.host";

// A device with the messenger and a host that lists the messenger's schemes.
class SimDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    device = SimDevice::create();
    device->install(AppManifest{kMessenger,
                            AppManifest::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {"mrhost1"}),
                            {{"help.mirelo.example", {"/app/"}}}});
    device->install(AppManifest{kHost, AppManifest::makeInfoPlist({"mrhost1"}, {"mirelo", "mireloULAPI"}),
                            {{"host.example.com", {"*"}}}});
    for (const char* id : {kMessenger, kHost}) {
      device->app(id)->onOpenURL([this, id](const OpenContext& c) { opened.push_back({id, c}); });
    }
  }

  std::shared_ptr<platform::Platform> platformOf(const char* id) { return device->app(id)->platform(); }

  struct Opened {
    std::string app;
    OpenContext context;
  };
  std::shared_ptr<SimDevice> device;
  std::vector<Opened> opened;
};

TEST_F(SimDeviceTest, SimRoutingOpensTheRightAppOrBrowserOrNothing) {
  enum Mode { Plain, Async, LinksOnly };
  const std::string browser = "browser";
  const struct {
    const char* url;
    Mode mode;
    std::string opened;  // an app, "browser", or "" when the open fails
  } cases[] = {
      {"MiReLo://app", Plain, kMessenger},
      {"mirelo://app", LinksOnly, ""},
      // Universal links: the exact domain, a path under a claimed prefix.
      {"https://u@help.mirelo.example:443/app/x?q=1#f", LinksOnly, kMessenger},
      {"https://help.mirelo.example/ap", LinksOnly, ""},
      {"https://help.mirelo.example/other/app/", LinksOnly, ""},
      {"https://sub.help.mirelo.example/app/", LinksOnly, ""},
      {"https://host.example.com", LinksOnly, kHost},
      // Plain opens of web URLs: a claimed https link opens the app,
      // anything else the browser; http is never a universal link.
      {"https://help.mirelo.example/app/x", Plain, kMessenger},
      {"https://nobody.example/app/", Async, browser},
      {"http://help.mirelo.example/app/x", Plain, browser},
      {"http://help.mirelo.example/app/x", LinksOnly, ""},
      // Not URLs.
      {"", Plain, ""},
      {"mirelo://a b", Plain, ""},
  };
  auto app = platformOf(kHost)->application;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.url) + " mode " + std::to_string(c.mode));
    opened.clear();
    device->clearOpenLog();
    bool result = false;
    if (c.mode == Plain) {
      result = app->openURL(c.url);
    } else {
      app->openURL(c.url, c.mode == LinksOnly, [&](bool ok) { result = ok; });
    }
    EXPECT_TRUE(opened.empty()) << "the opened app hears of it only on the run loop";
    device->runUntilIdle();
    EXPECT_EQ(result, !c.opened.empty());
    ASSERT_EQ(device->openLog().size(), 1u);
    const sim::OpenEvent& e = device->openLog().back();
    EXPECT_EQ(e.success, !c.opened.empty());
    EXPECT_EQ(e.openedInBrowser, c.opened == browser);
    const bool toApp = !c.opened.empty() && c.opened != browser;
    EXPECT_EQ(e.openedBundleId, toApp ? c.opened : "");
    ASSERT_EQ(opened.size(), toApp ? 1u : 0u);
    if (toApp) {
      EXPECT_EQ(opened[0].app, c.opened);
      EXPECT_EQ(opened[0].context.url, c.url);
      EXPECT_EQ(opened[0].context.sourceBundleId, kHost);
      EXPECT_EQ(opened[0].context.viaUniversalLink, c.url[0] == 'h');
    }
  }
}

// The system tells the user of content reads only: not of metadata, not of
// the reader's own content, not before iOS 14; a refused prompt reads nothing.
TEST_F(SimDeviceTest, SimPasteNoticesFollowTheSystemVersion) {
  auto host = platformOf(kHost)->pasteboard;
  device->setPasteboardString("copied");
  EXPECT_EQ(host->string(), "copied");  // 13.0: nothing shown
  device->setSystemVersion("15.2");
  host->types(), host->hasStrings(), host->changeCount();
  EXPECT_TRUE(device->pasteNotices().empty());
  EXPECT_TRUE(host->dataForPasteboardType("content").isNull());
  device->setSystemVersion("16.0");
  device->setAllowPaste(false);
  EXPECT_TRUE(host->string().isNull());
  ASSERT_EQ(device->pasteNotices().size(), 2u);
  const sim::PasteNotice& banner = device->pasteNotices()[0];
  EXPECT_EQ(banner.kind, sim::PasteNoticeKind::Banner);
  EXPECT_EQ(banner.writer, "");
  EXPECT_FALSE(banner.found);
  EXPECT_EQ(device->pasteNotices()[1].kind, sim::PasteNoticeKind::Prompt);
  EXPECT_FALSE(device->pasteNotices()[1].allowed);
  host->setString("mine");
  EXPECT_EQ(host->string(), "mine");
  EXPECT_EQ(device->pasteNotices().size(), 2u);
  EXPECT_TRUE(platformOf(kMessenger)->pasteboard->string().isNull());
  EXPECT_EQ(device->pasteNotices().back().reader, kMessenger);
}

int gResets = 0;
void countReset() { ++gResets; }

// A relaunch keeps the app's storage and drops its pending work, and only its
// own; only the kit's app resets the kit.  A reinstall keeps nothing.
TEST_F(SimDeviceTest, SimRelaunchKeepsStorageDropsWorkAndResetsOnlyTheKitApp) {
  platform::registerProcessReset(&countReset);
  auto previous = platform::setCurrent(nullptr);
  device->runKitAs(kHost);
  auto host = platformOf(kHost);
  EXPECT_EQ(&platform::current(), host.get());
  const Dictionary item{{kc::kSecClass, Value(kc::kSecClassGenericPassword)}, {kc::kSecAttrService, Value("svc")}};
  Dictionary add = item;
  add.set(kc::kSecValueData, Value(Data::copy(std::string("tok"))));
  EXPECT_EQ(host->keychain->itemAdd(add), kc::errSecSuccess);
  host->userDefaults->setObject(Value(42), "MRMireloVersionNSUserDefaultsKey");

  std::vector<std::string> ran;
  host->runLoop->post([&] { ran.push_back("host post"); });
  host->runLoop->performAfter(this, 0.1, [&] { ran.push_back("host delayed"); });
  host->runLoop->scheduleTimer(1, true, [&] { ran.push_back("host timer"); });
  host->application->openURL("mirelo://x", false, [&](bool) { ran.push_back("host completion"); });
  platformOf(kMessenger)->runLoop->performAfter(this, 0.1, [&] { ran.push_back("messenger delayed"); });

  const int resetsBefore = gResets;
  device->relaunch(kMessenger);
  EXPECT_EQ(gResets, resetsBefore);
  EXPECT_EQ(device->pendingTasks(), 4u) << "the messenger lost its delayed call and the handler call";
  device->relaunch(kHost);
  EXPECT_EQ(gResets, resetsBefore + 1);
  EXPECT_EQ(device->pendingTasks(), 0u);
  device->advance(5);
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(opened.empty());

  Dictionary find = item;
  find.set(kc::kSecReturnData, Value(true));
  Value out;
  EXPECT_EQ(host->keychain->itemCopyMatching(find, &out), kc::errSecSuccess);
  EXPECT_EQ(out, Value(Data::copy(std::string("tok"))));
  EXPECT_EQ(host->userDefaults->objectForKey("MRMireloVersionNSUserDefaultsKey"), Value(42));

  // The kit moves to the reinstalled app.
  device->install(AppManifest{kHost, Dictionary(), {}});
  EXPECT_EQ(gResets, resetsBefore + 2);
  EXPECT_NE(&platform::current(), host.get());
  EXPECT_EQ(platform::current().keychain->itemCopyMatching(item, &out), kc::errSecItemNotFound);
  EXPECT_TRUE(platform::current().userDefaults->objectForKey("MRMireloVersionNSUserDefaultsKey").isNull());
  // The old platform is dead but safe.
  EXPECT_EQ(host->keychain->itemAdd(add), kc::errSecParam);
  host->runLoop->post([] { ADD_FAILURE() << "a dead platform schedules nothing"; });
  device->runUntilIdle();

  device->uninstall(kHost);
  EXPECT_EQ(device->kitBundleId(), "");
  platform::setCurrent(previous);
}

}  // namespace
}  // namespace mirelo
