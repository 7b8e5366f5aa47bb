// VeltoStridedEnumerator<T>: the numbers from a start towards an end in equal steps, each with
// its offset, as a random-access range whose count is known up front.
//
//   auto ticks = VeltoStridedEnumerator<double>::makeThrough(0, 0.3, 0.1);   // 0, 0.1, 0.2, 0.3
//   if (!ticks) return VeltoResult<void>::fromError(ticks.error());
//   for (auto [offset, value] : ticks.value()) label(offset, value);
//
//   auto down = VeltoStridedEnumerator<int>::makeTo(10, 0, -3).value();      // 10, 7, 4, 1
//   std::int64_t last = down[down.count() - 1].value;                           // 1
#pragma once

#include <boost/describe/class.hpp>

#include <cmath>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <type_traits>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"

/// The values start + offset x stride for offset = 0, 1, ..., count - 1, for an arithmetic T
/// (not bool): `makeThrough` keeps every value that does not pass the end, `makeTo` every value
/// that does not reach it. A stride against the direction of the end gives an empty enumerator,
/// never an endless one. Regular value type holding three numbers; `count` is computed once,
/// each value on access (O(1), random access, no accumulated rounding: value i is computed from
/// i, not by repeated addition).
///
/// Integers: any T and any stride of the signed type of the same width; values near the type's
/// limits are reached exactly and never overflow.
/// Floating point: an end within 1e-12 steps (relative to the step count) of a whole number of
/// steps counts as met, so rounding neither loses nor adds the last step: that step is kept by
/// `makeThrough` and yields exactly the end, and left out by `makeTo`. A stride below the spacing
/// of doubles near the bounds yields repeated values; they are not removed.
///
/// Failures (from `makeThrough` and `makeTo`, arguments "from", the end, "by"): "Zero stride",
/// "Non-finite bound" and "Non-finite stride" (floating point), and "Too many values" when the
/// count would exceed PTRDIFF_MAX (or 2^53 for floating point, beyond which offsets lose
/// precision as doubles).
/// Thread safety: immutable; any number of threads may enumerate one instance.
template <class T>
class VeltoStridedEnumerator {
  static_assert(std::is_arithmetic_v<T> && !std::same_as<T, bool>, "a strided enumerator walks numbers");

 public:
  using Index = std::ptrdiff_t;
  /// The step: T for floating point, the signed integer of T's width otherwise.
  using Stride = std::conditional_t<std::is_floating_point_v<T>, T, std::make_signed_t<std::conditional_t<std::is_integral_v<T>, T, int>>>;

  /// A value and its offset from the start, in steps.
  struct Element {
    Index offset;
    T value;
    friend bool operator==(const Element&, const Element&) = default;
    BOOST_DESCRIBE_CLASS(Element, (), (offset, value), (), ())
  };

  class Iterator {
   public:
    using value_type = Element;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::random_access_iterator_tag;

    Iterator() = default;
    Element operator*() const { return owner_->elementAt(offset_); }
    Element operator[](difference_type n) const { return owner_->elementAt(offset_ + n); }
    Iterator& operator++() { ++offset_; return *this; }
    Iterator operator++(int) { Iterator before = *this; ++offset_; return before; }
    Iterator& operator--() { --offset_; return *this; }
    Iterator operator--(int) { Iterator before = *this; --offset_; return before; }
    Iterator& operator+=(difference_type n) { offset_ += n; return *this; }
    Iterator& operator-=(difference_type n) { offset_ -= n; return *this; }
    friend Iterator operator+(Iterator it, difference_type n) { return it += n; }
    friend Iterator operator+(difference_type n, Iterator it) { return it += n; }
    friend Iterator operator-(Iterator it, difference_type n) { return it -= n; }
    friend difference_type operator-(const Iterator& lhs, const Iterator& rhs) { return lhs.offset_ - rhs.offset_; }
    friend bool operator==(const Iterator& lhs, const Iterator& rhs) { return lhs.offset_ == rhs.offset_; }
    friend std::strong_ordering operator<=>(const Iterator& lhs, const Iterator& rhs) { return lhs.offset_ <=> rhs.offset_; }

