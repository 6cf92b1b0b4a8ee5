#include "api/MRRequestTracker.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "transport/AppCommunicate.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

constexpr const char* kPendingKey = "MRPendingRequestNSUserDefaultsKey";
constexpr const char* kOwnRecordKey = "MROwnRecordNSUserDefaultsKey";
constexpr std::size_t kRememberedUrls = 8;
constexpr std::size_t kDigestSpan = 4096;

// The response class that answers each request class ("" when the
// messenger gives no answer).
struct AnswerRow {
  const char* request;
  const char* response;
};
constexpr AnswerRow kAnswers[] = {
    {"SendMessageToMRReq", "SendMessageToMRResp"},
    {"SendAuthReq", "SendAuthResp"},
    {"SendTdiAuthReq", "SendAuthResp"},
    {"PayReq", "PayResp"},
    {"MRJointPayReq", "MRJointPayResp"},
    {"MROfflinePayReq", "MROfflinePayResp"},
    {"MRNontaxPayReq", "MRNontaxPayResp"},
    {"MRPayInsuranceReq", "MRPayInsuranceResp"},
    {"OpenRankListReq", "OpenRankListResp"},
    {"OpenWebviewReq", "OpenWebviewResp"},
    {"MROpenBusinessWebViewReq", "MROpenBusinessWebViewResp"},
    {"AddCardToMRCardPackageReq", "AddCardToMRCardPackageResp"},
    {"MRChooseCardReq", "MRChooseCardResp"},
    {"MRChooseInvoiceReq", "MRChooseInvoiceResp"},
    {"MRInvoiceAuthInsertReq", "MRInvoiceAuthInsertResp"},
    {"MRSubscribeMsgReq", "MRSubscribeMsgResp"},
    {"MRSubscribeMiniProgramMsgReq", "MRSubscribeMiniProgramMsgResp"},
    {"CreateChatRoomReq", "CreateChatRoomResp"},
    {"JoinChatRoomReq", "JoinChatRoomResp"},
    {"MRLaunchMiniProgramReq", "MRLaunchMiniProgramResp"},
    {"MRLaunchMraRedirectingPageReq", "MRLaunchMraRedirectingPageResp"},
    {"MROpenBusinessViewReq", "MROpenBusinessViewResp"},
    {"MROpenCustomerServiceReq", "MROpenCustomerServiceResp"},
    {"MRChannelShareVideoReq", "MRChannelShareVideoResp"},
    {"MRChannelOpenProfileReq", "MRChannelOpenProfileResp"},
    {"MRChannelOpenLiveReq", "MRChannelOpenLiveResp"},
    {"MRChannelOpenFeedReq", "MRChannelOpenFeedResp"},
};

std::string responseClassFor(const std::string& requestClass) {
  for (const AnswerRow& row : kAnswers) {
    if (requestClass == row.request) return row.response;
  }
  return std::string();
}

bool answers(const std::string& expected, const BaseResp& resp) {
  const std::string actual = resp.className();
  return !expected.empty() && (actual == expected || (expected == "SendAuthResp" && actual == "SendTdiAuthResp"));
}

const char* reasonName(MRUnmatchedReason reason) {
  switch (reason) {
    case MRUnmatchedReason::Unsolicited: return "unsolicited";
    case MRUnmatchedReason::WrongKind: return "wrong kind";
    case MRUnmatchedReason::WrongState: return "wrong state";
    case MRUnmatchedReason::Duplicate: return "duplicate";
    case MRUnmatchedReason::Late: return "late";
    case MRUnmatchedReason::OwnRecord: return "own record";
  }
  return "unknown";
}

MRAnyResult resultOf(const std::shared_ptr<BaseResp>& resp) {
  if (resp->errCode == ErrCodeSuccess) return MRAnswered<BaseResp>{resp};
  if (resp->errCode == ErrCodeUserCancel) return MRCancelled<BaseResp>{resp, false};
  return MRFailed<BaseResp>{resp->errCode, resp->errStr, resp};
}

platform::RunLoop::Target graceTarget() {
  static const char kTarget = 0;
  return &kTarget;
}

std::string stringOf(const Dictionary& d, const char* key) {
  const String s = d.mrApi_stringForKey(key);
  return s.isNull() ? std::string() : s.str();
}

}  // namespace

