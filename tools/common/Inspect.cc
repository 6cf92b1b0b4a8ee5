#include "tools/common/Inspect.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/URL.h"
#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "record/AppCommunicateData.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"
#include "util/MireloApiUtil.h"
#include "tools/common/XmlPlist.h"

namespace mirelo::tooling {

namespace {

constexpr const char* kOldTextKey = "old_text";
constexpr const char* kSelfCheckContextId = "TestAutoCheckContextId_a4c123b1612dd272d1371c17149d439536b3216f";

InspectResult failure(std::string reason) {
  InspectResult r;
  r.error = std::move(reason);
  return r;
}

InspectResult success(Json report) {
  InspectResult r;
  r.ok = true;
  r.report = std::move(report);
  return r;
}

Json str(const String& s) { return s.isNull() ? Json(nullptr) : Json(s.str()); }

Json tokenNode(std::string_view token) { return Json{{"sha256Prefix", sha256Prefix(token)}}; }

// ============================================================================
// The pasteboard record
// ============================================================================

struct CommandInfo {
  std::uint64_t number;
  const char* name;
  const char* writtenFor;  // the classes the sender turns into this command
};

constexpr CommandInfo kCommands[] = {
    {0, "header only", "any request without a body of its own, when the messenger has the universal-link API"},
    {1010, "media message",
     "SendMessageToMRReq (bText false), GetMessageFromMRResp with a media message, ShowMessageFromMRReq"},
    {1020, "text message", "SendMessageToMRReq (bText true), GetMessageFromMRResp (bText true)"},
    {1030, "sign-in request", "the messenger only"},
    {1070, "show-message response", "ShowMessageFromMRResp"},
    {1080, "mini-program launch", "MRLaunchMiniProgramReq"},
    {1090, "mini-program redirecting page", "MRLaunchMraRedirectingPageReq"},
    {2000, "get-message request", "GetMessageFromMRReq"},
    {2010, "send-message response with language and country", "the messenger only"},
    {2020, "send-message response", "SendMessageToMRResp"},
    {2030, "sign-in response", "SendAuthResp"},
    {2040, "launch-from-messenger request", "LaunchFromMRReq"},
    {2050, "chat room creation", "CreateChatRoomResp"},
    {2060, "chat room joining", "JoinChatRoomResp"},
    {2070, "mini-program launch response", "MRLaunchMiniProgramResp"},
    {2080, "business view", "MROpenBusinessViewReq, MROpenBusinessViewResp"},
    {2090, "channel video share", "MRChannelShareVideoReq, MRChannelShareVideoResp"},
    {2100, "channel profile", "MRChannelOpenProfileReq, MRChannelOpenProfileResp"},
    {2110, "channel live", "MRChannelOpenLiveReq, MRChannelOpenLiveResp"},
    {2120, "channel feed", "MRChannelOpenFeedReq, MRChannelOpenFeedResp"},
    {2130, "customer service", "MROpenCustomerServiceReq, MROpenCustomerServiceResp"},
};

const CommandInfo* commandInfo(std::uint64_t number) {
  for (const CommandInfo& c : kCommands) {
    if (c.number == number) return &c;
  }
  return nullptr;
}

// The header keys, in the order the kit writes them, then the ones that
// conversions add and the messenger's version.
constexpr const char* kHeaderKeys[] = {"command", "returnFromApp", "result",   "account",   "sdkver",
                                       "universalLink", "isAutoResend", "scene", "openID", "userOpenID",
                                       "language", "country", "mireloVersion"};

bool isHeaderKey(std::string_view key) {
  return std::find(std::begin(kHeaderKeys), std::end(kHeaderKeys), key) != std::end(kHeaderKeys);
}

struct MediaField {
  const char* key;
  const char* field;
};

struct MediaClass {
  std::uint32_t objectType;
  const char* className;
  std::vector<MediaField> fields;
};

const std::vector<MediaClass>& mediaClasses() {
  static const std::vector<MediaClass> classes = {
      {2, "MRImageObject", {{"fileData", "imageData"}}},
      {3,
       "MRMusicObject",
       {{"mediaUrl", "musicUrl"},
        {"mediaLowBandUrl", "musicLowBandUrl"},
        {"mediaDataUrl", "musicDataUrl"},
        {"mediaLowBandDataUrl", "musicLowBandDataUrl"},
        {"songAlbumUrl", "songAlbumUrl"},
        {"songLyric", "songLyric"}}},
      {4, "MRVideoObject", {{"mediaUrl", "videoUrl"}, {"mediaLowBandUrl", "videoLowBandUrl"}}},
      {5, "MRWebpageObject", {{"mediaUrl", "webpageUrl"}}},
      {6, "MRFileObject", {{"fileExt", "fileExtension"}, {"fileData", "fileData"}}},
      {7, "MRAppExtendObject", {{"mediaUrl", "url"}, {"extInfo", "extInfo"}, {"fileData", "fileData"}}},
      {8, "MREmoticonObject", {{"fileData", "emoticonData"}}},
      {36,
       "MRMiniProgramObject",
       {{"mediaUrl", "webpageUrl"},
        {"appBrandUserName", "userName"},
        {"appBrandPath", "path"},
        {"hdThumbData", "hdImageData"},
        {"withShareTicket", "withShareTicket"},
        {"disableForward", "disableForward"},
        {"miniprogramType", "miniProgramType"},
        {"appbrandisupdatablemessage", "isUpdatableMessage"},
        {"appbrandissecrectmessage", "isSecretMessage"},
        {"appbrandextrainfo", "extraInfoDic"}}},
      {38, "MRVideoFileObject", {{"fileData", "videoFileData"}}},
      {39,
       "MRGameVideoFileObject",
       {{"fileData", "videoFileData"}, {"sightCdnVideoUrl", "videoUrl"}, {"sightCdnThumbUrl", "thumbUrl"}}},
      {45, "MREnterpriseCardObject", {{"enterpriseCardInfo", "cardInfo"}, {"enterpriseCardMsgType", "msgType"}}},
      {46,
       "MRDynamicVideoMiniProgramObject",
       {{"mediaUrl", "webpageUrl"},
        {"appBrandUserName", "userName"},
        {"appBrandPath", "path"},
        {"hdThumbData", "hdImageData"},
        {"withShareTicket", "withShareTicket"},
        {"disableForward", "disableForward"},
        {"miniprogramType", "miniProgramType"},
        {"sightCdnVideoUrl", "videoSource"},
        {"sightAppThumbUrl", "appThumbUrl"}}},
      {49, "MRTesselObject", {{"fileData", "data"}, {"extInfo", "extInfo"}, {"tesselObjectSubType", "subType"}}},
      {70, "MRGameLiveObject", {{"gameLiveExtraInfo", "extraInfoDic"}}},
      {76,
       "MRMusicVideoObject",
       {{"mediaUrl", "musicUrl"},
        {"mediaDataUrl", "musicDataUrl"},
        {"musicVideoSingetName", "singerName"},
        {"songLyric", "songLyric"},
        {"musicVideoHDThumbData", "hdAlbumThumbData"},
        {"musicVideoAlbumName", "albumName"},
        {"musicVideoMusicGenre", "musicGenre"},
        {"musicVideoIdentification", "identification"},
        {"musicVideoDuration", "duration"},
        {"musicVideoIssueData", "issueDate"},
        {"musicVideoOperationUrl", "musicOperationUrl"}}},
  };
  return classes;
}

// Keys the kit writes with every media object, whatever its class.
constexpr const char* kObjectDefaultKeys[] = {"objectType",
                                              "withShareTicket",
                                              "disableForward",
                                              "miniprogramType",
                                              "appbrandisupdatablemessage",
                                              "appbrandissecrectmessage",
                                              "tesselObjectSubType",
                                              "musicVideoDuration",
                                              "musicVideoIssueData"};

// What the kit on the host delivers for a record it reads: the dispatch of
// the incoming-URL entry.
Json delivery(const AppCommunicateData& record) {
  const std::uint64_t c = record.command();
  const bool asReq = c == kCommandMediaMessage || c == kCommandGetMessageReq || c == kCommandLaunchFromMRReq;
  const bool asResp = c == kCommandSendMessageRespWithLocale || (c >= kCommandSendMessageResp && c <= 2130 &&
                                                                 c % 10 == 0 && c != kCommandLaunchFromMRReq);
  Json d = Json::object();
  if (asReq) {
    const std::shared_ptr<BaseReq> req = record.DataToReq();
    d["via"] = "onReq:";
    d["class"] = req ? Json(req->className()) : Json(nullptr);
    if (!req) d["why"] = "the record does not decode into a request";
  } else if (asResp) {
    const std::shared_ptr<BaseResp> resp = record.DataToResp();
    d["via"] = "onResp:";
    d["class"] = resp ? Json(resp->className()) : Json(nullptr);
    if (resp) d["errCode"] = resp->errCode;
    if (!resp) d["why"] = "the record does not decode into a response";
  } else {
    d["via"] = nullptr;
    d["class"] = nullptr;
    d["why"] = "the kit delivers nothing for this command (the messenger is its reader)";
  }
  return d;
}

Json describeRecord(const std::string& appId, const Dictionary& dict) {
  Json r = Json::object();
  Json notes = Json::array();
  r["appId"] = appId;

  const auto record = AppCommunicateData::initWithPropertList(dict);
  const Value& commandValue = dict.get("command");
  if (!commandValue.isString()) {
    notes.push_back(commandValue.isNull()
                        ? "no \"command\": the kit reads no field of this record"
                        : "\"command\" is not a string: the kit reads no field of this record");
  }
  const CommandInfo* info = commandInfo(record->command());
  r["command"] = namedNumber(static_cast<std::int64_t>(record->command()), info ? info->name : "unknown command");

  Json header = Json::object();
  for (const char* key : kHeaderKeys) {
    if (const Value* v = dict.find(key)) header[key] = valueNode(*v);
  }
  r["header"] = std::move(header);
  for (const char* key : {"result", "scene"}) {
    const Value* v = dict.find(key);
    if (v && !v->isString()) notes.push_back(std::string("\"") + key + "\" is not a string: the kit ignores it");
  }
  if (!dict.contains("returnFromApp") && commandValue.isString()) {
    notes.push_back("no \"returnFromApp\": the kit reads it as true");
  }

  Json fields = Json::object();
  fields["command"] = record->command();
  fields["returnFromApp"] = record->returnFromApp;
  fields["result"] = record->result;
  fields["scene"] = record->scene;
  fields["conversationAccount"] = str(record->conversationAccount);
  fields["openID"] = str(record->openID);
  fields["sdkVer"] = str(record->sdkVer);
  fields["lang"] = str(record->lang);
  fields["country"] = str(record->country);
  fields["toUserOpenID"] = str(record->toUserOpenID);
  fields["universalLink"] = str(record->universalLink);
  r["fields"] = std::move(fields);
  r["writtenFor"] = info ? Json(info->writtenFor) : Json(nullptr);

  // The media object's keys, named by its class, apart from the body.
  const MediaClass* media = nullptr;
  if (const Value* type = dict.find("objectType")) {
    const std::uint64_t code = type->unsignedValue();
    for (const MediaClass& m : mediaClasses()) {
      if (m.objectType == code) media = &m;
    }
    Json object = Json::object();
    object["objectType"] = namedNumber(static_cast<std::int64_t>(code), media ? media->className : "unknown");
    Json objectFields = Json::object();
    if (media) {
      for (const MediaField& f : media->fields) {
        if (const Value* v = dict.find(f.key)) {
          const std::string label =
              std::string_view(f.key) == f.field ? std::string(f.field) : std::string(f.field) + " (" + f.key + ")";
          objectFields[label] = valueNode(*v);
        }
      }
    }
    for (const char* key : kObjectDefaultKeys) {
      const bool named = media && std::any_of(media->fields.begin(), media->fields.end(),
                                              [key](const MediaField& f) { return std::string_view(f.key) == key; });
      if (!named && std::string_view(key) != "objectType") {
        if (const Value* v = dict.find(key)) objectFields[key] = valueNode(*v);
      }
    }
    object["fields"] = std::move(objectFields);
    r["mediaObject"] = std::move(object);
  }
  const auto inMediaObject = [media](std::string_view key) {
    if (!media) return false;
    if (std::find(std::begin(kObjectDefaultKeys), std::end(kObjectDefaultKeys), key) != std::end(kObjectDefaultKeys)) {
      return true;
    }
    return std::any_of(media->fields.begin(), media->fields.end(),
                       [key](const MediaField& f) { return key == f.key; });
  };

  Json body = Json::object();
  for (const auto& [key, value] : dict) {
    if (!isHeaderKey(key) && !inMediaObject(key)) body[key] = valueNode(value);
  }
  r["body"] = std::move(body);
  r["delivers"] = delivery(*record);
  r["notes"] = std::move(notes);
  return r;
}

// ============================================================================
// URLs
// ============================================================================

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Percent-decodes; "+" becomes a blank only when `plusIsSpace`.  `*bad` is
// set for a malformed escape (left as it is) or a result that is not UTF-8.
std::string percentDecode(std::string_view s, bool plusIsSpace, bool* bad) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && hexDigit(s[i + 1]) >= 0 && hexDigit(s[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexDigit(s[i + 1]) * 16 + hexDigit(s[i + 2])));
      i += 2;
    } else {
      if (s[i] == '%') *bad = true;
      out.push_back(plusIsSpace && s[i] == '+' ? ' ' : s[i]);
    }
  }
  if (!isWellFormedUtf8(out)) *bad = true;
  return out;
}

