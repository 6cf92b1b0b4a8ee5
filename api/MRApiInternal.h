// The kit's own steps behind MRApi: the send pipeline with its automatic
// re-send, the launch strategy, the command-URL builders and handlers, and
// the self-check's legs.  Not installed: hosts call MRApi; the kit and its
// tests call these.  Same threading as MRApi: main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "mirelo/MRApi.h"

namespace mirelo {

class AppCommunicateData;

// Whether the messenger was opened, and whether by universal link.
using MRLaunchCompletion = std::function<void(bool success, bool launchedByUniversalLink)>;
// Whether the system opened a URL.
using MROpenCompletion = std::function<void(bool success)>;

class MRApiInternal {
 public:
  MRApiInternal() = delete;

  // -- send pipeline --
  static void sendReq(const std::shared_ptr<BaseReq>& req, bool isAutoResend, bool forceScheme,
                      MRSendCompletion completion);
  // The same, also reporting to `handler` (may be empty): a refusal at
  // once (on the run loop), the answer through the request tracker.
  static void sendReq(const std::shared_ptr<BaseReq>& req, bool isAutoResend, bool forceScheme,
                      MRSendCompletion completion, MRResultHandler<BaseResp> handler);
  // sendResp reporting the refusal (reason None when the messenger opened).
  static void sendResp(const std::shared_ptr<BaseResp>& resp, std::function<void(const MRRefusal&)> completion);
  // A random sign-in state: 32 lower-case hex digits.
  static std::string genState();
  static bool fillAppData(const std::shared_ptr<AppCommunicateData>& appData, const std::shared_ptr<BaseReq>& req);
  static bool fillAppData(const std::shared_ptr<AppCommunicateData>& appData,
                          const std::shared_ptr<BaseResp>& resp);
  // The target of the delayed re-send of the pending context request.
  static void delaySendContextReq(const std::shared_ptr<BaseReq>& contextReq, bool forceScheme);
  // SHA-256 hex of "<time>_<address of req>_<next id>".
  static std::string genContextId(const std::shared_ptr<BaseReq>& req);
  // The next value of the process-wide counter (first 1), under a lock.
  static std::uint32_t genAutoIncreaceID();
  // The identity of MRApi as the owner of delayed calls.
  static const void* delayedCallTarget();

  // -- launch strategy --
  static void launchMireloWithExtralUrl(const String& extraUrl, bool forceScheme, const String& contextId,
                                        MRLaunchCompletion completion);
  static void launchApplicationWithUrl(const std::optional<URL>& url, MROpenCompletion completion);
  // The target of the delayed launch after a failed token refresh:
  // "isShare" (number), "errCode" (number), "errMsg" (string).
  static void delayLaunchMRWithRefreshTokenFail(const Dictionary& params);

