#include <velto/values/VeltoDoubleDomain.hpp>
#include <velto/values/VeltoToleranceComparable.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <limits>
#include <unordered_set>
#include <vector>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

static_assert(VeltoToleranceComparable<VeltoDoubleDomain>);

TEST(VeltoDoubleDomain, storesRangeWithOrientation) {
  const VeltoDoubleDomain up(2, 5), down(5, 2);
  EXPECT_EQ(up.range(), 3);
  EXPECT_EQ(down.range(), -3);
  EXPECT_EQ(down.trueMin(), 2);
  EXPECT_EQ(down.trueMax(), 5);
  EXPECT_EQ(down.mid(), 3.5);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(4).range(), 0);
  EXPECT_EQ(VeltoDoubleDomain::fromClosedRange(1, 3), VeltoDoubleDomain(1, 3));
  EXPECT_EQ(up.replacingMin(0), VeltoDoubleDomain(0, 5));
  EXPECT_EQ(up.replacingMax(9).range(), 7);
  EXPECT_EQ(up.reversed().range(), -3);
}

TEST(VeltoDoubleDomain, staticDomainsHaveTheirBounds) {
  EXPECT_EQ(VeltoDoubleDomain::normal.reversed(), VeltoDoubleDomain::normalReversed);
  EXPECT_EQ(VeltoDoubleDomain::normalReversed.range(), -1);
  EXPECT_EQ(VeltoDoubleDomain::radiansPositive.max(), 6.283185307179586);
  EXPECT_EQ(VeltoDoubleDomain::degreesSplit.range(), 360);
  EXPECT_EQ(VeltoDoubleDomain::greatestFiniteMagnitude.min(), -std::numeric_limits<double>::max());
  EXPECT_EQ(VeltoDoubleDomain::greatestFiniteMagnitude.range(), kInf) << "the overflowing range is intended";
}

TEST(VeltoDoubleDomain, staticDomainsAreTheSameObjectOnEveryThread) {
  std::vector<std::future<const VeltoDoubleDomain*>> readers;
  for (int i = 0; i < 4; ++i) readers.push_back(std::async(std::launch::async, [] { return &VeltoDoubleDomain::degreesSplit; }));
  for (auto& reader : readers) EXPECT_EQ(reader.get(), &VeltoDoubleDomain::degreesSplit);
}

TEST(VeltoDoubleDomain, arithmeticAppliesToBothBoundsAndMayReverse) {
  const auto doubled = VeltoDoubleDomain::normal * -2;
  EXPECT_TRUE(std::signbit(doubled.min())) << "min is -0";
  EXPECT_EQ(doubled.min(), 0);
  EXPECT_EQ(doubled.max(), -2);
  EXPECT_EQ(doubled.range(), -2);
  EXPECT_EQ(VeltoDoubleDomain(1, 3) + 2, VeltoDoubleDomain(3, 5));
  EXPECT_EQ(VeltoDoubleDomain(1, 3) - 1, VeltoDoubleDomain(0, 2));
  EXPECT_EQ(VeltoDoubleDomain(2, 4) / -2, VeltoDoubleDomain(-1, -2));
}

TEST(VeltoDoubleDomain, setOperationsUseTrueBounds) {
  const VeltoDoubleDomain a(0, 1), b(2, 3), c(1, 2), wide(3, -1);
  EXPECT_FALSE(a.intersecting(b).has_value());
  ASSERT_TRUE(a.intersecting(c).has_value());
  EXPECT_EQ(*a.intersecting(c), VeltoDoubleDomain::fromDiscrete(1)) << "touching domains meet in a point";
  EXPECT_EQ(*wide.intersecting(VeltoDoubleDomain(2, 5)), VeltoDoubleDomain(2, 3)) << "increasing orientation";
  EXPECT_EQ(a.unioning(VeltoDoubleDomain(3, 2)), VeltoDoubleDomain(0, 3));
  EXPECT_TRUE(wide.contains(VeltoDoubleDomain(1, 0)));
  EXPECT_TRUE(wide.contains(wide));
  EXPECT_FALSE(a.contains(VeltoDoubleDomain(0.5, 1.5)));
}

