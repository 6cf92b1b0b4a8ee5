// The messenger peer driven without the kit: records planted, launch URLs opened, answers caught by
// a plain host app and read back with independent decoders (uriparser, nlohmann, the codec).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <uriparser/Uri.h>

#include <functional>
#include <map>
#include <ostream>
#include <memory>
#include <string>
#include <vector>

#include "mirelo/sim/MessengerPeer.h"
#include "mirelo/sim/SimDevice.h"
#include "util/BinaryPlist.h"

namespace mirelo::sim {
namespace {

using Json = nlohmann::json;

constexpr const char* kAppId = "mrpeer0123abcd";
constexpr const char* kHost = "com.example.host";
constexpr const char* kHostLink = "https://host.example.com/mirelo/";
const std::string kScheme = std::string("mirelo://app/") + kAppId + "/";
const std::string kLink = std::string("https://open.mirelo.app/app/") + kAppId + "/";
const std::string kBundle = std::string("mirelo_app_bundleId=") + kHost;
const std::string kAnswerScheme = std::string(kAppId) + "://";
const std::string kAnswerLink = std::string(kHostLink) + kAppId + "/";

std::string unescape(std::string s) {
  uriUnescapeInPlaceExA(s.data(), URI_FALSE, URI_BR_DONT_TOUCH);
  return s.c_str();
}

// The value of `key`, the last item of the query of `url`, unescaped.
std::string lastValue(const std::string& url, const std::string& key) {
  return unescape(url.substr(url.find(key + "=") + key.size() + 1));
}

// Equal values, or a failure that shows both (kind included).
::testing::AssertionResult same(const Value& actual, const Value& expected) {
  if (actual == expected) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "kind " << static_cast<int>(actual.type()) << " "
                                       << actual.description() << "\n  expected kind "
                                       << static_cast<int>(expected.type()) << " " << expected.description();
}

Data bytes(std::initializer_list<int> b) {
  std::string s;
  for (int v : b) s.push_back(static_cast<char>(v));
  return Data::copy(s);
}

// A header as the host's kit writes it.
Dictionary header(const char* command, Dictionary body = {}) {
  Dictionary d{{"command", Value(command)}, {"returnFromApp", Value("0")}, {"result", Value("1")},
               {"sdkver", Value("1.9.2")}, {"isAutoResend", Value(false)}};
  for (const auto& [k, v] : body) d.set(k, v);
  return d;
}

class MessengerPeerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    device = SimDevice::create();
    AppManifest host;
    host.bundleId = kHost;
    host.infoPlist = AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
    host.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
    device->install(host).onOpenURL([this](const OpenContext& c) { hostOpens.push_back(c); });
    peer = MessengerPeer::install(*device);
  }

  void plant(const Value& item) { device->setPasteboardData(bplist::encode(item), MessengerPeer::kPasteboardType); }
  void plantRecord(const Dictionary& record, const char* appId = kAppId) {
    plant(Value(Dictionary{{appId, Value(record)}}));
  }

  // Opens the messenger as the host would and lets everything run.
  const ReceivedRequest& launch(const std::string& url) {
    const std::size_t before = peer->received().size();
    EXPECT_TRUE(device->openURL(url, kHost)) << url;
    device->runUntilIdle();
    EXPECT_EQ(peer->received().size(), before + 1) << url;
    return peer->received().back();
  }

  // The item on the pasteboard, decoded.
  Dictionary pasteboardItem() const {
    const Value v = bplist::decode(device->pasteboardData(MessengerPeer::kPasteboardType));
    return v.asDictionary() ? *v.asDictionary() : Dictionary();
  }
  Dictionary pasteboardRecord() const {
    const Dictionary item = pasteboardItem();
    const Dictionary* record = item.get(kAppId).asDictionary();
    return record ? *record : Dictionary();
  }

  std::shared_ptr<SimDevice> device;
  std::shared_ptr<MessengerPeer> peer;
  std::vector<OpenContext> hostOpens;
};

