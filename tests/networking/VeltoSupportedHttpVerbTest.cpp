#include <velto/networking/VeltoSupportedHttpVerb.hpp>

#include <gtest/gtest.h>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace {

TEST(VeltoSupportedHttpVerb, convertsOnlyTheExactRawValues) {
  static_assert(rawValue(VeltoSupportedHttpVerb::get) == "GET" && rawValue(VeltoSupportedHttpVerb::post) == "POST");
  EXPECT_EQ(fromRawValue<VeltoSupportedHttpVerb>("POST"), VeltoSupportedHttpVerb::post);
  EXPECT_EQ(fromRawValue<VeltoSupportedHttpVerb>("GET"), VeltoSupportedHttpVerb::get);
  for (const char* other : {"post", "Get", "GET ", "", "PUT"}) EXPECT_FALSE(fromRawValue<VeltoSupportedHttpVerb>(other)) << other;
  EXPECT_FALSE(fromRawValue<VeltoSupportedHttpVerb>(std::string_view("GET\0", 4)));
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(VeltoSupportedHttpVerb::post, VeltoDynamicDebugEncoderOptions::forLogging()).value(),
            "\"post\"");
}

}  // namespace
