#include <velto/networking/VeltoHttpStatusCode.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <map>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace {

// The 61 cases written out here, independently of the library's table.
const std::map<std::int64_t, std::string>& cases() {
  static const std::map<std::int64_t, std::string> table{
      {100, "continue"}, {101, "switchingProtocols"}, {102, "processing"}, {200, "ok"}, {201, "created"},
      {202, "accepted"}, {203, "nonAuthoritativeInformation"}, {204, "noContent"}, {205, "resetContent"},
      {206, "partialContent"}, {207, "multiStatus"}, {208, "alreadyReported"}, {226, "iMUsed"},
      {300, "multipleChoices"}, {301, "movedPermanently"}, {302, "found"}, {303, "seeOther"}, {304, "notModified"},
      {305, "useProxy"}, {306, "switchProxy"}, {307, "temporaryRedirect"}, {308, "permanentRedirect"},
      {400, "badRequest"}, {401, "unauthorized"}, {402, "paymentRequired"}, {403, "forbidden"}, {404, "notFound"},
      {405, "methodNotAllowed"}, {406, "notAcceptable"}, {407, "proxyAuthenticationRequired"},
      {408, "requestTimeout"}, {409, "conflict"}, {410, "gone"}, {411, "lengthRequired"},
      {412, "preconditionFailed"}, {413, "payloadTooLarge"}, {414, "uriTooLong"}, {415, "unsupportedMediaType"},
      {416, "rangeNotSatisfiable"}, {417, "expectationFailed"}, {418, "imATeapot"}, {421, "misdirectedRequest"},
      {422, "unprocessableEntity"}, {423, "locked"}, {424, "failedDependency"}, {426, "upgradeRequired"},
      {428, "preconditionRequired"}, {429, "tooManyRequests"}, {431, "requestHeaderFieldsTooLarge"},
      {451, "unavailableForLegalReasons"}, {500, "internalServerError"}, {501, "notImplemented"},
      {502, "badGateway"}, {503, "serviceUnavailable"}, {504, "gatewayTimeout"}, {505, "httpVersionNotSupported"},
      {506, "variantAlsoNegotiates"}, {507, "insufficientStorage"}, {508, "loopDetected"}, {510, "notExtended"},
      {511, "networkAuthenticationRequired"}};
  return table;
}

TEST(VeltoHttpStatusCode, convertsExactlyTheSixtyOneCodes) {
  ASSERT_EQ(cases().size(), 61u);
  ASSERT_EQ(velto::detail::kHttpStatusCodeCases.size(), 61u);
  for (std::int64_t raw = -1000; raw <= 1000; ++raw) {
    const auto code = fromRawValue<VeltoHttpStatusCode>(raw);
    const auto known = cases().find(raw);
    ASSERT_EQ(code.has_value(), known != cases().end()) << raw;
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
