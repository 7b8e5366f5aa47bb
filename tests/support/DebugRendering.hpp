// The dynamic debug encoder's output for tests: as text, or parsed as JSON. A value that fails to
// encode, or text that is not JSON, fails the calling test.
//
//   EXPECT_EQ(velto::test::debugJson(value).at("name"), "ann");
//   EXPECT_EQ(velto::test::debugText(value, velto::test::plainDebugOptions().withPrettyPrint(true)), "...");
#pragma once

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

namespace velto::test {

/// Everything shown (bytes up to 1 KiB), nothing sorted, hidden or pretty-printed: the base that
/// tests vary one option at a time.
inline VeltoDynamicDebugEncoderOptions plainDebugOptions() {
  return VeltoDynamicDebugEncoderOptions({.obfuscateSensitiveContent = false, .prettyPrint = false, .sortDictionaryKeys = false});
}

template <class T>
std::string debugText(const T& value, const VeltoDynamicDebugEncoderOptions& options = plainDebugOptions()) {
  auto text = VeltoDynamicDebugEncoder::encodeToString(value, options);
  if (!text) {
    ADD_FAILURE() << "encoding failed: " << text.error().debugDump();
    return {};
  }
  return std::move(text).value();
}

/// Parsed up to 10,000 levels deep (deeper documents need a parser that does not recurse).
template <class T>
boost::json::value debugJson(const T& value, const VeltoDynamicDebugEncoderOptions& options = plainDebugOptions()) {
  const std::string text = debugText(value, options);
  boost::system::error_code error;
  boost::json::parse_options deep;
  deep.max_depth = 10'000;
  auto parsed = boost::json::parse(text, error, {}, deep);
  EXPECT_FALSE(error) << "not JSON: " << text;
  return parsed;
}

/// The keys of a JSON object, in document order.
inline std::vector<std::string> jsonKeys(const boost::json::value& json) {
  std::vector<std::string> keys;
  for (const auto& entry : json.as_object()) keys.emplace_back(entry.key());
  return keys;
}

}  // namespace velto::test
