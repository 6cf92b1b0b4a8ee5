// Requests and responses in the app data record: which command each class
// travels under, the body keys each writes, and the objects that a received
// record turns back into.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

namespace lim = recordlimits;

void putString(Dictionary& d, const char* key, const String& s) { d.mrApi_safeSetObject(Value(s), key); }

// Whether the bytes decode as an image on this platform.  A platform
// without an image codec cannot tell, and the thumbnail is refused.
bool decodesAsImage(const Data& data) {
  const auto& codec = platform::current().imageCodec;
  return codec != nullptr && codec->decode(data) != nullptr;
}

// The body of the responses that carry only their extension message.
bool putMessageExt(Dictionary& d, const String& extMsg) {
  putString(d, "messageExt", extMsg);
  return true;
}

template <class Resp>
std::shared_ptr<BaseResp> extMsgResp(const Dictionary& d) {
  auto resp = std::make_shared<Resp>();
  resp->extMsg = d.mrApi_stringForKey("messageExt");
  return resp;
}

}  // namespace

// ---- request to record ------------------------------------------------------------

bool AppCommunicateData::ReqToData(const std::shared_ptr<BaseReq>& req) { return ReqToData(req, nullptr); }

bool AppCommunicateData::ReqToData(const std::shared_ptr<BaseReq>& req,
                                   const std::shared_ptr<MRMediaInternalMessage>& mediaInternalMessage) {
  if (auto send = kindCast<SendMessageToMRReq>(req)) {
    SendMessageToMRReq& r = *send;
    const bool stateScene = r.scene == MRSceneState;
    // A bare state-scene request becomes an empty text message.
    if (stateScene && (r.message == nullptr || r.message->mediaObject == nullptr) && !r.bText) {
      if (r.message != nullptr) r.message->mediaObject = MRTextObject::object();
      r.bText = true;
      r.text = "";
    }
    if (stateScene && r.bText && r.text.isNull()) r.text = "";

    bool ok;
    if (r.bText) {
      initCommonField(kCommandTextMessage);
      if (stateScene) {
        ok = MakeTextMessageInState(r.text) && MakeSceneDataObject(r.sceneDataObject, r.text);
      } else {
        ok = MakeTextMessage(r.text);
      }
    } else {
      initCommonField(kCommandMediaMessage);
      ok = MakeMediaMessage(r.message);
      if (ok && stateScene) ok = MakeSceneDataObject(r.sceneDataObject, String());
    }
    Dictionary& d = dictionaryData_;
    d.set("scene", Value(std::to_string(r.scene)));
    putString(d, "openID", r.openID);
    putString(d, "userOpenID", r.toUserOpenId);
    if (!ok) {
      mrlog::error("covert req to data fail");
      return false;
    }
    return true;
  }

  // The mini-program launch: the user name, path, type and message also
  // travel in the command URL; the record carries them under "userName",
  // "path", "miniProgramType" (decimal text) and "extMsg", with the
  // extension dictionary under "tinyAppExtDic".
  if (auto launch = kindCast<MRLaunchMiniProgramReq>(req)) {
    if (mrlog::enabled()) {
      mrlog::line("LaunchMiniProgram todata extDic=%@", launch->extDic ? Value(*launch->extDic) : Value());
    }
    initCommonField(kCommandLaunchMiniProgram);
    Dictionary& d = dictionaryData_;
    if (launch->extDic) d.set("tinyAppExtDic", Value(*launch->extDic));
    putString(d, "userName", launch->userName);
    putString(d, "path", launch->path);
    d.set("miniProgramType", Value(std::to_string(launch->miniProgramType)));
    putString(d, "extMsg", launch->extMsg);
    return true;
  }

  // The redirecting page: "tinyAppExtDic" and the "ticket" (also in the
  // command URL).
  if (auto page = kindCast<MRLaunchMraRedirectingPageReq>(req)) {
    if (mrlog::enabled()) {
      mrlog::line("LaunchMraRedirectingPage todata extDic=%@", page->extDict ? Value(*page->extDict) : Value());
    }
    initCommonField(kCommandLaunchMraRedirectingPage);
    Dictionary& d = dictionaryData_;
    if (page->extDict) d.set("tinyAppExtDic", Value(*page->extDict));
    putString(d, "ticket", page->ticket);
    return true;
  }

  if (auto get = kindCast<GetMessageFromMRReq>(req)) {
    initCommonField(kCommandGetMessageReq);
    putString(dictionaryData_, "language", get->lang);
    putString(dictionaryData_, "country", get->country);
    return true;
  }

  if (auto show = kindCast<ShowMessageFromMRReq>(req)) {
    initCommonField(kCommandMediaMessage);
    MakeMediaInternalMessage(mediaInternalMessage);
    putString(dictionaryData_, "openID", show->openID);
    return true;
  }

  if (auto launched = kindCast<LaunchFromMRReq>(req)) {
    initCommonField(kCommandLaunchFromMRReq);
    putString(dictionaryData_, "language", launched->lang);
    putString(dictionaryData_, "country", launched->country);
    return true;
  }

  if (auto business = kindCast<MROpenBusinessViewReq>(req)) {
    initCommonField(kCommandBusinessView);
    MakeMediaInternalMessage(mediaInternalMessage);
    putString(dictionaryData_, "openID", business->openID);
    dictionaryData_.mrApi_safeSetObject(Value(business->extData), "fileData");
    fileData = business->extData;
    return true;
  }

  if (auto share = kindCast<MRChannelShareVideoReq>(req)) {
    initCommonField(kCommandChannelShareVideo);
    return makeChannelShareVideoToDicData(share);
  }

  if (auto profile = kindCast<MRChannelOpenProfileReq>(req)) {
    initCommonField(kCommandChannelOpenProfile);
    putString(dictionaryData_, "finderUserName", profile->userName);
    return true;
  }

  if (auto live = kindCast<MRChannelOpenLiveReq>(req)) {
    initCommonField(kCommandChannelOpenLive);
    putString(dictionaryData_, "finderFeedID", live->feedID);
    putString(dictionaryData_, "finderNonceID", live->nonceID);
    return true;
  }

  // "notGetReleatedList" travels as a boolean number.
  if (auto feed = kindCast<MRChannelOpenFeedReq>(req)) {
    initCommonField(kCommandChannelOpenFeed);
    putString(dictionaryData_, "finderFeedID", feed->feedID);
    putString(dictionaryData_, "finderNonceID", feed->nonceID);
    dictionaryData_.set("notGetReleatedList", Value(feed->notGetReleatedList));
    return true;
  }

  if (auto service = kindCast<MROpenCustomerServiceReq>(req)) {
    initCommonField(kCommandOpenCustomerService);
    putString(dictionaryData_, "url", service->url);
    putString(dictionaryData_, "corpid", service->corpid);
    return true;
  }

  // Everything else travels in the command URL alone.
  if (MireloApiUtil::isMRSupportUniversalLinkAPI()) MakeCommand(kCommandNone);
  return true;
}

