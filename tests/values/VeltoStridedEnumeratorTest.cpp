#include <velto/values/VeltoStridedEnumerator.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <ranges>
#include <vector>

namespace {

__extension__ typedef __int128 Wide;

static_assert(std::ranges::random_access_range<VeltoStridedEnumerator<int>>);
static_assert(std::ranges::sized_range<VeltoStridedEnumerator<double>>);

template <class T>
std::vector<T> valuesOf(const VeltoStridedEnumerator<T>& steps) {
  std::vector<T> values;
  for (auto [offset, value] : steps) {
    EXPECT_EQ(offset, static_cast<std::ptrdiff_t>(values.size()));
    values.push_back(value);
  }
  return values;
}

// The obvious loop in a type wide enough never to overflow.
template <class T>
std::vector<T> reference(Wide from, Wide end, Wide by, bool inclusive) {
  std::vector<T> values;
  for (Wide v = from; by > 0 ? (inclusive ? v <= end : v < end) : (inclusive ? v >= end : v > end); v += by) {
    values.push_back(static_cast<T>(v));
  }
  return values;
}

template <class T>
void checkAgainstTheLoop(std::mt19937_64& random, int rounds) {
  using Stride = typename VeltoStridedEnumerator<T>::Stride;
  const auto pick = [&]() -> T {
    // Mostly near the limits, where a naive walk overflows.
    const auto r = random();
    if (r % 3 == 0) return static_cast<T>(std::numeric_limits<T>::max() - static_cast<T>(r % 50));
    if (r % 3 == 1) return static_cast<T>(std::numeric_limits<T>::lowest() + static_cast<T>(r % 50));
    return static_cast<T>(r >> 8);
  };
  for (int i = 0; i < rounds; ++i) {
    const T from = pick(), end = pick();
    // Strides that give a handful of values, and small ones near the limits.
    const Wide span = static_cast<Wide>(end) - static_cast<Wide>(from);
    Wide wideBy = span / static_cast<Wide>(1 + random() % 9);
    if (random() % 4 == 0 || wideBy == 0) wideBy = static_cast<Wide>(random() % 7) + 1;
    if (random() % 5 == 0) wideBy = -wideBy;
    if (wideBy > std::numeric_limits<Stride>::max() || wideBy < std::numeric_limits<Stride>::min()) continue;
    const auto by = static_cast<Stride>(wideBy);
    if (span / wideBy > 2000) continue;  // keep the reference loop short
    for (const bool inclusive : {true, false}) {
      const auto steps = inclusive ? VeltoStridedEnumerator<T>::makeThrough(from, end, by) : VeltoStridedEnumerator<T>::makeTo(from, end, by);
      ASSERT_TRUE(steps.hasValue());
      const std::vector<T> expected = reference<T>(from, end, by, inclusive);
      ASSERT_EQ(valuesOf(steps.value()), expected)
          << +from << (inclusive ? " through " : " to ") << +end << " by " << +by;
      ASSERT_EQ(steps.value().count(), static_cast<std::ptrdiff_t>(expected.size()));
    }
  }
}

TEST(VeltoStridedEnumerator, integersMatchTheObviousLoopUpToTheTypesLimits) {
  std::mt19937_64 random(5);
  checkAgainstTheLoop<std::int8_t>(random, 3000);
  checkAgainstTheLoop<std::uint8_t>(random, 3000);
  checkAgainstTheLoop<std::int16_t>(random, 3000);
  checkAgainstTheLoop<int>(random, 3000);
  checkAgainstTheLoop<std::uint32_t>(random, 3000);
  checkAgainstTheLoop<std::int64_t>(random, 3000);
  checkAgainstTheLoop<std::uint64_t>(random, 3000);
}

TEST(VeltoStridedEnumerator, extremeIntegerWalksEndAndRefuseUncountableOnes) {
  using Limits = std::numeric_limits<std::int64_t>;
  const auto top = VeltoStridedEnumerator<std::int64_t>::makeThrough(Limits::max() - 4, Limits::max(), 2).value();
  EXPECT_EQ(valuesOf(top), (std::vector<std::int64_t>{Limits::max() - 4, Limits::max() - 2, Limits::max()}));
  const auto giant = VeltoStridedEnumerator<std::int64_t>::makeThrough(Limits::min(), Limits::max(), Limits::max()).value();
  EXPECT_EQ(valuesOf(giant), (std::vector<std::int64_t>{Limits::min(), -1, Limits::max() - 1}));
  const auto down = VeltoStridedEnumerator<std::uint64_t>::makeThrough(2, 0, -1).value();
  EXPECT_EQ(valuesOf(down), (std::vector<std::uint64_t>{2, 1, 0}));

  const auto everything = VeltoStridedEnumerator<std::uint64_t>::makeThrough(0, std::numeric_limits<std::uint64_t>::max(), 1);
  ASSERT_TRUE(everything.isFailure());
  EXPECT_EQ(everything.error().message(), "Too many values");
  EXPECT_TRUE(VeltoStridedEnumerator<std::uint64_t>::makeThrough(0, std::numeric_limits<std::uint64_t>::max(), 2).isFailure())
      << "2^63 values do not fit an offset";
  const auto half = VeltoStridedEnumerator<std::uint64_t>::makeThrough(2, std::numeric_limits<std::uint64_t>::max(), 2).value();
  EXPECT_EQ(half.count(), Limits::max()) << "2^63 - 1 values do";
  EXPECT_EQ(half[half.count() - 1].value, std::numeric_limits<std::uint64_t>::max() - 1);
}

// Decimal walks in doubles are checked at random below; here the float instantiation and the
// textbook case, 3 x 0.1 = 0.30000000000000004, which still meets the end.
TEST(VeltoStridedEnumerator, floatingEndsMetWithinRoundingAreMetExactly) {
  const auto ticks = VeltoStridedEnumerator<double>::makeThrough(0, 0.3, 0.1).value();
  ASSERT_EQ(ticks.count(), 4);
  EXPECT_EQ(ticks[3].value, 0.3);
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeTo(0, 0.3, 0.1).value().count(), 3);
  EXPECT_TRUE(VeltoStridedEnumerator<double>::makeTo(2, 2, 1).value().isEmpty());
  EXPECT_EQ(valuesOf(VeltoStridedEnumerator<float>::makeThrough(0, 1, 0.25f).value()), (std::vector<float>{0, 0.25f, 0.5f, 0.75f, 1}));
}

