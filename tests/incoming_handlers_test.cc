// Answers carried in the URL itself, opened by scheme and by universal link: each command's
// response, the web-view sub-handlers, the card lists, and the token answers with their follow-ups.
#include <gtest/gtest.h>
#include <uriparser/Uri.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "support/PeerFixture.h"
#include "webauth/WapAuthHandler.h"

namespace mirelo::testing {
namespace {

using sim::Outcome;
using sim::TokenPolicy;

// Escapes every byte but the unreserved characters, with uriparser.
std::string esc(std::string_view text) {
  std::string out(text.size() * 3 + 1, '\0');
  out.resize(uriEscapeExA(text.data(), text.data() + text.size(), out.data(), URI_FALSE, URI_FALSE) - out.data());
  return out;
}

struct CardExpect {
  std::string cardId;
  String extMsg;
  String encryptCode;
  std::uint32_t cardState = 0;
  String appID;
};

template <class Item>
void expectCards(const std::shared_ptr<std::vector<std::shared_ptr<Item>>>& items,
                 const std::vector<CardExpect>& expected) {
  ASSERT_NE(items, nullptr) << "the list is delivered even when empty";
  ASSERT_EQ(items->size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const Item& item = *(*items)[i];
    EXPECT_EQ(item.cardId, expected[i].cardId) << i;
    EXPECT_EQ(item.extMsg, expected[i].extMsg) << i;
    EXPECT_EQ(item.encryptCode, expected[i].encryptCode) << i;
    EXPECT_EQ(item.cardState, expected[i].cardState) << i;
    EXPECT_EQ(item.appID, expected[i].appID) << i;
  }
}

// One answer URL and the response it must become.
struct UrlCase {
  const char* name;
  std::string tail;  // after "<app id>://" or "<universal link><app id>/"
  const char* className;
  std::int32_t errCode;
  String errStr;
  std::function<void(const std::shared_ptr<BaseResp>&)> check;
};

const std::string kCards = esc(
    R"([{"card_id":"a1","card_ext":"e1","code":"c1","is_succ":1},{"card_id":"","code":"x"},)"
    R"({"code":"no card id"},7,"text",null,[1],{"card_id":"b2","is_succ":"3abc"},{"card_id":5},)"
    R"({"card_id":"c3","is_succ":true,"card_ext":{"nested":1}}])");
const std::string kChosen =
    esc(R"([{"card_id":"k1","encrypt_code":"ek1","app_id":"mr1","card_ext":"ignored"},{"card_id":"k2"}])");

std::vector<UrlCase> urlCases() {
  const auto noCards = [](const auto& r) { expectCards(respAs<AddCardToMRCardPackageResp>(r).cardAry, {}); };
  const std::vector<CardExpect> chosen = {{"k1", String(), "ek1", 0, "mr1"}, {"k2", String(), String(), 0, String()}};
  return {
      // ---- sign-in ----
      {"auth code", "oauth?code=abc&state=st&lang=zh_CN&country=CN", "SendAuthResp", 0, String(),
       [](const auto& r) {
         const auto& a = respAs<SendAuthResp>(r);
         EXPECT_EQ(a.code, "abc");
         EXPECT_EQ(a.state, "st");
         EXPECT_EQ(a.lang, "zh_CN");
         EXPECT_EQ(a.country, "CN");
       }},
      {"auth deny", "oauth?code=authdeny&state=st", "SendAuthResp", -4, String(),
       [](const auto& r) {
         EXPECT_TRUE(respAs<SendAuthResp>(r).code.isNull());
         EXPECT_EQ(respAs<SendAuthResp>(r).state, "st");
       }},
      {"auth without code", "oauth?state=st&reason=nope", "SendAuthResp", -1, "nope",
       [](const auto& r) {
         const auto& a = respAs<SendAuthResp>(r);
         EXPECT_TRUE(a.code.isNull() && a.lang.isNull() && a.country.isNull());
       }},
      {"auth empty code", "oauth?code=", "SendAuthResp", 0, String(),
       [](const auto& r) {
         EXPECT_TRUE(!respAs<SendAuthResp>(r).code.isNull() && respAs<SendAuthResp>(r).code == "");
         EXPECT_TRUE(respAs<SendAuthResp>(r).state.isNull());
       }},
      {"auth tdi", "oauth?code=c&tdi_ext_info=ext1&tdi_auth_buffer=AQID%2Fw%3D%3D&tdi_auth_params=aGk%3D",
       "SendTdiAuthResp", 0, String(),
       [](const auto& r) {
         const auto& t = respAs<SendTdiAuthResp>(r);
         EXPECT_EQ(t.code, "c");
         EXPECT_EQ(t.tdiExtInfo, "ext1");
         EXPECT_EQ(t.tdiAuthBuffer, Data::copy(std::string_view("\x01\x02\x03\xff", 4)));
         EXPECT_EQ(t.tdiAuthParams, Data::copy("hi"));
       }},
      {"auth tdi buffer without ext info", "oauth?code=c&tdi_auth_buffer=AQID", "SendAuthResp", 0, String(), nullptr},
      {"auth tdi not base64", "oauth?code=c&tdi_ext_info=x&tdi_auth_buffer=not-base64!", "SendTdiAuthResp", 0,
       String(), [](const auto& r) { EXPECT_TRUE(respAs<SendTdiAuthResp>(r).tdiAuthBuffer.isNull()); }},
      {"redirecting page", "launchmraredirectingpage?ticket=tk&errcode=-3&errstr=oops",
       "MRLaunchMraRedirectingPageResp", -3, "oops",
       [](const auto& r) { EXPECT_EQ(respAs<MRLaunchMraRedirectingPageResp>(r).ticket, "tk"); }},
      // ---- payment ----
      {"pay", "pay?returnKey=rk&ret=-2&notifyStr=cancelled", "PayResp", -2, "cancelled",
       [](const auto& r) { EXPECT_EQ(respAs<PayResp>(r).returnKey, "rk"); }},
      {"pay leading numeral", "pay?ret=12abc", "PayResp", 12, String(),
       [](const auto& r) { EXPECT_TRUE(respAs<PayResp>(r).returnKey.isNull()); }},
      {"pay without query", "pay", "PayResp", 0, String(), nullptr},
      {"offline pay", "offlinepay?ret=-5&errStr=e&notifyStr=unused", "MROfflinePayResp", -5, "e", nullptr},
      // ---- web views and lists ----
      {"web view", "openwebview?ret=0&notifyStr=ok", "OpenWebviewResp", 0, "ok", nullptr},
      {"business web view", "openbusinesswebview?ret=3&errmsg=m&resultInfo=a%20b%26c%3Dd&type=7",
       "MROpenBusinessWebViewResp", 3, "m",
       [](const auto& r) {
         EXPECT_EQ(respAs<MROpenBusinessWebViewResp>(r).result, "a b&c=d");
         EXPECT_EQ(respAs<MROpenBusinessWebViewResp>(r).businessType, 7u);
       }},
      // ---- cards ----
      {"add card", "cardPackage?errCode=0&addCardInfo=" + kCards, "AddCardToMRCardPackageResp", 0, String(),
       [](const auto& r) {
         expectCards(respAs<AddCardToMRCardPackageResp>(r).cardAry,
                     {{"a1", "e1", "c1", 1, String()}, {"b2", String(), String(), 3, String()},
                      {"c3", String(), String(), 1, String()}});
       }},
      {"add card not JSON", "cardPackage?errCode=-2&addCardInfo=not%20json", "AddCardToMRCardPackageResp", -2,
       String(), noCards},
      {"add card object instead of array", "cardPackage?addCardInfo=" + esc(R"({"card_id":"a"})"),
       "AddCardToMRCardPackageResp", 0, String(), noCards},
      {"add card nested too deep",
       "cardPackage?addCardInfo=" + esc(R"([{"card_id":"a","x":)" + std::string(600, '[') + std::string(600, ']') +
                                        "}]"),
       "AddCardToMRCardPackageResp", 0, String(), noCards},
      {"add card missing list", "cardPackage?errCode=-1", "AddCardToMRCardPackageResp", -1, String(), noCards},
      {"add card plus kept", "cardPackage?addCardInfo=%5B%7B%22card_id%22%3A%22a+b%22%7D%5D",
       "AddCardToMRCardPackageResp", 0, String(),
       [](const auto& r) {
         expectCards(respAs<AddCardToMRCardPackageResp>(r).cardAry, {{"a+b", String(), String(), 0, String()}});
       }},
      {"choose card", "choosecard?errCode=-2&chooseCardInfo=" + kChosen, "MRChooseCardResp", -2, String(),
       [=](const auto& r) { expectCards(respAs<MRChooseCardResp>(r).cardAry, chosen); }},
      {"choose invoice", "chooseinvoice?errCode=0&chooseInvoiceInfo=" + kChosen, "MRChooseInvoiceResp", 0, String(),
       [=](const auto& r) { expectCards(respAs<MRChooseInvoiceResp>(r).cardAry, chosen); }},
      // ---- typed web views ----
      {"subscribe message",
       "opentypewebview?mr_internal_resptype=subscribemessage&ret=-2&errmsg=m&openid=o1&template_id=t1"
       "&action=cancel&scene=1000&reserved=r1",
       "MRSubscribeMsgResp", -2, "m",
       [](const auto& r) {
         const auto& s = respAs<MRSubscribeMsgResp>(r);
         EXPECT_EQ(s.openId, "o1");
         EXPECT_EQ(s.templateId, "t1");
         EXPECT_EQ(s.action, "cancel");
         EXPECT_EQ(s.scene, 1000u);
         EXPECT_EQ(s.reserved, "r1");
       }},
      {"invoice auth insert", "opentypewebview?mr_internal_resptype=invoice_auth_insert&ret=-1&mr_order_id=o2",
       "MRInvoiceAuthInsertResp", -1, String(),
       [](const auto& r) { EXPECT_EQ(respAs<MRInvoiceAuthInsertResp>(r).mrOrderId, "o2"); }},
      {"nontax pay", "opentypewebview?ret=0&mr_order_id=o3&mr_internal_resptype=nontaxpay", "MRNontaxPayResp", 0,
       String(), [](const auto& r) { EXPECT_EQ(respAs<MRNontaxPayResp>(r).mrOrderId, "o3"); }},
      {"pay insurance", "opentypewebview?mr_internal_resptype=payinsurance&ret=-3&mr_order_id=o4",
       "MRPayInsuranceResp", -3, String(),
       [](const auto& r) { EXPECT_EQ(respAs<MRPayInsuranceResp>(r).mrOrderId, "o4"); }},
      {"subscribe mini program",
       "opentypewebview?mr_internal_resptype=subscribeminiprogrammsg&ret=-1&openid=o%40x&unionid=u%2B1"
       "&nickname=%E5%90%8D+x&errmsg=e",
       "MRSubscribeMiniProgramMsgResp", -1, "e",
       [](const auto& r) {
         const auto& s = respAs<MRSubscribeMiniProgramMsgResp>(r);
         EXPECT_EQ(s.openId, "o@x");
         EXPECT_EQ(s.unionId, "u+1");
         EXPECT_EQ(s.nickName, "\xE5\x90\x8D x");
       }},
  };
}

class IncomingHandlersTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(registerHost());
  }
  MireloIdentityHandler& identity() { return MireloIdentityHandler::shareInstance(); }
};

