#include <velto/text/IntegerCacheKey.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Plain : VeltoIntegerFormattable {
  VeltoResult<std::string> formatInteger(std::int64_t integer, std::string_view) const override { return std::to_string(integer); }
};

// Keys and probes over small pools collide often: wherever a probe and a key are equal, the
// transparent hash and equality must agree with the key made from the probe, or lookups that
// borrow would miss entries (or hit the wrong ones).
TEST(IntegerCacheKey, probesHashAndCompareExactlyAsTheKeysTheyStandFor) {
  const std::vector<std::shared_ptr<const VeltoIntegerFormattable>> formats = {std::make_shared<Plain>(), std::make_shared<Plain>()};
  const std::vector<std::string> locales = {"en_US", "de_DE", "", "a-very-long-locale-identifier@numbers=arab"};
  const std::vector<std::int64_t> integers = {0, -1, 1, std::numeric_limits<std::int64_t>::min()};
  std::mt19937 random(3);
  const IntegerCacheKey::Hash hash;
  const IntegerCacheKey::Equal equal;
  int equalPairs = 0;
  for (int i = 0; i < 5'000; ++i) {
    const IntegerCacheKey key(formats[random() % 2], integers[random() % 4], locales[random() % 4]);
    const std::string locale = locales[random() % 4];
    const IntegerCacheKey::Probe probe{formats[random() % 2], integers[random() % 4], locale};
    const IntegerCacheKey fromProbe(probe);
    ASSERT_EQ(hash(probe), hash(fromProbe));
    ASSERT_EQ(equal(probe, key), fromProbe == key);
    ASSERT_EQ(equal(key, probe), fromProbe == key);
    if (fromProbe == key) {
      ASSERT_EQ(hash(key), hash(probe));
      ++equalPairs;
    }
  }
  EXPECT_GT(equalPairs, 50);
  // Alike formats are still different keys.
  EXPECT_NE(IntegerCacheKey(formats[0], 1, "en_US"), IntegerCacheKey(formats[1], 1, "en_US"));
}

}  // namespace
