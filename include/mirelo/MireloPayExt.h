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

  // Delegate operation: the answer of a forwarded URL.
  void onResp(const std::shared_ptr<BaseResp>& resp) override;

  // The callback of the payment in flight, or empty.
  RespCallback respCallback;

  MireloPayExt() = default;

 private:
  static void resetProcessState();
};

}  // namespace mirelo
