#include "webauth/WapAuthHandler.h"

#include <algorithm>

#include "mirelo/platform/ProcessState.h"
#include "util/Format.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

constexpr const char* kPageTitle = "Mirelo登录";
constexpr const char* kCancelTitle = "取消";
constexpr const char* kCancelMessage = "取消后将退出本次登录";
constexpr const char* kQuitTitle = "退出登录";
constexpr const char* kStayTitle = "继续登录";

constexpr const char* kMobileCheckPath = "/connect/mobilecheck?appid=%@&uid=%llu";
constexpr const char* kSmsAuthorizePath =
    "/connect/smsauthorize?appid=%@&redirect_uri=%@&response_type=code&scope=%@&state=%@&uid=%llu&%@";
// "<app id>://oauth", escaped once on purpose.
constexpr const char* kRedirectUriFormat = "%@%%3A%%2F%%2Foauth";
constexpr const char* kHandBackPrefixFormat = "%@://wapoauth?";

std::shared_ptr<platform::Presenter> presenter() { return platform::current().presenter; }

}  // namespace

WapAuthHandler& WapAuthHandler::shareWapAuthHandlerInstance() {
  // Held by a shared_ptr so that the page's callbacks can hold it weakly.
  static const std::shared_ptr<WapAuthHandler> instance = [] {
    platform::registerProcessReset(&WapAuthHandler::resetProcessState);
    return std::shared_ptr<WapAuthHandler>(new WapAuthHandler());
  }();
  return *instance;
}

void WapAuthHandler::resetProcessState() {
  WapAuthHandler& h = shareWapAuthHandlerInstance();
  // The screens died with the process: drop the controller, dismiss nothing.
  h.webViewController_.reset();
  h.appId_ = String();
  h.timeStamp_ = 0;
  h.sendAuthReq_.reset();
  h.running_ = false;
  h.delegate_.reset();
  h.random_ = std::mt19937();
}

bool WapAuthHandler::beginWapAuth(const std::shared_ptr<SendAuthReq>& req,
                                  const std::shared_ptr<platform::ViewController>& currentVC,
                                  const String& appId, const std::shared_ptr<MRApiDelegate>& delegate) {
  endWapAuth();
  delegate_ = delegate;
  running_ = true;
  // 31 bits, as the system's random() gives.
  timeStamp_ = random_() >> 1;
  sendAuthReq_ = req;
  appId_ = appId;

  const std::shared_ptr<MRWebViewController> controller = getWebViewController();
  if (const auto p = presenter(); p && controller->page()) {
    const std::weak_ptr<MRWebViewController> weakController = controller;
    const std::weak_ptr<WapAuthHandler> weakSelf = weak_from_this();
    p->presentInNavigationController(controller->page(), currentVC, true, [weakController, weakSelf] {
      // A run ended before its page came up has dropped its controller.
      const auto c = weakController.lock();
      const auto self = weakSelf.lock();
      if (c && self) c->refresh(self->getMobileCheckUrl());
    });
  }
  return true;
}

bool WapAuthHandler::handleWapOAuthOpenUrl(const std::optional<URL>& url) {
  if (!running_) return false;
  const std::string prefix = format(kHandBackPrefixFormat, appId_);
  if (!url || !url->absoluteString().starts_with(prefix)) return false;
  const std::string params = url->absoluteString().substr(prefix.size());
  if (params.empty()) return false;

  const String scope = sendAuthReq_ ? sendAuthReq_->scope : String();
  const String state = sendAuthReq_ ? sendAuthReq_->state : String();
  const std::string redirectUri = format(kRedirectUriFormat, appId_);
  const std::string page = std::string(kMireloOpenPlatformBaseUrl) +
                           format(kSmsAuthorizePath, appId_, redirectUri, scope, state, timeStamp_, params);
  if (webViewController_) webViewController_->refresh(page);
  return true;
}

bool WapAuthHandler::endWapAuth() {
  if (!running_) return false;
  running_ = false;
  if (webViewController_) {
    if (const auto p = presenter(); p && webViewController_->page()) p->dismiss(webViewController_->page(), true);
  }
  webViewController_.reset();
  return true;
}

void WapAuthHandler::cancelWapOAuth() {
  const auto p = presenter();
  if (!p) return;
  const std::weak_ptr<WapAuthHandler> weakSelf = weak_from_this();
  platform::Alert alert;
  alert.title = "";
  alert.message = kCancelMessage;
  alert.actions.push_back({kQuitTitle, platform::AlertActionStyle::Default, [weakSelf] {
                             const auto self = weakSelf.lock();
                             if (!self) return;
                             if (const auto delegate = self->delegate_.lock()) {
                               auto resp = std::make_shared<SendAuthResp>();
                               resp->errCode = ErrCodeUserCancel;
                               delegate->onResp(resp);
                             }
                             self->endWapAuth();
                           }});
  alert.actions.push_back({kStayTitle, platform::AlertActionStyle::Cancel, nullptr});
  p->presentAlert(alert, webViewController_ ? webViewController_->page() : nullptr);
}

std::string WapAuthHandler::getMobileCheckUrl() const {
  return std::string(kMireloOpenPlatformBaseUrl) + format(kMobileCheckPath, appId_, timeStamp_);
}

std::shared_ptr<MRWebViewController> WapAuthHandler::getWebViewController() {
  if (!webViewController_) {
    webViewController_ = MRWebViewController::initWithDelegate(weak_from_this());
    webViewController_->viewDidLoad();
    webViewController_->setLeftBarButtonItem(cancelButton());
    webViewController_->setTitle(kPageTitle);
  }
  return webViewController_;
}

void WapAuthHandler::onCancelOAuthWebView() {
  running_ = false;
  if (const auto p = presenter(); p && webViewController_ && webViewController_->page()) {
    p->dismiss(webViewController_->page(), true);
  }
}

void WapAuthHandler::onHiddenLeftBar() {
  if (webViewController_) webViewController_->setLeftBarButtonItem(std::nullopt);
}

void WapAuthHandler::onShowLeftBar() {
  if (webViewController_) webViewController_->setLeftBarButtonItem(cancelButton());
}

platform::BarButtonItem WapAuthHandler::cancelButton() {
  const std::weak_ptr<WapAuthHandler> weakSelf = weak_from_this();
  return {kCancelTitle, [weakSelf] {
            if (const auto self = weakSelf.lock()) self->cancelWapOAuth();
          }};
}

Dictionary WapAuthHandler::parseURLParams(const String& query) {
  Dictionary params;
  if (query.isNull()) return params;
  const std::string_view text = query.view();
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t amp = std::min(text.find('&', start), text.size());
    const std::string_view piece = text.substr(start, amp - start);
    // Piece 0 is the key and piece 1 the value; a piece without "=" has no
    // value, and the safe setter skips it.
    const std::size_t eq = piece.find('=');
    if (eq != std::string_view::npos) {
      const std::string_view rest = piece.substr(eq + 1);
      const std::string_view value = rest.substr(0, rest.find('='));
      params.mrApi_safeSetObject(Value(std::string(value)), String(piece.substr(0, eq)));
    }
    start = amp + 1;
  }
  return params;
}

}  // namespace mirelo
