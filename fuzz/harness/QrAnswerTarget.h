// The QR-code sign-in against a fake open platform: the input is the
// platform's answers, in order, first to the QR request and then to each
// poll.  Each answer is
//   ctl      bits 0-1: HTTP status (0, 1: 200; 2: 206; 3: 404 or 500)
//            0x04: the connection fails after the body
//            0x08: the head announces one byte more than the body
//            0x10: the length comes only as a "Content-Length" field
//            0x20: the body arrives in two pieces
//            0x40: the connection fails before any response
//            0x80: the announced length is 4 GiB more (it wraps at 32 bits)
//   length   two bytes, big-endian
//   body     that many bytes (fewer when the input ends)
// Re-poll timers run on the device's clock.  When the answers run out while
// a request is open, the host stops the session.  Checked besides crashes:
//   - every session ends with at most one onAuthFinish, with a known code,
//     and after the session is over (a new one could start);
//   - a session that ended did so with exactly one onAuthFinish, unless its
//     poll connection could not be made (the one silent end);
//   - success (0) comes only from a poll answer of state 405 that is JSON;
//   - an answer of status 200 or 206 shorter than announced ends the
//     session with -1;
//   - every request goes to the open platform's QR or poll address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/harness/Input.h"
#include "fuzz/harness/Rig.h"
#include "mirelo/MireloAuthSDK.h"
#include "mirelo/platform/Platform.h"

