// The library's JSON text writer: an event stream (`JsonStream`) that the debug walk writes to
// directly, and the same writer over Boost.JSON values for documents built as trees. Compact or
// pretty, keys sorted on demand (trees only), doubles in their shortest round-trip form ("1.5",
// never "1.5E0"). Nothing here recurses: documents of any depth are written and released with
// heap-allocated stacks.
#pragma once

#include <boost/json/value.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto::detail {

struct JsonWriterOptions {
  bool prettyPrint = false;
  /// Every object's keys in ascending byte order (otherwise insertion order).
  bool sortKeys = false;
};

/// Appends JSON text to a string, one event at a time. Inside an object each value is preceded
/// by `key`; inside an array (or at the top) values follow each other. Strings are written byte
/// for byte, escaping only what JSON requires ('"', '\\', control characters), so invalid UTF-8
/// is kept, not dropped. Non-finite doubles, which JSON cannot hold, are written as null.
/// REQUIRES: events form one well-nested value; nothing checks it.
class JsonStream {
 public:
  JsonStream(std::string& out, bool prettyPrint) noexcept : out_(out), pretty_(prettyPrint) {}

  void key(std::string_view key);
  void null() { prefix(); out_.append("null"); }
  void boolean(bool value) { prefix(); out_.append(value ? "true" : "false"); }
  void number(std::int64_t value);
  void number(std::uint64_t value);
  void number(double value);
  void string(std::string_view text) { prefix(); quoted(text); }
  void beginObject() { open('{'); }
  void beginArray() { open('['); }
  /// Closes the innermost open object or array.
  void end();
  /// Open objects and arrays.
  [[nodiscard]] std::size_t depth() const noexcept { return levels_.size(); }

 private:
  void prefix();
  void open(char bracket);
  void newline(std::size_t depth);
  void quoted(std::string_view text);

  struct Level {
    char closing;
    bool empty;
  };
  std::string& out_;
  bool pretty_;
  bool afterKey_ = false;
  std::vector<Level> levels_;
};

/// Writes `value` to `stream` as one value (after a key, inside an array, or at the top).
void writeJson(const boost::json::value& value, bool sortKeys, JsonStream& stream);

/// Appends the JSON text of `value` to `out`.
void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out);

/// Releases `value` without recursing, however deeply it nests (Boost.JSON's own destructor
/// recurses once per level).
void releaseJson(boost::json::value&& value) noexcept;

/// Whether `bytes` is well-formed UTF-8 (no overlongs, surrogates or values above U+10FFFF).
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

}  // namespace velto::detail
