// The network of the simulated device: real HTTP(S) through the Linux port,
// with time-outs on the virtual clock.
//
// One transport serves the whole device.  Its worker thread drops each
// event into a locked inbox; the main thread takes them in (pumpNetwork)
// and queues each as posted work of the app that made the connection, so an
// app's delegate only ever runs on the device's run loop.  A connection is
// "in flight" from connect until its final event runs, it times out, it is
// cancelled or dropped, or its app goes away; only connections in flight
// receive events.
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>
#include <unordered_map>

#include "ports/linux/http_curl.h"
#include "ports/sim/SimState.h"

namespace mirelo::sim::detail {

using linuxport::CurlHttp;

namespace {

// The system's default time-out, for a request that names none.
constexpr double kDefaultTimeoutSeconds = 60;
// runUntil never runs more tasks than this, nor waits longer in real time.
constexpr std::size_t kRunUntilMaxTasks = 1000000;
constexpr double kRunUntilMaxSeconds = 3600;

struct Inbox {
  std::mutex mutex;
  std::condition_variable arrived;
  std::deque<CurlHttp::Event> events;
};

}  // namespace

class NetworkConnection;

struct NetworkState {
  std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
  // Connections in flight, by transfer.  Main thread only.
  std::unordered_map<CurlHttp::TransferId, NetworkConnection*> connections;
  // Made on first use, so that a device without network use starts no
  // thread.  Declared last: it joins its worker before the rest goes.
  std::unique_ptr<CurlHttp> transport;

  CurlHttp& link() {
    if (!transport) {
      transport = std::make_unique<CurlHttp>([inbox = inbox](CurlHttp::Event&& ev) {
        {
          std::lock_guard<std::mutex> lock(inbox->mutex);
          inbox->events.push_back(std::move(ev));
        }
        inbox->arrived.notify_all();
      });
    }
    return *transport;
  }
};

// One app's connection.  The app holds it; the device knows it only while
// it is in flight.
class NetworkConnection final : public platform::HttpConnection {
 public:
  NetworkConnection(std::weak_ptr<DeviceState> device, std::string owner, platform::HttpConnectionDelegate* delegate,
                    CurlHttp::TransferId transfer)
      : device_(std::move(device)), owner_(std::move(owner)), delegate_(delegate), transfer_(transfer) {}
  ~NetworkConnection() override { cancel(); }

  void cancel() override {
    if (ended_) return;
    if (const auto dev = device_.lock()) end(*dev, true);
    ended_ = true;
  }

  // Takes the connection out of flight: no event reaches the delegate
  // afterwards.  With `stopTransfer` the transport drops the transfer too
  // (not needed after its final event).
  void end(DeviceState& dev, bool stopTransfer) {
    if (ended_) return;
    ended_ = true;
    dev.network->connections.erase(transfer_);
    if (stopTransfer && dev.network->transport) dev.network->transport->cancel(transfer_);
    dev.queue.invalidateTimer(owner_, timer_);
  }

  const std::string& owner() const { return owner_; }
  const std::weak_ptr<DeviceState>& device() const { return device_; }
  platform::HttpConnectionDelegate* delegate() const { return delegate_; }
  void setTimer(platform::RunLoop::TimerId timer) { timer_ = timer; }

 private:
  std::weak_ptr<DeviceState> device_;
  std::string owner_;
  platform::HttpConnectionDelegate* delegate_;
  CurlHttp::TransferId transfer_;
  platform::RunLoop::TimerId timer_ = 0;
  bool ended_ = false;
};

namespace {

NetworkConnection* inFlight(DeviceState& dev, CurlHttp::TransferId transfer) {
  const auto it = dev.network->connections.find(transfer);
  return it == dev.network->connections.end() ? nullptr : it->second;
}

// Runs on the run loop as work of the connection's app.  The delegate may
// cancel or drop the connection from inside its call, so nothing touches
// the connection after it.
void deliverEvent(DeviceState& dev, const CurlHttp::Event& ev) {
  NetworkConnection* c = inFlight(dev, ev.transfer);
  if (!c) return;
  platform::HttpConnectionDelegate* d = c->delegate();
  switch (ev.kind) {
    case CurlHttp::Event::Kind::Response:
      d->didReceiveResponse(ev.response);
      break;
    case CurlHttp::Event::Kind::Data:
      d->didReceiveData(ev.data);
      break;
    case CurlHttp::Event::Kind::Failed:
      c->end(dev, false);
      d->didFailWithError(ev.error);
      break;
    case CurlHttp::Event::Kind::Finished:
      c->end(dev, false);
      d->didFinishLoading();
      break;
  }
}

void timedOut(DeviceState& dev, CurlHttp::TransferId transfer) {
  NetworkConnection* c = inFlight(dev, transfer);
  if (!c) return;
  platform::HttpConnectionDelegate* d = c->delegate();
  c->end(dev, true);
  d->didFailWithError(CurlHttp::timedOut());
}

class SimHttp final : public platform::Http {
 public:
  SimHttp(const std::shared_ptr<DeviceState>& device, const std::shared_ptr<AppState>& app)
      : device_(device), app_(app), bundleId_(app->manifest.bundleId) {}

