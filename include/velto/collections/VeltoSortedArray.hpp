// VeltoSortedArray<Element>: an array kept in order by a caller's predicate, whose range
// questions ("the first sample at or after 2.5 s") are answered by scanning short arrays and
// bisecting long ones, phrased with comparators that project each element to a bound's type.
//
//   struct Sample { double time; double value; };
//   using Samples = VeltoSortedArray<Sample>;
//   Samples samples([](const Sample& a, const Sample& b) { return a.time < b.time; });
//   samples.insert({2.0, 0.5});
//   samples.insertContentsOf(std::vector<Sample>{{1.0, 0.1}, {3.0, 0.9}});
//   const auto time = [](const Sample& s) { return s.time; };
//   auto from = samples.firstIndex(Samples::FirstElementComparator<double>::greaterThanOrEqualTo(time, 1.5));  // 1
//   auto around = samples.straddling(time, 2.5);   // between {2.0, 0.5} and {3.0, 0.9}
//   auto window = samples.containingRange(time, 1.5, 2.5);   // the samples at 1.0, 2.0 and 3.0
#pragma once

#include <boost/describe/class.hpp>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <ranges>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "velto/collections/detail/SortedArraySearch.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoStackFrame.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/values/VeltoPrecision.hpp"
#include "velto/values/VeltoToleranceComparable.hpp"

namespace velto::detail::sorted_array {

template <class T>
inline constexpr bool isVeltoResult = false;
template <class T>
inline constexpr bool isVeltoResult<VeltoResult<T>> = true;

/// The decayed result of projecting an element.
template <class Projection, class Element>
using Projected = std::remove_cvref_t<std::invoke_result_t<const Projection&, const Element&>>;

template <class Projection, class Element>
concept ProjectionOf = std::invocable<const Projection&, const Element&> &&
                       !std::is_void_v<std::invoke_result_t<const Projection&, const Element&>>;

}  // namespace velto::detail::sorted_array

/// A sequence of `Element`s in which no element belongs strictly before an earlier one under
/// `areInIncreasingOrder` (a strict weak ordering: true when its first argument goes strictly
/// before its second). Regular value type: it owns its elements; copies are deep.
///
/// Searches: `firstIndex`/`lastIndex` (and what is built on them: `first`, `last`, `suffix`,
/// `prefix`, `straddling`, `nearest`) scan arrays shorter than `binarySearchThreshold` (8
/// unless given) and bisect longer ones; `insert`, `indexOf`, the range queries and the
/// trimming removals always bisect. Bisection is O(log n) probes, a scan O(distance from the
/// end it starts at); an insertion or removal also moves the later elements (O(n)).
/// Comparators are trusted to be monotone over the array (a suffix of elements matches a
/// `FirstElementComparator`, a prefix a `LastElementComparator`); nothing checks it, and an
/// inconsistent comparator or ordering gives unspecified answers but never reads out of range.
///
/// Out-of-range indices, index arithmetic overflow and an empty ordering or projection are
/// fatal stops (velto::detail::fatalStop), as for a checked ordinary array. A throwing
/// ordering, projection or predicate propagates; the array is then still sorted and its
/// `count()` still right, with any elements inserted before the throw kept.
/// Thread safety: as for std::vector: const calls may run concurrently (if the ordering and
/// projections may), mutation needs exclusive access.
template <class Element>
class VeltoSortedArray {
 public:
  using Index = std::ptrdiff_t;
  using Ordering = std::function<bool(const Element&, const Element&)>;
  using value_type = Element;
  using const_iterator = typename std::vector<Element>::const_iterator;
  using iterator = const_iterator;

  static constexpr std::size_t defaultBinarySearchThreshold = 8;

  // ---- Comparators -------------------------------------------------------------------------

  /// Matches the elements whose projection is greater than (or at least) a bound: in a sorted
  /// array, a suffix. A tagged variant with the cases `greaterThan(where:isGreaterThan:)` and
  /// `greaterThanOrEqualTo(where:isGreaterThanOrEqualTo:)`; the element's projection is always
  /// the left operand.
  ///
  /// `Projection` is any callable `const Element& -> T` (lambdas, member pointers, std::function).
  /// The factories keep the callable's own type so that searches inline it (about 2x faster
  /// than a std::function on large arrays); the result converts implicitly to the
  /// std::function form, `FirstElementComparator<T>`, where one type must hold any projection.
  template <class T, class Projection = std::function<T(const Element&)>>
  class FirstElementComparator {
   public:
    struct GreaterThan {
      static constexpr std::string_view caseName = "greaterThan";
      Projection where;
      T isGreaterThan;
      BOOST_DESCRIBE_CLASS(GreaterThan, (), (where, isGreaterThan), (), ())
    };
    struct GreaterThanOrEqualTo {
      static constexpr std::string_view caseName = "greaterThanOrEqualTo";
      Projection where;
      T isGreaterThanOrEqualTo;
      BOOST_DESCRIBE_CLASS(GreaterThanOrEqualTo, (), (where, isGreaterThanOrEqualTo), (), ())
    };
    using Cases = std::variant<GreaterThan, GreaterThanOrEqualTo>;

    /// REQUIRES (every constructor): the projection is not an empty std::function or null
    /// pointer (fatal stop otherwise).
    explicit FirstElementComparator(GreaterThan value) : cases_(std::move(value)) { checkProjection(); }
    explicit FirstElementComparator(GreaterThanOrEqualTo value) : cases_(std::move(value)) { checkProjection(); }

    /// The same comparator holding its projection as `Projection` (normally std::function).
    template <class Other>
      requires(!std::same_as<Other, Projection> && std::constructible_from<Projection, const Other&>)
    FirstElementComparator(const FirstElementComparator<T, Other>& other)  // NOLINT(google-explicit-constructor)
        : cases_(convert(other.cases())) {
      checkProjection();
    }

