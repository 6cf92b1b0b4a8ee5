// The platform contract's cases: what the kit relies on from each service.
#include "mirelo/testing/PlatformContract.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <thread>

namespace mirelo::testing {

int platformContractLinked() { return 1; }

void PlatformContract::SetUp() {
  env = GetParam().make();
  ASSERT_TRUE(env);
  p = env->platform();
  ASSERT_TRUE(p);
}

void PlatformContract::TearDown() {
  p.reset();
  env.reset();
}

namespace {

namespace kc = platform::keychain;
using platform::LifecycleEvent;

#define NEEDS(what) \
  if (!(what)) GTEST_SKIP() << "not in this environment: " #what

bool contains(const std::vector<std::string>& v, const std::string& s) {
  return std::find(v.begin(), v.end(), s) != v.end();
}

TEST_P(PlatformContract, OpeningAndCanOpenOfURLs) {
  NEEDS(p->application);
  const auto links = env->links();
  NEEDS(links);
  auto& app = *p->application;
  // Can-open needs an installed app and the scheme listed in the Info.plist.
  EXPECT_TRUE(app.canOpenURL(links->listedScheme));
  EXPECT_FALSE(app.canOpenURL(links->unlistedScheme));
  EXPECT_FALSE(app.canOpenURL(links->missingScheme));
  EXPECT_FALSE(app.canOpenURL("not a url"));
  EXPECT_FALSE(app.openURL(links->missingScheme));
  // The asynchronous open reports once, later, on the main thread.  With the
  // universal-links-only option an https URL opens a claiming app or fails:
  // never the browser.
  struct Case {
    std::string url;
    bool linksOnly, expected;
  };
  for (const Case& c : {Case{links->universalLink, true, true}, Case{links->webLink, true, false},
                        Case{links->missingScheme, false, false}, Case{links->listedScheme, false, true}}) {
    SCOPED_TRACE(c.url);
    int calls = 0;
    bool success = false, onMain = false;
    app.openURL(c.url, c.linksOnly, [&](bool ok) {
      ++calls;
      success = ok;
      onMain = p->runLoop->isMainThread();
    });
    EXPECT_EQ(calls, 0) << "completion ran inside openURL";
    EXPECT_TRUE(runUntil([&] { return calls > 0; }));
    runUntil([] { return false; }, 0.2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(success, c.expected);
    EXPECT_TRUE(onMain);
  }
  EXPECT_TRUE(app.openURL(links->listedScheme));
}

TEST_P(PlatformContract, Pasteboard) {
  NEEDS(p->pasteboard);
  auto& pb = *p->pasteboard;
  const std::int64_t start = pb.changeCount();
  pb.setString("user text");
  EXPECT_EQ(pb.string(), String("user text"));
  EXPECT_TRUE(pb.hasStrings());
  EXPECT_FALSE(contains(pb.types(), "content"));
  EXPECT_GT(pb.changeCount(), start);
  // Data of a type replaces the whole contents, text included; the bytes,
  // empty ones too, come back as written, and only that type is held.
  for (const Data& data : {Data::copy(std::string("\x00\x01rec", 5)), Data::emptyData()}) {
    const std::int64_t before = pb.changeCount();
    pb.setData(data, "content");
    EXPECT_GT(pb.changeCount(), before);
    EXPECT_EQ(pb.types(), std::vector<std::string>{"content"});
    EXPECT_FALSE(pb.hasStrings());
    EXPECT_TRUE(pb.string().isNull());
    EXPECT_EQ(pb.dataForPasteboardType("content"), data);  // null and empty differ
    EXPECT_TRUE(pb.dataForPasteboardType("other").isNull());
  }
  // Metadata reads change nothing.
  const std::int64_t now = pb.changeCount();
  pb.types(), pb.hasStrings(), pb.string();
  EXPECT_EQ(pb.changeCount(), now);
  // Another app's write shows in the change count and the metadata.
  if (env->writeTextAsOtherApp("from elsewhere")) {
    EXPECT_GT(pb.changeCount(), now);
    EXPECT_TRUE(pb.hasStrings());
    EXPECT_EQ(pb.string(), String("from elsewhere"));
  }
}

TEST_P(PlatformContract, Keychain) {
  NEEDS(p->keychain);
  auto& k = *p->keychain;
  auto query = [](const char* account) {
    Dictionary q;
    q.set(kc::kSecClass, Value(kc::kSecClassGenericPassword));
    q.set(kc::kSecAttrService, Value("mirelo.contract"));
    q.set(kc::kSecAttrAccount, Value(account));
    return q;
  };
  k.itemDelete(query("a")), k.itemDelete(query("b"));  // left over from an earlier run
  Dictionary add = query("a");
  add.set(kc::kSecAttrAccessible, Value(kc::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly));
  add.set(kc::kSecValueData, Value(Data::copy(std::string("token-1"))));
  EXPECT_EQ(k.itemAdd(add), kc::errSecSuccess);
  EXPECT_EQ(k.itemAdd(add), kc::errSecDuplicateItem);
  Dictionary find = query("a");
  find.set(kc::kSecReturnData, Value(true));
  find.set(kc::kSecMatchLimit, Value(kc::kSecMatchLimitOne));
  Value result;
  EXPECT_EQ(k.itemCopyMatching(find, &result), kc::errSecSuccess);
  EXPECT_EQ(result, Value(Data::copy(std::string("token-1"))));
  Dictionary other = query("b");
  other.set(kc::kSecReturnData, Value(true));
  EXPECT_EQ(k.itemCopyMatching(other, &result), kc::errSecItemNotFound);
  EXPECT_EQ(k.itemDelete(query("a")), kc::errSecSuccess);
  EXPECT_EQ(k.itemDelete(query("a")), kc::errSecItemNotFound);
  EXPECT_EQ(k.itemCopyMatching(find, &result), kc::errSecItemNotFound);
}

TEST_P(PlatformContract, UserDefaults) {
  NEEDS(p->userDefaults);
  auto& d = *p->userDefaults;
  const Value nested(Dictionary{{"v", Value(Array{Value("1.9.2"), Value(std::int64_t{3})})}});
  d.setObject(Value("1.9.2"), "mirelo.contract.a");
  d.setObject(nested, "mirelo.contract.b");
  EXPECT_EQ(d.objectForKey("mirelo.contract.a"), Value("1.9.2"));
  EXPECT_EQ(d.objectForKey("mirelo.contract.b"), nested);
  d.setObject(Value(), "mirelo.contract.a");
  EXPECT_TRUE(d.objectForKey("mirelo.contract.a").isNull());
  d.setObject(Value(), "mirelo.contract.b");
}

TEST_P(PlatformContract, RunLoopAndTimers) {
  NEEDS(p->runLoop);
  auto& rl = *p->runLoop;
  EXPECT_TRUE(rl.isMainThread());
  bool offMain = true;
  std::thread([&] { offMain = rl.isMainThread(); }).join();
  EXPECT_FALSE(offMain);
  // Posted work runs later, in order; delayed calls after their delay, and
  // cancelPerforms takes only its own target's.
  std::vector<std::string> order;
  int a = 0, b = 0;
  const double start = rl.now();
  double firedAt = 0;
  rl.performAfter(&a, 0.05, [&] { order.push_back("cancelled"); });
  rl.performAfter(&b, 0.05, [&] { order.push_back("delayed"), firedAt = rl.now(); });
  rl.post([&] { order.push_back("first"); });
  rl.post([&] { order.push_back("second"); });
  rl.cancelPerforms(&a);
  EXPECT_TRUE(order.empty()) << "posted work ran inside post";
  EXPECT_TRUE(runUntil([&] { return order.size() >= 3; }));
  EXPECT_EQ(order, (std::vector<std::string>{"first", "second", "delayed"}));
  EXPECT_GE(firedAt - start, 0.05 - 1e-3);
  // A repeating timer fires until invalidated; a one-shot fires once.
  int repeats = 0, once = 0;
  const auto repeating = rl.scheduleTimer(0.01, true, [&] { ++repeats; });
  const auto single = rl.scheduleTimer(0.01, false, [&] { ++once; });
  EXPECT_NE(repeating, 0u);
  EXPECT_NE(repeating, single);
  EXPECT_TRUE(runUntil([&] { return repeats >= 3; }));
  rl.invalidateTimer(repeating);
  const int seen = repeats;
  runUntil([] { return false; }, 0.1);
  EXPECT_EQ(repeats, seen);
  EXPECT_EQ(once, 1);
  rl.invalidateTimer(single);  // already fired: ignored
}

TEST_P(PlatformContract, AppLifecycle) {
  NEEDS(p->lifecycle);
  auto& lc = *p->lifecycle;
  EXPECT_TRUE(lc.isActive());
  std::vector<std::string> events;
  const auto id = lc.addObserver([&](LifecycleEvent e) {
    events.push_back(e == LifecycleEvent::DidBecomeActive ? "active" : "background");
  });
  const auto removed = lc.addObserver([&](LifecycleEvent) { events.push_back("removed observer"); });
  EXPECT_NE(id, 0u);
  lc.removeObserver(removed);
  lc.removeObserver(987654321);  // unknown: ignored
  if (env->leaveAndComeBack()) {
    EXPECT_TRUE(runUntil([&] { return events.size() >= 2; }));
    EXPECT_EQ(events, (std::vector<std::string>{"background", "active"}));
    EXPECT_TRUE(lc.isActive());
  }
  // A URL reaches the app before it becomes active.
  events.clear();
  if (env->reopenByURL([&] { events.push_back("url"); })) {
    EXPECT_TRUE(runUntil([&] { return contains(events, "active"); }));
    EXPECT_EQ(events, (std::vector<std::string>{"background", "url", "active"}));
  }
  lc.removeObserver(id);
}

// Records one connection's events.
struct HttpRecorder : platform::HttpConnectionDelegate {
  std::vector<std::string> events;
  std::int64_t status = 0;
  std::size_t bytes = 0;
  std::int64_t errorCode = 0;
  bool ended() const { return !events.empty() && (events.back() == "fail" || events.back() == "finish"); }
  void didReceiveResponse(const platform::HttpResponse& r) override { events.push_back("response"), status = r.statusCode; }
  void didReceiveData(const Data& d) override {
    if (events.empty() || events.back() != "data") events.push_back("data");
    bytes += d.size();
  }
  void didFailWithError(const platform::HttpError& e) override { events.push_back("fail"), errorCode = e.code; }
  void didFinishLoading() override { events.push_back("finish"); }
};

TEST_P(PlatformContract, Http) {
  NEEDS(p->http);
  auto& http = *p->http;
  HttpRecorder none;
  EXPECT_EQ(http.connect({"ftp://example.com/x"}, &none), nullptr);
  EXPECT_EQ(http.connect({"not a url"}, &none), nullptr);
  const auto trusted = env->trustedHttpsURL();
  NEEDS(trusted);
  HttpRecorder ok;
  platform::HttpRequest request{*trusted};
  request.cachePolicy = platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData;
  auto c1 = http.connect(request, &ok);
  ASSERT_TRUE(c1);
  EXPECT_TRUE(ok.events.empty()) << "events inside connect";
  EXPECT_TRUE(runUntil([&] { return ok.ended(); }, 20));
  EXPECT_EQ(ok.events, (std::vector<std::string>{"response", "data", "finish"}));
  EXPECT_EQ(ok.status, 200);
  EXPECT_GT(ok.bytes, 0u);
  // A cancelled connection says nothing more.
  HttpRecorder cancelled;
  auto c2 = http.connect(request, &cancelled);
  ASSERT_TRUE(c2);
  c2->cancel();
  runUntil([] { return false; }, 0.3);
  EXPECT_TRUE(cancelled.events.empty());
  // A server the system does not trust: a failure, and no response.
  const auto untrusted = env->untrustedHttpsURL();
  NEEDS(untrusted);
  HttpRecorder bad;
  auto c3 = http.connect({*untrusted}, &bad);
  ASSERT_TRUE(c3);
  EXPECT_TRUE(runUntil([&] { return bad.ended(); }, 20));
  EXPECT_EQ(bad.events, std::vector<std::string>{"fail"});
  EXPECT_LT(bad.errorCode, 0);
}

struct Navigations : platform::WebNavigationDelegate {
  std::vector<std::string> asked;
  platform::NavigationActionPolicy decidePolicyForNavigation(const std::string& url) override {
    asked.push_back(url);
    return platform::NavigationActionPolicy::Cancel;
  }
};

TEST_P(PlatformContract, WebPageAndPresenter) {
  NEEDS(p->presenter);
  auto& pr = *p->presenter;
  auto navigations = std::make_shared<Navigations>();
  auto page = pr.makeWebPage({}, navigations);
  ASSERT_TRUE(page);
  page->setTitle("Sign in");
  page->setLeftBarButtonItem(platform::BarButtonItem{"Close", [] {}});
  int presented = 0;
  pr.presentInNavigationController(page, nullptr, false, [&] { ++presented; });
  EXPECT_EQ(presented, 0) << "completion ran inside present";
  EXPECT_TRUE(runUntil([&] { return presented == 1; }));
  // Every load asks the navigation delegate first, with the absolute URL.
  page->loadURL("https://open.mirelo.app/connect/mobilecheck?x=1");
  EXPECT_TRUE(runUntil([&] { return !navigations->asked.empty(); }));
  EXPECT_EQ(navigations->asked[0], "https://open.mirelo.app/connect/mobilecheck?x=1");
  // The delegate is held weakly: a page whose delegate is gone still loads
  // without calling it.
  navigations.reset();
  page->loadURL("https://open.mirelo.app/other");
  runUntil([] { return false; }, 0.1);
  pr.dismiss(page, false);
  pr.dismiss(page, false);  // no longer on screen: nothing
  runUntil([] { return false; }, 0.1);
}

TEST_P(PlatformContract, Alert) {
  NEEDS(p->presenter);
  std::vector<std::string> tapped;
  platform::Alert alert{"Title", "Leave sign-in?", {}};
  alert.actions.push_back({"Cancel", platform::AlertActionStyle::Cancel, [&] { tapped.push_back("Cancel"); }});
  alert.actions.push_back({"OK", platform::AlertActionStyle::Default, [&] { tapped.push_back("OK"); }});
  p->presenter->presentAlert(alert, nullptr);
  NEEDS(env->tapAlertButton("OK"));
  EXPECT_TRUE(runUntil([&] { return !tapped.empty(); }));
  runUntil([] { return false; }, 0.1);
  EXPECT_EQ(tapped, std::vector<std::string>{"OK"});
  EXPECT_FALSE(env->tapAlertButton("Cancel")) << "the alert stayed after a tap";
}

// A 2x1 RGBA PNG (red, blue).
const char kPng[] =
    "\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x00\x00\x02\x00\x00\x00\x01\x08\x06\x00\x00\x00\xf4\x22\x7f\x8a"
    "\x00\x00\x00\x0eIDAT\x78\x9c\x63\xf8\xcf\xc0\x00\x42\xff\x01\x0f\xf9\x03\xfd\x85\x11\x99\x76"
    "\x00\x00\x00\x00IEND\xae\x42\x60\x82";

TEST_P(PlatformContract, ImageCodec) {
  NEEDS(p->imageCodec);
  auto& codec = *p->imageCodec;
  const Data png = Data::copy(std::string(kPng, sizeof(kPng) - 1));
  EXPECT_EQ(codec.decode(Data::copy(std::string("not an image"))), nullptr);
  EXPECT_EQ(codec.decode(Data::emptyData()), nullptr);
  EXPECT_EQ(codec.decode(png.slice(0, 40)), nullptr);
  // Pure: callable from any thread.
  std::shared_ptr<platform::Image> image;
  std::thread([&] { image = codec.decode(png); }).join();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 2);
  EXPECT_EQ(image->height(), 1);
  const Data jpeg = codec.jpegRepresentation(*image, 0.7);
  ASSERT_GT(jpeg.size(), 2u);
  EXPECT_EQ(jpeg.view().substr(0, 2), "\xff\xd8");
  const auto again = codec.decode(jpeg);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->width(), 2);
  EXPECT_EQ(again->height(), 1);
}

TEST_P(PlatformContract, CryptoAndRandomness) {
  NEEDS(p->crypto);
  auto& c = *p->crypto;
  std::array<std::uint8_t, 32> digest{};
  std::thread([&] { digest = c.sha256("abc", 3); }).join();  // pure: any thread
  const std::array<std::uint8_t, 4> head{0xba, 0x78, 0x16, 0xbf};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), digest.begin()));
  EXPECT_EQ(digest[31], 0xad);
  // Standard, padded Base64 only; empty text is empty data.
  for (const auto& [plain, encoded] :
       {std::pair{"", ""}, {"f", "Zg=="}, {"foob\xff", "Zm9vYv8="}, {"\xfb\xff", "+/8="}}) {
    EXPECT_EQ(c.base64Encode(plain, std::strlen(plain)), encoded);
    EXPECT_EQ(c.base64Decode(encoded), Data::copy(std::string(plain))) << encoded;
  }
  for (const char* bad : {"Zm9", "Zm9vYv8", "Zm9v Yg==", "Zg=", "Z===", "=Zg=", "Zm9v=", "Zm9v\n", "Zm-v", "Zm_v",
                          "Zg==Zg==", "Zm9\x80"}) {
    EXPECT_TRUE(c.base64Decode(bad).isNull()) << "'" << bad << "'";
  }
  EXPECT_TRUE(c.base64Decode(std::string_view("Zm\0v", 4)).isNull());
  std::array<std::uint8_t, 32> r1{}, r2{};
  EXPECT_TRUE(c.randomBytes(r1.data(), r1.size()));
  std::thread([&] { EXPECT_TRUE(c.randomBytes(r2.data(), r2.size())); }).join();
  EXPECT_NE(r1, r2);
  EXPECT_NE(r1, (std::array<std::uint8_t, 32>{}));
}

TEST_P(PlatformContract, DeviceFactsAndBundle) {
  NEEDS(p->device);
  // The version compares as numbers ("13.4.1"), the model is named.
  const String version = p->device->systemVersion();
  ASSERT_FALSE(version.isNull());
  EXPECT_TRUE(!version.empty() && std::isdigit(static_cast<unsigned char>(version.view()[0])) &&
              version.view().find_first_not_of("0123456789.") == std::string_view::npos)
      << version.str();
  EXPECT_FALSE(p->device->model().empty());
  if (const auto scale = p->device->screenScale()) {
    EXPECT_GT(*scale, 0);
  }
  if (p->bundle) {
    EXPECT_FALSE(p->bundle->bundleIdentifier().empty());
  }
}

TEST_P(PlatformContract, SystemLog) {
  NEEDS(p->systemLog);
  p->systemLog->write("mirelo contract line");
  const auto lines = env->systemLogLines();
  NEEDS(lines);
  EXPECT_TRUE(std::any_of(lines->begin(), lines->end(), [](const std::string& line) {
    return line.find("mirelo contract line") != std::string::npos;
  }));
}

}  // namespace
}  // namespace mirelo::testing
