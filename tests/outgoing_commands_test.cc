// The command that names each request on the launch URL, each refusal with its
// logged line, and the JSON-carrying commands read back by key.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <uriparser/Uri.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/model/Model.h"
#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

using Json = nlohmann::json;

template <class T, class F>
std::shared_ptr<T> make(F fill) { return makeReq<T>(fill); }

std::string repeat(const std::string& unit, std::size_t n) {
  std::string out;
  out.reserve(unit.size() * n);
  for (std::size_t i = 0; i < n; ++i) out += unit;
  return out;
}

// Removes %XX escapes only ("+" stays "+"), with uriparser, as the messenger reads them.
std::string percentDecode(std::string s) {
  uriUnescapeInPlaceExA(s.data(), URI_FALSE, URI_BR_DONT_TOUCH);
  return s.c_str();
}

// The JSON behind "<prefix>" of a command whose whole string was percent-escaped.
Json jsonAfter(const String& command, const std::string& prefix) {
  EXPECT_TRUE(command.hasPrefix(prefix)) << command.description();
  if (!command.hasPrefix(prefix)) return Json();
  return Json::parse(percentDecode(command.str().substr(prefix.size())));
}

std::shared_ptr<MRCardItem> card(String id, String ext) {
  auto item = std::make_shared<MRCardItem>();
  item->cardId = std::move(id);
  item->extMsg = std::move(ext);
  return item;
}

class OutgoingCommandTest : public KitTest {
 protected:
  // Asserts a refused command: null, and exactly one logged line.
  void expectRefused(const String& result, const std::string& message) {
    EXPECT_TRUE(result.isNull()) << result.description();
    EXPECT_EQ(logs, std::vector<std::string>{"mrlog:Error:" + message});
    logs.clear();
  }
  static String dispatch(const std::shared_ptr<BaseReq>& req) { return MRApiInternal::genExtraUrlByReq(req, nullptr); }
};

// A host's own subclasses take the row of their base class.
class HostShareReq : public SendMessageToMRReq {
  MIRELO_MODEL_CLASS(HostShareReq)
};

