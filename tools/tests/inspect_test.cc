// The inspectors on what the kit and the messenger really exchange on the
// simulated device, and on what they must refuse.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "support/PeerFixture.h"
#include "tools/common/Inspect.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"

namespace mirelo::tooling {
namespace {

using mirelo::testing::kHostAppId;
using mirelo::testing::kHostBundleId;
using mirelo::testing::kHostUniversalLink;

std::shared_ptr<SendMessageToMRReq> textShare(const std::string& text) {
  auto req = std::make_shared<SendMessageToMRReq>();
  req->bText = true;
  req->text = text;
  return req;
}

Data imageBytes() { return Data::copy("\x89PNG\r\n\x1a\n" + std::string(2992, '\x07')); }

std::shared_ptr<SendMessageToMRReq> imageShare() {
  auto req = std::make_shared<SendMessageToMRReq>();
  req->message = MRMediaMessage::message();
  req->message->title = "Holiday";
  auto image = MRImageObject::object();
  image->imageData = imageBytes();
  req->message->mediaObject = image;
  return req;
}

// Both views of a report, for "never shows" checks.
std::string everything(const InspectResult& r) { return dumpJson(r.report) + renderText(r.report); }

// ---------------------------------------------------------------------------
// What the host writes: the kit on the device with a messenger that does not
// answer, so the record stays on the pasteboard.

class InspectHostRecord : public mirelo::testing::KitTest {};

TEST_F(InspectHostRecord, SharesOfTextAndImageDecodeWithTheirHeaderBodyAndLaunchUrl) {
  ASSERT_TRUE(registerHost());
  struct Case {
    std::shared_ptr<SendMessageToMRReq> req;
    std::int64_t command;
    const char* commandName;
    const char* title;
  };
  const Case cases[] = {
      {textShare("hello from the host"), 1020, "text message", "hello from the host"},
      {imageShare(), 1010, "media message", "Holiday"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.commandName);
    device->setPasteboardString("the user's own text");
    device->clearOpenLog();
    MRApi::sendReq(c.req, nullptr);
    device->runUntilIdle();

    const InspectResult r = inspectPasteboard(device->pasteboardData("content"));
    ASSERT_TRUE(r.ok) << r.error;
    const Json& rec = r.report["records"][0];
    EXPECT_EQ(r.report["old_text"], "the user's own text");
    EXPECT_EQ(rec["appId"], kHostAppId);
    EXPECT_EQ(rec["command"], namedNumber(c.command, c.commandName));
    EXPECT_EQ(rec["header"]["returnFromApp"], "0");
    EXPECT_EQ(rec["fields"]["returnFromApp"], false);
    EXPECT_EQ(rec["fields"]["result"], 1);
    EXPECT_EQ(rec["body"]["title"], c.title);
    EXPECT_FALSE(rec["body"].contains("fileData"));
    EXPECT_EQ(rec.contains("mediaObject"), c.command == 1010);
    if (c.command == 1010) {
      EXPECT_EQ(rec["mediaObject"]["objectType"], namedNumber(2, "MRImageObject"));
      const Json& image = rec["mediaObject"]["fields"]["imageData (fileData)"];
      EXPECT_EQ(image["size"], 3000);
      EXPECT_EQ(image["hexPrefix"], imageBytes().hexPrefix(16));
    }

    // The launch that went with it: the messenger's universal link.
    ASSERT_FALSE(device->openLog().empty());
    const InspectResult u = inspectUrl(device->openLog().front().url);
    ASSERT_TRUE(u.ok) << u.error;
    EXPECT_EQ(u.report["command"]["request"], "SendMessageToMRReq");
    EXPECT_EQ(u.report["bundleId"], kHostBundleId);
    EXPECT_EQ(u.report["contextId"].get<std::string>().size(), 64u);
    EXPECT_EQ(u.report["token"], nullptr);
    EXPECT_EQ(u.report["degraded"], false);
  }
}

// ---------------------------------------------------------------------------
// What the messenger answers: the peer hands a token, the kit stores it.

class InspectWithMessenger : public mirelo::testing::PeerKitTest {};

TEST_F(InspectWithMessenger, TheTokenShowsOnlyAsItsDigestInUrlsAndInTheKeychainItem) {
  ASSERT_TRUE(registerHost());
  MRApi::sendReq(textShare("hello"), nullptr);
  device->advance(1);  // the re-send with the token follows 0.1 s after it came
  const std::string token = peer->tokenPolicy().token;
  const std::string digest = sha256Prefix(token);
  ASSERT_EQ(host->keychainItems().size(), 1u);
  // Each report shows the token's digest, never the token.
  auto digestOnly = [&](const InspectResult& r) {
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.report["token"]["sha256Prefix"], digest);
    EXPECT_EQ(everything(r).find(token), std::string::npos);
  };

