// A simulated device for the fuzz targets that need one: the host app (the
// kit runs as it) registered with its app id and universal link, and the
// messenger app installed, as the kit's test fixture sets them up.
//
// A fuzzer makes one rig per process and calls reset() before each input: a
// fresh kit process on the same device (the host is relaunched, so pending
// run-loop work is dropped), an empty keychain, user defaults and
// pasteboard, the log lines collected anew, and the host registered again.
// The regression test makes one rig per test; the rig puts the kit's
// previous platform back when it goes.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::fuzz {

class Rig {
 public:
  static constexpr const char* kAppId = "mr0123456789abcdef";
  static constexpr const char* kHostBundleId = "com.example.host";
  static constexpr const char* kUniversalLink = "https://host.example.com/mirelo/";
  static constexpr const char* kMessengerBundleId = "com.mirelo.messenger";
  // The token planted in the host's keychain, and the context id of the
  // request that waits for it.  Inputs may carry the context id (the seeds
  // do), so that the token answers are reached; the token must never leave
  // the host except towards the messenger.
  static constexpr const char* kToken = "fuzzsecrettoken5c1e0a77d2";
  static constexpr const char* kContextId = "fuzzcontext9b2f4e6a8c0d1e3f";

  // Installs the host app: its scheme is the app id, its universal link
  // kUniversalLink, and it may query the messenger's schemes.
  static sim::SimApp& installHost(sim::SimDevice& device) {
    sim::AppManifest hostManifest;
    hostManifest.bundleId = kHostBundleId;
    hostManifest.infoPlist =
        sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
    hostManifest.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
    return device.install(hostManifest);
  }

  Rig() {
    device = sim::SimDevice::create();
    host = &installHost(*device);
    sim::AppManifest messengerManifest;
    messengerManifest.bundleId = kMessengerBundleId;
    messengerManifest.infoPlist = sim::AppManifest::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {});
    messengerManifest.universalLinks.push_back({"open.mirelo.app", {"/app/"}});
    device->install(messengerManifest);
    previous_ = platform::setCurrent(host->platform());
    device->runKitAs(kHostBundleId);
  }

  ~Rig() {
    platform::resetProcessState();
    platform::setCurrent(previous_);
  }

  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  // A fresh kit process on the same device, registered, with the log lines
  // collected into `logs`.  With `plantToken`, the keychain holds kToken and
  // a share request waits under kContextId.
  void reset(bool plantToken) {
    device->relaunch(kHostBundleId);
    device->runKitAs(kHostBundleId);
    host->keychainItems().clear();
    host->userDefaults().clear();
    device->setPasteboardData(Data(), "content");
    device->clearOpenLog();
    logs.clear();
    MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
    MRApi::registerApp(kAppId, kUniversalLink);
    if (plantToken) {
      auto req = std::make_shared<SendMessageToMRReq>();
      req->bText = true;
      req->text = "waiting for a token";
      MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
      identity.setContextReq(req, kContextId);
      identity.checkAndRecordTokenToKeychain(kToken, kContextId, nullptr);
    }
    logs.clear();
  }

  // The first log line that contains `needle`, or "".
  std::string logLineWith(std::string_view needle) const {
    for (const std::string& line : logs) {
      if (line.find(needle) != std::string::npos) return line;
    }
    return std::string();
  }

  // A problem when a log line is far longer than the input could make it:
  // descriptions of received values stop at 1 MiB, whatever the input
  // describes.
  std::string oversizedLog(std::size_t inputSize) const {
    const std::size_t bound = (std::size_t{2} << 20) + 8 * inputSize;
    for (const std::string& line : logs) {
      if (line.size() > bound) {
        return "a log line of " + std::to_string(line.size()) + " bytes from " + std::to_string(inputSize) +
               " bytes of input";
      }
    }
    return std::string();
  }

  // A problem when the planted token went anywhere but to the messenger:
  // into a log line, onto the pasteboard, or into a URL the host opened that
  // is not the messenger's universal link.  An input that itself carries the token
  // is not judged.
  std::string tokenLeak(std::string_view input) const {
    if (input.find(kToken) != std::string_view::npos) return std::string();
    if (const std::string line = logLineWith(kToken); !line.empty()) return "the token was logged: " + line;
    // Every app reads the general pasteboard.
    if (device->pasteboardData("content").view().find(kToken) != std::string_view::npos ||
        device->pasteboardString().contains(kToken)) {
      return "the token was put on the pasteboard";
    }
    const std::string messengerLink = std::string("https://open.mirelo.app/app/") + kAppId + "/";
    for (const sim::OpenEvent& open : device->openLog()) {
      if (open.url.find(kToken) == std::string::npos) continue;
      if (open.sourceBundleId != kHostBundleId || open.url.rfind(messengerLink, 0) != 0 ||
          (open.success && open.openedBundleId != kMessengerBundleId)) {
        return "the token left the host towards " + open.url;
      }
    }
    return std::string();
  }

  std::shared_ptr<sim::SimDevice> device;
  sim::SimApp* host = nullptr;
  std::vector<std::string> logs;

 private:
  std::shared_ptr<platform::Platform> previous_;
};

}  // namespace mirelo::fuzz
