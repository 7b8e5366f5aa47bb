#include "velto/values/VeltoRandom.hpp"

#include <stdlib.h>  // arc4random_buf (glibc 2.36)

#include <cmath>

namespace {

__extension__ using Uint128 = unsigned __int128;

constexpr std::uint64_t kTwoTo53 = std::uint64_t{1} << 53;
// 2^64 mod (2^53 + 1): words whose low product half falls below it are redrawn.
constexpr std::uint64_t kRejectBelow = 0x1FFFFFFFFFF801;

}  // namespace

namespace velto::detail {

std::uint64_t systemRandomWord() noexcept {
  std::uint64_t word = 0;
  arc4random_buf(&word, sizeof word);
  return word;
}

std::uint64_t systemRandomBelow(std::uint64_t bound) noexcept {
  // Multiply-and-reject: the high half of word x bound is uniform once the low halves that
  // would over-represent some results are redrawn.
  const std::uint64_t threshold = (0 - bound) % bound;
  for (;;) {
    const Uint128 product = static_cast<Uint128>(systemRandomWord()) * bound;
    if (static_cast<std::uint64_t>(product) >= threshold) return static_cast<std::uint64_t>(product >> 64);
  }
}

}  // namespace velto::detail

double VeltoRandom::randomDouble(const VeltoDoubleDomain& domain) noexcept {
  const double lower = domain.min() < domain.max() ? domain.min() : domain.max();
  const double upper = domain.min() < domain.max() ? domain.max() : domain.min();
  const double width = upper - lower;
  if (!std::isfinite(width)) velto::detail::fatalStop("VeltoRandom: interval width is not finite");
  Uint128 product = 0;
  do {
    product = static_cast<Uint128>(velto::detail::systemRandomWord()) * (kTwoTo53 + 1);
  } while (static_cast<std::uint64_t>(product) < kRejectBelow);
  const std::uint64_t k = static_cast<std::uint64_t>(product >> 64);
  if (k == kTwoTo53) return upper;
  return lower + width * (static_cast<double>(k) * 0x1p-53);
}
