// The web sign-in's page: one web view that fills the screen, and the
// navigation policy that sends the open platform's hand-backs (URLs of the
// host's own scheme) out of the web view to the system.  Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "mirelo/String.h"
#include "mirelo/platform/Platform.h"

namespace mirelo {

// What the page asks of the sign-in that shows it.
class MRWebViewControllerDelegate {
 public:
  virtual ~MRWebViewControllerDelegate() = default;
  // Takes the page off screen without answering the host.
  virtual void onCancelOAuthWebView() = 0;
  // Hides / shows the page's "取消" button.
  virtual void onHiddenLeftBar() = 0;
  virtual void onShowLeftBar() = 0;
  // Whether the page must not go to `url` at all (neither load it nor hand
  // it to the system).  Nothing is refused by default.
  virtual bool refusesNavigation(const std::string& url) {
    (void)url;
    return false;
  }
};

class MRWebViewController final : public platform::WebNavigationDelegate,
                                  public std::enable_shared_from_this<MRWebViewController> {
 public:
  // A controller whose page is made by viewDidLoad.  The delegate is held
  // weakly.
  static std::shared_ptr<MRWebViewController> initWithDelegate(std::weak_ptr<MRWebViewControllerDelegate> delegate);

  // Makes the page through the current platform's presenter (once).  On an
  // iPad with iOS 13 or later, where the system's web views take per-page
  // preferences, pages are asked for their mobile layout.
  void viewDidLoad();
  // Loads a plain request for `url`; nothing when it is not a URL or there
  // is no page.
  void refresh(const String& url);
  // The navigation policy: a URL the delegate refuses is cancelled; http(s)
  // stays in the web view; anything else is offered to the system, and
  // stays in the web view only when the system could not open it.
  platform::NavigationActionPolicy webView(const std::string& url);
  platform::NavigationActionPolicy decidePolicyForNavigation(const std::string& url) override { return webView(url); }

  // The page; null before viewDidLoad or on a platform without screens.
  const std::shared_ptr<platform::WebPage>& page() const { return webView_; }
  std::shared_ptr<MRWebViewControllerDelegate> delegate() const { return delegate_.lock(); }
  // The navigation bar of the controller that holds the page.
  void setTitle(const std::string& title);
  void setLeftBarButtonItem(std::optional<platform::BarButtonItem> item);

 private:
  MRWebViewController() = default;

  std::shared_ptr<platform::WebPage> webView_;
  std::weak_ptr<MRWebViewControllerDelegate> delegate_;
};

}  // namespace mirelo
