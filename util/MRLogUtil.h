// The kit's one log sink holder.  Every line of the kit goes through
// printLog; without a sink it is dropped (error lines then go to the
// system log, see util/Log.h).
//
// Threading: the kit's calls come from the main thread, but the sink may be
// set, changed and removed while another thread logs without anything
// tearing: the fields are guarded by a mutex, and a line is delivered to a
// copy of the sink taken under it, outside the lock (so a sink may change
// the configuration from inside its own call).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
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
  // configured level is 1, any other level never.  Returns whether a sink
  // was set (whether or not the level let the line through).
  bool printLog(const std::string& message, std::int64_t level);
  // True when a block is set or the delegate is still alive: only then is it
  // worth composing a line.  One atomic load while no sink was ever set.
  bool hasSink() const;

  std::int64_t logLevel() const;
  MRLogBlock logBlock() const;
  std::shared_ptr<MRApiLogDelegate> logDelegate() const;

  MRLogUtil() = default;
  MRLogUtil(const MRLogUtil&) = delete;
  MRLogUtil& operator=(const MRLogUtil&) = delete;

  // Back to no sink and level 0 (a relaunched app).
  void reset();

 private:

  mutable std::mutex mutex_;
  // Shared, so that a line is delivered through a copy of the pointer
  // rather than of the block.
  std::shared_ptr<const MRLogBlock> logBlock_;
  std::int64_t logLevel_ = 0;
  std::weak_ptr<MRApiLogDelegate> logDelegate_;
  // Whether a block or a delegate was set since the last removeLog; a
  // delegate may have gone away since.
  std::atomic<bool> sinkSet_{false};
};

}  // namespace mirelo
