// The handlers of the command URLs with which the messenger answers: each
// recognises its command name in the URL, reads the result from the query
// and hands a response to the host's delegate.  The refresh-token and
// resend-by-scheme handlers serve the kit itself: they record the token the
// messenger hands back and re-send the request that waited for it.
//
// Query values come from another app: every read is typed and nil-safe, a
// missing key leaves its field empty, a value that is not a number reads as
// 0.  Nothing here throws.
#include "commands/IncomingHandlers.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"
#include "mirelo/platform/Platform.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"
#include "webauth/WapAuthHandler.h"

namespace mirelo {

namespace {

// Delay of the kit's own follow-up calls after a token answer.
constexpr double kDelayedCallSeconds = 0.1;

constexpr const char* kSubscribeMsgType = "subscribemessage";
constexpr const char* kInvoiceAuthInsertType = "invoice_auth_insert";
constexpr const char* kNontaxPayType = "nontaxpay";
constexpr const char* kPayInsuranceType = "payinsurance";
constexpr const char* kSubscribeMiniProgramMsgType = "subscribeminiprogrammsg";
constexpr std::int64_t kSubscribeMiniProgramMsgWebViewType = 5;

// The URL's query as a dictionary of strings (empty without a URL or query).
Dictionary queryParams(const std::optional<URL>& url) {
  return url ? MireloApiUtil::parseURLParams(url->query()) : Dictionary();
}

// A query value, URL-unescaped.
String unescapedString(const Dictionary& params, std::string_view key) {
  return params.mrApi_stringForKey(key).mrApi_stringByUnescapingFromURLArgument();
}

// An integer read for a 32-bit field: the platform assigns the wide value
// to the narrow field, keeping the low 32 bits.
std::int32_t int32For(const Dictionary& params, std::string_view key) {
  return static_cast<std::int32_t>(params.mrApi_integerForKey(key));
}

std::uint32_t uint32For(const Dictionary& params, std::string_view key) {
  return static_cast<std::uint32_t>(params.mrApi_integerForKey(key));
}

// Every answer is matched to the pending request on its way to the
// delegate.
void deliver(const MRApiInternal::Delegate& delegate, const std::shared_ptr<BaseResp>& resp) {
  MRRequestTracker::shared().deliver(resp, delegate);
}

// Removes percent escapes as UTF-8; a "+" stays a "+".  Null when an escape
// is malformed or the bytes are not UTF-8.
String percentUnescaped(const String& text) {
  if (text.isNull()) return String();
  std::string guarded;
  guarded.reserve(text.byteLength());
  for (char c : text.view()) {
    if (c == '+') guarded += "%2B";
    else guarded += c;
  }
  return String(std::move(guarded)).mrApi_stringByUnescapingFromURLArgument();
}

// The scalar members of a JSON object as a dictionary, so that the
// collection accessors read them as they read any other foreign dictionary.
// Nested arrays and objects are left out: no item key expects one.
Dictionary dictionaryOfJsonObject(const nlohmann::json& object) {
  Dictionary out;
  for (auto it = object.begin(); it != object.end(); ++it) {
    const nlohmann::json& v = it.value();
    switch (v.type()) {
      case nlohmann::json::value_t::string:
        out.set(it.key(), Value(v.get_ref<const std::string&>()));
        break;
      case nlohmann::json::value_t::boolean:
        out.set(it.key(), Value(v.get<bool>()));
        break;
      case nlohmann::json::value_t::number_integer:
        out.set(it.key(), Value(static_cast<long long>(v.get<std::int64_t>())));
        break;
      case nlohmann::json::value_t::number_unsigned:
        out.set(it.key(), Value(static_cast<unsigned long long>(v.get<std::uint64_t>())));
        break;
      case nlohmann::json::value_t::number_float:
        out.set(it.key(), Value(v.get<double>()));
        break;
      default:
        break;
    }
  }
  return out;
}

// The card list of an add-card, choose-card or choose-invoice answer: the
// value is percent-unescaped and read as a JSON array; each element that is
// an object becomes one item, in order; items without a card id are
// dropped.  Anything else (text that is not UTF-8 or not JSON, a raw NUL
// included) gives an empty list.
// The deepest a card list's JSON may nest: a list of objects needs two
// levels; anything near this bound is not a card list.
constexpr int kMaxCardListDepth = 512;

// Whether `text` nests arrays and objects deeper than `limit`, counted in
// one pass outside strings, before the parser builds anything.
bool nestsDeeperThan(std::string_view text, int limit) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

template <class Item, class Fill>
std::shared_ptr<std::vector<std::shared_ptr<Item>>> cardList(const String& listValue, Fill fill) {
  auto items = std::make_shared<std::vector<std::shared_ptr<Item>>>();
  if (listValue.empty()) return items;
  const String text = percentUnescaped(listValue);
  // JSON never holds a raw NUL; the parser would take one for the end of
  // the text and accept whatever follows it.
  if (text.isNull() || text.contains(std::string_view("\0", 1))) return items;
  if (nestsDeeperThan(text.view(), kMaxCardListDepth)) {
    mrlog::error("card list nests deeper than %d levels", kMaxCardListDepth);
    return items;
  }
  const nlohmann::json doc = nlohmann::json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
  if (doc.is_discarded() || !doc.is_array()) return items;
  for (const nlohmann::json& element : doc) {
    if (!element.is_object()) continue;
    auto item = std::make_shared<Item>();
    fill(*item, dictionaryOfJsonObject(element));
    if (item->cardId.empty()) continue;
    items->push_back(std::move(item));
  }
  return items;
}

template <class Item>
void fillChosenItem(Item& item, const Dictionary& d) {
  item.cardId = d.mrApi_stringForKey("card_id");
  item.encryptCode = d.mrApi_stringForKey("encrypt_code");
  item.appID = d.mrApi_stringForKey("app_id");
}

// The web-view type of an "opentypewebview" answer equals `type` as a string.
bool respTypeIs(const Dictionary& params, std::string_view type) {
  return params.mrApi_stringForKey(incoming::kRespTypeKey) == type;
}

// The pay-like answers: "returnKey", "ret" and "notifyStr".
template <class Resp>
bool handlePayLike(const char* command, const std::optional<URL>& url, const MRApiInternal::Delegate& delegate) {
  if (!MRApi::isURLContainApi(command, url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<Resp>();
  resp->returnKey = params.mrApi_stringForKey("returnKey");
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("notifyStr");
  deliver(delegate, resp);
  return true;
}

// The web-view answers of the order kind: "ret" and "mr_order_id".
template <class Resp>
bool handleOrderWebView(const char* type, const String& query, const MRApiInternal::Delegate& delegate) {
  const Dictionary params = MireloApiUtil::parseURLParams(query);
  if (!respTypeIs(params, type)) return false;
  auto resp = std::make_shared<Resp>();
  resp->errCode = int32For(params, "ret");
  resp->mrOrderId = params.mrApi_stringForKey("mr_order_id");
  deliver(delegate, resp);
  return true;
}

platform::RunLoop& runLoop() { return *platform::current().runLoop; }

}  // namespace

bool incoming::isSubscribeMiniProgramMsgType(const Dictionary& params) {
  const String type = params.mrApi_stringForKey(kRespTypeKey);
  if (type == kSubscribeMiniProgramMsgType) return true;
  return type.empty() && params.mrApi_integerForKey(kRespTypeKey) == kSubscribeMiniProgramMsgWebViewType;
}

// ---- sign-in ------------------------------------------------------------------

bool MRApiInternal::handleAuthOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("oauth", url)) return false;
  const Dictionary params = queryParams(url);

