// The host payment bridge.
#include "mirelo/MireloPayExt.h"

#include <array>
#include <mutex>
#include <utility>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "util/Format.h"
#include "util/MainThread.h"

namespace mirelo {

namespace {

// The messages of the payment answer's codes -5 to 0, in that order.
constexpr std::array<const char*, 6> kResultMessages = {
    "Unsupport", "Auth Deny", "Sent Fail", "User Cancel", "Common Error", "success",
};
constexpr const char* kUnknownMessage = "Unknown Error";
constexpr const char* kSendFailMessage = "MrApi sendReq fail";

void systemLog(const std::string& line) {
  const auto& log = platform::current().systemLog;
  if (log) log->write(line);
}

const char* messageForCode(std::int32_t code) {
  // code + 5 as an unsigned index: every code outside -5..0 falls outside
  // the table (computed unsigned, so that no code overflows).
  const std::uint32_t index = static_cast<std::uint32_t>(code) + 5u;
  return index < kResultMessages.size() ? kResultMessages[index] : kUnknownMessage;
}

}  // namespace

std::shared_ptr<MireloPayExt> MireloPayExt::sharedInst() {
  static std::once_flag once;
  static std::shared_ptr<MireloPayExt> instance;
  std::call_once(once, [] {
    instance = std::make_shared<MireloPayExt>();
    platform::registerProcessReset(&MireloPayExt::resetProcessState);
  });
  return instance;
}

void MireloPayExt::resetProcessState() { sharedInst()->respCallback = nullptr; }

bool MireloPayExt::registerApp(const String& appId, const String& universalLink) {
  requireMainThread("MireloPayExt::registerApp");
  return MRApi::registerApp(appId, universalLink);
}

bool MireloPayExt::handleUrl(const std::optional<URL>& url) { requireMainThread("MireloPayExt::handleUrl"); return MRApi::handleOpenURL(url, sharedInst()); }

bool MireloPayExt::handleUniversalLink(const UserActivity& userActivity) {
  requireMainThread("MireloPayExt::handleUniversalLink");
  return MRApi::handleOpenUniversalLink(userActivity, sharedInst());
}

std::shared_ptr<PayReq> MireloPayExt::payReqOf(const Dictionary& order) {
  auto req = std::make_shared<PayReq>();
  // Plain lookups: a value of another kind than the field's leaves the field
  // empty.
  req->nonceStr = order.get("noncestr").stringValue();
  req->package = order.get("package").stringValue();
  req->timeStamp = order.get("timestamp").unsignedIntValue();
  req->partnerId = order.get("partnerid").stringValue();
  req->prepayId = order.get("prepayid").stringValue();
  req->sign = order.get("sign").stringValue();
  return req;
}

void MireloPayExt::pay(const Dictionary& order, MRResultHandler<PayResp> handler) {
  requireMainThread("MireloPayExt::pay");
  // A waiting payOrder callback belongs to the payment this one replaces.
  sharedInst()->respCallback = nullptr;
  MRApi::send(payReqOf(order), std::move(handler));
}

void MireloPayExt::payOrder(const Dictionary& order, RespCallback callback) {
  requireMainThread("MireloPayExt::payOrder");
  auto req = payReqOf(order);
  MRApi::sendReq(req, [callback = std::move(callback)](bool success) mutable {
    if (!success) {
      systemLog("MRApi sendReq: fail");
      if (callback) callback(kSendFailCode, kSendFailMessage);
      return;
    }
    systemLog("MRApi sendReq: success");
    sharedInst()->respCallback = std::move(callback);
  });
}

void MireloPayExt::onResp(const std::shared_ptr<BaseResp>& resp) {
  systemLog(format("MrApi onResp: errocode(%d) msg(%@)", resp ? resp->errCode : 0, resp ? resp->errStr : String()));
  if (!isKindOf<PayResp>(resp)) return;
  const String message = messageForCode(resp->errCode);
  if (!respCallback) return;
  // Cleared before the call: the payment is over whatever the callback does.
  RespCallback callback = std::move(respCallback);
  respCallback = nullptr;
  callback(resp->errCode, message);
}

}  // namespace mirelo
