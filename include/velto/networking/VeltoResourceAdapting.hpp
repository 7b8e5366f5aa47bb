// VeltoResourceAdapting: the reporting side of a network adapter: the two callbacks through
// which it hands downloaded bytes and completions back, by signature only.
//
//   adapter->setOnDownloadedFile([dispatcher](const VeltoData& bytes, std::int64_t statusCode,
//                                             const VeltoEndpointSignature& signature, const Via& via) {
//     return dispatcher->received(bytes, statusCode, signature, via);
//   });
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/networking/VeltoEndpointSignature.hpp"

/// Interface. Both callbacks are optional (an empty std::function is "not set").
/// Thread safety: set the callbacks before the first request begins; the adapter calls them on
/// its own delivery thread, so they must bring the work to the dispatcher's serial context.
class VeltoResourceAdapting {
 public:
  using Via = std::shared_ptr<const VeltoVia>;
  /// (the body bytes, the HTTP status code, the request's signature, the trail).
  using OnDownloadedFile =
      std::function<VeltoResult<void>(const VeltoData&, std::int64_t, const VeltoEndpointSignature&, const Via&)>;
  /// (the HTTP status code if there was a response, the signature, the transport's error if it
  /// failed, the trail).
  using OnCompleted = std::function<VeltoResult<void>(std::optional<std::int64_t>, const VeltoEndpointSignature&,
                                                      const std::shared_ptr<const VeltoPlatformError>&, const Via&)>;

  virtual ~VeltoResourceAdapting() = default;

  /// Called when a response body arrived with a status code.
  virtual void setOnDownloadedFile(OnDownloadedFile callback) = 0;
  [[nodiscard]] virtual const OnDownloadedFile& onDownloadedFile() const = 0;
  /// Called once per request when it ended, also for a request that could not start.
  virtual void setOnCompleted(OnCompleted callback) = 0;
  [[nodiscard]] virtual const OnCompleted& onCompleted() const = 0;

 protected:
  VeltoResourceAdapting() = default;
  VeltoResourceAdapting(const VeltoResourceAdapting&) = default;
  VeltoResourceAdapting& operator=(const VeltoResourceAdapting&) = default;
};
