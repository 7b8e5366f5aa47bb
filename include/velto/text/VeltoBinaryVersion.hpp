// VeltoBinaryVersion: a dotted version number such as 1.4.12, an ordered list of unsigned
// 64-bit components.
//
//   auto parsed = VeltoBinaryVersion::make("1.4.12");
//   if (!parsed) return ...;                          // "Invalid component", ...
//   std::string text = parsed.value().stringified();  // "1.4.12"
//   bool older = parsed.value() < VeltoBinaryVersion::make(std::vector<std::uint64_t>{1, 5, 0}).value();
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "velto/core/VeltoResult.hpp"

class VeltoKeyedEncodingContainer;
class VeltoDynamicDebugEncoder;
template <class T>
class VeltoResult;

/// A version made only through `make`, so never without components. Regular value type.
///
/// Ordering is deliberately not the usual version ordering (see operator<).
/// Thread safety: immutable; `zero()` is made once, thread-safely.
class VeltoBinaryVersion {
 public:
  /// 0.0.0.
  [[nodiscard]] static const VeltoBinaryVersion& zero();

  /// The components unchanged (no trimming of trailing zeros, no limit on the count). Fails with
  /// "No components" (argument "components") when the array is empty.
  [[nodiscard]] static VeltoResult<VeltoBinaryVersion> make(std::vector<std::uint64_t> components);

  /// Parses `string` split on every "." (empty tokens kept). Each token must match "^\d+$" and
  /// fit in 64 unsigned bits; leading zeros are accepted (007 is 7). Failures (arguments
  /// "string" and "tokens", then "regex", "components" parsed so far and "token"):
  ///   "No components", "Failed to create regex", "Invalid component" (signs, spaces, letters,
  ///   empty tokens), "Failed to parse component" (overflow, or digits ICU accepts that are not
  ///   ASCII).
  [[nodiscard]] static VeltoResult<VeltoBinaryVersion> make(std::string_view string);
  [[nodiscard]] static VeltoResult<VeltoBinaryVersion> make(const char* string) { return make(std::string_view(string)); }

  [[nodiscard]] const std::vector<std::uint64_t>& components() const noexcept { return components_; }
  /// The components in decimal joined by "." (zero gives "0.0.0").
  [[nodiscard]] std::string stringified() const;

  /// {"components":[...]}, the serialised form.
  [[nodiscard]] std::string encodedJson() const;
  /// The version from an object's "components" array of unsigned integers, through
  /// make(components). Fails with "Invalid JSON" (argument "json") or as make(components) does.
  [[nodiscard]] static VeltoResult<VeltoBinaryVersion> makeFromJson(std::string_view json);

  [[nodiscard]] friend bool operator==(const VeltoBinaryVersion&, const VeltoBinaryVersion&) = default;
  /// Fewer components is smaller whatever the values (2.0 < 1.0.0); equal counts compare
  /// component by component. Deliberately not the usual version order; kept for compatibility.
  [[nodiscard]] friend bool operator<(const VeltoBinaryVersion& lhs, const VeltoBinaryVersion& rhs) noexcept {
    if (lhs.components_.size() != rhs.components_.size()) return lhs.components_.size() < rhs.components_.size();
    return lhs.components_ < rhs.components_;
  }

  /// Debug output of the stored fields: "components".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  explicit VeltoBinaryVersion(std::vector<std::uint64_t> components) noexcept : components_(std::move(components)) {}

  std::vector<std::uint64_t> components_;
};
