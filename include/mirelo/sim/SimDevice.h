// A simulated device for Linux: installed apps, one general pasteboard, URL
// routing by scheme and by universal-link domain, a keychain and user
// defaults per app, and a virtual clock.
//
// Everything is deterministic: nothing runs on another thread and nothing
// sleeps.  Opening an app, completing an asynchronous open, delayed calls and
// timers are queued on the device's run loop and run only when the test
// drains it (runUntilIdle) or moves the clock (advance).
//
// The kit runs as one app of the device at a time (runKitAs).  Other apps,
// such as the messenger peer, react to being opened through onOpenURL.
//
// Routing of an opened URL:
//   - a text without a scheme (or with a space or control character) is not
//     a URL: it cannot be opened;
//   - an https URL that an installed app claims as a universal link (domain
//     equal, ignoring case; path under one of the claimed prefixes) opens
//     that app;
//   - otherwise, with the universal-links-only option, the open fails;
//   - otherwise an http or https URL opens the browser, which succeeds;
//   - otherwise the app that registered the URL's scheme (compared ignoring
//     case) opens; none: the open fails.
// Universal links are https only.  When two apps register the same scheme
// or claim the same link, the one installed first wins.
//
// Can-open: http and https are always answered by the browser; any other
// scheme needs an installed app that registers it and the asking app's
// "LSApplicationQueriesSchemes" listing it (ignoring case; entries that are
// not strings are skipped).
//
// Keychain: items are attribute dictionaries.  A query matches an item when
// every attribute of the query (all keys but the "r_..." return and "m_..."
// match options) is present in the item with an equal value.  itemAdd: no
// string kSecClass, or a kSecValueData that is not data, is errSecParam; an
// item with the same class, service and account is errSecDuplicateItem.
// itemCopyMatching with kSecReturnData a true boolean gives the first
// match's data, or, with kSecMatchLimit "m_LimitAll", an array of the data of
// every match; without it the result is null.
//
// Order of events: opening an app enqueues its OpenHandler call on the run
// loop.  An asynchronous open enqueues the opened app's handler first and
// then the caller's completion, so when the completion runs the other app
// has already seen the URL (and may itself have queued work, which runs
// after the completion).
//
// Paste notices: from iOS 14 the system tells the user when an app reads
// pasteboard content that another app (or the user, copying elsewhere)
// wrote: a banner on iOS 14 and 15, an "Allow Paste" prompt from iOS 16.
// The device records one notice for every content read (string() or
// dataForPasteboardType(), whatever type is asked for) while the pasteboard
// is not empty and its writer is not the reader.  Reading the change count,
// the types or hasStrings never makes one.  A prompt the user answers with
// "Don't Allow" (setAllowPaste(false)) makes that read find nothing.
//
// Pending work belongs to an app: the handler call to the app that was
// opened, everything else (posted tasks, delayed calls, timers, open
// completions) to the app whose platform scheduled it.  relaunch, uninstall
// and reinstall drop that app's pending work.
//
// An app's platform refers to the device and the app only weakly: once the
// device is destroyed or the app uninstalled or reinstalled, that platform
// answers false/null, schedules nothing and never calls back.  Open
// handlers must not hold the device by shared_ptr (that would be a cycle).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/platform/Platform.h"

namespace mirelo::sim {

// A universal-link claim of an app: a domain and the path prefixes it
// serves there ("/" or "*" claims every path; a trailing "*" is dropped
// before the prefix test; a URL without a path counts as "/").
struct UniversalLinkClaim {
  std::string domain;
  std::vector<std::string> paths;
};

// What an app is made of when it is installed.
struct AppManifest {
  std::string bundleId;
  // The app's Info.plist.  Its URL schemes are read from
  // "CFBundleURLTypes"/"CFBundleURLSchemes"; can-open checks use its
  // "LSApplicationQueriesSchemes".
  Dictionary infoPlist;
  std::vector<UniversalLinkClaim> universalLinks;

