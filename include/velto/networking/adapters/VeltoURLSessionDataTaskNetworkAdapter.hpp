// VeltoURLSessionDataTaskNetworkAdapter: the network adapter that performs a request
// dispatcher's requests over HTTP (libcurl underneath): one data task per endpoint, labelled with
// the endpoint's signature, reporting body and completion back by signature only.
//
//   auto adapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger);
//   adapter->setOnCompleted([](std::optional<std::int64_t> status, const VeltoEndpointSignature& signature,
//                              const std::shared_ptr<const VeltoPlatformError>& error, const auto& via) {
//     ...                              // runs on the adapter's worker thread: hop to your queue
//     return VeltoResultVoidSuccess;
//   });
//   auto begun = adapter->begin(endpoint, via);
//
// Most applications do not wire the callbacks by hand: VeltoRequestDispatcher::createOnQueue does.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/networking/VeltoEndpointSignature.hpp"
#include "velto/networking/VeltoNetworkAdapting.hpp"
#include "velto/networking/VeltoRequestSupporting.hpp"
#include "velto/networking/adapters/detail/UrlSession.hpp"

namespace velto::detail {
struct NetworkAdapterReporter;
}  // namespace velto::detail

/// Performs requests with an HTTP session of its own, made at construction and labelled with
/// the organisation's prefix and ".velto.url-session.simple-network-adapter". The session keeps
/// no cookies, reads no .netrc or stored credentials, caches nothing, uses no proxy, verifies TLS
/// peers, speaks HTTP/2 over TLS where offered, follows up to 16 redirects (one more fails with
/// -1007) and runs at most 6 requests at a time per host (the rest wait in line, in order; over
/// HTTP/2 too, where they could share one connection). Transport failures reach `onCompleted` as
/// NSURLErrorDomain errors (-1001 timed out, -1003 host not found, -1004 cannot connect, -1005
/// connection lost, -1009 not connected, -999 cancelled, ...; curl's own code and message are in
/// the user information under "curlCode" and "curlMessage").
///
/// Threads: the session has one worker thread; `dataTaskCompletion`, and therefore both
/// callbacks, run on it, one request at a time. Callbacks must not block: hop to the
/// dispatcher's serial queue (as `VeltoRequestDispatcher::createOnQueue` does). When `begin`
/// fails before a task starts, `onCompleted` runs on the thread that called `begin`.
///
/// Ownership and lifetime: held by `std::shared_ptr` (`create`); owns its session and worker.
/// Destroying the adapter completes its running requests as cancelled (-999, through
/// `onCompleted`, on the worker thread) and joins the worker; it may be released from inside one
/// of its own callbacks (the worker then ends by itself after that callback returns).
/// Cost: one thread and one libcurl multi handle per adapter; a request costs one easy handle.
///
/// Thread safety: `begin` and `cancel` may be called from any thread, concurrently. Set the
/// callbacks before the first `begin`; they are read on the worker without a lock.
class VeltoURLSessionDataTaskNetworkAdapter final : public VeltoNetworkAdapting {
 public:
  /// What tests and special clients may change; the defaults are the platform session's.
  struct Options {
    /// A request fails with -1001 when nothing moves for this long (whole seconds once
    /// connected, at least one).
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
    /// Requests running at once to one scheme, host and port.
    long maximumConnectionsPerHost = 6;
    long maximumRedirects = 16;
  };

  /// The session label's text after the organisation's prefix.
  static constexpr char sessionLabelSuffix[] = ".velto.url-session.simple-network-adapter";

