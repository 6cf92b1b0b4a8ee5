// The one place that knows which request is waiting for the messenger's
// answer, and what became of it.
//
// It keeps the pending request (its request and response classes, command,
// context id and sign-in state; in memory its result handler), mirrors its
// identity into the host's user defaults so that an answer after a relaunch
// still finds it, matches every answer the kit is about to hand to a
// delegate, reports a request as cancelled when the user comes back to the
// host without an answer, and remembers the pasteboard change that was the
// kit's own record write.  Main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/MRResult.h"

namespace mirelo {

class MRRequestTracker {
 public:
  static MRRequestTracker& shared();

  // ---- configuration ----
  MRAnswerPolicy policy() const { return policy_; }
  void setPolicy(MRAnswerPolicy policy) { policy_ = policy; }
  double gracePeriod() const { return grace_; }
  void setGracePeriod(double seconds);
  void setUnmatchedObserver(MRUnmatchedAnswerObserver observer) { observer_ = std::move(observer); }
  void setRestoredHandler(MRRestoredResultHandler handler) { restoredHandler_ = std::move(handler); }
  std::uint64_t unmatchedCount(MRUnmatchedReason reason) const;
  // Starts listening to the app's lifecycle (once per process).
  void attach();

  // ---- requests ----
  // `req` reached the messenger as a first send: it becomes the pending
  // request, and a request still pending is superseded.  `inApp`: answered
  // inside the host (the web sign-in), so coming back means nothing.
  void launched(const std::shared_ptr<BaseReq>& req, const std::string& command, const String& contextId,
                MRResultHandler<BaseResp> handler, bool inApp = false);
  // Reports `refusal` to `handler` on the run loop.
  static void refused(MRResultHandler<BaseResp> handler, MRRefusal refusal);
  // The web sign-in's own cancel: ends a pending sign-in as cancelled.
  void webSignInCancelled(const std::shared_ptr<BaseResp>& resp);
  bool hasPending() const { return pending_.has_value(); }

  // ---- answers ----
  // Every response on its way to a delegate passes here.  `url` is the URL
  // that brought it; `fromUrl` is false for a record read from the
  // pasteboard (which a read consumes, so it has no second copy).
  void deliver(const std::shared_ptr<BaseResp>& resp, const std::shared_ptr<MRApiDelegate>& delegate);
  // The URL being handled, for deliver(); set by the URL entry.
  class UrlScope {
   public:
    UrlScope(std::string url, bool fromUrl);
    ~UrlScope();
    UrlScope(const UrlScope&) = delete;
    UrlScope& operator=(const UrlScope&) = delete;

   private:
    std::string previousUrl_;
    bool previousFromUrl_;
  };

  // ---- the kit's own record ----
  // Call right after the kit wrote its record to the pasteboard.
  void ownRecordWritten();
  // Whether the pasteboard still holds that record: no app wrote since.
  bool ownRecordOnPasteboard();
  // Reports an echo of the own record (logged, counted, observed).
  void ownRecordEchoed(const std::string& url);
  // After a launch that failed: the messenger never saw the record, so the
  // user's text saved in it goes back on the pasteboard.
  void restoreUserPasteboard();

 private:
  struct Pending {
    std::string requestClass;
    std::string responseClass;
    std::string command;
    std::string contextId;
    String state;
    bool inApp = false;
    bool left = false;      // the host went to the background since the launch
    bool restored = false;  // kept by an earlier run of the process
    MRResultHandler<BaseResp> handler;
  };

  MRRequestTracker() = default;
  static void resetProcessState();
  void load();
  void save();
  void finish(MRAnyResult result, bool remember);
  void unmatched(MRUnmatchedReason reason, const std::shared_ptr<BaseResp>& resp, bool delivered);
  void onLifecycle(bool active);
  std::string ownDigest();

  MRAnswerPolicy policy_ = MRAnswerPolicy::Standard;
  double grace_;
  MRUnmatchedAnswerObserver observer_;
  MRRestoredResultHandler restoredHandler_;
  std::uint64_t counts_[6] = {};
  bool loaded_ = false;
  std::uint64_t lifecycleId_ = 0;
  std::optional<Pending> pending_;
  // The response class of the last request that ended without its answer.
  std::string lateClass_;
  String lateState_;
  // The URLs of the latest answers handed to a result handler or delegate.
  std::vector<std::string> deliveredUrls_;
  std::string url_;
  bool fromUrl_ = true;
};

}  // namespace mirelo
