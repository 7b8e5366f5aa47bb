#include "encoding/JsonWriter.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace velto::detail {

void JsonStream::newline(std::size_t depth) {
  out_.push_back('\n');
  out_.append(depth * 2, ' ');
}

void JsonStream::prefix() {
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

void JsonStream::key(std::string_view key) {
  Level& level = levels_.back();
  if (!level.empty) out_.push_back(',');
  level.empty = false;
  if (pretty_) newline(levels_.size());
  quoted(key);
  out_.append(pretty_ ? " : " : ":");
  afterKey_ = true;
}

void JsonStream::open(char bracket) {
  prefix();
  out_.push_back(bracket);
  levels_.push_back({bracket == '{' ? '}' : ']', true});
}

void JsonStream::end() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (!level.empty && pretty_) newline(levels_.size());
  out_.push_back(level.closing);
}

void JsonStream::number(std::int64_t value) {
  prefix();
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

void JsonStream::number(std::uint64_t value) {
  prefix();
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

void JsonStream::number(double value) {
  prefix();
  if (!std::isfinite(value)) {
    out_.append("null");
    return;
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out_.append(buffer, result.ptr);
}

void JsonStream::quoted(std::string_view text) {
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

void writeJson(const boost::json::value& root, bool sortKeys, JsonStream& stream) {
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

void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out) {
  JsonStream stream(out, options.prettyPrint);
  writeJson(value, options.sortKeys, stream);
}

void releaseJson(boost::json::value&& value) noexcept {
  std::vector<boost::json::value> pending;
  const auto take = [&](boost::json::value& child) {
    if ((child.is_object() && !child.get_object().empty()) || (child.is_array() && !child.get_array().empty())) {
      pending.push_back(std::move(child));
    }
  };
  take(value);
  while (!pending.empty()) {
    boost::json::value current = std::move(pending.back());
    pending.pop_back();
    if (current.is_object()) {
      for (auto& member : current.get_object()) take(member.value());
    } else {
      for (auto& element : current.get_array()) take(element);
    }
    // `current` now holds only scalars and emptied containers: releasing it is shallow.
  }
}

bool isValidUtf8(std::string_view bytes) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = p + bytes.size();
  while (p < end) {
    const unsigned char c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    int length;
    std::uint32_t code;
    if ((c & 0xE0) == 0xC0) {
      length = 2;
      code = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3;
      code = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4;
      code = c & 0x07;
    } else {
      return false;
    }
    if (end - p < length) return false;
    for (int i = 1; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      code = (code << 6) | (p[i] & 0x3F);
    }
    static constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    p += length;
  }
  return true;
}

}  // namespace velto::detail
