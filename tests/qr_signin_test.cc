// QR-code sign-in against the local HTTPS sign-in server, over real sockets,
// with the open platform's host names routed to it and its own test
// authority as the only trusted one.  Re-poll timers and time-outs run on
// the device's virtual clock.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mirelo/MireloAuthSDK.h"
#include "support/KitFixture.h"
#include "tools/signin-server/SignInServer.h"

namespace mirelo::testing {
namespace {

class RecordingAuthDelegate : public MireloAuthAPIDelegate {
 public:
  void onAuthGotQrcode(const std::shared_ptr<platform::Image>& image) override {
    images.push_back(image);
    if (onQrcode) std::exchange(onQrcode, nullptr)();
  }
  void onQrcodeScanned() override {
    ++scanned;
    if (onScanned) std::exchange(onScanned, nullptr)();
  }
  void onAuthFinish(int errCode, const String& authCode) override {
    finishes.emplace_back(errCode, authCode);
    if (onFinish) onFinish();
  }

  std::vector<std::shared_ptr<platform::Image>> images;
  int scanned = 0;
  std::vector<std::pair<int, String>> finishes;
  std::function<void()> onFinish;
  std::function<void()> onQrcode;
  std::function<void()> onScanned;
};

class QrSignInTest : public KitTest {
 protected:
  static void SetUpTestSuite() {
    server = new SignInServer();
    ASSERT_TRUE(server->start()) << server->error();
  }
  static void TearDownTestSuite() {
    delete server;
    server = nullptr;
  }

  void SetUp() override {
    KitTest::SetUp();
    ASSERT_TRUE(server->running());
    server->clearRequests();
    server->clearAnswers();
    device->setCertificateAuthorities(server->caPath());
    for (const char* name : {"open.mirelo.app", "long.open.mirelo.app"}) {
      device->routeHost(name, "127.0.0.1", server->port());
    }
    sdk = std::make_unique<MireloAuthSDK>();
    sdk->delegate = delegate;
  }
  void TearDown() override {
    sdk.reset();
    // Every scripted answer of a test is used by that test.
    EXPECT_EQ(server->pollAnswersLeft(), 0u);
    KitTest::TearDown();
  }

