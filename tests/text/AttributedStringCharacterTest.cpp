#include <velto/text/AttributedStringCharacter.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

TEST(AttributedStringCharacter, countsUserPerceivedCharacters) {
  EXPECT_EQ(character("abc", 2).value(), "c");
  const std::string text = "e\u0301x\U0001F1EB\U0001F1F7\U0001F600";  // e + combining acute, x, a flag, an emoji
  EXPECT_EQ(character(text, 0).value(), "e\u0301");
  EXPECT_EQ(character(text, 1).value(), "x");
  EXPECT_EQ(character(text, 2).value(), "\U0001F1EB\U0001F1F7");
  EXPECT_EQ(character(text, 3).value(), "\U0001F600");
  EXPECT_TRUE(character(text, 4).isFailure());
  EXPECT_EQ(character("\r\n", 0).value(), "\r\n");
}

TEST(AttributedStringCharacter, outOfRangeIndicesFail) {
  for (const std::int64_t index : {std::int64_t{-1}, std::int64_t{3}, std::numeric_limits<std::int64_t>::max(),
                                   std::numeric_limits<std::int64_t>::min()}) {
    const auto result = character("abc", index);
    ASSERT_TRUE(result.isFailure()) << index;
    EXPECT_EQ(result.error().message(), "Index yielded no character");
    const VeltoArgs* args = result.error().stackFrames()[0].args().get<VeltoArgs>();
    ASSERT_NE(args, nullptr);
    EXPECT_EQ(*args->find("attributedString")->get<std::string>(), "abc");
    EXPECT_EQ(result.error().stackFrames()[0].codeSite().fileName(), "Extensions/Foundation/NSAttributedString+");
    EXPECT_EQ(result.error().stackFrames()[0].codeSite().functionName(), "character(at:)");
  }
  EXPECT_TRUE(character("", 0).isFailure());
}

}  // namespace
