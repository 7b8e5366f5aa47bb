#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/values/VeltoDomain.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <unordered_set>

namespace {

using Eligibility = VeltoDoubleDomain::BoundsEligibility;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr Eligibility kEligibilities[] = {Eligibility::allowBothBounds, Eligibility::allowMin, Eligibility::allowMax,
                                          Eligibility::excludeBothBounds};

// Bit-for-bit equality, NaN equal to NaN.
bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b)); }

// Values that exercise every special case: zero, signed zeros, both orientations, NaN, infinities.
double drawValue(std::mt19937& random) {
  static constexpr double special[] = {0.0, -0.0, 1.0, -1.0, 10.0, 0.5, kNaN, kInf, -kInf, 3.0, 7.0};
  if (random() % 3 == 0) return special[random() % std::size(special)];
  return static_cast<double>(static_cast<int>(random() % 41) - 20) / 2;
}

// VeltoDomain<double> is the double domain's arithmetic by construction; this pins that every
// operation, generic ordered ones included, gives exactly the double domain's answer.
TEST(VeltoDomain, ofDoublesAgreesWithTheDoubleDomainOnEveryOperation) {
  std::mt19937 random(11);
  for (int i = 0; i < 20000; ++i) {
    const double lo = drawValue(random), hi = drawValue(random), x = drawValue(random);
    const VeltoDoubleDomain reference(lo, hi), target(drawValue(random), drawValue(random));
    const VeltoDomain<double> domain(lo, hi), into(target.min(), target.max());
    SCOPED_TRACE(::testing::Message() << lo << " ... " << hi << ", x " << x << ", into " << target.min() << " ... " << target.max());
    ASSERT_TRUE(same(domain.range(), reference.range()));
    ASSERT_TRUE(same(domain.trueMin(), reference.trueMin()));
    ASSERT_TRUE(same(domain.trueMax(), reference.trueMax()));
    ASSERT_TRUE(same(domain.clamp(x), reference.clamp(x)));
    ASSERT_TRUE(same(domain.modulo(x), reference.modulo(x)));
    ASSERT_TRUE(same(domain.normalizeOpen(x), reference.normalizeOpen(x)));
    ASSERT_TRUE(same(domain.normalizeClamped(x), reference.normalizeClamped(x)));
    ASSERT_TRUE(same(domain.normalizeModulo(x), reference.normalizeModulo(x)));
    ASSERT_TRUE(same(domain.denormalizeOpen(x), reference.denormalizeOpen(x)));
    ASSERT_TRUE(same(domain.denormalizeClamped(x), reference.denormalizeClamped(x)));
    ASSERT_TRUE(same(domain.lerpOpen(x, into), reference.lerpOpen(x, target)));
    ASSERT_TRUE(same(domain.lerpClamped(x, into), reference.lerpClamped(x, target)));
    ASSERT_TRUE(same(domain.lerpModulo(x, into), reference.lerpModulo(x, target)));
    ASSERT_TRUE(same(reference.lerpModulo(x, into), reference.lerpModulo(x, target)));
    for (const Eligibility eligibility : kEligibilities) {
      ASSERT_EQ(domain.contains(x, eligibility), reference.contains(x, eligibility)) << static_cast<int>(eligibility);
    }
    const VeltoDomain<double> other(target.min(), target.max());
    ASSERT_EQ(domain.contains(other), reference.contains(target));
    const auto meet = domain.intersecting(other);
    const auto referenceMeet = reference.intersecting(target);
    ASSERT_EQ(meet.has_value(), referenceMeet.has_value());
    if (meet) {
      ASSERT_TRUE(same(meet->min(), referenceMeet->min()) && same(meet->max(), referenceMeet->max()));
    }
    const auto hull = domain.unioning(other);
    ASSERT_TRUE(same(hull.min(), reference.unioning(target).min()) && same(hull.max(), reference.unioning(target).max()));
    const double ratio = drawValue(random);
    const auto moved = domain.lerpOpenTowards(ratio, other);
    ASSERT_TRUE(same(moved.min(), reference.lerpOpenTowards(ratio, target).min()));
    ASSERT_TRUE(same(moved.max(), reference.lerpOpenTowards(ratio, target).max()));
    ASSERT_EQ(domain < other, reference < target);
  }
}

