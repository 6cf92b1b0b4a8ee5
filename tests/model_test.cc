// The message model: defaults, kinds, copying versus holding, printing, and
// the thumbnail quality loop of the media message.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
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

// ---- fresh instances ---------------------------------------------------------

struct FreshCase {
  const char* name;
  std::function<bool()> allEmpty;
};

template <class T>
std::shared_ptr<T> fresh() {
  return T::object();
}

const FreshCase kFreshCases[] = {
    {"BaseReq", [] { auto r = std::make_shared<BaseReq>(); return r->type == 0 && r->openID.isNull(); }},
    {"BaseResp",
     [] { auto r = std::make_shared<BaseResp>(); return r->errCode == 0 && r->errStr.isNull() && r->type == 0; }},
    {"SendMessageToMRReq",
     [] {
       auto r = std::make_shared<SendMessageToMRReq>();
       return r->type == 0 && r->openID.isNull() && r->text.isNull() && !r->message && !r->bText && r->scene == 0 &&
              r->toUserOpenId.isNull() && !r->sceneDataObject;
     }},
    {"GetMessageFromMRResp",
     [] {
       auto r = std::make_shared<GetMessageFromMRResp>();
       return r->errCode == 0 && r->text.isNull() && !r->message && !r->bText;
     }},
    {"SendTdiAuthResp",
     [] {
       auto r = std::make_shared<SendTdiAuthResp>();
       return r->code.isNull() && r->state.isNull() && r->lang.isNull() && r->country.isNull() &&
              r->tdiExtInfo.isNull() && r->tdiAuthBuffer.isNull() && r->tdiAuthParams.isNull();
     }},
    {"PayReq",
     [] {
       auto r = std::make_shared<PayReq>();
       return r->partnerId.isNull() && r->prepayId.isNull() && r->nonceStr.isNull() && r->timeStamp == 0 &&
              r->package.isNull() && r->sign.isNull();
     }},
    {"MRChooseCardReq",
     [] {
       auto r = std::make_shared<MRChooseCardReq>();
       return r->appID.isNull() && r->shopID == 0 && r->canMultiSelect == 0 && r->cardType.isNull() &&
              r->cardTpID.isNull() && r->signType.isNull() && r->cardSign.isNull() && r->timeStamp == 0 &&
              r->nonceStr.isNull();
     }},
    {"AddCardToMRCardPackageResp", [] { return !std::make_shared<AddCardToMRCardPackageResp>()->cardAry; }},
    {"MRChooseInvoiceResp", [] { return !std::make_shared<MRChooseInvoiceResp>()->cardAry; }},
    {"MRCardItem",
     [] {
       auto r = std::make_shared<MRCardItem>();
       return r->cardId.isNull() && r->extMsg.isNull() && r->cardState == 0 && r->encryptCode.isNull() &&
              r->appID.isNull();
     }},
    {"MROpenBusinessWebViewReq",
     [] {
       auto r = std::make_shared<MROpenBusinessWebViewReq>();
       return r->businessType == 0 && !r->queryInfoDic;
     }},
    {"MROpenTypeWebViewResp", [] { return !std::make_shared<MROpenTypeWebViewResp>()->infoDic; }},
    {"MRSubscribeMsgResp",
     [] {
       auto r = std::make_shared<MRSubscribeMsgResp>();
       return r->templateId.isNull() && r->scene == 0 && r->action.isNull() && r->reserved.isNull() &&
              r->openId.isNull();
     }},
    {"MRLaunchMiniProgramReq",
     [] {
       auto r = fresh<MRLaunchMiniProgramReq>();
       return r->userName.isNull() && r->path.isNull() && r->miniProgramType == 0 && r->extMsg.isNull() &&
              !r->extDic.has_value();
     }},
    {"MRLaunchMraRedirectingPageReq",
     [] {
       auto r = std::make_shared<MRLaunchMraRedirectingPageReq>();
       return r->ticket.isNull() && !r->extDict;
     }},
    {"MROpenBusinessViewReq",
     [] {
       auto r = fresh<MROpenBusinessViewReq>();
       return r->businessType.isNull() && r->query.isNull() && r->extInfo.isNull() && r->extData.isNull();
     }},
    {"MRChannelShareVideoReq",
     [] {
       auto r = fresh<MRChannelShareVideoReq>();
       return r->localIdentifier.isNull() && r->extData.isNull() && !r->jumpInfo;
     }},
    {"MRChannelOpenFeedReq",
     [] {
       auto r = fresh<MRChannelOpenFeedReq>();
       return r->feedID.isNull() && r->nonceID.isNull() && !r->notGetReleatedList;
     }},
    {"MRChannelJumpMiniProgramInfo",
     [] {
       auto r = std::make_shared<MRChannelJumpMiniProgramInfo>();
       return r->wording.isNull() && r->extData.isNull() && r->userName.isNull() && r->path.isNull();
     }},
    {"MRMediaMessage",
     [] {
       auto m = MRMediaMessage::message();
       return m->title.isNull() && m->description.isNull() && m->thumbData.isNull() && m->mediaTagName.isNull() &&
              m->messageExt.isNull() && m->messageAction.isNull() && !m->mediaObject;
     }},
    {"MRMusicVideoObject",
     [] {
       auto o = fresh<MRMusicVideoObject>();
       return o->musicUrl.isNull() && o->musicDataUrl.isNull() && o->singerName.isNull() && o->duration == 0 &&
              o->songLyric.isNull() && o->hdAlbumThumbData.isNull() && o->albumName.isNull() &&
              o->musicGenre.isNull() && o->issueDate == 0 && o->identification.isNull() &&
              o->musicOperationUrl.isNull();
     }},
    {"MRTesselObject",
     [] {
       auto o = fresh<MRTesselObject>();
       return o->subType == 0 && o->data.isNull() && o->extInfo.isNull();
     }},
    {"MREnterpriseCardObject",
     [] {
       auto o = fresh<MREnterpriseCardObject>();
       return o->cardInfo.isNull() && o->msgType == 0;
     }},
    {"MRGameLiveObject", [] { return !fresh<MRGameLiveObject>()->extraInfoDic; }},
    {"MRStateSceneDataObject",
     [] {
       auto o = fresh<MRStateSceneDataObject>();
       return o->stateId.isNull() && o->stateTitle.isNull() && o->token.isNull() && !o->stateJumpDataInfo;
     }},
    {"MRStateJumpUrlInfo", [] { return fresh<MRStateJumpUrlInfo>()->url.isNull(); }},
};

