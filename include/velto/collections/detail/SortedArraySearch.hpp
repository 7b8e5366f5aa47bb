// Index searches behind VeltoSortedArray: scans and bisections over [lo, hi) that ask only
// "does the element at i match?", with index arithmetic that stops the program on overflow.
//
// All searches return `kNoIndex` (-1) for "none"; the public type turns that into an optional.
// None of them verifies that the matches form a prefix or a suffix: on a pattern that does not,
// they still return an index in range (or none) and never read outside [lo, hi).
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <type_traits>

#include "velto/detail/Fatal.hpp"

namespace velto::detail::sorted_array {

using Index = std::ptrdiff_t;

inline constexpr Index kNoIndex = -1;

[[nodiscard]] inline Index plus(Index lhs, Index rhs) noexcept {
  Index sum;
  if (__builtin_add_overflow(lhs, rhs, &sum)) fatalStop("VeltoSortedArray: index arithmetic overflows");
  return sum;
}

[[nodiscard]] inline Index minus(Index lhs, Index rhs) noexcept {
  Index difference;
  if (__builtin_sub_overflow(lhs, rhs, &difference)) fatalStop("VeltoSortedArray: index arithmetic overflows");
  return difference;
}

/// lo + (hi - lo) / 2, truncating, for lo <= hi; never (lo + hi) / 2, which overflows for
/// large indices.
[[nodiscard]] inline Index midpoint(Index lo, Index hi) noexcept {
  // hi - lo is not negative here, so halving it as unsigned truncates as the division does.
  return plus(lo, static_cast<Index>(static_cast<std::size_t>(minus(hi, lo)) >> 1));
}

/// `ifTrue` when `condition`, else `ifFalse`, computed without a branch: compilers turn
/// `?:` on a coin-toss condition back into a jump that the predictor loses half the time.
[[nodiscard]] inline Index select(bool condition, Index ifTrue, Index ifFalse) noexcept {
  const Index mask = -static_cast<Index>(condition);
  return ifFalse ^ ((ifTrue ^ ifFalse) & mask);
}

/// The default prefetch hint of the bisections: none.
struct NoPrefetch {
  void operator()(Index) const noexcept {}
};

/// The first match of a suffix-shaped pattern in [lo, hi), by bisection. Each step probes the
/// range's last element, then its midpoint, and leaves the end already known to match out of
/// the sub-search, falling back to that end when the sub-search finds nothing. Iterative: each
/// step at least halves the range, so at most 2 (floor(log2 n) + 2) probes.
///
/// `prefetch(i)` is told, before each midpoint probe, the two indices the next step may probe
/// (one per half), so that on large arrays the memory of both is on its way while this probe
/// is compared; it must not read the element.
template <class MatchesAt, class Prefetch = NoPrefetch>
[[nodiscard]] Index firstMatchByBisection(Index lo, Index hi, MatchesAt&& matchesAt, Prefetch&& prefetch = Prefetch{}) {
  Index fallback = kNoIndex;
  for (;;) {
    if (lo >= hi) return fallback;
    const Index last = minus(hi, 1);
    if (!matchesAt(last)) return fallback;
    if (lo >= last) return last;
    const Index mid = midpoint(lo, hi);
    // Two levels ahead: the midpoints of the four ranges the step after next may search.
    {
      const Index a = lo, b = mid;
      const Index c = mid + 1, d = last;
      const Index m1 = a + (b - a) / 2, m2 = c + (d - c) / 2;
      prefetch(a + (m1 - a) / 2);
      prefetch(m1 + 1 + (b - 1 - m1 - 1) / 2);
      prefetch(c + (m2 - c) / 2);
      prefetch(m2 + 1 + (d - 1 - m2 - 1) / 2);
    }
    const bool midMatches = matchesAt(mid);
    const Index afterMid = plus(mid, 1);
    fallback = select(midMatches, mid, last);
    lo = select(midMatches, lo, afterMid);
    hi = select(midMatches, mid, last);
  }
}

/// The last match of a prefix-shaped pattern in [lo, hi), by bisection: the mirror of
/// firstMatchByBisection (probes lo first, then the midpoint).
template <class MatchesAt, class Prefetch = NoPrefetch>
[[nodiscard]] Index lastMatchByBisection(Index lo, Index hi, MatchesAt&& matchesAt, Prefetch&& prefetch = Prefetch{}) {
  Index fallback = kNoIndex;
  for (;;) {
    if (lo >= hi) return fallback;
    if (!matchesAt(lo)) return fallback;
    if (lo >= minus(hi, 1)) return lo;
    const Index mid = midpoint(lo, hi);
    // Both within (lo, hi), so neither can overflow.
    prefetch(lo + 1 + (mid - lo - 1) / 2);
    prefetch(mid + 1 + (hi - mid - 1) / 2);
    const bool midMatches = matchesAt(mid);
    const Index afterLo = plus(lo, 1);
    const Index afterMid = plus(mid, 1);
    fallback = select(midMatches, mid, lo);
    lo = select(midMatches, afterMid, afterLo);
    hi = select(midMatches, hi, mid);
  }
}

/// The first match in [0, count), scanning from the last element toward the first and stopping
/// at the first element that does not match.
template <class MatchesAt>
[[nodiscard]] Index firstMatchByScan(Index count, MatchesAt&& matchesAt) {
  Index found = kNoIndex;
  for (Index i = count - 1; i >= 0; --i) {
    if (!matchesAt(i)) break;
    found = i;
  }
  return found;
}

/// The last match in [0, count), scanning from the first element forward and stopping at the
/// first element that does not match.
template <class MatchesAt>
[[nodiscard]] Index lastMatchByScan(Index count, MatchesAt&& matchesAt) {
  Index found = kNoIndex;
  for (Index i = 0; i < count; ++i) {
    if (!matchesAt(i)) break;
    found = i;
  }
  return found;
}

template <class>
inline constexpr bool isStdFunction = false;
template <class Signature>
inline constexpr bool isStdFunction<std::function<Signature>> = true;

/// True for a callable that can be empty (std::function, function and member pointers) and is.
template <class Callable>
[[nodiscard]] bool isEmptyCallable(const Callable& callable) noexcept {
  if constexpr (isStdFunction<Callable>) {
    return !callable;
  } else if constexpr (std::is_pointer_v<Callable> || std::is_member_pointer_v<Callable>) {
    return callable == nullptr;
  } else {
    return false;
  }
}

/// Whether `next` is strictly nearer `target` than `previous`: (next - target) < (target -
/// previous). Integers are compared exactly, without the overflow that the subtraction would
/// risk at their extremes; other types use their own subtraction and `<`.
template <class T>
[[nodiscard]] bool nextIsNearer(const T& previous, const T& next, const T& target) {
  if constexpr (std::integral<T> && !std::same_as<T, bool>) {
    using Unsigned = std::make_unsigned_t<T>;
    struct Distance {
      bool negative;
      Unsigned magnitude;
    };
    const auto distance = [](T lhs, T rhs) {
      return lhs >= rhs ? Distance{false, static_cast<Unsigned>(static_cast<Unsigned>(lhs) - static_cast<Unsigned>(rhs))}
                        : Distance{true, static_cast<Unsigned>(static_cast<Unsigned>(rhs) - static_cast<Unsigned>(lhs))};
    };
    const Distance toNext = distance(next, target);
    const Distance fromPrevious = distance(target, previous);
    if (toNext.negative != fromPrevious.negative) return toNext.negative;
    return toNext.negative ? toNext.magnitude > fromPrevious.magnitude : toNext.magnitude < fromPrevious.magnitude;
  } else {
    return (next - target) < (target - previous);
  }
}

}  // namespace velto::detail::sorted_array