TEST(VeltoDoubleDomain, equalsWithinToleranceIsStrictAndIgnoresRange) {
  const VeltoDoubleDomain a(0, 1);
  EXPECT_TRUE(a.equals(VeltoDoubleDomain(0.05, 0.95), VeltoPrecision(0.1)));
  EXPECT_FALSE(a.equals(VeltoDoubleDomain(0.5, 1), VeltoPrecision(0.5))) << "strictly below the tolerance";
  EXPECT_FALSE(a.equals(a, VeltoPrecision(0)));
  EXPECT_FALSE(a.equals(VeltoDoubleDomain(kNaN, 1), VeltoPrecision(10)));
}

TEST(VeltoDoubleDomain, equalityHashingAndOrder) {
  EXPECT_EQ(VeltoDoubleDomain(-0.0, 1), VeltoDoubleDomain(0.0, 1));
  EXPECT_EQ(std::hash<VeltoDoubleDomain>{}(VeltoDoubleDomain(-0.0, 1)), std::hash<VeltoDoubleDomain>{}(VeltoDoubleDomain(0, 1)));
  EXPECT_EQ((VeltoDoubleDomain::normal * -2).hash(), VeltoDoubleDomain(0, -2).hash()) << "-0 hashes as 0";
  EXPECT_NE(VeltoDoubleDomain(0, 1).hash(), VeltoDoubleDomain(1, 0).hash());
  EXPECT_NE(VeltoDoubleDomain(kNaN, 1), VeltoDoubleDomain(kNaN, 1));

  std::unordered_set<VeltoDoubleDomain> set{VeltoDoubleDomain(0, 1), VeltoDoubleDomain(-0.0, 1), VeltoDoubleDomain(1, 0)};
  EXPECT_EQ(set.size(), 2u);

  EXPECT_LT(VeltoDoubleDomain(0, 5), VeltoDoubleDomain(1, 2));
  EXPECT_LT(VeltoDoubleDomain(0, 1), VeltoDoubleDomain(0, 2));
  EXPECT_FALSE(VeltoDoubleDomain(0, 2) < VeltoDoubleDomain(0, 2));
  EXPECT_FALSE(VeltoDoubleDomain(0, 2) < VeltoDoubleDomain(0, 1));
}

TEST(VeltoDoubleDomain, normalizeVariants) {
  const auto& normal = VeltoDoubleDomain::normal;
  const VeltoDoubleDomain down(10, 0);
  EXPECT_EQ(down.normalizeOpen(2.5), 0.75);
  EXPECT_EQ(down.normalizeOpen(-10), 2);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(3).normalizeOpen(7), 0);

  EXPECT_EQ(normal.normalizeClamped(1.5), 1);
  EXPECT_EQ(normal.normalizeClamped(-0.5), 0);
  EXPECT_EQ(normal.normalizeClamped(kNaN), 1) << "NaN is limited to 1";
  EXPECT_EQ(down.normalizeClamped(12), 0);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(3).normalizeClamped(kNaN), 0);

  EXPECT_EQ(normal.normalizeModulo(1.0), 1) << "exactly 1 is not wrapped (deliberate)";
  EXPECT_EQ(normal.normalizeModulo(1.25), 0.25);
  EXPECT_EQ(normal.normalizeModulo(-0.25), 0.75);
  EXPECT_EQ(normal.normalizeModulo(2.0), 0);
  EXPECT_EQ(normal.normalizeModulo(-1.0), 0);
  EXPECT_EQ(VeltoDoubleDomain::degreesPositive.normalizeModulo(450), 0.25);
  EXPECT_TRUE(std::isnan(normal.normalizeModulo(kInf)));
  EXPECT_TRUE(std::isnan(normal.normalizeModulo(kNaN)));
}

TEST(VeltoDoubleDomain, denormalizeAndClamp) {
  const VeltoDoubleDomain up(10, 20), down(20, 10);
  EXPECT_EQ(up.denormalizeOpen(1.5), 25);
  EXPECT_EQ(down.denormalizeOpen(0.25), 17.5);
  EXPECT_EQ(up.denormalizeClamped(1.5), 20);
  EXPECT_EQ(down.denormalizeClamped(1.5), 10);
  EXPECT_EQ(down.denormalizeClamped(-1), 20);

  EXPECT_EQ(up.clamp(5), 10);
  EXPECT_EQ(up.clamp(25), 20);
  EXPECT_EQ(up.clamp(15), 15);
  EXPECT_EQ(up.clamp(kNaN), 10) << "NaN clamps to min";
  EXPECT_EQ(up.clamp(kInf), 20);
  EXPECT_EQ(up.clamp(-kInf), 10);
  EXPECT_EQ(down.clamp(5), 10);
  EXPECT_EQ(down.clamp(25), 20);
  EXPECT_EQ(down.clamp(12), 12);
  EXPECT_EQ(down.clamp(kNaN), 20);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(3).clamp(100), 3);
  EXPECT_EQ(VeltoDoubleDomain(4, kNaN).clamp(100), 4) << "a NaN range gives min";
}

