#include "tools/common/Doctor.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>

#include "mirelo/MRApi.h"
#include "mirelo/URL.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "nlohmann/json.hpp"
#include "tools/common/SiteAssociation.h"
#include "tools/common/XmlPlist.h"

namespace mirelo::tooling {

namespace {

constexpr const char* kQuerySchemesKey = "LSApplicationQueriesSchemes";
constexpr const char* kUrlTypesKey = "CFBundleURLTypes";
constexpr const char* kUrlSchemesKey = "CFBundleURLSchemes";
constexpr const char* kBundleIdKey = "CFBundleIdentifier";
constexpr const char* kAssociatedDomainsKey = "com.apple.developer.associated-domains";
// The system reads only the first entries of LSApplicationQueriesSchemes.
constexpr std::size_t kQuerySchemesRead = 50;
// The messenger's schemes a host lists; the state API's is optional.
constexpr const char* kKitQuerySchemes[] = {"mirelo", "mireloULAPI", "mireloStateAPI"};
// Stand-ins that let registration go on past a missing value.
constexpr const char* kStandInBundleId = "com.example.mirelo.doctor";
constexpr const char* kStandInAppId = "mrdoctorstandin";
constexpr const char* kStandInLink = "https://doctor.example.invalid/mirelo/";
// Answers the messenger opens through the universal link; the association
// file must let every one of them reach the app.
constexpr const char* kAnswerNames[] = {"refreshToken",        "resendContextReqByScheme", "oauth",
                                        "launchmraredirectingpage", "pay",                 "jointpay",
                                        "offlinepay",          "cardPackage",              "choosecard",
                                        "chooseinvoice",       "openwebview",              "openbusinesswebview",
                                        "openranklist",        "opentypewebview",          "platformId=mirelo"};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

std::string inQuotes(std::string_view s) { return "\"" + std::string(s) + "\""; }

// ---- registration on a simulated device ------------------------------------

struct Attempt {
  bool accepted = false;
  std::vector<std::string> lines;
};

Attempt registerOnce(const Dictionary& info, const std::string& bundleId, const std::string& appId,
                     const std::string& link) {
  const std::shared_ptr<sim::SimDevice> device = sim::SimDevice::create();
  sim::AppManifest manifest;
  manifest.bundleId = bundleId;
  manifest.infoPlist = info;
  device->install(std::move(manifest));
  std::shared_ptr<platform::Platform> previous = platform::setCurrent(device->app(bundleId)->platform());
  device->runKitAs(bundleId);
  platform::resetProcessState();
  Attempt attempt;
  MRApi::startLogByLevel(MRLogLevelNormal, [&attempt](const std::string& line) { attempt.lines.push_back(line); });
  attempt.accepted = MRApi::registerApp(appId, link);
  platform::resetProcessState();
  platform::setCurrent(std::move(previous));
  return attempt;
}

// The scheme named in "...scheme(%@)..." of a refusal line.
std::string schemeIn(const std::string& line) {
  const std::size_t open = line.find("scheme(");
  const std::size_t close = line.find(')', open);
  if (open == std::string::npos || close == std::string::npos) return std::string();
  return line.substr(open + 7, close - open - 7);
}

std::string querySchemeFix(const Dictionary& info, const std::string& scheme) {
  const Value* v = info.find(kQuerySchemesKey);
  if (!v) {
    return "add " + std::string(kQuerySchemesKey) + " (an array of strings) to Info.plist and list " + inQuotes(scheme) +
           " in it";
  }
  const Array* list = v->asArray();
  if (!list) return std::string(kQuerySchemesKey) + " must be an array of strings: make it one and list " + inQuotes(scheme);
  for (const Value& item : *list) {
    if (item.isString() && equalsIgnoringCase(*item.asString(), scheme)) {
      return "list " + inQuotes(scheme) + " exactly so: Info.plist has " + inQuotes(*item.asString()) +
             " and the kit compares case-sensitively";
    }
  }
  return "add " + inQuotes(scheme) + " to " + kQuerySchemesKey + " in Info.plist";
}

void addQueryScheme(Dictionary& info, const std::string& scheme) {
  Value* v = info.find(kQuerySchemesKey);
  if (!v || !v->isArray()) {
    info.set(kQuerySchemesKey, Value(Array{Value(scheme)}));
    return;
  }
  v->asArray()->push_back(Value(scheme));
}

void removeUrlScheme(Dictionary& info, const std::string& scheme) {
  Value* types = info.find(kUrlTypesKey);
  if (!types || !types->isArray()) return;
  for (Value& type : types->asArray()->items()) {
    Dictionary* d = type.asDictionary();
    Value* schemes = d ? d->find(kUrlSchemesKey) : nullptr;
    if (!schemes || !schemes->isArray()) continue;
    auto& items = schemes->asArray()->items();
    items.erase(std::remove_if(items.begin(), items.end(),
                               [&scheme](const Value& s) { return s.isString() && *s.asString() == scheme; }),
                items.end());
  }
}

// Registers until the kit accepts, repairing the simulated integration after
// each refusal.  Returns whether the kit refused anything.
bool checkRegistration(Dictionary info, const std::string& bundleId, std::string appId, std::string link,
                       DoctorReport* report) {
  const Dictionary original = info;
  std::string previousLine;
  bool refused = false;
  // Eight checks, each repaired at most once per scheme: a bound well above.
  for (int round = 0; round < 16; ++round) {
    const Attempt attempt = registerOnce(info, bundleId, appId, link);
    if (attempt.accepted) return refused;
    std::string line;
    for (const std::string& l : attempt.lines) {
      if (l.find("register fail") != std::string::npos) line = l;
    }
    refused = true;
    if (line.empty() || line == previousLine) {
      if (line.empty()) {
        report->findings.push_back({"registration", "registration refused without a log line",
                                    "run the kit with a log sink (MRApi::startLogByLevel) to see why"});
      }
      return refused;
    }
    previousLine = line;
    Finding f{"registration", line, ""};
    if (line.find("appId is nil") != std::string::npos) {
      f.fix = "pass the app id that the open platform issued to the app";
      appId = kStandInAppId;
    } else if (line.find("universal link is nil") != std::string::npos) {
      f.fix = "pass the app's universal link: https, a path of the app's own, no query";
      link = kStandInLink;
    } else if (line.find("must be https link") != std::string::npos) {
      f.fix = "use an https link, written in lower case: https://<domain>/<path>/";
      const std::size_t sep = link.find("://");
      link = sep == std::string::npos ? kStandInLink : "https" + link.substr(sep);
    } else if (line.find("can not contain query") != std::string::npos) {
      f.fix = "drop the query (\"?...\") from the universal link";
      link = link.substr(0, link.find('?'));
    } else if (line.find(kQuerySchemesKey) != std::string::npos) {
      const std::string scheme = schemeIn(line);
      f.fix = querySchemeFix(original, scheme);
      addQueryScheme(info, scheme);
    } else if (line.find("URL types should not register") != std::string::npos) {
      const std::string scheme = schemeIn(line);
      f.fix = "remove " + inQuotes(scheme) + " from " + kUrlTypesKey + "/" + kUrlSchemesKey +
              " in Info.plist: that scheme is the messenger's, not the app's";
      removeUrlScheme(info, scheme);
    } else {
      f.fix = "see the kit's registration checks";
      report->findings.push_back(std::move(f));
      return refused;
    }
    report->findings.push_back(std::move(f));
  }
  return refused;
}

// ---- the app id's URL type ---------------------------------------------------

bool listsUrlScheme(const Dictionary& info, std::string_view scheme) {
  const Array* types = info.mrApi_arrayForKey(kUrlTypesKey);
  if (!types) return false;
  for (const Value& type : *types) {
    const Dictionary* d = type.asDictionary();
    const Array* schemes = d ? d->mrApi_arrayForKey(kUrlSchemesKey) : nullptr;
    if (!schemes) continue;
    for (const Value& s : *schemes) {
      if (s.isString() && equalsIgnoringCase(*s.asString(), scheme)) return true;
    }
  }
  return false;
}

// ---- scheme hygiene and the query-scheme list ----------------------------------------

// A scheme the way the build wrote it: stray white space, or a build
// setting left unexpanded ("$(VAR)", "${VAR}").
std::string schemeFlaw(const std::string& s) {
  if (s.find("$(") != std::string::npos || s.find("${") != std::string::npos) return "an unexpanded build setting";
  if (!s.empty() && (std::isspace(static_cast<unsigned char>(s.front())) ||
                     std::isspace(static_cast<unsigned char>(s.back())))) {
    return "stray white space";
  }
  return std::string();
}

void checkSchemeSpelling(const Dictionary& info, DoctorReport* report) {
  auto check = [report](const Value& v, const std::string& where) {
    if (!v.isString()) return;
    const std::string flaw = schemeFlaw(*v.asString());
    if (flaw.empty()) return;
    const bool setting = flaw[0] == 'a';
    report->findings.push_back(
        {where == kQuerySchemesKey ? "query-schemes" : "url-scheme",
         "the scheme " + inQuotes(*v.asString()) + " in " + where + " has " + flaw,
         setting ? "pass the built app's Info.plist (inside the .app), or define the build setting"
                 : "write the scheme without spaces: the system compares it exactly"});
  };
  if (const Array* types = info.mrApi_arrayForKey(kUrlTypesKey)) {
    for (const Value& type : *types) {
      const Dictionary* d = type.asDictionary();
      const Array* schemes = d ? d->mrApi_arrayForKey(kUrlSchemesKey) : nullptr;
      if (schemes) {
        for (const Value& v : *schemes) check(v, std::string(kUrlTypesKey) + "/" + kUrlSchemesKey);
      }
    }
  }
  if (const Array* list = info.mrApi_arrayForKey(kQuerySchemesKey)) {
    for (const Value& v : *list) check(v, kQuerySchemesKey);
  }
}

// Warnings about the query-scheme list that registration does not refuse.
void checkQuerySchemes(const Dictionary& info, DoctorReport* report) {
  const Array* list = info.mrApi_arrayForKey(kQuerySchemesKey);
  if (!list) return;
  bool state = false;
  for (std::size_t i = 0; i < list->size(); ++i) {
    const Value& v = (*list)[i];
    if (!v.isString()) continue;
    if (*v.asString() == "mireloStateAPI") state = i < kQuerySchemesRead;
    if (i < kQuerySchemesRead) continue;
    for (const char* kit : kKitQuerySchemes) {
      if (*v.asString() == kit) {
        report->findings.push_back(
            {"query-schemes",
             inQuotes(kit) + " is entry " + std::to_string(i + 1) + " of " + kQuerySchemesKey +
                 ", and the system reads only the first " + std::to_string(kQuerySchemesRead),
             "move the messenger's schemes to the top of " + std::string(kQuerySchemesKey)});
      }
    }
  }
  if (list->size() > kQuerySchemesRead) {
    report->notes.push_back("warning: " + std::string(kQuerySchemesKey) + " has " + std::to_string(list->size()) +
                            " entries; the system reads only the first " + std::to_string(kQuerySchemesRead));
  }
  if (!state) {
    report->notes.push_back("warning: \"mireloStateAPI\" is not among the first " +
                            std::to_string(kQuerySchemesRead) + " entries of " + kQuerySchemesKey +
                            ": MRApi::isMRAppSupportStateAPI() answers false and the state scene is unavailable");
  }
}

// ---- the entitlements -------------------------------------------------------------

void checkEntitlements(const std::string& bytes, const std::string& host, DoctorReport* report) {
  std::string error;
  const Value plist = decodePropertyList(Data::copy(bytes), &error);
  const Dictionary* d = plist.asDictionary();
  if (!d) {
    report->badInput = true;
    report->findings.push_back({"entitlements", "the entitlements file is not a property list holding a dictionary" +
                                                    (error.empty() ? std::string() : ": " + error),
                                "pass the app's .entitlements file"});
    return;
  }
  const std::string wanted = "applinks:" + host;
  const Array* domains = d->mrApi_arrayForKey(kAssociatedDomainsKey);
  if (domains) {
    for (const Value& v : *domains) {
      if (!v.isString()) continue;
      const std::string& e = *v.asString();
      // "applinks:<host>" or with a mode, "applinks:<host>?mode=developer".
      if (e == wanted || e.rfind(wanted + "?", 0) == 0) {
        report->passed.push_back("entitlements");
        return;
      }
    }
  }
  report->findings.push_back(
      {"entitlements",
       std::string(domains ? "the associated domains do not list " : "the entitlements have no ") +
           (domains ? inQuotes(wanted) : std::string(kAssociatedDomainsKey)),
       "add " + inQuotes(wanted) + " to " + kAssociatedDomainsKey + " in the app's entitlements"});
}

// Every app id the association file's applinks entries name.
std::vector<std::string> associationAppIds(const std::string& text) {
  std::vector<std::string> ids;
  const nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
  if (!j.is_object() || !j.contains("applinks") || !j["applinks"].is_object()) return ids;
  const nlohmann::json& details = j["applinks"].value("details", nlohmann::json());
  if (!details.is_array()) return ids;
  for (const nlohmann::json& e : details) {
    if (!e.is_object()) continue;
    if (e.contains("appID") && e["appID"].is_string()) ids.push_back(e["appID"].get<std::string>());
    if (e.contains("appIDs") && e["appIDs"].is_array()) {
      for (const nlohmann::json& id : e["appIDs"]) {
        if (id.is_string()) ids.push_back(id.get<std::string>());
      }
    }
  }
  return ids;
}

// ---- the universal link -----------------------------------------------------------

struct LinkParts {
  bool usable = false;  // parsed, https, with a host: the association can be checked
  bool bare = false;    // no path of its own: the link's finding already gives the fix
  std::string host;
  std::string path;     // ends in "/"
};

// `kitRan`: registration ran on the link, and reported its scheme and query
// problems itself (`kitRefusedScheme` when it refused the scheme).
LinkParts checkLink(const std::string& link, bool kitRan, bool kitRefusedScheme, DoctorReport* report) {
  LinkParts parts;
  const std::size_t before = report->findings.size();
  const std::optional<URL> url = URL::fromString(link);
  if (!url || url->scheme().isNull()) {
    report->findings.push_back({"universal-link", inQuotes(link) + " is not a valid URL",
                                "write the link as https://<domain>/<path>/"});
    return parts;
  }
  const bool https = equalsIgnoringCase(url->scheme().view(), "https");
  if (!https && !kitRefusedScheme) {
    report->findings.push_back({"universal-link", "the universal link is not an https URL (scheme " +
                                                      inQuotes(url->scheme().str()) + ")",
                                "use an https link: https://<domain>/<path>/"});
  }
  if (!kitRan && !url->query().isNull()) {
    report->findings.push_back({"universal-link", "the universal link has a query",
                                "drop the query (\"?...\") from the universal link"});
  }
  if (url->host().empty()) {
    report->findings.push_back({"universal-link", "the universal link has no host",
                                "write the link as https://<domain>/<path>/"});
  }
  if (!url->fragment().isNull()) {
    report->findings.push_back({"universal-link", "the universal link has a fragment (\"#...\")",
                                "drop the fragment: the messenger appends \"<app id>/<answer>\" to the link"});
  }
  std::string path = url->path().str();
  if (path.empty() || path == "/") {
    parts.bare = true;
    report->findings.push_back(
        {"universal-link", "the universal link has no path: the messenger answers at <link><app id>/...",
         "give the link a path of the app's own, such as https://" + url->host().str() +
             "/mirelo/, and claim it in the association file"});
  }
  if (report->findings.size() == before) report->passed.push_back("universal-link");
  parts.usable = https && !url->host().empty();
  parts.host = url->host().str();
  if (path.empty() || path.back() != '/') path += "/";
  parts.path = path;
  return parts;
}

// ---- the association file -----------------------------------------------------------

void checkAssociationFile(const std::string& text, const std::string& teamId, const std::string& bundleId,
                          const std::string& appId, const LinkParts& link, DoctorReport* report) {
  std::vector<AssociationUrl> urls;
  for (const char* name : kAnswerNames) urls.push_back({link.path + appId + "/" + name, "", ""});
  const AssociationVerdict v = checkAssociation(text, teamId, bundleId, urls);
  const std::string app = teamId.empty() ? "of any team with bundle id " + inQuotes(bundleId)
                                         : inQuotes(teamId + "." + bundleId);
  const std::string appIdExample = (teamId.empty() ? std::string("<team id>") : teamId) + "." + bundleId;
  const std::string claim = "{\"appIDs\": [\"" + appIdExample + "\"], \"components\": [{\"/\": \"" + link.path + "*\"}]}";
  if (teamId.empty() && !v.appIds.empty()) {
    std::string ids;
    for (const std::string& id : v.appIds) ids += (ids.empty() ? "" : ", ") + id;
    report->notes.push_back("no --team-id: any team with bundle id " + inQuotes(bundleId) + " was accepted (found " +
                            ids + ")");
  }
  switch (v.kind) {
    case AssociationVerdict::Kind::Malformed:
      report->findings.push_back({"association", "the association file is unusable: " + v.detail,
                                  "serve JSON with an \"applinks\" object holding a \"details\" array at https://" +
                                      link.host + "/.well-known/apple-app-site-association"});
      return;
    case AssociationVerdict::Kind::NoEntry: {
      std::string listed;
      for (const std::string& id : associationAppIds(text)) listed += (listed.empty() ? "" : ", ") + inQuotes(id);
      std::string problem = "the association file names no app " + app;
      problem += listed.empty() ? std::string(" (it lists no app ids)") : " (it lists " + listed + ")";
      std::string fix = "add " + claim + " to applinks.details";
      if (!teamId.empty() && listed.find("." + bundleId + "\"") != std::string::npos) {
        fix = "check --team-id: the file names the bundle id under another team; if it is right, " + fix;
      }
      report->findings.push_back({"association", problem, fix});
      return;
    }
    case AssociationVerdict::Kind::NotCovered: {
      std::string problem = "the association file does not let " + v.refused.front() + " reach the app (" +
                            v.detail + ")";
      if (v.refused.size() > 1) {
        problem += ", nor " + std::to_string(v.refused.size() - 1) + " more answer path" +
                   (v.refused.size() > 2 ? "s" : "");
      }
      std::string fix = "claim \"" + link.path + "*\" for the app, e.g. its entry " + claim;
      if (v.detail.rfind("excluded by ", 0) == 0) {
        // The first matching pattern decides: adding a claim after the
        // excluding one changes nothing.
        fix = "in the app's entry, " + v.detail.substr(12) + " matches " + v.refused.front() +
              " and excludes it: narrow or remove that pattern, or place a claim of \"" + link.path +
              "*\" before it (the first matching pattern decides)";
      }
      report->findings.push_back({"association", problem, fix});
      return;
    }
    case AssociationVerdict::Kind::Covered:
      report->passed.push_back("association");
      return;
  }
}

}  // namespace

DoctorReport runDoctor(const DoctorInput& input) {
  DoctorReport report;

  // The Info.plist.
  std::string error;
  const Value plist = decodePropertyList(input.infoPlist, &error);
  const Dictionary* info = plist.asDictionary();
  if (!info) report.badInput = true;
  if (plist.isNull()) {
    report.findings.push_back({"info-plist", "the Info.plist is not a property list: " + error,
                               "pass the app's Info.plist (XML or binary)"});
  } else if (!info) {
    report.findings.push_back({"info-plist", "the Info.plist does not hold a dictionary",
                               "pass the app's Info.plist (XML or binary)"});
  }
  std::string bundleId;
  if (info) {
    const String b = info->mrApi_stringForKey(kBundleIdKey);
    if (b.empty()) {
      report.findings.push_back({"info-plist", "the Info.plist has no CFBundleIdentifier",
                                 "set CFBundleIdentifier to the app's bundle id"});
    } else if (b.contains("$(")) {
      report.findings.push_back({"info-plist", "CFBundleIdentifier is the unfilled build setting " + inQuotes(b.str()),
                                 "pass the built app's Info.plist (inside the .app), where build settings are filled in"});
    } else {
      bundleId = b.str();
      report.passed.push_back("info-plist");
    }
  }
  if (!info) report.notes.push_back("registration and URL type checks skipped: no usable Info.plist");

  // Registration, with the kit's own texts.
  bool kitRefusedScheme = false;
  if (info) {
    const std::size_t before = report.findings.size();
    if (!checkRegistration(*info, bundleId.empty() ? kStandInBundleId : bundleId, input.appId,
                           input.universalLink, &report)) {
      report.passed.push_back("registration");
    }
    for (std::size_t i = before; i < report.findings.size(); ++i) {
      kitRefusedScheme = kitRefusedScheme || report.findings[i].problem.find("must be https link") != std::string::npos;
    }

    checkSchemeSpelling(*info, &report);
    checkQuerySchemes(*info, &report);

    // The scheme the messenger answers through.
    if (!input.appId.empty()) {
      if (listsUrlScheme(*info, input.appId)) {
        report.passed.push_back("url-scheme");
      } else {
        report.findings.push_back(
            {"url-scheme",
             "no URL type lists the app id " + inQuotes(input.appId) + " as a scheme: the messenger answers through " +
                 input.appId + "://",
             "add a CFBundleURLTypes entry whose CFBundleURLSchemes holds " + inQuotes(input.appId)});
      }
    }
  }

  // The universal link (an empty one is the registration's finding).
  LinkParts link;
  if (!input.universalLink.empty()) link = checkLink(input.universalLink, info != nullptr, kitRefusedScheme, &report);

  // The entitlements.
  if (input.entitlements) {
    if (link.host.empty()) {
      report.notes.push_back("entitlements check skipped: it needs the universal link's host");
    } else {
      checkEntitlements(*input.entitlements, link.host, &report);
    }
  }

  // The association file.
  if (input.association && !input.associationDomain.empty() && link.usable &&
      !equalsIgnoringCase(input.associationDomain, link.host)) {
    report.findings.push_back(
        {"association", "the association file comes from " + inQuotes(input.associationDomain) +
                            ", not from the universal link's domain " + inQuotes(link.host),
         "check the file served at https://" + link.host + "/.well-known/apple-app-site-association"});
  } else if (input.association) {
    if (link.bare) {
      report.notes.push_back("association check skipped: give the universal link a path of its own first");
    } else if (bundleId.empty() || input.appId.empty() || !link.usable) {
      report.notes.push_back("association check skipped: it needs the bundle id, the app id and an https link");
    } else {
      checkAssociationFile(*input.association, input.teamId, bundleId, input.appId, link, &report);
    }
  }
  return report;
}

Json DoctorReport::json() const {
  Json j = Json::object();
  j["ok"] = ok();
  Json list = Json::array();
  for (const Finding& f : findings) list.push_back(Json{{"check", f.check}, {"problem", f.problem}, {"fix", f.fix}});
  j["findings"] = std::move(list);
  j["notes"] = notes;
  j["passed"] = passed;
  return j;
}

std::string DoctorReport::text() const {
  std::string out;
  for (const Finding& f : findings) out += f.check + ": " + f.problem + " -- fix: " + f.fix + "\n";
  for (const std::string& n : notes) out += "note: " + n + "\n";
  if (ok()) {
    std::string names;
    for (const std::string& p : passed) names += (names.empty() ? "" : ", ") + p;
    out += "all checks passed (" + names + ")\n";
  } else {
    out += std::to_string(findings.size()) + (findings.size() == 1 ? " problem" : " problems") + " found\n";
  }
  return out;
}

}  // namespace mirelo::tooling
