// The screens of the simulated device: the presenter every app sees, and
// what tests see of it.
//
// One stack of modal presentations per device, each remembering the app that
// presented it.  A presentation is either a navigation controller around a
// root screen or an alert.  Nothing animates and nothing runs on another
// thread: a presentation is on screen as soon as it is made, and only its
// completion waits for the run loop.
#include <algorithm>
#include <utility>

#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {
namespace {

class SimAlertImpl;

// One modal presentation: a navigation controller around `root`, or an
// alert.
struct Presentation {
  std::string owner;
  std::shared_ptr<platform::ViewController> root;
  std::shared_ptr<SimAlertImpl> alert;
};

}  // namespace

struct ScreenState {
  std::vector<std::string> log;
  // Bottom first.
  std::vector<Presentation> stack;
  bool webPagePreferencesAvailable = true;
};

namespace {

// Weak links to the device and to the app that made an object; once either
// is gone the object does nothing.
class ScreenLink {
 public:
  ScreenLink(std::weak_ptr<DeviceState> device, std::weak_ptr<AppState> app, std::string bundleId)
      : device_(std::move(device)), app_(std::move(app)), bundleId_(std::move(bundleId)) {}

 protected:
  // The device, or null once the device is gone or the app was uninstalled
  // or reinstalled.
  std::shared_ptr<DeviceState> device() const { return app_.expired() ? nullptr : device_.lock(); }
  const std::string& bundleId() const { return bundleId_; }

 private:
  std::weak_ptr<DeviceState> device_;
  std::weak_ptr<AppState> app_;
  std::string bundleId_;
};

class SimWebPageImpl final : public platform::WebPage, public SimWebPage, ScreenLink {
 public:
  SimWebPageImpl(const ScreenLink& link, bool mobileContentMode,
                 std::weak_ptr<platform::WebNavigationDelegate> delegate)
      : ScreenLink(link), mobileContentMode_(mobileContentMode), delegate_(std::move(delegate)) {}

  // ---- what the app sees ----
  void setTitle(const std::string& title) override { title_ = title; }
  void setLeftBarButtonItem(std::optional<platform::BarButtonItem> item) override { leftBar_ = std::move(item); }
  void loadURL(const std::string& url) override {
    const auto dev = device();
    if (!dev) return;
    loads_.push_back(url);
    if (!parseRoutedURL(url)) return;
    dev->screens->log.push_back("load " + url);
    if (decide(url)) url_ = url;
  }

  // ---- what a test sees ----
  std::string title() const override { return title_; }
  std::optional<std::string> leftBarButtonTitle() const override {
    return leftBar_ ? std::optional<std::string>(leftBar_->title) : std::nullopt;
  }
  bool tapLeftBarButton() override {
    const auto dev = device();
    if (!dev || !leftBar_) return false;
    dev->screens->log.push_back("tap " + leftBar_->title);
    // The action may take this page off screen or drop it: run a copy.
    const std::function<void()> action = leftBar_->action;
    if (action) action();
    return true;
  }
  std::string url() const override { return url_; }
  std::vector<std::string> loads() const override { return loads_; }
  bool prefersMobileContentMode() const override { return mobileContentMode_; }
  bool navigate(const std::string& url) override {
    const auto dev = device();
    if (!dev || !parseRoutedURL(url)) return false;
    const bool allowed = decide(url);
    dev->screens->log.push_back("navigate " + url + (allowed ? " allow" : " cancel"));
    if (allowed) url_ = url;
    return allowed;
  }

 private:
  // Asks the navigation delegate; a page whose delegate is gone goes on.
  bool decide(const std::string& url) {
    const auto delegate = delegate_.lock();
    return !delegate || delegate->decidePolicyForNavigation(url) == platform::NavigationActionPolicy::Allow;
  }

  std::string title_;
  std::optional<platform::BarButtonItem> leftBar_;
  std::string url_;
  std::vector<std::string> loads_;
  bool mobileContentMode_;
  std::weak_ptr<platform::WebNavigationDelegate> delegate_;
};

// How a presentation is named in the screen log: a page by its title, an
// alert by its message (its title is often empty).
std::string labelOf(const Presentation& p);

class SimAlertImpl final : public SimAlert {
 public:
  SimAlertImpl(const std::shared_ptr<DeviceState>& device, platform::Alert alert)
      : device_(device), alert_(std::move(alert)) {}

  std::string title() const override { return alert_.title; }
  std::string message() const override { return alert_.message; }
  std::vector<platform::AlertAction> actions() const override { return alert_.actions; }
  bool tap(const std::string& title) override {
    const auto dev = device_.lock();
    if (!dev) return false;
    const auto action = std::find_if(alert_.actions.begin(), alert_.actions.end(),
                                     [&](const platform::AlertAction& a) { return a.title == title; });
    if (action == alert_.actions.end()) return false;
    const std::function<void()> handler = action->handler;
    auto& stack = dev->screens->stack;
    const auto self = std::find_if(stack.begin(), stack.end(), [&](const Presentation& p) { return p.alert.get() == this; });
    if (self == stack.end()) return false;
    // Keeps this alert alive until the tap is over.
    const Presentation gone = std::move(*self);
    stack.erase(self);
    dev->screens->log.push_back("tap " + title);
    if (handler) handler();
    return true;
  }

