// VeltoRequestDispatcher: where endpoints are started and where the network adapter's reports
// come back. It keeps the endpoints in flight by signature, refuses a second request with a
// signature already in flight ("Redundant request"), and routes body and completion, which the
// adapter reports by signature only, back to the endpoint.
//
//   auto queue = VeltoSerialQueue::create("com.example.network", logger);
//   auto adapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger);
//   auto dispatcher = VeltoRequestDispatcher::createOnQueue(queue, logger, adapter);
//   queue->async(via, [=](const auto& via) { return dispatcher->begin(endpoint, via); });
//   // ... the endpoint's onOutcome runs later, on the global queue
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "velto/concurrency/VeltoSerialQueue.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/networking/VeltoEndpointSignature.hpp"
#include "velto/networking/VeltoNetworkAdapting.hpp"
#include "velto/networking/VeltoRequestSupporting.hpp"

/// The table of endpoints in flight, one per signature, and the four operations that move an
/// endpoint through it. Held by `std::shared_ptr` (`create`, `createOnQueue`); holds its logger
/// and its adapter strongly and each endpoint from a successful `begin` until `completed`.
///
/// One serial context: the dispatcher takes no lock, so `begin`, `cancel`, `received`,
/// `completed` and `isEmpty` must all be called from one serial context: the application's
/// calls and the adapter's callbacks on the same serial queue. `createOnQueue` wires the
/// adapter's callbacks onto a VeltoSerialQueue; the application then calls from that queue too.
/// What runs elsewhere is only what the dispatcher schedules on the global queue (default
/// quality of service): each endpoint's `completed` and, for a redundant request, the refused
/// endpoint's `failedPrematurely`; those touch the endpoint, never the table.
///
/// Lifetime: releasing the dispatcher with requests in flight cancels them at the adapter and
/// schedules each of their endpoints' `completed` with the NSURLErrorDomain -999 error on the
/// global queue, so every begun endpoint still gets exactly one outcome (`cancelled`). The
/// adapter's callbacks must therefore hold the dispatcher weakly (a strong capture is a cycle:
/// the dispatcher holds the adapter); `createOnQueue` does.
/// Cost: a look-up in a hash table keyed by the signature's precomputed hash per operation.
/// Thread safety: none of its own; see "One serial context" above.
class VeltoRequestDispatcher {
 public:
  using Via = std::shared_ptr<const VeltoVia>;
  using EndpointsBySignature = std::unordered_map<VeltoEndpointSignature, std::shared_ptr<VeltoRequestSupporting>>;

  /// A dispatcher with an empty table. The adapter's callbacks are the caller's to connect, to
  /// `received` and `completed`, holding the dispatcher weakly and reaching it in its serial context.
  /// REQUIRES: `logger` and `networkAdapter` are not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoRequestDispatcher> create(std::shared_ptr<VeltoLogging> logger,
                                                                      std::shared_ptr<VeltoNetworkAdapting> networkAdapter);

  /// A dispatcher confined to `queue`: the adapter's `onDownloadedFile` and `onCompleted` are set
  /// to hop onto `queue` (keeping the trail) and call `received` and `completed` there, holding
  /// the dispatcher weakly; their failures go to `queue`'s logger. Call `begin` and `cancel` on
  /// `queue` as well (`queue->async(via, ...)` or `queue->sync(via, ...)`). Replaces callbacks set
  /// before; set no others afterwards.
  /// REQUIRES: `queue`, `logger` and `networkAdapter` are not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoRequestDispatcher> createOnQueue(
      std::shared_ptr<VeltoSerialQueue> queue, std::shared_ptr<VeltoLogging> logger,
      std::shared_ptr<VeltoNetworkAdapting> networkAdapter);

  VeltoRequestDispatcher(std::shared_ptr<VeltoLogging> logger, std::shared_ptr<VeltoNetworkAdapting> networkAdapter);
  ~VeltoRequestDispatcher();
  VeltoRequestDispatcher(const VeltoRequestDispatcher&) = delete;
  VeltoRequestDispatcher& operator=(const VeltoRequestDispatcher&) = delete;

  [[nodiscard]] const std::shared_ptr<VeltoLogging>& logger() const noexcept { return logger_; }
  [[nodiscard]] const std::shared_ptr<VeltoNetworkAdapting>& networkAdapter() const noexcept { return networkAdapter_; }

  /// Enters `endpoint` under its signature, asks the adapter to begin it, then tells the endpoint
  /// it is initiated. Every failure is passed up with one frame at "Networking/VeltoRequestDispatcher"
  /// / "begin(endpoint:via:)":
  ///   - the signature cannot be made: that failure, with the argument `endpoint`;
  ///   - an endpoint with an equal signature is in flight: "Redundant request" (argument
  ///     `extantEndpoint`), passed up with `endpoint` and `endpointSignature`; the refused
  ///     endpoint's `failedPrematurely` is called with it asynchronously on the global queue (its
  ///     outcome: `applicationError`); the endpoint in flight is untouched;
  ///   - the adapter's or the endpoint's `initiated` failure, with `endpoint` and
  ///     `endpointSignature`. The entry stays: the adapter reports a request it could not start
  ///     through its completion callback, whose `completed` removes it.
  [[nodiscard]] VeltoResult<void> begin(std::shared_ptr<VeltoRequestSupporting> endpoint, Via via,
                                        VeltoCodeSite site = VeltoCodeSite::current());

  /// Asks the adapter to cancel the request in flight with `signature` and returns its result;
  /// the entry stays until the adapter reports the completion (with -999: outcome `cancelled`).
  /// An unknown or finished signature is a success and calls nothing.
  [[nodiscard]] VeltoResult<void> cancel(const VeltoEndpointSignature& signature, Via via,
                                         VeltoCodeSite site = VeltoCodeSite::current());

  /// Hands a downloaded body to the endpoint in flight with `signature` (its `store`, on the
  /// calling thread); the entry stays. Failures: "Signature does not match any known endpoint"
  /// (argument `endpointsBySignature`), or the endpoint's failure passed up with `downloadedData`,
  /// `statusCode`, `signature` and `correspondingEndpoint`.
  [[nodiscard]] VeltoResult<void> received(VeltoData downloadedData, std::int64_t statusCode,
                                           const VeltoEndpointSignature& signature, Via via,
                                           VeltoCodeSite site = VeltoCodeSite::current());

  /// Schedules the endpoint's `completed(statusCode, error)` on the global queue and removes the
  /// entry at once, before that runs: from now on an equal request may begin. Failure:
  /// "Signature does not match any known endpoint" (argument `endpointsBySignature`).
  [[nodiscard]] VeltoResult<void> completed(std::optional<std::int64_t> statusCode,
                                            const VeltoEndpointSignature& signature,
                                            std::shared_ptr<const VeltoPlatformError> error, Via via,
                                            VeltoCodeSite site = VeltoCodeSite::current());

  /// True when no endpoint is in flight.
  [[nodiscard]] bool isEmpty() const noexcept { return endpointsBySignature_.empty(); }

 private:
  EndpointsBySignature endpointsBySignature_;
  std::shared_ptr<VeltoLogging> logger_;
  std::shared_ptr<VeltoNetworkAdapting> networkAdapter_;
};
