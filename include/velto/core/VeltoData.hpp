// VeltoData: the library's byte buffer.
//
//   VeltoData bytes(16);                      // 16 zero bytes
//   bytes.push_back(std::byte{0x2a});
#pragma once

#include <cstddef>
#include <vector>

/// A growable buffer of bytes; a plain std::vector, so it is a regular value type.
using VeltoData = std::vector<std::byte>;