namespace mirelo::fuzz {

namespace detail {

class FakeConnection : public platform::HttpConnection {
 public:
  explicit FakeConnection(platform::HttpConnectionDelegate* d) : delegate(d) {}
  void cancel() override { cancelled = true; }
  platform::HttpConnectionDelegate* delegate;
  bool cancelled = false;
};

class FakeHttp : public platform::Http {
 public:
  std::shared_ptr<platform::HttpConnection> connect(const platform::HttpRequest& request,
                                                    platform::HttpConnectionDelegate* delegate) override {
    urls.push_back(request.url);
    if (!delegate || (request.url.rfind("https://", 0) != 0 && request.url.rfind("http://", 0) != 0)) {
      ++refused;
      return nullptr;
    }
    auto connection = std::make_shared<FakeConnection>(delegate);
    latest = connection;
    return connection;
  }
  // The connection whose events are due, or null.
  std::shared_ptr<FakeConnection> open() const {
    auto c = latest.lock();
    return c && !c->cancelled ? c : nullptr;
  }
  std::weak_ptr<FakeConnection> latest;
  std::vector<std::string> urls;
  int refused = 0;
};

class AuthDelegate : public MireloAuthAPIDelegate {
 public:
  void onAuthGotQrcode(const std::shared_ptr<platform::Image>& image) override {
    if (image) (void)image->width();
  }
  void onAuthFinish(int errCode, const String& authCode) override {
    finishes.push_back(errCode);
    if (sdk && sdk->isAuthing()) stillRunning = true;
    (void)authCode.description();
  }
  MireloAuthSDK* sdk = nullptr;
  std::vector<int> finishes;
  bool stillRunning = false;
};

}  // namespace detail

inline std::string runQrAnswer(Rig& rig, const std::uint8_t* data, std::size_t size) {
  rig.reset(false);
  auto http = std::make_shared<detail::FakeHttp>();
  auto faked = std::make_shared<platform::Platform>(*rig.host->platform());
  faked->http = http;
  platform::setCurrent(faked);
  struct Restore {
    Rig& rig;
    ~Restore() { platform::setCurrent(rig.host->platform()); }
  } restore{rig};

  auto delegate = std::make_shared<detail::AuthDelegate>();
  auto sdk = std::make_unique<MireloAuthSDK>();
  delegate->sdk = sdk.get();
  sdk->delegate = delegate;
  if (!sdk->Auth(Rig::kAppId, "n0nce", "1767225600", "snsapi_userinfo", "s1gn", "from=fuzz")) {
    return "the QR request did not go out";
  }

  Input in(data, size);
  std::string lastBody;
  bool stoppedByHost = false;
  for (int step = 0; step < 256; ++step) {
    if (auto connection = http->open()) {
      if (in.empty()) {
        sdk->StopAuth();
        stoppedByHost = true;
        break;
      }
      const std::uint8_t ctl = in.byte();
      const std::uint16_t length = in.u16();
      const std::string body(in.bytes(length));
      lastBody = body;
      platform::HttpConnectionDelegate* target = connection->delegate;
      const auto live = [&connection] { return !connection->cancelled; };
      if (ctl & 0x40) {
        target->didFailWithError(platform::HttpError{"NSURLErrorDomain", -1004, "Could not connect to the server."});
        continue;
      }
      platform::HttpResponse response;
      static constexpr std::int64_t kStatus[] = {200, 200, 206, 404};
      response.statusCode = (ctl & 3) == 3 && (length & 1) ? 500 : kStatus[ctl & 3];
      const std::uint64_t announced = body.size() + ((ctl & 0x08) ? 1u : 0u) + ((ctl & 0x80) ? (1ull << 32) : 0u);
      if (ctl & 0x10) {
        response.allHeaderFields.set("Content-Length", Value(std::to_string(announced)));
      } else {
        response.expectedContentLength = static_cast<std::int64_t>(announced);
      }
      target->didReceiveResponse(response);
      if (live() && (ctl & 0x20) && body.size() > 1) {
        const std::size_t half = body.size() / 2;
        target->didReceiveData(Data::copy(body.data(), half));
        if (live()) target->didReceiveData(Data::copy(body.data() + half, body.size() - half));
      } else if (live() && !body.empty()) {
        target->didReceiveData(Data::copy(body));
      }
      if (!live()) continue;
      if (ctl & 0x04) {
        target->didFailWithError(platform::HttpError{"NSURLErrorDomain", -1005, "The network connection was lost."});
      } else {
        const std::size_t before = delegate->finishes.size();
        target->didFinishLoading();
        const bool fullStatus = response.statusCode == 200 || response.statusCode == 206;
        if (fullStatus && announced > body.size() &&
            (delegate->finishes.size() != before + 1 || delegate->finishes.back() != -1)) {
          return "an answer shorter than announced did not end the session with -1";
        }
      }
    } else if (sdk->timer() != 0) {
      rig.device->advance(2.5);
    } else {
      break;
    }
  }
  if (sdk->isAuthing() && !stoppedByHost) {
    if (http->open() || sdk->timer() != 0) {
      sdk->StopAuth();
      stoppedByHost = true;
    }
  }

  if (std::string p = rig.oversizedLog(size); !p.empty()) return p;
  if (delegate->stillRunning) return "onAuthFinish came while the session still ran";
  if (delegate->finishes.size() > 1) return "a session finished more than once";
  for (const int code : delegate->finishes) {
    if (code > 0 || code < -5) return "onAuthFinish with an unknown code " + std::to_string(code);
    if (code == 0 && (lastBody.find("405") == std::string::npos || lastBody.find('\0') != std::string::npos ||
                      nlohmann::json::parse(lastBody, nullptr, false).is_discarded())) {
      return "success without a poll answer of state 405";
    }
  }
  if (!sdk->isAuthing() && !stoppedByHost && delegate->finishes.empty()) return "a session ended without onAuthFinish";
  if (sdk->isAuthing() && !stoppedByHost && rig.logLineWith("connection is nil").empty()) {
    return "a session stalls with nothing pending";
  }
  for (std::size_t i = 0; i < http->urls.size(); ++i) {
    const char* expected = i == 0 ? "https://open.mirelo.app/connect/sdk/qrconnect?"
                                  : "https://long.open.mirelo.app/connect/l/qrconnect?uuid=";
    if (http->urls[i].rfind(expected, 0) != 0) return "a request went to " + http->urls[i];
  }
  sdk.reset();
  return std::string();
}

}  // namespace mirelo::fuzz
