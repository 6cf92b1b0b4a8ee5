// An integration test as a host app's developers would write it: the host
// registers with the kit on a simulated device, sends a sign-in, the
// messenger peer answers as scripted, and the host's delegate gets the
// response.  Only the kit's installed headers are used.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "mirelo/MRApi.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/MessengerPeer.h"
#include "mirelo/sim/SimDevice.h"
#include "mirelo/testing/Matchers.h"

namespace {

using namespace mirelo;
using ::testing::Field;
using mirelo::testing::IsNullString;
using mirelo::testing::RespIs;

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr const char* kBundleId = "com.example.myapp";

// The host's delegate: keeps what the messenger answered.
class Answers : public MRApiDelegate {
 public:
  void onResp(const std::shared_ptr<BaseResp>& resp) override { resps.push_back(resp); }
  std::vector<std::shared_ptr<BaseResp>> resps;
};

class SignInRehearsal : public ::testing::Test {
 protected:
  void SetUp() override {
    device = sim::SimDevice::create();
    device->setSystemVersion("15.0");
    // The host as its Info.plist declares it: its app id as URL scheme, the
    // messenger's schemes among the query schemes, and its universal link.
    sim::AppManifest host;
    host.bundleId = kBundleId;
    host.infoPlist = sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
    host.universalLinks.push_back({"myapp.example.com", {"/mirelo/"}});
    device->install(host).onOpenURL([this](const sim::OpenContext& opened) {
      // What the app delegate does with a URL or a universal link.
      if (opened.viaUniversalLink) {
        MRApi::handleOpenUniversalLink(UserActivity{NSUserActivityTypeBrowsingWeb, URL::fromString(opened.url)},
                                       answers);
      } else {
        MRApi::handleOpenURL(URL::fromString(opened.url), answers);
      }
    });
    device->runKitAs(kBundleId);
    peer = sim::MessengerPeer::install(*device);
    ASSERT_TRUE(MRApi::registerApp(kAppId, "https://myapp.example.com/mirelo/"));
  }
  // The kit's process-wide state (registration, pending request) would
  // otherwise carry over into the next test.
  void TearDown() override { platform::resetProcessState(); }

  std::shared_ptr<sim::SimDevice> device;
  std::shared_ptr<sim::MessengerPeer> peer;
  std::shared_ptr<Answers> answers = std::make_shared<Answers>();
};

TEST_F(SignInRehearsal, TheUserSignsIn) {
  peer->script("auth/", sim::Outcome::success(Dictionary{{"code", "C0DE"}, {"state", "st-1"}}));
  auto req = std::make_shared<SendAuthReq>();
  req->scope = "snsapi_userinfo";
  req->state = "st-1";
  bool opened = false;
  MRApi::sendReq(req, [&](bool success) { opened = success; });
  // On a first launch the messenger hands the host a token, and the kit
  // re-sends the request with it 0.1 s later; a second is plenty.
  device->advance(1.0);

  EXPECT_TRUE(opened);
  ASSERT_EQ(answers->resps.size(), 1u);
  // The class, the code and the fields in one expectation; a mismatch
  // prints the response and the fields readably.
  EXPECT_THAT(answers->resps[0], RespIs<SendAuthResp>(ErrCodeSuccess, Field(&SendAuthResp::code, "C0DE"),
                                                      Field(&SendAuthResp::state, "st-1")));
}

TEST_F(SignInRehearsal, TheUserCancels) {
  peer->script("auth/", sim::Outcome::cancel());
  auto req = std::make_shared<SendAuthReq>();
  req->scope = "snsapi_userinfo";
  MRApi::sendReq(req, nullptr);
  device->advance(1.0);
  ASSERT_EQ(answers->resps.size(), 1u);
  // A sign-in that did not happen comes back without a code.
  EXPECT_THAT(answers->resps[0], RespIs<SendAuthResp>(::testing::Lt(0), Field(&SendAuthResp::code, IsNullString())));
}

// Without a log sink, a refused send still says why: the result carries the
// reason as a value and the kit's own text.
TEST_F(SignInRehearsal, ARefusedShareSaysWhy) {
  auto share = std::make_shared<SendMessageToMRReq>();
  share->bText = true;
  share->text = std::string(limits::kText + 1, 'x');
  std::optional<MRResult<SendMessageToMRResp>> result;
  MRApi::send(share, [&](const MRResult<SendMessageToMRResp>& r) { result = r; });
  device->runUntilIdle();
  ASSERT_TRUE(result.has_value());
  const auto* notOpened = std::get_if<MRNotOpened>(&*result);
  ASSERT_NE(notOpened, nullptr);
  EXPECT_EQ(notOpened->refusal.reason, MRRefusalReason::RefusedByLimit);
  EXPECT_THAT(notOpened->refusal.message, ::testing::HasSubstr("10240"));
}

// What a failed expectation shows: the values, not their bytes.
TEST(Printing, ValuesAndResponsesPrintReadably) {
  EXPECT_EQ(::testing::PrintToString(String("C0DE")), "\"C0DE\"");
  EXPECT_EQ(::testing::PrintToString(String()), "null");
  EXPECT_EQ(::testing::PrintToString(Data::copy("hello")), "Data(5 bytes: 68656c6c6f)");
  EXPECT_EQ(::testing::PrintToString(Value(Dictionary{{"k", Array{1, true}}})), "{\"k\": [1, true]}");
  auto resp = SendAuthResp::object();
  resp->errCode = ErrCodeUserCancel;
  EXPECT_EQ(::testing::PrintToString(*resp), "SendAuthResp{errCode: -2 (ErrCodeUserCancel), errStr: null, type: 0}");
  const std::shared_ptr<BaseResp> held = resp;
  EXPECT_THAT(::testing::PrintToString(held), ::testing::HasSubstr("SendAuthResp{errCode: -2"));
  EXPECT_THAT(::testing::PrintToString(URL::fromString("mr01://oauth?code=1")),
              ::testing::HasSubstr("URL(\"mr01://oauth?code=1\")"));
}

}  // namespace
