// The answer path: from MRApi::handleOpenURL(url, delegate) to the
// delegate's onResp.  Goal: at most 10 us for each kind of answer.
//
// The answers are the messenger's own: each is captured once from the
// messenger peer answering a real send on a device of its own (the URL that
// opened the host, and the pasteboard item it wrote), then replayed on the
// benchmark's device:
//   Record  a text share answered with a send-message response (command
//           2020) on the pasteboard; the URL is the host's universal link.
//           The item is planted again before every call (the read clears
//           it); BM_Answer_Fixture_Plant shows what that costs on its own.
//   OAuth   a sign-in answered with the "oauth" URL (code, state, lang,
//           country in the query).
//   Pay     a payment answered with the "pay" URL.
// References in the same run: the record answer's item decoded with
// libplist; for the URL answers, the URL parsed with uriparser and its query
// split into pairs (what any reader of the answer has to do at least).
#include <benchmark/benchmark.h>

#include <uriparser/Uri.h>

#include <optional>
#include <string>

#include "bench/bench_support.h"
#include "mirelo/URL.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/MessengerPeer.h"

#ifdef MIRELO_HAVE_LIBPLIST
#include <plist/plist.h>
#endif

namespace {

using namespace mirelo;
using namespace mirelo::bench;

// What the messenger answered with.
struct Answer {
  std::string url;
  Data pasteboardItem;  // the "content" item, null when the answer is a URL only
};

// Sends `req` on a device with the messenger peer and keeps the last URL
// that opened the host and the pasteboard item at that moment.
Answer captureAnswer(const std::shared_ptr<BaseReq>& req) {
  Answer answer;
  auto device = sim::SimDevice::create();
  device->install(hostManifest()).onOpenURL([&answer, &device](const sim::OpenContext& context) {
    answer.url = context.url;
    answer.pasteboardItem = device->pasteboardData(sim::MessengerPeer::kPasteboardType);
  });
  auto peer = sim::MessengerPeer::install(*device);
  sim::TokenPolicy policy;
  policy.action = sim::TokenPolicy::Action::Proceed;  // answer at once, no token round
  peer->setTokenPolicy(policy);
  device->runKitAs(kHostBundleId);
  platform::resetProcessState();
  HandOff::registerHost();
  MRApi::sendReq(req, nullptr);
  device->runUntilIdle();
  platform::resetProcessState();
  return answer;
}

// Counts the responses it is handed.
class CountingDelegate : public MRApiDelegate {
 public:
  void onResp(const std::shared_ptr<BaseResp>& resp) override {
    if (resp) ++responses;
  }
  std::int64_t responses = 0;
};

std::shared_ptr<SendAuthReq> signIn() {
  auto req = std::make_shared<SendAuthReq>();
  req->scope = "snsapi_userinfo";
  req->state = "bench_state_42";
  return req;
}

std::shared_ptr<PayReq> payment() {
  auto req = std::make_shared<PayReq>();
  req->partnerId = "1900000109";
  req->prepayId = "mr201410272009395522657a690389285100";
  req->nonceStr = "5K8264ILTKCH16CQ2502SI8ZNMTM67VS";
  req->timeStamp = 1412000000;
  req->package = "Sign=MireloPay";
  req->sign = "C380BEC2BFD727A4B6845133519F3AD6";
  return req;
}

// Replays `answer` on a fresh device `state.iterations()` times; every call
// must deliver exactly one response.
void replay(benchmark::State& state, const Answer& answer) {
  HandOff handOff;
  const std::optional<URL> url = URL::fromString(answer.url);
  if (!url) return state.SkipWithError("the captured URL does not parse");
  auto delegate = std::make_shared<CountingDelegate>();
  sim::SimDevice& device = handOff.device();
  bool ok = true;
  if (answer.pasteboardItem.isNull()) {
    for (auto _ : state) ok = MRApi::handleOpenURL(url, delegate) && ok;
  } else {
    for (auto _ : state) {
      device.setPasteboardData(answer.pasteboardItem, sim::MessengerPeer::kPasteboardType);
      ok = MRApi::handleOpenURL(url, delegate) && ok;
    }
  }
  if (!ok || delegate->responses != static_cast<std::int64_t>(state.iterations())) {
    state.SkipWithError("an answer was not delivered");
  }
}

const Answer& recordAnswer() {
  static const Answer answer = captureAnswer(textShare());
  return answer;
}
const Answer& oauthAnswer() {
  static const Answer answer = captureAnswer(signIn());
  return answer;
}
const Answer& payAnswer() {
  static const Answer answer = captureAnswer(payment());
  return answer;
}

void BM_Answer_Record(benchmark::State& state) {
  if (recordAnswer().pasteboardItem.empty()) return state.SkipWithError("the messenger wrote no record");
  replay(state, recordAnswer());
}
BENCHMARK(BM_Answer_Record)->Apply(smallCase);

void BM_Answer_OAuthUrl(benchmark::State& state) {
  Answer answer = oauthAnswer();
  answer.pasteboardItem = Data();
  replay(state, answer);
}
BENCHMARK(BM_Answer_OAuthUrl)->Apply(smallCase);

void BM_Answer_PayUrl(benchmark::State& state) {
  Answer answer = payAnswer();
  answer.pasteboardItem = Data();
  replay(state, answer);
}
BENCHMARK(BM_Answer_PayUrl)->Apply(smallCase);

// The planting that BM_Answer_Record repeats before every call.
void BM_Answer_Fixture_Plant(benchmark::State& state) {
  HandOff handOff;
  const Data item = recordAnswer().pasteboardItem;
  for (auto _ : state) handOff.device().setPasteboardData(item, sim::MessengerPeer::kPasteboardType);
}
BENCHMARK(BM_Answer_Fixture_Plant)->Apply(smallCase);

// ---- references ------------------------------------------------------------

void BM_Ref_Libplist_DecodeAnswer(benchmark::State& state) {
#ifdef MIRELO_HAVE_LIBPLIST
  const Data item = recordAnswer().pasteboardItem;
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(item.bytes()), static_cast<std::uint32_t>(item.size()), &root);
    benchmark::DoNotOptimize(root);
    plist_free(root);
  }
  state.counters["bytes"] = static_cast<double>(item.size());
