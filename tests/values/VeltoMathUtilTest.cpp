#include <velto/values/VeltoMathUtil.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using I64 = std::int64_t;
using U64 = std::uint64_t;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(VeltoMathUtil, angleConversions) {
  EXPECT_EQ(VeltoMathUtil::circumference(0.5), 3.141592653589793);
  EXPECT_EQ(VeltoMathUtil::radiansFrom(180), VeltoMathUtil::radiansInHalfCircle);
  EXPECT_EQ(VeltoMathUtil::radiansFrom(90), 90.0 / 180 * 3.141592653589793) << "divide first";
  EXPECT_EQ(VeltoMathUtil::degreesFrom(VeltoMathUtil::radiansInQuarterCircle), 90);
  EXPECT_EQ(VeltoMathUtil::degreesFrom(-VeltoMathUtil::radiansInCircle), -360);
  EXPECT_TRUE(std::isnan(VeltoMathUtil::radiansFrom(kNaN)));
}

TEST(VeltoMathUtil, roundingToAStep) {
  EXPECT_EQ(VeltoMathUtil::roundTo(2.5, 1), 3);
  EXPECT_EQ(VeltoMathUtil::roundTo(-2.5, 1), -3) << "halves away from zero";
  EXPECT_EQ(VeltoMathUtil::roundTo(7.4, 0.5), 7.5);
  EXPECT_EQ(VeltoMathUtil::ceil(7.1, 2.0), 8);
  EXPECT_EQ(VeltoMathUtil::ceil(-7.0, 5.0), -5) << "the double form does round up";
  EXPECT_EQ(VeltoMathUtil::floor(-7.0, 5.0), -10);
  EXPECT_TRUE(std::isnan(VeltoMathUtil::ceil(3.0, 0.0)));
  EXPECT_TRUE(std::isnan(VeltoMathUtil::floor(3.0, 0.0)));
  EXPECT_EQ(VeltoMathUtil::roundTo(kInf, 1), kInf);
  EXPECT_TRUE(std::isnan(VeltoMathUtil::roundTo(1, 0))) << "0 x infinity";
}

TEST(VeltoMathUtil, integerCeilKeepsItsRuleForNegatives) {
  EXPECT_EQ(VeltoMathUtil::ceil(I64{10}, I64{5}), 10);
  EXPECT_EQ(VeltoMathUtil::ceil(I64{11}, I64{5}), 15);
  EXPECT_EQ(VeltoMathUtil::ceil(I64{-7}, I64{5}), 0) << "deliberately not -5";
  EXPECT_EQ(VeltoMathUtil::ceil(I64{-10}, I64{5}), -10);
  EXPECT_EQ(VeltoMathUtil::ceil(I64{7}, I64{-5}), 0) << "7 + (-5 - 2)";
  EXPECT_EQ(VeltoMathUtil::ceil(I64{-7}, I64{-5}), -10) << "-7 + (-5 + 2)";
  EXPECT_EQ(VeltoMathUtil::ceil(I64{0}, I64{3}), 0);
  EXPECT_EQ(VeltoMathUtil::ceil(std::numeric_limits<I64>::min(), I64{1}), std::numeric_limits<I64>::min());
  EXPECT_EQ(VeltoMathUtil::ceil(std::numeric_limits<I64>::max() - 2, I64{2}), std::numeric_limits<I64>::max() - 1);
}

TEST(VeltoMathUtilDeathTest, integerCeilStopsOnBadStepsAndOverflow) {
  EXPECT_DEATH((void)VeltoMathUtil::ceil(I64{5}, I64{0}), "step of 0");
  EXPECT_DEATH((void)VeltoMathUtil::ceil(std::numeric_limits<I64>::min(), I64{-1}), "overflows");
  EXPECT_DEATH((void)VeltoMathUtil::ceil(std::numeric_limits<I64>::max(), I64{2}), "overflows");
  EXPECT_DEATH((void)VeltoMathUtil::ceil(I64{-1}, std::numeric_limits<I64>::max()), "overflows");
}

