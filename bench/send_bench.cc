// The send path on the simulated device: from MRApi::sendReq(req, completion)
// to the messenger being opened (its launch handler has run and the
// completion has reported success).  One send covers the record, its binary
// property list on the pasteboard, the command URL, the context id, the
// universal link with the token, and the device routing the launch.
//
// Small: a text share.  Goal: at most 15 us.  Beside it, in the same run,
// the kit's record and pasteboard write alone, and the same pasteboard item
// built and encoded with libplist (the reference).
//
// Large: an image share (a JPEG thumbnail of just under 64 KiB, which the
// kit must decode, and a 25 MiB image; BM_Send_Image_ThumbnailDecode times
// the decoding alone) and file shares of 1 MiB to 256 MiB (1 GiB with
// MIRELO_BENCH_1GIB set).  Goals: time at most 1.3 x one plain copy of the
// payload into fresh memory, peak memory at most 2.1 x the payload.  Beside
// each, the plain copy and the libplist build and encode of the same item.
//
// Large cases time each iteration with the thread's CPU clock and report:
//   payload_MiB     the bytes the request carries
//   peak_x_payload  (payload + the largest resident growth during one
//                   operation) / payload: 2.0 means exactly one copy was
//                   resident besides the payload at the worst moment.
// Between iterations, outside the timing, what an operation produced is
// freed: the kit's pasteboard item (the pasteboard is cleared, and the
// device's log of launches with it), the copy, libplist's tree and
// encoding.  Freeing a large buffer costs about a tenth of filling it; it is
// left out on every side alike.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "mirelo/platform/Platform.h"
#include "record/AppCommunicateData.h"
#include "transport/AppCommunicate.h"

namespace {

using namespace mirelo;
using namespace mirelo::bench;

// ---------------------------------------------------------------------------
// Small: a text share

void BM_Send_Text(benchmark::State& state) {
  HandOff handOff;
  const auto req = textShare();
  bool ok = true;
  for (auto _ : state) ok = handOff.send(req) && ok;
  if (!ok) state.SkipWithError("a send did not open the messenger");
}
BENCHMARK(BM_Send_Text)->Apply(smallCase);

// The record and the pasteboard write alone: what the libplist reference
// does, done by the kit.
void BM_Send_Text_RecordOnly(benchmark::State& state) {
  HandOff handOff;
  const auto req = textShare();
  bool ok = true;
  for (auto _ : state) {
    auto record = std::make_shared<AppCommunicateData>();
    record->sdkVer = "1.9.2";
    record->universalLink = kHostUniversalLink;
    ok = record->ReqToData(req) && AppCommunicate::setAppCommunicateData(record, kAppId) && ok;
  }
  if (!ok) state.SkipWithError("the record was not written");
}
BENCHMARK(BM_Send_Text_RecordOnly)->Apply(smallCase);

void BM_Ref_Libplist_Text(benchmark::State& state) {
  if (!haveLibplist()) return state.SkipWithError("built without libplist");
  HandOff handOff;  // the record reads the device (messenger capabilities)
  const Value item = pasteboardItem(textShare());
  for (auto _ : state) benchmark::DoNotOptimize(LibplistItem(item).encodedSize());
}
BENCHMARK(BM_Ref_Libplist_Text)->Apply(smallCase);

// ---------------------------------------------------------------------------
// Large payloads

// Times `op` once per iteration with the CPU stopwatch, tracks the peak
// resident growth, and runs `between` (untimed) after each iteration.  One
// untimed round goes first: the first large allocation after the payload
// was made may find the system reclaiming memory, a cost of the machine's
// state that would otherwise fall on whichever case runs first.
template <class Op, class Between>
void timeLarge(benchmark::State& state, std::size_t payloadBytes, Op&& op, Between&& between) {
  PeakMeter meter;
  std::size_t growth = 0;
  bool ok = op();
  between();
  for (auto _ : state) {
    meter.reset();
    const CpuStopwatch watch;
    ok = op() && ok;
    state.SetIterationTime(watch.seconds());
    growth = std::max(growth, meter.growth());
    between();
  }
  if (!ok) state.SkipWithError("the operation failed");
  const double payload = static_cast<double>(payloadBytes);
  state.counters["payload_MiB"] = payload / kMiB;
  state.counters["peak_x_payload"] = (payload + static_cast<double>(growth)) / payload;
  if (!meter.resettable()) state.SetLabel("peak not reset: covers earlier cases");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(payloadBytes));
}

// The image share: a 64 KiB thumbnail and a 25 MiB image.
constexpr std::size_t kImageBytes = 25 * kMiB;

void BM_Send_Image25MiB(benchmark::State& state) {
  HandOff handOff;
  const auto req = imageShare(sharedPayload(kImageBytes));
  timeLarge(state, payloadBytes(*req), [&] { return handOff.send(req); }, [&] { handOff.dropLastSend(); });
}

