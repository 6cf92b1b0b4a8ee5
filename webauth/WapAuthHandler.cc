#include "webauth/WapAuthHandler.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "mirelo/MRWebSignIn.h"
#include "mirelo/platform/ProcessState.h"
#include "util/Format.h"
#include "util/Log.h"
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

// The keys the kit itself puts on the SMS-authorise page.  A hand-back that
// carries one of them again (any app can open the host with a "wapoauth"
// URL) would add a second value, and a page that reads the last one would
// send the code to another redirect URI or ask for another scope: such
// pieces are dropped.
constexpr std::array<std::string_view, 6> kKitKeys = {"appid", "redirect_uri", "response_type",
                                                      "scope", "state",        "uid"};

bool isKitKey(std::string_view piece) {
  const std::string_view key = piece.substr(0, piece.find('='));
  for (std::string_view k : kKitKeys) {
    if (key.size() == k.size() &&
        std::equal(key.begin(), key.end(), k.begin(), [](char a, char b) {
          return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
        })) {
      return true;
    }
  }
  return false;
}

// `params` without the pieces that name one of the kit's keys.
std::string withoutKitKeys(std::string_view params) {
  std::string out;
  out.reserve(params.size());
  std::size_t start = 0;
  bool dropped = false;
  while (start <= params.size()) {
    const std::size_t amp = std::min(params.find('&', start), params.size());
    const std::string_view piece = params.substr(start, amp - start);
    if (isKitKey(piece)) {
      dropped = true;
    } else {
      if (!out.empty()) out.push_back('&');
      out.append(piece);
    }
    start = amp + 1;
  }
  if (!dropped) return std::string(params);
  return out;
}

MRWebSignInOptions& options() {
  static MRWebSignInOptions o;
  return o;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (lower(text[i]) != lower(prefix[i])) return false;
  }
  return true;
}

// The decoded value of `key` in the query of `url` (null when absent).
String queryValue(std::string_view url, std::string_view key) {
  const std::size_t q = url.find('?');
  if (q == std::string_view::npos) return String();
  std::string_view query = url.substr(q + 1);
  query = query.substr(0, query.find('#'));
  std::size_t start = 0;
  while (start <= query.size()) {
    const std::size_t amp = std::min(query.find('&', start), query.size());
    const std::string_view piece = query.substr(start, amp - start);
    const std::size_t eq = piece.find('=');
    if (piece.substr(0, eq) == key) {
      if (eq == std::string_view::npos) return String("");
      return String(std::string(piece.substr(eq + 1))).mrApi_stringByUnescapingFromURLArgument();
    }
    start = amp + 1;
  }
  return String();
}

}  // namespace

void MRSetWebSignInOptions(const MRWebSignInOptions& o) { options() = o; }
MRWebSignInOptions MRGetWebSignInOptions() { return options(); }

namespace {

// A 31-bit number from the platform's secure random source (the system's
// random() gives 31 bits), never 0.
std::uint64_t randomUid() {
  std::uint32_t value = 0;
  const auto& crypto = platform::current().crypto;
  if (!crypto || !crypto->randomBytes(&value, sizeof value)) {
    mrlog::error("no random source for the web sign-in's uid");
    value = static_cast<std::uint32_t>(platform::current().runLoop->now() * 1000.0);
  }
  value >>= 1;
  return value == 0 ? 1 : value;
}

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
  ++h.run_;
}

bool WapAuthHandler::beginWapAuth(const std::shared_ptr<SendAuthReq>& req,
                                  const std::shared_ptr<platform::ViewController>& currentVC,
                                  const String& appId, const std::shared_ptr<MRApiDelegate>& delegate) {
  endWapAuth();
  delegate_ = delegate;
  running_ = true;
  timeStamp_ = randomUid();
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
  const std::string params = withoutKitKeys(std::string_view(url->absoluteString()).substr(prefix.size()));
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
  ++run_;
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
  const std::uint64_t run = run_;
  alert.actions.push_back({kQuitTitle, platform::AlertActionStyle::Default, [weakSelf, run] {
                             const auto self = weakSelf.lock();
                             // An alert left from a run that has ended quits nothing.
                             if (!self || self->run_ != run) return;
                             // The run ends before the host hears of it, so
                             // that the host may start a new one from inside
                             // onResp.
                             const std::shared_ptr<MRApiDelegate> delegate = self->delegate_.lock();
                             self->endWapAuth();
                             if (delegate) {
                               auto resp = std::make_shared<SendAuthResp>();
                               resp->errCode = ErrCodeUserCancel;
                               delegate->onResp(resp);
                             } else {
                               mrlog::error("web sign-in cancelled, but its delegate is gone: no answer");
                             }
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
  if (running_) ++run_;
  running_ = false;
  if (const auto p = presenter(); p && webViewController_ && webViewController_->page()) {
    p->dismiss(webViewController_->page(), true);
  }
}

bool WapAuthHandler::refusesNavigation(const std::string& url) {
  const std::string_view u(url);
  const std::string ownScheme = appId_.str() + ":";
  if (!appId_.empty() && startsWithNoCase(u, ownScheme)) {
    if (u.starts_with(format(kHandBackPrefixFormat, appId_))) return false;
    if (u.starts_with(appId_.str() + "://oauth?") || u.starts_with(appId_.str() + "://oauth/?")) {
      const String expected = sendAuthReq_ ? sendAuthReq_->state : String();
      const String got = queryValue(u, "state");
      if (got.view() == expected.view()) return false;
      mrlog::error("web sign-in: a page handed back a state that is not the request's, refused: %@", url);
      return true;
    }
    mrlog::error("web sign-in: a page opened the host with a URL that is not a sign-in hand-back, refused: %@",
                 url);
    return true;
  }
  if (!options().strictNavigation) return false;
  const std::string platformPages = std::string(kMireloOpenPlatformBaseUrl) + "/";
  if (u.starts_with(platformPages)) return false;
  mrlog::error("web sign-in: strict navigation refused %@", url);
  return true;
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
