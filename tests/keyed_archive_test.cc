// Keyed archives: what the writer produces, archives as the system writes them, keyed reads, malformed archives.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "support/RecordTestUtil.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"

namespace mirelo {
namespace {

// The archive frame around `objects`, as the system's archiver writes it.
Dictionary frameOf(Array objects, std::uint64_t root = 1) {
  return Dictionary{{"$version", Value(100000)},
                    {"$archiver", Value("NSKeyedArchiver")},
                    {"$top", Value(Dictionary{{"root", Value(Uid{root})}})},
                    {"$objects", Value(std::move(objects))}};
}

Data encoded(const Dictionary& top) {
  Data d = bplist::encode(Value(top));
  EXPECT_FALSE(d.isNull());
  return d;
}

Data archiveOf(Array objects, std::uint64_t root = 1) { return encoded(frameOf(std::move(objects), root)); }

Dictionary classEntry(std::vector<std::string> chain) {
  Array classes;
  for (const auto& c : chain) classes.push_back(Value(c));
  return Dictionary{{"$classes", Value(std::move(classes))}, {"$classname", Value(chain.front())}};
}

const Data kBytes = Data::copy("\x00\x01token\xff", 9);

// ---- what the writer produces ------------------------------------------

TEST(KeyedArchiveWriter, PlainRootsAreTheValueItself) {
  // An NSData root is the data value at index 1, not a record.
  auto archived = [](const auto& root) { return bplist::decode(KeyedArchiver::archivedDataWithRootObject(root)); };
  EXPECT_EQ(archived(kBytes), Value(frameOf(Array{Value("$null"), Value(kBytes)})));
  EXPECT_EQ(archived(String("plain")), Value(frameOf(Array{Value("$null"), Value("plain")})));
  // Empty data is still data; nil is the root reference 0.
  EXPECT_EQ(archived(Data::emptyData()), Value(frameOf(Array{Value("$null"), Value(Data::emptyData())})));
  EXPECT_EQ(archived(Data()), Value(frameOf(Array{Value("$null")}, 0)));
}

TEST(KeyedArchiveWriter, RecordKeepsKeyOrderTypesAndSharesEqualStrings) {
  KeyedArchiver coder;
  coder.encodeObject(String("one"), "first");
  coder.encodeInt32(-7, "int32");
  coder.encodeObject(String(), "nothing");
  coder.encodeBool(true, "flag");
  coder.encodeObject(kBytes, "bytes");
  coder.encodeInteger(std::numeric_limits<std::int64_t>::min(), "wide");
  coder.encodeObject(String("one"), "again");
  coder.encodeObject(String("two"), "$dollar");
  const Value plist = bplist::decode(coder.archivedData({"Rec", "NSObject"}));

  const Array objects{Value("$null"),
                      Value(Dictionary{{"first", Value(Uid{2})}, {"int32", Value(-7)}, {"nothing", Value(Uid{0})},
                                       {"flag", Value(true)}, {"bytes", Value(Uid{3})}, {"wide", Value(INT64_MIN)},
                                       {"again", Value(Uid{2})}, {"$$dollar", Value(Uid{4})},
                                       {"$class", Value(Uid{5})}}),
                      Value("one"), Value(kBytes), Value("two"), Value(classEntry({"Rec", "NSObject"}))};
  ASSERT_EQ(plist, Value(frameOf(objects)));
  // Dictionary equality ignores order; the keys must come in call order.
  const Dictionary* record = (*plist.asDictionary()->get("$objects").asArray())[1].asDictionary();
  std::vector<std::string> keys;
  for (const auto& [k, v] : *record) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{"first", "int32", "nothing", "flag", "bytes", "wide", "again",
                                            "$$dollar", "$class"}));

  // A "$"-key is read back under its own name.
  EXPECT_EQ(KeyedUnarchiver(coder.archivedData({"Rec", "NSObject"})).decodeString("$dollar"), "two");
}

// ---- archives as the system writes them ---------------------------------

