// The default platform of a program that links the simulated device: one
// device with one app, "com.mirelo.defaulthost", whose Info.plist is empty.
#include "mirelo/platform/Platform.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::platform {

std::shared_ptr<Platform> createDefaultPlatform() {
  // Kept for the life of the program; the platform only refers to it weakly.
  static const std::shared_ptr<sim::SimDevice> device = [] {
    auto d = sim::SimDevice::create();
    d->install(sim::AppManifest{"com.mirelo.defaulthost", Dictionary(), {}});
    return d;
  }();
  return device->app("com.mirelo.defaulthost")->platform();
}

}  // namespace mirelo::platform
