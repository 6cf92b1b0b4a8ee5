#include <cmath>

#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {
namespace {

// A delay that is negative, NaN or otherwise not positive counts as none.
double sanitizeDelay(double d) { return d > 0 ? d : 0; }

// A repeating timer never fires more often than this, so that a zero
// interval cannot pin the clock (the platform's timers clamp likewise).
constexpr double kMinRepeatInterval = 0.0001;

}  // namespace

void RunQueue::addTimed(double due, Task task) { timed_.emplace(Key{due, nextSeq_++}, std::move(task)); }

void RunQueue::post(const std::string& owner, std::function<void()> task) {
  if (!task) return;
  Task t;
  t.kind = Kind::Posted;
  t.owner = owner;
  t.fn = std::move(task);
  posted_.push_back(std::move(t));
}

void RunQueue::performAfter(const std::string& owner, Target target, double delay, std::function<void()> task) {
  if (!task) return;
  Task t;
  t.kind = Kind::Perform;
  t.owner = owner;
  t.target = target;
  t.fn = std::move(task);
  addTimed(now_ + sanitizeDelay(delay), std::move(t));
}

void RunQueue::cancelPerforms(const std::string& owner, Target target) {
  std::erase_if(timed_, [&](const auto& entry) {
    const Task& t = entry.second;
    return t.kind == Kind::Perform && t.owner == owner && t.target == target;
  });
}

RunQueue::TimerId RunQueue::scheduleTimer(const std::string& owner, double interval, bool repeats,
                                          std::function<void()> task) {
  const TimerId id = nextTimer_++;
  if (!task) return id;
  Task t;
  t.kind = Kind::Timer;
  t.owner = owner;
  t.timer = id;
  t.interval = sanitizeDelay(interval);
  if (repeats && t.interval < kMinRepeatInterval) t.interval = kMinRepeatInterval;
  t.repeats = repeats;
  t.fn = std::move(task);
  const double due = now_ + t.interval;
  addTimed(due, std::move(t));
  return id;
}

void RunQueue::invalidateTimer(const std::string& owner, TimerId id) {
  if (id == 0) return;
  std::erase_if(timed_, [&](const auto& entry) {
    const Task& t = entry.second;
    return t.kind == Kind::Timer && t.timer == id && t.owner == owner;
  });
}

void RunQueue::dropOwner(const std::string& owner) {
  std::erase_if(posted_, [&](const Task& t) { return t.owner == owner; });
  std::erase_if(timed_, [&](const auto& entry) { return entry.second.owner == owner; });
}

bool RunQueue::runOne(double limit) {
  std::function<void()> fn;
  if (!posted_.empty()) {
    fn = std::move(posted_.front().fn);
    posted_.pop_front();
  } else {
    auto it = timed_.begin();
    if (it == timed_.end() || it->first.first > limit) return false;
    const double due = it->first.first;
    Task task = std::move(it->second);
    timed_.erase(it);
    if (due > now_) now_ = due;
    if (task.kind == Kind::Timer && task.repeats) {
      // Rescheduled before it runs, so that the task may invalidate itself.
      fn = task.fn;
      const double next = due + task.interval;
      addTimed(next, std::move(task));
    } else {
      fn = std::move(task.fn);
    }
  }
  fn();
  return true;
}

std::size_t RunQueue::runUntilIdle(std::size_t maxTasks) {
  std::size_t ran = 0;
  while (ran < maxTasks && runOne(now_)) ++ran;
  return ran;
}

std::size_t RunQueue::advance(double seconds, std::size_t maxTasks) {
  if (!(seconds > 0) || !std::isfinite(seconds)) seconds = 0;
  const double target = now_ + seconds;
  std::size_t ran = 0;
  while (ran < maxTasks && runOne(target)) ++ran;
  if (ran < maxTasks && target > now_) now_ = target;
  return ran;
}

}  // namespace mirelo::sim::detail