// The part of the image share that does not depend on the image: the
// thumbnail must decode as an image, and the platform's codec decodes it.
void BM_Send_Image_ThumbnailDecode(benchmark::State& state) {
  HandOff handOff;
  const Data thumb = jpegThumbnail(64 * 1024);
  const auto& codec = platform::current().imageCodec;
  bool ok = true;
  for (auto _ : state) ok = codec->decode(thumb) != nullptr && ok;
  if (!ok) state.SkipWithError("the thumbnail does not decode");
  state.counters["thumb_bytes"] = static_cast<double>(thumb.size());
}

void BM_Ref_Libplist_Image25MiB(benchmark::State& state) {
  if (!haveLibplist()) return state.SkipWithError("built without libplist");
  HandOff handOff;
  const auto req = imageShare(sharedPayload(kImageBytes));
  const Value item = pasteboardItem(req);
  std::optional<LibplistItem> kept;
  timeLarge(
      state, payloadBytes(*req), [&] { return kept.emplace(item).encodedSize() > kImageBytes; },
      [&] { kept.reset(); });
}

void BM_Ref_Copy_Image25MiB(benchmark::State& state) {
  const auto req = imageShare(sharedPayload(kImageBytes));
  const Data& thumb = req->message->thumbData;
  const Data image = sharedPayload(kImageBytes);
  Data thumbCopy;
  Data imageCopy;
  timeLarge(
      state, payloadBytes(*req),
      [&] {
        thumbCopy = plainCopy(thumb);
        imageCopy = plainCopy(image);
        return true;
      },
      [&] {
        thumbCopy = Data();
        imageCopy = Data();
      });
}

// File shares by size in MiB.
void BM_Send_File(benchmark::State& state, std::size_t bytes) {
  HandOff handOff;
  const auto req = fileShare(sharedPayload(bytes));
  timeLarge(state, bytes, [&] { return handOff.send(req); }, [&] { handOff.dropLastSend(); });
}

void BM_Ref_Libplist_File(benchmark::State& state, std::size_t bytes) {
  if (!haveLibplist()) return state.SkipWithError("built without libplist");
  HandOff handOff;
  const Value item = pasteboardItem(fileShare(sharedPayload(bytes)));
  std::optional<LibplistItem> kept;
  timeLarge(state, bytes, [&] { return kept.emplace(item).encodedSize() > bytes; }, [&] { kept.reset(); });
}

void BM_Ref_Copy_File(benchmark::State& state, std::size_t bytes) {
  const Data file = sharedPayload(bytes);
  Data copy;
  timeLarge(
      state, bytes,
      [&] {
        copy = plainCopy(file);
        return true;
      },
      [&] { copy = Data(); });
}

// Registered size by size, so that the three cases of one size run together
// and share one payload.  The 1 GiB size needs about 5 GiB at the libplist
// case's peak; it runs only when asked for.
const bool kLargeRegistered = [] {
  const auto large = [](benchmark::internal::Benchmark* b) {
    b->UseManualTime()->Unit(benchmark::kMillisecond)->Repetitions(3);
  };
  large(benchmark::RegisterBenchmark("BM_Send_Image25MiB", BM_Send_Image25MiB));
  large(benchmark::RegisterBenchmark("BM_Ref_Libplist_Image25MiB", BM_Ref_Libplist_Image25MiB));
  large(benchmark::RegisterBenchmark("BM_Ref_Copy_Image25MiB", BM_Ref_Copy_Image25MiB));
  benchmark::RegisterBenchmark("BM_Send_Image_ThumbnailDecode", BM_Send_Image_ThumbnailDecode)
      ->Unit(benchmark::kMillisecond)
      ->Repetitions(3);

  std::vector<std::size_t> sizes = {1, 4, 16, 64, 256};
  if (std::getenv("MIRELO_BENCH_1GIB") != nullptr) sizes.push_back(1024);
  for (const std::size_t mib : sizes) {
    // Appended, not "/" + ...: gcc 12 warns falsely (-Wrestrict) on that
    // form at -O3.
    std::string suffix = "/";
    suffix += std::to_string(mib);
    large(benchmark::RegisterBenchmark(("BM_Send_File" + suffix).c_str(), BM_Send_File, mib * kMiB));
    large(benchmark::RegisterBenchmark(("BM_Ref_Libplist_File" + suffix).c_str(), BM_Ref_Libplist_File, mib * kMiB));
    large(benchmark::RegisterBenchmark(("BM_Ref_Copy_File" + suffix).c_str(), BM_Ref_Copy_File, mib * kMiB));
  }
  return true;
}();

}  // namespace
