#include "encoding/JsonWriter.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace velto::detail {
namespace {

class Writer {
 public:
  Writer(const JsonWriterOptions& options, std::string& out) : options_(options), out_(out) {}

  void value(const boost::json::value& v, int depth) {
    switch (v.kind()) {
      case boost::json::kind::null: out_.append("null"); break;
      case boost::json::kind::bool_: out_.append(v.get_bool() ? "true" : "false"); break;
      case boost::json::kind::int64: number(v.get_int64()); break;
      case boost::json::kind::uint64: number(v.get_uint64()); break;
      case boost::json::kind::double_: real(v.get_double()); break;
      case boost::json::kind::string: string(v.get_string()); break;
      case boost::json::kind::array: array(v.get_array(), depth); break;
      case boost::json::kind::object: object(v.get_object(), depth); break;
    }
  }

 private:
  template <class Integer>
  void number(Integer n) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, n);
    out_.append(buffer, result.ptr);
  }

  void real(double d) {
    if (!std::isfinite(d)) {
      out_.append("null");
      return;
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, d);
    out_.append(buffer, result.ptr);
  }

  void string(std::string_view text) {
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

  void newline(int depth) {
    if (!options_.prettyPrint) return;
    out_.push_back('\n');
    out_.append(static_cast<std::size_t>(depth) * 2, ' ');
  }

  void array(const boost::json::array& a, int depth) {
    if (a.empty()) {
      out_.append("[]");
      return;
    }
    out_.push_back('[');
    bool first = true;
    for (const auto& element : a) {
      if (!first) out_.push_back(',');
      first = false;
      newline(depth + 1);
      value(element, depth + 1);
    }
    newline(depth);
    out_.push_back(']');
  }

  void member(std::string_view key, const boost::json::value& v, bool first, int depth) {
    if (!first) out_.push_back(',');
    newline(depth + 1);
    string(key);
    out_.append(options_.prettyPrint ? " : " : ":");
    value(v, depth + 1);
  }

  void object(const boost::json::object& o, int depth) {
    if (o.empty()) {
      out_.append("{}");
      return;
    }
    out_.push_back('{');
    if (options_.sortKeys) {
      std::vector<const boost::json::key_value_pair*> members;
      members.reserve(o.size());
      for (const auto& m : o) members.push_back(&m);
      std::sort(members.begin(), members.end(), [](const auto* a, const auto* b) { return a->key() < b->key(); });
      bool first = true;
      for (const auto* m : members) {
        member(m->key(), m->value(), first, depth);
        first = false;
      }
    } else {
      bool first = true;
      for (const auto& m : o) {
        member(m.key(), m.value(), first, depth);
        first = false;
      }
    }
    newline(depth);
    out_.push_back('}');
  }

  const JsonWriterOptions& options_;
  std::string& out_;
};

}  // namespace

void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out) {
  Writer(options, out).value(value, 0);
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
