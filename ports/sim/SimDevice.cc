#include "mirelo/sim/SimDevice.h"

#include "mirelo/platform/ProcessState.h"
#include "ports/linux/crypto_openssl.h"
#include "ports/linux/image_codec.h"
#include "ports/sim/SimState.h"

namespace mirelo::sim {

namespace {
// 2026-01-01T00:00:00Z.
constexpr double kStartTime = 1767225600.0;
// advance() stops after this many tasks, like runUntilIdle's default bound.
constexpr std::size_t kAdvanceBound = 1000000;
}  // namespace

namespace detail {

DeviceState::DeviceState()
    : mainThread(std::this_thread::get_id()),
      queue(kStartTime),
      crypto(linuxport::makeOpenSslCrypto()),
      imageCodec(linuxport::makeImageCodec()),
      screens(makeScreenState()),
      network(makeNetworkState()) {}

namespace {
// Everything an app leaves behind when its process ends.
// The connections go first: a dropped task may hold the last reference to
// one, whose cancellation touches the run queue.
void appGone(DeviceState& st, const std::string& bundleId) {
  networkAppGone(st, bundleId);
  screensAppGone(st, bundleId);
  st.queue.dropOwner(bundleId);
  if (auto* app = st.find(bundleId)) app->state->lifecycleObservers.clear();
}
// The major number of a version string such as "16.4.1" (0 when none).
int majorVersion(const std::string& version) {
  int major = 0;
  for (const char c : version) {
    if (c < '0' || c > '9' || major > 1000) break;
    major = major * 10 + (c - '0');
  }
  return major;
}
}  // namespace

void writePasteboard(DeviceState& st, const std::string& writer, const Data& data, const std::string& type) {
  st.pasteboard.clear();
  if (!data.isNull()) st.pasteboard.emplace_back(type, data);
  st.pasteboardWriter = writer;
  ++st.pasteboardChangeCount;
}

bool notePasteRead(DeviceState& st, const std::string& reader, const std::string& type) {
  const int major = majorVersion(st.systemVersion);
  if (major < 14 || st.pasteboard.empty() || st.pasteboardWriter == reader) return true;
  const bool prompt = major >= 16;
  const bool allowed = !prompt || st.allowPaste;
  bool found = false;
  for (const auto& item : st.pasteboard) found = found || item.first == type;
  st.pasteNotices.push_back({reader, st.pasteboardWriter, type,
                             prompt ? PasteNoticeKind::Prompt : PasteNoticeKind::Banner, allowed, found,
                             st.pasteboardChangeCount});
  return allowed;
}

DeviceState::Installed* DeviceState::find(const std::string& bundleId) {
  for (auto& app : apps) {
    if (app.state->manifest.bundleId == bundleId) return &app;
  }
  return nullptr;
}

}  // namespace detail

// ---- AppManifest ----

Dictionary AppManifest::makeInfoPlist(const std::vector<std::string>& urlSchemes,
                                  const std::vector<std::string>& querySchemes) {
  Dictionary plist;
  if (!urlSchemes.empty()) {
    Array schemes;
    for (const std::string& s : urlSchemes) schemes.push_back(Value(s));
    Dictionary type;
    type.set("CFBundleURLName", Value("main"));
    type.set("CFBundleURLSchemes", Value(std::move(schemes)));
    plist.set("CFBundleURLTypes", Value(Array{Value(std::move(type))}));
  }
  if (!querySchemes.empty()) {
    Array schemes;
    for (const std::string& s : querySchemes) schemes.push_back(Value(s));
    plist.set("LSApplicationQueriesSchemes", Value(std::move(schemes)));
  }
  return plist;
}

// ---- SimApp ----

SimApp::SimApp(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
SimApp::~SimApp() = default;

const std::string& SimApp::bundleId() const { return impl_->state->manifest.bundleId; }
const AppManifest& SimApp::manifest() const { return impl_->state->manifest; }
Dictionary& SimApp::infoPlist() { return impl_->state->manifest.infoPlist; }
std::vector<std::string> SimApp::urlSchemes() const { return detail::urlSchemesOf(impl_->state->manifest.infoPlist); }
void SimApp::onOpenURL(OpenHandler handler) { impl_->state->handler = std::move(handler); }
int SimApp::openCount() const { return impl_->state->openCount; }
std::shared_ptr<platform::Platform> SimApp::platform() const { return impl_->platform; }
std::vector<Dictionary>& SimApp::keychainItems() { return impl_->state->keychain; }
Dictionary& SimApp::userDefaults() { return impl_->state->defaults; }

// ---- SimDevice ----

std::shared_ptr<SimDevice> SimDevice::create() { return std::shared_ptr<SimDevice>(new SimDevice()); }

SimDevice::SimDevice() : impl_(std::make_unique<Impl>()) {
  impl_->state = std::make_shared<detail::DeviceState>();
}

SimDevice::~SimDevice() {
  // Pending tasks may hold platforms or other objects whose destructors
  // look at the device; let them go while it is still whole.
  auto& st = *impl_->state;
  for (const auto& app : st.apps) {
    detail::screensAppGone(st, app.state->manifest.bundleId);
    detail::networkAppGone(st, app.state->manifest.bundleId);
  }
  st.queue.clear();
}

void SimDevice::setSystemVersion(std::string version) { impl_->state->systemVersion = std::move(version); }
void SimDevice::setModel(std::string model) { impl_->state->model = std::move(model); }
void SimDevice::setScreenScale(std::optional<double> scale) { impl_->state->screenScale = scale; }

SimApp& SimDevice::install(AppManifest manifest) {
  auto& st = *impl_->state;
  const std::string bundleId = manifest.bundleId;
  auto appState = std::make_shared<detail::AppState>();
  appState->manifest = std::move(manifest);
  auto impl = std::make_unique<SimApp::Impl>();
  impl->state = appState;
  impl->platform = detail::makeAppPlatform(impl_->state, appState);
  auto app = std::make_unique<SimApp>(std::move(impl));
  SimApp& ref = *app;

  if (auto* existing = st.find(bundleId)) {
    // A reinstall keeps nothing: pending work, keychain, defaults and the
    // old platform (which goes dead) all go with the old app.
    detail::appGone(st, bundleId);
    const auto retired = std::move(existing->app);
    existing->app = std::move(app);
    existing->state = std::move(appState);
    if (st.kitBundleId == bundleId) {
      platform::setCurrent(ref.platform());
      platform::resetProcessState();
    }
  } else {
    st.apps.push_back({std::move(app), std::move(appState)});
  }
  return ref;
}

void SimDevice::uninstall(const std::string& bundleId) {
  auto& st = *impl_->state;
  detail::appGone(st, bundleId);
  if (st.foreground == bundleId) st.foreground.clear();
  std::vector<detail::DeviceState::Installed> retired;
  std::erase_if(st.apps, [&](detail::DeviceState::Installed& app) {
    if (app.state->manifest.bundleId != bundleId) return false;
    retired.push_back(std::move(app));
    return true;
  });
  if (st.kitBundleId == bundleId) st.kitBundleId.clear();
}

SimApp* SimDevice::app(const std::string& bundleId) {
  auto* found = impl_->state->find(bundleId);
  return found ? found->app.get() : nullptr;
}

void SimDevice::relaunch(const std::string& bundleId) {
  auto& st = *impl_->state;
  if (!st.find(bundleId)) return;
  detail::appGone(st, bundleId);
  if (st.kitBundleId == bundleId) platform::resetProcessState();
}

void SimDevice::runKitAs(const std::string& bundleId) {
  auto& st = *impl_->state;
  auto* found = st.find(bundleId);
  if (!found) return;
  st.kitBundleId = bundleId;
  // The kit's app runs in front unless another app already is.
  if (st.foreground.empty()) st.foreground = bundleId;
  platform::setCurrent(found->app->platform());
}

void SimDevice::switchToApp(const std::string& bundleId) {
  if (!bundleId.empty() && !impl_->state->find(bundleId)) return;
  detail::bringToFront(impl_->state, bundleId);
}

const std::string& SimDevice::foregroundApp() const { return impl_->state->foreground; }

const std::string& SimDevice::kitBundleId() const { return impl_->state->kitBundleId; }

bool SimDevice::openURL(const std::string& url, const std::string& sourceBundleId) {
  return detail::open(impl_->state, url, sourceBundleId, false, false, nullptr);
}

void SimDevice::openURL(const std::string& url, const std::string& sourceBundleId, bool universalLinksOnly,
                        std::function<void(bool)> completion) {
  detail::open(impl_->state, url, sourceBundleId, true, universalLinksOnly, std::move(completion));
}

bool SimDevice::canOpenURL(const std::string& url, const std::string& sourceBundleId) const {
  return detail::canOpen(*impl_->state, sourceBundleId, url);
}

// ---- pasteboard ----

String SimDevice::pasteboardString() const {
  const Data d = pasteboardData(detail::kPlainTextType);
  return d.isNull() ? String() : String(d.toString());
}

void SimDevice::setPasteboardString(const std::string& text, const std::string& writer) {
  setPasteboardData(Data::copy(text), detail::kPlainTextType, writer);
}

Data SimDevice::pasteboardData(const std::string& type) const {
  for (const auto& [t, data] : impl_->state->pasteboard) {
    if (t == type) return data;
  }
  return Data();
}

void SimDevice::setPasteboardData(const Data& data, const std::string& type, const std::string& writer) {
  detail::writePasteboard(*impl_->state, writer, data, type);
}

std::vector<std::string> SimDevice::pasteboardTypes() const {
  std::vector<std::string> types;
  for (const auto& item : impl_->state->pasteboard) types.push_back(item.first);
  return types;
}

std::uint64_t SimDevice::pasteboardChangeCount() const { return impl_->state->pasteboardChangeCount; }
const std::string& SimDevice::pasteboardWriter() const { return impl_->state->pasteboardWriter; }
const std::vector<PasteNotice>& SimDevice::pasteNotices() const { return impl_->state->pasteNotices; }
void SimDevice::clearPasteNotices() { impl_->state->pasteNotices.clear(); }
void SimDevice::setAllowPaste(bool allow) { impl_->state->allowPaste = allow; }

// ---- clock and run loop ----

double SimDevice::now() const { return impl_->state->queue.now(); }

std::size_t SimDevice::runUntilIdle(std::size_t maxTasks) {
  // Hold the state: a task may drop the last other reference to the device.
  const auto st = impl_->state;
  detail::pumpNetwork(*st);
  return st->queue.runUntilIdle(maxTasks);
}

std::size_t SimDevice::advance(double seconds) {
  const auto st = impl_->state;
  detail::pumpNetwork(*st);
  return st->queue.advance(seconds, kAdvanceBound);
}

std::size_t SimDevice::pendingTimedTasks() const { return impl_->state->queue.pendingTimed(); }
std::size_t SimDevice::pendingTasks() const { return impl_->state->queue.pending(); }

// ---- records ----

const std::vector<OpenEvent>& SimDevice::openLog() const { return impl_->state->openLog; }
void SimDevice::clearOpenLog() { impl_->state->openLog.clear(); }
const std::vector<std::string>& SimDevice::systemLog() const { return impl_->state->systemLog; }

}  // namespace mirelo::sim
