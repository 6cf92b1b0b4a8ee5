// Every request sent to the messenger peer and answered: one response of the right class for the
// delegate, one outcome of the right kind for the result handler, and what the messenger put in it.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/model/Model.h"
#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

using sim::Outcome;
enum Kind { Answered, Cancelled, Failed };  // MRResult's first alternatives, in order

struct RoundTrip {
  const char* name;
  std::shared_ptr<BaseReq> req;
  const char* responseClass;
  std::function<void(const std::shared_ptr<BaseResp>&)> check = nullptr;  // what a success carries
  Outcome success = Outcome::success();                                   // the messenger's success
};

std::vector<RoundTrip> everyRequest() {
  return {
      {"text share", textShare(), "SendMessageToMRResp"},
      {"sign-in", makeReq<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; r.state = "st8"; }),
       "SendAuthResp",
       [](const auto& r) {
         EXPECT_EQ(respAs<SendAuthResp>(r).code, "mrpeer_auth_code");
         EXPECT_EQ(respAs<SendAuthResp>(r).state, "st8");
         EXPECT_EQ(respAs<SendAuthResp>(r).lang, "en");
         EXPECT_EQ(respAs<SendAuthResp>(r).country, "US");
       }},
      {"pay", filledPay(), "PayResp", [](const auto& r) { EXPECT_EQ(respAs<PayResp>(r).returnKey, "rk9"); },
       Outcome::success({{"returnKey", Value("rk9")}})},
      {"joint pay", filledPay<MRJointPayReq>(), "MRJointPayResp"},
      {"offline pay", std::make_shared<MROfflinePayReq>(), "MROfflinePayResp"},
      {"web view", makeReq<OpenWebviewReq>([](auto& r) { r.url = "https://example.com"; }), "OpenWebviewResp"},
      {"business web view", std::make_shared<MROpenBusinessWebViewReq>(), "MROpenBusinessWebViewResp"},
      {"rank list", std::make_shared<OpenRankListReq>(), "OpenRankListResp"},
      {"add card",
       makeReq<AddCardToMRCardPackageReq>(
           [](auto& r) { r.cardAry = std::make_shared<MRCardItemArray>(MRCardItemArray{
               makeReq<MRCardItem>([](auto& c) { c.cardId = "card-1"; c.extMsg = "{}"; })}); }),
       "AddCardToMRCardPackageResp",
       [](const auto& r) {
         const auto& cards = respAs<AddCardToMRCardPackageResp>(r).cardAry;
         ASSERT_TRUE(cards && cards->size() == 1u);
         EXPECT_EQ(cards->at(0)->cardId, "card-1");
         EXPECT_EQ(cards->at(0)->extMsg, "{}");
         EXPECT_EQ(cards->at(0)->encryptCode, "mrpeer_code_0");
         EXPECT_EQ(cards->at(0)->cardState, 1u);
       }},
      {"choose card", std::make_shared<MRChooseCardReq>(), "MRChooseCardResp"},
      {"choose invoice", std::make_shared<MRChooseInvoiceReq>(), "MRChooseInvoiceResp"},
      {"subscribe", makeReq<MRSubscribeMsgReq>([](auto& r) { r.scene = 1000; r.templateId = "tpl-1"; }),
       "MRSubscribeMsgResp",
       [](const auto& r) {
         EXPECT_EQ(respAs<MRSubscribeMsgResp>(r).action, "confirm");
         EXPECT_EQ(respAs<MRSubscribeMsgResp>(r).templateId, "tpl-1");
         EXPECT_EQ(respAs<MRSubscribeMsgResp>(r).scene, 1000u);
       }},
      {"invoice authorise", makeReq<MRInvoiceAuthInsertReq>([](auto& r) { r.urlString = "https://example.com/i"; }),
       "MRInvoiceAuthInsertResp"},
      {"non-tax pay", makeReq<MRNontaxPayReq>([](auto& r) { r.urlString = "https://pay.example.com/nontax"; }),
       "MRNontaxPayResp", [](const auto& r) { EXPECT_EQ(respAs<MRNontaxPayResp>(r).mrOrderId, "ord-1"); },
       Outcome::success({{"mr_order_id", Value("ord-1")}})},
      {"insurance", makeReq<MRPayInsuranceReq>([](auto& r) { r.urlString = "https://example.com/p"; }),
       "MRPayInsuranceResp"},
      {"mini-program subscribe", makeReq<MRSubscribeMiniProgramMsgReq>([](auto& r) { r.miniProgramAppid = "mrmini"; }),
       "MRSubscribeMiniProgramMsgResp"},
      {"redirecting page", makeReq<MRLaunchMraRedirectingPageReq>([](auto& r) { r.ticket = "t"; }),
       "MRLaunchMraRedirectingPageResp"},
      {"mini program", makeReq<MRLaunchMiniProgramReq>([](auto& r) { r.userName = "gh_x"; }),
       "MRLaunchMiniProgramResp"},
      {"business view", makeReq<MROpenBusinessViewReq>([](auto& r) { r.businessType = "b"; }),
       "MROpenBusinessViewResp"},
      {"create chat room", makeReq<CreateChatRoomReq>([](auto& r) { r.groupId = "g"; }), "CreateChatRoomResp"},
      {"join chat room", makeReq<JoinChatRoomReq>([](auto& r) { r.groupId = "g"; }), "JoinChatRoomResp"},
      {"channel video", makeReq<MRChannelShareVideoReq>([](auto& r) { r.localIdentifier = "v"; }),
       "MRChannelShareVideoResp"},
      {"channel profile", makeReq<MRChannelOpenProfileReq>([](auto& r) { r.userName = "u"; }),
       "MRChannelOpenProfileResp"},
      {"channel live", makeReq<MRChannelOpenLiveReq>([](auto& r) { r.feedID = r.nonceID = "f"; }),
       "MRChannelOpenLiveResp"},
      {"channel feed", makeReq<MRChannelOpenFeedReq>([](auto& r) { r.feedID = r.nonceID = "f"; }),
       "MRChannelOpenFeedResp"},
      {"customer service",
       makeReq<MROpenCustomerServiceReq>([](auto& r) { r.url = "https://example.com/kf"; r.corpid = "c"; }),
       "MROpenCustomerServiceResp"},
  };
}

class RoundTripTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    ASSERT_TRUE(registerHost());
  }
};

// Success, cancel and failure, through a token refresh and re-send and without.
TEST_F(RoundTripTest, EveryRequestIsAnsweredWithItsResponseClassAndOutcome) {
  std::size_t unmatched = 0;
  MRApi::setUnmatchedAnswerObserver([&](const MRUnmatchedAnswer&) { ++unmatched; });
  for (const auto action : {sim::TokenPolicy::Action::Refresh, sim::TokenPolicy::Action::Proceed}) {
    peer->setTokenPolicy(tokenPolicy(action));
    for (const int code : {0, -2, -3}) {
      for (const RoundTrip& c : everyRequest()) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(code) +
                     (action == sim::TokenPolicy::Action::Refresh ? " refreshed" : ""));
        peer->setDefaultOutcome(code == 0 ? c.success : code == -2 ? Outcome::cancel() : Outcome::withCode(code));
        delegate->resps.clear();
        delegate->reqs.clear();
        std::vector<std::size_t> kinds;
        MRApi::sendWithResult(c.req, [&](const MRAnyResult& r) { kinds.push_back(r.index()); });
        device->runUntilIdle();
        device->advance(0.2);  // a token refresh re-sends after 0.1 s
        ASSERT_EQ(delegate->resps.size(), 1u) << peer->transcript();
        const auto& resp = delegate->resps[0];
        EXPECT_EQ(resp->className(), c.responseClass);
        EXPECT_TRUE(delegate->reqs.empty());
        EXPECT_TRUE(hostOpens.back().viaUniversalLink) << "the messenger returns through the host's universal link";
        // A sign-in answer without a code is a common error, whatever the user did.
        const bool signIn = c.responseClass == std::string("SendAuthResp");
        EXPECT_EQ(resp->errCode, signIn && code != 0 ? -1 : code);
        const Kind expected = code == 0 ? Answered : code == -2 && !signIn ? Cancelled : Failed;
        EXPECT_EQ(kinds, std::vector<std::size_t>{static_cast<std::size_t>(expected)});
        if (code == 0 && c.check) c.check(resp);
      }
    }
  }
  EXPECT_EQ(unmatched, 0u);
}

// Paste notices per round trip on iOS 16 with the user's text or picture on the pasteboard: each
// side reads only what it must, once.  The table goes to standard output (the porting guide has it).
TEST_F(RoundTripTest, EachSideReadsOnlyWhatItMustFromThePasteboard) {
  device->setSystemVersion("16.0");
  ASSERT_TRUE(registerHost());
  std::string row;
  auto measure = [&](const std::function<void()>& roundTrip) {
    for (const bool text : {true, false}) {
      if (text) {
        device->setPasteboardString("copied elsewhere");
      } else {
        device->setPasteboardData(Data::copy(std::string("\x89PNG")), "public.png");
      }
      device->clearPasteNotices();
      roundTrip();
      std::size_t byHost = 0, byMessenger = 0;
      for (std::size_t i = 0; i < device->pasteNotices().size(); ++i) {
        const sim::PasteNotice& n = device->pasteNotices()[i];
        byHost += n.reader == kHostBundleId;
        byMessenger += n.reader == kMessengerBundleId;
        EXPECT_TRUE(n.found) << n.reader << " read " << n.type << " blind";
        for (std::size_t j = 0; j < i; ++j) {
          const sim::PasteNotice& m = device->pasteNotices()[j];
          EXPECT_FALSE(m.reader == n.reader && m.changeCount == n.changeCount) << n.reader << " read twice";
        }
      }
      row += " " + std::to_string(byHost) + " | " + std::to_string(byMessenger) + " |";
    }
  };
  auto print = [&](const std::string& name) {
    std::printf("| %s |%s\n", name.c_str(), row.c_str());
    row.clear();
  };
  for (const RoundTrip& c : everyRequest()) {
    SCOPED_TRACE(c.name);
    measure([&] {
      MRApi::sendReq(c.req, nullptr);
      device->runUntilIdle();
      device->advance(0.2);
      ASSERT_EQ(delegate->resps.size(), 1u);
      delegate->resps.clear();
    });
    print(c.name);
  }
  // The messenger's own request reaches onReq; the host's answer goes back by "sendresp/".
  measure([&] {
    sim::PeerHostRequest request;
    request.appId = kHostAppId;
    EXPECT_TRUE(peer->sendGetMessage(request));
    device->runUntilIdle();
    auto answer = std::make_shared<GetMessageFromMRResp>();
    answer->bText = true;
    answer->text = "from the host";
    MRApi::sendResp(answer, nullptr);
    device->runUntilIdle();
    ASSERT_EQ(deliveredClasses(), std::vector<std::string>{"GetMessageFromMRReq"});
    delegate->reqs.clear();
    EXPECT_EQ(peer->lastReceived()->command, "sendresp/");
    EXPECT_EQ(peer->lastReceived()->text(), "from the host");
  });
  print("the messenger's request, the host's answer");
}

}  // namespace
}  // namespace mirelo::testing
