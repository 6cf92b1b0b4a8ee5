// URL: validation and components through uriparser.
//
// A text is accepted when uriparser reads all of it as an RFC 3986 URI
// reference.  The components are taken from the ranges uriparser reports
// while parsing, so they are always the raw (still escaped) text.

#include "mirelo/URL.h"

#include <uriparser/Uri.h>

namespace mirelo {

namespace {

// The parsed form of a URL text; frees uriparser's members on scope exit.
class ParsedUri {
 public:
  explicit ParsedUri(std::string_view text) : text_(text) {
    const char* error = nullptr;
    ok_ = uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), &error) == URI_SUCCESS;
  }
  ~ParsedUri() {
    if (ok_) uriFreeUriMembersA(&uri_);
  }
  ParsedUri(const ParsedUri&) = delete;
  ParsedUri& operator=(const ParsedUri&) = delete;

  bool ok() const { return ok_; }
  const UriUriA& uri() const { return uri_; }

  // The text of a range, or null when uriparser found no such component.
  String range(const UriTextRangeA& r) const {
    if (!ok_ || r.first == nullptr) return String();
    return String(std::string_view(r.first, static_cast<std::size_t>(r.afterLast - r.first)));
  }

  // Offset of a pointer into the parsed text.
  std::size_t offset(const char* p) const { return static_cast<std::size_t>(p - text_.data()); }

 private:
  std::string_view text_;
  UriUriA uri_{};
  bool ok_ = false;
};

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// RFC 3986 pchar without pct-encoded (unreserved, sub-delims, ":" and "@"),
// plus "/" and "?": what a path, a query and a fragment are made of.
bool isPathOrQueryChar(char c) {
  if (isAlpha(c) || isDigit(c)) return true;
  switch (c) {
    case '-': case '.': case '_': case '~':                                         // unreserved
    case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+':  // sub-delims
    case ',': case ';': case '=':
    case ':': case '@': case '/': case '?':
      return true;
    default:
      return false;
  }
}

// A quick test for the common shape "scheme://host/path?query#fragment"
// with a plain host name (a letter, then letters, digits, "-" and ".") and
// nothing but URL characters after it, which is what the kit's launch URLs
// and the messenger's answers look like.  Every text it accepts is a valid
// URI by the RFC 3986 grammar (scheme, reg-name host, path-abempty, query
// and fragment), so uriparser is asked only about the rest; false means "not
// known", never "invalid".
bool plainlyValid(std::string_view t) {
  if (t.empty() || !isAlpha(t[0])) return false;
  std::size_t i = 1;
  while (i < t.size() && (isAlpha(t[i]) || isDigit(t[i]) || t[i] == '+' || t[i] == '-' || t[i] == '.')) ++i;
  if (t.substr(i, 3) != "://") return false;
  i += 3;
  if (i >= t.size() || !isAlpha(t[i])) return false;
  while (i < t.size() && (isAlpha(t[i]) || isDigit(t[i]) || t[i] == '-' || t[i] == '.')) ++i;
  if (i < t.size() && t[i] != '/' && t[i] != '?' && t[i] != '#') return false;  // a port, user info...
  bool inFragment = false;
  for (; i < t.size(); ++i) {
    const char c = t[i];
    if (c == '%') {
      if (i + 2 >= t.size() || !isHexDigit(t[i + 1]) || !isHexDigit(t[i + 2])) return false;
      i += 2;
    } else if (c == '#') {
      if (inFragment) return false;
      inFragment = true;
    } else if (!isPathOrQueryChar(c)) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<URL> URL::fromString(std::string_view text) {
  if (text.empty()) return std::nullopt;
  if (!plainlyValid(text) && !ParsedUri(text).ok()) return std::nullopt;
  return URL(std::string(text));
}

String URL::scheme() const {
  ParsedUri parsed(text_);
  return parsed.range(parsed.uri().scheme);
}

String URL::host() const {
  ParsedUri parsed(text_);
  return parsed.range(parsed.uri().hostText);
}

// A URL's text is a valid URI reference, in which no "?" or "#" comes
// before the query and the fragment: both are found by their marks alone.
String URL::query() const {
  std::size_t mark = 0;
  while (mark < text_.size() && text_[mark] != '?' && text_[mark] != '#') ++mark;
  if (mark == text_.size() || text_[mark] == '#') return String();
  const std::size_t end = text_.find('#', mark + 1);
  return String(std::string_view(text_).substr(mark + 1, end == std::string::npos ? end : end - mark - 1));
}

String URL::fragment() const {
  const std::size_t mark = text_.find('#');
  if (mark == std::string::npos) return String();
  return String(std::string_view(text_).substr(mark + 1));
}

// The path runs from the end of "scheme:" and "//authority" to the first "?"
// or "#"; null when that stretch is empty.
String URL::path() const {
  ParsedUri parsed(text_);
  if (!parsed.ok()) return String();
  const UriUriA& uri = parsed.uri();
  std::size_t start = 0;
  if (uri.scheme.first != nullptr) start = parsed.offset(uri.scheme.afterLast) + 1;  // past ":"
  if (uri.hostText.first != nullptr && text_.compare(start, 2, "//") == 0) {
    // An authority holds no "/", "?" or "#", so the first of them ends it.
    start = text_.find_first_of("/?#", start + 2);
    if (start == std::string::npos) start = text_.size();
  }
  std::size_t end = text_.find_first_of("?#", start);
  if (end == std::string::npos) end = text_.size();
  if (end <= start) return String();
  return String(std::string_view(text_).substr(start, end - start));
}

}  // namespace mirelo
