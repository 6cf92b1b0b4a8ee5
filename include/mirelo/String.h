// A nullable, immutable-by-value text type.
//
// The kit keeps the difference between "no string" (null) and "the empty
// string" wherever the protocol does: a record key is written only when its
// field is set, and a null string prints as "(null)".  Text is UTF-8; lengths
// used for the protocol's size limits count UTF-16 code units, as the
// messenger does.
#pragma once

#include <iosfwd>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace mirelo {

class String {
 public:
  String() = default;                       // null
  String(std::nullptr_t) {}                 // null
  String(const char* s) { if (s) v_.emplace(s); }
  String(std::string s) : v_(std::move(s)) {}
  String(std::string_view s) : v_(std::string(s)) {}
  String(const std::optional<std::string>& s) : v_(s) {}

  static String null() { return String(); }

  bool isNull() const { return !v_.has_value(); }
  // True for null and for "".
  bool empty() const { return !v_ || v_->empty(); }
  // The text, "" when null.
  const std::string& str() const;
  // The text as a view, "" when null.
  std::string_view view() const { return v_ ? std::string_view(*v_) : std::string_view(); }
  const char* c_str() const { return str().c_str(); }
  // Length in UTF-16 code units (the unit of every size limit); 0 when null.
  std::size_t length() const;
  // Length in bytes of the UTF-8 text; 0 when null.
  std::size_t byteLength() const { return v_ ? v_->size() : 0; }
  // The text, or "(null)" when null: how a null object prints.
  std::string description() const { return v_ ? *v_ : std::string("(null)"); }

  const std::optional<std::string>& optional() const { return v_; }

  bool hasPrefix(std::string_view p) const { return v_ && v_->compare(0, p.size(), p) == 0; }
  bool hasSuffix(std::string_view s) const {
    return v_ && v_->size() >= s.size() && v_->compare(v_->size() - s.size(), s.size(), s) == 0;
  }
  bool contains(std::string_view s) const { return v_ && v_->find(s) != std::string::npos; }

  // ---- URL escaping (the kit's string category) --------------------------
  // Percent-escapes, in UTF-8, every character that is not legal in a URL
  // plus each of !*'();:@&=+$,/?%#[].  Null stays null.
  String mrApi_stringByEscapingForURLArgument() const;
  // Percent-escapes what is not legal in a URL, leaving ;/?:@=&$-_.+!*'(),%.
  String mrApi_stringByEscapingForURLArgumentOnly() const;
  // "+" becomes " ", then percent escapes are removed as UTF-8.  Null when
  // the escapes do not decode to UTF-8.
  String mrApi_stringByUnescapingFromURLArgument() const;
  // "+" becomes " ", every "\X" or "\x" becomes "%", then percent escapes
  // are removed.  Despite its name it decodes.
  String mrApi_stringByEncodeByJsonAndUrlEncode() const;
  // Percent-escapes what is not legal in a URL plus :/?#[]@!$ &'()*+,;="<>%{}|\^~`.
  String mrApi_stringByEncodeUrl() const;
  // The platform's whole-string escaping with UTF-8: percent-escapes exactly
  // the characters that are not legal in a URL (the default set the
  // functions above start from).  Null stays null; null when the text is
  // not well-formed UTF-8.
  String stringByAddingPercentEscapes() const;

  friend bool operator==(const String& a, const String& b) { return a.v_ == b.v_; }
  friend bool operator==(const String& a, std::string_view b) { return a.v_ && *a.v_ == b; }
  friend bool operator==(const String& a, const std::string& b) { return a.v_ && *a.v_ == b; }
  friend bool operator==(const String& a, const char* b) { return b ? a == std::string_view(b) : a.isNull(); }

 private:
  std::optional<std::string> v_;
};

// Number of UTF-16 code units needed for UTF-8 text (invalid bytes count one each).
std::size_t utf16Length(std::string_view utf8);

// Whether `bytes` is well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF.
bool isWellFormedUtf8(std::string_view bytes);

// Prints the value readably where a test framework shows it (GoogleTest
// finds PrintTo by argument-dependent lookup): "text" or null.
void PrintTo(const String& s, std::ostream* os);

}  // namespace mirelo
