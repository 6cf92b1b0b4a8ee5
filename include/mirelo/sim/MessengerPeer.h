// The Mirelo messenger as installed on the simulated device: the other side
// of the hand-off.
//
// The peer registers the messenger's URL schemes and claims its universal
// links.  When a host opens it, it reads the launch URL and the host's record
// on the general pasteboard with its own code (nothing is shared with the
// kit beyond the value layer), logs what it received, and answers the way the
// messenger does: by opening the host again through the host's scheme or its
// universal link, with the result in the URL or in a record of its own on the
// pasteboard.  What it answers is scripted per command.  It also sends the
// messenger's own requests to a host (show a message, get a message, launch).
//
// Everything happens on the device's run loop: an answer is opened while
// the peer handles the launch, so the host sees it once the test drains the
// run loop (SimDevice::runUntilIdle).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::sim {

// How a launch URL of the messenger begins.
enum class LaunchBase {
  Scheme,         // "mirelo://app/<appid>/..."
  UniversalLink,  // "https://open.mirelo.app/app/<appid>/..."
  Other,          // anything else the messenger was opened with
};

// One launch of the messenger, as the messenger read it.
struct ReceivedRequest {
  std::size_t index = 0;  // position in MessengerPeer::received()
  std::string url;
  std::string sourceBundleId;          // who opened the messenger
  bool routedAsUniversalLink = false;  // the device delivered it as a universal link
  LaunchBase base = LaunchBase::Other;
  bool viaUniversalLink = false;  // base == UniversalLink
  std::string appId;
  std::string command;   // the command path, such as "sendreq/" ("" when none)
  std::string rawQuery;  // the query as written in the URL
  Dictionary query;      // every key=value of the query, percent-decoded
  String token;          // "mirelo_auth_token"
  String contextId;      // "mirelo_auth_context_id"
  String bundleId;       // "mirelo_app_bundleId"
  bool degraded = false; // "mirelo_degrade_launch_by_scheme" is "1"
  // The JSON document that makes up the query of "cardpackage/",
  // "choosecard/" and "chooseinvoice/" (null when absent or malformed).
  String jsonText;
  Value json;

  // The host's record on the pasteboard ("content" item, key = app id).
  bool hasRecord = false;
  Dictionary record;
  std::optional<std::int64_t> recordCommand;
  String oldText;  // "old_text" of the pasteboard item

  // Oddities found while reading (malformed escapes, ill-typed record keys,
  // a missing record...).  A well-behaved host leaves this empty.
  std::vector<std::string> notes;

  // ---- readers ----
  String queryValue(std::string_view key) const;
  // The decoded value under `key`, read as a query of its own (the
  // web-view commands nest their parameters so).
  Dictionary nestedQuery(std::string_view key) const;
  // The decoded value under `key`, read as JSON (null when it is not).
  Value queryJson(std::string_view key) const;
  String recordString(std::string_view key) const;
  Data recordData(std::string_view key) const;
  // A record value that is a decimal string or an integer number.
  std::optional<std::int64_t> recordInteger(std::string_view key) const;
  // The text of a text message (command 1020, "title").
  String text() const;
  // The media message of a record (command 1010 and others that carry one).
  String mediaTitle() const;
  String mediaDescription() const;
  Data thumbData() const;
  std::optional<std::uint32_t> objectType() const;
  String mediaUrl() const;
  // Sign-in scope and state: from the query of "auth/", else from a 1030
  // record.
  String scope() const;
  String state() const;

  // A readable, multi-line account for transcripts; data is shown by size
  // and a short hex prefix.
  std::string describe() const;
};

// How the messenger opens the host again.
enum class AnswerRoute {
  Auto,           // the host's universal link when the record carries one, else its scheme
  Scheme,         // "<appid>://..."
  UniversalLink,  // "<universal link><appid>/..."
};

