#include "velto/text/VeltoICUNumberFormat.hpp"

#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/region.h>
#include <unicode/ucurr.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "velto/core/VeltoCodeSite.hpp"

namespace {

constexpr char kFile[] = "Formatting/VeltoICUNumberFormat";
constexpr int kMaxFractionDigits = 999;  // ICU's own limit

using FormatResult = VeltoResult<std::shared_ptr<const VeltoICUNumberFormat>>;

// The languages ICU has locale data for ("en", "de", "sr", ...), gathered once.
const std::unordered_set<std::string>& knownLanguages() {
  static const std::unordered_set<std::string> languages = [] {
    std::unordered_set<std::string> found;
    std::int32_t count = 0;
    const icu::Locale* available = icu::Locale::getAvailableLocales(count);
    for (std::int32_t i = 0; i < count; ++i) found.insert(available[i].getLanguage());
    return found;
  }();
  return languages;
}

// Whether ICU would format for `locale` itself rather than fall back to the root locale: its
// language has data and its region, if any, is a region ICU knows.
bool isKnown(const icu::Locale& locale) {
  if (locale.isBogus() || !knownLanguages().contains(locale.getLanguage())) return false;
  const char* country = locale.getCountry();
  if (country == nullptr || *country == '\0') return true;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Region* region = icu::Region::getInstance(country, status);
  return U_SUCCESS(status) && region != nullptr && region->getType() != URGN_UNKNOWN;
}

struct TransparentHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
};

}  // namespace

namespace velto::detail {

// The unlocalized settings and one localized formatter per locale used. ICU's localized
// formatters are immutable and thread-safe, so one per locale serves every thread; the mutex
// guards only the table.
struct ICUNumberFormatEngine {
  icu::number::UnlocalizedNumberFormatter settings;
  std::mutex mutex;
  std::unordered_map<std::string, std::shared_ptr<const icu::number::LocalizedNumberFormatter>, TransparentHash,
                     std::equal_to<>>
      byLocale;

  explicit ICUNumberFormatEngine(icu::number::UnlocalizedNumberFormatter settings) : settings(std::move(settings)) {}

  // The formatter for `localeIdentifier`, made on first use; null for an unknown identifier.
  std::shared_ptr<const icu::number::LocalizedNumberFormatter> formatterFor(std::string_view localeIdentifier) {
    {
      const std::lock_guard guard(mutex);
      if (const auto found = byLocale.find(localeIdentifier); found != byLocale.end()) return found->second;
    }
    const std::string identifier(localeIdentifier);
    const icu::Locale locale(identifier.c_str());
    if (!isKnown(locale)) return nullptr;
    auto formatter = std::make_shared<const icu::number::LocalizedNumberFormatter>(settings.locale(locale));
    const std::lock_guard guard(mutex);
    return byLocale.try_emplace(identifier, std::move(formatter)).first->second;
  }
};

}  // namespace velto::detail

namespace {

template <class Format>
VeltoResult<std::string> formatWith(velto::detail::ICUNumberFormatEngine& engine, std::string_view localeIdentifier,
                                    Format format, VeltoCodeSite site) {
  const auto formatter = engine.formatterFor(localeIdentifier);
  if (!formatter) {
    return VeltoResult<std::string>::fromMessage("Unknown locale identifier", {{"localeIdentifier", std::string(localeIdentifier)}},
                                                 nullptr, site);
  }
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted = format(*formatter, status);
  std::string text;
  if (U_SUCCESS(status)) formatted.toString(status).toUTF8String(text);
  if (U_FAILURE(status)) {
    return VeltoResult<std::string>::fromMessage("Number formatting failed", {{"errorName", std::string(u_errorName(status))}},
                                                 nullptr, site);
  }
  return text;
}

}  // namespace

VeltoICUNumberFormat::VeltoICUNumberFormat(Token, std::string description,
                                           std::unique_ptr<velto::detail::ICUNumberFormatEngine> engine)
    : description_(std::move(description)), engine_(std::move(engine)) {}

VeltoICUNumberFormat::~VeltoICUNumberFormat() = default;

