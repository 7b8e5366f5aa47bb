#include "velto/detail/Fatal.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace velto::detail {

void fatalStop(std::string_view reason, const char* file, unsigned line) noexcept {
  std::string text = "velto: fatal: ";
  text.append(reason);
  text.append(" (").append(file ? file : "?").append(":").append(std::to_string(line)).append(")\n");
  // One write so that two threads stopping at once do not interleave their lines.
  [[maybe_unused]] auto written = ::write(STDERR_FILENO, text.data(), text.size());
  std::abort();
}

}  // namespace velto::detail
