#include "encoding/JsonWriter.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace velto::detail {

void writeJson(const boost::json::value& value, const JsonWriterOptions& options, std::string& out) {
  JsonStream<std::string> stream(out, options.prettyPrint);
  writeJson(value, options.sortKeys, stream);
}

void releaseJson(boost::json::value&& value) noexcept {
  // Most trees are shallow: only one whose children nest further needs the heap stack.
  const auto nests = [](const boost::json::value& child) { return child.is_structured(); };
  if (value.is_object()) {
    const auto& object = value.get_object();
    if (std::none_of(object.begin(), object.end(), [&](const auto& member) { return nests(member.value()); })) return;
  } else if (value.is_array()) {
    const auto& array = value.get_array();
    if (std::none_of(array.begin(), array.end(), nests)) return;
  } else {
    return;
  }
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
