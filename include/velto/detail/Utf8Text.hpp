// UTF-8 text from the other standard character types, for debug output of wide and Unicode
// strings.
//
//   velto::detail::utf8Text(std::u16string_view(u"caf\u00e9"))  // "caf\xc3\xa9"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velto::detail {

inline void appendUtf8(std::string& out, char32_t code) {
  // Surrogates and values beyond the Unicode range are not characters: shown as U+FFFD.
  if ((code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) code = 0xFFFD;
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

/// UTF-32 as UTF-8; code points that are not characters become U+FFFD.
inline std::string utf8Text(std::u32string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char32_t code : text) appendUtf8(out, code);
  return out;
}

/// UTF-16 as UTF-8; an unpaired surrogate becomes U+FFFD.
inline std::string utf8Text(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char32_t unit = text[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (char32_t(text[i + 1]) - 0xDC00));
      ++i;
    } else {
      appendUtf8(out, unit);
    }
  }
  return out;
}

/// Wide text (UTF-32 where wchar_t has 32 bits, else UTF-16) as UTF-8.
inline std::string utf8Text(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  if constexpr (sizeof(wchar_t) == 4) {
    for (wchar_t unit : text) appendUtf8(out, static_cast<char32_t>(static_cast<std::uint32_t>(unit)));
    return out;
  } else {
    std::u16string units(text.begin(), text.end());
    return utf8Text(std::u16string_view(units));
  }
}

/// UTF-8 code units as they are (an invalid sequence later fails the document's UTF-8 check,
/// as a std::string holding it would).
inline std::string utf8Text(std::u8string_view text) { return std::string(text.begin(), text.end()); }

}  // namespace velto::detail