   private:
    friend class VeltoStridedEnumerator;
    Iterator(const VeltoStridedEnumerator* owner, Index offset) : owner_(owner), offset_(offset) {}
    const VeltoStridedEnumerator* owner_ = nullptr;
    Index offset_ = 0;
  };
  using iterator = Iterator;
  using const_iterator = Iterator;

  /// from, from + by, ... while the value does not pass `through` (is <= through for a positive
  /// stride, >= for a negative one). See the class comment for the failures.
  [[nodiscard]] static VeltoResult<VeltoStridedEnumerator> makeThrough(T from, T through, Stride by,
                                                                      VeltoCodeSite site = VeltoCodeSite::current()) {
    return make(from, through, by, true, site);
  }
  /// from, from + by, ... while the value does not reach `to` (is < to for a positive stride,
  /// > to for a negative one).
  [[nodiscard]] static VeltoResult<VeltoStridedEnumerator> makeTo(T from, T to, Stride by,
                                                                 VeltoCodeSite site = VeltoCodeSite::current()) {
    return make(from, to, by, false, site);
  }

  [[nodiscard]] T from() const noexcept { return from_; }
  [[nodiscard]] Stride stride() const noexcept { return stride_; }
  [[nodiscard]] Index count() const noexcept { return count_; }
  [[nodiscard]] bool isEmpty() const noexcept { return count_ == 0; }

  /// The value at `offset` with its offset. REQUIRES: 0 <= offset < count() (fatal stop).
  [[nodiscard]] Element operator[](Index offset) const {
    if (offset < 0 || offset >= count_) velto::detail::fatalStop("VeltoStridedEnumerator: offset out of range");
    return elementAt(offset);
  }

  [[nodiscard]] Iterator begin() const noexcept { return Iterator(this, 0); }
  [[nodiscard]] Iterator end() const noexcept { return Iterator(this, count_); }

  friend bool operator==(const VeltoStridedEnumerator&, const VeltoStridedEnumerator&) = default;

 private:
  VeltoStridedEnumerator(T from, Stride stride, Index count, T snappedEnd)
      : from_(from), stride_(stride), count_(count), snappedEnd_(snappedEnd) {}

  static VeltoResult<VeltoStridedEnumerator> make(T from, T end, Stride by, bool inclusive, VeltoCodeSite site) {
    const auto fail = [&](const char* message) {
      return VeltoResult<VeltoStridedEnumerator>::fromMessage(
          message, {{"from", from}, {inclusive ? "through" : "to", end}, {"by", by}}, nullptr, site);
    };
    if constexpr (std::is_floating_point_v<T>) {
      if (!std::isfinite(from) || !std::isfinite(end)) return fail("Non-finite bound");
      if (!std::isfinite(by)) return fail("Non-finite stride");
    }
    if (by == 0) return fail("Zero stride");
    if constexpr (std::is_integral_v<T>) {
      return countIntegers(from, end, by, inclusive, fail);
    } else {
      return countFloats(from, end, by, inclusive, fail);
    }
  }

  template <class Fail>
  static VeltoResult<VeltoStridedEnumerator> countIntegers(T from, T end, Stride by, bool inclusive, const Fail& fail) {
    const bool up = by > 0;
    if (up ? (end < from || (!inclusive && end == from)) : (from < end || (!inclusive && end == from))) {
      return VeltoStridedEnumerator(from, by, 0, end);
    }
    // The distance fits 64 unsigned bits for every T; the magnitude of the stride too.
    const std::uint64_t distance = up ? static_cast<std::uint64_t>(end) - static_cast<std::uint64_t>(from)
                                      : static_cast<std::uint64_t>(from) - static_cast<std::uint64_t>(end);
    const std::uint64_t step = by > 0 ? static_cast<std::uint64_t>(by) : std::uint64_t{0} - static_cast<std::uint64_t>(by);
    // Values at distances 0, step, 2 step, ... <= distance (inclusive) or < distance.
    const std::uint64_t reach = inclusive ? distance : distance - 1;
    const std::uint64_t steps = reach / step;  // the last offset
    if (steps >= static_cast<std::uint64_t>(std::numeric_limits<Index>::max())) return fail("Too many values");
    return VeltoStridedEnumerator(from, by, static_cast<Index>(steps + 1), end);
  }

