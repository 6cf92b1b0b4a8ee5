// The card lists of the messenger's add-card, choose-card and
// choose-invoice answers: JSON inside a query value.  The input is the JSON
// text; byte 0 picks the answer (0 add-card, 1 choose-card, 2
// choose-invoice; larger values wrap).  The text travels percent-escaped, as
// the messenger writes it, in an answer URL to the registered host.
// Checked besides crashes: the host gets exactly the items of the list, in
// order, each with the fields of its JSON object (read here on their own),
// and never an item without a card id.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/harness/Input.h"
#include "fuzz/harness/Rig.h"
#include "mirelo/MRApi.h"
#include "api/MRApiInternal.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"

namespace mirelo::fuzz {

namespace detail {

struct ExpectedItem {
  String cardId, extMsg, encryptCode, appID;
  std::optional<std::uint32_t> cardState;  // when "is_succ" is an integer
};

inline String jsonString(const nlohmann::json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? String(it->get<std::string>()) : String();
}

// The items of `text` as the protocol describes them: text (UTF-8) holding
// a JSON array whose object elements with a non-empty string "card_id" are
// the items.  JSON has no raw NUL (the parser here would stop at one).
inline std::vector<ExpectedItem> expectedItems(const std::string& text, bool addCard) {
  std::vector<ExpectedItem> items;
  if (!isWellFormedUtf8(text) || text.find('\0') != std::string::npos) return items;
  const nlohmann::json doc = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (doc.is_discarded() || !doc.is_array()) return items;
  for (const nlohmann::json& element : doc) {
    if (!element.is_object()) continue;
    ExpectedItem item;
    item.cardId = jsonString(element, "card_id");
    if (item.cardId.empty()) continue;
    if (addCard) {
      item.extMsg = jsonString(element, "card_ext");
      item.encryptCode = jsonString(element, "code");
      const auto succ = element.find("is_succ");
      if (succ != element.end() && succ->is_number_integer()) {
        item.cardState = succ->is_number_unsigned() ? static_cast<std::uint32_t>(succ->get<std::uint64_t>())
                                                    : static_cast<std::uint32_t>(succ->get<std::int64_t>());
      }
    } else {
      item.encryptCode = jsonString(element, "encrypt_code");
      item.appID = jsonString(element, "app_id");
    }
    items.push_back(std::move(item));
  }
  return items;
}

template <class Item>
std::string compareItems(const std::shared_ptr<std::vector<std::shared_ptr<Item>>>& got,
                         const std::vector<ExpectedItem>& want) {
  if (!got) return "the response has no card list";
  if (got->size() != want.size()) {
    return "the host got " + std::to_string(got->size()) + " items, the list has " + std::to_string(want.size());
  }
  for (std::size_t i = 0; i < want.size(); ++i) {
    const Item* item = (*got)[i].get();
    if (!item) return "a null item";
    if (item->cardId.empty()) return "an item without a card id";
    if (!(item->cardId == want[i].cardId) || !(item->extMsg == want[i].extMsg) ||
        !(item->encryptCode == want[i].encryptCode) || !(item->appID == want[i].appID)) {
      return "item " + std::to_string(i) + " differs from its JSON object";
    }
    if (want[i].cardState && item->cardState != *want[i].cardState) {
      return "item " + std::to_string(i) + " has another state than its JSON object";
    }
  }
  return std::string();
}

class CardDelegate : public MRApiDelegate {
 public:
  void onResp(const std::shared_ptr<BaseResp>& resp) override { resps.push_back(resp); }
  std::vector<std::shared_ptr<BaseResp>> resps;
};

}  // namespace detail

inline std::string runCardList(Rig& rig, const std::uint8_t* data, std::size_t size) {
  rig.reset(false);
  Input in(data, size);
  const unsigned answer = in.byte() % 3;
  const std::string text(in.rest());
  static constexpr const char* kNames[] = {"cardPackage", "choosecard", "chooseinvoice"};
  static constexpr const char* kKeys[] = {"addCardInfo", "chooseCardInfo", "chooseInvoiceInfo"};
  const std::string urlText = std::string(Rig::kAppId) + "://" + kNames[answer] + "/?errCode=0&" + kKeys[answer] +
                              "=" + escapeAll(text);
  const std::optional<URL> url = URL::fromString(urlText);
  if (!url) return "the answer URL does not parse: " + urlText;

  auto delegate = std::make_shared<detail::CardDelegate>();
  const bool handled = answer == 0   ? MRApiInternal::handleAddCardOpenUrl(url, delegate)
                       : answer == 1 ? MRApiInternal::handleChooseCard(url, delegate)
                                     : MRApiInternal::handleChooseInvoice(url, delegate);
  if (!handled || delegate->resps.size() != 1) return "the answer was not delivered once";
  const std::vector<detail::ExpectedItem> want = detail::expectedItems(text, answer == 0);
  const std::shared_ptr<BaseResp>& resp = delegate->resps.front();
  if (answer == 0) {
    const auto add = kindCast<AddCardToMRCardPackageResp>(resp);
    return add ? detail::compareItems(add->cardAry, want) : "not an add-card response";
  }
  if (answer == 1) {
    const auto choose = kindCast<MRChooseCardResp>(resp);
    return choose ? detail::compareItems(choose->cardAry, want) : "not a choose-card response";
  }
  const auto invoice = kindCast<MRChooseInvoiceResp>(resp);
  return invoice ? detail::compareItems(invoice->cardAry, want) : "not a choose-invoice response";
}

}  // namespace mirelo::fuzz
