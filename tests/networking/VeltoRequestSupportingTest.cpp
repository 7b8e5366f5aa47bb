#include <velto/networking/VeltoRequestSupporting.hpp>

#include <gtest/gtest.h>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace {

// A minimal hand-written endpoint: the interface alone, without VeltoEndpointBase.
class Bare final : public VeltoRequestSupporting {
 public:
  std::optional<std::string> failure;
  mutable int parameterCalls = 0;

  VeltoResult<boost::urls::url> makeUrl() const override {
    if (failure) return VeltoResult<boost::urls::url>::fromMessage(*failure);
    return boost::urls::url("https://h.example/search");
  }
  std::vector<VeltoSignatureParameter> relevantParameters() const override {
    ++parameterCalls;
    return {"q", 2};
  }
  VeltoSupportedHttpVerb httpVerb() const override { return VeltoSupportedHttpVerb::post; }
  boost::uuids::uuid correlationID() const override { return boost::uuids::uuid{}; }
  VeltoResult<void> initiated(Via, VeltoCodeSite) override { return VeltoResultVoidSuccess; }
  VeltoResult<void> store(VeltoData, Via, VeltoCodeSite) override { return VeltoResultVoidSuccess; }
  VeltoResult<void> completed(std::optional<std::int64_t>, std::shared_ptr<const VeltoPlatformError>, Via,
                              VeltoCodeSite) override {
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> failedPrematurely(VeltoError, Via, VeltoCodeSite) override { return VeltoResultVoidSuccess; }
};

TEST(VeltoRequestSupporting, makeSignatureCombinesTheUrlAndTheParametersOrPassesUpTheUrlFailure) {
  Bare endpoint;
  EXPECT_EQ(endpoint.makeSignature().value().stringRepresentation(), "https://h.example/search?2&q");
  endpoint.failure = "No base URL configured";
  endpoint.parameterCalls = 0;
  const auto signature = endpoint.makeSignature();
  ASSERT_TRUE(signature.isFailure());
  EXPECT_EQ(signature.error().message(), "No base URL configured");
  ASSERT_EQ(signature.error().stackFrames().size(), 2u);
  const VeltoCodeSite& site = signature.error().stackFrames().back().codeSite();
  EXPECT_EQ(site.fileName(), "Networking/VeltoRequestSupporting");
  EXPECT_EQ(site.functionName(), "makeSignature()");
  EXPECT_EQ(site.lineNumber(), 51u);
  EXPECT_EQ(endpoint.parameterCalls, 0) << "the parameters are not asked for once the URL failed";
}

TEST(VeltoRequestSupporting, dumpsTheVerbAndCorrelationIdThroughTheInterface) {
  std::shared_ptr<VeltoRequestSupporting> endpoint = std::make_shared<Bare>();
  const auto options =
      VeltoDynamicDebugEncoderOptions::forLogging().withIncludeTypes(false).withIncludeAddresses(false).withPrettyPrint(false);
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(endpoint, options).value(),
            R"({"correlationID":"00000000-0000-0000-0000-000000000000","httpVerb":"post"})");
}

}  // namespace