struct ParseCase {
  const char* name;
  std::string url;
  LaunchBase base;
  const char* appId;
  const char* command;
  const char* token;      // nullptr: absent
  const char* contextId;  // nullptr: absent
  const char* bundleId;   // nullptr: absent
  bool degraded;
  std::map<std::string, std::string> query;  // some decoded entries
  std::vector<std::string> notes;            // substrings, one per expected note
};

TEST_F(MessengerPeerTest, ReadsLaunchUrlsOfBothBases) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  const std::vector<ParseCase> cases = {
      {"universal link with token and escapes",
       kLink + "auth/?scope=snsapi_userinfo&state=a%2Fb%20c%2B&mirelo_auth_token=t%26o%3Dk&mirelo_auth_context_id=c1&" +
           kBundle,
       LaunchBase::UniversalLink, kAppId, "auth/", "t&o=k", "c1", kHost, false,
       {{"scope", "snsapi_userinfo"}, {"state", "a/b c+"}}, {}},
      {"bare app", kScheme, LaunchBase::Scheme, kAppId, "", nullptr, nullptr, nullptr, false, {}, {}},
      {"scheme in capitals, UTF-8 escapes", "MIRELO://app/" + std::string(kAppId) + "/auth/?state=%E4%BD%A0",
       LaunchBase::Scheme, kAppId, "auth/", nullptr, nullptr, nullptr, false, {{"state", "\xE4\xBD\xA0"}}, {}},
      {"a plus stays a plus", kScheme + "pay/?sign=a+b", LaunchBase::Scheme, kAppId, "pay/", nullptr, nullptr,
       nullptr, false, {{"sign", "a+b"}}, {}},
      {"malformed escapes and raw '='", kScheme + "sendreq/?a=%zz&b=1=2&&c", LaunchBase::Scheme, kAppId,
       "sendreq/", nullptr, nullptr, nullptr, false, {{"a", "%zz"}, {"b", "1=2"}},
       {"empty query piece", "malformed percent escape", "unescaped '='", "without '='"}},
      {"degrade mark on a universal link",
       kLink + "sendreq/?mirelo_auth_token=t&" + kBundle + "&mirelo_degrade_launch_by_scheme=1",
       LaunchBase::UniversalLink, kAppId, "sendreq/", "t", nullptr, kHost, true, {}, {"degrade mark on a universal"}},
      {"token on a scheme URL", kScheme + "sendreq/?mirelo_auth_token=t", LaunchBase::Scheme, kAppId, "sendreq/",
       "t", nullptr, nullptr, false, {}, {"token on a scheme URL"}},
      {"another app's bundle id", kScheme + "sendreq/?mirelo_app_bundleId=com.other", LaunchBase::Scheme, kAppId,
       "sendreq/", nullptr, nullptr, "com.other", false, {}, {"is not the opener"}},
      {"not a launch URL", "mireloULAPI://", LaunchBase::Other, "", "", nullptr, nullptr, nullptr, false, {},
       {"not a launch URL"}},
  };
  for (const ParseCase& c : cases) {
    SCOPED_TRACE(c.name);
    const ReceivedRequest& r = launch(c.url);
    EXPECT_EQ(r.url, c.url);
    EXPECT_EQ(r.sourceBundleId, kHost);
    EXPECT_EQ(r.base, c.base);
    EXPECT_EQ(r.viaUniversalLink, c.base == LaunchBase::UniversalLink);
    EXPECT_EQ(r.routedAsUniversalLink, c.base == LaunchBase::UniversalLink);
    EXPECT_EQ(r.appId, c.appId);
    EXPECT_EQ(r.command, c.command);
    EXPECT_EQ(r.token, String(c.token));
    EXPECT_EQ(r.contextId, String(c.contextId));
    EXPECT_EQ(r.bundleId, String(c.bundleId));
    EXPECT_EQ(r.degraded, c.degraded);
    for (const auto& [k, v] : c.query) EXPECT_EQ(r.queryValue(k), String(v)) << k;
    // Every note but the missing record (nothing was planted).
    std::vector<std::string> notes;
    for (const auto& n : r.notes) {
      if (n.find("pasteboard") == std::string::npos) notes.push_back(n);
    }
    ASSERT_EQ(notes.size(), c.notes.size()) << r.describe();
    for (std::size_t i = 0; i < notes.size(); ++i) EXPECT_NE(notes[i].find(c.notes[i]), std::string::npos) << notes[i];
  }
  EXPECT_TRUE(hostOpens.empty());
}

