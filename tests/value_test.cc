// The dynamic value type, its nil-safe accessors, and message formatting.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <tuple>

#include "mirelo/Value.h"
#include "util/Format.h"

namespace mirelo {
namespace {

// Booleans are never numbers, and null is apart from empty: the rest of the kit relies on both.
TEST(ValueTest, BooleansAreNotNumbersAndIntegersCompareAcrossSignedness) {
  EXPECT_TRUE(Value(true).isBool());
  EXPECT_FALSE(Value(true).isNumber());
  EXPECT_NE(Value(true), Value(1));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_EQ(Value(5u), Value(5));
  EXPECT_EQ(Value(std::uint64_t{5}).type(), Value::Type::Int);
  Value big(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(big.type(), Value::Type::UInt);
  EXPECT_NE(big, Value(-1));
  EXPECT_TRUE(Value(String()).isNull());
  EXPECT_TRUE(Value(Data()).isNull());
  EXPECT_FALSE(Value(Data::emptyData()).isNull());
}

TEST(ValueTest, NumericConversionsFollowThePlatformRules) {
  using Case = std::tuple<Value, std::int64_t, bool, double>;
  const Case cases[] = {
      {Value("  -17abc"), -17, true, -17},
      {Value("abc"), 0, false, 0},
      {Value("YES"), 0, true, 0},
      {Value("no"), 0, false, 0},
      {Value("000"), 0, false, 0},
      {Value("+0.5e1x"), 0, false, 5},
      {Value("99999999999999999999"), INT64_MAX, true, 1e20},
      {Value("-99999999999999999999"), INT64_MIN, true, -1e20},
      {Value(-2.9), -2, true, -2.9},
      {Value(Array{}), 0, false, 0},
      {Value(), 0, false, 0},
  };
  for (const auto& [v, integer, boolean, real] : cases) {
    SCOPED_TRACE(v.description());
    EXPECT_EQ(v.integerValue(), integer);
    EXPECT_EQ(v.boolValue(), boolean);
    EXPECT_DOUBLE_EQ(v.doubleValue(), real);
  }
  EXPECT_EQ(Value("2147483648").intValue(), INT32_MAX);  // strings clamp
  EXPECT_EQ(Value(std::int64_t{4294967297}).intValue(), 1);  // numbers truncate
}

// Out-of-range indexes and null objects are ignored, never a crash.
TEST(ValueTest, SafeWritesSkipNullAndArrayAccessorsAreBoundsSafe) {
  Dictionary d{{"k", "old"}};
  d.mrApi_safeSetObject(Value(), "k");
  EXPECT_EQ(d.get("k"), Value("old"));  // a null object does not remove
  Array a{1, 2, 1};
  EXPECT_TRUE(a.mrApi_safeObjectAtIndex(static_cast<std::size_t>(-1)).isNull());
  a.mrApi_safeAddObject(Value());
  a.mrApi_safeRemoveObject(Value(1));
  a.mrApi_safeReplaceObjectAtIndex(5, Value(9));
  a.mrApi_safeReplaceObjectAtIndex(0, Value());
  a.mrApi_safeInsertObject(Value(1), 3);  // above the count: nothing
  EXPECT_EQ(a, (Array{2}));
  a.mrApi_safeRemoveObjectAtIndex(2);
  a.mrApi_removeFirstObject();
  a.mrApi_removeFirstObject();
  EXPECT_TRUE(a.empty());
}

TEST(ValueTest, DictionaryKeepsOrderAndStaysCorrectPastItsIndexThreshold) {
  Dictionary d;
  for (int i = 0; i < 100; ++i) d.set("k" + std::to_string(i), i);
  d.set("k7", "seven");
  ASSERT_EQ(d.size(), 100u);
  EXPECT_EQ(d.entries()[7].first, "k7");
  EXPECT_EQ(d.get("k7"), Value("seven"));
  EXPECT_TRUE(d.remove("k50"));
  EXPECT_FALSE(d.contains("k50"));
  EXPECT_EQ(d.get("k99"), Value(99));
  Dictionary reordered{{"b", 2}, {"a", 1}};
  EXPECT_EQ(reordered, (Dictionary{{"a", 1}, {"b", 2}}));
}

TEST(ValueTest, DataSharesBytesAndKeepsNullApartFromEmpty) {
  Data big = Data::copy(std::string(1000, 'x'));
  EXPECT_TRUE(Value(big).asData()->sharesStorageWith(big));
  Data part = big.slice(10, 5);
  EXPECT_TRUE(part.sharesStorageWith(big));
  EXPECT_EQ(part.size(), 5u);
  EXPECT_EQ(big.slice(2000, 5).size(), 0u);
  EXPECT_NE(Data(), Data::emptyData());
  EXPECT_EQ(Data().description(), "(null)");
  EXPECT_EQ(Data::copy("\x01\xab", 2).description(), "{length = 2, bytes = 0x01ab}");
}

TEST(ValueTest, DescriptionPrintsLikeThePlatform) {
  EXPECT_EQ(Value().description(), "(null)");
  EXPECT_EQ(Value(true).description(), "1");
  EXPECT_EQ(Value(0.6).description(), "0.6");
  EXPECT_EQ(Value(Dictionary{{"k", "a b"}, {"n", 1}}).description(), "{\n    k = \"a b\";\n    n = 1;\n}");
  EXPECT_EQ(Value(Array{"x", 2}).description(), "(\n    x,\n    2\n)");
  EXPECT_EQ(Value(Date{0}).description(), "2001-01-01 00:00:00 +0000");
}

struct Counted {
  std::shared_ptr<int> calls = std::make_shared<int>(0);
  std::string description() const {
    ++*calls;
    return "counted";
  }
};

TEST(FormatTest, FillsConversionsAsThePlatformFormatterDoes) {
  EXPECT_EQ(format("send req[%@], appID:%@", String(), "mr1"), "send req[(null)], appID:mr1");
  EXPECT_EQ(format("%d|%u|%lu|%ld", -1, -1, std::uint64_t{18446744073709551615u}, std::int64_t{-5}),
            "-1|4294967295|18446744073709551615|-5");
  EXPECT_EQ(format("%@ %@ %@", true, 7, 2.5), "1 7 2.5");
  EXPECT_EQ(format("%02x%02x", 0xab, 5), "ab05");
  EXPECT_EQ(format("%@%%3A%%2F%%2Foauth", "mr1"), "mr1%3A%2F%2Foauth");
  EXPECT_EQ(format("uid=%llu&x", std::uint64_t{12}), "uid=12&x");
  EXPECT_EQ(format("%@ and %@", "one"), "one and (null)");
  EXPECT_EQ(format("trailing %"), "trailing %");
  EXPECT_EQ(format("%p", static_cast<const void*>(nullptr)), "0x0");
  EXPECT_EQ(format("[%@]", std::shared_ptr<Counted>()), "[(null)]");
  Counted c;
  EXPECT_EQ(format("[%@]", c), "[counted]");
  EXPECT_EQ(*c.calls, 1);
}

}  // namespace
}  // namespace mirelo