// ---- response to record ----------------------------------------------------------------

bool AppCommunicateData::RespToData(const std::shared_ptr<BaseResp>& resp) {
  bool ok;
  if (auto auth = kindCast<SendAuthResp>(resp)) {
    initCommonField(kCommandAuthResp);
    ok = MakeAuthResp(auth);
  } else if (auto get = kindCast<GetMessageFromMRResp>(resp)) {
    if (get->bText) {
      initCommonField(kCommandTextMessage);
      ok = MakeTextMessage(get->text);
    } else {
      initCommonField(kCommandMediaMessage);
      ok = MakeMediaMessage(get->message);
    }
  } else if (isKindOf<ShowMessageFromMRResp>(resp)) {
    initCommonField(kCommandShowMessageResp);
    ok = true;
  } else if (auto sent = kindCast<SendMessageToMRResp>(resp)) {
    initCommonField(kCommandSendMessageResp);
    putString(dictionaryData_, "language", sent->lang);
    putString(dictionaryData_, "country", sent->country);
    ok = true;
  } else if (auto create = kindCast<CreateChatRoomResp>(resp)) {
    initCommonField(kCommandCreateChatRoom);
    ok = putMessageExt(dictionaryData_, create->extMsg);
  } else if (auto join = kindCast<JoinChatRoomResp>(resp)) {
    initCommonField(kCommandJoinChatRoom);
    ok = putMessageExt(dictionaryData_, join->extMsg);
  } else if (auto launch = kindCast<MRLaunchMiniProgramResp>(resp)) {
    initCommonField(kCommandLaunchMiniProgramResp);
    ok = putMessageExt(dictionaryData_, launch->extMsg);
  } else if (auto business = kindCast<MROpenBusinessViewResp>(resp)) {
    initCommonField(kCommandBusinessView);
    ok = putMessageExt(dictionaryData_, business->extMsg);
    putString(dictionaryData_, "businessType", business->businessType);
  } else if (auto share = kindCast<MRChannelShareVideoResp>(resp)) {
    initCommonField(kCommandChannelShareVideo);
    ok = putMessageExt(dictionaryData_, share->extMsg);
  } else if (auto profile = kindCast<MRChannelOpenProfileResp>(resp)) {
    initCommonField(kCommandChannelOpenProfile);
    ok = putMessageExt(dictionaryData_, profile->extMsg);
  } else if (auto live = kindCast<MRChannelOpenLiveResp>(resp)) {
    initCommonField(kCommandChannelOpenLive);
    ok = putMessageExt(dictionaryData_, live->extMsg);
  } else if (auto feed = kindCast<MRChannelOpenFeedResp>(resp)) {
    initCommonField(kCommandChannelOpenFeed);
    ok = putMessageExt(dictionaryData_, feed->extMsg);
  } else if (auto service = kindCast<MROpenCustomerServiceResp>(resp)) {
    initCommonField(kCommandOpenCustomerService);
    ok = putMessageExt(dictionaryData_, service->extMsg);
  } else {
    mrlog::error("un know resp");
    return true;
  }
  if (!ok) {
    mrlog::error("gen resp fail");
    return false;
  }
  return true;
}

