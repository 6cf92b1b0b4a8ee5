// The keychain token never reaches a log sink, an error text or a
// transcript: every flow that carries it runs here with a sink attached.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "identity/MireloIdentityHandler.h"
#include "support/PeerFixture.h"
#include "util/Log.h"
#include "util/MireloApiUtil.h"

namespace mirelo::testing {
namespace {

// Characters that the URL escaping changes, so that escaped copies are
// looked for too.
constexpr const char* kToken = "Tk/s3cr3t+value=42&more";

class SecretsTest : public PeerKitTest {
 protected:
  void SetUp() override {
    PeerKitTest::SetUp();
    sim::TokenPolicy policy;
    policy.token = kToken;
    peer->setTokenPolicy(policy);
    ASSERT_TRUE(registerHost());
  }

  // Every form in which the token could show.
  static std::vector<std::string> forms() {
    return {kToken, String(kToken).mrApi_stringByEscapingForURLArgument().str(),
            String(kToken).stringByAddingPercentEscapes().str(), "s3cr3t"};
  }
  void expectNoToken(const std::string& text, const std::string& where) const {
    for (const std::string& form : forms()) {
      EXPECT_EQ(text.find(form), std::string::npos) << where << " shows the token: " << text;
    }
  }
  void sendAndSettle(const std::shared_ptr<BaseReq>& req) {
    MRApi::sendReq(req, nullptr);
    device->advance(1.0);
  }
};

TEST_F(SecretsTest, NoFlowLogsTheToken) {
  const auto share = textShare("hello");
  const auto auth = makeReq<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; r.state = "s"; });

  // The first send earns the token; the others carry it.
  for (const auto& req : std::vector<std::shared_ptr<BaseReq>>{share, auth, filledPay(), share}) sendAndSettle(req);
  ASSERT_EQ(MireloIdentityHandler::loadTokenFromKeychain(), kToken);
  ASSERT_FALSE(logsContaining("token sha256:" + MireloApiUtil::sha256(kToken)).empty());

  // A universal link that no longer opens: the kit logs the failed link
  // (which carries the token) and degrades to the scheme.
  peer->uninstall();
  sim::MessengerPeer::Options noLinks;
  noLinks.claimUniversalLinks = false;
  peer = sim::MessengerPeer::install(*device, noLinks);
  sendAndSettle(share);
  ASSERT_FALSE(logsContaining("need degrade").empty());
  EXPECT_FALSE(logsContaining("mirelo_auth_token=sha256:" + MireloApiUtil::sha256(kToken).substr(0, 16)).empty());

  // URLs that arrive with a token the kit does not take.
  openHost(std::string(kHostUniversalLink) + "elsewhere?mirelo_auth_token=" +
           String(kToken).mrApi_stringByEscapingForURLArgument().str());
  openHost(hostSchemeUrl("unknown?mirelo_auth_token=" + String(kToken).mrApi_stringByEscapingForURLArgument().str()));

  // A refresh that cannot be recorded, and the self-check.
  sim::TokenPolicy failing = tokenPolicy(sim::TokenPolicy::Action::FailRefresh);
  failing.failure = sim::TokenPolicy::Failure::WrongContextId;
  failing.token = kToken;
  peer->setTokenPolicy(failing);
  sendAndSettle(auth);
  MRApi::checkUniversalLinkReady([](MRULCheckStep, const std::shared_ptr<MRCheckULStepResult>&) {});
  device->advance(5.0);

  ASSERT_GT(logs.size(), 50u);
  for (const std::string& line : logs) expectNoToken(line, "log line");
  expectNoToken(peer->transcript(), "the peer's transcript");
}

TEST(RedactSecrets, MasksEveryTokenValueAndNothingElse) {
  const std::string digest = "sha256:" + MireloApiUtil::sha256("a/b").substr(0, 16);
  EXPECT_EQ(mrlog::redactSecrets("x?mirelo_auth_token=a%2Fb&k=v#f"), "x?mirelo_auth_token=" + digest + "&k=v#f");
  EXPECT_EQ(mrlog::redactSecrets("u1?mirelo_auth_token=a%2Fb u2?mirelo_auth_token=a/b"),
            "u1?mirelo_auth_token=" + digest + " u2?mirelo_auth_token=" + digest);
  EXPECT_EQ(mrlog::redactSecrets("empty mirelo_auth_token=&k=v"), "empty mirelo_auth_token=&k=v");
  EXPECT_EQ(mrlog::redactSecrets("no token here"), "no token here");
}

}  // namespace
}  // namespace mirelo::testing
