// How the kit writes its diagnostics: the one place where the "mrlog:%@" and
// "Error:%@" wrappings are applied.
//
//   mrlog::line("send req[%@]", req)    -> "mrlog:send req[...]"        level 0
//   mrlog::error("req is nil!")         -> "mrlog:Error:req is nil!"    level 0
//   mrlog::detail(...)                  -> "mrlog:..."                  level 1
//
// A line is formatted only when a sink is set, so logging costs nothing
// while nobody listens.
#pragma once

#include <string>
#include <string_view>

#include "util/Format.h"
#include "util/MRLogUtil.h"

namespace mirelo::mrlog {

inline bool enabled() { return MRLogUtil::sharedInstance().hasSink(); }

void emit(std::string_view prefix, const std::string& message, std::int64_t level);

template <class... A>
void line(std::string_view fmt, const A&... args) {
  if (!enabled()) return;
  emit("mrlog:", format(fmt, args...), 0);
}

template <class... A>
void error(std::string_view fmt, const A&... args) {
  if (!enabled()) return;
  emit("mrlog:Error:", format(fmt, args...), 0);
}

template <class... A>
void detail(std::string_view fmt, const A&... args) {
  if (!enabled()) return;
  emit("mrlog:", format(fmt, args...), 1);
}

}  // namespace mirelo::mrlog
