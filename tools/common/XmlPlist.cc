#include "tools/common/XmlPlist.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>

#include "tools/common/Report.h"
#include "util/BinaryPlist.h"

namespace mirelo::tooling {

namespace {

constexpr const char* kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr const char* kUidKey = "CF$UID";
constexpr std::size_t kDataLine = 68;

// ---- dates: days since 1970-01-01 of a civil date and back ----------------

std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civilFromDays(std::int64_t z, std::int64_t* y, unsigned* m, unsigned* d) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = static_cast<std::int64_t>(yoe) + era * 400 + (*m <= 2);
}

const std::int64_t kEpoch2001Days = daysFromCivil(2001, 1, 1);

// ---- writing -----------------------------------------------------------------

struct Writer {
  std::string out;
  std::string error;

  void indent(int depth) { out.append(static_cast<std::size_t>(depth), '\t'); }

  // Escapes text for element content; false when XML 1.0 cannot carry it.
  bool text(std::string_view s) {
    if (!isWellFormedUtf8(s)) {
      error = "a string is not valid UTF-8";
      return false;
    }
    for (std::size_t i = 0; i < s.size(); ++i) {
      const auto c = static_cast<unsigned char>(s[i]);
      switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '\r': out += "&#13;"; break;  // a raw CR would read back as LF
        default:
          if (c < 0x20 && c != '\t' && c != '\n') {
            error = "a string holds control character " + std::to_string(c) + ", which XML cannot carry";
            return false;
          }
          // U+FFFE and U+FFFF (EF BF BE / EF BF BF) are not XML characters.
          if (c == 0xEF && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0xBF &&
              (static_cast<unsigned char>(s[i + 2]) & 0xFE) == 0xBE) {
            error = "a string holds U+FFFE or U+FFFF, which XML cannot carry";
            return false;
          }
          out.push_back(static_cast<char>(c));
      }
    }
    return true;
  }

  bool element(const char* name, std::string_view content) {
    out += "<";
    out += name;
    out += ">";
    if (!text(content)) return false;
    out += "</";
    out += name;
    out += ">\n";
    return true;
  }

  bool real(double d) {
    if (std::isnan(d)) return element("real", "nan");
    if (std::isinf(d)) return element("real", d > 0 ? "+infinity" : "-infinity");
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, d);
    return element("real", std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)));
  }

  bool date(double seconds) {
    const std::string text = plistDateText(seconds);
    if (text.empty()) {
      error = "a date is out of the range XML dates can carry";
      return false;
    }
    return element("date", text);
  }

  void data(const Data& bytes, int depth) {
    const std::string b64 = bytes.empty() ? std::string() : toolCrypto().base64Encode(bytes.bytes(), bytes.size());
    if (b64.size() <= kDataLine) {
      out += "<data>" + b64 + "</data>\n";
      return;
    }
    out += "<data>\n";
    for (std::size_t i = 0; i < b64.size(); i += kDataLine) {
      indent(depth);
      out += b64.substr(i, kDataLine);
      out += "\n";
    }
    indent(depth);
    out += "</data>\n";
  }

  bool value(const Value& v, int depth) {
    // `depth` counts from 0 here: the level is depth + 1.
    if (depth >= kMaxXmlDepth) {
      error = "nesting is deeper than " + std::to_string(kMaxXmlDepth) +
              " levels, the most an XML property list carries (the binary format carries " +
              std::to_string(bplist::kMaxDepth) + ")";
      return false;
    }
    indent(depth);
    switch (v.type()) {
      case Value::Type::Null:
        error = "a null value cannot be written";
        return false;
      case Value::Type::Bool: out += *v.asBool() ? "<true/>\n" : "<false/>\n"; return true;
      case Value::Type::Int: return element("integer", std::to_string(*v.asInt()));
      case Value::Type::UInt: return element("integer", std::to_string(*v.asUInt()));
      case Value::Type::Real: return real(*v.asReal());
      case Value::Type::String: return element("string", *v.asString());
      case Value::Type::Data: data(*v.asData(), depth); return true;
      case Value::Type::Date: return date(v.asDate()->secondsSince2001);
      case Value::Type::Uid:
        out += "<dict>\n";
        indent(depth + 1);
        out += std::string("<key>") + kUidKey + "</key>\n";
        indent(depth + 1);
        element("integer", std::to_string(v.asUid()->value));
        indent(depth);
        out += "</dict>\n";
        return true;
      case Value::Type::Array: {
        const Array& a = *v.asArray();
        if (a.empty()) {
          out += "<array/>\n";
          return true;
        }
        out += "<array>\n";
        for (const Value& item : a) {
          if (!value(item, depth + 1)) return false;
        }
        indent(depth);
        out += "</array>\n";
        return true;
      }
      case Value::Type::Dictionary: {
        const Dictionary& d = *v.asDictionary();
        if (d.empty()) {
          out += "<dict/>\n";
          return true;
        }
        out += "<dict>\n";
        for (const auto& [key, item] : d) {
          indent(depth + 1);
          if (!element("key", key)) return false;
          if (!value(item, depth + 1)) return false;
        }
        indent(depth);
        out += "</dict>\n";
        return true;
      }
    }
    return false;
  }
};

