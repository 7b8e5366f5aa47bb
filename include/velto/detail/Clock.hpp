// Wall-clock time stamps: seconds since 1970 as a double, the library's `timestampEpoch`.
#pragma once

#include <chrono>

namespace velto::detail {

[[nodiscard]] inline double wallClockEpochSeconds() noexcept {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace velto::detail
