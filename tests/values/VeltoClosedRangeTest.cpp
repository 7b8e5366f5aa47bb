#include <velto/values/VeltoClosedRange.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>
#include <string>
#include <unordered_set>

namespace {

using Ints = VeltoClosedRange<int>;

std::set<int> valuesOf(const Ints& range) {
  std::set<int> values;
  for (int v = range.lowerBound(); v <= range.upperBound(); ++v) values.insert(v);
  return values;
}

TEST(VeltoClosedRange, makeRefusesReversedAndUnorderedBounds) {
  const std::uint64_t line = __LINE__ + 1;
  const auto reversed = VeltoClosedRange<double>::make(2, 1);
  ASSERT_TRUE(reversed.isFailure());
  EXPECT_EQ(reversed.error().message(), "Invalid range");
  const auto* args = reversed.error().stackFrames()[0].args().get<VeltoArgs>();
  EXPECT_EQ(*args->find("lowerBound")->get<double>(), 2);
  EXPECT_EQ(*args->find("upperBound")->get<double>(), 1);
  EXPECT_EQ(reversed.error().stackFrames()[0].codeSite().lineNumber(), line)
      << "the caller's line";

  EXPECT_TRUE(VeltoClosedRange<double>::make(std::numeric_limits<double>::quiet_NaN(), 1).isFailure());
  EXPECT_TRUE(VeltoClosedRange<double>::make(0, std::numeric_limits<double>::quiet_NaN()).isFailure());
  EXPECT_EQ(VeltoClosedRange<double>::make(3, 3).value(), VeltoClosedRange<double>::fromDiscrete(3));
  EXPECT_EQ(VeltoClosedRange<std::string>::make("apple", "pear").value().clamp("zebra"), "pear");
}

// Every query against the sets of values the ranges hold, over all small ranges.
TEST(VeltoClosedRange, queriesAgreeWithTheSetsOfValuesTheyHold) {
  std::mt19937 random(7);
  const auto draw = [&] {
    const int a = static_cast<int>(random() % 13) - 6, b = static_cast<int>(random() % 13) - 6;
    return Ints(std::min(a, b), std::max(a, b));
  };
  for (int i = 0; i < 4000; ++i) {
    const Ints a = draw(), b = draw();
    const std::set<int> va = valuesOf(a), vb = valuesOf(b);
    std::set<int> both;
    for (int v : va) {
      if (vb.count(v)) both.insert(v);
    }
    const bool aHoldsB = std::includes(va.begin(), va.end(), vb.begin(), vb.end());
    EXPECT_EQ(a.contains(b), aHoldsB) << a.lowerBound() << ".." << a.upperBound();
    EXPECT_EQ(a.overlaps(b), !both.empty());
    const auto meet = a.intersecting(b);
    ASSERT_EQ(meet.has_value(), !both.empty());
    if (meet) {
      EXPECT_EQ(valuesOf(*meet), both);
    }
    const Ints hull = a.unioning(b);
    EXPECT_TRUE(hull.contains(a) && hull.contains(b));
    EXPECT_TRUE(hull.lowerBound() == a.lowerBound() || hull.lowerBound() == b.lowerBound()) << "no larger than needed";
    EXPECT_TRUE(hull.upperBound() == a.upperBound() || hull.upperBound() == b.upperBound());

    const int probe = static_cast<int>(random() % 17) - 8;
    EXPECT_EQ(a.contains(probe), va.count(probe) == 1);
    const int clamped = a.clamp(probe);
    EXPECT_TRUE(a.contains(clamped));
    if (a.contains(probe)) {
      EXPECT_EQ(clamped, probe);
    }

    const Ints limited = a.clamped(b);
    EXPECT_TRUE(b.contains(limited));
    if (meet) {
      EXPECT_EQ(limited, *meet) << "overlapping ranges clamp to their overlap";
    } else {
      EXPECT_EQ(limited.lowerBound(), limited.upperBound()) << "disjoint: the nearest bound of the limits";
    }
  }
}

TEST(VeltoClosedRange, nanIsNeverInsideAndClampsToTheLowerBound) {
  const VeltoClosedRange<double> unit(0, 1);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(unit.contains(nan));
  EXPECT_EQ(unit.clamp(nan), 0);
  EXPECT_EQ(unit.clamp(-std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(unit.clamp(std::numeric_limits<double>::infinity()), 1);
}

TEST(VeltoClosedRange, comparesWithinToleranceAndHashes) {
  const VeltoClosedRange<double> a(1, 2);
  EXPECT_TRUE(a.equals(VeltoClosedRange<double>(1.05, 1.95), VeltoPrecision(0.1)));
  EXPECT_FALSE(a.equals(VeltoClosedRange<double>(1, 2.1), VeltoPrecision(0.1))) << "strictly below the tolerance";
  const Ints widest(std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  const Ints top = Ints::fromDiscrete(std::numeric_limits<int>::max());
  EXPECT_TRUE(widest.equals(top, VeltoPrecision(1e10))) << "integer distances do not overflow";
  EXPECT_FALSE(widest.equals(top, VeltoPrecision(1e9)));
  std::unordered_set<Ints> seen{Ints(1, 2), Ints(1, 2), Ints(2, 3)};
  EXPECT_EQ(seen.size(), 2u);
}

TEST(VeltoClosedRangeDeathTest, reversedBoundsStopTheProgram) {
  EXPECT_DEATH({ [[maybe_unused]] Ints bad(2, 1); }, "lowerBound > upperBound");
  EXPECT_DEATH({ [[maybe_unused]] VeltoClosedRange<double> bad(std::numeric_limits<double>::quiet_NaN(), 1); },
               "lowerBound > upperBound");
}

}  // namespace
