// The requests: what the host asks of the messenger (and the three that the
// messenger asks of the host), with the card items and channel jump targets
// they carry.  Conventions: see Base.h.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/model/Base.h"
#include "mirelo/model/MediaMessage.h"

namespace mirelo {

// The target scene of a SendMessageToMRReq (its `scene`).  The values travel
// in the app data record and are fixed by the messenger.
enum MRScene : std::int32_t {
  MRSceneSession = 0,           // a chat the user picks
  MRSceneTimeline = 1,          // the user's moments timeline
  MRSceneFavorite = 2,          // the user's favourites
  MRSceneSpecifiedSession = 3,  // the chat with `toUserOpenId`; needs `openID`
  MRSceneState = 4,             // the user's state; carries `sceneDataObject`
};

// The page of an MROpenTypeWebViewReq (its inherited `type`): the request
// that the kit wraps into the web-view command.
enum MROpenWebViewType : std::int32_t {
  MROpenWebViewTypeSubscribeMsg = 1,              // MRSubscribeMsgReq
  MROpenWebViewTypeInvoiceAuthInsert = 2,         // MRInvoiceAuthInsertReq
  MROpenWebViewTypeNontaxPay = 3,                 // MRNontaxPayReq
  MROpenWebViewTypePayInsurance = 4,              // MRPayInsuranceReq
  MROpenWebViewTypeSubscribeMiniProgramMsg = 5,   // MRSubscribeMiniProgramMsgReq
};

// ---- message exchange ------------------------------------------------------

// Shares a text (bText) or a media message (not bText) into a scene.
class SendMessageToMRReq : public BaseReq {
  MIRELO_MODEL_CLASS(SendMessageToMRReq)
 public:
  String text;
  std::shared_ptr<MRMediaMessage> message;  // held
  // True sends `text`, false sends `message`.
  bool bText = false;
  // The target scene (MRScene).
  std::int32_t scene = 0;
  // The receiver of a specified-session message.
  String toUserOpenId;
  // Read only for MRSceneState.
  std::shared_ptr<MRSceneDataObject> sceneDataObject;  // held
};

// The messenger asks the host for content (made by the kit).
class GetMessageFromMRReq : public BaseReq {
  MIRELO_MODEL_CLASS(GetMessageFromMRReq)
 public:
  String lang;
  String country;
};

// The messenger asks the host to show a message (made by the kit).
class ShowMessageFromMRReq : public BaseReq {
  MIRELO_MODEL_CLASS(ShowMessageFromMRReq)
 public:
  std::shared_ptr<MRMediaMessage> message;  // held
  String lang;
  String country;
};

// The messenger launched the host (made by the kit).
class LaunchFromMRReq : public BaseReq {
  MIRELO_MODEL_CLASS(LaunchFromMRReq)
 public:
  std::shared_ptr<MRMediaMessage> message;  // held
  String lang;
  String country;
};

// ---- sign-in -----------------------------------------------------------------

class SendAuthReq : public BaseReq {
  MIRELO_MODEL_CLASS(SendAuthReq)
 public:
  // The requested scopes; required.
  String scope;
  // An opaque value echoed back in the response.
  String state;
};

// The tdi sign-in: a SendAuthReq for every kind test.
class SendTdiAuthReq : public SendAuthReq {
  MIRELO_MODEL_CLASS(SendTdiAuthReq)
 public:
  // Sent as the query parameter tdi_ext_info.
  String tdiExtInfo;
};

// ---- payment -------------------------------------------------------------------

class PayReq : public BaseReq {
  MIRELO_MODEL_CLASS(PayReq)
 public:
  String partnerId;
  String prepayId;
  String nonceStr;
  std::uint32_t timeStamp = 0;  // seconds
  String package;
  String sign;
};

// The same fields as PayReq, but a class of its own (not a PayReq).
class MRJointPayReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRJointPayReq)
 public:
  String partnerId;
  String prepayId;
  String nonceStr;
  std::uint32_t timeStamp = 0;  // seconds
  String package;
  String sign;
};

class MROfflinePayReq : public BaseReq {
  MIRELO_MODEL_CLASS(MROfflinePayReq)
};

class MRNontaxPayReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRNontaxPayReq)
 public:
  String urlString;
};

class MRPayInsuranceReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRPayInsuranceReq)
 public:
  String urlString;
};

// ---- web views and lists ---------------------------------------------------------

class OpenRankListReq : public BaseReq {
  MIRELO_MODEL_CLASS(OpenRankListReq)
};

class OpenWebviewReq : public BaseReq {
  MIRELO_MODEL_CLASS(OpenWebviewReq)
 public:
  String url;
};

// The carrier of the web-view commands; made only by the kit, with `type`
// set to an MROpenWebViewType.
class MROpenTypeWebViewReq : public BaseReq {
  MIRELO_MODEL_CLASS(MROpenTypeWebViewReq)
 public:
  String mrInternalResptype;
  // An already-built query.
  String query;
};

class MROpenBusinessWebViewReq : public BaseReq {
  MIRELO_MODEL_CLASS(MROpenBusinessWebViewReq)
 public:
  std::uint32_t businessType = 0;
  // Sent as JSON.
  std::shared_ptr<Dictionary> queryInfoDic;  // held
};