MRRequestTracker& MRRequestTracker::shared() {
  static MRRequestTracker* instance = [] {
    platform::registerProcessReset(&MRRequestTracker::resetProcessState);
    auto* t = new MRRequestTracker();
    t->grace_ = kMRDefaultCancelGracePeriod;
    return t;
  }();
  return *instance;
}

void MRRequestTracker::resetProcessState() {
  MRRequestTracker& t = shared();
  if (t.lifecycleId_ != 0 && platform::current().lifecycle) platform::current().lifecycle->removeObserver(t.lifecycleId_);
  t.policy_ = MRAnswerPolicy::Standard;
  t.grace_ = kMRDefaultCancelGracePeriod;
  t.observer_ = nullptr;
  t.restoredHandler_ = nullptr;
  std::fill(std::begin(t.counts_), std::end(t.counts_), 0);
  t.loaded_ = false;
  t.lifecycleId_ = 0;
  t.pending_.reset();
  t.lateClass_.clear();
  t.lateState_ = String();
  t.deliveredUrls_.clear();
  t.url_.clear();
  t.fromUrl_ = true;
}

void MRRequestTracker::setGracePeriod(double seconds) {
  grace_ = std::isfinite(seconds) && seconds >= 0 ? seconds : kMRDefaultCancelGracePeriod;
}

std::uint64_t MRRequestTracker::unmatchedCount(MRUnmatchedReason reason) const {
  const auto i = static_cast<std::size_t>(reason);
  return i < std::size(counts_) ? counts_[i] : 0;
}

void MRRequestTracker::attach() {
  load();
  if (lifecycleId_ != 0 || !platform::current().lifecycle) return;
  lifecycleId_ = platform::current().lifecycle->addObserver([](platform::LifecycleEvent event) {
    shared().onLifecycle(event == platform::LifecycleEvent::DidBecomeActive);
  });
}

// ---- persistence -----------------------------------------------------------

void MRRequestTracker::load() {
  if (loaded_) return;
  loaded_ = true;
  const Value v = platform::current().userDefaults->objectForKey(kPendingKey);
  const Dictionary* d = v.asDictionary();
  if (d == nullptr) return;
  Pending p;
  p.requestClass = stringOf(*d, "requestClass");
  p.responseClass = responseClassFor(p.requestClass);
  p.command = stringOf(*d, "command");
  p.contextId = stringOf(*d, "contextId");
  p.state = d->mrApi_stringForKey("state");
  p.inApp = d->mrApi_boolForKey("inApp");
  p.left = true;  // the process ended while it waited
  p.restored = true;
  if (p.requestClass.empty()) return;
  mrlog::line("restored pending request:%@, command:%@", p.requestClass, p.command);
  pending_ = std::move(p);
}

void MRRequestTracker::save() {
  auto& defaults = *platform::current().userDefaults;
  if (!pending_) {
    defaults.setObject(Value(), kPendingKey);
    return;
  }
  Dictionary d;
  d.set("requestClass", Value(pending_->requestClass));
  d.set("command", Value(pending_->command));
  d.set("contextId", Value(pending_->contextId));
  if (!pending_->state.isNull()) d.set("state", Value(pending_->state));
  d.set("inApp", Value(pending_->inApp));
  defaults.setObject(Value(std::move(d)), kPendingKey);
}

// ---- requests ------------------------------------------------------------------

void MRRequestTracker::launched(const std::shared_ptr<BaseReq>& req, const std::string& command,
                                const String& contextId, MRResultHandler<BaseResp> handler, bool inApp) {
  attach();
  if (pending_) {
    mrlog::line("pending request:%@ superseded by req[%@]", pending_->requestClass, req);
    finish(MRSuperseded{}, true);
  }
  Pending p;
  p.requestClass = req ? req->className() : std::string();
  p.responseClass = responseClassFor(p.requestClass);
  p.command = command;
  p.contextId = contextId.isNull() ? std::string() : contextId.str();
  if (auto auth = kindCast<SendAuthReq>(req)) p.state = auth->state;
  p.inApp = inApp;
  // The messenger is usually in front by now; a host still active goes to
  // the background next.
  p.left = platform::current().lifecycle && !platform::current().lifecycle->isActive();
  p.handler = std::move(handler);
  pending_ = std::move(p);
  save();
}

