// A URL: an RFC 3986 reference the kit accepts, kept as the text it was made
// from.  Making a URL from text that is not a valid URI reference fails, as
// the platform's URL constructor does (spaces, unescaped brackets in the path,
// bad percent escapes and the like).
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "mirelo/String.h"

namespace mirelo {

class URL {
 public:
  // The URL for `text`, or nullopt when the text is not a valid URI
  // reference.  The empty text is rejected.
  static std::optional<URL> fromString(std::string_view text);

  // The text the URL was made from.
  const std::string& absoluteString() const { return text_; }
  // Components; null when the URL has none.  Not unescaped.
  String scheme() const;
  String host() const;
  String path() const;
  // The text after the first "?" up to any "#": null when there is no "?",
  // "" for a URL ending in "?".
  String query() const;
  String fragment() const;

  std::string description() const { return text_; }
  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  explicit URL(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

// Prints the value readably where a test framework shows it (GoogleTest
// finds PrintTo by argument-dependent lookup): URL("...").
void PrintTo(const URL& url, std::ostream* os);

}  // namespace mirelo
