#include "mirelo/model/MediaMessage.h"

#include "mirelo/platform/Platform.h"

namespace mirelo {

namespace {

// The thumbnail the messenger accepts without refusing the message.
constexpr std::size_t kThumbLimit = 32768;

}  // namespace

std::string describe(const MRMediaMessage& message) { return message.description.description(); }

void MRMediaMessage::setThumbImage(const std::shared_ptr<platform::Image>& image) {
  if (!image) return;
  const std::shared_ptr<platform::ImageCodec> codec = platform::current().imageCodec;
  if (!codec) return;
  // The quality starts at single-precision 0.6 and steps down by 0.1 in
  // double; the thresholds are single-precision too, so the qualities tried
  // are 0.6, 0.5, 0.4, 0.3, 0.2 and 0.1 (each a hair above), never less.
  const double floor = static_cast<double>(0.1f);
  double quality = static_cast<double>(0.6f);
  Data encoded = codec->jpegRepresentation(*image, quality);
  while (encoded.size() > kThumbLimit) {
    quality -= 0.1;
    if (!(quality > floor)) break;
    encoded = codec->jpegRepresentation(*image, quality);
  }
  thumbData = std::move(encoded);
}

bool MRMediaMessage::setThumbImage(const Data& encodedImage) {
  if (encodedImage.empty()) return false;
  const std::shared_ptr<platform::ImageCodec> codec = platform::current().imageCodec;
  if (!codec) return false;
  std::shared_ptr<platform::Image> image = codec->decode(encodedImage);
  if (!image) return false;
  setThumbImage(image);
  return true;
}

}  // namespace mirelo
