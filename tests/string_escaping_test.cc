// URL escaping and unescaping of strings, UTF-16 lengths, and URL parsing.
#include <gtest/gtest.h>

#include <string>

#include "mirelo/String.h"
#include "mirelo/URL.h"

namespace mirelo {
namespace {

// Every printable ASCII character other than a letter or digit, with its
// expected form under the three escaping operations.  Written out from the
// RFC 2396 classes: unreserved  - _ . ! ~ * ' ( )  and reserved
// ; / ? : @ & = + $ ,  and the fragment mark # are legal in a URL; everything else is escaped by
// default; each operation then adds or exempts its own characters.
struct EscapeRow {
  char c;
  const char* argument;      // mrApi_stringByEscapingForURLArgument
  const char* argumentOnly;  // mrApi_stringByEscapingForURLArgumentOnly
  const char* encodeUrl;     // mrApi_stringByEncodeUrl
};

constexpr EscapeRow kPunctuation[] = {
    {' ', "%20", "%20", "%20"}, {'!', "%21", "!", "%21"},   {'"', "%22", "%22", "%22"},
    {'#', "%23", "#", "%23"}, {'$', "%24", "$", "%24"},   {'%', "%25", "%", "%25"},
    {'&', "%26", "&", "%26"},   {'\'', "%27", "'", "%27"},  {'(', "%28", "(", "%28"},
    {')', "%29", ")", "%29"},   {'*', "%2A", "*", "%2A"},   {'+', "%2B", "+", "%2B"},
    {',', "%2C", ",", "%2C"},   {'-', "-", "-", "-"},       {'.', ".", ".", "."},
    {'/', "%2F", "/", "%2F"},   {':', "%3A", ":", "%3A"},   {';', "%3B", ";", "%3B"},
    {'<', "%3C", "%3C", "%3C"}, {'=', "%3D", "=", "%3D"},   {'>', "%3E", "%3E", "%3E"},
    {'?', "%3F", "?", "%3F"},   {'@', "%40", "@", "%40"},   {'[', "%5B", "%5B", "%5B"},
    {'\\', "%5C", "%5C", "%5C"}, {']', "%5D", "%5D", "%5D"}, {'^', "%5E", "%5E", "%5E"},
    {'_', "_", "_", "_"},       {'`', "%60", "%60", "%60"}, {'{', "%7B", "%7B", "%7B"},
    {'|', "%7C", "%7C", "%7C"}, {'}', "%7D", "%7D", "%7D"}, {'~', "~", "~", "%7E"},
};

TEST(StringEscapingTest, EveryPrintableAsciiCharacterEscapesAsItsClassSays) {
  int punctuationSeen = 0;
  for (int code = 0x20; code <= 0x7E; ++code) {
    const char c = static_cast<char>(code);
    const String s(std::string(1, c));
    const bool alnum = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (alnum) {
      EXPECT_EQ(s.mrApi_stringByEscapingForURLArgument(), s) << c;
      EXPECT_EQ(s.mrApi_stringByEscapingForURLArgumentOnly(), s) << c;
      EXPECT_EQ(s.mrApi_stringByEncodeUrl(), s) << c;
      continue;
    }
    const EscapeRow* row = nullptr;
    for (const EscapeRow& r : kPunctuation) {
      if (r.c == c) row = &r;
    }
    ASSERT_NE(row, nullptr) << "no row for " << c;
    ++punctuationSeen;
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgument(), row->argument) << c;
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgumentOnly(), row->argumentOnly) << c;
    EXPECT_EQ(s.mrApi_stringByEncodeUrl(), row->encodeUrl) << c;
  }
  EXPECT_EQ(punctuationSeen, 33);
}

