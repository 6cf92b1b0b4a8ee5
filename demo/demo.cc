// The Mirelo Kit on a simulated device: a host app registers with the kit
// and asks what the installed messenger can do.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/MireloAuthSDK.h"
#include "mirelo/MireloPayExt.h"
#include "mirelo/model/Model.h"
#include "mirelo/sim/MessengerPeer.h"
#include "mirelo/sim/SimDevice.h"
#include "ports/linux/image_codec.h"
#include "tools/signin-server/SignInServer.h"
#include "util/BinaryPlist.h"
#include "util/MireloApiUtil.h"

using namespace mirelo;

namespace {

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr const char* kHostBundleId = "com.example.host";
constexpr const char* kUniversalLink = "https://host.example.com/mirelo";

void heading(const char* title) { std::printf("\n== %s ==\n", title); }

const char* yesNo(bool b) { return b ? "YES" : "NO"; }

// The host's delegate: prints what the messenger answered.
class PrintingDelegate : public MRApiDelegate {
 public:
  void onReq(const std::shared_ptr<BaseReq>& req) override {
    std::printf("  host delegate onReq: %s\n", req->className().c_str());
  }
  void onResp(const std::shared_ptr<BaseResp>& resp) override {
    std::printf("  host delegate onResp: %s errCode=%d", resp->className().c_str(), resp->errCode);
    if (auto auth = kindCast<SendAuthResp>(resp)) std::printf(" code=%s state=%s", auth->code.description().c_str(), auth->state.description().c_str());
    if (auto pay = kindCast<PayResp>(resp)) std::printf(" returnKey=%s", pay->returnKey.description().c_str());
    std::printf("\n");
  }
};

// The host's QR sign-in screen: saves the QR code as a PNG and prints the
// session's events.
class QrScreen : public MireloAuthAPIDelegate {
 public:
  QrScreen(const MireloAuthSDK& sdk, std::filesystem::path png) : sdk_(sdk), png_(std::move(png)) {}
  void onAuthGotQrcode(const std::shared_ptr<platform::Image>& image) override {
    std::ofstream(png_, std::ios::binary)
        .write(reinterpret_cast<const char*>(sdk_.qrCodeData().bytes()), static_cast<std::streamsize>(sdk_.qrCodeData().size()));
    std::printf("  QR code %dx%d, saved as %s\n", image ? image->width() : 0, image ? image->height() : 0,
                png_.c_str());
  }
  void onQrcodeScanned() override { std::printf("  the user scanned the code\n"); }
  void onAuthFinish(int errCode, const String& authCode) override {
    std::printf("  onAuthFinish errCode=%d authCode=%s\n", errCode, authCode.description().c_str());
    finished = true;
  }
  bool finished = false;

 private:
  const MireloAuthSDK& sdk_;
  std::filesystem::path png_;
};

void saveText(const std::filesystem::path& path, const std::string& text) { std::ofstream(path) << text; }

void printCapabilities() {
  std::printf("  messenger installed        %s\n", yesNo(MRApi::isMRAppInstalled()));
  std::printf("  supports the API           %s\n", yesNo(MRApi::isMRAppSupportApi()));
  std::printf("  supports the state API     %s\n", yesNo(MRApi::isMRAppSupportStateAPI()));
  std::printf("  launches by scheme         %s\n", yesNo(MRApi::isDefaultLaunchByScheme()));
  std::printf("  messenger version          %u\n", MRApi::tryGetMireloVersion());
}

}  // namespace