    /// Matches when where(element) > isGreaterThan.
    template <class P>
      requires velto::detail::sorted_array::ProjectionOf<std::decay_t<P>, Element>
    [[nodiscard]] static FirstElementComparator<T, std::decay_t<P>> greaterThan(P&& where, T isGreaterThan) {
      using Result = FirstElementComparator<T, std::decay_t<P>>;
      return Result(typename Result::GreaterThan{std::forward<P>(where), std::move(isGreaterThan)});
    }
    /// Matches when where(element) >= isGreaterThanOrEqualTo.
    template <class P>
      requires velto::detail::sorted_array::ProjectionOf<std::decay_t<P>, Element>
    [[nodiscard]] static FirstElementComparator<T, std::decay_t<P>> greaterThanOrEqualTo(P&& where,
                                                                                        T isGreaterThanOrEqualTo) {
      using Result = FirstElementComparator<T, std::decay_t<P>>;
      return Result(typename Result::GreaterThanOrEqualTo{std::forward<P>(where), std::move(isGreaterThanOrEqualTo)});
    }

    [[nodiscard]] const Cases& cases() const noexcept { return cases_; }

    /// Whether `element` matches; calls the projection once.
    [[nodiscard]] bool matches(const Element& element) const {
      return withMatcher([&](const auto& matcher) { return matcher(element); });
    }

   private:
    friend class VeltoSortedArray;

    template <class OtherCases>
    static Cases convert(const OtherCases& other) {
      if (const auto* c = std::get_if<0>(&other)) return GreaterThan{Projection(c->where), c->isGreaterThan};
      const auto& c = *std::get_if<1>(&other);
      return GreaterThanOrEqualTo{Projection(c.where), c.isGreaterThanOrEqualTo};
    }

    void checkProjection() const {
      std::visit(
          [](const auto& c) {
            if (velto::detail::sorted_array::isEmptyCallable(c.where)) {
              velto::detail::fatalStop("VeltoSortedArray: a comparator's projection is empty");
            }
          },
          cases_);
    }

    // Calls `body` with a `const Element& -> bool` for the held case, so that a search
    // dispatches on the case once, not once per probe.
    template <class Body>
    decltype(auto) withMatcher(Body&& body) const {
      if (const auto* c = std::get_if<GreaterThan>(&cases_)) {
        return body([c](const Element& e) -> bool { return static_cast<bool>(std::invoke(c->where, e) > c->isGreaterThan); });
      }
      const auto* c = std::get_if<GreaterThanOrEqualTo>(&cases_);
      return body(
          [c](const Element& e) -> bool { return static_cast<bool>(std::invoke(c->where, e) >= c->isGreaterThanOrEqualTo); });
    }

    Cases cases_;
  };

  /// Matches the elements whose projection is less than (or at most) a bound: in a sorted
  /// array, a prefix. A tagged variant with the cases `lessThan(where:isLessThan:)` and
  /// `lessThanOrEqualTo(where:isLessThanOrEqualTo:)`; projections as for FirstElementComparator.
  template <class T, class Projection = std::function<T(const Element&)>>
  class LastElementComparator {
   public:
    struct LessThan {
      static constexpr std::string_view caseName = "lessThan";
      Projection where;
      T isLessThan;
      BOOST_DESCRIBE_CLASS(LessThan, (), (where, isLessThan), (), ())
    };
    struct LessThanOrEqualTo {
      static constexpr std::string_view caseName = "lessThanOrEqualTo";
      Projection where;
      T isLessThanOrEqualTo;
      BOOST_DESCRIBE_CLASS(LessThanOrEqualTo, (), (where, isLessThanOrEqualTo), (), ())
    };
    using Cases = std::variant<LessThan, LessThanOrEqualTo>;

    /// REQUIRES (every constructor): the projection is not empty (fatal stop otherwise).
    explicit LastElementComparator(LessThan value) : cases_(std::move(value)) { checkProjection(); }
    explicit LastElementComparator(LessThanOrEqualTo value) : cases_(std::move(value)) { checkProjection(); }

    template <class Other>
      requires(!std::same_as<Other, Projection> && std::constructible_from<Projection, const Other&>)
    LastElementComparator(const LastElementComparator<T, Other>& other)  // NOLINT(google-explicit-constructor)
        : cases_(convert(other.cases())) {
      checkProjection();
    }

    /// Matches when where(element) < isLessThan.
    template <class P>
      requires velto::detail::sorted_array::ProjectionOf<std::decay_t<P>, Element>
    [[nodiscard]] static LastElementComparator<T, std::decay_t<P>> lessThan(P&& where, T isLessThan) {
      using Result = LastElementComparator<T, std::decay_t<P>>;
      return Result(typename Result::LessThan{std::forward<P>(where), std::move(isLessThan)});
    }
    /// Matches when where(element) <= isLessThanOrEqualTo.
    template <class P>
      requires velto::detail::sorted_array::ProjectionOf<std::decay_t<P>, Element>
    [[nodiscard]] static LastElementComparator<T, std::decay_t<P>> lessThanOrEqualTo(P&& where, T isLessThanOrEqualTo) {
      using Result = LastElementComparator<T, std::decay_t<P>>;
      return Result(typename Result::LessThanOrEqualTo{std::forward<P>(where), std::move(isLessThanOrEqualTo)});
    }

    [[nodiscard]] const Cases& cases() const noexcept { return cases_; }

    /// Whether `element` matches; calls the projection once.
    [[nodiscard]] bool matches(const Element& element) const {
      return withMatcher([&](const auto& matcher) { return matcher(element); });
    }

   private:
    friend class VeltoSortedArray;

    template <class OtherCases>
    static Cases convert(const OtherCases& other) {
      if (const auto* c = std::get_if<0>(&other)) return LessThan{Projection(c->where), c->isLessThan};
      const auto& c = *std::get_if<1>(&other);
      return LessThanOrEqualTo{Projection(c.where), c.isLessThanOrEqualTo};
    }

    void checkProjection() const {
      std::visit(
          [](const auto& c) {
            if (velto::detail::sorted_array::isEmptyCallable(c.where)) {
              velto::detail::fatalStop("VeltoSortedArray: a comparator's projection is empty");
            }
          },
          cases_);
    }

    template <class Body>
    decltype(auto) withMatcher(Body&& body) const {
      if (const auto* c = std::get_if<LessThan>(&cases_)) {
        return body([c](const Element& e) -> bool { return static_cast<bool>(std::invoke(c->where, e) < c->isLessThan); });
      }
      const auto* c = std::get_if<LessThanOrEqualTo>(&cases_);
      return body(
          [c](const Element& e) -> bool { return static_cast<bool>(std::invoke(c->where, e) <= c->isLessThanOrEqualTo); });
    }

