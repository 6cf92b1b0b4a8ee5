// A thin bridge for a host that only wants to pay: registration, URL
// forwarding and one-call payment with a one-shot result callback.
//
// The bridge is the delegate of the URLs it forwards.  A payment whose
// launch of the messenger succeeds waits for the messenger's payment answer;
// the answer calls the callback once with its code and a short English
// message.  A launch that fails reports -6 at once.  Diagnostics go to the
// system log, not to the kit's log sink.  Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "mirelo/MRApi.h"
#include "mirelo/MRResult.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/UserActivity.h"
#include "mirelo/Value.h"

namespace mirelo {

class MireloPayExt : public MRApiDelegate {
 public:
  // The outcome of a payment: the payment answer's errCode (or -6 when the
  // messenger could not be opened) and its message.
  using RespCallback = std::function<void(std::int32_t code, const String& message)>;

  // The code and message of a payment whose launch failed.
  static constexpr std::int32_t kSendFailCode = -6;

  // The one shared bridge, created on first use.
  static std::shared_ptr<MireloPayExt> sharedInst();

  // MRApi::registerApp.
  static bool registerApp(const String& appId, const String& universalLink);
  // MRApi::handleOpenURL with the shared bridge as delegate.
  static bool handleUrl(const std::optional<URL>& url);
  // MRApi::handleOpenUniversalLink with the shared bridge as delegate.
  static bool handleUniversalLink(const UserActivity& userActivity);
  // Sends a payment built from an order as a payment server hands it out:
  // "noncestr", "package", "timestamp" (a number or a numeric string),
  // "partnerid", "prepayid", "sign".  `callback` (may be empty) replaces any
  // earlier one once the messenger was opened.
  static void payOrder(const Dictionary& order, RespCallback callback);
  // Pays an order (same keys as payOrder) with a result of its own, called
  // exactly once on the main thread, never from inside this call:
  // MRAnswered (errCode 0), MRCancelled (-2, or the user came back without
  // paying), MRFailed (other codes), MRNotOpened (with the reason), or
  // MRSuperseded when another payment or request replaced it first.  An
  // MRAnswered result only says that the messenger reported success: confirm
  // every payment with the host's server before delivering goods.  A
  // payOrder callback still waiting is dropped.
  static void pay(const Dictionary& order, MRResultHandler<PayResp> handler);

  // Delegate operation: the answer of a forwarded URL.
  void onResp(const std::shared_ptr<BaseResp>& resp) override;

  // The callback of the payment in flight, or empty.
  RespCallback respCallback;

  MireloPayExt() = default;

 private:
  static void resetProcessState();
  static std::shared_ptr<PayReq> payReqOf(const Dictionary& order);
};

}  // namespace mirelo
