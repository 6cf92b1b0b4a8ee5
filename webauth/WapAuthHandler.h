// Sign-in on the open platform's web pages, shown in a web view inside the
// host, for a device without the messenger.  One shared handler; main
// thread.
//
// A run: the page is presented and loads the mobile-check page; that page
// hands back through "<app id>://wapoauth?<params>", the system opens the
// host, and the hand-back loads the SMS-authorise page in the same web view;
// that page redirects to "<app id>://oauth?code=...", whose handler ends the
// run and answers the host.  The user may cancel at any point.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "mirelo/MRApi.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"
#include "mirelo/Value.h"
#include "webauth/MRWebViewController.h"

namespace mirelo {

class WapAuthHandler final : public MRWebViewControllerDelegate, public std::enable_shared_from_this<WapAuthHandler> {
 public:
  static WapAuthHandler& shareWapAuthHandlerInstance();

  // Starts a web sign-in for `req` (ending any run still going), presenting
  // the page from `currentVC`; always true.
  bool beginWapAuth(const std::shared_ptr<SendAuthReq>& req,
                    const std::shared_ptr<platform::ViewController>& currentVC, const String& appId,
                    const std::shared_ptr<MRApiDelegate>& delegate);
  // True when `url` was the mobile-check page's hand-back and was consumed.
  bool handleWapOAuthOpenUrl(const std::optional<URL>& url);
  // Closes a running sign-in; false when none was running.
  bool endWapAuth();
  // The "取消" button: asks whether to quit the sign-in.
  void cancelWapOAuth();

  std::string getMobileCheckUrl() const;
  // The run's controller, made (with its page) when none is held.
  std::shared_ptr<MRWebViewController> getWebViewController();

  // MRWebViewControllerDelegate
  void onCancelOAuthWebView() override;
  void onHiddenLeftBar() override;
  void onShowLeftBar() override;
  // Of the host's own scheme only this run's two hand-backs leave the page;
  // with strict navigation, also everything but the open platform's https
  // pages.  See mirelo/MRWebSignIn.h.
  bool refusesNavigation(const std::string& url) override;

  // "k=v&k2=v2" as a dictionary of the raw (still escaped) texts.
  static Dictionary parseURLParams(const String& query);

  bool running() const { return running_; }
  // The run's random "uid".
  std::uint64_t timeStamp() const { return timeStamp_; }
  const std::shared_ptr<MRWebViewController>& webViewController() const { return webViewController_; }

 private:
  WapAuthHandler() = default;
  static void resetProcessState();
  platform::BarButtonItem cancelButton();

  std::shared_ptr<MRWebViewController> webViewController_;
  String appId_;
  std::uint64_t timeStamp_ = 0;
  std::shared_ptr<SendAuthReq> sendAuthReq_;
  bool running_ = false;
  // Held weakly: a host that passes a temporary delegate gets no cancel
  // answer (an error line says so).
  std::weak_ptr<MRApiDelegate> delegate_;
  // Counts runs, so that what a run left behind (its cancel alert) cannot
  // touch a later one.
  std::uint64_t run_ = 0;
};

}  // namespace mirelo
