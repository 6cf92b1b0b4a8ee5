// Images for Linux: a plain RGBA bitmap and an image codec backed by
// libjpeg-turbo (JPEG encoding and decoding) and libpng (PNG decoding).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "mirelo/platform/Platform.h"

namespace mirelo::linuxport {

// The largest image the codec decodes or a Bitmap holds: at most this many
// pixels per side and in all.  Larger images are refused before any pixel
// memory is allocated, so a hostile header cannot exhaust memory.
inline constexpr int kMaxImageDimension = 16384;
inline constexpr std::uint64_t kMaxImagePixels = std::uint64_t{64} << 20;

// Pixels one byte of a file can stand for at most, beyond which the file
// claims a picture its bytes could not hold and is refused before decoding.
// PNG: deflate expands at most 1032 times and a pixel takes at least one
// bit.  JPEG (Huffman-coded): every 8x8 block of the first scan takes at
// least one bit.  Arithmetic-coded JPEGs have no such floor; for them the
// decoder's own memory is capped instead (kMaxJpegWorkingBytes plus
// kJpegWorkingBytesPerByte for each input byte) and rows are stored only as
// they decode.
inline constexpr std::uint64_t kMaxPngPixelsPerByte = 1032 * 8;
inline constexpr std::uint64_t kMaxJpegPixelsPerByte = 64 * 8;
inline constexpr std::uint64_t kMaxJpegWorkingBytes = std::uint64_t{64} << 20;
inline constexpr std::uint64_t kJpegWorkingBytesPerByte = 64;

// A decoded image: width x height pixels, 4 bytes each (R, G, B, A), rows
// top to bottom without padding.
class Bitmap final : public platform::Image {
 public:
  // A bitmap over `rgba`, or nullptr when a dimension is negative, the image
  // is larger than the limits above, or `rgba` does not hold exactly
  // width * height * 4 bytes.
  static std::shared_ptr<Bitmap> make(int width, int height, std::vector<std::uint8_t> rgba);
  // A fully transparent black bitmap, or nullptr as for make().
  static std::shared_ptr<Bitmap> blank(int width, int height);

  int width() const override { return width_; }
  int height() const override { return height_; }
  const std::vector<std::uint8_t>& pixels() const { return pixels_; }
  std::vector<std::uint8_t>& pixels() { return pixels_; }

  // Only make() and blank() can name the key (they check the sizes first).
  class Key {
    friend class Bitmap;
    Key() = default;
  };
  Bitmap(Key, int width, int height, std::vector<std::uint8_t> rgba)
      : width_(width), height_(height), pixels_(std::move(rgba)) {}

 private:
  int width_;
  int height_;
  std::vector<std::uint8_t> pixels_;
};

// A platform::ImageCodec:
//   * jpegRepresentation encodes a Bitmap (any other Image, or an empty
//     bitmap, gives null Data) as baseline JPEG, 4:2:0, alpha dropped; the
//     quality 0..1 maps to libjpeg's 1..100 (rounded, clamped).
//   * decode reads JPEG (grey, RGB, CMYK) and PNG (every colour type and
//     depth) into a Bitmap.  Anything else, a truncated or corrupt file, or
//     an image over the limits gives nullptr; the libraries' errors never
//     end the process and nothing is printed.
// The instance is stateless and may be shared by any number of platforms
// and threads.
std::shared_ptr<platform::ImageCodec> makeImageCodec();

}  // namespace mirelo::linuxport
