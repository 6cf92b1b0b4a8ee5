// The JSON reader of mirelo-plist: any text reads or is refused with a
// reason, and what reads is written and read back the same; a value that
// has a binary property-list form keeps it through the binary codec.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "mirelo/Value.h"
#include "util/BinaryPlist.h"
#include "util/PlistJson.h"

namespace mirelo::fuzz {

inline std::string runPlistJson(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string error;
  const Value value = plistjson::fromJson(text, &error);
  // JSON never holds a raw NUL.
  if (text.find('\0') != std::string::npos && (!value.isNull() || error.empty())) return "a NUL was read as JSON";
  if (value.isNull()) {
    // JSON null is a value of its own; anything else that reads as null
    // must say why.
    return !error.empty() || text.find("null") != std::string::npos ? std::string() : "refused without a reason";
  }
  const std::string written = plistjson::toJson(value);
  std::string againError;
  const Value again = plistjson::fromJson(written, &againError);
  if (again.isNull()) return "the writer's own JSON does not read: " + againError;
  if (plistjson::toJson(again) != written) return "reading the writer's own JSON gives another value";
  // Values without nulls have a binary form; the binary codec keeps them.
  const Data binary = bplist::encode(value);
  if (!binary.isNull()) {
    std::string binaryError;
    const Value decoded = bplist::decode(binary, &binaryError);
    if (decoded.isNull()) return "the binary form does not decode: " + binaryError;
    if (plistjson::toJson(decoded) != written) return "the binary form holds another value";
  }
  return std::string();
}

}  // namespace mirelo::fuzz
