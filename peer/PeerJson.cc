#include "peer/PeerJson.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace mirelo::sim::peer {
namespace {

constexpr int kMaxJsonDepth = 256;

class Reader {
 public:
  explicit Reader(std::string_view text) : s_(text) {}

  bool document(Value* out) {
    skipSpace();
    if (!value(out, 0)) return false;
    skipSpace();
    if (pos_ != s_.size()) return fail("trailing characters");
    return true;
  }

  const std::string& error() const { return error_; }

 private:
  bool fail(const char* what) {
    if (error_.empty()) error_ = std::string(what) + " at offset " + std::to_string(pos_);
    return false;
  }

  void skipSpace() {
    while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r')) ++pos_;
  }

  bool literal(std::string_view word) {
    if (s_.substr(pos_, word.size()) != word) return fail("bad literal");
    pos_ += word.size();
    return true;
  }

  bool value(Value* out, int depth) {
    if (depth > kMaxJsonDepth) return fail("nesting too deep");
    if (pos_ >= s_.size()) return fail("unexpected end");
    switch (s_[pos_]) {
      case '{': return object(out, depth);
      case '[': return array(out, depth);
      case '"': {
        std::string str;
        if (!string(&str)) return false;
        *out = Value(std::move(str));
        return true;
      }
      case 't': *out = Value(true); return literal("true");
      case 'f': *out = Value(false); return literal("false");
      case 'n': *out = Value(); return literal("null");
      default: return number(out);
    }
  }

  bool object(Value* out, int depth) {
    ++pos_;  // {
    Dictionary dict;
    skipSpace();
    if (pos_ < s_.size() && s_[pos_] == '}') {
      ++pos_;
      *out = Value(std::move(dict));
      return true;
    }
    for (;;) {
      skipSpace();
      if (pos_ >= s_.size() || s_[pos_] != '"') return fail("expected a key");
      std::string key;
      if (!string(&key)) return false;
      skipSpace();
      if (pos_ >= s_.size() || s_[pos_] != ':') return fail("expected ':'");
      ++pos_;
      skipSpace();
      Value v;
      if (!value(&v, depth + 1)) return false;
      dict.set(std::move(key), std::move(v));
      skipSpace();
      if (pos_ < s_.size() && s_[pos_] == ',') {
        ++pos_;
        continue;
      }
      if (pos_ < s_.size() && s_[pos_] == '}') {
        ++pos_;
        *out = Value(std::move(dict));
        return true;
      }
      return fail("expected ',' or '}'");
    }
  }

  bool array(Value* out, int depth) {
    ++pos_;  // [
    Array arr;
    skipSpace();
    if (pos_ < s_.size() && s_[pos_] == ']') {
      ++pos_;
      *out = Value(std::move(arr));
      return true;
    }
    for (;;) {
      skipSpace();
      Value v;
      if (!value(&v, depth + 1)) return false;
      arr.push_back(std::move(v));
      skipSpace();
      if (pos_ < s_.size() && s_[pos_] == ',') {
        ++pos_;
        continue;
      }
      if (pos_ < s_.size() && s_[pos_] == ']') {
        ++pos_;
        *out = Value(std::move(arr));
        return true;
      }
      return fail("expected ',' or ']'");
    }
  }

  bool hex4(std::uint32_t* out) {
    if (pos_ + 4 > s_.size()) return fail("short \\u escape");
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = s_[pos_++];
      v <<= 4;
      if (c >= '0' && c <= '9') v |= static_cast<std::uint32_t>(c - '0');
      else if (c >= 'a' && c <= 'f') v |= static_cast<std::uint32_t>(c - 'a' + 10);
      else if (c >= 'A' && c <= 'F') v |= static_cast<std::uint32_t>(c - 'A' + 10);
      else return fail("bad \\u escape");
    }
    *out = v;
    return true;
  }