  // -- outgoing command URLs (null when the request is refused) --
  static String genExtraUrlByReq(const std::shared_ptr<BaseReq>& req,
                                 const std::shared_ptr<AppCommunicateData>& appData);
  static String genAuthReqExtraUrl(const std::shared_ptr<SendAuthReq>& req,
                                   const std::shared_ptr<AppCommunicateData>& appData);
  static String genLaunchMraRedirectingPageReq(const std::shared_ptr<MRLaunchMraRedirectingPageReq>& req);
  static String genPayReqExtraUrl(const std::shared_ptr<PayReq>& req);
  static String genJointPayReqExtraUrl(const std::shared_ptr<MRJointPayReq>& req);
  static String genOffileOfflinePayReqExtraUrl(const std::shared_ptr<MROfflinePayReq>& req);
  static String genNontaxPayReqExtraUrl(const std::shared_ptr<MRNontaxPayReq>& req);
  static String genPayInsuranceReqExtraUrl(const std::shared_ptr<MRPayInsuranceReq>& req);
  static String genOpenWebviewExtralUrl(const std::shared_ptr<OpenWebviewReq>& req);
  static String genOpenBusinessWebviewExtraUrl(const std::shared_ptr<MROpenBusinessWebViewReq>& req);
  static String genOpenRankListExtraUrl(const std::shared_ptr<OpenRankListReq>& req);
  static String genLaunchMiniProgramExtraUrl(const std::shared_ptr<MRLaunchMiniProgramReq>& req,
                                             const std::shared_ptr<AppCommunicateData>& appData);
  static String genOpenBusinessViewExtraUrl(const std::shared_ptr<MROpenBusinessViewReq>& req);
  static String genCreateChatRoomExtraUrl(const std::shared_ptr<CreateChatRoomReq>& req);
  static String genJoinChatRoomExtraUrl(const std::shared_ptr<JoinChatRoomReq>& req);
  static String genAddCardToMRCardPackageReqExtraUrl(const std::shared_ptr<AddCardToMRCardPackageReq>& req);
  static String genChooseCardReqExtraUrl(const std::shared_ptr<MRChooseCardReq>& req);
  static String genChooseInvoiceReqExtraUrl(const std::shared_ptr<MRChooseInvoiceReq>& req);
  static String genHandleScanResultExtraUrl(const std::shared_ptr<MRHandleScanResultReq>& req);
  static String gensubscribeMsg(const std::shared_ptr<MRSubscribeMsgReq>& req);
  static String genInvoiceAuthInsertReqExtraUrl(const std::shared_ptr<MRInvoiceAuthInsertReq>& req);
  static String genHandleSubscribeMiniProgramMsgReqExtraUrl(const std::shared_ptr<MRSubscribeMiniProgramMsgReq>& req);
  static String genOpenTypeWebViewExtraUrl(const std::shared_ptr<MROpenTypeWebViewReq>& req);
  static String genSendMessageToMRReqExtraUrl(const std::shared_ptr<SendMessageToMRReq>& req,
                                              const std::shared_ptr<AppCommunicateData>& appData);
  static String genFinderShareVideoExtraUrl(const std::shared_ptr<MRChannelShareVideoReq>& req);
  static String genFinderOpenProfileExtraUrl(const std::shared_ptr<MRChannelOpenProfileReq>& req);
  static String genFinderOpenLiveExtraUrl(const std::shared_ptr<MRChannelOpenLiveReq>& req);
  static String genFinderOpenFeedExtraUrl(const std::shared_ptr<MRChannelOpenFeedReq>& req);
  static String genOpenCustomerServiceExtraUrl(const std::shared_ptr<MROpenCustomerServiceReq>& req);

  // -- incoming command handlers (true when the URL was theirs) --
  using Delegate = std::shared_ptr<MRApiDelegate>;
  static bool handleAuthOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleLaunchMraRedirectingPage(const std::optional<URL>& url, const Delegate& delegate);
  static bool handlePayOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleJointPayOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOfflinePayUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOpenWebviewOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOpenBusinessWebviewOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOpenRankList(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleAddCardOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleChooseCard(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleChooseInvoice(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOpenTypeWebView(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleOpenTypeWebViewWithSubscribeMsg(const String& query, const Delegate& delegate);
  static bool handleOpenTypeWebViewWithInvoiceAuthInsert(const String& query, const Delegate& delegate);
  static bool handleOpenTypeWebViewWithNontaxpay(const String& query, const Delegate& delegate);
  static bool handleOpenTypeWebViewWithPayInsurance(const String& query, const Delegate& delegate);
  static bool handleOpenTypeWebViewWithSubscribeMiniProgramMsg(const String& query, const Delegate& delegate);
  static bool handleRefreshTokenOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static bool handleResendContextReqBySchemeOpenUrl(const std::optional<URL>& url, const Delegate& delegate);
  static void checkAndRecordTokenFromOpenUrlParams(const Dictionary& params);

  // -- self-check --
  static void checkUniversalLinkCallback(const MRULCheckCompletion& completion, MRULCheckStep step, bool success,
                                         const String& errorInfo, const String& suggestion);
  static bool handleOpenUniversalLinkCheck(const std::optional<URL>& url);
};

}  // namespace mirelo