  std::shared_ptr<platform::HttpConnection> connect(const platform::HttpRequest& request,
                                                    platform::HttpConnectionDelegate* delegate) override {
    if (!delegate || app_.expired()) return nullptr;
    const auto dev = device_.lock();
    if (!dev) return nullptr;
    const CurlHttp::TransferId transfer = dev->network->link().start(request);
    if (transfer == 0) return nullptr;
    auto conn = std::make_shared<NetworkConnection>(device_, bundleId_, delegate, transfer);
    double timeout = request.timeoutSeconds;
    if (!(timeout > 0) || !std::isfinite(timeout)) timeout = kDefaultTimeoutSeconds;
    const std::weak_ptr<DeviceState> weak = device_;
    conn->setTimer(dev->queue.scheduleTimer(bundleId_, timeout, false, [weak, transfer] {
      if (const auto d = weak.lock()) timedOut(*d, transfer);
    }));
    dev->network->connections.emplace(transfer, conn.get());
    return conn;
  }

 private:
  std::weak_ptr<DeviceState> device_;
  std::weak_ptr<AppState> app_;
  std::string bundleId_;
};

}  // namespace

std::shared_ptr<NetworkState> makeNetworkState() { return std::make_shared<NetworkState>(); }

std::shared_ptr<platform::Http> makeSimHttp(const std::shared_ptr<DeviceState>& device,
                                            const std::shared_ptr<AppState>& app) {
  return std::make_shared<SimHttp>(device, app);
}

void pumpNetwork(DeviceState& device) {
  NetworkState& net = *device.network;
  std::deque<CurlHttp::Event> arrived;
  {
    std::lock_guard<std::mutex> lock(net.inbox->mutex);
    arrived.swap(net.inbox->events);
  }
  for (CurlHttp::Event& ev : arrived) {
    NetworkConnection* c = inFlight(device, ev.transfer);
    if (!c) continue;
    device.queue.post(c->owner(), [weak = c->device(), ev = std::move(ev)] {
      if (const auto dev = weak.lock()) deliverEvent(*dev, ev);
    });
  }
}

void networkAppGone(DeviceState& device, const std::string& bundleId) {
  std::vector<NetworkConnection*> gone;
  for (const auto& [transfer, c] : device.network->connections) {
    if (c->owner() == bundleId) gone.push_back(c);
  }
  for (NetworkConnection* c : gone) c->end(device, true);
}

}  // namespace mirelo::sim::detail

namespace mirelo::sim {

void SimDevice::routeHost(const std::string& host, const std::string& address, int port) {
  impl_->state->network->link().setRoute(host, address, port);
}

void SimDevice::setCertificateAuthorities(const std::string& path) {
  impl_->state->network->link().setCertificateAuthorities(path);
}

std::size_t SimDevice::activeConnections() const { return impl_->state->network->connections.size(); }

bool SimDevice::runUntil(const std::function<bool()>& done, double realTimeoutSeconds) {
  // Hold the state: a task may drop the last other reference to the device.
  const auto st = impl_->state;
  double limit = realTimeoutSeconds;
  if (!(limit > 0)) limit = 0;
  if (limit > detail::kRunUntilMaxSeconds) limit = detail::kRunUntilMaxSeconds;
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                             std::chrono::duration<double>(limit));
  std::size_t ran = 0;
  for (;;) {
    detail::pumpNetwork(*st);
    ran += st->queue.runUntilIdle(detail::kRunUntilMaxTasks - ran);
    if (done && done()) return true;
    if (ran >= detail::kRunUntilMaxTasks) return false;
    if (st->queue.pending() > st->queue.pendingTimed()) continue;  // posted work left over
    if (!st->network->connections.empty()) {
      // Wait, in real time, for the network.
      auto& inbox = *st->network->inbox;
      std::unique_lock<std::mutex> lock(inbox.mutex);
      if (!inbox.arrived.wait_until(lock, deadline, [&] { return !inbox.events.empty(); })) return false;
      continue;
    }
    if (st->queue.pendingTimed() == 0) return false;  // nothing left that could happen
    if (std::chrono::steady_clock::now() >= deadline) return false;
    // Nothing in flight: the clock moves to the next delayed call or timer,
    // which runs (a bound of one task keeps the clock at its time).
    ran += st->queue.advance(std::numeric_limits<double>::max() / 4, 1);
  }
}

}  // namespace mirelo::sim
