// mirelo::String: lengths in UTF-16 code units and the kit's URL escaping.
//
// Escaping follows the platform's percent-escaping routine
// (CFURLCreateStringByAddingPercentEscapes) with its two optional sets:
//
//   * A character is "legal in a URL" when it is one of the unreserved or
//     reserved characters of RFC 2396, or "#", which the platform leaves
//     bare because it delimits a URL's fragment:
//         A-Z a-z 0-9  - _ . ! ~ * ' ( )      (unreserved)
//         ; / ? : @ & = + $ ,  #              (reserved, fragment mark)
//     Everything else is escaped by default: the control characters, space,
//     DEL, every non-ASCII character, and " % < > [ \ ] ^ ` { | }
//     ("%" is escaped, so escaping escaped text escapes it again).
//   * "leave unescaped" only rescues characters that would otherwise be
//     escaped; "to be escaped" only adds legal characters.  A character is
//     therefore escaped exactly when (illegal and not in leave) or (legal and
//     in toEscape).
//   * Escapes are the UTF-8 bytes of the character as %XX with upper-case
//     hex digits.  Text that is not well-formed UTF-8 cannot be escaped: the
//     routine fails (null; "" for mrApi_stringByEncodeUrl).
//
// Unescaping removes every %XX escape and reads the resulting bytes as UTF-8;
// a "%" not followed by two hex digits, or bytes that are not well-formed
// UTF-8, make the whole result null.

#include "mirelo/String.h"

#include <cstdint>

namespace mirelo {

namespace {

// Length of the well-formed UTF-8 sequence at p (n bytes available), or 0 when
// the bytes there do not start one (Unicode's table of well-formed byte
// sequences: no overlongs, no surrogates, nothing above U+10FFFF).
std::size_t utf8SequenceLength(const unsigned char* p, std::size_t n) {
  const unsigned char b0 = p[0];
  if (b0 < 0x80) return 1;
  auto cont = [&](std::size_t i, unsigned char lo = 0x80, unsigned char hi = 0xBF) {
    return i < n && p[i] >= lo && p[i] <= hi;
  };
  if (b0 >= 0xC2 && b0 <= 0xDF) return cont(1) ? 2 : 0;
  if (b0 == 0xE0) return cont(1, 0xA0) && cont(2) ? 3 : 0;
  if ((b0 >= 0xE1 && b0 <= 0xEC) || b0 == 0xEE || b0 == 0xEF) return cont(1) && cont(2) ? 3 : 0;
  if (b0 == 0xED) return cont(1, 0x80, 0x9F) && cont(2) ? 3 : 0;
  if (b0 == 0xF0) return cont(1, 0x90) && cont(2) && cont(3) ? 4 : 0;
  if (b0 >= 0xF1 && b0 <= 0xF3) return cont(1) && cont(2) && cont(3) ? 4 : 0;
  if (b0 == 0xF4) return cont(1, 0x80, 0x8F) && cont(2) && cont(3) ? 4 : 0;
  return 0;
}

}  // namespace

bool isWellFormedUtf8(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t len = utf8SequenceLength(p + i, s.size() - i);
    if (len == 0) return false;
    i += len;
  }
  return true;
}

namespace {

// RFC 2396 unreserved and reserved characters and "#": the default legal set.
constexpr bool isLegalURLCharacter(unsigned char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-': case '_': case '.': case '!': case '~': case '*': case '\'': case '(': case ')':
    case ';': case '/': case '?': case ':': case '@': case '&': case '=': case '+': case '$': case ',':
    case '#':
      return true;
    default:
      return false;
  }
}

// A set of ASCII characters, one bit each.
struct AsciiSet {
  std::uint64_t bits[2] = {0, 0};
  constexpr void add(unsigned char c) { bits[c >> 6] |= std::uint64_t{1} << (c & 63); }
  constexpr void remove(unsigned char c) { bits[c >> 6] &= ~(std::uint64_t{1} << (c & 63)); }
  constexpr bool has(unsigned char c) const { return ((bits[c >> 6] >> (c & 63)) & 1) != 0; }
};

constexpr AsciiSet illegalAscii() {
  AsciiSet set;
  for (unsigned c = 0; c < 128; ++c) {
    if (!isLegalURLCharacter(static_cast<unsigned char>(c))) set.add(static_cast<unsigned char>(c));
  }
  return set;
}

constexpr AsciiSet kIllegalAscii = illegalAscii();

// The characters one escaping call escapes: exactly when (illegal and not in
// `leaveUnescaped`) or (legal and in `toEscape`); every non-ASCII byte.  The
// optional sets hold ASCII only (other bytes in them are ignored).
class EscapeMask {
 public:
  EscapeMask(std::string_view leaveUnescaped, std::string_view toEscape) : ascii_(kIllegalAscii) {
    for (const char ch : leaveUnescaped) {
      const auto c = static_cast<unsigned char>(ch);
      if (c < 128 && !isLegalURLCharacter(c)) ascii_.remove(c);
    }
    for (const char ch : toEscape) {
      const auto c = static_cast<unsigned char>(ch);
      if (c < 128 && isLegalURLCharacter(c)) ascii_.add(c);
    }
  }
  bool escapes(unsigned char c) const { return c >= 128 || ascii_.has(c); }

