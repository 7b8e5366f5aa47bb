#include "velto/networking/VeltoRequestSupporting.hpp"

VeltoResult<VeltoEndpointSignature> VeltoRequestSupporting::makeSignature() const {
  auto url = makeUrl();
  if (url.isFailure()) {
    // The line is fixed so that recorded trails stay comparable with those of earlier releases.
    return VeltoResult<VeltoEndpointSignature>::fromError(
        url.error(), {}, VeltoCodeSite("Networking/VeltoRequestSupporting", "makeSignature()", 51));
  }
  return VeltoEndpointSignature(std::move(url).value(), relevantParameters());
}
