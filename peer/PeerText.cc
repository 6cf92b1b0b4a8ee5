#include "peer/PeerText.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "util/Format.h"

namespace mirelo::sim::peer {
namespace {

const char* kindName(const Value& v) {
  switch (v.type()) {
    case Value::Type::Null: return "null";
    case Value::Type::Bool: return "boolean";
    case Value::Type::Int:
    case Value::Type::UInt: return "integer";
    case Value::Type::Real: return "real";
    case Value::Type::String: return "string";
    case Value::Type::Data: return "data";
    case Value::Type::Date: return "date";
    case Value::Type::Array: return "array";
    case Value::Type::Dictionary: return "dictionary";
    case Value::Type::Uid: return "uid";
  }
  return "?";
}

std::string quoted(std::string_view s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '\n') out += "\\n";
    else if (c == '"') out += "\\\"";
    else out += c;
  }
  return out + "\"";
}

std::string pad(int indent) { return std::string(static_cast<std::size_t>(indent) * 2, ' '); }

enum class Expect { DecimalString, FlagString, Boolean, Integer, Bytes, Dict, Text };

struct KeyKind {
  const char* key;
  Expect expect;
};

// The kind every record key is written with.
constexpr KeyKind kKeyKinds[] = {
    {"command", Expect::DecimalString}, {"result", Expect::DecimalString}, {"scene", Expect::DecimalString},
    {"objectType", Expect::DecimalString}, {"tesselObjectSubType", Expect::DecimalString},
    {"musicVideoDuration", Expect::DecimalString}, {"musicVideoIssueData", Expect::DecimalString},
    {"stateJumpType", Expect::DecimalString}, {"returnFromApp", Expect::FlagString},
    {"isAutoResend", Expect::Boolean}, {"withShareTicket", Expect::Boolean}, {"disableForward", Expect::Boolean},
    {"appbrandisupdatablemessage", Expect::Boolean}, {"appbrandissecrectmessage", Expect::Boolean},
    {"miniprogramType", Expect::Integer}, {"enterpriseCardMsgType", Expect::Integer},
    {"mireloVersion", Expect::Integer}, {"thumbData", Expect::Bytes}, {"fileData", Expect::Bytes},
    {"hdThumbData", Expect::Bytes}, {"musicVideoHDThumbData", Expect::Bytes},
    {"appbrandextrainfo", Expect::Dict}, {"gameLiveExtraInfo", Expect::Dict}, {"tinyAppExtDic", Expect::Dict},
    {"account", Expect::Text}, {"sdkver", Expect::Text}, {"universalLink", Expect::Text}, {"openID", Expect::Text},
    {"userOpenID", Expect::Text}, {"language", Expect::Text}, {"country", Expect::Text}, {"title", Expect::Text},
    {"description", Expect::Text}, {"mediaTagName", Expect::Text}, {"messageExt", Expect::Text},
    {"messageAction", Expect::Text}, {"mediaUrl", Expect::Text}, {"mediaLowBandUrl", Expect::Text},
    {"mediaDataUrl", Expect::Text}, {"mediaLowBandDataUrl", Expect::Text}, {"songAlbumUrl", Expect::Text},
    {"songLyric", Expect::Text}, {"extInfo", Expect::Text}, {"fileExt", Expect::Text},
    {"appBrandUserName", Expect::Text}, {"appBrandPath", Expect::Text}, {"sightCdnVideoUrl", Expect::Text},
    {"sightCdnThumbUrl", Expect::Text}, {"sightAppThumbUrl", Expect::Text}, {"enterpriseCardInfo", Expect::Text},
    {"musicVideoSingetName", Expect::Text}, {"musicVideoAlbumName", Expect::Text},
    {"musicVideoMusicGenre", Expect::Text}, {"musicVideoIdentification", Expect::Text},
    {"musicVideoOperationUrl", Expect::Text}, {"stateId", Expect::Text}, {"stateTitle", Expect::Text},
    {"stateToken", Expect::Text}, {"stateUrl", Expect::Text}, {"scope", Expect::Text}, {"state", Expect::Text},
    {"url", Expect::Text}, {"corpid", Expect::Text}, {"finderUserName", Expect::Text},
    {"finderFeedID", Expect::Text}, {"finderNonceID", Expect::Text}, {"finderLocalIdentifier", Expect::Text},
    {"tdi_ext_info", Expect::Text},
};