// ---- reading -------------------------------------------------------------------

std::string_view nameOf(const xmlNode* n) { return reinterpret_cast<const char*>(n->name); }

// The parts one after the other.  Messages are built by appending rather
// than with operator+ on a literal, which gcc 12 at -O3 misreads as an
// overlapping copy (-Wrestrict).
std::string joined(std::initializer_list<std::string_view> parts) {
  std::string out;
  for (std::string_view p : parts) out.append(p);
  return out;
}

std::string_view trimmed(std::string_view s) {
  const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!s.empty() && space(s.front())) s.remove_prefix(1);
  while (!s.empty() && space(s.back())) s.remove_suffix(1);
  return s;
}

bool isBlank(std::string_view s) { return trimmed(s).empty(); }

struct Reader {
  std::string error;
  long lineOffset = 0;  // lines dropped before the document

  bool fail(const xmlNode* n, std::string what) {
    if (error.empty()) error = "line " + std::to_string(xmlGetLineNo(n) + lineOffset) + ": " + std::move(what);
    return false;
  }

  // The character content of an element that must hold text only.
  bool textOf(const xmlNode* n, std::string* out) {
    for (const xmlNode* c = n->children; c; c = c->next) {
      switch (c->type) {
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
          if (c->content) *out += reinterpret_cast<const char*>(c->content);
          break;
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
          break;
        case XML_ENTITY_REF_NODE:
          return fail(c, joined({"entity reference &", nameOf(c), "; is not allowed"}));
        default:
          return fail(c, joined({"<", nameOf(n), "> may hold text only"}));
      }
    }
    return true;
  }

  // The element children of `n`; false when it holds text other than white
  // space or an entity reference.
  bool elementsOf(const xmlNode* n, std::vector<const xmlNode*>* out) {
    for (const xmlNode* c = n->children; c; c = c->next) {
      switch (c->type) {
        case XML_ELEMENT_NODE: out->push_back(c); break;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
          if (c->content && !isBlank(reinterpret_cast<const char*>(c->content))) {
            return fail(c, joined({"text inside <", nameOf(n), "> outside any value"}));
          }
          break;
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
          break;
        case XML_ENTITY_REF_NODE:
          return fail(c, joined({"entity reference &", nameOf(c), "; is not allowed"}));
        default:
          return fail(c, joined({"unexpected content inside <", nameOf(n), ">"}));
      }
    }
    return true;
  }