 private:
  AsciiSet ascii_;
};

constexpr char kHexUpper[] = "0123456789ABCDEF";

void appendEscaped(std::string& out, unsigned char byte) {
  out.push_back('%');
  out.push_back(kHexUpper[byte >> 4]);
  out.push_back(kHexUpper[byte & 0x0F]);
}

// Percent-escapes `text` as described at the top of this file; nullopt when
// the text is not well-formed UTF-8.  Runs of characters that stay as they
// are are copied at once.
std::optional<std::string> addPercentEscapes(std::string_view text, std::string_view leaveUnescaped,
                                             std::string_view toEscape) {
  const EscapeMask mask(leaveUnescaped, toEscape);
  std::string out;
  out.reserve(text.size() + text.size() / 2);
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t plain = i;
    while (plain < text.size() && !mask.escapes(p[plain])) ++plain;
    out.append(text.data() + i, plain - i);
    i = plain;
    if (i == text.size()) break;
    const std::size_t len = utf8SequenceLength(p + i, text.size() - i);
    if (len == 0) return std::nullopt;
    // An escaped ASCII character, or every byte of a non-ASCII one.
    for (std::size_t k = 0; k < len; ++k) appendEscaped(out, p[i + k]);
    i += len;
  }
  return out;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Removes every %XX escape; nullopt for a malformed escape or a result that
// is not well-formed UTF-8.
std::optional<std::string> replacePercentEscapes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int hi = hexValue(text[i + 1]);
    const int lo = hexValue(text[i + 2]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out.push_back(static_cast<char>((hi << 4) | lo));
    i += 2;
  }
  if (!isWellFormedUtf8(out)) return std::nullopt;
  return out;
}

// Every "+" becomes " " (a literal, non-overlapping search).
std::string plusToSpace(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c == '+') c = ' ';
  }
  return out;
}

}  // namespace

const std::string& String::str() const {
  static const std::string kEmpty;
  return v_ ? *v_ : kEmpty;
}

std::size_t String::length() const { return v_ ? utf16Length(*v_) : 0; }

std::size_t utf16Length(std::string_view utf8) {
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  std::size_t units = 0;
  std::size_t i = 0;
  while (i < utf8.size()) {
    const std::size_t len = utf8SequenceLength(p + i, utf8.size() - i);
    if (len == 0) {
      ++units;  // an invalid byte counts as one unit
      ++i;
      continue;
    }
    units += len == 4 ? 2 : 1;  // characters above U+FFFF take a surrogate pair
    i += len;
  }
  return units;
}

// Query arguments: everything with a meaning in a URL is escaped as well.
String String::mrApi_stringByEscapingForURLArgument() const {
  if (!v_) return String();
  return String(addPercentEscapes(*v_, "", "!*'();:@&=+$,/?%#[]"));
}

// Escapes only what cannot stand in a URL; an existing "%" escape survives.
String String::mrApi_stringByEscapingForURLArgumentOnly() const {
  if (!v_) return String();
  return String(addPercentEscapes(*v_, ";/?:@=&$-_.+!*'(),%", ""));
}

String String::mrApi_stringByUnescapingFromURLArgument() const {
  if (!v_) return String();
  return String(replacePercentEscapes(plusToSpace(*v_)));
}

// Despite its name this decodes: "+" to " ", "\x" / "\X" to "%", then the
// percent escapes.
String String::mrApi_stringByEncodeByJsonAndUrlEncode() const {
  if (!v_) return String();
  const std::string spaced = plusToSpace(*v_);
  std::string percent;
  percent.reserve(spaced.size());
  for (std::size_t i = 0; i < spaced.size(); ++i) {
    if (spaced[i] == '\\' && i + 1 < spaced.size() && (spaced[i + 1] == 'x' || spaced[i + 1] == 'X')) {
      percent.push_back('%');
      ++i;
    } else {
      percent.push_back(spaced[i]);
    }
  }
  return String(replacePercentEscapes(percent));
}

// Everything but letters, digits, "-", "_" and "." is escaped; "" when the
// text cannot be escaped.
String String::mrApi_stringByEncodeUrl() const {
  if (!v_) return String();
  std::optional<std::string> escaped = addPercentEscapes(*v_, "", ":/?#[]@!$ &'()*+,;=\"<>%{}|\\^~`");
  return String(escaped ? std::move(*escaped) : std::string());
}

// The default set alone: what cannot stand in a URL is escaped, everything
// with a meaning in a URL is left alone.
String String::stringByAddingPercentEscapes() const {
  if (!v_) return String();
  return String(addPercentEscapes(*v_, "", ""));
}

}  // namespace mirelo
