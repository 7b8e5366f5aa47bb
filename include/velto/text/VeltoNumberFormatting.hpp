// VeltoNumberFormatting: the interface of a number-formatting service that takes the format and
// the locale with every request; VeltoFormattedNumberCache implements it, and a client that
// wants to swap in a stub (or another cache) depends on this instead.
//
//   void showTotal(VeltoNumberFormatting& formatting, const std::shared_ptr<const VeltoIntegerFormattable>& format) {
//     auto text = formatting.formatInteger(total, format, "en_US");
//   }
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "velto/core/VeltoResult.hpp"
#include "velto/text/VeltoDoubleFormattable.hpp"
#include "velto/text/VeltoIntegerFormattable.hpp"

/// Formats integers and doubles with a caller-chosen format and locale. The integer and double
/// forms have different names so that a format implementing both, or a literal such as `42`,
/// never makes a call ambiguous.
/// Thread safety: as the implementation says (VeltoFormattedNumberCache: any thread).
class VeltoNumberFormatting {
 public:
  virtual ~VeltoNumberFormatting() = default;

  /// `integer` formatted by `format` for `localeIdentifier`.
  [[nodiscard]] virtual VeltoResult<std::string> formatInteger(std::int64_t integer,
                                                               const std::shared_ptr<const VeltoIntegerFormattable>& format,
                                                               std::string_view localeIdentifier) = 0;

  /// `value` formatted by `format` for `localeIdentifier`.
  [[nodiscard]] virtual VeltoResult<std::string> formatDouble(double value,
                                                              const std::shared_ptr<const VeltoDoubleFormattable>& format,
                                                              std::string_view localeIdentifier) = 0;
};
