// The incoming URL entry on the simulated device: the URL that opens the
// host and the pasteboard item the messenger may have written, both taken
// from one input:
//   byte 0        bits 0-1, the entry: 0 handleOpenURL, 1
//                 handleOpenUniversalLink (a browsing-web activity), 2 a
//                 user activity of another type, 3 as 0; bit 2: a
//                 universal-link self-check is waiting for its return leg
//   up to "\n"    the URL text
//   the rest      the pasteboard's "content" item (none when empty)
// The host is registered, holds a token in its keychain and has a share
// request waiting for a token under Rig::kContextId.  After the call the
// device runs the kit's delayed work (re-sends, relaunches).  Checked
// besides crashes:
//   - a URL that is not addressed to this app id (its scheme URL or its
//     universal link) is not handled and reaches no delegate;
//   - the delegate never receives a null object;
//   - the token never leaves the host except towards the messenger.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/harness/Input.h"
#include "fuzz/harness/Rig.h"
#include "mirelo/MRApi.h"
#include "mirelo/URL.h"
#include "mirelo/UserActivity.h"
#include "transport/AppCommunicate.h"

namespace mirelo::fuzz {

class CountingDelegate : public MRApiDelegate {
 public:
  void onReq(const std::shared_ptr<BaseReq>& req) override {
    ++calls;
    if (!req) ++nulls;
    else (void)req->description();
  }
  void onResp(const std::shared_ptr<BaseResp>& resp) override {
    ++calls;
    if (!resp) ++nulls;
    else (void)resp->errStr.description();
  }
  int calls = 0;
  int nulls = 0;
};

inline std::string runOpenUrl(Rig& rig, const std::uint8_t* data, std::size_t size) {
  rig.reset(true);
  Input in(data, size);
  const std::uint8_t mode = in.byte();
  const unsigned entry = (mode & 3u) % 3;
  int checkSteps = 0;
  if (mode & 4u) {
    MireloIdentityHandler& identity = MireloIdentityHandler::shareInstance();
    identity.setUniversalLinkCheckEnable(true);
    identity.setCheckCompletion([&checkSteps](std::int64_t, std::shared_ptr<MRCheckULStepResult> result) {
      ++checkSteps;
      if (result) (void)result->description();
    });
  }
  const std::string text(in.line());
  const std::string_view item = in.rest();
  if (!item.empty()) rig.device->setPasteboardData(Data::copy(item), AppCommunicate::kPasteboardType);

  const std::optional<URL> url = URL::fromString(text);
  auto delegate = std::make_shared<CountingDelegate>();
  bool handled = false;
  if (entry == 0) {
    handled = MRApi::handleOpenURL(url, delegate);
  } else {
    UserActivity activity;
    activity.activityType = entry == 1 ? NSUserActivityTypeBrowsingWeb : "NSUserActivityTypeFuzz";
    activity.webpageURL = url;
    handled = MRApi::handleOpenUniversalLink(activity, delegate);
  }
  // The kit's own follow-ups run 0.1 s later; their opens complete after.
  rig.device->advance(1.0);
  rig.device->runUntilIdle();
  // The completion refers to this frame.
  MireloIdentityHandler::shareInstance().setCheckCompletion(nullptr);
  MireloIdentityHandler::shareInstance().setUniversalLinkCheckEnable(false);

  const std::string schemePrefix = std::string(Rig::kAppId) + "://";
  const std::string linkPrefix = std::string(Rig::kUniversalLink) + Rig::kAppId;
  const bool addressed = url && (text.rfind(schemePrefix, 0) == 0 || text.rfind(linkPrefix, 0) == 0);
  if (!addressed || entry == 2) {
    if (handled) return "a URL not addressed to the host was handled";
    if (delegate->calls != 0) return "a URL not addressed to the host reached the delegate";
  }
  if (delegate->nulls != 0) return "the delegate was handed a null object";
  if (checkSteps > 2) return "the self-check's return leg reported more than two steps";
  if (std::string p = rig.oversizedLog(size); !p.empty()) return p;
  std::string input(reinterpret_cast<const char*>(data), size);
  return rig.tokenLeak(input);
}

}  // namespace mirelo::fuzz
