// VeltoNetworkAdapting: what the request dispatcher requires of the network adapter that
// performs its requests: begin one for an endpoint, cancel one by signature, and report back
// through the callbacks of VeltoResourceAdapting.
//
//   auto result = adapter->begin(endpoint, via);     // the request is running, or why not
//   adapter->cancel(signature, via);                 // completes with the cancellation error
#pragma once

#include <memory>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/networking/VeltoEndpointSignature.hpp"
#include "velto/networking/VeltoRequestSupporting.hpp"
#include "velto/networking/VeltoResourceAdapting.hpp"

/// Interface, held by `std::shared_ptr<VeltoNetworkAdapting>`.
/// Thread safety: as the implementation says; the dispatcher calls it from one serial context.
class VeltoNetworkAdapting : public VeltoResourceAdapting {
 public:
  /// Builds the endpoint's request and starts it. A failure before the request starts is
  /// returned and also reported through `onCompleted` (without a status code) when it is set.
  [[nodiscard]] virtual VeltoResult<void> begin(std::shared_ptr<VeltoRequestSupporting> endpoint, Via via,
                                                VeltoCodeSite site = VeltoCodeSite::current()) = 0;
  /// Cancels every running request with this signature; none running is a success. A cancelled
  /// request completes through `onCompleted` with the transport's cancellation error.
  [[nodiscard]] virtual VeltoResult<void> cancel(const VeltoEndpointSignature& signature, Via via,
                                                 VeltoCodeSite site = VeltoCodeSite::current()) = 0;
};
