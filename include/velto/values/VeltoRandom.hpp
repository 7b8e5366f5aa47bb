// VeltoRandom: uniform random numbers from the system random source.
//
//   double angle = VeltoRandom::randomDouble(VeltoDoubleDomain::radiansPositive);  // 0 ... 2 pi, both ends
//   int die = VeltoRandom::randomInClosedRange(1, 6);
//   std::size_t slot = VeltoRandom::randomInRange<std::size_t>(0, slots.size());
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "velto/detail/Fatal.hpp"
#include "velto/values/VeltoDoubleDomain.hpp"

namespace velto::detail {

/// 64 random bits from the system source (the kernel-seeded generator behind arc4random).
/// Thread-safe; never fails.
[[nodiscard]] std::uint64_t systemRandomWord() noexcept;
/// A uniform value in 0 ... bound - 1, unbiased. REQUIRES: bound > 0.
[[nodiscard]] std::uint64_t systemRandomBelow(std::uint64_t bound) noexcept;

}  // namespace velto::detail

/// Static operations only; holds no state. Thread safety: every operation may be called from
/// any thread (the system source is thread-safe).
class VeltoRandom {
 public:
  VeltoRandom() = delete;

  /// A double drawn uniformly from the closed interval between the domain's two bounds,
  /// whichever order they are stored in (only min and max are read). Draws k uniformly from
  /// 0 ... 2^53 by rejection sampling and returns lower + width x k x 2^-53, or exactly the upper
  /// bound for k = 2^53. REQUIRES: the width is finite (no NaN, no infinite bound, no overflow),
  /// else a fatal stop.
  [[nodiscard]] static double randomDouble(const VeltoDoubleDomain& domain) noexcept;

  /// A value drawn uniformly from lower ... upper, both included. REQUIRES: lower <= upper, else
  /// a fatal stop (an empty range).
  template <std::integral T>
    requires(!std::same_as<T, bool>)
  [[nodiscard]] static T randomInClosedRange(T lower, T upper) noexcept {
    if (upper < lower) velto::detail::fatalStop("VeltoRandom: closed range with upper < lower");
    using Unsigned = std::make_unsigned_t<T>;
    const std::uint64_t span = static_cast<std::uint64_t>(static_cast<Unsigned>(static_cast<Unsigned>(upper) - static_cast<Unsigned>(lower)));
    const std::uint64_t offset = span == std::numeric_limits<std::uint64_t>::max()
                                     ? velto::detail::systemRandomWord()
                                     : velto::detail::systemRandomBelow(span + 1);
    return static_cast<T>(static_cast<Unsigned>(static_cast<Unsigned>(lower) + static_cast<Unsigned>(offset)));
  }

  /// A value drawn uniformly from lower ... upper - 1. REQUIRES: lower < upper, else a fatal
  /// stop (an empty range).
  template <std::integral T>
    requires(!std::same_as<T, bool>)
  [[nodiscard]] static T randomInRange(T lower, T upper) noexcept {
    if (!(lower < upper)) velto::detail::fatalStop("VeltoRandom: empty half-open range");
    return randomInClosedRange<T>(lower, static_cast<T>(upper - 1));
  }
};
