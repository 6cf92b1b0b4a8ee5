#include "record/MRMediaInternalMessage.h"

#include <memory>

#include "mirelo/model/MediaMessage.h"

namespace mirelo {

namespace {

// The media object of an internal message, by its object type; null for a
// type the kit does not know.  Each object takes back exactly the keys that
// the flattening writes for its class.
std::shared_ptr<MRMediaObject> mediaObjectOf(const MRMediaInternalMessage& m) {
  switch (m.objectType) {
    case kObjectTypeImage: {
      auto o = MRImageObject::object();
      o->imageData = m.fileData;
      return o;
    }
    case kObjectTypeMusic: {
      auto o = MRMusicObject::object();
      o->musicUrl = m.mediaUrl;
      o->musicLowBandUrl = m.mediaLowBandUrl;
      o->musicDataUrl = m.mediaDataUrl;
      o->musicLowBandDataUrl = m.mediaLowBandDataUrl;
      o->songAlbumUrl = m.songAlbumUrl;
      o->songLyric = m.songLyric;
      return o;
    }
    case kObjectTypeVideo: {
      auto o = MRVideoObject::object();
      o->videoUrl = m.mediaUrl;
      o->videoLowBandUrl = m.mediaLowBandUrl;
      return o;
    }
    case kObjectTypeWebpage: {
      auto o = MRWebpageObject::object();
      o->webpageUrl = m.mediaUrl;
      return o;
    }
    case kObjectTypeFile: {
      auto o = MRFileObject::object();
      o->fileExtension = m.fileExt;
      o->fileData = m.fileData;
      return o;
    }
    case kObjectTypeAppExtend: {
      auto o = MRAppExtendObject::object();
      o->url = m.mediaUrl;
      o->extInfo = m.extInfo;
      o->fileData = m.fileData;
      return o;
    }
    case kObjectTypeEmoticon: {
      auto o = MREmoticonObject::object();
      o->emoticonData = m.fileData;
      return o;
    }
    case kObjectTypeMiniProgram: {
      // The record reader refuses these cards; an internal message made by
      // the kit itself still converts.  disableForward has no field here.
      auto o = MRMiniProgramObject::object();
      o->webpageUrl = m.mediaUrl;
      o->userName = m.appBrandUserName;
      o->path = m.appBrandPath;
      o->hdImageData = m.hdThumbData;
      o->withShareTicket = m.appBrandWithShareTikcet;
      o->miniProgramType = m.appBrandMiniProgramType;
      o->isUpdatableMessage = m.isAppBrandUpdatableMessage;
      o->isSecretMessage = m.isAppBrandSecretMessage;
      o->extraInfoDic = m.appBrandExtraInfoDic;
      return o;
    }
    case kObjectTypeVideoFile: {
      auto o = MRVideoFileObject::object();
      o->videoFileData = m.fileData;
      return o;
    }
    case kObjectTypeGameVideoFile: {
      auto o = MRGameVideoFileObject::object();
      o->videoFileData = m.fileData;
      o->videoUrl = m.sightCdnVideoUrl;
      o->thumbUrl = m.sightCdnThumbUrl;
      return o;
    }
    case kObjectTypeEnterpriseCard: {
      auto o = MREnterpriseCardObject::object();
      o->cardInfo = m.enterpriseCardContent;
      o->msgType = m.enterpriseCardMsgType;
      return o;
    }
    case kObjectTypeDynamicVideoMiniProgram: {
      auto o = MRDynamicVideoMiniProgramObject::object();
      o->webpageUrl = m.mediaUrl;
      o->userName = m.appBrandUserName;
      o->path = m.appBrandPath;
      o->hdImageData = m.hdThumbData;
      o->withShareTicket = m.appBrandWithShareTikcet;
      o->miniProgramType = m.appBrandMiniProgramType;
      o->videoSource = m.sightCdnVideoUrl;
      o->appThumbUrl = m.sightAppThumbUrl;
      return o;
    }
    case kObjectTypeTessel: {
      auto o = MRTesselObject::object();
      o->subType = m.tesselSubType;
      o->data = m.fileData;
      o->extInfo = m.extInfo;
      return o;
    }
    case kObjectTypeGameLive: {
      auto o = MRGameLiveObject::object();
      o->extraInfoDic = m.gameLiveExtraInfoDic;
      return o;
    }
    case kObjectTypeMusicVideo: {
      auto o = MRMusicVideoObject::object();
      o->musicUrl = m.mediaUrl;
      o->musicDataUrl = m.mediaDataUrl;
      o->singerName = m.musicVideoSingerName;
      o->duration = m.musicVideoDuration;
      o->songLyric = m.songLyric;
      o->hdAlbumThumbData = m.musicVideoHdAlbumThumbData;
      o->albumName = m.musicVideoAlbumName;
      o->musicGenre = m.musicVideoMusicGenre;
      o->issueDate = m.musicVideoIssueDate;
      o->identification = m.musicVideoIdentification;
      o->musicOperationUrl = m.musicVideoOperationUrl;
      return o;
    }
    default:
      return nullptr;
  }
}

}  // namespace

std::shared_ptr<MRMediaMessage> MRMediaInternalMessage::mediaMessage() const {
  auto message = MRMediaMessage::message();
  message->title = title;
  message->description = description;
  message->thumbData = thumbData;
  message->mediaTagName = mediaTagName;
  message->messageExt = messageExt;
  message->messageAction = messageAction;
  message->mediaObject = mediaObjectOf(*this);
  return message;
}

}  // namespace mirelo
