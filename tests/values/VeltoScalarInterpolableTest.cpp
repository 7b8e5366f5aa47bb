#include <velto/values/VeltoScalarInterpolable.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

namespace {

static_assert(VeltoScalarInterpolable<int> && VeltoScalarInterpolable<float> && VeltoScalarInterpolable<std::uint64_t>);
static_assert(!VeltoScalarInterpolable<bool> && !VeltoScalarInterpolable<int*>);

template <class T>
void convertsEveryDoubleWithoutUndefinedBehaviour(std::mt19937_64& random) {
  using Limits = std::numeric_limits<T>;
  const double lowest = static_cast<double>(Limits::lowest()), highest = static_cast<double>(Limits::max());
  for (int i = 0; i < 20000; ++i) {
    // Any bit pattern: NaNs, infinities, subnormals and values far beyond T's range.
    const std::uint64_t bits = random();
    double scalar;
    static_assert(sizeof scalar == sizeof bits);
    std::memcpy(&scalar, &bits, sizeof scalar);
    const T value = velto::detail::fromScalar<T>(scalar);
    if (std::isnan(scalar)) {
      ASSERT_EQ(value, T{});
    } else if (std::round(scalar) <= lowest) {
      ASSERT_EQ(value, Limits::lowest()) << scalar;
    } else if (std::round(scalar) >= highest) {
      ASSERT_EQ(value, Limits::max()) << scalar;
    } else {
      ASSERT_EQ(static_cast<double>(value), std::round(scalar)) << scalar;
    }
  }
}

// Run under UBSan, which reports an out-of-range float-to-integer conversion.
TEST(VeltoScalarInterpolable, integersRoundToNearestAndSaturateForAnyDouble) {
  std::mt19937_64 random(17);
  convertsEveryDoubleWithoutUndefinedBehaviour<std::int8_t>(random);
  convertsEveryDoubleWithoutUndefinedBehaviour<std::uint16_t>(random);
  convertsEveryDoubleWithoutUndefinedBehaviour<int>(random);
  convertsEveryDoubleWithoutUndefinedBehaviour<std::int64_t>(random);
  convertsEveryDoubleWithoutUndefinedBehaviour<std::uint64_t>(random);
  EXPECT_EQ(velto::detail::fromScalar<int>(2.5), 3);
  EXPECT_EQ(velto::detail::fromScalar<int>(-2.5), -3);
  EXPECT_EQ(velto::detail::fromScalar<std::int64_t>(9223372036854775807.0), std::numeric_limits<std::int64_t>::max())
      << "2^63 is one past the maximum";
  EXPECT_EQ(velto::detail::fromScalar<std::int64_t>(-9223372036854775808.0), std::numeric_limits<std::int64_t>::min());
}

TEST(VeltoScalarInterpolable, floatsOverflowToInfinities) {
  EXPECT_EQ(velto::detail::fromScalar<float>(1e300), std::numeric_limits<float>::infinity());
  EXPECT_EQ(velto::detail::fromScalar<float>(-1e300), -std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(velto::detail::fromScalar<float>(std::nan(""))));
  EXPECT_EQ(velto::detail::fromScalar<float>(0.5), 0.5f);
}

}  // namespace