// Membership by its rule, for both domains: inside the true bounds, and a bound counts only when
// its eligibility allows it (both, for a point); a reversed domain's min is its upper bound.
// Integer domains clamp as the double domain does.
TEST(VeltoDomain, membershipFollowsOrientationAndEligibilityForDoublesAndIntegers) {
  for (int lo = -3; lo <= 3; ++lo) {
    for (int hi = -3; hi <= 3; ++hi) {
      const VeltoDoubleDomain doubles(lo, hi);
      const VeltoDomain<int> ints(lo, hi);
      EXPECT_EQ(ints.isReversed(), hi < lo);
      for (double x = -4; x <= 4; x += 0.5) {
        SCOPED_TRACE(::testing::Message() << lo << " ... " << hi << " x " << x);
        for (const Eligibility eligibility : kEligibilities) {
          const bool minAllowed = eligibility == Eligibility::allowBothBounds || eligibility == Eligibility::allowMin;
          const bool maxAllowed = eligibility == Eligibility::allowBothBounds || eligibility == Eligibility::allowMax;
          const bool expected = std::min(lo, hi) <= x && x <= std::max(lo, hi) && (x != lo || minAllowed) && (x != hi || maxAllowed);
          ASSERT_EQ(doubles.contains(x, eligibility), expected) << static_cast<int>(eligibility);
          if (x == std::floor(x)) {
            ASSERT_EQ(ints.contains(static_cast<int>(x), eligibility), expected) << static_cast<int>(eligibility);
          }
        }
        if (x == std::floor(x)) {
          ASSERT_EQ(ints.clamp(static_cast<int>(x)), doubles.clamp(x));
        }
      }
    }
  }
  EXPECT_FALSE(VeltoDoubleDomain::normal.contains(kNaN, Eligibility::allowBothBounds));
  EXPECT_FALSE(VeltoDoubleDomain(kNaN, 1).contains(0.5, Eligibility::allowBothBounds));
}

// The conversion itself is pinned in VeltoScalarInterpolableTest; here, that each mapping into an
// integer domain goes through it.
TEST(VeltoDomain, integerResultsRoundToNearestAndSaturate) {
  const VeltoDomain<int> pixels(0, 1920), flipped(1080, 0);
  EXPECT_EQ(pixels.lerpOpen(480, flipped), 810);
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpOpen(0.00027, pixels), 1) << "0.5184 rounds up";
  EXPECT_EQ(VeltoDomain<int>(0, -3).denormalizeOpen(0.5), -2) << "-1.5: halves away from zero";
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpOpen(-1e30, pixels), std::numeric_limits<int>::min());
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpClamped(kNaN, pixels), 1920) << "the clamped position of NaN is 1";
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpModulo(1.25, pixels), 480);
  EXPECT_EQ(VeltoDomain<int>(0, 10).modulo(-3), 7);
}

