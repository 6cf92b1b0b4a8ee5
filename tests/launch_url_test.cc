// Launch URLs: separators, escaping, the identity query items and the refusals.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/URL.h"
#include "support/KitFixture.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

using H = MireloIdentityHandler;

const std::string kUL = std::string("https://") + kMireloUniversalLinkHost + "/app/" + kHostAppId + "/";
const std::string kScheme = std::string("mirelo://app/") + kHostAppId + "/";
const std::string kBundle = std::string("mirelo_app_bundleId=") + kHostBundleId;

class LaunchUrlTest : public KitTest {};

std::string text(const std::optional<URL>& url) { return url ? url->absoluteString() : "<nil>"; }

// An empty part is refused with its line and leaves the URL as it was.
TEST_F(LaunchUrlTest, AppendPicksTheSeparatorFromTheQueryAndRefusesEmptyParts) {
  struct Case {
    const char* name;
    String url, key, value;
    String expected;
    std::string line;  // "": none
  };
  const Case cases[] = {
      {"no query", "sendreq/", "k", "v", "sendreq/?k=v", ""},
      {"query", "sendreq/?a=1", "k", "v", "sendreq/?a=1&k=v", ""},
      {"empty query before a fragment", "x://h/p?#f", "k", "v", "x://h/p?#fk=v", ""},
      // Text that does not parse (a space) has an empty query: the pair is glued on.
      {"unparsable", "a b?x=1", "k", "v", "a b?x=1k=v", ""},
      {"unparsable without ?", "a b", "k", "v", "a b?k=v", ""},
      {"null url", String(), "k", "v", String(), "mrlog:Error:url is nil"},
      {"empty url", "", "k", "v", "", "mrlog:Error:url is nil"},
      {"null key", "u?a=1", String(), "v", "u?a=1", "mrlog:Error:key[(null)] or value[v] invaild"},
      {"empty key", "u", "", "v", "u", "mrlog:Error:key[] or value[v] invaild"},
      {"null value", "u", "k", String(), "u", "mrlog:Error:key[k] or value[(null)] invaild"},
      {"empty value", "u", "k", "", "u", "mrlog:Error:key[k] or value[] invaild"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    logs.clear();
    EXPECT_EQ(H::appendQueryToUrl(c.url, c.key, c.value), c.expected);
    EXPECT_EQ(logs, c.line.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.line});
  }
  // Values are escaped, keys never.
  EXPECT_EQ(H::appendQueryToUrl("u", "k&=/", "a&b=c/d e"), "u?k&=/=a%26b%3Dc%2Fd%20e");
}

// The launch URLs byte for byte, here and below.
TEST_F(LaunchUrlTest, UniversalLinkCarriesTokenContextAndBundleInOrder) {
  ASSERT_TRUE(registerHost());
  struct Case {
    const char* name;
    String extra, token, cid;
    std::string expected;
  };
  const Case cases[] = {
      {"extra with query", "sendreq/?a=1", "tok", "c1",
       kUL + "sendreq/?a=1&mirelo_auth_token=tok&mirelo_auth_context_id=c1&" + kBundle},
      {"extra without query", "sendreq/", "tok", "c1",
       kUL + "sendreq/?mirelo_auth_token=tok&mirelo_auth_context_id=c1&" + kBundle},
      {"no token, no context", "sendreq/?", String(), "", kUL + "sendreq/?" + kBundle},
      {"context only", "auth/?scope=s", "", "c9", kUL + "auth/?scope=s&mirelo_auth_context_id=c9&" + kBundle},
      {"no extra", String(), "tok", String(), kUL + "?mirelo_auth_token=tok&" + kBundle},
      {"token to escape", "sendreq/?", "a&b=c/d", "c1",
       kUL + "sendreq/?mirelo_auth_token=a%26b%3Dc%2Fd&mirelo_auth_context_id=c1&" + kBundle},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    logs.clear();
    EXPECT_EQ(text(H::genMireloUniversalLinkWithExtraUrl(c.extra, c.token, c.cid)), c.expected);
    EXPECT_TRUE(logs.empty());
  }
  // The messenger's base is the one the utilities name.
  EXPECT_EQ(text(MireloApiUtil::getMireloUniversalLink(kHostAppId)), kUL);
}

TEST_F(LaunchUrlTest, SchemeUrlAddsBundleAndDegradeMarkOnRequest) {
  ASSERT_TRUE(registerHost());
  struct Case {
    const char* name;
    String extra;
    bool bundle, degrade;
    std::string expected;
  };
  const Case cases[] = {
      {"plain", "sendreq/?", false, false, kScheme + "sendreq/?"},
      {"bundle", "sendreq/?", true, false, kScheme + "sendreq/?" + kBundle},
      {"both", "pay/?a=1", true, true,
       kScheme + "pay/?a=1&" + kBundle + "&mirelo_degrade_launch_by_scheme=1"},
      {"no extra", "", true, true, kScheme + "?" + kBundle + "&mirelo_degrade_launch_by_scheme=1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(text(H::genMireloUrlSchemeUrl(c.extra, c.bundle, c.degrade)), c.expected);
  }
}

TEST_F(LaunchUrlTest, RefusesBeforeRegistrationAndForTextThatIsNoUrl) {
  EXPECT_FALSE(H::genMireloUniversalLinkWithExtraUrl("sendreq/", "tok", "c").has_value());
  EXPECT_FALSE(H::genMireloUrlSchemeUrl("sendreq/", true, true).has_value());
  EXPECT_EQ(logs, (std::vector<std::string>{"mrlog:Error:register app is nil", "mrlog:Error:register app is nil"}));

  ASSERT_TRUE(registerHost());
  logs.clear();
  EXPECT_FALSE(H::genMireloUrlSchemeUrl("bad path/", false, false).has_value());
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:urlStr:" + kScheme + "bad path/"});
  logs.clear();
  EXPECT_FALSE(H::genMireloUniversalLinkWithExtraUrl("bad path/", "", "").has_value());
  EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:urlStr:" + kUL + "bad path/?" + kBundle});
}

}  // namespace
}  // namespace mirelo::testing
