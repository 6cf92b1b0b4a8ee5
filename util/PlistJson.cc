// The JSON form of property-list values.
//
// Besides the mapping in PlistJson.h, two rules keep the form lossless:
//
// * Reals that JSON cannot hold (infinities and NaN) are written as
//   {"$real": "inf"}, {"$real": "-inf"} and {"$real": "nan"}; a date holding
//   one of them is written as {"$date": "inf"} and so on.  Reading accepts
//   these, and also {"$real": <number>}.
// * An object with exactly one member whose key is "$data", "$date", "$uid"
//   or "$real" is one of the special values.  So that a dictionary can still
//   carry such a key, toJson writes every key made of one or more "$"
//   followed by one of those names with one more "$" ("$data" becomes
//   "$$data", "$$uid" becomes "$$$uid"), and fromJson removes one "$" from
//   every key of that form that starts with two or more.  Other keys, such
//   as the "$objects" and "$top" of keyed archives, are left alone.
//
// Reals are written in their shortest form that reads back to the same
// double (std::to_chars), with ".0" added when that form has neither a
// decimal point nor an exponent.  Reading is an event-driven parse straight
// into Values, so the text of every number is seen: a number written
// without a decimal point or exponent that does not fit in 64 bits is an
// error, not a silently rounded real.  Nesting is limited to
// bplist::kMaxDepth levels, as in binary property lists.
#include "util/PlistJson.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "mirelo/platform/Platform.h"
#include "util/BinaryPlist.h"

namespace mirelo::plistjson {

namespace {

constexpr std::string_view kSpecialNames[] = {"data", "date", "uid", "real"};

// The number of leading "$" when `key` is one or more "$" followed by a
// special name; 0 otherwise.
std::size_t specialDollars(std::string_view key) {
  std::size_t n = 0;
  while (n < key.size() && key[n] == '$') ++n;
  if (n == 0) return 0;
  const std::string_view rest = key.substr(n);
  for (std::string_view name : kSpecialNames) {
    if (rest == name) return n;
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Writing

void appendQuoted(std::string& out, std::string_view s) {
  static const char* kHex = "0123456789abcdef";
  out.push_back('"');
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p != end) {
    const unsigned char c = *p;
    if (c < 0x80) {
      switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
          if (c < 0x20) {
            out += "\\u00";
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 0xF]);
          } else {
            out.push_back(static_cast<char>(c));
          }
      }
      ++p;
      continue;
    }
    // Copy one valid UTF-8 sequence; anything else becomes U+FFFD.
    std::size_t len = 0;
    std::uint32_t cp = 0;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
      cp = c & 0x1Fu;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      cp = c & 0x0Fu;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      cp = c & 0x07u;
    }
    bool ok = len != 0 && static_cast<std::size_t>(end - p) >= len;
    for (std::size_t i = 1; ok && i < len; ++i) {
      if ((p[i] & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (p[i] & 0x3Fu);
    }
    if (ok && ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
               (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)))) {
      ok = false;
    }
    if (ok) {
      out.append(reinterpret_cast<const char*>(p), len);
      p += len;
    } else {
      out += "\xEF\xBF\xBD";
      ++p;
    }
  }
  out.push_back('"');
}

// A finite real in its shortest round-trip form, always with a decimal
// point or an exponent.
void appendReal(std::string& out, double d) {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, d);
  const std::string_view text(buf, static_cast<std::size_t>(r.ptr - buf));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

const char* nonFiniteName(double d) {
  if (std::isnan(d)) return "nan";
  return d > 0 ? "inf" : "-inf";
}

template <class Int>
void appendInt(std::string& out, Int v) {
  char buf[32];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, static_cast<std::size_t>(r.ptr - buf));
}

void appendIndent(std::string& out, std::size_t indent) { out.append(indent, ' '); }