// A delegate that implements neither operation.
class SilentDelegate : public MRApiDelegate {};

TEST_F(IncomingHandlersTest, EveryAnswerUrlBecomesItsResponseBySchemeAndByUniversalLink) {
  auto silent = std::make_shared<SilentDelegate>();
  for (const UrlCase& c : urlCases()) {
    // A handler takes its URL even when the delegate does not listen.
    EXPECT_TRUE(MRApi::handleOpenURL(URL::fromString(hostSchemeUrl(c.tail)), silent)) << c.name;
    for (const bool byLink : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (byLink ? " (universal link)" : " (scheme)"));
      delegate->resps.clear();
      const std::string url = byLink ? hostLinkUrl(c.tail) : hostSchemeUrl(c.tail);
      EXPECT_TRUE(openHost(url)) << url;
      ASSERT_EQ(delegate->resps.size(), 1u);
      const auto& resp = delegate->resps[0];
      ASSERT_NE(resp, nullptr);
      EXPECT_EQ(resp->className(), c.className);
      EXPECT_EQ(resp->errCode, c.errCode);
      EXPECT_EQ(resp->errStr, c.errStr);
      if (c.check) c.check(resp);
      EXPECT_TRUE(delegate->reqs.empty());
    }
  }
}

TEST_F(IncomingHandlersTest, UrlsNoHandlerTakesFallThroughToThePasteboard) {
  const std::vector<std::string> tails = {
      // The add-card answer's name has a capital P.
      "cardpackage?errCode=0",
      // Names are compared case-sensitively.
      "Pay?ret=0",
      // A web-view answer needs a type; "5" read as a string is not empty,
      // so the numeric form never applies to a query.
      "opentypewebview?mr_internal_resptype=5&ret=0",
      "opentypewebview?mr_internal_resptype=&ret=0",
      "opentypewebview?ret=0",
      "opentypewebview?mr_internal_resptype=subscribemessagex&ret=0",
      "platformId=mirelo",
  };
  for (const std::string& tail : tails) {
    SCOPED_TRACE(tail);
    logs.clear();
    EXPECT_FALSE(openHost(hostSchemeUrl(tail)));
    EXPECT_EQ(delegate->calls(), 0u);
    EXPECT_TRUE(logged("mrlog:appdata is nil, url:" + hostSchemeUrl(tail)));
  }
}

