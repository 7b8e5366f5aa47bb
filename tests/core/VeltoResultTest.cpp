#include <velto/core/VeltoResult.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

VeltoResult<int> innermost(bool fail) {
  if (fail) return VeltoResult<int>::fromMessage("Innermost failed", {{"depth", 3}}, nullptr, VeltoCodeSite("In", "innermost", 10));
  return 7;
}

VeltoResult<int> middle(bool fail) {
  auto result = innermost(fail);
  if (!result) return VeltoResult<int>::fromError(result.error(), {}, VeltoCodeSite("Mid", "middle", 20));
  return result.value() * 2;
}

VeltoResult<void> outer(bool fail) {
  auto result = middle(fail);
  if (!result) return VeltoResult<void>::fromError(result.error(), {{"stage", 1}}, VeltoCodeSite("Out", "outer", 30));
  return VeltoResultVoidSuccess;
}

TEST(VeltoResult, holdsAValueOrAFailure) {
  const VeltoResult<std::string> value = std::string("text");
  EXPECT_TRUE(value.hasValue());
  EXPECT_FALSE(value.isFailure());
  EXPECT_EQ(value.value(), "text");
  EXPECT_EQ(value.errorIfPresent(), nullptr);

  const auto failure = VeltoResult<std::string>::fromMessage("text");  // the message, not the value
  EXPECT_TRUE(failure.isFailure());
  EXPECT_EQ(failure.error().message(), "text");
  EXPECT_EQ(failure.valueIfPresent(), nullptr);
}

TEST(VeltoResult, passingAFailureOutwardAddsOneFramePerLayerInnermostFirst) {
  EXPECT_EQ(middle(false).value(), 14);
  EXPECT_TRUE(outer(false).hasValue());

  const VeltoResult<void> result = outer(true);
  ASSERT_TRUE(result.isFailure());
  const auto& frames = result.error().stackFrames();
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].codeSite(), VeltoCodeSite("In", "innermost", 10));
  EXPECT_EQ(frames[1].codeSite(), VeltoCodeSite("Mid", "middle", 20));
  EXPECT_EQ(frames[2].codeSite(), VeltoCodeSite("Out", "outer", 30));
  EXPECT_NE(frames[0].args().get<VeltoArgs>(), nullptr);
  EXPECT_FALSE(frames[1].args());
  EXPECT_EQ(result.error().message(), "Innermost failed");
}

TEST(VeltoResult, reRaisedErrorKeepsTheCalleesIdentity) {
  const auto inner = innermost(true);
  const auto outerResult = VeltoResult<int>::fromError(inner.error());
  EXPECT_EQ(outerResult.error().uuid(), inner.error().uuid());
  EXPECT_EQ(outerResult.error().timestampEpoch(), inner.error().timestampEpoch());
}

TEST(VeltoResult, frameSitesDefaultToTheCallingLine) {
  const unsigned line = __LINE__ + 1;
  const auto made = VeltoResult<void>::fromMessage("here");
  EXPECT_EQ(made.error().stackFrames()[0].codeSite().lineNumber(), line);
  const unsigned wrapLine = __LINE__ + 1;
  const auto wrapped = VeltoResult<void>::fromError(made.error());
  EXPECT_EQ(wrapped.error().stackFrames()[1].codeSite().lineNumber(), wrapLine);
  EXPECT_EQ(wrapped.error().stackFrames()[1].codeSite().functionName(), "TestBody");
}

TEST(VeltoResult, failureFactoryKeepsTheErrorUnchanged) {
  const VeltoError error("as is");
  const auto result = VeltoResult<double>::failure(error);
  EXPECT_EQ(result.error().stackFrames().size(), 1u);
  EXPECT_EQ(result.error().uuid(), error.uuid());
}

TEST(VeltoResult, voidSuccessIsASuccessWithoutPayload) {
  EXPECT_TRUE(VeltoResultVoidSuccess.hasValue());
  EXPECT_FALSE(VeltoResultVoidSuccess.isFailure());
  EXPECT_EQ(VeltoResultVoidSuccess.errorIfPresent(), nullptr);
  EXPECT_TRUE(VeltoResult<void>().hasValue());
}

TEST(VeltoResult, movesItsValueOut) {
  VeltoResult<std::unique_ptr<int>> result = std::make_unique<int>(5);
  std::unique_ptr<int> taken = std::move(result).value();
  EXPECT_EQ(*taken, 5);
}

using VeltoResultDeathTest = testing::Test;

TEST(VeltoResultDeathTest, readingTheWrongCaseStops) {
  EXPECT_DEATH((void)VeltoResult<int>::fromMessage("no").value(), "value\\(\\) called on a failure");
  EXPECT_DEATH((void)VeltoResult<int>(1).error(), "error\\(\\) called on a value");
  EXPECT_DEATH((void)VeltoResultVoidSuccess.error(), "error\\(\\) called on a success");
}

}  // namespace
