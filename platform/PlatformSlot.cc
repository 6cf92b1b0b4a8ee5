#include "platform/PlatformSlot.h"

namespace mirelo::platform {

namespace detail {
std::shared_ptr<Platform>& currentSlot() {
  static std::shared_ptr<Platform> current;
  return current;
}
}  // namespace detail

std::shared_ptr<Platform> setCurrent(std::shared_ptr<Platform> platform) {
  auto& s = detail::currentSlot();
  std::shared_ptr<Platform> previous = std::move(s);
  s = std::move(platform);
  return previous;
}

}  // namespace mirelo::platform
