// The outgoing command strings: the short path and query that name a request
// on the launch URL.  The bulk of a request travels in the pasteboard
// record; the messenger reads only what is put here from the URL.
//
// Every generator checks the request's fields in a fixed order; the first
// check that fails logs its line (level 0, "mrlog:Error:...") and the
// generator answers null.  A generator without a "req is nil!" check reads a
// null request as an empty one, the way a message to nil answers 0 and nil on
// the messenger's platform, so it refuses through its first field check or
// builds the command of an empty request.
//
// The JSON-carrying commands (business web view, card package, choose card
// and choose invoice) are in OutgoingCardCommands.cc.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/model/Model.h"
#include "util/Format.h"
#include "util/Log.h"

namespace mirelo {

namespace {

// Size limits, in UTF-16 units.
constexpr std::size_t kUrlLimit = 10240;
constexpr std::size_t kTemplateIdLimit = 10240;
constexpr std::size_t kGroupIdLimit = 1024;
constexpr std::size_t kCreateChatRoomNameLimit = 512;
constexpr std::size_t kCreateChatRoomNickNameLimit = 512;
constexpr std::size_t kJoinChatRoomNickNameLimit = 1024;
constexpr std::size_t kChatRoomExtMsgLimit = 2048;
constexpr std::size_t kChannelIdLimit = 1024;
constexpr std::size_t kCustomerServiceLimit = 10240;

// The request, or an empty one of its class when it is null.
template <class T>
const T& orEmpty(const std::shared_ptr<T>& req) {
  static const T kEmpty{};
  return req ? *req : kEmpty;
}

// One query argument: everything with a meaning in a URL is escaped.
String escaped(const String& s) { return s.mrApi_stringByEscapingForURLArgument(); }
// A whole value or query.
String encoded(const String& s) { return s.mrApi_stringByEncodeUrl(); }
// "" in place of null.
String emptyIfNull(const String& s) { return s.isNull() ? String("") : s; }

template <class... A>
String command(std::string_view fmt, const A&... args) {
  return String(format(fmt, args...));
}

// Logs a refusal and answers the null command.
template <class... A>
String refuse(std::string_view fmt, const A&... args) {
  mrlog::error(fmt, args...);
  return String();
}

// The query of a web-view command goes out already encoded; the messenger
// opens the page of `type` with it.
String webViewCommand(std::int32_t type, const String& encodedQuery) {
  auto carrier = std::make_shared<MROpenTypeWebViewReq>();
  carrier->type = type;
  carrier->query = encodedQuery;
  return MRApiInternal::genOpenTypeWebViewExtraUrl(carrier);
}

// Nontax pay, pay insurance and invoice authorisation: the page address is
// encoded into "url=", and the whole query is encoded once more; the
// messenger decodes twice.
String urlWebViewCommand(std::int32_t type, const String& urlString) {
  if (urlString.empty()) return refuse("url string is null");
  const String query = command("url=%@", encoded(urlString));
  return webViewCommand(type, encoded(query));
}

// Pay and joint pay: the same fields, checks and query under two paths.
template <class Req>
String payCommand(const std::shared_ptr<Req>& req, std::string_view fmt) {
  if (!req) return refuse("req is nil!");
  if (req->package.empty()) return refuse("package is nil");
  if (req->partnerId.empty()) return refuse("partnerId is nil");
  if (req->prepayId.empty()) return refuse("prepayId is nil");
  if (req->sign.empty()) return refuse("sign is nil");
  if (req->nonceStr.empty()) return refuse("nonceStr is nil");
  return command(fmt, escaped(req->nonceStr), escaped(req->package), escaped(req->partnerId),
                 escaped(req->prepayId), req->timeStamp, escaped(req->sign), "SHA1");
}

// The groupId check shared by both chat-room commands.
bool groupIdAcceptable(const String& groupId) {
  const std::size_t length = groupId.length();
  if (length == 0 || length > kGroupIdLimit) {
    mrlog::error("groupId[length:%@] invaild, limit length[%@]", length, kGroupIdLimit);
    return false;
  }
  return true;
}

// Channel feed and live room: both ids present and at most 1024 long.
String channelFeedCommand(const String& feedID, const String& nonceID, std::string_view prefix,
                          std::string_view path) {
  const std::string p(prefix);
  if (feedID.empty()) return refuse(p + " feedID.length = 0");
  if (feedID.length() > kChannelIdLimit) return refuse(p + " feedID.length too long");
  if (nonceID.empty()) return refuse(p + " nonceID.length = 0");
  if (nonceID.length() > kChannelIdLimit) return refuse(p + " nonceID.length too long");
  return String(path);
}

// One row of the dispatch table: a request of class T (or a subclass) is
// handed to `gen`, whose answer replaces what earlier rows produced.
template <class T, class Gen>
void dispatchRow(const std::shared_ptr<BaseReq>& req, String& url, Gen gen) {
  if (auto typed = kindCast<T>(req)) url = gen(typed);
}

}  // namespace

// Every row is tested on its own, in this order, and the last row that
// matches decides; SendTdiAuthReq takes the sign-in row as a SendAuthReq.
// A request of any other class (MROpenTypeWebViewReq included: the kit makes
// those itself) has no command.
String MRApiInternal::genExtraUrlByReq(const std::shared_ptr<BaseReq>& req,
                               const std::shared_ptr<AppCommunicateData>& appData) {
  String url;
  dispatchRow<SendAuthReq>(req, url, [&](const auto& r) { return genAuthReqExtraUrl(r, appData); });
  dispatchRow<MRLaunchMraRedirectingPageReq>(req, url, genLaunchMraRedirectingPageReq);
  dispatchRow<PayReq>(req, url, genPayReqExtraUrl);
  dispatchRow<MRJointPayReq>(req, url, genJointPayReqExtraUrl);
  dispatchRow<MROfflinePayReq>(req, url, genOffileOfflinePayReqExtraUrl);
  dispatchRow<MRNontaxPayReq>(req, url, genNontaxPayReqExtraUrl);
  dispatchRow<MRPayInsuranceReq>(req, url, genPayInsuranceReqExtraUrl);
  dispatchRow<AddCardToMRCardPackageReq>(req, url, genAddCardToMRCardPackageReqExtraUrl);
  dispatchRow<MRChooseCardReq>(req, url, genChooseCardReqExtraUrl);
  dispatchRow<MRChooseInvoiceReq>(req, url, genChooseInvoiceReqExtraUrl);
  dispatchRow<OpenWebviewReq>(req, url, genOpenWebviewExtralUrl);
  dispatchRow<MROpenBusinessWebViewReq>(req, url, genOpenBusinessWebviewExtraUrl);
  dispatchRow<OpenRankListReq>(req, url, genOpenRankListExtraUrl);
  dispatchRow<CreateChatRoomReq>(req, url, genCreateChatRoomExtraUrl);
  dispatchRow<JoinChatRoomReq>(req, url, genJoinChatRoomExtraUrl);
  dispatchRow<MRHandleScanResultReq>(req, url, genHandleScanResultExtraUrl);
  dispatchRow<MRSubscribeMsgReq>(req, url, gensubscribeMsg);
  dispatchRow<MRLaunchMiniProgramReq>(req, url,
                                      [&](const auto& r) { return genLaunchMiniProgramExtraUrl(r, appData); });
  dispatchRow<MRInvoiceAuthInsertReq>(req, url, genInvoiceAuthInsertReqExtraUrl);
  dispatchRow<MRSubscribeMiniProgramMsgReq>(req, url, genHandleSubscribeMiniProgramMsgReqExtraUrl);
  dispatchRow<MROpenBusinessViewReq>(req, url, genOpenBusinessViewExtraUrl);
  dispatchRow<SendMessageToMRReq>(req, url,
                                  [&](const auto& r) { return genSendMessageToMRReqExtraUrl(r, appData); });
  dispatchRow<MRChannelShareVideoReq>(req, url, genFinderShareVideoExtraUrl);
  dispatchRow<MRChannelOpenProfileReq>(req, url, genFinderOpenProfileExtraUrl);
  dispatchRow<MRChannelOpenLiveReq>(req, url, genFinderOpenLiveExtraUrl);
  dispatchRow<MRChannelOpenFeedReq>(req, url, genFinderOpenFeedExtraUrl);
  dispatchRow<MROpenCustomerServiceReq>(req, url, genOpenCustomerServiceExtraUrl);
  return url;
}

// ---- sign-in ------------------------------------------------------------------

String MRApiInternal::genAuthReqExtraUrl(const std::shared_ptr<SendAuthReq>& req,
                                 const std::shared_ptr<AppCommunicateData>& appData) {
  (void)appData;  // the record travels on its own
  if (!req) return refuse("req is nil!");
  if (req->scope.empty()) return refuse("scope invaild");
  String url = command("auth/?scope=%@&state=%@", escaped(req->scope), escaped(emptyIfNull(req->state)));
  if (const auto tdi = kindCast<SendTdiAuthReq>(req); tdi && !tdi->tdiExtInfo.empty()) {
    url = command("%@&tdi_ext_info=%@", url, tdi->tdiExtInfo);
  }
  return url;
}

String MRApiInternal::genLaunchMraRedirectingPageReq(const std::shared_ptr<MRLaunchMraRedirectingPageReq>& req) {
  if (!req) return refuse("req is nil!");
  if (req->ticket.empty()) return refuse("ticket invalid");
  return command("launchmraredirectingpage/?ticket=%@", req->ticket);
}

// ---- payment ------------------------------------------------------------------

String MRApiInternal::genPayReqExtraUrl(const std::shared_ptr<PayReq>& req) {
  return payCommand(req, "pay/?nonceStr=%@&package=%@&partnerId=%@&prepayId=%@&timeStamp=%u&sign=%@&signType=%@");
}

String MRApiInternal::genJointPayReqExtraUrl(const std::shared_ptr<MRJointPayReq>& req) {
  return payCommand(req,
                    "jointpay/?nonceStr=%@&package=%@&partnerId=%@&prepayId=%@&timeStamp=%u&sign=%@&signType=%@");
}

String MRApiInternal::genOffileOfflinePayReqExtraUrl(const std::shared_ptr<MROfflinePayReq>& req) {
  if (!req) return refuse("req is nil!");
  return "offlinepay/";
}

String MRApiInternal::genNontaxPayReqExtraUrl(const std::shared_ptr<MRNontaxPayReq>& req) {
  return urlWebViewCommand(MROpenWebViewTypeNontaxPay, orEmpty(req).urlString);
}

String MRApiInternal::genPayInsuranceReqExtraUrl(const std::shared_ptr<MRPayInsuranceReq>& req) {
  return urlWebViewCommand(MROpenWebViewTypePayInsurance, orEmpty(req).urlString);
}

// ---- web views, subscriptions, lists ---------------------------------------------

String MRApiInternal::genInvoiceAuthInsertReqExtraUrl(const std::shared_ptr<MRInvoiceAuthInsertReq>& req) {
  return urlWebViewCommand(MROpenWebViewTypeInvoiceAuthInsert, orEmpty(req).urlString);
}

// The template id and the reserved text go in as they are (a null one as
// "(null)"); the query is encoded once.
String MRApiInternal::gensubscribeMsg(const std::shared_ptr<MRSubscribeMsgReq>& req) {
  const MRSubscribeMsgReq& r = orEmpty(req);
  if (r.templateId.length() > kTemplateIdLimit) return refuse("templateId length over limit[%@]", kTemplateIdLimit);
  const String query = command("scene=%d&template_id=%@&reserved=%@", r.scene, r.templateId, r.reserved);
  return webViewCommand(MROpenWebViewTypeSubscribeMsg, encoded(query));
}

String MRApiInternal::genHandleSubscribeMiniProgramMsgReqExtraUrl(const std::shared_ptr<MRSubscribeMiniProgramMsgReq>& req) {
  const MRSubscribeMiniProgramMsgReq& r = orEmpty(req);
  if (r.miniProgramAppid.empty()) return refuse("miniprogram appid is nil");
  const String query = command("miniProgramAppid=%@", r.miniProgramAppid);
  return webViewCommand(MROpenWebViewTypeSubscribeMiniProgramMsg, encoded(query));
}

String MRApiInternal::genOpenTypeWebViewExtraUrl(const std::shared_ptr<MROpenTypeWebViewReq>& req) {
  const MROpenTypeWebViewReq& r = orEmpty(req);
  return command("%@?type=%d&query=%@", "opentypewebview/", r.type, r.query);
}

String MRApiInternal::genOpenWebviewExtralUrl(const std::shared_ptr<OpenWebviewReq>& req) {
  if (!req) return refuse("req is nil!");
  if (req->url.length() > kUrlLimit) return refuse("url length over limit[%@]", kUrlLimit);
  return command("openwebview/?url=%@", encoded(req->url));
}

String MRApiInternal::genOpenRankListExtraUrl(const std::shared_ptr<OpenRankListReq>& req) {
  if (!req) return refuse("req is nil!");
  return "openranklist/";
}

// ---- mini programs and business views ------------------------------------------

// extDic travels in the record only.
String MRApiInternal::genLaunchMiniProgramExtraUrl(const std::shared_ptr<MRLaunchMiniProgramReq>& req,
                                           const std::shared_ptr<AppCommunicateData>& appData) {
  (void)appData;
  if (!req) return refuse("req is nil!");
  if (req->userName.empty()) return refuse("userName invaild");
  if (req->miniProgramType > MRMiniProgramTypePreview) return refuse("miniProgramType invaild");
  const String base = command("jumpMra/?userName=%@", req->userName);
  return command("%@&path=%@&miniProgramType=%@&extMsg=%@", base, emptyIfNull(escaped(req->path)),
                 req->miniProgramType, emptyIfNull(escaped(req->extMsg)));
}

String MRApiInternal::genOpenBusinessViewExtraUrl(const std::shared_ptr<MROpenBusinessViewReq>& req) {
  if (!req) return refuse("req is nil!");
  if (req->businessType.empty()) return refuse("businessType invaild");
  return command("jumpFakeNativeMra/?businessType=%@&query=%@&extInfo=%@", req->businessType,
                 emptyIfNull(escaped(req->query)), emptyIfNull(escaped(req->extInfo)));
}

// ---- chat rooms -------------------------------------------------------------------

String MRApiInternal::genCreateChatRoomExtraUrl(const std::shared_ptr<CreateChatRoomReq>& req) {
  if (!req) return refuse("req is nil!");
  if (!groupIdAcceptable(req->groupId)) return String();
  if (req->chatRoomName.length() > kCreateChatRoomNameLimit) {
    return refuse("chatRoomName length over limit[%@]", kCreateChatRoomNameLimit);
  }
  if (req->chatRoomNickName.length() > kCreateChatRoomNickNameLimit) {
    return refuse("chatRoomNickName length over limit[%@]", kCreateChatRoomNickNameLimit);
  }
  if (req->extMsg.length() > kChatRoomExtMsgLimit) return refuse("extMsg length over limit[%@]", kChatRoomExtMsgLimit);
  std::string url = format("createchatroom/?groupid=%@", req->groupId);
  if (!req->chatRoomName.empty()) url += format("&chatroomname=%@", escaped(req->chatRoomName));
  if (!req->chatRoomNickName.empty()) url += format("&chatroomnickname=%@", escaped(req->chatRoomNickName));
  if (!req->extMsg.empty()) url += format("&extmsg=%@", req->extMsg);
  return String(std::move(url));
}

// The nickname may be twice as long as when creating a room.
String MRApiInternal::genJoinChatRoomExtraUrl(const std::shared_ptr<JoinChatRoomReq>& req) {
  if (!req) return refuse("req is nil!");
  if (!groupIdAcceptable(req->groupId)) return String();
  if (req->chatRoomNickName.length() > kJoinChatRoomNickNameLimit) {
    return refuse("chatRoomNickName length over limit[%@]", kJoinChatRoomNickNameLimit);
  }
  if (req->extMsg.length() > kChatRoomExtMsgLimit) return refuse("extMsg length over limit[%@]", kChatRoomExtMsgLimit);
  std::string url = format("joinchatroom/?groupid=%@", req->groupId);
  if (!req->chatRoomNickName.empty()) url += format("&chatroomnickname=%@", escaped(req->chatRoomNickName));
  if (!req->extMsg.empty()) url += format("&extmsg=%@", req->extMsg);
  return String(std::move(url));
}

// ---- scan, share --------------------------------------------------------------------

String MRApiInternal::genHandleScanResultExtraUrl(const std::shared_ptr<MRHandleScanResultReq>& req) {
  const MRHandleScanResultReq& r = orEmpty(req);
  if (r.scanResult.empty()) return "handlescanresult/";
  return command("%@?result=%@", "handlescanresult/", escaped(r.scanResult));
}

// The message itself travels in the record; only a message to a specified
// session needs both open ids.
String MRApiInternal::genSendMessageToMRReqExtraUrl(const std::shared_ptr<SendMessageToMRReq>& req,
                                            const std::shared_ptr<AppCommunicateData>& appData) {
  (void)appData;
  const SendMessageToMRReq& r = orEmpty(req);
  if (r.scene == MRSceneSpecifiedSession) {
    if (r.openID.empty()) return refuse("send specifiedSession baseReq.openId can not be null");
    if (r.toUserOpenId.empty()) return refuse("send specifiedSession toUserOpenId can not be null");
  }
  return "sendreq/?";
}

// ---- channel videos and customer service -----------------------------------------------

String MRApiInternal::genFinderShareVideoExtraUrl(const std::shared_ptr<MRChannelShareVideoReq>& req) {
  if (orEmpty(req).localIdentifier.empty()) return refuse("ShareVideo: localIdentifier.length = 0");
  return "finderShareVideo/?";
}

String MRApiInternal::genFinderOpenProfileExtraUrl(const std::shared_ptr<MRChannelOpenProfileReq>& req) {
  const String& userName = orEmpty(req).userName;
  if (userName.empty()) return refuse("OpenProfile: userName.length = 0");
  if (userName.length() > kChannelIdLimit) return refuse("OpenProfile: userName.length > 0");
  return "finderOpenProfile/?";
}

String MRApiInternal::genFinderOpenLiveExtraUrl(const std::shared_ptr<MRChannelOpenLiveReq>& req) {
  const MRChannelOpenLiveReq& r = orEmpty(req);
  return channelFeedCommand(r.feedID, r.nonceID, "OpenLive:", "finderOpenLive/?");
}

String MRApiInternal::genFinderOpenFeedExtraUrl(const std::shared_ptr<MRChannelOpenFeedReq>& req) {
  const MRChannelOpenFeedReq& r = orEmpty(req);
  return channelFeedCommand(r.feedID, r.nonceID, "OpenFeed:", "finderOpenFeed/?");
}

// The messenger's own texts: the empty corpid is reported as "OpenFeed:".
String MRApiInternal::genOpenCustomerServiceExtraUrl(const std::shared_ptr<MROpenCustomerServiceReq>& req) {
  const MROpenCustomerServiceReq& r = orEmpty(req);
  if (r.url.empty()) return refuse("OpenCustomerService: url.length = 0");
  if (r.url.length() > kCustomerServiceLimit) return refuse("OpenCustomerService: url.length too long");
  if (r.corpid.empty()) return refuse("OpenFeed: corpid.length = 0");
  if (r.corpid.length() > kCustomerServiceLimit) return refuse("OpenCustomerService: corpid.length too long");
  return "customerService/?";
}

}  // namespace mirelo
