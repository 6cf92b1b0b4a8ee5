// No cost when nobody listens: a log line with no sink set is not formatted.
//
// The line is the send pipeline's first one, "send req[%@], appID:%@,
// universalLink:%@, sdkVersion:%@" with a request object and three strings:
//   BM_Log_NoSink      the line with no sink set (goal: a few ns, no
//                      formatting, no allocation)
//   BM_Log_BlockSink   the same line delivered to a block sink
//   BM_Log_FormatOnly  the formatting alone (the reference: what the guard
//                      saves)
// and the whole text share with a block sink (BM_Send_Text is the same
// without one), to show what the log lines of one send cost when a host
// listens.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "util/Format.h"
#include "util/Log.h"

namespace {

using namespace mirelo;
using namespace mirelo::bench;

constexpr const char* kSendLine = "send req[%@], appID:%@, universalLink:%@, sdkVersion:%@";

// Runs `body` with a block sink that counts its lines when `withSink`, and
// with no sink otherwise; the kit's logger is left without a sink.
template <class Body>
void withLogSink(benchmark::State& state, bool withSink, Body&& body) {
  std::int64_t lines = 0;
  MRApi::stopLog();
  if (withSink) MRApi::startLogByLevel(MRLogLevelNormal, [&lines](const std::string&) { ++lines; });
  body();
  MRApi::stopLog();
  state.counters["lines_per_iteration"] =
      state.iterations() == 0 ? 0.0 : static_cast<double>(lines) / static_cast<double>(state.iterations());
}

void logLine(benchmark::State& state, bool withSink) {
  HandOff handOff;  // a kit process with a fresh logger
  const std::shared_ptr<BaseReq> req = textShare();
  const String appId = kAppId;
  const String link = kHostUniversalLink;
  const String sdkVer = "1.9.2";
  withLogSink(state, withSink, [&] {
    for (auto _ : state) mrlog::line(kSendLine, req, appId, link, sdkVer);
  });
}

void BM_Log_NoSink(benchmark::State& state) { logLine(state, false); }
BENCHMARK(BM_Log_NoSink)->Apply(smallCase);

void BM_Log_BlockSink(benchmark::State& state) { logLine(state, true); }
BENCHMARK(BM_Log_BlockSink)->Apply(smallCase);

void BM_Log_FormatOnly(benchmark::State& state) {
  const std::shared_ptr<BaseReq> req = textShare();
  const String appId = kAppId;
  const String link = kHostUniversalLink;
  const String sdkVer = "1.9.2";
  for (auto _ : state) {
    std::string line = format(kSendLine, req, appId, link, sdkVer);
    benchmark::DoNotOptimize(line.data());
  }
}
BENCHMARK(BM_Log_FormatOnly)->Apply(smallCase);

// Without a sink this is BM_Send_Text (send_bench.cc).
void BM_Send_Text_BlockSink(benchmark::State& state) {
  HandOff handOff;
  const auto req = textShare();
  bool ok = true;
  withLogSink(state, true, [&] {
    for (auto _ : state) ok = handOff.send(req) && ok;
  });
  if (!ok) state.SkipWithError("a send did not open the messenger");
}
BENCHMARK(BM_Send_Text_BlockSink)->Apply(smallCase);

}  // namespace
