// The entry of the URLs that bring the messenger's answers back: recognise
// the URL as addressed to this registration, offer it to the self-check's
// return leg and to the command handlers, and otherwise read the app data
// record from the pasteboard and deliver the request or response it carries.
#include <cstdint>
#include <memory>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "api/MRRequestTracker.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"
#include "util/MainThread.h"
#include "webauth/WapAuthHandler.h"

namespace mirelo {

namespace {

// A row of the dispatch table.
enum class Decode { Req, Resp };

struct DispatchRow {
  std::uint64_t command;
  Decode decode;
  // Whether the decoded object has the class this command must carry.
  bool (*accepts)(const AppCommunicateData&, std::shared_ptr<BaseReq>*, std::shared_ptr<BaseResp>*);
  // The row whose class test follows a delivery (the channel rows), or 0.
  std::uint64_t continuesWith;
};

template <class T>
bool acceptsReq(const AppCommunicateData& data, std::shared_ptr<BaseReq>* req, std::shared_ptr<BaseResp>*) {
  *req = data.DataToReq();
  return isKindOf<T>(*req);
}

template <class T>
bool acceptsResp(const AppCommunicateData& data, std::shared_ptr<BaseReq>*, std::shared_ptr<BaseResp>* resp) {
  *resp = data.DataToResp();
  return isKindOf<T>(*resp);
}

constexpr DispatchRow kDispatchTable[] = {
    {kCommandMediaMessage, Decode::Req, acceptsReq<ShowMessageFromMRReq>, 0},
    {kCommandGetMessageReq, Decode::Req, acceptsReq<GetMessageFromMRReq>, 0},
    {kCommandSendMessageRespWithLocale, Decode::Resp, acceptsResp<SendMessageToMRResp>, 0},
    {kCommandSendMessageResp, Decode::Resp, acceptsResp<SendMessageToMRResp>, 0},
    {kCommandAuthResp, Decode::Resp, acceptsResp<SendAuthResp>, 0},
    {kCommandLaunchFromMRReq, Decode::Req, acceptsReq<LaunchFromMRReq>, 0},
    {kCommandCreateChatRoom, Decode::Resp, acceptsResp<CreateChatRoomResp>, 0},
    {kCommandJoinChatRoom, Decode::Resp, acceptsResp<JoinChatRoomResp>, 0},
    {kCommandLaunchMiniProgramResp, Decode::Resp, acceptsResp<MRLaunchMiniProgramResp>, 0},
    {kCommandBusinessView, Decode::Resp, acceptsResp<MROpenBusinessViewResp>, 0},
    // The channel rows are chained: after its delivery each applies the next
    // row's class test to a fresh decode of the same record, which an answer
    // of the earlier kind fails.  Only the feed row ends with success.
    {kCommandChannelShareVideo, Decode::Resp, acceptsResp<MRChannelShareVideoResp>, kCommandChannelOpenProfile},
    {kCommandChannelOpenProfile, Decode::Resp, acceptsResp<MRChannelOpenProfileResp>, kCommandChannelOpenLive},
    {kCommandChannelOpenLive, Decode::Resp, acceptsResp<MRChannelOpenLiveResp>, kCommandChannelOpenFeed},
    {kCommandChannelOpenFeed, Decode::Resp, acceptsResp<MRChannelOpenFeedResp>, 0},
    {kCommandOpenCustomerService, Decode::Resp, acceptsResp<MROpenCustomerServiceResp>, 0},
};

const DispatchRow* rowFor(std::uint64_t command) {
  for (const DispatchRow& row : kDispatchTable) {
    if (row.command == command) return &row;
  }
  return nullptr;
}

// Delivers the record by its command number.  The invalid lines name the
// record's own command, also on a chained row.
bool dispatch(const AppCommunicateData& data, const MRApiInternal::Delegate& delegate) {
  const std::uint64_t command = data.command();
  for (const DispatchRow* row = rowFor(command); row != nullptr;) {
    std::shared_ptr<BaseReq> req;
    std::shared_ptr<BaseResp> resp;
    if (!row->accepts(data, &req, &resp)) {
      if (row->decode == Decode::Req) {
        mrlog::error("req[%@] is invaild for command[%@]", req, command);
      } else {
        mrlog::error("resp[%@] is invaild for command[%@]", resp, command);
      }
      return false;
    }
    if (row->decode == Decode::Req) {
      delegate->onReq(req);
    } else {
      MRRequestTracker::shared().deliver(resp, delegate);
    }
    row = row->continuesWith != 0 ? rowFor(row->continuesWith) : nullptr;
  }
  return true;
}

using UrlHandler = bool (*)(const std::optional<URL>&, const MRApiInternal::Delegate&);

bool wapOAuthHandBack(const std::optional<URL>& url, const MRApiInternal::Delegate&) {
  return WapAuthHandler::shareWapAuthHandlerInstance().handleWapOAuthOpenUrl(url);
}

// The handlers that read their result from the URL itself, in the order
// they are offered the URL.
constexpr UrlHandler kUrlHandlers[] = {
    MRApiInternal::handleRefreshTokenOpenUrl,
    MRApiInternal::handleResendContextReqBySchemeOpenUrl,
    MRApiInternal::handleAuthOpenUrl,
    MRApiInternal::handleLaunchMraRedirectingPage,
    MRApiInternal::handlePayOpenUrl,
    MRApiInternal::handleJointPayOpenUrl,
    MRApiInternal::handleOfflinePayUrl,
    wapOAuthHandBack,
    MRApiInternal::handleAddCardOpenUrl,
    MRApiInternal::handleChooseCard,
    MRApiInternal::handleChooseInvoice,
    MRApiInternal::handleOpenWebviewOpenUrl,
    MRApiInternal::handleOpenBusinessWebviewOpenUrl,
    MRApiInternal::handleOpenRankList,
    MRApiInternal::handleOpenTypeWebView,
};

}  // namespace

bool MRApi::handleOpenURL(const std::optional<URL>& url, const std::shared_ptr<MRApiDelegate>& delegate) {
  requireMainThread("MRApi::handleOpenURL");
  if (!url) {
    mrlog::error("handle open url fail, url is nil");
    return false;
  }
  if (!delegate) {
    mrlog::error("handle open url fail, delegate is nil");
    return false;
  }
  const String appId = MireloIdentityHandler::registerAppID();
  if (appId.empty()) {
    mrlog::error("handle open url fail, no register appID!");
    return false;
  }
  const String universalLink = MireloIdentityHandler::registerUniversalLink();
  if (!MireloApiUtil::isAppOpenUrl(url, appId, universalLink)) {
    mrlog::line("url can not be handled by Mirelo SDK, registerAppId:%@, registerUniversalLink:%@, url:%@", appId,
                universalLink, *url);
    return false;
  }

  if (MireloIdentityHandler::shareInstance().universalLinkCheckEnable() && MRApiInternal::handleOpenUniversalLinkCheck(url)) {
    return true;
  }
  {
    // Answers read from the URL itself can come twice (a URL forwarded by
    // two entry points): they are matched by their URL.
    MRRequestTracker::UrlScope scope(url->absoluteString(), /*fromUrl=*/true);
    for (UrlHandler handler : kUrlHandlers) {
      if (handler(url, delegate)) return true;
    }
  }

  // A record that no app wrote after the kit's own write is the host's own
  // request or answer, left behind: it is never handed back to the host.
  MRRequestTracker& tracker = MRRequestTracker::shared();
  if (tracker.ownRecordOnPasteboard()) {
    tracker.ownRecordEchoed(url->absoluteString());
    return false;
  }
  const std::shared_ptr<AppCommunicateData> data = AppCommunicate::appCommunicateDataForAppID(appId);
  if (!data) {
    mrlog::line("appdata is nil, url:%@", *url);
    return false;
  }
  mrlog::line("command:%@", data->command());
  // Reading the record consumed it: there is no second copy to match.
  MRRequestTracker::UrlScope scope(url->absoluteString(), /*fromUrl=*/false);
  return dispatch(*data, delegate);
}

bool MRApi::handleOpenUniversalLink(const UserActivity& userActivity, const std::shared_ptr<MRApiDelegate>& delegate) {
  requireMainThread("MRApi::handleOpenUniversalLink");
  if (userActivity.activityType == NSUserActivityTypeBrowsingWeb) {
    return handleOpenURL(userActivity.webpageURL, delegate);
  }
  mrlog::line("activity type[%@] not be handled by Mirelo SDK", userActivity.activityType);
  return false;
}

bool MRApi::isURLContainApi(const String& apiName, const std::optional<URL>& url) {
  requireMainThread("MRApi::isURLContainApi");
  if (!url || url->absoluteString().empty()) return false;
  return MireloApiUtil::isOpenUrlApiCall(url, apiName, MireloIdentityHandler::registerAppID(),
                                         MireloIdentityHandler::registerUniversalLink());
}

}  // namespace mirelo
