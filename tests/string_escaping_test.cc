// URL escaping and unescaping of strings, UTF-16 lengths, and URL parsing.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "mirelo/String.h"
#include "mirelo/URL.h"

namespace mirelo {
namespace {

// The three escaping operations and the punctuation each leaves alone besides letters and digits.
struct Escaping {
  const char* name;
  String (String::*op)() const;
  std::string kept;
};
const Escaping kEscapings[] = {
    {"argument", &String::mrApi_stringByEscapingForURLArgument, "-._~"},
    {"argumentOnly", &String::mrApi_stringByEscapingForURLArgumentOnly, "!#$%&'()*+,-./:;=?@_~"},
    {"encodeUrl", &String::mrApi_stringByEncodeUrl, "-._"},
};

TEST(StringEscapingTest, EveryPrintableAsciiCharacterEscapesAsItsClassSays) {
  for (const Escaping& e : kEscapings) {
    for (int code = 0x20; code <= 0x7E; ++code) {
      const std::string c(1, static_cast<char>(code));
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(code));
      const bool kept = std::isalnum(code) != 0 || e.kept.find(c) != std::string::npos;
      EXPECT_EQ((String(c).*e.op)(), String(kept ? c : std::string(escaped))) << e.name << " " << c;
    }
  }
}

// Control and non-ASCII characters escape as upper-case UTF-8 bytes; text that is not UTF-8 cannot be escaped.
TEST(StringEscapingTest, OtherTextEscapesByOperation) {
  using Case = std::tuple<String, String, String, String>;
  std::vector<Case> cases = {
      {std::string("a\0b", 3), "a%00b", "a%00b", "a%00b"},
      {"\x7f", "%7F", "%7F", "%7F"},
      {"\xC3\xA9", "%C3%A9", "%C3%A9", "%C3%A9"},
      {"\xF0\x9F\x98\x80", "%F0%9F%98%80", "%F0%9F%98%80", "%F0%9F%98%80"},  // outside the BMP
      // Mixed text keeps its order and only the right characters change.
      {"q=a b&c=100%/\xC3\xA9#x", "q%3Da%20b%26c%3D100%25%2F%C3%A9%23x", "q=a%20b&c=100%/%C3%A9#x",
       "q%3Da%20b%26c%3D100%25%2F%C3%A9%23x"},
      {String(), String(), String(), String()},
      {"", "", "", ""},
  };
  // Stray, truncated, overlong, a surrogate, above U+10FFFF: the URL
  // encoding answers the empty string instead of null.
  for (const char* bad : {"\xFF", "ab\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    cases.push_back({bad, String(), String(), ""});
  }
  for (const auto& [in, argument, argumentOnly, encodeUrl] : cases) {
    SCOPED_TRACE(in.description());
    EXPECT_EQ(in.mrApi_stringByEscapingForURLArgument(), argument);
    EXPECT_EQ(in.mrApi_stringByEscapingForURLArgumentOnly(), argumentOnly);
    EXPECT_EQ(in.mrApi_stringByEncodeUrl(), encodeUrl);
  }
}

// Unescaping turns + into a space, one level only; the JSON-style form also decodes \x. Malformed input: null.
TEST(StringEscapingTest, UnescapingAndJsonStyleHexEscapes) {
  using Case = std::tuple<String, String, String>;
  std::vector<Case> cases = {
      {"a+b%20c", "a b c", "a b c"},
      {"%2B", "+", "+"},  // an escaped plus is a plus
      {"%C3%A9", "\xC3\xA9", "\xC3\xA9"},
      {"%e2%82%ac", "\xE2\x82\xAC", "\xE2\x82\xAC"},  // lower-case hex digits
      {"%2525", "%25", "%25"},
      // The edges of each range of lead bytes that well-formed UTF-8 allows.
      {"%E1%80%80%EE%80%80%EF%BB%BF", "\xE1\x80\x80\xEE\x80\x80\xEF\xBB\xBF", "\xE1\x80\x80\xEE\x80\x80\xEF\xBB\xBF"},
      {"%ED%9F%BF", "\xED\x9F\xBF", "\xED\x9F\xBF"},
      {"%F1%80%80%80%F4%8F%BF%BF", "\xF1\x80\x80\x80\xF4\x8F\xBF\xBF", "\xF1\x80\x80\x80\xF4\x8F\xBF\xBF"},
      {"\\xe4\\xb8\\xad", "\\xe4\\xb8\\xad", "\xE4\xB8\xAD"},
      {"%41\\x42", "A\\x42", "AB"},
      {"\\y\\u0041", "\\y\\u0041", "\\y\\u0041"},  // only \x and \X are rewritten
      {"\\\\x41", "\\\\x41", "\\A"},                 // the first backslash stays
      {"\\x", "\\x", String()},
      {"\\xZZ", "\\xZZ", String()},
      {String(), String(), String()},
      {"", "", ""},
  };
  // Not two hex digits; a truncated sequence; overlong, surrogate, never valid.
  for (const char* bad : {"%", "abc%", "%2", "%zz", "%2G", "100%", "%C3", "%C3a", "%C0%80", "%ED%A0%80", "%FF",
                          "%E0%80%80", "%F0%80%80%80", "%F4%90%80%80"}) {
    cases.push_back({bad, String(), String()});
  }
  for (const auto& [in, unescaped, jsonStyle] : cases) {
    SCOPED_TRACE(in.description());
    EXPECT_EQ(in.mrApi_stringByUnescapingFromURLArgument(), unescaped);
    EXPECT_EQ(in.mrApi_stringByEncodeByJsonAndUrlEncode(), jsonStyle);
  }
}

TEST(StringLengthTest, LengthCountsUtf16CodeUnits) {
  EXPECT_EQ(String().length(), 0u);
  EXPECT_EQ(String("a\xF0\x9F\x98\x80\xE4\xB8\xAD").length(), 4u);  // an emoji is a surrogate pair
  EXPECT_EQ(utf16Length("\xFF\xFE"), 2u);            // each invalid byte counts one
  EXPECT_EQ(utf16Length("\xF0\x9F\x98"), 3u);        // a truncated sequence too
  EXPECT_EQ(utf16Length(std::string_view("\0\0", 2)), 2u);
}

TEST(URLTest, AcceptsOnlyWholeValidUriReferences) {
  const char* good[] = {
      "mirelo://app/mr123/",
      "https://open.mirelo.app/app/mr123/sendreq/?a=1&b=%20#frag",
      "mailto:a@b",
      "/relative/path",
      "http://[::1]:8080/p",
  };
  for (const char* g : good) {
    const auto url = URL::fromString(g);
    ASSERT_TRUE(url.has_value()) << g;
    EXPECT_EQ(url->absoluteString(), g);
  }
  const std::string bad[] = {
      "",
      "a b",
      "http://h/a b",
      "http://h/%zz",
      "(null)://x",
      "http://h/\xC3\xA9",
      std::string("http://h/\0x", 11),
  };
  for (const std::string& b : bad) EXPECT_FALSE(URL::fromString(b).has_value()) << b;
}

TEST(URLTest, ComponentsAreTheRawTextAndNullWhenAbsent) {
  using Case = std::tuple<const char*, String, String, String, String, String>;
  const Case cases[] = {
      {"https://u@h.com:8/a/b%20c/?x=1&y=%41#f", "https", "h.com", "/a/b%20c/", "x=1&y=%41", "f"},
      {"mr1://oauth?code=1", "mr1", "oauth", nullptr, "code=1", nullptr},
      {"mr1://", "mr1", "", nullptr, nullptr, nullptr},
      {"http://h?", "http", "h", nullptr, "", nullptr},
      {"http://h/#", "http", "h", "/", nullptr, ""},
      {"mailto:a@b?subject=x", "mailto", nullptr, "a@b", "subject=x", nullptr},
      {"a/b?c?d#e/?", nullptr, nullptr, "a/b", "c?d", "e/?"},
  };
  for (const auto& [text, scheme, host, path, query, fragment] : cases) {
    SCOPED_TRACE(text);
    const auto url = URL::fromString(text);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->scheme(), scheme);
    EXPECT_EQ(url->host(), host);
    EXPECT_EQ(url->path(), path);
    EXPECT_EQ(url->query(), query);
    EXPECT_EQ(url->fragment(), fragment);
  }
}

}  // namespace
}  // namespace mirelo
