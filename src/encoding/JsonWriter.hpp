// The library's JSON text writer: an event stream (`JsonStream`) that the debug walk writes to
// directly, and the same writer over Boost.JSON values for documents built as trees. Compact or
// pretty, keys sorted on demand (trees only), doubles in their shortest round-trip form ("1.5",
// never "1.5E0"). Nothing here recurses: documents of any depth are written and released with
// heap-allocated stacks.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>

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

/// Appends to the library's byte buffer with the string operations JsonStream uses, so that a
/// document becomes its bytes without a copy. The vector grows ahead of the text (its size is
/// the capacity in use); `finish` trims it to the bytes written. REQUIRES: `finish` before the
/// vector is used again.
class ByteBuffer {
 public:
  explicit ByteBuffer(std::vector<std::byte>& bytes) noexcept : bytes_(bytes), used_(bytes.size()) {}

  void push_back(char c) {
    room(1);
    bytes_[used_++] = static_cast<std::byte>(c);
  }
  void append(const char* data, std::size_t size) {
    room(size);
    std::memcpy(bytes_.data() + used_, data, size);
    used_ += size;
  }
  void append(const char* text) { append(text, std::char_traits<char>::length(text)); }
  void append(const char* first, const char* last) { append(first, static_cast<std::size_t>(last - first)); }
  void append(std::size_t count, char c) {
    room(count);
    std::memset(bytes_.data() + used_, c, count);
    used_ += count;
  }
  void finish() { bytes_.resize(used_); }

 private:
  void room(std::size_t size) {
    if (bytes_.size() - used_ < size) bytes_.resize(std::max(bytes_.size() * 2, used_ + size + 4096));
  }
  std::vector<std::byte>& bytes_;
  std::size_t used_;
};

/// Appends JSON text to a buffer, one event at a time. Inside an object each value is preceded
/// by `key`; inside an array (or at the top) values follow each other. Strings are written byte
/// for byte, escaping only what JSON requires ('"', '\\', control characters), so invalid UTF-8
/// is kept, not dropped. Non-finite doubles, which JSON cannot hold, are written as null.
/// `Buffer` is std::string or ByteBuffer (the library's byte buffer).
/// REQUIRES: events form one well-nested value; nothing checks it.
template <class Buffer>
class JsonStream {
 public:
  JsonStream(Buffer& out, bool prettyPrint) noexcept : out_(out), pretty_(prettyPrint) {}

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
  Buffer& out_;
  bool pretty_;
  bool afterKey_ = false;
  std::vector<Level> levels_;
};

/// Writes `value` to `stream` as one value (after a key, inside an array, or at the top).
template <class Buffer>
void writeJson(const boost::json::value& value, bool sortKeys, JsonStream<Buffer>& stream);

// ---- implementation ----

template <class Buffer>
inline void JsonStream<Buffer>::newline(std::size_t depth) {
  out_.push_back('\n');
  out_.append(depth * 2, ' ');
}

template <class Buffer>
inline void JsonStream<Buffer>::prefix() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (levels_.empty()) return;
  Level& level = levels_.back();
  if (!level.empty) out_.push_back(',');
  level.empty = false;
  if (pretty_) newline(levels_.size());
}

template <class Buffer>
inline void JsonStream<Buffer>::key(std::string_view key) {
  Level& level = levels_.back();
  if (!level.empty) out_.push_back(',');
  level.empty = false;
  if (pretty_) newline(levels_.size());
  quoted(key);
  out_.append(pretty_ ? " : " : ":");
  afterKey_ = true;
}

template <class Buffer>
inline void JsonStream<Buffer>::open(char bracket) {
  prefix();
  out_.push_back(bracket);
  levels_.push_back({bracket == '{' ? '}' : ']', true});
}

template <class Buffer>
inline void JsonStream<Buffer>::end() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (!level.empty && pretty_) newline(levels_.size());
  out_.push_back(level.closing);
}

template <class Buffer>
inline void JsonStream<Buffer>::number(std::int64_t value) {
  prefix();
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

template <class Buffer>
inline void JsonStream<Buffer>::number(std::uint64_t value) {
  prefix();
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

template <class Buffer>
inline void JsonStream<Buffer>::number(double value) {
  prefix();
  if (!std::isfinite(value)) {
    out_.append("null");
    return;
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

template <class Buffer>
inline void JsonStream<Buffer>::quoted(std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out_.push_back('"');
  std::size_t runStart = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out_.append(text.data() + runStart, i - runStart);
    runStart = i + 1;
    switch (c) {
      case '"': out_.append("\\\""); break;
      case '\\': out_.append("\\\\"); break;
      case '\n': out_.append("\\n"); break;
      case '\r': out_.append("\\r"); break;
      case '\t': out_.append("\\t"); break;
      case '\b': out_.append("\\b"); break;
      case '\f': out_.append("\\f"); break;
      default: {
        const char escaped[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        out_.append(escaped, sizeof escaped);
      }
    }
  }
  out_.append(text.data() + runStart, text.size() - runStart);
  out_.push_back('"');
}

template <class Buffer>
inline void writeJson(const boost::json::value& root, bool sortKeys, JsonStream<Buffer>& stream) {
  struct Open {
    const boost::json::value* container;
    std::size_t next = 0;
    std::vector<const boost::json::key_value_pair*> sorted;  // sortKeys only
  };
  std::vector<Open> stack;
  const auto write = [&](const boost::json::value& value) {
    switch (value.kind()) {
      case boost::json::kind::null: stream.null(); break;
      case boost::json::kind::bool_: stream.boolean(value.get_bool()); break;
      case boost::json::kind::int64: stream.number(value.get_int64()); break;
      case boost::json::kind::uint64: stream.number(value.get_uint64()); break;
      case boost::json::kind::double_: stream.number(value.get_double()); break;
      case boost::json::kind::string: stream.string(value.get_string()); break;
      case boost::json::kind::array:
        stream.beginArray();
        stack.push_back({&value, 0, {}});
        break;
      case boost::json::kind::object: {
        stream.beginObject();
        Open open{&value, 0, {}};
        if (sortKeys) {
          const auto& object = value.get_object();
          open.sorted.reserve(object.size());
          for (const auto& member : object) open.sorted.push_back(&member);
          std::sort(open.sorted.begin(), open.sorted.end(), [](const auto* a, const auto* b) { return a->key() < b->key(); });
        }
        stack.push_back(std::move(open));
        break;
      }
    }
  };
  write(root);
  while (!stack.empty()) {
    Open& top = stack.back();
    if (top.container->is_array()) {
      const auto& array = top.container->get_array();
      if (top.next == array.size()) {
        stream.end();
        stack.pop_back();
      } else {
        write(array[top.next++]);  // may grow the stack: `top` is not used after this
      }
      continue;
    }
    const auto& object = top.container->get_object();
    if (top.next == object.size()) {
      stream.end();
      stack.pop_back();
      continue;
    }
    const boost::json::key_value_pair& member = sortKeys ? *top.sorted[top.next] : object.begin()[top.next];
    ++top.next;
    stream.key(member.key());
    write(member.value());
  }
}

/// Appends the JSON text of `value` to `out`.
void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out);

/// Releases `value` without recursing, however deeply it nests (Boost.JSON's own destructor
/// recurses once per level).
void releaseJson(boost::json::value&& value) noexcept;

/// Whether `bytes` is well-formed UTF-8 (no overlongs, surrogates or values above U+10FFFF).
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

}  // namespace velto::detail
