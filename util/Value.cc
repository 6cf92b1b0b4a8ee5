#include "mirelo/Value.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>

namespace mirelo {

// ---------------------------------------------------------------- Array --

Array::Array(std::initializer_list<Value> init) : items_(init) {}
Array::Array(std::vector<Value> items) : items_(std::move(items)) {}

std::size_t Array::size() const { return items_.size(); }
const Value& Array::operator[](std::size_t i) const { return items_[i]; }
Value& Array::operator[](std::size_t i) { return items_[i]; }
void Array::push_back(Value v) { items_.push_back(std::move(v)); }
void Array::reserve(std::size_t n) { items_.reserve(n); }
void Array::clear() { items_.clear(); }

Value Array::mrApi_safeObjectAtIndex(std::size_t index) const {
  return index < items_.size() ? items_[index] : Value();
}

Value Array::mrApi_firstObject() const { return items_.empty() ? Value() : items_.front(); }

void Array::mrApi_safeAddObject(const Value& obj) {
  if (!obj.isNull()) items_.push_back(obj);
}

void Array::mrApi_safeRemoveObject(const Value& obj) {
  if (obj.isNull()) return;
  items_.erase(std::remove(items_.begin(), items_.end(), obj), items_.end());
}

void Array::mrApi_safeInsertObject(const Value& obj, std::size_t index) {
  // No exception leaves the kit: an index above the count inserts nothing,
  // like a null object.
  if (obj.isNull() || index > items_.size()) return;
  items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index), obj);
}

void Array::mrApi_safeRemoveObjectAtIndex(std::size_t index) {
  if (index < items_.size()) items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

void Array::mrApi_safeReplaceObjectAtIndex(std::size_t index, const Value& obj) {
  if (!obj.isNull() && index < items_.size()) items_[index] = obj;
}

void Array::mrApi_removeFirstObject() {
  if (!items_.empty()) items_.erase(items_.begin());
}

bool operator==(const Array& a, const Array& b) { return a.items_ == b.items_; }

// ----------------------------------------------------------- Dictionary --

namespace {
std::size_t keyHash(std::string_view key) { return std::hash<std::string_view>{}(key); }
}  // namespace

Dictionary::Dictionary(std::initializer_list<Entry> init) {
  entries_.reserve(init.size());
  for (const auto& e : init) set(e.first, e.second);
}

Dictionary::Dictionary(const Dictionary& other) : entries_(other.entries_) {
  if (other.index_) rebuildIndex();
}

Dictionary::Dictionary(Dictionary&& other) noexcept
    : entries_(std::move(other.entries_)), index_(std::move(other.index_)) {
  other.entries_.clear();
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
  if (this != &other) {
    entries_ = other.entries_;
    index_.reset();
    if (other.index_) rebuildIndex();
  }
  return *this;
}

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
  if (this != &other) {
    entries_ = std::move(other.entries_);
    index_ = std::move(other.index_);
    other.entries_.clear();
  }
  return *this;
}

Dictionary::~Dictionary() = default;

void Dictionary::rebuildIndex() {
  index_ = std::make_unique<std::unordered_multimap<std::size_t, std::size_t>>();
  index_->reserve(entries_.size() * 2);
  for (std::size_t i = 0; i < entries_.size(); ++i) index_->emplace(keyHash(entries_[i].first), i);
}

const Value* Dictionary::find(std::string_view key) const {
  if (index_) {
    auto range = index_->equal_range(keyHash(key));
    for (auto it = range.first; it != range.second; ++it) {
      if (entries_[it->second].first == key) return &entries_[it->second].second;
    }
    return nullptr;
  }
  for (const auto& e : entries_) {
    if (e.first == key) return &e.second;
  }
  return nullptr;
}

Value* Dictionary::find(std::string_view key) {
  return const_cast<Value*>(static_cast<const Dictionary*>(this)->find(key));
}

const Value& Dictionary::get(std::string_view key) const {
  static const Value kNull;
  const Value* v = find(key);
  return v ? *v : kNull;
}

void Dictionary::set(std::string key, Value value) {
  if (Value* existing = find(key)) {
    *existing = std::move(value);
    return;
  }
  std::size_t h = index_ ? keyHash(key) : 0;
  entries_.emplace_back(std::move(key), std::move(value));
  if (index_) {
    index_->emplace(h, entries_.size() - 1);
  } else if (entries_.size() > kIndexThreshold) {
    rebuildIndex();
  }
}

bool Dictionary::remove(std::string_view key) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->first == key) {
      entries_.erase(it);
      if (index_) rebuildIndex();
      return true;
    }
  }
  return false;
}

void Dictionary::clear() {
  entries_.clear();
  index_.reset();
}

String Dictionary::mrApi_stringForKey(std::string_view key) const {
  const Value* v = find(key);
  return v ? v->stringValue() : String();
}

