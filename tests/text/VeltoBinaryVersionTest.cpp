#include <velto/text/VeltoBinaryVersion.hpp>
#include <velto/text/VeltoRegex.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/FailureArgs.hpp"

namespace {

using Components = std::vector<std::uint64_t>;

VeltoBinaryVersion version(const char* text) { return VeltoBinaryVersion::make(text).value(); }

TEST(VeltoBinaryVersion, parsesAndStringifiesDottedComponents) {
  const auto v = version("1.2.3");
  EXPECT_EQ(v.components(), (Components{1, 2, 3}));
  EXPECT_EQ(v.stringified(), "1.2.3");
  EXPECT_EQ(version("007.0").components(), (Components{7, 0})) << "leading zeros";
  EXPECT_EQ(version("18446744073709551615").components(), Components{18446744073709551615u});
  EXPECT_EQ(version("5").stringified(), "5");
  EXPECT_EQ(VeltoBinaryVersion::zero().stringified(), "0.0.0");
  EXPECT_EQ(VeltoBinaryVersion::make(Components{1, 0, 0, 0}).value().stringified(), "1.0.0.0") << "no trimming";
}

TEST(VeltoBinaryVersion, rejectsEmptyAndNonDigitTokens) {
  for (const char* text : {"1..2", "1.2.", ".1", "", "1.-2", "1.+2", "1. 2", "1.2a", "v1.2"}) {
    const auto result = VeltoBinaryVersion::make(text);
    ASSERT_TRUE(result.isFailure()) << text;
    EXPECT_EQ(result.error().message(), "Invalid component") << text;
  }
  const auto result = VeltoBinaryVersion::make("1.2.x.4");
  const VeltoArgs& args = velto::test::argsOf(result.error(), 0);
  EXPECT_EQ(*args.find("string")->get<std::string>(), "1.2.x.4");
  EXPECT_EQ(*args.find("tokens")->get<std::vector<std::string>>(), (std::vector<std::string>{"1", "2", "x", "4"}));
  EXPECT_EQ(*args.find("components")->get<Components>(), (Components{1, 2})) << "parsed so far";
  EXPECT_EQ(*args.find("token")->get<std::string>(), "x");
  const auto* regex = args.find("regex")->get<std::shared_ptr<const VeltoRegex>>();
  ASSERT_NE(regex, nullptr);
  EXPECT_EQ((*regex)->pattern(), R"(^\d+$)");
  EXPECT_EQ(result.error().stackFrames()[0].codeSite().functionName(), "make(string:)");
  EXPECT_EQ(result.error().stackFrames()[0].codeSite().fileName(), "VeltoBinaryVersion");
}

TEST(VeltoBinaryVersion, overflowingOrNonAsciiDigitsFailToParse) {
  EXPECT_EQ(VeltoBinaryVersion::make("18446744073709551616").error().message(), "Failed to parse component");
  EXPECT_EQ(VeltoBinaryVersion::make("1.99999999999999999999999").error().message(), "Failed to parse component");
  // The expression accepts any script's digits and a final line break before "$"; the
  // conversion does not.
  EXPECT_EQ(VeltoBinaryVersion::make("1.\u0663").error().message(), "Failed to parse component");
  EXPECT_EQ(VeltoBinaryVersion::make("1.2\n").error().message(), "Failed to parse component");
}

TEST(VeltoBinaryVersion, makeFromComponentsRequiresOne) {
  const auto empty = VeltoBinaryVersion::make(Components{});
  ASSERT_TRUE(empty.isFailure());
  EXPECT_EQ(empty.error().message(), "No components");
  EXPECT_NE(velto::test::argsOf(empty.error(), 0).find("components"), nullptr);
  EXPECT_EQ(empty.error().stackFrames()[0].codeSite().functionName(), "make(components:)");
}

TEST(VeltoBinaryVersion, fewerComponentsOrderFirstDeliberately) {
  EXPECT_LT(version("2.0"), version("1.0.0"));
  EXPECT_FALSE(version("1.0.0") < version("2.0"));
  EXPECT_LT(version("1.2.3"), version("1.10.0"));
  EXPECT_FALSE(version("1.2") < version("1.2"));
  EXPECT_LT(version("1.2"), version("1.3"));
  EXPECT_LT(version("9.9"), version("18446744073709551615.0")) << "unsigned comparison";
}

TEST(VeltoBinaryVersion, equalityNeedsEqualLength) {
  EXPECT_EQ(version("1.2.3"), VeltoBinaryVersion::make(Components{1, 2, 3}).value());
  EXPECT_NE(version("1.2"), version("1.2.0"));
  EXPECT_EQ(version("0.0.0"), VeltoBinaryVersion::zero());
}

TEST(VeltoBinaryVersion, serialisesUnderComponents) {
  EXPECT_EQ(version("1.20.3").encodedJson(), R"({"components":[1,20,3]})");
  EXPECT_EQ(VeltoBinaryVersion::makeFromJson(R"({"components":[4, 18446744073709551615]})").value(),
            version("4.18446744073709551615"));
  EXPECT_EQ(VeltoBinaryVersion::makeFromJson(R"({"components":[]})").error().message(), "No components");
  EXPECT_EQ(VeltoBinaryVersion::makeFromJson(R"({"components":[-1]})").error().message(), "Invalid JSON");
  EXPECT_EQ(VeltoBinaryVersion::makeFromJson(R"({"components":[1.5]})").error().message(), "Invalid JSON");
  EXPECT_EQ(VeltoBinaryVersion::makeFromJson(R"([1])").error().message(), "Invalid JSON");
}

}  // namespace
