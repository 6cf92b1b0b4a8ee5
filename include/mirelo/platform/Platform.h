// The platform seam: everything the kit needs from the device.
//
// The kit's core never includes a platform header.  It reaches the device only
// through the small interfaces below, gathered in one Platform object.  A port
// implements them: the simulated device (ports/sim) for Linux, tests and
// integration rehearsals; an Apple port as a thin adapter over the system
// frameworks.  The port linked into the program supplies the default platform
// (createDefaultPlatform); tests and integrators may install another one with
// setCurrent.
//
// Threading: unless a contract says otherwise, every call is made on the main
// thread and every completion is delivered on the main run loop, never from
// inside the call that scheduled it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"

namespace mirelo::platform {

// Opening URLs and asking whether they can be opened.
class Application {
 public:
  virtual ~Application() = default;
  // True when the URL's scheme is registered by an installed app and the
  // calling app lists that scheme under "LSApplicationQueriesSchemes" in its
  // Info.plist, as the system requires.  Opens nothing.  False for a string
  // that is not a URL.
  virtual bool canOpenURL(const std::string& url) = 0;
  // Opens the URL now and returns whether it was opened: a scheme URL opens
  // the app that registered the scheme; an http(s) URL opens an app that
  // claims it as a universal link, or else the browser.  The opened app
  // receives the URL later on the main run loop.
  virtual bool openURL(const std::string& url) = 0;
  // Opens the URL and reports the outcome to `completion`, exactly once, later
  // on the main run loop.  With `universalLinksOnly`, an https URL opens only
  // an installed app that claims it as a universal link and fails otherwise
  // (it never falls back to the browser).
  virtual void openURL(const std::string& url, bool universalLinksOnly,
                       std::function<void(bool success)> completion) = 0;
};

// The general pasteboard, shared by every app on the device.
class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  // The plain text on the pasteboard, or null when there is none.
  virtual String string() = 0;
  // Replaces the whole contents of the pasteboard with one plain-text item.
  virtual void setString(const std::string& text) = 0;
  // The bytes of the item of `type`, or null Data when there is none.
  virtual Data dataForPasteboardType(const std::string& type) = 0;
  // Replaces the whole contents of the pasteboard with one item of `type`
  // holding `data` (which may be empty).  The bytes are shared, not copied.
  virtual void setData(const Data& data, const std::string& type) = 0;

  // Metadata.  Unlike string() and dataForPasteboardType(), which read
  // content and may make the system tell the user that the app pasted
  // another app's content, these three never do.
  // Increases with every change of the contents, by any app.
  virtual std::int64_t changeCount() = 0;
  // The types of the first item, in the order the writer gave them; empty
  // when the pasteboard is empty.
  virtual std::vector<std::string> types() = 0;
  // Whether the pasteboard holds plain text (which may be empty).
  virtual bool hasStrings() = 0;
};

// Keychain status codes, as the system's security services report them.
namespace keychain {
inline constexpr std::int32_t errSecSuccess = 0;
inline constexpr std::int32_t errSecParam = -50;
inline constexpr std::int32_t errSecDuplicateItem = -25299;
inline constexpr std::int32_t errSecItemNotFound = -25300;
// Attribute keys and values: the system's own constant strings, so that a
// port can pass a query through unchanged.
inline constexpr const char* kSecClass = "class";
inline constexpr const char* kSecClassGenericPassword = "genp";
inline constexpr const char* kSecAttrService = "svce";
inline constexpr const char* kSecAttrAccount = "acct";
inline constexpr const char* kSecAttrAccessible = "pdmn";
inline constexpr const char* kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly = "cku";
inline constexpr const char* kSecValueData = "v_Data";
inline constexpr const char* kSecReturnData = "r_Data";
inline constexpr const char* kSecMatchLimit = "m_Limit";
inline constexpr const char* kSecMatchLimitOne = "m_LimitOne";
}  // namespace keychain

