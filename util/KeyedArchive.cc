#include "util/KeyedArchive.h"

#include <limits>

#include "util/BinaryPlist.h"

namespace mirelo {

namespace {

constexpr const char* kNull = "$null";

// A record key that begins with "$" is written with one more "$", so that it
// cannot be taken for the archive's own "$class".
std::string escapedKey(std::string_view key) {
  std::string out;
  if (!key.empty() && key.front() == '$') out.push_back('$');
  out.append(key);
  return out;
}

Dictionary frame(Array objects, std::uint64_t root) {
  Dictionary top;
  top.set("$version", Value(kKeyedArchiveVersion));
  top.set("$archiver", Value(kKeyedArchiverName));
  top.set("$top", Value(Dictionary{{"root", Value(Uid{root})}}));
  top.set("$objects", Value(std::move(objects)));
  return top;
}

Data encodeFrame(Array objects, std::uint64_t root, std::string* error) {
  return bplist::encode(Value(frame(std::move(objects), root)), error);
}

bool isNumberLike(const Value& v) { return v.isNumber() || v.isBool(); }

bool chainContains(const std::vector<std::string>& chain, std::string_view name) {
  for (const std::string& c : chain) {
    if (c == name) return true;
  }
  return false;
}

bool isDataClass(const std::vector<std::string>& chain) { return chainContains(chain, "NSData"); }
bool isStringClass(const std::vector<std::string>& chain) { return chainContains(chain, "NSString"); }

std::string num(std::uint64_t v) { return std::to_string(v); }

}  // namespace

// ---------------------------------------------------------------------------
// KeyedArchiver

KeyedArchiver::KeyedArchiver() = default;

Data KeyedArchiver::archivedDataWithRootObject(const Data& data) {
  Array objects{Value(kNull)};
  if (data.isNull()) return encodeFrame(std::move(objects), 0, nullptr);
  objects.push_back(Value(data));
  return encodeFrame(std::move(objects), 1, nullptr);
}

Data KeyedArchiver::archivedDataWithRootObject(const String& string) {
  Array objects{Value(kNull)};
  if (string.isNull()) return encodeFrame(std::move(objects), 0, nullptr);
  objects.push_back(Value(string));
  return encodeFrame(std::move(objects), 1, nullptr);
}

// "$objects" holds "$null" at 0 and the record at 1; the values follow.
std::uint64_t KeyedArchiver::addObject(Value v) {
  const std::uint64_t uid = 2 + objects_.size();
  objects_.push_back(std::move(v));
  return uid;
}

std::uint64_t KeyedArchiver::addString(const String& s) {
  if (auto it = strings_.find(s.str()); it != strings_.end()) return it->second;
  const std::uint64_t uid = addObject(Value(s));
  strings_.emplace(s.str(), uid);
  return uid;
}

void KeyedArchiver::encodeObject(const String& object, std::string_view key) {
  record_.set(escapedKey(key), Value(Uid{object.isNull() ? 0 : addString(object)}));
}

void KeyedArchiver::encodeObject(const Data& object, std::string_view key) {
  record_.set(escapedKey(key), Value(Uid{object.isNull() ? 0 : addObject(Value(object))}));
}

void KeyedArchiver::encodeInt32(std::int32_t value, std::string_view key) {
  record_.set(escapedKey(key), Value(static_cast<long long>(value)));
}

void KeyedArchiver::encodeInteger(std::int64_t value, std::string_view key) {
  record_.set(escapedKey(key), Value(static_cast<long long>(value)));
}

void KeyedArchiver::encodeBool(bool value, std::string_view key) { record_.set(escapedKey(key), Value(value)); }

Data KeyedArchiver::archivedData(const std::vector<std::string>& classes, std::string* error) const {
  if (classes.empty() || classes.front().empty()) {
    if (error) *error = "a record needs a class name";
    return Data();
  }
  Array objects;
  objects.reserve(objects_.size() + 3);
  objects.push_back(Value(kNull));
  Dictionary record = record_;
  record.set("$class", Value(Uid{2 + objects_.size()}));
  objects.push_back(Value(std::move(record)));
  for (const Value& v : objects_) objects.push_back(v);
  Array chain;
  for (const std::string& c : classes) chain.push_back(Value(c));
  Dictionary classEntry;
  classEntry.set("$classname", Value(classes.front()));
  classEntry.set("$classes", Value(std::move(chain)));
  objects.push_back(Value(std::move(classEntry)));
  return encodeFrame(std::move(objects), 1, error);
}

// ---------------------------------------------------------------------------
// KeyedUnarchiver

KeyedUnarchiver::KeyedUnarchiver(const Data& archive) {
  if (archive.empty()) {
    fail("incomprehensible archive: no bytes");
    return;
  }
  std::string why;
  plist_ = bplist::decode(archive, &why);
  if (plist_.isNull()) {
    fail("incomprehensible archive: " + why);
    return;
  }
  const Dictionary* top = plist_.asDictionary();
  if (!top) {
    fail("incomprehensible archive: the property list is not a dictionary");
    return;
  }
  const Value* archiver = top->find("$archiver");
  if (!archiver || !archiver->isString()) {
    fail("incomprehensible archive: \"$archiver\" is missing or not a string");
    return;
  }
  if (*archiver->asString() != kKeyedArchiverName) {
    fail("incomprehensible archive: written by \"" + *archiver->asString() + "\"");
    return;
  }
  const Value* version = top->find("$version");
  if (!version || !version->asInt()) {
    fail("incomprehensible archive: \"$version\" is missing or not an integer");
    return;
  }
  if (*version->asInt() != kKeyedArchiveVersion) {
    fail("incomprehensible archive version (" + std::to_string(*version->asInt()) + ")");
    return;
  }
  const Value* objects = top->find("$objects");
  objects_ = objects ? objects->asArray() : nullptr;
  if (!objects_) {
    fail("incomprehensible archive: \"$objects\" is missing or not an array");
    return;
  }
  if (objects_->empty() || !((*objects_)[0] == Value(kNull))) {
    fail("incomprehensible archive: \"$objects\" does not begin with \"$null\"");
    return;
  }
  const Value* topDict = top->find("$top");
  const Dictionary* roots = topDict ? topDict->asDictionary() : nullptr;
  if (!roots) {
    fail("incomprehensible archive: \"$top\" is missing or not a dictionary");
    return;
  }
  const Value* root = roots->find("root");
  if (!root || !root->asUid()) {
    fail("incomprehensible archive: \"$top\" has no \"root\" reference");
    return;
  }
  resolveRoot(root->asUid()->value);
}

bool KeyedUnarchiver::fail(std::string description) {
  raised_ = true;
  exception_ = std::move(description);
  objects_ = nullptr;
  record_ = nullptr;
  className_ = String();
  classes_.clear();
  rootObject_ = Value();
  plist_ = Value();
  return false;
}

void KeyedUnarchiver::note(std::string problem) const {
  if (error_.empty()) error_ = std::move(problem);
}

bool KeyedUnarchiver::readClass(const Value& ref, std::uint64_t owner, std::vector<std::string>* chain,
                                std::string* why) const {
  const Uid* uid = ref.asUid();
  if (!uid) {
    *why = "object " + num(owner) + " has no \"$class\" reference";
    return false;
  }
  if (uid->value == 0 || uid->value >= objects_->size()) {
    *why = "the class of object " + num(owner) + " refers to object " + num(uid->value) + " of " +
           num(objects_->size());
    return false;
  }
  if (uid->value == owner) {
    *why = "object " + num(owner) + " is its own class";
    return false;
  }
  const Dictionary* entry = (*objects_)[uid->value].asDictionary();
  const Value* name = entry ? entry->find("$classname") : nullptr;
  if (!name || !name->isString() || name->asString()->empty()) {
    *why = "object " + num(uid->value) + " is not a class entry";
    return false;
  }
  chain->clear();
  chain->push_back(*name->asString());
  if (const Value* classes = entry->find("$classes")) {
    const Array* list = classes->asArray();
    if (!list) {
      *why = "\"$classes\" of class " + *name->asString() + " is not an array";
      return false;
    }
    for (const Value& c : *list) {
      if (!c.isString()) {
        *why = "\"$classes\" of class " + *name->asString() + " holds a non-string";
        return false;
      }
      if (*c.asString() != chain->front()) chain->push_back(*c.asString());
    }
  }
  return true;
}

bool KeyedUnarchiver::leafValue(std::uint64_t uid, std::uint64_t owner, Value* out, String* className,
                                std::string* why) const {
  *out = Value();
  *className = String();
  if (uid == 0) return true;  // nil
  if (uid >= objects_->size()) {
    *why = "reference to object " + num(uid) + " of " + num(objects_->size());
    return false;
  }
  if (uid == owner) {
    *why = "object " + num(uid) + " refers to itself";
    return false;
  }
  const Value& entry = (*objects_)[uid];
  if (entry.isString()) {
    *out = entry;
    *className = "NSString";
    return true;
  }
  if (entry.isData()) {
    *out = entry;
    *className = "NSData";
    return true;
  }
  if (isNumberLike(entry)) {
    *out = entry;
    *className = "NSNumber";
    return true;
  }
  const Dictionary* dict = entry.asDictionary();
  if (!dict) {
    *why = "object " + num(uid) + " is neither a plain value nor an object";
    return false;
  }
  std::vector<std::string> chain;
  if (!readClass(dict->get("$class"), uid, &chain, why)) return false;
  const bool isData = isDataClass(chain);
  if (!isData && !isStringClass(chain)) {
    *why = "object " + num(uid) + " of class " + chain.front() + " is not a string or data";
    return false;
  }
  // NSMutableData / NSMutableString write their contents under one key,
  // inline or as a reference to a plain value.
  const char* key = isData ? "NS.data" : "NS.string";
  const Value* content = dict->find(key);
  if (content && content->asUid()) {
    const std::uint64_t ref = content->asUid()->value;
    if (ref == 0 || ref >= objects_->size() || ref == uid || ref == owner) {
      *why = std::string(key) + " of object " + num(uid) + " refers to object " + num(ref);
      return false;
    }
    content = &(*objects_)[ref];
  }
  if (!content || (isData ? !content->isData() : !content->isString())) {
    *why = "object " + num(uid) + " of class " + chain.front() + " has no " + key;
    return false;
  }
  *out = *content;
  *className = String(chain.front());
  return true;
}

bool KeyedUnarchiver::resolveRoot(std::uint64_t uid) {
  rootUid_ = uid;
  if (uid == 0) return true;  // the archive of nil
  if (uid >= objects_->size()) {
    return fail("incomprehensible archive: the root refers to object " + num(uid) + " of " +
                num(objects_->size()));
  }
  std::string why;
  const Dictionary* dict = (*objects_)[uid].asDictionary();
  if (dict) {
    if (!readClass(dict->get("$class"), uid, &classes_, &why)) return fail("incomprehensible archive: " + why);
    if (!isDataClass(classes_) && !isStringClass(classes_)) {
      record_ = dict;
      className_ = String(classes_.front());
      return true;
    }
  }
  String name;
  if (!leafValue(uid, std::numeric_limits<std::uint64_t>::max(), &rootObject_, &name, &why)) {
    return fail("incomprehensible archive: " + why);
  }
  className_ = name;
  if (classes_.empty()) {
    // A plain value: the class the system gives it.
    classes_.push_back(name.str());
    classes_.push_back("NSObject");
  }
  return true;
}

bool KeyedUnarchiver::rootIsKindOf(std::string_view className) const {
  return !raised_ && chainContains(classes_, className);
}

const Value* KeyedUnarchiver::field(std::string_view key) const {
  if (!record_) return nullptr;
  return record_->find(escapedKey(key));
}

bool KeyedUnarchiver::containsValue(std::string_view key) const { return field(key) != nullptr; }

Value KeyedUnarchiver::decodeObject(std::string_view key) const {
  const Value* v = field(key);
  if (!v) return Value();
  const Uid* uid = v->asUid();
  if (!uid) {
    note("value for key \"" + std::string(key) + "\" is not an object reference");
    return Value();
  }
  Value out;
  String className;
  std::string why;
  if (!leafValue(uid->value, rootUid_, &out, &className, &why)) {
    note("key \"" + std::string(key) + "\": " + why);
    return Value();
  }
  return out;
}

String KeyedUnarchiver::decodeString(std::string_view key) const {
  const Value v = decodeObject(key);
  if (!v.isNull() && !v.isString()) note("value for key \"" + std::string(key) + "\" is not a string");
  return v.stringValue();
}

std::int32_t KeyedUnarchiver::decodeInt32(std::string_view key) const {
  const Value* v = field(key);
  if (!v) return 0;
  const std::int64_t* i = v->asInt();
  if (!i) {
    note("value for key \"" + std::string(key) + "\" is not a 32-bit integer");
    return 0;
  }
  if (*i < std::numeric_limits<std::int32_t>::min() || *i > std::numeric_limits<std::int32_t>::max()) {
    note("value (" + std::to_string(*i) + ") for key \"" + std::string(key) + "\" too large to fit in 32-bit integer");
    return 0;
  }
  return static_cast<std::int32_t>(*i);
}

std::int64_t KeyedUnarchiver::decodeInteger(std::string_view key) const {
  const Value* v = field(key);
  if (!v) return 0;
  const std::int64_t* i = v->asInt();
  if (!i) {
    note("value for key \"" + std::string(key) + "\" is not an integer that fits in 64 bits");
    return 0;
  }
  return *i;
}

bool KeyedUnarchiver::decodeBool(std::string_view key) const {
  const Value* v = field(key);
  if (!v) return false;
  const bool* b = v->asBool();
  if (!b) {
    note("value for key \"" + std::string(key) + "\" is not a boolean");
    return false;
  }
  return *b;
}

}  // namespace mirelo
