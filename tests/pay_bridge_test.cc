// The payment bridge as a hybrid host uses it: one callback per payment.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/MireloPayExt.h"
#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

using sim::Outcome;

struct Call {
  std::int32_t code;
  std::string message;
  friend bool operator==(const Call& a, const Call& b) { return a.code == b.code && a.message == b.message; }
};

void PrintTo(const Call& c, std::ostream* os) { *os << "(" << c.code << ", \"" << c.message << "\")"; }

Dictionary order(Value timestamp = Value(1700000000)) {
  Dictionary d{{"noncestr", Value("n1")}, {"package", Value("Sign=MR")}, {"partnerid", Value("p1")},
               {"prepayid", Value("pp1")}, {"sign", Value("s1")}};
  if (!timestamp.isNull()) d.set("timestamp", timestamp);
  return d;
}

class PayBridgeTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(MireloPayExt::registerApp(kHostAppId, kHostUniversalLink));
    peer->setTokenPolicy(tokenPolicy(sim::TokenPolicy::Action::Proceed));
    hostHandler = [](const sim::OpenContext& context) {
      if (context.viaUniversalLink) return MireloPayExt::handleUniversalLink(browsingActivity(context.url));
      return MireloPayExt::handleUrl(URL::fromString(context.url));
    };
  }

  MireloPayExt::RespCallback recorder(std::vector<Call>* into) {
    return [into](std::int32_t code, const String& message) { into->push_back({code, message.str()}); };
  }

  // The host's lines in the system log, without the writer's prefix.
  std::vector<std::string> systemLines() const {
    std::vector<std::string> out;
    const std::string prefix = std::string(kHostBundleId) + ": ";
    for (const std::string& l : device->systemLog()) {
      if (l.rfind(prefix, 0) == 0) out.push_back(l.substr(prefix.size()));
    }
    return out;
  }
};

TEST_F(PayBridgeTest, ReportsTheMessengersCodeWithItsMessage) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {0, "success"},          {-1, "Common Error"},   {-2, "User Cancel"},   {-3, "Sent Fail"},
      {-4, "Auth Deny"},       {-5, "Unsupport"},      {1, "Unknown Error"},  {-6, "Unknown Error"},
      {INT_MIN, "Unknown Error"}, {INT_MAX, "Unknown Error"}, {-2147483643, "Unknown Error"},
  };
  for (const auto& [code, message] : cases) {
    SCOPED_TRACE(code);
    peer->setDefaultOutcome(Outcome::withCode(code));
    const std::size_t before = systemLines().size();
    std::vector<Call> calls;
    MireloPayExt::payOrder(order(), recorder(&calls));
    EXPECT_TRUE(calls.empty());
    device->runUntilIdle();
    EXPECT_EQ(calls, (std::vector<Call>{{code, message}})) << peer->transcript();
    EXPECT_TRUE(hostOpens.back().viaUniversalLink);
    const std::vector<std::string> all = systemLines();
    const std::vector<std::string> lines(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
    EXPECT_EQ(lines, (std::vector<std::string>{"MRApi sendReq: success",
                                               "MrApi onResp: errocode(" + std::to_string(code) + ") msg((null))"}));
    EXPECT_FALSE(MireloPayExt::sharedInst()->respCallback);
  }
}

TEST_F(PayBridgeTest, FillsThePaymentFromTheOrder) {
  const std::pair<Value, const char*> cases[] = {
      {Value("42abc"), "42"},
      {Value(), "0"},
      {Value(4294967301LL), "5"},
      {Value(-1), "4294967295"},
      {Value(1.9e9), "1900000000"},
      {Value(Array{}), "0"},
  };
  const std::pair<const char*, const char*> kOrderFields[] = {
      {"nonceStr", "n1"}, {"package", "Sign=MR"}, {"partnerId", "p1"}, {"prepayId", "pp1"}, {"sign", "s1"}};
  peer->setDefaultOutcome(Outcome::noAnswer());
  for (const auto& [timestamp, expected] : cases) {
    SCOPED_TRACE(timestamp.description());
    MireloPayExt::payOrder(order(timestamp), nullptr);
    device->runUntilIdle();
    const sim::ReceivedRequest* r = peer->lastReceived();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->command, "pay/");
    EXPECT_EQ(r->queryValue("timeStamp"), expected);
    for (const auto& [key, value] : kOrderFields) EXPECT_EQ(r->queryValue(key), value) << key;
  }
}

