#include <velto/collections/VeltoSortedArray.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <latch>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ints = VeltoSortedArray<int>;
using First = Ints::FirstElementComparator<int>;
using Last = Ints::LastElementComparator<int>;
using Index = Ints::Index;

constexpr std::size_t kAlwaysBisect = 1;
constexpr std::size_t kNeverBisect = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kThresholds[] = {kAlwaysBisect, kNeverBisect, Ints::defaultBinarySearchThreshold};

const auto identity = [](int x) { return x; };

First firstComparator(bool orEqual, int bound) {
  return orEqual ? First(First::greaterThanOrEqualTo(identity, bound)) : First(First::greaterThan(identity, bound));
}
Last lastComparator(bool orEqual, int bound) {
  return orEqual ? Last(Last::lessThanOrEqualTo(identity, bound)) : Last(Last::lessThan(identity, bound));
}

// Sorted values 0, 10, 20, ... each repeated `run` times, so that every bound from -10 to the
// largest + 10 in steps of 5 puts the cut at every run boundary (at every index when run is 1).
std::vector<int> sortedValues(int n, int run) {
  std::vector<int> values;
  for (int i = 0; i < n; ++i) values.push_back(i / run * 10);
  return values;
}
std::vector<int> boundsFor(const std::vector<int>& values) {
  std::vector<int> bounds;
  for (int b = -10; b <= (values.empty() ? 0 : values.back()) + 10; b += 5) bounds.push_back(b);
  return bounds;
}

std::optional<Index> referenceFirst(const std::vector<int>& values, const std::function<bool(int)>& matches) {
  const auto cut = std::partition_point(values.begin(), values.end(), [&](int x) { return !matches(x); });
  if (cut == values.end()) return std::nullopt;
  return cut - values.begin();
}
std::optional<Index> referenceLast(const std::vector<int>& values, const std::function<bool(int)>& matches) {
  const auto cut = std::partition_point(values.begin(), values.end(), matches);
  if (cut == values.begin()) return std::nullopt;
  return cut - values.begin() - 1;
}

// Every query that cuts the array (first, last, the trims, suffix, prefix, straddling, nearest)
// against partition_point or a linear scan, at every cut, by scan and by bisection.
TEST(VeltoSortedArray, cutsAgreeWithPartitionPointAtEveryCut) {
  using Straddling = Ints::StraddlingResult;
  for (int run : {1, 3}) {
    for (int n = 0; n <= 40; ++n) {
      const auto values = sortedValues(n, run);
      const auto tail = [&](Index from) { return std::vector<int>(values.begin() + from, values.end()); };
      const auto head = [&](Index to) { return std::vector<int>(values.begin(), values.begin() + to); };
      for (int bound : boundsFor(values)) {
        // Straddling and nearest by a linear scan; ties go to the earlier element.
        const Index above = std::upper_bound(values.begin(), values.end(), bound) - values.begin();
        const Straddling straddling = n == 0 ? Straddling::none()
                                      : above == 0 ? Straddling::beforeFirst(values[0])
                                      : values[above - 1] == bound ? Straddling::exactly(bound)
                                      : above == n ? Straddling::afterLast(values.back())
                                                   : Straddling::between(values[above - 1], values[above]);
        std::optional<Index> nearest;
        for (Index i = 0; i < n; ++i) {
          if (!nearest || std::abs(values[i] - bound) < std::abs(values[*nearest] - bound)) nearest = i;
        }
        for (bool orEqual : {false, true}) {
          const First first = firstComparator(orEqual, bound);
          const Last last = lastComparator(orEqual, bound);
          const auto expectedFirst = referenceFirst(values, [&](int x) { return first.matches(x); });
          const auto expectedLast = referenceLast(values, [&](int x) { return last.matches(x); });
          for (std::size_t threshold : kThresholds) {
            SCOPED_TRACE(::testing::Message() << "n " << n << " run " << run << " bound " << bound << " orEqual " << orEqual
                                              << " threshold " << threshold);
            const Ints array = Ints::fromSorted(values, threshold, std::less<int>());
            ASSERT_EQ(array.firstIndex(first), expectedFirst);
            ASSERT_EQ(array.lastIndex(last), expectedLast);
            // The same with the projection inlined rather than in a std::function.
            const auto inlined = Ints::FirstElementComparator<int>::greaterThan([](const int& x) { return x; }, bound);
            ASSERT_EQ(array.firstIndex(inlined), array.firstIndex(First::greaterThan(identity, bound)));
            ASSERT_EQ(array.first(first), expectedFirst ? std::optional<int>(values[*expectedFirst]) : std::nullopt);
            ASSERT_EQ(array.last(last), expectedLast ? std::optional<int>(values[*expectedLast]) : std::nullopt);

            Ints trimmed = array;
            trimmed.removeBeforeFirst(first);
            ASSERT_EQ(trimmed.elements(), expectedFirst ? tail(*expectedFirst) : values) << "nothing matching leaves it whole";
            trimmed = array;
            trimmed.removeFromEnd(first);
            ASSERT_EQ(trimmed.elements(), expectedFirst ? head(*expectedFirst) : values);
            trimmed = array;
            trimmed.removeFromBeginning(last);
            ASSERT_EQ(trimmed.elements(), expectedLast ? tail(*expectedLast + 1) : values);
            ASSERT_EQ(trimmed.count(), static_cast<Index>(trimmed.elements().size()));
            const auto suffix = array.suffix(first);
            ASSERT_EQ(suffix ? std::optional(suffix->elements()) : std::nullopt,
                      expectedFirst ? std::optional(tail(*expectedFirst)) : std::nullopt);
            const auto prefix = array.prefix(last);
            ASSERT_EQ(prefix ? std::optional(prefix->elements()) : std::nullopt,
                      expectedLast ? std::optional(head(*expectedLast + 1)) : std::nullopt);

            ASSERT_EQ(array.straddling(identity, bound), straddling);
            ASSERT_EQ(array.nearestIndex(identity, bound), nearest);
            ASSERT_EQ(array.nearest(identity, bound), nearest ? std::optional<int>(values[*nearest]) : std::nullopt);
          }
        }
      }
    }
  }
}