  // The item as the keychain holds it, and its value alone.
  const Dictionary& item = host->keychainItems()[0];
  const Data value = *item.mrApi_dataForKey(platform::keychain::kSecValueData);
  for (const Data& file : {bplist::encode(Value(item)), value}) {
    const InspectResult k = inspectKeychain(file);
    digestOnly(k);
    EXPECT_EQ(k.report["kitReads"], "the token");
    EXPECT_EQ(k.report["archive"]["rootClass"], "NSData");
  }
  const InspectResult whole = inspectKeychain(bplist::encode(Value(item)));
  EXPECT_EQ(whole.report["item"]["bundleId"], kHostBundleId);
  EXPECT_EQ(whole.report["item"]["account"], "MireloOpenSDKKeyChainAccount");
  EXPECT_EQ(whole.report["notes"], Json::array());

  // The messenger's refreshToken answer, read with and without knowing the
  // host's universal link, and the re-sent launch that carries the token.
  const sim::PeerAnswer* refresh = nullptr;
  for (const auto& a : peer->answers()) {
    if (a.name == "refreshToken") refresh = &a;
  }
  ASSERT_NE(refresh, nullptr);
  for (const UrlOptions& options : {UrlOptions{}, UrlOptions{kHostAppId, kHostUniversalLink}}) {
    const InspectResult a = inspectUrl(refresh->url, options);
    digestOnly(a);
    EXPECT_EQ(a.report["direction"], "answer: messenger to host");
    EXPECT_EQ(a.report["base"], (Json{{"kind", "universal link"}, {"prefix", kHostUniversalLink}}));
    EXPECT_EQ(a.report["appId"], kHostAppId);
    EXPECT_EQ(a.report["command"]["handler"], "handleRefreshTokenOpenUrl");
    EXPECT_FALSE(a.report["contextId"].is_null());
  }
  std::string resent;
  for (const sim::OpenEvent& e : device->openLog()) {
    if (e.sourceBundleId == kHostBundleId) resent = e.url;
  }
  const InspectResult l = inspectUrl(resent);
  digestOnly(l);
  EXPECT_EQ(l.report["direction"], "launch: host to messenger");
}

TEST_F(InspectWithMessenger, TheMessengersResponseRecordNamesWhatTheKitDelivers) {
  // The host keeps the answer to itself, so the record stays on the pasteboard.
  hostHandler = [](const sim::OpenContext&) { return false; };
  peer->setTokenPolicy(mirelo::testing::tokenPolicy(sim::TokenPolicy::Action::Proceed));
  ASSERT_TRUE(registerHost());
  MRApi::sendReq(textShare("hello"), nullptr);
  device->runUntilIdle();
  const InspectResult r = inspectPasteboard(device->pasteboardData("content"));
  ASSERT_TRUE(r.ok) << r.error;
  const Json& rec = r.report["records"][0];
  const std::int64_t command = rec["command"]["number"];
  EXPECT_TRUE(command == 2010 || command == 2020) << command;
  EXPECT_EQ(rec["fields"]["returnFromApp"], true);
  EXPECT_EQ(rec["fields"]["result"], 0);
  EXPECT_TRUE(rec["header"]["mireloVersion"].is_number());
  EXPECT_EQ(rec["delivers"], (Json{{"via", "onResp:"}, {"class", "SendMessageToMRResp"}, {"errCode", 0}}));
}

// ---------------------------------------------------------------------------
// Input that is not what it claims to be: one line, no report, no secret.

std::string plist(const Value& v) { return bplist::encode(v).toString(); }

TEST(InspectBadInput, PasteboardItemsUrlsAndKeychainFilesThatAreNotWhatTheyClaim) {
  enum Kind { Pasteboard, Url, Keychain };
  const std::string good = plist(Value(Dictionary{{kHostAppId, Value(Dictionary{{"command", Value("1020")}})}}));
  struct Case {
    Kind kind;
    std::string input;
    const char* reason;
  };
  const Case cases[] = {
      {Pasteboard, good.substr(0, good.size() - 9), "not a property list"},
      {Pasteboard, "<plist><dict><key>a</key>", "not a property list"},
      {Pasteboard, plist(Value(Array{Value(1)})), "not a dictionary"},
      {Pasteboard, plist(Value(Dictionary{{"command", Value("1020")}})), "without its app id"},
      {Pasteboard, plist(Value(Dictionary{{"old_text", Value("x")}})), "no record"},
      {Pasteboard, plist(Value(Dictionary{{kHostAppId, Value("1020")}})), "no record"},
      {Url, "", "not a URL"},
      {Url, "relative/path", "no scheme"},
      {Url, "mireloULAPI://", "capability probe"},
      {Url, "mirelo://other/mr01/sendreq/", "mirelo://app/<app id>/"},
      {Url, "mirelo://app", "without an app id"},
      {Url, "http://host.example.com/mirelo/mr01/oauth", "neither a launch URL nor an answer URL"},
      {Url, "https://open.mirelo.app/somewhere/else", "does not begin with /app/"},
      {Url, "https://host.example.com/oauth?code=1", "cannot tell the app id"},
      {Url, "mr01:oauth", "must begin with \"<app id>://\""},
      {Url, "not a url?mirelo_auth_token=s3cret", "<sha256 "},
      {Keychain, "\x01\x02\x03", "not a property list"},
      {Keychain, plist(Value(Array{})), "not a dictionary"},
      {Keychain, plist(Value(Dictionary{{"a", Value(1)}})), "neither a keyed archive nor a keychain item"},
      {Keychain, plist(Value(Dictionary{{"svce", Value("s")}, {"v_Data", Value("x")}})), "without its value"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    const InspectResult r = c.kind == Url        ? inspectUrl(c.input)
                            : c.kind == Keychain ? inspectKeychain(Data::copy(c.input))
                                                 : inspectPasteboard(Data::copy(c.input));
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find(c.reason), std::string::npos) << r.error;
    EXPECT_EQ(r.error.find('\n'), std::string::npos);
    EXPECT_EQ(r.error.find("s3cret"), std::string::npos);
  }
  // With the host's link named, a URL that does not start with it is refused.
  EXPECT_FALSE(inspectUrl("https://elsewhere.example.com/a/mr01/oauth", {"", kHostUniversalLink}).ok);
}

// An item the kit cannot use is still explained: what the kit reads from it.
TEST(InspectKeychainItem, ExplainsWhyTheKitReadsNoToken) {
  const std::pair<Data, const char*> cases[] = {
      {KeyedArchiver::archivedDataWithRootObject(String("tok")), "no token: the root is NSString"},
      {KeyedArchiver::archivedDataWithRootObject(Data::emptyData()), "no token: the data is empty"},
      {KeyedArchiver::archivedDataWithRootObject(Data()), "no token: the archive's root is nil"},
      {Data::copy("bplist00 but not really"), "no token: Unarchive failed"},
  };
  for (const auto& [value, kitReads] : cases) {
    SCOPED_TRACE(kitReads);
    const Dictionary item{{"class", Value("genp")}, {"svce", Value("MireloOpenSDKKeyChainService_com.example.host")},
                          {"acct", Value("someone else")}, {"v_Data", Value(value)}};
    const InspectResult r = inspectKeychain(bplist::encode(Value(item)));
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.report["kitReads"].get<std::string>().rfind(kitReads, 0), 0u) << r.report;
    EXPECT_NE(r.report["notes"].dump().find("the account is not"), std::string::npos);
  }
}

