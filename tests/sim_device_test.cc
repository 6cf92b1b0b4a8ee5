// The simulated device: routing, can-open, pasteboard, keychain, lifecycle,
// virtual clock and the OpenSSL crypto it hands to every app.
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

// ---- routing ----

struct RouteCase {
  const char* url;
  bool asynchronous;
  bool ulOnly;
  bool success;
  const char* openedApp;  // "" for none
  bool browser;
  bool viaUniversalLink;
};

class SimRouting : public SimDeviceTest, public ::testing::WithParamInterface<RouteCase> {};

TEST_P(SimRouting, OpensTheRightAppOrBrowserOrNothing) {
  const RouteCase& c = GetParam();
  auto app = platformOf(kHost)->application;
  int completions = 0;
  bool result = false;
  if (c.asynchronous) {
    app->openURL(c.url, c.ulOnly, [&](bool ok) {
      ++completions;
      result = ok;
    });
    EXPECT_EQ(completions, 0) << "the completion never runs inside openURL";
  } else {
    result = app->openURL(c.url);
  }
  EXPECT_TRUE(opened.empty()) << "the opened app hears of it only on the run loop";
  device->runUntilIdle();

  EXPECT_EQ(result, c.success);
  if (c.asynchronous) {
    EXPECT_EQ(completions, 1);
  }
  ASSERT_EQ(device->openLog().size(), 1u);
  const sim::OpenEvent& e = device->openLog().back();
  EXPECT_EQ(e.sourceBundleId, kHost);
  EXPECT_EQ(e.url, c.url);
  EXPECT_EQ(e.asynchronous, c.asynchronous);
  EXPECT_EQ(e.universalLinksOnly, c.ulOnly);
  EXPECT_EQ(e.success, c.success);
  EXPECT_EQ(e.openedBundleId, c.openedApp);
  EXPECT_EQ(e.openedInBrowser, c.browser);
  if (std::strlen(c.openedApp) == 0) {
    EXPECT_TRUE(opened.empty());
  } else {
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].app, c.openedApp);
    EXPECT_EQ(opened[0].context.url, c.url);
    EXPECT_EQ(opened[0].context.sourceBundleId, kHost);
    EXPECT_EQ(opened[0].context.viaUniversalLink, c.viaUniversalLink);
    EXPECT_EQ(device->app(c.openedApp)->openCount(), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sim, SimRouting,
    ::testing::Values(
        // Scheme URLs.
        RouteCase{"mirelo://app/mr1/sendreq/?", false, false, true, kMessenger, false, false},
        RouteCase{"MiReLo://app", false, false, true, kMessenger, false, false},
        RouteCase{"mireloulapi://", true, false, true, kMessenger, false, false},
        RouteCase{"mrhost1://back", false, false, true, kHost, false, false},
        RouteCase{"unknown://x", false, false, false, "", false, false},
        RouteCase{"mirelo://app", true, true, false, "", false, false},
        // Universal links only.
        RouteCase{"https://help.mirelo.example/app/mr1/auth/?x=1", true, true, true, kMessenger, false, true},
        RouteCase{"https://u@help.mirelo.example:443/app/x?q=1#f", true, true, true, kMessenger, false, true},
        RouteCase{"https://help.mirelo.example/ap", true, true, false, "", false, false},
        RouteCase{"https://help.mirelo.example/other/app/", true, true, false, "", false, false},
        RouteCase{"https://nobody.example/app/", true, true, false, "", false, false},
        RouteCase{"https://sub.help.mirelo.example/app/", true, true, false, "", false, false},
        RouteCase{"https://host.example.com", true, true, true, kHost, false, true},
        // Plain opens of web URLs: a claimed https link opens the app,
        // anything else the browser.
        RouteCase{"https://help.mirelo.example/app/x", false, false, true, kMessenger, false, true},
        RouteCase{"https://nobody.example/app/", true, false, true, "", true, false},
        RouteCase{"http://help.mirelo.example/app/x", false, false, true, "", true, false},
        RouteCase{"http://help.mirelo.example/app/x", true, true, false, "", false, false},
        // Not URLs.
        RouteCase{"", false, false, false, "", false, false},
        RouteCase{"mirelo://a b", false, false, false, "", false, false},
        RouteCase{"https://nobody.example/a\nb", false, false, false, "", false, false}));

