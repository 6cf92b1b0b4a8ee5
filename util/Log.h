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

// `line` with the value of every "mirelo_auth_token=" in it replaced by
// "sha256:" and the first 16 hex digits of the token's SHA-256.  emit()
// applies it to every line.
std::string redactSecrets(std::string line);

// Keeps the text of the first error line written on this thread while it
// lives (without the "mrlog:Error:" prefix), sink or no sink, so that a
// caller can hand the reason of a refusal to the host as a value: the first
// line names the cause, later ones the steps that gave up.  Nests.
class ErrorCapture {
 public:
  ErrorCapture();
  ~ErrorCapture();
  ErrorCapture(const ErrorCapture&) = delete;
  ErrorCapture& operator=(const ErrorCapture&) = delete;
  const std::string& first() const { return first_; }

 private:
  friend void emit(std::string_view, const std::string&, std::int64_t);
  ErrorCapture* outer_;
  std::string first_;
};

bool capturing();

inline bool enabled() { return MRLogUtil::sharedInstance().hasSink() || capturing(); }

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
