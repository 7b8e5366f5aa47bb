// The three custom debug-encoding forms of a value that is written as one string.
#pragma once

#include <string>
#include <string_view>

#include "velto/encoding/VeltoEncoder.hpp"

class VeltoDynamicDebugEncoder;

namespace velto::detail {

/// Gives Derived the whole-value, keyed and unkeyed `encodeForDynamicDebug` operations, each
/// writing `derived.debugText(encoder)` at its destination.
template <class Derived>
class DebugTextForms {
 public:
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder& dynamicEncoder) const {
    return encoder.singleValueContainer().encode(self().debugText(dynamicEncoder));
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& container, std::string_view key,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const {
    return container.encode(key, self().debugText(dynamicEncoder));
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& container,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const {
    return container.encode(self().debugText(dynamicEncoder));
  }

  // Stateless, so a deriving value type's defaulted comparison still compares only its own fields.
  friend bool operator==(const DebugTextForms&, const DebugTextForms&) = default;

 private:
  const Derived& self() const { return static_cast<const Derived&>(*this); }
};

}  // namespace velto::detail
