// A user activity handed to the host app by the system, as far as the kit
// reads it: its type and the web page URL of a universal-link launch.
#pragma once

#include <optional>

#include "mirelo/String.h"
#include "mirelo/URL.h"

namespace mirelo {

// The activity type of a universal-link launch (the system's constant).
inline constexpr const char* NSUserActivityTypeBrowsingWeb = "NSUserActivityTypeBrowsingWeb";

struct UserActivity {
  String activityType;
  std::optional<URL> webpageURL;
};

}  // namespace mirelo
