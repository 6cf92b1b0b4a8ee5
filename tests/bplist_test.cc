// The binary property-list codec: exact encodings, round trips, hostile input, and libplist interop both ways.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "support/RecordTestUtil.h"
#include "util/BinaryPlist.h"

#ifdef MIRELO_HAVE_LIBPLIST
#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "support/LibplistValue.h"
#endif

namespace mirelo {
namespace {

using testing::assemble;
using testing::bytesOf;
using testing::putBE;

// Trailer fields, as byte positions counted from the end of the file.
enum TrailerField { kOffsetSize = 26, kRefSize = 25, kNumObjects = 24, kTop = 16, kTableOffset = 8 };

std::string patched(std::string f, TrailerField field, std::uint64_t v) {
  std::string be;
  putBE(be, v, field == kOffsetSize || field == kRefSize ? 1 : 8);
  return f.replace(f.size() - static_cast<std::size_t>(field), be.size(), be);
}

Value decodeString(const std::string& s, std::string* error = nullptr) {
  return bplist::decode(Data::copy(s), error);
}

std::string encodeString(const Value& v) {
  std::string error;
  Data d = bplist::encode(v, &error);
  EXPECT_FALSE(d.isNull()) << error;
  return d.toString();
}

// ---- encoding

// The only byte-for-byte check of a whole file: a one-key dictionary as the platform writes it.
TEST(BinaryPlistEncode, MatchesThePlatformWritersLayoutByteForByte) {
  const std::string expected = std::string("bplist00") +
                               bytesOf({0xD1, 0x01, 0x02, 0x51, 'a', 0x10, 0x05, 0x08, 0x0B, 0x0D, 0, 0, 0, 0, 0, 0,
                                        1, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                        0x0F});
  EXPECT_EQ(encodeString(Value(Dictionary{{"a", Value(5)}})), expected);
}

// Each scalar's marker and payload byte for byte (then one offset and the 32-byte trailer).
TEST(BinaryPlistEncode, PicksEachScalarsMarkerAndWidth) {
  using Case = std::tuple<const char*, Value, std::string>;
  const std::uint64_t u64max = std::numeric_limits<std::uint64_t>::max();
  const Case cases[] = {
      {"false", Value(false), bytesOf({0x08})},
      {"true", Value(true), bytesOf({0x09})},
      {"0xFF", Value(0xFF), bytesOf({0x10, 0xFF})},
      {"0x100", Value(0x100), bytesOf({0x11, 0x01, 0x00})},
      {"0xFFFF", Value(0xFFFF), bytesOf({0x11, 0xFF, 0xFF})},
      {"0x10000", Value(0x10000), bytesOf({0x12, 0x00, 0x01, 0x00, 0x00})},
      {"UINT32_MAX", Value(0xFFFFFFFFll), bytesOf({0x12, 0xFF, 0xFF, 0xFF, 0xFF})},
      {"2^32", Value(0x100000000ll), bytesOf({0x13, 0, 0, 0, 1, 0, 0, 0, 0})},
      {"-1", Value(-1), bytesOf({0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})},
      {"INT64_MIN", Value(std::numeric_limits<std::int64_t>::min()), bytesOf({0x13, 0x80, 0, 0, 0, 0, 0, 0, 0})},
      {"UINT64_MAX", Value(u64max),
       bytesOf({0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})},
      {"real 1.5 (always 8 bytes)", Value(1.5), bytesOf({0x23, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})},
      {"date", Value(Date{1.0}), bytesOf({0x33, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0})},
      {"uid 1 byte", Value(Uid{7}), bytesOf({0x80, 0x07})},
      {"uid 4 bytes", Value(Uid{0x10000}), bytesOf({0x83, 0, 1, 0, 0})},
      {"uid 8 bytes", Value(Uid{u64max}), bytesOf({0x87, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})},
      {"ascii", Value("ab"), bytesOf({0x52, 'a', 'b'})},
      {"empty string", Value(""), bytesOf({0x50})},
      {"latin as UTF-16", Value("\xc3\xa9"), bytesOf({0x61, 0x00, 0xE9})},
      {"non-BMP as a surrogate pair", Value("a\xf0\x9f\x98\x80"), bytesOf({0x63, 0x00, 'a', 0xD8, 0x3D, 0xDE, 0x00})},
      {"14 bytes of data", Value(Data::copy(std::string(14, 'x'))), bytesOf({0x4E}) + std::string(14, 'x')},
      {"15 bytes of data", Value(Data::copy(std::string(15, 'x'))),
       bytesOf({0x4F, 0x10, 0x0F}) + std::string(15, 'x')},
      {"300 characters", Value(std::string(300, 'y')), bytesOf({0x5F, 0x11, 0x01, 0x2C}) + std::string(300, 'y')},
      {"empty data", Value(Data::emptyData()), bytesOf({0x40})},
  };
  for (const auto& [name, value, object] : cases) {
    const std::string f = encodeString(value);
    EXPECT_EQ(f.substr(8, f.size() - 40 - static_cast<unsigned>(f[f.size() - kOffsetSize])), object) << name;
    std::string error;
    const Value back = decodeString(f, &error);
    EXPECT_EQ(back, value) << name << ": " << error;
    EXPECT_EQ(back.type(), value.type()) << name;
  }
}

TEST(BinaryPlistEncode, RefusesWhatItCannotWrite) {
  Value deep(Array{});
  for (int i = 1; i < bplist::kMaxDepth; ++i) deep = Value(Array{deep});
  ASSERT_FALSE(bplist::encode(deep).isNull()) << "exactly kMaxDepth nested containers are fine";
  EXPECT_EQ(bplist::decode(bplist::encode(deep)), deep);

  using Case = std::tuple<const char*, Value, const char*>;
  const Case cases[] = {
      {"null at the top", Value(), "null value (the top object)"},
      {"null in an array", Value(Array{Value(1), Value()}), "array element 1"},
      {"null in a dictionary", Value(Dictionary{{"k", Value(Array{Value(Dictionary{{"inner", Value()}})})}}),
       "dictionary key \"inner\""},
      {"invalid UTF-8 string", Value(Array{Value("ok"), Value("\xc3(")}), "not valid UTF-8"},
      {"invalid UTF-8 key", Value(Dictionary{{"\xff", Value(1)}}), "key is not valid UTF-8"},
      {"too deep", Value(Array{deep}), "deeper than 512"},
  };
  for (const auto& [name, value, reason] : cases) {
    std::string error;
    EXPECT_TRUE(bplist::encode(value, &error).isNull()) << name;
    EXPECT_NE(error.find(reason), std::string::npos) << name << ": " << error;
  }
}

// ---- decoding what this encoder never writes

TEST(BinaryPlistDecode, ReadsEveryFormOfTheFormat) {
  using Case = std::tuple<const char*, std::string, Value>;
  const Case cases[] = {
      {"set reads as an array", assemble({bytesOf({0xC2, 1, 2}), bytesOf({0x10, 3}), bytesOf({0x09})}),
       Value(Array{Value(3), Value(true)})},
      {"4-byte real", assemble({bytesOf({0x22, 0x3F, 0xC0, 0, 0})}), Value(1.5)},
      {"4-byte integer is unsigned", assemble({bytesOf({0x12, 0xFF, 0xFF, 0xFF, 0xFF})}), Value(0xFFFFFFFFll)},
      {"16-byte negative integer", assemble({bytesOf({0x14, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE})}),
       Value(-2)},
      {"3-byte UID", assemble({bytesOf({0x82, 1, 2, 3})}), Value(Uid{0x010203})},
      {"odd offset and reference sizes",
       assemble({bytesOf({0xA1, 0, 0, 1}), bytesOf({0x51, 'x'})}, 3, 3), Value(Array{Value("x")})},
      {"8-byte offsets, top object not first",
       assemble({bytesOf({0x51, 'x'}), bytesOf({0xD1, 0, 2}), bytesOf({0x08})}, 8, 1, 1),
       Value(Dictionary{{"x", Value(false)}})},
      {"long count written for a short string", assemble({bytesOf({0x5F, 0x10, 0x02, 'h', 'i'})}), Value("hi")},
      {"UTF-16 key", assemble({bytesOf({0xD1, 1, 2}), bytesOf({0x61, 0x4E, 0x2D}), bytesOf({0x10, 1})}),
       Value(Dictionary{{"\xe4\xb8\xad", Value(1)}})},
      {"shared leaf and shared container",
       assemble({bytesOf({0xA3, 1, 1, 2}), bytesOf({0x51, 's'}), bytesOf({0xA1, 1})}),
       Value(Array{Value("s"), Value("s"), Value(Array{Value("s")})})},
      {"unreferenced bytes between objects", assemble({bytesOf({0xA1, 1, 0xEE, 0xEE}), bytesOf({0x09})}),
       Value(Array{Value(true)})},
  };
  for (const auto& [name, file, expected] : cases) {
    std::string error;
    EXPECT_EQ(decodeString(file, &error), expected) << name << ": " << error;
  }
}

// ---- hostile input

std::vector<std::string> chain(std::size_t n, bool twice) {
  // n arrays, each referring to the next (once or twice), then a leaf.
  std::vector<std::string> objs;
  for (std::size_t i = 0; i < n; ++i) {
    std::string o = bytesOf({twice ? 0xA2 : 0xA1});
    putBE(o, i + 1, 2);
    if (twice) putBE(o, i + 1, 2);
    objs.push_back(o);
  }
  objs.push_back(bytesOf({0x09}));
  return objs;
}

TEST(BinaryPlistDecode, RefusesMalformedFilesWithANamedReason) {
  const std::string valid = assemble({bytesOf({0xA1, 1}), bytesOf({0x09})});

  // A 60000-character string referred to 30000 times.
  std::string manyRefs = bytesOf({0xAF, 0x11});
  putBE(manyRefs, 30000, 2);
  manyRefs.append(30000, '\x01');
  std::string bigString = bytesOf({0x5F, 0x11});
  putBE(bigString, 60000, 2);
  bigString.append(60000, 's');

  using Case = std::tuple<const char*, std::string, const char*>;
  const Case cases[] = {
      {"empty", "", "no bytes"},
      {"wrong magic", "bplist01" + valid.substr(8), "header is not \"bplist00\""},
      {"header only", "bplist00", "too short"},
      {"offset size 0", patched(valid, kOffsetSize, 0), "offset size 0"},
      {"offset size 9", patched(valid, kOffsetSize, 9), "offset size 9"},
      {"reference size 0", patched(valid, kRefSize, 0), "reference size 0"},
      {"reference size 9", patched(valid, kRefSize, 9), "reference size 9"},
      {"no objects", patched(valid, kNumObjects, 0), "object count is 0"},
      {"top past the objects", patched(valid, kTop, 2), "top object 2"},
      {"offset table count 2^60", patched(valid, kNumObjects, std::uint64_t{1} << 60), "runs into the trailer"},
      {"offset table past the file", patched(valid, kTableOffset, std::uint64_t{1} << 63), "offset table position"},
      {"offset table inside the header", patched(valid, kTableOffset, 4), "offset table position"},
      {"offset table overlapping the trailer", patched(valid, kTableOffset, valid.size() - 33),
       "runs into the trailer"},
      {"offset into the header", assemble({bytesOf({0x09})}).replace(9, 1, "\x03"), "outside the object area"},
      {"reference past the objects", assemble({bytesOf({0xA1, 5}), bytesOf({0x09})}), "refers to object 5"},
      {"array containing itself", assemble({bytesOf({0xA1, 0})}), "reference cycle"},
      {"cycle through a dictionary",
       assemble({bytesOf({0xD1, 1, 2}), bytesOf({0x51, 'k'}), bytesOf({0xA2, 3, 0}), bytesOf({0x08})}),
       "reference cycle"},
      {"array claiming 2^60 elements", assemble({bytesOf({0xAF, 0x13, 0x10, 0, 0, 0, 0, 0, 0, 0, 1})}),
       "runs past the object area"},
      {"dictionary claiming 2^40 entries", assemble({bytesOf({0xDF, 0x13, 0, 0, 1, 0, 0, 0, 0, 0, 1, 1})}),
       "runs past the object area"},
      {"data claiming 2^63-1 bytes", assemble({bytesOf({0x4F, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})}),
       "runs past the object area"},
      {"negative count", assemble({bytesOf({0x5F, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})}),
       "count is negative"},
      {"count that is not an integer", assemble({bytesOf({0xAF, 0x51, 'x'})}), "count is not an integer"},
      {"count cut short", assemble({bytesOf({0x4F, 0x12, 0})}), "count's integer runs past"},
      {"count missing", assemble({bytesOf({0x4F})}), "count's integer is missing"},
      {"string past the end", assemble({bytesOf({0x55, 'a', 'b'})}), "runs past the object area"},
      {"UTF-16 past the end", assemble({bytesOf({0x62, 0, 'a', 0})}), "runs past the object area"},
      {"high byte in ASCII", assemble({bytesOf({0x52, 'a', 0x80})}), "ASCII string holds the byte 0x80"},
      {"lone high surrogate at the end", assemble({bytesOf({0x61, 0xD8, 0x00})}), "lone high surrogate"},
      {"lone low surrogate", assemble({bytesOf({0x61, 0xDC, 0x00})}), "lone low surrogate"},
      {"integer key", assemble({bytesOf({0xD1, 1, 2}), bytesOf({0x10, 1}), bytesOf({0x09})}), "key is not a string"},
      {"32-byte integer", assemble({bytesOf({0x15, 0})}), "no valid size"},
      {"integer cut short", assemble({bytesOf({0x13, 0, 0})}), "runs past the object area"},
      {"16-byte integer beyond 64 bits", assemble({bytesOf({0x14, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0})}),
       "does not fit in 64 bits"},
      {"16-byte integer, bad sign extension",
       assemble({bytesOf({0x14, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 1})}),
       "does not fit in 64 bits"},
      {"2-byte real", assemble({bytesOf({0x21, 0, 0})}), "no valid size"},
      {"real cut short", assemble({bytesOf({0x23, 0, 0})}), "runs past the object area"},
      {"4-byte date", assemble({bytesOf({0x32, 0, 0, 0, 0})}), "is not 8 bytes"},
      {"9-byte UID", assemble({bytesOf({0x88, 1, 2, 3, 4, 5, 6, 7, 8, 9})}), "does not fit in 64 bits"},
      {"null object", assemble({bytesOf({0xA1, 1}), bytesOf({0x00})}), "null object"},
      {"fill byte", assemble({bytesOf({0x0F})}), "fill byte"},
      {"marker 0x70", assemble({bytesOf({0x70})}), "unknown marker 0x70"},
      {"ordered set 0xB0", assemble({bytesOf({0xB0})}), "unknown marker 0xb0"},
      {"marker 0xF0", assemble({bytesOf({0xF0})}), "unknown marker 0xf0"},
      {"513 nested arrays", assemble(chain(513, false), 2, 2), "deeper than 512"},
      {"DAG of 2^40 values", assemble(chain(40, true), 1, 2), "expand to more than"},
      {"one string repeated to 1.8 GB", assemble({manyRefs, bigString}, 2, 1), "strings expand to more than"},
  };
  for (const auto& [name, file, reason] : cases) {
    std::string error;
    const Value v = decodeString(file, &error);
    EXPECT_TRUE(v.isNull()) << name;
    EXPECT_NE(error.find(reason), std::string::npos) << name << ": got \"" << error << "\"";
    EXPECT_EQ(error.find('\n'), std::string::npos) << name;
  }

  // 512 nested arrays are still fine.
  EXPECT_TRUE(decodeString(assemble(chain(512, false), 2, 2)).isArray());
  EXPECT_TRUE(bplist::decode(Data()).isNull());
}

// Hostile input: every truncation is refused, no byte change crashes (see the sanitizer build), refusals say why.
TEST(BinaryPlistDecode, SurvivesEveryTruncationAndByteMutation) {
  const std::string f = encodeString(Value(Dictionary{
      {"name", Value("caf\xc3\xa9 \xf0\x9f\x98\x80")}, {"n", Value(-7)}, {"big", Value(UINT64_MAX)},
      {"r", Value(2.5)}, {"when", Value(Date{1000.5})}, {"blob", Value(Data::copy(std::string(20, 'b')))},
      {"uid", Value(Uid{300})},
      {"list", Value(Array{Value(true), Value(false), Value(Array{}), Value(Dictionary{})})}}));
  for (std::size_t n = 0; n < f.size(); ++n) {
    std::string error;
    EXPECT_TRUE(decodeString(f.substr(0, n), &error).isNull()) << "truncated to " << n;
    EXPECT_FALSE(error.empty()) << "truncated to " << n;
  }
  int refused = 0;
  for (std::size_t i = 0; i < f.size(); ++i) {
    const std::uint8_t orig = static_cast<std::uint8_t>(f[i]);
    for (int b : {0x00, 0xFF, 0x0F, 0x80, 0x7F, orig ^ 0x01, orig ^ 0x10, (orig + 1) & 0xFF}) {
      std::string m = f;
      m[i] = static_cast<char>(b);
      std::string error;
      if (!decodeString(m, &error).isNull()) continue;
      ++refused;
      EXPECT_FALSE(error.empty()) << "byte " << i << " = " << b;
    }
  }
  EXPECT_GT(refused, 0);
}

// ---- interoperability with libplist

#ifdef MIRELO_HAVE_LIBPLIST

struct PlistFree {
  void operator()(void* p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

using mirelo::testing::toPlist;

// Whether `v` and the libplist node hold the same value (integers as 64-bit patterns, keys in order).
::testing::AssertionResult same(const Value& v, plist_t n, const std::string& path = "top") {
  auto check = [&](plist_type t, bool equal) {
    if (plist_get_node_type(n) != t) return ::testing::AssertionFailure() << path << ": another kind";
    return equal ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << path << ": differs";
  };
  std::uint64_t u = 0;
  double d = 0;
  switch (v.type()) {
    case Value::Type::Bool: {
      std::uint8_t b = 0;
      plist_get_bool_val(n, &b);
      return check(PLIST_BOOLEAN, (b != 0) == *v.asBool());
    }
    case Value::Type::Int:
    case Value::Type::UInt:
      plist_get_uint_val(n, &u);
      return check(PLIST_UINT, u == (v.asInt() ? static_cast<std::uint64_t>(*v.asInt()) : *v.asUInt()));
    case Value::Type::Real:
      plist_get_real_val(n, &d);
      return check(PLIST_REAL, d == *v.asReal());
    case Value::Type::Date: {
      std::int32_t sec = 0;
      std::int32_t usec = 0;
      plist_get_date_val(n, &sec, &usec);
      return check(PLIST_DATE, static_cast<double>(sec) + usec / 1e6 == v.asDate()->secondsSince2001);
    }
    case Value::Type::String: {
      char* s = nullptr;
      plist_get_string_val(n, &s);
      const bool equal = s && *v.asString() == s;
      std::free(s);
      return check(PLIST_STRING, equal);
    }
    case Value::Type::Data: {
      const char* p = plist_get_data_ptr(n, &u);
      return check(PLIST_DATA, std::string_view(p ? p : "", p ? u : 0) == v.asData()->view());
    }
    case Value::Type::Uid:
      plist_get_uid_val(n, &u);
      return check(PLIST_UID, u == v.asUid()->value);
    case Value::Type::Array: {
      const Array& a = *v.asArray();
      auto r = check(PLIST_ARRAY, plist_array_get_size(n) == a.size());
      for (std::uint32_t i = 0; r && i < a.size(); ++i) {
        r = same(a[i], plist_array_get_item(n, i), path + "[" + std::to_string(i) + "]");
      }
      return r;
    }
    case Value::Type::Dictionary: {
      auto r = check(PLIST_DICT, plist_dict_get_size(n) == v.asDictionary()->size());
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(n, &it);
      for (const auto& [k, e] : *v.asDictionary()) {
        if (!r) break;
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(n, it, &key, &item);
        r = key && k == key ? same(e, item, path + "." + k) : check(PLIST_DICT, false) << " (key order at " << k;
        std::free(key);
      }
      std::free(it);
      return r;
    }
    case Value::Type::Null: break;
  }
  return ::testing::AssertionFailure() << path << ": null value";
}

// Ours -> libplist, and libplist -> ours, for one value.
void checkInterop(const Value& v, const std::string& name) {
  SCOPED_TRACE(name);
  std::string error;
  const Data mine = bplist::encode(v, &error);
  ASSERT_FALSE(mine.isNull()) << error;
  plist_t parsed = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(mine.bytes()), static_cast<std::uint32_t>(mine.size()), &parsed);
  PlistPtr parsedOwner(parsed);
  ASSERT_NE(parsed, nullptr) << "libplist could not read our encoding";
  EXPECT_TRUE(same(v, parsed));

  PlistPtr theirs(toPlist(v));
  char* bin = nullptr;
  std::uint32_t len = 0;
  plist_to_bin(theirs.get(), &bin, &len);
  ASSERT_NE(bin, nullptr);
  const Data theirBytes = Data::copy(bin, len);
  std::free(bin);
  const Value back = bplist::decode(theirBytes, &error);
  ASSERT_FALSE(back.isNull()) << "we could not read libplist's encoding: " << error;
  EXPECT_TRUE(same(back, theirs.get()));
}

// Interop with an independent implementation, both ways: sizes at each width's edge and every kind.
TEST(BinaryPlistInterop, EdgeSizesRoundTripBothWays) {
  const Array ints{Value(0),          Value(0xFF),          Value(0x100),     Value(0xFFFF),
                   Value(0x10000),    Value(0xFFFFFFFFll),  Value(0x100000000ll),
                   Value(INT64_MIN),  Value(INT64_MAX),     Value(-1),        Value(UINT64_MAX)};
  const Array fifteen(std::vector<Value>(15, Value(1)));
  const Array s255(std::vector<Value>(255, Value("s")));
  Dictionary keys;
  for (int i = 0; i < 15; ++i) keys.set("k" + std::to_string(i), Value(i));
  Array big;
  for (int i = 0; i < 7000; ++i) big.push_back(Value("item-" + std::to_string(i)));

  const std::pair<const char*, Value> cases[] = {
      {"15 elements", Value(fifteen)},
      {"15 keys", Value(keys)},
      {"strings of 14/15/16", Value(Array{Value(std::string(14, 'a')), Value(std::string(15, 'b')),
                                          Value(std::string(16, 'c')), Value(std::string(15, 'x') + "\xc3\xa9")})},
      {"256 objects", Value(s255)},
      {"integer edges", Value(ints)},
      {"non-BMP strings", Value(Dictionary{{"\xf0\x9f\x98\x80", Value("a\xf0\x9f\x98\x80z\xf4\x8f\xbf\xbf")},
                                           {"plain", Value("\xe4\xb8\xad\xe6\x96\x87")}})},
      {"empty things", Value(Array{Value(Data::emptyData()), Value(""), Value(Array{}), Value(Dictionary{})})},
      {"reals", Value(Array{Value(0.0), Value(-0.0), Value(1.5), Value(0.1), Value(1e300), Value(-2.5e-300),
                            Value(std::numeric_limits<double>::denorm_min())})},
      {"dates and UIDs", Value(Array{Value(Date{0}), Value(Date{694224000.5}), Value(Uid{0}), Value(Uid{255}),
                                     Value(Uid{256}), Value(Uid{0xFFFFFFFF})})},
      {"large offset table", Value(big)},
      {"1 MiB payload", Value(Dictionary{{"k", Value("v")},
                                         {"fileData", Value(Data::copy(std::string(std::size_t{1} << 20, 'p')))}})},
  };
  for (const auto& [name, v] : cases) checkInterop(v, name);
  const std::string f = encodeString(Value(big));
  EXPECT_EQ(f[f.size() - kOffsetSize], 4) << "the large case must reach 4-byte offsets";
}

#endif  // MIRELO_HAVE_LIBPLIST

}  // namespace
}  // namespace mirelo