// The calling app's own keychain (generic-password items).
class Keychain {
 public:
  virtual ~Keychain() = default;
  // Adds one item with `attributes` (class, service, account, accessibility,
  // value data).  errSecDuplicateItem when an item with the same class,
  // service and account exists; errSecParam for a malformed query.
  virtual std::int32_t itemAdd(const Dictionary& attributes) = 0;
  // Finds the first item matching `query`.  With kSecReturnData true,
  // `*result` receives the item's value data.  errSecItemNotFound when none.
  virtual std::int32_t itemCopyMatching(const Dictionary& query, Value* result) = 0;
  // Deletes every item matching `query`.  errSecItemNotFound when none.
  virtual std::int32_t itemDelete(const Dictionary& query) = 0;
};

// Facts about the device.
class Device {
 public:
  virtual ~Device() = default;
  // The system version string, such as "13.4.1".
  virtual String systemVersion() = 0;
  // The model string, such as "iPhone" or "iPad".
  virtual String model() = 0;
  // The main screen's scale, or nullopt when the screen does not report one.
  virtual std::optional<double> screenScale() = 0;
};

// The calling app's main bundle.
class Bundle {
 public:
  virtual ~Bundle() = default;
  // The app's Info.plist as a dictionary (empty when it has none).
  virtual Dictionary infoDictionary() = 0;
  // The app's bundle identifier, or null.
  virtual String bundleIdentifier() = 0;
};

// The calling app's standard user defaults; they survive a relaunch.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  // The stored object, or a null Value.
  virtual Value objectForKey(const std::string& key) = 0;
  // Stores `value`; a null Value removes the key.
  virtual void setObject(const Value& value, const std::string& key) = 0;
};

// The main run loop: deferred work, delayed calls and timers, and the clock
// they run on.  On the simulated device the clock is virtual and only moves
// when a test advances it.
class RunLoop {
 public:
  using Target = const void*;
  using TimerId = std::uint64_t;
  virtual ~RunLoop() = default;
  // Wall-clock seconds since 1970-01-01T00:00:00Z.
  virtual double now() = 0;
  // Runs `task` on the main run loop after the current call returns, in the
  // order posted.
  virtual void post(std::function<void()> task) = 0;
  // Runs `task` once after `delaySeconds`, unless cancelled first.  `target`
  // names the owner of the call for cancelPerforms.
  virtual void performAfter(Target target, double delaySeconds, std::function<void()> task) = 0;
  // Cancels every pending performAfter call of `target`; others stay.
  virtual void cancelPerforms(Target target) = 0;
  // Whether the calling thread is the thread this run loop belongs to (the
  // main thread).  Callable from any thread.
  virtual bool isMainThread() = 0;
  // Schedules a timer firing after `intervalSeconds` (and then every
  // interval when `repeats`).  Returns a non-zero id.
  virtual TimerId scheduleTimer(double intervalSeconds, bool repeats, std::function<void()> task) = 0;
  // Stops a timer; unknown or already-fired ids are ignored.
  virtual void invalidateTimer(TimerId id) = 0;
};

// The calling app's place on screen: whether it is the active app, and the
// moments it becomes active or goes to the background.  A URL that opens the
// app reaches it before the app's DidBecomeActive event; switching back to
// the app by hand (no URL) gives the event alone.
enum class LifecycleEvent : std::int64_t { DidBecomeActive = 0, DidEnterBackground = 1 };

class Lifecycle {
 public:
  using ObserverId = std::uint64_t;
  virtual ~Lifecycle() = default;
  // Whether the app is in the foreground and active now.
  virtual bool isActive() = 0;
  // Calls `observer` on the main run loop for every later event of the
  // calling app, until removeObserver.  Returns a non-zero id.  An observer
  // removed before an event is delivered does not receive it.
  virtual ObserverId addObserver(std::function<void(LifecycleEvent)> observer) = 0;
  // Unknown ids are ignored.
  virtual void removeObserver(ObserverId id) = 0;
};

// The system log (not the kit's own log sink).
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void write(const std::string& line) = 0;
};

// Hashing and Base64 from a well-kept library (never hand-written here).
// Pure functions; callable from any thread.
class Crypto {
 public:
  virtual ~Crypto() = default;
  virtual std::array<std::uint8_t, 32> sha256(const void* bytes, std::size_t size) = 0;
  // Standard Base64 (RFC 4648, "+/" alphabet, padded).  Null Data when the
  // text is not valid Base64.
  virtual Data base64Decode(std::string_view text) = 0;
  virtual std::string base64Encode(const void* bytes, std::size_t size) = 0;
  // Fills `size` bytes at `out` from the platform's cryptographically secure
  // random source (seeded by the system, different in every process).
  // False, with `out` unspecified, when the source fails.
  virtual bool randomBytes(void* out, std::size_t size) = 0;
};

