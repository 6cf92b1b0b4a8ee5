#include "mirelo/platform/ProcessState.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace mirelo::platform {

namespace {
std::mutex& registryMutex() {
  static std::mutex m;
  return m;
}
std::vector<ProcessReset>& registry() {
  static std::vector<ProcessReset> resets;
  return resets;
}
}  // namespace

void registerProcessReset(ProcessReset reset) {
  if (reset == nullptr) return;
  std::lock_guard<std::mutex> lock(registryMutex());
  auto& r = registry();
  if (std::find(r.begin(), r.end(), reset) == r.end()) r.push_back(reset);
}

void resetProcessState() {
  std::vector<ProcessReset> resets;
  {
    std::lock_guard<std::mutex> lock(registryMutex());
    resets = registry();
  }
  for (ProcessReset reset : resets) reset();
}

}  // namespace mirelo::platform
