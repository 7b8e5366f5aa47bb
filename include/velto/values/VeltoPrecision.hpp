// VeltoPrecision: the tolerance of an approximate comparison (one double).
//
//   if (a.equals(b, VeltoPrecision(1e-9))) ...
#pragma once

/// A tolerance carried by value. Comparisons that take one treat a difference as equal when it
/// is strictly below `value()`. Regular value type. Thread safety: immutable.
class VeltoPrecision {
 public:
  explicit constexpr VeltoPrecision(double value) noexcept : value_(value) {}

  [[nodiscard]] constexpr double value() const noexcept { return value_; }

  friend constexpr bool operator==(const VeltoPrecision&, const VeltoPrecision&) noexcept = default;

 private:
  double value_;
};
