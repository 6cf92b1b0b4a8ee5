// Internal state of the simulated device, shared by the device, its apps and
// the per-app platform services.
//
// Ownership runs one way: SimDevice -> DeviceState -> SimApp -> AppState and
// the app's Platform.  The platform services hold only weak references back
// to DeviceState and AppState, so a platform installed as the kit's current
// one never keeps a device alive, and calls on a platform whose device or app
// is gone answer false/null and do nothing.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <thread>
#include <vector>

#include "mirelo/sim/SimDevice.h"

namespace mirelo::sim::detail {

// The device's one run loop on a virtual clock.  Posted work runs first, in
// the order posted; delayed calls and timers run when no posted work is
// left, in order of due time and, for equal times, of scheduling.
class RunQueue {
 public:
  using TimerId = platform::RunLoop::TimerId;
  using Target = platform::RunLoop::Target;

  explicit RunQueue(double start) : now_(start) {}

  double now() const { return now_; }
  void post(const std::string& owner, std::function<void()> task);
  void performAfter(const std::string& owner, Target target, double delay, std::function<void()> task);
  void cancelPerforms(const std::string& owner, Target target);
  TimerId scheduleTimer(const std::string& owner, double interval, bool repeats, std::function<void()> task);
  void invalidateTimer(const std::string& owner, TimerId id);
  // Drops every pending task of `owner`.
  void dropOwner(const std::string& owner);
  void clear() {
    posted_.clear();
    timed_.clear();
  }

  std::size_t runUntilIdle(std::size_t maxTasks);
  std::size_t advance(double seconds, std::size_t maxTasks);
  std::size_t pendingTimed() const { return timed_.size(); }
  std::size_t pending() const { return posted_.size() + timed_.size(); }

 private:
  enum class Kind { Posted, Perform, Timer };
  struct Task {
    Kind kind = Kind::Posted;
    std::string owner;
    Target target = nullptr;
    TimerId timer = 0;
    double interval = 0;
    bool repeats = false;
    std::function<void()> fn;
  };
  using Key = std::pair<double, std::uint64_t>;

  void addTimed(double due, Task task);
  // Runs the first posted task, or else the earliest delayed call or timer
  // due at or before `limit`; false when there is none.
  bool runOne(double limit);

  double now_;
  std::uint64_t nextSeq_ = 1;
  TimerId nextTimer_ = 1;
  std::deque<Task> posted_;
  std::map<Key, Task> timed_;
};

struct DeviceState;
// The screens presented on the device (ports/sim/SimScreens.cc).
struct ScreenState;
// The device's network link (ports/sim/SimNetwork.cc).
struct NetworkState;

// An installed app.  Replaced as a whole on reinstall.
struct AppState {
  AppManifest manifest;
  SimApp::OpenHandler handler;
  int openCount = 0;
  // Lifecycle observers of the app's running process, by id.  A relaunch
  // ends the process and drops them.
  std::map<platform::Lifecycle::ObserverId, std::function<void(platform::LifecycleEvent)>> lifecycleObservers;
  platform::Lifecycle::ObserverId nextObserverId = 1;
  std::vector<Dictionary> keychain;
  Dictionary defaults;
};

struct DeviceState {
  DeviceState();

  std::string systemVersion = "13.0";
  std::string model = "iPhone";
  std::optional<double> screenScale = 2.0;

  // Install order decides which app wins a scheme or a universal link that
  // two apps claim.
  struct Installed {
    std::unique_ptr<SimApp> app;
    std::shared_ptr<AppState> state;
  };
  std::vector<Installed> apps;
  std::string kitBundleId;
  // The app in front ("" for the home screen or the browser).
  std::string foreground;
  // The thread that made the device: its run loop's main thread.
  std::thread::id mainThread;

  // The general pasteboard: the items of its one entry, by type.
  std::vector<std::pair<std::string, Data>> pasteboard;
  std::uint64_t pasteboardChangeCount = 0;
  std::string pasteboardWriter;
  std::vector<PasteNotice> pasteNotices;
  bool allowPaste = true;

