// The kit's log sink: a block or a weakly held delegate, and the level.

#include "util/MRLogUtil.h"

#include "mirelo/platform/ProcessState.h"

namespace mirelo {

namespace {

// A relaunched app starts with no sink and level 0.
void resetSharedLogger() { MRLogUtil::sharedInstance() = MRLogUtil(); }

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

void MRLogUtil::configLogBlock(MRLogBlock block, std::int64_t level) {
  if (!block) return;
  if (auto delegate = logDelegate_.lock()) {
    delegate->onLog("change into print log by block", static_cast<MRLogLevel>(logLevel_));
  }
  if (logBlock_) {
    // Called through a copy: the block may reconfigure the logger.
    MRLogBlock previous = logBlock_;
    previous("change into print log by other block");
  }
  logDelegate_.reset();
  logLevel_ = level;
  logBlock_ = std::move(block);
}

void MRLogUtil::configLogDelegate(const std::shared_ptr<MRApiLogDelegate>& delegate, std::int64_t level) {
  // A live delegate is replaced only after removeLog (or once it is gone);
  // until then neither the delegate nor the level changes.
  if (!logDelegate_.expired()) return;
  if (logBlock_) {
    MRLogBlock previous = logBlock_;
    previous("change into print log by delegate");
  }
  // The notice "change into print log by other block" would go to the current
  // delegate here, but there is none by now, so nothing is sent.
  logBlock_ = nullptr;
  logLevel_ = level;
  logDelegate_ = delegate;
}

void MRLogUtil::removeLog() {
  logBlock_ = nullptr;
  logDelegate_.reset();
}

void MRLogUtil::printLog(const std::string& message, std::int64_t level) {
  if (level == MRLogLevelDetail) {
    if (logLevel_ != MRLogLevelDetail) return;
  } else if (level != MRLogLevelNormal) {
    return;
  }
  if (auto delegate = logDelegate_.lock()) {
    delegate->onLog(message, static_cast<MRLogLevel>(logLevel_));
    return;
  }
  if (logBlock_) {
    MRLogBlock block = logBlock_;
    block(message);
  }
}

bool MRLogUtil::hasSink() const { return static_cast<bool>(logBlock_) || !logDelegate_.expired(); }

}  // namespace mirelo
