// Readable printing of the value types for test frameworks (GoogleTest's
// PrintTo): a failed expectation shows the text, the bytes or the value.
#include <cinttypes>
#include <cstdio>
#include <ostream>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/Value.h"

namespace mirelo {
namespace {

// Bytes shown before the rest of a buffer is elided.
constexpr std::size_t kShownBytes = 32;

void quoted(std::string_view text, std::ostream& os) {
  os << '"';
  for (unsigned char c : text) {
    switch (c) {
      case '"': os << "\\\""; break;
      case '\\': os << "\\\\"; break;
      case '\n': os << "\\n"; break;
      case '\r': os << "\\r"; break;
      case '\t': os << "\\t"; break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\x%02x", c);
          os << buf;
        } else {
          os << static_cast<char>(c);  // UTF-8 passes through
        }
    }
  }
  os << '"';
}

void printData(const Data& d, std::ostream& os) {
  if (d.isNull()) {
    os << "Data(null)";
    return;
  }
  os << "Data(" << d.size() << (d.size() == 1 ? " byte" : " bytes");
  if (!d.empty()) os << ": " << d.hexPrefix(kShownBytes) << (d.size() > kShownBytes ? "..." : "");
  os << ')';
}

void printValue(const Value& v, std::ostream& os);

void printDictionary(const Dictionary& d, std::ostream& os) {
  os << '{';
  bool first = true;
  for (const auto& [key, value] : d) {
    os << (first ? "" : ", ");
    first = false;
    quoted(key, os);
    os << ": ";
    printValue(value, os);
  }
  os << '}';
}

void printArray(const Array& a, std::ostream& os) {
  os << '[';
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (i) os << ", ";
    printValue(a[i], os);
  }
  os << ']';
}

void printValue(const Value& v, std::ostream& os) {
  switch (v.type()) {
    case Value::Type::Null: os << "null"; break;
    case Value::Type::Bool: os << (*v.asBool() ? "true" : "false"); break;
    case Value::Type::Int: os << *v.asInt(); break;
    case Value::Type::UInt: os << *v.asUInt() << 'u'; break;
    case Value::Type::Real: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.17g", *v.asReal());
      os << buf;
      // Keep a real recognisable as one.
      if (std::string_view(buf).find_first_of(".eEn") == std::string_view::npos) os << ".0";
      break;
    }
    case Value::Type::String: quoted(*v.asString(), os); break;
    case Value::Type::Data: printData(*v.asData(), os); break;
    case Value::Type::Date: os << "Date(" << v.asDate()->secondsSince2001 << " s since 2001)"; break;
    case Value::Type::Array: printArray(*v.asArray(), os); break;
    case Value::Type::Dictionary: printDictionary(*v.asDictionary(), os); break;
    case Value::Type::Uid: os << "Uid(" << v.asUid()->value << ')'; break;
  }
}

}  // namespace

void PrintTo(const String& s, std::ostream* os) {
  if (s.isNull()) {
    *os << "null";
  } else {
    quoted(s.view(), *os);
  }
}

void PrintTo(const Data& d, std::ostream* os) { printData(d, *os); }
void PrintTo(const Value& v, std::ostream* os) { printValue(v, *os); }
void PrintTo(const Array& a, std::ostream* os) { printArray(a, *os); }
void PrintTo(const Dictionary& d, std::ostream* os) { printDictionary(d, *os); }

void PrintTo(const URL& url, std::ostream* os) {
  *os << "URL(";
  quoted(url.absoluteString(), *os);
  *os << ')';
}

}  // namespace mirelo