TEST_F(PayBridgeTest, OtherAnswersLeaveTheWaitingCallbackInPlace) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  std::vector<Call> calls;
  MireloPayExt::payOrder(order(), recorder(&calls));
  device->runUntilIdle();

  plantRecord(Dictionary{{"command", Value("2020")}, {"result", Value("0")}});
  EXPECT_TRUE(openHost(hostSchemeUrl("platformId=mirelo")));
  EXPECT_TRUE(openHost(hostLinkUrl("jointpay?ret=-1&notifyStr=joint")));
  EXPECT_TRUE(calls.empty());
  const std::vector<std::string> lines = systemLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "MrApi onResp: errocode(0) msg((null))");
  EXPECT_EQ(lines[2], "MrApi onResp: errocode(-1) msg(joint)");
  EXPECT_TRUE(MireloPayExt::sharedInst()->respCallback);

  EXPECT_TRUE(openHost(hostLinkUrl("pay?ret=-2")));
  EXPECT_EQ(calls, (std::vector<Call>{{-2, "User Cancel"}}));
}

TEST_F(PayBridgeTest, AFailedSendReportsAtOnceAndStoresNothing) {
  for (const bool removeMessenger : {false, true}) {
    SCOPED_TRACE(removeMessenger ? "no messenger" : "empty order");
    if (removeMessenger) peer->uninstall();
    const std::size_t before = systemLines().size();
    std::vector<Call> calls;
    MireloPayExt::payOrder(removeMessenger ? order() : Dictionary{}, recorder(&calls));
    EXPECT_EQ(calls, (std::vector<Call>{{-6, "MrApi sendReq fail"}}));
    EXPECT_FALSE(MireloPayExt::sharedInst()->respCallback);
    ASSERT_EQ(systemLines().size(), before + 1);
    EXPECT_EQ(systemLines().back(), "MRApi sendReq: fail");
    device->runUntilIdle();
    EXPECT_EQ(calls.size(), 1u);
  }
  MireloPayExt::payOrder(order(), nullptr);  // an empty callback is allowed
  device->runUntilIdle();
}

// A newer payment takes the callback; the first one hears nothing on this path.
TEST_F(PayBridgeTest, OnlyTheLatestPaymentIsAnswered) {
  peer->setDefaultOutcome(Outcome::noAnswer());
  std::vector<Call> first;
  std::vector<Call> second;
  MireloPayExt::payOrder(order(), recorder(&first));
  device->runUntilIdle();
  MireloPayExt::payOrder(order(), recorder(&second));
  device->runUntilIdle();
  EXPECT_EQ(systemLines(), (std::vector<std::string>{"MRApi sendReq: success", "MRApi sendReq: success"}));

  EXPECT_TRUE(openHost(hostSchemeUrl("pay?ret=0&notifyStr=paid")));
  EXPECT_TRUE(first.empty());
  EXPECT_EQ(second, (std::vector<Call>{{0, "success"}}));
  EXPECT_EQ(systemLines().back(), "MrApi onResp: errocode(0) msg(paid)");

  EXPECT_TRUE(openHost(hostSchemeUrl("pay?ret=-2")));
  EXPECT_EQ(second.size(), 1u) << "a second answer without a new payment calls nothing";
  EXPECT_TRUE(first.empty());
  EXPECT_EQ(systemLines().back(), "MrApi onResp: errocode(-2) msg((null))");
}

}  // namespace
}  // namespace mirelo::testing
