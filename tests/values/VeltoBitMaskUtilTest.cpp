#include <velto/values/VeltoBitMaskUtil.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

// Every index from below 0 to past 63, on random words, against shifts: bit 0 is the least
// significant, and indices outside 0...63 read false and write nothing.
TEST(VeltoBitMaskUtil, readsAndWritesOneBitAndIgnoresIndicesOutOfRange) {
  std::mt19937_64 random(9);
  for (int round = 0; round < 200; ++round) {
    const std::uint64_t word = round < 2 ? -std::uint64_t{static_cast<unsigned>(round)} : random();
    for (const std::int64_t index : {INT64_MIN, std::int64_t{-1}, std::int64_t{64}, std::int64_t{1000}}) {
      EXPECT_FALSE(VeltoBitMaskUtil::is(index, word));
      for (const bool to : {false, true}) {
        std::uint64_t written = word;
        VeltoBitMaskUtil::set(index, to, written);
        ASSERT_EQ(written, word) << index;
      }
    }
    for (std::int64_t index = 0; index < 64; ++index) {
      const std::uint64_t bit = std::uint64_t{1} << index;
      ASSERT_EQ(VeltoBitMaskUtil::is(index, word), (word & bit) != 0) << index;
      for (const bool to : {false, true}) {
        std::uint64_t written = word;
        VeltoBitMaskUtil::set(index, to, written);
        ASSERT_EQ(written, to ? word | bit : word & ~bit) << index << " to " << to;
      }
    }
  }
}

}  // namespace