    Cases cases_;
  };

  /// A lower and an upper comparator that together select a run of elements (see
  /// indexSubRange). Regular value type when its projections are.
  template <class T, class LowerProjection = std::function<T(const Element&)>, class UpperProjection = LowerProjection>
  class RangeComparator {
   public:
    RangeComparator(FirstElementComparator<T, LowerProjection> lowerBoundComparator,
                    LastElementComparator<T, UpperProjection> upperBoundComparator)
        : lowerBoundComparator_(std::move(lowerBoundComparator)), upperBoundComparator_(std::move(upperBoundComparator)) {}

    [[nodiscard]] const FirstElementComparator<T, LowerProjection>& lowerBoundComparator() const noexcept {
      return lowerBoundComparator_;
    }
    [[nodiscard]] const LastElementComparator<T, UpperProjection>& upperBoundComparator() const noexcept {
      return upperBoundComparator_;
    }

   private:
    FirstElementComparator<T, LowerProjection> lowerBoundComparator_;
    LastElementComparator<T, UpperProjection> upperBoundComparator_;
  };

  /// Where a value falls among the elements' projections (see straddling). A tagged variant
  /// with the cases `afterLast`, `beforeFirst`, `exactly` (each with one element),
  /// `between(previous:next:)` and `none`, in that order. Holds copies of the elements.
  class StraddlingResult {
   public:
    struct AfterLast {
      static constexpr std::string_view caseName = "afterLast";
      Element element;
      friend bool operator==(const AfterLast&, const AfterLast&) = default;
      BOOST_DESCRIBE_CLASS(AfterLast, (), (element), (), ())
    };
    struct BeforeFirst {
      static constexpr std::string_view caseName = "beforeFirst";
      Element element;
      friend bool operator==(const BeforeFirst&, const BeforeFirst&) = default;
      BOOST_DESCRIBE_CLASS(BeforeFirst, (), (element), (), ())
    };
    struct Exactly {
      static constexpr std::string_view caseName = "exactly";
      Element element;
      friend bool operator==(const Exactly&, const Exactly&) = default;
      BOOST_DESCRIBE_CLASS(Exactly, (), (element), (), ())
    };
    struct Between {
      static constexpr std::string_view caseName = "between";
      Element previous;
      Element next;
      friend bool operator==(const Between&, const Between&) = default;
      BOOST_DESCRIBE_CLASS(Between, (), (previous, next), (), ())
    };
    struct None {
      static constexpr std::string_view caseName = "none";
      friend bool operator==(const None&, const None&) = default;
      BOOST_DESCRIBE_CLASS(None, (), (), (), ())
    };
    using Cases = std::variant<AfterLast, BeforeFirst, Exactly, Between, None>;

    [[nodiscard]] static StraddlingResult afterLast(Element element) { return StraddlingResult(AfterLast{std::move(element)}); }
    [[nodiscard]] static StraddlingResult beforeFirst(Element element) {
      return StraddlingResult(BeforeFirst{std::move(element)});
    }
    [[nodiscard]] static StraddlingResult exactly(Element element) { return StraddlingResult(Exactly{std::move(element)}); }
    [[nodiscard]] static StraddlingResult between(Element previous, Element next) {
      return StraddlingResult(Between{std::move(previous), std::move(next)});
    }
    [[nodiscard]] static StraddlingResult none() { return StraddlingResult(None{}); }

    [[nodiscard]] const Cases& cases() const noexcept { return cases_; }
    [[nodiscard]] bool isNone() const noexcept { return std::holds_alternative<None>(cases_); }

    friend bool operator==(const StraddlingResult& lhs, const StraddlingResult& rhs)
      requires std::equality_comparable<Element>
    {
      return lhs.cases_ == rhs.cases_;
    }

   private:
    // Each case is built in place: passing a whole Cases by value trips g++ 12's
    // maybe-uninitialized analysis at -O2 on the inactive alternatives.
    template <class Case>
    explicit StraddlingResult(Case chosen) : cases_(std::in_place_type<Case>, std::move(chosen)) {}
    Cases cases_;
  };

  /// A closed range of indices, lowerBound through upperBound.
  struct ClosedIndexRange {
    Index lowerBound;
    Index upperBound;
    friend bool operator==(const ClosedIndexRange&, const ClosedIndexRange&) = default;
    BOOST_DESCRIBE_CLASS(ClosedIndexRange, (), (lowerBound, upperBound), (), ())
  };

  /// An element paired with its index in the array it was taken from.
  struct EnumeratedElement {
    Index offset;
    Element element;
    friend bool operator==(const EnumeratedElement&, const EnumeratedElement&) = default;
    BOOST_DESCRIBE_CLASS(EnumeratedElement, (), (offset, element), (), ())
  };

  // ---- Construction ------------------------------------------------------------------------

  /// Empty, ordered by `<`, default threshold.
  VeltoSortedArray()
    requires requires(const Element& a, const Element& b) { static_cast<bool>(a < b); }
      : VeltoSortedArray(std::nullopt, Ordering(std::less<Element>())) {}

  /// Empty, ordered by `areInIncreasingOrder`, default threshold.
  explicit VeltoSortedArray(Ordering areInIncreasingOrder) : VeltoSortedArray(std::nullopt, std::move(areInIncreasingOrder)) {}

  /// Empty. `binarySearchThreshold`: the count from which firstIndex/lastIndex bisect (none
  /// means 8; 0 bisects always, a huge value never). REQUIRES: `areInIncreasingOrder` is not
  /// empty (fatal stop otherwise).
  VeltoSortedArray(std::optional<std::size_t> binarySearchThreshold, Ordering areInIncreasingOrder)
      : areInIncreasingOrder_(std::move(areInIncreasingOrder)),
        binarySearchThreshold_(binarySearchThreshold.value_or(defaultBinarySearchThreshold)) {
    if (!areInIncreasingOrder_) velto::detail::fatalStop("VeltoSortedArray: the ordering predicate is empty");
  }

