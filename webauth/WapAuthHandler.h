// Sign-in on the open platform's web pages, shown in a web view inside the
// host, for a device without the messenger.  One shared handler; main
// thread.
#pragma once

#include <memory>
#include <optional>

#include "mirelo/MRApi.h"
#include "mirelo/String.h"
#include "mirelo/URL.h"

namespace mirelo {

class WapAuthHandler {
 public:
  static WapAuthHandler& shareWapAuthHandlerInstance();

  // Starts a web sign-in for `req` (ending any run still going); always true.
  bool beginWapAuth(const std::shared_ptr<SendAuthReq>& req,
                    const std::shared_ptr<platform::ViewController>& currentVC, const String& appId,
                    const std::shared_ptr<MRApiDelegate>& delegate);
  // True when `url` was the mobile-check page's hand-back and was consumed.
  bool handleWapOAuthOpenUrl(const std::optional<URL>& url);
  // Closes a running sign-in; false when none was running.
  bool endWapAuth();

  bool running() const { return running_; }

 private:
  WapAuthHandler() = default;
  static void resetProcessState();

  bool running_ = false;
  String appId_;
  std::shared_ptr<SendAuthReq> sendAuthReq_;
  std::weak_ptr<MRApiDelegate> delegate_;
};

}  // namespace mirelo