// Each command byte for byte, as the messenger reads it.
TEST_F(OutgoingCommandTest, EveryRequestClassYieldsItsCommand) {
  struct Case {
    const char* name;
    std::shared_ptr<BaseReq> req;
    std::string expected;
  };
  const auto pay = [](auto& r) {
    r.nonceStr = "n1";
    r.package = "Sign=MRPay";
    r.partnerId = "p";
    r.prepayId = "pp";
    r.timeStamp = 1700000000;
    r.sign = "a/b+c";
  };
  const Case cases[] = {
      {"auth", make<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; r.state = "s t&x"; }),
       "auth/?scope=snsapi_userinfo&state=s%20t%26x"},
      // The ext info goes as it stands, and only when not empty; a null state ends in "&state=".
      {"tdi auth", make<SendTdiAuthReq>([](auto& r) { r.scope = "s"; r.state = "x"; r.tdiExtInfo = "a b"; }),
       "auth/?scope=s&state=x&tdi_ext_info=a b"},
      {"tdi auth, empty ext info", make<SendTdiAuthReq>([](auto& r) { r.scope = "s"; r.tdiExtInfo = ""; }),
       "auth/?scope=s&state="},
      {"redirecting page", make<MRLaunchMraRedirectingPageReq>([](auto& r) { r.ticket = "t 1"; }),
       "launchmraredirectingpage/?ticket=t 1"},
      {"pay", make<PayReq>(pay),
       "pay/?nonceStr=n1&package=Sign%3DMRPay&partnerId=p&prepayId=pp&timeStamp=1700000000&sign=a%2Fb%2Bc&signType=SHA1"},
      {"joint pay", make<MRJointPayReq>(pay),
       "jointpay/?nonceStr=n1&package=Sign%3DMRPay&partnerId=p&prepayId=pp&timeStamp=1700000000&sign=a%2Fb%2Bc"
       "&signType=SHA1"},
      {"offline pay", std::make_shared<MROfflinePayReq>(), "offlinepay/"},
      // The page address is encoded, then the whole query again.
      {"nontax pay", make<MRNontaxPayReq>([](auto& r) { r.urlString = "https://pay.example.com/a?b=1"; }),
       "opentypewebview/?type=3&query=url%3Dhttps%253A%252F%252Fpay.example.com%252Fa%253Fb%253D1"},
      {"pay insurance", make<MRPayInsuranceReq>([](auto& r) { r.urlString = "u v"; }),
       "opentypewebview/?type=4&query=url%3Du%2520v"},
      {"invoice auth", make<MRInvoiceAuthInsertReq>([](auto& r) { r.urlString = "a&b"; }),
       "opentypewebview/?type=2&query=url%3Da%2526b"},
      {"subscribe", make<MRSubscribeMsgReq>([](auto& r) { r.scene = 1000; r.templateId = "tpl"; r.reserved = "r v"; }),
       "opentypewebview/?type=1&query=scene%3D1000%26template_id%3Dtpl%26reserved%3Dr%20v"},
      {"subscribe, null reserved", make<MRSubscribeMsgReq>([](auto& r) { r.templateId = ""; }),
       "opentypewebview/?type=1&query=scene%3D0%26template_id%3D%26reserved%3D%28null%29"},
      {"subscribe mini program", make<MRSubscribeMiniProgramMsgReq>([](auto& r) { r.miniProgramAppid = "mr/app"; }),
       "opentypewebview/?type=5&query=miniProgramAppid%3Dmr%2Fapp"},
      {"open web view", make<OpenWebviewReq>([](auto& r) { r.url = "https://a.example.com/p?q=1"; }),
       "openwebview/?url=https%3A%2F%2Fa.example.com%2Fp%3Fq%3D1"},
      {"open web view, empty url", make<OpenWebviewReq>([](auto& r) { r.url = ""; }), "openwebview/?url="},
      {"business web view", make<MROpenBusinessWebViewReq>([](auto& r) { r.businessType = 7; }),
       "openbusinesswebview/?type=7"},
      {"rank list", std::make_shared<OpenRankListReq>(), "openranklist/"},
      {"create chat room", make<CreateChatRoomReq>([](auto& r) {
         r.groupId = "g 1";
         r.chatRoomName = "Room A";
         r.chatRoomNickName = "Me&you";
         r.extMsg = "a&b";
       }),
       "createchatroom/?groupid=g 1&chatroomname=Room%20A&chatroomnickname=Me%26you&extmsg=a&b"},
      {"join chat room", make<JoinChatRoomReq>([](auto& r) { r.groupId = "g1"; r.chatRoomNickName = "M e"; r.extMsg = "x"; }),
       "joinchatroom/?groupid=g1&chatroomnickname=M%20e&extmsg=x"},
      {"join chat room, id only", make<JoinChatRoomReq>([](auto& r) { r.groupId = "g1"; }), "joinchatroom/?groupid=g1"},
      {"scan result", make<MRHandleScanResultReq>([](auto& r) { r.scanResult = "code 1/2"; }),
       "handlescanresult/?result=code%201%2F2"},
      {"scan result, null", std::make_shared<MRHandleScanResultReq>(), "handlescanresult/"},
      {"mini program", make<MRLaunchMiniProgramReq>([](auto& r) {
         r.userName = "gh_1";
         r.path = "pages/index?x=1";
         r.miniProgramType = MRMiniProgramTypePreview;
         r.extDic = Dictionary{{"k", "not sent"}};
       }),
       "jumpMra/?userName=gh_1&path=pages%2Findex%3Fx%3D1&miniProgramType=2&extMsg="},
      {"mini program, ext msg", make<MRLaunchMiniProgramReq>([](auto& r) { r.userName = "gh 1"; r.extMsg = "{\"a\":1}"; }),
       "jumpMra/?userName=gh 1&path=&miniProgramType=0&extMsg=%7B%22a%22%3A1%7D"},
      {"business view", make<MROpenBusinessViewReq>([](auto& r) { r.businessType = "b t"; r.query = "a=b"; }),
       "jumpFakeNativeMra/?businessType=b t&query=a%3Db&extInfo="},
      {"business view, ext info", make<MROpenBusinessViewReq>([](auto& r) { r.businessType = "bt"; r.extInfo = "{}"; }),
       "jumpFakeNativeMra/?businessType=bt&query=&extInfo=%7B%7D"},
      {"share", make<SendMessageToMRReq>([](auto& r) { r.bText = true; r.text = "hi"; }), "sendreq/?"},
      {"host subclass of share", std::make_shared<HostShareReq>(), "sendreq/?"},
      {"channel video", make<MRChannelShareVideoReq>([](auto& r) { r.localIdentifier = "L/1"; }), "finderShareVideo/?"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(dispatch(c.req), c.expected);
    EXPECT_TRUE(logs.empty()) << logs.front();
    logs.clear();
  }
}

