#include <velto/values/VeltoOverride.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

TEST(VeltoOverride, resolvesToThePayloadOrTheBase) {
  EXPECT_EQ(VeltoOverride<int>::override(3).resolve(10), 3);
  EXPECT_EQ(VeltoOverride<int>::noOverride().resolve(10), 10);
  EXPECT_EQ(VeltoOverride<int>().resolve(10), 10) << "the default keeps the default";
  EXPECT_EQ(VeltoOverride<std::string>::override("").resolve("base"), "") << "an empty payload still overrides";
}

TEST(VeltoOverride, callsAPlainOrFallibleGeneratorOnlyWithoutAnOverride) {
  int calls = 0;
  auto generator = [&] { return ++calls * 7; };
  auto fallible = [&]() -> VeltoResult<int> { return ++calls * 9; };
  EXPECT_EQ(VeltoOverride<int>::override(3).resolve(generator), 3);
  EXPECT_EQ(VeltoOverride<int>::override(3).resolve(fallible).value(), 3);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(VeltoOverride<int>::noOverride().resolve(generator), 7);
  EXPECT_EQ(VeltoOverride<int>::noOverride().resolve(fallible).value(), 18) << "a success is returned unchanged";
}

// The added frame must look exactly like one that VeltoResult::fromError adds: no invoker site,
// whatever the caller's position.
TEST(VeltoOverride, fallibleGeneratorFailureIsPassedUpWithTheOverride) {
  auto failing = []() -> VeltoResult<int> {
    return VeltoResult<int>::fromMessage("No default", {}, nullptr, VeltoCodeSite("Defaults", "load()", 7));
  };
  const VeltoOverride<int> none = VeltoOverride<int>::noOverride();
  const VeltoResult<int> result = none.resolve(failing);
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(result.error().message(), "No default");
  const auto& frames = result.error().stackFrames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].codeSite(), VeltoCodeSite("Defaults", "load()", 7)) << "the generator's frame comes first, unchanged";
  EXPECT_EQ(frames[1].codeSite(), VeltoCodeSite("VeltoParameterOverride", "resolve(generator:)", 54));
  EXPECT_FALSE(frames[1].invokerSite().has_value()) << "the caller's position is not recorded";
  const auto* args = frames[1].args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  ASSERT_EQ(args->size(), 1u);
  const VeltoAny* recorded = args->find("override");
  ASSERT_NE(recorded, nullptr);
  ASSERT_NE(recorded->get<VeltoOverride<int>>(), nullptr);
  EXPECT_EQ(*recorded->get<VeltoOverride<int>>(), none);

  const VeltoResult<int> again = none.resolve(failing);
  EXPECT_NE(again.error().uuid(), result.error().uuid()) << "each call runs the generator anew";
}

// A move-only generator passed as a temporary, holding state the failure must not outlive.
TEST(VeltoOverride, fallibleGeneratorMayBeAMoveOnlyTemporary) {
  auto owned = std::make_unique<std::string>("path");
  const auto result = VeltoOverride<std::string>::noOverride().resolve(
      [owned = std::move(owned)]() -> VeltoResult<std::string> { return VeltoResult<std::string>::fromMessage(*owned); });
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(result.error().message(), "path");
  const auto* args = result.error().stackFrames().back().args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  EXPECT_EQ(*args->find("override")->get<VeltoOverride<std::string>>(), VeltoOverride<std::string>::noOverride());
}

TEST(VeltoOverride, mirrorsAsAnEnumerationWithCaseNames) {
  const VeltoAny recorded = VeltoOverride<double>::override(1.5);
  const VeltoTypeMirror& mirror = *recorded.ref().mirror;
  EXPECT_EQ(mirror.style, VeltoDisplayStyle::enumeration);
  EXPECT_EQ(mirror.caseName(recorded.ref().value), "override");
  const VeltoAny kept = VeltoOverride<double>::noOverride();
  EXPECT_EQ(kept.ref().mirror->caseName(kept.ref().value), "noOverride");
}

}  // namespace
