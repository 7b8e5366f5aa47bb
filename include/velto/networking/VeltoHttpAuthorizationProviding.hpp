// VeltoHttpAuthorizationProviding: what an endpoint implements, beside VeltoRequestSupporting,
// to have its requests authorised. The network adapter detects it with dynamic_cast.
//
//   class ProfileEndpoint final : public VeltoEndpointBase<VeltoEmptyRequestParameters, Profile>,
//                                 public VeltoHttpAuthorizationProviding {
//     std::optional<VeltoHttpAuthorization> httpAuthorization() const override {
//       return VeltoHttpAuthorization::bearer(token_);
//     }
//   };
#pragma once

#include <optional>

#include "velto/networking/VeltoHttpAuthorization.hpp"

/// Interface. An endpoint that does not implement it sends no "Authorization" header.
/// Thread safety: called once per request, on the thread that begins the request.
class VeltoHttpAuthorizationProviding {
 public:
  virtual ~VeltoHttpAuthorizationProviding() = default;

  /// The authorization for the request about to be built. None is an error at request time:
  /// the adapter fails the request ("Endpoint conforms to VeltoHttpAuthorizationProviding but
  /// supplied not authorization header value").
  [[nodiscard]] virtual std::optional<VeltoHttpAuthorization> httpAuthorization() const = 0;

 protected:
  VeltoHttpAuthorizationProviding() = default;
  VeltoHttpAuthorizationProviding(const VeltoHttpAuthorizationProviding&) = default;
  VeltoHttpAuthorizationProviding& operator=(const VeltoHttpAuthorizationProviding&) = default;
};