TEST_F(MessengerPeerTest, ReadsTheJsonQueryOfCardCommandsAndNestedWebViewQueries) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  // The card JSON escaped the legacy way: ':' and ',' stay as they are.
  const std::string json = "{\n  \"id0\" : \"card/1\",\n  \"ext0\" : \"{\\\"a\\\":1}\",\n  \"id1\" : \"c2\"\n}";
  const std::string escaped =
      "%7B%0A%20%20%22id0%22%20:%20%22card/1%22,%0A%20%20%22ext0%22%20:%20%22%7B%5C%22a%5C%22:1%7D%22,%0A%20%20%22id1%22"
      "%20:%20%22c2%22%0A%7D";
  const ReceivedRequest& card = launch(kScheme + "cardpackage/?" + escaped + "&" + kBundle);
  EXPECT_EQ(card.jsonText, String(json));
  ASSERT_TRUE(card.json.isDictionary()) << card.describe();
  EXPECT_TRUE(same(card.json.asDictionary()->get("id0"), Value("card/1")));
  EXPECT_TRUE(same(card.json.asDictionary()->get("ext0"), Value("{\"a\":1}")));
  EXPECT_EQ(card.bundleId, String(kHost));
  EXPECT_EQ(card.query.size(), 1u);

  const ReceivedRequest& bad = launch(kScheme + "choosecard/?%7Bnot%20json");
  EXPECT_TRUE(bad.json.isNull());
  EXPECT_NE(bad.describe().find("does not parse"), std::string::npos);

  // A web-view command whose query was encoded twice.
  const ReceivedRequest& web =
      launch(kScheme + "opentypewebview/?type=3&query=url%3Dhttps%253A%252F%252Fpay.example.com%252F");
  EXPECT_EQ(web.queryValue("type"), String("3"));
  EXPECT_TRUE(same(web.nestedQuery("query").get("url"), Value("https://pay.example.com/")));

  const ReceivedRequest& biz = launch(kScheme + "openbusinesswebview/?type=2&query=%7B%22k%22%3A%5B1%2C2%5D%7D");
  ASSERT_TRUE(biz.queryJson("query").isDictionary());
  EXPECT_TRUE(same(biz.queryJson("query").asDictionary()->get("k"), Value(Array{Value(1), Value(2)})));
}

TEST_F(MessengerPeerTest, ReadsTheHostsRecordWithoutClearingThePasteboard) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  std::string thumb;
  for (int i = 0; i < 300; ++i) thumb.push_back(static_cast<char>(i));
  const Dictionary record = header(
      "1010", {{"scene", Value("0")}, {"title", Value("A title")}, {"description", Value("Some words")},
               {"thumbData", Value(Data::copy(thumb))}, {"objectType", Value("5")},
               {"mediaUrl", Value("https://example.com/page")}, {"withShareTicket", Value(false)},
               {"miniprogramType", Value(0)}, {"tesselObjectSubType", Value("0")}});
  plant(Value(Dictionary{{kAppId, Value(record)}, {"old_text", Value("the user's clip")}}));
  const Data before = device->pasteboardData(MessengerPeer::kPasteboardType);

  const ReceivedRequest& r = launch(kScheme + "sendreq/?" + kBundle);
  ASSERT_TRUE(r.hasRecord);
  EXPECT_TRUE(same(Value(r.record), Value(record)));
  EXPECT_EQ(r.recordCommand, 1010);
  EXPECT_EQ(r.mediaTitle(), String("A title"));
  EXPECT_EQ(r.mediaDescription(), String("Some words"));
  EXPECT_EQ(r.thumbData().size(), 300u);
  EXPECT_EQ(r.objectType(), 5u);
  EXPECT_EQ(r.mediaUrl(), String("https://example.com/page"));
  EXPECT_TRUE(r.text().isNull());
  EXPECT_EQ(r.oldText, String("the user's clip"));
  EXPECT_TRUE(r.notes.empty()) << r.describe();
  EXPECT_EQ(device->pasteboardData(MessengerPeer::kPasteboardType), before) << "reading leaves the item";

  plantRecord(header("1020", {{"title", Value("hello")}}));
  const ReceivedRequest& t = launch(kScheme + "sendreq/?" + kBundle);
  EXPECT_EQ(t.text(), String("hello"));
  EXPECT_TRUE(t.mediaTitle().isNull());
}