  template <class Fail>
  static VeltoResult<VeltoStridedEnumerator> countFloats(T from, T end, Stride by, bool inclusive, const Fail& fail) {
    const double q = (static_cast<double>(end) - static_cast<double>(from)) / static_cast<double>(by);
    if (!(q >= 0)) {  // against the direction (or an overflowing distance of opposite signs)
      if (q > -kSnap) return snappedCount(from, end, by, inclusive, 0.0);
      return VeltoStridedEnumerator(from, by, 0, end);
    }
    if (q >= kMaxFloatCount) return fail("Too many values");
    const double nearest = std::round(q);
    if (std::abs(q - nearest) <= kSnap * std::max(1.0, nearest)) return snappedCount(from, end, by, inclusive, nearest);
    // Whether the value at `offset` is left out. Monotone in the offset (the rounding of each
    // operation is), so the last offset kept is found by bisection, whatever the rounding of q.
    const auto excluded = [&](double offset) {
      const double value = static_cast<double>(from) + offset * static_cast<double>(by);
      const double limit = static_cast<double>(end);
      if (by > 0) return inclusive ? value > limit : value >= limit;
      return inclusive ? value < limit : value <= limit;
    };
    if (!excluded(kMaxFloatCount - 1)) return fail("Too many values");
    double kept = 0;  // offset 0 is from itself, which q >= 0 keeps
    double left = kMaxFloatCount - 1;
    while (left - kept > 1) {
      const double mid = std::floor((kept + left) / 2);
      if (excluded(mid)) {
        left = mid;
      } else {
        kept = mid;
      }
    }
    return VeltoStridedEnumerator(from, by, static_cast<Index>(kept) + 1, end);
  }

  // The end is met at offset `steps`: kept (as exactly the end) by a through-enumeration.
  static VeltoStridedEnumerator snappedCount(T from, T end, Stride by, bool inclusive, double steps) {
    const auto count = static_cast<Index>(steps) + (inclusive ? 1 : 0);
    return VeltoStridedEnumerator(from, by, count, end);
  }

  Element elementAt(Index offset) const { return Element{offset, valueAt(offset)}; }

  T valueAt(Index offset) const {
    if constexpr (std::is_integral_v<T>) {
      // Modulo 2^64 the sum is exact, and the true value lies between from and the end.
      return static_cast<T>(static_cast<std::uint64_t>(from_) + static_cast<std::uint64_t>(offset) * static_cast<std::uint64_t>(stride_));
    } else {
      const double value = static_cast<double>(from_) + static_cast<double>(offset) * static_cast<double>(stride_);
      if (snapped(offset)) return snappedEnd_;
      return static_cast<T>(value);
    }
  }

  // Whether `offset` is the step that met the end exactly (floating point only).
  bool snapped(Index offset) const {
    const double q = (static_cast<double>(snappedEnd_) - static_cast<double>(from_)) / static_cast<double>(stride_);
    const double nearest = std::round(q);
    return static_cast<double>(offset) == nearest && std::abs(q - nearest) <= kSnap * std::max(1.0, nearest);
  }

  static constexpr double kSnap = 1e-12;
  static constexpr double kMaxFloatCount = 9007199254740992.0;  // 2^53

  T from_;
  Stride stride_;
  Index count_;
  T snappedEnd_;  // the end as given
};
