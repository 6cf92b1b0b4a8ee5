#include "bench/bench_support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/bench_memory.h"
#include "identity/MireloIdentityHandler.h"
#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "ports/linux/image_codec.h"
#include "record/AppCommunicateData.h"

#ifdef MIRELO_HAVE_LIBPLIST
#include <plist/plist.h>

#include "tests/support/LibplistValue.h"
#endif
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#endif

namespace mirelo::bench {

// ---- the device --------------------------------------------------------

sim::AppManifest hostManifest() {
  sim::AppManifest host;
  host.bundleId = kHostBundleId;
  host.infoPlist = sim::AppManifest::makeInfoPlist({kAppId}, {"mirelo", "mireloULAPI", "mireloStateAPI"});
  host.universalLinks.push_back({"host.example.com", {"/mirelo/"}});
  return host;
}

sim::AppManifest messengerManifest() {
  sim::AppManifest messenger;
  messenger.bundleId = kMessengerBundleId;
  messenger.infoPlist = sim::AppManifest::makeInfoPlist({"mirelo", "mireloULAPI", "mireloStateAPI"}, {});
  messenger.universalLinks.push_back({"open.mirelo.app", {"/app/"}});
  return messenger;
}

HandOff::HandOff() : device_(sim::SimDevice::create()) {
  device_->install(hostManifest());
  device_->install(messengerManifest()).onOpenURL([this](const sim::OpenContext&) { ++messengerOpens_; });
  device_->runKitAs(kHostBundleId);
  platform::resetProcessState();
  registerHost();
  // A token as the messenger hands it back after a first launch.
  auto& identity = MireloIdentityHandler::shareInstance();
  identity.setContextReq(textShare(), "bench-context");
  identity.checkAndRecordTokenToKeychain(kToken, "bench-context", nullptr);
  identity.clearContext();
}

HandOff::~HandOff() { platform::resetProcessState(); }

bool HandOff::registerHost() { return MRApi::registerApp(kAppId, kHostUniversalLink); }

bool HandOff::send(const std::shared_ptr<BaseReq>& req) {
  const int before = messengerOpens_;
  bool opened = false;
  MRApi::sendReq(req, [&opened](bool success) { opened = success; });
  device_->runUntilIdle();
  // The device keeps a record of every open; drop it now and then so that
  // millions of iterations do not grow it without bound.
  if (++sends_ % 4096 == 0) device_->clearOpenLog();
  return opened && messengerOpens_ == before + 1;
}

void HandOff::relaunchHost() { device_->relaunch(kHostBundleId); }

void HandOff::dropLastSend() {
  device_->setPasteboardString("");
  device_->clearOpenLog();
}

// ---- requests ----------------------------------------------------------

std::shared_ptr<SendMessageToMRReq> textShare() {
  auto req = std::make_shared<SendMessageToMRReq>();
  req->bText = true;
  req->text = "A short message for a friend: see you at eight at the station.";
  return req;
}

std::shared_ptr<SendMessageToMRReq> imageShare(const Data& imageData) {
  auto image = MRImageObject::object();
  image->imageData = imageData;
  auto req = std::make_shared<SendMessageToMRReq>();
  req->message = MRMediaMessage::message();
  req->message->title = "Weekend photos";
  req->message->description = "The lake at sunrise";
  req->message->thumbData = jpegThumbnail(64 * 1024);
  req->message->mediaObject = image;
  return req;
}

std::shared_ptr<SendMessageToMRReq> fileShare(const Data& fileData) {
  auto file = MRFileObject::object();
  file->fileExtension = "bin";
  file->fileData = fileData;
  auto req = std::make_shared<SendMessageToMRReq>();
  req->message = MRMediaMessage::message();
  req->message->title = "archive.bin";
  req->message->mediaObject = file;
  return req;
}

Data payload(std::size_t bytes) {
  return Data::build(bytes, [bytes](std::uint8_t* p) {
    for (std::size_t i = 0; i < bytes; ++i) p[i] = static_cast<std::uint8_t>((i * 131) >> 3);
  });
}

Data sharedPayload(std::size_t bytes) {
  static Data kept;
  if (kept.size() != bytes) {
    kept = Data();  // let the old one go first
    kept = payload(bytes);
  }
  return kept;
}

Data jpegThumbnail(std::size_t maxBytes) {
  // A gradient with noise: detail enough that the JPEG is tens of KiB.
  constexpr int kSide = 320;
  std::vector<std::uint8_t> rgba(std::size_t{kSide} * kSide * 4);
  std::uint32_t seed = 12345;
  for (std::size_t i = 0; i < rgba.size(); ++i) {
    seed = seed * 1664525u + 1013904223u;
    const std::size_t pixel = i / 4;
    const auto base = static_cast<std::uint32_t>((pixel % kSide + pixel / kSide) / 3);
    rgba[i] = (i % 4 == 3) ? 255 : static_cast<std::uint8_t>(base + (seed >> 27));
  }
  auto bitmap = linuxport::Bitmap::make(kSide, kSide, std::move(rgba));
  auto codec = linuxport::makeImageCodec();
  Data best;
  for (int quality = 100; quality >= 1; --quality) {
    Data jpeg = codec->jpegRepresentation(*bitmap, quality / 100.0);
    if (!jpeg.isNull() && jpeg.size() <= maxBytes) {
      best = jpeg;
      break;
    }
  }
  return best;
}

std::size_t payloadBytes(const SendMessageToMRReq& req) {
  if (!req.message) return 0;
  std::size_t n = req.message->thumbData.size();
  if (auto image = kindCast<MRImageObject>(req.message->mediaObject)) n += image->imageData.size();
  if (auto file = kindCast<MRFileObject>(req.message->mediaObject)) n += file->fileData.size();
  return n;
}

Value pasteboardItem(const std::shared_ptr<BaseReq>& req) {
  AppCommunicateData record;
  record.sdkVer = "1.9.2";
  record.universalLink = kHostUniversalLink;
  if (!record.ReqToData(req)) return Value();
  Dictionary item;
  item.set(kAppId, Value(record.propertList()));
  return Value(std::move(item));
}

// ---- references ----------------------------------------------------------

bool haveLibplist() {
#ifdef MIRELO_HAVE_LIBPLIST
  return true;
#else
  return false;
#endif
}

#ifdef MIRELO_HAVE_LIBPLIST
using mirelo::testing::toPlist;
#endif

LibplistItem::LibplistItem(const Value& item) {
#ifdef MIRELO_HAVE_LIBPLIST
  root_ = toPlist(item);
  std::uint32_t length = 0;
  plist_to_bin(static_cast<plist_t>(root_), &encoded_, &length);
  encodedSize_ = encoded_ == nullptr ? 0 : length;
#else
  (void)item;
#endif
}

LibplistItem::~LibplistItem() {
#ifdef MIRELO_HAVE_LIBPLIST
  std::free(encoded_);
  if (root_ != nullptr) plist_free(static_cast<plist_t>(root_));
#endif
}

Data plainCopy(const Data& bytes) {
  Data copy = Data::copy(bytes.bytes(), bytes.size());
  benchmark::DoNotOptimize(copy.bytes());
  benchmark::ClobberMemory();
  return copy;
}

// ---- timing ----------------------------------------------------------------

void toggleInstructionCount() {
#if __has_include(<valgrind/callgrind.h>)
  CALLGRIND_TOGGLE_COLLECT;
#endif
}

void smallCase(benchmark::internal::Benchmark* b) {
  if (const char* n = std::getenv("MIRELO_BENCH_ITERATIONS")) {
    const long long iterations = std::atoll(n);
    if (iterations > 0) b->Iterations(iterations);
  }
}

void PeakMeter::reset() {
  resettable_ = resetPeak();
  base_ = currentResident();
}

std::size_t PeakMeter::growth() const {
  const std::size_t peak = peakResident();
  return peak > base_ ? peak - base_ : 0;
}

}  // namespace mirelo::bench