TEST_F(MessengerPeerTest, NotesEveryFlawOfThePasteboardItem) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  struct Case {
    const char* name;
    std::function<void()> plantIt;
    bool hasRecord;
    const char* note;
  };
  const std::vector<Case> cases = {
      {"nothing", [&] { device->setPasteboardString("plain"); }, false, "no \"content\" item"},
      {"empty item", [&] { device->setPasteboardData(Data::emptyData(), "content"); }, false, "is empty"},
      {"garbage", [&] { device->setPasteboardData(Data::copy("bplist00 garbage"), "content"); }, false,
       "not a binary property list"},
      {"an array", [&] { plant(Value(Array{Value(1)})); }, false, "not a dictionary"},
      {"another app's record", [&] { plantRecord(header("1020"), "mrother"); }, false, "(it holds: mrother)"},
      {"record not a dictionary", [&] { plant(Value(Dictionary{{kAppId, Value("x")}})); }, false,
       "is not a dictionary"},
      {"command as a number", [&] { plantRecord(Dictionary{{"command", Value(1020)}}); }, true,
       "command should be a decimal string, found integer"},
      {"isAutoResend as a string", [&] { plantRecord(header("1020", {{"isAutoResend", Value("0")}})); }, true,
       "isAutoResend should be a boolean, found \"0\""},
      {"returnFromApp other than 0/1", [&] { plantRecord(header("1020", {{"returnFromApp", Value("true")}})); },
       true, "returnFromApp should be the string"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.plantIt();
    const ReceivedRequest& r = launch(kScheme + "sendreq/?" + kBundle);
    EXPECT_EQ(r.hasRecord, c.hasRecord);
    ASSERT_EQ(r.notes.size(), 1u) << r.describe();
    EXPECT_NE(r.notes[0].find(c.note), std::string::npos) << r.notes[0];
  }
}

struct AnswerCase {
  const char* name;
  std::string path;  // after "mirelo://app/<appid>/"
  std::string command;
  Outcome outcome;
  std::string expectedUrl;
  std::map<std::string, Value> record;  // expected keys of the answer record; empty for URL answers
};

