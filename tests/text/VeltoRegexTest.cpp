#include <velto/text/VeltoRegex.hpp>

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

std::shared_ptr<const VeltoRegex> regex(const std::string& pattern) {
  auto made = VeltoRegex::make(pattern);
  if (made.isFailure()) ADD_FAILURE() << pattern << ": " << made.error().message();
  return made.value();
}

TEST(VeltoRegex, testFindsAMatchAnywhere) {
  const auto whole = regex(R"(^\d+$)");
  EXPECT_EQ(whole->pattern(), R"(^\d+$)");
  EXPECT_TRUE(whole->test("42"));
  EXPECT_FALSE(whole->test("4a"));
  EXPECT_FALSE(whole->test(""));
  EXPECT_TRUE(regex("b")->test("abc"));
  EXPECT_TRUE(regex("")->test("")) << "an empty pattern matches the empty string";
}

TEST(VeltoRegex, invalidPatternsFail) {
  const auto made = VeltoRegex::make("(unclosed");
  ASSERT_TRUE(made.isFailure());
  EXPECT_EQ(made.error().message(), "Invalid pattern");
  const VeltoArgs* args = made.error().stackFrames()[0].args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  EXPECT_EQ(*args->find("pattern")->get<std::string>(), "(unclosed");
  EXPECT_EQ(*args->find("errorName")->get<std::string>(), "U_REGEX_MISMATCHED_PAREN");
  EXPECT_TRUE(VeltoRegex::make("[z-a]").isFailure());
  EXPECT_TRUE(VeltoRegex::make("*").isFailure());
}

TEST(VeltoRegex, simpleMatchesListsEveryMatchInOrder) {
  EXPECT_EQ(regex(R"(\d+)")->simpleMatches("a1b22c333"), (Strings{"1", "22", "333"}));
  EXPECT_EQ(regex(R"(\d+)")->simpleMatches("none"), Strings{});
  EXPECT_EQ(regex("x*")->simpleMatches("ab"), (Strings{"", "", ""})) << "empty matches advance";
  EXPECT_EQ(regex(".")->simpleMatches("é😀"), (Strings{"é", "😀"})) << "a surrogate pair is one code point";
}

TEST(VeltoRegex, captureGroupsComeFromTheFirstMatchOnly) {
  EXPECT_EQ(regex(R"((\w+)@(\w+))")->simpleCaptureGroups("me@home you@work"), (Strings{"me", "home"}));
  EXPECT_EQ(regex(R"(\d+)")->simpleCaptureGroups("a1"), Strings{}) << "a match without groups";
  EXPECT_EQ(regex(R"((\d))")->simpleCaptureGroups("abc"), Strings{});
  EXPECT_EQ(regex(R"((a)|(b))")->simpleCaptureGroups("b"), (Strings{"", "b"})) << "an unset group yields empty text";
}

TEST(VeltoRegex, replacingMatchesUsesTemplates) {
  EXPECT_EQ(regex(R"((\w+)@(\w+))")->replacingMatches("me@home, you@work", "$2@$1").value(), "home@me, work@you");
  EXPECT_EQ(regex(R"(\d)")->replacingMatches("no digits", "#").value(), "no digits");
  EXPECT_EQ(regex(R"(\d)")->replacingMatches("a1b2", R"(\$)").value(), "a$b$");
  EXPECT_EQ(regex("😀")->replacingMatches("a😀b", "$0$0").value(), "a😀😀b");

  const auto bad = regex(R"(\d)")->replacingMatches("a1", "$7");
  ASSERT_TRUE(bad.isFailure());
  EXPECT_EQ(bad.error().message(), "Invalid template");
  EXPECT_TRUE(regex(R"(\d)")->replacingMatches("a1", "$").isFailure());
  EXPECT_EQ(regex(R"(\d)")->replacingMatches("none", "$7").value(), "none") << "no match, no template expansion";
}

TEST(VeltoRegex, malformedUtf8IsReadAsReplacementCharacters) {
  const std::string broken = "a\xff" "b";
  EXPECT_EQ(regex("a.b")->simpleMatches(broken), (Strings{"a\xEF\xBF\xBD" "b"}));
}

TEST(VeltoRegex, oneRegexServesManyThreads) {
  const auto shared = regex(R"((\d+)-(\d+))");
  std::vector<std::future<bool>> workers;
  for (int t = 0; t < 4; ++t) {
    workers.push_back(std::async(std::launch::async, [shared, t] {
      bool ok = true;
      for (int i = 0; i < 200; ++i) {
        const std::string text = std::to_string(t) + "-" + std::to_string(i);
        ok &= shared->simpleCaptureGroups(text) == Strings{std::to_string(t), std::to_string(i)};
      }
      return ok;
    }));
  }
  for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

}  // namespace