  /// The elements of `unsorted`, stably sorted (equivalent elements keep their order).
  template <std::ranges::input_range Range>
    requires std::constructible_from<Element, std::ranges::range_reference_t<Range>>
  [[nodiscard]] static VeltoSortedArray fromUnsorted(Range&& unsorted, std::optional<std::size_t> binarySearchThreshold,
                                                     Ordering areInIncreasingOrder) {
    VeltoSortedArray array(binarySearchThreshold, std::move(areInIncreasingOrder));
    array.elements_ = collect(std::forward<Range>(unsorted));
    std::stable_sort(array.elements_.begin(), array.elements_.end(), array.less());
    array.syncCount();
    return array;
  }
  [[nodiscard]] static VeltoSortedArray fromUnsorted(std::initializer_list<Element> unsorted,
                                                     std::optional<std::size_t> binarySearchThreshold,
                                                     Ordering areInIncreasingOrder) {
    return fromUnsorted(spanOf(unsorted), binarySearchThreshold, std::move(areInIncreasingOrder));
  }
  /// Ordered by `<`, default threshold.
  template <std::ranges::input_range Range>
    requires std::constructible_from<Element, std::ranges::range_reference_t<Range>>
  [[nodiscard]] static VeltoSortedArray fromUnsorted(Range&& unsorted) {
    return fromUnsorted(std::forward<Range>(unsorted), std::nullopt, Ordering(std::less<Element>()));
  }
  [[nodiscard]] static VeltoSortedArray fromUnsorted(std::initializer_list<Element> unsorted) {
    return fromUnsorted(spanOf(unsorted), std::nullopt, Ordering(std::less<Element>()));
  }

  /// The elements of `sorted`, taken as they are. REQUIRES: already in order; not checked (an
  /// unordered input gives unspecified answers, never out-of-range reads).
  template <std::ranges::input_range Range>
    requires std::constructible_from<Element, std::ranges::range_reference_t<Range>>
  [[nodiscard]] static VeltoSortedArray fromSorted(Range&& sorted, std::optional<std::size_t> binarySearchThreshold,
                                                   Ordering areInIncreasingOrder) {
    VeltoSortedArray array(binarySearchThreshold, std::move(areInIncreasingOrder));
    array.elements_ = collect(std::forward<Range>(sorted));
    array.syncCount();
    return array;
  }
  [[nodiscard]] static VeltoSortedArray fromSorted(std::initializer_list<Element> sorted,
                                                   std::optional<std::size_t> binarySearchThreshold,
                                                   Ordering areInIncreasingOrder) {
    return fromSorted(spanOf(sorted), binarySearchThreshold, std::move(areInIncreasingOrder));
  }
  template <std::ranges::input_range Range>
    requires std::constructible_from<Element, std::ranges::range_reference_t<Range>>
  [[nodiscard]] static VeltoSortedArray fromSorted(Range&& sorted) {
    return fromSorted(std::forward<Range>(sorted), std::nullopt, Ordering(std::less<Element>()));
  }
  [[nodiscard]] static VeltoSortedArray fromSorted(std::initializer_list<Element> sorted) {
    return fromSorted(spanOf(sorted), std::nullopt, Ordering(std::less<Element>()));
  }

  // ---- Access ------------------------------------------------------------------------------

  [[nodiscard]] const std::vector<Element>& elements() const noexcept { return elements_; }
  [[nodiscard]] const Ordering& areInIncreasingOrder() const noexcept { return areInIncreasingOrder_; }
  [[nodiscard]] std::size_t binarySearchThreshold() const noexcept { return binarySearchThreshold_; }
  /// The number of elements, kept equal to elements().size() by every mutation.
  [[nodiscard]] Index count() const noexcept { return count_; }
  [[nodiscard]] bool isEmpty() const noexcept { return count_ == 0; }
  /// One past the last index: count().
  [[nodiscard]] Index endIndex() const noexcept { return count_; }
  /// i + 1. Not bounds-checked (as for an ordinary array); REQUIRES: no overflow (fatal stop).
  [[nodiscard]] static Index indexAfter(Index i) noexcept { return velto::detail::sorted_array::plus(i, 1); }
  /// i - 1. Not bounds-checked; REQUIRES: no overflow (fatal stop).
  [[nodiscard]] static Index indexBefore(Index i) noexcept { return velto::detail::sorted_array::minus(i, 1); }

  /// REQUIRES: 0 <= index < count() (fatal stop otherwise).
  [[nodiscard]] const Element& operator[](Index index) const {
    checkIndex(index);
    return elements_[static_cast<std::size_t>(index)];
  }

  [[nodiscard]] const_iterator begin() const noexcept { return elements_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return elements_.end(); }

  /// The first (least) element; none when empty.
  [[nodiscard]] std::optional<Element> min() const {
    if (count_ == 0) return std::nullopt;
    return elements_.front();
  }
  /// The last (greatest) element; none when empty.
  [[nodiscard]] std::optional<Element> max() const {
    if (count_ == 0) return std::nullopt;
    return elements_.back();
  }

  // ---- Mutation ----------------------------------------------------------------------------

  /// Inserts `element` where bisection over the whole array places it and returns that index.
  /// Bisection stops at the first element it meets that is equivalent to the new one (neither
  /// goes before the other) and inserts immediately before it, so among equivalent elements
  /// the new one lands inside or at either edge of their run, not necessarily at its end. That
  /// placement is deliberate and kept. O(log n) comparisons plus moving the later elements.
  Index insert(Element element) {
    const Index position = insertionPosition(element);
    CountSync sync(*this);
    elements_.insert(elements_.begin() + position, std::move(element));
    return position;
  }

  /// Inserts each element of `elements` in turn, as insert() does. The input is copied first,
  /// so it may be (a view of) this very array.
  template <std::ranges::input_range Range>
    requires std::constructible_from<Element, std::ranges::range_reference_t<Range>>
  void insertContentsOf(Range&& elements) {
    std::vector<Element> incoming = collect(std::forward<Range>(elements));
    elements_.reserve(elements_.size() + incoming.size());
    for (Element& element : incoming) insert(std::move(element));
  }
  void insertContentsOf(std::initializer_list<Element> elements) { insertContentsOf(spanOf(elements)); }

  /// Removes and returns the element at `index`. REQUIRES: 0 <= index < count() (fatal stop).
  Element removeAt(Index index) {
    checkIndex(index);
    CountSync sync(*this);
    const auto position = elements_.begin() + index;
    Element removed = std::move(*position);
    elements_.erase(position);
    return removed;
  }

