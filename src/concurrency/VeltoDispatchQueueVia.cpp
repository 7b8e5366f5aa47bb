#include "velto/concurrency/VeltoDispatchQueueVia.hpp"

#include <algorithm>
#include <cmath>

namespace velto::detail {

std::chrono::steady_clock::duration durationFromSeconds(double seconds) noexcept {
  constexpr double kLongest = 100.0 * 365.25 * 24 * 3600;
  const double clamped = std::isnan(seconds) || seconds < 0 ? 0 : std::min(seconds, kLongest);
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(clamped));
}

std::chrono::steady_clock::time_point deadlineAfterSeconds(double seconds) noexcept {
  return std::chrono::steady_clock::now() + durationFromSeconds(seconds);
}

}  // namespace velto::detail