// ---- cards and invoices -----------------------------------------------------------

class MRCardItem : public MRObject {
  MIRELO_MODEL_CLASS(MRCardItem)
 public:
  String cardId;
  String extMsg;
  std::uint32_t cardState = 0;
  String encryptCode;
  String appID;
};

// The same fields as MRCardItem, but a class of its own.
class MRInvoiceItem : public MRObject {
  MIRELO_MODEL_CLASS(MRInvoiceItem)
 public:
  String cardId;
  String extMsg;
  std::uint32_t cardState = 0;
  String encryptCode;
  String appID;
};

// A held array of items: the request or response keeps the caller's vector
// (and the items in it) without copying.  Null when unset.
using MRCardItemArray = std::vector<std::shared_ptr<MRCardItem>>;
using MRInvoiceItemArray = std::vector<std::shared_ptr<MRInvoiceItem>>;

class AddCardToMRCardPackageReq : public BaseReq {
  MIRELO_MODEL_CLASS(AddCardToMRCardPackageReq)
 public:
  std::shared_ptr<MRCardItemArray> cardAry;  // held
};

class MRChooseCardReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChooseCardReq)
 public:
  String appID;
  std::uint32_t shopID = 0;
  std::uint32_t canMultiSelect = 0;  // a flag
  String cardType;
  String cardTpID;
  String signType;
  String cardSign;
  std::uint32_t timeStamp = 0;
  String nonceStr;
};

class MRChooseInvoiceReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChooseInvoiceReq)
 public:
  String appID;
  std::uint32_t shopID = 0;
  String signType;
  String cardSign;
  std::uint32_t timeStamp = 0;
  String nonceStr;
};

class MRInvoiceAuthInsertReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRInvoiceAuthInsertReq)
 public:
  String urlString;
};

class MRHandleScanResultReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRHandleScanResultReq)
 public:
  String scanResult;
};

// ---- subscription messages -----------------------------------------------------------

class MRSubscribeMsgReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRSubscribeMsgReq)
 public:
  std::uint32_t scene = 0;
  String templateId;
  String reserved;
};

class MRSubscribeMiniProgramMsgReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRSubscribeMiniProgramMsgReq)
 public:
  String miniProgramAppid;
};

// ---- chat rooms -------------------------------------------------------------------

class CreateChatRoomReq : public BaseReq {
  MIRELO_MODEL_CLASS(CreateChatRoomReq)
 public:
  String groupId;
  String chatRoomName;
  String chatRoomNickName;
  String extMsg;
};

class JoinChatRoomReq : public BaseReq {
  MIRELO_MODEL_CLASS(JoinChatRoomReq)
 public:
  String groupId;
  String chatRoomNickName;
  String extMsg;
};

// ---- mini programs and business views -------------------------------------------------

class MRLaunchMiniProgramReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRLaunchMiniProgramReq)
 public:
  // The mini program's user name.
  String userName;
  String path;
  std::uint64_t miniProgramType = MRMiniProgramTypeRelease;  // MRMiniProgramType
  String extMsg;
  // Copied on assignment (unlike the other dictionaries of the model).
  Copied<Dictionary> extDic;
};

class MRLaunchMraRedirectingPageReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRLaunchMraRedirectingPageReq)
 public:
  String ticket;
  std::shared_ptr<Dictionary> extDict;  // held
};

class MROpenBusinessViewReq : public BaseReq {
  MIRELO_MODEL_CLASS(MROpenBusinessViewReq)
 public:
  String businessType;
  String query;
  String extInfo;
  Data extData;
};

class MROpenCustomerServiceReq : public BaseReq {
  MIRELO_MODEL_CLASS(MROpenCustomerServiceReq)
 public:
  String url;
  String corpid;
};

// ---- channel videos ---------------------------------------------------------------

// The common base of the jump button of a shared channel video.
class MRChannelBaseJumpInfo : public MRObject {
  MIRELO_MODEL_CLASS(MRChannelBaseJumpInfo)
 public:
  // Text of the jump button.
  String wording;
  String extData;
};

class MRChannelJumpMiniProgramInfo : public MRChannelBaseJumpInfo {
  MIRELO_MODEL_CLASS(MRChannelJumpMiniProgramInfo)
 public:
  String userName;
  String path;
};

class MRChannelJumpUrlInfo : public MRChannelBaseJumpInfo {
  MIRELO_MODEL_CLASS(MRChannelJumpUrlInfo)
 public:
  String url;
};

class MRChannelShareVideoReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChannelShareVideoReq)
 public:
  // The photo-library identifier of the video.
  String localIdentifier;
  Data extData;
  std::shared_ptr<MRChannelBaseJumpInfo> jumpInfo;  // held; any subclass
};

class MRChannelOpenProfileReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChannelOpenProfileReq)
 public:
  String userName;
};

class MRChannelOpenLiveReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChannelOpenLiveReq)
 public:
  String feedID;
  String nonceID;
};

class MRChannelOpenFeedReq : public BaseReq {
  MIRELO_MODEL_CLASS(MRChannelOpenFeedReq)
 public:
  String feedID;
  String nonceID;
  bool notGetReleatedList = false;
};

}  // namespace mirelo