TEST_F(OutgoingCommandTest, EachFailedCheckLogsItsLineAndYieldsNull) {
  using Case = std::pair<std::shared_ptr<BaseReq>, std::string>;  // request, logged line
  const auto goodPay = [](auto& r) { r.nonceStr = r.package = r.partnerId = r.prepayId = r.sign = "x"; };
  const std::string longId = repeat("x", 1025);
  const std::string longUrl = repeat("u", 10241);
  const Case cases[] = {
      {make<SendAuthReq>([](auto& r) { r.state = "s"; }), "scope invaild"},
      {make<SendTdiAuthReq>([](auto& r) { r.scope = ""; r.tdiExtInfo = "abc"; }), "scope invaild"},
      {make<MRLaunchMraRedirectingPageReq>([](auto& r) { r.ticket = ""; }), "ticket invalid"},
      // The first missing pay field is the one reported.
      {make<PayReq>([&](auto& r) { goodPay(r); r.package = ""; r.sign = ""; }), "package is nil"},
      {make<PayReq>([&](auto& r) { goodPay(r); r.partnerId = String(); r.nonceStr = ""; }), "partnerId is nil"},
      {make<PayReq>([&](auto& r) { goodPay(r); r.prepayId = ""; }), "prepayId is nil"},
      {make<MRJointPayReq>([&](auto& r) { goodPay(r); r.sign = ""; r.nonceStr = ""; }), "sign is nil"},
      {make<PayReq>([&](auto& r) { goodPay(r); r.nonceStr = String(); }), "nonceStr is nil"},
      {std::make_shared<MRNontaxPayReq>(), "url string is null"},
      {make<MRInvoiceAuthInsertReq>([](auto& r) { r.urlString = ""; }), "url string is null"},
      {make<OpenWebviewReq>([&](auto& r) { r.url = longUrl; }), "url length over limit[10240]"},
      {make<MRSubscribeMsgReq>([](auto& r) { r.templateId = repeat("t", 10241); }), "templateId length over limit[10240]"},
      {make<MRSubscribeMiniProgramMsgReq>([](auto& r) { r.miniProgramAppid = ""; }), "miniprogram appid is nil"},
      {std::make_shared<MRLaunchMiniProgramReq>(), "userName invaild"},
      {make<MRLaunchMiniProgramReq>([](auto& r) { r.userName = "u"; r.miniProgramType = 3; }),
       "miniProgramType invaild"},
      {make<MROpenBusinessViewReq>([](auto& r) { r.businessType = ""; r.query = "q"; }), "businessType invaild"},
      {std::make_shared<CreateChatRoomReq>(), "groupId[length:0] invaild, limit length[1024]"},
      {make<CreateChatRoomReq>([](auto& r) { r.groupId = "g"; r.chatRoomName = repeat("n", 513); }),
       "chatRoomName length over limit[512]"},
      {make<CreateChatRoomReq>([](auto& r) { r.groupId = "g"; r.chatRoomNickName = repeat("n", 513); }),
       "chatRoomNickName length over limit[512]"},
      {make<CreateChatRoomReq>([](auto& r) { r.groupId = "g"; r.extMsg = repeat("e", 2049); }),
       "extMsg length over limit[2048]"},
      {make<JoinChatRoomReq>([&](auto& r) { r.groupId = longId; }), "groupId[length:1025] invaild, limit length[1024]"},
      {make<JoinChatRoomReq>([](auto& r) { r.groupId = "g"; r.chatRoomNickName = repeat("n", 1025); }),
       "chatRoomNickName length over limit[1024]"},
      {make<JoinChatRoomReq>([](auto& r) { r.groupId = "g"; r.extMsg = repeat("e", 2049); }),
       "extMsg length over limit[2048]"},
      {make<SendMessageToMRReq>([](auto& r) { r.scene = MRSceneSpecifiedSession; }),
       "send specifiedSession baseReq.openId can not be null"},
      {make<SendMessageToMRReq>([](auto& r) { r.scene = MRSceneSpecifiedSession; r.openID = "me"; r.toUserOpenId = ""; }),
       "send specifiedSession toUserOpenId can not be null"},
      {make<MRChannelShareVideoReq>([](auto& r) { r.localIdentifier = ""; }), "ShareVideo: localIdentifier.length = 0"},
      {std::make_shared<MRChannelOpenProfileReq>(), "OpenProfile: userName.length = 0"},
      {make<MRChannelOpenProfileReq>([&](auto& r) { r.userName = longId; }), "OpenProfile: userName.length > 0"},
      // Live and feed share their checks; each names its own request.
      {make<MRChannelOpenLiveReq>([](auto& r) { r.nonceID = "n"; }), "OpenLive: feedID.length = 0"},
      {make<MRChannelOpenFeedReq>([](auto& r) { r.feedID = ""; r.nonceID = "n"; }), "OpenFeed: feedID.length = 0"},
      {make<MRChannelOpenFeedReq>([&](auto& r) { r.feedID = longId; }), "OpenFeed: feedID.length too long"},
      {make<MRChannelOpenFeedReq>([](auto& r) { r.feedID = "f"; r.nonceID = ""; }), "OpenFeed: nonceID.length = 0"},
      {make<MRChannelOpenFeedReq>([&](auto& r) { r.feedID = "f"; r.nonceID = longId; }),
       "OpenFeed: nonceID.length too long"},
      {make<MROpenCustomerServiceReq>([](auto& r) { r.corpid = "c"; }), "OpenCustomerService: url.length = 0"},
      {make<MROpenCustomerServiceReq>([&](auto& r) { r.url = longUrl; r.corpid = "c"; }),
       "OpenCustomerService: url.length too long"},
      {make<MROpenCustomerServiceReq>([](auto& r) { r.url = "u"; }), "OpenFeed: corpid.length = 0"},
      {make<MROpenCustomerServiceReq>([&](auto& r) { r.url = "u"; r.corpid = longUrl; }),
       "OpenCustomerService: corpid.length too long"},
      {std::make_shared<AddCardToMRCardPackageReq>(), "card ary count invaild"},
  };
  for (const auto& [req, line] : cases) {
    SCOPED_TRACE(line + " / " + req->className());
    expectRefused(dispatch(req), line);
  }
}

