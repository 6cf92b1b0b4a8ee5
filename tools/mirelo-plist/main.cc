// mirelo-plist: converts between property lists (binary bplist00, read and
// written with the kit's own codec, or XML) and the kit's JSON form of
// property-list values, so integrators can look at and prepare what the kit
// writes and reads.
//
//   mirelo-plist decode FILE                       property list -> JSON on stdout
//   mirelo-plist encode [--format binary|xml] FILE JSON -> property list on stdout
//
// decode tells the formats apart by the first byte: "<" (after white space
// or a byte-order mark) is XML, anything else is read as binary.
// FILE "-" is standard input.  On bad input the tool writes one line naming
// the problem to stderr, nothing to stdout, and exits with status 1; a bad
// command line exits with status 2.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <CLI/CLI.hpp>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "tools/common/ToolIO.h"
#include "tools/common/XmlPlist.h"
#include "util/BinaryPlist.h"
#include "util/PlistJson.h"

namespace {

constexpr const char* kFooter = R"(JSON form:
  dictionary -> object (keys in order), array -> array, string -> string,
  boolean -> true/false, integer -> integer (64-bit signed or unsigned),
  real -> number with a decimal point or an exponent (1.0, 2.5e-05),
  data -> {"$data": "<Base64>"}, date -> {"$date": <seconds since 2001-01-01>},
  UID -> {"$uid": <integer>}; reals JSON cannot hold -> {"$real": "inf"},
  {"$real": "-inf"}, {"$real": "nan"}.  A dictionary key such as "$data"
  is written "$$data" (one "$" more) so it is not taken for a special value.

XML property lists: decode reads them (the first byte "<" tells XML from
binary); encode --format xml writes them.  UIDs are written
<dict><key>CF$UID</key><integer>N</integer></dict> and read back as UIDs;
XML dates carry whole seconds, so a fraction is dropped when writing XML.

FILE "-" reads standard input.  Exit status: 0 success, 1 bad input or
unreadable file (one line on stderr, nothing on stdout), 2 bad command line.)";

void complain(const std::string& name, const std::string& message) {
  std::fprintf(stderr, "mirelo-plist: %s: %s\n", name.c_str(), message.c_str());
}

std::string displayName(const std::string& path) { return mirelo::tooling::displayName(path); }

// Reads the whole file (or standard input for "-").
bool readAll(const std::string& path, std::string* out) {
  std::string error;
  if (mirelo::tooling::readFile(path, out, &error)) return true;
  std::fprintf(stderr, "mirelo-plist: %s\n", error.c_str());
  return false;
}

bool writeAll(const void* bytes, std::size_t size) {
  if (!mirelo::tooling::writeStdout(bytes, size)) {
    complain("standard output", std::strerror(errno));
    return false;
  }
  return true;
}

int decodeCommand(const std::string& path) {
  std::string bytes;
  if (!readAll(path, &bytes)) return 1;
  std::string error;
  const mirelo::Value v = mirelo::tooling::decodePropertyList(mirelo::Data::adopt(std::move(bytes)), &error);
  if (v.isNull()) {
    complain(displayName(path), error);
    return 1;
  }
  std::string text = mirelo::plistjson::toJson(v);
  text.push_back('\n');
  return writeAll(text.data(), text.size()) ? 0 : 1;
}

int encodeCommand(const std::string& path, const std::string& format) {
  std::string text;
  if (!readAll(path, &text)) return 1;
  std::string error;
  const mirelo::Value v = mirelo::plistjson::fromJson(text, &error);
  if (!error.empty()) {
    complain(displayName(path), error);
    return 1;
  }
  if (format == "xml") {
    const std::string xml = mirelo::tooling::encodeXmlPlist(v, &error);
    if (xml.empty()) {
      complain(displayName(path), error);
      return 1;
    }
    return writeAll(xml.data(), xml.size()) ? 0 : 1;
  }
  const mirelo::Data out = mirelo::bplist::encode(v, &error);
  if (out.isNull()) {
    complain(displayName(path), error);
    return 1;
  }
  return writeAll(out.bytes(), out.size()) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Converts between property lists (binary or XML) and JSON, with the Mirelo Kit's own codec.",
               "mirelo-plist"};
  app.footer(kFooter);
  app.require_subcommand(1);

  std::string decodePath;
  CLI::App* decode = app.add_subcommand("decode", "Print the property list (binary or XML) in FILE as JSON");
  decode->add_option("FILE", decodePath, "Binary or XML property list, or - for standard input")->required();

  std::string encodePath;
  std::string format = "binary";
  CLI::App* encode = app.add_subcommand("encode", "Write the JSON in FILE as a property list");
  encode->add_option("FILE", encodePath, "JSON text, or - for standard input")->required();
  encode->add_option("--format", format, "binary (bplist00, the default) or xml")
      ->check(CLI::IsMember({"binary", "xml"}));

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "mirelo-plist: %s (see mirelo-plist --help)\n", e.what());
    return 2;
  }

  if (decode->parsed()) return decodeCommand(decodePath);
  return encodeCommand(encodePath, format);
}