// ---- record to request and response -------------------------------------------------------

std::shared_ptr<BaseReq> AppCommunicateData::DataToReq() const {
  switch (command_) {
    case kCommandLaunchFromMRReq: {
      auto req = std::make_shared<LaunchFromMRReq>();
      req->openID = openID;
      req->lang = lang;
      req->country = country;
      req->message = mediaMessage();
      return req;
    }
    case kCommandGetMessageReq: {
      auto req = std::make_shared<GetMessageFromMRReq>();
      req->openID = openID;
      req->lang = lang;
      req->country = country;
      return req;
    }
    case kCommandMediaMessage: {
      auto message = mediaMessage();
      if (message == nullptr) return nullptr;
      auto req = std::make_shared<ShowMessageFromMRReq>();
      req->openID = openID;
      req->lang = lang;
      req->country = country;
      req->message = std::move(message);
      return req;
    }
    default:
      return nullptr;
  }
}

std::shared_ptr<BaseResp> AppCommunicateData::DataToResp() const {
  const Dictionary& d = propertList();
  std::shared_ptr<BaseResp> resp;
  switch (command_) {
    case kCommandSendMessageRespWithLocale: {
      auto sent = std::make_shared<SendMessageToMRResp>();
      sent->lang = lang;
      sent->country = country;
      resp = sent;
      break;
    }
    case kCommandSendMessageResp:
      resp = std::make_shared<SendMessageToMRResp>();
      break;
    case kCommandAuthResp: {
      const String tdi = d.mrApi_stringForKey("tdi_ext_info");
      if (!tdi.empty()) {
        auto tdiResp = std::make_shared<SendTdiAuthResp>();
        tdiResp->tdiExtInfo = tdi;
        resp = tdiResp;
      } else {
        resp = std::make_shared<SendAuthResp>();
      }
      break;
    }
    case kCommandCreateChatRoom:
      resp = extMsgResp<CreateChatRoomResp>(d);
      break;
    case kCommandJoinChatRoom:
      resp = extMsgResp<JoinChatRoomResp>(d);
      break;
    case kCommandLaunchMiniProgramResp:
      resp = extMsgResp<MRLaunchMiniProgramResp>(d);
      break;
    case kCommandBusinessView: {
      auto business = std::make_shared<MROpenBusinessViewResp>();
      business->extMsg = d.mrApi_stringForKey("messageExt");
      business->businessType = d.mrApi_stringForKey("businessType");
      resp = business;
      break;
    }
    case kCommandChannelShareVideo:
      resp = extMsgResp<MRChannelShareVideoResp>(d);
      break;
    case kCommandChannelOpenProfile:
      resp = extMsgResp<MRChannelOpenProfileResp>(d);
      break;
    case kCommandChannelOpenLive:
      resp = extMsgResp<MRChannelOpenLiveResp>(d);
      break;
    case kCommandChannelOpenFeed:
      resp = extMsgResp<MRChannelOpenFeedResp>(d);
      break;
    case kCommandOpenCustomerService:
      resp = extMsgResp<MROpenCustomerServiceResp>(d);
      break;
    default:
      return nullptr;
  }
  resp->errCode = result;
  return resp;
}

