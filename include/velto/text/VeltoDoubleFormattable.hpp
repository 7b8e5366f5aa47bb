// VeltoDoubleFormattable: what a number format implements to turn doubles into display text for
// a locale; VeltoFormattedNumberCache memoises what it produces.
//
//   class TwoDecimals : public VeltoDoubleFormattable {
//    public:
//     VeltoResult<std::string> formatDouble(double value, std::string_view localeIdentifier) const override;
//   };
//   auto text = cache->formatDouble(3.14159, std::make_shared<const TwoDecimals>(), "fr_FR");
//
// VeltoICUNumberFormat is a ready implementation on ICU.
#pragma once

#include <string>
#include <string_view>

#include "velto/core/VeltoResult.hpp"

/// A double format. The cache keys entries by the identity of the shared format object and by
/// the double's bit pattern, so answers must depend only on those and the locale identifier.
/// Thread safety: implementations must allow concurrent calls (one format may serve several
/// caches and threads at once).
class VeltoDoubleFormattable {
 public:
  virtual ~VeltoDoubleFormattable() = default;

  /// `value` as text for `localeIdentifier` (such as "en_US" or "de-DE"), or a failure.
  [[nodiscard]] virtual VeltoResult<std::string> formatDouble(double value, std::string_view localeIdentifier) const = 0;
};