// The contract on random decimal walks: values are from + offset x by (or exactly the end when
// met), none passes the end, and the count is maximal.
TEST(VeltoStridedEnumerator, floatingWalksKeepExactlyTheValuesNotPassingTheEnd) {
  std::mt19937 random(3);
  const auto decimal = [&] { return static_cast<double>(static_cast<int>(random() % 2001) - 1000) / 100; };
  for (int i = 0; i < 20000; ++i) {
    const double from = decimal(), end = decimal();
    double by = decimal();
    if (by == 0) by = 0.01;
    const bool inclusive = random() % 2 == 0;
    const auto made = inclusive ? VeltoStridedEnumerator<double>::makeThrough(from, end, by) : VeltoStridedEnumerator<double>::makeTo(from, end, by);
    ASSERT_TRUE(made.hasValue());
    const auto& steps = made.value();
    const double q = (end - from) / by;
    const bool met = std::abs(q - std::round(q)) <= 1e-12 * std::max(1.0, std::abs(std::round(q)));
    const auto kept = [&](double value) {
      if (by > 0) return inclusive ? value <= end : value < end;
      return inclusive ? value >= end : value > end;
    };
    SCOPED_TRACE(::testing::Message() << from << (inclusive ? " through " : " to ") << end << " by " << by);
    for (std::ptrdiff_t k = 0; k < steps.count(); ++k) {
      const double value = steps[k].value;
      if (met && inclusive && k == steps.count() - 1) {
        ASSERT_EQ(value, end);
      } else {
        ASSERT_EQ(value, from + static_cast<double>(k) * by);
        ASSERT_TRUE(kept(value) || met) << "offset " << k;
      }
    }
    const double next = from + static_cast<double>(steps.count()) * by;
    ASSERT_TRUE(!kept(next) || (met && !inclusive && std::round(q) == static_cast<double>(steps.count())))
        << "the count is maximal: " << steps.count();
  }
}

TEST(VeltoStridedEnumerator, badWalksFailWithTheirArguments) {
  const auto zero = VeltoStridedEnumerator<int>::makeThrough(0, 10, 0);
  ASSERT_TRUE(zero.isFailure());
  EXPECT_EQ(zero.error().message(), "Zero stride");
  const auto* args = zero.error().stackFrames()[0].args().get<VeltoArgs>();
  EXPECT_EQ(*args->find("through")->get<int>(), 10);
  EXPECT_EQ(*args->find("by")->get<int>(), 0);
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeTo(0, inf, 1).error().message(), "Non-finite bound");
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeTo(nan, 1, 1).error().message(), "Non-finite bound");
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeTo(0, 1, nan).error().message(), "Non-finite stride");
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeTo(0, 1, 1e-300).error().message(), "Too many values");
  EXPECT_EQ(VeltoStridedEnumerator<double>::makeThrough(-1e308, 1e308, 1).error().message(), "Too many values");
  EXPECT_TRUE(VeltoStridedEnumerator<double>::makeThrough(1e308, -1e308, 1).value().isEmpty());
}

TEST(VeltoStridedEnumerator, worksWithRangeAlgorithms) {
  const auto steps = VeltoStridedEnumerator<int>::makeTo(0, 100, 7).value();
  const auto it = std::ranges::lower_bound(steps, 50, {}, &VeltoStridedEnumerator<int>::Element::value);
  EXPECT_EQ((*it).value, 56);
  EXPECT_EQ(std::ranges::distance(steps), 15);
  EXPECT_EQ(steps.end()[-1].value, 98);
#if !defined(__clang__) || __clang_major__ >= 15  // clang 14 cannot build libstdc++ 12's range adaptors
  auto reversed = steps | std::views::reverse;
  EXPECT_EQ((*reversed.begin()).offset, 14);
#endif
}

TEST(VeltoStridedEnumeratorDeathTest, offsetsOutOfRangeStop) {
  const auto steps = VeltoStridedEnumerator<int>::makeTo(0, 3, 1).value();
  EXPECT_DEATH({ [[maybe_unused]] auto e = steps[3]; }, "offset out of range");
  EXPECT_DEATH({ [[maybe_unused]] auto e = steps[-1]; }, "offset out of range");
}

}  // namespace
