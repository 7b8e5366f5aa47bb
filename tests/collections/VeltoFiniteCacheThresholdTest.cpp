#include <velto/collections/VeltoFiniteCacheThreshold.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace {

// A threshold travels in failure arguments and logs: it renders both measures by name.
TEST(VeltoFiniteCacheThreshold, rendersBothMeasuresInDebugOutput) {
  const VeltoFiniteCacheThreshold<std::size_t> threshold(2, 4);
  EXPECT_EQ(threshold.postPurgeTarget(), 2u);
  EXPECT_EQ(threshold.purgeTriggerThresholdInc(), 4u);
  EXPECT_EQ(threshold, (VeltoFiniteCacheThreshold<std::size_t>(2, 4)));
  EXPECT_NE(threshold, (VeltoFiniteCacheThreshold<std::size_t>(4, 2)));
  auto json = VeltoDynamicDebugEncoder::encodeToString(
      VeltoFiniteCacheThreshold<double>(0.5, 1.5), VeltoDynamicDebugEncoderOptions({.includeAddresses = false, .prettyPrint = false}));
  ASSERT_TRUE(json) << json.error().message();
  EXPECT_EQ(json.value(), R"({"postPurgeTarget":0.5,"purgeTriggerThresholdInc":1.5})");
}

}  // namespace