struct QueryItem {
  std::string key;
  std::string value;
};

// Splits a raw query at "&" and each piece at its first "=", decoding both.
std::vector<QueryItem> splitQuery(std::string_view raw, bool plusIsSpace, std::vector<std::string>* notes) {
  std::vector<QueryItem> items;
  std::size_t start = 0;
  while (start <= raw.size()) {
    std::size_t amp = raw.find('&', start);
    if (amp == std::string_view::npos) amp = raw.size();
    const std::string_view piece = raw.substr(start, amp - start);
    if (!piece.empty()) {
      const std::size_t eq = piece.find('=');
      bool bad = false;
      QueryItem item{percentDecode(piece.substr(0, eq), plusIsSpace, &bad),
                     eq == std::string_view::npos ? std::string() : percentDecode(piece.substr(eq + 1), plusIsSpace, &bad)};
      if (bad) notes->push_back("parameter \"" + std::string(piece.substr(0, eq)) + "\" has a malformed escape");
      if (eq == std::string_view::npos) notes->push_back("parameter \"" + item.key + "\" has no \"=\"");
      items.push_back(std::move(item));
    }
    start = amp + 1;
  }
  return items;
}

// `text` with the value of every token parameter replaced by the first
// digits of its SHA-256, so that a URL can be echoed.
std::string redactTokens(std::string_view text, bool plusIsSpace) {
  std::string out(text);
  const std::string key = std::string(kMireloAuthTokenKey) + "=";
  std::size_t pos = 0;
  while ((pos = out.find(key, pos)) != std::string::npos) {
    const std::size_t start = pos + key.size();
    std::size_t end = out.find_first_of("&#", start);
    if (end == std::string::npos) end = out.size();
    bool bad = false;
    const std::string token = percentDecode(std::string_view(out).substr(start, end - start), plusIsSpace, &bad);
    const std::string shown = "<sha256 " + sha256Prefix(token) + ">";
    out.replace(start, end - start, shown);
    pos = start + shown.size();
  }
  return out;
}