FormatResult VeltoICUNumberFormat::makeDecimal(int fractionDigits) {
  if (fractionDigits < 0 || fractionDigits > kMaxFractionDigits) {
    return FormatResult::fromMessage("Fraction digits out of range", {{"fractionDigits", fractionDigits}}, nullptr,
                                     VELTO_SITE(kFile, "makeDecimal(fractionDigits:)"));
  }
  return std::make_shared<const VeltoICUNumberFormat>(
      Token{}, "decimal(" + std::to_string(fractionDigits) + ")",
      std::make_unique<velto::detail::ICUNumberFormatEngine>(
          icu::number::NumberFormatter::with().precision(icu::number::Precision::fixedFraction(fractionDigits))));
}

FormatResult VeltoICUNumberFormat::makePercent(int maximumFractionDigits) {
  if (maximumFractionDigits < 0 || maximumFractionDigits > kMaxFractionDigits) {
    return FormatResult::fromMessage("Fraction digits out of range", {{"fractionDigits", maximumFractionDigits}}, nullptr,
                                     VELTO_SITE(kFile, "makePercent(maximumFractionDigits:)"));
  }
  return std::make_shared<const VeltoICUNumberFormat>(
      Token{}, "percent(" + std::to_string(maximumFractionDigits) + ")",
      std::make_unique<velto::detail::ICUNumberFormatEngine>(icu::number::NumberFormatter::with()
                                                                 .unit(icu::NoUnit::percent())
                                                                 .scale(icu::number::Scale::powerOfTen(2))
                                                                 .precision(icu::number::Precision::maxFraction(maximumFractionDigits))));
}

FormatResult VeltoICUNumberFormat::makeCurrency(std::string_view isoCode) {
  const auto unknown = [&] {
    return FormatResult::fromMessage("Unknown currency code", {{"currencyCode", std::string(isoCode)}}, nullptr,
                                     VELTO_SITE(kFile, "makeCurrency(isoCode:)"));
  };
  // ICU takes any three letters as a code; only upper-case codes it knows, in any era, pass.
  if (isoCode.size() != 3) return unknown();
  char16_t code[4] = {};
  for (std::size_t i = 0; i < 3; ++i) {
    if (isoCode[i] < 'A' || isoCode[i] > 'Z') return unknown();
    code[i] = static_cast<char16_t>(isoCode[i]);
  }
  UErrorCode status = U_ZERO_ERROR;
  if (!ucurr_isAvailable(code, U_DATE_MIN, U_DATE_MAX, &status) || U_FAILURE(status)) return unknown();
  const icu::CurrencyUnit currency(code, status);
  if (U_FAILURE(status)) return unknown();
  return std::make_shared<const VeltoICUNumberFormat>(
      Token{}, "currency(" + std::string(isoCode) + ")",
      std::make_unique<velto::detail::ICUNumberFormatEngine>(icu::number::NumberFormatter::with().unit(currency)));
}

std::shared_ptr<const VeltoICUNumberFormat> VeltoICUNumberFormat::scientific() {
  return std::make_shared<const VeltoICUNumberFormat>(
      Token{}, "scientific",
      std::make_unique<velto::detail::ICUNumberFormatEngine>(
          icu::number::NumberFormatter::with().notation(icu::number::Notation::scientific())));
}

std::shared_ptr<const VeltoICUNumberFormat> VeltoICUNumberFormat::compactShort() {
  return std::make_shared<const VeltoICUNumberFormat>(
      Token{}, "compactShort",
      std::make_unique<velto::detail::ICUNumberFormatEngine>(
          icu::number::NumberFormatter::with().notation(icu::number::Notation::compactShort())));
}

VeltoResult<std::string> VeltoICUNumberFormat::formatInteger(std::int64_t integer, std::string_view localeIdentifier) const {
  return formatWith(
      *engine_, localeIdentifier,
      [integer](const icu::number::LocalizedNumberFormatter& formatter, UErrorCode& status) {
        return formatter.formatInt(integer, status);
      },
      VELTO_SITE(kFile, "formatInteger(_:localeIdentifier:)"));
}

VeltoResult<std::string> VeltoICUNumberFormat::formatDouble(double value, std::string_view localeIdentifier) const {
  return formatWith(
      *engine_, localeIdentifier,
      [value](const icu::number::LocalizedNumberFormatter& formatter, UErrorCode& status) {
        return formatter.formatDouble(value, status);
      },
      VELTO_SITE(kFile, "formatDouble(_:localeIdentifier:)"));
}
