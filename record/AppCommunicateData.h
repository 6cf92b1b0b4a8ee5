// The app data record: the one keyed record that carries a request or a
// response between the host and the messenger on the pasteboard.
//
// The sender fills the public fields on a fresh record, writes the header
// with initCommonField (a snapshot of the fields at that moment), lets a body
// writer add the command's keys, and hands propertList() to the pasteboard
// store.  The receiver rebuilds a record with initWithPropertList and reads
// the body back from its dictionary.  The body readers and writers of each
// command live in their own files next to this one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"

namespace mirelo {

class BaseReq;
class BaseResp;
class SendAuthReq;
class SendAuthResp;
class MRMediaMessage;
class MRMediaObject;
class MRSceneDataObject;
class MRStateSceneDataObject;
class MRChannelShareVideoReq;
class MRMediaInternalMessage;
class MRSceneInternalMessage;
class MRAuthInternal;

// What a record carries: the value under "command", which decides the body
// keys and the request or response class the receiver builds.  From 2080 on,
// the request and the response of one feature share one value.
enum AppCommunicateCommand : std::uint64_t {
  kCommandNone = 0,                         // header only
  kCommandMediaMessage = 1010,              // a media message
  kCommandTextMessage = 1020,               // a text message
  kCommandAuthRequest = 1030,               // a sign-in request ("scope", "state")
  kCommandShowMessageResp = 1070,           // a show-message response
  kCommandLaunchMiniProgram = 1080,         // a mini-program launch
  kCommandLaunchMraRedirectingPage = 1090,  // a mini-program redirecting page
  kCommandGetMessageReq = 2000,             // a get-message request
  kCommandSendMessageRespWithLocale = 2010, // a send-message response with language and country
  kCommandSendMessageResp = 2020,           // a send-message response
  kCommandAuthResp = 2030,                  // a sign-in response
  kCommandLaunchFromMRReq = 2040,           // a launch-from-messenger request
  kCommandCreateChatRoom = 2050,            // chat room creation
  kCommandJoinChatRoom = 2060,              // chat room joining
  kCommandLaunchMiniProgramResp = 2070,     // a mini-program launch response
  kCommandBusinessView = 2080,              // business view
  kCommandChannelShareVideo = 2090,         // channel video share
  kCommandChannelOpenProfile = 2100,        // channel profile
  kCommandChannelOpenLive = 2110,           // channel live
  kCommandChannelOpenFeed = 2120,           // channel feed
  kCommandOpenCustomerService = 2130,       // customer service
};

class AppCommunicateData {
 public:
  // A record with the defaults: command 0, no dictionary, result 1.
  AppCommunicateData() = default;

  // Builds a record from a received property list.  Always a record; a
  // dictionary without a string "command" gives command 0, no fields set
  // and no dictionary.  The rvalue form takes the dictionary over instead of
  // copying it.
  static std::shared_ptr<AppCommunicateData> initWithPropertList(const Dictionary& dict);
  static std::shared_ptr<AppCommunicateData> initWithPropertList(Dictionary&& dict);

  // Sets `command`, starts a new dictionary (dropping the earlier one) and
  // writes the header from the fields as they are now.
  void initCommonField(std::uint64_t command);
  // initCommonField, then true.
  bool MakeCommand(std::uint64_t command);

  std::uint64_t command() const { return command_; }
  // Whether the record has a dictionary: false for a fresh record and for
  // one rebuilt from a property list without "command".
  bool hasDictionary() const { return hasDictionary_; }
  // The property list to store; an empty dictionary when the record has
  // none (see hasDictionary).
  const Dictionary& propertList() const;
  // The dictionary itself, for the body writers and readers of this class,
  // which add or read the command's keys after initCommonField.  Writing
  // into a record without a dictionary does not give it one.
  Dictionary& dictionaryData() { return dictionaryData_; }

  std::string description() const;

  // ---- requests and responses (AppCommunicateData_convert.cc) ----
  // Every refusal logs its line as an error and returns false (or null).
  // A partly written dictionary may be left behind after a refusal; the
  // sender drops the record then.