// What the messenger answers to one command.
struct Outcome {
  enum class Kind {
    Success,   // result 0
    Cancel,    // the user cancelled: -2
    Deny,      // sign-in: code=authdeny; others: -4
    Code,      // the result `code`
    NoAnswer,  // the messenger stays open and never returns
  };
  Kind kind = Kind::Success;
  int code = 0;
  // Fields of the answer; they replace or add to the defaults.  In a URL
  // answer each becomes key=value (strings as they are, numbers in decimal,
  // data in Base64, arrays and dictionaries as JSON); a null value removes a
  // default.  In a record answer they become record keys ("extMsg" is
  // written as "messageExt").
  Dictionary values;
  AnswerRoute route = AnswerRoute::Auto;
  // The host's universal link when the record did not carry one.
  String universalLink;
  // Answer a URL command ("auth/") with a record instead.
  bool asRecord = false;
  // The record's command number instead of the usual one.
  std::optional<std::uint64_t> recordCommand;
  // The URL answer's name instead of the usual one (also answers a command
  // the messenger does not know).
  std::string name;
  // Appended to a URL answer's query as it stands.
  std::string extraQuery;
  // Also hand the host a token: "mirelo_auth_token" (the token policy's
  // token) and "mirelo_auth_context_id" (the launch's context id).
  bool includeToken = false;
  // Answer after this many seconds of device time instead of at once.
  double delaySeconds = 0;

  static Outcome success(Dictionary values = {});
  static Outcome cancel();
  static Outcome deny();
  static Outcome withCode(int code, Dictionary values = {});
  static Outcome noAnswer();

  Outcome& by(AnswerRoute r) { route = r; return *this; }
  Outcome& through(std::string link) { universalLink = String(std::move(link)); return *this; }
  Outcome& recordInstead() { asRecord = true; return *this; }
  Outcome& after(double seconds) { delaySeconds = seconds; return *this; }

  // The result code that the answer carries.
  int resultCode() const;
};

// What the messenger does with a universal-link launch that carries a
// context id but no token.
struct TokenPolicy {
  enum class Action {
    Refresh,         // open "refreshToken" with a token and the launch's context id
    FailRefresh,     // open "refreshToken" that the host cannot record (see failure)
    ResendByScheme,  // open "resendContextReqByScheme" with the context id
    Proceed,         // answer the command as if a token had come
  };
  enum class Failure {
    MissingToken,    // no "mirelo_auth_token"
    WrongContextId,  // another context id than the launch's
  };
  Action action = Action::Refresh;
  Failure failure = Failure::MissingToken;
  std::string token = "mrpeer_token_0001";
  AnswerRoute route = AnswerRoute::Auto;
  String universalLink;
};

// The return leg of the host's universal-link self-check.
struct SelfCheckPolicy {
  bool answer = true;
  AnswerRoute route = AnswerRoute::Auto;
  String universalLink;
};

// One thing the messenger opened the host with.
struct PeerAnswer {
  enum class Kind { Record, Url, TokenRefresh, ResendByScheme, SelfCheck, Request };
  Kind kind = Kind::Url;
  std::optional<std::size_t> inReplyTo;  // index in received()
  std::string appId;
  std::string name;  // "oauth", "platformId=mirelo", "refreshToken"...
  std::string url;
  bool viaUniversalLink = false;
  bool fallback = false;  // the scheme retry after a universal link that did not open
  bool hasRecord = false;
  Dictionary record;  // the record written under the app id
  std::optional<bool> opened;  // unknown until the device has reported
  std::vector<std::string> notes;

  std::string describe() const;
};

// Media content of a request the messenger sends to a host.
struct PeerMediaContent {
  String title;
  String description;
  Data thumbData;
  String mediaTagName;
  String messageExt;
  String messageAction;
  // The media object's type code and keys ("mediaUrl", "fileData"...); with
  // 0 no object keys are written.
  std::uint32_t objectType = 0;
  Dictionary objectKeys;
};

// A request of the messenger to a host.
struct PeerHostRequest {
  std::string appId;
  String openID;
  String language;
  String country;
  std::optional<PeerMediaContent> media;
  Dictionary extraKeys;  // added to the record last
  AnswerRoute route = AnswerRoute::Scheme;
  String universalLink;
};

class MessengerPeer : public std::enable_shared_from_this<MessengerPeer> {
 public:
  static constexpr const char* kDefaultBundleId = "com.mirelo.messenger";
  static constexpr const char* kUniversalLinkHost = "open.mirelo.app";
  static constexpr const char* kUniversalLinkPath = "/app/";
  static constexpr const char* kSelfCheckContextId =
      "TestAutoCheckContextId_a4c123b1612dd272d1371c17149d439536b3216f";
  static constexpr const char* kPasteboardType = "content";

  struct Options {
    std::string bundleId = kDefaultBundleId;
    bool schemeApi = true;          // registers "mirelo"
    bool universalLinkApi = true;   // registers "mireloULAPI"
    bool stateApi = true;           // registers "mireloStateAPI"
    bool claimUniversalLinks = true;  // claims open.mirelo.app/app/
    // Written as "mireloVersion" into every record the messenger writes; 0
    // leaves the key out.
    std::uint32_t mireloVersion = 0x28003A20;
    // "lang"/"country" of sign-in answers ("" leaves them out).
    std::string language = "en";
    std::string country = "US";
    // When a universal link to the host does not open, retry by the host's
    // scheme (the self-check sees this as a scheme return).
    bool fallbackToScheme = true;
  };

