// What became of one request: the typed result that a host gets for each
// call of MRApi::send, MRApi::sendAuth and MireloPayExt::pay, the reasons a
// call was refused, and what the kit tells a host about answers that belong
// to no request.
//
// A result handler is called exactly once per request, on the main thread,
// never from inside the call that sent the request (a refusal is reported on
// the main run loop right after the call returns).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>

#include "mirelo/String.h"
#include "mirelo/model/Model.h"

namespace mirelo {

// ---- reasons as values ----------------------------------------------------

// Why the kit refused a call or could not open the messenger.
enum class MRRefusalReason : std::int64_t {
  None = 0,
  // registration
  AppIdEmpty,             // "register fail, appId is nil!"
  UniversalLinkEmpty,     // "register fail, universal link is nil!"
  UniversalLinkNotHttps,  // "register fail, universal link must be https link!"
  UniversalLinkHasQuery,  // "register fail, universal link can not contain query!"
  QuerySchemeMissing,     // "mirelo"/"mireloULAPI" missing from LSApplicationQueriesSchemes
  MireloSchemeRegistered, // the host's URL types register a messenger scheme
  // sending (requests, responses, payments)
  InvalidRequest,    // no request or response was given
  NotRegistered,     // registerApp has not succeeded
  RefusedByLimit,    // a field broke its limit or a required field is empty; the message names it
  PasteboardFailed,  // the record could not be written
  MessengerMissing,  // the messenger is not installed
  LaunchFailed,      // the messenger is installed but did not open
  // universal-link self-check
  SystemTooOld,      // below iOS 12 launches go by scheme
  MessengerTooOld,   // the messenger lacks the universal-link interface
  InnerError,        // the kit could not build the check's request
  ReturnedByScheme,  // the messenger came back by scheme, not by universal link
};

// A refusal: the reason and the line the kit logged for it (without the
// "mrlog:Error:" prefix).  Empty (reason None) when nothing was refused.
struct MRRefusal {
  MRRefusalReason reason = MRRefusalReason::None;
  std::string message;
  explicit operator bool() const { return reason != MRRefusalReason::None; }
};

// ---- outcomes of one request ------------------------------------------------

// The messenger answered with success (errCode 0).
template <class Resp>
struct MRAnswered {
  std::shared_ptr<Resp> resp;
};

// The user cancelled: either the messenger answered with errCode -2
// (`resp` set), or the user came back to the host without answering and no
// answer arrived within the grace period (`resp` null, `byReturn` true).
template <class Resp>
struct MRCancelled {
  std::shared_ptr<Resp> resp;
  bool byReturn = false;
};

// The messenger answered with another code: `errCode` and `errStr` as it
// sent them (a sign-in denial is -4).
template <class Resp>
struct MRFailed {
  std::int32_t errCode = 0;
  String errStr;
  std::shared_ptr<Resp> resp;
};

// The messenger was never opened; nothing reached it.
struct MRNotOpened {
  MRRefusal refusal;
};

// A newer request replaced this one before its answer came.
struct MRSuperseded {};

// The result of a request whose answer is a `Resp`.  Switch over it with
// std::visit or std::get_if; no downcast is needed.
template <class Resp>
using MRResult = std::variant<MRAnswered<Resp>, MRCancelled<Resp>, MRFailed<Resp>, MRNotOpened, MRSuperseded>;

template <class Resp>
using MRResultHandler = std::function<void(const MRResult<Resp>&)>;

// The response class that answers a request class.  A request the host
// holds only as BaseReq is answered with BaseResp.
template <class Req>
struct MRResponseFor {
  using type = BaseResp;
};
#define MIRELO_RESPONSE_FOR(Req, Resp) \
  template <>                          \
  struct MRResponseFor<Req> {          \
    using type = Resp;                 \
  };
MIRELO_RESPONSE_FOR(SendMessageToMRReq, SendMessageToMRResp)
MIRELO_RESPONSE_FOR(SendAuthReq, SendAuthResp)
MIRELO_RESPONSE_FOR(SendTdiAuthReq, SendAuthResp)
MIRELO_RESPONSE_FOR(PayReq, PayResp)
MIRELO_RESPONSE_FOR(MRJointPayReq, MRJointPayResp)
MIRELO_RESPONSE_FOR(MROfflinePayReq, MROfflinePayResp)
MIRELO_RESPONSE_FOR(MRNontaxPayReq, MRNontaxPayResp)
MIRELO_RESPONSE_FOR(MRPayInsuranceReq, MRPayInsuranceResp)
MIRELO_RESPONSE_FOR(OpenRankListReq, OpenRankListResp)
MIRELO_RESPONSE_FOR(OpenWebviewReq, OpenWebviewResp)
MIRELO_RESPONSE_FOR(MROpenBusinessWebViewReq, MROpenBusinessWebViewResp)
MIRELO_RESPONSE_FOR(AddCardToMRCardPackageReq, AddCardToMRCardPackageResp)
MIRELO_RESPONSE_FOR(MRChooseCardReq, MRChooseCardResp)
MIRELO_RESPONSE_FOR(MRChooseInvoiceReq, MRChooseInvoiceResp)
MIRELO_RESPONSE_FOR(MRInvoiceAuthInsertReq, MRInvoiceAuthInsertResp)
MIRELO_RESPONSE_FOR(MRSubscribeMsgReq, MRSubscribeMsgResp)
MIRELO_RESPONSE_FOR(MRSubscribeMiniProgramMsgReq, MRSubscribeMiniProgramMsgResp)
MIRELO_RESPONSE_FOR(CreateChatRoomReq, CreateChatRoomResp)
MIRELO_RESPONSE_FOR(JoinChatRoomReq, JoinChatRoomResp)
MIRELO_RESPONSE_FOR(MRLaunchMiniProgramReq, MRLaunchMiniProgramResp)
MIRELO_RESPONSE_FOR(MRLaunchMraRedirectingPageReq, MRLaunchMraRedirectingPageResp)
MIRELO_RESPONSE_FOR(MROpenBusinessViewReq, MROpenBusinessViewResp)
MIRELO_RESPONSE_FOR(MROpenCustomerServiceReq, MROpenCustomerServiceResp)
MIRELO_RESPONSE_FOR(MRChannelShareVideoReq, MRChannelShareVideoResp)
MIRELO_RESPONSE_FOR(MRChannelOpenProfileReq, MRChannelOpenProfileResp)
MIRELO_RESPONSE_FOR(MRChannelOpenLiveReq, MRChannelOpenLiveResp)
MIRELO_RESPONSE_FOR(MRChannelOpenFeedReq, MRChannelOpenFeedResp)
#undef MIRELO_RESPONSE_FOR

// The untyped form the kit works with; `MRResult<Resp>` is made from it.
using MRAnyResult = MRResult<BaseResp>;

// Turns an untyped result into the typed one of `Resp`.  An answer of
// another class (which the kit never hands over) reads as failed with -1.
template <class Resp>
MRResult<Resp> typedResult(const MRAnyResult& any) {
  if constexpr (std::is_same_v<Resp, BaseResp>) {
    return any;
  } else {
    if (auto* a = std::get_if<MRAnswered<BaseResp>>(&any)) {
      if (auto r = kindCast<Resp>(a->resp)) return MRAnswered<Resp>{r};
      return MRFailed<Resp>{ErrCodeCommon, String(), nullptr};
    }
    if (auto* c = std::get_if<MRCancelled<BaseResp>>(&any)) return MRCancelled<Resp>{kindCast<Resp>(c->resp), c->byReturn};
    if (auto* f = std::get_if<MRFailed<BaseResp>>(&any)) return MRFailed<Resp>{f->errCode, f->errStr, kindCast<Resp>(f->resp)};
    if (auto* n = std::get_if<MRNotOpened>(&any)) return *n;
    return MRSuperseded{};
  }
}

// The default grace period, in seconds on the run loop's clock, between the
// host becoming active again and a pending request without an answer being
// reported cancelled (MRApi::setCancelGracePeriod).
inline constexpr double kMRDefaultCancelGracePeriod = 2.0;

// ---- answers that belong to no request --------------------------------------

// Whether answers that belong to no request still reach the delegate.
enum class MRAnswerPolicy : std::int64_t {
  // The default: the delegate receives every answer the messenger's URLs
  // carry, as it always did.  Result handlers only ever get matched answers.
  Standard = 0,
  // The delegate also stops receiving unsolicited answers, second copies,
  // answers of another kind than the pending request and answers whose
  // sign-in state does not match; a payment answer counts only while a
  // payment the kit launched is pending.
  Strict = 1,
};

// Why an answer did not reach any result handler.
enum class MRUnmatchedReason : std::int64_t {
  Unsolicited = 0,  // no request was pending
  WrongKind = 1,    // a request was pending, but of another kind
  WrongState = 2,   // a sign-in was pending with another state
  Duplicate = 3,    // a second copy of an answer already delivered
  Late = 4,         // the request was already reported cancelled or superseded
  OwnRecord = 5,    // the host's own record, still on the pasteboard
};

// One answer that reached no result handler.
struct MRUnmatchedAnswer {
  MRUnmatchedReason reason = MRUnmatchedReason::Unsolicited;
  // The answer (null for OwnRecord, which is never decoded).
  std::shared_ptr<BaseResp> resp;
  // The URL that brought it.
  std::string url;
  // Whether the delegate still received it (policy Standard; Late answers
  // under either policy).
  bool deliveredToDelegate = false;
};

using MRUnmatchedAnswerObserver = std::function<void(const MRUnmatchedAnswer&)>;

// A request that was pending when the process ended, as the kit kept it in
// the host's user defaults.
struct MRRestoredRequest {
  std::string requestClass;  // e.g. "PayReq"
  std::string command;       // e.g. "pay/"
  String state;              // the sign-in state, null for other requests
};

// Receives the result of a request sent by an earlier run of the process.
using MRRestoredResultHandler = std::function<void(const MRRestoredRequest&, const MRAnyResult&)>;

}  // namespace mirelo
