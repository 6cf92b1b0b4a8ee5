// Media objects in the app data record: flattening a media object into the
// record's keys, the internal media message that the receiver reads back,
// the state-scene reader and the channel-video keys.
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "mirelo/model/Model.h"
#include "record/AppCommunicateData.h"
#include "record/MRMediaInternalMessage.h"
#include "util/Log.h"

namespace mirelo {

namespace {

namespace lim = recordlimits;

const String& noString() {
  static const String kNone;
  return kNone;
}
const Data& noData() {
  static const Data kNone;
  return kNone;
}

// A media object seen through the record's keys: which field feeds which
// key.  Fields the object's class does not have stay null, false or 0.
struct LinkFields {
  std::uint32_t code = 0;
  const String* url = &noString();             // "mediaUrl"
  const String* lowBandUrl = &noString();      // "mediaLowBandUrl"
  const String* dataUrl = &noString();         // "mediaDataUrl"
  const String* lowBandDataUrl = &noString();  // "mediaLowBandDataUrl"
  const String* extInfo = &noString();         // "extInfo"
  const String* fileExt = &noString();         // "fileExt"
  const Data* data = &noData();                // "fileData"
  const String* cardInfo = &noString();        // "enterpriseCardInfo"
  std::int64_t cardMsgType = 0;                // "enterpriseCardMsgType", enterprise cards only
  const String* userName = &noString();        // "appBrandUserName"
  const String* path = &noString();            // "appBrandPath"
  const Data* hdThumb = &noData();             // "hdThumbData"
  bool withShareTicket = false;
  bool disableForward = false;
  bool updatable = false;
  bool secret = false;
  std::uint64_t miniProgramType = 0;
  const Dictionary* appBrandExtraInfo = nullptr;  // "appbrandextrainfo"
  const String* sightCdnVideoUrl = &noString();
  const String* sightCdnThumbUrl = &noString();
  const String* sightAppThumbUrl = &noString();
  const String* songAlbumUrl = &noString();
  const String* songLyric = &noString();
  std::int32_t tesselSubType = 0;
  const Dictionary* gameLiveExtraInfo = nullptr;  // "gameLiveExtraInfo"
  const String* singerName = &noString();         // "musicVideoSingetName"
  const Data* hdAlbumThumb = &noData();           // "musicVideoHDThumbData"
  const String* albumName = &noString();
  const String* musicGenre = &noString();
  const String* identification = &noString();
  const String* musicOperationUrl = &noString();
  std::uint32_t musicVideoDuration = 0;
  std::uint64_t musicVideoIssueDate = 0;
};

// The fields of `o` by its class, or false for a class that has no object
// type code (text, location, or a class the kit does not know).  A subclass
// counts as its base class.  The pointers refer into `o`.
bool linkFieldsOf(const MRMediaObject& o, LinkFields& f) {
  if (auto* p = dynamic_cast<const MRImageObject*>(&o)) {
    f.code = kObjectTypeImage;
    f.data = &p->imageData;
  } else if (auto* p3 = dynamic_cast<const MRMusicObject*>(&o)) {
    f.code = kObjectTypeMusic;
    f.url = &p3->musicUrl;
    f.lowBandUrl = &p3->musicLowBandUrl;
    f.dataUrl = &p3->musicDataUrl;
    f.lowBandDataUrl = &p3->musicLowBandDataUrl;
    f.songAlbumUrl = &p3->songAlbumUrl;
    f.songLyric = &p3->songLyric;
  } else if (auto* p4 = dynamic_cast<const MRVideoObject*>(&o)) {
    f.code = kObjectTypeVideo;
    f.url = &p4->videoUrl;
    f.lowBandUrl = &p4->videoLowBandUrl;
  } else if (auto* p5 = dynamic_cast<const MRWebpageObject*>(&o)) {
    f.code = kObjectTypeWebpage;
    f.url = &p5->webpageUrl;
  } else if (auto* p6 = dynamic_cast<const MRFileObject*>(&o)) {
    f.code = kObjectTypeFile;
    f.fileExt = &p6->fileExtension;
    f.data = &p6->fileData;
  } else if (auto* p7 = dynamic_cast<const MRAppExtendObject*>(&o)) {
    f.code = kObjectTypeAppExtend;
    f.url = &p7->url;
    f.extInfo = &p7->extInfo;
    f.data = &p7->fileData;
  } else if (auto* p8 = dynamic_cast<const MREmoticonObject*>(&o)) {
    f.code = kObjectTypeEmoticon;
    f.data = &p8->emoticonData;
  } else if (auto* p36 = dynamic_cast<const MRMiniProgramObject*>(&o)) {
    f.code = kObjectTypeMiniProgram;
    f.url = &p36->webpageUrl;
    f.userName = &p36->userName;
    f.path = &p36->path;
    f.hdThumb = &p36->hdImageData;
    f.withShareTicket = p36->withShareTicket;
    f.disableForward = p36->disableForward;
    f.miniProgramType = p36->miniProgramType;
    f.updatable = p36->isUpdatableMessage;
    f.secret = p36->isSecretMessage;
    f.appBrandExtraInfo = p36->extraInfoDic.get();
  } else if (auto* p38 = dynamic_cast<const MRVideoFileObject*>(&o)) {
    f.code = kObjectTypeVideoFile;
    f.data = &p38->videoFileData;
  } else if (auto* p39 = dynamic_cast<const MRGameVideoFileObject*>(&o)) {
    f.code = kObjectTypeGameVideoFile;
    f.data = &p39->videoFileData;
    f.sightCdnVideoUrl = &p39->videoUrl;
    f.sightCdnThumbUrl = &p39->thumbUrl;
  } else if (auto* p45 = dynamic_cast<const MREnterpriseCardObject*>(&o)) {
    f.code = kObjectTypeEnterpriseCard;
    f.cardInfo = &p45->cardInfo;
    f.cardMsgType = p45->msgType;
  } else if (auto* p46 = dynamic_cast<const MRDynamicVideoMiniProgramObject*>(&o)) {
    f.code = kObjectTypeDynamicVideoMiniProgram;
    f.url = &p46->webpageUrl;
    f.userName = &p46->userName;
    f.path = &p46->path;
    f.hdThumb = &p46->hdImageData;
    f.withShareTicket = p46->withShareTicket;
    f.disableForward = p46->disableForward;
    f.miniProgramType = p46->miniProgramType;
    f.sightCdnVideoUrl = &p46->videoSource;
    f.sightAppThumbUrl = &p46->appThumbUrl;
  } else if (auto* p49 = dynamic_cast<const MRTesselObject*>(&o)) {
    f.code = kObjectTypeTessel;
    f.data = &p49->data;
    f.extInfo = &p49->extInfo;
    f.tesselSubType = p49->subType;
  } else if (auto* p70 = dynamic_cast<const MRGameLiveObject*>(&o)) {
    f.code = kObjectTypeGameLive;
    f.gameLiveExtraInfo = p70->extraInfoDic.get();
  } else if (auto* p76 = dynamic_cast<const MRMusicVideoObject*>(&o)) {
    f.code = kObjectTypeMusicVideo;
    f.url = &p76->musicUrl;
    f.dataUrl = &p76->musicDataUrl;
    f.singerName = &p76->singerName;
    f.songLyric = &p76->songLyric;
    f.hdAlbumThumb = &p76->hdAlbumThumbData;
    f.albumName = &p76->albumName;
    f.musicGenre = &p76->musicGenre;
    f.identification = &p76->identification;
    f.musicOperationUrl = &p76->musicOperationUrl;
    f.musicVideoDuration = p76->duration;
    f.musicVideoIssueDate = p76->issueDate;
  } else {
    return false;
  }
  return true;
}

// The checks of a flattened object, in order; false after logging the first
// that fails.
bool checkLinkFields(const LinkFields& f) {
  // An empty string or buffer counts as absent here.
  if (f.url->empty() && f.extInfo->empty() && f.data->empty() && f.cardInfo->empty()) {
    const bool liveWithInfo = f.code == kObjectTypeGameLive && f.gameLiveExtraInfo != nullptr &&
                              !f.gameLiveExtraInfo->empty();
    if (!liveWithInfo) {
      mrlog::error("object lose some param");
      return false;
    }
  }
  if (f.url->length() > lim::kUrl) {
    mrlog::error("object url too large, largest size is %d", lim::kUrl);
    return false;
  }
  if (f.lowBandUrl->length() > lim::kUrl) {
    mrlog::error("object lowBandUrl too large, largest size is %d", lim::kUrl);
    return false;
  }
  if (f.dataUrl->length() > lim::kUrl) {
    mrlog::error("object dataUrl too large, largest size is %d", lim::kUrl);
    return false;
  }
  if (f.lowBandDataUrl->length() > lim::kUrl) {
    mrlog::error("object lowBandDataUrl too large, largest size is %d", lim::kUrl);
    return false;
  }
  if (f.code == kObjectTypeTessel) {
    // A Tessel payload has no extInfo limit; its length is only noted.
    mrlog::line("object extInfo length:%lu", f.extInfo->length());
  } else if (f.extInfo->length() > lim::kExtInfo) {
    mrlog::error("object extInfo too large, largest size is %d", lim::kExtInfo);
    return false;
  }
  if (f.fileExt->length() > lim::kFileExt) {
    mrlog::error("object fileExt too large, largest size is %d", lim::kFileExt);
    return false;
  }
  const std::size_t dataSize = f.data->size();
  switch (f.code) {
    case kObjectTypeVideoFile:
    case kObjectTypeGameVideoFile:
      if (dataSize > lim::kGameFileData) {
        mrlog::error("object game fileData too large, largest size is %d", lim::kGameFileData);
        return false;
      }
      break;
    case kObjectTypeImage:
      if (dataSize > lim::kImageData) {
        mrlog::error("object image data too large, largest size is %d", lim::kImageData);
        return false;
      }
      break;
    case kObjectTypeTessel:
      mrlog::line("object data length:%lu", dataSize);
      break;
    default:
      if (dataSize > lim::kFileData) {
        mrlog::error("object fileData too large, largest size is %d", lim::kFileData);
        return false;
      }
      break;
  }
  if (f.hdThumb->size() > lim::kHdThumbData) {
    mrlog::error("object hdThumbData too large, largest size is %d", lim::kHdThumbData);
    return false;
  }
  if (f.miniProgramType >= lim::kMiniProgramTypeCount) {
    mrlog::error("miniProgramType is invaild");
    return false;
  }
  if (f.songAlbumUrl->length() > lim::kSongAlbumUrl) {
    mrlog::error("object songAlbumUrl too large, largest size is %d", lim::kSongAlbumUrl);
    return false;
  }
  if (f.songLyric->length() > lim::kSongLyric) {
    mrlog::error("object songLyric too large, largest size is %d", lim::kSongLyric);
    return false;
  }
  if (f.hdAlbumThumb->size() > lim::kHdAlbumThumbData) {
    mrlog::error("object hdAlbumThumbData too large, size is %lu", f.hdAlbumThumb->size());
    return false;
  }
  if (f.code == kObjectTypeMusicVideo) {
    if (f.url->empty() || f.dataUrl->empty() || f.singerName->empty()) {
      mrlog::error("musicUrl\u3001musicDataUrl and singerName can not be nil");
      return false;
    }
  }
  if (f.albumName->length() > lim::kMusicVideoText || f.musicGenre->length() > lim::kMusicVideoText ||
      f.identification->length() > lim::kMusicVideoText) {
    mrlog::error("albumName\u3001musicGenre or identification is too large");
    return false;
  }
  if (f.musicOperationUrl->length() > lim::kMusicOperationUrl) {
    mrlog::error("musicOperationUrl is too large");
    return false;
  }
  return true;
}

// Sets a string, data or dictionary value only when it is set.
void putString(Dictionary& d, const char* key, const String& s) { d.mrApi_safeSetObject(Value(s), key); }
void putData(Dictionary& d, const char* key, const Data& data) { d.mrApi_safeSetObject(Value(data), key); }
void putDictionary(Dictionary& d, const char* key, const Dictionary* dict) {
  if (dict != nullptr) d.mrApi_safeSetObject(Value(*dict), key);
}
void putDictionary(Dictionary& d, const char* key, const std::shared_ptr<Dictionary>& dict) {
  putDictionary(d, key, dict.get());
}

// The keys written for every object, whatever its class.
void putAlwaysWritten(Dictionary& d, bool withShareTicket, bool disableForward, bool updatable, bool secret,
                      std::uint64_t miniProgramType, std::int32_t tesselSubType, std::uint32_t duration,
                      std::uint64_t issueDate) {
  d.set("withShareTicket", Value(withShareTicket));
  d.set("disableForward", Value(disableForward));
  d.set("appbrandisupdatablemessage", Value(updatable));
  d.set("appbrandissecrectmessage", Value(secret));
  d.set("miniprogramType", Value(miniProgramType));
  d.set("tesselObjectSubType", Value(std::to_string(tesselSubType)));
  d.set("musicVideoDuration", Value(std::to_string(duration)));
  d.set("musicVideoIssueData", Value(std::to_string(issueDate)));
}

// ---- reading ------------------------------------------------------------------

// The leading decimal numeral of `s` as an unsigned number; 0 when there is
// none or it does not fit.
template <class T>
T parseUnsigned(std::string_view s) {
  T v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  (void)end;
  return ec == std::errc() ? v : T{0};
}

template <class T>
T unsignedForKey(const Dictionary& d, std::string_view key) {
  const Value* v = d.find(key);
  if (v == nullptr || !v->isString()) return 0;
  return parseUnsigned<T>(*v->asString());
}

// The string under `key` when it has at most `limit` characters, else null.
String stringForKey(const Dictionary& d, std::string_view key, std::size_t limit) {
  String s = d.mrApi_stringForKey(key);
  return s.length() > limit ? String() : s;
}
String stringForKey(const Dictionary& d, std::string_view key) { return d.mrApi_stringForKey(key); }

// The data under `key` when it has at most `limit` bytes, else null.
Data dataForKey(const Dictionary& d, std::string_view key, std::size_t limit) {
  const Data* data = d.mrApi_dataForKey(key);
  return data != nullptr && data->size() <= limit ? *data : Data();
}

std::shared_ptr<Dictionary> dictionaryForKey(const Dictionary& d, std::string_view key) {
  const Dictionary* dict = d.mrApi_dictionaryForKey(key);
  return dict != nullptr ? std::make_shared<Dictionary>(*dict) : nullptr;
}

bool boolForKey(const Dictionary& d, std::string_view key) { return d.mrApi_numberForKey(key).boolValue(); }

// The byte limit of "fileData" for an object type, as the flattening applies
// it; a Tessel payload has none.
std::size_t fileDataLimit(std::uint64_t objectType) {
  switch (objectType) {
    case kObjectTypeVideoFile:
    case kObjectTypeGameVideoFile:
      return lim::kGameFileData;
    case kObjectTypeImage:
      return lim::kImageData;
    case kObjectTypeTessel:
      return SIZE_MAX;
    default:
      return lim::kFileData;
  }
}

// The path of a mini program as the messenger opens it: ".html" before the
// first "?", or at the end of a non-empty path without one.
String htmlPath(const String& path) {
  if (path.empty()) return path;
  std::string p = path.str();
  const std::size_t q = p.find('?');
  if (q == std::string::npos) return String(p + ".html");
  p.insert(q, ".html");
  return String(std::move(p));
}

}  // namespace

// ---- flattening ----------------------------------------------------------------

bool AppCommunicateData::MakeLinkObject(const std::shared_ptr<MRMediaObject>& object) {
  if (object == nullptr) {
    mrlog::error("media object is nil");
    return false;
  }
  LinkFields f;
  if (!linkFieldsOf(*object, f)) {
    mrlog::error(" unkow object");
    return false;
  }
  if (!checkLinkFields(f)) return false;

  Dictionary& d = dictionaryData_;
  d.set("objectType", Value(std::to_string(f.code)));
  putAlwaysWritten(d, f.withShareTicket, f.disableForward, f.updatable, f.secret, f.miniProgramType, f.tesselSubType,
                   f.musicVideoDuration, f.musicVideoIssueDate);
  putString(d, "mediaUrl", *f.url);
  putString(d, "mediaLowBandUrl", *f.lowBandUrl);
  putString(d, "mediaDataUrl", *f.dataUrl);
  putString(d, "mediaLowBandDataUrl", *f.lowBandDataUrl);
  putString(d, "extInfo", *f.extInfo);
  putString(d, "fileExt", *f.fileExt);
  putData(d, "fileData", *f.data);
  putString(d, "appBrandUserName", *f.userName);
  putString(d, "appBrandPath", *f.path);
  putData(d, "hdThumbData", *f.hdThumb);
  putDictionary(d, "appbrandextrainfo", f.appBrandExtraInfo);
  putString(d, "sightCdnVideoUrl", *f.sightCdnVideoUrl);
  putString(d, "sightCdnThumbUrl", *f.sightCdnThumbUrl);
  putString(d, "sightAppThumbUrl", *f.sightAppThumbUrl);
  putString(d, "enterpriseCardInfo", *f.cardInfo);
  if (f.code == kObjectTypeEnterpriseCard) d.set("enterpriseCardMsgType", Value(f.cardMsgType));
  putString(d, "songAlbumUrl", *f.songAlbumUrl);
  putString(d, "songLyric", *f.songLyric);
  putDictionary(d, "gameLiveExtraInfo", f.gameLiveExtraInfo);
  putString(d, "musicVideoSingetName", *f.singerName);
  putData(d, "musicVideoHDThumbData", *f.hdAlbumThumb);
  putString(d, "musicVideoAlbumName", *f.albumName);
  putString(d, "musicVideoMusicGenre", *f.musicGenre);
  putString(d, "musicVideoIdentification", *f.identification);
  putString(d, "musicVideoOperationUrl", *f.musicOperationUrl);
  return true;
}

// ---- the internal media message ----------------------------------------------------

// The keys are those of the flattening and of the media message; the writer
// trusts the internal record (the kit builds it) and applies no limits, the
// reader applies them.  "disableForward" has no field and is written false.
bool AppCommunicateData::MakeMediaInternalMessage(const std::shared_ptr<MRMediaInternalMessage>& message) {
  if (message == nullptr) return false;
  const MRMediaInternalMessage& m = *message;
  Dictionary& d = dictionaryData_;
  putString(d, "title", m.title);
  putString(d, "description", m.description);
  putData(d, "thumbData", m.thumbData);
  putString(d, "mediaTagName", m.mediaTagName);
  putString(d, "messageExt", m.messageExt);
  putString(d, "messageAction", m.messageAction);
  d.set("objectType", Value(std::to_string(m.objectType)));
  putAlwaysWritten(d, m.appBrandWithShareTikcet, false, m.isAppBrandUpdatableMessage, m.isAppBrandSecretMessage,
                   m.appBrandMiniProgramType, m.tesselSubType, m.musicVideoDuration, m.musicVideoIssueDate);
  putString(d, "mediaUrl", m.mediaUrl);
  putString(d, "mediaLowBandUrl", m.mediaLowBandUrl);
  putString(d, "mediaDataUrl", m.mediaDataUrl);
  putString(d, "mediaLowBandDataUrl", m.mediaLowBandDataUrl);
  putString(d, "extInfo", m.extInfo);
  putString(d, "fileExt", m.fileExt);
  putData(d, "fileData", m.fileData);
  putString(d, "appBrandUserName", m.appBrandUserName);
  putString(d, "appBrandPath", m.appBrandPath);
  putData(d, "hdThumbData", m.hdThumbData);
  putDictionary(d, "appbrandextrainfo", m.appBrandExtraInfoDic);
  putString(d, "sightCdnVideoUrl", m.sightCdnVideoUrl);
  putString(d, "sightCdnThumbUrl", m.sightCdnThumbUrl);
  putString(d, "sightAppThumbUrl", m.sightAppThumbUrl);
  putString(d, "enterpriseCardInfo", m.enterpriseCardContent);
  if (m.objectType == kObjectTypeEnterpriseCard) d.set("enterpriseCardMsgType", Value(m.enterpriseCardMsgType));
  putString(d, "songAlbumUrl", m.songAlbumUrl);
  putString(d, "songLyric", m.songLyric);
  putDictionary(d, "gameLiveExtraInfo", m.gameLiveExtraInfoDic);
  putString(d, "musicVideoSingetName", m.musicVideoSingerName);
  putData(d, "musicVideoHDThumbData", m.musicVideoHdAlbumThumbData);
  putString(d, "musicVideoAlbumName", m.musicVideoAlbumName);
  putString(d, "musicVideoMusicGenre", m.musicVideoMusicGenre);
  putString(d, "musicVideoIdentification", m.musicVideoIdentification);
  putString(d, "musicVideoOperationUrl", m.musicVideoOperationUrl);
  return true;
}

// Reads a record that carries "objectType" (a decimal string).  Every key is
// read under the limit its writer applies; a value over its limit, or of
// another kind than written, reads as null (strings, data, dictionaries),
// false (the boolean numbers) or 0 (numbers and decimal texts).  In detail:
//   strings: title 512, description 1024, mediaTagName 64, messageExt and
//     messageAction 2048, mediaUrl / mediaLowBandUrl / mediaDataUrl /
//     mediaLowBandDataUrl / songAlbumUrl / musicVideoOperationUrl 10240,
//     extInfo 2048 (no limit for a Tessel payload), fileExt 64, songLyric
//     32768, the three music-video texts 1024; the user name, path,
//     sight URLs, card info and singer name have no limit;
//   data: thumbData 65536 (not decoded here), fileData by object type
//     (image 26214400, Tessel none, others 1073741824), hdThumbData 131072,
//     musicVideoHDThumbData 10485760;
//   numbers: miniprogramType 3 or more reads 0.
// A mini-program card (36, 46) is always refused, see below.
std::shared_ptr<MRMediaInternalMessage> AppCommunicateData::mediaInternalMessage() const {
  if (!hasDictionary_) return nullptr;
  const Dictionary& d = dictionaryData_;
  const Value* type = d.find("objectType");
  if (type == nullptr || !type->isString()) return nullptr;

  auto message = std::make_shared<MRMediaInternalMessage>();
  MRMediaInternalMessage& m = *message;
  m.objectType = parseUnsigned<std::uint64_t>(*type->asString());

  if (m.objectType == kObjectTypeMiniProgram || m.objectType == kObjectTypeDynamicVideoMiniProgram) {
    // The messenger's user names travel without the "@app" suffix; the name
    // formed here always carries it, so the format test refuses every card.
    // An absent name forms no name at all and is refused the same way.
    const String userName = d.mrApi_stringForKey("appBrandUserName");
    const String formed = userName.isNull() ? String() : String(userName.str() + "@app");
    if (formed.empty() || formed.contains("@")) {
      mrlog::error("nsAppBrandUserName format is not right");
      return nullptr;
    }
    m.appBrandUserName = String(formed.str() + "@app");
    m.appBrandPath = htmlPath(d.mrApi_stringForKey("appBrandPath"));
  } else {
    m.appBrandUserName = stringForKey(d, "appBrandUserName");
    m.appBrandPath = stringForKey(d, "appBrandPath");
  }

  m.appBrandWithShareTikcet = boolForKey(d, "withShareTicket");
  m.isAppBrandUpdatableMessage = boolForKey(d, "appbrandisupdatablemessage");
  m.isAppBrandSecretMessage = boolForKey(d, "appbrandissecrectmessage");
  if (const Value* sub = d.find("tesselObjectSubType"); sub != nullptr && sub->isString()) {
    m.tesselSubType = sub->intValue();
  }
  m.musicVideoDuration = unsignedForKey<std::uint32_t>(d, "musicVideoDuration");
  m.title = stringForKey(d, "title", lim::kTitle);
  m.description = stringForKey(d, "description", lim::kDescription);
  m.thumbData = dataForKey(d, "thumbData", lim::kThumbData);
  m.mediaTagName = stringForKey(d, "mediaTagName", lim::kMediaTagName);
  m.extInfo = m.objectType == kObjectTypeTessel ? stringForKey(d, "extInfo")
                                                 : stringForKey(d, "extInfo", lim::kExtInfo);
  m.fileExt = stringForKey(d, "fileExt", lim::kFileExt);
  m.fileData = dataForKey(d, "fileData", fileDataLimit(m.objectType));
  m.mediaUrl = stringForKey(d, "mediaUrl", lim::kUrl);
  m.mediaLowBandUrl = stringForKey(d, "mediaLowBandUrl", lim::kUrl);
  m.mediaDataUrl = stringForKey(d, "mediaDataUrl", lim::kUrl);
  m.mediaLowBandDataUrl = stringForKey(d, "mediaLowBandDataUrl", lim::kUrl);
  m.messageExt = stringForKey(d, "messageExt", lim::kMessageExt);
  m.messageAction = stringForKey(d, "messageAction", lim::kMessageAction);
  m.hdThumbData = dataForKey(d, "hdThumbData", lim::kHdThumbData);
  const std::uint64_t programType = d.mrApi_numberForKey("miniprogramType").unsignedValue();
  m.appBrandMiniProgramType = programType < lim::kMiniProgramTypeCount ? programType : 0;
  m.sightCdnVideoUrl = stringForKey(d, "sightCdnVideoUrl");
  m.sightCdnThumbUrl = stringForKey(d, "sightCdnThumbUrl");
  m.sightAppThumbUrl = stringForKey(d, "sightAppThumbUrl");
  m.enterpriseCardContent = stringForKey(d, "enterpriseCardInfo");
  m.enterpriseCardMsgType = d.mrApi_numberForKey("enterpriseCardMsgType").integerValue();
  m.songAlbumUrl = stringForKey(d, "songAlbumUrl", lim::kSongAlbumUrl);
  m.songLyric = stringForKey(d, "songLyric", lim::kSongLyric);
  m.appBrandExtraInfoDic = dictionaryForKey(d, "appbrandextrainfo");
  m.gameLiveExtraInfoDic = dictionaryForKey(d, "gameLiveExtraInfo");
  m.musicVideoSingerName = stringForKey(d, "musicVideoSingetName");
  m.musicVideoHdAlbumThumbData = dataForKey(d, "musicVideoHDThumbData", lim::kHdAlbumThumbData);
  m.musicVideoAlbumName = stringForKey(d, "musicVideoAlbumName", lim::kMusicVideoText);
  m.musicVideoMusicGenre = stringForKey(d, "musicVideoMusicGenre", lim::kMusicVideoText);
  m.musicVideoIdentification = stringForKey(d, "musicVideoIdentification", lim::kMusicVideoText);
  m.musicVideoIssueDate = unsignedForKey<std::uint64_t>(d, "musicVideoIssueData");
  m.musicVideoOperationUrl = stringForKey(d, "musicVideoOperationUrl", lim::kMusicOperationUrl);
  return message;
}

std::shared_ptr<MRMediaMessage> AppCommunicateData::mediaMessage() const {
  auto internal = mediaInternalMessage();
  return internal ? internal->mediaMessage() : nullptr;
}

// The state-scene keys, each string at most 10240 characters (longer reads
// as null); null when the record carries none of the five keys.
std::shared_ptr<MRSceneInternalMessage> AppCommunicateData::sceneMessage() const {
  if (!hasDictionary_) return nullptr;
  const Dictionary& d = dictionaryData_;
  const Value* jumpType = d.find("stateJumpType");
  const bool hasJumpType = jumpType != nullptr && jumpType->isString();
  auto state = std::make_shared<MRSceneInternalMessage>();
  state->stateId = stringForKey(d, "stateId", lim::kStateField);
  state->stateToken = stringForKey(d, "stateToken", lim::kStateField);
  state->stateUrl = stringForKey(d, "stateUrl", lim::kStateField);
  state->stateTitle = stringForKey(d, "stateTitle", lim::kStateField);
  if (hasJumpType) state->jumpType = parseUnsigned<std::uint64_t>(*jumpType->asString());
  if (!hasJumpType && state->stateId.isNull() && state->stateToken.isNull() && state->stateUrl.isNull() &&
      state->stateTitle.isNull()) {
    return nullptr;
  }
  return state;
}

// ---- channel video --------------------------------------------------------------------

// The share request's keys:
//   "finderLocalIdentifier"  the video's identifier (string), when set;
//   "finderExtData"          the request's extData (data), when set;
//   "finderJumpInfo"         boolean number: whether a jump button follows;
//                            written always, true only for a jump info of a
//                            known kind (a bare MRChannelBaseJumpInfo has no
//                            target and is not written);
//   "finderJumpInfoType"     decimal text: "0" mini program, "1" URL;
//   "finderJumpInfoWording", "finderJumpInfoExtData"  strings, when set;
//   "finderJumpInfoTinyAppUsername", "finderJumpInfoTinyAppPath"  the mini
//                            program's user name and path, when set;
//   "finderJumpInfoH5Url"    the URL of a URL jump, when set.
bool AppCommunicateData::makeChannelShareVideoToDicData(const std::shared_ptr<MRChannelShareVideoReq>& req) {
  if (req == nullptr) return false;
  Dictionary& d = dictionaryData_;
  putString(d, "finderLocalIdentifier", req->localIdentifier);
  putData(d, "finderExtData", req->extData);
  const MRChannelBaseJumpInfo* jump = req->jumpInfo.get();
  const auto* miniProgram = dynamic_cast<const MRChannelJumpMiniProgramInfo*>(jump);
  const auto* url = dynamic_cast<const MRChannelJumpUrlInfo*>(jump);
  d.set("finderJumpInfo", Value(miniProgram != nullptr || url != nullptr));
  if (miniProgram == nullptr && url == nullptr) return true;
  d.set("finderJumpInfoType", Value(miniProgram != nullptr ? "0" : "1"));
  putString(d, "finderJumpInfoWording", jump->wording);
  putString(d, "finderJumpInfoExtData", jump->extData);
  if (miniProgram != nullptr) {
    putString(d, "finderJumpInfoTinyAppUsername", miniProgram->userName);
    putString(d, "finderJumpInfoTinyAppPath", miniProgram->path);
  } else {
    putString(d, "finderJumpInfoH5Url", url->url);
  }
  return true;
}

}  // namespace mirelo
