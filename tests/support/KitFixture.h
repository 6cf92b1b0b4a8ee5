// A simulated device with a host app (the kit runs as it) and an installed
// messenger app, a fresh kit process state for every test, and the kit's log
// lines collected.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::testing {

inline constexpr const char* kHostAppId = "mr0123456789abcdef";
inline constexpr const char* kHostBundleId = "com.example.host";
inline constexpr const char* kHostUniversalLink = "https://host.example.com/mirelo/";
inline constexpr const char* kMessengerBundleId = "com.mirelo.messenger";

// The host's Info.plist as a correct integration has it.
Dictionary goodHostInfoPlist();
// The messenger as installed on the device: its three schemes and its
// universal-link host.
sim::AppManifest messengerManifest(bool withUniversalLinkApi = true, bool withStateApi = true);

class KitTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Registers the host with the default app id and universal link.
  bool registerHost();
  // Every collected log line that contains `needle`.
  std::vector<std::string> logsContaining(const std::string& needle) const;
  bool logged(const std::string& line) const;

  std::shared_ptr<sim::SimDevice> device;
  sim::SimApp* host = nullptr;
  sim::SimApp* messenger = nullptr;
  std::vector<std::string> logs;

 private:
  std::shared_ptr<platform::Platform> previous_;
};

}  // namespace mirelo::testing