const char* expectName(Expect e) {
  switch (e) {
    case Expect::DecimalString: return "a decimal string";
    case Expect::FlagString: return "the string \"0\" or \"1\"";
    case Expect::Boolean: return "a boolean";
    case Expect::Integer: return "an integer number";
    case Expect::Bytes: return "data";
    case Expect::Dict: return "a dictionary";
    case Expect::Text: return "a string";
  }
  return "?";
}

bool matches(Expect e, const Value& v) {
  switch (e) {
    case Expect::DecimalString: return v.isString() && parseDecimal(*v.asString()).has_value();
    case Expect::FlagString: return v.isString() && (*v.asString() == "0" || *v.asString() == "1");
    case Expect::Boolean: return v.isBool();
    case Expect::Integer: return v.isInteger();
    case Expect::Bytes: return v.isData();
    case Expect::Dict: return v.isDictionary();
    case Expect::Text: return v.isString();
  }
  return false;
}

}  // namespace

std::optional<std::int64_t> parseDecimal(std::string_view text) {
  if (text.empty()) return std::nullopt;
  bool negative = false;
  std::size_t i = 0;
  if (text[0] == '-' || text[0] == '+') {
    negative = text[0] == '-';
    i = 1;
  }
  if (i == text.size()) return std::nullopt;
  std::uint64_t v = 0;
  for (; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    const auto digit = static_cast<std::uint64_t>(text[i] - '0');
    if (v > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return std::nullopt;
    v = v * 10 + digit;
  }
  const auto limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (negative) {
    if (v > limit + 1) return std::nullopt;
    return v == limit + 1 ? std::numeric_limits<std::int64_t>::min() : -static_cast<std::int64_t>(v);
  }
  if (v > limit) return std::nullopt;
  return static_cast<std::int64_t>(v);
}

std::string maskTokens(std::string text) {
  static constexpr std::string_view kKey = "mirelo_auth_token=";
  std::size_t at = 0;
  while ((at = text.find(kKey, at)) != std::string::npos) {
    const std::size_t begin = at + kKey.size();
    const std::size_t end = std::min(text.find_first_of("&# \n", begin), text.size());
    text.replace(begin, end - begin, "<token>");
    at = begin;
  }
  return text;
}

Dictionary maskTokens(Dictionary query) {
  if (query.find("mirelo_auth_token")) query.set("mirelo_auth_token", Value("<token>"));
  return query;
}

std::string describeValue(const Value& value, int indent) {
  switch (value.type()) {
    case Value::Type::String: return quoted(*value.asString());
    case Value::Type::Data: {
      const Data& d = *value.asData();
      std::string out = format("<data %lu bytes", static_cast<unsigned long>(d.size()));
      if (!d.empty()) out += ": " + d.hexPrefix(8) + (d.size() > 8 ? "..." : "");
      return out + ">";
    }
    case Value::Type::Bool: return *value.asBool() ? "true" : "false";
    case Value::Type::Array: {
      const Array& arr = *value.asArray();
      if (arr.empty()) return "[]";
      std::string out = "[\n";
      for (const Value& item : arr) out += pad(indent + 1) + describeValue(item, indent + 1) + "\n";
      return out + pad(indent) + "]";
    }
    case Value::Type::Dictionary: {
      const Dictionary& dict = *value.asDictionary();
      if (dict.empty()) return "{}";
      std::string out = "{\n";
      for (const auto& [key, item] : dict) {
        out += pad(indent + 1) + key + " = " + describeValue(item, indent + 1) + "\n";
      }
      return out + pad(indent) + "}";
    }
    default: return value.description();
  }
}

std::string objectTypeName(std::uint64_t code) {
  switch (code) {
    case 2: return "image";
    case 3: return "music";
    case 4: return "video";
    case 5: return "webpage";
    case 6: return "file";
    case 7: return "app extend";
    case 8: return "emoticon";
    case 36: return "mini program";
    case 38: return "video file";
    case 39: return "game video file";
    case 45: return "enterprise card";
    case 46: return "dynamic video mini program";
    case 49: return "tessel";
    case 70: return "game live";
    case 76: return "music video";
    default: return "";
  }
}

void checkRecordTypes(const Dictionary& record, std::vector<std::string>* notes) {
  if (!notes) return;
  for (const KeyKind& k : kKeyKinds) {
    const Value* v = record.find(k.key);
    if (!v || matches(k.expect, *v)) continue;
    std::string shown = v->isString() ? quoted(*v->asString()) : std::string(kindName(*v));
    notes->push_back(format("record key %@ should be %@, found %@", k.key, expectName(k.expect), shown));
  }
}

}  // namespace mirelo::sim::peer
