// Device facts and their caches, the URL forms, recognition of returning URLs, the small encodings.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "util/MRLogUtil.h"
#include "util/MireloApiUtil.h"

namespace mirelo {
namespace {

using U = MireloApiUtil;

constexpr const char* kHost = "com.example.host";
constexpr const char* kMessenger = "com.mirelo.messenger";
constexpr const char* kOther = "com.example.other";

class ApiUtilTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::resetProcessState();
    dev = sim::SimDevice::create();
    dev->install({kHost, sim::AppManifest::makeInfoPlist({"mr123"}, {"mirelo", "mireloULAPI", "other"}), {}});
    dev->runKitAs(kHost);
    collectLines();
  }
  void TearDown() override { platform::resetProcessState(); }

  // Simulates a new process of the host, with a new device fact in place.
  void relaunchHost() {
    dev->relaunch(kHost);
    collectLines();
  }
  void collectLines() {
    MRLogUtil::sharedInstance().configLogBlock([this](const std::string& line) { lines.push_back(line); },
                                               MRLogLevelNormal);
  }

  std::shared_ptr<sim::SimDevice> dev;
  std::vector<std::string> lines;
};

// A real version is kept until a relaunch; an unreadable one is read again on the next use.
TEST_F(ApiUtilTest, SystemVersionIsTheLeadingDecimalReadOncePerProcess) {
  struct Case {
    const char* version;
    double parsed;
    bool ios10, ios12, ios13;
  };
  const Case cases[] = {
      {"13.0", 13.0, true, true, true},
      {"12.9.1", 12.9, true, true, false},
      {"12.91", 12.91, true, true, true},  // a decimal, not a version: above 12.9
      {"12.0", 12.0, true, true, false},
      {"10.0", 10.0, true, false, false},
      {"9.3.5", 9.3, false, false, false},
  };
  for (const Case& c : cases) {
    dev->setSystemVersion(c.version);
    relaunchHost();
    EXPECT_DOUBLE_EQ(U::systemVersion(), c.parsed) << c.version;
    EXPECT_EQ(U::isiOS10plus(), c.ios10) << c.version;
    EXPECT_EQ(U::isiOS12plus(), c.ios12) << c.version;
    EXPECT_EQ(U::isiOS13plus(), c.ios13) << c.version;
  }
  dev->setSystemVersion("14.1");
  EXPECT_DOUBLE_EQ(U::systemVersion(), 9.3);
  relaunchHost();
  EXPECT_DOUBLE_EQ(U::systemVersion(), 14.1);
  for (const char* unreadable : {"", "0.05"}) {
    dev->setSystemVersion(unreadable);
    relaunchHost();
    EXPECT_LT(U::systemVersion(), 0.1) << unreadable;
    EXPECT_FALSE(U::isiOS10plus());
    dev->setSystemVersion("13.2");
    EXPECT_DOUBLE_EQ(U::systemVersion(), 13.2);  // no relaunch needed
    EXPECT_TRUE(U::isiOS13plus());
  }
}

// Screen scale and model are read once per process, a NO as well.
TEST_F(ApiUtilTest, ScreenScaleAndIPadAreCachedUntilRelaunch) {
  dev->setScreenScale(2.0);
  EXPECT_TRUE(U::is2xScreen());
  dev->setScreenScale(3.0);
  EXPECT_TRUE(U::is2xScreen());
  relaunchHost();
  EXPECT_FALSE(U::is2xScreen());
  dev->setScreenScale(2.0);
  EXPECT_FALSE(U::is2xScreen());
  dev->setScreenScale(std::nullopt);
  relaunchHost();
  EXPECT_FALSE(U::is2xScreen());

  dev->setModel("iPad");
  relaunchHost();
  EXPECT_TRUE(U::isiPad());
  dev->setModel("iPhone");
  EXPECT_TRUE(U::isiPad());
  relaunchHost();
  EXPECT_FALSE(U::isiPad());
  for (const char* model : {"iPad Pro", "ipad", "My iPad"}) {
    dev->setModel(model);
    relaunchHost();
    EXPECT_EQ(U::isiPad(), std::string(model) == "iPad Pro") << model;
  }
}

// The URL forms byte for byte.
TEST_F(ApiUtilTest, MessengerAndHostUrls) {
  EXPECT_EQ(U::getMireloSchemeUrl("mr123")->absoluteString(), "mirelo://app/mr123/");
  EXPECT_EQ(U::getMireloUniversalLink("mr123")->absoluteString(), "https://open.mirelo.app/app/mr123/");
  EXPECT_EQ(U::getAppUrl("mr123")->absoluteString(), "mr123://");
  EXPECT_EQ(U::genSchemePrefixWithAppId("mr123"), "mr123://");
  EXPECT_EQ(U::genUniversalLinkPrefixWithAppId("mr123", "https://h.example/app/"), "https://h.example/app/mr123");
  EXPECT_EQ(U::getAppUrlWithPlatformId("mr123")->absoluteString(), "mr123://platformId=mirelo");
  EXPECT_EQ(U::getAppUrlWithPlatformId("mr123", "pay")->absoluteString(), "mr123://platformId=mirelo/pay");
  EXPECT_EQ(U::getAppUrlWithPlatformId("mr123", String())->absoluteString(), "mr123://platformId=mirelo");
  EXPECT_TRUE(lines.empty());

  // Text the system would not take as a URL gives none, without a line.
  EXPECT_FALSE(U::getMireloSchemeUrl("a b").has_value());
  EXPECT_FALSE(U::getAppUrl("bad scheme").has_value());
  EXPECT_TRUE(lines.empty());
}

