// Hash helpers for composite keys: combineHashes folds one hash value into another (the
// boost::hash_combine mix); hashShortText hashes a short text such as a locale identifier
// inline, several times faster than std::hash's out-of-line byte loop at that length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace velto::detail {

[[nodiscard]] constexpr std::size_t combineHashes(std::size_t seed, std::size_t value) noexcept {
  return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

/// Eight bytes at a time, each word mixed in by a multiply and a shift; the ragged end is read
/// as whole (overlapping) words, never by a variable-length copy, which would stall the load.
[[nodiscard]] inline std::size_t hashShortText(std::string_view text) noexcept {
  const auto load64 = [](const char* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
  };
  const auto load32 = [](const char* at) {
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return static_cast<std::uint64_t>(word);
  };
  const auto mix = [](std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0xff51afd7ed558ccdULL;
    return hash ^ (hash >> 32);
  };
  const char* data = text.data();
  const std::size_t size = text.size();
  std::uint64_t hash = 0x9e3779b97f4a7c15ULL ^ size;
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) hash = mix(hash, load64(data + at));
    hash = mix(hash, load64(data + size - 8));
  } else if (size >= 4) {
    hash = mix(hash, (load32(data) << 32) | load32(data + size - 4));
  } else if (size > 0) {
    const auto byte = [&](std::size_t at) { return static_cast<std::uint64_t>(static_cast<unsigned char>(data[at])); };
    hash = mix(hash, (byte(0) << 16) | (byte(size / 2) << 8) | byte(size - 1));
  }
  return static_cast<std::size_t>(hash);
}

}  // namespace velto::detail