// The peer's answers byte for byte; the kit reads the default ones back in the round-trip tests.
TEST_F(MessengerPeerTest, AnswersEachCommandAsScripted) {
  const std::string tdiBuffer = "AQL7%2Fw%3D%3D";  // Base64 of 01 02 fb ff, escaped
  const std::vector<AnswerCase> cases = {
      {"share", "sendreq/?", "sendreq", Outcome::success(), kAnswerScheme + "platformId=mirelo",
       {{"command", Value("2020")}, {"returnFromApp", Value("1")}, {"result", Value("0")},
        {"sdkver", Value("1.9.2")}, {"mireloVersion", Value(0x28003A20)}}},
      {"share with language", "sendreq/?", "sendreq",
       Outcome::success({{"language", Value("zh_CN")}, {"country", Value("CN")}}),
       kAnswerScheme + "platformId=mirelo",
       {{"command", Value("2010")}, {"language", Value("zh_CN")}, {"country", Value("CN")}}},
      {"sign-in cancelled carries no code", "auth/?scope=s&state=st1", "auth", Outcome::cancel(),
       kAnswerScheme + "oauth?state=st1&lang=en&country=US", {}},
      {"sign-in with own code, no language", "auth/?scope=s", "auth",
       Outcome::success({{"code", Value("C0DE")}, {"lang", Value()}, {"country", Value()}}),
       kAnswerScheme + "oauth?code=C0DE", {}},
      {"tdi sign-in", "auth/?scope=s&state=st1&tdi_ext_info=ext1", "auth",
       Outcome::success({{"tdi_auth_buffer", Value(bytes({1, 2, 0xfb, 0xff}))}}),
       kAnswerScheme + "oauth?code=mrpeer_auth_code&state=st1&lang=en&country=US&tdi_ext_info=ext1&tdi_auth_buffer=" +
           tdiBuffer,
       {}},
      {"sign-in as a record", "auth/?scope=s&state=st1", "auth", Outcome::success().recordInstead(),
       kAnswerScheme + "platformId=mirelo",
       {{"command", Value("2030")}, {"result", Value("0")}, {"state", Value("st1")}}},
      {"mini-program subscription by number, names escaped", "opentypewebview/?type=5&query=x", "opentypewebview",
       Outcome::success({{"mr_internal_resptype", Value(5)}, {"nickname", Value("A&B")}}),
       kAnswerScheme + "opentypewebview?mr_internal_resptype=5&ret=0&nickname=A%26B", {}},
      {"join chat room", "joinchatroom/?groupid=g", "joinchatroom", Outcome::deny(),
       kAnswerScheme + "platformId=mirelo", {{"command", Value("2060")}, {"result", Value("-4")}}},
      {"scripted universal link", "sendreq/?", "sendreq", Outcome::success().by(AnswerRoute::UniversalLink).through(kHostLink),
       kAnswerLink + "platformId=mirelo", {{"command", Value("2020")}}},
      {"raw extra query", "pay/?", "pay", [] { Outcome o; o.extraQuery = "x=%zz&y"; return o; }(),
       kAnswerScheme + "pay?ret=0&x=%zz&y", {}},
  };
  for (const AnswerCase& c : cases) {
    SCOPED_TRACE(c.name);
    peer->script(c.command, c.outcome);
    plant(Value(Dictionary{{kAppId, Value(header("1020", {{"title", Value("t")}}))}, {"old_text", Value("mine")}}));
    hostOpens.clear();
    launch(kScheme + c.path);
    ASSERT_EQ(hostOpens.size(), 1u) << peer->transcript();
    EXPECT_EQ(hostOpens[0].url, c.expectedUrl);
    EXPECT_EQ(hostOpens[0].sourceBundleId, MessengerPeer::kDefaultBundleId);
    ASSERT_NE(peer->lastAnswer(), nullptr);
    EXPECT_EQ(peer->lastAnswer()->url, c.expectedUrl);
    EXPECT_EQ(peer->lastAnswer()->opened, true);
    EXPECT_EQ(peer->lastAnswer()->inReplyTo, peer->received().size() - 1);
    const Dictionary written = pasteboardRecord();
    if (c.record.empty()) {
      EXPECT_TRUE(same(written.get("command"), Value("1020"))) << "a URL answer leaves the host's record";
      continue;
    }
    EXPECT_TRUE(peer->lastAnswer()->hasRecord);
    EXPECT_TRUE(same(Value(peer->lastAnswer()->record), Value(written)));
    for (const auto& [k, v] : c.record) EXPECT_TRUE(same(written.get(k), v)) << k;
    EXPECT_TRUE(same(pasteboardItem().get("old_text"), Value("mine"))) << "the user's text is carried on";
    EXPECT_EQ(pasteboardItem().size(), 2u);
  }
}

