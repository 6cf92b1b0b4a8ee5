// The kit's one dynamic value type: what property lists, JSON documents and
// URL queries hold.
//
// A Value is null, a boolean (never confused with a number), a signed or an
// unsigned 64-bit integer, a real, a string, data, a date, an array, a
// dictionary, or a keyed-archive UID.  Values copy deeply, except data, whose
// bytes are shared (see Data.h).  Dictionaries keep their insertion order.
//
// Array and Dictionary carry the kit's nil-safe accessors (the mrApi_
// members): typed reads that answer null, 0 or false for a missing key or a
// value of the wrong kind, and writes that skip null or an index out of
// range.  Nothing here throws.
#pragma once

#include <iosfwd>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"

namespace mirelo {

class Value;

// Seconds since 2001-01-01T00:00:00Z, the property-list epoch.
struct Date {
  double secondsSince2001 = 0;
  friend bool operator==(const Date& a, const Date& b) { return a.secondsSince2001 == b.secondsSince2001; }
};

// A keyed-archive object reference.
struct Uid {
  std::uint64_t value = 0;
  friend bool operator==(const Uid& a, const Uid& b) { return a.value == b.value; }
};

class Array {
 public:
  Array() = default;
  Array(std::initializer_list<Value> init);
  explicit Array(std::vector<Value> items);

  std::size_t size() const;
  std::size_t count() const { return size(); }
  bool empty() const { return size() == 0; }
  const Value& operator[](std::size_t i) const;
  Value& operator[](std::size_t i);
  void push_back(Value v);
  void reserve(std::size_t n);
  void clear();
  const std::vector<Value>& items() const { return items_; }
  std::vector<Value>& items() { return items_; }
  std::vector<Value>::const_iterator begin() const { return items_.begin(); }
  std::vector<Value>::const_iterator end() const { return items_.end(); }

  // ---- nil-safe accessors ----
  // The element at `index`, or null when the index is not below the count.
  Value mrApi_safeObjectAtIndex(std::size_t index) const;
  // Element 0, or null when empty.
  Value mrApi_firstObject() const;
  // Appends a non-null object; null does nothing.
  void mrApi_safeAddObject(const Value& obj);
  // Removes every element equal to a non-null object; null does nothing.
  void mrApi_safeRemoveObject(const Value& obj);
  // Inserts a non-null object at an index up to the count (the count
  // appends); a null object or a larger index does nothing.
  void mrApi_safeInsertObject(const Value& obj, std::size_t index);
  // Removes the element when the index is below the count.
  void mrApi_safeRemoveObjectAtIndex(std::size_t index);
  // Replaces when the object is non-null and the index is below the count.
  void mrApi_safeReplaceObjectAtIndex(std::size_t index, const Value& obj);
  // Removes element 0 when non-empty.
  void mrApi_removeFirstObject();

  friend bool operator==(const Array& a, const Array& b);

 private:
  std::vector<Value> items_;
};

// A string-keyed dictionary that keeps insertion order.  Setting an existing
// key replaces its value in place.
class Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary() = default;
  Dictionary(std::initializer_list<Entry> init);
  Dictionary(const Dictionary& other);
  Dictionary(Dictionary&& other) noexcept;
  Dictionary& operator=(const Dictionary& other);
  Dictionary& operator=(Dictionary&& other) noexcept;
  ~Dictionary();

  std::size_t size() const;
  std::size_t count() const { return size(); }
  bool empty() const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  // The value under `key`, or nullptr.
  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);
  // The value under `key`, or a null Value.
  const Value& get(std::string_view key) const;
  // Sets (or replaces) the value under `key`, null values included.
  void set(std::string key, Value value);
  // Removes `key`; true when it was there.
  bool remove(std::string_view key);
  void reserve(std::size_t n);
  void clear();
  const std::vector<Entry>& entries() const { return entries_; }
  std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
  std::vector<Entry>::const_iterator end() const { return entries_.end(); }

  // ---- nil-safe typed reads ----
  // The value if it is a string, else null.
  String mrApi_stringForKey(std::string_view key) const;
  // The value if it is a number, else a null Value.  Booleans count as
  // numbers here, as they do on the platform.
  Value mrApi_numberForKey(std::string_view key) const;
  // The value if it is an array / dictionary / data, else nullptr.
  const Array* mrApi_arrayForKey(std::string_view key) const;
  const Dictionary* mrApi_dictionaryForKey(std::string_view key) const;
  const Data* mrApi_dataForKey(std::string_view key) const;
  // Number or string: its integer value (a string by its leading numeral);
  // anything else or missing: 0.
  std::int64_t mrApi_integerForKey(std::string_view key) const;
  float mrApi_floatForKey(std::string_view key) const;
  double mrApi_doubleForKey(std::string_view key) const;
  // Number or string: its boolean value (strings such as 1, YES and true
  // read as true); anything else or missing: false.
  bool mrApi_boolForKey(std::string_view key) const;

  // ---- nil-safe writes ----
  // Sets only when both object and key are non-null; otherwise does nothing
  // (an existing value under the key stays).
  void mrApi_safeSetObject(const Value& obj, const String& key);
  // Removes only when the key is non-null.
  void mrApi_safeRemoveObjectForKey(const String& key);

  // Equality ignores order, as for the platform's dictionaries.
  friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  static constexpr std::size_t kIndexThreshold = 64;
  void rebuildIndex();
  std::vector<Entry> entries_;
  // Hash of key -> entry index; built once the dictionary grows past
  // kIndexThreshold entries, so hostile inputs with many keys stay linear.
  std::unique_ptr<std::unordered_multimap<std::size_t, std::size_t>> index_;
};

