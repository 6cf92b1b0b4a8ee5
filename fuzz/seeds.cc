// Writes seed inputs for the fuzz targets from what the system really
// produces: the host's records and the messenger peer's answers on the
// simulated device, the sign-in server's QR and poll answers, keyed archives
// of the display-data records, and the doctor's test fixtures.
//
//   mirelo_fuzz_seeds <out dir> [<tools/tests/data dir>]
//
// Each target's seeds go to <out dir>/<target>/seed-<name>; identical
// inputs are written once.  fuzz/corpus/ was made with it.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "appinfo/AppRegisterInfo.h"
#include "fuzz/harness/Rig.h"
#include "mirelo/MRApi.h"
#include "mirelo/model/Model.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/MessengerPeer.h"
#include "mirelo/sim/SimDevice.h"
#include "tools/signin-server/SignInServer.h"
#include "util/BinaryPlist.h"
#include "util/KeyedArchive.h"
#include "util/PlistJson.h"

namespace {

using namespace mirelo;
using fuzz::Rig;

class SeedWriter {
 public:
  explicit SeedWriter(std::filesystem::path root) : root_(std::move(root)) {}

  void add(const std::string& target, const std::string& name, const std::string& bytes) {
    if (!seen_[target].insert(bytes).second) return;
    const std::filesystem::path dir = root_ / target;
    std::filesystem::create_directories(dir);
    std::ofstream out(dir / ("seed-" + name), std::ios::binary);
    out << bytes;
    ++written_;
  }
  int written() const { return written_; }

 private:
  std::filesystem::path root_;
  std::map<std::string, std::set<std::string>> seen_;
  int written_ = 0;
};

std::string bytesOf(const Data& d) { return d.isNull() ? std::string() : d.toString(); }

// Percent-decodes a query value as written (no "+" rule).
std::string percentDecoded(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size()) {
      out.push_back(static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(s[i]);
    }
  }
  return out;
}

// The raw value of `key` in the URL's query, or "".
std::string rawQueryValue(const std::string& url, const std::string& key) {
  const std::size_t at = url.find(key + "=");
  if (at == std::string::npos) return std::string();
  const std::size_t start = at + key.size() + 1;
  const std::size_t end = url.find('&', start);
  return url.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

std::string replaceAll(std::string s, const std::string& from, const std::string& to) {
  if (from.empty()) return s;
  for (std::size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
    s.replace(at, from.size(), to);
  }
  return s;
}

// ---- the hand-off on a device with the messenger peer ----------------------

struct HostOpen {
  std::string url;
  bool viaUniversalLink = false;
  std::string pasteboard;
};

struct Handoff {
  std::vector<HostOpen> opens;
  std::vector<std::string> hostRecords;  // the "content" item right after each send
};

std::vector<std::pair<std::string, std::function<std::shared_ptr<BaseReq>()>>> requests() {
  auto card = [] {
    auto item = std::make_shared<MRCardItem>();
    item->cardId = "pDF3iY9tv9zCGCj4jTXFOo1DxHdo";
    item->extMsg = "{\"code\":\"\",\"timestamp\":\"1767225600\"}";
    return item;
  };
  return {
      {"text",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->bText = true;
         r->text = "Hello from the host \xE2\x9C\x93";
         return r;
       }},
      {"webpage",
       [] {
         auto page = MRWebpageObject::object();
         page->webpageUrl = "https://host.example.com/article/42";
         auto message = MRMediaMessage::message();
         message->title = "An article";
         message->description = "Read it in the messenger";
         message->messageExt = "ext";
         message->mediaObject = page;
         auto r = std::make_shared<SendMessageToMRReq>();
         r->message = message;
         r->scene = 1;
         return r;
       }},
      {"auth",
       [] {
         auto r = std::make_shared<SendAuthReq>();
         r->scope = "snsapi_userinfo";
         r->state = "xyz";
         return r;
       }},
      {"pay",
       [] {
         auto r = std::make_shared<PayReq>();
         r->partnerId = "1900000109";
         r->prepayId = "1101000000140415649af9fc314aa427";
         r->nonceStr = "a462b76e7436e98e0ed6e13c64b4fd1c";
         r->package = "Sign=MR";
         r->sign = "582282D72DD2B03AD892830965F428CB";
         return r;
       }},
      {"add-card",
       [card] {
         auto r = std::make_shared<AddCardToMRCardPackageReq>();
         r->cardAry = std::make_shared<MRCardItemArray>(MRCardItemArray{card(), card()});
         return r;
       }},
      {"choose-card", [] { return std::make_shared<MRChooseCardReq>(); }},
      {"choose-invoice", [] { return std::make_shared<MRChooseInvoiceReq>(); }},
      {"mini-program",
       [] {
         auto r = MRLaunchMiniProgramReq::object();
         r->userName = "gh_d43f693ca31f";
         r->path = "pages/index?x=1";
         return r;
       }},
      {"business-view",
       [] {
         auto r = MROpenBusinessViewReq::object();
         r->businessType = "requestMerchantTransfer";
         return r;
       }},
      {"chat-room",
       [] {
         auto r = std::make_shared<CreateChatRoomReq>();
         r->groupId = "g1";
         return r;
       }},
      {"channel-video",
       [] {
         auto r = MRChannelShareVideoReq::object();
         r->localIdentifier = "video-1";
         return r;
       }},
      {"subscribe",
       [] {
         auto r = std::make_shared<MRSubscribeMiniProgramMsgReq>();
         r->miniProgramAppid = "mrmini";
         return r;
       }},
      {"web-view",
       [] {
         auto r = std::make_shared<OpenWebviewReq>();
         r->url = "https://example.com/page";
         return r;
       }},
  };
}