  std::shared_ptr<SendAuthResp> resp;
  const String tdiExtInfo = params.mrApi_stringForKey("tdi_ext_info");
  if (!tdiExtInfo.empty()) {
    auto tdi = std::make_shared<SendTdiAuthResp>();
    tdi->tdiAuthBuffer = MireloApiUtil::DecodeWithBase64(unescapedString(params, "tdi_auth_buffer"));
    tdi->tdiExtInfo = tdiExtInfo;
    tdi->tdiAuthParams = MireloApiUtil::DecodeWithBase64(unescapedString(params, "tdi_auth_params"));
    resp = tdi;
  } else {
    resp = std::make_shared<SendAuthResp>();
  }

  if (params.contains("code")) {
    const String code = params.mrApi_stringForKey("code");
    if (code == "authdeny") {
      resp->errCode = ErrCodeAuthDeny;
    } else {
      resp->errCode = ErrCodeSuccess;
      resp->code = code;
    }
  } else {
    resp->errCode = ErrCodeCommon;
  }
  if (params.contains("reason")) resp->errStr = params.mrApi_stringForKey("reason");
  if (params.contains("state")) resp->state = params.mrApi_stringForKey("state");
  if (params.contains("lang")) resp->lang = params.mrApi_stringForKey("lang");
  if (params.contains("country")) resp->country = params.mrApi_stringForKey("country");

