// VeltoBoxedValue: a small value boxed with its type-encoding text (points, sizes, rectangles,
// ranges), the way platform object bridges hand them over. The debug encoder renders it by that
// text.
//
//   VeltoBoxedValue::point(1, 2);              // {"x":1,"y":2}
//   VeltoBoxedValue::size(3, 4);               // {"concreteType":"Unhandled NSValue concrete type '{CGSize=dd}'"}
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

/// A small value with its type-encoding text: points, rectangles and ranges (and anything else
/// a bridge hands over, rendered by an explanatory entry). Regular value type.
/// Thread safety: immutable.
class VeltoBoxedValue {
 public:
  [[nodiscard]] static VeltoBoxedValue point(double x, double y) { return {"{CGPoint=dd}", {x, y}}; }
  [[nodiscard]] static VeltoBoxedValue size(double width, double height) { return {"{CGSize=dd}", {width, height}}; }
  [[nodiscard]] static VeltoBoxedValue rect(double x, double y, double width, double height) {
    return {"{CGRect={CGPoint=dd}{CGSize=dd}}", {x, y, width, height}};
  }
  [[nodiscard]] static VeltoBoxedValue range(std::uint64_t location, std::uint64_t length) {
    return {"{_NSRange=QQ}", {location, length}};
  }
  /// Any type encoding with its fields in order.
  [[nodiscard]] static VeltoBoxedValue withTypeEncoding(std::string typeEncoding,
                                                        std::vector<std::variant<double, std::uint64_t>> fields) {
    return {std::move(typeEncoding), std::move(fields)};
  }

  [[nodiscard]] const std::string& typeEncoding() const noexcept { return typeEncoding_; }
  [[nodiscard]] const std::vector<std::variant<double, std::uint64_t>>& fields() const noexcept { return fields_; }

  friend bool operator==(const VeltoBoxedValue&, const VeltoBoxedValue&) = default;

  /// An object by type encoding: "{CGPoint=dd}" gives "x", "y"; "{CGRect={CGPoint=dd}{CGSize=dd}}"
  /// gives "x", "y", "width", "height"; "{_NSRange=QQ}" gives "location", "length"; anything else
  /// the entry "concreteType": "Unhandled NSValue concrete type '<encoding>'".
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder& dynamicEncoder) const;
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& container, std::string_view key,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& container,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  VeltoBoxedValue(std::string typeEncoding, std::vector<std::variant<double, std::uint64_t>> fields)
      : typeEncoding_(std::move(typeEncoding)), fields_(std::move(fields)) {}
  std::string typeEncoding_;
  std::vector<std::variant<double, std::uint64_t>> fields_;
};