// Each probe calls the projection once. A scan walks from the end that matches and stops at the
// first non-match; bisection makes at most two probes per halving.
TEST(VeltoSortedArray, scansWalkFromTheMatchingEndAndBisectionsProbeLogarithmically) {
  for (int n = 1; n <= 40; ++n) {
    const auto values = sortedValues(n, 1);
    for (int cut = 0; cut <= n; ++cut) {
      int probes = 0;
      const auto counted = [&probes](int x) {
        ++probes;
        return x;
      };
      const auto first = Ints::FirstElementComparator<int>::greaterThanOrEqualTo(counted, cut * 10);
      const auto last = Ints::LastElementComparator<int>::lessThan(counted, cut * 10);
      const int maxBisectionProbes = 2 * (std::bit_width(static_cast<unsigned>(n)) + 1);
      const Ints scanned = Ints::fromSorted(values, kNeverBisect, std::less<int>());
      const Ints bisected = Ints::fromSorted(values, kAlwaysBisect, std::less<int>());
      probes = 0;
      (void)scanned.firstIndex(first);
      EXPECT_EQ(probes, (n - cut) + (cut > 0 ? 1 : 0)) << "n " << n << " cut " << cut;
      probes = 0;
      (void)scanned.lastIndex(last);
      EXPECT_EQ(probes, cut + (cut < n ? 1 : 0)) << "n " << n << " cut " << cut;
      probes = 0;
      (void)bisected.firstIndex(first);
      EXPECT_LE(probes, maxBisectionProbes) << "n " << n << " cut " << cut;
      probes = 0;
      (void)bisected.lastIndex(last);
      EXPECT_LE(probes, maxBisectionProbes) << "n " << n << " cut " << cut;
    }
  }
}

TEST(VeltoSortedArray, defaultThresholdScansSevenElementsAndBisectsEight) {
  int probes = 0;
  const auto counted = [&probes](int x) {
    ++probes;
    return x;
  };
  // Only the last element matches: a scan probes it and its neighbour; bisection probes the
  // last element, the midpoint and the new last.
  for (const auto& [n, expectedProbes] : {std::pair{7, 2}, std::pair{8, 3}}) {
    const Ints array = Ints::fromUnsorted(sortedValues(n, 1));
    probes = 0;
    EXPECT_EQ(array.firstIndex(Ints::FirstElementComparator<int>::greaterThan(counted, (n - 2) * 10)), n - 1);
    EXPECT_EQ(probes, expectedProbes) << n << " elements";
  }
}