TEST(ModelTest, FreshInstancesHaveEveryFieldEmpty) {
  for (const auto& c : kFreshCases) {
    EXPECT_TRUE(c.allEmpty()) << c.name;
  }
}

TEST(ModelTest, StatedDefaultsOfMiniProgramAndLocationObjects) {
  auto mini = MRMiniProgramObject::object();
  EXPECT_EQ(mini->miniProgramType, 0u);
  EXPECT_EQ(mini->miniProgramType, MRMiniProgramTypeRelease);
  EXPECT_FALSE(mini->withShareTicket);
  EXPECT_FALSE(mini->disableForward);
  EXPECT_FALSE(mini->isUpdatableMessage);
  EXPECT_FALSE(mini->isSecretMessage);
  EXPECT_TRUE(mini->hdImageData.isNull());
  EXPECT_FALSE(mini->extraInfoDic);

  auto video = MRDynamicVideoMiniProgramObject::object();
  EXPECT_EQ(video->miniProgramType, 0u);
  EXPECT_FALSE(video->withShareTicket);
  EXPECT_TRUE(video->videoSource.isNull());

  auto location = MRLocationObject::object();
  EXPECT_EQ(location->lng, -1000.0);
  EXPECT_EQ(location->lat, -1000.0);
  EXPECT_EQ(std::make_shared<MRLocationObject>()->lat, -1000.0);
}