TEST(KeyedArchiveReader, ReadsPlainAndRecordFormsOfDataAndStrings) {
  const Dictionary mutableData = classEntry({"NSMutableData", "NSData", "NSObject"});
  const Dictionary mutableString = classEntry({"NSMutableString", "NSString", "NSObject"});
  using Case = std::tuple<const char*, Array, std::string, bool, Value>;
  const Case cases[] = {
      {"NSData root", {Value("$null"), Value(kBytes)}, "NSData", true, Value(kBytes)},
      {"NSMutableData with NS.data",
       {Value("$null"), Value(Dictionary{{"NS.data", Value(kBytes)}, {"$class", Value(Uid{2})}}), Value(mutableData)},
       "NSMutableData", true, Value(kBytes)},
      {"NS.data by reference",
       {Value("$null"), Value(Dictionary{{"$class", Value(Uid{3})}, {"NS.data", Value(Uid{2})}}), Value(kBytes),
        Value(mutableData)},
       "NSMutableData", true, Value(kBytes)},
      {"NSString root", {Value("$null"), Value("text")}, "NSString", false, Value("text")},
      {"NSMutableString",
       {Value("$null"), Value(Dictionary{{"NS.string", Value("text")}, {"$class", Value(Uid{2})}}),
        Value(mutableString)},
       "NSMutableString", false, Value("text")},
      {"NSNumber root", {Value("$null"), Value(42)}, "NSNumber", false, Value(42)},
  };
  for (const auto& [name, objects, className, isData, object] : cases) {
    SCOPED_TRACE(name);
    KeyedUnarchiver reader(archiveOf(objects));
    ASSERT_FALSE(reader.raised()) << reader.exceptionDescription();
    EXPECT_EQ(reader.rootClassName(), className);
    EXPECT_EQ(reader.rootIsKindOf("NSData"), isData);
    EXPECT_TRUE(reader.rootIsKindOf("NSObject"));
    EXPECT_EQ(reader.rootObject(), object);
    // A plain root is no record: keyed reads answer nil.
    EXPECT_TRUE(reader.decodeObject("NS.data").isNull());
  }
  // The archive of nil is no exception.
  KeyedUnarchiver nilRoot(archiveOf(Array{Value("$null")}, 0));
  EXPECT_FALSE(nilRoot.raised());
  EXPECT_TRUE(nilRoot.rootIsNil());
  EXPECT_TRUE(nilRoot.rootClassName().isNull());
}

TEST(KeyedArchiveReader, KeyedReadsAnswerNilZeroOrNoForAbsentAndWrongValues) {
  const Array objects{Value("$null"),
                      Value(Dictionary{{"$class", Value(Uid{5})}, {"s", Value(Uid{2})}, {"n", Value(Uid{3})},
                                       {"d", Value(Uid{4})}, {"nil", Value(Uid{0})}, {"i", Value(-5)},
                                       {"big", Value(std::int64_t{1} << 40)}, {"huge", Value(UINT64_MAX)},
                                       {"b", Value(true)}, {"inline", Value("not a reference")},
                                       {"self", Value(Uid{1})}, {"class", Value(Uid{5})},
                                       {"dangling", Value(Uid{99})}}),
                      Value("str"), Value(7), Value(kBytes), Value(classEntry({"Rec", "NSObject"}))};
  KeyedUnarchiver reader(archiveOf(objects));
  ASSERT_FALSE(reader.raised()) << reader.exceptionDescription();
  EXPECT_EQ(reader.rootClassName(), "Rec");
  EXPECT_EQ(reader.decodeString("s"), "str");
  EXPECT_EQ(reader.decodeObject("n"), Value(7));
  EXPECT_EQ(reader.decodeObject("d"), Value(kBytes));
  EXPECT_EQ(reader.decodeInt32("i"), -5);
  EXPECT_EQ(reader.decodeInteger("big"), std::int64_t{1} << 40);
  EXPECT_TRUE(reader.decodeBool("b"));
  EXPECT_TRUE(reader.decodeObject("nil").isNull());
  // Absent keys are quietly nil/0/NO.
  EXPECT_TRUE(reader.decodeObject("absent").isNull());
  EXPECT_EQ(reader.decodeInt32("absent"), 0);
  EXPECT_FALSE(reader.decodeBool("absent"));
  EXPECT_TRUE(reader.error().empty()) << reader.error();

  // Wrong kinds, dangling and looping references: nil/0/NO and a noted error.
  for (const char* key : {"inline", "self", "class", "dangling", "i"}) {
    EXPECT_TRUE(reader.decodeObject(key).isNull()) << key;
  }
  EXPECT_TRUE(reader.decodeString("n").isNull());
  EXPECT_EQ(reader.decodeInt32("big"), 0);  // does not fit in 32 bits
  EXPECT_EQ(reader.decodeInteger("huge"), 0);
  EXPECT_EQ(reader.decodeInteger("s"), 0);
  EXPECT_FALSE(reader.decodeBool("i"));
  EXPECT_FALSE(reader.error().empty());
}

