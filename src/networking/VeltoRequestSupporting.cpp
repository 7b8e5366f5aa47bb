#include "velto/networking/VeltoRequestSupporting.hpp"

#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

VeltoResult<VeltoEndpointSignature> VeltoRequestSupporting::makeSignature() const {
  auto url = makeUrl();
  if (url.isFailure()) {
    // The line is fixed so that recorded trails stay comparable with those of earlier releases.
    return VeltoResult<VeltoEndpointSignature>::fromError(
        url.error(), {}, VeltoCodeSite("Networking/VeltoRequestSupporting", "makeSignature()", 51));
  }
  return VeltoEndpointSignature(std::move(url).value(), relevantParameters());
}

VeltoResult<void> VeltoRequestSupporting::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                                        VeltoDynamicDebugEncoder& dynamicEncoder) const {
  if (auto written = dynamicEncoder.encode(correlationID(), container, "correlationID"); !written) return written;
  return dynamicEncoder.encode(httpVerb(), container, "httpVerb");
}
