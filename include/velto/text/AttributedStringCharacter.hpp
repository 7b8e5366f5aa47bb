// character(text, index): the character at an index of a text as a result instead of a trap;
// the attributed-string helper of the library, applied to plain UTF-8 text.
//
//   VeltoResult<std::string> c = character("cafe\u0301!", 3);   // "e\u0301", one character
//   if (!c) ...                                                   // "Index yielded no character"
//
// Text type: C++ has no attributed string, so the helper takes the text an attributed string
// carries, as UTF-8 (`std::string_view`). "Character" means what a reader sees as one:
// an extended grapheme cluster (per ICU's character break rules), so the index counts such
// characters, not bytes or UTF-16 units, and the result is the cluster's UTF-8 text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "velto/core/VeltoResult.hpp"

/// The character (grapheme cluster) at `index` of `attributedString`, counted from 0. Fails with
/// "Index yielded no character" (argument "attributedString", the text) when `index` is
/// negative or not below the number of characters. Malformed UTF-8 reads as U+FFFD.
/// Cost: linear in the text up to `index`. Thread safety: reentrant.
[[nodiscard]] VeltoResult<std::string> character(std::string_view attributedString, std::int64_t index);
