// A sequence of actions on the simulated device, read from one input, with
// the host's invariants checked after every step.  The host is registered
// and wired as an app is (every URL that opens it goes to the kit with one
// delegate), the messenger peer is installed and answers, and a third app
// sends whatever it likes.  Each step is one byte of action and its
// arguments:
//   0 send     the host sends a share, a sign-in or a payment (next byte;
//              its high bit: with a result handler, MRApi::sendWithResult)
//   1 forged   another app opens the host with the URL up to "\n"
//   2 paste    another app writes the pasteboard: the bytes up to "\n" as
//              the "content" item, or as text (next byte's low bit)
//   3 relaunch the host is killed and launched again (registered anew)
//   4 time     the clock moves by the next byte tenths of a second
//   5 answer   the messenger's outcome for later requests (next byte)
//   6 drain    the run loop runs until idle
//   7 resp     the host answers with sendResp (a share response)
// Checked after every step, besides crashes:
//   - a response the messenger caused is of a class the host's requests
//     ask for, in this process or before a relaunch (another app's forged
//     URLs are not judged here);
//   - no send completion runs twice, and none gets lost past a drain;
//   - no request gets more than one result, and an answer in a result is of
//     the request's own response class;
//   - no object handed to the host is null;
//   - the messenger's tokens never reach a log line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/harness/Input.h"
#include "fuzz/harness/Rig.h"
#include "mirelo/MRApi.h"
#include "mirelo/MRResult.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/MessengerPeer.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::fuzz {

class StatefulRig {
 public:
  static constexpr const char* kAppId = Rig::kAppId;
  static constexpr const char* kHostBundleId = Rig::kHostBundleId;
  static constexpr const char* kUniversalLink = Rig::kUniversalLink;
  static constexpr const char* kEvilBundleId = "com.example.evil";

  class Delegate : public MRApiDelegate {
   public:
    void onReq(const std::shared_ptr<BaseReq>& req) override {
      if (!req) problem = "onReq was handed null";
    }
    void onResp(const std::shared_ptr<BaseResp>& resp) override {
      if (!resp) {
        problem = "onResp was handed null";
        return;
      }
      if (fromMessenger) messengerResps.push_back(resp->className());
    }
    bool fromMessenger = false;
    std::vector<std::string> messengerResps;
    std::string problem;
  };

  StatefulRig() {
    device = sim::SimDevice::create();
    host = &Rig::installHost(*device);
    sim::AppManifest evil;
    evil.bundleId = kEvilBundleId;
    evil.infoPlist = sim::AppManifest::makeInfoPlist({"evil"}, {kAppId});
    device->install(evil);
    peer = sim::MessengerPeer::install(*device);
    previous_ = platform::setCurrent(host->platform());
    host->onOpenURL([this](const sim::OpenContext& context) {
      delegate->fromMessenger = context.sourceBundleId == sim::MessengerPeer::kDefaultBundleId;
      const std::optional<URL> url = URL::fromString(context.url);
      if (context.viaUniversalLink) {
        UserActivity activity;
        activity.activityType = NSUserActivityTypeBrowsingWeb;
        activity.webpageURL = url;
        MRApi::handleOpenUniversalLink(activity, delegate);
      } else {
        MRApi::handleOpenURL(url, delegate);
      }
      delegate->fromMessenger = false;
    });
  }

  ~StatefulRig() {
    host->onOpenURL(nullptr);
    platform::resetProcessState();
    platform::setCurrent(previous_);
  }

  void launch() {
    device->relaunch(kHostBundleId);
    device->runKitAs(kHostBundleId);
    logs.clear();
    MRApi::startLogByLevel(MRLogLevelDetail, [this](const std::string& line) { logs.push_back(line); });
    MRApi::registerApp(kAppId, kUniversalLink);
    delegate = std::make_shared<Delegate>();
    // The requests sent stay: an answer may reach the relaunched host.
    completions = std::make_shared<std::vector<int>>();
    results = std::make_shared<std::vector<int>>();
  }

  std::shared_ptr<sim::SimDevice> device;
  sim::SimApp* host = nullptr;
  std::shared_ptr<sim::MessengerPeer> peer;
  std::shared_ptr<Delegate> delegate;
  std::vector<std::string> logs;
  // The response classes of the requests sent during this input (by any
  // process of the host: an answer may come back after a relaunch).
  std::set<std::string> sent;
  // The messenger's tokens issued before this input (the peer keeps them
  // all; only this input's are looked for).
  std::size_t tokensBefore = 0;
  // Per send of this process, how often its completion ran.
  std::shared_ptr<std::vector<int>> completions;
  // Per send with a result handler in this process, how many results came.
  std::shared_ptr<std::vector<int>> results;
  // A wrong result, described.
  std::string resultProblem;
  bool insideSend = false;

 private:
  std::shared_ptr<platform::Platform> previous_;
};

inline std::shared_ptr<BaseReq> statefulRequest(std::uint8_t kind, std::string* respClass) {
  switch (kind % 3) {
    case 0: {
      auto req = std::make_shared<SendMessageToMRReq>();
      req->bText = true;
      req->text = "hello";
      *respClass = "SendMessageToMRResp";
      return req;
    }
    case 1: {
      auto req = std::make_shared<SendAuthReq>();
      req->scope = "snsapi_userinfo";
      req->state = "st";
      *respClass = "SendAuthResp";
      return req;
    }
    default: {
      auto req = std::make_shared<PayReq>();
      req->partnerId = "p";
      req->prepayId = "pp";
      req->nonceStr = "n";
      req->timeStamp = 1;
      req->package = "Sign=MRPay";
      req->sign = "s";
      *respClass = "PayResp";
      return req;
    }
  }
}