  // Waits (real time, bounded) until the server has taken every queued poll
  // answer: it records a request a moment before it takes its answer.
  static bool pollAnswersTaken() {
    for (int i = 0; i < 5000 && server->pollAnswersLeft() != 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return server->pollAnswersLeft() == 0;
  }

  bool start() { return sdk->Auth(kHostAppId, "n0nce", "1767225600", "snsapi_userinfo", "s1gn", "from=demo"); }
  // Runs until the session has finished `count` times in all.
  bool runToFinish(std::size_t count = 1) {
    return device->runUntil([&] { return delegate->finishes.size() >= count; }, 20);
  }

  static SignInServer* server;
  std::shared_ptr<RecordingAuthDelegate> delegate = std::make_shared<RecordingAuthDelegate>();
  std::unique_ptr<MireloAuthSDK> sdk;
};

SignInServer* QrSignInTest::server = nullptr;

TEST_F(QrSignInTest, SignsInAfterWaitingAndScanning) {
  for (const int state : {401, 404, 404}) server->queuePollAnswer(SignInAnswer::pollState(state));
  server->queuePollAnswer(SignInAnswer::pollState(405, "c0de-42"));
  const double started = device->now();

  ASSERT_TRUE(start());
  EXPECT_TRUE(sdk->isAuthing());
  ASSERT_TRUE(runToFinish());

  ASSERT_EQ(delegate->images.size(), 1u);
  ASSERT_TRUE(delegate->images[0]);
  EXPECT_GT(delegate->images[0]->width(), 20);
  EXPECT_EQ(delegate->scanned, 1);
  EXPECT_EQ(delegate->finishes, (std::vector<std::pair<int, String>>{{0, String("c0de-42")}}));
  EXPECT_FALSE(sdk->isAuthing());
  EXPECT_EQ(sdk->status(), 0u);
  // Three re-polls, two seconds apart, on the virtual clock.
  EXPECT_GE(device->now() - started, 6.0);

  const auto qr = server->requestsTo(SignInServer::kQrPath);
  ASSERT_EQ(qr.size(), 1u);
  EXPECT_EQ(qr[0].query,
            "appid=mr0123456789abcdef&noncestr=n0nce&timestamp=1767225600&scope=snsapi_userinfo&signature=s1gn"
            "&scheme_data=from=demo");
  EXPECT_EQ(qr[0].header("Cache-Control"), "no-cache");
  const auto polls = server->requestsTo(SignInServer::kPollPath);
  ASSERT_EQ(polls.size(), 4u);
  const char* lasts[] = {"0", "401", "404", "404"};
  for (std::size_t i = 0; i < polls.size(); ++i) {
    EXPECT_EQ(polls[i].queryValue("uuid"), server->lastUuid());
    EXPECT_EQ(polls[i].queryValue("last"), lasts[i]);
    EXPECT_EQ(polls[i].queryValue("f"), "json");
  }
  EXPECT_TRUE(logged(
      "mrlog:sendAuthRequest\xEF\xBC\x9Ahttps://open.mirelo.app/connect/sdk/qrconnect?appid=mr0123456789abcdef"
      "&noncestr=n0nce&timestamp=1767225600&scope=snsapi_userinfo&signature=s1gn&scheme_data=from=demo"));
  EXPECT_TRUE(logged("mrlog:startPolling"));
}

// Each poll outcome, and each bad answer to the QR request (which then never polls), finishes with its code.
TEST_F(QrSignInTest, EachPollOutcomeAndBadQrAnswerFinishesWithItsCode) {
  const std::string longBody = R"({"mr_errcode":405,"mr_code":"cut"})";
  const struct {
    const char* name;
    bool qr;  // the answer to the QR request; otherwise to the poll
    SignInAnswer answer;
    int code;
    String authCode = String();
  } cases[] = {
      {"402", false, SignInAnswer::pollState(402), -5},
      {"403", false, SignInAnswer::pollState(403), -4},
      {"407", false, SignInAnswer::pollState(407), -1},
      {"missing state", false, SignInAnswer::missingState(), -1},
      {"not JSON", false, SignInAnswer::notJson(), -1},
      {"JSON array", false, SignInAnswer::json("[405]"), -1},
      {"HTTP 404", false, SignInAnswer::httpStatus(404), -2},
      {"206 accepted", false, SignInAnswer::partialContent(SignInAnswer::pollState(405, "p4rt")), 0, String("p4rt")},
      {"body cut short", false, SignInAnswer::shortBody(SignInAnswer::json(longBody), 10), -1},
      {"code kept on failure", false, SignInAnswer::json(R"({"mr_errcode":403,"mr_code":"k"})"), -4, String("k")},
      {"QR not JSON", true, SignInAnswer::notJson(), -3},
      {"no picture", true, SignInAnswer::json(R"({"errcode":0,"uuid":"u1"})"), -3},
      {"picture not Base64", true, SignInAnswer::json(R"({"uuid":"u1","qrcode":{"qrcodebase64":"%%%"}})"), -3},
      {"picture without uuid", true, SignInAnswer::json(R"({"qrcode":{"qrcodebase64":"iVBORw0KGgo="}})"), -1},
      {"QR HTTP 500", true, SignInAnswer::httpStatus(500), -2},
      {"empty body", true, SignInAnswer::json(""), -1},
      {"oversized body", true, SignInAnswer::json(std::string(MireloAuthSDK::kMaxAnswerBytes + 1, ' ')), -1},
  };
  std::size_t finished = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::size_t polls = server->requestsTo(SignInServer::kPollPath).size();
    if (c.qr) {
      server->queueQrAnswer(c.answer);
    } else {
      server->queuePollAnswer(c.answer);
    }
    ASSERT_TRUE(start());
    ASSERT_TRUE(runToFinish(++finished));
    EXPECT_EQ(delegate->finishes.back(), std::make_pair(c.code, c.authCode));
    EXPECT_FALSE(sdk->isAuthing());
    if (c.qr) {
      EXPECT_EQ(server->requestsTo(SignInServer::kPollPath).size(), polls);
    } else {
      EXPECT_EQ(delegate->images.size(), finished);  // the poll rows come first
    }
  }
  EXPECT_EQ(delegate->scanned, 0);
}

// A held poll: stopped, the session ends silently; left alone, it fails
// at its time-out on the virtual clock.
TEST_F(QrSignInTest, StopEndsTheSessionSilentlyAndAHeldPollTimesOut) {
  for (const bool stop : {true, false}) {
    SCOPED_TRACE(stop ? "stopped" : "timed out");
    server->clearRequests();
    server->queuePollAnswer(SignInAnswer::held());
    ASSERT_TRUE(start());
    ASSERT_TRUE(device->runUntil([&] { return !delegate->images.empty(); }, 20));
    ASSERT_TRUE(server->waitForRequests(2, 10));  // the QR request and the held poll
    ASSERT_TRUE(pollAnswersTaken());
    if (stop) {
      EXPECT_TRUE(sdk->StopAuth());
      EXPECT_FALSE(sdk->isAuthing());
      EXPECT_EQ(device->activeConnections(), 0u);
      device->advance(120);
      EXPECT_TRUE(delegate->finishes.empty());
      EXPECT_TRUE(logged("mrlog:StopAuth"));
      delegate->images.clear();
      continue;
    }
    device->advance(59);
    EXPECT_TRUE(delegate->finishes.empty());
    device->advance(1);
    EXPECT_EQ(delegate->finishes, (std::vector<std::pair<int, String>>{{-2, String()}}));
    EXPECT_FALSE(
        logsContaining("mrlog:Error:connection fail, error:Error Domain=NSURLErrorDomain Code=-1001").empty());
  }
}

// From its own callbacks the host may restart the session (what is left of
// the first one never runs) or drop the object.
TEST_F(QrSignInTest, TheHostMayRestartOrDropTheSessionFromItsCallbacks) {
  for (const int from : {0, 1, 2}) {  // onAuthGotQrcode, onQrcodeScanned, onAuthFinish
    SCOPED_TRACE(from);
    delegate->finishes.clear();
    if (from == 1) server->queuePollAnswer(SignInAnswer::pollState(404));
    if (from == 2) server->queuePollAnswer(SignInAnswer::pollState(403));
    server->queuePollAnswer(SignInAnswer::pollState(405, "fresh"));
    bool restarted = false;
    auto restart = [&] {
      if (from != 2) sdk->StopAuth();
      if (!restarted) restarted = start();
    };
    (from == 0 ? delegate->onQrcode : from == 1 ? delegate->onScanned : delegate->onFinish) = restart;
    ASSERT_TRUE(start());
    ASSERT_TRUE(runToFinish(from == 2 ? 2 : 1));
    EXPECT_TRUE(restarted);
    device->advance(5);
    device->runUntilIdle();
    EXPECT_EQ(delegate->finishes.back(), std::make_pair(0, String("fresh")));
    EXPECT_EQ(delegate->finishes.size(), from == 2 ? 2u : 1u);
    EXPECT_FALSE(sdk->isAuthing());
  }
  server->queuePollAnswer(SignInAnswer::pollState(402));
  delegate->onFinish = [&] { sdk.reset(); };
  ASSERT_TRUE(start());
  ASSERT_TRUE(runToFinish(3));
  EXPECT_EQ(sdk, nullptr);
  EXPECT_TRUE(logged("mrlog:dealloc"));
}

// The only check of a refused start as a value.
TEST_F(QrSignInTest, OneSessionAtATimeAndARefusedStartSaysWhy) {
  server->queuePollAnswer(SignInAnswer::pollState(404));
  server->queuePollAnswer(SignInAnswer::pollState(405, "one"));
  ASSERT_TRUE(start());
  MireloAuthStartResult result;
  EXPECT_FALSE(sdk->Auth(kHostAppId, "n", "1", "s", "g", "d", &result));
  EXPECT_EQ(result.refusal, MireloAuthRefusal::kAlreadyRunning);
  EXPECT_FALSE(result.message.empty());
  ASSERT_TRUE(runToFinish());
  EXPECT_EQ(delegate->finishes, (std::vector<std::pair<int, String>>{{0, String("one")}}));
  EXPECT_EQ(server->requestsTo(SignInServer::kQrPath).size(), 1u);
  ASSERT_TRUE(sdk->Auth(kHostAppId, "n", "1", "s", "g", "d", &result));
  EXPECT_EQ(result.refusal, MireloAuthRefusal::kNone);
  sdk->StopAuth();
}

}  // namespace
}  // namespace mirelo::testing
