#include "velto/values/VeltoDoubleDomain.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "velto/detail/Fatal.hpp"

namespace {

constexpr char kFile[] = "Util/VeltoDoubleDomain";
constexpr double kPi = 3.141592653589793;
constexpr double kHalfPi = 1.5707963267948966;

// The position limit shared by the clamped operations: 1 unless below 1 (so NaN becomes 1),
// then anything below 0 becomes 0.
double limitToUnit(double t) noexcept {
  t = t < 1 ? t : 1;
  return t < 0 ? 0 : t;
}

std::size_t bitsOf(double value) noexcept { return static_cast<std::size_t>(std::bit_cast<std::uint64_t>(value == 0 ? 0.0 : value)); }

// The standard library's min and max as the original platform defines them: the first argument
// wins ties and comparisons with NaN.
double smaller(double x, double y) noexcept { return y < x ? y : x; }
double greater(double x, double y) noexcept { return y >= x ? y : x; }

void combine(std::size_t& seed, std::size_t value) noexcept { seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2); }

void appendNumber(std::string& out, double value) {
  char buffer[32];
  const auto written = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, written.ptr);
}

}  // namespace

VeltoDoubleDomain VeltoDoubleDomain::fromClosedRange(double lower, double upper) noexcept {
  if (!(lower <= upper)) velto::detail::fatalStop("VeltoDoubleDomain: closed range requires lower <= upper");
  return {lower, upper};
}

bool VeltoDoubleDomain::contains(const VeltoDoubleDomain& other) const noexcept {
  return trueMin() <= other.trueMin() && other.trueMax() <= trueMax();
}

std::optional<VeltoDoubleDomain> VeltoDoubleDomain::intersecting(const VeltoDoubleDomain& other) const noexcept {
  const double lo = greater(trueMin(), other.trueMin());
  const double hi = smaller(trueMax(), other.trueMax());
  if (lo <= hi) return VeltoDoubleDomain(lo, hi);
  return std::nullopt;
}

VeltoDoubleDomain VeltoDoubleDomain::unioning(const VeltoDoubleDomain& other) const noexcept {
  return {smaller(trueMin(), other.trueMin()), greater(trueMax(), other.trueMax())};
}

bool VeltoDoubleDomain::contains(double v, BoundsEligibility eligibility) const noexcept {
  if (range_ > 0) {
    switch (eligibility) {
      case BoundsEligibility::allowBothBounds: return min_ <= v && v <= max_;
      case BoundsEligibility::allowMin: return min_ <= v && v < max_;
      case BoundsEligibility::allowMax: return min_ < v && v <= max_;
      case BoundsEligibility::excludeBothBounds: return min_ < v && v < max_;
    }
  } else if (range_ < 0) {
    switch (eligibility) {
      case BoundsEligibility::allowBothBounds: return max_ <= v && v <= min_;
      case BoundsEligibility::allowMin: return max_ < v && v <= min_;
      case BoundsEligibility::allowMax: return max_ <= v && v < min_;
      case BoundsEligibility::excludeBothBounds: return max_ < v && v < min_;
    }
  } else if (range_ == 0) {
    return eligibility == BoundsEligibility::allowBothBounds && v == min_;
  }
  return false;
}

bool VeltoDoubleDomain::equals(const VeltoDoubleDomain& other, VeltoPrecision tolerance) const noexcept {
  return std::fabs(min_ - other.min_) < tolerance.value() && std::fabs(max_ - other.max_) < tolerance.value();
}

double VeltoDoubleDomain::normalizeOpen(double x) const noexcept {
  if (range_ == 0) return 0;
  return (x - min_) / range_;
}

double VeltoDoubleDomain::normalizeClamped(double x) const noexcept {
  if (range_ == 0) return 0;
  return limitToUnit((x - min_) / range_);
}

double VeltoDoubleDomain::normalizeModulo(double x) const noexcept {
  if (range_ == 0) return 0;
  double t = (x - min_) / range_;
  // Exactly 1 is left alone while 1.25 wraps to 0.25: deliberate, kept for compatibility.
  if (t > 1 || t < 0) t -= std::floor(t);
  return t;
}

double VeltoDoubleDomain::denormalizeOpen(double t) const noexcept { return t * range_ + min_; }

double VeltoDoubleDomain::denormalizeClamped(double t) const noexcept { return clamp(t * range_ + min_); }

double VeltoDoubleDomain::clamp(double x) const noexcept {
  if (range_ > 0) {
    const double limited = smaller(x, max_);  // NaN stays NaN here and fails the next test
    return limited >= min_ ? limited : min_;
  }
  if (range_ < 0) {
    const double limited = greater(x, max_);
    return limited < min_ ? limited : min_;
  }
  return min_;
}

