// velto::detail::combineHashes: folds one hash value into another (the boost::hash_combine mix),
// for hashes of composite keys.
#pragma once

#include <cstddef>

namespace velto::detail {

[[nodiscard]] constexpr std::size_t combineHashes(std::size_t seed, std::size_t value) noexcept {
  return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

}  // namespace velto::detail