Handoff runHandoff() {
  Handoff h;
  auto device = sim::SimDevice::create();
  sim::AppManifest hostManifest;
  hostManifest.bundleId = Rig::kHostBundleId;
  hostManifest.infoPlist =
      sim::AppManifest::makeInfoPlist({Rig::kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
  hostManifest.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
  sim::SimApp* host = &device->install(hostManifest);
  auto peer = sim::MessengerPeer::install(*device);
  const auto previous = platform::setCurrent(host->platform());
  device->runKitAs(Rig::kHostBundleId);
  platform::resetProcessState();
  MRApi::registerApp(Rig::kAppId, Rig::kUniversalLink);

  auto delegate = std::make_shared<MRApiDelegate>();
  sim::SimDevice* dev = device.get();
  host->onOpenURL([&h, dev, delegate](const sim::OpenContext& context) {
    h.opens.push_back({context.url, context.viaUniversalLink, bytesOf(dev->pasteboardData("content"))});
    if (context.viaUniversalLink) {
      UserActivity activity;
      activity.activityType = NSUserActivityTypeBrowsingWeb;
      activity.webpageURL = URL::fromString(context.url);
      MRApi::handleOpenUniversalLink(activity, delegate);
    } else {
      MRApi::handleOpenURL(URL::fromString(context.url), delegate);
    }
  });

  for (const sim::Outcome& outcome : {sim::Outcome::success(), sim::Outcome::cancel()}) {
    peer->setDefaultOutcome(outcome);
    for (const auto& [name, make] : requests()) {
      MRApi::sendReq(make(), nullptr);
      h.hostRecords.push_back(bytesOf(device->pasteboardData("content")));
      device->advance(1.0);
      device->runUntilIdle();
    }
  }
  // The messenger's own requests to the host.
  sim::PeerHostRequest show;
  show.appId = Rig::kAppId;
  show.openID = "oUpF8uMuAJO_M2pxb1Q9zNjWeS6o";
  show.language = "zh_CN";
  show.country = "CN";
  sim::PeerMediaContent media;
  media.title = "A card from the messenger";
  media.description = "Open it in the host";
  media.messageExt = "ext-from-messenger";
  media.objectType = 5;
  media.objectKeys.set("mediaUrl", Value("https://host.example.com/p"));
  show.media = media;
  peer->sendShowMessage(show);
  device->runUntilIdle();
  peer->sendGetMessage(show);
  device->runUntilIdle();
  peer->sendLaunch(show);
  device->runUntilIdle();

  // The universal-link self-check, whose return leg the messenger opens.
  MRApi::checkUniversalLinkReady([](MRULCheckStep, const std::shared_ptr<MRCheckULStepResult>&) {});
  device->advance(5.0);
  device->runUntilIdle();

  host->onOpenURL(nullptr);
  platform::resetProcessState();
  platform::setCurrent(previous);
  return h;
}

// ---- seeds of each target ---------------------------------------------------------

// A file-name tag of an answer URL: its name after the host's address.
std::string answerName(const std::string& url) {
  std::string name = url;
  for (const std::string& prefix : {std::string(Rig::kUniversalLink) + Rig::kAppId + "/", std::string(Rig::kAppId) + "://"}) {
    if (name.rfind(prefix, 0) == 0) name = name.substr(prefix.size());
  }
  name = name.substr(0, name.find_first_of("?/"));
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '-';
  }
  return name;
}

// The command of the app's record in a pasteboard item, or "".
std::string recordCommand(const std::string& item) {
  const Value v = bplist::decode(Data::copy(item));
  const Dictionary* all = v.asDictionary();
  const Dictionary* record = all ? all->mrApi_dictionaryForKey(Rig::kAppId) : nullptr;
  return record ? record->mrApi_stringForKey("command").str() : std::string();
}

void handoffSeeds(SeedWriter& w) {
  const Handoff h = runHandoff();
  std::set<std::string> commands;
  const auto addRecord = [&](const std::string& item, const std::string& origin) {
    const std::string command = recordCommand(item);
    if (item.empty() || !commands.insert(command).second) return;
    w.add("pasteboard", origin + "-" + command, item);
    // The binary codec and the JSON form get a few of them.
    if (commands.size() <= 4) {
      w.add("bplist", origin + "-" + command, item);
      w.add("plist_json", origin + "-" + command, plistjson::toJson(bplist::decode(Data::copy(item))));
    }
  };
  for (const std::string& record : h.hostRecords) addRecord(record, "host");

  std::set<std::string> names;
  for (const HostOpen& open : h.opens) {
    addRecord(open.pasteboard, "answer");
    // Bit 2 of the mode: a self-check waits for this answer.
    const bool selfCheck = open.url.find(sim::MessengerPeer::kSelfCheckContextId) != std::string::npos;
    const std::string name =
        (selfCheck ? std::string("selfcheck") : answerName(open.url)) + (open.viaUniversalLink ? "-link" : "-scheme");
    if (!names.insert(name).second) continue;
    // Token answers carry the launch's context id; the fuzz rig waits under
    // its own one.
    std::string url = open.url;
    const std::string context = percentDecoded(rawQueryValue(url, kMireloAuthContextIdKey));
    if (!context.empty()) url = replaceAll(url, context, Rig::kContextId);
    const std::string mode(1, static_cast<char>((open.viaUniversalLink ? 1 : 0) | (selfCheck ? 4 : 0)));
    w.add("open_url", name, mode + url + "\n" + open.pasteboard);
    static const std::pair<const char*, char> kLists[] = {
        {"addCardInfo", '\x00'}, {"chooseCardInfo", '\x01'}, {"chooseInvoiceInfo", '\x02'}};
    for (const auto& [key, selector] : kLists) {
      const std::string raw = rawQueryValue(open.url, key);
      if (!raw.empty()) w.add("card_list", name, std::string(1, selector) + percentDecoded(raw));
    }
  }
}

void cardListSeeds(SeedWriter& w) {
  w.add("card_list", "choose-two",
        std::string(1, '\x01') +
            "[{\"card_id\":\"pDF3iY9tv9zCGCj4jTXFOo1DxHdo\",\"encrypt_code\":\"O/mPnGTpBu22a1szmK2OgS1F2tptJ6Jy\","
            "\"app_id\":\"mr0123456789abcdef\"},{\"card_id\":\"pDF3iY0_dVjb_Pua96MMewA96qvA\",\"encrypt_code\":\"\"}]");
  w.add("card_list", "add-states",
        std::string(1, '\x00') +
            "[{\"card_id\":\"c1\",\"card_ext\":\"{\\\"code\\\":\\\"\\\"}\",\"code\":\"x\",\"is_succ\":1},"
            "{\"card_id\":\"\",\"is_succ\":0},7,{\"card_id\":\"c3\",\"is_succ\":\"1\"}]");
  w.add("card_list", "invoice-nested",
        std::string(1, '\x02') + "[{\"card_id\":\"i1\",\"app_id\":[1,2],\"encrypt_code\":{\"a\":null}},[],null]");
}

void qrSeeds(SeedWriter& w) {
  using testing::SignInAnswer;
  const auto frame = [](const SignInAnswer& a, std::uint8_t ctl) {
    std::string out(1, static_cast<char>(ctl));
    out.push_back(static_cast<char>((a.body.size() >> 8) & 0xFF));
    out.push_back(static_cast<char>(a.body.size() & 0xFF));
    return out + a.body;
  };
  const std::string qr = frame(testing::SignInServer::qrAnswer("0a1b2c3d4e5f6a7b"), 0);
  // A QR answer without a real picture keeps the seeds small.
  const std::string smallQr =
      frame(SignInAnswer::json("{\"errcode\":0,\"uuid\":\"0a1b2c3d4e5f6a7b\",\"qrcode\":{\"qrcodelength\":8,"
                               "\"qrcodebase64\":\"iVBORw0KGgo=\"}}"),
            0);
  w.add("qr_answer", "confirmed", qr + frame(SignInAnswer::pollState(408), 0) + frame(SignInAnswer::pollState(404), 0) +
                                      frame(SignInAnswer::pollState(405, "0317Cz0w3jG4Hk2L"), 0));
  w.add("qr_answer", "scanned-then-confirmed",
        smallQr + frame(SignInAnswer::pollState(404), 0x20) + frame(SignInAnswer::pollState(405, "code"), 0x10));
  w.add("qr_answer", "expired", smallQr + frame(SignInAnswer::pollState(402), 0));
  w.add("qr_answer", "cancelled", smallQr + frame(SignInAnswer::pollState(403), 0));
  w.add("qr_answer", "not-json", smallQr + frame(SignInAnswer::notJson(), 0));
  w.add("qr_answer", "missing-state", smallQr + frame(SignInAnswer::missingState(), 0));
  w.add("qr_answer", "cut-short", smallQr + frame(SignInAnswer::pollState(408), 0x08));
  w.add("qr_answer", "http-error", frame(SignInAnswer::httpStatus(404), 3));
  w.add("qr_answer", "connection-lost", smallQr + frame(SignInAnswer::pollState(408), 0x04));
}

void valueSeeds(SeedWriter& w) {
  Dictionary everything;
  everything.set("string", Value("ascii"));
  everything.set("unicode", Value("\xE4\xBD\xA0\xE5\xA5\xBD \xF0\x9F\x98\x80"));
  everything.set("int", Value(-42));
  everything.set("big", Value(static_cast<unsigned long long>(18446744073709551615ull)));
  everything.set("real", Value(3.25));
  everything.set("bool", Value(true));
  everything.set("date", Value(Date{789012345.5}));
  everything.set("data", Value(Data::copy("\x00\x01\x02\xFF", 4)));
  everything.set("uid", Value(Uid{7}));
  everything.set("array", Value(Array{Value(1), Value("two"), Value(Array{}), Value(Dictionary{})}));
  everything.set("$data", Value("a key that looks special"));
  const Data encoded = bplist::encode(Value(everything));
  w.add("bplist", "every-type", bytesOf(encoded));
  w.add("plist_json", "every-type", plistjson::toJson(Value(everything)));
  w.add("plist_json", "specials",
        "{\"r\": {\"$real\": \"nan\"}, \"d\": {\"$date\": \"-inf\"}, \"n\": [null, 1e308, -0.0, 18446744073709551615],"
        " \"$$uid\": {\"$uid\": 3}, \"x\": {\"$data\": \"\"}}");

  AppRegisterInfo info;
  info.appID = Rig::kAppId;
  info.appName = "Host";
  info.appDescription = "A host app";
  info.appIconUrl = "https://host.example.com/icon.png";
  info.appInfoVer = 12;
  info.lastUpdateInfoTime = 1767225600;
  info.needUpdateIcon = true;
  w.add("keyed_archive", "register-info", bytesOf(info.archive()));
  AppSettingItem item;
  item.appID = Rig::kAppId;
  item.openID = "oUpF8uMuAJO_M2pxb1Q9zNjWeS6o";
  item.flag = 3;
  item.appAddedByUser = true;
  w.add("keyed_archive", "setting-item", bytesOf(item.archive()));
  w.add("keyed_archive", "token", bytesOf(KeyedArchiver::archivedDataWithRootObject(Data::copy("mrpeer_token_0001"))));
  w.add("keyed_archive", "string-root", bytesOf(KeyedArchiver::archivedDataWithRootObject(String("root"))));
  w.add("keyed_archive", "nil-root", bytesOf(KeyedArchiver::archivedDataWithRootObject(Data())));
  const Value archive = bplist::decode(info.archive());
  w.add("plist_json", "register-info", plistjson::toJson(archive));
}

void doctorSeeds(SeedWriter& w, const std::filesystem::path& data) {
  const auto read = [&data](const char* name) {
    std::ifstream in(data / name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  };
  const std::string head = std::string(Rig::kAppId) + "\n" + Rig::kUniversalLink + "\nABCDE12345\n";
  w.add("doctor", "good", head + read("Info-good.plist") + "\n%%\n" + read("aasa-covered.json"));
  w.add("doctor", "excluded", head + read("Info-good.plist") + "\n%%\n" + read("aasa-paths-excluded.json"));
  w.add("doctor", "build-setting", head + read("Info-build-setting.plist") + "\n%%\n" + read("aasa-other-app.json"));
  w.add("doctor", "binary", std::string(Rig::kAppId) + "\nhttp://host.example.com/x?y=1\n\n" + read("Info-broken.bplist"));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <out dir> [<tools/tests/data dir>]\n", argv[0]);
    return 2;
  }
  SeedWriter w(argv[1]);
  valueSeeds(w);
  qrSeeds(w);
  cardListSeeds(w);
  handoffSeeds(w);
  if (argc > 2) doctorSeeds(w, argv[2]);
  std::printf("%d seeds written to %s\n", w.written(), argv[1]);
  return 0;
}