TEST(ModelTest, NamedValuesMatchTheProtocol) {
  EXPECT_EQ(ErrCodeSuccess, 0);
  EXPECT_EQ(ErrCodeCommon, -1);
  EXPECT_EQ(ErrCodeUserCancel, -2);
  EXPECT_EQ(ErrCodeSentFail, -3);
  EXPECT_EQ(ErrCodeAuthDeny, -4);
  EXPECT_EQ(ErrCodeUnsupport, -5);
  EXPECT_EQ(MRSceneSpecifiedSession, 3);
  EXPECT_EQ(MRSceneState, 4);
  EXPECT_EQ(MRMiniProgramTypePreview, 2u);
  EXPECT_EQ(MROpenWebViewTypeSubscribeMsg, 1);
  EXPECT_EQ(MROpenWebViewTypeSubscribeMiniProgramMsg, 5);
  // The enumerations assign straight to the fields.
  auto req = std::make_shared<SendMessageToMRReq>();
  req->scene = MRSceneState;
  auto resp = std::make_shared<SendAuthResp>();
  resp->errCode = ErrCodeAuthDeny;
  EXPECT_EQ(format("%d %d", req->scene, resp->errCode), "4 -4");
}

// ---- kinds ----------------------------------------------------------------------

TEST(ModelTest, TdiVariantsAreSignInObjectsForEveryKindTest) {
  std::shared_ptr<BaseReq> req = std::make_shared<SendTdiAuthReq>();
  EXPECT_TRUE(isKindOf<SendAuthReq>(req));
  EXPECT_TRUE(isKindOf<SendTdiAuthReq>(req));
  EXPECT_TRUE(isKindOf<BaseReq>(req));
  EXPECT_FALSE(isKindOf<SendTdiAuthReq>(std::shared_ptr<BaseReq>(std::make_shared<SendAuthReq>())));
  auto asAuth = kindCast<SendAuthReq>(req);
  ASSERT_TRUE(asAuth);
  asAuth->scope = "snsapi_userinfo";
  EXPECT_EQ(kindCast<SendTdiAuthReq>(req)->scope, "snsapi_userinfo");
  EXPECT_EQ(req->className(), "SendTdiAuthReq");

  std::shared_ptr<BaseResp> resp = std::make_shared<SendTdiAuthResp>();
  EXPECT_TRUE(isKindOf<SendAuthResp>(resp));
  EXPECT_FALSE(isKindOf<SendAuthReq>(resp));
}

TEST(ModelTest, SiblingsThatShareFieldsAreUnrelated) {
  struct Case {
    const char* name;
    bool related;
  };
  const std::shared_ptr<BaseReq> joint = std::make_shared<MRJointPayReq>();
  const std::shared_ptr<BaseResp> share = std::make_shared<MRChannelShareVideoResp>();
  const std::shared_ptr<BaseResp> profile = std::make_shared<MRChannelOpenProfileResp>();
  const std::shared_ptr<BaseResp> live = std::make_shared<MRChannelOpenLiveResp>();
  const std::shared_ptr<BaseResp> feed = std::make_shared<MRChannelOpenFeedResp>();
  const std::shared_ptr<MRObject> invoice = std::make_shared<MRInvoiceItem>();
  const Case cases[] = {
      {"joint pay is no PayReq", isKindOf<PayReq>(joint)},
      {"joint pay resp is no PayResp", isKindOf<PayResp>(std::make_shared<MRJointPayResp>())},
      {"invoice item is no card item", isKindOf<MRCardItem>(invoice)},
      {"share/profile", isKindOf<MRChannelOpenProfileResp>(share)},
      {"profile/live", isKindOf<MRChannelOpenLiveResp>(profile)},
      {"live/feed", isKindOf<MRChannelOpenFeedResp>(live)},
      {"feed/share", isKindOf<MRChannelShareVideoResp>(feed)},
      {"webview req is no business webview req",
       isKindOf<MROpenBusinessWebViewReq>(std::make_shared<MROpenTypeWebViewReq>())},
      {"null is nothing", isKindOf<BaseReq>(std::shared_ptr<BaseReq>())},
  };
  for (const auto& c : cases) EXPECT_FALSE(c.related) << c.name;
  EXPECT_FALSE(kindCast<PayReq>(joint));
}

