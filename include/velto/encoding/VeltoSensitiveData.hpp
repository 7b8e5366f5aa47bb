// VeltoSensitiveData: bytes that debug dumps may hide, while comparison and hashing treat them
// exactly like the bytes. The byte count stays visible in dumps on purpose.
//
//   VeltoSensitiveData token(bytes);
//   token.string(VeltoStringEncoding::utf8);   // a VeltoSensitiveString, or none
#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoSensitiveString.hpp"
#include "velto/encoding/VeltoStringEncoding.hpp"

/// Wraps one byte buffer. Regular value type
/// Thread safety: immutable.
class VeltoSensitiveData {
 public:
  explicit VeltoSensitiveData(VeltoData raw) noexcept : data_(std::move(raw)) {}

  [[nodiscard]] const VeltoData& raw() const noexcept { return data_; }

  /// The bytes decoded in `encoding`, or none when they do not decode.
  [[nodiscard]] std::optional<VeltoSensitiveString> string(VeltoStringEncoding encoding) const;

  friend bool operator==(const VeltoSensitiveData&, const VeltoSensitiveData&) = default;

  /// "byteCount", then (unless contents are excluded) "base64": "[sensitive]" when obfuscating,
  /// else the contents as for any byte buffer.
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  VeltoData data_;
};

template <>
struct std::hash<VeltoSensitiveData> {
  std::size_t operator()(const VeltoSensitiveData& value) const noexcept {
    return std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(value.raw().data()), value.raw().size()));
  }
};
