#include "support/PeerFixture.h"

#include "util/BinaryPlist.h"

namespace mirelo::testing {

UserActivity browsingActivity(const std::string& url) {
  return UserActivity{String(NSUserActivityTypeBrowsingWeb), URL::fromString(url)};
}

std::shared_ptr<SendMessageToMRReq> textShare(const std::string& text) {
  return makeReq<SendMessageToMRReq>([&](auto& r) { r.bText = true; r.text = text; });
}

std::string hostSchemeUrl(const std::string& tail) { return std::string(kHostAppId) + "://" + tail; }

std::string hostLinkUrl(const std::string& tail) {
  return std::string(kHostUniversalLink) + kHostAppId + "/" + tail;
}

void PeerKitTest::SetUp() {
  KitTest::SetUp();
  device->uninstall(kMessengerBundleId);
  messenger = nullptr;
  peer = sim::MessengerPeer::install(*device);
  messenger = peer->app();
  delegate = std::make_shared<RecordingDelegate>();
  hostHandler = [this](const sim::OpenContext& context) {
    if (context.viaUniversalLink) return MRApi::handleOpenUniversalLink(browsingActivity(context.url), delegate);
    return MRApi::handleOpenURL(URL::fromString(context.url), delegate);
  };
  host->onOpenURL([this](const sim::OpenContext& context) {
    const bool handled = hostHandler ? hostHandler(context) : false;
    hostOpens.push_back({context.url, context.viaUniversalLink, handled});
  });
}

void PeerKitTest::TearDown() {
  host->onOpenURL(nullptr);
  hostHandler = nullptr;
  KitTest::TearDown();
}

bool PeerKitTest::openHost(const std::string& url) {
  const std::size_t before = hostOpens.size();
  device->openURL(url, kMessengerBundleId);
  device->runUntilIdle();
  return hostOpens.size() > before && hostOpens.back().handled;
}

void PeerKitTest::plantRecord(const Dictionary& record, const std::string& appId) {
  Dictionary item;
  item.set(appId, Value(record));
  device->setPasteboardData(bplist::encode(Value(item)), "content");
}

std::vector<std::string> PeerKitTest::deliveredClasses() const {
  std::vector<std::string> out;
  for (const auto& r : delegate->reqs) out.push_back(r ? r->className() : "(null)");
  for (const auto& r : delegate->resps) out.push_back(r ? r->className() : "(null)");
  return out;
}

}  // namespace mirelo::testing
