// VeltoStringEncoding: the text encodings that sensitive values convert between.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <boost/describe/enum.hpp>

#include "velto/core/VeltoData.hpp"

/// Text encodings. Library text is UTF-8; the others are reached by conversion only.
enum class VeltoStringEncoding { utf8, ascii, isoLatin1, utf16BigEndian, utf16LittleEndian };
BOOST_DESCRIBE_ENUM(VeltoStringEncoding, utf8, ascii, isoLatin1, utf16BigEndian, utf16LittleEndian)

namespace velto::detail {

/// UTF-8 `text` in `encoding`; none when `text` is not valid UTF-8 or holds a character the
/// encoding cannot represent. Never lossy.
[[nodiscard]] std::optional<VeltoData> encodeText(std::string_view text, VeltoStringEncoding encoding);

/// `bytes` in `encoding` as UTF-8 text; none when they do not decode.
[[nodiscard]] std::optional<std::string> decodeText(const VeltoData& bytes, VeltoStringEncoding encoding);

}  // namespace velto::detail