double VeltoDoubleDomain::modulo(double x) const noexcept {
  if (min_ == max_) return min_;
  if (x == min_) return x;
  if ((min_ < max_ && x > min_) || (min_ > max_ && x < min_)) return x - std::trunc((x - min_) / range_) * range_;
  const double q = (x - min_) / range_;
  return x - (std::signbit(q) ? std::floor(q) : std::ceil(q)) * range_;
}

double VeltoDoubleDomain::lerpOpen(double x, const VeltoDoubleDomain& into) const noexcept {
  if (range_ == 0) return into.min_;
  return (x - min_) / range_ * into.range_ + into.min_;
}

double VeltoDoubleDomain::lerpClamped(double x, const VeltoDoubleDomain& into) const noexcept {
  if (range_ == 0) return into.min_;
  return limitToUnit((x - min_) / range_) * into.range_ + into.min_;
}

double VeltoDoubleDomain::lerpModulo(double x, const VeltoDoubleDomain& into) const noexcept {
  if (range_ == 0) return into.min_;
  return into.denormalizeOpen(normalizeModulo(x));
}

VeltoDoubleDomain VeltoDoubleDomain::lerpOpenTowards(double ratio, const VeltoDoubleDomain& towards) const noexcept {
  return {(towards.min_ - min_) * ratio + min_, (towards.max_ - max_) * ratio + max_};
}

double VeltoDoubleDomain::shortestWrappingDistance(double from, double to) const noexcept {
  const double d = std::fabs(from - to);
  return range_ * 0.5 < d ? range_ - d : d;
}

double VeltoDoubleDomain::lerpShortest(double x, const VeltoDoubleDomain& subset,
                                       const VeltoDoubleDomain& wrapping) const noexcept {
  double t = 0;
  if (range_ != 0) {
    t = (x - min_) / range_;
    if (t < 0 || t > 1) t -= std::floor(t);
  }
  const double r = subset.range_ / wrapping.range_;
  if (r <= 0.5) return t * subset.range_ + subset.min_;
  return wrapping.modulo(subset.min_ - t * (1 - r) * wrapping.range_);
}

double VeltoDoubleDomain::denormalizeShortest(double t, const VeltoDoubleDomain& subset) const noexcept {
  return normal.lerpShortest(t, subset, *this);
}

double VeltoDoubleDomain::halfCosInterpolateClamped(double x) const noexcept {
  if (range_ == 0) return 1;
  return std::cos(normalizeClamped(x) * kPi);
}

double VeltoDoubleDomain::quarterCosInterpolateClamped(double x) const noexcept {
  if (range_ == 0) return 1;
  return std::cos(normalizeClamped(x) * kHalfPi);
}

double VeltoDoubleDomain::quadraticInterpolateClamped(double x) const noexcept {
  const double t = normalizeClamped(x);
  const double rise = t * t - t;
  return (1 - t) * (1 - t) / (rise + rise + 1);
}

std::size_t VeltoDoubleDomain::hash() const noexcept {
  std::size_t seed = 0;
  combine(seed, bitsOf(min_));
  combine(seed, bitsOf(max_));
  combine(seed, bitsOf(range_));
  return seed;
}

VeltoResult<std::string> VeltoDoubleDomain::encodedJson() const {
  if (!std::isfinite(min_) || !std::isfinite(max_)) {
    return VeltoResult<std::string>::fromMessage("Non-finite bound", {{"min", min_}, {"max", max_}}, nullptr,
                                                 VELTO_SITE(kFile, "encode(to:)"));
  }
  std::string out = "{\"min\":";
  appendNumber(out, min_);
  out += ",\"max\":";
  appendNumber(out, max_);
  out += '}';
  return out;
}

VeltoResult<VeltoDoubleDomain> VeltoDoubleDomain::makeFromJson(std::string_view json) {
  boost::system::error_code ec;
  const boost::json::value parsed = boost::json::parse(boost::json::string_view(json.data(), json.size()), ec);
  if (ec || !parsed.is_object()) {
    return VeltoResult<VeltoDoubleDomain>::fromMessage("Invalid JSON", {{"json", std::string(json)}}, nullptr,
                                                       VELTO_SITE(kFile, "init(from:)"));
  }
  double bounds[2] = {0, 0};
  const char* keys[2] = {"min", "max"};
  for (int i = 0; i < 2; ++i) {
    const boost::json::value* bound = parsed.as_object().if_contains(keys[i]);
    boost::system::error_code numberError;
    if (bound) bounds[i] = bound->to_number<double>(numberError);
    if (!bound || numberError) {
      return VeltoResult<VeltoDoubleDomain>::fromMessage(
          "Missing bound", {{"json", std::string(json)}, {"key", std::string(keys[i])}}, nullptr,
          VELTO_SITE(kFile, "init(from:)"));
    }
  }
  return VeltoDoubleDomain(bounds[0], bounds[1]);
}
