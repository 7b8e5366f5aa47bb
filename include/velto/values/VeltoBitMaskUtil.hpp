// VeltoBitMaskUtil: reading and writing single bits of 64-bit words (bit 0 is the least
// significant).
//
//   std::uint64_t flags = 0;
//   VeltoBitMaskUtil::set(3, true, flags);       // flags == 8
//   bool on = VeltoBitMaskUtil::is(3, flags);    // true
#pragma once

#include <cstdint>

/// Static operations only; holds no state. An index outside 0 ... 63 is not an error: it reads
/// as false and writes nothing. Thread safety: pure functions.
class VeltoBitMaskUtil {
 public:
  VeltoBitMaskUtil() = delete;

  /// Whether bit `bitIndex` of `word` is 1; false for an index outside 0 ... 63.
  [[nodiscard]] static constexpr bool is(std::int64_t bitIndex, std::uint64_t word) noexcept {
    return bitIndex >= 0 && bitIndex <= 63 && ((word >> bitIndex) & 1U) != 0;
  }

  /// Sets (`to` true) or clears (`to` false) bit `bitIndex` of `word`; an index outside 0 ... 63
  /// leaves the word unchanged.
  static constexpr void set(std::int64_t bitIndex, bool to, std::uint64_t& word) noexcept {
    if (bitIndex < 0 || bitIndex > 63) return;
    const std::uint64_t mask = std::uint64_t{1} << bitIndex;
    word = to ? (word | mask) : (word & ~mask);
  }
};
