#include "velto/encoding/VeltoDictionaryCodingKey.hpp"

#include <charconv>
#include <system_error>

namespace {

// The whole text as a decimal signed 64-bit integer: an optional "+" or "-", then digits.
std::optional<std::int64_t> decimalInteger(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

VeltoDictionaryCodingKey::VeltoDictionaryCodingKey(std::string stringValue)
    : stringValue_(std::move(stringValue)), intValue_(decimalInteger(stringValue_)) {}

VeltoDictionaryCodingKey::VeltoDictionaryCodingKey(std::int64_t intValue)
    : stringValue_(std::to_string(intValue)), intValue_(intValue) {}