// ---- text ---------------------------------------------------------------------------------------

bool AppCommunicateData::MakeTextMessage(const String& text) {
  if (text.empty()) {
    mrlog::error("text is empty!");
    return false;
  }
  return MakeTextMessageInState(text);
}

bool AppCommunicateData::MakeTextMessageInState(const String& text) {
  const std::size_t length = text.length();
  if (length > lim::kText) {
    mrlog::error("text length[%@] over limit[%@]!", length, lim::kText);
    return false;
  }
  if (!text.empty()) dictionaryData_.set("title", Value(text));
  return true;
}

String AppCommunicateData::textMessage() const {
  if (command_ != kCommandTextMessage || !hasDictionary_) return String();
  String text = dictionaryData_.mrApi_stringForKey("title");
  return text.length() > lim::kText ? String() : text;
}

// ---- media message ----------------------------------------------------------------------------------

bool AppCommunicateData::MakeMediaMessage(const std::shared_ptr<MRMediaMessage>& message) {
  if (message == nullptr) {
    mrlog::error("mediaMessage is nil");
    return false;
  }
  const MRMediaMessage& m = *message;
  if (m.title.length() > lim::kTitle) {
    mrlog::error("mediaMessage title too large,largest size is %d", lim::kTitle);
    return false;
  }
  if (m.description.length() > lim::kDescription) {
    mrlog::error("mediaMessage description too large,largest size is %d", lim::kDescription);
    return false;
  }
  if (m.thumbData.size() > lim::kThumbData) {
    mrlog::error("mediaMessage thumbData too large,largest size is %d", lim::kThumbData);
    return false;
  }
  if (!m.thumbData.isNull() && !decodesAsImage(m.thumbData)) {
    mrlog::error("mediaMessage thumbData can not be translate into  UIImage");
    return false;
  }
  if (m.mediaTagName.length() > lim::kMediaTagName) {
    mrlog::error("mediaMessage mediaTagName too large, largest size is %d", lim::kMediaTagName);
    return false;
  }
  if (m.messageExt.length() > lim::kMessageExt) {
    mrlog::error("mediaMessage messageExt too large, largest size is %d", lim::kMessageExt);
    return false;
  }
  if (m.messageAction.length() > lim::kMessageAction) {
    mrlog::error("mediaMessage messageAction too large, largest size is %d", lim::kMessageAction);
    return false;
  }
  Dictionary& d = dictionaryData_;
  putString(d, "title", m.title);
  putString(d, "description", m.description);
  d.mrApi_safeSetObject(Value(m.thumbData), "thumbData");
  putString(d, "mediaTagName", m.mediaTagName);
  putString(d, "messageExt", m.messageExt);
  putString(d, "messageAction", m.messageAction);
  if (!MakeLinkObject(m.mediaObject)) {
    mrlog::error("make link object fail");
    return false;
  }
  if (isKindOf<MRMusicVideoObject>(m.mediaObject) && m.title.empty()) {
    mrlog::error("title is nill");
    return false;
  }
  return true;
}

// ---- state scene ----------------------------------------------------------------------------------------

