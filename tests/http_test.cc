// The simulated device's network against the local sign-in server, over
// real sockets and verified TLS; and the libcurl transport on its own.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "mirelo/sim/SimDevice.h"
#include "ports/linux/http_curl.h"
#include "tools/signin-server/SignInServer.h"
#include "util/MireloApiUtil.h"

namespace mirelo {
namespace {

using platform::HttpRequest;
using platform::URLRequestCachePolicy;
using testing::SignInAnswer;
using testing::SignInServer;

constexpr const char* kApp = "com.example.host";

std::string pollUrl() { return std::string(kMireloLongPollBaseUrl) + "/connect/l/qrconnect?uuid=u1&last=0&f=json"; }

// Records a connection's events as lines, in order.
struct Recorder : platform::HttpConnectionDelegate {
  std::vector<std::string> events;
  std::function<void()> afterResponse;

  void didReceiveResponse(const platform::HttpResponse& r) override {
    events.push_back("response " + std::to_string(r.statusCode));
    if (afterResponse) afterResponse();
  }
  void didReceiveData(const Data&) override { events.push_back("data"); }
  void didFailWithError(const platform::HttpError& e) override { events.push_back("fail " + std::to_string(e.code)); }
  void didFinishLoading() override { events.push_back("finish"); }
};

class HttpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.start()) << server.error();
    device = sim::SimDevice::create();
    device->install(sim::AppManifest{kApp, Dictionary(), {}});
    device->routeHost("long.open.mirelo.app", "127.0.0.1", server.port());
    device->setCertificateAuthorities(server.caPath());
  }

  std::shared_ptr<platform::HttpConnection> connect(Recorder& r) {
    HttpRequest req;
    req.url = pollUrl();
    req.cachePolicy = URLRequestCachePolicy::ReloadIgnoringLocalCacheData;
    return device->app(kApp)->platform()->http->connect(req, &r);
  }

  SignInServer server;
  std::shared_ptr<sim::SimDevice> device;
};

// The clock stands still while a connection is in flight.
TEST_F(HttpTest, RunUntilWaitsForTheNetworkBeforeMovingTheClock) {
  server.queuePollAnswer(SignInAnswer::slow(SignInAnswer::pollState(401), 0.2));
  bool fired = false;
  device->app(kApp)->platform()->runLoop->scheduleTimer(5, false, [&] { fired = true; });
  Recorder r;
  const auto conn = connect(r);
  const double start = device->now();
  ASSERT_TRUE(device->runUntil([&] { return fired; }));
  EXPECT_EQ(r.events.back(), "finish");
  EXPECT_EQ(device->now(), start + 5);
}

TEST_F(HttpTest, ConnectionsCancelledDroppedOrRelaunchedReportNothing) {
  // From inside the response callback: the data and the end that already
  // arrived are not delivered.
  for (const bool drop : {false, true}) {
    SCOPED_TRACE(drop ? "dropped" : "cancelled");
    server.queuePollAnswer(SignInAnswer::pollState(405, "c"));
    Recorder r;
    auto conn = connect(r);
    r.afterResponse = [&] { drop ? conn.reset() : conn->cancel(); };
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the whole answer arrives before the first pump
    ASSERT_TRUE(device->runUntil([&] { return !r.events.empty(); }));
    device->advance(120);
    EXPECT_EQ(r.events, std::vector<std::string>{"response 200"});
    EXPECT_EQ(device->activeConnections(), 0u);
  }
  // Requests that ignore the cache say so, to the real host name.
  const auto seen = server.requestsTo(SignInServer::kPollPath);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].header("Host"), "long.open.mirelo.app");
  EXPECT_EQ(seen[0].header("Cache-Control"), "no-cache");
  EXPECT_EQ(seen[0].header("Pragma"), "no-cache");
  // A relaunch ends the transfer itself: the server sees the client hang up.
  server.queuePollAnswer(SignInAnswer::held());
  Recorder r;
  const auto conn = connect(r);
  ASSERT_TRUE(server.waitForRequests(3, 10));
  device->relaunch(kApp);
  EXPECT_EQ(device->activeConnections(), 0u);
  EXPECT_TRUE(server.waitForNoConnections(10));
  device->advance(120);  // its time-out went with it
  EXPECT_TRUE(r.events.empty());
  // An uninstalled app's platform makes no connections.
  const auto platform = device->app(kApp)->platform();
  device->uninstall(kApp);
  HttpRequest req;
  req.url = pollUrl();
  EXPECT_EQ(platform->http->connect(req, &r), nullptr);
}

// The transport on its own, with its own (real) time-out and limits, and the
// system's codes for its failures.
TEST_F(HttpTest, CurlTransportFailuresCarryTheSystemCodes) {
  std::mutex mutex;
  std::condition_variable cv;
  std::vector<linuxport::CurlHttp::Event> events;
  linuxport::CurlHttp http([&](linuxport::CurlHttp::Event&& ev) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(std::move(ev));
    cv.notify_all();
  });
  http.setCertificateAuthorities(server.caPath());
  ASSERT_TRUE(http.setRoute("long.open.mirelo.app", "127.0.0.1", server.port()));
  EXPECT_FALSE(http.setRoute("bad host", "127.0.0.1", 1));
  EXPECT_FALSE(http.setRoute("ok.example", "127.0.0.1", 70000));
  auto failureOf = [&](linuxport::CurlHttp::TransferId id) -> std::int64_t {
    std::unique_lock<std::mutex> lock(mutex);
    const bool ended = cv.wait_for(lock, std::chrono::seconds(10), [&] {
      return !events.empty() && events.back().transfer == id &&
             (events.back().kind == linuxport::CurlHttp::Event::Kind::Failed ||
              events.back().kind == linuxport::CurlHttp::Event::Kind::Finished);
    });
    return ended && events.back().kind == linuxport::CurlHttp::Event::Kind::Failed ? events.back().error.code : 0;
  };
  server.queuePollAnswer(SignInAnswer::held());
  HttpRequest req;
  req.url = pollUrl();
  req.timeoutSeconds = 0.3;
  EXPECT_EQ(failureOf(http.start(req)), -1001);
  // An announced body over the cap fails before it is read.
  SignInAnswer huge = SignInAnswer::pollState(401);
  huge.announcedLength = linuxport::CurlHttp::kMaxBodyBytes + 1;
  server.queuePollAnswer(huge);
  req.timeoutSeconds = 10;
  EXPECT_EQ(failureOf(http.start(req)), -1103);
  EXPECT_EQ(http.active(), 0u);
  // A server that does not listen, and one that the system store does not trust.
  req.url = "https://127.0.0.1:1/";
  EXPECT_EQ(failureOf(http.start(req)), -1004);
  http.setCertificateAuthorities("");
  req.url = pollUrl();
  EXPECT_EQ(failureOf(http.start(req)), -1202);
  req.method = "GE T";
  EXPECT_EQ(http.start(req), 0u);
}

}  // namespace
}  // namespace mirelo
