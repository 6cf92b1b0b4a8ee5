// Speed and memory of the binary property-list codec.
//
// Small: an app data record of about 20 short string, number and boolean
// keys, encoded and decoded by the kit's codec and, side by side, by libplist.
// Goals: encode <= 2 us, decode <= 1 us.
//
// Large: a record carrying a 256 MiB data payload.  The reference is copying
// the payload into a fresh buffer; encoding should take at most 1.2 times
// that and peak at no more than 2.05 times the payload in resident memory
// (payload + output); decoding must not copy the payload at all.  The peak is
// the process's resident high-water mark (VmHWM), reset before each case
// where the system allows it; reported in the counters peak_MiB and
// peak_x_payload.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "bench/bench_memory.h"
#include "util/BinaryPlist.h"

#ifdef MIRELO_HAVE_LIBPLIST
#include <plist/plist.h>

#include <cstdlib>
#endif

namespace {

using mirelo::Data;
using mirelo::Dictionary;
using mirelo::Value;

constexpr std::size_t kPayloadSize = std::size_t{256} << 20;

Value smallRecord() {
  return Value(Dictionary{
      {"command", Value(1010)},
      {"appId", Value("mr0123456789abcdef")},
      {"sdkver", Value("1.9.2")},
      {"universalLink", Value("https://host.example.com/mirelo/")},
      {"bundleId", Value("com.example.host")},
      {"result", Value("1")},
      {"returnFromApp", Value(false)},
      {"isAutoResend", Value(true)},
      {"scene", Value(0)},
      {"objectType", Value(2)},
      {"title", Value("Weekend photos")},
      {"description", Value("Three pictures")},
      {"messageAction", Value("open")},
      {"messageExt", Value("ext")},
      {"mediaTagName", Value("tag")},
      {"errCode", Value(-2)},
      {"errStr", Value("cancelled")},
      {"timestamp", Value(1718000000)},
      {"ratio", Value(1.5)},
      {"lang", Value("en")},
  });
}

Value bigRecord(const Data& payload) {
  Dictionary d = *smallRecord().asDictionary();
  d.set("fileData", Value(payload));
  return Value(std::move(d));
}

const Data& payload() {
  static const Data p = Data::build(kPayloadSize, [](std::uint8_t* out) {
    for (std::size_t i = 0; i < kPayloadSize; ++i) out[i] = static_cast<std::uint8_t>(i * 131);
  });
  return p;
}

using mirelo::bench::peakResident;
using mirelo::bench::resetPeak;

void reportPeak(benchmark::State& state, bool reset) {
  const double peak = static_cast<double>(peakResident());
  state.counters["peak_MiB"] = peak / (1 << 20);
  state.counters["peak_x_payload"] = peak / static_cast<double>(kPayloadSize);
  if (!reset) state.SetLabel("peak not reset: covers earlier cases");
}

// ---------------------------------------------------------------------------
// Small record

void BM_Mirelo_EncodeRecord(benchmark::State& state) {
  const Value v = smallRecord();
  for (auto _ : state) {
    Data d = mirelo::bplist::encode(v);
    benchmark::DoNotOptimize(d);
  }
}
BENCHMARK(BM_Mirelo_EncodeRecord);

void BM_Mirelo_DecodeRecord(benchmark::State& state) {
  const Data bytes = mirelo::bplist::encode(smallRecord());
  for (auto _ : state) {
    Value v = mirelo::bplist::decode(bytes);
    benchmark::DoNotOptimize(v);
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_Mirelo_DecodeRecord);

#ifdef MIRELO_HAVE_LIBPLIST

plist_t toPlist(const Value& v) {
  switch (v.type()) {
    case Value::Type::Bool: return plist_new_bool(*v.asBool() ? 1 : 0);
    case Value::Type::Int: return plist_new_uint(static_cast<std::uint64_t>(*v.asInt()));
    case Value::Type::Real: return plist_new_real(*v.asReal());
    case Value::Type::String: return plist_new_string(v.asString()->c_str());
    case Value::Type::Dictionary: {
      plist_t d = plist_new_dict();
      for (const auto& [k, e] : *v.asDictionary()) plist_dict_set_item(d, k.c_str(), toPlist(e));
      return d;
    }
    default: return nullptr;  // not used by these records
  }
}

void BM_Libplist_EncodeRecord(benchmark::State& state) {
  plist_t p = toPlist(smallRecord());
  for (auto _ : state) {
    char* bin = nullptr;
    std::uint32_t len = 0;
    plist_to_bin(p, &bin, &len);
    benchmark::DoNotOptimize(bin);
    std::free(bin);
  }
  plist_free(p);
}
BENCHMARK(BM_Libplist_EncodeRecord);

void BM_Libplist_DecodeRecord(benchmark::State& state) {
  const Data bytes = mirelo::bplist::encode(smallRecord());
  for (auto _ : state) {
    plist_t p = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.bytes()), static_cast<std::uint32_t>(bytes.size()), &p);
    benchmark::DoNotOptimize(p);
    plist_free(p);
  }
}
BENCHMARK(BM_Libplist_DecodeRecord);

#endif  // MIRELO_HAVE_LIBPLIST

// ---------------------------------------------------------------------------
// 256 MiB payload

void BM_Reference_CopyPayload(benchmark::State& state) {
  const Data& p = payload();
  const bool reset = resetPeak();
  for (auto _ : state) {
    Data copy = Data::copy(p.bytes(), p.size());
    benchmark::DoNotOptimize(copy);
  }
  reportPeak(state, reset);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kPayloadSize));
}
BENCHMARK(BM_Reference_CopyPayload)->Iterations(8)->Unit(benchmark::kMillisecond);

void BM_Mirelo_EncodeBigRecord(benchmark::State& state) {
  const Value v = bigRecord(payload());
  const bool reset = resetPeak();
  for (auto _ : state) {
    Data d = mirelo::bplist::encode(v);
    if (d.size() < kPayloadSize) state.SkipWithError("encoding failed");
    benchmark::DoNotOptimize(d);
  }
  reportPeak(state, reset);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kPayloadSize));
}
BENCHMARK(BM_Mirelo_EncodeBigRecord)->Iterations(8)->Unit(benchmark::kMillisecond);

void BM_Mirelo_DecodeBigRecord(benchmark::State& state) {
  const Data bytes = mirelo::bplist::encode(bigRecord(payload()));
  const bool reset = resetPeak();
  bool shared = true;
  for (auto _ : state) {
    Value v = mirelo::bplist::decode(bytes);
    const Data* d = v.isDictionary() ? v.asDictionary()->mrApi_dataForKey("fileData") : nullptr;
    shared = shared && d && d->size() == kPayloadSize && d->sharesStorageWith(bytes);
    benchmark::DoNotOptimize(v);
  }
  if (!shared) state.SkipWithError("the payload was copied (or lost)");
  state.counters["payload_copied"] = shared ? 0 : 1;
  reportPeak(state, reset);
}
BENCHMARK(BM_Mirelo_DecodeBigRecord)->Iterations(8)->Unit(benchmark::kMicrosecond);

}  // namespace
