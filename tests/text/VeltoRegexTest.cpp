#include <velto/text/VeltoRegex.hpp>

#include <gtest/gtest.h>

#include <cctype>
#include <future>
#include <optional>
#include <random>
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
  EXPECT_EQ(regex("😀")->replacingMatches("a😀b", "$0$0").value(), "a😀😀b");
  // Escapes and dollars that name no group are checked at random below, in ASCII; a named
  // group is not named in a template either.
  EXPECT_EQ(regex(R"((?<n>\d))")->replacingMatches("a1", "${n}").value(), "a${n}");
  EXPECT_EQ(regex(R"(\d)")->replacingMatches("a1", "\\😀").value(), "a😀") << "an escape takes a whole code point";
  // An empty match between every character still replaces once per position.
  EXPECT_EQ(regex("")->replacingMatches("ab", "-").value(), "-a-b-");

  const auto bad = regex(R"(\d)")->replacingMatches("a1", "$7");
  ASSERT_TRUE(bad.isFailure());
  EXPECT_EQ(bad.error().message(), "Invalid template");
  const auto* badArgs = bad.error().stackFrames()[0].args().get<VeltoArgs>();
  ASSERT_NE(badArgs, nullptr);
  EXPECT_EQ(*badArgs->find("errorName")->get<std::string>(), "U_INDEX_OUTOFBOUNDS_ERROR");
  EXPECT_EQ(regex(R"(\d)")->replacingMatches("none", "$7").value(), "none") << "no match, no template expansion";
}

// The template rule, written out plainly, against the engine on random templates. Group i of the
// pattern captures the i-th letter of "ABCDEFGHIJKL", so the answer is known without a regex.
std::optional<std::string> expectedReplacement(const std::string& replacementTemplate, int groupCount) {
  const std::string letters = "ABCDEFGHIJKL";
  const auto group = [&](int number) { return number == 0 ? "<" + letters.substr(0, groupCount) + ">" : letters.substr(number - 1, 1); };
  std::string out;
  for (std::size_t i = 0; i < replacementTemplate.size(); ++i) {
    const char c = replacementTemplate[i];
    const bool digitFollows = i + 1 < replacementTemplate.size() && std::isdigit(static_cast<unsigned char>(replacementTemplate[i + 1]));
    if (c == '\\' && i + 1 < replacementTemplate.size()) {
      out += replacementTemplate[++i];
    } else if (c == '$' && digitFollows) {
      int number = replacementTemplate[++i] - '0';
      if (number > groupCount) return std::nullopt;
      while (i + 1 < replacementTemplate.size() && std::isdigit(static_cast<unsigned char>(replacementTemplate[i + 1])) &&
             number * 10 + (replacementTemplate[i + 1] - '0') <= groupCount) {
        number = number * 10 + (replacementTemplate[++i] - '0');
      }
      out += group(number);
    } else {
      out += c;
    }
  }
  return out;
}

TEST(VeltoRegex, randomTemplatesFollowTheStatedRule) {
  std::mt19937 random(20261123);
  const std::string alphabet = "$$$$0123456789\\\\{}xZ ";
  for (int round = 0; round < 4000; ++round) {
    const int groupCount = static_cast<int>(random() % 13);
    std::string pattern = "<";
    for (int group = 0; group < groupCount; ++group) pattern += std::string("(") + "ABCDEFGHIJKL"[group] + ")";
    pattern += ">";
    std::string replacementTemplate;
    for (std::size_t length = random() % 12; length > 0; --length) replacementTemplate += alphabet[random() % alphabet.size()];

    // The whole input is the one match, so the result is the template's expansion alone.
    const std::string input = "<" + std::string("ABCDEFGHIJKL").substr(0, groupCount) + ">";
    const auto actual = regex(pattern)->replacingMatches(input, replacementTemplate);
    const auto expected = expectedReplacement(replacementTemplate, groupCount);
    const auto context = [&] { return "template " + replacementTemplate + " with " + std::to_string(groupCount) + " groups"; };
    if (!expected) {
      EXPECT_TRUE(actual.isFailure()) << context();
    } else {
      ASSERT_TRUE(actual.hasValue()) << context();
      EXPECT_EQ(actual.value(), *expected) << context();
    }
  }
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
