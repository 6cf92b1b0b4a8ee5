// The Mirelo Kit on a simulated device: a host app registers with the kit
// and asks what the installed messenger can do.
#include <cstdio>
#include <string>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/sim/SimDevice.h"
#include "util/MireloApiUtil.h"

using namespace mirelo;

namespace {

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr const char* kHostBundleId = "com.example.host";
constexpr const char* kUniversalLink = "https://host.example.com/mirelo";

void heading(const char* title) { std::printf("\n== %s ==\n", title); }

const char* yesNo(bool b) { return b ? "YES" : "NO"; }

void printCapabilities() {
  std::printf("  messenger installed        %s\n", yesNo(MRApi::isMRAppInstalled()));
  std::printf("  supports the API           %s\n", yesNo(MRApi::isMRAppSupportApi()));
  std::printf("  supports the state API     %s\n", yesNo(MRApi::isMRAppSupportStateAPI()));
  std::printf("  launches by scheme         %s\n", yesNo(MRApi::isDefaultLaunchByScheme()));
  std::printf("  messenger version          %u\n", MRApi::tryGetMireloVersion());
}

}  // namespace

int main() {
  std::printf("Mirelo Kit %s demo on a simulated device\n", MRApi::getApiVersion().c_str());

  auto device = sim::SimDevice::create();
  device->setSystemVersion("13.4.1");

  sim::AppSpec messenger;
  messenger.bundleId = "com.mirelo.messenger";
  messenger.infoPlist = sim::AppSpec::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {});
  messenger.universalLinks.push_back({kMireloUniversalLinkHost, {"/app/"}});
  device->install(messenger);

  sim::AppSpec host;
  host.bundleId = kHostBundleId;
  // A faulty Info.plist first: the messenger's universal-link scheme is not
  // listed among the query schemes.
  host.infoPlist = sim::AppSpec::makeInfoPlist({kAppId}, {"mirelo"});
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
  hostApp.infoPlist() = sim::AppSpec::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
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
  messenger.infoPlist = sim::AppSpec::makeInfoPlist({"mirelo"}, {});
  device->install(messenger);
  printCapabilities();

  heading("No messenger on the device");
  device->uninstall(messenger.bundleId);
  printCapabilities();
  ok = MRApi::openMRApp();
  std::printf("  openMRApp -> %s\n", yesNo(ok));
  return 0;
}
