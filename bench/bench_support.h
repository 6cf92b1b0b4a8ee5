// Shared set-up of the hand-off benchmarks.
//
//   HandOff     a simulated device with the host app (the kit runs as it,
//               registered, with a token in its keychain) and the messenger
//               app, which only counts its launches: what a send costs ends
//               where the messenger is opened.
//   requests    a text share, an image share (a JPEG thumbnail of just
//               under 64 KiB and a 25 MiB image) and file shares of any size.
//   references  the same record built and encoded with libplist, and a
//               plain copy of the payload into fresh memory.
//   timing      a CPU stopwatch for cases that time only part of an
//               iteration (the machine is shared, so CPU time is what the
//               report compares), and the switch that fixes iteration
//               counts for the instruction-count runs under callgrind.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <type_traits>

#include "mirelo/Data.h"
#include "mirelo/MRApi.h"
#include "mirelo/Value.h"
#include "mirelo/model/Model.h"
#include "mirelo/sim/SimDevice.h"

namespace mirelo::bench {

inline constexpr const char* kAppId = "mr0123456789abcdef";
inline constexpr const char* kHostBundleId = "com.example.host";
inline constexpr const char* kHostUniversalLink = "https://host.example.com/mirelo/";
inline constexpr const char* kMessengerBundleId = "com.mirelo.messenger";
inline constexpr const char* kToken = "mrbench_token_0001";
inline constexpr std::size_t kMiB = std::size_t{1} << 20;

// ---- the device --------------------------------------------------------

// The host app as a correct integration installs it: its own scheme (the
// app id), the messenger's schemes among its query schemes, and its
// universal link claimed.
sim::AppManifest hostManifest();
// The messenger's schemes and universal links, as installed.
sim::AppManifest messengerManifest();

// A simulated device on which the kit runs as the registered host, with a
// token from an earlier hand-off in the keychain (the steady state of a
// host that has talked to the messenger before), so that every send goes by
// universal link with the token and a fresh context id.  The kit's process
// state is reset on construction and destruction.
class HandOff {
 public:
  HandOff();
  ~HandOff();
  HandOff(const HandOff&) = delete;
  HandOff& operator=(const HandOff&) = delete;

  // MRApi::sendReq, then runs the device until it is idle.  True when the
  // completion reported success and the messenger was opened exactly once.
  bool send(const std::shared_ptr<BaseReq>& req);
  // Registers the host (MRApi::registerApp with the default app id and
  // universal link).
  static bool registerHost();
  // Simulates the host app's relaunch: its pending work goes, and the kit's
  // process state is reset (registration included); the keychain stays.
  void relaunchHost();
  // Drops what the last sends left on the device: the record on the
  // pasteboard (replaced by a plain text) and the device's log of launches,
  // so that the next send starts from the same memory.
  void dropLastSend();

  sim::SimDevice& device() { return *device_; }
  int messengerOpens() const { return messengerOpens_; }

 private:
  std::shared_ptr<sim::SimDevice> device_;
  int messengerOpens_ = 0;
  int sends_ = 0;
};

// ---- requests ----------------------------------------------------------

std::shared_ptr<SendMessageToMRReq> textShare();
// A media share: title, description, a JPEG thumbnail of at most 64 KiB
// (it must decode as an image) and an image object holding `image`.
std::shared_ptr<SendMessageToMRReq> imageShare(const Data& image);
// A file share carrying `file` as its file data.
std::shared_ptr<SendMessageToMRReq> fileShare(const Data& file);
// `bytes` of a repeating pattern, written (so the pages are resident).
Data payload(std::size_t bytes);
// payload(bytes), kept for the next caller that asks for the same size (one
// payload is kept at a time, so that the cases of one size share it).
Data sharedPayload(std::size_t bytes);
// A JPEG of at most `maxBytes`, as large as the encoder makes it below that.
Data jpegThumbnail(std::size_t maxBytes);
// The bytes of a request's payload that a send must carry (thumbnail and
// object data).
std::size_t payloadBytes(const SendMessageToMRReq& req);

// The pasteboard item the kit writes for `req`: {app id: record}, the record
// filled as the send pipeline fills it for a universal-link launch.
Value pasteboardItem(const std::shared_ptr<BaseReq>& req);

// ---- references ----------------------------------------------------------

// Whether libplist is linked in (MIRELO_HAVE_LIBPLIST).
bool haveLibplist();

// `item` built as a libplist tree and encoded in the binary format (building
// copies every string and data, as libplist's constructors do).  Tree and
// encoding are freed with the object, so that a large case can leave the
// freeing out of its timing, as the kit's pasteboard item outlives a send.
class LibplistItem {
 public:
  explicit LibplistItem(const Value& item);
  ~LibplistItem();
  LibplistItem(const LibplistItem&) = delete;
  LibplistItem& operator=(const LibplistItem&) = delete;
  // The size of the encoding; 0 without libplist or on failure.
  std::size_t encodedSize() const { return encodedSize_; }

 private:
  void* root_ = nullptr;
  char* encoded_ = nullptr;
  std::size_t encodedSize_ = 0;
};

// A copy of `bytes` in freshly allocated memory.
Data plainCopy(const Data& bytes);

// ---- timing ----------------------------------------------------------------

// Switches callgrind's instruction counting off or back on (nothing when the
// program does not run under callgrind).
void toggleInstructionCount();

// The seconds-and-nanoseconds record that clock_gettime fills in, named
// through the function's own signature.
template <class Result, class ClockId, class Time>
Time* timeParameterOf(Result (*)(ClockId, Time*));
using ClockTime = std::remove_pointer_t<decltype(timeParameterOf(&clock_gettime))>;

// CPU time of the calling thread, user and system (page faults included).
class CpuStopwatch {
 public:
  CpuStopwatch() : start_(now()) {}
  double seconds() const { return now() - start_; }

 private:
  static double now() {
    ClockTime t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
  }
  double start_;
};

// Runs `work` that is part of an iteration but not of what the case
// measures (the relaunch before a cold call): call it outside the CPU
// stopwatch; under callgrind its instructions are left out of the count.
template <class Work>
void untimed(Work&& work) {
  toggleInstructionCount();
  work();
  toggleInstructionCount();
}

// Applied to every small case: with MIRELO_BENCH_ITERATIONS=N in the
// environment the case runs exactly N iterations, so that two callgrind runs
// with different N give the instructions of one iteration by difference.
void smallCase(benchmark::internal::Benchmark* b);

// The resident high-water mark since `reset()`, minus the resident size at
// that moment: what one operation added on top of what was already there.
class PeakMeter {
 public:
  void reset();
  // The growth since the last reset, in bytes.
  std::size_t growth() const;
  bool resettable() const { return resettable_; }

 private:
  std::size_t base_ = 0;
  bool resettable_ = true;
};

}  // namespace mirelo::bench
