// The responses: the outcome of a request, read back from the messenger's
// result URL or pasteboard record, or returned by the host to the messenger.
// Conventions: see Base.h; result codes: MRErrCode.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/model/Base.h"
#include "mirelo/model/MediaMessage.h"
#include "mirelo/model/Requests.h"

namespace mirelo {

// ---- message exchange ------------------------------------------------------

class SendMessageToMRResp : public BaseResp {
  MIRELO_MODEL_CLASS(SendMessageToMRResp)
 public:
  String lang;
  String country;
};

// The host's answer to GetMessageFromMRReq.
class GetMessageFromMRResp : public BaseResp {
  MIRELO_MODEL_CLASS(GetMessageFromMRResp)
 public:
  String text;
  std::shared_ptr<MRMediaMessage> message;  // held
  bool bText = false;
};

// The host's answer to ShowMessageFromMRReq.
class ShowMessageFromMRResp : public BaseResp {
  MIRELO_MODEL_CLASS(ShowMessageFromMRResp)
};

// ---- sign-in -----------------------------------------------------------------

class SendAuthResp : public BaseResp {
  MIRELO_MODEL_CLASS(SendAuthResp)
 public:
  // The authorisation code.
  String code;
  String state;
  String lang;
  String country;
};

// The tdi sign-in result: a SendAuthResp for every kind test.
class SendTdiAuthResp : public SendAuthResp {
  MIRELO_MODEL_CLASS(SendTdiAuthResp)
 public:
  String tdiExtInfo;
  Data tdiAuthBuffer;
  Data tdiAuthParams;
};

// ---- payment -------------------------------------------------------------------

class PayResp : public BaseResp {
  MIRELO_MODEL_CLASS(PayResp)
 public:
  String returnKey;
};

class MRJointPayResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRJointPayResp)
 public:
  String returnKey;
};

class MROfflinePayResp : public BaseResp {
  MIRELO_MODEL_CLASS(MROfflinePayResp)
};

class MRNontaxPayResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRNontaxPayResp)
 public:
  // The messenger's order id.
  String mrOrderId;
};

class MRPayInsuranceResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRPayInsuranceResp)
 public:
  String mrOrderId;
};

// ---- web views and lists ---------------------------------------------------------

class OpenRankListResp : public BaseResp {
  MIRELO_MODEL_CLASS(OpenRankListResp)
};

class OpenWebviewResp : public BaseResp {
  MIRELO_MODEL_CLASS(OpenWebviewResp)
};

// Declared for hosts; the kit never makes one.
class MROpenTypeWebViewResp : public BaseResp {
  MIRELO_MODEL_CLASS(MROpenTypeWebViewResp)
 public:
  std::shared_ptr<Dictionary> infoDic;  // held
};

class MROpenBusinessWebViewResp : public BaseResp {
  MIRELO_MODEL_CLASS(MROpenBusinessWebViewResp)
 public:
  std::uint32_t businessType = 0;
  String result;
};

// ---- cards and invoices -----------------------------------------------------------

class AddCardToMRCardPackageResp : public BaseResp {
  MIRELO_MODEL_CLASS(AddCardToMRCardPackageResp)
 public:
  std::shared_ptr<MRCardItemArray> cardAry;  // held
};

class MRChooseCardResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChooseCardResp)
 public:
  std::shared_ptr<MRCardItemArray> cardAry;  // held
};

class MRChooseInvoiceResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChooseInvoiceResp)
 public:
  std::shared_ptr<MRInvoiceItemArray> cardAry;  // held
};

class MRInvoiceAuthInsertResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRInvoiceAuthInsertResp)
 public:
  String mrOrderId;
};

// ---- subscription messages -----------------------------------------------------------

class MRSubscribeMsgResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRSubscribeMsgResp)
 public:
  String templateId;
  std::uint32_t scene = 0;
  // What the user chose.
  String action;
  String reserved;
  String openId;
};

class MRSubscribeMiniProgramMsgResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRSubscribeMiniProgramMsgResp)
 public:
  String openId;
  String unionId;
  String nickName;
};

// ---- chat rooms -------------------------------------------------------------------

class CreateChatRoomResp : public BaseResp {
  MIRELO_MODEL_CLASS(CreateChatRoomResp)
 public:
  String extMsg;
};

class JoinChatRoomResp : public BaseResp {
  MIRELO_MODEL_CLASS(JoinChatRoomResp)
 public:
  String extMsg;
};

// ---- mini programs and business views -------------------------------------------------

class MRLaunchMiniProgramResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRLaunchMiniProgramResp)
 public:
  String extMsg;
};

class MRLaunchMraRedirectingPageResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRLaunchMraRedirectingPageResp)
 public:
  String ticket;
};

class MROpenBusinessViewResp : public BaseResp {
  MIRELO_MODEL_CLASS(MROpenBusinessViewResp)
 public:
  String businessType;
  String extMsg;
};

class MROpenCustomerServiceResp : public BaseResp {
  MIRELO_MODEL_CLASS(MROpenCustomerServiceResp)
 public:
  String extMsg;
};

// ---- channel videos: four unrelated siblings ---------------------------------------

class MRChannelShareVideoResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChannelShareVideoResp)
 public:
  String extMsg;
};

class MRChannelOpenProfileResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChannelOpenProfileResp)
 public:
  String extMsg;
};

class MRChannelOpenLiveResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChannelOpenLiveResp)
 public:
  String extMsg;
};

class MRChannelOpenFeedResp : public BaseResp {
  MIRELO_MODEL_CLASS(MRChannelOpenFeedResp)
 public:
  String extMsg;
};

}  // namespace mirelo
