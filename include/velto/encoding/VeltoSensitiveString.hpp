// VeltoSensitiveString: text that debug dumps may hide (credentials, personal data), while
// comparison and hashing treat it exactly like the text.
//
//   VeltoSensitiveString password("hunter2");
//   VeltoDynamicDebugEncoder::encodeToString(password, options);  // "[sensitive]" when obfuscating
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoStringEncoding.hpp"
#include "velto/encoding/detail/DebugTextForms.hpp"

class VeltoSensitiveData;

/// Wraps one string. Regular value type
/// Thread safety: immutable.
class VeltoSensitiveString : public velto::detail::DebugTextForms<VeltoSensitiveString> {
 public:
  explicit VeltoSensitiveString(std::string raw) noexcept : string_(std::move(raw)) {}

  [[nodiscard]] const std::string& raw() const noexcept { return string_; }

  /// The text's bytes in `encoding`, or none when the text cannot be represented in it (no
  /// lossy conversion).
  [[nodiscard]] std::optional<VeltoSensitiveData> data(VeltoStringEncoding encoding) const;

  friend bool operator==(const VeltoSensitiveString&, const VeltoSensitiveString&) = default;

  /// Debug output: "[sensitive]" when the encoder obfuscates sensitive content, else the text.
  [[nodiscard]] std::string_view debugText(const VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  std::string string_;
};

template <>
struct std::hash<VeltoSensitiveString> {
  std::size_t operator()(const VeltoSensitiveString& value) const noexcept { return std::hash<std::string>()(value.raw()); }
};