TEST(ModelTest, SceneDataAndJumpTargetsKeepTheirHierarchy) {
  std::shared_ptr<MRSceneDataObject> scene = MRStateSceneDataObject::object();
  EXPECT_TRUE(isKindOf<MRStateSceneDataObject>(scene));
  EXPECT_FALSE(isKindOf<MRStateSceneDataObject>(std::make_shared<MRSceneDataObject>()));

  std::shared_ptr<MRStateJumpInfo> jump = MRStateJumpUrlInfo::object();
  EXPECT_TRUE(isKindOf<MRStateJumpUrlInfo>(jump));
  EXPECT_FALSE(isKindOf<MRStateJumpUrlInfo>(std::make_shared<MRStateJumpInfo>()));

  std::shared_ptr<MRChannelBaseJumpInfo> mini = std::make_shared<MRChannelJumpMiniProgramInfo>();
  std::shared_ptr<MRChannelBaseJumpInfo> url = std::make_shared<MRChannelJumpUrlInfo>();
  EXPECT_TRUE(isKindOf<MRChannelJumpMiniProgramInfo>(mini));
  EXPECT_FALSE(isKindOf<MRChannelJumpUrlInfo>(mini));
  EXPECT_FALSE(isKindOf<MRChannelJumpMiniProgramInfo>(url));

  // Media objects are told apart by class alone.
  std::shared_ptr<MRMediaObject> media = MRMiniProgramObject::object();
  EXPECT_TRUE(isKindOf<MRMiniProgramObject>(media));
  EXPECT_FALSE(isKindOf<MRDynamicVideoMiniProgramObject>(media));
  EXPECT_FALSE(isKindOf<MRVideoFileObject>(std::shared_ptr<MRMediaObject>(MRGameVideoFileObject::object())));
}

// ---- copying and holding -------------------------------------------------------

TEST(ModelTest, StringFieldsCopyTheCallersText) {
  std::string scope = "snsapi_userinfo";
  auto req = std::make_shared<SendAuthReq>();
  req->scope = scope;
  scope[0] = 'X';
  scope += "-changed";
  EXPECT_EQ(req->scope, "snsapi_userinfo");

  std::string title = "title";
  auto msg = MRMediaMessage::message();
  msg->title = title;
  title.clear();
  EXPECT_EQ(msg->title, "title");

  // Null and empty stay apart.
  req->state = "";
  EXPECT_FALSE(req->state.isNull());
  EXPECT_TRUE(req->openID.isNull());
}

