#include "util/MainThread.h"

#include <cstdio>
#include <cstdlib>

#include "mirelo/platform/Platform.h"
#include "util/Log.h"

namespace mirelo {

bool mainThreadChecksEnabled() {
#ifdef NDEBUG
  return false;
#else
  return true;
#endif
}

void requireMainThread(const char* entry) {
  if (!mainThreadChecksEnabled()) return;
  const auto& runLoop = platform::current().runLoop;
  if (!runLoop || runLoop->isMainThread()) return;
  const std::string message =
      format("%s called off the main thread: the Mirelo Kit's API must be called on the main thread", entry);
  mrlog::error("%@", message);
  std::fprintf(stderr, "mrlog:Error:%s\n", message.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace mirelo
