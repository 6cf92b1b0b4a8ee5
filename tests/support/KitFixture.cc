#include "support/KitFixture.h"

#include <algorithm>

#include "mirelo/platform/ProcessState.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {

Dictionary goodHostInfoPlist() {
  return sim::AppManifest::makeInfoPlist({kHostAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
}

sim::AppManifest messengerManifest(bool withUniversalLinkApi, bool withStateApi) {
  std::vector<std::string> schemes{"mirelo"};
  if (withUniversalLinkApi) schemes.push_back("mireloULAPI");
  if (withStateApi) schemes.push_back("mireloStateAPI");
  sim::AppManifest manifest;
  manifest.bundleId = kMessengerBundleId;
  manifest.infoPlist = sim::AppManifest::makeInfoPlist(schemes, {});
  manifest.universalLinks.push_back({kMireloUniversalLinkHost, {"/app/"}});
  return manifest;
}

void KitTest::SetUp() {
  device = sim::SimDevice::create();
  sim::AppManifest hostManifest;
  hostManifest.bundleId = kHostBundleId;
  hostManifest.infoPlist = goodHostInfoPlist();
  hostManifest.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
  host = &device->install(hostManifest);
  messenger = &device->install(messengerManifest());
  previous_ = platform::setCurrent(host->platform());
  device->runKitAs(kHostBundleId);
  platform::resetProcessState();
  MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string& line) { logs.push_back(line); });
}

void KitTest::TearDown() {
  platform::resetProcessState();
  platform::setCurrent(previous_);
}

bool KitTest::registerHost() { return MRApi::registerApp(kHostAppId, kHostUniversalLink); }

std::vector<std::string> KitTest::logsContaining(const std::string& needle) const {
  std::vector<std::string> out;
  for (const auto& l : logs) {
    if (l.find(needle) != std::string::npos) out.push_back(l);
  }
  return out;
}

bool KitTest::logged(const std::string& line) const {
  return std::find(logs.begin(), logs.end(), line) != logs.end();
}

}  // namespace mirelo::testing
