// IntegerCacheKey: the key of VeltoFormattedNumberCache's integer entries: which format, which
// integer, which locale.
//
//   IntegerCacheKey key(format, 1234, "de_DE");
//   IntegerCacheKey::Hash hash;
//   hash(key) == hash(IntegerCacheKey::Probe{format, 1234, "de_DE"});   // looked up without a copy
#pragma once

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
#include "velto/text/VeltoIntegerFormattable.hpp"

/// A format, an integer and a locale identifier. Equal when all three are equal, the format by
/// identity of the shared object (two separately made but alike formats are different keys).
/// Regular value type; holds the format strongly. Thread safety: as std::shared_ptr.
class IntegerCacheKey {
 public:
  /// The same three fields borrowed, to look a key up without copying the format pointer or the
  /// identifier. Valid while what it refers to is.
  struct Probe {
    const std::shared_ptr<const VeltoIntegerFormattable>& format;
    std::int64_t integer;
    std::string_view localeIdentifier;
  };

  IntegerCacheKey(std::shared_ptr<const VeltoIntegerFormattable> format, std::int64_t integer, std::string localeIdentifier)
      : format_(std::move(format)), integer_(integer), localeIdentifier_(std::move(localeIdentifier)) {}
  explicit IntegerCacheKey(const Probe& probe)
      : format_(probe.format), integer_(probe.integer), localeIdentifier_(probe.localeIdentifier) {}

  [[nodiscard]] const std::shared_ptr<const VeltoIntegerFormattable>& format() const noexcept { return format_; }
  [[nodiscard]] std::int64_t integer() const noexcept { return integer_; }
  [[nodiscard]] const std::string& localeIdentifier() const noexcept { return localeIdentifier_; }

  [[nodiscard]] friend bool operator==(const IntegerCacheKey&, const IntegerCacheKey&) = default;

  /// Hashes keys and probes alike.
  struct Hash {
    using is_transparent = void;
    [[nodiscard]] std::size_t operator()(const IntegerCacheKey& key) const noexcept {
      return of(key.format_.get(), key.integer_, key.localeIdentifier_);
    }
    [[nodiscard]] std::size_t operator()(const Probe& probe) const noexcept {
      return of(probe.format.get(), probe.integer, probe.localeIdentifier);
    }

   private:
    static std::size_t of(const void* format, std::int64_t integer, std::string_view localeIdentifier) noexcept {
      std::size_t hash = std::hash<const void*>()(format);
      hash = velto::detail::combineHashes(hash, std::hash<std::int64_t>()(integer));
      return velto::detail::combineHashes(hash, velto::detail::hashShortText(localeIdentifier));
    }
  };

  /// Compares keys and probes alike.
  struct Equal {
    using is_transparent = void;
    [[nodiscard]] bool operator()(const IntegerCacheKey& a, const IntegerCacheKey& b) const noexcept { return a == b; }
    [[nodiscard]] bool operator()(const Probe& a, const IntegerCacheKey& b) const noexcept { return same(a, b); }
    [[nodiscard]] bool operator()(const IntegerCacheKey& a, const Probe& b) const noexcept { return same(b, a); }

   private:
    static bool same(const Probe& a, const IntegerCacheKey& b) noexcept {
      return a.integer == b.integer_ && a.format == b.format_ && a.localeIdentifier == b.localeIdentifier_;
    }
  };

  /// Debug output: "format", "integer", "localeIdentifier".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto written = dynamicEncoder.encode(format_, container, "format"); !written) return written;
    if (auto written = dynamicEncoder.encode(integer_, container, "integer"); !written) return written;
    return dynamicEncoder.encode(localeIdentifier_, container, "localeIdentifier");
  }

 private:
  std::shared_ptr<const VeltoIntegerFormattable> format_;
  std::int64_t integer_;
  std::string localeIdentifier_;
};
