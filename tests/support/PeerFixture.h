// KitTest with the messenger peer installed in place of the plain messenger
// app, and the host app wired to hand every URL that opens it to the kit:
// scheme URLs to MRApi::handleOpenURL, universal links to
// MRApi::handleOpenUniversalLink, both with a recording delegate.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/sim/MessengerPeer.h"
#include "support/KitFixture.h"

namespace mirelo::testing {

// Keeps every request and response it is handed, in order.
class RecordingDelegate : public MRApiDelegate {
 public:
  void onReq(const std::shared_ptr<BaseReq>& req) override { reqs.push_back(req); }
  void onResp(const std::shared_ptr<BaseResp>& resp) override { resps.push_back(resp); }
  std::size_t calls() const { return reqs.size() + resps.size(); }

  std::vector<std::shared_ptr<BaseReq>> reqs;
  std::vector<std::shared_ptr<BaseResp>> resps;
};

// A RecordingDelegate that runs `then` (once) on the next request or
// answer it gets.
class ReenteringDelegate : public RecordingDelegate {
 public:
  void onReq(const std::shared_ptr<BaseReq>& req) override { RecordingDelegate::onReq(req), next(); }
  void onResp(const std::shared_ptr<BaseResp>& resp) override { RecordingDelegate::onResp(resp), next(); }
  void next() { if (then) std::exchange(then, nullptr)(); }
  std::function<void()> then;
};

// One time the host app was opened, and what the kit answered.
struct HostOpen {
  std::string url;
  bool viaUniversalLink = false;
  bool handled = false;
};

// A token policy of the messenger with `action` and the other defaults.
inline sim::TokenPolicy tokenPolicy(sim::TokenPolicy::Action action) {
  sim::TokenPolicy policy;
  policy.action = action;
  return policy;
}

// A request of class T as `fill` sets it up.
template <class T, class F>
std::shared_ptr<T> makeReq(F fill) {
  auto req = std::make_shared<T>();
  fill(*req);
  return req;
}

// A text share, and a payment (PayReq or MRJointPayReq) with every field
// it needs.
std::shared_ptr<SendMessageToMRReq> textShare(const std::string& text = "hi");
template <class T = PayReq>
std::shared_ptr<T> filledPay() {
  return makeReq<T>([](auto& r) { r.partnerId = r.prepayId = r.nonceStr = r.package = r.sign = "x"; });
}

// `resp` as a T, or a test failure (and an empty T).
template <class T>
const T& respAs(const std::shared_ptr<BaseResp>& resp) {
  if (const T* typed = dynamic_cast<const T*>(resp.get())) return *typed;
  ADD_FAILURE() << "not a " << typeid(T).name();
  static const T empty;
  return empty;
}

// The user activity of a universal-link launch of `url`.
UserActivity browsingActivity(const std::string& url);

// The host's scheme URL "<app id>://<tail>" and its universal link
// "<universal link><app id>/<tail>".
std::string hostSchemeUrl(const std::string& tail);
std::string hostLinkUrl(const std::string& tail);

class PeerKitTest : public KitTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Opens the host app with `url` as the messenger would, and lets the run
  // loop drain.  The handled flag of the last open, or false when the host
  // was not opened.
  bool openHost(const std::string& url);
  // Plants an app data record on the pasteboard as the messenger writes it:
  // a binary property list of {app id: record}.
  void plantRecord(const Dictionary& record, const std::string& appId = kHostAppId);
  // Every request and response the delegate got, as class names.
  std::vector<std::string> deliveredClasses() const;

  std::shared_ptr<sim::MessengerPeer> peer;
  std::shared_ptr<RecordingDelegate> delegate;
  // What the host does with a URL that opens it; the default hands it to the
  // kit with `delegate`.
  std::function<bool(const sim::OpenContext&)> hostHandler;
  std::vector<HostOpen> hostOpens;
};

}  // namespace mirelo::testing