  RunQueue queue;
  std::vector<OpenEvent> openLog;
  std::vector<std::string> systemLog;
  std::shared_ptr<platform::Crypto> crypto;
  std::shared_ptr<platform::ImageCodec> imageCodec;
  std::shared_ptr<ScreenState> screens;
  std::shared_ptr<NetworkState> network;

  Installed* find(const std::string& bundleId);
};

// The pasteboard type of plain text.
inline constexpr const char* kPlainTextType = "public.utf8-plain-text";

// Replaces the pasteboard's contents with one item (none for null Data).
void writePasteboard(DeviceState& device, const std::string& writer, const Data& data, const std::string& type);
// A content read of `type` by `reader`: records the paste notice the system
// would show, and returns false when the user refused it.
bool notePasteRead(DeviceState& device, const std::string& reader, const std::string& type);

// Lower-cases ASCII letters.
std::string asciiLower(std::string_view s);

// The parts of a URL that routing needs.  Scheme and host are lower-cased;
// path is "" when the URL has none.
struct RoutedURL {
  std::string scheme;
  std::string host;
  std::string path;
};
// nullopt when the text is not a URL: no scheme, or a space or control
// character anywhere.
std::optional<RoutedURL> parseRoutedURL(std::string_view text);

// The URL schemes an Info.plist registers, as written.
std::vector<std::string> urlSchemesOf(const Dictionary& infoPlist);
// The query schemes ("LSApplicationQueriesSchemes") an Info.plist lists.
std::vector<std::string> querySchemesOf(const Dictionary& infoPlist);

// Brings `bundleId` ("" for the home screen or the browser) to the front:
// the app in front goes to the background and the new one becomes active.
// Each event is queued on the run loop for the app's observers; nothing
// happens when `bundleId` is already in front.  `beforeActive` (may be
// empty) is queued between the two, as an opened app's URL handler is.
void bringToFront(const std::shared_ptr<DeviceState>& device, const std::string& bundleId,
                  std::function<void()> beforeActive = {});

bool canOpen(DeviceState& device, const std::string& sourceBundleId, const std::string& url);
// Routes and records one open attempt; enqueues the opened app's handler
// and then, for an asynchronous open, the completion.
bool open(const std::shared_ptr<DeviceState>& device, const std::string& url, const std::string& sourceBundleId,
          bool asynchronous, bool universalLinksOnly, std::function<void(bool)> completion);

// Screens and network, each in its own file.
std::shared_ptr<ScreenState> makeScreenState();
std::shared_ptr<platform::Presenter> makeSimPresenter(const std::shared_ptr<DeviceState>& device,
                                                      const std::shared_ptr<AppState>& app);
std::shared_ptr<NetworkState> makeNetworkState();
std::shared_ptr<platform::Http> makeSimHttp(const std::shared_ptr<DeviceState>& device,
                                            const std::shared_ptr<AppState>& app);
// Takes in the network events that have arrived: each becomes posted work
// of the app that owns the connection.
void pumpNetwork(DeviceState& device);
// An app was relaunched, reinstalled or uninstalled: its screens go away
// and its connections are cancelled.
void screensAppGone(DeviceState& device, const std::string& bundleId);
void networkAppGone(DeviceState& device, const std::string& bundleId);

// The platform an app sees.
std::shared_ptr<platform::Platform> makeAppPlatform(const std::shared_ptr<DeviceState>& device,
                                                    const std::shared_ptr<AppState>& app);

}  // namespace mirelo::sim::detail

namespace mirelo::sim {

struct SimApp::Impl {
  std::shared_ptr<detail::AppState> state;
  std::shared_ptr<platform::Platform> platform;
};

struct SimDevice::Impl {
  std::shared_ptr<detail::DeviceState> state;
};

}  // namespace mirelo::sim
