#include <velto/encoding/VeltoDictionaryCodingKey.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoUploadEncodable.hpp>

namespace {

// A reference reading of "the whole string is one decimal signed 64-bit integer", digit by digit.
std::optional<std::int64_t> referenceInteger(const std::string& text) {
  std::size_t i = 0;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  if (i == text.size()) return std::nullopt;
  std::uint64_t magnitude = 0;  // never above 2^63: nothing beyond fits either sign
  constexpr std::uint64_t limit = std::uint64_t{1} << 63;
  for (; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    const auto digit = static_cast<std::uint64_t>(text[i] - '0');
    if (magnitude > (limit - digit) / 10) return std::nullopt;
    magnitude = magnitude * 10 + digit;
  }
  if (negative) return magnitude == limit ? std::numeric_limits<std::int64_t>::min() : -static_cast<std::int64_t>(magnitude);
  if (magnitude == limit) return std::nullopt;
  return static_cast<std::int64_t>(magnitude);
}

TEST(VeltoDictionaryCodingKey, readsIntegersExactlyWhenTheWholeStringIsOne) {
  EXPECT_EQ(VeltoDictionaryCodingKey("42").intValue(), 42);
  EXPECT_EQ(VeltoDictionaryCodingKey("4a").intValue(), std::nullopt);
  EXPECT_EQ(VeltoDictionaryCodingKey(-7).stringValue(), "-7");
  EXPECT_EQ(VeltoDictionaryCodingKey(-7).intValue(), -7);

  // Strings near the edges: signs, leading zeros, spaces, the 64-bit limits and one beyond.
  std::mt19937 random(5);
  static const std::vector<std::string> pieces{"0", "1", "9", "00", "+", "-", " ", "x", "9223372036854775807",
                                               "9223372036854775808", "18446744073709551616", ""};
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (auto n = random() % 4; n > 0; --n) text += pieces[random() % pieces.size()];
    EXPECT_EQ(VeltoDictionaryCodingKey(text).intValue(), referenceInteger(text)) << '"' << text << '"';
    EXPECT_EQ(VeltoDictionaryCodingKey(text).stringValue(), text);
  }
  for (std::int64_t value : {std::numeric_limits<std::int64_t>::min(), std::int64_t{0}, std::numeric_limits<std::int64_t>::max()}) {
    const VeltoDictionaryCodingKey fromInteger(value);
    EXPECT_EQ(VeltoDictionaryCodingKey(fromInteger.stringValue()), fromInteger);
  }
}

TEST(VeltoDictionaryCodingKey, describesItselfAsItsStringAndServesAsAKey) {
  const VeltoDictionaryCodingKey key("count");
  EXPECT_EQ(key.description(), "count");
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(key, VeltoDynamicDebugEncoderOptions::forLogging()).value(), "\"count\"");
  VeltoEncodingDocument document;
  auto container = document.encoder().keyedContainer();
  ASSERT_TRUE(encodeValueForUpload(std::int64_t{3}, container, key));
  ASSERT_TRUE(encodeValueForUpload(std::int64_t{4}, container, VeltoDictionaryCodingKey(12)));
  EXPECT_EQ(document.jsonText(), R"({"count":3,"12":4})");
}

}  // namespace