TEST_F(MessengerPeerTest, CardPackageAnswerListsTheRequestedCardsAsJson) {
  launch(kScheme + "cardpackage/?%7B%22id0%22:%22c1%22,%22ext0%22:%22e1%22,%22id1%22:%22c%262%22%7D&" + kBundle);
  ASSERT_EQ(hostOpens.size(), 1u);
  EXPECT_EQ(hostOpens[0].url.rfind(kAnswerScheme + "cardPackage?errCode=0&addCardInfo=", 0), 0u) << hostOpens[0].url;
  const Json cards = Json::parse(lastValue(hostOpens[0].url, "addCardInfo"));
  ASSERT_EQ(cards.size(), 2u);
  EXPECT_EQ(cards[0]["card_id"], "c1");
  EXPECT_EQ(cards[0]["card_ext"], "e1");
  EXPECT_EQ(cards[0]["is_succ"], 1);
  EXPECT_EQ(cards[1]["card_id"], "c&2");
  EXPECT_EQ(cards[1]["card_ext"], "");
  EXPECT_EQ(cards[1]["code"], "mrpeer_code_1");

  launch(kScheme + "choosecard/?%7B%22appID%22:%22mrcard%22%7D");
  const Json chosen = Json::parse(lastValue(hostOpens.back().url, "chooseCardInfo"));
  ASSERT_EQ(chosen.size(), 1u);
  EXPECT_EQ(chosen[0]["app_id"], "mrcard");
  EXPECT_EQ(chosen[0]["card_id"], "mrpeer_card_1");
}

TEST_F(MessengerPeerTest, NoAnswerUnknownCommandsAndLoggedOnlyCommands) {
  peer->script("auth", Outcome::noAnswer());
  launch(kScheme + "auth/?scope=s");
  launch(kScheme + "frobnicate/?a=1");
  EXPECT_NE(peer->lastReceived()->notes.back().find("unknown command frobnicate/"), std::string::npos);
  launch(kScheme + "sendresp/?" + kBundle);
  launch(kLink + "refreshTokenFail/?bundleID=com.example.host&isShare=1&errCode=4&errMsg=mr%20token%5Bx%5D&" + kBundle);
  EXPECT_EQ(peer->lastReceived()->command, "refreshTokenFail/");
  EXPECT_EQ(peer->lastReceived()->queryValue("errMsg"), String("mr token[x]"));
  EXPECT_TRUE(hostOpens.empty());
  EXPECT_TRUE(peer->answers().empty());

  // A name answers even a command the messenger does not know.
  Outcome named;
  named.name = "openranklist";
  named.values = {{"ret", Value()}, {"notifyStr", Value("x")}};
  peer->script("frobnicate", named);
  launch(kScheme + "frobnicate/");
  ASSERT_EQ(hostOpens.size(), 1u);
  EXPECT_EQ(hostOpens[0].url, kAnswerScheme + "openranklist?notifyStr=x");
}

TEST_F(MessengerPeerTest, ScriptsOnceBeforeScriptBeforeDefault) {
  peer->setDefaultOutcome(Outcome::withCode(-5));
  peer->script("pay/", Outcome::cancel());
  peer->scriptOnce("pay", Outcome::deny());
  launch(kScheme + "pay/?");
  launch(kScheme + "pay/?");
  launch(kScheme + "openwebview/?");
  ASSERT_EQ(hostOpens.size(), 3u);
  EXPECT_EQ(hostOpens[0].url, kAnswerScheme + "pay?ret=-4");
  EXPECT_EQ(hostOpens[1].url, kAnswerScheme + "pay?ret=-2");
  EXPECT_EQ(hostOpens[2].url, kAnswerScheme + "openwebview?ret=-5");
  // Clearing forgets the once-scripts too; the default is success again.
  peer->scriptOnce("pay", Outcome::deny());
  peer->clearScripts();
  launch(kScheme + "pay/?");
  ASSERT_EQ(hostOpens.size(), 4u);
  EXPECT_EQ(hostOpens[3].url, kAnswerScheme + "pay?ret=0");
}