const QueryItem* findItem(const std::vector<QueryItem>& items, std::string_view key) {
  const QueryItem* found = nullptr;
  for (const QueryItem& i : items) {
    if (i.key == key) found = &i;  // the last one wins, as in the kit's parse
  }
  return found;
}

Json queryNode(const std::vector<QueryItem>& items) {
  Json q = Json::object();
  for (const QueryItem& i : items) {
    q[i.key] = i.key == kMireloAuthTokenKey ? Json("(token, sha256 " + sha256Prefix(i.value) + ")") : Json(i.value);
  }
  return q;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

struct LaunchCommand {
  const char* path;
  const char* request;
  const char* carries;
};

constexpr LaunchCommand kLaunchCommands[] = {
    {"auth", "SendAuthReq (SendTdiAuthReq when tdi_ext_info is present)", "scope and state in the query"},
    {"launchmraredirectingpage", "MRLaunchMraRedirectingPageReq", "the ticket in the query, the rest in the record"},
    {"pay", "PayReq", "the payment fields in the query"},
    {"jointpay", "MRJointPayReq", "the payment fields in the query"},
    {"offlinepay", "MROfflinePayReq", "nothing"},
    {"opentypewebview", "a web-view request (see type)", "type and a nested query"},
    {"openwebview", "OpenWebviewReq", "the url in the query"},
    {"openbusinesswebview", "MROpenBusinessWebViewReq", "type and a JSON query"},
    {"openranklist", "OpenRankListReq", "nothing"},
    {"jumpMra", "MRLaunchMiniProgramReq", "user name, path, type and extMsg in the query; extDic in the record"},
    {"jumpFakeNativeMra", "MROpenBusinessViewReq", "business type, query and extInfo; the rest in the record"},
    {"createchatroom", "CreateChatRoomReq", "the group in the query"},
    {"joinchatroom", "JoinChatRoomReq", "the group in the query"},
    {"cardpackage", "AddCardToMRCardPackageReq", "a JSON document as the query"},
    {"choosecard", "MRChooseCardReq", "a JSON document as the query"},
    {"chooseinvoice", "MRChooseInvoiceReq", "a JSON document as the query"},
    {"handlescanresult", "MRHandleScanResultReq", "the scan result in the query"},
    {"sendreq", "SendMessageToMRReq", "the message in the pasteboard record"},
    {"sendresp", "a response to the messenger's request", "the response in the pasteboard record"},
    {"finderShareVideo", "MRChannelShareVideoReq", "the request in the pasteboard record"},
    {"finderOpenProfile", "MRChannelOpenProfileReq", "the request in the pasteboard record"},
    {"finderOpenLive", "MRChannelOpenLiveReq", "the request in the pasteboard record"},
    {"finderOpenFeed", "MRChannelOpenFeedReq", "the request in the pasteboard record"},
    {"customerService", "MROpenCustomerServiceReq", "the request in the pasteboard record"},
    {"refreshTokenFail", "the kit's report of a token it could not record", "bundle id, share flag and error"},
};

constexpr const char* kWebViewTypes[] = {nullptr,
                                         "MRSubscribeMsgReq",
                                         "MRInvoiceAuthInsertReq",
                                         "MRNontaxPayReq",
                                         "MRPayInsuranceReq",
                                         "MRSubscribeMiniProgramMsgReq"};

struct AnswerHandler {
  const char* name;
  const char* handler;
  const char* response;
};

// In the order the kit offers an answer to its handlers; the first whose
// name begins the answer takes it.
constexpr AnswerHandler kAnswerHandlers[] = {
    {"refreshToken", "handleRefreshTokenOpenUrl", "none: the kit records the token and re-sends the pending request"},
    {"resendContextReqByScheme", "handleResendContextReqBySchemeOpenUrl",
     "none: the kit re-sends the pending request by scheme"},
    {"oauth", "handleAuthOpenUrl", "SendAuthResp (SendTdiAuthResp when tdi_ext_info is not empty)"},
    {"launchmraredirectingpage", "handleLaunchMraRedirectingPage", "MRLaunchMraRedirectingPageResp"},
    {"pay", "handlePayOpenUrl", "PayResp"},
    {"jointpay", "handleJointPayOpenUrl", "MRJointPayResp"},
    {"offlinepay", "handleOfflinePayUrl", "MROfflinePayResp"},
    {"wapoauth", "handleWapOAuthOpenUrl", "the web sign-in's result (only while a web sign-in runs)"},
    {"cardPackage", "handleAddCardOpenUrl", "AddCardToMRCardPackageResp"},
    {"choosecard", "handleChooseCard", "MRChooseCardResp"},
    {"chooseinvoice", "handleChooseInvoice", "MRChooseInvoiceResp"},
    {"openwebview", "handleOpenWebviewOpenUrl", "OpenWebviewResp"},
    {"openbusinesswebview", "handleOpenBusinessWebviewOpenUrl", "MROpenBusinessWebViewResp"},
    {"openranklist", "handleOpenRankList", "OpenRankListResp"},
    {"opentypewebview", "handleOpenTypeWebView", "by mr_internal_resptype"},
};

const char* webViewResponse(std::string_view type) {
  if (type == "subscribemessage") return "MRSubscribeMsgResp";
  if (type == "invoice_auth_insert") return "MRInvoiceAuthInsertResp";
  if (type == "nontaxpay") return "MRNontaxPayResp";
  if (type == "payinsurance") return "MRPayInsuranceResp";
  if (type == "subscribeminiprogrammsg" || type == "5") return "MRSubscribeMiniProgramMsgResp";
  return nullptr;
}

// The identity parameters that every launch URL may carry, after the
// command's own parameters.
void identity(const std::vector<QueryItem>& items, Json* report) {
  const QueryItem* token = findItem(items, kMireloAuthTokenKey);
  const QueryItem* context = findItem(items, kMireloAuthContextIdKey);
  const QueryItem* bundle = findItem(items, kMireloAppBundleIdKey);
  const QueryItem* degrade = findItem(items, kMireloDegradeLaunchKey);
  (*report)["token"] = token ? tokenNode(token->value) : Json(nullptr);
  (*report)["contextId"] = context ? Json(context->value) : Json(nullptr);
  (*report)["bundleId"] = bundle ? Json(bundle->value) : Json(nullptr);
  (*report)["degraded"] = degrade != nullptr && degrade->value == "1";
}

// The JSON document that makes up the query of the card commands, without
// the identity parameters appended behind it.
Json jsonQuery(std::string_view raw, Json* notes) {
  while (true) {
    const std::size_t amp = raw.rfind('&');
    if (amp == std::string_view::npos || raw.substr(amp + 1, 7) != "mirelo_") break;
    raw = raw.substr(0, amp);
  }
  bool bad = false;
  const std::string text = percentDecode(raw, false, &bad);
  Json parsed = Json::parse(text, nullptr, false);
  if (parsed.is_discarded()) {
    notes->push_back("the query is not a JSON document");
    return Json(text);
  }
  return parsed;
}

InspectResult launchUrl(const URL& url, bool byScheme, std::string_view afterBase, Json report) {
  Json notes = Json::array();
  report["direction"] = "launch: host to messenger";
  report["base"] = byScheme ? Json{{"kind", "scheme"}, {"prefix", "mirelo://app/<app id>/"}}
                            : Json{{"kind", "universal link"},
                                   {"prefix", std::string("https://") + kMireloUniversalLinkHost + "/app/<app id>/"}};
  // afterBase: "<app id>/<command>/..." up to the query.
  const std::size_t slash = afterBase.find('/');
  const std::string appId(afterBase.substr(0, slash));
  if (appId.empty()) return failure("a messenger URL without an app id after \"app/\"");
  report["appId"] = appId;
  std::string path = slash == std::string_view::npos ? std::string() : std::string(afterBase.substr(slash + 1));
  if (slash == std::string_view::npos) notes.push_back("no \"/\" after the app id");
  std::string name = path.substr(0, path.find('/'));

  Json command = Json::object();
  const LaunchCommand* known = nullptr;
  for (const LaunchCommand& c : kLaunchCommands) {
    if (name == c.path) known = &c;
  }
  const std::string rawQuery = url.query().str();
  std::vector<std::string> queryNotes;
  const bool jsonCommand = name == "cardpackage" || name == "choosecard" || name == "chooseinvoice";
  std::vector<QueryItem> items = splitQuery(rawQuery, false, &queryNotes);
  if (name.empty()) {
    command = nullptr;
    notes.push_back("no command: the URL only opens the messenger");
  } else {
    command["path"] = path;
    command["request"] = known ? Json(known->request) : Json(nullptr);
    command["carries"] = known ? Json(known->carries) : Json(nullptr);
    if (!known) notes.push_back("\"" + name + "\" is not a command the kit sends");
  }
  if (name == "opentypewebview") {
    const QueryItem* type = findItem(items, "type");
    const long t = type ? std::strtol(type->value.c_str(), nullptr, 10) : 0;
    command["request"] = t >= 1 && t <= 5 ? Json(kWebViewTypes[t]) : Json(nullptr);
    if (const QueryItem* nested = findItem(items, "query")) {
      std::vector<std::string> nestedNotes;
      command["nestedQuery"] = queryNode(splitQuery(nested->value, false, &nestedNotes));
    }
  }
  if (jsonCommand) {
    command["json"] = jsonQuery(rawQuery, &notes);
    // Only the identity parameters behind the document are plain pairs.
    std::vector<QueryItem> identityItems;
    for (QueryItem& i : items) {
      if (i.key.rfind("mirelo_", 0) == 0) identityItems.push_back(std::move(i));
    }
    items = std::move(identityItems);
    queryNotes.clear();
  }
  for (std::string& n : queryNotes) notes.push_back(std::move(n));
  report["command"] = std::move(command);
  report["query"] = queryNode(items);
  identity(items, &report);
  if (byScheme && report["token"] != nullptr) notes.push_back("a scheme launch carries a token; the kit never sends one");
  if (!byScheme && report["degraded"] == true) notes.push_back("the degrade mark belongs on scheme URLs");
  const QueryItem* context = findItem(items, kMireloAuthContextIdKey);
  if (context && context->value == kSelfCheckContextId) notes.push_back("the universal-link self-check's test launch");
  report["notes"] = std::move(notes);
  return success(std::move(report));
}

InspectResult answerUrl(const URL& url, std::string_view prefix, std::string_view baseKind, const std::string& appId,
                        std::string_view tail, Json report, Json notes) {
  report["url"] = redactTokens(url.absoluteString(), true);
  report["direction"] = "answer: messenger to host";
  report["base"] = Json{{"kind", baseKind}, {"prefix", std::string(prefix)}};
  report["appId"] = appId;
  const std::string name(tail.substr(0, tail.find_first_of("?#")));
  std::vector<std::string> queryNotes;
  // The kit unescapes answer values with "+" as a blank.
  const std::vector<QueryItem> items = splitQuery(url.query().str(), true, &queryNotes);
  for (std::string& n : queryNotes) notes.push_back(std::move(n));

  Json command = Json::object();
  command["name"] = name;
  const AnswerHandler* handler = nullptr;
  for (const AnswerHandler& h : kAnswerHandlers) {
    if (tail.substr(0, std::string_view(h.name).size()) == h.name) {
      handler = &h;
      break;
    }
  }
  if (handler) {
    command["handler"] = handler->handler;
    command["response"] = handler->response;
    if (std::string_view(handler->name) == "opentypewebview") {
      const QueryItem* type = findItem(items, "mr_internal_resptype");
      const char* resp = type ? webViewResponse(type->value) : nullptr;
      command["response"] = resp ? Json(resp) : Json(nullptr);
      if (!resp) notes.push_back("no sub-handler takes this mr_internal_resptype");
    }
  } else {
    command["handler"] = nullptr;
    command["response"] = "read from the pasteboard record (its command decides)";
  }
  report["command"] = std::move(command);
  report["query"] = queryNode(items);
  identity(items, &report);
  const QueryItem* context = findItem(items, kMireloAuthContextIdKey);
  if (context && context->value == kSelfCheckContextId) {
    notes.push_back("the return leg of the universal-link self-check");
  }
  report["notes"] = std::move(notes);
  return success(std::move(report));
}

// ============================================================================
// The keychain item
// ============================================================================

Json archiveReport(const Data& archive, Json* report, Json* notes) {
  const KeyedUnarchiver u(archive);
  Json a = Json::object();
  if (u.raised()) {
    a["valid"] = false;
    (*report)["token"] = nullptr;
    (*report)["kitReads"] = "no token: Unarchive failed: " + u.exceptionDescription();
    return a;
  }
  a["valid"] = true;
  a["rootClass"] = str(u.rootClassName());
  const Value& root = u.rootObject();
  if (u.rootIsNil()) {
    (*report)["token"] = nullptr;
    (*report)["kitReads"] = "no token: the archive's root is nil";
  } else if (!u.rootIsKindOf("NSData") || !root.isData()) {
    if (root.isString()) (*report)["token"] = tokenNode(*root.asString());
    else (*report)["token"] = nullptr;
    (*report)["kitReads"] = "no token: the root is " + u.rootClassName().description() + ", not NSData";
    notes->push_back("the kit archives the token's UTF-8 bytes as NSData; a string root is not read");
  } else if (root.asData()->empty()) {
    (*report)["token"] = nullptr;
    (*report)["kitReads"] = "no token: the data is empty";
  } else {
    const std::string_view bytes = root.asData()->view();
    (*report)["token"] = tokenNode(bytes);
    (*report)["kitReads"] = isWellFormedUtf8(bytes) ? "the token" : "no token: the bytes are not UTF-8 text";
  }
  return a;
}

}  // namespace