TEST(VeltoDoubleDomain, moduloWrapsByWholeRanges) {
  const VeltoDoubleDomain tens(0, 10);
  EXPECT_EQ(tens.modulo(13), 3);
  EXPECT_EQ(tens.modulo(-3), 7);
  EXPECT_EQ(tens.modulo(10), 0);
  EXPECT_EQ(tens.modulo(-10), 0);
  EXPECT_EQ(tens.modulo(0), 0);
  EXPECT_EQ(tens.modulo(7), 7);
  EXPECT_EQ(VeltoDoubleDomain::degreesPositive.modulo(370), 10);
  EXPECT_EQ(VeltoDoubleDomain::degreesSplit.modulo(-190), 170);
  EXPECT_EQ(VeltoDoubleDomain::degreesSplit.modulo(180), -180);
  EXPECT_EQ(VeltoDoubleDomain::degreesSplit.modulo(-180), -180);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(5).modulo(8), 5);

  const VeltoDoubleDomain reversed(10, 0);
  EXPECT_EQ(reversed.modulo(-3), 7);
  EXPECT_EQ(reversed.modulo(13), 3);
  EXPECT_EQ(reversed.modulo(0), 10) << "max wraps to min";
  EXPECT_TRUE(std::isnan(tens.modulo(kNaN)));
}

TEST(VeltoDoubleDomain, lerpBetweenDomains) {
  const VeltoDoubleDomain celsius(0, 100), fahrenheit(32, 212);
  EXPECT_DOUBLE_EQ(celsius.lerpOpen(37, fahrenheit), 98.6);
  EXPECT_EQ(celsius.lerpOpen(200, fahrenheit), 392);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(1).lerpOpen(5, fahrenheit), 32);
  EXPECT_EQ(celsius.lerpClamped(200, fahrenheit), 212);
  EXPECT_EQ(celsius.lerpClamped(-5, fahrenheit), 32);
  EXPECT_EQ(celsius.lerpClamped(kNaN, fahrenheit), 212) << "NaN position becomes 1";
  EXPECT_EQ(celsius.lerpClamped(50, VeltoDoubleDomain(10, 0)), 5);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(1).lerpClamped(5, fahrenheit), 32);
  EXPECT_EQ(celsius.lerpModulo(150, VeltoDoubleDomain(0, 10)), 5);
  EXPECT_EQ(celsius.lerpModulo(100, VeltoDoubleDomain(0, 10)), 10) << "the end stays the end";

  const auto halfway = VeltoDoubleDomain(0, 10).lerpOpenTowards(0.5, VeltoDoubleDomain(10, 0));
  EXPECT_EQ(halfway, VeltoDoubleDomain::fromDiscrete(5));
  EXPECT_EQ(VeltoDoubleDomain(0, 10).lerpOpenTowards(2, VeltoDoubleDomain(1, 11)), VeltoDoubleDomain(2, 12));
}

TEST(VeltoDoubleDomain, shortestWrappingDistanceGoesTheShortWay) {
  const auto& degrees = VeltoDoubleDomain::degreesPositive;
  EXPECT_EQ(degrees.shortestWrappingDistance(10, 350), 20);
  EXPECT_EQ(degrees.shortestWrappingDistance(10, 190), 180);
  EXPECT_EQ(degrees.shortestWrappingDistance(10, 191), 179);
  EXPECT_EQ(degrees.shortestWrappingDistance(90, 45), 45);
}

