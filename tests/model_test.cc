// The message model: stated defaults, printing, and the media message's thumbnail quality loop.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "mirelo/model/Model.h"
#include "mirelo/platform/Platform.h"
#include "ports/linux/image_codec.h"
#include "util/Format.h"

namespace mirelo {
namespace {

// The only check of the stated defaults, the -1000.0 of an unset position among them.
TEST(ModelTest, StatedDefaultsOfMiniProgramAndLocationObjects) {
  auto mini = MRMiniProgramObject::object();
  EXPECT_EQ(mini->miniProgramType, MRMiniProgramTypeRelease);
  EXPECT_FALSE(mini->withShareTicket || mini->disableForward || mini->isUpdatableMessage || mini->isSecretMessage);
  EXPECT_TRUE(mini->hdImageData.isNull());
  EXPECT_EQ(MRLocationObject::object()->lng, -1000.0);
  EXPECT_EQ(std::make_shared<MRLocationObject>()->lat, -1000.0);
}

TEST(ModelTest, AMediaMessagePrintsItsDescriptionField) {
  auto msg = MRMediaMessage::message();
  EXPECT_EQ(format("%@", msg), "(null)");
  msg->description = "A card about cats";
  EXPECT_EQ(format("[%@]", *msg), "[A card about cats]");
  msg->description = "";
  EXPECT_EQ(format("[%@]", msg), "[]");
  EXPECT_EQ(format("%@", std::shared_ptr<MRMediaMessage>()), "(null)");
}

// ---- the thumbnail quality loop -------------------------------------------------

// Passes every call to a real codec and records the qualities asked for.
class CountingCodec final : public platform::ImageCodec {
 public:
  explicit CountingCodec(std::shared_ptr<platform::ImageCodec> inner) : inner_(std::move(inner)) {}
  Data jpegRepresentation(const platform::Image& image, double quality) override {
    qualities.push_back(quality);
    last = inner_->jpegRepresentation(image, quality);
    return last;
  }
  std::shared_ptr<platform::Image> decode(const Data& bytes) override { return inner_->decode(bytes); }

  std::vector<double> qualities;
  Data last;

 private:
  std::shared_ptr<platform::ImageCodec> inner_;
};

class ThumbImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    codec = std::make_shared<CountingCodec>(linuxport::makeImageCodec());
    auto mine = std::make_shared<platform::Platform>(platform::current());
    mine->imageCodec = codec;
    previous_ = platform::setCurrent(mine);
  }
  void TearDown() override { platform::setCurrent(previous_); }

  static std::shared_ptr<linuxport::Bitmap> noise(int w, int h) {
    auto bmp = linuxport::Bitmap::blank(w, h);
    std::mt19937 rng(12345);
    for (auto& b : bmp->pixels()) b = static_cast<std::uint8_t>(rng());
    return bmp;
  }

  std::shared_ptr<CountingCodec> codec;

 private:
  std::shared_ptr<platform::Platform> previous_;
};

// A small image is encoded once at single-precision 0.6; one too large at every quality keeps the
// last of six steps, each a hair above the decimal value (never below single 0.1).
TEST_F(ThumbImageTest, QualityLoopAndNullUnencodableAndEncodedImages) {
  auto msg = MRMediaMessage::message();
  msg->setThumbImage(linuxport::Bitmap::blank(64, 48));
  ASSERT_EQ(codec->qualities, std::vector<double>{static_cast<double>(0.6f)});
  EXPECT_LE(msg->thumbData.size(), 32768u);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(codec->last));
  EXPECT_EQ(codec->decode(msg->thumbData)->width(), 64);

  codec->qualities.clear();
  msg->setThumbImage(noise(1024, 1024));
  const double expected[] = {0.6, 0.5, 0.4, 0.3, 0.2, 0.1};
  ASSERT_EQ(codec->qualities.size(), 6u);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(codec->qualities[i], expected[i], 1e-6) << i;
    EXPECT_GT(codec->qualities[i], static_cast<double>(0.1f));
  }
  EXPECT_GT(msg->thumbData.size(), 32768u);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(codec->last));

  // A null image leaves the thumbnail; an unencodable one clears it. Encoded bytes are decoded and
  // re-encoded; bytes that are no image leave the thumbnail as it was.
  codec->qualities.clear();
  const Data before = Data::copy("thumb", 5);
  msg->thumbData = before;
  msg->setThumbImage(nullptr);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(before));
  EXPECT_TRUE(codec->qualities.empty());
  class Opaque final : public platform::Image {
   public:
    int width() const override { return 10; }
    int height() const override { return 10; }
  };
  msg->setThumbImage(std::make_shared<Opaque>());
  EXPECT_EQ(codec->qualities.size(), 1u);
  EXPECT_TRUE(msg->thumbData.isNull());

  const Data jpeg = codec->jpegRepresentation(*linuxport::Bitmap::blank(40, 30), 1.0);
  codec->qualities.clear();
  EXPECT_TRUE(msg->setThumbImage(jpeg));
  ASSERT_EQ(codec->qualities.size(), 1u);
  EXPECT_EQ(codec->decode(msg->thumbData)->width(), 40);
  EXPECT_FALSE(msg->setThumbImage(Data::copy("not an image")));
  EXPECT_FALSE(msg->setThumbImage(Data()));
  EXPECT_EQ(codec->decode(msg->thumbData)->width(), 40);
}

}  // namespace
}  // namespace mirelo