// An image as the platform holds it (a decoded bitmap on Linux; the
// system's image object on a phone).  The kit only passes images through
// to the image codec and to the host.
class Image {
 public:
  virtual ~Image() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
};

// Image encoding and decoding.  Pure functions; callable from any thread.
class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  // JPEG bytes of `image` at `quality` (0 to 1); null Data when the image
  // cannot be encoded.
  virtual Data jpegRepresentation(const Image& image, double quality) = 0;
  // The image encoded in `bytes` (JPEG or PNG), or nullptr when the bytes
  // are not an image the platform can decode.
  virtual std::shared_ptr<Image> decode(const Data& bytes) = 0;
};

// ---- screens: the web sign-in's page, its navigation bar and alerts ----

// A screen of the app.  The kit never looks inside one: it hands the host's
// screen back to the presenter and keeps the pages it made itself.
class ViewController {
 public:
  virtual ~ViewController() = default;
};

// What a web view does with a navigation it is about to start.
enum class NavigationActionPolicy : std::int64_t { Cancel = 0, Allow = 1 };

// Asked by a web page before each navigation.
class WebNavigationDelegate {
 public:
  virtual ~WebNavigationDelegate() = default;
  // Called on the main thread for every navigation the page is about to
  // start (its own loads included), with the target's absolute URL string.
  // The page goes on only with Allow; with Cancel it stays where it was.
  virtual NavigationActionPolicy decidePolicyForNavigation(const std::string& url) = 0;
};

// A button in a navigation bar, plain style.
struct BarButtonItem {
  std::string title;
  // Runs on the main thread when the button is tapped.
  std::function<void()> action;
};

// A screen holding one web view that fills it and resizes with it, and
// accepts user interaction.
class WebPage : public ViewController {
 public:
  // The title shown in the navigation bar of the controller holding it.
  virtual void setTitle(const std::string& title) = 0;
  // Shows `item` as the left bar button, replacing any; nullopt removes it.
  virtual void setLeftBarButtonItem(std::optional<BarButtonItem> item) = 0;
  // Loads a plain GET request for `url`, asking the navigation delegate
  // first.  A string that is not a URL loads nothing.
  virtual void loadURL(const std::string& url) = 0;
};

struct WebPageOptions {
  // Ask for the mobile layout of pages (used on tablets).  Only honoured
  // when Presenter::webPagePreferencesAvailable() is true.
  bool preferMobileContentMode = false;
};

enum class AlertActionStyle : std::int64_t { Default = 0, Cancel = 1, Destructive = 2 };

struct AlertAction {
  std::string title;
  AlertActionStyle style = AlertActionStyle::Default;
  // Runs on the main thread after the alert is gone (may be empty).
  std::function<void()> handler;
};

// An alert-style confirmation with its buttons, in the order given.
struct Alert {
  std::string title;
  std::string message;
  std::vector<AlertAction> actions;
};

// Presents and dismisses the kit's screens.  Main thread only.
class Presenter {
 public:
  virtual ~Presenter() = default;
  // Whether the system's web views take per-page preferences (the content
  // mode of WebPageOptions).
  virtual bool webPagePreferencesAvailable() = 0;
  // A new page whose web view asks `delegate` (held weakly) about every
  // navigation.  Never null.  Nothing is on screen until it is presented.
  virtual std::shared_ptr<WebPage> makeWebPage(const WebPageOptions& options,
                                               std::weak_ptr<WebNavigationDelegate> delegate) = 0;
  // Wraps `root` in a new navigation controller and presents it modally
  // from `presenting` (null: the app's topmost screen).  `completion` (may
  // be empty) runs later on the main run loop, once it is on screen.
  virtual void presentInNavigationController(const std::shared_ptr<ViewController>& root,
                                             const std::shared_ptr<ViewController>& presenting, bool animated,
                                             std::function<void()> completion) = 0;
  // Dismisses the modal presentation holding `controller`, with whatever it
  // presented in turn.  Nothing when it is not on screen.
  virtual void dismiss(const std::shared_ptr<ViewController>& controller, bool animated) = 0;
  // Presents `alert` from `presenting` (animated).  Tapping a button takes
  // the alert away and then runs the button's handler.
  virtual void presentAlert(const Alert& alert, const std::shared_ptr<ViewController>& presenting) = 0;
};

