#include "mirelo/platform/Platform.h"

namespace mirelo::platform {

namespace {
std::shared_ptr<Platform>& slot() {
  static std::shared_ptr<Platform> current;
  return current;
}
}  // namespace

Platform& current() {
  auto& s = slot();
  if (!s) s = createDefaultPlatform();
  return *s;
}

std::shared_ptr<Platform> setCurrent(std::shared_ptr<Platform> platform) {
  auto& s = slot();
  std::shared_ptr<Platform> previous = std::move(s);
  s = std::move(platform);
  return previous;
}

}  // namespace mirelo::platform
