// VeltoRequestSupporting: what the request dispatcher and the network adapter require of an
// endpoint. VeltoEndpointBase implements it; the optional interfaces
// VeltoHttpAuthorizationProviding and VeltoEncodedPayloadProviding are detected with dynamic_cast.
//
//   std::shared_ptr<VeltoRequestSupporting> endpoint = ItemsEndpoint::create(...);
//   auto signature = endpoint->makeSignature();            // VeltoResult<VeltoEndpointSignature>
//   endpoint->initiated(via);                              // the transport has the request
//   endpoint->store(body, via);                            // the body arrived
//   endpoint->completed(200, nullptr, via);                // classified, handed to its callback
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <boost/url/url.hpp>
#include <boost/uuid/uuid.hpp>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/networking/VeltoEndpointSignature.hpp"
#include "velto/networking/VeltoSignatureParameter.hpp"
#include "velto/networking/VeltoSupportedHttpVerb.hpp"

/// Interface of an endpoint: one HTTP request and what to do as it progresses. Held by
/// `std::shared_ptr<VeltoRequestSupporting>`; the dispatcher holds it while it is in flight.
///
/// The transport calls, for one request: `initiated` once it has the request, `store` for the
/// body (if any), then `completed` once; or `failedPrematurely` instead when the request could
/// not start. Every call takes the trail and the caller's site, and forks the trail first.
/// Thread safety: implementations take no lock; the calls of one request come one after the
/// other (from the dispatcher's serial context or a worker it schedules), never concurrently.
class VeltoRequestSupporting {
 public:
  using Via = std::shared_ptr<const VeltoVia>;

  virtual ~VeltoRequestSupporting() = default;

  /// The request URL, or why it cannot be made.
  [[nodiscard]] virtual VeltoResult<boost::urls::url> makeUrl() const = 0;
  /// The parameters that tell this request apart from others to the same URL.
  [[nodiscard]] virtual std::vector<VeltoSignatureParameter> relevantParameters() const = 0;

  /// The signature of `makeUrl()` with `relevantParameters()`. When `makeUrl()` fails, its
  /// error is passed up with one frame at "Networking/VeltoRequestSupporting" /
  /// "makeSignature()" and `relevantParameters()` is not asked. Not virtual: one definition for
  /// every endpoint.
  [[nodiscard]] VeltoResult<VeltoEndpointSignature> makeSignature() const;

  [[nodiscard]] virtual VeltoSupportedHttpVerb httpVerb() const = 0;
  /// Sent as the "X-Correlation-ID" header, in canonical upper-case text.
  [[nodiscard]] virtual boost::uuids::uuid correlationID() const = 0;

  /// The request has been handed to the transport.
  [[nodiscard]] virtual VeltoResult<void> initiated(Via via, VeltoCodeSite site = VeltoCodeSite::current()) = 0;
  /// The response body arrived; replaces any body stored before.
  [[nodiscard]] virtual VeltoResult<void> store(VeltoData downloadedData, Via via,
                                                VeltoCodeSite site = VeltoCodeSite::current()) = 0;
  /// The request ended, with the HTTP status code when there was a response and the transport's
  /// error when it failed. Fails only when the endpoint's own outcome callback fails.
  [[nodiscard]] virtual VeltoResult<void> completed(std::optional<std::int64_t> statusCode,
                                                    std::shared_ptr<const VeltoPlatformError> error, Via via,
                                                    VeltoCodeSite site = VeltoCodeSite::current()) = 0;
  /// The request could not start (`error` says why). Fails only when the outcome callback fails.
  [[nodiscard]] virtual VeltoResult<void> failedPrematurely(VeltoError error, Via via,
                                                            VeltoCodeSite site = VeltoCodeSite::current()) = 0;

  /// Debug output, so that an endpoint recorded through this interface shows its state. This
  /// version writes "correlationID" and "httpVerb"; VeltoEndpointBase writes all its fields.
  virtual VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;

 protected:
  VeltoRequestSupporting() = default;
  VeltoRequestSupporting(const VeltoRequestSupporting&) = default;
  VeltoRequestSupporting& operator=(const VeltoRequestSupporting&) = default;
};
