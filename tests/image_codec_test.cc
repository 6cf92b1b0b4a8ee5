// The Linux image codec: JPEG round trips, PNG decoding, and hostile input.
#include <gtest/gtest.h>

#include <png.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ports/linux/image_codec.h"

namespace mirelo::linuxport {
namespace {

std::shared_ptr<Bitmap> solid(int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  auto bmp = Bitmap::blank(w, h);
  for (std::size_t i = 0; i < bmp->pixels().size(); i += 4) {
    bmp->pixels()[i] = r;
    bmp->pixels()[i + 1] = g;
    bmp->pixels()[i + 2] = b;
    bmp->pixels()[i + 3] = 255;
  }
  return bmp;
}

const Bitmap& asBitmap(const std::shared_ptr<platform::Image>& img) {
  return dynamic_cast<const Bitmap&>(*img);
}

// A PNG written by libpng itself.
Data writePng(int w, int h, png_uint_32 format, const std::vector<std::uint8_t>& pixels) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(w);
  image.height = static_cast<png_uint_32>(h);
  image.format = format;
  png_alloc_size_t size = 0;
  if (!png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data(), 0, nullptr)) return Data();
  std::vector<std::uint8_t> out(size);
  if (!png_image_write_to_memory(&image, out.data(), &size, 0, pixels.data(), 0, nullptr)) return Data();
  out.resize(size);
  return Data::adopt(std::move(out));
}

// The PNG chunk checksum (CRC-32, reflected, polynomial 0xEDB88320).
std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return c ^ 0xFFFFFFFFu;
}

TEST(ImageCodecTest, QualityChangesTheSizeMonotonically) {
  auto codec = makeImageCodec();
  auto img = Bitmap::blank(200, 200);
  std::mt19937 rng(7);
  for (auto& b : img->pixels()) b = static_cast<std::uint8_t>(rng());
  std::size_t previous = 0;
  for (double q : {0.1, 0.3, 0.6, 0.9}) {
    const std::size_t size = codec->jpegRepresentation(*img, q).size();
    EXPECT_GT(size, previous) << q;
    previous = size;
  }
  // Quality saturates at both ends.
  EXPECT_EQ(codec->jpegRepresentation(*img, 1.0), codec->jpegRepresentation(*img, 5.0));
  EXPECT_EQ(codec->jpegRepresentation(*img, -2.0), codec->jpegRepresentation(*img, 0.004));
}

TEST(ImageCodecTest, UnencodableImagesAndImpossibleBitmapsAreRefused) {
  auto codec = makeImageCodec();
  class Foreign final : public platform::Image {
   public:
    int width() const override { return 4; }
    int height() const override { return 4; }
  };
  EXPECT_TRUE(codec->jpegRepresentation(Foreign(), 0.5).isNull());
  EXPECT_TRUE(codec->jpegRepresentation(*Bitmap::blank(0, 5), 0.5).isNull());
  EXPECT_FALSE(Bitmap::make(2, 2, std::vector<std::uint8_t>(15)));
  EXPECT_FALSE(Bitmap::make(-1, 2, {}));
  EXPECT_FALSE(Bitmap::blank(kMaxImageDimension + 1, 1));
  EXPECT_FALSE(Bitmap::blank(kMaxImageDimension, kMaxImageDimension));  // over the pixel cap
  EXPECT_TRUE(Bitmap::make(2, 2, std::vector<std::uint8_t>(16)));
}