// Commands the kit sends with their own query: JSON documents, nested
// web-view queries, answers by sub-handler.
TEST(InspectUrl, CommandQueriesAreUnpacked) {
  struct Case {
    const char* url;
    const char* pointer;
    Json expected;
  };
  const std::string card =
      "mirelo://app/mr01/cardpackage/?%7B%0A%20%20%22id0%22%20:%20%22a&b%22%0A%7D&mirelo_app_bundleId=com.x";
  const char* web = "mirelo://app/mr01/opentypewebview/?type=5&query=miniProgramAppid%3Dmp1";
  const Case cases[] = {
      {card.c_str(), "/command/json", {{"id0", "a&b"}}},
      {card.c_str(), "/query", {{"mirelo_app_bundleId", "com.x"}}},
      {web, "/command/request", "MRSubscribeMiniProgramMsgReq"},
      {web, "/command/nestedQuery", {{"miniProgramAppid", "mp1"}}},
      {"mr01://opentypewebview/?mr_internal_resptype=subscribemessage&ret=0", "/command/response",
       "MRSubscribeMsgResp"},
      {"mirelo://app/mr01/", "/command", nullptr},
      {"mr01://oauth?code=%E4%B8%AD+x&state=%FF", "/query/code", "\xE4\xB8\xAD x"},
  };
  for (const Case& c : cases) {
    const InspectResult r = inspectUrl(c.url);
    ASSERT_TRUE(r.ok) << c.url << ": " << r.error;
    EXPECT_EQ(r.report[Json::json_pointer(c.pointer)], c.expected) << c.url;
  }
  EXPECT_NE(inspectUrl(cases[6].url).report["notes"].dump().find("malformed escape"), std::string::npos);
}

}  // namespace
}  // namespace mirelo::tooling
