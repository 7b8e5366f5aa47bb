#include <velto/values/VeltoRandom.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>

namespace {

// 4000 draws over ten buckets, from a domain in either orientation: every draw in bounds and
// every bucket hit, with overwhelming probability.
TEST(VeltoRandom, randomDoubleCoversTheDomainInEitherOrientation) {
  std::array<int, 10> buckets{};
  for (int i = 0; i < 4000; ++i) {
    const double value = VeltoRandom::randomDouble(i % 2 ? VeltoDoubleDomain(0, 10) : VeltoDoubleDomain(10, 0));
    ASSERT_GE(value, 0);
    ASSERT_LE(value, 10);
    ++buckets[static_cast<std::size_t>(value >= 10 ? 9 : value)];
  }
  for (int count : buckets) EXPECT_GT(count, 200);
  EXPECT_EQ(VeltoRandom::randomDouble(VeltoDoubleDomain::fromDiscrete(4.25)), 4.25);
  EXPECT_EQ(VeltoRandom::randomDouble(VeltoDoubleDomain(-0.0, 0.0)), 0);
}

TEST(VeltoRandom, integerRangesIncludeOrExcludeTheUpperBound) {
  std::array<int, 3> seen{};
  for (int i = 0; i < 600; ++i) {
    const int die = VeltoRandom::randomInClosedRange(-1, 1);
    ASSERT_GE(die, -1);
    ASSERT_LE(die, 1);
    ++seen[static_cast<std::size_t>(die + 1)];
    const unsigned half = VeltoRandom::randomInRange(3u, 5u);
    ASSERT_TRUE(half == 3u || half == 4u);
  }
  for (int count : seen) EXPECT_GT(count, 100);
  EXPECT_EQ(VeltoRandom::randomInClosedRange(7, 7), 7);
  EXPECT_EQ(VeltoRandom::randomInRange<std::int8_t>(-128, -127), -128);
}

TEST(VeltoRandom, fullWidthRangesDoNotOverflow) {
  constexpr auto lo = std::numeric_limits<std::int64_t>::min();
  constexpr auto hi = std::numeric_limits<std::int64_t>::max();
  bool sawNegative = false, sawPositive = false;
  for (int i = 0; i < 64; ++i) {
    const auto value = VeltoRandom::randomInClosedRange(lo, hi);
    sawNegative |= value < 0;
    sawPositive |= value > 0;
  }
  EXPECT_TRUE(sawNegative && sawPositive);
  const auto top = VeltoRandom::randomInClosedRange<std::uint64_t>(std::numeric_limits<std::uint64_t>::max() - 1,
                                                                   std::numeric_limits<std::uint64_t>::max());
  EXPECT_GE(top, std::numeric_limits<std::uint64_t>::max() - 1);
}

TEST(VeltoRandomDeathTest, nonFiniteWidthsAndEmptyRangesStop) {
  EXPECT_DEATH((void)VeltoRandom::randomDouble(VeltoDoubleDomain::greatestFiniteMagnitude), "not finite");
  EXPECT_DEATH((void)VeltoRandom::randomDouble(VeltoDoubleDomain(0, std::numeric_limits<double>::infinity())), "not finite");
  EXPECT_DEATH((void)VeltoRandom::randomDouble(VeltoDoubleDomain(std::numeric_limits<double>::quiet_NaN(), 1)), "not finite");
  EXPECT_DEATH((void)VeltoRandom::randomInClosedRange(2, 1), "upper < lower");
  EXPECT_DEATH((void)VeltoRandom::randomInRange(2, 2), "empty");
}

}  // namespace
