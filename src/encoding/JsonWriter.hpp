// The library's JSON writer over Boost.JSON values: compact or pretty, keys sorted on demand,
// doubles in their shortest round-trip form ("1.5", never "1.5E0").
#pragma once

#include <boost/json/value.hpp>

#include <string>
#include <string_view>

namespace velto::detail {

struct JsonWriterOptions {
  bool prettyPrint = false;
  /// Every object's keys in ascending byte order (otherwise insertion order).
  bool sortKeys = false;
};

/// Appends the JSON text of `value` to `out`. Strings are written byte for byte, escaping only
/// what JSON requires ('"', '\\', control characters), so invalid UTF-8 is kept, not dropped.
/// Non-finite doubles, which JSON cannot hold, are written as null.
void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out);

/// Whether `bytes` is well-formed UTF-8 (no overlongs, surrogates or values above U+10FFFF).
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

}  // namespace velto::detail
