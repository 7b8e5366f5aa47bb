// DoubleCacheKey: the key of VeltoFormattedNumberCache's double entries: which double (by bit
// pattern), which format, which locale.
//
//   DoubleCacheKey key(0.1, format, "fr_FR");
//   DoubleCacheKey(-0.0, format, "fr_FR") == DoubleCacheKey(0.0, format, "fr_FR");   // false: "-0" and "0"
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "velto/core/VeltoResult.hpp"
#include "velto/detail/HashCombine.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"
#include "velto/text/VeltoDoubleFormattable.hpp"

/// A double, a format and a locale identifier. Equal when all three are equal: the format by
/// identity of the shared object, the double by its bit pattern. Bits, not `==`: -0 and +0
/// format differently and are different keys, and a NaN equals itself, so formatting NaN hits
/// instead of piling up entries that can never be found again.
/// Regular value type; holds the format strongly. Thread safety: as std::shared_ptr.
class DoubleCacheKey {
 public:
  /// The same three fields borrowed, to look a key up without copying the format pointer or the
  /// identifier. Valid while what it refers to is.
  struct Probe {
    double double_;
    const std::shared_ptr<const VeltoDoubleFormattable>& format;
    std::string_view localeIdentifier;
  };

  DoubleCacheKey(double value, std::shared_ptr<const VeltoDoubleFormattable> format, std::string localeIdentifier)
      : value_(value), format_(std::move(format)), localeIdentifier_(std::move(localeIdentifier)) {}
  explicit DoubleCacheKey(const Probe& probe)
      : value_(probe.double_), format_(probe.format), localeIdentifier_(probe.localeIdentifier) {}

  /// The double (`double` where the library prints it).
  [[nodiscard]] double double_() const noexcept { return value_; }
  [[nodiscard]] const std::shared_ptr<const VeltoDoubleFormattable>& format() const noexcept { return format_; }
  [[nodiscard]] const std::string& localeIdentifier() const noexcept { return localeIdentifier_; }

  [[nodiscard]] friend bool operator==(const DoubleCacheKey& a, const DoubleCacheKey& b) noexcept {
    return bits(a.value_) == bits(b.value_) && a.format_ == b.format_ && a.localeIdentifier_ == b.localeIdentifier_;
  }

  /// Hashes keys and probes alike.
  struct Hash {
    using is_transparent = void;
    [[nodiscard]] std::size_t operator()(const DoubleCacheKey& key) const noexcept {
      return of(key.value_, key.format_.get(), key.localeIdentifier_);
    }
    [[nodiscard]] std::size_t operator()(const Probe& probe) const noexcept {
      return of(probe.double_, probe.format.get(), probe.localeIdentifier);
    }

   private:
    static std::size_t of(double value, const void* format, std::string_view localeIdentifier) noexcept {
      std::size_t hash = std::hash<std::uint64_t>()(bits(value));
      hash = velto::detail::combineHashes(hash, std::hash<const void*>()(format));
      return velto::detail::combineHashes(hash, velto::detail::hashShortText(localeIdentifier));
    }
  };

  /// Compares keys and probes alike.
  struct Equal {
    using is_transparent = void;
    [[nodiscard]] bool operator()(const DoubleCacheKey& a, const DoubleCacheKey& b) const noexcept { return a == b; }
    [[nodiscard]] bool operator()(const Probe& a, const DoubleCacheKey& b) const noexcept { return same(a, b); }
    [[nodiscard]] bool operator()(const DoubleCacheKey& a, const Probe& b) const noexcept { return same(b, a); }

   private:
    static bool same(const Probe& a, const DoubleCacheKey& b) noexcept {
      return bits(a.double_) == bits(b.value_) && a.format == b.format_ && a.localeIdentifier == b.localeIdentifier_;
    }
  };

  /// Debug output: "double", "format", "localeIdentifier".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto written = dynamicEncoder.encode(value_, container, "double"); !written) return written;
    if (auto written = dynamicEncoder.encode(format_, container, "format"); !written) return written;
    return dynamicEncoder.encode(localeIdentifier_, container, "localeIdentifier");
  }

 private:
  [[nodiscard]] static std::uint64_t bits(double value) noexcept { return std::bit_cast<std::uint64_t>(value); }

  double value_;
  std::shared_ptr<const VeltoDoubleFormattable> format_;
  std::string localeIdentifier_;
};
