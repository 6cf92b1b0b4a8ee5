// URL parsing, can-open checks and routing of opened URLs on the simulated
// device.
#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {
namespace {

bool isSchemeStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isSchemeChar(char c) {
  return isSchemeStart(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

void appendStrings(const Value* v, std::vector<std::string>& out) {
  const Array* arr = v ? v->asArray() : nullptr;
  if (!arr) return;
  for (const Value& item : *arr) {
    if (const std::string* s = item.asString()) out.push_back(*s);
  }
}

// `s` equals `lowered` (already lower case) when ASCII letters are compared
// ignoring case.
bool equalsLowered(std::string_view s, std::string_view lowered) {
  if (s.size() != lowered.size()) return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != lowered[i]) return false;
  }
  return true;
}

// Whether the array of strings `v` (entries that are not strings skipped)
// holds `lowered`, ignoring case.  Every can-open and every open asks this
// of several Info.plists, so nothing is copied.
bool listsScheme(const Value* v, std::string_view lowered) {
  const Array* arr = v ? v->asArray() : nullptr;
  if (!arr) return false;
  for (const Value& item : *arr) {
    const std::string* s = item.asString();
    if (s && equalsLowered(*s, lowered)) return true;
  }
  return false;
}

// Whether an Info.plist registers `lowered` among its URL schemes.
bool registersScheme(const Dictionary& infoPlist, std::string_view lowered) {
  const Array* types = infoPlist.get("CFBundleURLTypes").asArray();
  if (!types) return false;
  for (const Value& type : *types) {
    const Dictionary* d = type.asDictionary();
    if (d && listsScheme(d->find("CFBundleURLSchemes"), lowered)) return true;
  }
  return false;
}

// The first installed app (in install order) that registers `scheme`.
DeviceState::Installed* appForScheme(DeviceState& device, const std::string& lowered) {
  for (auto& app : device.apps) {
    if (registersScheme(app.state->manifest.infoPlist, lowered)) return &app;
  }
  return nullptr;
}

// "/" or "*" claims every path; a claim ending in "*" claims what begins
// with the text before the "*"; any other claim is a path prefix.
bool pathClaimed(const std::string& claim, const std::string& path) {
  std::string_view prefix = claim;
  if (!prefix.empty() && prefix.back() == '*') prefix.remove_suffix(1);
  const std::string_view p = path.empty() ? std::string_view("/") : std::string_view(path);
  return p.substr(0, prefix.size()) == prefix;
}

// The first installed app that claims an https URL as a universal link.
DeviceState::Installed* appForUniversalLink(DeviceState& device, const RoutedURL& url) {
  if (url.scheme != "https" || url.host.empty()) return nullptr;
  for (auto& app : device.apps) {
    for (const UniversalLinkClaim& claim : app.state->manifest.universalLinks) {
      if (!equalsLowered(claim.domain, url.host)) continue;
      for (const std::string& path : claim.paths) {
        if (pathClaimed(path, url.path)) return &app;
      }
    }
  }
  return nullptr;
}

}  // namespace

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::optional<RoutedURL> parseRoutedURL(std::string_view text) {
  for (char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u <= 0x20 || u == 0x7f) return std::nullopt;
  }
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isSchemeStart(text[0])) return std::nullopt;
  for (std::size_t i = 1; i < colon; ++i) {
    if (!isSchemeChar(text[i])) return std::nullopt;
  }
  RoutedURL url;
  url.scheme = asciiLower(text.substr(0, colon));
  std::string_view rest = text.substr(colon + 1);
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    const std::size_t end = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end);
    const std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) authority.remove_prefix(at + 1);
    url.host = asciiLower(authority.substr(0, authority.find(':')));
  }
  url.path = std::string(rest.substr(0, rest.find_first_of("?#")));
  return url;
}

std::vector<std::string> urlSchemesOf(const Dictionary& infoPlist) {
  std::vector<std::string> out;
  const Array* types = infoPlist.get("CFBundleURLTypes").asArray();
  if (!types) return out;
  for (const Value& type : *types) {
    if (const Dictionary* d = type.asDictionary()) appendStrings(d->find("CFBundleURLSchemes"), out);
  }
  return out;
}