TEST_F(SimDeviceTest, SimAsyncOpenDeliversHandlerThenCompletionExactlyOnce) {
  std::vector<std::string> order;
  device->app(kMessenger)->onOpenURL([&](const OpenContext&) {
    order.push_back("messenger opened");
    // The messenger answers at once; that open is queued behind everything.
    platformOf(kMessenger)->application->openURL("mrhost1://answer");
  });
  device->app(kHost)->onOpenURL([&](const OpenContext& c) { order.push_back("host opened " + c.url); });
  platformOf(kHost)->application->openURL("https://help.mirelo.example/app/x", true,
                                          [&](bool ok) { order.push_back(ok ? "completion YES" : "completion NO"); });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(device->runUntilIdle(), 3u);
  EXPECT_EQ(order, (std::vector<std::string>{"messenger opened", "completion YES", "host opened mrhost1://answer"}));
  EXPECT_EQ(device->runUntilIdle(), 0u);
  EXPECT_EQ(device->openLog().size(), 2u);
}

TEST_F(SimDeviceTest, SimDeviceOpenOnBehalfOfNobody) {
  EXPECT_TRUE(device->openURL("mrhost1://tap"));
  EXPECT_TRUE(device->openURL("https://help.mirelo.example/app/", kOther));
  device->runUntilIdle();
  ASSERT_EQ(opened.size(), 2u);
  EXPECT_EQ(opened[0].context.sourceBundleId, "");
  EXPECT_EQ(opened[1].context.sourceBundleId, kOther);
  device->clearOpenLog();
  EXPECT_TRUE(device->openLog().empty());
}

// ---- can-open ----