  // Convenience: an Info.plist with the given own URL schemes and query
  // schemes (either may be empty).
  static Dictionary makeInfoPlist(const std::vector<std::string>& urlSchemes,
                                  const std::vector<std::string>& querySchemes);
};

// How an app was opened.
struct OpenContext {
  std::string url;
  std::string sourceBundleId;  // "" when the system or a test opened it
  bool viaUniversalLink = false;
};

// One attempt to open a URL, as the device saw it.
struct OpenEvent {
  std::string sourceBundleId;
  std::string url;
  bool asynchronous = false;
  bool universalLinksOnly = false;
  bool success = false;
  std::string openedBundleId;  // "" for the browser or a failure
  bool openedInBrowser = false;
};

// How the system told the user about a read of another app's content.
enum class PasteNoticeKind { Banner, Prompt };

// One paste notice, as the device recorded it.
struct PasteNotice {
  std::string reader;  // the app that read
  std::string writer;  // the app that wrote the contents ("" the user or a test)
  std::string type;    // the type the reader asked for
  PasteNoticeKind kind = PasteNoticeKind::Banner;
  bool allowed = true;  // false when the user refused a prompt
  bool found = false;   // whether the pasteboard held `type`
  std::uint64_t changeCount = 0;  // the pasteboard's change count at the read
};

class SimDevice;

// A web page an app has made (see platform::Presenter), as a test sees it.
// Valid while the page is alive; SimDevice::topWebPage hands out the one on
// top of the screen.
class SimWebPage {
 public:
  virtual ~SimWebPage() = default;
  virtual std::string title() const = 0;
  // The left bar button's title, or nullopt when there is none.
  virtual std::optional<std::string> leftBarButtonTitle() const = 0;
  // Taps the left bar button (its action runs now); false when there is none.
  virtual bool tapLeftBarButton() = 0;
  // The URL the page shows ("" before the first load).
  virtual std::string url() const = 0;
  // Every URL the app asked the page to load, in order.
  virtual std::vector<std::string> loads() const = 0;
  virtual bool prefersMobileContentMode() const = 0;
  // The page starts a navigation to `url`, as a link, a form or a redirect
  // of the page would: the app's navigation delegate decides, and on Allow
  // the page shows `url`.  Returns whether it was allowed.
  virtual bool navigate(const std::string& url) = 0;
};

// An alert an app presented, as a test sees it.
class SimAlert {
 public:
  virtual ~SimAlert() = default;
  virtual std::string title() const = 0;
  virtual std::string message() const = 0;
  // The buttons, in order.
  virtual std::vector<platform::AlertAction> actions() const = 0;
  // Taps the button titled `title`: the alert goes away, then the button's
  // handler runs.  False when there is no such button.
  virtual bool tap(const std::string& title) = 0;
};

// An installed app.  Owned by its device.
class SimApp {
 public:
  using OpenHandler = std::function<void(const OpenContext&)>;

  const std::string& bundleId() const;
  const AppManifest& manifest() const;
  // The app's Info.plist; changes take effect for later calls.
  Dictionary& infoPlist();
  // The app's own URL schemes, from its Info.plist.
  std::vector<std::string> urlSchemes() const;
  // Called on the device's run loop each time the app is opened by a URL.
  void onOpenURL(OpenHandler handler);
  // How many times the app was opened by a URL since installation (counted
  // when the open succeeds, before the handler runs).
  int openCount() const;
  // The platform as this app sees it.
  std::shared_ptr<platform::Platform> platform() const;

  // The app's keychain items, raw: every item is a dictionary of the
  // attributes it was added with.  Tests may plant items here.
  std::vector<Dictionary>& keychainItems();
  // The app's user defaults, raw.
  Dictionary& userDefaults();

  struct Impl;
  explicit SimApp(std::unique_ptr<Impl> impl);
  ~SimApp();

 private:
  std::unique_ptr<Impl> impl_;
};

class SimDevice : public std::enable_shared_from_this<SimDevice> {
 public:
  // A device with no apps, system version "13.0", model "iPhone", screen
  // scale 2.0, the clock at 2026-01-01T00:00:00Z.
  static std::shared_ptr<SimDevice> create();
  ~SimDevice();

  // ---- device facts ----
  void setSystemVersion(std::string version);
  void setModel(std::string model);
  // nullopt: the screen reports no scale.
  void setScreenScale(std::optional<double> scale);

  // ---- apps ----
  // Installs (or reinstalls, keeping nothing) an app.  A reinstall makes a
  // new SimApp and platform; references to the old ones become invalid.
  // Reinstalling the app the kit runs as installs the new platform as the
  // kit's current one and resets the kit's process-wide state.
  SimApp& install(AppManifest manifest);
  // Removes the app and its pending work; references to it become invalid.
  void uninstall(const std::string& bundleId);
  // The installed app, or nullptr.
  SimApp* app(const std::string& bundleId);
  // Terminates and restarts the app: its pending run-loop work is dropped,
  // its keychain and user defaults stay.  When the kit runs as this app, the
  // kit's process-wide state is reset (platform::resetProcessState).
  void relaunch(const std::string& bundleId);
  // Installs this app's platform as the kit's current platform.
  void runKitAs(const std::string& bundleId);
  // The app the kit runs as ("" when none).
  const std::string& kitBundleId() const;

  // ---- foreground and lifecycle (platform::Lifecycle) ----
  // The app in front: "" for the home screen or the browser.  An app opened
  // by a URL comes to the front (its URL handler runs, then its
  // DidBecomeActive event); the browser opening a URL sends the app in front
  // to the background.  runKitAs puts the kit's app in front, without
  // events, when nothing else is.
  const std::string& foregroundApp() const;
  // The user switches to `bundleId` by hand, without a URL ("" goes to the
  // home screen): the app in front gets DidEnterBackground, `bundleId`
  // DidBecomeActive, each on the run loop.  Unknown apps are ignored.
  void switchToApp(const std::string& bundleId);
  // Opens a URL as the system would on behalf of `sourceBundleId` ("" for a
  // tap outside any app); same routing as Application::openURL.
  bool openURL(const std::string& url, const std::string& sourceBundleId = "");
  // The asynchronous open of Application::openURL on behalf of
  // `sourceBundleId`; `completion` is owned by that app.
  void openURL(const std::string& url, const std::string& sourceBundleId, bool universalLinksOnly,
               std::function<void(bool success)> completion);
  // Application::canOpenURL as asked by `sourceBundleId` (its query schemes
  // count).
  bool canOpenURL(const std::string& url, const std::string& sourceBundleId) const;