TEST(StringEscapingTest, ControlAndNonAsciiCharactersEscapeAsUpperCaseUtf8Bytes) {
  struct Case {
    std::string in;
    const char* out;
  };
  const Case cases[] = {
      {std::string("a\0b", 3), "a%00b"},
      {"\x7f", "%7F"},
      {"\xC3\xA9", "%C3%A9"},                 // é
      {"\xF0\x9F\x98\x80", "%F0%9F%98%80"},   // an emoji outside the BMP
  };
  for (const Case& c : cases) {
    const String s(c.in);
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgument(), c.out);
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgumentOnly(), c.out);
    EXPECT_EQ(s.mrApi_stringByEncodeUrl(), c.out);
  }
}

TEST(StringEscapingTest, MixedTextKeepsOrderAndOnlyTheRightCharactersChange) {
  const String query("q=a b&c=100%/\xC3\xA9#x");
  EXPECT_EQ(query.mrApi_stringByEscapingForURLArgument(), "q%3Da%20b%26c%3D100%25%2F%C3%A9%23x");
  EXPECT_EQ(query.mrApi_stringByEscapingForURLArgumentOnly(), "q=a%20b&c=100%/%C3%A9#x");
  EXPECT_EQ(query.mrApi_stringByEncodeUrl(), "q%3Da%20b%26c%3D100%25%2F%C3%A9%23x");
  EXPECT_EQ(String("a b+c").mrApi_stringByEncodeUrl(), "a%20b%2Bc");
}

TEST(StringEscapingTest, NullStaysNullAndEmptyStaysEmpty) {
  for (const String& s : {String(), String("")}) {
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgument(), s);
    EXPECT_EQ(s.mrApi_stringByEscapingForURLArgumentOnly(), s);
    EXPECT_EQ(s.mrApi_stringByEncodeUrl(), s);
    EXPECT_EQ(s.mrApi_stringByUnescapingFromURLArgument(), s);
    EXPECT_EQ(s.mrApi_stringByEncodeByJsonAndUrlEncode(), s);
  }
}

TEST(StringEscapingTest, TextThatIsNotUtf8CannotBeEscaped) {
  const std::string bad[] = {
      "\xFF",          "ab\x80",          "\xC3",              // stray, truncated
      "\xC0\xAF",      "\xE0\x80\xAF",                         // overlong
      "\xED\xA0\x80",                                          // a surrogate
      "\xF4\x90\x80\x80",                                      // above U+10FFFF
  };
  for (const std::string& b : bad) {
    const String s(b);
    EXPECT_TRUE(s.mrApi_stringByEscapingForURLArgument().isNull());
    EXPECT_TRUE(s.mrApi_stringByEscapingForURLArgumentOnly().isNull());
    // This one answers the empty string instead.
    const String encoded = s.mrApi_stringByEncodeUrl();
    EXPECT_FALSE(encoded.isNull());
    EXPECT_EQ(encoded, "");
  }
}

TEST(StringEscapingTest, UnescapingTurnsPlusIntoSpaceBeforeDecoding) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"a+b%20c", "a b c"},
      {"%2B", "+"},  // an escaped plus is a plus
      {"%C3%A9", "\xC3\xA9"},
      {"%e2%82%ac", "\xE2\x82\xAC"},  // lower-case hex digits
      {"%2525", "%25"},  // one level only
  };
  for (const Case& c : cases) {
    EXPECT_EQ(String(c.in).mrApi_stringByUnescapingFromURLArgument(), c.out) << c.in;
  }
}

TEST(StringEscapingTest, MalformedEscapesOrBytesMakeTheUnescapedStringNull) {
  const char* bad[] = {
      "%", "abc%", "%2", "%zz", "%2G", "100%",  // not two hex digits
      "%C3", "%C3a",                            // truncated sequence
      "%C0%80", "%ED%A0%80", "%FF",             // overlong, surrogate, never valid
  };
  for (const char* b : bad) {
    EXPECT_TRUE(String(b).mrApi_stringByUnescapingFromURLArgument().isNull()) << b;
    EXPECT_TRUE(String(b).mrApi_stringByEncodeByJsonAndUrlEncode().isNull()) << b;
  }
}