class Value {
 public:
  enum class Type { Null, Bool, Int, UInt, Real, String, Data, Date, Array, Dictionary, Uid };

  Value() = default;  // null
  Value(std::nullptr_t) {}
  Value(bool b) : v_(b) {}
  Value(int i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(unsigned u) : v_(static_cast<std::int64_t>(u)) {}
  Value(unsigned long u) { setUnsigned(u); }
  Value(unsigned long long u) { setUnsigned(u); }
  Value(double d) : v_(d) {}
  Value(const char* s) { if (s) v_ = std::string(s); }
  Value(std::string s) : v_(std::move(s)) {}
  Value(std::string_view s) : v_(std::string(s)) {}
  // A null String gives a null Value.
  Value(const mirelo::String& s) { if (!s.isNull()) v_ = s.str(); }
  // A null Data gives a null Value.
  Value(mirelo::Data d) { if (!d.isNull()) v_ = std::move(d); }
  Value(mirelo::Date d) : v_(d) {}
  Value(mirelo::Uid u) : v_(u) {}
  Value(mirelo::Array a) : v_(std::move(a)) {}
  Value(mirelo::Dictionary d) : v_(std::move(d)) {}

  Type type() const { return static_cast<Type>(v_.index()); }
  bool isNull() const { return type() == Type::Null; }
  bool isBool() const { return type() == Type::Bool; }
  bool isInteger() const { return type() == Type::Int || type() == Type::UInt; }
  bool isReal() const { return type() == Type::Real; }
  // Integer or real; booleans are not numbers.
  bool isNumber() const { return isInteger() || isReal(); }
  bool isString() const { return type() == Type::String; }
  bool isData() const { return type() == Type::Data; }
  bool isDate() const { return type() == Type::Date; }
  bool isArray() const { return type() == Type::Array; }
  bool isDictionary() const { return type() == Type::Dictionary; }
  bool isUid() const { return type() == Type::Uid; }

  // Typed access; nullptr when the Value holds another kind.
  const bool* asBool() const { return std::get_if<bool>(&v_); }
  const std::string* asString() const { return std::get_if<std::string>(&v_); }
  const mirelo::Data* asData() const { return std::get_if<mirelo::Data>(&v_); }
  const mirelo::Date* asDate() const { return std::get_if<mirelo::Date>(&v_); }
  const mirelo::Uid* asUid() const { return std::get_if<mirelo::Uid>(&v_); }
  const mirelo::Array* asArray() const { return std::get_if<mirelo::Array>(&v_); }
  mirelo::Array* asArray() { return std::get_if<mirelo::Array>(&v_); }
  const mirelo::Dictionary* asDictionary() const { return std::get_if<mirelo::Dictionary>(&v_); }
  mirelo::Dictionary* asDictionary() { return std::get_if<mirelo::Dictionary>(&v_); }
  // Raw integer storage, for codecs.
  const std::int64_t* asInt() const { return std::get_if<std::int64_t>(&v_); }
  const std::uint64_t* asUInt() const { return std::get_if<std::uint64_t>(&v_); }
  const double* asReal() const { return std::get_if<double>(&v_); }

  // The string, or a null String for any other kind.
  mirelo::String stringValue() const;

  // Numeric conversions in the manner of the platform's numbers and strings:
  // a number converts (reals truncate toward zero, clamped), a boolean is 0
  // or 1, a string by its leading numeral (0 when there is none), anything
  // else is 0.
  std::int64_t integerValue() const;
  std::uint64_t unsignedValue() const;
  // 32-bit forms: numbers truncate; strings clamp to the 32-bit range.
  std::int32_t intValue() const;
  std::uint32_t unsignedIntValue() const { return static_cast<std::uint32_t>(unsignedValue()); }
  double doubleValue() const;
  float floatValue() const { return static_cast<float>(doubleValue()); }
  // Number: non-zero.  Boolean: itself.  String: true when, after white
  // space, an optional sign and leading zeros, it begins with Y, y, T, t or a
  // digit 1-9.  Anything else: false.
  bool boolValue() const;

  // How the platform prints the object ("%@"): strings as they are, numbers
  // in decimal, booleans as 1/0, null as "(null)", containers in the
  // platform's nested form.
  std::string description() const;

  friend bool operator==(const Value& a, const Value& b);
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

 private:
  void setUnsigned(std::uint64_t u) {
    if (u <= static_cast<std::uint64_t>(INT64_MAX)) v_ = static_cast<std::int64_t>(u); else v_ = u;
  }
  // Order matches Type.
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, mirelo::Data,
               mirelo::Date, mirelo::Array, mirelo::Dictionary, mirelo::Uid>
      v_;
};

// Defined once Value is complete: clang instantiates the vector's constexpr
// members where they are used.

inline std::size_t Dictionary::size() const { return entries_.size(); }
inline bool Dictionary::empty() const { return entries_.empty(); }
inline void Dictionary::reserve(std::size_t n) { entries_.reserve(n); }

// Prints the value readably where a test framework shows it (GoogleTest
// finds PrintTo by argument-dependent lookup): JSON-like, with data,
// dates and UIDs spelt out, and unsigned integers marked "u".
void PrintTo(const Value& v, std::ostream* os);
void PrintTo(const Array& a, std::ostream* os);
void PrintTo(const Dictionary& d, std::ostream* os);

}  // namespace mirelo