TEST(ModelTest, HeldFieldsShareTheCallersObjects) {
  auto msg = MRMediaMessage::message();
  auto req = std::make_shared<SendMessageToMRReq>();
  req->message = msg;
  msg->title = "set after";
  EXPECT_EQ(req->message.get(), msg.get());
  EXPECT_EQ(req->message->title, "set after");

  const Data bytes = Data::copy("\x01\x02\x03", 3);
  auto image = MRImageObject::object();
  image->imageData = bytes;
  EXPECT_TRUE(image->imageData.sharesStorageWith(bytes));
  auto tdi = std::make_shared<SendTdiAuthResp>();
  tdi->tdiAuthBuffer = bytes;
  EXPECT_TRUE(tdi->tdiAuthBuffer.sharesStorageWith(bytes));

  auto dict = std::make_shared<Dictionary>();
  auto page = std::make_shared<MRLaunchMraRedirectingPageReq>();
  page->extDict = dict;
  dict->set("k", Value("v"));
  EXPECT_EQ(page->extDict->mrApi_stringForKey("k"), "v");

  auto items = std::make_shared<MRCardItemArray>();
  auto add = std::make_shared<AddCardToMRCardPackageReq>();
  add->cardAry = items;
  auto card = std::make_shared<MRCardItem>();
  items->push_back(card);
  (*add->cardAry)[0]->extMsg = "";  // the kit may fill an item in place
  EXPECT_EQ(add->cardAry->size(), 1u);
  EXPECT_FALSE(card->extMsg.isNull());

  auto jump = std::make_shared<MRChannelJumpUrlInfo>();
  auto share = MRChannelShareVideoReq::object();
  share->jumpInfo = jump;
  jump->url = "https://example.com/v";
  EXPECT_EQ(share->jumpInfo->className(), "MRChannelJumpUrlInfo");
  EXPECT_EQ(kindCast<MRChannelJumpUrlInfo>(share->jumpInfo)->url, "https://example.com/v");

  auto state = MRStateSceneDataObject::object();
  auto target = MRStateJumpUrlInfo::object();
  state->stateJumpDataInfo = target;
  target->url = "https://example.com/s";
  EXPECT_EQ(kindCast<MRStateJumpUrlInfo>(state->stateJumpDataInfo)->url, "https://example.com/s");
}

TEST(ModelTest, ExtDicOfTheLaunchRequestIsACopy) {
  Dictionary mine{{"a", Value(1)}};
  auto req = MRLaunchMiniProgramReq::object();
  req->extDic = mine;
  mine.set("b", Value(2));
  ASSERT_TRUE(req->extDic.has_value());
  EXPECT_EQ(req->extDic->size(), 1u);
  EXPECT_FALSE(req->extDic->contains("b"));
}

TEST(ModelTest, FactoriesReturnDistinctInstances) {
  EXPECT_NE(MRMediaMessage::message(), MRMediaMessage::message());
  EXPECT_NE(MRWebpageObject::object(), MRWebpageObject::object());
  EXPECT_NE(MROpenCustomerServiceReq::object(), MROpenCustomerServiceReq::object());
  EXPECT_EQ(MRChannelOpenLiveReq::object()->className(), "MRChannelOpenLiveReq");
  EXPECT_EQ(MRChannelOpenProfileReq::object()->className(), "MRChannelOpenProfileReq");
}

// ---- printing ----------------------------------------------------------------------

TEST(ModelTest, AMediaMessagePrintsItsDescriptionField) {
  auto msg = MRMediaMessage::message();
  EXPECT_EQ(format("%@", msg), "(null)");
  msg->description = "A card about cats";
  EXPECT_EQ(format("%@", msg), "A card about cats");
  EXPECT_EQ(format("[%@]", *msg), "[A card about cats]");
  EXPECT_EQ(describe(*msg), "A card about cats");
  msg->description = "";
  EXPECT_EQ(format("[%@]", msg), "[]");
  EXPECT_EQ(format("%@", std::shared_ptr<MRMediaMessage>()), "(null)");
}

TEST(ModelTest, OtherObjectsPrintClassNameAndAddress) {
  auto req = std::make_shared<SendTdiAuthReq>();
  char expected[64];
  std::snprintf(expected, sizeof expected, "<SendTdiAuthReq: %p>", static_cast<const void*>(req.get()));
  EXPECT_EQ(req->description(), format("<SendTdiAuthReq: %p>", static_cast<const void*>(req.get())));
  EXPECT_EQ(req->description(), expected);
  // Through a base pointer the most-derived class still prints.
  std::shared_ptr<BaseReq> base = req;
  EXPECT_EQ(format("%@", base), expected);
  auto item = std::make_shared<MRInvoiceItem>();
  EXPECT_EQ(item->description().rfind("<MRInvoiceItem: 0x", 0), 0u);
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

  static std::shared_ptr<linuxport::Bitmap> gradient(int w, int h) {
    auto bmp = linuxport::Bitmap::blank(w, h);
    auto& px = bmp->pixels();
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        std::uint8_t* p = px.data() + (static_cast<std::size_t>(y) * w + x) * 4;
        p[0] = static_cast<std::uint8_t>(x * 255 / w);
        p[1] = static_cast<std::uint8_t>(y * 255 / h);
        p[2] = 128;
        p[3] = 255;
      }
    }
    return bmp;
  }

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

