// VeltoEncodedPayloadProviding: what an endpoint implements, beside VeltoRequestSupporting, to
// send a request body. The network adapter detects it with dynamic_cast, sets "Content-Type" from
// `mimeType()` and sends the bytes of `makeEncodedPayload()`.
//
//   VeltoUploadingEndpointBase<Parameters, Payload> implements it by encoding its parameters.
#pragma once

#include <optional>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/networking/VeltoKnownMimeType.hpp"

/// Interface. An endpoint that does not implement it sends no "Content-Type" and no body.
/// Thread safety: called once per request, on the thread that begins the request.
class VeltoEncodedPayloadProviding {
 public:
  virtual ~VeltoEncodedPayloadProviding() = default;

  /// The body's content type.
  [[nodiscard]] virtual VeltoKnownMimeType mimeType() const = 0;

  /// The body's bytes; none sends no body. A failure stops the request before it starts: the
  /// adapter passes it up and reports it through its completion callback.
  [[nodiscard]] virtual VeltoResult<std::optional<VeltoData>> makeEncodedPayload() const = 0;

 protected:
  VeltoEncodedPayloadProviding() = default;
  VeltoEncodedPayloadProviding(const VeltoEncodedPayloadProviding&) = default;
  VeltoEncodedPayloadProviding& operator=(const VeltoEncodedPayloadProviding&) = default;
};