  /// Removes the elements at [lowerBound, upperBound). REQUIRES: 0 <= lowerBound <= upperBound
  /// <= count() (fatal stop otherwise).
  void removeSubrange(Index lowerBound, Index upperBound) {
    if (lowerBound < 0 || lowerBound > upperBound || upperBound > count_) {
      velto::detail::fatalStop("VeltoSortedArray: removeSubrange range out of bounds");
    }
    eraseRange(lowerBound, upperBound);
  }
  /// Removes the elements at range.lowerBound through range.upperBound. REQUIRES: 0 <=
  /// lowerBound <= upperBound < count() (fatal stop otherwise).
  void removeSubrange(ClosedIndexRange range) {
    if (range.lowerBound < 0 || range.lowerBound > range.upperBound || range.upperBound >= count_) {
      velto::detail::fatalStop("VeltoSortedArray: removeSubrange range out of bounds");
    }
    eraseRange(range.lowerBound, velto::detail::sorted_array::plus(range.upperBound, 1));
  }

  /// Removes and returns the first element. REQUIRES: not empty (fatal stop).
  Element removeFirst() {
    if (count_ == 0) velto::detail::fatalStop("VeltoSortedArray: removeFirst on an empty array");
    return removeAt(0);
  }
  /// Removes the first `k` elements. REQUIRES: 0 <= k <= count() (fatal stop).
  void removeFirst(Index k) {
    if (k < 0 || k > count_) velto::detail::fatalStop("VeltoSortedArray: removeFirst count out of range");
    eraseRange(0, k);
  }
  /// Removes and returns the last element. REQUIRES: not empty (fatal stop).
  Element removeLast() {
    if (count_ == 0) velto::detail::fatalStop("VeltoSortedArray: removeLast on an empty array");
    return removeAt(count_ - 1);
  }
  /// Removes the last `k` elements. REQUIRES: 0 <= k <= count() (fatal stop).
  void removeLast(Index k) {
    if (k < 0 || k > count_) velto::detail::fatalStop("VeltoSortedArray: removeLast count out of range");
    eraseRange(count_ - k, count_);
  }

  /// Removes every element; the storage is released unless `keepingCapacity`.
  void removeAll(bool keepingCapacity = false) {
    CountSync sync(*this);
    if (keepingCapacity) {
      elements_.clear();
    } else {
      std::vector<Element>().swap(elements_);
    }
  }

  /// Removes the element that indexOf(element) finds (the first of its equivalents), if any.
  void remove(const Element& element) {
    const Index index = indexOfPosition(element);
    if (index != velto::detail::sorted_array::kNoIndex) eraseRange(index, index + 1);
  }

  /// Removes the elements before the first one that matches, by bisection. When nothing
  /// matches the array is left whole, not emptied: deliberate and kept.
  template <class T, class P>
  void removeBeforeFirst(const FirstElementComparator<T, P>& matching) {
    if (count_ == 0) return;
    const Index first = bisectFirst(matching, 0, count_);
    if (first != velto::detail::sorted_array::kNoIndex) eraseRange(0, first);
  }

  /// Removes the leading run that matches, through the last matching element, by bisection.
  template <class T, class P>
  void removeFromBeginning(const LastElementComparator<T, P>& matching) {
    if (count_ == 0) return;
    const Index last = bisectLast(matching, 0, count_);
    if (last != velto::detail::sorted_array::kNoIndex) eraseRange(0, last + 1);
  }

  /// Removes the trailing run that matches, from the first matching element, by bisection.
  template <class T, class P>
  void removeFromEnd(const FirstElementComparator<T, P>& matching) {
    if (count_ == 0) return;
    const Index first = bisectFirst(matching, 0, count_);
    if (first != velto::detail::sorted_array::kNoIndex) eraseRange(first, count_);
  }

  // ---- Queries -----------------------------------------------------------------------------

  /// The index of an element equivalent to `element` under the ordering (neither goes before
  /// the other), by bisection: the first (lowest-indexed) of them. None when there is none.
  [[nodiscard]] std::optional<Index> indexOf(const Element& element) const {
    return optionalIndex(indexOfPosition(element));
  }
  [[nodiscard]] bool contains(const Element& element) const {
    return indexOfPosition(element) != velto::detail::sorted_array::kNoIndex;
  }

  /// The index of the first element that matches: none when the array is empty or the last
  /// element does not match, 0 when all match. Arrays shorter than binarySearchThreshold() are
  /// scanned from the last element toward the first (stopping at the first non-match); longer
  /// ones are bisected.
  template <class T, class P>
  [[nodiscard]] std::optional<Index> firstIndex(const FirstElementComparator<T, P>& matching) const {
    return optionalIndex(matching.withMatcher([&](const auto& matches) { return firstIndexWith(matches); }));
  }
  template <class T, class P>
  [[nodiscard]] std::optional<Element> first(const FirstElementComparator<T, P>& matching) const {
    return elementAt(matching.withMatcher([&](const auto& matches) { return firstIndexWith(matches); }));
  }

  /// The index of the last element that matches: none when the array is empty or the first
  /// element does not match, count() - 1 when all match. Short arrays are scanned from the
  /// first element forward; longer ones bisected.
  template <class T, class P>
  [[nodiscard]] std::optional<Index> lastIndex(const LastElementComparator<T, P>& matching) const {
    return optionalIndex(matching.withMatcher([&](const auto& matches) { return lastIndexWith(matches); }));
  }
  template <class T, class P>
  [[nodiscard]] std::optional<Element> last(const LastElementComparator<T, P>& matching) const {
    return elementAt(matching.withMatcher([&](const auto& matches) { return lastIndexWith(matches); }));
  }

  /// The elements from firstIndex(matching) to the end; none when nothing matches.
  template <class T, class P>
  [[nodiscard]] std::optional<VeltoSortedArray> suffix(const FirstElementComparator<T, P>& matching) const {
    const Index first = matching.withMatcher([&](const auto& matches) { return firstIndexWith(matches); });
    if (first == velto::detail::sorted_array::kNoIndex) return std::nullopt;
    return slice(first, count_);
  }
  /// The elements from the start through lastIndex(matching); none when nothing matches.
  template <class T, class P>
  [[nodiscard]] std::optional<VeltoSortedArray> prefix(const LastElementComparator<T, P>& matching) const {
    const Index last = matching.withMatcher([&](const auto& matches) { return lastIndexWith(matches); });
    if (last == velto::detail::sorted_array::kNoIndex) return std::nullopt;
    return slice(0, last + 1);
  }

