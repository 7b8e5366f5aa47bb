// VeltoIntegerFormattable: what a number format implements to turn integers into display text
// for a locale; VeltoFormattedNumberCache memoises what it produces.
//
//   class Grouped : public VeltoIntegerFormattable {
//    public:
//     VeltoResult<std::string> formatInteger(std::int64_t integer, std::string_view localeIdentifier) const override;
//   };
//   auto text = cache->formatInteger(1234, std::make_shared<const Grouped>(), "de_DE");
//
// VeltoICUNumberFormat is a ready implementation on ICU.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "velto/core/VeltoResult.hpp"

/// An integer format. The cache keys entries by the identity of the shared format object, so
/// one format object should stand for one fixed way of formatting: answers must depend only on
/// the integer and the locale identifier.
/// Thread safety: implementations must allow concurrent calls (one format may serve several
/// caches and threads at once).
class VeltoIntegerFormattable {
 public:
  virtual ~VeltoIntegerFormattable() = default;

  /// `integer` as text for `localeIdentifier` (such as "en_US" or "de-DE"), or a failure.
  [[nodiscard]] virtual VeltoResult<std::string> formatInteger(std::int64_t integer,
                                                               std::string_view localeIdentifier) const = 0;
};