int main(int argc, char** argv) {
  std::printf("Mirelo Kit %s demo on a simulated device\n", MRApi::getApiVersion().c_str());
  // Where the demo leaves the files it saves for the inspector.
  const std::filesystem::path out = argc > 1 ? argv[1] : "mirelo-demo-output";
  std::filesystem::create_directories(out);

  auto device = sim::SimDevice::create();
  device->setSystemVersion("13.4.1");

  sim::AppManifest messenger;
  messenger.bundleId = "com.mirelo.messenger";
  messenger.infoPlist = sim::AppManifest::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {});
  messenger.universalLinks.push_back({kMireloUniversalLinkHost, {"/app/"}});
  device->install(messenger);

  sim::AppManifest host;
  host.bundleId = kHostBundleId;
  // A faulty Info.plist first: the messenger's universal-link scheme is not
  // listed among the query schemes.
  host.infoPlist = sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo"});
  host.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
  sim::SimApp& hostApp = device->install(host);
  device->runKitAs(kHostBundleId);

  std::vector<std::string> lines;
  MRApi::startLogByLevel(MRLogLevelNormal, [&lines](const std::string& line) {
    lines.push_back(line);
    std::printf("  log| %s\n", line.c_str());
  });

  heading("Device");
  std::printf("  system 13.4.1, apps: %s (messenger), %s (host)\n", messenger.bundleId.c_str(), kHostBundleId);

  heading("Registration with a faulty Info.plist");
  bool ok = MRApi::registerApp(kAppId, kUniversalLink);
  std::printf("  registerApp -> %s\n", yesNo(ok));
  printCapabilities();

  heading("Registration with a universal link that carries a query");
  ok = MRApi::registerApp(kAppId, "https://host.example.com/mirelo?from=demo");
  std::printf("  registerApp -> %s\n", yesNo(ok));

  heading("Registration with the Info.plist fixed");
  hostApp.infoPlist() = sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
  ok = MRApi::registerApp(kAppId, kUniversalLink);
  std::printf("  registerApp -> %s (universal link stored as %s/)\n", yesNo(ok), kUniversalLink);
  printCapabilities();

  heading("Opening the messenger without a request");
  ok = MRApi::openMRApp();
  std::printf("  openMRApp -> %s\n", yesNo(ok));
  for (const auto& e : device->openLog()) {
    std::printf("  opened %s -> %s\n", e.url.c_str(), e.openedBundleId.empty() ? "(nothing)" : e.openedBundleId.c_str());
  }

  heading("An old messenger without the universal-link interface");
  messenger.infoPlist = sim::AppManifest::makeInfoPlist({"mirelo"}, {});
  device->install(messenger);
  printCapabilities();

  heading("No messenger on the device");
  device->uninstall(messenger.bundleId);
  printCapabilities();
  ok = MRApi::openMRApp();
  std::printf("  openMRApp -> %s\n", yesNo(ok));

  // From here on the messenger is the peer: it reads what the kit sends.
  auto peer = sim::MessengerPeer::install(*device);
  peer->setDefaultOutcome(sim::Outcome::noAnswer());
  sim::TokenPolicy proceed;
  proceed.action = sim::TokenPolicy::Action::Proceed;
  peer->setTokenPolicy(proceed);
  device->clearOpenLog();

  heading("A token for a pending request");
  auto share = std::make_shared<SendMessageToMRReq>();
  share->bText = true;
  share->text = "Dinner at eight?";
  MRApi::sendReq(share, [](bool sent) { std::printf("  sendReq completion -> %s\n", yesNo(sent)); });
  device->runUntilIdle();
  MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
  const String contextId = identity.contextID();
  std::printf("  pending context id: %s\n", contextId.c_str());
  // The messenger hands back a token for that context, as its refreshToken
  // answer does.
  MRError error;
  ok = identity.checkAndRecordTokenToKeychain("demo-token/with&odd=chars", contextId, &error);
  std::printf("  token recorded for the pending context -> %s\n", yesNo(ok));
  // The token item as the keychain holds it, for mirelo-inspect keychain.
  if (!hostApp.keychainItems().empty()) {
    const Data itemBytes = bplist::encode(Value(hostApp.keychainItems().back()));
    std::ofstream(out / "keychain-token.bplist", std::ios::binary)
        .write(reinterpret_cast<const char*>(itemBytes.bytes()), static_cast<std::streamsize>(itemBytes.size()));
  }
  std::optional<URL> next = MireloIdentityHandler::genMireloUniversalLinkWithExtraUrl(
      "sendreq/?", MireloIdentityHandler::loadTokenFromKeychain(), MRApiInternal::genContextId(share));
  std::printf("  the next launch opens:\n    %s\n", next ? next->absoluteString().c_str() : "(none)");
  std::optional<URL> degrade = MireloIdentityHandler::genMireloUrlSchemeUrl("sendreq/?", true, true);
  std::printf("  and, should that fail, degrades to:\n    %s\n", degrade ? degrade->absoluteString().c_str() : "(none)");

  heading("Sending to the messenger");
  auto image = MRImageObject::object();
  auto bitmap = linuxport::Bitmap::blank(640, 480);
  auto codec = linuxport::makeImageCodec();
  image->imageData = codec->jpegRepresentation(*bitmap, 0.9);
  auto picture = std::make_shared<SendMessageToMRReq>();
  picture->message = MRMediaMessage::message();
  picture->message->title = "Holiday";
  picture->message->description = "The view from the hill";
  picture->message->setThumbImage(linuxport::Bitmap::blank(120, 90));
  picture->message->mediaObject = image;

  auto signIn = std::make_shared<SendAuthReq>();
  signIn->scope = "snsapi_userinfo";
  signIn->state = "demo-42";

  auto pay = std::make_shared<PayReq>();
  pay->partnerId = "1900000109";
  pay->prepayId = "mr201410272009395522657a690389285100";
  pay->nonceStr = "5K8264ILTKCH16CQ2502SI8ZNMTM67VS";
  pay->timeStamp = 1414561699;
  pay->package = "Sign=MRPay";
  pay->sign = "C380BEC2BFD727A4B6845133519F3AD6";

  const std::pair<const char*, std::shared_ptr<BaseReq>> requests[] = {
      {"a text share", share}, {"an image share with a thumbnail", picture}, {"a sign-in request", signIn},
      {"a payment", pay}};
  for (const auto& [what, req] : requests) {
    std::printf("\n  -- %s --\n", what);
    MRApi::sendReq(req, [](bool sent) { std::printf("  sendReq completion -> %s\n", yesNo(sent)); });
    device->runUntilIdle();
    if (const sim::ReceivedRequest* got = peer->lastReceived()) {
      std::printf("%s\n", got->describe().c_str());
    }
  }

  // ---- round trips: the messenger answers and the host hands the answer
  // to the kit, as its app delegate would.
  auto delegate = std::make_shared<PrintingDelegate>();
  bool payBridge = false;
  device->app(kHostBundleId)->onOpenURL([&](const sim::OpenContext& opened) {
    std::printf("  host opened with %s\n", opened.url.c_str());
    std::optional<URL> url = URL::fromString(opened.url);
    bool handled = false;
    if (payBridge) {
      handled = MireloPayExt::handleUrl(url);
    } else if (opened.viaUniversalLink) {
      handled = MRApi::handleOpenUniversalLink(UserActivity{NSUserActivityTypeBrowsingWeb, url}, delegate);
    } else {
      handled = MRApi::handleOpenURL(url, delegate);
    }
    std::printf("  kit handled it -> %s\n", yesNo(handled));
  });
  peer->setDefaultOutcome(sim::Outcome::success());
  peer->script("auth/", sim::Outcome::success(Dictionary{{"code", "CODE-0123"}, {"state", "demo-42"}}));
  peer->script("pay/", sim::Outcome::success(Dictionary{{"returnKey", "rk-1"}}));
  MRApi::stopLog();

  heading("Round trip: a share");
  device->clearOpenLog();
  MRApi::sendReq(share, nullptr);
  // What the kit wrote, saved before the messenger takes it.
  const Data item = device->pasteboardData("content");
  std::ofstream(out / "share-request.bplist", std::ios::binary)
      .write(reinterpret_cast<const char*>(item.bytes()), static_cast<std::streamsize>(item.size()));
  device->runUntilIdle();
  std::string urls;
  for (const auto& e : device->openLog()) urls += e.url + "\n";
  saveText(out / "share-round-trip.urls", urls);

  heading("Round trip: a sign-in");
  MRApi::sendReq(signIn, nullptr);
  device->runUntilIdle();

  heading("Round trip: a payment through the pay bridge");
  payBridge = true;
  MireloPayExt::payOrder(Dictionary{{"partnerid", "1900000109"}, {"prepayid", "mr2014"}, {"noncestr", "5K8264IL"},
                                    {"timestamp", "1414561699"}, {"package", "Sign=MRPay"}, {"sign", "C380BEC2"}},
                         [](std::int32_t code, const String& message) {
                           std::printf("  pay callback: code=%d message=%s\n", code, message.c_str());
                         });
  device->runUntilIdle();
  payBridge = false;

  heading("Round trip: a token refresh and the re-send");
  hostApp.keychainItems().clear();  // no token yet: the messenger must hand one over
  peer->setTokenPolicy(sim::TokenPolicy{});
  MRApi::sendReq(share, nullptr);
  device->runUntilIdle();
  std::printf("  ... 0.1 s later the kit re-sends the pending request with the token\n");
  device->advance(0.1);
  if (const sim::ReceivedRequest* got = peer->lastReceived()) {
    std::printf("  the messenger now sees token %s for %s\n", got->token.isNull() ? "(none)" : "(present)",
                got->command.c_str());
  }

  heading("Universal-link self-check");
  MRApi::checkUniversalLinkReady([](MRULCheckStep step, const std::shared_ptr<MRCheckULStepResult>& result) {
    std::printf("  step %lld: %s\n", static_cast<long long>(step), result->description().c_str());
  });
  device->runUntilIdle();

  heading("A result per request");
  {
    // Each result names its outcome; the handler never needs a downcast.
    const auto print = [](const char* what) {
      return [what](const auto& result) {
        static const char* const kNames[] = {"answered", "cancelled", "failed", "not opened", "superseded"};
        std::printf("  %s -> %s\n", what, kNames[result.index()]);
      };
    };
    MRApi::send(share, print("share"));
    device->runUntilIdle();
    auto tooLong = std::make_shared<SendMessageToMRReq>();
    tooLong->bText = true;
    tooLong->text = std::string(20000, 'x');
    MRApi::send(tooLong, [](const MRResult<SendMessageToMRResp>& result) {
      if (const auto* refused = std::get_if<MRNotOpened>(&result)) {
        std::printf("  long text -> not opened: %s\n", refused->refusal.message.c_str());
      }
    });
    device->runUntilIdle();

    std::printf("  the user leaves the messenger without answering and switches back by hand:\n");
    peer->scriptOnce("auth/", sim::Outcome::noAnswer());
    MRApi::send(signIn, print("sign-in"));
    device->runUntilIdle();
    device->switchToApp(kHostBundleId);
    device->advance(MRApi::cancelGracePeriod() + 0.1);

    MRApi::setUnmatchedAnswerObserver([](const MRUnmatchedAnswer& answer) {
      std::printf("  unmatched answer (reason %lld), delegate got it: %s\n", static_cast<long long>(answer.reason),
                  yesNo(answer.deliveredToDelegate));
    });
    std::printf("  another app forges a sign-in answer:\n");
    device->openURL(std::string(kAppId) + "://oauth?code=FORGED", "");
    device->runUntilIdle();
    MRApi::setUnmatchedAnswerObserver(nullptr);
  }

  heading("What went across, in order");
  std::printf("%s\n", peer->transcript().c_str());

  heading("Sign-in on the web, without the messenger");
  device->uninstall("com.mirelo.messenger");
  device->clearScreenLog();
  MRApi::sendAuthReq(signIn, nullptr, delegate,
                     [](bool started) { std::printf("  sendAuthReq completion -> %s\n", yesNo(started)); });
  device->runUntilIdle();
  if (sim::SimWebPage* page = device->topWebPage()) {
    std::printf("  page \"%s\" shows %s\n", page->title().c_str(), page->url().c_str());
    std::printf("  the user confirms by phone; the page hands back to the host\n");
    page->navigate(std::string(kAppId) + "://wapoauth?ticket=t-77&lang=en");
    device->runUntilIdle();
    std::printf("  page now shows %s\n", page->url().c_str());
    std::printf("  the user authorises; the page redirects with the code\n");
    page->navigate(std::string(kAppId) + "://oauth?code=WEB-CODE-9&state=demo-42");
    device->runUntilIdle();
  }
  std::printf("  screens:\n");
  for (const auto& line : device->screenLog()) std::printf("    %s\n", line.c_str());

  heading("Sign-in by QR code against a local HTTPS server");
  testing::SignInServer server;
  if (!server.start()) {
    std::printf("  the sign-in server did not start: %s\n", server.error().c_str());
    return 1;
  }
  std::printf("  server on 127.0.0.1:%d, trusted through its own authority %s\n", server.port(),
              server.caPath().c_str());
  for (const char* name : {"open.mirelo.app", "long.open.mirelo.app"}) device->routeHost(name, "127.0.0.1", server.port());
  device->setCertificateAuthorities(server.caPath());
  server.queuePollAnswer(testing::SignInAnswer::pollState(401));
  server.queuePollAnswer(testing::SignInAnswer::pollState(404));
  server.queuePollAnswer(testing::SignInAnswer::pollState(405, "QR-CODE-7"));
  {
    MireloAuthSDK sdk;
    auto screen = std::make_shared<QrScreen>(sdk, out / "qrcode.png");
    sdk.delegate = screen;
    const double started = device->now();
    ok = sdk.Auth(kAppId, "n0nce", "1767225600", "snsapi_userinfo", "s1gn", "demo");
    std::printf("  Auth -> %s\n", yesNo(ok));
    device->runUntil([&] { return screen->finished; }, 30);
    std::printf("  %zu requests to the server, %.0f s on the device's clock\n", server.requests().size(),
                device->now() - started);
  }

  heading("Look at what travelled");
  std::printf("  The request record and the round trip's URLs are saved in %s.  Decode them with:\n",
              out.c_str());
  std::printf("    build/tools/mirelo-inspect pasteboard %s\n", (out / "share-request.bplist").c_str());
  std::printf("    build/tools/mirelo-inspect keychain %s\n", (out / "keychain-token.bplist").c_str());
  std::printf("    xargs -n1 build/tools/mirelo-inspect url --app-id %s < %s\n", kAppId,
              (out / "share-round-trip.urls").c_str());
  return 0;
}
