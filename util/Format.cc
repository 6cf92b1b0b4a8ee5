#include "util/Format.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace mirelo {

FormatArg::FormatArg(const Value& v) {
  switch (v.type()) {
    case Value::Type::Null:
      break;
    case Value::Type::Bool:
      kind_ = Kind::Int;
      i_ = *v.asBool() ? 1 : 0;
      break;
    case Value::Type::Int:
      kind_ = Kind::Int;
      i_ = *v.asInt();
      break;
    case Value::Type::UInt:
      kind_ = Kind::UInt;
      u_ = *v.asUInt();
      break;
    case Value::Type::Real:
      kind_ = Kind::Real;
      d_ = *v.asReal();
      break;
    default:
      kind_ = Kind::Text;
      text_ = v.description();
      break;
  }
}

namespace {

// The shortest text that reads back as the same double, as the platform's
// numbers print themselves.
std::string realText(double d) {
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, res.ptr);
}

struct Conversion {
  std::string flags;
  std::string width;
  std::string precision;
  bool hasPrecision = false;
  int longness = 0;  // 0: int, 1: long / size_t / long long
  char conv = 0;
};

std::string cformat(const Conversion& s, const char* lengthMod, char conv, auto value) {
  std::string f = "%" + s.flags + s.width + (s.hasPrecision ? "." + s.precision : "") + lengthMod + conv;
  char buf[128];
  int n = std::snprintf(buf, sizeof buf, f.c_str(), value);
  if (n < 0) return std::string();
  if (static_cast<std::size_t>(n) < sizeof buf) return std::string(buf, static_cast<std::size_t>(n));
  std::string out(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(out.data(), out.size(), f.c_str(), value);
  out.resize(static_cast<std::size_t>(n));
  return out;
}

std::int64_t asSigned(const FormatArg& a) {
  switch (a.kind()) {
    case FormatArg::Kind::Int: return a.i();
    case FormatArg::Kind::UInt:
    case FormatArg::Kind::Pointer: return static_cast<std::int64_t>(a.u());
    case FormatArg::Kind::Real: return static_cast<std::int64_t>(a.d());
    default: return 0;
  }
}

std::uint64_t asUnsigned(const FormatArg& a) {
  switch (a.kind()) {
    case FormatArg::Kind::Int: return static_cast<std::uint64_t>(a.i());
    case FormatArg::Kind::UInt:
    case FormatArg::Kind::Pointer: return a.u();
    case FormatArg::Kind::Real: return static_cast<std::uint64_t>(a.d());
    default: return 0;
  }
}

double asReal(const FormatArg& a) {
  switch (a.kind()) {
    case FormatArg::Kind::Int: return static_cast<double>(a.i());
    case FormatArg::Kind::UInt: return static_cast<double>(a.u());
    case FormatArg::Kind::Real: return a.d();
    default: return 0;
  }
}

std::string objectText(const FormatArg& a) {
  switch (a.kind()) {
    case FormatArg::Kind::Null: return "(null)";
    case FormatArg::Kind::Int: return std::to_string(a.i());
    case FormatArg::Kind::UInt: return std::to_string(a.u());
    case FormatArg::Kind::Real: return realText(a.d());
    case FormatArg::Kind::Text: return a.text();
    case FormatArg::Kind::Pointer: {
      char buf[32];
      std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(a.u()));
      return buf;
    }
  }
  return "(null)";
}

std::string convert(const Conversion& s, const FormatArg& a, std::size_t maxArgBytes) {
  switch (s.conv) {
    case '@':
      return cutText(objectText(a), maxArgBytes);
    case 's':
      if (a.kind() == FormatArg::Kind::Null) return "(null)";
      return cformat(s, "", 's', cutText(objectText(a), maxArgBytes).c_str());
    case 'd':
    case 'i':
      if (a.kind() == FormatArg::Kind::Text || a.kind() == FormatArg::Kind::Null) return objectText(a);
      if (s.longness) return cformat(s, "ll", s.conv, static_cast<long long>(asSigned(a)));
      return cformat(s, "", s.conv, static_cast<int>(static_cast<std::int32_t>(asSigned(a))));
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      if (a.kind() == FormatArg::Kind::Text || a.kind() == FormatArg::Kind::Null) return objectText(a);
      if (s.longness) return cformat(s, "ll", s.conv, static_cast<unsigned long long>(asUnsigned(a)));
      return cformat(s, "", s.conv, static_cast<unsigned>(static_cast<std::uint32_t>(asUnsigned(a))));
    case 'c':
      return std::string(1, static_cast<char>(asSigned(a)));
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'e':
    case 'E':
      if (a.kind() == FormatArg::Kind::Text || a.kind() == FormatArg::Kind::Null) return objectText(a);
      return cformat(s, "", s.conv, asReal(a));
    case 'p':
      return objectText(FormatArg(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(asUnsigned(a)))));
    default:
      return objectText(a);
  }
}

}  // namespace

std::string cutText(std::string text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return text;
  const std::size_t full = text.size();
  std::size_t keep = maxBytes;
  // Back to the first byte of a character, so that the cut is still UTF-8.
  while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0u) == 0x80u) --keep;
  text.resize(keep);
  text += "...[cut: ";
  text += std::to_string(full);
  text += " bytes]";
  return text;
}

std::string formatArgs(std::string_view fmt, std::initializer_list<FormatArg> args, std::size_t maxArgBytes) {
  std::string out;
  out.reserve(fmt.size() + 32 * args.size());
  const FormatArg* next = args.begin();
  const FormatArg* const end = args.end();
  static const FormatArg kMissing(nullptr);
  std::size_t i = 0;
  while (i < fmt.size()) {
    char c = fmt[i];
    if (c != '%') {
      std::size_t j = fmt.find('%', i);
      if (j == std::string_view::npos) j = fmt.size();
      out.append(fmt.substr(i, j - i));
      i = j;
      continue;
    }
    // A conversion: %[flags][width][.precision][length]conv
    std::size_t j = i + 1;
    if (j < fmt.size() && fmt[j] == '%') {
      out.push_back('%');
      i = j + 1;
      continue;
    }
    Conversion s;
    while (j < fmt.size() && (fmt[j] == '-' || fmt[j] == '+' || fmt[j] == ' ' || fmt[j] == '#' || fmt[j] == '0')) {
      s.flags.push_back(fmt[j++]);
    }
    while (j < fmt.size() && fmt[j] >= '0' && fmt[j] <= '9') s.width.push_back(fmt[j++]);
    if (j < fmt.size() && fmt[j] == '.') {
      s.hasPrecision = true;
      ++j;
      while (j < fmt.size() && fmt[j] >= '0' && fmt[j] <= '9') s.precision.push_back(fmt[j++]);
    }
    while (j < fmt.size() && (fmt[j] == 'l' || fmt[j] == 'h' || fmt[j] == 'z' || fmt[j] == 'q' ||
                              fmt[j] == 'j' || fmt[j] == 't' || fmt[j] == 'L')) {
      if (fmt[j] != 'h') s.longness = 1;
      ++j;
    }
    if (j >= fmt.size()) {  // a dangling '%': print as it stands
      out.append(fmt.substr(i));
      break;
    }
    s.conv = fmt[j];
    const FormatArg& a = next != end ? *next++ : kMissing;
    out += convert(s, a, maxArgBytes);
    i = j + 1;
  }
  return out;
}

}  // namespace mirelo
