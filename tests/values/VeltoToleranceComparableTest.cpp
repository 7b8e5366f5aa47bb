#include <velto/values/VeltoToleranceComparable.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>

namespace {

static_assert(VeltoToleranceComparable<double> && VeltoToleranceComparable<std::uint8_t>);
static_assert(!VeltoToleranceComparable<bool> && !VeltoToleranceComparable<const char*>);

TEST(VeltoToleranceComparable, integerDistancesAreExactAtTheExtremes) {
  using Limits = std::numeric_limits<std::int64_t>;
  EXPECT_FALSE(velto::detail::equalsWithin(Limits::min(), Limits::max(), VeltoPrecision(1e19)));
  EXPECT_TRUE(velto::detail::equalsWithin(Limits::min(), Limits::max(), VeltoPrecision(1.9e19)));
  EXPECT_TRUE(velto::detail::equalsWithin(std::uint64_t{0}, std::uint64_t{3}, VeltoPrecision(3.5)));
  EXPECT_FALSE(velto::detail::equalsWithin(std::uint64_t{3}, std::uint64_t{0}, VeltoPrecision(3))) << "strictly below";
  std::mt19937 random(1);
  for (int i = 0; i < 10000; ++i) {
    const auto a = static_cast<std::int8_t>(random()), b = static_cast<std::int8_t>(random());
    const double tolerance = static_cast<double>(random() % 300);
    ASSERT_EQ(velto::detail::equalsWithin(a, b, VeltoPrecision(tolerance)), std::abs(int{a} - int{b}) < tolerance);
  }
}

TEST(VeltoToleranceComparable, nanAndInfinitiesAreNeverWithinTolerance) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(velto::detail::equalsWithin(nan, nan, VeltoPrecision(inf)));
  EXPECT_FALSE(velto::detail::equalsWithin(inf, inf, VeltoPrecision(inf)));
  EXPECT_TRUE(velto::detail::equalsWithin(1.0, 1.25, VeltoPrecision(0.5)));
}

}  // namespace