TEST_F(OutgoingCommandTest, LimitsAreInclusiveAndChatRoomLimitsCountUtf16Units) {
  // 1024 units pass whatever their byte length: an emoji is four bytes, two units.
  const std::string emoji512 = repeat("\xF0\x9F\x98\x80", 512);
  EXPECT_EQ(dispatch(make<JoinChatRoomReq>([&](auto& r) { r.groupId = emoji512; })),
            "joinchatroom/?groupid=" + emoji512);
  expectRefused(dispatch(make<JoinChatRoomReq>([&](auto& r) { r.groupId = emoji512 + "\xF0\x9F\x98\x80"; })),
                "groupId[length:1026] invaild, limit length[1024]");

  // The nickname limit is 512 when creating (refused above) and 1024 when joining.
  const std::string nick513 = repeat("n", 513);
  EXPECT_EQ(dispatch(make<JoinChatRoomReq>([&](auto& r) { r.groupId = "g"; r.chatRoomNickName = nick513; })),
            "joinchatroom/?groupid=g&chatroomnickname=" + nick513);
  // Exactly at the limits passes.
  EXPECT_FALSE(dispatch(make<CreateChatRoomReq>([](auto& r) {
                 r.groupId = repeat("g", 1024);
                 r.chatRoomName = repeat("a", 512);
                 r.chatRoomNickName = repeat("b", 512);
                 r.extMsg = repeat("c", 2048);
               })).isNull());
  EXPECT_FALSE(dispatch(make<OpenWebviewReq>([&](auto& r) { r.url = repeat("u", 10240); })).isNull());
  EXPECT_FALSE(dispatch(make<MRSubscribeMsgReq>([&](auto& r) { r.templateId = repeat("t", 10240); })).isNull());
  EXPECT_TRUE(logs.empty());
}