Value Dictionary::mrApi_numberForKey(std::string_view key) const {
  const Value* v = find(key);
  return v && (v->isNumber() || v->isBool()) ? *v : Value();
}

const Array* Dictionary::mrApi_arrayForKey(std::string_view key) const {
  const Value* v = find(key);
  return v ? v->asArray() : nullptr;
}

const Dictionary* Dictionary::mrApi_dictionaryForKey(std::string_view key) const {
  const Value* v = find(key);
  return v ? v->asDictionary() : nullptr;
}

const Data* Dictionary::mrApi_dataForKey(std::string_view key) const {
  const Value* v = find(key);
  return v ? v->asData() : nullptr;
}

namespace {
// Numbers, booleans and strings convert; everything else is "not there".
bool convertible(const Value* v) { return v && (v->isNumber() || v->isBool() || v->isString()); }
}  // namespace

std::int64_t Dictionary::mrApi_integerForKey(std::string_view key) const {
  const Value* v = find(key);
  return convertible(v) ? v->integerValue() : 0;
}

float Dictionary::mrApi_floatForKey(std::string_view key) const {
  const Value* v = find(key);
  return convertible(v) ? v->floatValue() : 0.0f;
}

double Dictionary::mrApi_doubleForKey(std::string_view key) const {
  const Value* v = find(key);
  return convertible(v) ? v->doubleValue() : 0.0;
}

bool Dictionary::mrApi_boolForKey(std::string_view key) const {
  const Value* v = find(key);
  return convertible(v) ? v->boolValue() : false;
}

void Dictionary::mrApi_safeSetObject(const Value& obj, const String& key) {
  if (obj.isNull() || key.isNull()) return;
  set(key.str(), obj);
}

void Dictionary::mrApi_safeRemoveObjectForKey(const String& key) {
  if (!key.isNull()) remove(key.view());
}

bool operator==(const Dictionary& a, const Dictionary& b) {
  if (a.size() != b.size()) return false;
  for (const auto& e : a.entries_) {
    const Value* other = b.find(e.first);
    if (!other || !(*other == e.second)) return false;
  }
  return true;
}

// ---------------------------------------------------------------- Value --

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// The leading decimal integer of `s` after white space, clamped to the
// 64-bit range; 0 when there is none.
std::int64_t leadingInteger(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size() && isSpace(s[i])) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  unsigned long long magnitude = 0;
  bool overflow = false;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    unsigned digit = static_cast<unsigned>(s[i] - '0');
    if (magnitude > (std::numeric_limits<unsigned long long>::max() - digit) / 10) {
      overflow = true;
      break;
    }
    magnitude = magnitude * 10 + digit;
  }
  constexpr unsigned long long kMaxPositive = static_cast<unsigned long long>(INT64_MAX);
  if (negative) {
    if (overflow || magnitude > kMaxPositive + 1) return INT64_MIN;
    return magnitude == kMaxPositive + 1 ? INT64_MIN : -static_cast<std::int64_t>(magnitude);
  }
  if (overflow || magnitude > kMaxPositive) return INT64_MAX;
  return static_cast<std::int64_t>(magnitude);
}

// The leading decimal real of `s` after white space ([sign]digits[.digits][e[sign]digits]);
// 0 when there is none.  No hexadecimal, infinities or NaNs.
double leadingReal(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size() && isSpace(s[i])) ++i;
  std::size_t start = i;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    std::size_t j = i + 1;
    if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
    std::size_t expDigits = 0;
    while (j < s.size() && s[j] >= '0' && s[j] <= '9') ++j, ++expDigits;
    if (expDigits) i = j;
  }
  std::string text(s.substr(start, i - start));
  return std::strtod(text.c_str(), nullptr);
}

std::int64_t realToInteger(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775807.0) return INT64_MAX;
  if (d <= -9223372036854775808.0) return INT64_MIN;
  return static_cast<std::int64_t>(d);
}

}  // namespace

String Value::stringValue() const {
  const std::string* s = asString();
  return s ? String(*s) : String();
}

std::int64_t Value::integerValue() const {
  switch (type()) {
    case Type::Bool: return *asBool() ? 1 : 0;
    case Type::Int: return *asInt();
    case Type::UInt: return static_cast<std::int64_t>(*asUInt());
    case Type::Real: return realToInteger(*asReal());
    case Type::String: return leadingInteger(*asString());
    default: return 0;
  }
}

std::uint64_t Value::unsignedValue() const {
  switch (type()) {
    case Type::UInt: return *asUInt();
    case Type::Real: {
      double d = *asReal();
      if (d >= 0 && d < 18446744073709551615.0) return static_cast<std::uint64_t>(d);
      return static_cast<std::uint64_t>(realToInteger(d));
    }
    default: return static_cast<std::uint64_t>(integerValue());
  }
}

std::int32_t Value::intValue() const {
  if (isString()) {
    std::int64_t v = integerValue();
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
  }
  return static_cast<std::int32_t>(integerValue());
}

