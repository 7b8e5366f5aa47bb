// VeltoDictionaryCodingKey: a coding key made at run time from a string or an integer, for
// keyed containers whose keys are only known at run time.
//
//   VeltoDictionaryCodingKey("42").intValue();      // 42
//   VeltoDictionaryCodingKey("4a").intValue();      // std::nullopt
//   VeltoDictionaryCodingKey(-7).stringValue();     // "-7"
//   encodeValueForUpload(count, container, VeltoDictionaryCodingKey(fieldName));
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "velto/encoding/detail/DebugTextForms.hpp"

/// A string key and, when the string is a decimal integer, its value. Regular value type.
/// Its description and its debug output are `stringValue`. Thread safety: immutable.
class VeltoDictionaryCodingKey : public velto::detail::DebugTextForms<VeltoDictionaryCodingKey> {
 public:
  /// Keeps `stringValue`; `intValue` is its value when the whole string is one decimal signed
  /// 64-bit integer (an optional leading "+" or "-", then digits only, in range), else none.
  /// Never fails.
  explicit VeltoDictionaryCodingKey(std::string stringValue);
  /// `intValue` = `intValue`, `stringValue` = its decimal text. Never fails.
  explicit VeltoDictionaryCodingKey(std::int64_t intValue);

  [[nodiscard]] const std::string& stringValue() const noexcept { return stringValue_; }
  [[nodiscard]] std::optional<std::int64_t> intValue() const noexcept { return intValue_; }
  [[nodiscard]] const std::string& description() const noexcept { return stringValue_; }
  [[nodiscard]] const std::string& debugDescription() const noexcept { return stringValue_; }

  friend bool operator==(const VeltoDictionaryCodingKey&, const VeltoDictionaryCodingKey&) = default;

  [[nodiscard]] std::string_view debugText(const VeltoDynamicDebugEncoder&) const noexcept { return stringValue_; }

 private:
  std::string stringValue_;
  std::optional<std::int64_t> intValue_;
};
