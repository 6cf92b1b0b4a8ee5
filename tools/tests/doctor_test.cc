// The integration doctor: the kit's own refusals, the app's URL type, the
// universal link and the association file, on committed Info.plist and
// association fixtures.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "support/KitFixture.h"
#include "tools/common/Doctor.h"
#include "tools/common/SiteAssociation.h"
#include "tools/common/XmlPlist.h"
#include "util/BinaryPlist.h"

namespace mirelo::tooling {
namespace {

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr const char* kLink = "https://host.example.com/mirelo/";

std::string fixture(const std::string& name) {
  std::ifstream in(std::string(MIRELO_TOOL_TEST_DATA) + "/" + name, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  EXPECT_TRUE(in.good() || in.eof()) << name;
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

TEST(SiteAssociation, TheFirstEntryNamingTheAppDecidesPathByPath) {
  const std::vector<AssociationUrl> urls = {{"/mirelo/mr01/oauth", "", ""}, {"/mirelo/mr01/pay", "", ""}};
  using K = AssociationVerdict::Kind;
  struct Case {
    const char* name;
    const char* json;
    const char* team;
    K kind;
    std::vector<std::string> refused;
  };
  const Case cases[] = {
      {"components claim", R"({"applinks":{"details":[{"appIDs":["T.b"],"components":[{"/":"/mirelo/*"}]}]}})", "T",
       K::Covered, {}},
      {"component exclude first", R"({"applinks":{"details":[{"appIDs":["T.b"],"components":[
          {"/":"/mirelo/*/pay","exclude":true},{"/":"/mirelo/*"}]}]}})", "T", K::NotCovered, {"/mirelo/mr01/pay"}},
      {"component needs a query", R"({"applinks":{"details":[{"appIDs":["T.b"],"components":[
          {"/":"/mirelo/*","?":{"code":"*"}}]}]}})", "T", K::NotCovered, {"/mirelo/mr01/oauth", "/mirelo/mr01/pay"}},
      {"component any query", R"({"applinks":{"details":[{"appIDs":["T.b"],"components":[
          {"/":"/mirelo/*","?":"*","#":"*"}]}]}})", "T", K::Covered, {}},
      {"components win over paths", R"({"applinks":{"details":[{"appIDs":["T.b"],"paths":["*"],
          "components":[{"/":"/other/*"}]}]}})", "T", K::NotCovered, {"/mirelo/mr01/oauth", "/mirelo/mr01/pay"}},
      {"paths NOT", R"({"applinks":{"details":[{"appID":"T.b","paths":["NOT /mirelo/*/oauth","/mirelo/*"]}]}})", "T",
       K::NotCovered, {"/mirelo/mr01/oauth"}},
      {"case-insensitive by default setting", R"({"applinks":{"defaults":{"caseSensitive":false},
          "details":[{"appIDs":["T.b"],"components":[{"/":"/MIRELO/*"}]}]}})", "T", K::Covered, {}},
      {"later entry for the same app is ignored", R"({"applinks":{"details":[
          {"appIDs":["T.b"],"paths":["/x/*"]},{"appIDs":["T.b"],"paths":["*"]}]}})", "T", K::NotCovered,
       {"/mirelo/mr01/oauth", "/mirelo/mr01/pay"}},
      {"another team", R"({"applinks":{"details":[{"appIDs":["U.b"],"paths":["*"]}]}})", "T", K::NoEntry, {}},
      {"any team", R"({"applinks":{"details":[{"appIDs":["U.b"],"paths":["/x"]},{"appIDs":["V.b"],"paths":["*"]}]}})",
       "", K::Covered, {}},
      {"bundle id is not a suffix match", R"({"applinks":{"details":[{"appIDs":["T.xb"],"paths":["*"]}]}})", "",
       K::NoEntry, {}},
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

struct Expect {
  std::string check;
  std::string text;  // a part of the problem or of the fix
};

struct DoctorCase {
  const char* name;
  std::string plistFile;
  std::string appId;
  std::string link;
  std::string associationFile;  // "" for none
  std::string teamId;
  std::vector<Expect> findings;  // in order
};

TEST(Doctor, ReportsEveryProblemWithTheKitsTextsAndItsFix) {
  const std::string ulapi =
      "mrlog:Error:register fail,  Mirelo scheme(mireloULAPI) is not be added to LSApplicationQueriesSchemes in plist!";
  const DoctorCase cases[] = {
      {"all good", "Info-good.plist", kAppId, kLink, "aasa-covered.json", "ABCDE12345", {}},
      {"all good without the trailing slash", "Info-good.plist", kAppId, "https://host.example.com/mirelo", "", "",
       {}},
      {"binary plist with three problems", "Info-broken.bplist", kAppId, kLink, "", "",
       {{"registration", ulapi},
        {"registration", "Info.plist has \"MireloULAPI\" and the kit compares case-sensitively"},
        {"registration", "mrlog:Error:register fail, URL types should not register Mirelo scheme(mirelo)!"},
        {"url-scheme", "no URL type lists the app id \"mr0123456789abcdef\""}}},
      {"every link problem", "Info-good.plist", kAppId, "http://host.example.com?a=1", "", "",
       {{"registration", "mrlog:Error:register fail, universal link must be https link!"},
        {"registration", "mrlog:Error:register fail, universal link can not contain query!"},
        {"universal-link", "has no path"}}},
      {"capitals in the scheme", "Info-good.plist", kAppId, "HTTPS://host.example.com/mirelo/", "", "",
       {{"registration", "must be https link!"}}},
      {"a scheme that only starts with https", "Info-good.plist", kAppId, "https-x://host.example.com/mirelo/", "",
       "", {{"universal-link", "not an https URL"}}},
      {"a fragment", "Info-good.plist", kAppId, "https://host.example.com/mirelo/#top", "", "",
       {{"universal-link", "has a fragment"}}},
      {"no app id", "Info-good.plist", "", kLink, "", "",
       {{"registration", "mrlog:Error:register fail, appId is nil!"}}},
      {"no link", "Info-good.plist", kAppId, "", "", "",
       {{"registration", "mrlog:Error:register fail, universal link is nil!"}}},
      {"another app's URL type", "Info-good.plist", "mrfedcba9876543210", kLink, "", "",
       {{"url-scheme", "add a CFBundleURLTypes entry whose CFBundleURLSchemes holds \"mrfedcba9876543210\""}}},
      {"association excludes an answer", "Info-good.plist", kAppId, kLink, "aasa-paths-excluded.json", "ABCDE12345",
       {{"association", "does not let /mirelo/mr0123456789abcdef/pay reach the app (excluded by the path"}}},
      {"association for another app", "Info-good.plist", kAppId, kLink, "aasa-other-app.json", "",
       {{"association", "names no app of any team with bundle id \"com.example.host\""}}},
      {"association of another team", "Info-good.plist", kAppId, kLink, "aasa-covered.json", "OTHERTEAM1",
       {{"association", "add {\"appIDs\": [\"OTHERTEAM1.com.example.host\"]"}}},
      {"association that is not JSON", "Info-good.plist", kAppId, kLink, "Info-good.plist", "",
       {{"association", "unusable: not JSON"}}},
      {"an unfilled build setting", "Info-build-setting.plist", kAppId, kLink, "aasa-covered.json", "",
       {{"info-plist", "unfilled build setting \"$(PRODUCT_BUNDLE_IDENTIFIER)\""}}},
      {"not a plist", "aasa-covered.json", kAppId, kLink, "", "",
       {{"info-plist", "the Info.plist is not a property list"}}},
  };
  for (const DoctorCase& c : cases) {
    SCOPED_TRACE(c.name);
    DoctorInput input;
    input.infoPlist = Data::copy(fixture(c.plistFile));
    input.appId = c.appId;
    input.universalLink = c.link;
    if (!c.associationFile.empty()) input.association = fixture(c.associationFile);
    input.teamId = c.teamId;
    const DoctorReport report = runDoctor(input);
    EXPECT_EQ(report.ok(), c.findings.empty()) << report.text();
    // Expectations walk the findings in order; two may match one finding
    // (its problem and its fix).
    std::size_t at = 0;
    for (const Expect& e : c.findings) {
      while (at < report.findings.size() &&
             !(report.findings[at].check == e.check &&
               (report.findings[at].problem.find(e.text) != std::string::npos ||
                report.findings[at].fix.find(e.text) != std::string::npos))) {
        ++at;
      }
      EXPECT_LT(at, report.findings.size()) << "missing " << e.check << ": " << e.text << "\n" << report.text();
    }
    for (const Finding& f : report.findings) EXPECT_FALSE(f.fix.empty()) << f.problem;
  }
}

TEST(Doctor, SaysWhenItAcceptedAnyTeam) {
  DoctorInput input{Data::copy(fixture("Info-good.plist")), kAppId, kLink, fixture("aasa-covered.json"), "",
                    std::nullopt, ""};
  const DoctorReport report = runDoctor(input);
  EXPECT_TRUE(report.ok()) << report.text();
  ASSERT_EQ(report.notes.size(), 1u);
  EXPECT_NE(report.notes[0].find("no --team-id"), std::string::npos);
  EXPECT_NE(report.notes[0].find("ABCDE12345.com.example.host"), std::string::npos);
  EXPECT_EQ(report.passed, (std::vector<std::string>{"info-plist", "registration", "url-scheme", "universal-link",
                                                     "association"}));
  const Json j = report.json();
  EXPECT_EQ(j["ok"], true);
  EXPECT_EQ(j["findings"], Json::array());
}

// The checks of the entitlements, the association's domain, the scheme
// spelling and the query-scheme list; one case each.
TEST(Doctor, SharperFindings) {
  const Value good = decodePropertyList(Data::copy(fixture("Info-good.plist")), nullptr);
  auto infoWith = [&good](const char* key, Array list) {
    Dictionary d = *good.asDictionary();
    d.set(key, Value(std::move(list)));
    return Data::copy(encodeXmlPlist(Value(d)));
  };
  auto run = [](DoctorInput in) { return runDoctor(in); };
  auto has = [](const DoctorReport& r, const std::string& check, const std::string& text) {
    for (const Finding& f : r.findings) {
      if (f.check == check && (f.problem + " -- " + f.fix).find(text) != std::string::npos) return true;
    }
    return false;
  };
  auto noted = [](const DoctorReport& r, const std::string& text) {
    for (const std::string& n : r.notes) {
      if (n.find(text) != std::string::npos) return true;
    }
    return false;
  };
  DoctorInput base{Data::copy(fixture("Info-good.plist")), kAppId, kLink, std::nullopt, "", std::nullopt, ""};

  DoctorInput in = base;
  in.entitlements = encodeXmlPlist(Value(Dictionary{
      {"com.apple.developer.associated-domains", Array{"applinks:other.example.com", "webcredentials:host.example.com"}}}));
  DoctorReport r = run(in);
  EXPECT_TRUE(has(r, "entitlements", "add \"applinks:host.example.com\" to com.apple.developer.associated-domains"))
      << r.text();
  in.entitlements = encodeXmlPlist(
      Value(Dictionary{{"com.apple.developer.associated-domains", Array{"applinks:host.example.com?mode=developer"}}}));
  EXPECT_TRUE(run(in).ok()) << run(in).text();
  in.entitlements = "not a plist";
  EXPECT_TRUE(run(in).badInput);

  in = base;
  in.association = fixture("aasa-covered.json");
  in.associationDomain = "cdn.example.net";
  EXPECT_TRUE(has(run(in), "association", "comes from \"cdn.example.net\", not from the universal link's domain"));

  in = base;
  in.association = fixture("aasa-covered.json");
  in.teamId = "OTHERTEAM1";
  r = run(in);
  EXPECT_TRUE(has(r, "association", "(it lists \"ZZZZZ99999.com.example.other\", \"ABCDE12345.com.example.host\")"))
      << r.text();
  EXPECT_TRUE(has(r, "association", "check --team-id")) << r.text();

  // A component with "exclude": true ahead of the claim: the fix says so.
  in = base;
  in.universalLink = "https://host.example.com/mirelo/private/";
  in.association = fixture("aasa-covered.json");
  in.teamId = "ABCDE12345";
  r = run(in);
  EXPECT_TRUE(has(r, "association", "excludes it: narrow or remove that pattern")) << r.text();

  // A bare-domain link: one fix, the link's.
  in = base;
  in.universalLink = "https://host.example.com";
  in.association = fixture("aasa-covered.json");
  r = run(in);
  ASSERT_EQ(r.findings.size(), 1u) << r.text();
  EXPECT_EQ(r.findings[0].check, "universal-link");
  EXPECT_TRUE(noted(r, "association check skipped"));

  in = base;
  in.infoPlist = infoWith("LSApplicationQueriesSchemes", Array{"mirelo", "mireloULAPI ", "mireloStateAPI", "$(EXTRA)"});
  r = run(in);
  EXPECT_TRUE(has(r, "query-schemes", "\"mireloULAPI \" in LSApplicationQueriesSchemes has stray white space"))
      << r.text();
  EXPECT_TRUE(has(r, "query-schemes", "\"$(EXTRA)\" in LSApplicationQueriesSchemes has an unexpanded build setting"));

  in.infoPlist = infoWith("LSApplicationQueriesSchemes", Array{"mirelo", "mireloULAPI"});
  r = run(in);
  EXPECT_TRUE(r.ok()) << r.text();
  EXPECT_TRUE(noted(r, "warning: \"mireloStateAPI\" is not among the first 50"));

  Array many;
  for (int i = 0; i < 50; ++i) many.push_back(Value("app" + std::to_string(i)));
  for (const char* s : {"mirelo", "mireloULAPI", "mireloStateAPI"}) many.push_back(Value(s));
  in.infoPlist = infoWith("LSApplicationQueriesSchemes", many);
  r = run(in);
  EXPECT_TRUE(noted(r, "has 53 entries; the system reads only the first 50"));
  EXPECT_TRUE(has(r, "query-schemes", "\"mirelo\" is entry 51 of LSApplicationQueriesSchemes")) << r.text();

  in.infoPlist = Data::copy("{}");
  EXPECT_TRUE(run(in).badInput);
}

// The same Info.plist in both formats gives the same verdict.
TEST(Doctor, XmlAndBinaryInfoPlistsAgree) {
  const std::string bytes = fixture("Info-broken.bplist");
  const Value v = bplist::decode(Data::copy(bytes));
  ASSERT_FALSE(v.isNull());
  DoctorInput binary{Data::copy(bytes), kAppId, kLink, std::nullopt, "", std::nullopt, ""};
  DoctorInput asXml{Data::copy(encodeXmlPlist(v)), kAppId, kLink, std::nullopt, "", std::nullopt, ""};
  EXPECT_EQ(runDoctor(binary).text(), runDoctor(asXml).text());
}

// The doctor borrows the kit's platform and gives it back.
class DoctorInAKitProcess : public mirelo::testing::KitTest {};

TEST_F(DoctorInAKitProcess, PutsThePreviousPlatformBack) {
  DoctorInput input{Data::copy(fixture("Info-broken.bplist")), kAppId, kLink, std::nullopt, "", std::nullopt, ""};
  EXPECT_FALSE(runDoctor(input).ok());
  EXPECT_EQ(platform::current().bundle->bundleIdentifier(), mirelo::testing::kHostBundleId);
  EXPECT_TRUE(registerHost());
}

}  // namespace
}  // namespace mirelo::tooling
