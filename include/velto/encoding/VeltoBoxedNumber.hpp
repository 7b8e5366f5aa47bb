// VeltoBoxedNumber: a number boxed together with its storage code, the way platform object
// bridges hand numbers over (number-type codes 1 to 16). The debug encoder renders it by code.
//
//   VeltoBoxedNumber::fromBool(true);          // renders as true, not 1
//   VeltoBoxedNumber::fromDouble(2.5);         // 2.5
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

class VeltoEncoder;
class VeltoKeyedEncodingContainer;
class VeltoUnkeyedEncodingContainer;
class VeltoDynamicDebugEncoder;
template <class T>
class VeltoResult;

/// A number with its storage code. Regular value type
/// Thread safety: immutable.
class VeltoBoxedNumber {
 public:
  /// The platform's number-type codes.
  enum class StorageType : int {
    sInt8 = 1, sInt16 = 2, sInt32 = 3, sInt64 = 4, float32 = 5, float64 = 6, char_ = 7, short_ = 8,
    int_ = 9, long_ = 10, longLong = 11, float_ = 12, double_ = 13, cfIndex = 14, nsInteger = 15, cgFloat = 16
  };

  [[nodiscard]] static VeltoBoxedNumber fromBool(bool value) noexcept { return {7, std::int64_t{value}}; }
  [[nodiscard]] static VeltoBoxedNumber fromInt64(std::int64_t value) noexcept { return {4, value}; }
  [[nodiscard]] static VeltoBoxedNumber fromDouble(double value) noexcept { return {6, value}; }
  [[nodiscard]] static VeltoBoxedNumber fromFloat(float value) noexcept { return {5, double{value}}; }
  /// Any code at all, as a bridge may hand it over (codes outside 1...16 render as an
  /// explanatory string).
  [[nodiscard]] static VeltoBoxedNumber withStorageCode(int code, std::variant<std::int64_t, double> value) noexcept {
    return {code, value};
  }

  [[nodiscard]] int storageCode() const noexcept { return code_; }
  /// The value read as a signed 64-bit integer (a stored double truncates toward zero).
  [[nodiscard]] std::int64_t int64Value() const noexcept;
  [[nodiscard]] double doubleValue() const noexcept;
  [[nodiscard]] bool boolValue() const noexcept { return int64Value() != 0; }

  friend bool operator==(const VeltoBoxedNumber&, const VeltoBoxedNumber&) = default;

  /// Integers for the codes 1-4, 8-11, 14, 15; doubles for 5, 6, 12, 13, 16; a boolean for 7;
  /// otherwise the string "Unhanded NSNumber type '" and the code, with no closing quote. The
  /// misspelling and the lone quote are kept on purpose: readers of existing logs search for them.
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder& dynamicEncoder) const;
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& container, std::string_view key,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& container,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  VeltoBoxedNumber(int code, std::variant<std::int64_t, double> value) noexcept : code_(code), value_(value) {}
  int code_;
  std::variant<std::int64_t, double> value_;
};
