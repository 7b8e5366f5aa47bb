#include <velto/networking/VeltoHttpStatusCode.hpp>

#include <gtest/gtest.h>

#include <limits>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include "support/HttpStatusCodes.hpp"

namespace {

using velto::test::httpStatusCodeNames;

TEST(VeltoHttpStatusCode, convertsExactlyTheSixtyOneCodes) {
  ASSERT_EQ(httpStatusCodeNames().size(), 61u);
  ASSERT_EQ(velto::detail::kHttpStatusCodeCases.size(), 61u);
  for (std::int64_t raw = -1000; raw <= 1000; ++raw) {
    const auto code = fromRawValue<VeltoHttpStatusCode>(raw);
    const auto known = httpStatusCodeNames().find(raw);
    ASSERT_EQ(code.has_value(), known != httpStatusCodeNames().end()) << raw;
    if (code) {
      EXPECT_EQ(rawValue(*code), raw);
      EXPECT_EQ(velto::detail::httpStatusCodeName(*code), known->second);
      const auto text = VeltoDynamicDebugEncoder::encodeToString(*code, VeltoDynamicDebugEncoderOptions::forLogging());
      EXPECT_EQ(text.value(), "\"" + known->second + "\"");
    }
  }
  for (std::int64_t raw : {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), std::int64_t{-100}}) {
    EXPECT_FALSE(fromRawValue<VeltoHttpStatusCode>(raw));
  }
  // Declaration order follows the codes.
  for (std::size_t i = 1; i < velto::detail::kHttpStatusCodeCases.size(); ++i) {
    EXPECT_LT(velto::detail::kHttpStatusCodeCases[i - 1].code, velto::detail::kHttpStatusCodeCases[i].code);
  }
  static_assert(rawValue(VeltoHttpStatusCode::iMUsed) == 226 && rawValue(VeltoHttpStatusCode::switchProxy) == 306);
  static_assert(fromRawValue<VeltoHttpStatusCode>(418) == VeltoHttpStatusCode::imATeapot);
}

}  // namespace
