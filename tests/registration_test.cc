// Registration and the capability queries, on the simulated device.
#include <gtest/gtest.h>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "support/KitFixture.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

class RegistrationTest : public KitTest {
 protected:
  void setInfoPlist(const Dictionary& info) { host->infoPlist() = info; }
};

// The only check of each refusal's text.
TEST_F(RegistrationTest, EachFailedCheckLogsItsLineAndKeepsThePreviousRegistration) {
  ASSERT_TRUE(MRApi::registerApp("first", "https://first.example.com/a"));
  EXPECT_EQ(MireloIdentityHandler::registerUniversalLink(), "https://first.example.com/a/");

  const std::string mrlogError = "mrlog:Error:";
  struct Case {
    const char* name;
    String appId;
    String link;
    Dictionary info;
    std::string line;
  };
  const Dictionary good = goodHostInfoPlist();
  const Case cases[] = {
      {"null app id", String(), "https://x.example.com/", good, "register fail, appId is nil!"},
      {"empty app id", "", "https://x.example.com/", good, "register fail, appId is nil!"},
      {"null link", "mr", String(), good, "register fail, universal link is nil!"},
      {"http link", "mr", "http://x.example.com/", good, "register fail, universal link must be https link!"},
      {"query", "mr", "https://x.example.com/?a=1", good, "register fail, universal link can not contain query!"},
      {"no query schemes", "mr", "https://x.example.com/", sim::AppManifest::makeInfoPlist({"mr"}, {}),
       "register fail,  Mirelo scheme(mirelo) is not be added to LSApplicationQueriesSchemes in plist!"},
      {"no ul query scheme", "mr", "https://x.example.com/", sim::AppManifest::makeInfoPlist({"mr"}, {"mirelo"}),
       "register fail,  Mirelo scheme(mireloULAPI) is not be added to LSApplicationQueriesSchemes in plist!"},
      {"own mirelo scheme", "mr", "https://x.example.com/",
       sim::AppManifest::makeInfoPlist({"mr", "mirelo"}, {"mirelo", "mireloULAPI"}),
       "register fail, URL types should not register Mirelo scheme(mirelo)!"},
      {"own ul scheme", "mr", "https://x.example.com/",
       sim::AppManifest::makeInfoPlist({"mireloULAPI"}, {"mirelo", "mireloULAPI"}),
       "register fail, URL types should not register Mirelo scheme(mireloULAPI)!"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    setInfoPlist(c.info);
    logs.clear();
    EXPECT_FALSE(MRApi::registerApp(c.appId, c.link));
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0], mrlogError + c.line);
    EXPECT_EQ(MireloIdentityHandler::registerAppID(), "first");
    EXPECT_EQ(MireloIdentityHandler::registerUniversalLink(), "https://first.example.com/a/");
  }
}

TEST_F(RegistrationTest, StoresTheLinkWithOneTrailingSlashForTheProcessOnly) {
  ASSERT_TRUE(MRApi::registerApp("mr1", "https://a.example.com/path/"));
  EXPECT_EQ(MireloIdentityHandler::registerUniversalLink(), "https://a.example.com/path/");
  ASSERT_TRUE(MRApi::registerApp("mr2", "https://b.example.com"));
  EXPECT_EQ(MireloIdentityHandler::registerAppID(), "mr2");
  EXPECT_EQ(MireloIdentityHandler::registerUniversalLink(), "https://b.example.com/");
  EXPECT_TRUE(logs.empty());
  device->relaunch(kHostBundleId);
  EXPECT_TRUE(MireloIdentityHandler::registerAppID().isNull());
}