// Regressions of hostile answer URLs.
TEST_F(IncomingHandlersTest, HostileQueriesNeverCrashAndAlwaysDeliverTheCommandsClass) {
  const std::string deep = std::string(20000, '[') + std::string(20000, ']');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"pay?ret=99999999999999999999999999&returnKey=" + std::string(100000, 'k'), "PayResp"},
      {"offlinepay?ret=2147483648", "MROfflinePayResp"},
      {"openbusinesswebview?type=-1&resultInfo=%25ZZ", "MROpenBusinessWebViewResp"},
      {"oauth?code=%C3%28&tdi_ext_info=a&tdi_auth_buffer=%C3%28&tdi_auth_params=====", "SendTdiAuthResp"},
      {"cardPackage?addCardInfo=" + esc(deep), "AddCardToMRCardPackageResp"},
      {"choosecard?chooseCardInfo=" + esc(R"([{"card_id":["a"]},{"card_id":{"a":1}}])"), "MRChooseCardResp"},
      {"opentypewebview?mr_internal_resptype=subscribemessage&scene=-1&scene=99999999999", "MRSubscribeMsgResp"},
      {"opentypewebview?mr_internal_resptype=subscribeminiprogrammsg&openid=%FF&nickname=%25",
       "MRSubscribeMiniProgramMsgResp"},
      {"oauth?code=a=b=c&&&=&state", "SendAuthResp"},
  };
  for (const auto& [tail, className] : cases) {
    SCOPED_TRACE(tail.substr(0, 80));
    delegate->resps.clear();
    const auto url = URL::fromString(hostSchemeUrl(tail));
    ASSERT_TRUE(url);
    EXPECT_TRUE(MRApi::handleOpenURL(url, delegate));
    ASSERT_EQ(delegate->resps.size(), 1u);
    EXPECT_EQ(delegate->resps[0]->className(), className);
  }
}

