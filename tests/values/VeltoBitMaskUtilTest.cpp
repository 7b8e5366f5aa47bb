#include <velto/values/VeltoBitMaskUtil.hpp>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};

TEST(VeltoBitMaskUtil, readsBitsFromTheLeastSignificant) {
  EXPECT_TRUE(VeltoBitMaskUtil::is(0, 1));
  EXPECT_FALSE(VeltoBitMaskUtil::is(1, 1));
  EXPECT_TRUE(VeltoBitMaskUtil::is(63, std::uint64_t{1} << 63));
  EXPECT_FALSE(VeltoBitMaskUtil::is(62, std::uint64_t{1} << 63));
}

TEST(VeltoBitMaskUtil, outOfRangeIndicesReadFalse) {
  EXPECT_FALSE(VeltoBitMaskUtil::is(64, kAllOnes));
  EXPECT_FALSE(VeltoBitMaskUtil::is(-1, kAllOnes));
  EXPECT_FALSE(VeltoBitMaskUtil::is(INT64_MIN, kAllOnes));
}

TEST(VeltoBitMaskUtil, setsAndClearsOneBit) {
  std::uint64_t word = 0;
  VeltoBitMaskUtil::set(63, true, word);
  EXPECT_EQ(word, std::uint64_t{1} << 63);
  VeltoBitMaskUtil::set(0, true, word);
  VeltoBitMaskUtil::set(0, true, word);
  EXPECT_EQ(word, (std::uint64_t{1} << 63) | 1);
  VeltoBitMaskUtil::set(63, false, word);
  EXPECT_EQ(word, 1u);
  VeltoBitMaskUtil::set(5, false, word);
  EXPECT_EQ(word, 1u);
}

TEST(VeltoBitMaskUtil, outOfRangeIndicesWriteNothing) {
  for (std::int64_t index : {std::int64_t{64}, std::int64_t{-1}, std::int64_t{1000}}) {
    std::uint64_t ones = kAllOnes, zeros = 0;
    VeltoBitMaskUtil::set(index, false, ones);
    VeltoBitMaskUtil::set(index, true, zeros);
    EXPECT_EQ(ones, kAllOnes) << index;
    EXPECT_EQ(zeros, 0u) << index;
  }
}

}  // namespace
