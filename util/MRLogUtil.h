// The kit's one log sink holder.  Every line of the kit goes through
// printLog; without a sink it is dropped.  Main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirelo/MRApi.h"

namespace mirelo {

class MRLogUtil {
 public:
  // The shared instance, created once.  Reset by a simulated relaunch.
  static MRLogUtil& sharedInstance();

  void configLogBlock(MRLogBlock block, std::int64_t level);
  void configLogDelegate(const std::shared_ptr<MRApiLogDelegate>& delegate, std::int64_t level);
  void removeLog();
  // Delivers one composed line: level 0 always, level 1 only when the
  // configured level is 1, any other level never.
  void printLog(const std::string& message, std::int64_t level);
  // True when a block is set or the delegate is still alive: only then is it
  // worth composing a line.
  bool hasSink() const;

  std::int64_t logLevel() const { return logLevel_; }
  const MRLogBlock& logBlock() const { return logBlock_; }
  std::shared_ptr<MRApiLogDelegate> logDelegate() const { return logDelegate_.lock(); }

 private:
  MRLogBlock logBlock_;
  std::int64_t logLevel_ = 0;
  std::weak_ptr<MRApiLogDelegate> logDelegate_;
};

}  // namespace mirelo
