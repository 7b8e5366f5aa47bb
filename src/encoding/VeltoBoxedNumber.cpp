#include "velto/encoding/VeltoBoxedNumber.hpp"
#include "velto/encoding/VeltoBoxedValue.hpp"

#include <climits>
#include <span>

#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

std::int64_t VeltoBoxedNumber::int64Value() const noexcept {
  if (const auto* integer = std::get_if<std::int64_t>(&value_)) return *integer;
  const double real = std::get<double>(value_);
  // Out-of-range doubles saturate instead of overflowing the conversion.
  if (!(real > -9.2233720368547758e18)) return real != real ? 0 : INT64_MIN;
  if (!(real < 9.2233720368547758e18)) return INT64_MAX;
  return static_cast<std::int64_t>(real);
}

double VeltoBoxedNumber::doubleValue() const noexcept {
  if (const auto* integer = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*integer);
  return std::get<double>(value_);
}

namespace {

// Writes a boxed number through any scalar writer (single value, keyed entry or array element).
template <class Write>
VeltoResult<void> writeNumber(const VeltoBoxedNumber& number, Write&& write) {
  switch (number.storageCode()) {
    case 1: case 2: case 3: case 4: case 8: case 9: case 10: case 11: case 14: case 15:
      return write(number.int64Value());
    case 5: case 6: case 12: case 13: case 16:
      return write(number.doubleValue());
    case 7:
      return write(number.boolValue());
    default:
      return write(std::string("Unhanded NSNumber type '") + std::to_string(number.storageCode()));
  }
}

VeltoResult<void> writeValueEntries(const VeltoBoxedValue& value, VeltoKeyedEncodingContainer& container) {
  static constexpr std::string_view pointKeys[] = {"x", "y"};
  static constexpr std::string_view rectKeys[] = {"x", "y", "width", "height"};
  static constexpr std::string_view rangeKeys[] = {"location", "length"};
  std::span<const std::string_view> keys;
  if (value.typeEncoding() == "{CGPoint=dd}") keys = pointKeys;
  else if (value.typeEncoding() == "{CGRect={CGPoint=dd}{CGSize=dd}}") keys = rectKeys;
  else if (value.typeEncoding() == "{_NSRange=QQ}") keys = rangeKeys;
  if (keys.empty() || value.fields().size() != keys.size()) {
    return container.encode("concreteType", "Unhandled NSValue concrete type '" + value.typeEncoding() + "'");
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto result = std::visit([&](auto field) { return container.encode(keys[i], field); }, value.fields()[i]);
    if (!result) return result;
  }
  return VeltoResultVoidSuccess;
}

}  // namespace

VeltoResult<void> VeltoBoxedNumber::encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder&) const {
  auto single = encoder.singleValueContainer();
  return writeNumber(*this, [&](auto value) { return single.encode(value); });
}

VeltoResult<void> VeltoBoxedNumber::encodeForDynamicDebug(VeltoKeyedEncodingContainer& container, std::string_view key,
                                                          VeltoDynamicDebugEncoder&) const {
  return writeNumber(*this, [&](auto value) { return container.encode(key, value); });
}

VeltoResult<void> VeltoBoxedNumber::encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& container,
                                                          VeltoDynamicDebugEncoder&) const {
  return writeNumber(*this, [&](auto value) { return container.encode(value); });
}

VeltoResult<void> VeltoBoxedValue::encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder&) const {
  auto container = encoder.keyedContainer();
  return writeValueEntries(*this, container);
}

VeltoResult<void> VeltoBoxedValue::encodeForDynamicDebug(VeltoKeyedEncodingContainer& parent, std::string_view key,
                                                         VeltoDynamicDebugEncoder&) const {
  auto container = parent.nestedKeyedContainer(key);
  return writeValueEntries(*this, container);
}

VeltoResult<void> VeltoBoxedValue::encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& parent,
                                                         VeltoDynamicDebugEncoder&) const {
  auto container = parent.nestedKeyedContainer();
  return writeValueEntries(*this, container);
}
