#include "mirelo/platform/Platform.h"

#include "platform/PlatformSlot.h"

namespace mirelo::platform {

Platform& current() {
  auto& s = detail::currentSlot();
  if (!s) s = createDefaultPlatform();
  return *s;
}

}  // namespace mirelo::platform