TEST(StringEscapingTest, ArgumentEscapingRoundTripsThroughUnescaping) {
  std::string everyAscii;
  for (int c = 1; c < 0x80; ++c) everyAscii.push_back(static_cast<char>(c));
  const std::string samples[] = {
      everyAscii, "a+b c", "k=v&k2=v2#frag", "\xE4\xB8\xAD\xF0\x9F\x98\x80 %41", std::string("\0x", 2),
  };
  for (const std::string& sample : samples) {
    const String escaped = String(sample).mrApi_stringByEscapingForURLArgument();
    ASSERT_FALSE(escaped.isNull());
    EXPECT_EQ(escaped.str().find_first_not_of(
                  "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~%"),
              std::string::npos);
    EXPECT_EQ(escaped.mrApi_stringByUnescapingFromURLArgument(), sample);
  }
}

TEST(StringEscapingTest, JsonStyleHexEscapesDecodeLikePercentEscapes) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"\\xe4\\xb8\\xad", "\xE4\xB8\xAD"},
      {"a+b", "a b"},
      {"%41\\x42", "AB"},
      {"\\y\\u0041", "\\y\\u0041"},  // only \x and \X are rewritten
      {"\\\\x41", "\\A"},             // the first backslash stays
  };
  for (const Case& c : cases) {
    EXPECT_EQ(String(c.in).mrApi_stringByEncodeByJsonAndUrlEncode(), c.out) << c.in;
  }
  EXPECT_TRUE(String("\\x").mrApi_stringByEncodeByJsonAndUrlEncode().isNull());
  EXPECT_TRUE(String("\\xZZ").mrApi_stringByEncodeByJsonAndUrlEncode().isNull());
}

TEST(StringLengthTest, LengthCountsUtf16CodeUnits) {
  EXPECT_EQ(String().length(), 0u);
  EXPECT_EQ(String("a\xF0\x9F\x98\x80\xE4\xB8\xAD").length(), 4u);  // an emoji is a surrogate pair
  EXPECT_EQ(utf16Length("\xFF\xFE"), 2u);            // each invalid byte counts one
  EXPECT_EQ(utf16Length("\xF0\x9F\x98"), 3u);        // a truncated sequence too
  EXPECT_EQ(utf16Length(std::string_view("\0\0", 2)), 2u);
  // Null text reads as one shared empty string.
  EXPECT_EQ(&String().str(), &String(nullptr).str());
  EXPECT_EQ(String().str(), "");
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
  struct Case {
    const char* text;
    String scheme, host, path, query, fragment;
  };
  const Case cases[] = {
      {"https://u@h.com:8/a/b%20c/?x=1&y=%41#f", "https", "h.com", "/a/b%20c/", "x=1&y=%41", "f"},
      {"mr1://oauth?code=1", "mr1", "oauth", nullptr, "code=1", nullptr},
      {"mr1://", "mr1", "", nullptr, nullptr, nullptr},
      {"http://h?", "http", "h", nullptr, "", nullptr},
      {"http://h/#", "http", "h", "/", nullptr, ""},
      {"mailto:a@b?subject=x", "mailto", nullptr, "a@b", "subject=x", nullptr},
      {"a/b?c?d#e/?", nullptr, nullptr, "a/b", "c?d", "e/?"},
  };
  for (const Case& c : cases) {
    const auto url = URL::fromString(c.text);
    ASSERT_TRUE(url.has_value()) << c.text;
    EXPECT_EQ(url->scheme(), c.scheme) << c.text;
    EXPECT_EQ(url->host(), c.host) << c.text;
    EXPECT_EQ(url->path(), c.path) << c.text;
    EXPECT_EQ(url->query(), c.query) << c.text;
    EXPECT_EQ(url->fragment(), c.fragment) << c.text;
  }
}

}  // namespace
}  // namespace mirelo
