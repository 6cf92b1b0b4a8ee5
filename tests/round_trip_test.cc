// Every request of the kit, sent to the messenger peer and answered: the
// host's delegate receives one response of the right class.
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

struct RoundTrip {
  const char* name;
  std::function<std::shared_ptr<BaseReq>()> make;
  const char* responseClass;
};

template <class T>
std::function<std::shared_ptr<BaseReq>()> plain() {
  return [] { return std::make_shared<T>(); };
}

std::vector<RoundTrip> everyRequest() {
  auto payLike = [](auto req) {
    req->partnerId = "p";
    req->prepayId = "pp";
    req->nonceStr = "n";
    req->package = "Sign=MR";
    req->sign = "s";
    return req;
  };
  auto card = [] {
    auto item = std::make_shared<MRCardItem>();
    item->cardId = "card-1";
    return item;
  };
  return {
      {"text share",
       [] {
         auto r = std::make_shared<SendMessageToMRReq>();
         r->bText = true;
         r->text = "hi";
         return r;
       },
       "SendMessageToMRResp"},
      {"sign-in",
       [] {
         auto r = std::make_shared<SendAuthReq>();
         r->scope = "snsapi_userinfo";
         return r;
       },
       "SendAuthResp"},
      {"pay", [payLike] { return payLike(std::make_shared<PayReq>()); }, "PayResp"},
      {"joint pay", [payLike] { return payLike(std::make_shared<MRJointPayReq>()); }, "MRJointPayResp"},
      {"offline pay", plain<MROfflinePayReq>(), "MROfflinePayResp"},
      {"web view",
       [] {
         auto r = std::make_shared<OpenWebviewReq>();
         r->url = "https://example.com";
         return r;
       },
       "OpenWebviewResp"},
      {"business web view", plain<MROpenBusinessWebViewReq>(), "MROpenBusinessWebViewResp"},
      {"rank list", plain<OpenRankListReq>(), "OpenRankListResp"},
      {"add card",
       [card] {
         auto r = std::make_shared<AddCardToMRCardPackageReq>();
         r->cardAry = std::make_shared<MRCardItemArray>(MRCardItemArray{card()});
         return r;
       },
       "AddCardToMRCardPackageResp"},
      {"choose card", plain<MRChooseCardReq>(), "MRChooseCardResp"},
      {"choose invoice", plain<MRChooseInvoiceReq>(), "MRChooseInvoiceResp"},
      {"subscribe", plain<MRSubscribeMsgReq>(), "MRSubscribeMsgResp"},
      {"invoice authorise",
       [] {
         auto r = std::make_shared<MRInvoiceAuthInsertReq>();
         r->urlString = "https://example.com/i";
         return r;
       },
       "MRInvoiceAuthInsertResp"},
      {"non-tax pay",
       [] {
         auto r = std::make_shared<MRNontaxPayReq>();
         r->urlString = "https://example.com/n";
         return r;
       },
       "MRNontaxPayResp"},
      {"insurance",
       [] {
         auto r = std::make_shared<MRPayInsuranceReq>();
         r->urlString = "https://example.com/p";
         return r;
       },
       "MRPayInsuranceResp"},
      {"mini-program subscribe",
       [] {
         auto r = std::make_shared<MRSubscribeMiniProgramMsgReq>();
         r->miniProgramAppid = "mrmini";
         return r;
       },
       "MRSubscribeMiniProgramMsgResp"},
      {"redirecting page",
       [] {
         auto r = std::make_shared<MRLaunchMraRedirectingPageReq>();
         r->ticket = "t";
         return r;
       },
       "MRLaunchMraRedirectingPageResp"},
      {"mini program",
       [] {
         auto r = MRLaunchMiniProgramReq::object();
         r->userName = "gh_x";
         return r;
       },
       "MRLaunchMiniProgramResp"},
      {"business view",
       [] {
         auto r = MROpenBusinessViewReq::object();
         r->businessType = "b";
         return r;
       },
       "MROpenBusinessViewResp"},
      {"create chat room",
       [] {
         auto r = std::make_shared<CreateChatRoomReq>();
         r->groupId = "g";
         return r;
       },
       "CreateChatRoomResp"},
      {"join chat room",
       [] {
         auto r = std::make_shared<JoinChatRoomReq>();
         r->groupId = "g";
         return r;
       },
       "JoinChatRoomResp"},
      {"channel video",
       [] {
         auto r = MRChannelShareVideoReq::object();
         r->localIdentifier = "v";
         return r;
       },
       "MRChannelShareVideoResp"},
      {"channel profile",
       [] {
         auto r = MRChannelOpenProfileReq::object();
         r->userName = "u";
         return r;
       },
       "MRChannelOpenProfileResp"},
      {"channel live",
       [] {
         auto r = MRChannelOpenLiveReq::object();
         r->feedID = "f";
         r->nonceID = "n";
         return r;
       },
       "MRChannelOpenLiveResp"},
      {"channel feed",
       [] {
         auto r = MRChannelOpenFeedReq::object();
         r->feedID = "f";
         r->nonceID = "n";
         return r;
       },
       "MRChannelOpenFeedResp"},
      {"customer service",
       [] {
         auto r = MROpenCustomerServiceReq::object();
         r->url = "https://example.com/kf";
         r->corpid = "c";
         return r;
       },
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

TEST_F(RoundTripTest, EveryRequestIsAnsweredWithItsResponseClass) {
  for (const sim::Outcome& outcome : {sim::Outcome::success(), sim::Outcome::cancel()}) {
    for (const RoundTrip& c : everyRequest()) {
      SCOPED_TRACE(std::string(c.name) + (outcome.kind == sim::Outcome::Kind::Cancel ? " cancelled" : ""));
      peer->setDefaultOutcome(outcome);
      delegate->resps.clear();
      delegate->reqs.clear();
      bool sent = false;
      MRApi::sendReq(c.make(), [&](bool ok) { sent = ok; });
      device->runUntilIdle();
      device->advance(0.2);  // a token refresh re-sends after 0.1 s
      ASSERT_TRUE(sent);
      ASSERT_EQ(delegate->resps.size(), 1u) << peer->transcript();
      EXPECT_EQ(delegate->resps[0]->className(), c.responseClass);
      // A sign-in answer without a code reads as a common error, whatever the
      // user did.
      const bool codelessSignIn = c.responseClass == std::string("SendAuthResp") &&
                                  outcome.kind != sim::Outcome::Kind::Success;
      EXPECT_EQ(delegate->resps[0]->errCode, codelessSignIn ? -1 : outcome.resultCode());
      EXPECT_TRUE(delegate->reqs.empty());
    }
  }
}

TEST_F(RoundTripTest, TheMessengersOwnRequestsReachOnReqAndTheHostAnswers) {
  sim::PeerHostRequest request;
  request.appId = kHostAppId;
  request.openID = "open-1";
  request.language = "en";
  EXPECT_TRUE(peer->sendGetMessage(request));
  device->runUntilIdle();
  ASSERT_EQ(delegate->reqs.size(), 1u);
  EXPECT_EQ(delegate->reqs[0]->className(), "GetMessageFromMRReq");

  auto answer = std::make_shared<GetMessageFromMRResp>();
  answer->bText = true;
  answer->text = "from the host";
  bool sent = false;
  MRApi::sendResp(answer, [&](bool ok) { sent = ok; });
  device->runUntilIdle();
  EXPECT_TRUE(sent);
  ASSERT_NE(peer->lastReceived(), nullptr);
  EXPECT_EQ(peer->lastReceived()->command, "sendresp/");
  EXPECT_EQ(peer->lastReceived()->text(), "from the host");
}

// Paste notices per round trip on iOS 16, with text or a picture that the
// user copied in another app on the pasteboard: each side reads only what it
// must, once.  The table goes to standard output (the porting guide has it).
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
      MRApi::sendReq(c.make(), nullptr);
      device->runUntilIdle();
      device->advance(0.2);
      ASSERT_EQ(delegate->resps.size(), 1u);
      delegate->resps.clear();
    });
    print(c.name);
  }
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
    ASSERT_EQ(delegate->reqs.size(), 1u);
    delegate->reqs.clear();
    EXPECT_EQ(peer->lastReceived()->text(), "from the host");
  });
  print("the messenger's request, the host's answer");
}

}  // namespace
}  // namespace mirelo::testing
