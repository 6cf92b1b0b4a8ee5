// The simulated device beyond the platform contract (tests/contract): its
// routing and can-open rules, paste notices, relaunch, the virtual clock,
// and the OpenSSL Base64 it hands to every app.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "ports/linux/crypto_openssl.h"

namespace mirelo {
namespace {

namespace kc = platform::keychain;
using sim::AppManifest;
using sim::OpenContext;
using sim::SimDevice;

constexpr const char* kMessenger = "com.mirelo.messenger";
constexpr const char* kHost = "com.example.host";
constexpr const char* kOther = "com.example.other";

// A device with the messenger, a host that lists the messenger's schemes
// and another app that lists nothing.
class SimDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    device = SimDevice::create();
    device->install(AppManifest{kMessenger,
                            AppManifest::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {"mrhost1"}),
                            {{"help.mirelo.example", {"/app/"}}}});
    device->install(AppManifest{kHost, AppManifest::makeInfoPlist({"mrhost1"}, {"mirelo", "mireloULAPI"}),
                            {{"host.example.com", {"*"}}}});
    device->install(AppManifest{kOther, Dictionary(), {}});
    for (const char* id : {kMessenger, kHost, kOther}) {
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

// The opened app's handler runs before the completion; what it queues runs
// after it.  The device itself opens on behalf of nobody or of another app.
TEST_F(SimDeviceTest, SimAsyncOpenDeliversHandlerThenCompletionExactlyOnce) {
  std::vector<std::string> order;
  device->app(kMessenger)->onOpenURL([&](const OpenContext&) {
    order.push_back("messenger opened");
    platformOf(kMessenger)->application->openURL("mrhost1://answer");
  });
  device->app(kHost)->onOpenURL([&](const OpenContext& c) { order.push_back("host opened by " + c.sourceBundleId); });
  platformOf(kHost)->application->openURL("https://help.mirelo.example/app/x", true,
                                          [&](bool ok) { order.push_back(ok ? "completion YES" : "completion NO"); });
  EXPECT_EQ(device->runUntilIdle(), 3u);
  const std::vector<std::string> expected{"messenger opened", "completion YES",
                                          "host opened by " + std::string(kMessenger)};
  EXPECT_EQ(order, expected);
  EXPECT_EQ(device->runUntilIdle(), 0u);
  EXPECT_TRUE(device->openURL("mrhost1://tap"));
  EXPECT_TRUE(device->openURL("mrhost1://tap", kOther));
  device->runUntilIdle();
  EXPECT_EQ(order.end()[-2], "host opened by ");
  EXPECT_EQ(order.back(), "host opened by " + std::string(kOther));
}

TEST_F(SimDeviceTest, SimCanOpenNeedsRegisteredAndQueriedScheme) {
  const struct {
    const char* source;
    const char* url;
    bool expected;
  } cases[] = {
      {kHost, "mireloULAPI://", true},
      {kHost, "mireloStateAPI://", false},  // registered, not queried
      {kMessenger, "mirelo://", false},     // its own scheme, but not queried
      {kHost, "https://nobody.example/", true},
      {kHost, "", false},
      {"com.not.installed", "mirelo://", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(device->canOpenURL(c.url, c.source), c.expected) << c.source << " " << c.url;
  }
  EXPECT_TRUE(device->openLog().empty());
  // Queried but registered by nobody.
  device->app(kOther)->infoPlist() = AppManifest::makeInfoPlist({}, {"ghost", "mirelo"});
  EXPECT_FALSE(platformOf(kOther)->application->canOpenURL("ghost://"));
  EXPECT_TRUE(platformOf(kOther)->application->canOpenURL("mirelo://"));

  // Info.plist entries of the wrong kind are skipped.
  Dictionary plist;
  plist.set("LSApplicationQueriesSchemes", Value(Array{Value(42), Value("mirelo"), Value(Array{Value("x")})}));
  plist.set("CFBundleURLTypes",
            Value(Array{Value("not a dictionary"),
                        Value(Dictionary{{"CFBundleURLSchemes", Value("stringNotArray")}}),
                        Value(Dictionary{{"CFBundleURLSchemes", Value(Array{Value(7), Value("odd")})}})}));
  auto& app = device->install(AppManifest{"com.example.odd", plist, {}});
  EXPECT_EQ(app.urlSchemes(), std::vector<std::string>{"odd"});
  EXPECT_TRUE(app.platform()->application->canOpenURL("mirelo://"));
  EXPECT_FALSE(device->openURL("stringNotArray://"));
  EXPECT_TRUE(device->openURL("ODD://"));
  device->uninstall(kMessenger);
  EXPECT_FALSE(platformOf(kOther)->application->canOpenURL("mirelo://"));
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

Dictionary tokenItem(const std::string& service, const std::string& token) {
  Dictionary d{{kc::kSecClass, Value(kc::kSecClassGenericPassword)},
               {kc::kSecAttrService, Value(service)},
               {kc::kSecAttrAccount, Value("MireloOpenSDKKeyChainAccount")},
               {kc::kSecAttrAccessible, Value(kc::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly)}};
  if (!token.empty()) d.set(kc::kSecValueData, Value(Data::copy(token)));
  return d;
}

Dictionary withControl(Dictionary query, bool returnData, const char* limit) {
  if (returnData) query.set(kc::kSecReturnData, Value(true));
  if (limit) query.set(kc::kSecMatchLimit, Value(limit));
  return query;
}

int gResets = 0;
void countReset() { ++gResets; }

TEST_F(SimDeviceTest, SimRelaunchKeepsStorageDropsWorkAndResetsOnlyTheKitApp) {
  platform::registerProcessReset(&countReset);
  auto previous = platform::setCurrent(nullptr);
  device->runKitAs(kHost);
  EXPECT_EQ(&platform::current(), platformOf(kHost).get());

  auto host = platformOf(kHost);
  EXPECT_EQ(host->keychain->itemAdd(tokenItem("svc", "tok")), kc::errSecSuccess);
  host->userDefaults->setObject(Value(42), "MRMireloVersionNSUserDefaultsKey");

  std::vector<std::string> ran;
  host->runLoop->post([&] { ran.push_back("host post"); });
  host->runLoop->performAfter(this, 0.1, [&] { ran.push_back("host delayed"); });
  host->runLoop->scheduleTimer(1, true, [&] { ran.push_back("host timer"); });
  host->application->openURL("mirelo://x", false, [&](bool) { ran.push_back("host completion"); });
  platformOf(kMessenger)->runLoop->performAfter(this, 0.1, [&] { ran.push_back("messenger delayed"); });

  const int resetsBefore = gResets;
  device->relaunch(kMessenger);
  EXPECT_EQ(gResets, resetsBefore) << "only the kit's own app resets the kit";
  EXPECT_EQ(device->pendingTasks(), 4u) << "the messenger lost its delayed call and the handler call";
  device->relaunch(kHost);
  EXPECT_EQ(gResets, resetsBefore + 1);
  EXPECT_EQ(device->pendingTasks(), 0u);
  device->advance(5);
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(opened.empty());

  Value out;
  EXPECT_EQ(host->keychain->itemCopyMatching(withControl(tokenItem("svc", ""), true, nullptr), &out),
            kc::errSecSuccess);
  EXPECT_EQ(out.asData()->toString(), "tok");
  EXPECT_EQ(host->userDefaults->objectForKey("MRMireloVersionNSUserDefaultsKey"), Value(42));

  // A reinstall keeps nothing, and the kit moves to the new app.
  device->install(AppManifest{kHost, Dictionary(), {}});
  EXPECT_EQ(gResets, resetsBefore + 2);
  EXPECT_NE(&platform::current(), host.get());
  EXPECT_EQ(platform::current().keychain->itemCopyMatching(tokenItem("svc", ""), &out), kc::errSecItemNotFound);
  EXPECT_TRUE(platform::current().userDefaults->objectForKey("MRMireloVersionNSUserDefaultsKey").isNull());
  // The old platform is dead but safe.
  EXPECT_EQ(host->keychain->itemAdd(tokenItem("svc", "x")), kc::errSecParam);
  host->runLoop->post([] { ADD_FAILURE() << "a dead platform schedules nothing"; });
  device->runUntilIdle();

  device->uninstall(kHost);
  EXPECT_EQ(device->kitBundleId(), "");
  platform::setCurrent(previous);
}

// The platform the kit falls back on when the host sets none.
TEST(SimDefaultPlatform, IsOneHostAppWithAnEmptyInfoPlist) {
  auto a = platform::createDefaultPlatform();
  ASSERT_TRUE(a);
  EXPECT_EQ(a, platform::createDefaultPlatform());
  EXPECT_EQ(a->bundle->bundleIdentifier(), "com.mirelo.defaulthost");
  EXPECT_TRUE(a->bundle->infoDictionary().empty());
  EXPECT_DOUBLE_EQ(a->runLoop->now(), 1767225600.0);
}

// Same-time work runs in the order it was scheduled; cancels and timers
// belong to one app.
TEST_F(SimDeviceTest, SimClockRunsTimedWorkInOrder) {
  auto rl = platformOf(kHost)->runLoop;
  const double t0 = device->now();
  std::vector<std::pair<std::string, double>> ran;
  auto note = [&](std::string what) {
    return [&ran, this, what, t0] { ran.emplace_back(what, device->now() - t0); };
  };
  int keyA = 0;
  int keyB = 0;
  rl->performAfter(&keyA, 2.0, note("a@2"));
  rl->performAfter(&keyB, 1.0, note("b@1"));
  rl->performAfter(&keyA, 1.0, [&] {
    ran.emplace_back("a@1 posts", device->now() - t0);
    rl->post(note("posted from a@1"));
  });
  rl->performAfter(&keyB, 1.0, note("b@1 last"));
  const auto timer = rl->scheduleTimer(0.75, true, note("tick"));
  rl->scheduleTimer(1.0, false, note("once@1"));
  rl->post(note("posted"));
  EXPECT_EQ(device->pendingTimedTasks(), 6u);

  platformOf(kMessenger)->runLoop->cancelPerforms(&keyA);  // not the host's calls
  EXPECT_EQ(device->runUntilIdle(), 1u);
  device->advance(1.0);
  rl->cancelPerforms(&keyA);
  device->advance(1.0);
  rl->invalidateTimer(timer);
  device->advance(10.0);

  const std::vector<std::pair<std::string, double>> expected = {
      {"posted", 0}, {"tick", 0.75}, {"b@1", 1}, {"a@1 posts", 1}, {"posted from a@1", 1},
      {"b@1 last", 1}, {"once@1", 1}, {"tick", 1.5},
  };
  EXPECT_EQ(ran, expected);
  EXPECT_DOUBLE_EQ(device->now() - t0, 12.0);
  EXPECT_EQ(device->pendingTasks(), 0u);
}

// Strict, padded, standard-alphabet Base64 only; empty text is empty data.
TEST(SimCrypto, Base64KnownVectorsAndStrictRejection) {
  auto c = linuxport::makeOpenSslCrypto();
  for (const auto& [plain, encoded] : {std::pair{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"\xfb\xff", "+/8="}}) {
    EXPECT_EQ(c->base64Encode(plain, std::strlen(plain)), encoded);
    const Data d = c->base64Decode(encoded);
    EXPECT_FALSE(d.isNull()) << encoded;
    EXPECT_EQ(d.toString(), plain) << encoded;
  }
  for (const char* bad : {"Zg", "Zg=", "Z===", "=Zg=", "Zm9v=", "Zm9v\n", "Zm-v", "Zm_v", "Zg==Zg==", "Zm9\x80"}) {
    EXPECT_TRUE(c->base64Decode(bad).isNull()) << "'" << bad << "'";
  }
  EXPECT_TRUE(c->base64Decode(std::string_view("Zm\0v", 4)).isNull());
}

}  // namespace
}  // namespace mirelo
