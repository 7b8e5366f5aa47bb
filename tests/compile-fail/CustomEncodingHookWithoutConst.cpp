// expect: does not satisfy VeltoCustomDebugEncoding
// A whole-rendering hook that is not const: recording the type must not compile, and the error
// must name the concept instead of the value silently rendering by reflection.
#include <velto/velto.hpp>

struct Celsius {
  double value = 0;
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder&, VeltoDynamicDebugEncoder&);
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer&, std::string_view, VeltoDynamicDebugEncoder&);
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer&, VeltoDynamicDebugEncoder&);
};

VeltoAny recorded() { return VeltoAny(Celsius{21.5}); }
