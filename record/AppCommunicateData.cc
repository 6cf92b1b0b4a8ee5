#include "record/AppCommunicateData.h"

#include <string>
#include <utility>

#include "mirelo/platform/Platform.h"
#include "util/Format.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

// Writes a string field only when it is set (an empty string is set).
void putIfSet(Dictionary& dict, const char* key, const String& value) {
  if (!value.isNull()) dict.set(key, Value(value));
}

// Parses the string under `key` as a signed 32-bit decimal (its leading
// numeral, clamped; 0 when there is none) into `*out`.  False, leaving `*out`
// alone, when the key holds no string.  Reads the stored string in place.
bool readInt32(const Dictionary& dict, std::string_view key, std::int32_t* out) {
  const Value* v = dict.find(key);
  if (v == nullptr || !v->isString()) return false;
  *out = v->intValue();
  return true;
}

}  // namespace

std::shared_ptr<AppCommunicateData> AppCommunicateData::initWithPropertList(const Dictionary& dict) {
  auto record = std::make_shared<AppCommunicateData>();
  record->readPropertList(dict);
  if (record->hasDictionary_) record->dictionaryData_ = dict;
  return record;
}

std::shared_ptr<AppCommunicateData> AppCommunicateData::initWithPropertList(Dictionary&& dict) {
  auto record = std::make_shared<AppCommunicateData>();
  record->readPropertList(dict);
  if (record->hasDictionary_) record->dictionaryData_ = std::move(dict);
  return record;
}

// Reads the header fields of a received dictionary.  Marks the record as
// having a dictionary when "command" is there; the caller then copies or
// moves the dictionary in, so that the body readers find their keys.
// "isAutoResend" is never read back, and "fileData" is set by the pasteboard
// store after the record is built.
void AppCommunicateData::readPropertList(const Dictionary& dict) {
  command_ = kCommandNone;
  std::int32_t command32 = 0;
  // A "command" that is absent or not a string stops here: no fields, no
  // dictionary.
  if (!readInt32(dict, "command", &command32)) return;
  // Widened with sign: "-1" becomes all bits set, which no converter knows.
  command_ = static_cast<std::uint64_t>(static_cast<std::int64_t>(command32));
  conversationAccount = dict.mrApi_stringForKey("account");
  // Only a string other than "1" reads false; an absent value, or one that
  // is not a string, compares as equal and reads true.
  const Value* fromApp = dict.find("returnFromApp");
  returnFromApp = fromApp == nullptr || !fromApp->isString() || *fromApp->asString() == "1";
  openID = dict.mrApi_stringForKey("openID");
  sdkVer = dict.mrApi_stringForKey("sdkver");
  lang = dict.mrApi_stringForKey("language");
  country = dict.mrApi_stringForKey("country");
  toUserOpenID = dict.mrApi_stringForKey("userOpenID");
  universalLink = dict.mrApi_stringForKey("universalLink");
  // The messenger tells its version; the capability queries read it later.
  Value version = dict.mrApi_numberForKey("mireloVersion");
  if (version.unsignedIntValue() != 0) {
    if (auto& defaults = platform::current().userDefaults) defaults->setObject(version, kMireloVersionDefaultsKey);
  }
  // "result" and "scene" change the defaults only when they hold a string;
  // a value of another kind counts as absent.
  readInt32(dict, "result", &result);
  readInt32(dict, "scene", &scene);
  hasDictionary_ = true;
}

void AppCommunicateData::initCommonField(std::uint64_t command) {
  command_ = command;
  Dictionary dict;
  dict.reserve(8);
  dict.set("command", Value(std::to_string(command)));
  dict.set("returnFromApp", Value(returnFromApp ? "1" : "0"));
  dict.set("result", Value(std::to_string(result)));
  putIfSet(dict, "account", conversationAccount);
  putIfSet(dict, "sdkver", sdkVer);
  putIfSet(dict, "universalLink", universalLink);
  dict.set("isAutoResend", Value(isAutoResend));
  dictionaryData_ = std::move(dict);
  hasDictionary_ = true;
}

bool AppCommunicateData::MakeCommand(std::uint64_t command) {
  initCommonField(command);
  return true;
}

const Dictionary& AppCommunicateData::propertList() const {
  static const Dictionary kNone;
  return hasDictionary_ ? dictionaryData_ : kNone;
}

std::string AppCommunicateData::description() const {
  return format("{scene:%@, openID:%@, sdkVer:%@, lang:%@, country:%@, toUserOpenID:%@, universalLink:%@, "
                "isAutoResend:%@}",
                scene, openID, sdkVer, lang, country, toUserOpenID, universalLink, isAutoResend);
}

}  // namespace mirelo
