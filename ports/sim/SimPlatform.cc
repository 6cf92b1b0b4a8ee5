// The platform services of one app on the simulated device.
#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {
namespace {

namespace kc = platform::keychain;

// Every service of one app: weak links to its device and to the app itself.
class AppLink {
 public:
  AppLink(const std::shared_ptr<DeviceState>& device, const std::shared_ptr<AppState>& app)
      : device_(device), app_(app), bundleId_(app->manifest.bundleId) {}

 protected:
  // The device, or null once the device is gone or this app was
  // uninstalled or reinstalled.
  std::shared_ptr<DeviceState> device() const { return app_.expired() ? nullptr : device_.lock(); }
  std::shared_ptr<AppState> app() const { return app_.lock(); }
  const std::string& bundleId() const { return bundleId_; }

 private:
  std::weak_ptr<DeviceState> device_;
  std::weak_ptr<AppState> app_;
  std::string bundleId_;
};

class SimApplication final : public platform::Application, AppLink {
 public:
  using AppLink::AppLink;
  bool canOpenURL(const std::string& url) override {
    const auto dev = device();
    return dev && canOpen(*dev, bundleId(), url);
  }
  bool openURL(const std::string& url) override {
    const auto dev = device();
    return dev && open(dev, url, bundleId(), false, false, nullptr);
  }
  void openURL(const std::string& url, bool universalLinksOnly,
               std::function<void(bool success)> completion) override {
    if (const auto dev = device()) open(dev, url, bundleId(), true, universalLinksOnly, std::move(completion));
  }
};

class SimPasteboard final : public platform::Pasteboard, AppLink {
 public:
  using AppLink::AppLink;
  String string() override {
    const Data d = dataForPasteboardType(kPlainTextType);
    return d.isNull() ? String() : String(d.toString());
  }
  void setString(const std::string& text) override { setData(Data::copy(text), kPlainTextType); }
  Data dataForPasteboardType(const std::string& type) override {
    const auto dev = device();
    if (dev && notePasteRead(*dev, bundleId(), type)) {
      for (const auto& [t, data] : dev->pasteboard) {
        if (t == type) return data;
      }
    }
    return Data();
  }
  void setData(const Data& data, const std::string& type) override {
    if (const auto dev = device()) writePasteboard(*dev, bundleId(), data, type);
  }
  std::int64_t changeCount() override {
    const auto dev = device();
    return dev ? static_cast<std::int64_t>(dev->pasteboardChangeCount) : 0;
  }
  std::vector<std::string> types() override {
    std::vector<std::string> out;
    if (const auto dev = device()) {
      for (const auto& item : dev->pasteboard) out.push_back(item.first);
    }
    return out;
  }
  bool hasStrings() override {
    const auto dev = device();
    if (!dev) return false;
    for (const auto& item : dev->pasteboard) {
      if (item.first == kPlainTextType) return true;
    }
    return false;
  }
};

// Query keys that steer a search rather than name an attribute: the return
// types ("r_...") and the match options ("m_...").
bool isControlKey(std::string_view key) { return key.starts_with("r_") || key.starts_with("m_"); }

bool hasClass(const Dictionary& d) { return d.get(kc::kSecClass).isString(); }

bool matches(const Dictionary& item, const Dictionary& query) {
  for (const auto& [key, value] : query) {
    if (isControlKey(key)) continue;
    const Value* have = item.find(key);
    if (!have || *have != value) return false;
  }
  return true;
}

class SimKeychain final : public platform::Keychain, AppLink {
 public:
  using AppLink::AppLink;

  std::int32_t itemAdd(const Dictionary& attributes) override {
    const auto a = app();
    if (!a || !hasClass(attributes)) return kc::errSecParam;
    const Value* value = attributes.find(kc::kSecValueData);
    if (value && !value->isData()) return kc::errSecParam;
    for (const Dictionary& item : a->keychain) {
      if (item.get(kc::kSecClass) == attributes.get(kc::kSecClass) &&
          item.get(kc::kSecAttrService) == attributes.get(kc::kSecAttrService) &&
          item.get(kc::kSecAttrAccount) == attributes.get(kc::kSecAttrAccount)) {
        return kc::errSecDuplicateItem;
      }
    }
    Dictionary stored;
    for (const auto& [key, v] : attributes) {
      if (!isControlKey(key)) stored.set(key, v);
    }
    a->keychain.push_back(std::move(stored));
    return kc::errSecSuccess;
  }

  std::int32_t itemCopyMatching(const Dictionary& query, Value* result) override {
    if (result) *result = Value();
    const auto a = app();
    if (!a || !hasClass(query)) return kc::errSecParam;
    const Value* returnData = query.find(kc::kSecReturnData);
    const bool wantData = returnData && returnData->asBool() && *returnData->asBool();
    const bool all = query.get(kc::kSecMatchLimit) == Value("m_LimitAll");
    Array found;
    for (const Dictionary& item : a->keychain) {
      if (!matches(item, query)) continue;
      found.push_back(item.get(kc::kSecValueData));
      if (!all) break;
    }
    if (found.empty()) return kc::errSecItemNotFound;
    if (wantData && result) *result = all ? Value(std::move(found)) : found[0];
    return kc::errSecSuccess;
  }