using IncomingTokenFlowTest = IncomingHandlersTest;

TEST_F(IncomingTokenFlowTest, RefreshRecordsTheTokenAndResendsTheRequestAfterATenthOfASecond) {
  auto req = textShare("hello");
  MRApi::sendReq(req, nullptr);
  device->runUntilIdle();

  ASSERT_EQ(peer->received().size(), 1u);
  EXPECT_TRUE(peer->received()[0].viaUniversalLink);
  EXPECT_TRUE(peer->received()[0].token.isNull());
  ASSERT_EQ(peer->answers().size(), 1u);
  EXPECT_EQ(peer->answers()[0].name, "refreshToken");
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "mrpeer_token_0001");
  EXPECT_EQ(identity().contextRequest(), nullptr) << "the context is cleared once the token is recorded";
  EXPECT_TRUE(hostOpens.back().handled);
  EXPECT_EQ(delegate->calls(), 0u);

  device->advance(0.05);
  EXPECT_EQ(peer->received().size(), 1u) << "nothing is re-sent before 0.1 s";
  device->advance(0.06);
  ASSERT_EQ(peer->received().size(), 2u);
  const sim::ReceivedRequest& resent = peer->received()[1];
  EXPECT_TRUE(resent.viaUniversalLink);
  EXPECT_EQ(resent.token, "mrpeer_token_0001");
  EXPECT_TRUE(resent.contextId.isNull()) << "an automatic re-send carries no context id";
  EXPECT_EQ(resent.text(), "hello");
  EXPECT_EQ(logsContaining("mrlog:context req:<SendMessageToMRReq: 0x").size(), 1u);

  ASSERT_EQ(delegate->resps.size(), 1u) << peer->transcript();
  EXPECT_EQ(delegate->resps[0]->className(), "SendMessageToMRResp");
  EXPECT_TRUE(resent.notes.empty()) << resent.describe();
}

