// The kit's log sink: a block or a weakly held delegate, and the level.

#include "util/MRLogUtil.h"

#include "mirelo/platform/ProcessState.h"

namespace mirelo {

namespace {

// A relaunched app starts with no sink and level 0.
void resetSharedLogger() { MRLogUtil::sharedInstance().reset(); }

}  // namespace

MRLogUtil& MRLogUtil::sharedInstance() {
  static MRLogUtil instance;
  static const bool registered = [] {
    platform::registerProcessReset(&resetSharedLogger);
    return true;
  }();
  (void)registered;
  return instance;
}

void MRLogUtil::reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  logBlock_.reset();
  logLevel_ = 0;
  logDelegate_.reset();
  sinkSet_.store(false, std::memory_order_release);
}

void MRLogUtil::configLogBlock(MRLogBlock block, std::int64_t level) {
  if (!block) return;
  std::shared_ptr<MRApiLogDelegate> delegate;
  std::shared_ptr<const MRLogBlock> previous;
  std::int64_t previousLevel = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    delegate = logDelegate_.lock();
    previous = logBlock_;
    previousLevel = logLevel_;
  }
  // The notices go out unlocked: a sink may reconfigure the logger.
  if (delegate) delegate->onLog("change into print log by block", static_cast<MRLogLevel>(previousLevel));
  if (previous) (*previous)("change into print log by other block");
  std::lock_guard<std::mutex> lock(mutex_);
  logDelegate_.reset();
  logLevel_ = level;
  logBlock_ = std::make_shared<const MRLogBlock>(std::move(block));
  sinkSet_.store(true, std::memory_order_release);
}

void MRLogUtil::configLogDelegate(const std::shared_ptr<MRApiLogDelegate>& delegate, std::int64_t level) {
  std::shared_ptr<const MRLogBlock> previous;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    // A live delegate is replaced only after removeLog (or once it is
    // gone); until then neither the delegate nor the level changes.
    if (!logDelegate_.expired()) return;
    previous = logBlock_;
  }
  if (previous) (*previous)("change into print log by delegate");
  // The notice "change into print log by other block" would go to the
  // current delegate here, but there is none by now, so nothing is sent.
  std::lock_guard<std::mutex> lock(mutex_);
  if (!logDelegate_.expired()) return;  // another call got there first
  logBlock_.reset();
  logLevel_ = level;
  logDelegate_ = delegate;
  sinkSet_.store(static_cast<bool>(delegate), std::memory_order_release);
}

void MRLogUtil::removeLog() {
  std::lock_guard<std::mutex> lock(mutex_);
  logBlock_.reset();
  logDelegate_.reset();
  sinkSet_.store(false, std::memory_order_release);
}

bool MRLogUtil::printLog(const std::string& message, std::int64_t level) {
  if (!sinkSet_.load(std::memory_order_acquire)) return false;
  std::shared_ptr<MRApiLogDelegate> delegate;
  std::shared_ptr<const MRLogBlock> block;
  std::int64_t configured = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    delegate = logDelegate_.lock();
    block = logBlock_;
    configured = logLevel_;
  }
  if (!delegate && !block) return false;
  if (level == MRLogLevelDetail) {
    if (configured != MRLogLevelDetail) return true;
  } else if (level != MRLogLevelNormal) {
    return true;
  }
  if (delegate) {
    delegate->onLog(message, static_cast<MRLogLevel>(configured));
  } else {
    (*block)(message);
  }
  return true;
}

bool MRLogUtil::hasSink() const {
  if (!sinkSet_.load(std::memory_order_acquire)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<bool>(logBlock_) || !logDelegate_.expired();
}

std::int64_t MRLogUtil::logLevel() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return logLevel_;
}

MRLogBlock MRLogUtil::logBlock() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return logBlock_ ? *logBlock_ : MRLogBlock();
}

std::shared_ptr<MRApiLogDelegate> MRLogUtil::logDelegate() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return logDelegate_.lock();
}

}  // namespace mirelo
