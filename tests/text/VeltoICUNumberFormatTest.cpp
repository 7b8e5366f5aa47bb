#include <velto/text/VeltoICUNumberFormat.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <latch>
#include <limits>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

// Separators ICU's locale data uses: no-break space, narrow no-break space (French grouping).
const std::string kNbsp = "\u00A0";
const std::string kNarrowNbsp = "\u202F";

std::string formatted(const std::shared_ptr<const VeltoICUNumberFormat>& format, double value, const char* locale) {
  auto text = format->formatDouble(value, locale);
  if (text.isFailure()) return "failure: " + text.error().message();
  return text.value();
}

std::string formatted(const std::shared_ptr<const VeltoICUNumberFormat>& format, std::int64_t value, const char* locale) {
  auto text = format->formatInteger(value, locale);
  if (text.isFailure()) return "failure: " + text.error().message();
  return text.value();
}

TEST(VeltoICUNumberFormat, writesDecimalsAsEachLocaleDoes) {
  const auto twoDigits = VeltoICUNumberFormat::makeDecimal(2).value();
  EXPECT_EQ(formatted(twoDigits, 1234567.891, "en_US"), "1,234,567.89");
  EXPECT_EQ(formatted(twoDigits, 1234567.891, "de_DE"), "1.234.567,89");
  EXPECT_EQ(formatted(twoDigits, 1234567.891, "fr_FR"), "1" + kNarrowNbsp + "234" + kNarrowNbsp + "567,89");
  EXPECT_EQ(formatted(twoDigits, std::int64_t{42}, "en_US"), "42.00");
  EXPECT_EQ(formatted(twoDigits, -0.005, "en_US"), "-0.00");  // half-even rounding keeps the sign
  EXPECT_EQ(twoDigits->debugDescription(), "decimal(2)");
  // Integers are formatted exactly, without a detour through double.
  const auto whole = VeltoICUNumberFormat::makeDecimal(0).value();
  EXPECT_EQ(formatted(whole, std::numeric_limits<std::int64_t>::min(), "en_US"), "-9,223,372,036,854,775,808");
  EXPECT_EQ(formatted(whole, std::numeric_limits<std::int64_t>::max(), "de_DE"), "9.223.372.036.854.775.807");
  EXPECT_EQ(formatted(whole, std::numeric_limits<double>::quiet_NaN(), "en_US"), "NaN");
  EXPECT_EQ(formatted(whole, -std::numeric_limits<double>::infinity(), "en_US"), "-∞");
}

TEST(VeltoICUNumberFormat, writesPercentCurrencyScientificAndCompactForms) {
  const auto percent = VeltoICUNumberFormat::makePercent(1).value();
  EXPECT_EQ(formatted(percent, 0.125, "en_US"), "12.5%");
  EXPECT_EQ(formatted(percent, 0.125, "de_DE"), "12,5" + kNbsp + "%");
  EXPECT_EQ(formatted(percent, std::int64_t{3}, "fr_FR"), "300" + kNbsp + "%");

  const auto euros = VeltoICUNumberFormat::makeCurrency("EUR").value();
  EXPECT_EQ(formatted(euros, -1234.5, "en_US"), "-€1,234.50");
  EXPECT_EQ(formatted(euros, 1234.5, "de_DE"), "1.234,50" + kNbsp + "€");
  EXPECT_EQ(formatted(euros, 1234.5, "fr_FR"), "1" + kNarrowNbsp + "234,50" + kNbsp + "€");
  EXPECT_EQ(formatted(VeltoICUNumberFormat::makeCurrency("JPY").value(), 1234.5, "en_US"), "¥1,234");  // no fraction digits
  EXPECT_EQ(euros->debugDescription(), "currency(EUR)");

  EXPECT_EQ(formatted(VeltoICUNumberFormat::scientific(), std::int64_t{12345}, "en_US"), "1.2345E4");
  EXPECT_EQ(formatted(VeltoICUNumberFormat::scientific(), 0.125, "de_DE"), "1,25E-1");
  const auto compact = VeltoICUNumberFormat::compactShort();
  EXPECT_EQ(formatted(compact, std::int64_t{1234}, "en_US"), "1.2K");
  EXPECT_EQ(formatted(compact, 1234567.0, "en_US"), "1.2M");
  EXPECT_EQ(formatted(compact, std::int64_t{12345}, "fr_FR"), "12" + kNbsp + "k");
}

