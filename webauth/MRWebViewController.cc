#include "webauth/MRWebViewController.h"

#include <charconv>
#include <string_view>

#include "mirelo/URL.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

// Whether the page should ask for the mobile layout: only tablets would get
// the desktop one, and only iOS 13 and later make that choice per page.
bool wantsMobileContentMode(platform::Platform& p) {
  if (!p.device || !p.presenter) return false;
  if (!MireloApiUtil::isiPad()) return false;
  const String systemVersion = p.device->systemVersion();
  const std::string_view version = systemVersion.view();
  int major = 0;
  const auto [end, ec] = std::from_chars(version.data(), version.data() + version.size(), major);
  (void)end;
  if (ec != std::errc() || major < 13) return false;
  return p.presenter->webPagePreferencesAvailable();
}

}  // namespace

std::shared_ptr<MRWebViewController> MRWebViewController::initWithDelegate(
    std::weak_ptr<MRWebViewControllerDelegate> delegate) {
  std::shared_ptr<MRWebViewController> controller(new MRWebViewController());
  controller->delegate_ = std::move(delegate);
  return controller;
}

void MRWebViewController::viewDidLoad() {
  if (webView_) return;
  platform::Platform& p = platform::current();
  if (!p.presenter) return;
  platform::WebPageOptions options;
  options.preferMobileContentMode = wantsMobileContentMode(p);
  webView_ = p.presenter->makeWebPage(options, weak_from_this());
}

void MRWebViewController::refresh(const String& url) {
  if (!webView_ || !URL::fromString(url.view())) return;
  webView_->loadURL(url.str());
}

platform::NavigationActionPolicy MRWebViewController::webView(const std::string& url) {
  if (const auto d = delegate_.lock(); d && d->refusesNavigation(url)) return platform::NavigationActionPolicy::Cancel;
  if (std::string_view(url).starts_with("http")) return platform::NavigationActionPolicy::Allow;
  // The open platform hands back through the host's own scheme: the system
  // opens the host, which passes the URL to the kit.
  const auto& application = platform::current().application;
  const bool opened = application && application->openURL(url);
  return opened ? platform::NavigationActionPolicy::Cancel : platform::NavigationActionPolicy::Allow;
}

void MRWebViewController::setTitle(const std::string& title) {
  if (webView_) webView_->setTitle(title);
}

void MRWebViewController::setLeftBarButtonItem(std::optional<platform::BarButtonItem> item) {
  if (webView_) webView_->setLeftBarButtonItem(std::move(item));
}

}  // namespace mirelo