void write(std::string& out, const Value& v, std::size_t indent) {
  switch (v.type()) {
    case Value::Type::Null:
      out += "null";
      return;
    case Value::Type::Bool:
      out += *v.asBool() ? "true" : "false";
      return;
    case Value::Type::Int:
      appendInt(out, *v.asInt());
      return;
    case Value::Type::UInt:
      appendInt(out, *v.asUInt());
      return;
    case Value::Type::Real: {
      const double d = *v.asReal();
      if (std::isfinite(d)) {
        appendReal(out, d);
      } else {
        out += "{\"$real\": \"";
        out += nonFiniteName(d);
        out += "\"}";
      }
      return;
    }
    case Value::Type::String:
      appendQuoted(out, *v.asString());
      return;
    case Value::Type::Data: {
      const Data& d = *v.asData();
      out += "{\"$data\": \"";
      out += platform::current().crypto->base64Encode(d.bytes(), d.size());
      out += "\"}";
      return;
    }
    case Value::Type::Date: {
      const double d = v.asDate()->secondsSince2001;
      out += "{\"$date\": ";
      if (std::isfinite(d)) {
        appendReal(out, d);
      } else {
        out += '"';
        out += nonFiniteName(d);
        out += '"';
      }
      out += '}';
      return;
    }
    case Value::Type::Uid:
      out += "{\"$uid\": ";
      appendInt(out, v.asUid()->value);
      out += '}';
      return;
    case Value::Type::Array: {
      const Array& a = *v.asArray();
      if (a.empty()) {
        out += "[]";
        return;
      }
      out += "[\n";
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (i != 0) out += ",\n";
        appendIndent(out, indent + 2);
        write(out, a[i], indent + 2);
      }
      out += '\n';
      appendIndent(out, indent);
      out += ']';
      return;
    }
    case Value::Type::Dictionary: {
      const Dictionary& d = *v.asDictionary();
      if (d.empty()) {
        out += "{}";
        return;
      }
      out += "{\n";
      bool first = true;
      for (const auto& [key, value] : d) {
        if (!first) out += ",\n";
        first = false;
        appendIndent(out, indent + 2);
        if (specialDollars(key) != 0) {
          appendQuoted(out, "$" + key);
        } else {
          appendQuoted(out, key);
        }
        out += ": ";
        write(out, value, indent + 2);
      }
      out += '\n';
      appendIndent(out, indent);
      out += '}';
      return;
    }
  }
}

// ---------------------------------------------------------------------------
// Reading

using Json = nlohmann::ordered_json;

bool parseNonFinite(const std::string& s, double* d) {
  if (s == "inf") {
    *d = HUGE_VAL;
  } else if (s == "-inf") {
    *d = -HUGE_VAL;
  } else if (s == "nan") {
    *d = std::nan("");
  } else {
    return false;
  }
  return true;
}

class Builder : public nlohmann::json_sax<Json> {
 public:
  Value result;
  std::string error;

