#include "velto/networking/VeltoSignatureParameter.hpp"

#include <charconv>
#include <system_error>

namespace velto::detail {

std::string signatureIntegerText(std::int64_t value) { return std::to_string(value); }

std::string signatureIntegerText(std::uint64_t value) { return std::to_string(value); }

std::string signatureFloatingText(double value) {
  char buffer[32];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  return std::string(buffer, end);
}

}  // namespace velto::detail
