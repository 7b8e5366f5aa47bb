#include <velto/collections/VeltoRangeSequence.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <vector>

namespace {

using Ints = VeltoRangeSequence<int>;
using Range = VeltoClosedRange<int>;

// The one shortest description of `values` as closed ranges.
std::vector<Range> runsOf(const std::set<int>& values) {
  std::vector<Range> runs;
  for (int v : values) {
    if (!runs.empty() && runs.back().upperBound() + 1 == v) {
      runs.back() = Range(runs.back().lowerBound(), v);
    } else {
      runs.push_back(Range::fromDiscrete(v));
    }
  }
  return runs;
}

// Inserts and removals against a set of the values held: the sequence must always be exactly
// that set's shortest description, and every query must agree with the set.
TEST(VeltoRangeSequence, isTheShortestDescriptionOfTheValuesItHolds) {
  std::mt19937 random(19);
  Ints sequence;
  std::set<int> model;
  const auto drawRange = [&] {
    const int a = static_cast<int>(random() % 61) - 30;
    return Range(a, a + static_cast<int>(random() % (random() % 3 == 0 ? 12 : 3)));
  };
  for (int step = 0; step < 20000; ++step) {
    const Range range = drawRange();
    if (random() % 3 == 0) {
      sequence.remove(range);
      for (int v = range.lowerBound(); v <= range.upperBound(); ++v) model.erase(v);
    } else {
      sequence.insert(range);
      for (int v = range.lowerBound(); v <= range.upperBound(); ++v) model.insert(v);
    }
    ASSERT_EQ(sequence.ranges(), runsOf(model)) << "after step " << step;

    const Range probe = drawRange();
    const int value = probe.lowerBound();
    ASSERT_EQ(sequence.contains(value), model.count(value) == 1);
    bool all = true, any = false;
    for (int v = probe.lowerBound(); v <= probe.upperBound(); ++v) {
      all = all && model.count(v) == 1;
      any = any || model.count(v) == 1;
    }
    ASSERT_EQ(sequence.contains(probe), all);
    ASSERT_EQ(sequence.overlaps(probe), any);
    std::set<int> missing;
    for (int v = probe.lowerBound(); v <= probe.upperBound(); ++v) {
      if (!model.count(v)) missing.insert(v);
    }
    ASSERT_EQ(sequence.gaps(probe).ranges(), runsOf(missing));
  }
}

TEST(VeltoRangeSequence, integerLimitsNeitherOverflowNorStopJoining) {
  using Limits = std::numeric_limits<std::int8_t>;
  VeltoRangeSequence<std::int8_t> bytes;
  bytes.insert(VeltoClosedRange<std::int8_t>(100, Limits::max()));
  bytes.insert(VeltoClosedRange<std::int8_t>(Limits::min(), -100));
  bytes.insert(VeltoClosedRange<std::int8_t>(-99, 99));
  ASSERT_EQ(bytes.count(), 1) << "adjacent ranges join across the whole type";
  EXPECT_EQ(bytes.ranges()[0], VeltoClosedRange<std::int8_t>(Limits::min(), Limits::max()));
  EXPECT_TRUE(bytes.gaps(VeltoClosedRange<std::int8_t>(Limits::min(), Limits::max())).isEmpty());
  bytes.remove(Limits::max());
  bytes.remove(Limits::min());
  EXPECT_EQ(bytes.ranges()[0], VeltoClosedRange<std::int8_t>(Limits::min() + 1, Limits::max() - 1));
  const auto missing = bytes.gaps(VeltoClosedRange<std::int8_t>(Limits::min(), Limits::max()));
  EXPECT_EQ(missing.count(), 2);

  VeltoRangeSequence<std::uint64_t> offsets;
  offsets.insert(std::numeric_limits<std::uint64_t>::max());
  offsets.insert(0);
  EXPECT_EQ(offsets.count(), 2);
  EXPECT_EQ(offsets.gaps(VeltoClosedRange<std::uint64_t>(0, std::numeric_limits<std::uint64_t>::max())).ranges(),
            (std::vector<VeltoClosedRange<std::uint64_t>>{{1, std::numeric_limits<std::uint64_t>::max() - 1}}));
}

TEST(VeltoRangeSequence, floatingRangesJoinOnlyWhenTheyShareValues) {
  VeltoRangeSequence<double> spans;
  spans.insert(VeltoClosedRange<double>(1, 2));
  spans.insert(VeltoClosedRange<double>(2, 3));       // shares 2: joins
  spans.insert(VeltoClosedRange<double>(3.5, 4));     // a gap: stays apart
  ASSERT_EQ(spans.count(), 2);
  EXPECT_EQ(spans.ranges()[0], VeltoClosedRange<double>(1, 3));
  EXPECT_FALSE(spans.contains(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(spans.contains(3.25));
  EXPECT_EQ(spans.rangeContaining(3.75), VeltoClosedRange<double>(3.5, 4));
  const auto joined = VeltoRangeSequence<double>::fromRanges(std::vector<VeltoClosedRange<double>>{{5, 6}, {0, 1}, {0.5, 5.5}});
  EXPECT_EQ(joined.ranges(), (std::vector<VeltoClosedRange<double>>{{0, 6}}));
}

TEST(VeltoRangeSequence, insertingOneOfItsOwnRangesIsSafe) {
  Ints sequence = Ints::fromRanges(std::vector<Range>{{0, 1}, {5, 6}, {10, 11}});
  sequence.insert(sequence.ranges()[1]);
  sequence.insert(Range(sequence.ranges()[0].lowerBound(), sequence.ranges()[2].upperBound()));
  EXPECT_EQ(sequence.ranges(), (std::vector<Range>{{0, 11}}));
  sequence.remove(sequence.ranges()[0]);
  EXPECT_TRUE(sequence.isEmpty());
}

}  // namespace
