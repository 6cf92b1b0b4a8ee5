#include "webauth/WapAuthHandler.h"

#include "mirelo/platform/ProcessState.h"

namespace mirelo {

WapAuthHandler& WapAuthHandler::shareWapAuthHandlerInstance() {
  static WapAuthHandler instance;
  platform::registerProcessReset(&WapAuthHandler::resetProcessState);
  return instance;
}

void WapAuthHandler::resetProcessState() {
  WapAuthHandler& h = shareWapAuthHandlerInstance();
  h.running_ = false;
  h.appId_ = String();
  h.sendAuthReq_.reset();
  h.delegate_.reset();
}

bool WapAuthHandler::beginWapAuth(const std::shared_ptr<SendAuthReq>& req,
                                  const std::shared_ptr<platform::ViewController>& currentVC,
                                  const String& appId, const std::shared_ptr<MRApiDelegate>& delegate) {
  (void)currentVC;
  endWapAuth();
  delegate_ = delegate;
  running_ = true;
  sendAuthReq_ = req;
  appId_ = appId;
  return true;
}

bool WapAuthHandler::handleWapOAuthOpenUrl(const std::optional<URL>& url) {
  (void)url;
  return false;
}

bool WapAuthHandler::endWapAuth() {
  if (!running_) return false;
  running_ = false;
  return true;
}

}  // namespace mirelo