  checkAndRecordTokenFromOpenUrlParams(params);
  WapAuthHandler::shareWapAuthHandlerInstance().endWapAuth();
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleLaunchMraRedirectingPage(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("launchmraredirectingpage", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<MRLaunchMraRedirectingPageResp>();
  resp->ticket = params.mrApi_stringForKey("ticket");
  resp->errCode = int32For(params, "errcode");
  resp->errStr = params.mrApi_stringForKey("errstr");
  deliver(delegate, resp);
  return true;
}

// ---- payment --------------------------------------------------------------------

bool MRApiInternal::handlePayOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  return handlePayLike<PayResp>("pay", url, delegate);
}

bool MRApiInternal::handleJointPayOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  return handlePayLike<MRJointPayResp>("jointpay", url, delegate);
}

bool MRApiInternal::handleOfflinePayUrl(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("offlinepay", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<MROfflinePayResp>();
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("errStr");
  deliver(delegate, resp);
  return true;
}

// ---- web views and lists ----------------------------------------------------------

bool MRApiInternal::handleOpenWebviewOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("openwebview", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<OpenWebviewResp>();
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("notifyStr");
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleOpenBusinessWebviewOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("openbusinesswebview", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<MROpenBusinessWebViewResp>();
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("errmsg");
  resp->result = unescapedString(params, "resultInfo");
  resp->businessType = uint32For(params, "type");
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleOpenRankList(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("openranklist", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<OpenRankListResp>();
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("notifyStr");
  deliver(delegate, resp);
  return true;
}

// ---- cards and invoices -------------------------------------------------------------

bool MRApiInternal::handleAddCardOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  // The answer's name has a capital P, unlike the "cardpackage/" command.
  if (!MRApi::isURLContainApi("cardPackage", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<AddCardToMRCardPackageResp>();
  resp->errCode = int32For(params, "errCode");
  resp->cardAry = cardList<MRCardItem>(params.mrApi_stringForKey("addCardInfo"),
                                       [](MRCardItem& item, const Dictionary& d) {
                                         item.cardId = d.mrApi_stringForKey("card_id");
                                         item.extMsg = d.mrApi_stringForKey("card_ext");
                                         item.encryptCode = d.mrApi_stringForKey("code");
                                         item.cardState = static_cast<std::uint32_t>(d.mrApi_integerForKey("is_succ"));
                                       });
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleChooseCard(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("choosecard", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<MRChooseCardResp>();
  resp->errCode = int32For(params, "errCode");
  resp->cardAry = cardList<MRCardItem>(params.mrApi_stringForKey("chooseCardInfo"), fillChosenItem<MRCardItem>);
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleChooseInvoice(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("chooseinvoice", url)) return false;
  const Dictionary params = queryParams(url);
  auto resp = std::make_shared<MRChooseInvoiceResp>();
  resp->errCode = int32For(params, "errCode");
  resp->cardAry =
      cardList<MRInvoiceItem>(params.mrApi_stringForKey("chooseInvoiceInfo"), fillChosenItem<MRInvoiceItem>);
  deliver(delegate, resp);
  return true;
}

// ---- typed web views -------------------------------------------------------------------

bool MRApiInternal::handleOpenTypeWebView(const std::optional<URL>& url, const Delegate& delegate) {
  if (!MRApi::isURLContainApi("opentypewebview", url)) return false;
  const String query = url->query();
  return handleOpenTypeWebViewWithSubscribeMsg(query, delegate) ||
         handleOpenTypeWebViewWithInvoiceAuthInsert(query, delegate) ||
         handleOpenTypeWebViewWithNontaxpay(query, delegate) ||
         handleOpenTypeWebViewWithPayInsurance(query, delegate) ||
         handleOpenTypeWebViewWithSubscribeMiniProgramMsg(query, delegate);
}

bool MRApiInternal::handleOpenTypeWebViewWithSubscribeMsg(const String& query, const Delegate& delegate) {
  const Dictionary params = MireloApiUtil::parseURLParams(query);
  if (!respTypeIs(params, kSubscribeMsgType)) return false;
  auto resp = std::make_shared<MRSubscribeMsgResp>();
  resp->errCode = int32For(params, "ret");
  resp->errStr = params.mrApi_stringForKey("errmsg");
  resp->openId = params.mrApi_stringForKey("openid");
  resp->templateId = params.mrApi_stringForKey("template_id");
  resp->action = params.mrApi_stringForKey("action");
  resp->scene = uint32For(params, "scene");
  resp->reserved = params.mrApi_stringForKey("reserved");
  deliver(delegate, resp);
  return true;
}

bool MRApiInternal::handleOpenTypeWebViewWithInvoiceAuthInsert(const String& query, const Delegate& delegate) {
  return handleOrderWebView<MRInvoiceAuthInsertResp>(kInvoiceAuthInsertType, query, delegate);
}

bool MRApiInternal::handleOpenTypeWebViewWithNontaxpay(const String& query, const Delegate& delegate) {
  return handleOrderWebView<MRNontaxPayResp>(kNontaxPayType, query, delegate);
}

bool MRApiInternal::handleOpenTypeWebViewWithPayInsurance(const String& query, const Delegate& delegate) {
  return handleOrderWebView<MRPayInsuranceResp>(kPayInsuranceType, query, delegate);
}

bool MRApiInternal::handleOpenTypeWebViewWithSubscribeMiniProgramMsg(const String& query, const Delegate& delegate) {
  const Dictionary params = MireloApiUtil::parseURLParams(query);
  if (!incoming::isSubscribeMiniProgramMsgType(params)) return false;
  auto resp = std::make_shared<MRSubscribeMiniProgramMsgResp>();
  resp->errCode = int32For(params, "ret");
  resp->openId = unescapedString(params, "openid");
  resp->unionId = unescapedString(params, "unionid");
  resp->nickName = unescapedString(params, "nickname");
  resp->errStr = params.mrApi_stringForKey("errmsg");
  deliver(delegate, resp);
  return true;
}

// ---- token and context -------------------------------------------------------------------

void MRApiInternal::checkAndRecordTokenFromOpenUrlParams(const Dictionary& params) {
  const String token = unescapedString(params, kMireloAuthTokenKey);
  const String contextId = unescapedString(params, kMireloAuthContextIdKey);
  MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
  if (identity.checkAndRecordTokenToKeychain(token, contextId, nullptr)) identity.clearContext();
}

bool MRApiInternal::handleRefreshTokenOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  (void)delegate;
  if (!MRApi::isURLContainApi("refreshToken", url)) return false;
  const Dictionary params = queryParams(url);
  const String token = unescapedString(params, kMireloAuthTokenKey);
  const String contextId = unescapedString(params, kMireloAuthContextIdKey);

  MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
  MRError error;
  if (identity.checkAndRecordTokenToKeychain(token, contextId, &error)) {
    std::shared_ptr<BaseReq> contextReq = identity.contextRequest();
    identity.clearContext();
    runLoop().performAfter(delayedCallTarget(), kDelayedCallSeconds,
                           [contextReq] { MRApiInternal::delaySendContextReq(contextReq, false); });
    return true;
  }

  // The request stays pending: the messenger is told of the failure and may
  // still ask for it again.
  const bool hasError = !error.domain.isNull();
  if (hasError) {
    mrlog::error("check or record token fail, error:%@", error);
  } else {
    mrlog::error("check or record token fail, error:%@", nullptr);
  }
  // The messenger is told once per pending request, and never when nothing
  // is pending (a bare URL from another app): each telling is a launch that
  // overwrites the user's pasteboard.
  if (!identity.contextRequest() || identity.refreshFailureReported()) {
    mrlog::line("refresh token fail already reported or no request pending, nothing relaunched");
    return true;
  }
  identity.setRefreshFailureReported(true);
  Dictionary failure;
  failure.set("isShare", Value(isKindOf<SendMessageToMRReq>(identity.contextRequest())));
  if (hasError) {
    failure.set("errCode", Value(error.code));
    failure.set("errMsg", Value(error.description()));
  }
  runLoop().performAfter(delayedCallTarget(), kDelayedCallSeconds,
                         [failure] { MRApiInternal::delayLaunchMRWithRefreshTokenFail(failure); });
  return true;
}

bool MRApiInternal::handleResendContextReqBySchemeOpenUrl(const std::optional<URL>& url, const Delegate& delegate) {
  (void)delegate;
  if (!MRApi::isURLContainApi("resendContextReqByScheme", url)) return false;
  mrlog::line("handle resend context req by scheme");
  const Dictionary params = queryParams(url);
  const String contextId = unescapedString(params, kMireloAuthContextIdKey);
  MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
  if (!identity.checkContextID(contextId)) {
    mrlog::error("cid not match");
    return false;
  }
  std::shared_ptr<BaseReq> contextReq = identity.contextRequest();
  identity.clearContext();
  runLoop().performAfter(delayedCallTarget(), kDelayedCallSeconds,
                         [contextReq] { MRApiInternal::delaySendContextReq(contextReq, true); });
  return true;
}

}  // namespace mirelo
