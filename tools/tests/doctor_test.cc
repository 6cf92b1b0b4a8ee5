// The integration doctor: the kit's own refusals, the app's URL type, the
// universal link and the association file, on committed Info.plist and
// association fixtures.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "support/KitFixture.h"
#include "tools/common/Doctor.h"
#include "tools/common/SiteAssociation.h"
#include "tools/common/XmlPlist.h"

namespace mirelo::tooling {
namespace {

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr const char* kLink = "https://host.example.com/mirelo/";

std::string fixture(const std::string& name) {
  std::ifstream in(std::string(MIRELO_TOOL_TEST_DATA) + "/" + name, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// ---------------------------------------------------------------------------
// Patterns and the applinks section

TEST(SiteAssociation, WildcardsMatchTheWholeText) {
  struct Case {
    const char* pattern;
    const char* text;
    bool caseSensitive;
    bool match;
  };
  const Case cases[] = {
      {"/mirelo/*", "/mirelo/mr01/oauth", true, true},
      {"/mirelo/*", "/mirelo/", true, true},
      {"/mirelo/*", "/mirelo", true, false},
      {"/mirelo/", "/mirelo/mr01/oauth", true, false},
      {"*", "", true, true},
      {"/a?c", "/abc", true, true},
      {"/a?c", "/ac", true, false},
      {"/*/x/*", "/a/b/x/c", true, true},
      {"*a*a*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", true, false},
      {"/Mirelo/*", "/mirelo/a", true, false},
      {"/Mirelo/*", "/mirelo/a", false, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(wildcardMatch(c.pattern, c.text, c.caseSensitive), c.match) << c.pattern << " ~ " << c.text;
  }
}

std::string details(const std::string& entries) { return R"({"applinks":{"details":[)" + entries + "]}}"; }

TEST(SiteAssociation, TheFirstEntryNamingTheAppDecidesPathByPath) {
  const std::vector<AssociationUrl> urls = {{"/mirelo/mr01/oauth", "", ""}, {"/mirelo/mr01/pay", "", ""}};
  const std::vector<std::string> both = {"/mirelo/mr01/oauth", "/mirelo/mr01/pay"};
  using K = AssociationVerdict::Kind;
  struct Case {
    const char* name;
    std::string json;
    const char* team;
    K kind;
    std::vector<std::string> refused;
  };
  const Case cases[] = {
      {"components claim", details(R"({"appIDs":["T.b"],"components":[{"/":"/mirelo/*"}]})"), "T", K::Covered, {}},
      {"component exclude first",
       details(R"({"appIDs":["T.b"],"components":[{"/":"/mirelo/*/pay","exclude":true},{"/":"/mirelo/*"}]})"), "T",
       K::NotCovered, {"/mirelo/mr01/pay"}},
      {"component needs a query", details(R"({"appIDs":["T.b"],"components":[{"/":"/mirelo/*","?":{"code":"*"}}]})"),
       "T", K::NotCovered, both},
      {"component any query", details(R"({"appIDs":["T.b"],"components":[{"/":"/mirelo/*","?":"*","#":"*"}]})"), "T",
       K::Covered, {}},
      {"components win over paths", details(R"({"appIDs":["T.b"],"paths":["*"],"components":[{"/":"/other/*"}]})"),
       "T", K::NotCovered, both},
      {"paths NOT", details(R"({"appID":"T.b","paths":["NOT /mirelo/*/oauth","/mirelo/*"]})"), "T", K::NotCovered,
       {"/mirelo/mr01/oauth"}},
      {"case-insensitive by default setting", R"({"applinks":{"defaults":{"caseSensitive":false},
          "details":[{"appIDs":["T.b"],"components":[{"/":"/MIRELO/*"}]}]}})", "T", K::Covered, {}},
      {"later entry for the same app is ignored",
       details(R"({"appIDs":["T.b"],"paths":["/x/*"]},{"appIDs":["T.b"],"paths":["*"]})"), "T", K::NotCovered, both},
      {"another team", details(R"({"appIDs":["U.b"],"paths":["*"]})"), "T", K::NoEntry, {}},
      {"any team", details(R"({"appIDs":["U.b"],"paths":["/x"]},{"appIDs":["V.b"],"paths":["*"]})"), "", K::Covered,
       {}},
      {"bundle id is not a suffix match", details(R"({"appIDs":["T.xb"],"paths":["*"]})"), "", K::NoEntry, {}},
      {"not JSON", R"({"applinks": )", "T", K::Malformed, {}},
      {"a number beyond a double", R"({"applinks":{"details":[],"x":6E456789}})", "T", K::Malformed, {}},
      {"no applinks", R"({"webcredentials":{}})", "T", K::Malformed, {}},
      {"details not an array", R"({"applinks":{"details":{"T.b":{}}}})", "T", K::Malformed, {}},
  };
  for (const Case& c : cases) {
    const AssociationVerdict v = checkAssociation(c.json, c.team, "b", urls);
    EXPECT_EQ(v.kind, c.kind) << c.name << ": " << v.detail;
    EXPECT_EQ(v.refused, c.refused) << c.name;
  }
}

// ---------------------------------------------------------------------------
// The doctor

Data info(const std::string& name) { return Data::copy(fixture(name)); }

// Info-good.plist with `key` set to `list`.
Data infoWith(const char* key, Array list) {
  Dictionary d = *decodePropertyList(info("Info-good.plist"), nullptr).asDictionary();
  d.set(key, Value(std::move(list)));
  return Data::copy(encodeXmlPlist(Value(d)));
}

std::string domains(Array list) {
  return encodeXmlPlist(Value(Dictionary{{"com.apple.developer.associated-domains", Value(std::move(list))}}));
}

DoctorInput in(Data plist, std::string appId, std::string link, std::optional<std::string> association = {},
               std::string team = "", std::optional<std::string> entitlements = {}, std::string domain = "") {
  return {std::move(plist), std::move(appId), std::move(link), std::move(association), std::move(team),
          std::move(entitlements), std::move(domain)};
}

// A finding of `check` whose problem or fix holds `text`; check "note" looks
// in the notes, "bad input" expects the input refused.
struct Expect {
  std::string check;
  std::string text;
};

TEST(Doctor, ReportsEveryProblemWithTheKitsTextsAndItsFix) {
  const std::string ulapi = "mrlog:Error:register fail,  Mirelo scheme(mireloULAPI) is not be added to "
                            "LSApplicationQueriesSchemes in plist!";
  const std::optional<std::string> covered = fixture("aasa-covered.json");
  const Data good = info("Info-good.plist");
  Array many;
  for (int i = 0; i < 50; ++i) many.push_back(Value("app" + std::to_string(i)));
  for (const char* s : {"mirelo", "mireloULAPI", "mireloStateAPI"}) many.push_back(Value(s));
  struct Case {
    const char* name;
    DoctorInput input;
    std::vector<Expect> expects;  // findings in order; every finding expected
  };
  const Case cases[] = {
      {"all good", in(good, kAppId, kLink, covered, "ABCDE12345"), {}},
      {"all good, any team", in(good, kAppId, kLink, covered, ""),
       {{"note", "no --team-id"}, {"note", "ABCDE12345.com.example.host"}}},
      {"all good without the trailing slash", in(good, kAppId, "https://host.example.com/mirelo"), {}},
      {"binary plist with three problems", in(info("Info-broken.bplist"), kAppId, kLink),
       {{"registration", ulapi},
        {"registration", "Info.plist has \"MireloULAPI\" and the kit compares case-sensitively"},
        {"registration", "mrlog:Error:register fail, URL types should not register Mirelo scheme(mirelo)!"},
        {"url-scheme", "no URL type lists the app id \"mr0123456789abcdef\""}}},
      {"every link problem", in(good, kAppId, "http://host.example.com?a=1"),
       {{"registration", "mrlog:Error:register fail, universal link must be https link!"},
        {"registration", "mrlog:Error:register fail, universal link can not contain query!"},
        {"universal-link", "has no path"}}},
      {"capitals in the scheme", in(good, kAppId, "HTTPS://host.example.com/mirelo/"),
       {{"registration", "must be https link!"}}},
      {"a scheme that only starts with https", in(good, kAppId, "https-x://host.example.com/mirelo/"),
       {{"universal-link", "not an https URL"}}},
      {"a fragment", in(good, kAppId, "https://host.example.com/mirelo/#top"), {{"universal-link", "has a fragment"}}},
      {"no app id", in(good, "", kLink), {{"registration", "mrlog:Error:register fail, appId is nil!"}}},
      {"no link", in(good, kAppId, ""), {{"registration", "mrlog:Error:register fail, universal link is nil!"}}},
      {"another app's URL type", in(good, "mrfedcba9876543210", kLink),
       {{"url-scheme", "add a CFBundleURLTypes entry whose CFBundleURLSchemes holds \"mrfedcba9876543210\""}}},
      // A bare-domain link: one fix, the link's.
      {"a bare domain", in(good, kAppId, "https://host.example.com", covered),
       {{"universal-link", ""}, {"note", "association check skipped"}}},
      {"association excludes an answer", in(good, kAppId, kLink, fixture("aasa-paths-excluded.json"), "ABCDE12345"),
       {{"association", "does not let /mirelo/mr0123456789abcdef/pay reach the app (excluded by the path"}}},
      {"association excludes the link by a component", in(good, kAppId, "https://host.example.com/mirelo/private/",
       covered, "ABCDE12345"), {{"association", "excludes it: narrow or remove that pattern"}}},
      {"association for another app", in(good, kAppId, kLink, fixture("aasa-other-app.json")),
       {{"association", "names no app of any team with bundle id \"com.example.host\""}}},
      {"association of another team", in(good, kAppId, kLink, covered, "OTHERTEAM1"),
       {{"association", "add {\"appIDs\": [\"OTHERTEAM1.com.example.host\"]"},
        {"association", "(it lists \"ZZZZZ99999.com.example.other\", \"ABCDE12345.com.example.host\")"},
        {"association", "check --team-id"}}},
      {"association from another domain", in(good, kAppId, kLink, covered, "", std::nullopt, "cdn.example.net"),
       {{"association", "comes from \"cdn.example.net\", not from the universal link's domain"}}},
      {"association that is not JSON", in(good, kAppId, kLink, fixture("Info-good.plist")),
       {{"association", "unusable: not JSON"}}},
      {"an unfilled build setting", in(info("Info-build-setting.plist"), kAppId, kLink, covered),
       {{"info-plist", "unfilled build setting \"$(PRODUCT_BUNDLE_IDENTIFIER)\""}}},
      {"not a plist", in(info("aasa-covered.json"), kAppId, kLink),
       {{"info-plist", "the Info.plist is not a property list"}, {"bad input", ""}}},
      {"not a dictionary", in(Data::copy("{}"), kAppId, kLink),
       {{"info-plist", "not a binary property list"}, {"bad input", ""}}},
      {"entitlements without the link's domain",
       in(good, kAppId, kLink, std::nullopt, "",
          domains({"applinks:other.example.com", "webcredentials:host.example.com"})),
       {{"entitlements", "add \"applinks:host.example.com\" to com.apple.developer.associated-domains"}}},
      {"entitlements in developer mode",
       in(good, kAppId, kLink, std::nullopt, "", domains({"applinks:host.example.com?mode=developer"})), {}},
      {"entitlements that are no plist", in(good, kAppId, kLink, std::nullopt, "", "not a plist"),
       {{"entitlements", "not a property list holding a dictionary"}, {"bad input", ""}}},
      {"query schemes misspelt",
       in(infoWith("LSApplicationQueriesSchemes", {"mirelo", "mireloULAPI ", "mireloStateAPI", "$(EXTRA)"}), kAppId,
          kLink),
       {{"registration", ulapi},
        {"query-schemes", "\"mireloULAPI \" in LSApplicationQueriesSchemes has stray white space"},
        {"query-schemes", "\"$(EXTRA)\" in LSApplicationQueriesSchemes has an unexpanded build setting"}}},
      {"query schemes without the state scheme",
       in(infoWith("LSApplicationQueriesSchemes", {"mirelo", "mireloULAPI"}), kAppId, kLink),
       {{"note", "warning: \"mireloStateAPI\" is not among the first 50"}}},
      {"query schemes beyond the first 50", in(infoWith("LSApplicationQueriesSchemes", many), kAppId, kLink),
       {{"note", "has 53 entries; the system reads only the first 50"},
        {"query-schemes", "\"mirelo\" is entry 51 of LSApplicationQueriesSchemes"},
        {"query-schemes", "\"mireloULAPI\" is entry 52"},
        {"query-schemes", "\"mireloStateAPI\" is entry 53"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const DoctorReport report = runDoctor(c.input);
    // Expectations walk the findings in order; two may match one finding
    // (its problem and its fix).  A finding nobody expects is an error too.
    std::vector<bool> expected(report.findings.size(), false);
    bool badInput = false;
    std::size_t at = 0;
    for (const Expect& e : c.expects) {
      badInput = badInput || e.check == "bad input";
      if (e.check == "note") {
        const auto noted = [&e](const std::string& n) { return n.find(e.text) != std::string::npos; };
        EXPECT_TRUE(std::ranges::any_of(report.notes, noted)) << "no note: " << e.text << "\n" << report.text();
      } else if (e.check != "bad input") {
        while (at < report.findings.size() && !(report.findings[at].check == e.check &&
               (report.findings[at].problem + " -- " + report.findings[at].fix).find(e.text) != std::string::npos)) {
          ++at;
        }
        EXPECT_LT(at, report.findings.size()) << "missing " << e.check << ": " << e.text << "\n" << report.text();
        if (at < expected.size()) expected[at] = true;
      }
    }
    EXPECT_EQ(report.badInput, badInput) << report.text();
    for (std::size_t i = 0; i < report.findings.size(); ++i) {
      EXPECT_TRUE(expected[i]) << "unexpected: " << report.findings[i].problem;
      EXPECT_FALSE(report.findings[i].fix.empty()) << report.findings[i].problem;
    }
  }
}

// The doctor borrows the kit's platform and gives it back.
class DoctorInAKitProcess : public mirelo::testing::KitTest {};

TEST_F(DoctorInAKitProcess, PutsThePreviousPlatformBack) {
  EXPECT_FALSE(runDoctor(in(info("Info-broken.bplist"), kAppId, kLink)).ok());
  EXPECT_EQ(platform::current().bundle->bundleIdentifier(), mirelo::testing::kHostBundleId);
  EXPECT_TRUE(registerHost());
}

}  // namespace
}  // namespace mirelo::tooling
