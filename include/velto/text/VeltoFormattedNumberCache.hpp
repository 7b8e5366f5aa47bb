// VeltoFormattedNumberCache: memoised number formatting: the text a format produced for a value
// and a locale is kept in one bounded cache for integers and one for doubles.
//
//   auto cache = VeltoFormattedNumberCache::create(VeltoFiniteCacheThreshold<std::size_t>(800, 1000));
//   auto twoDigits = VeltoICUNumberFormat::makeDecimal(2).value();
//   VeltoResult<std::string> price = cache->formatDouble(1234.5, twoDigits, "de_DE");   // "1.234,50"
//   VeltoResult<std::string> count = cache->formatInteger(42, twoDigits, "en_US");      // "42.00"
//
// The cache formats nothing itself: a miss asks the format (any VeltoIntegerFormattable or
// VeltoDoubleFormattable), a success is stored and a failure is passed up and not remembered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "velto/collections/VeltoFiniteCacheThreshold.hpp"
#include "velto/collections/VeltoLazyFiniteCountCache.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/text/DoubleCacheKey.hpp"
#include "velto/text/IntegerCacheKey.hpp"
#include "velto/text/VeltoDoubleFormattable.hpp"
#include "velto/text/VeltoIntegerFormattable.hpp"
#include "velto/text/VeltoNumberFormatting.hpp"

/// Two VeltoLazyFiniteCountCache instances, doubles and integers, each locked on its own (so
/// integer and double formatting never contend) and bounded by the same threshold. Keys are
/// the value (a double by its bit pattern), the format (by identity of the shared object, held
/// strongly while its entries are cached) and the locale identifier. A hit copies the stored
/// text out; it builds no key (the lookup borrows the format pointer and the identifier).
///
/// Ownership: created as a std::shared_ptr (`create`); owns both caches, and through them the
/// cached texts and the formats they were made with.
/// Cost: a hit is one lock, one clock read, one hash lookup and a copy of the text; a miss adds
/// the format's own work and, past the trigger, a purge (a sort of that cache).
/// Failures: a format's failure is returned with this cache's frames added and the next request
/// for the same key asks the format again.
/// Thread safety: any thread may call either operation. A format runs under its cache's lock,
/// so a slow format delays other requests of the same kind, and a format must not call back
/// into the same cache (a fatal stop).
class VeltoFormattedNumberCache final : public VeltoNumberFormatting,
                                        public std::enable_shared_from_this<VeltoFormattedNumberCache> {
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  using Threshold = VeltoFiniteCacheThreshold<std::size_t>;
  using DoubleCache = VeltoLazyFiniteCountCache<DoubleCacheKey, std::string, DoubleCacheKey::Hash, DoubleCacheKey::Equal>;
  using IntegerCache = VeltoLazyFiniteCountCache<IntegerCacheKey, std::string, IntegerCacheKey::Hash, IntegerCacheKey::Equal>;

  VeltoFormattedNumberCache(Passkey, Threshold maxCount);
  VeltoFormattedNumberCache(const VeltoFormattedNumberCache&) = delete;
  VeltoFormattedNumberCache& operator=(const VeltoFormattedNumberCache&) = delete;

  /// Two empty caches, each bounded by `maxCount`, stamping with the coarse real-time clock.
  [[nodiscard]] static std::shared_ptr<VeltoFormattedNumberCache> create(Threshold maxCount);

  /// The text `format` makes of `integer` for `localeIdentifier`, produced once per key.
  /// A format's failure comes back with the integer cache's frames and a frame
  /// "format(integer:format:localeIdentifier:)" of "Formatting/VeltoFormattedNumberCache"
  /// with "self" (this cache, held weakly), "integer", "format" and "localeIdentifier".
  /// REQUIRES: `format` is not null (fatal stop otherwise).
  [[nodiscard]] VeltoResult<std::string> formatInteger(std::int64_t integer,
                                                       const std::shared_ptr<const VeltoIntegerFormattable>& format,
                                                       std::string_view localeIdentifier) override;

  /// The text `format` makes of `value` for `localeIdentifier`, produced once per key. Failures
  /// as for `formatInteger`, with "double" in place of "integer" and the function
  /// "format(double:format:localeIdentifier:)". REQUIRES: `format` is not null.
  [[nodiscard]] VeltoResult<std::string> formatDouble(double value, const std::shared_ptr<const VeltoDoubleFormattable>& format,
                                                      std::string_view localeIdentifier) override;

  /// The cache of double texts (for its `count`, `keys` and the like).
  [[nodiscard]] const std::shared_ptr<DoubleCache>& formattedDoubleCache() const noexcept { return formattedDoubleCache_; }
  /// The cache of integer texts.
  [[nodiscard]] const std::shared_ptr<IntegerCache>& formattedIntegerCache() const noexcept { return formattedIntegerCache_; }

  /// Debug output: the entry counts, "2 doubles, 40 integers".
  [[nodiscard]] std::string debugDescription() const;

 private:
  const std::shared_ptr<DoubleCache> formattedDoubleCache_;
  const std::shared_ptr<IntegerCache> formattedIntegerCache_;
};