  /// The last min(maxLength, count()) elements. REQUIRES: maxLength >= 0 (fatal stop).
  [[nodiscard]] VeltoSortedArray suffix(Index maxLength) const {
    if (maxLength < 0) velto::detail::fatalStop("VeltoSortedArray: suffix of negative length");
    return slice(count_ - std::min(maxLength, count_), count_);
  }
  /// The first min(maxLength, count()) elements. REQUIRES: maxLength >= 0 (fatal stop).
  [[nodiscard]] VeltoSortedArray prefix(Index maxLength) const {
    if (maxLength < 0) velto::detail::fatalStop("VeltoSortedArray: prefix of negative length");
    return slice(0, std::min(maxLength, count_));
  }

  /// The closed range from the first element matching the lower comparator (bisecting the whole
  /// array) through the last element, at or after it, matching the upper comparator
  /// (bisecting from there to the end). None when the array is empty or either search finds
  /// nothing, so a lower bound above the upper bound gives none.
  template <class T, class LP, class UP>
  [[nodiscard]] std::optional<ClosedIndexRange> indexSubRange(const RangeComparator<T, LP, UP>& matching) const {
    if (count_ == 0) return std::nullopt;
    const Index lower = bisectFirst(matching.lowerBoundComparator(), 0, count_);
    if (lower == velto::detail::sorted_array::kNoIndex) return std::nullopt;
    const Index upper = bisectLast(matching.upperBoundComparator(), lower, count_);
    if (upper == velto::detail::sorted_array::kNoIndex || upper < lower) return std::nullopt;
    return ClosedIndexRange{lower, upper};
  }
  /// The elements of indexSubRange(matching); empty when it is none.
  template <class T, class LP, class UP>
  [[nodiscard]] VeltoSortedArray subRange(const RangeComparator<T, LP, UP>& matching) const {
    const auto range = indexSubRange(matching);
    if (!range) return slice(0, 0);
    return slice(range->lowerBound, range->upperBound + 1);
  }
  /// The elements of indexSubRange(matching), each with its index in this array (not its
  /// position in the sub-range); empty when it is none.
  template <class T, class LP, class UP>
  [[nodiscard]] std::vector<EnumeratedElement> enumeratedSubRange(const RangeComparator<T, LP, UP>& matching) const {
    std::vector<EnumeratedElement> enumerated;
    const auto range = indexSubRange(matching);
    if (!range) return enumerated;
    enumerated.reserve(static_cast<std::size_t>(range->upperBound - range->lowerBound + 1));
    for (Index i = range->lowerBound; i <= range->upperBound; ++i) {
      enumerated.push_back(EnumeratedElement{i, elements_[static_cast<std::size_t>(i)]});
    }
    return enumerated;
  }

  /// The elements for which `isIncluded` is true, in order. An exception from the predicate
  /// propagates and no array is returned.
  template <class Predicate>
    requires std::predicate<Predicate&, const Element&> &&
             (!velto::detail::sorted_array::isVeltoResult<std::invoke_result_t<Predicate&, const Element&>>)
  [[nodiscard]] VeltoSortedArray filter(Predicate&& isIncluded) const {
    VeltoSortedArray filtered = slice(0, 0);
    for (const Element& element : elements_) {
      if (std::invoke(isIncluded, element)) filtered.elements_.push_back(element);
    }
    filtered.syncCount();
    return filtered;
  }
  /// The same for a predicate that can fail: its first failure is returned unchanged (no frame
  /// added: the predicate's own trail is the whole story) and stops the walk.
  template <class Predicate>
    requires std::same_as<std::invoke_result_t<Predicate&, const Element&>, VeltoResult<bool>>
  [[nodiscard]] VeltoResult<VeltoSortedArray> filter(Predicate&& isIncluded) const {
    VeltoSortedArray filtered = slice(0, 0);
    for (const Element& element : elements_) {
      VeltoResult<bool> included = std::invoke(isIncluded, element);
      if (const VeltoError* error = included.errorIfPresent()) return VeltoResult<VeltoSortedArray>::failure(*error);
      if (included.value()) filtered.elements_.push_back(element);
    }
    filtered.syncCount();
    return filtered;
  }

  /// The transform's values, in element order. The transform returns a VeltoResult per element;
  /// the walk stops at the first failure, which is returned wrapped in one frame more: args
  /// {"index": the failing element's index}, invoker `site`, code site
  /// "Data Structures/VeltoSortedArray" / "map(_:)".
  template <class Transform>
    requires velto::detail::sorted_array::isVeltoResult<std::invoke_result_t<Transform&, const Element&>> &&
             (!std::is_void_v<typename std::invoke_result_t<Transform&, const Element&>::value_type>)
  [[nodiscard]] auto map(Transform&& transform, VeltoCodeSite site = VeltoCodeSite::current()) const
      -> VeltoResult<std::vector<typename std::invoke_result_t<Transform&, const Element&>::value_type>> {
    using Value = typename std::invoke_result_t<Transform&, const Element&>::value_type;
    std::vector<Value> values;
    values.reserve(elements_.size());
    for (Index i = 0; i < count_; ++i) {
      VeltoResult<Value> transformed = std::invoke(transform, elements_[static_cast<std::size_t>(i)]);
      if (const VeltoError* error = transformed.errorIfPresent()) {
        return VeltoResult<std::vector<Value>>::failure(error->appending(
            VeltoStackFrame({{"index", i}}, site, VELTO_SITE("Data Structures/VeltoSortedArray", "map(_:)"))));
      }
      values.push_back(std::move(transformed).value());
    }
    return values;
  }

