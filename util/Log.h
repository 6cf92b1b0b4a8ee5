// How the kit writes its diagnostics: the one place where the "mrlog:%@" and
// "Error:%@" wrappings are applied.
//
//   mrlog::line("send req[%@]", req)    -> "mrlog:send req[...]"        level 0
//   mrlog::error("req is nil!")         -> "mrlog:Error:req is nil!"    level 0
//   mrlog::detail(...)                  -> "mrlog:..."                  level 1
//
// A line is formatted only when a sink is set, so logging costs nothing
// while nobody listens.  The one exception: an error line with no sink set
// goes to the platform's system log, so that a refusal is never silent.
//
// Every value a line quotes (%@, %s) is cut to kMaxLoggedValueBytes with a
// marker giving its full length, and every token a line quotes after
// "mirelo_auth_token=" is replaced by a digest: a line costs time linear in
// its bounded length, whatever another app or a web page sent.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "util/Format.h"
#include "util/MRLogUtil.h"

namespace mirelo::mrlog {

// The most bytes of one value a line quotes.
inline constexpr std::size_t kMaxLoggedValueBytes = 16 * 1024;

// `line` with the value of every "mirelo_auth_token=" in it replaced by
// "sha256:" and the first 16 hex digits of the token's SHA-256, in one pass.
// emit() applies it to every line.
std::string redactSecrets(std::string_view line);

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
  friend void emit(std::string_view, const std::string&, std::int64_t, bool);
  ErrorCapture* outer_;
  std::string first_;
};

bool capturing();

inline bool enabled() { return MRLogUtil::sharedInstance().hasSink() || capturing(); }

// Redacts the composed line and hands it to the shared logger; with
// `toSystemLog` and no sink set, writes it to the platform's system log
// instead.
void emit(std::string_view prefix, const std::string& message, std::int64_t level, bool toSystemLog = false);

template <class... A>
void line(std::string_view fmt, const A&... args) {
  if (!enabled()) return;
  emit("mrlog:", formatBounded(kMaxLoggedValueBytes, fmt, args...), 0);
}

template <class... A>
void error(std::string_view fmt, const A&... args) {
  emit("mrlog:Error:", formatBounded(kMaxLoggedValueBytes, fmt, args...), 0, true);
}

template <class... A>
void detail(std::string_view fmt, const A&... args) {
  if (!enabled()) return;
  emit("mrlog:", formatBounded(kMaxLoggedValueBytes, fmt, args...), 1);
}

}  // namespace mirelo::mrlog