#else
  state.SkipWithError("built without libplist");
#endif
}
BENCHMARK(BM_Ref_Libplist_DecodeAnswer)->Apply(smallCase);

// Parses `text` as a URI and splits its query into pairs; the pair count.
int parseAndSplit(const std::string& text) {
  UriUriA uri{};
  const char* error = nullptr;
  if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &error) != URI_SUCCESS) return -1;
  UriQueryListA* pairs = nullptr;
  int count = 0;
  if (uri.query.first != nullptr &&
      uriDissectQueryMallocA(&pairs, &count, uri.query.first, uri.query.afterLast) == URI_SUCCESS) {
    uriFreeQueryListA(pairs);
  }
  uriFreeUriMembersA(&uri);
  return count;
}

void BM_Ref_Uriparser_OAuthUrl(benchmark::State& state) {
  const std::string text = oauthAnswer().url;
  for (auto _ : state) benchmark::DoNotOptimize(parseAndSplit(text));
  state.counters["pairs"] = parseAndSplit(text);
}
BENCHMARK(BM_Ref_Uriparser_OAuthUrl)->Apply(smallCase);

void BM_Ref_Uriparser_PayUrl(benchmark::State& state) {
  const std::string text = payAnswer().url;
  for (auto _ : state) benchmark::DoNotOptimize(parseAndSplit(text));
  state.counters["pairs"] = parseAndSplit(text);
}
BENCHMARK(BM_Ref_Uriparser_PayUrl)->Apply(smallCase);

}  // namespace