TEST_F(IncomingTokenFlowTest, RefreshFailureRelaunchesTheMessengerAndKeepsTheContext) {
  const struct {
    TokenPolicy::Failure failure;
    bool share;
    std::int64_t code;
  } cases[] = {{TokenPolicy::Failure::MissingToken, true, 4}, {TokenPolicy::Failure::WrongContextId, true, 5},
               {TokenPolicy::Failure::MissingToken, false, 4}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.code) + (c.share ? " share" : " pay"));
    peer->clearLog();
    logs.clear();
    TokenPolicy policy = tokenPolicy(TokenPolicy::Action::FailRefresh);
    policy.failure = c.failure;
    peer->setTokenPolicy(policy);
    const std::shared_ptr<BaseReq> req = c.share ? std::shared_ptr<BaseReq>(textShare()) : filledPay();
    MRApi::sendReq(req, nullptr);
    device->runUntilIdle();
    ASSERT_EQ(peer->received().size(), 1u);
    const std::string error = "Error Domain=MROpenSDKRefreshTokenError Code=" + std::to_string(c.code);
    EXPECT_EQ(logsContaining("mrlog:Error:check or record token fail, error:" + error + " ").size(), 1u);
    EXPECT_EQ(identity().contextRequest(), req) << "the request stays pending";
    EXPECT_TRUE(hostOpens.back().handled);

    device->advance(0.11);
    ASSERT_EQ(peer->received().size(), 2u) << peer->transcript();
    const sim::ReceivedRequest& relaunch = peer->received()[1];
    EXPECT_EQ(relaunch.command, "refreshTokenFail/");
    EXPECT_TRUE(relaunch.viaUniversalLink);
    EXPECT_EQ(relaunch.queryValue("bundleID"), kHostBundleId);
    EXPECT_EQ(relaunch.queryValue("isShare"), c.share ? "1" : "0");
    EXPECT_EQ(relaunch.queryValue("errCode"), std::to_string(c.code));
    EXPECT_TRUE(relaunch.queryValue("errMsg").hasPrefix(error)) << relaunch.queryValue("errMsg").description();
    EXPECT_TRUE(MireloIdentityHandler::loadTokenFromKeychain().isNull());
    EXPECT_EQ(delegate->calls(), 0u);
  }
}