void MRRequestTracker::refused(MRResultHandler<BaseResp> handler, MRRefusal refusal) {
  if (!handler) return;
  platform::current().runLoop->post(
      [handler = std::move(handler), refusal = std::move(refusal)] { handler(MRNotOpened{refusal}); });
}

void MRRequestTracker::webSignInCancelled(const std::shared_ptr<BaseResp>& resp) {
  load();
  if (pending_ && pending_->inApp && resp && answers(pending_->responseClass, *resp)) {
    finish(MRCancelled<BaseResp>{resp, false}, false);
  }
}

// Ends the pending request with `result`.  `remember`: an answer that still
// comes for it later counts as late.
void MRRequestTracker::finish(MRAnyResult result, bool remember) {
  if (!pending_) return;
  Pending done = std::move(*pending_);
  pending_.reset();
  save();
  platform::current().runLoop->cancelPerforms(graceTarget());
  lateClass_ = remember ? done.responseClass : std::string();
  lateState_ = remember ? done.state : String();
  if (done.handler) {
    done.handler(result);
  } else if (done.restored && restoredHandler_) {
    MRRestoredResultHandler handler = restoredHandler_;
    handler(MRRestoredRequest{done.requestClass, done.command, done.state}, result);
  }
}

// ---- answers -------------------------------------------------------------------

MRRequestTracker::UrlScope::UrlScope(std::string url, bool fromUrl)
    : previousUrl_(std::move(shared().url_)), previousFromUrl_(shared().fromUrl_) {
  shared().url_ = std::move(url);
  shared().fromUrl_ = fromUrl;
}

MRRequestTracker::UrlScope::~UrlScope() {
  shared().url_ = std::move(previousUrl_);
  shared().fromUrl_ = previousFromUrl_;
}

void MRRequestTracker::unmatched(MRUnmatchedReason reason, const std::shared_ptr<BaseResp>& resp, bool delivered) {
  ++counts_[static_cast<std::size_t>(reason)];
  mrlog::line("answer[%@] matches no pending request (%@), url:%@, delivered:%@", resp, reasonName(reason), url_,
              delivered);
  if (observer_) {
    MRUnmatchedAnswerObserver observer = observer_;
    observer(MRUnmatchedAnswer{reason, resp, url_, delivered});
  }
}

void MRRequestTracker::deliver(const std::shared_ptr<BaseResp>& resp, const std::shared_ptr<MRApiDelegate>& delegate) {
  load();
  if (!resp) return;
  const bool strict = policy_ == MRAnswerPolicy::Strict;
  const auto toDelegate = [&] {
    if (delegate) delegate->onResp(resp);
  };
  const auto remember = [&] {
    if (!fromUrl_ || url_.empty()) return;
    deliveredUrls_.push_back(url_);
    if (deliveredUrls_.size() > kRememberedUrls) deliveredUrls_.erase(deliveredUrls_.begin());
  };

  if (pending_ && answers(pending_->responseClass, *resp)) {
    const auto* auth = dynamic_cast<const SendAuthResp*>(resp.get());
    if (auth && !pending_->state.empty() && auth->state != pending_->state) {
      unmatched(MRUnmatchedReason::WrongState, resp, !strict);
      if (!strict) toDelegate();
      return;
    }
    remember();
    finish(resultOf(resp), false);
    toDelegate();
    return;
  }
  MRUnmatchedReason reason = MRUnmatchedReason::Unsolicited;
  if (fromUrl_ && std::find(deliveredUrls_.begin(), deliveredUrls_.end(), url_) != deliveredUrls_.end()) {
    reason = MRUnmatchedReason::Duplicate;
  } else if (pending_) {
    reason = MRUnmatchedReason::WrongKind;
  } else if (!lateClass_.empty() && answers(lateClass_, *resp) &&
             (lateState_.empty() || dynamic_cast<const SendAuthResp&>(*resp).state == lateState_)) {
    // A sign-in answer is late only with the state of the request it ends.
    reason = MRUnmatchedReason::Late;
    lateClass_.clear();
  }
  // A late answer is genuine: it reaches the delegate under either policy.
  const bool delivered = !strict || reason == MRUnmatchedReason::Late;
  if (delivered) remember();
  unmatched(reason, resp, delivered);
  if (delivered) toDelegate();
}