TEST(VeltoDoubleDomain, lerpShortestWalksBackOverTheComplementOfALargeSubset) {
  const auto& degrees = VeltoDoubleDomain::degreesPositive;
  const VeltoDoubleDomain large(10, 350);
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpShortest(0, large, degrees), 10);
  // Halfway is 0 degrees; the arithmetic as written lands a hair below 0 (10 - 10.000000000000004)
  // and wraps to 360, the same point of the circle.
  const double halfway = VeltoDoubleDomain::normal.lerpShortest(0.5, large, degrees);
  EXPECT_EQ(halfway, 360);
  EXPECT_LT(degrees.shortestWrappingDistance(halfway, 0), 1e-9);
  EXPECT_EQ(degrees.denormalizeShortest(0.5, large), halfway);
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpShortest(1, large, degrees), 350);
  EXPECT_DOUBLE_EQ(VeltoDoubleDomain::normal.lerpShortest(0.25, large, degrees), 5);
  EXPECT_DOUBLE_EQ(VeltoDoubleDomain::normal.lerpShortest(0.75, large, degrees), 355);

  const VeltoDoubleDomain acrossZero(350, 10);  // range -340: a negative ratio maps directly
  EXPECT_EQ(degrees.denormalizeShortest(0.5, acrossZero), 180);
  EXPECT_EQ(degrees.denormalizeShortest(0.25, VeltoDoubleDomain(0, 90)), 22.5);
  EXPECT_EQ(degrees.denormalizeShortest(1.25, VeltoDoubleDomain(0, 90)), 22.5) << "positions wrap first";
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(3).lerpShortest(9, VeltoDoubleDomain(0, 90), degrees), 0);
}

TEST(VeltoDoubleDomain, weightingCurves) {
  const VeltoDoubleDomain d(0, 2);
  EXPECT_EQ(d.halfCosInterpolateClamped(0), 1);
  EXPECT_EQ(d.halfCosInterpolateClamped(2), -1);
  EXPECT_EQ(d.halfCosInterpolateClamped(5), -1);
  EXPECT_NEAR(d.halfCosInterpolateClamped(1), 0, 1e-15);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(1).halfCosInterpolateClamped(7), 1);
  EXPECT_EQ(d.quarterCosInterpolateClamped(-1), 1);
  EXPECT_EQ(d.quarterCosInterpolateClamped(9), std::cos(1.5707963267948966));
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(1).quarterCosInterpolateClamped(7), 1);
  EXPECT_EQ(d.quadraticInterpolateClamped(0), 1);
  EXPECT_EQ(d.quadraticInterpolateClamped(1), 0.5);
  EXPECT_EQ(d.quadraticInterpolateClamped(2), 0);
  EXPECT_EQ(d.quadraticInterpolateClamped(-4), 1);
  EXPECT_EQ(VeltoDoubleDomain::fromDiscrete(1).quadraticInterpolateClamped(7), 1);
}

TEST(VeltoDoubleDomain, encodesOnlyMinAndMax) {
  const auto encoded = VeltoDoubleDomain(0.1, -2).encodedJson();
  ASSERT_TRUE(encoded.hasValue());
  EXPECT_EQ(encoded.value(), R"({"min":0.1,"max":-2})");
  const auto decoded = VeltoDoubleDomain::makeFromJson(R"({"max": 3, "min": 1.5, "range": 99})");
  ASSERT_TRUE(decoded.hasValue());
  EXPECT_EQ(decoded.value(), VeltoDoubleDomain(1.5, 3)) << "range is recomputed, not read";
  EXPECT_EQ(VeltoDoubleDomain::makeFromJson(encoded.value()).value(), VeltoDoubleDomain(0.1, -2));
  EXPECT_EQ(VeltoDoubleDomain::greatestFiniteMagnitude.encodedJson().value(),
            R"({"min":-1.7976931348623157e+308,"max":1.7976931348623157e+308})");

  EXPECT_EQ(VeltoDoubleDomain(kNaN, 1).encodedJson().error().message(), "Non-finite bound");
  EXPECT_EQ(VeltoDoubleDomain::makeFromJson("[1, 2]").error().message(), "Invalid JSON");
  EXPECT_EQ(VeltoDoubleDomain::makeFromJson("{\"min\": 1").error().message(), "Invalid JSON");
  const auto missing = VeltoDoubleDomain::makeFromJson(R"({"min": 1, "max": "2"})");
  ASSERT_TRUE(missing.isFailure());
  EXPECT_EQ(missing.error().message(), "Missing bound");
  EXPECT_EQ(*missing.error().stackFrames()[0].args().get<VeltoArgs>()->find("key")->get<std::string>(), "max");
}

TEST(VeltoDoubleDomainDeathTest, closedRangeRequiresOrderedBounds) {
  EXPECT_DEATH((void)VeltoDoubleDomain::fromClosedRange(2, 1), "lower <= upper");
  EXPECT_DEATH((void)VeltoDoubleDomain::fromClosedRange(kNaN, 1), "lower <= upper");
}

}  // namespace
