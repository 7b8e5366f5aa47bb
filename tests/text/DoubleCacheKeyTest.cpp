#include <velto/text/DoubleCacheKey.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Plain : VeltoDoubleFormattable {
  VeltoResult<std::string> formatDouble(double value, std::string_view) const override { return std::to_string(value); }
};

// Equality is by bit pattern: -0 and +0 differ, and a NaN equals itself (but not a NaN with
// another payload); the probe's hash and equality agree with the key made from it.
TEST(DoubleCacheKey, comparesDoublesByBitsForKeysAndProbesAlike) {
  const auto format = std::make_shared<Plain>();
  const std::shared_ptr<const VeltoDoubleFormattable> shared = format;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double otherNan = std::bit_cast<double>(std::bit_cast<std::uint64_t>(nan) | 1);
  const std::vector<double> values = {0.0, -0.0, nan, otherNan, 1.5, -1.5, std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::denorm_min()};
  EXPECT_NE(DoubleCacheKey(0.0, shared, "en"), DoubleCacheKey(-0.0, shared, "en"));
  EXPECT_EQ(DoubleCacheKey(nan, shared, "en"), DoubleCacheKey(nan, shared, "en"));
  EXPECT_NE(DoubleCacheKey(nan, shared, "en"), DoubleCacheKey(otherNan, shared, "en"));

  const DoubleCacheKey::Hash hash;
  const DoubleCacheKey::Equal equal;
  std::mt19937 random(4);
  for (int i = 0; i < 3'000; ++i) {
    const DoubleCacheKey key(values[random() % values.size()], shared, (random() % 2 != 0) ? "en" : "fr");
    const DoubleCacheKey::Probe probe{values[random() % values.size()], shared, (random() % 2 != 0) ? "en" : "fr"};
    const DoubleCacheKey fromProbe(probe);
    ASSERT_EQ(hash(probe), hash(fromProbe));
    ASSERT_EQ(equal(probe, key), fromProbe == key);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(fromProbe.double_()), std::bit_cast<std::uint64_t>(probe.double_));
    if (fromProbe == key) {
      ASSERT_EQ(hash(key), hash(probe));
    }
  }
}

}  // namespace