// ---- coming back -------------------------------------------------------------------

void MRRequestTracker::onLifecycle(bool active) {
  if (!pending_ || pending_->inApp) return;
  platform::RunLoop& loop = *platform::current().runLoop;
  if (!active) {
    pending_->left = true;
    loop.cancelPerforms(graceTarget());
    return;
  }
  if (!pending_->left) return;
  loop.cancelPerforms(graceTarget());
  loop.performAfter(graceTarget(), grace_, [] {
    MRRequestTracker& t = shared();
    if (!t.pending_ || !platform::current().lifecycle || !platform::current().lifecycle->isActive()) return;
    mrlog::line("no answer %@ s after coming back, req:%@ cancelled", t.grace_, t.pending_->requestClass);
    t.finish(MRCancelled<BaseResp>{nullptr, true}, true);
  });
}

// ---- the kit's own record -------------------------------------------------------------

// The size and the first and last bytes of the "content" item: enough to
// tell the kit's record from any record the messenger writes.
std::string MRRequestTracker::ownDigest() {
  const auto& pasteboard = platform::current().pasteboard;
  const Data data = pasteboard ? pasteboard->dataForPasteboardType(AppCommunicate::kPasteboardType) : Data();
  if (data.empty()) return std::string();
  const std::size_t head = std::min(data.size(), kDigestSpan);
  const std::size_t tailStart = data.size() > kDigestSpan ? data.size() - kDigestSpan : 0;
  std::string sample(reinterpret_cast<const char*>(data.bytes()), head);
  sample.append(reinterpret_cast<const char*>(data.bytes()) + tailStart, data.size() - tailStart);
  return std::to_string(data.size()) + ":" + MireloApiUtil::sha256(String(std::move(sample)));
}

void MRRequestTracker::ownRecordWritten() {
  const auto& pasteboard = platform::current().pasteboard;
  if (!pasteboard) return;
  Dictionary d;
  d.set("changeCount", Value(static_cast<long long>(pasteboard->changeCount())));
  d.set("digest", Value(ownDigest()));
  platform::current().userDefaults->setObject(Value(std::move(d)), kOwnRecordKey);
}

bool MRRequestTracker::ownRecordOnPasteboard() {
  const auto& pasteboard = platform::current().pasteboard;
  if (!pasteboard) return false;
  const Value v = platform::current().userDefaults->objectForKey(kOwnRecordKey);
  const Dictionary* d = v.asDictionary();
  if (d == nullptr) return false;
  // The count alone answers in the usual case without reading any content;
  // the digest guards against a count that started again (a reboot).
  if (d->mrApi_integerForKey("changeCount") != pasteboard->changeCount()) return false;
  return stringOf(*d, "digest") == ownDigest();
}

void MRRequestTracker::ownRecordEchoed(const std::string& url) {
  ++counts_[static_cast<std::size_t>(MRUnmatchedReason::OwnRecord)];
  mrlog::error("the pasteboard holds the host's own record, not an answer, url:%@", url);
  if (observer_) {
    MRUnmatchedAnswerObserver observer = observer_;
    observer(MRUnmatchedAnswer{MRUnmatchedReason::OwnRecord, nullptr, url, false});
  }
}

void MRRequestTracker::restoreUserPasteboard() {
  if (!ownRecordOnPasteboard()) return;
  const auto& pasteboard = platform::current().pasteboard;
  const Value item = MireloApiUtil::propertyListFromData(pasteboard->dataForPasteboardType(AppCommunicate::kPasteboardType));
  const Dictionary* d = item.asDictionary();
  const String oldText = d ? d->mrApi_stringForKey(AppCommunicate::kOldTextKey) : String();
  mrlog::line("launch failed, the user's pasteboard is put back");
  if (!oldText.empty()) {
    pasteboard->setString(oldText.str());
  } else {
    pasteboard->setData(Data::emptyData(), AppCommunicate::kPasteboardType);
  }
  platform::current().userDefaults->setObject(Value(), kOwnRecordKey);
}

}  // namespace mirelo
