#include "velto/encoding/VeltoUploadEncodable.hpp"

namespace velto::detail {

std::string base64Text(const VeltoData& bytes) {
  static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const auto n = (std::to_integer<std::uint32_t>(bytes[i]) << 16) | (std::to_integer<std::uint32_t>(bytes[i + 1]) << 8) |
                   std::to_integer<std::uint32_t>(bytes[i + 2]);
    const char quad[4] = {alphabet[n >> 18], alphabet[(n >> 12) & 63], alphabet[(n >> 6) & 63], alphabet[n & 63]};
    text.append(quad, 4);
  }
  if (const std::size_t rest = bytes.size() - i; rest > 0) {
    std::uint32_t n = std::to_integer<std::uint32_t>(bytes[i]) << 16;
    if (rest == 2) n |= std::to_integer<std::uint32_t>(bytes[i + 1]) << 8;
    const char quad[4] = {alphabet[n >> 18], alphabet[(n >> 12) & 63], rest == 2 ? alphabet[(n >> 6) & 63] : '=', '='};
    text.append(quad, 4);
  }
  return text;
}

}  // namespace velto::detail
