#include "peer/PeerUrl.h"

#include "mirelo/String.h"
#include "util/Format.h"

namespace mirelo::sim::peer {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr char kHex[] = "0123456789ABCDEF";

void appendEscaped(std::string& out, unsigned char c) {
  out += '%';
  out += kHex[c >> 4];
  out += kHex[c & 0x0F];
}

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

bool breaksUrl(unsigned char c) {
  if (c <= 0x20 || c == 0x7F) return true;
  switch (c) {
    case '"': case '<': case '>': case '\\': case '^': case '`': case '{': case '|': case '}':
    case '%': case '&': case '=': case '#':
      return true;
    default:
      return false;
  }
}

bool validUtf8(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    std::size_t extra = 0;
    if (c < 0x80) extra = 0;
    else if ((c & 0xE0) == 0xC0 && c >= 0xC2) extra = 1;
    else if ((c & 0xF0) == 0xE0) extra = 2;
    else if ((c & 0xF8) == 0xF0 && c <= 0xF4) extra = 3;
    else return false;
    if (i + extra >= s.size() && extra > 0) return false;
    for (std::size_t k = 1; k <= extra; ++k) {
      if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
    }
    i += extra + 1;
  }
  return true;
}

}  // namespace

std::string percentDecode(std::string_view text, bool* bad) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
        out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
        i += 2;
        continue;
      }
      if (bad) *bad = true;
    }
    out += text[i];
  }
  return out;
}

std::string escapeAll(std::string_view text) {
  std::string out;
  out.reserve(text.size() * 3);
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (isUnreserved(c)) out += ch;
    else appendEscaped(out, c);
  }
  return out;
}

std::string escapeMinimal(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (breaksUrl(c)) appendEscaped(out, c);
    else out += ch;
  }
  return out;
}

std::vector<QueryPiece> splitQuery(std::string_view raw, std::vector<std::string>* notes) {
  std::vector<QueryPiece> pieces;
  std::size_t start = 0;
  while (start <= raw.size()) {
    std::size_t end = raw.find('&', start);
    if (end == std::string_view::npos) end = raw.size();
    const std::string_view piece = raw.substr(start, end - start);
    if (piece.empty()) {
      // A query that is empty altogether is not an oddity; an empty piece
      // between two "&" (or a trailing "&") is.
      if (notes && !raw.empty()) notes->push_back("empty query piece");
    } else {
      QueryPiece p;
      const std::size_t eq = piece.find('=');
      if (eq == std::string_view::npos) {
        p.rawKey = std::string(piece);
      } else {
        p.rawKey = std::string(piece.substr(0, eq));
        p.rawValue = std::string(piece.substr(eq + 1));
        p.hasEquals = true;
      }
      pieces.push_back(std::move(p));
    }
    start = end + 1;
  }
  return pieces;
}

Dictionary decodeQuery(const std::vector<QueryPiece>& pieces, std::vector<std::string>* notes) {
  Dictionary out;
  for (const QueryPiece& p : pieces) {
    bool bad = false;
    const std::string key = percentDecode(p.rawKey, &bad);
    const std::string value = percentDecode(p.rawValue, &bad);
    if (notes) {
      if (!p.hasEquals) notes->push_back(format("query piece without '=': %@", p.rawKey));
      if (p.rawValue.find('=') != std::string::npos) {
        notes->push_back(format("unescaped '=' in the value of %@", key));
      }
      if (bad) notes->push_back(format("malformed percent escape in %@", p.rawKey + "=" + p.rawValue));
      if (!validUtf8(key) || !validUtf8(value)) notes->push_back(format("escapes of %@ are not UTF-8", key));
      if (out.contains(key)) notes->push_back(format("duplicate query key %@", key));
    }
    out.set(key, Value(value));
  }
  return out;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    char a = text[i];
    char b = prefix[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

}  // namespace mirelo::sim::peer
