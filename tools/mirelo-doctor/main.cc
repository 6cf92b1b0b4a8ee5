// mirelo-doctor: checks an app's integration of the Mirelo Kit before it
// runs.
//
//   mirelo-doctor --info-plist FILE --app-id ID --universal-link LINK
//                 [--association FILE [--association-domain HOST]]
//                 [--entitlements FILE] [--team-id TEAM] [--json]
//
// Prints one line per problem with its fix.  Exit status: 0 every check
// passed, 1 problems found, 2 bad command line, a file that cannot be read,
// or an Info.plist or entitlements file that is not a property list.
#include <cstdio>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "mirelo/Data.h"
#include "tools/common/Doctor.h"
#include "tools/common/ToolIO.h"

namespace {

constexpr const char* kFooter = R"(Checks:
  info-plist      the Info.plist reads (XML or binary) and names its bundle id
  registration    what MRApi::registerApp refuses, with the kit's own log
                  lines: the kit runs on a simulated device whose app has this
                  Info.plist; every refusal is reported, not only the first
  url-scheme      a URL type lists the app id: the messenger answers through
                  <app id>://; no scheme has stray spaces or an unexpanded
                  $(VAR)
  query-schemes   the messenger's schemes are among the first 50 entries of
                  LSApplicationQueriesSchemes (all the system reads); a
                  warning without "mireloStateAPI" or with more than 50
  universal-link  https, a host, a path of its own, no query, no fragment
  entitlements    with --entitlements: com.apple.developer.associated-domains
                  lists "applinks:<the link's host>"
  association     with --association: the apple-app-site-association file's
                  applinks entry for "<team id>.<bundle id>" lets the
                  messenger's answers (<link><app id>/<answer>) reach the app
                  ("paths" with NOT, * and ?; "components" with "/", "?",
                  "#" and "exclude").  The bundle id comes from the
                  Info.plist's CFBundleIdentifier; without --team-id any team
                  with that bundle id is accepted, and a note says so.  With
                  --association-domain, the file must come from the link's
                  host.  A file that names no such app lists the app ids it
                  does name.

Output: one line per problem, "<check>: <problem> -- fix: <fix>", then
notes and a summary line; --json prints {"ok", "findings", "notes",
"passed"}.  Exit status: 0 every check passed, 1 problems found, 2 bad
command line, a file that cannot be read, or an Info.plist or entitlements
file that is not a property list.)";

bool readInput(const std::string& path, std::string* out) {
  std::string error;
  if (mirelo::tooling::readFile(path, out, &error)) return true;
  std::fprintf(stderr, "mirelo-doctor: %s\n", error.c_str());
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Checks an app's Mirelo Kit integration before it runs.", "mirelo-doctor"};
  app.footer(kFooter);
  std::string infoPlistPath;
  std::string associationPath;
  mirelo::tooling::DoctorInput input;
  bool json = false;
  app.add_option("--info-plist", infoPlistPath, "The app's Info.plist (XML or binary)")->required();
  app.add_option("--app-id", input.appId, "The app id the open platform issued")->required();
  app.add_option("--universal-link", input.universalLink, "The universal link passed to registerApp")->required();
  app.add_option("--association", associationPath, "The apple-app-site-association file of the link's domain");
  std::string entitlementsPath;
  app.add_option("--association-domain", input.associationDomain,
                 "The host the association file was fetched from");
  app.add_option("--entitlements", entitlementsPath, "The app's entitlements file (a property list)");
  app.add_option("--team-id", input.teamId, "The app's team id (the association names \"<team id>.<bundle id>\")");
  app.add_flag("--json", json, "Print the report as JSON");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "mirelo-doctor: %s (see mirelo-doctor --help)\n", e.what());
    return 2;
  }

  std::string plistBytes;
  if (!readInput(infoPlistPath, &plistBytes)) return 2;
  input.infoPlist = mirelo::Data::adopt(std::move(plistBytes));
  if (!associationPath.empty()) {
    std::string text;
    if (!readInput(associationPath, &text)) return 2;
    input.association = std::move(text);
  }
  if (!entitlementsPath.empty()) {
    std::string text;
    if (!readInput(entitlementsPath, &text)) return 2;
    input.entitlements = std::move(text);
  }

  const mirelo::tooling::DoctorReport report = mirelo::tooling::runDoctor(input);
  const std::string out = json ? mirelo::tooling::dumpJson(report.json()) + "\n" : report.text();
  if (!mirelo::tooling::writeStdout(out)) {
    std::fprintf(stderr, "mirelo-doctor: standard output: write failed\n");
    return 2;
  }
  if (report.badInput) return 2;
  return report.ok() ? 0 : 1;
}