TEST_F(SimDeviceTest, SimCanOpenNeedsRegisteredAndQueriedScheme) {
  struct Case {
    const char* source;
    const char* url;
    bool expected;
  } cases[] = {
      {kHost, "mirelo://", true},
      {kHost, "mireloULAPI://", true},
      {kHost, "mireloStateAPI://", false},  // registered, not queried
      {kOther, "mirelo://", false},         // queries nothing
      {kMessenger, "mrhost1://", true},
      {kMessenger, "mirelo://", false},     // its own scheme, but not queried
      {kHost, "https://nobody.example/", true},
      {kHost, "", false},
      {"com.not.installed", "mirelo://", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(device->canOpenURL(c.url, c.source), c.expected) << c.source << " " << c.url;
    if (device->app(c.source)) {
      EXPECT_EQ(platformOf(c.source)->application->canOpenURL(c.url), c.expected) << c.source << " " << c.url;
    }
  }
  EXPECT_TRUE(device->openLog().empty());
  EXPECT_EQ(device->pendingTasks(), 0u);

  // Queried but registered by nobody.
  device->app(kOther)->infoPlist() = AppManifest::makeInfoPlist({}, {"ghost", "mirelo"});
  EXPECT_FALSE(platformOf(kOther)->application->canOpenURL("ghost://"));
  EXPECT_TRUE(platformOf(kOther)->application->canOpenURL("mirelo://"));
  // Uninstalling the messenger takes its schemes away.
  device->uninstall(kMessenger);
  EXPECT_FALSE(platformOf(kOther)->application->canOpenURL("mirelo://"));
}

TEST_F(SimDeviceTest, SimInfoPlistEntriesOfTheWrongKindAreIgnored) {
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
}

// ---- pasteboard ----

TEST_F(SimDeviceTest, SimPasteboardWriteReplacesEverythingAndIsShared) {
  auto host = platformOf(kHost)->pasteboard;
  auto messenger = platformOf(kMessenger)->pasteboard;
  EXPECT_TRUE(host->string().isNull());
  EXPECT_TRUE(host->dataForPasteboardType("content").isNull());

  host->setString("user text");
  EXPECT_EQ(messenger->string(), "user text");
  EXPECT_EQ(messenger->dataForPasteboardType("public.utf8-plain-text").toString(), "user text");

  const Data record = Data::copy("record bytes");
  host->setData(record, "content");
  EXPECT_TRUE(messenger->string().isNull()) << "the text went with the write";
  const Data read = messenger->dataForPasteboardType("content");
  EXPECT_TRUE(read.sharesStorageWith(record)) << "bytes are shared, not copied";
  EXPECT_EQ(device->pasteboardTypes(), std::vector<std::string>{"content"});

  messenger->setData(Data::emptyData(), "content");
  EXPECT_FALSE(host->dataForPasteboardType("content").isNull()) << "empty is not null";
  EXPECT_TRUE(host->dataForPasteboardType("content").empty());

  messenger->setString("");
  EXPECT_EQ(host->string(), "");
  EXPECT_TRUE(host->dataForPasteboardType("content").isNull());

  host->setData(Data(), "content");
  EXPECT_TRUE(device->pasteboardTypes().empty());
  EXPECT_TRUE(host->string().isNull());

  const auto before = device->pasteboardChangeCount();
  device->setPasteboardString("from test");
  device->setPasteboardData(record, "other");
  EXPECT_EQ(device->pasteboardChangeCount(), before + 2);
  EXPECT_TRUE(device->pasteboardString().isNull());
  EXPECT_TRUE(device->pasteboardData("other").sharesStorageWith(record));
  EXPECT_TRUE(device->pasteboardData("content").isNull());
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

// ---- keychain ----

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

// Not-found, success and unreadable items are met through the kit in the
// identity tests; here the statuses the kit never provokes.
TEST_F(SimDeviceTest, SimKeychainStatuses) {
  auto kcHost = platformOf(kHost)->keychain;
  Value out;
  EXPECT_EQ(kcHost->itemAdd(tokenItem("svc", "t1")), kc::errSecSuccess);
  EXPECT_EQ(kcHost->itemAdd(tokenItem("svc", "t2")), kc::errSecDuplicateItem);
  EXPECT_EQ(kcHost->itemAdd(tokenItem("svc2", "t3")), kc::errSecSuccess);

  Dictionary noClass = tokenItem("svc3", "t");
  noClass.remove(kc::kSecClass);
  EXPECT_EQ(kcHost->itemAdd(noClass), kc::errSecParam);
  EXPECT_EQ(kcHost->itemCopyMatching(noClass, &out), kc::errSecParam);
  EXPECT_EQ(kcHost->itemDelete(noClass), kc::errSecParam);
  Dictionary stringValue = tokenItem("svc3", "");
  stringValue.set(kc::kSecValueData, Value("not data"));
  EXPECT_EQ(kcHost->itemAdd(stringValue), kc::errSecParam);

  // Found but no data asked for: success without a result.
  out = Value("stale");
  EXPECT_EQ(kcHost->itemCopyMatching(withControl(tokenItem("svc", ""), false, nullptr), &out), kc::errSecSuccess);
  EXPECT_TRUE(out.isNull());

  // Every attribute of the query must match.
  Dictionary other = tokenItem("svc", "");
  other.set(kc::kSecAttrAccessible, Value("ak"));
  EXPECT_EQ(kcHost->itemCopyMatching(withControl(other, true, nullptr), &out), kc::errSecItemNotFound);
  EXPECT_TRUE(out.isNull());

  // A query with only the class matches both items; all of them on request.
  Dictionary classOnly{{kc::kSecClass, Value(kc::kSecClassGenericPassword)}};
  EXPECT_EQ(kcHost->itemCopyMatching(withControl(classOnly, true, "m_LimitAll"), &out), kc::errSecSuccess);
  ASSERT_TRUE(out.isArray());
  EXPECT_EQ(out.asArray()->size(), 2u);

  // Another app's keychain is its own.
  EXPECT_EQ(platformOf(kMessenger)->keychain->itemCopyMatching(classOnly, &out), kc::errSecItemNotFound);

  // Delete removes every match.
  EXPECT_EQ(kcHost->itemDelete(classOnly), kc::errSecSuccess);
  EXPECT_TRUE(device->app(kHost)->keychainItems().empty());
  EXPECT_EQ(kcHost->itemDelete(classOnly), kc::errSecItemNotFound);

  // Control keys are not stored as attributes.
  EXPECT_EQ(kcHost->itemAdd(withControl(tokenItem("svc", "t4"), true, nullptr)), kc::errSecSuccess);
  EXPECT_FALSE(device->app(kHost)->keychainItems()[0].contains(kc::kSecReturnData));
}

// ---- lifecycle ----

int gResets = 0;
void countReset() { ++gResets; }

TEST_F(SimDeviceTest, SimRelaunchKeepsStorageDropsWorkAndResetsOnlyTheKitApp) {
  platform::registerProcessReset(&countReset);
  auto previous = platform::setCurrent(nullptr);
  device->runKitAs(kHost);
  EXPECT_EQ(device->kitBundleId(), kHost);
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
  host->userDefaults->setObject(Value(), "MRMireloVersionNSUserDefaultsKey");
  EXPECT_TRUE(device->app(kHost)->userDefaults().empty());

  // A reinstall keeps nothing, and the kit moves to the new app.
  device->install(AppManifest{kHost, Dictionary(), {}});
  EXPECT_EQ(gResets, resetsBefore + 2);
  EXPECT_NE(&platform::current(), host.get());
  EXPECT_EQ(platform::current().keychain->itemCopyMatching(tokenItem("svc", ""), &out), kc::errSecItemNotFound);
  EXPECT_TRUE(platform::current().userDefaults->objectForKey("MRMireloVersionNSUserDefaultsKey").isNull());
  // The old platform is dead but safe.
  EXPECT_FALSE(host->application->openURL("mirelo://"));
  EXPECT_EQ(host->keychain->itemAdd(tokenItem("svc", "x")), kc::errSecParam);
  EXPECT_TRUE(host->bundle->bundleIdentifier().isNull());
  host->runLoop->post([] { ADD_FAILURE() << "a dead platform schedules nothing"; });
  host->pasteboard->setString("dead");
  EXPECT_TRUE(device->pasteboardString().isNull());
  device->runUntilIdle();

  device->uninstall(kHost);
  EXPECT_EQ(device->kitBundleId(), "");
  EXPECT_EQ(device->app(kHost), nullptr);
  platform::setCurrent(previous);
}

TEST_F(SimDeviceTest, SimPlatformOutlivingItsDeviceIsInert) {
  auto host = platformOf(kHost);
  bool called = false;
  host->runLoop->post([&] { called = true; });
  device.reset();
  EXPECT_FALSE(host->application->canOpenURL("mirelo://"));
  EXPECT_FALSE(host->application->openURL("mirelo://"));
  host->application->openURL("mirelo://", false, [&](bool) { called = true; });
  host->pasteboard->setString("x");
  EXPECT_TRUE(host->pasteboard->string().isNull());
  EXPECT_TRUE(host->device->systemVersion().isNull());
  EXPECT_NE(host->runLoop->scheduleTimer(1, false, [] {}), 0u);
  host->systemLog->write("into the void");
  EXPECT_FALSE(called);
  EXPECT_EQ(host->crypto->base64Encode("a", 1), "YQ==");
}

// The version, model and scale are read through the kit in the utility tests.
TEST_F(SimDeviceTest, SimDeviceFactsBundleAndSystemLog) {
  auto p = platformOf(kHost);
  EXPECT_EQ(p->device->systemVersion(), "13.0");
  EXPECT_EQ(p->bundle->bundleIdentifier(), kHost);
  EXPECT_EQ(p->bundle->infoDictionary(), device->app(kHost)->infoPlist());

  p->systemLog->write("hello");
  platformOf(kMessenger)->systemLog->write("");
  EXPECT_EQ(device->systemLog(), (std::vector<std::string>{"com.example.host: hello", "com.mirelo.messenger: "}));
}

TEST(SimDefaultPlatform, IsOneHostAppWithAnEmptyInfoPlist) {
  auto a = platform::createDefaultPlatform();
  auto b = platform::createDefaultPlatform();
  ASSERT_TRUE(a);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->bundle->bundleIdentifier(), "com.mirelo.defaulthost");
  EXPECT_TRUE(a->bundle->infoDictionary().empty());
  EXPECT_FALSE(a->application->canOpenURL("mirelo://"));
  EXPECT_DOUBLE_EQ(a->runLoop->now(), 1767225600.0);
}

// ---- clock and run loop ----

TEST_F(SimDeviceTest, SimClockRunsTimedWorkInOrder) {
  auto rl = platformOf(kHost)->runLoop;
  const double t0 = device->now();
  EXPECT_DOUBLE_EQ(t0, 1767225600.0);
  EXPECT_DOUBLE_EQ(rl->now(), t0);

  std::vector<std::pair<std::string, double>> ran;
  auto note = [&](std::string what) {
    return [&ran, this, what, t0] { ran.emplace_back(what, device->now() - t0); };
  };
  int keyA = 0;
  int keyB = 0;
  rl->performAfter(&keyA, 2.0, note("a@2"));
  rl->performAfter(&keyB, 1.0, note("b@1"));
  rl->performAfter(&keyA, 1.0, note("a@1 second"));
  rl->performAfter(&keyA, 1.0, [&] {
    ran.emplace_back("a@1 third posts", device->now() - t0);
    rl->post(note("posted from a@1"));
  });
  rl->performAfter(&keyB, 1.0, note("b@1 last"));
  const auto timer = rl->scheduleTimer(0.75, true, note("tick"));
  rl->scheduleTimer(1.0, false, note("once@1"));
  rl->post(note("posted"));
  EXPECT_NE(timer, 0u);
  EXPECT_EQ(device->pendingTimedTasks(), 7u);

  // Another app's cancel does not touch the host's calls.
  platformOf(kMessenger)->runLoop->cancelPerforms(&keyA);
  EXPECT_EQ(device->runUntilIdle(), 1u);

  device->advance(1.0);
  rl->cancelPerforms(&keyA);  // a@2 goes; b stays unaffected
  device->advance(1.0);
  rl->invalidateTimer(timer);
  rl->invalidateTimer(timer);    // twice is harmless
  rl->invalidateTimer(999999);   // unknown
  device->advance(10.0);

  const std::vector<std::pair<std::string, double>> expected = {
      {"posted", 0},
      {"tick", 0.75},
      {"b@1", 1},
      {"a@1 second", 1},
      {"a@1 third posts", 1},
      {"posted from a@1", 1},
      {"b@1 last", 1},
      {"once@1", 1},
      {"tick", 1.5},
  };
  EXPECT_EQ(ran, expected);
  EXPECT_DOUBLE_EQ(device->now() - t0, 12.0);
  EXPECT_EQ(device->pendingTasks(), 0u);
}

TEST_F(SimDeviceTest, SimClockTimersMayStopThemselvesAndLoopsAreBounded) {
  auto rl = platformOf(kHost)->runLoop;
  int fired = 0;
  platform::RunLoop::TimerId id = 0;
  id = rl->scheduleTimer(1.0, true, [&] {
    if (++fired == 3) rl->invalidateTimer(id);
  });
  EXPECT_EQ(device->advance(10), 3u);
  EXPECT_EQ(fired, 3);

  // A task that always posts itself again: runUntilIdle stops at the bound.
  std::function<void()> again = [&] { rl->post(again); };
  rl->post(again);
  EXPECT_EQ(device->runUntilIdle(100), 100u);
  EXPECT_EQ(device->pendingTasks(), 1u);
  device->relaunch(kHost);
  EXPECT_EQ(device->pendingTasks(), 0u);

  // A zero-interval repeating timer cannot pin the clock.
  int zero = 0;
  const auto z = rl->scheduleTimer(0, true, [&] { ++zero; });
  device->advance(0.001);
  EXPECT_GE(zero, 5);
  EXPECT_LE(zero, 11);
  rl->invalidateTimer(z);

  // Negative and NaN delays count as none; the clock never goes back.
  const double before = device->now();
  bool ran = false;
  rl->performAfter(nullptr, -5, [&] { ran = true; });
  device->advance(-3);
  EXPECT_TRUE(ran);
  EXPECT_DOUBLE_EQ(device->now(), before);
}

// ---- crypto ----

TEST(SimCrypto, Base64RoundTripsAndKnownVectors) {
  auto c = linuxport::makeOpenSslCrypto();
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xfb\xff", "+/8="}};
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(c->base64Encode(plain, std::strlen(plain)), encoded);
    const Data d = c->base64Decode(encoded);
    EXPECT_FALSE(d.isNull()) << encoded;
    EXPECT_EQ(d.toString(), plain) << encoded;
  }
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(c->base64Decode(c->base64Encode(all.data(), all.size())).toString(), all);
  EXPECT_EQ(c->base64Encode(nullptr, 0), "");
}

TEST(SimCrypto, Base64RejectsAnythingButStrictPaddedText) {
  auto c = linuxport::makeOpenSslCrypto();
  for (const char* bad : {"Zg", "Zg=", "Z===", "=Zg=", "Zm9v=", "Zm9v\n", " Zm9v", "Zm-v", "Zm_v", "Zg==Zg==",
                          "Zm9\x80"}) {
    EXPECT_TRUE(c->base64Decode(bad).isNull()) << "'" << bad << "'";
  }
  EXPECT_TRUE(c->base64Decode(std::string_view("Zm\0v", 4)).isNull());
  const Data empty = c->base64Decode("");
  EXPECT_FALSE(empty.isNull());
  EXPECT_TRUE(empty.empty());
}

}  // namespace
}  // namespace mirelo
