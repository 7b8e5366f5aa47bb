#include "velto/values/VeltoMathUtil.hpp"

#include <cmath>
#include <limits>

#include "velto/detail/Fatal.hpp"

namespace {

double exponentOf(double base, double x) noexcept { return std::log(x) / std::log(base); }

std::uint64_t toUnsigned(double power) noexcept {
  if (!std::isfinite(power)) velto::detail::fatalStop("VeltoMathUtil: power is not finite");
  if (!(power > -1.0) || !(power < 18446744073709551616.0)) velto::detail::fatalStop("VeltoMathUtil: power out of 64-bit range");
  return static_cast<std::uint64_t>(power);
}

}  // namespace

double VeltoMathUtil::roundTo(double subject, double nearest) noexcept { return std::round(subject / nearest) * nearest; }
double VeltoMathUtil::ceil(double value, double step) noexcept { return std::ceil(value / step) * step; }
double VeltoMathUtil::floor(double value, double step) noexcept { return std::floor(value / step) * step; }

std::int64_t VeltoMathUtil::ceil(std::int64_t value, std::int64_t step) noexcept {
  if (step == 0) velto::detail::fatalStop("VeltoMathUtil: ceil to a step of 0");
  if (value == std::numeric_limits<std::int64_t>::min() && step == -1) velto::detail::fatalStop("VeltoMathUtil: ceil remainder overflows");
  const std::int64_t remainder = value % step;
  if (remainder == 0) return value;
  std::int64_t gap = 0, result = 0;
  // Deliberately value + (step - remainder) even for negative values (ceil(-7, 5) is 0).
  if (__builtin_sub_overflow(step, remainder, &gap) || __builtin_add_overflow(value, gap, &result)) {
    velto::detail::fatalStop("VeltoMathUtil: ceil overflows");
  }
  return result;
}

bool VeltoMathUtil::is(double value, double base) noexcept {
  const double p = exponentOf(base, value);
  return p == std::round(p);
}

double VeltoMathUtil::powerOfGreaterThan(double base, double x) noexcept {
  const double p = exponentOf(base, x);
  const double c = std::ceil(p);
  return std::pow(base, c == p ? c + 1 : c);
}

double VeltoMathUtil::powerOfGreaterThanOrEqualTo(double base, double x) noexcept {
  return std::pow(base, std::ceil(exponentOf(base, x)));
}

double VeltoMathUtil::powerOfLessThan(double base, double x) noexcept {
  const double p = exponentOf(base, x);
  const double f = std::floor(p);
  return std::pow(base, f == p ? f - 1 : f);
}

double VeltoMathUtil::powerOfLessThanOrEqualTo(double base, double x) noexcept {
  return std::pow(base, std::floor(exponentOf(base, x)));
}

std::uint64_t VeltoMathUtil::powerOfGreaterThan(std::uint64_t base, std::uint64_t x) noexcept {
  return toUnsigned(powerOfGreaterThan(static_cast<double>(base), static_cast<double>(x)));
}
std::uint64_t VeltoMathUtil::powerOfGreaterThanOrEqualTo(std::uint64_t base, std::uint64_t x) noexcept {
  return toUnsigned(powerOfGreaterThanOrEqualTo(static_cast<double>(base), static_cast<double>(x)));
}
std::uint64_t VeltoMathUtil::powerOfLessThan(std::uint64_t base, std::uint64_t x) noexcept {
  return toUnsigned(powerOfLessThan(static_cast<double>(base), static_cast<double>(x)));
}
std::uint64_t VeltoMathUtil::powerOfLessThanOrEqualTo(std::uint64_t base, std::uint64_t x) noexcept {
  return toUnsigned(powerOfLessThanOrEqualTo(static_cast<double>(base), static_cast<double>(x)));
}

std::optional<double> VeltoMathUtil::leastSquaresInterpolation(const std::vector<Sample>& samples, double at) noexcept {
  const std::size_t count = samples.size();
  if (count == 0) return std::nullopt;
  if (count == 1) return samples.front().y;
  double sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
  const auto add = [&](const Sample& s) {
    sumX += s.x;
    sumY += s.y;
    sumXX += s.x * s.x;
    sumXY += s.x * s.y;
  };
  // Sample order, two at a time, then the odd one: the summation order fixes the last bit.
  std::size_t i = 0;
  for (; i + 1 < count; i += 2) {
    add(samples[i]);
    add(samples[i + 1]);
  }
  if (i < count) add(samples[i]);
  const double n = static_cast<double>(count);
  const double d = n * sumXX - sumX * sumX;
  // Deliberately the mean whenever the system is well conditioned, and the line only when it
  // is singular; kept for compatibility.
  if (d != 0) return sumY / n;
  const double slope = (n * sumXY - sumX * sumY) / d;
  const double intercept = (sumY - slope * sumX) / n;
  return slope * at + intercept;
}
