// The pasteboard store and the record conversion: the input is the general
// pasteboard's "content" item as another app may have written it.  The host
// reads its record, and the record becomes the request or response the host
// would be handed.  Checked besides crashes:
//   - an item that decodes is cleared by the read (the user's saved text, if
//     any, is put back); one that does not decode stays as it was;
//   - a record comes back exactly when the item holds a dictionary under the
//     host's app id, and a second read finds nothing;
//   - a response carries the record's result as its error code, and no text
//     over its limit reaches the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "fuzz/harness/Rig.h"
#include "mirelo/model/Model.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "transport/AppCommunicate.h"
#include "util/BinaryPlist.h"

namespace mirelo::fuzz {

namespace detail {

inline std::string overLimit(const char* field, const String& s, std::size_t limit) {
  return s.length() > limit ? std::string(field) + " over its limit reached the host" : std::string();
}

// Reads every body the record may carry, as the entry and the host would.
inline std::string readBodies(const AppCommunicateData& record) {
  namespace lim = recordlimits;
  (void)record.description();
  if (const auto auth = record.authRequest()) (void)auth->scope.description();
  if (const auto auth = record.authResp()) (void)auth->state.description();
  if (auto p = overLimit("a text message", record.textMessage(), lim::kText); !p.empty()) return p;
  if (const auto ext = record.tinyAppExtDic()) (void)Value(*ext).description();
  if (const auto scene = record.sceneMessage()) {
    for (const String* s : {&scene->stateId, &scene->stateToken, &scene->stateUrl, &scene->stateTitle}) {
      if (auto p = overLimit("a state field", *s, lim::kStateField); !p.empty()) return p;
    }
  }
  if (const auto media = record.mediaInternalMessage()) {
    if (auto p = overLimit("a title", media->title, lim::kTitle); !p.empty()) return p;
    if (auto p = overLimit("a description", media->description, lim::kDescription); !p.empty()) return p;
    if (auto p = overLimit("a media URL", media->mediaUrl, lim::kUrl); !p.empty()) return p;
    if (media->thumbData.size() > lim::kThumbData) return "a thumbnail over its limit reached the host";
    if (media->appBrandMiniProgramType >= lim::kMiniProgramTypeCount) return "a mini-program type out of range";
    if (const auto message = media->mediaMessage()) (void)describe(*message);
  }
  if (const auto req = record.DataToReq()) {
    (void)req->description();
    if (const auto launch = kindCast<LaunchFromMRReq>(req); launch && launch->message) (void)describe(*launch->message);
  }
  if (const auto resp = record.DataToResp()) {
    if (resp->errCode != record.result) return "a response does not carry the record's result";
    (void)resp->description();
  }
  return std::string();
}

}  // namespace detail

inline std::string runPasteboard(Rig& rig, const std::uint8_t* data, std::size_t size) {
  rig.reset(false);
  const Data item = Data::copy(data, size);
  rig.device->setPasteboardData(item, AppCommunicate::kPasteboardType);

  // What another reader makes of the item.
  const Value decoded = item.empty() ? Value() : bplist::decode(item);
  const Dictionary* all = decoded.asDictionary();
  const Value* mine = all ? all->find(Rig::kAppId) : nullptr;
  const bool expectRecord = mine != nullptr && mine->isDictionary();
  const String oldText = all ? all->mrApi_stringForKey(AppCommunicate::kOldTextKey) : String();

  const std::shared_ptr<AppCommunicateData> record = AppCommunicate::appCommunicateDataForAppID(Rig::kAppId);
  if (std::string p = rig.oversizedLog(size); !p.empty()) return p;

  const Data left = rig.device->pasteboardData(AppCommunicate::kPasteboardType);
  if (!decoded.isNull()) {
    if (!left.empty()) return "an item that decodes stayed on the pasteboard";
    if (!oldText.empty() && !(rig.device->pasteboardString() == oldText)) return "the user's text was not put back";
  } else if (!(left == item)) {
    return "an item that does not decode was changed";
  }
  if (expectRecord != (record != nullptr)) {
    return expectRecord ? "the host's record was not read" : "a record was made from something else";
  }
  if (AppCommunicate::appCommunicateDataForAppID(Rig::kAppId) != nullptr) return "a record was read twice";
  if (!record) return std::string();

  const Dictionary& dict = *mine->asDictionary();
  if (const Data* file = dict.mrApi_dataForKey("fileData"); file && !(record->fileData == *file)) {
    return "fileData differs from the record's";
  }
  if (std::string p = detail::readBodies(*record); !p.empty()) return p;

  // The record written back by the kit's own writer reads the same.
  if (!record->hasDictionary()) return std::string();
  if (!AppCommunicate::setAppCommunicateData(record, Rig::kAppId)) return "a received record cannot be written again";
  const std::shared_ptr<AppCommunicateData> again = AppCommunicate::appCommunicateDataForAppID(Rig::kAppId);
  if (!again) return "a record written again does not read";
  if (again->command() != record->command() || again->result != record->result || again->scene != record->scene ||
      !(again->openID == record->openID) || !(again->lang == record->lang) ||
      !(again->universalLink == record->universalLink) ||
      // Compared as encoded: a NaN is not equal to itself.
      !(bplist::encode(Value(again->propertList())) == bplist::encode(Value(record->propertList())))) {
    return "a record written again reads as another record";
  }
  const auto resp = record->DataToResp();
  const auto respAgain = again->DataToResp();
  if ((resp == nullptr) != (respAgain == nullptr) ||
      (resp && (resp->className() != respAgain->className() || resp->errCode != respAgain->errCode))) {
    return "a record written again gives another response";
  }
  return std::string();
}

}  // namespace mirelo::fuzz