  bool null() override { return add(Value()); }
  bool boolean(bool b) override { return add(Value(b)); }
  bool number_integer(number_integer_t i) override { return add(Value(static_cast<std::int64_t>(i))); }
  bool number_unsigned(number_unsigned_t u) override { return add(Value(static_cast<std::uint64_t>(u))); }
  bool number_float(number_float_t d, const string_t& text) override {
    if (text.find_first_of(".eE") == string_t::npos) {
      return fail("the integer " + text + " does not fit in 64 bits");
    }
    return add(Value(static_cast<double>(d)));
  }
  bool string(string_t& s) override { return add(Value(std::move(s))); }
  bool binary(binary_t&) override { return fail("binary values are not JSON"); }
  bool start_object(std::size_t) override {
    if (!enter()) return false;
    frames_.emplace_back();
    frames_.back().object = true;
    return true;
  }
  bool key(string_t& k) override {
    Frame& f = frames_.back();
    ++f.members;
    if (f.members == 1) f.firstKey = k;
    const std::size_t dollars = specialDollars(k);
    if (dollars >= 2) k.erase(0, 1);
    f.key = std::move(k);
    return true;
  }
  bool end_object() override {
    Frame f = std::move(frames_.back());
    frames_.pop_back();
    Value v;
    if (f.members == 1 && specialDollars(f.firstKey) == 1) {
      if (!special(f.firstKey, f.dict.entries().front().second, &v)) return false;
    } else {
      v = Value(std::move(f.dict));
    }
    return add(std::move(v));
  }
  bool start_array(std::size_t) override {
    if (!enter()) return false;
    frames_.emplace_back();
    return true;
  }
  bool end_array() override {
    Array a = std::move(frames_.back().array);
    frames_.pop_back();
    return add(Value(std::move(a)));
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& ex) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 3: ..."
    std::string what = ex.what();
    const auto close = what.find("] ");
    if (what.rfind("[json.exception.", 0) == 0 && close != std::string::npos) what.erase(0, close + 2);
    return fail(what);
  }

 private:
  struct Frame {
    bool object = false;
    std::size_t members = 0;
    std::string firstKey;
    std::string key;
    Array array;
    Dictionary dict;
  };

  bool fail(std::string message) {
    if (error.empty()) error = std::move(message);
    return false;
  }

  bool enter() {
    if (frames_.size() >= static_cast<std::size_t>(bplist::kMaxDepth)) {
      return fail("containers nest deeper than " + std::to_string(bplist::kMaxDepth) + " levels");
    }
    return true;
  }

  bool add(Value v) {
    if (frames_.empty()) {
      result = std::move(v);
      return true;
    }
    Frame& f = frames_.back();
    if (f.object) {
      f.dict.set(std::move(f.key), std::move(v));
      f.key.clear();
    } else {
      f.array.push_back(std::move(v));
    }
    return true;
  }

  bool special(const std::string& name, const Value& v, Value* out) {
    if (name == "$data") {
      const std::string* text = v.asString();
      if (!text) return fail("\"$data\" must hold a Base64 string");
      Data d = text->empty() ? Data::emptyData() : platform::current().crypto->base64Decode(*text);
      if (d.isNull()) return fail("\"$data\" holds invalid Base64");
      *out = Value(std::move(d));
      return true;
    }
    if (name == "$uid") {
      if (v.type() == Value::Type::UInt || (v.type() == Value::Type::Int && *v.asInt() >= 0)) {
        *out = Value(Uid{v.unsignedValue()});
        return true;
      }
      return fail("\"$uid\" must hold a non-negative integer");
    }
    // "$date" and "$real": a number, or the name of a non-finite real.
    double d = 0;
    if (v.isNumber()) {
      d = v.doubleValue();
    } else if (!v.isString() || !parseNonFinite(*v.asString(), &d)) {
      return fail("\"" + name + "\" must hold a number or one of \"inf\", \"-inf\", \"nan\"");
    }
    *out = name == "$date" ? Value(Date{d}) : Value(d);
    return true;
  }

  std::vector<Frame> frames_;
};

}  // namespace

std::string toJson(const Value& value) {
  std::string out;
  write(out, value, 0);
  return out;
}

Value fromJson(const std::string& text, std::string* error) {
  // The parser takes a raw NUL for the end of the text and would accept
  // whatever follows it; JSON never holds one.
  if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
    if (error) *error = "a NUL character at offset " + std::to_string(nul) + " is not JSON";
    return Value();
  }
  Builder b;
  bool ok = false;
  try {
    ok = Json::sax_parse(text, &b, nlohmann::detail::input_format_t::json, true);
  } catch (const std::exception& ex) {
    if (b.error.empty()) b.error = ex.what();
    ok = false;
  }
  if (!ok) {
    if (error) *error = b.error.empty() ? std::string("the text is not JSON") : b.error;
    return Value();
  }
  return std::move(b.result);
}

}  // namespace mirelo::plistjson