  /// Where `single` falls among the projections: `none` for an empty array; otherwise, taking
  /// the last element whose projection is at most `single` (lastIndex with lessThanOrEqualTo):
  /// `beforeFirst` (the first element) when there is none, `exactly` when its projection equals
  /// `single`, `afterLast` when it is the last element, else `between` it and the next.
  template <class Projection>
    requires velto::detail::sorted_array::ProjectionOf<Projection, Element>
  [[nodiscard]] StraddlingResult straddling(const Projection& comparing,
                                            const velto::detail::sorted_array::Projected<Projection, Element>& single) const {
    const Index at = straddlingIndex(comparing, single);
    if (at == kStraddlingNone) return StraddlingResult::none();
    if (at == kStraddlingBeforeFirst) return StraddlingResult::beforeFirst(elements_.front());
    const Element& element = elements_[static_cast<std::size_t>(at)];
    if (static_cast<bool>(std::invoke(comparing, element) == single)) return StraddlingResult::exactly(element);
    if (at == count_ - 1) return StraddlingResult::afterLast(element);
    return StraddlingResult::between(element, elements_[static_cast<std::size_t>(at + 1)]);
  }

  /// The element whose projection is nearest `target`: the straddling element, or for
  /// `between` the next one only when (next - target) < (target - previous): a tie goes to the
  /// earlier element. None for an empty array. Integer projections are compared without
  /// overflow, whatever their values.
  template <class Projection>
    requires velto::detail::sorted_array::ProjectionOf<Projection, Element>
  [[nodiscard]] std::optional<Element> nearest(const Projection& comparing,
                                               const velto::detail::sorted_array::Projected<Projection, Element>& target) const {
    return elementAt(nearestPosition(comparing, target));
  }
  /// indexOf(nearest(comparing, target)): among elements equivalent under the ordering to the
  /// nearest one, the first.
  template <class Projection>
    requires velto::detail::sorted_array::ProjectionOf<Projection, Element>
  [[nodiscard]] std::optional<Index> nearestIndex(
      const Projection& comparing, const velto::detail::sorted_array::Projected<Projection, Element>& target) const {
    const Index at = nearestPosition(comparing, target);
    if (at == velto::detail::sorted_array::kNoIndex) return std::nullopt;
    return indexOf(elements_[static_cast<std::size_t>(at)]);
  }
  /// As nearest(comparing, target), but for `between` the caller decides:
  /// isNearerToTarget(previous, next, target) true gives previous, false gives next.
  template <class Projection, class IsNearer>
    requires velto::detail::sorted_array::ProjectionOf<Projection, Element> &&
             std::predicate<IsNearer&, const Element&, const Element&,
                            const velto::detail::sorted_array::Projected<Projection, Element>&>
  [[nodiscard]] std::optional<Element> nearest(const Projection& comparing,
                                               const velto::detail::sorted_array::Projected<Projection, Element>& target,
                                               IsNearer&& isNearerToTarget) const {
    const Index at = straddlingIndex(comparing, target);
    if (at == kStraddlingNone) return std::nullopt;
    if (at == kStraddlingBeforeFirst) return elements_.front();
    const Element& element = elements_[static_cast<std::size_t>(at)];
    if (at == count_ - 1 || static_cast<bool>(std::invoke(comparing, element) == target)) return element;
    const Element& next = elements_[static_cast<std::size_t>(at + 1)];
    return std::invoke(isNearerToTarget, element, next, target) ? element : next;
  }

  /// The shortest run of elements whose projections reach from `containsLowerBound` down to
  /// `andContainsUpperBound` up, found by bisection: it starts at the last element whose
  /// projection is <= the lower bound (the first element when none is) and ends at the first
  /// element whose projection is >= the upper bound (the last element when none is). So an
  /// element equal to a bound ends the run there; a bound between two elements takes both
  /// neighbours (as `between` does); a bound outside the elements clips the run to the array's
  /// end; and when both bounds equal a run of equal projections, that whole run is returned.
  /// Empty for an empty array or when the upper bound is below the lower bound.
  template <class Projection>
    requires velto::detail::sorted_array::ProjectionOf<Projection, Element>
  [[nodiscard]] VeltoSortedArray containingRange(
      const Projection& where, const velto::detail::sorted_array::Projected<Projection, Element>& containsLowerBound,
      const velto::detail::sorted_array::Projected<Projection, Element>& andContainsUpperBound) const {
    checkProjection(where);
    if (count_ == 0 || static_cast<bool>(andContainsUpperBound < containsLowerBound)) return slice(0, 0);
    const Element* data = elements_.data();
    Index start = velto::detail::sorted_array::lastMatchByBisection(0, count_, [&](Index i) {
      return static_cast<bool>(std::invoke(where, data[i]) <= containsLowerBound);
    });
    if (start == velto::detail::sorted_array::kNoIndex) start = 0;
    Index stop = velto::detail::sorted_array::firstMatchByBisection(0, count_, [&](Index i) {
      return static_cast<bool>(std::invoke(where, data[i]) >= andContainsUpperBound);
    });
    if (stop == velto::detail::sorted_array::kNoIndex) stop = count_ - 1;
    return slice(std::min(start, stop), std::max(start, stop) + 1);
  }

  // ---- Equality ----------------------------------------------------------------------------

  /// Equal elements in the same order; the orderings and thresholds are not compared.
  friend bool operator==(const VeltoSortedArray& lhs, const VeltoSortedArray& rhs)
    requires std::equality_comparable<Element>
  {
    return lhs.elements_ == rhs.elements_;
  }

  /// Equal counts and each pair of elements at the same index equal within `tolerance`.
  [[nodiscard]] bool equals(const VeltoSortedArray& other, VeltoPrecision tolerance) const
    requires VeltoToleranceComparable<Element>
  {
    if (count_ != other.count_) return false;
    for (std::size_t i = 0; i < elements_.size(); ++i) {
      if (!velto::detail::equalsWithin(elements_[i], other.elements_[i], tolerance)) return false;
    }
    return true;
  }

 private:
  // Sets count_ from the storage when a mutation ends, even by an exception.
  struct CountSync {
    VeltoSortedArray& array;
    explicit CountSync(VeltoSortedArray& owner) noexcept : array(owner) {}
    CountSync(const CountSync&) = delete;
    CountSync& operator=(const CountSync&) = delete;
    ~CountSync() { array.syncCount(); }
  };

  static constexpr Index kStraddlingNone = -2;
  static constexpr Index kStraddlingBeforeFirst = -1;

  // An initializer list as a range (std::views::all of one does not compile with clang 14).
  static std::span<const Element> spanOf(std::initializer_list<Element> list) noexcept {
    return {list.begin(), list.size()};
  }

