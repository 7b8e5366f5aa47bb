// expect: does not satisfy VeltoCustomDebugContainerEncoding
// A container hook with the wrong result type: encoding the type must not compile, and the
// error must name the concept.
#include <velto/velto.hpp>

struct Point final {
  double x = 0, y = 0;
  void encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const;
};

auto encoded() { return VeltoDynamicDebugEncoder::encodeToString(Point{}, VeltoDynamicDebugEncoderOptions::forLogging()); }