TEST_F(ApiUtilTest, NullAppIdIsRefusedWithTheAppIsNilLine) {
  EXPECT_FALSE(U::getMireloSchemeUrl(String()).has_value());
  EXPECT_FALSE(U::getMireloUniversalLink(String()).has_value());
  EXPECT_FALSE(U::getAppUrl(String()).has_value());
  EXPECT_FALSE(U::isAppInstalledWithCatchException(String()));
  EXPECT_FALSE(U::isAppOpenUrl(URL::fromString("mr123://x"), String(), "https://h/"));
  EXPECT_EQ(lines, std::vector<std::string>(5, "mrlog:Error:app is nil"));
  lines.clear();
  EXPECT_FALSE(U::isAppInstalledWithoutCatchException(String()));
  EXPECT_TRUE(lines.empty());
}

TEST_F(ApiUtilTest, InstalledAppsAreFoundAndLaunchedByScheme) {
  dev->install({kMessenger, sim::AppManifest::makeInfoPlist({"mirelo", "mireloULAPI"}, {}), {}});
  dev->install({kOther, sim::AppManifest::makeInfoPlist({"other"}, {}), {}});
  EXPECT_TRUE(U::isMRAppSupportApi());
  EXPECT_TRUE(U::isMRSupportUniversalLinkAPI());
  EXPECT_TRUE(U::isAppInstalledWithCatchException("other"));
  EXPECT_TRUE(U::isAppInstalledWithoutCatchException("other"));
  EXPECT_FALSE(U::isAppInstalledWithCatchException("missing"));
  EXPECT_FALSE(U::isAppInstalledWithCatchException("bad scheme"));

  EXPECT_TRUE(U::launchApp("other"));
  ASSERT_FALSE(dev->openLog().empty());
  EXPECT_EQ(dev->openLog().back().url, "other://");
  EXPECT_FALSE(dev->openLog().back().asynchronous);
  EXPECT_FALSE(U::launchApp("missing"));
  dev->runUntilIdle();
  EXPECT_EQ(dev->app(kOther)->openCount(), 1);

  dev->uninstall(kMessenger);
  EXPECT_FALSE(U::isMRAppSupportApi());
  EXPECT_FALSE(U::isMRSupportUniversalLinkAPI());
}

TEST_F(ApiUtilTest, ParseUrlParamsSplitsAtEveryAmpersandAndEqualsSign) {
  const Dictionary params = U::parseURLParams("x=1&y&z=2=3");
  EXPECT_EQ(params, (Dictionary{{"x", Value("1")}, {"z", Value("2")}}));

  struct Case {
    String query;
    Dictionary expected;
  };
  const Case cases[] = {
      {String(), {}},
      {"", {}},
      {"a=1&a=2", {{"a", Value("2")}}},
      {"=v&k=", {{"", Value("v")}, {"k", Value("")}}},
      {"a%20b=c+d%3D", {{"a%20b", Value("c+d%3D")}}},  // nothing is unescaped
      {"k==v", {{"k", Value("")}}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(U::parseURLParams(c.query), c.expected) << c.query.description();
  }
}

TEST_F(ApiUtilTest, Sha256IsLowerCaseHex) {
  EXPECT_EQ(U::sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(U::sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(U::sha256(String()), "");
  EXPECT_NE(U::sha256(std::string("a\0b", 3)), U::sha256("a"));  // embedded NUL bytes are hashed
}

TEST_F(ApiUtilTest, PropertyListsRoundTripAndRefuseBadInput) {
  const Value plist(Dictionary{
      {"mr123", Value(Dictionary{{"command", Value(1010)}, {"fileData", Value(Data::copy("abc"))}})},
      {"old_text", Value("kept")}});
  const Data data = U::dataFromPropertyList(plist);
  ASSERT_FALSE(data.empty());
  EXPECT_EQ(data.view().substr(0, 8), "bplist00");
  EXPECT_EQ(U::propertyListFromData(data), plist);
  EXPECT_TRUE(lines.empty());

  EXPECT_TRUE(U::dataFromPropertyList(Value()).isNull());
  EXPECT_EQ(lines, std::vector<std::string>{"mrlog:Error:propertyList is nil"});
  lines.clear();

  EXPECT_TRUE(U::dataFromPropertyList(Value(Array{Value(1), Value()})).isNull());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("mrlog:Error:error occur:", 0), 0u) << lines[0];
  lines.clear();

  EXPECT_TRUE(U::propertyListFromData(Data()).isNull());
  EXPECT_EQ(lines, std::vector<std::string>{"mrlog:Error:data[(null)] is empty"});
  lines.clear();

  EXPECT_TRUE(U::propertyListFromData(Data::copy("bplist00 not really")).isNull());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("mrlog:Error:error occur:", 0), 0u) << lines[0];
}

}  // namespace
}  // namespace mirelo