TEST(VeltoMathUtil, powerTests) {
  EXPECT_TRUE(VeltoMathUtil::is(8.0, 2.0));
  EXPECT_FALSE(VeltoMathUtil::is(10.0, 2.0));
  EXPECT_TRUE(VeltoMathUtil::is(1.0, 7.0)) << "7^0";
  EXPECT_TRUE(VeltoMathUtil::is(U64{1024}, U64{2}));
  EXPECT_TRUE(VeltoMathUtil::is(U64{1} << 63, 2)) << "mixed integer types";
  EXPECT_TRUE(VeltoMathUtil::is(~U64{0}, 2)) << "2^64 - 1 converts to the double 2^64: the arithmetic as written";
  EXPECT_TRUE(VeltoMathUtil::is(-8, -8) == VeltoMathUtil::is(-8.0, -8.0)) << "integers go through doubles (NaN here)";
  EXPECT_FALSE(VeltoMathUtil::is(kNaN, 2.0));
}

TEST(VeltoMathUtil, powersOfABaseAroundX) {
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThan(2.0, 8.0), 16);
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThan(2.0, 9.0), 16);
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThanOrEqualTo(2.0, 8.0), 8);
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThanOrEqualTo(2.0, 9.0), 16);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThan(2.0, 8.0), 4);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThan(2.0, 9.0), 8);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThanOrEqualTo(2.0, 9.0), 8);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThanOrEqualTo(2.0, 0.25), 0.25);
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThan(U64{2}, U64{8}), 16u);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThan(U64{2}, U64{1}), 0u) << "2^-1 truncates to 0";
  EXPECT_EQ(VeltoMathUtil::powerOfGreaterThanOrEqualTo(U64{10}, U64{999}), 1000u);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThanOrEqualTo(U64{2}, U64{1} << 63), U64{1} << 63);
  EXPECT_EQ(VeltoMathUtil::powerOfLessThanOrEqualTo(2.0, 0.0), 0) << "log(0) is -infinity";
}

TEST(VeltoMathUtilDeathTest, unsignedPowersStopOutsideTheRange) {
  EXPECT_DEATH((void)VeltoMathUtil::powerOfGreaterThan(U64{2}, U64{1} << 63), "64-bit range");
  EXPECT_DEATH((void)VeltoMathUtil::powerOfLessThan(U64{0}, U64{5}), "not finite") << "0 ^ -1";
  EXPECT_DEATH((void)VeltoMathUtil::powerOfLessThan(U64{0}, U64{0}), "not finite") << "0 ^ NaN";
  EXPECT_DEATH((void)VeltoMathUtil::powerOfGreaterThanOrEqualTo(U64{3}, ~U64{0}), "64-bit range") << "3 ^ 41";
}

TEST(VeltoMathUtil, leastSquaresYieldsTheMeanUnlessSingular) {
  EXPECT_FALSE(VeltoMathUtil::leastSquaresInterpolation({}, 1).has_value());
  EXPECT_EQ(VeltoMathUtil::leastSquaresInterpolation({{3, 7}}, 100), 7);
  EXPECT_EQ(VeltoMathUtil::leastSquaresInterpolation({{0, 0}, {1, 2}, {2, 4}}, 10), 2) << "the mean, deliberately";
  EXPECT_EQ(VeltoMathUtil::leastSquaresInterpolation({{0, 1}, {1, 2}, {2, 3}, {3, 6}}, -3), 3);
  // Equal x values make the system singular: the line's value is an infinity or NaN.
  const auto singular = VeltoMathUtil::leastSquaresInterpolation({{1, 1}, {1, 3}}, 2);
  ASSERT_TRUE(singular.has_value());
  EXPECT_FALSE(std::isfinite(*singular));
  EXPECT_TRUE(std::isnan(*VeltoMathUtil::leastSquaresInterpolation({{1, 1}, {1, 1}, {1, 1}}, 2)));
}

}  // namespace
