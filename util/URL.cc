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

}  // namespace

std::optional<URL> URL::fromString(std::string_view text) {
  if (text.empty()) return std::nullopt;
  ParsedUri parsed(text);
  if (!parsed.ok()) return std::nullopt;
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

String URL::query() const {
  ParsedUri parsed(text_);
  return parsed.range(parsed.uri().query);
}

String URL::fragment() const {
  ParsedUri parsed(text_);
  return parsed.range(parsed.uri().fragment);
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