  bool integer(const xmlNode* n, std::string_view s, Value* out) {
    const std::string_view original = s;
    bool negative = false;
    if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
      negative = s.front() == '-';
      s.remove_prefix(1);
    }
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
      base = 16;
      s.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), magnitude, base);
    if (s.empty() || r.ec == std::errc::invalid_argument || r.ptr != s.data() + s.size()) {
      return fail(n, joined({"<integer> holds \"", original, "\", not an integer"}));
    }
    const std::uint64_t kMinMagnitude = static_cast<std::uint64_t>(INT64_MAX) + 1;
    if (r.ec == std::errc::result_out_of_range || (negative && magnitude > kMinMagnitude)) {
      return fail(n, joined({"<integer> ", original, " does not fit in 64 bits"}));
    }
    if (!negative) {
      *out = Value(static_cast<unsigned long long>(magnitude));
    } else if (magnitude == kMinMagnitude) {
      *out = Value(static_cast<long long>(INT64_MIN));
    } else {
      *out = Value(-static_cast<long long>(magnitude));
    }
    return true;
  }

  bool real(const xmlNode* n, std::string_view s, Value* out) {
    std::string_view digits = s;
    if (!digits.empty() && digits.front() == '+') digits.remove_prefix(1);
    double d = 0;
    const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), d);
    if (digits.empty() || r.ec == std::errc::invalid_argument || r.ptr != digits.data() + digits.size()) {
      return fail(n, joined({"<real> holds \"", s, "\", not a number"}));
    }
    if (r.ec == std::errc::result_out_of_range) {
      // Beyond the range of a double: the platform reads infinity or zero.
      d = std::strtod(std::string(digits).c_str(), nullptr);
    }
    *out = Value(d);
    return true;
  }

  bool date(const xmlNode* n, std::string_view s, Value* out) {
    // YYYY-MM-DDTHH:MM:SSZ, digits exactly where the pattern has them.
    constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:ddZ";
    bool shaped = s.size() == kPattern.size();
    for (std::size_t i = 0; shaped && i < s.size(); ++i) {
      shaped = kPattern[i] == 'd' ? (s[i] >= '0' && s[i] <= '9') : s[i] == kPattern[i];
    }
    const auto num = [s](std::size_t at, std::size_t len) {
      int v = 0;
      for (std::size_t i = at; i < at + len; ++i) v = v * 10 + (s[i] - '0');
      return v;
    };
    if (shaped) {
      const int y = num(0, 4), mo = num(5, 2), d = num(8, 2), h = num(11, 2), mi = num(14, 2), se = num(17, 2);
      const std::int64_t days = daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
      std::int64_t cy;
      unsigned cm, cd;
      civilFromDays(days, &cy, &cm, &cd);
      // The calendar date must exist (no February 30th), the time be a time.
      if (mo >= 1 && mo <= 12 && cy == y && cm == static_cast<unsigned>(mo) && cd == static_cast<unsigned>(d) &&
          h < 24 && mi < 60 && se < 60) {
        *out = Value(Date{static_cast<double>((days - kEpoch2001Days) * 86400 + h * 3600 + mi * 60 + se)});
        return true;
      }
    }
    return fail(n, joined({"<date> holds \"", s, "\", not a date YYYY-MM-DDTHH:MM:SSZ"}));
  }

  bool data(const xmlNode* n, const std::string& s, Value* out) {
    std::string compact;
    compact.reserve(s.size());
    for (char c : s) {
      if (c != ' ' && c != '\t' && c != '\n' && c != '\r') compact.push_back(c);
    }
    Data bytes = compact.empty() ? Data::emptyData() : toolCrypto().base64Decode(compact);
    if (bytes.isNull()) return fail(n, "<data> is not valid Base64");
    *out = Value(std::move(bytes));
    return true;
  }

  bool dict(const xmlNode* n, int depth, Value* out) {
    std::vector<const xmlNode*> kids;
    if (!elementsOf(n, &kids)) return false;
    if (kids.size() % 2 != 0) return fail(n, "<dict> has a <key> without a value");
    Dictionary d;
    for (std::size_t i = 0; i < kids.size(); i += 2) {
      if (nameOf(kids[i]) != "key") {
        return fail(kids[i], joined({"<dict> holds <", nameOf(kids[i]), "> where a <key> belongs"}));
      }
      std::string key;
      if (!textOf(kids[i], &key)) return false;
      if (nameOf(kids[i + 1]) == "key") return fail(kids[i + 1], "<key> follows <key> without a value");
      Value v;
      if (!value(kids[i + 1], depth + 1, &v)) return false;
      d.set(std::move(key), std::move(v));
    }
    // The platform's form of a keyed-archive reference.
    if (d.size() == 1 && d.entries()[0].first == kUidKey && d.entries()[0].second.isInteger()) {
      const Value& ref = d.entries()[0].second;
      if (ref.asInt() && *ref.asInt() < 0) return fail(n, "CF$UID is negative");
      *out = Value(Uid{ref.unsignedValue()});
      return true;
    }
    *out = Value(std::move(d));
    return true;
  }

  bool value(const xmlNode* n, int depth, Value* out) {
    if (depth > kMaxXmlDepth) {
      return fail(n, "nesting is deeper than " + std::to_string(kMaxXmlDepth) + " levels");
    }
    const std::string_view name = nameOf(n);
    if (name == "dict") return dict(n, depth, out);
    if (name == "array") {
      std::vector<const xmlNode*> kids;
      if (!elementsOf(n, &kids)) return false;
      Array a;
      a.reserve(kids.size());
      for (const xmlNode* k : kids) {
        Value v;
        if (!value(k, depth + 1, &v)) return false;
        a.push_back(std::move(v));
      }
      *out = Value(std::move(a));
      return true;
    }
    if (name == "true" || name == "false") {
      std::vector<const xmlNode*> kids;
      if (!elementsOf(n, &kids)) return false;
      if (!kids.empty()) return fail(n, joined({"<", name, "/> must be empty"}));
      *out = Value(name == "true");
      return true;
    }
    std::string text;
    if (name == "string") {
      if (!textOf(n, &text)) return false;
      *out = Value(std::move(text));
      return true;
    }
    if (name == "key") return fail(n, "<key> outside a <dict>");
    if (name != "integer" && name != "real" && name != "date" && name != "data") {
      return fail(n, joined({"unknown element <", name, ">"}));
    }
    if (!textOf(n, &text)) return false;
    if (name == "integer") return integer(n, trimmed(text), out);
    if (name == "real") return real(n, trimmed(text), out);
    if (name == "date") return date(n, trimmed(text), out);
    return data(n, text, out);
  }
};