double Value::doubleValue() const {
  switch (type()) {
    case Type::Bool: return *asBool() ? 1.0 : 0.0;
    case Type::Int: return static_cast<double>(*asInt());
    case Type::UInt: return static_cast<double>(*asUInt());
    case Type::Real: return *asReal();
    case Type::String: return leadingReal(*asString());
    default: return 0;
  }
}

bool Value::boolValue() const {
  switch (type()) {
    case Type::Bool: return *asBool();
    case Type::Int: return *asInt() != 0;
    case Type::UInt: return *asUInt() != 0;
    case Type::Real: return *asReal() != 0;
    case Type::String: {
      const std::string& s = *asString();
      std::size_t i = 0;
      while (i < s.size() && isSpace(s[i])) ++i;
      if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
      while (i < s.size() && s[i] == '0') ++i;
      if (i >= s.size()) return false;
      char c = s[i];
      return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }
    default: return false;
  }
}

namespace {

std::string realDescription(double d) {
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, res.ptr);
}

// Strings print bare when they are plain words, quoted otherwise.
std::string quoted(const std::string& s) {
  bool plain = !s.empty();
  for (unsigned char c : s) {
    if (!(std::isalnum(c) || c == '_' || c == '.' || c == '$' || c == '/' || c >= 0x80)) {
      plain = false;
      break;
    }
  }
  if (plain) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out.push_back('\\');
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

std::string dateDescription(const Date& d) {
  // 978307200: seconds from 1970 to 2001.
  double secs = std::floor(d.secondsSince2001 + 978307200.0);
  if (!(secs > -6e10 && secs < 6e10)) return realDescription(d.secondsSince2001);
  std::time_t t = static_cast<std::time_t>(secs);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[64];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S +0000", &tm);
  return buf;
}

// The longest description written.  Indentation grows with nesting, and a
// property list may share one object among many containers, so a small
// input from another app could otherwise print as hundreds of megabytes
// (every log line that shows it).  Past the limit a container's description
// stops, marked with kTruncated.
constexpr std::size_t kDescriptionLimit = std::size_t{1} << 20;
constexpr std::string_view kTruncated = "... (description truncated)";

bool full(const std::string& out) { return out.size() >= kDescriptionLimit; }

void describe(const Value& v, int indent, bool nested, std::string& out);

void describeArray(const Array& a, int indent, std::string& out) {
  std::string pad(static_cast<std::size_t>(indent) * 4, ' ');
  out += "(\n";
  for (std::size_t i = 0; i < a.size() && !full(out); ++i) {
    out += pad + "    ";
    describe(a[i], indent + 1, true, out);
    if (i + 1 < a.size()) out.push_back(',');
    out.push_back('\n');
  }
  out += pad + ")";
}

void describeDictionary(const Dictionary& d, int indent, std::string& out) {
  std::string pad(static_cast<std::size_t>(indent) * 4, ' ');
  out += "{\n";
  for (const auto& e : d) {
    if (full(out)) break;
    out += pad + "    " + quoted(e.first) + " = ";
    describe(e.second, indent + 1, true, out);
    out += ";\n";
  }
  out += pad + "}";
}

void describe(const Value& v, int indent, bool nested, std::string& out) {
  if (full(out)) return;
  switch (v.type()) {
    case Value::Type::Null: out += nested ? "\"<null>\"" : "(null)"; break;
    case Value::Type::Bool: out += *v.asBool() ? "1" : "0"; break;
    case Value::Type::Int: out += std::to_string(*v.asInt()); break;
    case Value::Type::UInt: out += std::to_string(*v.asUInt()); break;
    case Value::Type::Real: out += realDescription(*v.asReal()); break;
    case Value::Type::String: out += nested ? quoted(*v.asString()) : *v.asString(); break;
    case Value::Type::Data: out += v.asData()->description(); break;
    case Value::Type::Date: out += dateDescription(*v.asDate()); break;
    case Value::Type::Array: describeArray(*v.asArray(), indent, out); break;
    case Value::Type::Dictionary: describeDictionary(*v.asDictionary(), indent, out); break;
    case Value::Type::Uid:
      out += "<CFKeyedArchiverUID>{value = " + std::to_string(v.asUid()->value) + "}";
      break;
  }
}

}  // namespace

std::string Value::description() const {
  std::string out;
  describe(*this, 0, false, out);
  // A plain string prints whole: it is no longer than what was received.
  if (out.size() > kDescriptionLimit && (isArray() || isDictionary())) {
    out.resize(kDescriptionLimit);
    out += kTruncated;
  }
  return out;
}

bool operator==(const Value& a, const Value& b) {
  if (a.isInteger() && b.isInteger()) {
    if (a.type() == b.type()) return a.v_ == b.v_;
    // One is Int, the other UInt (which only holds values above INT64_MAX).
    return false;
  }
  return a.v_ == b.v_;
}

}  // namespace mirelo