TEST_F(IncomingTokenFlowTest, ResendBySchemeSendsThePendingRequestAgainBySchemeOnlyForItsContextId) {
  auto req = textShare("hello");
  identity().setContextReq(req, "cid1");
  const auto wrong = URL::fromString(hostSchemeUrl("resendContextReqByScheme?mirelo_auth_context_id=other"));
  EXPECT_FALSE(MRApiInternal::handleResendContextReqBySchemeOpenUrl(wrong, delegate));
  EXPECT_TRUE(logged("mrlog:Error:cid not match"));
  EXPECT_EQ(device->pendingTimedTasks(), 0u);
  EXPECT_EQ(identity().contextRequest(), req);

  logs.clear();
  peer->setTokenPolicy(tokenPolicy(TokenPolicy::Action::ResendByScheme));
  MRApi::sendReq(req, nullptr);
  device->runUntilIdle();
  ASSERT_EQ(peer->received().size(), 1u);
  EXPECT_TRUE(logged("mrlog:handle resend context req by scheme"));
  EXPECT_EQ(identity().contextRequest(), nullptr);
  EXPECT_EQ(delegate->calls(), 0u);

  device->advance(0.11);
  ASSERT_EQ(peer->received().size(), 2u);
  const sim::ReceivedRequest& resent = peer->received()[1];
  EXPECT_EQ(resent.base, sim::LaunchBase::Scheme);
  EXPECT_EQ(resent.command, "sendreq/");
  EXPECT_FALSE(resent.degraded);
  EXPECT_TRUE(resent.recordString("universalLink").isNull()) << "a scheme re-send carries no universal link";
  ASSERT_EQ(delegate->resps.size(), 1u) << peer->transcript();
  EXPECT_EQ(delegate->resps[0]->className(), "SendMessageToMRResp");
  EXPECT_FALSE(hostOpens.back().viaUniversalLink);
}

// A token meant for another request is not recorded.
TEST_F(IncomingTokenFlowTest, ATokenOnTheSignInAnswerIsRecordedAndEndsTheWebSignIn) {
  peer->setTokenPolicy(tokenPolicy(TokenPolicy::Action::Proceed));
  Outcome withToken = Outcome::success();
  withToken.includeToken = true;
  peer->script("auth/", withToken);
  auto req = makeReq<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; r.state = "s1"; });
  WapAuthHandler::shareWapAuthHandlerInstance().beginWapAuth(req, nullptr, kHostAppId, delegate);
  ASSERT_TRUE(WapAuthHandler::shareWapAuthHandlerInstance().running());

  MRApi::sendReq(req, nullptr);
  device->runUntilIdle();
  ASSERT_EQ(delegate->resps.size(), 1u) << peer->transcript();
  EXPECT_EQ(respAs<SendAuthResp>(delegate->resps[0]).code, "mrpeer_auth_code");
  EXPECT_EQ(respAs<SendAuthResp>(delegate->resps[0]).state, "s1");
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "mrpeer_token_0001");
  EXPECT_EQ(identity().contextRequest(), nullptr);
  EXPECT_FALSE(WapAuthHandler::shareWapAuthHandlerInstance().running());
  EXPECT_EQ(device->pendingTimedTasks(), 0u) << "a token on a result URL re-sends nothing";

  EXPECT_TRUE(openHost(hostSchemeUrl("oauth?code=c&mirelo_auth_token=t&mirelo_auth_context_id=nobody")));
  EXPECT_EQ(delegate->resps.size(), 2u);
  EXPECT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), "mrpeer_token_0001");
  EXPECT_EQ(device->pendingTimedTasks(), 0u);
}

}  // namespace
}  // namespace mirelo::testing