void initLibxml() {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
}

}  // namespace

std::string encodeXmlPlist(const Value& value, std::string* error) {
  Writer w;
  w.out = kHeader;
  if (!w.value(value, 0)) {
    if (error) *error = w.error;
    return std::string();
  }
  w.out += "</plist>\n";
  return std::move(w.out);
}

Value decodeXmlPlist(std::string_view text, std::string* error) {
  const auto failWith = [error](std::string message) {
    if (error) *error = std::move(message);
    return Value();
  };
  if (text.empty()) return failWith("no bytes");
  // A byte-order mark and blank lines before the XML declaration are
  // tolerated (the declaration must otherwise come first).
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  long lineOffset = 0;
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' || text.front() == '\r')) {
    if (text.front() == '\n') ++lineOffset;
    text.remove_prefix(1);
  }
  if (text.empty()) return failWith("only white space");
  if (text.size() > static_cast<std::size_t>(INT_MAX)) return failWith("the document is too large");
  initLibxml();
  const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> ctxt(xmlNewParserCtxt(), xmlFreeParserCtxt);
  if (!ctxt) return failWith("out of memory");
  const int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA;
  const std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> doc(
      xmlCtxtReadMemory(ctxt.get(), text.data(), static_cast<int>(text.size()), "plist.xml", nullptr, options),
      xmlFreeDoc);
  if (!doc || !ctxt->wellFormed) {
    const xmlError* e = xmlCtxtGetLastError(ctxt.get());
    std::string why = e && e->message ? std::string(e->message) : std::string("malformed XML");
    while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
    const long line = (e ? e->line : 0) + lineOffset;
    return failWith("not an XML property list: line " + std::to_string(line) + ": " + why);
  }
  const xmlNode* root = xmlDocGetRootElement(doc.get());
  if (!root) return failWith("not an XML property list: no root element");
  Reader r;
  r.lineOffset = lineOffset;
  Value out;
  if (nameOf(root) == "plist") {
    std::vector<const xmlNode*> kids;
    if (!r.elementsOf(root, &kids)) return failWith(r.error);
    if (kids.size() != 1) {
      return failWith(kids.empty() ? "the <plist> holds no value" : "the <plist> holds more than one value");
    }
    if (!r.value(kids[0], 1, &out)) return failWith(r.error);
  } else if (!r.value(root, 1, &out)) {
    return failWith(r.error);
  }
  return out;
}

std::string plistDateText(double seconds) {
  if (!std::isfinite(seconds) || std::fabs(seconds) > 4.0e11) return std::string();
  const auto whole = static_cast<std::int64_t>(std::floor(seconds));
  std::int64_t days = whole / 86400;
  std::int64_t rest = whole % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  std::int64_t y;
  unsigned m, d;
  civilFromDays(days + kEpoch2001Days, &y, &m, &d);
  if (y < 1 || y > 9999) return std::string();
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(y), m, d,
                static_cast<int>(rest / 3600), static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
  return buf;
}

bool looksLikeXml(std::string_view bytes) {
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  const std::string_view t = trimmed(bytes);
  return !t.empty() && t.front() == '<';
}

Value decodePropertyList(const Data& bytes, std::string* error, PlistFormat* format) {
  if (looksLikeXml(bytes.view())) {
    if (format) *format = PlistFormat::Xml;
    return decodeXmlPlist(bytes.view(), error);
  }
  if (format) *format = PlistFormat::Binary;
  return bplist::decode(bytes, error);
}

}  // namespace mirelo::tooling