// ============================================================================

InspectResult inspectPasteboard(const Data& item) {
  std::string error;
  PlistFormat format = PlistFormat::Binary;
  const Value top = decodePropertyList(item, &error, &format);
  if (top.isNull()) return failure("not a property list: " + error);
  const Dictionary* dict = top.asDictionary();
  if (!dict) return failure("not a pasteboard item: the property list is not a dictionary");
  if (dict->contains("command")) {
    return failure("a bare record without its app id: the item holds {app id: record, \"old_text\": text}");
  }

  Json report = Json::object();
  Json notes = Json::array();
  report["format"] = format == PlistFormat::Binary ? "binary property list" : "XML property list";
  const Value& oldText = dict->get(kOldTextKey);
  report["old_text"] = oldText.isString() ? Json(*oldText.asString()) : Json(nullptr);
  if (!oldText.isNull() && !oldText.isString()) notes.push_back("\"old_text\" is not a string: the kit ignores it");

  Json records = Json::array();
  for (const auto& [key, value] : *dict) {
    if (key == kOldTextKey) continue;
    if (const Dictionary* record = value.asDictionary()) {
      records.push_back(describeRecord(key, *record));
    } else {
      notes.push_back("key \"" + key + "\" holds no record (not a dictionary)");
    }
  }
  if (records.empty()) return failure("no record: the item has no app id key holding a record");
  if (records.size() > 1) notes.push_back("more than one record: the kit writes exactly one");
  report["records"] = std::move(records);
  report["notes"] = std::move(notes);
  return success(std::move(report));
}

