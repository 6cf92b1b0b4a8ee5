// The network of the simulated device: real HTTPS through the Linux port,
// with time-outs on the virtual clock.
#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {

struct NetworkState {};

std::shared_ptr<NetworkState> makeNetworkState() { return std::make_shared<NetworkState>(); }

std::shared_ptr<platform::Http> makeSimHttp(const std::shared_ptr<DeviceState>&, const std::shared_ptr<AppState>&) {
  return nullptr;
}

void pumpNetwork(DeviceState&) {}
void networkAppGone(DeviceState&, const std::string&) {}

}  // namespace mirelo::sim::detail

namespace mirelo::sim {

void SimDevice::routeHost(const std::string&, const std::string&, int) {}
void SimDevice::setCertificateAuthorities(const std::string&) {}
std::size_t SimDevice::activeConnections() const { return 0; }
bool SimDevice::runUntil(const std::function<bool()>& done, double) {
  runUntilIdle();
  return done();
}

}  // namespace mirelo::sim
