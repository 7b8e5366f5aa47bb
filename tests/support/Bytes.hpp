// Bodies as bytes and bytes as text, for tests that compare what was sent and received.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <velto/core/VeltoData.hpp>

namespace velto::test {

inline VeltoData bytesOf(std::string_view text) {
  const auto* first = reinterpret_cast<const std::byte*>(text.data());
  return VeltoData(first, first + text.size());
}

inline std::string textOf(const VeltoData& data) { return std::string(reinterpret_cast<const char*>(data.data()), data.size()); }

}  // namespace velto::test