 private:
  std::weak_ptr<DeviceState> device_;
  platform::Alert alert_;
};

std::string labelOf(const Presentation& p) {
  if (p.alert) return p.alert->message();
  const auto* page = dynamic_cast<const SimWebPageImpl*>(p.root.get());
  return page ? page->title() : std::string();
}

class SimPresenter final : public platform::Presenter, ScreenLink {
 public:
  using ScreenLink::ScreenLink;

  bool webPagePreferencesAvailable() override {
    const auto dev = device();
    return dev && dev->screens->webPagePreferencesAvailable;
  }

  std::shared_ptr<platform::WebPage> makeWebPage(const platform::WebPageOptions& options,
                                                 std::weak_ptr<platform::WebNavigationDelegate> delegate) override {
    // A page made by a dead platform is still a page; it just never acts.
    const bool mobile = options.preferMobileContentMode && webPagePreferencesAvailable();
    const ScreenLink& link = *this;
    return std::make_shared<SimWebPageImpl>(link, mobile, std::move(delegate));
  }

  void presentInNavigationController(const std::shared_ptr<platform::ViewController>& root,
                                     const std::shared_ptr<platform::ViewController>& presenting, bool animated,
                                     std::function<void()> completion) override {
    (void)presenting;
    (void)animated;
    const auto dev = device();
    if (!dev || !root) return;
    auto& stack = dev->screens->stack;
    // A screen is on screen at most once.
    if (std::any_of(stack.begin(), stack.end(), [&](const Presentation& p) { return p.root == root; })) return;
    stack.push_back(Presentation{bundleId(), root, nullptr});
    dev->screens->log.push_back("present " + labelOf(stack.back()));
    if (completion) dev->queue.post(bundleId(), std::move(completion));
  }

  void dismiss(const std::shared_ptr<platform::ViewController>& controller, bool animated) override {
    (void)animated;
    const auto dev = device();
    if (!dev || !controller) return;
    auto& screens = *dev->screens;
    const auto holder = std::find_if(screens.stack.begin(), screens.stack.end(),
                                      [&](const Presentation& p) { return p.root == controller; });
    if (holder == screens.stack.end()) return;
    // Top first, as they leave the screen.
    const auto first = static_cast<std::size_t>(holder - screens.stack.begin());
    std::vector<Presentation> gone;
    while (screens.stack.size() > first) {
      gone.push_back(std::move(screens.stack.back()));
      screens.stack.pop_back();
      screens.log.push_back("dismiss " + labelOf(gone.back()));
    }
  }

  void presentAlert(const platform::Alert& alert, const std::shared_ptr<platform::ViewController>& presenting) override {
    (void)presenting;
    const auto dev = device();
    if (!dev) return;
    dev->screens->stack.push_back(Presentation{bundleId(), nullptr, std::make_shared<SimAlertImpl>(dev, alert)});
    dev->screens->log.push_back("alert " + alert.message);
  }
};

}  // namespace

std::shared_ptr<ScreenState> makeScreenState() { return std::make_shared<ScreenState>(); }

std::shared_ptr<platform::Presenter> makeSimPresenter(const std::shared_ptr<DeviceState>& device,
                                                      const std::shared_ptr<AppState>& app) {
  return std::make_shared<SimPresenter>(device, app, app->manifest.bundleId);
}

void screensAppGone(DeviceState& device, const std::string& bundleId) {
  auto& stack = device.screens->stack;
  // The app's screens are destroyed after the stack is whole again.
  std::vector<Presentation> gone;
  std::vector<Presentation> kept;
  for (auto& p : stack) (p.owner == bundleId ? gone : kept).push_back(std::move(p));
  stack = std::move(kept);
}

}  // namespace mirelo::sim::detail

namespace mirelo::sim {

SimWebPage* SimDevice::topWebPage() {
  const auto& stack = impl_->state->screens->stack;
  for (auto it = stack.rbegin(); it != stack.rend(); ++it) {
    if (it->alert) continue;
    return dynamic_cast<detail::SimWebPageImpl*>(it->root.get());
  }
  return nullptr;
}

SimAlert* SimDevice::topAlert() {
  const auto& stack = impl_->state->screens->stack;
  return stack.empty() ? nullptr : stack.back().alert.get();
}

std::size_t SimDevice::presentedCount() const { return impl_->state->screens->stack.size(); }
const std::vector<std::string>& SimDevice::screenLog() const { return impl_->state->screens->log; }
void SimDevice::clearScreenLog() { impl_->state->screens->log.clear(); }
void SimDevice::setWebPagePreferencesAvailable(bool available) {
  impl_->state->screens->webPagePreferencesAvailable = available;
}

}  // namespace mirelo::sim