// Decoded pixels are RGBA: a PNG's exactly, transparency included; a JPEG's
// opaque and near the colour written, whatever the size.
TEST(ImageCodecTest, DecodesToRgbaPixels) {
  auto codec = makeImageCodec();
  const std::vector<std::uint8_t> rgba = {255, 0, 0, 255, 0, 255, 0, 128, 0, 0, 255, 0, 10, 20, 30, 255};
  const auto png = codec->decode(writePng(2, 2, PNG_FORMAT_RGBA, rgba));
  ASSERT_TRUE(png);
  EXPECT_EQ(asBitmap(png).pixels(), rgba);
  for (const auto& [w, h] : {std::pair{1, 1}, {17, 9}, {3, 500}}) {
    const auto jpeg = codec->decode(codec->jpegRepresentation(*solid(w, h, 200, 40, 90), 0.6));
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->width(), w);
    EXPECT_EQ(jpeg->height(), h);
    const auto& px = asBitmap(jpeg).pixels();
    ASSERT_EQ(px.size(), static_cast<std::size_t>(w) * h * 4);
    EXPECT_NEAR(px[0], 200, 12);
    EXPECT_NEAR(px[1], 40, 12);
    EXPECT_NEAR(px[2], 90, 12);
    EXPECT_EQ(px[3], 255);
  }
}

TEST(ImageCodecTest, HostileInputGivesNullWithoutCrashing) {
  auto codec = makeImageCodec();
  const Data jpeg = codec->jpegRepresentation(*solid(300, 200, 1, 2, 3), 0.8);
  std::vector<std::uint8_t> pngPixels(40 * 30 * 4, 77);
  const Data png = writePng(40, 30, PNG_FORMAT_RGBA, pngPixels);
  ASSERT_TRUE(codec->decode(jpeg));
  ASSERT_TRUE(codec->decode(png));

  std::vector<Data> bad = {Data(), Data::copy("\xFF\xD8\xFF", 3), Data::copy("\x89PNG\r\n\x1A\n", 8),
                           jpeg.slice(0, jpeg.size() / 2), png.slice(0, png.size() - 20)};
  // A JPEG whose header claims an absurd size: patch the SOF0 dimensions.
  std::string big = jpeg.toString();
  const std::size_t sof = big.find("\xFF\xC0");
  ASSERT_NE(sof, std::string::npos);
  big[sof + 5] = '\xFF';  // height 0xFFxx
  big[sof + 7] = '\xFF';  // width 0xFFxx
  bad.push_back(Data::copy(big));
  // Well-formed PNGs whose IHDR claims 60000 x 60000 (within libpng's own
  // limits, over the codec's) and 16384 x 4096 (within the codec's limits,
  // but far more than 4 KB could hold).
  const auto claiming = [&png](const char (&dims)[8]) {
    std::string f = png.toString();
    f.replace(16, 8, dims, 8);
    const std::uint32_t crc = crc32(f.substr(12, 17));
    for (int k = 0; k < 4; ++k) f[29 + k] = static_cast<char>(crc >> (24 - 8 * k));
    return Data::copy(f);
  };
  bad.push_back(claiming({0, 0, '\xEA', '\x60', 0, 0, '\xEA', '\x60'}));
  bad.push_back(claiming({0, 0, '\x40', 0, 0, 0, '\x10', 0}));
  // The same for a JPEG: 16384 x 4096 from a few kilobytes.
  big = jpeg.toString();
  big.replace(sof + 5, 4, "\x10\x00\x40\x00", 4);
  bad.push_back(Data::copy(big));
  for (std::size_t i = 0; i < bad.size(); ++i) {
    EXPECT_FALSE(codec->decode(bad[i])) << "input " << i;
  }

  // Real pictures that compress very well stay well inside what their
  // bytes can hold.
  EXPECT_TRUE(codec->decode(writePng(2048, 1024, PNG_FORMAT_GRAY, std::vector<std::uint8_t>(2048 * 1024, 9))));
  EXPECT_TRUE(codec->decode(codec->jpegRepresentation(*solid(2048, 1024, 9, 9, 9), 0.1)));

  // Random corruption of the scan data must never crash (the result may or
  // may not decode).
  std::mt19937 rng(99);
  for (int round = 0; round < 200; ++round) {
    std::string mutated = (round % 2 ? jpeg : png).toString();
    for (int k = 0; k < 8; ++k) mutated[rng() % mutated.size()] = static_cast<char>(rng());
    if (auto img = codec->decode(Data::copy(mutated))) {
      EXPECT_EQ(asBitmap(img).pixels().size(), static_cast<std::size_t>(img->width()) * img->height() * 4);
    }
  }
}

}  // namespace
}  // namespace mirelo::linuxport
