// XML property lists: what the tools read with libxml2 and write back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tools/common/XmlPlist.h"
#include "util/BinaryPlist.h"

namespace mirelo::tooling {
namespace {

std::string wrap(const std::string& body) { return "<plist version=\"1.0\">" + body + "</plist>"; }

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

Value decodeOk(const std::string& xml) {
  std::string error;
  Value v = decodeXmlPlist(xml, &error);
  EXPECT_FALSE(v.isNull()) << error << "\n" << xml;
  return v;
}

// Every value type survives XML and agrees with the binary codec: what the
// XML writer wrote, read back and encoded as bplist, equals the bplist of
// the original.
TEST(XmlPlist, EveryTypeRoundTripsAndMatchesTheBinaryCodec) {
  Dictionary d{
      {"text", Value("caf\xC3\xA9 <&> ]]> \xF0\x9F\x98\x80\ttab\nline\rcr")},
      {"empty", Value("")},
      {"min", Value(static_cast<long long>(std::numeric_limits<std::int64_t>::min()))},
      {"max", Value(static_cast<unsigned long long>(std::numeric_limits<std::uint64_t>::max()))},
      {"real", Value(0.1)},
      {"whole real", Value(3.0)},
      {"tiny", Value(5e-324)},
      {"inf", Value(INFINITY)},
      {"minus inf", Value(-INFINITY)},
      {"yes", Value(true)},
      {"no", Value(false)},
      {"bytes", Value(Data::copy(std::string(200, '\xff')))},
      {"no bytes", Value(Data::emptyData())},
      {"when", Value(Date{694224000})},
      {"before 2001", Value(Date{-86401})},
      {"ref", Value(Uid{42})},
      {"list", Value(Array{Value(1), Value(Array{}), Value(Dictionary{})})},
  };
  const Value original{d};
  std::string error;
  const std::string xml = encodeXmlPlist(original, &error);
  ASSERT_FALSE(xml.empty()) << error;
  // Non-finite reals use the platform's words.
  EXPECT_NE(xml.find("<real>+infinity</real>"), std::string::npos) << xml;
  EXPECT_NE(xml.find("<real>-infinity</real>"), std::string::npos);
  const Value back = decodeOk(xml);
  EXPECT_EQ(back, original);
  EXPECT_EQ(bplist::encode(back).view(), bplist::encode(original).view());

  const std::string nan = encodeXmlPlist(Value(NAN));
  EXPECT_NE(nan.find("<real>nan</real>"), std::string::npos) << nan;
  EXPECT_TRUE(std::isnan(*decodeOk(nan).asReal()));
  // Dates keep whole seconds only.
  EXPECT_NE(encodeXmlPlist(Value(Date{694224000.75})).find("<date>2023-01-01T00:00:00Z</date>"), std::string::npos);
}

// What other writers produce: hex integers, white space around numbers,
// Base64 over several lines, comments, CDATA, a dict without the plist
// element, UID dictionaries.
TEST(XmlPlist, ReadsTheFormsOtherWritersUse) {
  struct Case {
    std::string xml;
    Value expected;
  };
  const Case cases[] = {
      {wrap("<integer> 0x1F </integer>"), Value(31)},
      {wrap("<integer>+7</integer>"), Value(7)},
      {wrap("<real>1</real>"), Value(1.0)},
      {wrap("<data>\n\tAAEC\n\tAw==\n\t</data>"), Value(Data::copy(std::string("\x00\x01\x02\x03", 4)))},
      {wrap("<data></data>"), Value(Data::emptyData())},
      {wrap("<date>2000-12-31T23:59:59Z</date>"), Value(Date{-1})},
      {wrap("<date>2024-02-29T12:00:00Z</date>"), Value(Date{730900800})},
      {wrap("<string><![CDATA[<raw & text>]]></string>"), Value("<raw & text>")},
      {wrap("<string>a&amp;b&#x4E2D;&#13;</string>"), Value("a&b\xE4\xB8\xAD\r")},
      {wrap("<string/>"), Value("")},
      {wrap("<!-- note --><dict><!-- x --><key>k</key><true/></dict>"), Value(Dictionary{{"k", Value(true)}})},
      {"<dict><key>bare</key><false/></dict>", Value(Dictionary{{"bare", Value(false)}})},
      {wrap("<dict><key>CF$UID</key><integer>7</integer></dict>"), Value(Uid{7})},
      {wrap("<dict><key>CF$UID</key><string>7</string></dict>"), Value(Dictionary{{"CF$UID", Value("7")}})},
      {wrap("<dict><key>k</key><integer>1</integer><key>k</key><integer>2</integer></dict>"),
       Value(Dictionary{{"k", Value(2)}})},
  };
  for (const Case& c : cases) EXPECT_EQ(decodeOk(c.xml), c.expected) << c.xml;
}

TEST(XmlPlist, RefusesMalformedDocumentsWithTheirLine) {
  struct Case {
    std::string xml;
    std::string reason;
  };
  const Case cases[] = {
      {"", "no bytes"},
      {"<plist><dict><key>a</key></dict></plist>", "<key> without a value"},
      {"<plist><dict><string>a</string><true/></dict></plist>", "where a <key> belongs"},
      {"\n\n<plist><dict><key>a</key><key>b</key></dict></plist>", "line 3: <key> follows <key>"},
      {"<plist>\n<dict>\n<key>a</key>\n<integer>12x</integer></dict></plist>", "line 4: <integer> holds \"12x\""},
      {wrap("<integer>18446744073709551616</integer>"), "does not fit in 64 bits"},
      {wrap("<integer>-9223372036854775809</integer>"), "does not fit in 64 bits"},
      {wrap("<integer></integer>"), "not an integer"},
      {wrap("<real>one</real>"), "not a number"},
      {wrap("<data>AAE</data>"), "not valid Base64"},
      {wrap("<date>2023-02-30T00:00:00Z</date>"), "not a date"},
      {wrap("<date>2023-01-01 00:00:00</date>"), "not a date"},
      {wrap("<true>x</true>"), "text inside <true>"},
      {wrap("<string><b/></string>"), "may hold text only"},
      {wrap("<set/>"), "unknown element <set>"},
      {wrap("<key>a</key>"), "<key> outside a <dict>"},
      {"<plist></plist>", "holds no value"},
      {"<plist><true/><false/></plist>", "more than one value"},
      {wrap("<array>loose<true/></array>"), "outside any value"},
      // Hostile input: declared entities are never expanded, an external one
      // never fetched or read; deep nesting is refused, not overflowed.
      {"<!DOCTYPE plist [<!ENTITY e \"expanded\">]><plist><string>&e;</string></plist>", "entity reference &e;"},
      {"<!DOCTYPE plist [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><plist><string>&e;</string></plist>",
       "entity reference &e;"},
      {wrap(repeat("<array>", kMaxXmlDepth + 1) + repeat("</array>", kMaxXmlDepth + 1)), "nesting is deeper than"},
      {wrap(repeat("<array>", 2000) + repeat("</array>", 2000)), "not an XML property list"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_TRUE(decodeXmlPlist(c.xml, &error).isNull()) << c.xml;
    EXPECT_NE(error.find(c.reason), std::string::npos) << c.xml.substr(0, 200) << " gave: " << error;
  }
}

// What is written can be read back: the deepest value XML carries round
// trips (dictionaries, with their <key> elements, nest deepest), and one
// level more is refused when written.
TEST(XmlPlist, TheDepthLimitAgreesBothWays) {
  auto nested = [](int levels) {
    Value v("leaf");
    for (int i = 1; i < levels; ++i) v = Value(Dictionary{{"k", std::move(v)}});
    return v;
  };
  std::string error;
  const std::string xml = encodeXmlPlist(nested(kMaxXmlDepth), &error);
  ASSERT_FALSE(xml.empty()) << error;
  EXPECT_EQ(decodeXmlPlist(xml, &error), nested(kMaxXmlDepth)) << error;
  EXPECT_EQ(encodeXmlPlist(nested(kMaxXmlDepth + 1), &error), "");
  EXPECT_NE(error.find("deeper than"), std::string::npos) << error;
}

TEST(XmlPlist, WritingRefusesWhatXmlCannotCarry) {
  struct Case {
    Value value;
    std::string reason;
  };
  const Case cases[] = {
      {Value(), "null value"},
      {Value(Array{Value("ok"), Value()}), "null value"},
      {Value("bell \x07"), "control character 7"},
      {Value(Dictionary{{"key\x01", Value(1)}}), "control character 1"},
      {Value("\xEF\xBF\xBF"), "U+FFFE or U+FFFF"},
      {Value(std::string("\xC3\x28")), "not valid UTF-8"},
      {Value(Date{1e12}), "out of the range"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(encodeXmlPlist(c.value, &error), "");
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
  }
}

TEST(XmlPlist, EitherFormatIsReadByItsFirstByte) {
  const Value v(Dictionary{{"a", Value(1)}});
  PlistFormat format = PlistFormat::Binary;
  EXPECT_EQ(decodePropertyList(Data::copy("\xEF\xBB\xBF \n" + encodeXmlPlist(v)), nullptr, &format), v);
  EXPECT_EQ(format, PlistFormat::Xml);
  EXPECT_EQ(decodePropertyList(bplist::encode(v), nullptr, &format), v);
  EXPECT_EQ(format, PlistFormat::Binary);
}

}  // namespace
}  // namespace mirelo::tooling
