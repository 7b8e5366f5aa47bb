#include "velto/networking/VeltoHttpStatusCode.hpp"

#include "velto/encoding/VeltoEncoder.hpp"

using velto::detail::httpStatusCodeName;

VeltoResult<void> VeltoDebugConformance<VeltoHttpStatusCode>::encodeForDynamicDebug(const VeltoHttpStatusCode& code,
                                                                                   VeltoEncoder& encoder,
                                                                                   VeltoDynamicDebugEncoder&) {
  return encoder.singleValueContainer().encode(httpStatusCodeName(code));
}

VeltoResult<void> VeltoDebugConformance<VeltoHttpStatusCode>::encodeForDynamicDebug(const VeltoHttpStatusCode& code,
                                                                                   VeltoKeyedEncodingContainer& container,
                                                                                   std::string_view key,
                                                                                   VeltoDynamicDebugEncoder&) {
  return container.encode(key, httpStatusCodeName(code));
}

VeltoResult<void> VeltoDebugConformance<VeltoHttpStatusCode>::encodeForDynamicDebug(const VeltoHttpStatusCode& code,
                                                                                   VeltoUnkeyedEncodingContainer& container,
                                                                                   VeltoDynamicDebugEncoder&) {
  return container.encode(httpStatusCodeName(code));
}
