// The hand-off's first half on the simulated device: a request converted
// into its record and written onto the general pasteboard.
//
// Small: a text share.  Large: a file share carrying a 256 MiB payload; the
// payload should be copied once (into the binary property list), so the
// peak resident memory stays near twice the payload, and the time near one
// copy of the payload into fresh memory (the reference row).
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "bench/bench_memory.h"
#include "mirelo/MRApi.h"
#include "mirelo/model/Model.h"
#include "mirelo/sim/SimDevice.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"

namespace {

using namespace mirelo;

constexpr const char* kAppId = "mr0123456789abcdef";
constexpr std::size_t kPayload = std::size_t{256} << 20;

std::shared_ptr<sim::SimDevice> makeDevice() {
  auto device = sim::SimDevice::create();
  sim::AppManifest host;
  host.bundleId = "com.example.host";
  host.infoPlist = sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
  device->install(host);
  device->runKitAs("com.example.host");
  return device;
}

bool writeRecord(const std::shared_ptr<BaseReq>& req) {
  auto record = std::make_shared<AppCommunicateData>();
  record->sdkVer = "1.9.2";
  record->universalLink = "https://host.example.com/mirelo/";
  return record->ReqToData(req) && AppCommunicate::setAppCommunicateData(record, kAppId);
}

void BM_TextShareToPasteboard(benchmark::State& state) {
  auto device = makeDevice();
  auto req = std::make_shared<SendMessageToMRReq>();
  req->bText = true;
  req->text = "A short message for a friend";
  for (auto _ : state) benchmark::DoNotOptimize(writeRecord(req));
}
BENCHMARK(BM_TextShareToPasteboard);

void BM_CopyPayloadReference_256MiB(benchmark::State& state) {
  Data payload = Data::build(kPayload, [](std::uint8_t* p) { std::memset(p, 7, kPayload); });
  for (auto _ : state) {
    Data copy = Data::copy(payload.bytes(), payload.size());
    benchmark::DoNotOptimize(copy.bytes());
  }
}
BENCHMARK(BM_CopyPayloadReference_256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FileShareToPasteboard_256MiB(benchmark::State& state) {
  auto device = makeDevice();
  auto file = MRFileObject::object();
  file->fileExtension = "bin";
  file->fileData = Data::build(kPayload, [](std::uint8_t* p) { std::memset(p, 7, kPayload); });
  auto req = std::make_shared<SendMessageToMRReq>();
  req->message = MRMediaMessage::message();
  req->message->title = "archive";
  req->message->mediaObject = file;
  const bool reset = bench::resetPeak();
  const std::size_t before = bench::currentResident();
  for (auto _ : state) {
    benchmark::DoNotOptimize(writeRecord(req));
    state.PauseTiming();
    device->setPasteboardString("");  // drop the previous item before the next write
    state.ResumeTiming();
  }
  const double peak = static_cast<double>(bench::peakResident());
  state.counters["peak_x_payload"] = peak / static_cast<double>(kPayload);
  state.counters["extra_x_payload"] = (peak - static_cast<double>(before)) / static_cast<double>(kPayload);
  if (!reset) state.SetLabel("peak not reset: covers earlier cases");
}
BENCHMARK(BM_FileShareToPasteboard_256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