  // ---- pasteboard ----
  // One general pasteboard for every app.  Plain text is the item of type
  // "public.utf8-plain-text".  Every write replaces the whole contents with
  // one item; writing null Data leaves the pasteboard empty.  Writes here
  // count as made by `writer` ("" the user, copying in some other app);
  // reads here never make a paste notice.
  String pasteboardString() const;
  void setPasteboardString(const std::string& text, const std::string& writer = "");
  Data pasteboardData(const std::string& type) const;
  void setPasteboardData(const Data& data, const std::string& type, const std::string& writer = "");
  // The pasteboard types currently held.
  std::vector<std::string> pasteboardTypes() const;
  // Incremented on every write to the pasteboard.
  std::uint64_t pasteboardChangeCount() const;
  // The app that last wrote the pasteboard ("" the user or a test).
  const std::string& pasteboardWriter() const;
  // Every paste notice shown since the device was made or last cleared.
  const std::vector<PasteNotice>& pasteNotices() const;
  void clearPasteNotices();
  // How the user answers "Allow Paste" prompts (default: allow).
  void setAllowPaste(bool allow);

  // ---- clock and run loop ----
  double now() const;
  // Runs every task that is due now (posted work, delayed calls and timers
  // whose time has come), including tasks those tasks post, without moving
  // the clock.  Posted work always runs before delayed calls and timers.
  // Bounded: stops after `maxTasks` tasks.  Returns tasks run.
  std::size_t runUntilIdle(std::size_t maxTasks = 1000000);
  // Moves the clock forward by `seconds`, running each delayed call and
  // timer at its own time, in time order (ties in the order they were
  // scheduled), with posted work drained after each.  A negative or
  // non-finite `seconds` counts as 0.  Bounded at 1000000 tasks; when the
  // bound stops it, the clock stays at the last task run.  Returns tasks
  // run.  A repeating timer fires at most every 0.1 ms.
  std::size_t advance(double seconds);
  // Delayed calls and timers still pending.
  std::size_t pendingTimedTasks() const;
  // Every pending task: posted work, delayed calls and timers.
  std::size_t pendingTasks() const;

  // ---- screens ----
  // Presentations are modal and stack up; an app's presentations go away
  // when it is relaunched, reinstalled or uninstalled.  Presentation
  // completions run on the run loop.
  // The web page at the top of the presented screens (below any alert), or
  // nullptr when the top presentation holds none.
  SimWebPage* topWebPage();
  // The alert on top of the screen, or nullptr.
  SimAlert* topAlert();
  // Presentations on screen: navigation controllers and alerts.
  std::size_t presentedCount() const;
  // What was shown, in order, one line per event: "present <title>",
  // "dismiss <title>", "alert <message>", "tap <button>", "load <url>",
  // "navigate <url> allow" or "navigate <url> cancel".
  const std::vector<std::string>& screenLog() const;
  void clearScreenLog();
  // Whether web views take per-page preferences (default: true).
  void setWebPagePreferencesAvailable(bool available);

  // ---- network ----
  // Apps' HTTP connections go out over real sockets through the Linux port
  // (libcurl), with the server's certificate and host name verified.  A
  // connection's time-out runs on the virtual clock.  Its events are queued
  // on the run loop as they arrive; runUntilIdle and advance take in those
  // that have arrived, runUntil waits for them.
  // Sends connections to `host` (any port) to `address`:`port` instead,
  // keeping the host name for the certificate check.
  void routeHost(const std::string& host, const std::string& address, int port);
  // Trusts only the certificate authorities in the PEM file `path` ("" goes
  // back to the system's trust store).
  void setCertificateAuthorities(const std::string& path);
  // Connections in flight.
  std::size_t activeConnections() const;
  // Runs the device until `done()` is true: due work runs; while a
  // connection is in flight it waits for its events (real time); otherwise
  // the clock moves to the next delayed call or timer.  False when
  // `realTimeoutSeconds` ran out or nothing is left that could happen.
  bool runUntil(const std::function<bool()>& done, double realTimeoutSeconds = 10);

  // ---- records ----
  const std::vector<OpenEvent>& openLog() const;
  void clearOpenLog();
  // Lines written to the system log, each prefixed with the writer's bundle
  // id and ": ".
  const std::vector<std::string>& systemLog() const;

  struct Impl;

 private:
  SimDevice();
  std::unique_ptr<Impl> impl_;
  friend class SimApp;
};

}  // namespace mirelo::sim
