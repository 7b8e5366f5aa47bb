// VeltoICUNumberFormat: ready number formats on ICU's localized number formatter: decimal with
// fixed fraction digits, percent, currency, scientific and compact ("1.2K").
//
//   auto euros = VeltoICUNumberFormat::makeCurrency("EUR");          // "Unknown currency code" for "XYZ"
//   auto text = euros.value()->formatDouble(1234.5, "de_DE");        // "1.234,50 €"
//   auto cache = VeltoFormattedNumberCache::create({800, 1000});
//   auto cached = cache->formatDouble(1234.5, euros.value(), "de_DE");
//
// Locale identifiers are ICU's ("de_DE", "de-DE", "sr_Latn_RS", "de_DE@numbers=arab"). An
// identifier whose language ICU has no data for, or whose region is not a known region, fails
// with "Unknown locale identifier" instead of quietly formatting for the root locale, as ICU
// itself would. ICU stays out of this header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "velto/core/VeltoResult.hpp"
#include "velto/text/VeltoDoubleFormattable.hpp"
#include "velto/text/VeltoIntegerFormattable.hpp"

namespace velto::detail {
struct ICUNumberFormatEngine;
}  // namespace velto::detail

/// One way of formatting numbers, for any locale: integers and doubles alike. Immutable and
/// shared (the factories return shared pointers), so that VeltoFormattedNumberCache can key its
/// entries by the format's identity; make each format once and reuse it.
///
/// Cost: the first use with a locale validates the identifier and builds ICU's formatter for it
/// (tens of microseconds); later uses find it in a per-format table (one mutex, one hash
/// lookup) and format (around a microsecond). The table keeps one formatter per locale used,
/// for the format's lifetime; unknown identifiers are not kept.
/// Failures: "Unknown locale identifier" ("localeIdentifier"); "Number formatting failed"
/// ("errorName", ICU's error) should ICU itself fail.
/// Thread safety: any number of threads may format with one format at once (ICU's localized
/// formatter is immutable and shared).
class VeltoICUNumberFormat final : public VeltoIntegerFormattable, public VeltoDoubleFormattable {
  struct Token {};

 public:
  /// Grouped decimal digits with exactly `fractionDigits` digits after the separator (rounded
  /// half-even): 1234.5 with 2 is "1,234.50" in en_US. Fails with "Fraction digits out of range"
  /// ("fractionDigits") outside 0...999.
  [[nodiscard]] static VeltoResult<std::shared_ptr<const VeltoICUNumberFormat>> makeDecimal(int fractionDigits);
  /// The value times 100 with the locale's percent sign and at most `maximumFractionDigits`:
  /// 0.125 with 1 is "12.5%" in en_US. Fails as `makeDecimal`.
  [[nodiscard]] static VeltoResult<std::shared_ptr<const VeltoICUNumberFormat>> makePercent(int maximumFractionDigits);
  /// An amount in the currency of ISO 4217 code `isoCode` (upper case, as "EUR"), with the
  /// currency's usual fraction digits and the locale's symbol placement. Fails with "Unknown
  /// currency code" ("currencyCode") for a code ICU does not know.
  [[nodiscard]] static VeltoResult<std::shared_ptr<const VeltoICUNumberFormat>> makeCurrency(std::string_view isoCode);
  /// Scientific notation: 12345 is "1.2345E4" in en_US.
  [[nodiscard]] static std::shared_ptr<const VeltoICUNumberFormat> scientific();
  /// Short compact notation: 1234 is "1.2K" in en_US, "1234" in de_DE (locales decide where
  /// abbreviations start).
  [[nodiscard]] static std::shared_ptr<const VeltoICUNumberFormat> compactShort();

  VeltoICUNumberFormat(Token, std::string description, std::unique_ptr<velto::detail::ICUNumberFormatEngine> engine);
  ~VeltoICUNumberFormat() override;
  VeltoICUNumberFormat(const VeltoICUNumberFormat&) = delete;
  VeltoICUNumberFormat& operator=(const VeltoICUNumberFormat&) = delete;

  /// `integer` as text for `localeIdentifier`; failures as the class comment says.
  [[nodiscard]] VeltoResult<std::string> formatInteger(std::int64_t integer, std::string_view localeIdentifier) const override;
  /// `value` as text for `localeIdentifier`; NaN and infinities as the locale writes them.
  [[nodiscard]] VeltoResult<std::string> formatDouble(double value, std::string_view localeIdentifier) const override;

  /// What the format is, as made: "decimal(2)", "percent(1)", "currency(EUR)", "scientific",
  /// "compactShort". Also the debug output.
  [[nodiscard]] std::string debugDescription() const { return description_; }

 private:
  const std::string description_;
  const std::unique_ptr<velto::detail::ICUNumberFormatEngine> engine_;
};