TEST(VeltoDomain, wideIntegerBoundsNeverOverflow) {
  using Limits = std::numeric_limits<std::int64_t>;
  const VeltoDomain<std::int64_t> everything(Limits::min(), Limits::max());
  EXPECT_EQ(everything.range(), 18446744073709551615.0);
  EXPECT_EQ(everything.denormalizeOpen(1), Limits::max());
  EXPECT_EQ(everything.denormalizeOpen(0), Limits::min());
  EXPECT_EQ(everything.denormalizeClamped(5), Limits::max());
  EXPECT_EQ(everything.lerpOpen(Limits::max(), VeltoDomain<std::uint64_t>(0, std::numeric_limits<std::uint64_t>::max())),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(everything.clamp(Limits::min()), Limits::min());
  EXPECT_TRUE(everything.equals(VeltoDomain<std::int64_t>(Limits::min() + 5, Limits::max()), VeltoPrecision(6)));
}

struct Meters {
  double value;
  explicit Meters(double v) : value(v) {}
  explicit operator double() const { return value; }
  auto operator<=>(const Meters&) const = default;
};
static_assert(VeltoScalarInterpolable<Meters>);

struct Point {
  double x, y;
  Point lerpOpenTowards(double ratio, const Point& towards) const { return {(towards.x - x) * ratio + x, (towards.y - y) * ratio + y}; }
  bool operator==(const Point&) const = default;
};
static_assert(VeltoLinearInterpolable<Point> && !VeltoScalarInterpolable<Point>);

TEST(VeltoDomain, worksOverTypesOfYourOwn) {
  const VeltoDomain<Meters> track(Meters(0), Meters(5));
  EXPECT_EQ(VeltoDoubleDomain::normal.lerpClamped(2, track).value, 5);
  EXPECT_EQ(track.modulo(Meters(7)).value, 2);
  EXPECT_EQ(track.clamp(Meters(-1)).value, 0);

  // Not ordered: bounds and interpolation only.
  const VeltoDomain<Point> path(Point{0, 0}, Point{10, 0});
  const auto halfway = path.lerpOpenTowards(0.5, VeltoDomain<Point>(Point{0, 10}, Point{10, 10}));
  EXPECT_EQ(halfway, VeltoDomain<Point>(Point{0, 5}, Point{10, 5}));

  // Ordered but not numeric: the orientation rules still hold.
  const VeltoDomain<std::string> backwards("pear", "apple");
  EXPECT_TRUE(backwards.isReversed());
  EXPECT_TRUE(backwards.contains("pear", Eligibility::allowMin));
  EXPECT_FALSE(backwards.contains("apple", Eligibility::allowMin));
  EXPECT_EQ(backwards.clamp("zebra"), "pear");
  EXPECT_EQ(backwards.closedRange(), VeltoClosedRange<std::string>("apple", "pear"));
}

TEST(VeltoDomain, convertsToItsRelativesAndHashesWithItsOrientation) {
  EXPECT_EQ(VeltoDomain<double>(VeltoDoubleDomain::normalReversed).doubleDomain(), VeltoDoubleDomain::normalReversed);
  EXPECT_EQ(VeltoDomain<int>(5, 2).closedRange(), VeltoClosedRange<int>(2, 5));
  std::unordered_set<VeltoDomain<int>> seen{VeltoDomain<int>(1, 2), VeltoDomain<int>(2, 1), VeltoDomain<int>(1, 2)};
  EXPECT_EQ(seen.size(), 2u);
}

TEST(VeltoDomain, debugOutputNamesTheBounds) {
  const auto text = VeltoDynamicDebugEncoder::encodeToString(
      VeltoDomain<int>(3, 1), VeltoDynamicDebugEncoderOptions::forLogging().withPrettyPrint(false));
  ASSERT_TRUE(text.hasValue());
  EXPECT_EQ(text.value(), R"({"min":3,"max":1})");
  const auto range = VeltoDynamicDebugEncoder::encodeToString(
      VeltoClosedRange<double>(0.5, 2), VeltoDynamicDebugEncoderOptions::forLogging().withPrettyPrint(false));
  EXPECT_EQ(range.value(), R"({"lowerBound":0.5,"upperBound":2})");
}

TEST(VeltoDomainDeathTest, closedRangeOfUnorderedBoundsStops) {
  EXPECT_DEATH({ [[maybe_unused]] auto range = VeltoDomain<double>(kNaN, 1).closedRange(); }, "lowerBound > upperBound");
}

}  // namespace
