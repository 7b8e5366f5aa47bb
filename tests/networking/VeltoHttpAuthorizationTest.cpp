#include <velto/networking/VeltoHttpAuthorization.hpp>

#include <gtest/gtest.h>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace {

TEST(VeltoHttpAuthorization, headerValueIsBearerAndTheTokenUnchanged) {
  EXPECT_EQ(VeltoHttpAuthorization::bearer("abc").headerValue(), "Bearer abc");
  EXPECT_EQ(VeltoHttpAuthorization::bearer("").headerValue(), "Bearer ");
  EXPECT_EQ(VeltoHttpAuthorization::bearer(" a b\t").headerValue(), "Bearer  a b\t") << "not trimmed";
  EXPECT_EQ(VeltoHttpAuthorization::bearer("x"), VeltoHttpAuthorization::bearer("x"));
  EXPECT_NE(VeltoHttpAuthorization::bearer("x"), VeltoHttpAuthorization::bearer("y"));
}

TEST(VeltoHttpAuthorization, dumpsHideTheToken) {
  const auto authorization = VeltoHttpAuthorization::bearer("top-secret-token");
  const auto options = VeltoDynamicDebugEncoderOptions::forLogging().withIncludeTypes(false).withPrettyPrint(false);
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(authorization, options).value(),
            R"({"bearer":"[sensitive]"})");
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(authorization, options.withObfuscateSensitiveContent(false)).value(),
            R"({"bearer":"top-secret-token"})");
}

}  // namespace