inline sim::Outcome statefulOutcome(std::uint8_t b) {
  switch (b % 6) {
    case 0: return sim::Outcome::success();
    case 1: return sim::Outcome::cancel();
    case 2: return sim::Outcome::deny();
    case 3: return sim::Outcome::noAnswer();
    case 4: return sim::Outcome::success().by(sim::AnswerRoute::Scheme).after(1.0);
    default: return sim::Outcome::success().recordInstead();
  }
}

inline std::string statefulCheck(StatefulRig& rig, std::size_t step) {
  const std::string at = " (step " + std::to_string(step) + ")";
  if (!rig.delegate->problem.empty()) return rig.delegate->problem + at;
  if (!rig.resultProblem.empty()) return rig.resultProblem + at;
  for (int n : *rig.results) {
    if (n > 1) return "a request got " + std::to_string(n) + " results" + at;
  }
  for (const std::string& cls : rig.delegate->messengerResps) {
    if (!rig.sent.contains(cls)) return "the messenger's answer came as " + cls + ", which no request asks for" + at;
  }
  for (int n : *rig.completions) {
    if (n > 1) return "a send completion ran " + std::to_string(n) + " times" + at;
  }
  const auto& tokens = rig.peer->issuedTokens();
  for (std::size_t t = rig.tokensBefore; t < tokens.size(); ++t) {
    const std::string& token = tokens[t];
    if (token.empty()) continue;
    for (const std::string& line : rig.logs) {
      if (line.find(token) != std::string::npos) return "a token was logged: " + line + at;
    }
  }
  return std::string();
}

// Sends `req` with a result handler that counts its results and checks the
// class of the response an answer carries.
inline void sendWithResult(StatefulRig& rig, const std::shared_ptr<BaseReq>& req, const std::string& respClass) {
  const std::size_t index = rig.results->size();
  rig.results->push_back(0);
  const std::weak_ptr<std::vector<int>> counts = rig.results;
  rig.insideSend = true;
  MRApi::sendWithResult(req, [&rig, counts, index, respClass](const MRAnyResult& result) {
    const auto c = counts.lock();
    if (!c) {
      rig.resultProblem = "a result reached a handler of an earlier process";
      return;
    }
    ++(*c)[index];
    if (rig.insideSend) rig.resultProblem = "a result handler ran inside the call that sent its request";
    std::shared_ptr<BaseResp> resp;
    if (const auto* a = std::get_if<MRAnswered<BaseResp>>(&result)) {
      if (!a->resp) rig.resultProblem = "an answered result without its response";
      resp = a->resp;
    } else if (const auto* k = std::get_if<MRCancelled<BaseResp>>(&result)) {
      resp = k->resp;
    } else if (const auto* f = std::get_if<MRFailed<BaseResp>>(&result)) {
      resp = f->resp;
    }
    if (resp && resp->className() != respClass) {
      rig.resultProblem = "a " + respClass + " request's result carried a " + resp->className();
    }
  });
  rig.insideSend = false;
}

inline std::string runStateful(StatefulRig& rig, const std::uint8_t* data, std::size_t size) {
  rig.sent.clear();
  rig.resultProblem.clear();
  rig.tokensBefore = rig.peer->issuedTokens().size();
  rig.launch();
  rig.peer->clearScripts();
  rig.peer->setDefaultOutcome(sim::Outcome::success());
  rig.device->setPasteboardData(Data(), "content");
  rig.device->clearOpenLog();
  Input in(data, size);
  constexpr std::size_t kMaxSteps = 48;
  for (std::size_t step = 0; step < kMaxSteps && !in.empty(); ++step) {
    switch (in.byte() % 8) {
      case 0: {
        std::string respClass;
        const std::uint8_t kind = in.byte();
        const auto req = statefulRequest(kind, &respClass);
        rig.sent.insert(respClass);
        if (kind & 0x80u) {
          sendWithResult(rig, req, respClass);
          break;
        }
        const std::size_t index = rig.completions->size();
        rig.completions->push_back(0);
        const std::weak_ptr<std::vector<int>> counts = rig.completions;
        MRApi::sendReq(req, [counts, index](bool) {
          if (const auto c = counts.lock()) ++(*c)[index];
        });
        break;
      }
      case 1:
        rig.device->openURL(std::string(in.line()), StatefulRig::kEvilBundleId);
        break;
      case 2: {
        const bool asText = in.byte() & 1u;
        const std::string_view bytes = in.line();
        if (asText) rig.device->setPasteboardString(std::string(bytes));
        else rig.device->setPasteboardData(Data::copy(bytes), "content");
        break;
      }
      case 3:
        rig.launch();
        break;
      case 4:
        rig.device->advance(in.byte() / 10.0);
        break;
      case 5:
        rig.peer->setDefaultOutcome(statefulOutcome(in.byte()));
        break;
      case 6:
        rig.device->runUntilIdle();
        break;
      default: {
        auto resp = std::make_shared<SendMessageToMRResp>();
        resp->errCode = 0;
        const std::size_t index = rig.completions->size();
        rig.completions->push_back(0);
        const std::weak_ptr<std::vector<int>> counts = rig.completions;
        MRApi::sendResp(resp, [counts, index](bool) {
          if (const auto c = counts.lock()) ++(*c)[index];
        });
        break;
      }
    }
    if (std::string p = statefulCheck(rig, step); !p.empty()) return p;
  }
  // Everything pending runs: every completion of this process has run once.
  rig.device->advance(5.0);
  rig.device->runUntilIdle();
  if (std::string p = statefulCheck(rig, kMaxSteps); !p.empty()) return p;
  for (int n : *rig.completions) {
    if (n != 1) return "a send completion was lost";
  }
  return std::string();
}

}  // namespace mirelo::fuzz
