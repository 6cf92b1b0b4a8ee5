// The receiving side of the app data record: plain records whose fields
// mirror the record's body keys, the object type codes of the media objects,
// and the size limits that the writers enforce and the readers apply again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "mirelo/Data.h"
#include "mirelo/model/Limits.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"

namespace mirelo {

class MRMediaMessage;

// The object type code under "objectType" (written "%u").
enum MRMediaObjectType : std::uint32_t {
  kObjectTypeImage = 2,
  kObjectTypeMusic = 3,
  kObjectTypeVideo = 4,
  kObjectTypeWebpage = 5,
  kObjectTypeFile = 6,
  kObjectTypeAppExtend = 7,
  kObjectTypeEmoticon = 8,
  kObjectTypeMiniProgram = 36,
  kObjectTypeVideoFile = 38,
  kObjectTypeGameVideoFile = 39,
  kObjectTypeEnterpriseCard = 45,
  kObjectTypeDynamicVideoMiniProgram = 46,
  kObjectTypeTessel = 49,
  kObjectTypeGameLive = 70,
  kObjectTypeMusicVideo = 76,
};

// Size limits of the record's body: the public constants, under the name
// the record code uses.
namespace recordlimits = limits;

// Width and height of an image, in points.
struct MRImageSize {
  double width = 0;
  double height = 0;
};

// A media message as the record carries it: the media message's keys and
// the flattened media object side by side.  The key of each field is noted
// where it is not the field's own name.
class MRMediaInternalMessage {
 public:
  bool appBrandWithShareTikcet = false;     // "withShareTicket"
  bool isAppBrandUpdatableMessage = false;  // "appbrandisupdatablemessage"
  bool isAppBrandSecretMessage = false;     // "appbrandissecrectmessage"
  std::int32_t tesselSubType = 0;           // "tesselObjectSubType", decimal text
  std::uint32_t musicVideoDuration = 0;     // decimal text
  String title;
  String description;
  Data thumbData;
  String mediaTagName;
  std::uint64_t objectType = 0;  // MRMediaObjectType, decimal text
  String extInfo;
  String fileExt;
  Data fileData;
  String mediaUrl;
  String mediaLowBandUrl;
  String mediaDataUrl;
  String mediaLowBandDataUrl;
  String messageExt;
  String messageAction;
  String appBrandUserName;
  String appBrandPath;
  Data hdThumbData;
  std::uint64_t appBrandMiniProgramType = 0;  // "miniprogramType", an integer number
  String sightCdnVideoUrl;
  String sightCdnThumbUrl;
  String sightAppThumbUrl;
  String enterpriseCardContent;             // "enterpriseCardInfo"
  std::int64_t enterpriseCardMsgType = 0;   // an integer number
  String songAlbumUrl;
  String songLyric;
  std::shared_ptr<Dictionary> appBrandExtraInfoDic;  // "appbrandextrainfo"
  std::shared_ptr<Dictionary> gameLiveExtraInfoDic;  // "gameLiveExtraInfo"
  String musicVideoSingerName;                       // "musicVideoSingetName"
  Data musicVideoHdAlbumThumbData;                   // "musicVideoHDThumbData"
  String musicVideoAlbumName;
  String musicVideoMusicGenre;
  String musicVideoIdentification;
  std::uint64_t musicVideoIssueDate = 0;  // "musicVideoIssueData", decimal text
  String musicVideoOperationUrl;
  // Not carried by the record; stays zero.
  MRImageSize hdThumbImageSize;

  // The media message with the media object of `objectType`; an unknown
  // type gives a message without a media object.  Byte buffers and
  // dictionaries are shared, not copied.
  std::shared_ptr<MRMediaMessage> mediaMessage() const;
};

// The state-scene keys of a record.
class MRSceneInternalMessage {
 public:
  String stateId;     // "stateId"
  String stateToken;  // "stateToken"
  String stateUrl;    // "stateUrl"
  String stateTitle;  // "stateTitle"
  std::uint64_t jumpType = 0;  // "stateJumpType", decimal text; 0 is a URL jump
};

// The sign-in request of a record.
class MRAuthInternal {
 public:
  String scope;  // "scope"
  String state;  // "state"
};

}  // namespace mirelo