TEST_F(RegistrationTest, InfoPlistEntriesOfTheWrongKindAreSkipped) {
  Dictionary info;
  info.set("LSApplicationQueriesSchemes", Array{7, Value(true), "mirelo", "mireloULAPI"});
  // A scheme list given as a string instead of an array is ignored, as are
  // types that are not dictionaries and schemes that are not strings.
  info.set("CFBundleURLTypes",
           Array{Value("mirelo"), Value(Dictionary{{"CFBundleURLSchemes", "mirelo"}}),
                 Value(Dictionary{{"CFBundleURLSchemes", Array{1, "mine"}}})});
  setInfoPlist(info);
  EXPECT_TRUE(MRApi::isAppRegisterQueryScheme("mirelo"));
  EXPECT_FALSE(MRApi::isAppRegisterQueryScheme("Mirelo"));
  EXPECT_FALSE(MRApi::isAppRegisterMireloSecheme("mirelo"));
  EXPECT_TRUE(MRApi::isAppRegisterMireloSecheme("mine"));
  EXPECT_TRUE(MRApi::registerApp("mr", "https://x.example.com"));

  setInfoPlist(Dictionary{{"LSApplicationQueriesSchemes", "mirelo"}, {"CFBundleURLTypes", 3}});
  EXPECT_FALSE(MRApi::isAppRegisterQueryScheme("mirelo"));
  EXPECT_FALSE(MRApi::isAppRegisterMireloSecheme("mirelo"));
}

TEST_F(RegistrationTest, CapabilitiesFollowTheInstalledMessengerAndTheQuerySchemes) {
  EXPECT_TRUE(MRApi::isMRAppInstalled());
  EXPECT_TRUE(MRApi::isMRAppSupportApi());
  EXPECT_TRUE(MRApi::isMRAppSupportStateAPI());
  EXPECT_FALSE(MRApi::isDefaultLaunchByScheme());  // iOS 13 with the universal-link interface

  device->install(messengerManifest(/*withUniversalLinkApi=*/false, /*withStateApi=*/false));
  EXPECT_TRUE(MRApi::isMRAppInstalled());
  EXPECT_FALSE(MRApi::isMRAppSupportStateAPI());
  EXPECT_TRUE(MRApi::isDefaultLaunchByScheme());

  device->uninstall(kMessengerBundleId);
  EXPECT_FALSE(MRApi::isMRAppInstalled());
  EXPECT_FALSE(MRApi::isMRAppSupportApi());
}

TEST_F(RegistrationTest, OpenMessengerByUniversalLinkOrScheme) {
  ASSERT_TRUE(registerHost());
  EXPECT_TRUE(MRApi::openMRApp());
  ASSERT_FALSE(device->openLog().empty());
  EXPECT_EQ(device->openLog().back().url, std::string("https://") + kMireloUniversalLinkHost + "/app/" + kHostAppId + "/");
  EXPECT_EQ(device->openLog().back().openedBundleId, kMessengerBundleId);

  device->setSystemVersion("11.0");
  device->relaunch(kHostBundleId);  // the version is cached per process
  ASSERT_TRUE(registerHost());
  EXPECT_TRUE(MRApi::openMRApp());
  EXPECT_EQ(device->openLog().back().url, std::string("mirelo://app/") + kHostAppId + "/");

  device->uninstall(kMessengerBundleId);
  EXPECT_FALSE(MRApi::openMRApp());
}

TEST_F(RegistrationTest, MessengerVersionComesFromUserDefaultsOnlyWhenNumeric) {
  EXPECT_EQ(MRApi::tryGetMireloVersion(), 0u);
  host->userDefaults().set(kMireloVersionDefaultsKey, 0x28000931);
  EXPECT_EQ(MRApi::tryGetMireloVersion(), 0x28000931u);
  host->userDefaults().set(kMireloVersionDefaultsKey, "671090993");
  EXPECT_EQ(MRApi::tryGetMireloVersion(), 0u);
  EXPECT_EQ(MRApi::getApiVersion(), "1.9.2");
  EXPECT_EQ(MRApi::getMRAppInstallUrl().rfind("https://", 0), 0u);
}

}  // namespace
}  // namespace mirelo::testing
