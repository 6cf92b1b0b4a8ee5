// Cold start: the first MRApi::registerApp and the first send after the host
// app is relaunched (SimDevice::relaunch resets the kit's process state:
// registration, logger, shared handlers, device caches), against the same
// calls in a warm process.
//
// Every case here times only the call itself with the thread's CPU clock;
// the relaunch (and, for the first send, the registration) happens before
// the stopwatch starts and is left out of the instruction counts.  The warm
// cases use the same stopwatch so that the cold / warm ratio compares like
// with like.
#include <benchmark/benchmark.h>

#include "bench/bench_support.h"

namespace {

using namespace mirelo;
using namespace mirelo::bench;

void manual(benchmark::internal::Benchmark* b) {
  b->UseManualTime()->Unit(benchmark::kMicrosecond);
  smallCase(b);
}

void BM_Cold_RegisterApp(benchmark::State& state) {
  HandOff handOff;
  bool ok = true;
  for (auto _ : state) {
    untimed([&] { handOff.relaunchHost(); });
    const CpuStopwatch watch;
    ok = HandOff::registerHost() && ok;
    state.SetIterationTime(watch.seconds());
  }
  if (!ok) state.SkipWithError("registration failed");
}
BENCHMARK(BM_Cold_RegisterApp)->Apply(manual);

void BM_Warm_RegisterApp(benchmark::State& state) {
  HandOff handOff;
  bool ok = true;
  for (auto _ : state) {
    const CpuStopwatch watch;
    ok = HandOff::registerHost() && ok;
    state.SetIterationTime(watch.seconds());
  }
  if (!ok) state.SkipWithError("registration failed");
}
BENCHMARK(BM_Warm_RegisterApp)->Apply(manual);

void BM_Cold_FirstSend(benchmark::State& state) {
  HandOff handOff;
  const auto req = textShare();
  bool ok = true;
  for (auto _ : state) {
    untimed([&] {
      handOff.relaunchHost();
      ok = HandOff::registerHost() && ok;
    });
    const CpuStopwatch watch;
    ok = handOff.send(req) && ok;
    state.SetIterationTime(watch.seconds());
  }
  if (!ok) state.SkipWithError("a first send did not open the messenger");
}
BENCHMARK(BM_Cold_FirstSend)->Apply(manual);

void BM_Warm_Send(benchmark::State& state) {
  HandOff handOff;
  const auto req = textShare();
  bool ok = true;
  for (auto _ : state) {
    const CpuStopwatch watch;
    ok = handOff.send(req) && ok;
    state.SetIterationTime(watch.seconds());
  }
  if (!ok) state.SkipWithError("a send did not open the messenger");
}
BENCHMARK(BM_Warm_Send)->Apply(manual);

}  // namespace
