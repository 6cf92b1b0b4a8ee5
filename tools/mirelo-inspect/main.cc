// mirelo-inspect: decodes what travels between a host app and the Mirelo
// messenger, for developers integrating the kit.
//
//   mirelo-inspect [--json] pasteboard FILE
//   mirelo-inspect [--json] url [--app-id ID] [--universal-link LINK] URL
//   mirelo-inspect [--json] keychain FILE
//
// FILE "-" is standard input.  Tokens are shown only as the first digits of
// their SHA-256.  Exit status: 0 decoded, 1 bad input (one line on stderr,
// nothing on stdout), 2 bad command line.
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "mirelo/Data.h"
#include "tools/common/Inspect.h"
#include "tools/common/ToolIO.h"

namespace {

using mirelo::tooling::InspectResult;

constexpr const char* kFooter = R"(Commands:
  pasteboard FILE  the pasteboard item of type "content": a property list of
                   {app id: record, "old_text": text}.  Shows the app id,
                   old_text, every header field (as written and as the kit
                   reads it), the command by number and name, the body, the
                   media object's fields by its class's names (data by size
                   and a hex prefix) and what the kit delivers from it.
  url URL          a launch URL (mirelo://app/<app id>/... or the messenger's
                   universal link) or an answer URL (<app id>://... or the
                   host's universal link).  Shows the base, app id, command,
                   every query parameter unescaped, token, context id, bundle
                   id and degrade mark.  --universal-link (and --app-id) tell
                   where the host's universal link ends in an answer URL.
  keychain FILE    the keychain token item: its value (a keyed archive of the
                   token's bytes) or the item's attribute dictionary with the
                   value under "v_Data", in a binary or XML property list.

Tokens are shown only as the first 16 hex digits of their SHA-256 (the kit
logs the full digest as "token sha256:...").  FILE "-" reads standard input.
Exit status: 0 decoded, 1 bad input (one line on stderr, nothing on stdout),
2 bad command line.)";

int finish(const InspectResult& result, bool json) {
  if (!result.ok) {
    std::fprintf(stderr, "mirelo-inspect: %s\n", result.error.c_str());
    return 1;
  }
  const std::string out =
      json ? mirelo::tooling::dumpJson(result.report) + "\n" : mirelo::tooling::renderText(result.report);
  if (!mirelo::tooling::writeStdout(out)) {
    std::fprintf(stderr, "mirelo-inspect: standard output: write failed\n");
    return 1;
  }
  return 0;
}

// Reads FILE and runs `inspect` on its bytes.
template <class Inspect>
int inspectFile(const std::string& path, bool json, Inspect inspect) {
  std::string bytes;
  std::string error;
  if (!mirelo::tooling::readFile(path, &bytes, &error)) {
    std::fprintf(stderr, "mirelo-inspect: %s\n", error.c_str());
    return 1;
  }
  InspectResult result = inspect(mirelo::Data::adopt(std::move(bytes)));
  if (!result.ok) result.error = mirelo::tooling::displayName(path) + ": " + result.error;
  return finish(result, json);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Decodes what travels between a host app and the Mirelo messenger.", "mirelo-inspect"};
  app.footer(kFooter);
  app.require_subcommand(1);
  bool json = false;
  app.add_flag("--json", json, "Print the report as JSON");

  std::string pasteboardPath;
  CLI::App* pasteboard = app.add_subcommand("pasteboard", "Decode a pasteboard \"content\" item");
  pasteboard->add_option("FILE", pasteboardPath, "The item's bytes, or - for standard input")->required();
  pasteboard->fallthrough();

  std::string url;
  mirelo::tooling::UrlOptions urlOptions;
  CLI::App* urlCommand = app.add_subcommand("url", "Explain a launch URL or an answer URL");
  urlCommand->add_option("URL", url, "The URL")->required();
  urlCommand->add_option("--app-id", urlOptions.appId, "The host's app id");
  urlCommand->add_option("--universal-link", urlOptions.universalLink, "The host's registered universal link");
  urlCommand->fallthrough();

  std::string keychainPath;
  CLI::App* keychain = app.add_subcommand("keychain", "Decode the keychain token item");
  keychain->add_option("FILE", keychainPath, "The item or its value, or - for standard input")->required();
  keychain->fallthrough();

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "mirelo-inspect: %s (see mirelo-inspect --help)\n", e.what());
    return 2;
  }

  if (pasteboard->parsed()) return inspectFile(pasteboardPath, json, mirelo::tooling::inspectPasteboard);
  if (keychain->parsed()) return inspectFile(keychainPath, json, mirelo::tooling::inspectKeychain);
  return finish(mirelo::tooling::inspectUrl(url, urlOptions), json);
}
