#include "tools/common/Report.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "ports/linux/crypto_openssl.h"
#include "tools/common/XmlPlist.h"

namespace mirelo::tooling {

namespace {

bool isDataNode(const Json& j) {
  return j.is_object() && j.size() == 2 && j.contains("size") && j.contains("hexPrefix");
}

bool isNamedNumber(const Json& j) {
  return j.is_object() && j.size() == 2 && j.contains("number") && j.contains("name");
}

// A string is printed bare when it is non-empty, printable (UTF-8 beyond
// ASCII included), has no surrounding blanks and does not look like a
// number, a boolean or "(none)".
bool printableBare(const std::string& s) {
  if (s.empty() || s.front() == ' ' || s.back() == ' ' || s.front() == '"') return false;
  if (s == "true" || s == "false" || s == "(none)") return false;
  if (!isWellFormedUtf8(s)) return false;
  for (unsigned char c : s) {
    if (c < 0x20 || c == 0x7F) return false;
  }
  // C1 controls (U+0080..U+009F) are C2 80..C2 9F in UTF-8.
  for (std::size_t i = 0; i + 1 < s.size(); ++i) {
    if (static_cast<unsigned char>(s[i]) == 0xC2 && static_cast<unsigned char>(s[i + 1]) < 0xA0) return false;
  }
  char* end = nullptr;
  std::strtod(s.c_str(), &end);
  return end != s.c_str() + s.size();
}

std::string scalarText(const Json& j) {
  if (j.is_null()) return "(none)";
  if (j.is_string()) {
    const std::string& s = j.get_ref<const std::string&>();
    return printableBare(s) ? s : j.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  if (isDataNode(j)) {
    const auto size = j["size"].get<std::uint64_t>();
    const std::string& hex = j["hexPrefix"].get_ref<const std::string&>();
    std::string out = std::to_string(size) + (size == 1 ? " byte" : " bytes");
    if (!hex.empty()) out += ", " + hex + (hex.size() / 2 < size ? "..." : "");
    return out;
  }
  if (isNamedNumber(j)) return j["number"].dump() + " (" + scalarText(j["name"]) + ")";
  return j.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool isScalar(const Json& j) { return !j.is_structured() || isDataNode(j) || isNamedNumber(j); }

void render(const Json& j, int depth, std::string* out);

void renderMember(const std::string& key, const Json& v, int depth, std::string* out) {
  const std::string pad(static_cast<std::size_t>(depth) * 2, ' ');
  const std::string label = printableBare(key) ? key : Json(key).dump(-1, ' ', false, Json::error_handler_t::replace);
  if (isScalar(v)) {
    *out += pad + label + ": " + scalarText(v) + "\n";
    return;
  }
  if (v.empty()) {
    *out += pad + label + ": (none)\n";
    return;
  }
  if (v.is_array()) {
    // Short items share one line; sentences get a line each.
    bool oneLine = true;
    for (const Json& item : v) {
      oneLine = oneLine && isScalar(item) &&
                (!item.is_string() || (item.get_ref<const std::string&>().size() <= 40 &&
                                       item.get_ref<const std::string&>().find(", ") == std::string::npos));
    }
    if (oneLine) {
      std::string line;
      for (const Json& item : v) line += (line.empty() ? "" : ", ") + scalarText(item);
      *out += pad + label + ": " + line + "\n";
      return;
    }
  }
  *out += pad + label + ":\n";
  render(v, depth + 1, out);
}

void render(const Json& j, int depth, std::string* out) {
  const std::string pad(static_cast<std::size_t>(depth) * 2, ' ');
  if (j.is_object()) {
    for (const auto& [key, v] : j.items()) renderMember(key, v, depth, out);
    return;
  }
  if (j.is_array()) {
    for (const Json& item : j) {
      if (isScalar(item)) {
        *out += pad + "- " + scalarText(item) + "\n";
      } else {
        std::string inner;
        render(item, depth + 1, &inner);
        // The first line of the item carries the dash.
        if (inner.size() >= pad.size() + 2) inner.replace(0, pad.size() + 2, pad + "- ");
        *out += inner;
      }
    }
    return;
  }
  *out += pad + scalarText(j) + "\n";
}

}  // namespace

platform::Crypto& toolCrypto() {
  static const std::shared_ptr<platform::Crypto> instance = linuxport::makeOpenSslCrypto();
  return *instance;
}

Json dataNode(const Data& data) {
  return Json{{"size", data.size()}, {"hexPrefix", data.hexPrefix(kHexPrefixBytes)}};
}

Json namedNumber(std::int64_t number, std::string_view name) {
  return Json{{"number", number}, {"name", std::string(name)}};
}

Json valueNode(const Value& value) {
  switch (value.type()) {
    case Value::Type::Null: return nullptr;
    case Value::Type::Bool: return *value.asBool();
    case Value::Type::Int: return *value.asInt();
    case Value::Type::UInt: return *value.asUInt();
    case Value::Type::Real: {
      const double d = *value.asReal();
      if (std::isfinite(d)) return d;
      return std::isnan(d) ? "nan" : (d > 0 ? "inf" : "-inf");
    }
    case Value::Type::String: return *value.asString();
    case Value::Type::Data: return dataNode(*value.asData());
    case Value::Type::Date: {
      const std::string text = plistDateText(value.asDate()->secondsSince2001);
      return Json{{"date", text.empty() ? std::string("(out of range)") : text}};
    }
    case Value::Type::Uid: return Json{{"uid", value.asUid()->value}};
    case Value::Type::Array: {
      Json a = Json::array();
      for (const Value& item : *value.asArray()) a.push_back(valueNode(item));
      return a;
    }
    case Value::Type::Dictionary: {
      Json o = Json::object();
      for (const auto& [key, item] : *value.asDictionary()) o[key] = valueNode(item);
      return o;
    }
  }
  return nullptr;
}

std::string dumpJson(const Json& report) { return report.dump(2, ' ', false, Json::error_handler_t::replace); }

std::string renderText(const Json& report) {
  std::string out;
  render(report, 0, &out);
  return out;
}

std::string sha256Hex(std::string_view text) {
  const std::array<std::uint8_t, 32> digest = toolCrypto().sha256(text.data(), text.size());
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (std::uint8_t b : digest) {
    hex.push_back(kHex[b >> 4]);
    hex.push_back(kHex[b & 0x0F]);
  }
  return hex;
}

std::string sha256Prefix(std::string_view text) { return sha256Hex(text).substr(0, kTokenDigestDigits); }

}  // namespace mirelo::tooling
