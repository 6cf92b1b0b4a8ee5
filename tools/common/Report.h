// The reports of the command-line tools: one JSON document per run, which
// --json prints as it is and the text mode renders for people.
//
// Conventions the text renderer knows:
//   {"size": N, "hexPrefix": "..."}   data, shown as "N bytes, 0a1b2c..."
//   {"number": N, "name": "..."}      a code with its name: "N (name)"
// Strings are printed as they are when that is unambiguous and safe for a
// terminal, otherwise JSON-quoted; null prints as "(none)".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "mirelo/platform/Platform.h"

namespace mirelo::tooling {

using Json = nlohmann::ordered_json;

// Bytes of data shown in a report.
inline constexpr std::size_t kHexPrefixBytes = 16;
// Hex digits of a token's SHA-256 shown in a report.
inline constexpr std::size_t kTokenDigestDigits = 16;

// {"size": N, "hexPrefix": first kHexPrefixBytes bytes in hex}.
Json dataNode(const Data& data);
// {"number": N, "name": name}.
Json namedNumber(std::int64_t number, std::string_view name);
// A property-list value in the report's form: data as dataNode, dates as
// {"date": ISO 8601}, UIDs as {"uid": N}, containers recursively.
Json valueNode(const Value& value);
// JSON text safe for any byte content (invalid UTF-8 is replaced).
std::string dumpJson(const Json& report);
// The report as indented "key: value" lines.
std::string renderText(const Json& report);

// The first kTokenDigestDigits hex digits of the SHA-256 of `text`.
std::string sha256Prefix(std::string_view text);
// The full lower-case hex SHA-256 of `text`.
std::string sha256Hex(std::string_view text);
// Hashing and Base64 for the tools (libcrypto, no device needed).
platform::Crypto& toolCrypto();

}  // namespace mirelo::tooling