  std::int32_t itemDelete(const Dictionary& query) override {
    const auto a = app();
    if (!a || !hasClass(query)) return kc::errSecParam;
    const auto removed = std::erase_if(a->keychain, [&](const Dictionary& item) { return matches(item, query); });
    return removed == 0 ? kc::errSecItemNotFound : kc::errSecSuccess;
  }
};

class SimDeviceFacts final : public platform::Device, AppLink {
 public:
  using AppLink::AppLink;
  String systemVersion() override {
    const auto dev = device();
    return dev ? String(dev->systemVersion) : String();
  }
  String model() override {
    const auto dev = device();
    return dev ? String(dev->model) : String();
  }
  std::optional<double> screenScale() override {
    const auto dev = device();
    return dev ? dev->screenScale : std::nullopt;
  }
};

class SimBundle final : public platform::Bundle, AppLink {
 public:
  using AppLink::AppLink;
  Dictionary infoDictionary() override {
    const auto a = app();
    return a ? a->manifest.infoPlist : Dictionary();
  }
  String bundleIdentifier() override { return app() ? String(bundleId()) : String(); }
};

class SimUserDefaults final : public platform::UserDefaults, AppLink {
 public:
  using AppLink::AppLink;
  Value objectForKey(const std::string& key) override {
    const auto a = app();
    return a ? a->defaults.get(key) : Value();
  }
  void setObject(const Value& value, const std::string& key) override {
    const auto a = app();
    if (!a) return;
    if (value.isNull()) {
      a->defaults.remove(key);
    } else {
      a->defaults.set(key, value);
    }
  }
};

class SimRunLoop final : public platform::RunLoop, AppLink {
 public:
  using AppLink::AppLink;
  double now() override {
    const auto dev = device();
    return dev ? dev->queue.now() : 0;
  }
  void post(std::function<void()> task) override {
    if (const auto dev = device()) dev->queue.post(bundleId(), std::move(task));
  }
  void performAfter(Target target, double delaySeconds, std::function<void()> task) override {
    if (const auto dev = device()) dev->queue.performAfter(bundleId(), target, delaySeconds, std::move(task));
  }
  void cancelPerforms(Target target) override {
    if (const auto dev = device()) dev->queue.cancelPerforms(bundleId(), target);
  }
  TimerId scheduleTimer(double intervalSeconds, bool repeats, std::function<void()> task) override {
    const auto dev = device();
    // Ids stay non-zero even on a device that is gone.
    return dev ? dev->queue.scheduleTimer(bundleId(), intervalSeconds, repeats, std::move(task)) : ~TimerId{0};
  }
  void invalidateTimer(TimerId id) override {
    if (const auto dev = device()) dev->queue.invalidateTimer(bundleId(), id);
  }
  bool isMainThread() override {
    const auto dev = device();
    return dev && dev->mainThread == std::this_thread::get_id();
  }
};

class SimLifecycle final : public platform::Lifecycle, AppLink {
 public:
  using AppLink::AppLink;
  bool isActive() override {
    const auto dev = device();
    return dev && dev->foreground == bundleId();
  }
  ObserverId addObserver(std::function<void(platform::LifecycleEvent)> observer) override {
    const auto a = app();
    if (!a || !device()) return ~ObserverId{0};  // ids stay non-zero on a device that is gone
    const ObserverId id = a->nextObserverId++;
    a->lifecycleObservers.emplace(id, std::move(observer));
    return id;
  }
  void removeObserver(ObserverId id) override {
    if (const auto a = app()) a->lifecycleObservers.erase(id);
  }
};

class SimSystemLog final : public platform::SystemLog, AppLink {
 public:
  using AppLink::AppLink;
  void write(const std::string& line) override {
    if (const auto dev = device()) dev->systemLog.push_back(bundleId() + ": " + line);
  }
};

}  // namespace

std::shared_ptr<platform::Platform> makeAppPlatform(const std::shared_ptr<DeviceState>& device,
                                                    const std::shared_ptr<AppState>& app) {
  auto p = std::make_shared<platform::Platform>();
  p->application = std::make_shared<SimApplication>(device, app);
  p->pasteboard = std::make_shared<SimPasteboard>(device, app);
  p->keychain = std::make_shared<SimKeychain>(device, app);
  p->device = std::make_shared<SimDeviceFacts>(device, app);
  p->bundle = std::make_shared<SimBundle>(device, app);
  p->userDefaults = std::make_shared<SimUserDefaults>(device, app);
  p->runLoop = std::make_shared<SimRunLoop>(device, app);
  p->systemLog = std::make_shared<SimSystemLog>(device, app);
  p->crypto = device->crypto;
  p->imageCodec = device->imageCodec;
  p->presenter = makeSimPresenter(device, app);
  p->http = makeSimHttp(device, app);
  p->lifecycle = std::make_shared<SimLifecycle>(device, app);
  return p;
}

}  // namespace mirelo::sim::detail