TEST_F(ThumbImageTest, ASmallImageIsEncodedOnceAtSixTenths) {
  auto msg = MRMediaMessage::message();
  msg->setThumbImage(gradient(64, 48));
  ASSERT_EQ(codec->qualities.size(), 1u);
  EXPECT_EQ(codec->qualities[0], static_cast<double>(0.6f));
  ASSERT_FALSE(msg->thumbData.isNull());
  EXPECT_LE(msg->thumbData.size(), 32768u);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(codec->last));
  auto decoded = codec->decode(msg->thumbData);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width(), 64);
  EXPECT_EQ(decoded->height(), 48);
}

TEST_F(ThumbImageTest, AnImageTooLargeAtEveryQualityKeepsTheLowestQualityEncoding) {
  auto msg = MRMediaMessage::message();
  msg->setThumbImage(noise(1024, 1024));
  const double expected[] = {0.6, 0.5, 0.4, 0.3, 0.2, 0.1};
  ASSERT_EQ(codec->qualities.size(), 6u);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(codec->qualities[i], expected[i], 1e-6) << i;
    // Each step stays a hair above the decimal value: the start is
    // single-precision 0.6 and the loop never goes below single 0.1.
    EXPECT_GT(codec->qualities[i], static_cast<double>(0.1f));
  }
  EXPECT_GT(msg->thumbData.size(), 32768u);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(codec->last));
  auto decoded = codec->decode(msg->thumbData);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width(), 1024);
}

TEST_F(ThumbImageTest, TheLoopStopsAtTheFirstQualityThatFits) {
  // A busy image that needs a lower quality than 0.6 but fits at some step
  // (the exact step depends on the encoder; the loop must stop there).
  auto msg = MRMediaMessage::message();
  auto img = noise(300, 300);
  msg->setThumbImage(img);
  ASSERT_GE(codec->qualities.size(), 2u) << "the 300x300 noise image should not fit at 0.6";
  ASSERT_LT(codec->qualities.size(), 6u);
  ASSERT_LE(msg->thumbData.size(), 32768u) << "the 300x300 noise image should fit at some quality";
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(codec->last));
  // Every encoding but the last was too large.
  auto fresh = linuxport::makeImageCodec();
  for (std::size_t i = 0; i + 1 < codec->qualities.size(); ++i) {
    EXPECT_GT(fresh->jpegRepresentation(*img, codec->qualities[i]).size(), 32768u) << i;
  }
}

TEST_F(ThumbImageTest, ANullImageLeavesThumbDataUntouched) {
  auto msg = MRMediaMessage::message();
  const Data before = Data::copy("thumb", 5);
  msg->thumbData = before;
  msg->setThumbImage(nullptr);
  EXPECT_TRUE(msg->thumbData.sharesStorageWith(before));
  EXPECT_TRUE(codec->qualities.empty());
}

TEST_F(ThumbImageTest, AnImageTheCodecCannotEncodeLeavesNullThumbData) {
  // The platform's encoder answers null for an image it cannot encode; the
  // message then carries no thumbnail, as it would on the phone.
  class Opaque final : public platform::Image {
   public:
    int width() const override { return 10; }
    int height() const override { return 10; }
  };
  auto msg = MRMediaMessage::message();
  msg->thumbData = Data::copy("old", 3);
  msg->setThumbImage(std::make_shared<Opaque>());
  EXPECT_EQ(codec->qualities.size(), 1u);
  EXPECT_TRUE(msg->thumbData.isNull());
}

}  // namespace
}  // namespace mirelo
