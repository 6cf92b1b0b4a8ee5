// The JSON form of property-list values: exact text and reals, the special objects, refusal of malformed text.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <tuple>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "util/PlistJson.h"

namespace mirelo {
namespace {

TEST(PlistJson, WritesEachKindExactly) {
  using Case = std::tuple<const char*, Value, const char*>;
  const Case cases[] = {
      {"whole real keeps its point", Value(1.0), "1.0"},
      {"huge real", Value(1e300), "1e+300"},
      {"tiny real", Value(std::numeric_limits<double>::denorm_min()), "5e-324"},
      {"negative zero", Value(-0.0), "-0.0"},
      {"infinity", Value(HUGE_VAL), "{\"$real\": \"inf\"}"},
      {"nan", Value(std::nan("")), "{\"$real\": \"nan\"}"},
      {"INT64_MIN", Value(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
      {"UINT64_MAX", Value(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615"},
      {"null", Value(), "null"},
      {"escapes", Value(std::string("q\"b\\s/\n\t\x01\x1f", 10)), "\"q\\\"b\\\\s/\\n\\t\\u0001\\u001f\""},
      {"UTF-8 kept", Value("caf\xc3\xa9 \xf0\x9f\x98\x80"), "\"caf\xc3\xa9 \xf0\x9f\x98\x80\""},
      {"invalid UTF-8 replaced", Value("a\xff" "b"), "\"a\xef\xbf\xbd" "b\""},
      {"data", Value(Data::copy(std::string("\x00\x01\x02", 3))), "{\"$data\": \"AAEC\"}"},
      {"whole date", Value(Date{-3}), "{\"$date\": -3.0}"},
      {"infinite date", Value(Date{HUGE_VAL}), "{\"$date\": \"inf\"}"},
      {"uid", Value(Uid{7}), "{\"$uid\": 7}"},
      {"empty containers", Value(Dictionary{{"a", Value(Array{})}, {"d", Value(Dictionary{})}}),
       "{\n  \"a\": [],\n  \"d\": {}\n}"},
      {"nesting and key order",
       Value(Dictionary{{"z", Value(1)}, {"a", Value(Array{Value(Dictionary{{"k", Value("v")}}), Value(2.0)})}}),
       "{\n  \"z\": 1,\n  \"a\": [\n    {\n      \"k\": \"v\"\n    },\n    2.0\n  ]\n}"},
      {"special names as keys get one more $",
       Value(Dictionary{{"$data", Value(1)}, {"$$uid", Value(2)}, {"$objects", Value(3)}, {"$", Value(4)}}),
       "{\n  \"$$data\": 1,\n  \"$$$uid\": 2,\n  \"$objects\": 3,\n  \"$\": 4\n}"},
  };
  for (const auto& [name, value, json] : cases) EXPECT_EQ(plistjson::toJson(value), json) << name;
}

// Numbers read by their text; malformed text is refused with a one-line reason (null is a value, not an error).
TEST(PlistJson, ReadsNumbersByTheirTextAndRefusesMalformedText) {
  using Case = std::tuple<std::string, Value, const char*>;  // reason null: no error
  const Case cases[] = {
      {"1", Value(1), nullptr},
      {"1.0", Value(1.0), nullptr},
      {"1e2", Value(100.0), nullptr},
      {"-0.0", Value(-0.0), nullptr},
      {"9223372036854775807", Value(std::numeric_limits<std::int64_t>::max()), nullptr},
      {"9223372036854775808", Value(std::uint64_t{1} << 63), nullptr},
      {"{\"$real\": \"-inf\"}", Value(-HUGE_VAL), nullptr},
      {"{\"$date\": 5}", Value(Date{5}), nullptr},
      {"{\"$uid\": 18446744073709551615}", Value(Uid{std::numeric_limits<std::uint64_t>::max()}), nullptr},
      {"{\"$data\": \"aGk=\"}", Value(Data::copy("hi")), nullptr},
      {"{\"$$data\": \"aGk=\"}", Value(Dictionary{{"$data", Value("aGk=")}}), nullptr},
      {"{\"$data\": \"aGk=\", \"x\": 1}", Value(Dictionary{{"$data", Value("aGk=")}, {"x", Value(1)}}), nullptr},
      {"null", Value(), nullptr},
      {"", Value(), "parse error"},
      {"[1,", Value(), "parse error"},
      {"\"\xff\"", Value(), "parse error"},
      {"18446744073709551616", Value(), "18446744073709551616 does not fit in 64 bits"},
      {"[-9223372036854775809]", Value(), "does not fit in 64 bits"},
      {"{\"$data\": 5}", Value(), "\"$data\" must hold a Base64 string"},
      {"{\"$data\": \"a!==\"}", Value(), "invalid Base64"},
      {"{\"$uid\": -1}", Value(), "\"$uid\" must hold a non-negative integer"},
      {"{\"$date\": \"soon\"}", Value(), "\"$date\" must hold a number"},
      {"{\"k\": [{\"$date\": null}]}", Value(), "\"$date\" must hold a number"},
      {std::string(600, '[') + std::string(600, ']'), Value(), "deeper than 512"},
  };
  for (const auto& [json, expected, reason] : cases) {
    SCOPED_TRACE(json.substr(0, 40));
    std::string error;
    const Value v = plistjson::fromJson(json, &error);
    EXPECT_EQ(v, expected);
    EXPECT_EQ(v.type(), expected.type());
    if (!reason) {
      EXPECT_TRUE(error.empty()) << error;
      continue;
    }
    EXPECT_NE(error.find(reason), std::string::npos) << "got \"" << error << "\"";
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
  EXPECT_TRUE(std::isnan(*plistjson::fromJson("{\"$real\": \"nan\"}").asReal()));
}

}  // namespace
}  // namespace mirelo