  template <class Range>
  static std::vector<Element> collect(Range&& range) {
    std::vector<Element> collected;
    if constexpr (std::ranges::sized_range<Range>) collected.reserve(static_cast<std::size_t>(std::ranges::size(range)));
    for (auto&& element : range) collected.emplace_back(std::forward<decltype(element)>(element));
    return collected;
  }

  void syncCount() noexcept { count_ = static_cast<Index>(elements_.size()); }

  auto less() const {
    return [this](const Element& lhs, const Element& rhs) { return areInIncreasingOrder_(lhs, rhs); };
  }

  void checkIndex(Index index) const {
    if (index < 0 || index >= count_) velto::detail::fatalStop("VeltoSortedArray: index out of range");
  }

  template <class Projection>
  static void checkProjection(const Projection& projection) {
    if (velto::detail::sorted_array::isEmptyCallable(projection)) {
      velto::detail::fatalStop("VeltoSortedArray: the projection is empty");
    }
  }

  static std::optional<Index> optionalIndex(Index index) noexcept {
    if (index == velto::detail::sorted_array::kNoIndex) return std::nullopt;
    return index;
  }

  std::optional<Element> elementAt(Index index) const {
    if (index < 0) return std::nullopt;
    return elements_[static_cast<std::size_t>(index)];
  }

  // The elements at [lo, hi) with this array's ordering and threshold.
  VeltoSortedArray slice(Index lo, Index hi) const {
    VeltoSortedArray sliced(binarySearchThreshold_, areInIncreasingOrder_);
    sliced.elements_.assign(elements_.begin() + lo, elements_.begin() + hi);
    sliced.syncCount();
    return sliced;
  }

  void eraseRange(Index lo, Index hi) {
    CountSync sync(*this);
    elements_.erase(elements_.begin() + lo, elements_.begin() + hi);
  }

  // Starts loading an element's memory without reading it (a hint to the bisections).
  auto prefetcher() const noexcept {
    return [data = elements_.data()](Index i) { __builtin_prefetch(data + i); };
  }

  template <class Matches>
  Index firstIndexWith(const Matches& matches) const {
    if (count_ == 0) return velto::detail::sorted_array::kNoIndex;
    const Element* data = elements_.data();
    const auto at = [&](Index i) { return matches(data[i]); };
    if (static_cast<std::size_t>(count_) >= binarySearchThreshold_) {
      return velto::detail::sorted_array::firstMatchByBisection(0, count_, at, prefetcher());
    }
    return velto::detail::sorted_array::firstMatchByScan(count_, at);
  }

  template <class Matches>
  Index lastIndexWith(const Matches& matches) const {
    if (count_ == 0) return velto::detail::sorted_array::kNoIndex;
    const Element* data = elements_.data();
    const auto at = [&](Index i) { return matches(data[i]); };
    if (static_cast<std::size_t>(count_) >= binarySearchThreshold_) {
      return velto::detail::sorted_array::lastMatchByBisection(0, count_, at, prefetcher());
    }
    return velto::detail::sorted_array::lastMatchByScan(count_, at);
  }

  template <class T, class P>
  Index bisectFirst(const FirstElementComparator<T, P>& matching, Index lo, Index hi) const {
    const Element* data = elements_.data();
    return matching.withMatcher([&](const auto& matches) {
      return velto::detail::sorted_array::firstMatchByBisection(lo, hi, [&](Index i) { return matches(data[i]); },
                                                                prefetcher());
    });
  }

  template <class T, class P>
  Index bisectLast(const LastElementComparator<T, P>& matching, Index lo, Index hi) const {
    const Element* data = elements_.data();
    return matching.withMatcher([&](const auto& matches) {
      return velto::detail::sorted_array::lastMatchByBisection(lo, hi, [&](Index i) { return matches(data[i]); },
                                                               prefetcher());
    });
  }

  // Where bisection meets an equivalent element, else where the new element belongs.
  Index insertionPosition(const Element& element) const {
    const Element* data = elements_.data();
    Index lo = 0;
    Index hi = count_;
    while (lo < hi) {
      const Index mid = velto::detail::sorted_array::midpoint(lo, hi);
      if (areInIncreasingOrder_(element, data[mid])) {
        hi = mid;
      } else if (areInIncreasingOrder_(data[mid], element)) {
        lo = velto::detail::sorted_array::plus(mid, 1);
      } else {
        return mid;
      }
    }
    return lo;
  }

  // The first element not before `element`, if it is equivalent to it.
  Index indexOfPosition(const Element& element) const {
    const Element* data = elements_.data();
    Index lo = 0;
    Index hi = count_;
    while (lo < hi) {
      const Index mid = velto::detail::sorted_array::midpoint(lo, hi);
      if (areInIncreasingOrder_(data[mid], element)) {
        lo = velto::detail::sorted_array::plus(mid, 1);
      } else {
        hi = mid;
      }
    }
    if (lo < count_ && !areInIncreasingOrder_(element, data[lo])) return lo;
    return velto::detail::sorted_array::kNoIndex;
  }

  // The index of the last element whose projection is at most `value`, or kStraddlingNone
  // (empty array) or kStraddlingBeforeFirst (no such element).
  template <class Projection, class T>
  Index straddlingIndex(const Projection& comparing, const T& value) const {
    checkProjection(comparing);
    if (count_ == 0) return kStraddlingNone;
    const Index at = lastIndexWith([&](const Element& e) { return static_cast<bool>(std::invoke(comparing, e) <= value); });
    return at == velto::detail::sorted_array::kNoIndex ? kStraddlingBeforeFirst : at;
  }

  template <class Projection, class T>
  Index nearestPosition(const Projection& comparing, const T& target) const {
    const Index at = straddlingIndex(comparing, target);
    if (at == kStraddlingNone) return velto::detail::sorted_array::kNoIndex;
    if (at == kStraddlingBeforeFirst) return 0;
    const T previous = std::invoke(comparing, elements_[static_cast<std::size_t>(at)]);
    if (at == count_ - 1 || static_cast<bool>(previous == target)) return at;
    const T next = std::invoke(comparing, elements_[static_cast<std::size_t>(at + 1)]);
    return velto::detail::sorted_array::nextIsNearer(previous, next, target) ? at + 1 : at;
  }

  std::vector<Element> elements_;
  Ordering areInIncreasingOrder_;
  std::size_t binarySearchThreshold_ = defaultBinarySearchThreshold;
  Index count_ = 0;
};
