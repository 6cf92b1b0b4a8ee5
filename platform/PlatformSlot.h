// The one slot that holds the kit's current platform.  It lives in the
// value layer, so that a port can install a platform (setCurrent) without
// linking the kit; the kit's current() fills it with the port's default on
// first use.
#pragma once

#include <memory>

#include "mirelo/platform/Platform.h"

namespace mirelo::platform::detail {

std::shared_ptr<Platform>& currentSlot();

}  // namespace mirelo::platform::detail