TEST_F(OutgoingCommandTest, CardPackageCountAndItemLimits) {
  auto cards = [](std::size_t n) {
    auto ary = std::make_shared<MRCardItemArray>();
    for (std::size_t i = 0; i < n; ++i) ary->push_back(card("id" + std::to_string(i), "e"));
    return make<AddCardToMRCardPackageReq>([&](auto& r) { r.cardAry = ary; });
  };
  const Json forty = jsonAfter(dispatch(cards(40)), "cardpackage/?");
  EXPECT_EQ(forty.size(), 80u);
  EXPECT_EQ(forty["id39"], "id39");
  EXPECT_TRUE(logs.empty());
  expectRefused(dispatch(cards(41)), "card ary count invaild");
  expectRefused(dispatch(cards(0)), "card ary count invaild");

  const std::pair<std::shared_ptr<MRCardItem>, std::string> items[] = {  // item, logged line ("": accepted)
      {card(repeat("i", 1024), repeat("e", 2048)), ""},
      {card("", "e"), "card id length invaild"},
      {nullptr, "card id length invaild"},
      {card("i", repeat("e", 2049)), "extMsg invaild"},
      {card("i\xFF", "e"), "json invaild"},  // not UTF-8: no JSON string
  };
  for (const auto& [item, line] : items) {
    SCOPED_TRACE(line);
    const auto ary = std::make_shared<MRCardItemArray>(MRCardItemArray{item});
    auto one = make<AddCardToMRCardPackageReq>([&](auto& r) { r.cardAry = ary; });
    if (line.empty()) {
      EXPECT_FALSE(dispatch(one).isNull());
      EXPECT_TRUE(logs.empty());
    } else {
      expectRefused(dispatch(one), line);
    }
  }
}

TEST_F(OutgoingCommandTest, ChooseCardSendsSetStringsAndAlwaysTheNumbers) {
  auto req = make<MRChooseCardReq>([](auto& r) {
    r.appID = "mr1";
    r.shopID = 4000000000u;
    r.canMultiSelect = 1;
    r.cardType = "GROUPON";
    r.cardTpID = "";
    r.signType = "SHA1";
    r.cardSign = "s+g/n";
    r.timeStamp = 1700000000;
  });
  const Json json = jsonAfter(dispatch(req), "choosecard/?");
  EXPECT_EQ(json, Json({{"appID", "mr1"}, {"shopID", 4000000000u}, {"canMultiSelect", 1}, {"cardType", "GROUPON"},
                        {"signType", "SHA1"}, {"cardSign", "s+g/n"}, {"timeStamp", 1700000000}}));

  // An empty request still carries the three numbers.
  EXPECT_EQ(jsonAfter(dispatch(std::make_shared<MRChooseCardReq>()), "choosecard/?"),
            Json({{"shopID", 0}, {"canMultiSelect", 0}, {"timeStamp", 0}}));
  EXPECT_TRUE(logs.empty());

  expectRefused(dispatch(make<MRChooseCardReq>([](auto& r) { r.nonceStr = "\xC3"; })), "json invaild");
}

TEST_F(OutgoingCommandTest, ChooseInvoiceIsAlwaysMultiSelectOfInvoices) {
  auto req = make<MRChooseInvoiceReq>([](auto& r) {
    r.appID = "mr1";
    r.shopID = 9;
    r.signType = "";
    r.cardSign = "sig";
    r.timeStamp = std::numeric_limits<std::uint32_t>::max();
    r.nonceStr = "n o";
  });
  const String url = dispatch(req);
  EXPECT_TRUE(url.hasPrefix("chooseinvoice/?%7B")) << url.str();
  const Json json = jsonAfter(url, "chooseinvoice/?");
  EXPECT_EQ(json, Json({{"appID", "mr1"}, {"shopID", 9}, {"canMultiSelect", 1}, {"cardType", "INVOICE"},
                        {"cardSign", "sig"}, {"timeStamp", 4294967295u}, {"nonceStr", "n o"}}));
  EXPECT_TRUE(logs.empty());
  expectRefused(dispatch(make<MRChooseInvoiceReq>([](auto& r) { r.appID = "\xFF"; })), "json invaild");
}

// The messenger reads the encoded query back in the send-pipeline tests.
TEST_F(OutgoingCommandTest, ABusinessWebViewDictionaryThatCannotBeJsonGoesWithoutAQuery) {
  auto dict = std::make_shared<Dictionary>(Dictionary{{"n", 3}, {"blob", Data::copy("\x01\x02")}});
  auto req = make<MROpenBusinessWebViewReq>([&](auto& r) {
    r.businessType = 4294967295u;
    r.queryInfoDic = dict;
  });
  EXPECT_EQ(dispatch(req), "openbusinesswebview/?type=4294967295");
  dict->set("blob", Date{1.0});
  EXPECT_EQ(dispatch(req), "openbusinesswebview/?type=4294967295");
  EXPECT_TRUE(logs.empty());
}

}  // namespace
}  // namespace mirelo::testing
