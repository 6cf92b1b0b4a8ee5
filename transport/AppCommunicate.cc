#include "transport/AppCommunicate.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {
namespace {
bool hasType(const std::vector<std::string>& types, std::string_view type) {
  return std::find(types.begin(), types.end(), type) != types.end();
}
}  // namespace

String AppCommunicate::getDataPasteboardName() { return "mirelo_data"; }

std::shared_ptr<platform::Pasteboard> AppCommunicate::getDataPasteboard() {
  return platform::current().pasteboard;
}

std::optional<Dictionary> AppCommunicate::propertyListForAllApp() {
  auto pasteboard = getDataPasteboard();
  // Reading content another app wrote makes the system tell the user (a
  // banner, or a prompt to allow the paste): ask for the item only when the
  // pasteboard holds one.  The types are metadata and tell the user nothing.
  Data pasteData;
  if (pasteboard && hasType(pasteboard->types(), kPasteboardType)) {
    pasteData = pasteboard->dataForPasteboardType(kPasteboardType);
  }
  // A missing item and the empty item left by an earlier read both mean
  // there is nothing to read.
  if (pasteData.empty()) {
    mrlog::error("pasteData[%@] is empty", nullptr);
    return std::nullopt;
  }
  // Whatever another app put there is decoded with full checks; an item
  // that does not decode stays on the pasteboard.
  Value idPaste = MireloApiUtil::propertyListFromData(pasteData);
  if (idPaste.isNull()) {
    mrlog::error("idPaste is nil");
    return std::nullopt;
  }
  mrlog::line("clear property list");
  pasteboard->setData(Data::emptyData(), kPasteboardType);
  if (Dictionary* dict = idPaste.asDictionary()) {
    String oldText = dict->mrApi_stringForKey(kOldTextKey);
    if (!oldText.empty()) pasteboard->setString(oldText.str());
    return std::move(*dict);
  }
  mrlog::error("idPaste[%@] is not dictionary", idPaste);
  return std::nullopt;
}

Value AppCommunicate::propertyListForAppID(const String& appId) {
  if (appId.empty()) {
    mrlog::error("appID[%@] invaild", appId);
    return Value();
  }
  std::optional<Dictionary> pasteDictionary = propertyListForAllApp();
  if (!pasteDictionary) {
    mrlog::error("pasteDictionary is nil");
    return Value();
  }
  if (Value* plist = pasteDictionary->find(appId.view())) return std::move(*plist);
  return Value();
}

bool AppCommunicate::setPropertyList(const Value& plist, const String& appId) {
  return setPropertyList(Value(plist), appId);
}

bool AppCommunicate::setPropertyList(Value&& plist, const String& appId) {
  if (plist.isNull() || appId.isNull()) {
    mrlog::error("propertyList[%@] or appId[%@] is nil", plist, appId);
    return false;
  }
  auto pasteboard = getDataPasteboard();
  Dictionary all;
  all.reserve(2);
  // The record's values move in; data payloads keep sharing their bytes, so
  // the encoder below makes the only copy of them.
  all.set(appId.str(), std::move(plist));
  // Writing the item replaces the pasteboard's contents: keep the user's text.
  // Only text is kept, so a pasteboard without text is not read at all.
  String oldText = pasteboard && pasteboard->hasStrings() ? pasteboard->string() : String();
  if (!oldText.empty()) all.set(kOldTextKey, Value(oldText));
  Data data = MireloApiUtil::dataFromPropertyList(Value(std::move(all)));
  if (data.empty()) {
    mrlog::error("data coverted is empty");
    return false;
  }
  if (!pasteboard) return false;
  mrlog::line("set property list");
  pasteboard->setData(data, kPasteboardType);
  return true;
}

bool AppCommunicate::setAppCommunicateData(const std::shared_ptr<AppCommunicateData>& data,
                                           const String& appId) {
  if (appId.empty() || !data) {
    mrlog::error("appId[%@], appid.length:%@, or data[%@] invaild", appId, appId.length(), data);
    return false;
  }
  // A record that never wrote its header has no property list: the store
  // refuses it as nil.
  Value plist = data->hasDictionary() ? Value(data->propertList()) : Value();
  return setPropertyList(std::move(plist), appId);
}

std::shared_ptr<AppCommunicateData> AppCommunicate::appCommunicateDataForAppID(const String& appId) {
  if (appId.empty()) {
    mrlog::error("appID[%@] invaild", appId);
    return nullptr;
  }
  Value plist = propertyListForAppID(appId);
  // Another app may have stored anything under the app id; only a
  // dictionary makes a record, anything else counts as no dictionary.
  Dictionary* dict = plist.asDictionary();
  if (dict == nullptr) {
    mrlog::error("dict is nil");
    return nullptr;
  }
  // "fileData" is taken as it is when it holds data; any other kind leaves
  // fileData null.
  const Data* fileData = dict->mrApi_dataForKey("fileData");
  Data payload = fileData ? *fileData : Data();
  auto record = AppCommunicateData::initWithPropertList(std::move(*dict));
  record->fileData = std::move(payload);
  return record;
}

}  // namespace mirelo