  /// A new adapter reporting callback failures to `logger`.
  /// REQUIRES: `logger` is not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoURLSessionDataTaskNetworkAdapter> create(std::shared_ptr<VeltoLogging> logger,
                                                                                    Options options);
  [[nodiscard]] static std::shared_ptr<VeltoURLSessionDataTaskNetworkAdapter> create(std::shared_ptr<VeltoLogging> logger) {
    return create(std::move(logger), Options{});
  }

  VeltoURLSessionDataTaskNetworkAdapter(std::shared_ptr<VeltoLogging> logger, Options options);
  ~VeltoURLSessionDataTaskNetworkAdapter() override;
  VeltoURLSessionDataTaskNetworkAdapter(const VeltoURLSessionDataTaskNetworkAdapter&) = delete;
  VeltoURLSessionDataTaskNetworkAdapter& operator=(const VeltoURLSessionDataTaskNetworkAdapter&) = delete;

  /// The session's label: "dev.velto.velto.url-session.simple-network-adapter".
  [[nodiscard]] const std::string& sessionDescription() const noexcept;
  [[nodiscard]] const std::shared_ptr<VeltoLogging>& logger() const noexcept;
  [[nodiscard]] const Options& options() const noexcept { return options_; }

  void setOnDownloadedFile(OnDownloadedFile callback) override;
  [[nodiscard]] const OnDownloadedFile& onDownloadedFile() const override;
  void setOnCompleted(OnCompleted callback) override;
  [[nodiscard]] const OnCompleted& onCompleted() const override;

  /// Builds the endpoint's request and starts its data task, labelled with the signature's
  /// string; returns once the task is queued. The request: the signature's URL, the endpoint's
  /// verb, "X-Correlation-ID" (its correlation identifier, upper case), "Authorization: Bearer
  /// <token>" for an endpoint implementing VeltoHttpAuthorizationProviding, "Content-Type" and
  /// the body for one implementing VeltoEncodedPayloadProviding, and the time-out.
  ///
  /// Failures before the task starts (all at "Adapters/Concrete/VeltoURLSessionDataTaskNetworkAdapter"
  /// / "begin(endpoint:via:)"): the endpoint's signature or payload failure passed up; "Endpoint
  /// conforms to VeltoHttpAuthorizationProviding but supplied not authorization header value"
  /// (wording kept as it is; args `endpoint`, `signature`); a header value holding CR, LF or NUL
  /// (a bearer token, say): nothing is sent. Each is reported through `onCompleted` (no status
  /// code; a failing callback is logged) and returned passed up with the argument `endpoint`.
  /// Without `onCompleted` the logger gets "Couldn't call onCompleted to indicate an error before
  /// initiating request as no onCompleted handler provided" instead. A failure to make the
  /// signature cannot be reported through `onCompleted` (it needs a signature): it is logged.
  [[nodiscard]] VeltoResult<void> begin(std::shared_ptr<VeltoRequestSupporting> endpoint, Via via,
                                        VeltoCodeSite site = VeltoCodeSite::current()) override;

  /// Cancels every running task labelled with `signature`'s string; each completes with -999
  /// through `onCompleted`. None running: success, nothing happens.
  [[nodiscard]] VeltoResult<void> cancel(const VeltoEndpointSignature& signature, Via via,
                                         VeltoCodeSite site = VeltoCodeSite::current()) override;

  /// A data task's completion (runs on the worker thread). The status code is the response's
  /// when there is one. With bytes (even none: an empty body counts) and a status code,
  /// `onDownloadedFile` runs first; then `onCompleted` with the status code (or none), the
  /// signature and the error (or none). A failing callback is logged with the arguments
  /// `signature`, `data`, `response`, `error`, `statusCode`, and does not stop the next step.
  void dataTaskCompletion(const VeltoEndpointSignature& signature, std::optional<VeltoData> data,
                          std::optional<velto::detail::UrlResponse> response,
                          std::shared_ptr<const VeltoPlatformError> error, Via via,
                          VeltoCodeSite site = VeltoCodeSite::current());

 private:
  Options options_;
  std::shared_ptr<velto::detail::NetworkAdapterReporter> reporter_;
  // Last: destroyed first, so that the cancellations it reports find the reporter alive.
  std::unique_ptr<velto::detail::UrlSession> session_;
};
