#include <velto/networking/VeltoEndpointOutcome.hpp>

#include <gtest/gtest.h>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace {

using Outcome = VeltoEndpointOutcome<std::vector<int>>;

std::string dump(const Outcome& outcome) {
  const auto options = VeltoDynamicDebugEncoderOptions::forLogging()
                           .withIncludeTypes(false)
                           .withPrettyPrint(false)
                           .withDataBehaviour(VeltoDynamicDebugEncoderOptions::DataContentsBehaviour::excludeContents());
  return VeltoDynamicDebugEncoder::encodeToString(outcome, options).value();
}

// Each case prints its name; payloads are labelled by their field names.
TEST(VeltoEndpointOutcome, printsCaseNamesAndLabelledPayloads) {
  EXPECT_EQ(dump(Outcome::cancelled()), "\"cancelled\"");
  EXPECT_EQ(dump(Outcome::connectivityError()), "\"connectivityError\"");
  EXPECT_EQ(dump(Outcome::unauthorized()), "\"unauthorized\"");
  EXPECT_EQ(dump(Outcome::success(VeltoHttpStatusCode::iMUsed, {1, 2})),
            R"({"success":{"statusCode":"iMUsed","payload":[1,2]}})");
  EXPECT_EQ(dump(Outcome::userError(VeltoHttpStatusCode::badRequest, VeltoData(3))),
            R"({"userError":{"statusCode":"badRequest","data":{"byteCount":3}}})");
  EXPECT_EQ(dump(Outcome::nonUserHttpError(VeltoHttpStatusCode::continue_, {})),
            R"({"nonUserHttpError":{"statusCode":"continue","data":{"byteCount":0}}})");
  EXPECT_NE(dump(Outcome::applicationError(VeltoError("boom"))).find(R"({"applicationError":{)"), std::string::npos);
  EXPECT_NE(dump(Outcome::nonConnectivityNetworkError(VeltoError("boom"))).find("\"boom\""), std::string::npos);
}

}  // namespace
