#include <velto/text/VeltoFormattedNumberCache.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <latch>
#include <limits>
#include <list>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <variant>
#include <vector>

#include <velto/text/VeltoICUNumberFormat.hpp>

#include "support/FailureArgs.hpp"
#include "support/FrameNames.hpp"

namespace {

using velto::test::arg;
using velto::test::argNames;
using velto::test::functionNames;

// A format that counts its calls and writes "<tag>:<value>@<locale>"; it fails for the locale
// "fail" (and counts that call too).
class CountingFormat : public VeltoIntegerFormattable, public VeltoDoubleFormattable {
 public:
  explicit CountingFormat(std::string tag) : tag_(std::move(tag)) {}

  VeltoResult<std::string> formatInteger(std::int64_t integer, std::string_view localeIdentifier) const override {
    return answer(std::to_string(integer), localeIdentifier);
  }
  VeltoResult<std::string> formatDouble(double value, std::string_view localeIdentifier) const override {
    return answer(std::signbit(value) && value == 0 ? "-0" : std::to_string(value), localeIdentifier);
  }
  [[nodiscard]] int calls() const { return calls_.load(); }

 private:
  VeltoResult<std::string> answer(const std::string& value, std::string_view localeIdentifier) const {
    calls_.fetch_add(1);
    if (localeIdentifier == "fail") {
      return VeltoResult<std::string>::fromMessage("Cannot format", {{"localeIdentifier", std::string(localeIdentifier)}});
    }
    return tag_ + ":" + value + "@" + std::string(localeIdentifier);
  }
  std::string tag_;
  mutable std::atomic<int> calls_{0};
};

using Threshold = VeltoFormattedNumberCache::Threshold;

// Formats are keys by identity (a second, alike format object is another key); doubles by
// their bits (-0 and +0 are two entries, NaN finds its own); integers and doubles apart.
TEST(VeltoFormattedNumberCache, keysFormatsByIdentityAndDoublesByBits) {
  auto cache = VeltoFormattedNumberCache::create(Threshold(100, 100));
  auto format = std::make_shared<const CountingFormat>("f");
  auto twin = std::make_shared<const CountingFormat>("f");
  EXPECT_EQ(cache->formatInteger(7, format, "en_US").value(), "f:7@en_US");
  EXPECT_EQ(cache->formatInteger(7, twin, "en_US").value(), "f:7@en_US");
  EXPECT_EQ(cache->formatDouble(7, format, "en_US").value(), "f:7.000000@en_US");
  EXPECT_EQ(cache->formatDouble(-0.0, format, "en_US").value(), "f:-0@en_US");
  EXPECT_EQ(cache->formatDouble(0.0, format, "en_US").value(), "f:0.000000@en_US");
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(cache->formatDouble(std::numeric_limits<double>::quiet_NaN(), format, "en_US"));
  EXPECT_EQ(format->calls() + twin->calls(), 6);
  EXPECT_EQ(cache->formattedIntegerCache()->count(), 2u);
  EXPECT_EQ(cache->formattedDoubleCache()->count(), 4u);
  EXPECT_EQ(cache->debugDescription(), "4 doubles, 2 integers");
}

TEST(VeltoFormattedNumberCache, passesAFailureUpAndAsksAgainNextTime) {
  auto cache = VeltoFormattedNumberCache::create(Threshold(100, 100));
  auto format = std::make_shared<const CountingFormat>("f");
  const std::shared_ptr<const VeltoIntegerFormattable> asInteger = format;
  auto failed = cache->formatInteger(-3, asInteger, "fail");
  ASSERT_TRUE(failed.isFailure());
  const VeltoError& error = failed.error();
  EXPECT_EQ(error.message(), "Cannot format");
  EXPECT_EQ(functionNames(error.stackFrames()),
            (std::vector<std::string_view>{"answer", "get(key:)", "protected(_:)", "get(key:)",
                                           "format(integer:format:localeIdentifier:)"}));
  const std::size_t outer = error.stackFrames().size() - 1;
  EXPECT_EQ(error.stackFrames()[outer].codeSite().fileName(), "Formatting/VeltoFormattedNumberCache");
  EXPECT_EQ(argNames(error, outer), (std::vector<std::string>{"self", "integer", "format", "localeIdentifier"}));
  EXPECT_EQ(arg<std::weak_ptr<VeltoFormattedNumberCache>>(error, "self", outer)->lock(), cache);
  EXPECT_EQ(*arg<std::int64_t>(error, "integer", outer), -3);
  EXPECT_EQ(*arg<std::shared_ptr<const VeltoIntegerFormattable>>(error, "format", outer), asInteger);
  EXPECT_EQ(*arg<std::string>(error, "localeIdentifier", outer), "fail");
  EXPECT_EQ(arg<IntegerCacheKey>(error, "key", 1)->integer(), -3);
  EXPECT_EQ(cache->formattedIntegerCache()->count(), 0u);
  EXPECT_TRUE(cache->formatInteger(-3, asInteger, "fail").isFailure());
  EXPECT_EQ(format->calls(), 2);

  auto failedDouble = cache->formatDouble(2.5, format, "fail");
  ASSERT_TRUE(failedDouble.isFailure());
  const std::size_t doubleOuter = failedDouble.error().stackFrames().size() - 1;
  EXPECT_EQ(failedDouble.error().stackFrames()[doubleOuter].codeSite().functionName(),
            "format(double:format:localeIdentifier:)");
  EXPECT_EQ(argNames(failedDouble.error(), doubleOuter), (std::vector<std::string>{"self", "double", "format", "localeIdentifier"}));
  EXPECT_EQ(*arg<double>(failedDouble.error(), "double", doubleOuter), 2.5);
  // The whole failure renders as debug JSON (as a logger would print it).
  auto json = VeltoDynamicDebugEncoder::encodeToString(failedDouble.error(), VeltoDynamicDebugEncoderOptions::forLogging());
  ASSERT_TRUE(json) << json.error().message();
  EXPECT_NE(json.value().find("localeIdentifier"), std::string::npos);
}

// Thousands of random requests, integers and doubles, three formats, four locales (one
// failing), against two textbook LRU lists: with the trigger equal to the target each cache is
// an exact LRU (the wall clock only moves forward and ties go by access order), so every call of
// a format is predicted: once per key, again after a failure or an eviction, and never because
// of traffic in the other cache.
TEST(VeltoFormattedNumberCache, behavesAsTwoLeastRecentlyUsedCachesOverRandomRequests) {
  constexpr std::size_t kBound = 16;
  auto cache = VeltoFormattedNumberCache::create(Threshold(kBound, kBound));
  std::vector<std::shared_ptr<const CountingFormat>> formats;
  for (const char* tag : {"a", "b", "c"}) formats.push_back(std::make_shared<const CountingFormat>(tag));
  const std::vector<std::string> locales = {"en_US", "de_DE", "fr_FR", "fail"};
  using Key = std::tuple<bool, double, int, std::string>;  // isDouble, value, format, locale
  std::list<Key> integers, doubles;                        // most recent first
  std::mt19937 random(5);
  int expectedCalls = 0;
  for (int step = 0; step < 4'000; ++step) {
    const bool isDouble = random() % 2 == 0;
    const int formatIndex = static_cast<int>(random() % formats.size());
    const std::string& locale = locales[random() % locales.size()];
    const int value = static_cast<int>(random() % 12) - 2;
    const Key key{isDouble, value, formatIndex, locale};
    auto& lru = isDouble ? doubles : integers;
    const bool cached = std::find(lru.begin(), lru.end(), key) != lru.end();
    const auto& format = formats[static_cast<std::size_t>(formatIndex)];
    int callsBefore = 0;
    for (const auto& f : formats) callsBefore += f->calls();
    auto text = isDouble ? cache->formatDouble(value, format, locale) : cache->formatInteger(value, format, locale);
    int callsAfter = 0;
    for (const auto& f : formats) callsAfter += f->calls();
    ASSERT_EQ(callsAfter - callsBefore, cached ? 0 : 1) << "step " << step;
    ASSERT_EQ(text.isFailure(), locale == "fail") << "step " << step;
    if (text) {
      const std::string number = isDouble ? std::to_string(static_cast<double>(value)) : std::to_string(value);
      ASSERT_EQ(text.value(), std::string(1, static_cast<char>('a' + formatIndex)) + ":" + number + "@" + locale);
      lru.remove(key);
      lru.push_front(key);
      if (lru.size() > kBound) lru.pop_back();
    }
    expectedCalls += cached ? 0 : 1;
    ASSERT_EQ(cache->formattedIntegerCache()->count(), integers.size()) << "step " << step;
    ASSERT_EQ(cache->formattedDoubleCache()->count(), doubles.size()) << "step " << step;
  }
  EXPECT_GT(expectedCalls, 1'000);
}

// Threads format integers and doubles through one cache and one ICU format; every text must be
// what the format makes alone. Run under ThreadSanitizer.
TEST(VeltoFormattedNumberCache, servesManyThreadsAtOnce) {
  auto cache = VeltoFormattedNumberCache::create(Threshold(24, 32));
  const auto format = VeltoICUNumberFormat::makeDecimal(1).value();
  const std::vector<std::string> locales = {"en_US", "de_DE", "fr_FR"};
  constexpr int kThreads = 4;
  std::latch start(kThreads);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      start.arrive_and_wait();
      for (int i = 0; i < 1'500; ++i) {
        const std::string& locale = locales[random() % locales.size()];
        const int value = static_cast<int>(random() % 40);
        if (i % 2 == 0) {
          auto text = cache->formatInteger(value, format, locale);
          if (!text || text.value() != format->formatInteger(value, locale).value()) ++wrong;
        } else {
          auto text = cache->formatDouble(value + 0.25, format, locale);
          if (!text || text.value() != format->formatDouble(value + 0.25, locale).value()) ++wrong;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_LE(cache->formattedIntegerCache()->count(), 32u);
}

void formatWithANullFormat() {
  auto cache = VeltoFormattedNumberCache::create(Threshold(1, 1));
  (void)cache->formatInteger(1, nullptr, "en_US");
}

TEST(VeltoFormattedNumberCacheDeathTest, aNullFormatStops) {
  EXPECT_DEATH(formatWithANullFormat(), "null format");
}

}  // namespace
