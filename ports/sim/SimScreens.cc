// The screens of the simulated device: the presenter every app sees, and
// what tests see of it.
#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {

struct ScreenState {
  std::vector<std::string> log;
};

std::shared_ptr<ScreenState> makeScreenState() { return std::make_shared<ScreenState>(); }

std::shared_ptr<platform::Presenter> makeSimPresenter(const std::shared_ptr<DeviceState>&,
                                                      const std::shared_ptr<AppState>&) {
  return nullptr;
}

void screensAppGone(DeviceState&, const std::string&) {}

}  // namespace mirelo::sim::detail

namespace mirelo::sim {

SimWebPage* SimDevice::topWebPage() { return nullptr; }
SimAlert* SimDevice::topAlert() { return nullptr; }
std::size_t SimDevice::presentedCount() const { return 0; }
const std::vector<std::string>& SimDevice::screenLog() const { return impl_->state->screens->log; }
void SimDevice::clearScreenLog() { impl_->state->screens->log.clear(); }
void SimDevice::setWebPagePreferencesAvailable(bool) {}

}  // namespace mirelo::sim