std::vector<std::string> querySchemesOf(const Dictionary& infoPlist) {
  std::vector<std::string> out;
  appendStrings(infoPlist.find("LSApplicationQueriesSchemes"), out);
  return out;
}

bool canOpen(DeviceState& device, const std::string& sourceBundleId, const std::string& url) {
  const auto parsed = parseRoutedURL(url);
  if (!parsed) return false;
  // The browser answers to http and https for everyone.
  if (parsed->scheme == "http" || parsed->scheme == "https") return true;
  if (!appForScheme(device, parsed->scheme)) return false;
  const DeviceState::Installed* source = device.find(sourceBundleId);
  return source && listsScheme(source->state->manifest.infoPlist.find("LSApplicationQueriesSchemes"), parsed->scheme);
}

namespace {
// Queues `event` for the observers `bundleId` has when it is delivered.
void queueLifecycle(DeviceState& device, const std::string& bundleId, platform::LifecycleEvent event) {
  const DeviceState::Installed* app = bundleId.empty() ? nullptr : device.find(bundleId);
  if (!app || app->state->lifecycleObservers.empty()) return;
  std::weak_ptr<AppState> weakApp = app->state;
  device.queue.post(bundleId, [weakApp, event]() {
    const auto state = weakApp.lock();
    if (!state) return;
    // Observers may add or remove observers while they run: walk by id.
    for (auto id = state->lifecycleObservers.empty() ? 0 : state->lifecycleObservers.begin()->first;;) {
      const auto it = state->lifecycleObservers.lower_bound(id);
      if (it == state->lifecycleObservers.end()) break;
      id = it->first + 1;
      const auto observer = it->second;
      observer(event);
    }
  });
}
}  // namespace

void bringToFront(const std::shared_ptr<DeviceState>& device, const std::string& bundleId,
                  std::function<void()> beforeActive) {
  const bool switching = device->foreground != bundleId;
  if (switching) {
    queueLifecycle(*device, device->foreground, platform::LifecycleEvent::DidEnterBackground);
    device->foreground = bundleId;
  }
  if (beforeActive) device->queue.post(bundleId, std::move(beforeActive));
  if (switching) queueLifecycle(*device, bundleId, platform::LifecycleEvent::DidBecomeActive);
}

bool open(const std::shared_ptr<DeviceState>& device, const std::string& url, const std::string& sourceBundleId,
          bool asynchronous, bool universalLinksOnly, std::function<void(bool)> completion) {
  OpenEvent event;
  event.sourceBundleId = sourceBundleId;
  event.url = url;
  event.asynchronous = asynchronous;
  event.universalLinksOnly = universalLinksOnly;

  std::shared_ptr<AppState> target;
  bool viaUniversalLink = false;
  if (const auto parsed = parseRoutedURL(url)) {
    const bool web = parsed->scheme == "http" || parsed->scheme == "https";
    if (const auto* claimer = appForUniversalLink(*device, *parsed)) {
      target = claimer->state;
      viaUniversalLink = true;
    } else if (universalLinksOnly) {
      // Only a claimed universal link may open; never the browser.
    } else if (web) {
      event.openedInBrowser = true;
    } else {
      if (const auto* owner = appForScheme(*device, parsed->scheme)) target = owner->state;
    }
  }
  event.success = target != nullptr || event.openedInBrowser;

  if (target) {
    event.openedBundleId = target->manifest.bundleId;
    ++target->openCount;
    OpenContext context{url, sourceBundleId, viaUniversalLink};
    std::weak_ptr<AppState> weakApp = target;
    bringToFront(device, target->manifest.bundleId, [weakApp, context]() {
      const auto app = weakApp.lock();
      if (!app || !app->handler) return;
      const SimApp::OpenHandler handler = app->handler;  // may be replaced while it runs
      handler(context);
    });
  } else if (event.openedInBrowser) {
    bringToFront(device, "");
  }
  const bool success = event.success;
  device->openLog.push_back(std::move(event));
  if (asynchronous && completion) {
    device->queue.post(sourceBundleId, [completion = std::move(completion), success]() { completion(success); });
  }
  return success;
}

}  // namespace mirelo::sim::detail