// The bisection rules written as stated, recursively: on patterns that are not a suffix or a
// prefix (an inconsistent comparator) the answer depends on exactly which elements are probed.
Index statedFirst(const std::vector<bool>& matches, Index lo, Index hi) {
  if (lo >= hi) return -1;
  const Index last = hi - 1;
  if (!matches[last]) return -1;
  if (lo >= last) return last;
  const Index mid = lo + (hi - lo) / 2;
  if (!matches[mid]) {
    const Index found = statedFirst(matches, mid + 1, last);
    return found >= 0 ? found : last;
  }
  const Index found = statedFirst(matches, lo, mid);
  return found >= 0 ? found : mid;
}
Index statedLast(const std::vector<bool>& matches, Index lo, Index hi) {
  if (lo >= hi) return -1;
  if (!matches[lo]) return -1;
  if (lo >= hi - 1) return lo;
  const Index mid = lo + (hi - lo) / 2;
  if (!matches[mid]) {
    const Index found = statedLast(matches, lo + 1, mid);
    return found >= 0 ? found : lo;
  }
  const Index found = statedLast(matches, mid + 1, hi);
  return found >= 0 ? found : mid;
}

TEST(VeltoSortedArray, bisectionFollowsTheStatedRulesOnAnyMatchPattern) {
  std::mt19937 random(11);
  std::vector<std::vector<bool>> patterns;
  for (int n = 0; n <= 12; ++n) {
    for (unsigned bits = 0; bits < (1u << n); ++bits) {
      std::vector<bool> pattern(static_cast<std::size_t>(n));
      for (int i = 0; i < n; ++i) pattern[static_cast<std::size_t>(i)] = (bits >> i) & 1u;
      patterns.push_back(pattern);
    }
  }
  for (int i = 0; i < 2000; ++i) {
    std::vector<bool> pattern(random() % 41);
    for (auto&& bit : pattern) bit = random() % 2 == 0;
    patterns.push_back(pattern);
  }
  for (const auto& pattern : patterns) {
    std::vector<int> indices(pattern.size());
    for (std::size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<int>(i);
    const Ints array = Ints::fromSorted(indices, kAlwaysBisect, std::less<int>());
    const auto flag = [&pattern](int i) { return pattern[static_cast<std::size_t>(i)] ? 1 : 0; };
    const auto toOptional = [](Index i) { return i < 0 ? std::nullopt : std::optional<Index>(i); };
    const Index n = static_cast<Index>(pattern.size());
    ASSERT_EQ(array.firstIndex(First::greaterThan(flag, 0)), toOptional(statedFirst(pattern, 0, n)));
    ASSERT_EQ(array.lastIndex(Last::lessThan([&](int i) { return 1 - flag(i); }, 1)), toOptional(statedLast(pattern, 0, n)));
  }
}

TEST(VeltoSortedArray, indexSubRangeAgreesWithPartitionPointForEveryPairOfBounds) {
  for (int run : {1, 3}) {
    for (int n = 0; n <= 40; ++n) {
      const auto values = sortedValues(n, run);
      const auto bounds = boundsFor(values);
      const Ints array = Ints::fromSorted(values, std::nullopt, std::less<int>());
      for (int lowerBound : bounds) {
        for (int upperBound : bounds) {
          for (int kinds = 0; kinds < 4; ++kinds) {
            const Ints::RangeComparator<int> range(firstComparator(kinds & 1, lowerBound), lastComparator(kinds & 2, upperBound));
            std::optional<Ints::ClosedIndexRange> expected;
            if (const auto lower = referenceFirst(values, [&](int x) { return range.lowerBoundComparator().matches(x); })) {
              const auto cut = std::partition_point(values.begin() + *lower, values.end(),
                                                    [&](int x) { return range.upperBoundComparator().matches(x); });
              if (cut - values.begin() > *lower) expected = Ints::ClosedIndexRange{*lower, cut - values.begin() - 1};
            }
            ASSERT_EQ(array.indexSubRange(range), expected)
                << "n " << n << " run " << run << " bounds " << lowerBound << ".." << upperBound << " kinds " << kinds;
            if (n > 12) continue;  // the copies below need no more than the small arrays
            const std::vector<int> slice =
                expected ? std::vector<int>(values.begin() + expected->lowerBound, values.begin() + expected->upperBound + 1)
                         : std::vector<int>();
            ASSERT_EQ(array.subRange(range).elements(), slice);
            const auto enumerated = array.enumeratedSubRange(range);
            ASSERT_EQ(enumerated.size(), slice.size());
            for (std::size_t i = 0; i < enumerated.size(); ++i) {
              EXPECT_EQ(enumerated[i].offset, expected->lowerBound + static_cast<Index>(i)) << "offsets index the whole array";
              EXPECT_EQ(enumerated[i].element, slice[i]);
            }
          }
        }
      }
    }
  }
}

TEST(VeltoSortedArray, answersLikePartitionPointOnAMillionElements) {
  std::mt19937 random(7);
  std::vector<int> values(1'000'000);
  for (int& v : values) v = static_cast<int>(random() % 2'000'000);
  std::sort(values.begin(), values.end());
  const Ints array = Ints::fromSorted(values);
  for (int i = 0; i < 1000; ++i) {
    const int bound = static_cast<int>(random() % 2'000'100) - 50;
    const auto first = First::greaterThanOrEqualTo(identity, bound);
    ASSERT_EQ(array.firstIndex(first), referenceFirst(values, [&](int x) { return x >= bound; }));
    ASSERT_EQ(array.lastIndex(Last::lessThan(identity, bound)), referenceLast(values, [&](int x) { return x < bound; }));
  }
}

// Elements with equal keys stay distinguishable by their serial number.
struct Keyed {
  int key;
  int serial;
  friend bool operator==(const Keyed&, const Keyed&) = default;
};
const auto byKey = [](const Keyed& a, const Keyed& b) { return a.key < b.key; };
using KeyedArray = VeltoSortedArray<Keyed>;

TEST(VeltoSortedArray, insertPlacesEachElementInsideItsRunAndReturnsItsIndex) {
  std::mt19937 random(3);
  for (std::size_t threshold : kThresholds) {
    KeyedArray array(threshold, byKey);
    for (int serial = 0; serial < 600; ++serial) {
      const Keyed element{static_cast<int>(random() % 10), serial};
      const auto& before = array.elements();
      const auto runBegin = std::lower_bound(before.begin(), before.end(), element, byKey) - before.begin();
      const auto runEnd = std::upper_bound(before.begin(), before.end(), element, byKey) - before.begin();
      const Index at = array.insert(element);
      ASSERT_GE(at, runBegin);
      ASSERT_LE(at, runEnd);
      ASSERT_EQ(array[at], element) << "the returned index holds the inserted element";
      ASSERT_EQ(array.count(), serial + 1);
      ASSERT_TRUE(std::is_sorted(array.begin(), array.end(), byKey));
    }
  }
}

// Bisection meets the middle of a run of equals first, so the newcomer goes there, not at an end.
TEST(VeltoSortedArray, insertIntoARunOfEqualsGoesWhereBisectionMeetsIt) {
  for (int n = 1; n <= 9; ++n) {
    KeyedArray array(byKey);
    for (int i = 0; i < n; ++i) array.insertContentsOf({Keyed{5, i}});
    EXPECT_EQ(array.insert(Keyed{5, 99}), n / 2) << n << " equal elements";
  }
  KeyedArray stable = KeyedArray::fromUnsorted({Keyed{2, 0}, Keyed{1, 1}, Keyed{2, 2}, Keyed{1, 3}}, std::nullopt, byKey);
  EXPECT_EQ(stable.elements(), (std::vector<Keyed>{{1, 1}, {1, 3}, {2, 0}, {2, 2}})) << "sorting keeps equal keys in order";
  EXPECT_EQ(stable.indexOf(Keyed{2, 42}), 2) << "the first of the equivalent elements";
  stable.remove(Keyed{1, 42});
  EXPECT_EQ(stable.elements(), (std::vector<Keyed>{{1, 3}, {2, 0}, {2, 2}}));
  EXPECT_FALSE(stable.contains(Keyed{3, 0}));
  stable.remove(Keyed{3, 0});
  EXPECT_EQ(stable.count(), 3);
}

TEST(VeltoSortedArray, mutationsMatchASortedVectorModel) {
  std::mt19937 random(5);
  const auto pick = [&](Index limit) { return static_cast<Index>(random() % static_cast<unsigned>(limit + 1)); };
  for (std::size_t threshold : kThresholds) {
    Ints array(threshold, std::less<int>());
    std::vector<int> model;
    for (int step = 0; step < 3000; ++step) {
      const int value = static_cast<int>(random() % 50);
      const Index n = static_cast<Index>(model.size());
      switch (random() % 12) {
        case 0:
        case 1:
          (void)array.insert(value);
          model.push_back(value);
          break;
        case 2: {
          const std::vector<int> more{value, value + 1, value, static_cast<int>(random() % 50)};
          array.insertContentsOf(more);
          model.insert(model.end(), more.begin(), more.end());
          break;
        }
        case 3:
          if (n > 0) {
            const Index at = pick(n - 1);
            ASSERT_EQ(array.removeAt(at), model[static_cast<std::size_t>(at)]);
            model.erase(model.begin() + at);
          }
          break;
        case 4: {
          array.remove(value);
          const auto found = std::find(model.begin(), model.end(), value);
          if (found != model.end()) model.erase(found);
          break;
        }
        case 5: {
          const Index lower = pick(n);
          const Index upper = lower + pick(n - lower);
          array.removeSubrange(lower, upper);
          model.erase(model.begin() + lower, model.begin() + upper);
          break;
        }
        case 6:
          if (n > 0) {
            const Index lower = pick(n - 1);
            const Index upper = lower + pick(n - 1 - lower);
            array.removeSubrange(Ints::ClosedIndexRange{lower, upper});
            model.erase(model.begin() + lower, model.begin() + upper + 1);
          }
          break;
        case 7: {
          const Index k = pick(std::min<Index>(n, 3));
          if (random() % 2) {
            array.removeFirst(k);
            model.erase(model.begin(), model.begin() + k);
          } else {
            array.removeLast(k);
            model.erase(model.end() - k, model.end());
          }
          break;
        }
        case 8:
          if (n > 0) {
            ASSERT_EQ(array.removeFirst(), model.front());
            model.erase(model.begin());
            if (n > 1) {
              ASSERT_EQ(array.removeLast(), model.back());
              model.pop_back();
            }
          }
          break;
        case 9:
          array.removeBeforeFirst(First::greaterThan(identity, value));
          if (std::any_of(model.begin(), model.end(), [&](int x) { return x > value; })) {
            std::erase_if(model, [&](int x) { return x <= value; });
          }
          break;
        case 10:
          if (random() % 2) {
            array.removeFromBeginning(Last::lessThanOrEqualTo(identity, value / 4));
            std::erase_if(model, [&](int x) { return x <= value / 4; });
          } else {
            array.removeFromEnd(First::greaterThanOrEqualTo(identity, 50 - value / 4));
            std::erase_if(model, [&](int x) { return x >= 50 - value / 4; });
          }
          break;
        case 11:
          if (random() % 20 == 0) {
            array.removeAll(random() % 2 == 0);
            model.clear();
          }
          break;
      }
      std::sort(model.begin(), model.end());
      ASSERT_EQ(array.elements(), model) << "step " << step;
      ASSERT_EQ(array.count(), static_cast<Index>(model.size()));
      ASSERT_EQ(array.isEmpty(), model.empty());
      ASSERT_EQ(array.min(), model.empty() ? std::nullopt : std::optional<int>(model.front()));
      ASSERT_EQ(array.max(), model.empty() ? std::nullopt : std::optional<int>(model.back()));
    }
  }
}

TEST(VeltoSortedArray, insertContentsOfItselfAndOfLazyViews) {
  Ints array = Ints::fromUnsorted({3, 1, 2});
  array.insertContentsOf(array);
  EXPECT_EQ(array.elements(), (std::vector<int>{1, 1, 2, 2, 3, 3}));
#if !defined(__clang__) || __clang_major__ >= 15  // clang 14 cannot build libstdc++ 12's range adaptors
  array.insertContentsOf(array.elements() | std::views::transform([](int x) { return x * 10; }));
#else
  std::vector<int> tenfold;
  for (const int x : array.elements()) tenfold.push_back(x * 10);
  array.insertContentsOf(tenfold);
#endif
  EXPECT_EQ(array.count(), 12);
  EXPECT_EQ(array.max(), 30);
  Ints kept = array;
  kept.removeAll(true);
  EXPECT_GE(kept.elements().capacity(), 12u);
  array.removeAll();
  EXPECT_EQ(array.elements().capacity(), 0u);
}

// An ordering that is not a strict weak ordering gives meaningless positions but stays in bounds.
TEST(VeltoSortedArray, anInconsistentOrderingNeverReadsOutOfBounds) {
  std::mt19937 random(9);
  Ints array(kAlwaysBisect, [&random](int, int) { return random() % 2 == 0; });
  for (int i = 0; i < 2000; ++i) {
    const Index at = array.insert(i);
    ASSERT_EQ(array[at], i);
    if (const auto found = array.indexOf(i)) {
      ASSERT_LT(*found, array.count());
    }
    if (i % 3 == 0) array.remove(i / 2);
  }
  EXPECT_EQ(array.count(), static_cast<Index>(array.elements().size()));
}

TEST(VeltoSortedArray, nearestMeasuresIntegerDistancesWithoutOverflow) {
  using Wide = VeltoSortedArray<std::int64_t>;
  const auto self = [](std::int64_t x) { return x; };
  constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
  constexpr auto highest = std::numeric_limits<std::int64_t>::max();
  const Wide wide = Wide::fromSorted({lowest, highest});
  EXPECT_EQ(wide.nearest(self, 0), highest) << "2^63 - 1 away beats 2^63 away";
  EXPECT_EQ(wide.nearest(self, -1), lowest);
  using Unsigned = VeltoSortedArray<std::uint64_t>;
  const auto unsignedSelf = [](std::uint64_t x) { return x; };
  const Unsigned halves = Unsigned::fromSorted({0, std::numeric_limits<std::uint64_t>::max()});
  EXPECT_EQ(halves.nearest(unsignedSelf, std::uint64_t{1} << 63), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(halves.nearest(unsignedSelf, (std::uint64_t{1} << 63) - 1), 0u) << "a tie goes to the earlier element";
}

TEST(VeltoSortedArray, nearestAsksTheCallerOnlyBetweenTwoElements) {
  const auto array = KeyedArray::fromSorted({Keyed{10, 0}, Keyed{20, 1}}, std::nullopt, byKey);
  std::vector<std::tuple<int, int, int>> asked;
  const auto preferNext = [&](const Keyed& previous, const Keyed& next, int target) {
    asked.emplace_back(previous.key, next.key, target);
    return false;
  };
  EXPECT_EQ(array.nearest(&Keyed::key, 11, preferNext), (Keyed{20, 1}));
  EXPECT_EQ(array.nearest(&Keyed::key, 10, preferNext), (Keyed{10, 0}));
  EXPECT_EQ(array.nearest(&Keyed::key, 5, preferNext), (Keyed{10, 0}));
  EXPECT_EQ(array.nearest(&Keyed::key, 25, preferNext), (Keyed{20, 1}));
  EXPECT_EQ(asked, (std::vector<std::tuple<int, int, int>>{{10, 20, 11}}));
  EXPECT_EQ(array.nearest(&Keyed::key, 19, [](const Keyed&, const Keyed&, int) { return true; }), (Keyed{10, 0}));
}

TEST(VeltoSortedArray, containingRangeSpansBothBoundsByItsNeighbours) {
  EXPECT_TRUE(Ints::fromSorted({10, 20}).containingRange(identity, 25, 15).isEmpty()) << "an upper bound below the lower";
  // Against a linear scan of the rule, on random arrays with many duplicates (empty, bounds
  // outside, bounds on runs of equals), scanned and bisected.
  std::mt19937 random(13);
  for (int i = 0; i < 3000; ++i) {
    std::vector<int> values(random() % 12);
    for (int& v : values) v = static_cast<int>(random() % 8);
    std::sort(values.begin(), values.end());
    const int lower = static_cast<int>(random() % 10) - 1;
    const int upper = lower + static_cast<int>(random() % 4);
    std::vector<int> expected;
    if (!values.empty()) {
      Index start = 0, stop = static_cast<Index>(values.size()) - 1;
      for (Index j = 0; j < static_cast<Index>(values.size()); ++j) {
        if (values[static_cast<std::size_t>(j)] <= lower) start = j;
      }
      for (Index j = static_cast<Index>(values.size()) - 1; j >= 0; --j) {
        if (values[static_cast<std::size_t>(j)] >= upper) stop = j;
      }
      expected.assign(values.begin() + std::min(start, stop), values.begin() + std::max(start, stop) + 1);
    }
    ASSERT_EQ(Ints::fromSorted(values).containingRange(identity, lower, upper).elements(), expected)
        << "bounds " << lower << ".." << upper;
  }
}

TEST(VeltoSortedArray, everySortedResultKeepsTheOrderingAndThreshold) {
  const Ints descending = Ints::fromUnsorted({1, 5, 3, 9, 7}, 3, std::greater<int>());
  EXPECT_EQ(descending.elements(), (std::vector<int>{9, 7, 5, 3, 1}));
  const auto everyOne = [](int) { return true; };
  const auto alwaysOk = [](int) { return VeltoResult<bool>(true); };
  std::vector<Ints> results{*descending.suffix(First::greaterThan([](int x) { return -x; }, -8)),
                            *descending.prefix(Last::lessThan([](int x) { return -x; }, -4)),
                            descending.suffix(2),
                            descending.prefix(99),
                            descending.subRange(Ints::RangeComparator<int>(First::greaterThan([](int x) { return -x; }, -9),
                                                                           Last::lessThan([](int x) { return -x; }, -2))),
                            descending.filter(everyOne),
                            descending.filter(alwaysOk).value(),
                            descending.containingRange([](int x) { return -x; }, -8, -4)};
  for (Ints& result : results) {
    EXPECT_EQ(result.binarySearchThreshold(), 3u);
    result.insert(6);
    EXPECT_TRUE(std::is_sorted(result.begin(), result.end(), std::greater<int>())) << ::testing::PrintToString(result.elements());
  }
  EXPECT_EQ(results[0].elements(), (std::vector<int>{7, 6, 5, 3, 1}));
  EXPECT_EQ(results[2].elements(), (std::vector<int>{6, 3, 1}));
  EXPECT_EQ(descending.prefix(0).count(), 0);
}

TEST(VeltoSortedArray, mapStopsAtTheFirstFailureAndWrapsIt) {
  const Ints array = Ints::fromSorted({1, 2, 3, 4, 5});
  int calls = 0;
  const auto half = [&calls](int x) -> VeltoResult<double> {
    ++calls;
    if (x == 3) return VeltoResult<double>::fromMessage("Odd one out");
    return x / 2.0;
  };
  const VeltoResult<std::vector<double>> ok = Ints::fromSorted({2, 4}).map(half);
  EXPECT_EQ(ok.value(), (std::vector<double>{1.0, 2.0}));
  calls = 0;
  const std::uint64_t line = __LINE__; const auto failed = array.map(half);
  ASSERT_TRUE(failed.isFailure());
  EXPECT_EQ(calls, 3) << "no element after the failing one is transformed";
  EXPECT_EQ(failed.error().message(), "Odd one out");
  const auto& frames = failed.error().stackFrames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[1].codeSite().fileName(), "Data Structures/VeltoSortedArray");
  EXPECT_EQ(frames[1].codeSite().functionName(), "map(_:)");
  ASSERT_TRUE(frames[1].invokerSite().has_value());
  EXPECT_EQ(frames[1].invokerSite()->lineNumber(), line);
  const auto* args = frames[1].args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  ASSERT_NE(args->find("index"), nullptr);
  EXPECT_EQ(*args->find("index")->get<Index>(), 2);
  EXPECT_TRUE(Ints().map(half).value().empty());
}

TEST(VeltoSortedArray, filterPassesOnItsPredicatesFailure) {
  const Ints array = Ints::fromSorted({1, 2, 3, 4});
  EXPECT_EQ(array.filter([](int x) { return x % 2 == 0; }).elements(), (std::vector<int>{2, 4}));
  const VeltoError refusal("No odd numbers", {});
  int calls = 0;
  const auto failing = array.filter([&](int x) -> VeltoResult<bool> {
    ++calls;
    if (x % 2) return VeltoResult<bool>::failure(refusal);
    return true;
  });
  ASSERT_TRUE(failing.isFailure());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(failing.error().uuid(), refusal.uuid());
  EXPECT_EQ(failing.error().stackFrames().size(), refusal.stackFrames().size()) << "passed on unchanged";
  EXPECT_THROW((void)array.filter([](int x) -> bool { return x < 3 ? true : throw std::runtime_error("predicate"); }),
               std::runtime_error);
  EXPECT_EQ(array.count(), 4);
}

struct Approximate {
  double value;
  bool equals(const Approximate& other, VeltoPrecision tolerance) const { return std::abs(value - other.value) < tolerance.value(); }
  friend bool operator<(const Approximate& lhs, const Approximate& rhs) { return lhs.value < rhs.value; }
};

TEST(VeltoSortedArray, equalityComparesElementsOnlyAndToleranceComparesPairwise) {
  EXPECT_EQ(Ints::fromSorted({1, 2}, 1, std::less<int>()), Ints::fromSorted({1, 2}, 99, std::less<int>()));
  EXPECT_NE(Ints::fromSorted({1, 2}), Ints::fromSorted({1, 2, 2}));
  using Approximates = VeltoSortedArray<Approximate>;
  const auto a = Approximates::fromSorted({{1.0}, {2.0}});
  EXPECT_TRUE(a.equals(Approximates::fromSorted({{1.05}, {1.95}}), VeltoPrecision(0.1)));
  EXPECT_FALSE(a.equals(Approximates::fromSorted({{1.0}, {2.1}}), VeltoPrecision(0.1))) << "the tolerance is strict";
  EXPECT_FALSE(a.equals(Approximates::fromSorted({{1.0}}), VeltoPrecision(10)));
  EXPECT_TRUE(Approximates().equals(Approximates(), VeltoPrecision(0)));
}

TEST(VeltoSortedArray, debugOutputNamesTheCases) {
  const auto render = [](const auto& value) {
    return boost::json::parse(
        VeltoDynamicDebugEncoder::encodeToString(value, VeltoDynamicDebugEncoderOptions::forLogging()).value());
  };
  EXPECT_EQ(render(Ints::StraddlingResult::between(3, 5)), boost::json::parse(R"({"between":{"previous":3,"next":5}})"));
  EXPECT_EQ(render(Ints::StraddlingResult::exactly(3)), boost::json::parse(R"({"exactly":3})"));
  EXPECT_EQ(render(Ints::StraddlingResult::none()), "none");
  const auto comparator = render(First::greaterThanOrEqualTo(identity, 4));
  ASSERT_TRUE(comparator.is_object()) << comparator;
  EXPECT_EQ(comparator.as_object().at("greaterThanOrEqualTo").at("isGreaterThanOrEqualTo"), 4) << comparator;
  EXPECT_EQ(render(Last::lessThan(identity, 4)).at("lessThan").at("isLessThan"), 4);
  EXPECT_EQ(render(Ints::fromSorted({1, 2})), boost::json::parse("[1,2]"));
}

TEST(VeltoSortedArray, constQueriesRunConcurrently) {
  std::vector<int> values(10'000);
  for (int i = 0; i < 10'000; ++i) values[static_cast<std::size_t>(i)] = i;
  const Ints shared = Ints::fromSorted(values);
  std::latch start(4);
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int b = t; b < 10'000; b += 7) {
        if (shared.firstIndex(First::greaterThanOrEqualTo(identity, b)) != b) ++wrong[static_cast<std::size_t>(t)];
        if (shared.nearestIndex(identity, b) != b) ++wrong[static_cast<std::size_t>(t)];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(VeltoSortedArrayDeathTest, outOfRangeIndicesAndCountsStop) {
  Ints array = Ints::fromSorted({1, 2, 3});
  EXPECT_DEATH((void)array.removeAt(-1), "index out of range");
  EXPECT_DEATH((void)array.removeAt(3), "index out of range");
  EXPECT_DEATH((void)array[3], "index out of range");
  EXPECT_DEATH(array.removeSubrange(2, 1), "out of bounds");
  EXPECT_DEATH(array.removeSubrange(0, 4), "out of bounds");
  EXPECT_DEATH(array.removeSubrange(Ints::ClosedIndexRange{1, 3}), "out of bounds");
  EXPECT_DEATH(array.removeFirst(4), "count out of range");
  EXPECT_DEATH(array.removeLast(-1), "count out of range");
  EXPECT_DEATH((void)Ints().removeFirst(), "empty array");
  EXPECT_DEATH((void)Ints().removeLast(), "empty array");
  EXPECT_DEATH((void)array.prefix(-1), "negative length");
  EXPECT_DEATH((void)array.suffix(-1), "negative length");
}

TEST(VeltoSortedArrayDeathTest, indexOverflowAndEmptyCallablesStop) {
  EXPECT_DEATH((void)Ints::indexAfter(std::numeric_limits<Index>::max()), "overflows");
  EXPECT_DEATH((void)Ints::indexBefore(std::numeric_limits<Index>::min()), "overflows");
  EXPECT_DEATH((void)Ints(Ints::Ordering{}), "ordering predicate is empty");
  EXPECT_DEATH((void)First::greaterThan(std::function<int(const int&)>(), 1), "projection is empty");
  EXPECT_DEATH((void)Ints::fromSorted({1}).straddling(static_cast<int (*)(const int&)>(nullptr), 1), "projection is empty");
}

}  // namespace