  // Installs the messenger app on `device` (which must be owned by a
  // shared_ptr) and starts handling its launches.
  static std::shared_ptr<MessengerPeer> install(SimDevice& device);
  static std::shared_ptr<MessengerPeer> install(SimDevice& device, Options options);
  // Removes the messenger app from the device.
  void uninstall();
  bool installed() const;
  const Options& options() const { return options_; }
  // The messenger's app on the device, or nullptr.
  SimApp* app() const;

  // ---- scripting ----
  // The outcome of every later launch with `command` ("auth/" or "auth").
  void script(std::string_view command, Outcome outcome);
  // The outcome of the next launch with `command` only (before script()).
  void scriptOnce(std::string_view command, Outcome outcome);
  // The outcome of commands without a script (initially Outcome::success()).
  void setDefaultOutcome(Outcome outcome);
  void clearScripts();
  void setTokenPolicy(TokenPolicy policy) { tokenPolicy_ = std::move(policy); }
  const TokenPolicy& tokenPolicy() const { return tokenPolicy_; }
  void setSelfCheckPolicy(SelfCheckPolicy policy) { selfCheck_ = std::move(policy); }

  // ---- the messenger's own requests ----
  // Write the record (1010 with the media keys; 2000; 2040) under the host's
  // app id and open "<appid>://platformId=mirelo" (or the universal link).
  // True when the open was started.
  bool sendShowMessage(const PeerHostRequest& request);
  bool sendGetMessage(const PeerHostRequest& request);
  bool sendLaunch(const PeerHostRequest& request);

  // ---- records ----
  const std::vector<ReceivedRequest>& received() const { return received_; }
  const ReceivedRequest* lastReceived() const { return received_.empty() ? nullptr : &received_.back(); }
  const std::vector<PeerAnswer>& answers() const { return answers_; }
  const PeerAnswer* lastAnswer() const { return answers_.empty() ? nullptr : &answers_.back(); }
  const std::vector<std::string>& issuedTokens() const { return issuedTokens_; }
  void clearLog();
  // Every launch and answer in the order they happened.
  std::string transcript() const;

  explicit MessengerPeer(std::weak_ptr<SimDevice> device, Options options);

 private:
  struct Event {
    bool answer = false;
    std::size_t index = 0;
  };
  struct Target {
    std::string url;
    bool viaUniversalLink = false;
    std::string schemeUrl;  // the scheme form, for the fallback
  };

  void handleOpen(const OpenContext& context);
  ReceivedRequest read(const OpenContext& context) const;
  void readRecord(ReceivedRequest& request) const;
  Outcome outcomeFor(const std::string& command);
  void answerCommand(std::size_t requestIndex, const Outcome& outcome);
  void answerToken(std::size_t requestIndex);
  void answerSelfCheck(std::size_t requestIndex);
  bool sendRequest(std::uint64_t command, const PeerHostRequest& request);

  Target target(const std::string& appId, const std::string& name, const std::string& query, AnswerRoute route,
                const String& recordLink, const String& scriptedLink, std::vector<std::string>* notes) const;
  bool writeRecord(const std::string& appId, const Dictionary& record);
  bool open(PeerAnswer answer, const Target& target);
  std::shared_ptr<platform::Platform> platform() const;

  std::weak_ptr<SimDevice> device_;
  Options options_;
  bool installed_ = false;
  std::map<std::string, Outcome> scripts_;
  std::map<std::string, std::vector<Outcome>> once_;
  Outcome default_;
  TokenPolicy tokenPolicy_;
  SelfCheckPolicy selfCheck_;
  std::vector<ReceivedRequest> received_;
  std::vector<PeerAnswer> answers_;
  std::vector<Event> events_;
  std::vector<std::string> issuedTokens_;
  // The pasteboard's change count when the messenger last read the host's
  // item, and the "old_text" it held: writing an answer over that same item
  // keeps the text without reading the item again.
  mutable std::int64_t readChangeCount_ = -1;
  mutable String readOldText_;
  // Bumped by clearLog so that late completions do not touch new entries.
  std::uint64_t generation_ = 0;
};

}  // namespace mirelo::sim