// ---- malformed archives -------------------------------------------------

Dictionary goodFrame() { return frameOf(Array{Value("$null"), Value(kBytes)}); }

Dictionary with(Dictionary d, const char* key, Value v) {
  d.set(key, std::move(v));
  return d;
}

TEST(KeyedArchiveReader, MalformedArchivesRaiseWithADescription) {
  const Value mutableData = Value(classEntry({"NSMutableData", "NSData", "NSObject"}));
  auto root = [](Value object, Value extra = Value()) {
    Array objects{Value("$null"), std::move(object)};
    if (!extra.isNull()) objects.push_back(std::move(extra));
    return encoded(frameOf(std::move(objects)));
  };
  auto record = [](Dictionary d) { return Value(std::move(d)); };
  Dictionary noTop = goodFrame();
  noTop.remove("$top");
  using Case = std::tuple<const char*, Data>;
  const Case cases[] = {
      {"null", Data()},
      {"garbage", Data::copy("garbage that is no property list")},
      // "$objects" claiming 2^60 elements with no bytes behind them.
      {"huge count", Data::copy(testing::assemble({testing::bytesOf({0xD1, 1, 2}), "\x58$objects",
                                                   testing::bytesOf({0xAF, 0x13, 0x10, 0, 0, 0, 0, 0, 0, 0})}))},
      {"not a dictionary", bplist::encode(Value(Array{Value("$null")}))},
      {"$archiver not a string", encoded(with(goodFrame(), "$archiver", Value(1)))},
      {"$version a string", encoded(with(goodFrame(), "$version", Value("100000")))},
      {"missing $top", encoded(noTop)},
      {"root not a UID", encoded(with(goodFrame(), "$top", Value(Dictionary{{"root", Value(1)}})))},
      {"$objects a dictionary", encoded(with(goodFrame(), "$objects", Value(Dictionary{{"0", Value("$null")}})))},
      {"$objects without $null", encoded(with(goodFrame(), "$objects", Value(Array{Value("x"), Value(kBytes)})))},
      {"dangling root", encoded(frameOf(Array{Value("$null")}, std::numeric_limits<std::uint64_t>::max()))},
      {"root an array", root(Value(Array{Value(1)}))},
      {"$class dangling", root(record({{"$class", Value(Uid{9})}}))},
      {"$class cycle", root(record({{"$class", Value(Uid{1})}, {"$classname", Value("X")}}))},
      {"$class to a string", root(record({{"$class", Value(Uid{2})}}), Value("NSData"))},
      {"$classes holding a number",
       root(record({{"$class", Value(Uid{2})}}),
            record({{"$classname", Value("A")}, {"$classes", Value(Array{Value(1)})}}))},
      {"NSMutableData without NS.data", root(record({{"$class", Value(Uid{2})}}), mutableData)},
      {"NS.data cycle", root(record({{"$class", Value(Uid{2})}, {"NS.data", Value(Uid{1})}}), mutableData)},
  };
  for (const auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    KeyedUnarchiver reader(bytes);
    EXPECT_TRUE(reader.raised());
    EXPECT_FALSE(reader.exceptionDescription().empty());
    EXPECT_FALSE(reader.rootIsKindOf("NSData"));
    EXPECT_TRUE(reader.rootObject().isNull());
    EXPECT_TRUE(reader.decodeObject("NS.data").isNull());
  }
}

}  // namespace
}  // namespace mirelo
