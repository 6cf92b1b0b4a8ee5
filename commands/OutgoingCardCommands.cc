// The outgoing commands that carry JSON: the business web view's query, the
// card package, and the card and invoice choosers.  The messenger reads the
// JSON by key, so key order and spacing are free; the text is UTF-8.

#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/model/Model.h"
#include "util/Format.h"
#include "util/Log.h"

namespace mirelo {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMinCardCount = 1;
constexpr std::size_t kMaxCardCount = 40;
constexpr std::size_t kCardIdLimit = 1024;
constexpr std::size_t kCardExtMsgLimit = 2048;

// The JSON form of a value, or nullopt when it has none: data, dates, UIDs
// and non-finite reals cannot be JSON.
std::optional<Json> jsonOf(const Value& value) {
  switch (value.type()) {
    case Value::Type::Null:
      return Json(nullptr);
    case Value::Type::Bool:
      return Json(*value.asBool());
    case Value::Type::Int:
      return Json(*value.asInt());
    case Value::Type::UInt:
      return Json(*value.asUInt());
    case Value::Type::Real:
      if (!std::isfinite(*value.asReal())) return std::nullopt;
      return Json(*value.asReal());
    case Value::Type::String:
      return Json(*value.asString());
    case Value::Type::Array: {
      Json out = Json::array();
      for (const Value& item : *value.asArray()) {
        std::optional<Json> j = jsonOf(item);
        if (!j) return std::nullopt;
        out.push_back(std::move(*j));
      }
      return out;
    }
    case Value::Type::Dictionary: {
      Json out = Json::object();
      for (const auto& [key, item] : *value.asDictionary()) {
        std::optional<Json> j = jsonOf(item);
        if (!j) return std::nullopt;
        out[key] = std::move(*j);
      }
      return out;
    }
    case Value::Type::Data:
    case Value::Type::Date:
    case Value::Type::Uid:
      break;
  }
  return std::nullopt;
}

// Pretty-printed UTF-8 JSON of a dictionary, or nullopt when the dictionary
// is not a valid JSON object (a value JSON cannot hold, or text that is not
// well-formed UTF-8).
std::optional<std::string> prettyJson(const Dictionary& dict) {
  std::optional<Json> json = jsonOf(Value(dict));
  if (!json) return std::nullopt;
  try {
    return json->dump(2, ' ', false, Json::error_handler_t::strict);
  } catch (const Json::exception&) {
    return std::nullopt;  // a string that is not UTF-8
  }
}

// "<path>?<json>" with the whole string escaped as the platform escapes a
// URL string: only what cannot stand in a URL.
String jsonCommand(std::string_view fmt, const std::string& json) {
  return String(format(fmt, json)).stringByAddingPercentEscapes();
}

// The JSON command of `dict`, or null with "json invaild" when the
// dictionary cannot be written as JSON.
String jsonCommand(std::string_view fmt, const Dictionary& dict) {
  const std::optional<std::string> json = prettyJson(dict);
  if (!json) {
    mrlog::error("json invaild");
    return String();
  }
  return jsonCommand(fmt, *json);
}

void setIfNotEmpty(Dictionary& dict, const char* key, const String& value) {
  if (!value.empty()) dict.mrApi_safeSetObject(value, key);
}

}  // namespace

String MRApiInternal::genOpenBusinessWebviewExtraUrl(const std::shared_ptr<MROpenBusinessWebViewReq>& req) {
  if (!req) {
    mrlog::error("req is nil!");
    return String();
  }
  std::string url = format("openbusinesswebview/?type=%u", req->businessType);
  if (req->queryInfoDic && !req->queryInfoDic->empty()) {
    // A dictionary that is not JSON simply goes without a query.
    const std::optional<std::string> json = prettyJson(*req->queryInfoDic);
    const String query = json ? String(*json).mrApi_stringByEncodeUrl() : String();
    if (!query.empty()) url += format("&query=%@", query);
  }
  return String(std::move(url));
}

// The cards go as {"id0": ..., "ext0": ..., "id1": ...}.  An empty extMsg
// becomes "" on the caller's own item as the items are read, so an item
// before a refused one keeps that change.
String MRApiInternal::genAddCardToMRCardPackageReqExtraUrl(const std::shared_ptr<AddCardToMRCardPackageReq>& req) {
  if (!req) {
    mrlog::error("req is nil!");
    return String();
  }
  const std::size_t count = req->cardAry ? req->cardAry->size() : 0;
  if (count < kMinCardCount || count > kMaxCardCount) {
    mrlog::error("card ary count invaild");
    return String();
  }
  Dictionary cards;
  int index = 0;
  for (const std::shared_ptr<MRCardItem>& item : *req->cardAry) {
    if (!item || item->cardId.empty() || item->cardId.length() > kCardIdLimit) {
      mrlog::error("card id length invaild");
      return String();
    }
    if (item->extMsg.length() > kCardExtMsgLimit) {
      mrlog::error("extMsg invaild");
      return String();
    }
    if (item->extMsg.empty()) item->extMsg = "";
    cards.mrApi_safeSetObject(item->cardId, format("id%d", index));
    cards.mrApi_safeSetObject(item->extMsg, format("ext%d", index));
    ++index;
  }
  if (cards.empty()) {
    mrlog::error("dict is empty");
    return String();
  }
  return jsonCommand("cardpackage/?%@", cards);
}

String MRApiInternal::genChooseCardReqExtraUrl(const std::shared_ptr<MRChooseCardReq>& req) {
  if (!req) {
    mrlog::error("req is nil!");
    return String();
  }
  Dictionary dict;
  setIfNotEmpty(dict, "appID", req->appID);
  dict.mrApi_safeSetObject(Value(req->shopID), "shopID");
  dict.mrApi_safeSetObject(Value(req->canMultiSelect), "canMultiSelect");
  setIfNotEmpty(dict, "cardType", req->cardType);
  setIfNotEmpty(dict, "cardTpID", req->cardTpID);
  setIfNotEmpty(dict, "signType", req->signType);
  setIfNotEmpty(dict, "cardSign", req->cardSign);
  dict.mrApi_safeSetObject(Value(req->timeStamp), "timeStamp");
  setIfNotEmpty(dict, "nonceStr", req->nonceStr);
  return jsonCommand("choosecard/?%@", dict);
}

// Invoices are always chosen several at a time and have no card template.
String MRApiInternal::genChooseInvoiceReqExtraUrl(const std::shared_ptr<MRChooseInvoiceReq>& req) {
  if (!req) {
    mrlog::error("req is nil!");
    return String();
  }
  Dictionary dict;
  setIfNotEmpty(dict, "appID", req->appID);
  dict.mrApi_safeSetObject(Value(req->shopID), "shopID");
  dict.mrApi_safeSetObject(Value(1), "canMultiSelect");
  dict.mrApi_safeSetObject(Value("INVOICE"), "cardType");
  setIfNotEmpty(dict, "signType", req->signType);
  setIfNotEmpty(dict, "cardSign", req->cardSign);
  dict.mrApi_safeSetObject(Value(req->timeStamp), "timeStamp");
  setIfNotEmpty(dict, "nonceStr", req->nonceStr);
  return jsonCommand("chooseinvoice/?%@", dict);
}

}  // namespace mirelo