  static void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }

  bool string(std::string* out) {
    ++pos_;  // opening quote
    while (pos_ < s_.size()) {
      const char c = s_[pos_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return fail("control character in a string");
      if (c != '\\') {
        *out += c;
        continue;
      }
      if (pos_ >= s_.size()) break;
      const char e = s_[pos_++];
      switch (e) {
        case '"': *out += '"'; break;
        case '\\': *out += '\\'; break;
        case '/': *out += '/'; break;
        case 'b': *out += '\b'; break;
        case 'f': *out += '\f'; break;
        case 'n': *out += '\n'; break;
        case 'r': *out += '\r'; break;
        case 't': *out += '\t'; break;
        case 'u': {
          std::uint32_t cp = 0;
          if (!hex4(&cp)) return false;
          if (cp >= 0xD800 && cp <= 0xDBFF) {
            std::uint32_t low = 0;
            if (s_.substr(pos_, 2) != "\\u") return fail("lone surrogate");
            pos_ += 2;
            if (!hex4(&low) || low < 0xDC00 || low > 0xDFFF) return fail("lone surrogate");
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
            return fail("lone surrogate");
          }
          appendUtf8(*out, cp);
          break;
        }
        default: return fail("bad escape");
      }
    }
    return fail("unterminated string");
  }

  bool number(Value* out) {
    const std::size_t start = pos_;
    if (pos_ < s_.size() && s_[pos_] == '-') ++pos_;
    const std::size_t digits = pos_;
    while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
    if (pos_ == digits) return fail("unexpected character");
    bool integral = true;
    if (pos_ < s_.size() && s_[pos_] == '.') {
      integral = false;
      ++pos_;
      const std::size_t frac = pos_;
      while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
      if (pos_ == frac) return fail("bad number");
    }
    if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
      integral = false;
      ++pos_;
      if (pos_ < s_.size() && (s_[pos_] == '+' || s_[pos_] == '-')) ++pos_;
      const std::size_t ex = pos_;
      while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
      if (pos_ == ex) return fail("bad number");
    }
    const std::string text(s_.substr(start, pos_ - start));
    if (integral) {
      errno = 0;
      char* end = nullptr;
      const long long v = std::strtoll(text.c_str(), &end, 10);
      if (errno == 0 && end && *end == '\0') {
        *out = Value(v);
        return true;
      }
    }
    *out = Value(std::strtod(text.c_str(), nullptr));
    return true;
  }

  std::string_view s_;
  std::size_t pos_ = 0;
  std::string error_;
};

void writeString(std::string& out, std::string_view s) {
  out += '"';
  for (char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    switch (ch) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += ch;
        }
    }
  }
  out += '"';
}

void write(std::string& out, const Value& v) {
  switch (v.type()) {
    case Value::Type::Null: out += "null"; break;
    case Value::Type::Bool: out += *v.asBool() ? "true" : "false"; break;
    case Value::Type::Int: out += std::to_string(*v.asInt()); break;
    case Value::Type::UInt: out += std::to_string(*v.asUInt()); break;
    case Value::Type::Real: {
      const double d = *v.asReal();
      if (!std::isfinite(d)) {
        out += "null";
      } else {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.17g", d);
        out += buf;
      }
      break;
    }
    case Value::Type::String: writeString(out, *v.asString()); break;
    case Value::Type::Data: writeString(out, v.asData()->hexPrefix(v.asData()->size())); break;
    case Value::Type::Date: {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.17g", v.asDate()->secondsSince2001);
      out += buf;
      break;
    }
    case Value::Type::Uid: out += std::to_string(v.asUid()->value); break;
    case Value::Type::Array: {
      out += '[';
      bool first = true;
      for (const Value& item : *v.asArray()) {
        if (!first) out += ',';
        first = false;
        write(out, item);
      }
      out += ']';
      break;
    }
    case Value::Type::Dictionary: {
      out += '{';
      bool first = true;
      for (const auto& [key, item] : *v.asDictionary()) {
        if (!first) out += ',';
        first = false;
        writeString(out, key);
        out += ':';
        write(out, item);
      }
      out += '}';
      break;
    }
  }
}

}  // namespace

bool parseJson(std::string_view text, Value* out, std::string* error) {
  Reader reader(text);
  Value v;
  if (!reader.document(&v)) {
    if (error) *error = reader.error();
    return false;
  }
  if (out) *out = std::move(v);
  return true;
}

std::string writeJson(const Value& value) {
  std::string out;
  write(out, value);
  return out;
}

}  // namespace mirelo::sim::peer