bool AppCommunicateData::MakeSceneDataObject(const std::shared_ptr<MRSceneDataObject>& sceneData, const String& text) {
  if (sceneData == nullptr) {
    mrlog::error("scene object is nil");
    return false;
  }
  auto state = kindCast<MRStateSceneDataObject>(sceneData);
  if (state == nullptr) return false;
  if (state->stateTitle.empty() && !text.empty()) state->stateTitle = text;
  return makeStateSceneObject(state);
}

bool AppCommunicateData::makeStateSceneObject(const std::shared_ptr<MRStateSceneDataObject>& stateScene) {
  static const MRStateSceneDataObject kEmpty;
  const MRStateSceneDataObject& s = stateScene ? *stateScene : kEmpty;
  // Only a URL jump has a URL; any other target counts as a missing one.
  const auto* urlJump = dynamic_cast<const MRStateJumpUrlInfo*>(s.stateJumpDataInfo.get());
  const String url = urlJump != nullptr ? urlJump->url : String();
  if (s.stateId.length() > lim::kStateField) {
    mrlog::error("stateId too large, largest size is %d", lim::kStateField);
    return false;
  }
  if (s.stateTitle.length() > lim::kStateField) {
    mrlog::error("stateTitle too large, largest size is %d", lim::kStateField);
    return false;
  }
  if (s.token.length() > lim::kStateField) {
    mrlog::error("token too large, largest size is %d", lim::kStateField);
    return false;
  }
  if (url.length() > lim::kStateField) {
    mrlog::error("url too large, largest size is %d", lim::kStateField);
    return false;
  }
  if (url.empty()) {
    mrlog::error("state jump url should not be null!");
    return false;
  }
  Dictionary& d = dictionaryData_;
  putString(d, "stateId", s.stateId);
  putString(d, "stateTitle", s.stateTitle);
  putString(d, "stateToken", s.token);
  d.set("stateJumpType", Value("0"));
  putString(d, "stateUrl", url);
  return true;
}

// ---- sign-in ---------------------------------------------------------------------------------------------------

bool AppCommunicateData::MakeAuthRequest(const std::shared_ptr<SendAuthReq>& req) {
  if (req == nullptr) {
    mrlog::error("auth is nil");
    return false;
  }
  if (req->scope.isNull() || req->scope.length() > lim::kAuthField) {
    mrlog::error("scope is nil or too large");
    return false;
  }
  if (req->state.length() > lim::kAuthField) {
    mrlog::error("auth state is nil or too large");
    return false;
  }
  putString(dictionaryData_, "scope", req->scope);
  putString(dictionaryData_, "state", req->state);
  return true;
}

std::shared_ptr<MRAuthInternal> AppCommunicateData::authRequest() const {
  if (command_ != kCommandAuthRequest || !hasDictionary_) return nullptr;
  auto auth = std::make_shared<MRAuthInternal>();
  auth->scope = dictionaryData_.mrApi_stringForKey("scope");
  auth->state = dictionaryData_.mrApi_stringForKey("state");
  if (auth->scope.isNull() || auth->scope.length() > lim::kAuthField) return nullptr;
  if (auth->state.length() > lim::kAuthField) return nullptr;
  return auth;
}

bool AppCommunicateData::MakeAuthResp(const std::shared_ptr<SendAuthResp>& resp) {
  if (resp == nullptr) return false;
  putString(dictionaryData_, "state", resp->state);
  return true;
}

std::shared_ptr<SendAuthResp> AppCommunicateData::authResp() const {
  if (command_ != kCommandAuthRequest || !hasDictionary_) return nullptr;
  auto resp = std::make_shared<SendAuthResp>();
  resp->errCode = result;
  resp->state = dictionaryData_.mrApi_stringForKey("state");
  return resp;
}

// ---- mini program ----------------------------------------------------------------------------------------------

std::optional<Dictionary> AppCommunicateData::tinyAppExtDic() const {
  if (command_ != kCommandLaunchMiniProgram || !hasDictionary_) return std::nullopt;
  const Dictionary* ext = dictionaryData_.mrApi_dictionaryForKey("tinyAppExtDic");
  if (ext == nullptr) return std::nullopt;
  return *ext;
}

}  // namespace mirelo
