// What a hostile incoming URL costs the host when a log sink is set.
//
// Any app can open the host with a URL of its scheme, and a web page with
// its universal link; the kit logs the URL it does not recognise, with
// every token it quotes replaced by a digest.  The URL here is 1, 4 or
// 16 MiB of "mirelo_auth_token=x&" pieces (the worst case for the
// redaction: one key every 20 bytes), against the same URL with the key
// broken ("mirelo_auth_tokem=x&"), each with and without a block sink:
//   BM_IncomingUrl/<MiB>/<sink 0|1>/<key 0|1>
// Goal: with a sink, the URL with the keys costs at most twice the one
// without them, at every size (the redaction is one pass over a line whose
// values are cut to 16 KiB).
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "mirelo/MRApi.h"
#include "mirelo/URL.h"

namespace {

using namespace mirelo;
using namespace mirelo::bench;

std::string hostileUrl(std::size_t bytes, bool withKey) {
  const std::string piece = withKey ? "mirelo_auth_token=x&" : "mirelo_auth_tokem=x&";
  std::string url = std::string(kAppId) + "://bench/?";
  url.reserve(bytes + piece.size());
  while (url.size() < bytes) url += piece;
  return url;
}

void BM_IncomingUrl(benchmark::State& state) {
  const std::size_t bytes = static_cast<std::size_t>(state.range(0)) * kMiB;
  const bool withSink = state.range(1) != 0;
  const bool withKey = state.range(2) != 0;
  HandOff handOff;
  const std::optional<URL> url = URL::fromString(hostileUrl(bytes, withKey));
  if (!url) {
    state.SkipWithError("not a URL");
    return;
  }
  auto delegate = std::make_shared<MRApiDelegate>();
  std::size_t logged = 0;
  MRApi::stopLog();
  if (withSink) MRApi::startLogByLevel(MRLogLevelNormal, [&logged](const std::string& line) { logged += line.size(); });
  for (auto _ : state) {
    benchmark::DoNotOptimize(MRApi::handleOpenURL(url, delegate));
  }
  MRApi::stopLog();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
  state.counters["logged_bytes_per_iteration"] =
      state.iterations() == 0 ? 0.0 : static_cast<double>(logged) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_IncomingUrl)
    ->ArgsProduct({{1, 4, 16}, {0, 1}, {0, 1}})
    ->ArgNames({"MiB", "sink", "key"})
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.5);

}  // namespace