// What ICU would quietly format for the root locale is refused by name; spellings ICU reads
// as the same locale are accepted.
TEST(VeltoICUNumberFormat, refusesUnknownLocaleIdentifiers) {
  const auto format = VeltoICUNumberFormat::makeDecimal(1).value();
  for (const char* unknown : {"xx_YY", "de_XX", "", "root", "zz", "tlh", "123", "en_ZZ"}) {
    auto text = format->formatDouble(1.5, unknown);
    ASSERT_TRUE(text.isFailure()) << '"' << unknown << "\" gave " << text.value();
    const VeltoError& error = text.error();
    EXPECT_EQ(error.message(), "Unknown locale identifier");
    ASSERT_EQ(error.stackFrames().size(), 1u);
    EXPECT_EQ(error.stackFrames()[0].codeSite().fileName(), "Formatting/VeltoICUNumberFormat");
    EXPECT_EQ(error.stackFrames()[0].codeSite().functionName(), "formatDouble(_:localeIdentifier:)");
    EXPECT_EQ(*error.stackFrames()[0].args().get<VeltoArgs>()->find("localeIdentifier")->get<std::string>(), unknown);
    // Asked again, still refused: unknown identifiers are not remembered as known.
    EXPECT_TRUE(format->formatInteger(1, unknown).isFailure());
  }
  for (const char* known : {"de-DE", "EN_us", "en", "sr_Latn_RS", "es_419", "de_DE@numbers=arab", "en_US_POSIX"}) {
    EXPECT_TRUE(format->formatDouble(1.5, known)) << known;
  }
  EXPECT_EQ(formatted(format, 1.5, "de-DE"), "1,5");
  EXPECT_EQ(formatted(format, 1.5, "de_DE@numbers=arab"), "١٫٥");
}

TEST(VeltoICUNumberFormat, refusesUnknownCurrenciesAndFractionDigitsOutOfRange) {
  for (const char* code : {"XYZ", "usd", "EURO", "", "E1R", "EU"}) {
    auto made = VeltoICUNumberFormat::makeCurrency(code);
    ASSERT_TRUE(made.isFailure()) << code;
    EXPECT_EQ(made.error().message(), "Unknown currency code");
    EXPECT_EQ(made.error().stackFrames()[0].codeSite().functionName(), "makeCurrency(isoCode:)");
    EXPECT_EQ(*made.error().stackFrames()[0].args().get<VeltoArgs>()->find("currencyCode")->get<std::string>(), code);
  }
  EXPECT_TRUE(VeltoICUNumberFormat::makeCurrency("DEM")) << "a former currency is still a known code";
  for (const int digits : {-1, 1000}) {
    auto decimal = VeltoICUNumberFormat::makeDecimal(digits);
    ASSERT_TRUE(decimal.isFailure());
    EXPECT_EQ(decimal.error().message(), "Fraction digits out of range");
    EXPECT_TRUE(VeltoICUNumberFormat::makePercent(digits).isFailure());
  }
  EXPECT_TRUE(VeltoICUNumberFormat::makeDecimal(999));
}

// One format, many threads, several locales made on first use concurrently: every text must be
// what one thread alone gets. Run under ThreadSanitizer.
TEST(VeltoICUNumberFormat, formatsFromManyThreadsAtOnce) {
  const auto format = VeltoICUNumberFormat::makeCurrency("CHF").value();
  const std::vector<const char*> locales = {"en_US", "de_CH", "fr_FR", "it_IT", "ja_JP", "ar_EG"};
  std::map<const char*, std::string> expected;
  {
    const auto reference = VeltoICUNumberFormat::makeCurrency("CHF").value();
    for (const char* locale : locales) expected[locale] = formatted(reference, 98765.4321, locale);
  }
  constexpr int kThreads = 4;
  std::latch start(kThreads);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; i < 300; ++i) {
        const char* locale = locales[static_cast<std::size_t>(i + t) % locales.size()];
        if (formatted(format, 98765.4321, locale) != expected[locale]) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