TEST_F(MessengerPeerTest, RoutesBackByTheRecordsUniversalLinkAndFallsBackToTheScheme) {
  plantRecord(header("1020", {{"universalLink", Value(kHostLink)}}));
  launch(kLink + "sendreq/?mirelo_auth_token=mrpeer_token_0001&" + kBundle);
  ASSERT_EQ(hostOpens.size(), 1u);
  EXPECT_EQ(hostOpens[0].url, kAnswerLink + "platformId=mirelo");
  EXPECT_TRUE(hostOpens[0].viaUniversalLink);
  EXPECT_TRUE(peer->lastAnswer()->viaUniversalLink);

  // A link the host does not claim fails; the messenger retries by the scheme.
  plantRecord(header("1020", {{"universalLink", Value("https://elsewhere.example.com/")}}));
  peer->script("auth", Outcome::success().by(AnswerRoute::UniversalLink));
  launch(kLink + "auth/?scope=s&mirelo_auth_token=t&" + kBundle);
  ASSERT_EQ(hostOpens.size(), 2u);
  EXPECT_EQ(hostOpens[1].url, kAnswerScheme + "oauth?code=mrpeer_auth_code&lang=en&country=US");
  const auto& answers = peer->answers();
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[1].url, "https://elsewhere.example.com/" + std::string(kAppId) +
                                "/oauth?code=mrpeer_auth_code&lang=en&country=US");
  EXPECT_EQ(answers[1].opened, false);
  EXPECT_TRUE(answers[2].fallback);
  EXPECT_EQ(answers[2].opened, true);

  // No link known at all: the scheme, with a note.
  plantRecord(header("1020"));
  peer->script("pay", Outcome::success().by(AnswerRoute::UniversalLink));
  launch(kScheme + "pay/?");
  EXPECT_EQ(hostOpens.back().url, kAnswerScheme + "pay?ret=0");
  EXPECT_NE(peer->lastAnswer()->notes.at(0).find("no universal link"), std::string::npos);
}

TEST_F(MessengerPeerTest, ATokenRequestLeavesTheHostsRecordAndAForgedTokenIsNotedButAnswered) {
  plantRecord(header("1020", {{"universalLink", Value(kHostLink)}}));
  const Data hostRecord = device->pasteboardData("content");
  launch(kLink + "sendreq/?mirelo_auth_context_id=c1&" + kBundle);
  EXPECT_EQ(peer->lastAnswer()->kind, PeerAnswer::Kind::TokenRefresh);
  EXPECT_EQ(device->pasteboardData("content"), hostRecord) << "no answer record yet";

  const ReceivedRequest& forged = launch(kLink + "sendreq/?mirelo_auth_token=forged&" + kBundle);
  EXPECT_NE(forged.notes.at(0).find("did not issue"), std::string::npos);
  EXPECT_EQ(hostOpens.size(), 2u);
  EXPECT_TRUE(same(pasteboardRecord().get("command"), Value("2020")));
}

TEST_F(MessengerPeerTest, DelayedAnswersWaitForTheClock) {
  peer->script("pay", Outcome::success().after(0.5));
  launch(kScheme + "pay/?");
  EXPECT_TRUE(hostOpens.empty());
  device->advance(0.4);
  EXPECT_TRUE(hostOpens.empty());
  device->advance(0.2);
  ASSERT_EQ(hostOpens.size(), 1u);
  EXPECT_EQ(hostOpens[0].url, kAnswerScheme + "pay?ret=0");

  // Clearing the log drops an answer still waiting.
  launch(kScheme + "pay/?");
  peer->clearLog();
  device->advance(1);
  EXPECT_EQ(hostOpens.size(), 1u);
  EXPECT_TRUE(peer->answers().empty());
}

}  // namespace
}  // namespace mirelo::sim