// ---- HTTP: one request per connection, events on the main run loop ----

enum class URLRequestCachePolicy : std::int64_t {
  UseProtocolCachePolicy = 0,
  ReloadIgnoringLocalCacheData = 1,
};

struct HttpRequest {
  std::string url;  // absolute http or https URL
  std::string method = "GET";
  URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::UseProtocolCachePolicy;
  // Seconds without the request completing after which it fails with a
  // time-out; 60 is the system's default.
  double timeoutSeconds = 60;
};

struct HttpResponse {
  std::int64_t statusCode = 0;
  // The body length the server announced, or -1 when it announced none.
  std::int64_t expectedContentLength = -1;
  // Header fields as received (string values), names as the server wrote
  // them.
  Dictionary allHeaderFields;
};

// Why a connection failed, in the system's URL-error terms.
struct HttpError {
  std::string domain = "NSURLErrorDomain";
  std::int64_t code = 0;  // e.g. -1001 timed out, -1004 cannot connect, -1202 untrusted server
  std::string localizedDescription;
};

// Receives one connection's events, on the main run loop, never from inside
// the call that started the connection.  Order: didReceiveResponse (once, or
// never when the connection fails before a response), didReceiveData (zero
// or more pieces), then exactly one of didFailWithError or didFinishLoading.
// A body that ends before its announced length (the server closed the
// connection early) still ends in didFinishLoading: the receiver compares
// what it got with HttpResponse::expectedContentLength.
class HttpConnectionDelegate {
 public:
  virtual ~HttpConnectionDelegate() = default;
  virtual void didReceiveResponse(const HttpResponse& response) = 0;
  virtual void didReceiveData(const Data& data) = 0;
  virtual void didFailWithError(const HttpError& error) = 0;
  virtual void didFinishLoading() = 0;
};

// One request in flight.
class HttpConnection {
 public:
  virtual ~HttpConnection() = default;
  // Stops the request; no event reaches the delegate after cancel returns.
  // Dropping the last reference to a connection cancels it as well.
  virtual void cancel() = 0;
};

// HTTP(S) with the server's certificate and host name verified against the
// system's trust store.
class Http {
 public:
  virtual ~Http() = default;
  // Starts `request` now.  `delegate` is not owned: it must cancel (or drop)
  // the connection before it goes away.  Null when the request cannot be
  // made (not an absolute http or https URL, or no delegate).
  virtual std::shared_ptr<HttpConnection> connect(const HttpRequest& request,
                                                  HttpConnectionDelegate* delegate) = 0;
};

// One device as seen by one app: the services the kit uses.
struct Platform {
  std::shared_ptr<Application> application;
  std::shared_ptr<Pasteboard> pasteboard;
  std::shared_ptr<Keychain> keychain;
  std::shared_ptr<Device> device;
  std::shared_ptr<Bundle> bundle;
  std::shared_ptr<UserDefaults> userDefaults;
  std::shared_ptr<RunLoop> runLoop;
  std::shared_ptr<SystemLog> systemLog;
  std::shared_ptr<Crypto> crypto;
  std::shared_ptr<ImageCodec> imageCodec;
  std::shared_ptr<Presenter> presenter;
  std::shared_ptr<Http> http;
  std::shared_ptr<Lifecycle> lifecycle;
};

// The platform the kit uses.  On first use it is the port's default.
Platform& current();
// Installs `platform` (all services set) for every later kit call and
// returns the previous one.  Call on the main thread between kit calls.
std::shared_ptr<Platform> setCurrent(std::shared_ptr<Platform> platform);

// Defined by the port linked into the program (link-time choice).
std::shared_ptr<Platform> createDefaultPlatform();

}  // namespace mirelo::platform
