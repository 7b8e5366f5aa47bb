// VeltoEmptyRequestParameters: the request parameters of an endpoint that has none.
//
//   class PingEndpoint final : public VeltoEndpointBase<VeltoEmptyRequestParameters, Pong> { ... };
//   VeltoUploadEncodingShim(VeltoEmptyRequestParameters()).makeJsonData();   // "{}"
#pragma once

#include <string_view>

#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoEncoder.hpp"

/// No fields. Uploads as an empty object at every destination: under a key an empty nested
/// object, as an element an empty object appended, as the whole value an empty top-level
/// object. Regular value type. Thread safety: immutable.
class VeltoEmptyRequestParameters {
 public:
  VeltoEmptyRequestParameters() noexcept = default;

  VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& container, std::string_view key) const {
    (void)container.nestedKeyedContainer(key);
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& container) const {
    (void)container.nestedKeyedContainer();
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> encodeForUpload(VeltoEncoder& encoder) const {
    (void)encoder.keyedContainer();
    return VeltoResultVoidSuccess;
  }

  friend bool operator==(const VeltoEmptyRequestParameters&, const VeltoEmptyRequestParameters&) = default;
};
