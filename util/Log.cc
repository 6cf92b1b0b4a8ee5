// Composition of a log line and its hand-over to the shared logger.

#include "util/Log.h"

namespace mirelo::mrlog {

void emit(std::string_view prefix, const std::string& message, std::int64_t level) {
  std::string line;
  line.reserve(prefix.size() + message.size());
  line.append(prefix);
  line.append(message);
  MRLogUtil::sharedInstance().printLog(line, level);
}

}  // namespace mirelo::mrlog
