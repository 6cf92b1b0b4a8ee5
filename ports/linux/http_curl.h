// HTTP(S) for Linux, backed by libcurl.
//
// CurlHttp runs every transfer on one worker thread of its own (libcurl's
// multi interface) and hands each transfer's events to a delivery function
// that the owner supplies.  It does not know about run loops: the owner
// decides where the events go (the simulated device queues them on its run
// loop as work of the app that made the connection).
//
// What a transfer does:
//   * TLS always verifies the server's certificate chain and its host name;
//     there is no way to switch that off.  The trust anchors are the system's
//     store, or only the certificate authorities of a PEM file given with
//     setCertificateAuthorities.
//   * A route (setRoute) sends connections for a host name, whatever the
//     port, to another address and port; the URL's host name is still the
//     one the certificate must name and the one sent as "Host".
//   * HttpRequest::timeoutSeconds bounds the whole transfer (not a positive
//     finite number: 60 seconds).  ReloadIgnoringLocalCacheData sends
//     "Cache-Control: no-cache" and "Pragma: no-cache".  Only http and https
//     are spoken; redirects are not followed (a 3xx arrives as the response);
//     proxy settings of the environment are ignored; the body is not decoded.
//   * Events, in order: Response once (status, announced length, header
//     fields), Data pieces, then exactly one of Failed or Finished.  A body
//     that ends before its announced Content-Length ends in Finished; the
//     receiver compares what it got with the announced length.
//   * Limits: a body over kMaxBodyBytes, or header lines over kMaxHeaderBytes
//     in all, fail the transfer with -1103 ("resource exceeds maximum
//     size"), so that no server can make the process hold more.
//
// Failures carry NSURLErrorDomain codes with the system's texts: -1001 timed
// out, -1003 host name not found, -1004 cannot connect, -1005 connection
// lost, -1200 TLS failure, -1202 untrusted certificate, -1103 over the
// limits, -1 anything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/platform/Platform.h"

namespace mirelo::linuxport {

class CurlHttp {
 public:
  using TransferId = std::uint64_t;

  static constexpr std::size_t kMaxBodyBytes = std::size_t{16} << 20;
  static constexpr std::size_t kMaxHeaderBytes = std::size_t{64} << 10;

  struct Event {
    enum class Kind { Response, Data, Failed, Finished };
    TransferId transfer = 0;
    Kind kind = Kind::Finished;
    platform::HttpResponse response;  // Response
    Data data;                        // Data
    platform::HttpError error;        // Failed
  };
  // Called on the worker thread, one event at a time, while the transport's
  // lock is held: it must be quick and must not call back into the
  // transport.
  using Deliver = std::function<void(Event&&)>;

  explicit CurlHttp(Deliver deliver);
  // Cancels every transfer and joins the worker; no event is delivered
  // once the destructor has begun.
  ~CurlHttp();
  CurlHttp(const CurlHttp&) = delete;
  CurlHttp& operator=(const CurlHttp&) = delete;

  // Sends connections for `host` (any port; compared ignoring case) to
  // `address`:`port`.  An empty address removes the route.  False when the
  // host name, address or port is not usable.  Applies to transfers started
  // afterwards.
  bool setRoute(const std::string& host, const std::string& address, int port);
  // Trusts only the certificate authorities in the PEM file `path`; "" goes
  // back to the system's trust store.  Applies to transfers started
  // afterwards.
  void setCertificateAuthorities(const std::string& path);

  // Starts `request` now and returns its non-zero id, or 0 when it cannot be
  // made (not an absolute http or https URL, a method that is not a token).
  // Its events may arrive before start returns.
  TransferId start(const platform::HttpRequest& request);
  // Stops a transfer: once cancel returns, no event of it is delivered.
  // Unknown or ended transfers are ignored.
  void cancel(TransferId id);
  // Transfers started and not yet ended or cancelled.
  std::size_t active() const;

  // Maps a libcurl result to the system's URL error (for a transfer that
  // did not finish).
  static platform::HttpError errorFor(int curlCode, bool overLimit);
  // The error of a request that ran out of time (-1001).
  static platform::HttpError timedOut();

  struct Transfer;

 private:
  void run();
  // Delivers `event` unless its transfer was cancelled; a final event ends
  // the transfer.
  void deliver(Event&& event);

  Deliver deliver_;
  void* multi_ = nullptr;  // CURLM*

  mutable std::mutex mutex_;
  bool stop_ = false;
  TransferId nextId_ = 1;
  std::map<std::string, std::string> routes_;  // lower-case host -> "address:port"
  std::string caFile_;
  std::unordered_set<TransferId> live_;
  std::deque<std::unique_ptr<Transfer>> toAdd_;
  std::vector<TransferId> toCancel_;

  std::thread worker_;
};

}  // namespace mirelo::linuxport
