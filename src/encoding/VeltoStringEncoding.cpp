#include "velto/encoding/VeltoStringEncoding.hpp"

#include <cstdint>
#include <vector>

namespace velto::detail {
namespace {

// Decodes UTF-8 into code points; none when the text is not well-formed.
std::optional<std::vector<char32_t>> codePoints(std::string_view text) {
  std::vector<char32_t> points;
  points.reserve(text.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  while (p < end) {
    const unsigned char c = *p;
    int length = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
    if (length == 0 || end - p < length) return std::nullopt;
    char32_t code = length == 1 ? c : c & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return std::nullopt;
      code = (code << 6) | (p[i] & 0x3F);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return std::nullopt;
    points.push_back(code);
    p += length;
  }
  return points;
}

void appendUtf8(std::string& out, char32_t code) {
  if (code < 0x80) {
    out.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (code >> 6)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (code >> 12)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (code >> 18)));
    out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

void appendUnit(VeltoData& out, std::uint16_t unit, bool bigEndian) {
  const auto high = std::byte(unit >> 8);
  const auto low = std::byte(unit & 0xFF);
  out.push_back(bigEndian ? high : low);
  out.push_back(bigEndian ? low : high);
}

}  // namespace

std::optional<VeltoData> encodeText(std::string_view text, VeltoStringEncoding encoding) {
  const auto points = codePoints(text);
  if (!points) return std::nullopt;
  VeltoData out;
  switch (encoding) {
    case VeltoStringEncoding::utf8:
      out.assign(reinterpret_cast<const std::byte*>(text.data()), reinterpret_cast<const std::byte*>(text.data()) + text.size());
      return out;
    case VeltoStringEncoding::ascii:
    case VeltoStringEncoding::isoLatin1: {
      const char32_t limit = encoding == VeltoStringEncoding::ascii ? 0x80 : 0x100;
      for (char32_t code : *points) {
        if (code >= limit) return std::nullopt;
        out.push_back(std::byte(code));
      }
      return out;
    }
    case VeltoStringEncoding::utf16BigEndian:
    case VeltoStringEncoding::utf16LittleEndian: {
      const bool bigEndian = encoding == VeltoStringEncoding::utf16BigEndian;
      for (char32_t code : *points) {
        if (code < 0x10000) {
          appendUnit(out, static_cast<std::uint16_t>(code), bigEndian);
        } else {
          const char32_t v = code - 0x10000;
          appendUnit(out, static_cast<std::uint16_t>(0xD800 | (v >> 10)), bigEndian);
          appendUnit(out, static_cast<std::uint16_t>(0xDC00 | (v & 0x3FF)), bigEndian);
        }
      }
      return out;
    }
  }
  return std::nullopt;
}

std::optional<std::string> decodeText(const VeltoData& bytes, VeltoStringEncoding encoding) {
  std::string out;
  switch (encoding) {
    case VeltoStringEncoding::utf8: {
      std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      if (!codePoints(text)) return std::nullopt;
      return std::string(text);
    }
    case VeltoStringEncoding::ascii:
    case VeltoStringEncoding::isoLatin1:
      for (std::byte b : bytes) {
        const auto code = std::to_integer<char32_t>(b);
        if (encoding == VeltoStringEncoding::ascii && code >= 0x80) return std::nullopt;
        appendUtf8(out, code);
      }
      return out;
    case VeltoStringEncoding::utf16BigEndian:
    case VeltoStringEncoding::utf16LittleEndian: {
      if (bytes.size() % 2 != 0) return std::nullopt;
      const bool bigEndian = encoding == VeltoStringEncoding::utf16BigEndian;
      auto unitAt = [&](std::size_t i) {
        const auto a = std::to_integer<std::uint16_t>(bytes[i]);
        const auto b = std::to_integer<std::uint16_t>(bytes[i + 1]);
        return static_cast<std::uint16_t>(bigEndian ? (a << 8) | b : (b << 8) | a);
      };
      for (std::size_t i = 0; i < bytes.size(); i += 2) {
        const std::uint16_t unit = unitAt(i);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
          if (i + 2 >= bytes.size()) return std::nullopt;
          const std::uint16_t low = unitAt(i + 2);
          if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
          appendUtf8(out, 0x10000 + ((char32_t(unit) - 0xD800) << 10) + (char32_t(low) - 0xDC00));
          i += 2;
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
          return std::nullopt;
        } else {
          appendUtf8(out, unit);
        }
      }
      return out;
    }
  }
  return std::nullopt;
}

}  // namespace velto::detail