InspectResult inspectUrl(std::string_view text, const UrlOptions& options) {
  if (text.empty()) return failure("not a URL: empty text");
  const std::optional<URL> url = URL::fromString(text);
  if (!url) return failure("not a URL: \"" + redactTokens(text, false) + "\"");
  const String scheme = url->scheme();
  if (scheme.empty()) return failure("not an absolute URL (no scheme): \"" + redactTokens(text, false) + "\"");
  const std::string& abs = url->absoluteString();
  const std::string afterScheme = abs.substr(scheme.str().size() + 1);  // after "<scheme>:"
  const String host = url->host();
  Json report = Json::object();
  report["url"] = redactTokens(abs, false);

  // The messenger's scheme: mirelo://app/<app id>/<command>
  if (equalsIgnoringCase(scheme.view(), "mirelo")) {
    if (!equalsIgnoringCase(host.view(), "app") || afterScheme.rfind("//", 0) != 0) {
      return failure("a messenger scheme URL that is not mirelo://app/<app id>/...");
    }
    std::string_view rest = std::string_view(afterScheme).substr(2 + host.str().size());
    rest = rest.substr(0, rest.find_first_of("?#"));
    if (rest.empty() || rest.front() != '/') return failure("a messenger scheme URL without an app id");
    return launchUrl(*url, true, rest.substr(1), std::move(report));
  }
  if (scheme.str().rfind("mirelo", 0) == 0 && !equalsIgnoringCase(scheme.view(), options.appId)) {
    return failure("\"" + scheme.str() + "://\" is a capability probe of the messenger, not a launch or answer URL");
  }

  const bool https = equalsIgnoringCase(scheme.view(), "https");
  if (https && equalsIgnoringCase(host.view(), kMireloUniversalLinkHost)) {
    const std::string path = url->path().str();
    if (path.rfind("/app/", 0) != 0) return failure("a URL on the messenger's host whose path does not begin with /app/");
    return launchUrl(*url, false, std::string_view(path).substr(5), std::move(report));
  }
  if (equalsIgnoringCase(scheme.view(), "http") || (https && host.empty())) {
    return failure("neither a launch URL nor an answer URL: \"" + redactTokens(abs, false) + "\"");
  }

  Json notes = Json::array();
  if (!https) {
    // The host's scheme is its app id: <app id>://<name>?...
    if (afterScheme.rfind("//", 0) != 0) return failure("an answer URL must begin with \"<app id>://\"");
    if (!options.appId.empty() && scheme.str() != options.appId) {
      notes.push_back("the scheme is not the app id " + options.appId + ": the kit refuses this URL");
    }
    return answerUrl(*url, scheme.str() + "://", "scheme", scheme.str(), std::string_view(afterScheme).substr(2),
                     std::move(report), std::move(notes));
  }

  // The host's universal link: <universal link><app id>/<name>?...
  std::string link;
  std::string appId;
  std::string_view tail;
  if (!options.universalLink.empty()) {
    link = options.universalLink;
    if (link.back() != '/') link += "/";
    if (abs.rfind(link, 0) != 0) return failure("the URL does not begin with the universal link " + link);
    const std::string_view rest = std::string_view(abs).substr(link.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return failure("no app id after the universal link " + link);
    appId = std::string(rest.substr(0, slash));
    tail = rest.substr(slash + 1);
    if (!options.appId.empty() && appId != options.appId) {
      notes.push_back("the universal link is not followed by the app id " + options.appId + ": the kit refuses this URL");
    }
  } else if (!options.appId.empty()) {
    const std::string needle = "/" + options.appId + "/";
    const std::size_t at = abs.find(needle, scheme.str().size() + 3 + host.str().size());
    if (at == std::string::npos) return failure("the URL holds no \"/" + options.appId + "/\" segment");
    link = abs.substr(0, at + 1);
    appId = options.appId;
    tail = std::string_view(abs).substr(at + needle.size());
  } else {
    // <link path>/<app id>/<name>: the last segment names the answer.
    const std::string path = url->path().str();
    const std::size_t last = path.rfind('/');
    const std::size_t before = last == std::string::npos || last == 0 ? std::string::npos : path.rfind('/', last - 1);
    if (before == std::string::npos) {
      return failure("cannot tell the app id in this https URL: pass --app-id or --universal-link");
    }
    appId = path.substr(before + 1, last - before - 1);
    const std::size_t pathAt = abs.find(path, scheme.str().size() + 3);
    link = abs.substr(0, pathAt + before + 1);
    tail = std::string_view(abs).substr(pathAt + last + 1);
    notes.push_back("the universal link was taken to be " + link + "; pass --universal-link to be sure");
  }
  return answerUrl(*url, link, "universal link", appId, tail, std::move(report), std::move(notes));
}

InspectResult inspectKeychain(const Data& item) {
  std::string error;
  PlistFormat format = PlistFormat::Binary;
  const Value top = decodePropertyList(item, &error, &format);
  if (top.isNull()) return failure("not a property list: " + error);
  const Dictionary* dict = top.asDictionary();
  if (!dict) return failure("neither a keyed archive nor a keychain item: the property list is not a dictionary");

  namespace kc = platform::keychain;
  Json report = Json::object();
  Json notes = Json::array();
  Data archive;
  if (dict->contains("$archiver")) {
    report["item"] = nullptr;
    // The unarchiver reads the binary form; an XML archive is re-encoded.
    archive = format == PlistFormat::Binary ? item : bplist::encode(top);
  } else if (dict->contains(kc::kSecValueData) || dict->contains(kc::kSecAttrService)) {
    Json attrs = Json::object();
    const String cls = dict->mrApi_stringForKey(kc::kSecClass);
    const String service = dict->mrApi_stringForKey(kc::kSecAttrService);
    const String account = dict->mrApi_stringForKey(kc::kSecAttrAccount);
    const String accessible = dict->mrApi_stringForKey(kc::kSecAttrAccessible);
    attrs["class"] = str(cls);
    attrs["service"] = str(service);
    const std::string servicePrefix = std::string(kMireloKeyChainService) + "_";
    attrs["bundleId"] = service.hasPrefix(servicePrefix) ? Json(service.str().substr(servicePrefix.size()))
                                                         : Json(nullptr);
    attrs["account"] = str(account);
    attrs["accessible"] = str(accessible);
    report["item"] = std::move(attrs);
    if (cls != kc::kSecClassGenericPassword) notes.push_back("not a generic-password item");
    if (!service.hasPrefix(servicePrefix)) {
      notes.push_back("the service is not \"" + servicePrefix + "<bundle id>\": the kit does not find this item");
    }
    if (account != kMireloKeyChainAccount) {
      notes.push_back(std::string("the account is not \"") + kMireloKeyChainAccount + "\": the kit does not find this item");
    }
    if (accessible != kc::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly) {
      notes.push_back("not accessible after first unlock, this device only: the kit's query does not match it");
    }
    const Data* value = dict->mrApi_dataForKey(kc::kSecValueData);
    if (!value) return failure("a keychain item without its value data (\"v_Data\")");
    archive = *value;
  } else {
    return failure("neither a keyed archive nor a keychain item (no \"$archiver\", no \"v_Data\")");
  }
  Json archiveNode = archiveReport(archive, &report, &notes);
  report["archive"] = std::move(archiveNode);
  // Keep the reading order: item, archive, token, kitReads, notes.
  Json ordered = Json::object();
  for (const char* key : {"item", "archive", "token", "kitReads"}) ordered[key] = report[key];
  ordered["notes"] = std::move(notes);
  return success(std::move(ordered));
}

}  // namespace mirelo::tooling
