// The platform contract on the simulated device (with the curl HTTP
// transport behind it, against the local HTTPS server), and on the Linux
// services alone (OpenSSL crypto, the JPEG/PNG codec).
#include <memory>
#include <string>

#include "mirelo/sim/SimDevice.h"
#include "mirelo/testing/PlatformContract.h"
#include "ports/linux/crypto_openssl.h"
#include "ports/linux/image_codec.h"
#include "tools/signin-server/SignInServer.h"

namespace mirelo::testing {
namespace {

constexpr const char* kApp = "com.example.contract";
constexpr const char* kOther = "com.example.other";

// One server for every case, started by the first and stopped when the
// tests end, before main returns: stopped later, from a static's
// destructor, its threads could still be using OpenSSL after OpenSSL's
// own exit handler has torn it down.
class ServerEnvironment : public ::testing::Environment {
 public:
  SignInServer* get() {
    if (!tried) {
      tried = true;
      server = std::make_unique<SignInServer>();
      if (!server->start()) server.reset();
    }
    return server.get();
  }
  void TearDown() override { server.reset(); }

 private:
  std::unique_ptr<SignInServer> server;
  bool tried = false;
};
ServerEnvironment* const serverEnvironment =
    static_cast<ServerEnvironment*>(::testing::AddGlobalTestEnvironment(new ServerEnvironment));
SignInServer* sharedServer() { return serverEnvironment->get(); }

class SimEnvironment : public PlatformEnvironment {
 public:
  SimEnvironment() : device(sim::SimDevice::create()) {
    device->install({kApp, sim::AppManifest::makeInfoPlist({"contract"}, {"listed"}), {}});
    device->install({kOther, sim::AppManifest::makeInfoPlist({"listed", "unlisted"}, {}),
                     {{"links.example.com", {"/app/"}}}});
    device->switchToApp(kApp);
    device->runUntilIdle();
    if (SignInServer* const server = sharedServer()) {
      device->setCertificateAuthorities(server->caPath());
      device->routeHost("open.mirelo.app", "127.0.0.1", server->port());
      device->routeHost("unnamed.example.com", "127.0.0.1", server->port());
      trusted = std::string("https://open.mirelo.app") + SignInServer::kQrPath;
      untrusted = "https://unnamed.example.com/x";  // the server's certificate does not name this host
    }
  }
  std::shared_ptr<platform::Platform> platform() override { return device->app(kApp)->platform(); }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    const double end = device->now() + seconds;
    device->runUntil([&] { return done() || device->now() >= end; }, seconds + 10);
    return done();
  }
  std::optional<Links> links() override {
    return Links{"listed://x", "unlisted://x", "missing://x", "https://links.example.com/app/x",
                 "https://www.example.com/x"};
  }
  bool writeTextAsOtherApp(const std::string& text) override {
    device->setPasteboardString(text, kOther);
    return true;
  }
  bool leaveAndComeBack() override {
    device->switchToApp(kOther);
    device->switchToApp(kApp);
    return true;
  }
  bool reopenByURL(std::function<void()> received) override {
    device->switchToApp("");
    device->app(kApp)->onOpenURL([received](const sim::OpenContext&) { received(); });
    return device->openURL("contract://back", kOther);
  }
  std::optional<std::string> trustedHttpsURL() override { return trusted; }
  std::optional<std::string> untrustedHttpsURL() override { return untrusted; }
  bool tapAlertButton(const std::string& title) override {
    return device->topAlert() && device->topAlert()->tap(title);
  }
  std::optional<std::vector<std::string>> systemLogLines() override { return device->systemLog(); }

  std::shared_ptr<sim::SimDevice> device;
  std::optional<std::string> trusted, untrusted;  // set when the server runs
};

// Only the services the Linux port has; nothing runs on a run loop.
class LinuxEnvironment : public PlatformEnvironment {
 public:
  LinuxEnvironment() : services(std::make_shared<platform::Platform>()) {
    services->crypto = linuxport::makeOpenSslCrypto();
    services->imageCodec = linuxport::makeImageCodec();
  }
  std::shared_ptr<platform::Platform> platform() override { return services; }
  bool runUntil(const std::function<bool()>& done, double) override { return done(); }
  std::shared_ptr<platform::Platform> services;
};

}  // namespace
}  // namespace mirelo::testing

MIRELO_PLATFORM_CONTRACT(Sim, [] { return std::make_unique<mirelo::testing::SimEnvironment>(); })
MIRELO_PLATFORM_CONTRACT(Linux, [] { return std::make_unique<mirelo::testing::LinuxEnvironment>(); })
