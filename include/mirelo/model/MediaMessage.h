// Rich content that a host shares: the media message, the media objects it
// carries, and the scene data of the "state" scene.
//
// These are plain value holders (see Base.h for the conventions); the limits
// on their fields are enforced when they are converted into the app data
// record, where each media object also receives its object type code.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/model/Base.h"

namespace mirelo {

namespace platform {
class Image;
}

// The values of `miniProgramType` (MRMiniProgramObject,
// MRDynamicVideoMiniProgramObject, MRLaunchMiniProgramReq).  Any other value
// is refused when the request is converted.
enum MRMiniProgramType : std::uint64_t {
  MRMiniProgramTypeRelease = 0,  // the published version
  MRMiniProgramTypeTest = 1,     // the development version
  MRMiniProgramTypePreview = 2,  // the trial version
};

// ---- media objects -------------------------------------------------------

// The common base of the media objects below, so that a media message can
// hold any of them.  It has no fields, cannot be made on its own, and is not
// itself a media object: the conversion recognises the concrete classes.
class MRMediaObject : public MRObject {
 protected:
  MRMediaObject() = default;
};

// Text.  Not flattened as a media object: text travels on the text path.
class MRTextObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRTextObject)
 public:
  String contentText;
};

// An image (object type 2).
class MRImageObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRImageObject)
 public:
  Data imageData;
};

// Music (object type 3).
class MRMusicObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRMusicObject)
 public:
  String musicUrl;
  String musicLowBandUrl;
  String musicDataUrl;
  String musicLowBandDataUrl;
  String songAlbumUrl;
  String songLyric;
};

// A video by URL (object type 4).
class MRVideoObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRVideoObject)
 public:
  String videoUrl;
  String videoLowBandUrl;
};

// A web page (object type 5).
class MRWebpageObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRWebpageObject)
 public:
  String webpageUrl;
};

// A file (object type 6).
class MRFileObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRFileObject)
 public:
  String fileExtension;
  Data fileData;
};

// An app-extension payload handed back to the host when opened (object
// type 7).
class MRAppExtendObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRAppExtendObject)
 public:
  String url;
  String extInfo;
  Data fileData;
};

// An emoticon (object type 8).
class MREmoticonObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MREmoticonObject)
 public:
  Data emoticonData;
};

// A mini-program card (object type 36).
class MRMiniProgramObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRMiniProgramObject)
 public:
  String webpageUrl;
  String userName;
  String path;
  Data hdImageData;
  bool withShareTicket = false;
  std::uint64_t miniProgramType = MRMiniProgramTypeRelease;  // MRMiniProgramType
  bool disableForward = false;
  bool isUpdatableMessage = false;
  bool isSecretMessage = false;
  std::shared_ptr<Dictionary> extraInfoDic;  // held
};

// A video file (object type 38).
class MRVideoFileObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRVideoFileObject)
 public:
  Data videoFileData;
};

// A game video file (object type 39).
class MRGameVideoFileObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRGameVideoFileObject)
 public:
  Data videoFileData;
  String videoUrl;
  String thumbUrl;
};

// An enterprise card (object type 45).
class MREnterpriseCardObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MREnterpriseCardObject)
 public:
  String cardInfo;
  std::int64_t msgType = 0;
};

// A mini-program card with a video (object type 46).
class MRDynamicVideoMiniProgramObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRDynamicVideoMiniProgramObject)
 public:
  String webpageUrl;
  String userName;
  String path;
  Data hdImageData;
  bool withShareTicket = false;
  bool disableForward = false;
  std::uint64_t miniProgramType = MRMiniProgramTypeRelease;  // MRMiniProgramType
  String videoSource;
  String appThumbUrl;
};

// A Tessel payload (object type 49).
class MRTesselObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRTesselObject)
 public:
  std::int32_t subType = 0;
  Data data;
  String extInfo;
};

// A game live room (object type 70).
class MRGameLiveObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRGameLiveObject)
 public:
  std::shared_ptr<Dictionary> extraInfoDic;  // held
};

// A music video (object type 76).
class MRMusicVideoObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRMusicVideoObject)
 public:
  String musicUrl;
  String musicDataUrl;
  String singerName;
  std::uint32_t duration = 0;
  String songLyric;
  Data hdAlbumThumbData;
  String albumName;
  String musicGenre;
  std::uint64_t issueDate = 0;
  String identification;
  String musicOperationUrl;
};

// A position.  -1000.0 marks a coordinate that was never set.  The
// conversion knows no object type for it: a message carrying it is refused.
class MRLocationObject : public MRMediaObject {
  MIRELO_MODEL_CLASS(MRLocationObject)
 public:
  static constexpr double kUnset = -1000.0;
  double lng = kUnset;
  double lat = kUnset;
};

// ---- the media message ----------------------------------------------------

// The card that a send-message request shares: the common fields and one
// media object.
class MRMediaMessage {
 public:
  MRMediaMessage() = default;
  MRMediaMessage(const MRMediaMessage&) = default;
  MRMediaMessage& operator=(const MRMediaMessage&) = default;
  virtual ~MRMediaMessage() = default;

  // A new, empty message.
  static std::shared_ptr<MRMediaMessage> message() { return std::make_shared<MRMediaMessage>(); }
  static std::shared_ptr<MRMediaMessage> object() { return message(); }

  virtual std::string className() const { return "MRMediaMessage"; }

  // Sets thumbData to a JPEG of `image` small enough for the messenger when
  // possible: quality 0.6 first, then 0.1 lower at a time down to about 0.1
  // while the encoding is longer than 32768 bytes.  The last encoding is kept
  // whatever its length.  A null image (or a platform without an image
  // codec) leaves thumbData untouched.
  void setThumbImage(const std::shared_ptr<platform::Image>& image);
  // The same for an image in encoded form (JPEG or PNG bytes, as read from
  // a file or an asset): decoded with the platform's image codec, then
  // re-encoded as above.  False (thumbData untouched) when the bytes are
  // null or not an image the platform decodes.
  bool setThumbImage(const Data& encodedImage);

  String title;
  // The card's description.  It is also how the message prints ("%@" of a
  // message is this text, "(null)" when unset): see describe() below.
  String description;
  Data thumbData;
  String mediaTagName;
  // Handed back to the host when the message is opened.
  String messageExt;
  String messageAction;
  // What is shared: any media object above.
  std::shared_ptr<MRMediaObject> mediaObject;
};

// How a media message prints: its `description` field, "(null)" when null.
// Found by argument-dependent lookup, so format("%@", message) uses it.
std::string describe(const MRMediaMessage& message);

// ---- scene data of the state scene ----------------------------------------

// The common base of the scene data carried by SendMessageToMRReq.
class MRSceneDataObject : public MRObject {
  MIRELO_MODEL_CLASS(MRSceneDataObject)
};

// The common base of jump targets of the state scene.
class MRStateJumpInfo : public MRObject {
  MIRELO_MODEL_CLASS(MRStateJumpInfo)
};

// A jump to a URL: the only jump target the conversion knows (jump type 0).
class MRStateJumpUrlInfo : public MRStateJumpInfo {
  MIRELO_MODEL_CLASS(MRStateJumpUrlInfo)
 public:
  String url;
};

// The scene data of the state scene (MRSceneState).
class MRStateSceneDataObject : public MRSceneDataObject {
  MIRELO_MODEL_CLASS(MRStateSceneDataObject)
 public:
  String stateId;
  String stateTitle;
  String token;
  std::shared_ptr<MRStateJumpInfo> stateJumpDataInfo;  // held
};

}  // namespace mirelo