  // ReqToData(req, nullptr).
  bool ReqToData(const std::shared_ptr<BaseReq>& req);
  // Picks the command for the request's class, writes the header and the
  // body.  `mediaInternalMessage` is the body of a show-message (1010) or
  // business-view (2080) request and may be null.  A request of no class
  // the record carries gets command 0 when the messenger has the
  // universal-link API and leaves the record as it is otherwise; both count
  // as success.  A send-message request of the state scene is modified: a
  // bare one becomes an empty text message.
  bool ReqToData(const std::shared_ptr<BaseReq>& req,
                 const std::shared_ptr<MRMediaInternalMessage>& mediaInternalMessage);
  // Picks the command for the response's class, writes the header and the
  // body.  An unknown class (null included) logs "un know resp" and is a
  // success; a body that cannot be written logs "gen resp fail".
  bool RespToData(const std::shared_ptr<BaseResp>& resp);
  // The request that a received record carries (2000, 2040, 1010), or null.
  std::shared_ptr<BaseReq> DataToReq() const;
  // The response that a received record carries, with errCode := result,
  // or null for a command that carries none.
  std::shared_ptr<BaseResp> DataToResp() const;

  // Body writers.  They add keys to the dictionary started by
  // initCommonField.
  bool MakeAuthRequest(const std::shared_ptr<SendAuthReq>& req);
  bool MakeAuthResp(const std::shared_ptr<SendAuthResp>& resp);
  // "title" := text, refusing null, empty and over-long texts.
  bool MakeTextMessage(const String& text);
  // As MakeTextMessage, but a null or empty text succeeds without a key.
  bool MakeTextMessageInState(const String& text);
  bool MakeMediaMessage(const std::shared_ptr<MRMediaMessage>& message);
  // Only an MRStateSceneDataObject is written; its empty stateTitle takes
  // a non-empty `text` (the caller's object is changed).
  bool MakeSceneDataObject(const std::shared_ptr<MRSceneDataObject>& sceneData, const String& text);
  bool makeStateSceneObject(const std::shared_ptr<MRStateSceneDataObject>& stateScene);

  // Body readers.  Each answers null when the record has no dictionary or
  // carries another command, and reads over-long values as null.
  // The sign-in request of a 1030 record.
  std::shared_ptr<MRAuthInternal> authRequest() const;
  // The sign-in response of a 1030 record: errCode := result, state.
  std::shared_ptr<SendAuthResp> authResp() const;
  // The text of a 1020 record.
  String textMessage() const;
  // The extension dictionary of a 1080 record.
  std::optional<Dictionary> tinyAppExtDic() const;

  // ---- media (AppCommunicateData_media.cc) ----
  // Flattens a media object into the dictionary with its object type code.
  bool MakeLinkObject(const std::shared_ptr<MRMediaObject>& object);
  // Writes an internal media message under the keys that
  // mediaInternalMessage reads.  False, writing nothing, for null.
  bool MakeMediaInternalMessage(const std::shared_ptr<MRMediaInternalMessage>& message);
  // Writes the channel-video keys of a share request.
  bool makeChannelShareVideoToDicData(const std::shared_ptr<MRChannelShareVideoReq>& req);
  // The media message that the record carries (it has an "objectType"),
  // or null.  Mini-program cards (36 and 46) are refused.
  std::shared_ptr<MRMediaInternalMessage> mediaInternalMessage() const;
  // mediaInternalMessage() as a media message, or null.
  std::shared_ptr<MRMediaMessage> mediaMessage() const;
  // The state-scene keys that the record carries, or null when it has none.
  std::shared_ptr<MRSceneInternalMessage> sceneMessage() const;

  // ---- fields, in the record's order (command and the dictionary above) ----
  // A large byte payload travelling under "fileData"; shares its bytes.
  Data fileData;
  // The record is a reply coming back from the other app.
  bool returnFromApp = false;
  // The request is being re-sent automatically after a token refresh.
  bool isAutoResend = false;
  // Result code; becomes errCode of a response.  A fresh record does not
  // claim success, hence 1.
  std::int32_t result = 1;
  // Target scene of a send-message request.
  std::int32_t scene = 0;
  String conversationAccount;
  String openID;
  // The sender's SDK version.
  String sdkVer;
  String lang;
  String country;
  // Open id of the addressee of a send-message request.
  String toUserOpenID;
  // The host's universal link, set only when the hand-off goes by universal link.
  String universalLink;

 private:
  void readPropertList(const Dictionary& dict);

  std::uint64_t command_ = kCommandNone;
  Dictionary dictionaryData_;
  bool hasDictionary_ = false;
};

}  // namespace mirelo
