// VeltoSortedTupleArray<Key, Value>: a keyed sorted array: (key, value) tuples in one contiguous
// array ordered by unique keys, looked up by bisection. A flat map for data read far more often
// than it changes.
//
//   VeltoSortedTupleArray<std::string, int> ports;
//   ports.setValue("https", 443);
//   ports.setValue("http", 80);
//   if (const int* port = ports.find("http")) connect(*port);          // string_view keys work too
//   auto loaded = VeltoSortedTupleArray<int, std::string>::make(rows);  // fails on a repeated key
//   for (const auto& [key, value] : ports) { /* "http" then "https" */ }
#pragma once

#include <boost/describe/class.hpp>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <ranges>
#include <utility>
#include <vector>

#include "velto/collections/detail/SortedArraySearch.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"

/// Entries {key, value} kept in increasing key order under `Compare` (a strict weak ordering,
/// `<` by default), no two keys equivalent. Regular value type; it owns its entries and copies
/// are deep.
///
/// Cost: lookups bisect the array (O(log n) key comparisons over contiguous memory, the
/// bisection of VeltoSortedArray); insertions and removals move the later entries (O(n)), so
/// building from many entries goes through `make` (one sort, O(n log n)). Keys are read only
/// through the entries, never changed in place: iteration is const, values are reached mutably
/// through `find`. Lookups take any type the ordering compares with Key (with the default
/// `std::less<>`, a std::string_view for std::string keys) without building a Key.
///
/// An ordering that is not a strict weak ordering (NaN keys under `<`) gives unspecified
/// answers, never out-of-range reads. Out-of-range indices stop the program.
/// Thread safety: as for std::vector: const calls may run concurrently, mutation needs
/// exclusive access.
template <class Key, class Value, class Compare = std::less<>>
class VeltoSortedTupleArray {
 public:
  using Index = std::ptrdiff_t;

  /// One tuple of the array.
  struct Entry {
    Key key;
    Value value;
    friend bool operator==(const Entry&, const Entry&) = default;
    BOOST_DESCRIBE_CLASS(Entry, (), (key, value), (), ())
  };

  using key_type = Key;
  using mapped_type = Value;
  using value_type = Entry;
  using const_iterator = typename std::vector<Entry>::const_iterator;
  using iterator = const_iterator;

  VeltoSortedTupleArray() = default;
  explicit VeltoSortedTupleArray(Compare compare) : compare_(std::move(compare)) {}

  /// The entries of `entries` (Entry values or {key, value} pairs), sorted by key, or the
  /// failure "Duplicate key" (argument "key", the first key found twice) when two keys are
  /// equivalent. O(n log n).
  template <std::ranges::input_range Range>
    requires std::constructible_from<Entry, std::ranges::range_reference_t<Range>> ||
             requires(std::ranges::range_reference_t<Range> pair) { Entry{Key(pair.first), Value(pair.second)}; }
  [[nodiscard]] static VeltoResult<VeltoSortedTupleArray> make(Range&& entries, Compare compare = Compare(),
                                                              VeltoCodeSite site = VeltoCodeSite::current()) {
    return makeFrom(std::forward<Range>(entries), std::move(compare), site);
  }
  [[nodiscard]] static VeltoResult<VeltoSortedTupleArray> make(std::initializer_list<Entry> entries, Compare compare = Compare(),
                                                              VeltoCodeSite site = VeltoCodeSite::current()) {
    return makeFrom(entries, std::move(compare), site);
  }

  // ---- Access ----

  [[nodiscard]] Index count() const noexcept { return static_cast<Index>(entries_.size()); }
  [[nodiscard]] bool isEmpty() const noexcept { return entries_.empty(); }
  [[nodiscard]] const std::vector<Entry>& entries() const noexcept { return entries_; }
  [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }

  /// REQUIRES: 0 <= index < count() (fatal stop otherwise).
  [[nodiscard]] const Entry& operator[](Index index) const {
    checkIndex(index);
    return entries_[static_cast<std::size_t>(index)];
  }

  // ---- Lookup (bisection) ----

  /// The value stored under a key equivalent to `key`, or null. The pointer is valid until the
  /// next mutation.
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] const Value* find(const K& key) const {
    const Index at = positionOf(key);
    return at < 0 ? nullptr : &entries_[static_cast<std::size_t>(at)].value;
  }
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] Value* find(const K& key) {
    const Index at = positionOf(key);
    return at < 0 ? nullptr : &entries_[static_cast<std::size_t>(at)].value;
  }
  /// The index of the entry whose key is equivalent to `key`, or none.
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] std::optional<Index> indexOf(const K& key) const {
    const Index at = positionOf(key);
    if (at < 0) return std::nullopt;
    return at;
  }
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] bool contains(const K& key) const {
    return positionOf(key) >= 0;
  }

  /// The index of the first entry whose key is not before `key` (count() when there is none).
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] Index lowerBound(const K& key) const {
    return boundary([&](const Key& entryKey) { return !compare_(entryKey, key); });
  }
  /// The index of the first entry whose key is after `key` (count() when there is none).
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  [[nodiscard]] Index upperBound(const K& key) const {
    return boundary([&](const Key& entryKey) { return compare_(key, entryKey); });
  }

  // ---- Mutation ----

  /// Stores `value` under `key`, replacing the value of an equivalent key (whose stored key is
  /// kept), and returns the entry's index.
  Index setValue(Key key, Value value) {
    const Index at = lowerBound(key);
    const auto position = entries_.begin() + at;
    if (position != entries_.end() && !compare_(key, position->key)) {
      position->value = std::move(value);
    } else {
      entries_.insert(position, Entry{std::move(key), std::move(value)});
    }
    return at;
  }

  /// Adds a new entry and returns its index, or the failure "Duplicate key" (argument "key")
  /// leaving the array unchanged when an equivalent key is present.
  [[nodiscard]] VeltoResult<Index> insert(Key key, Value value, VeltoCodeSite site = VeltoCodeSite::current()) {
    const Index at = lowerBound(key);
    const auto position = entries_.begin() + at;
    if (position != entries_.end() && !compare_(key, position->key)) {
      return VeltoResult<Index>::fromMessage("Duplicate key", {{"key", std::move(key)}}, nullptr, site);
    }
    entries_.insert(position, Entry{std::move(key), std::move(value)});
    return at;
  }

  /// Removes the entry of a key equivalent to `key` and returns its value; none when absent.
  template <class K>
    requires std::strict_weak_order<const Compare&, const Key&, const K&>
  std::optional<Value> removeValue(const K& key) {
    const Index at = positionOf(key);
    if (at < 0) return std::nullopt;
    return std::move(removeAt(at).value);
  }

  /// Removes and returns the entry at `index`. REQUIRES: 0 <= index < count() (fatal stop).
  Entry removeAt(Index index) {
    checkIndex(index);
    const auto position = entries_.begin() + index;
    Entry removed = std::move(*position);
    entries_.erase(position);
    return removed;
  }

  /// Removes every entry; the storage is released unless `keepingCapacity`.
  void removeAll(bool keepingCapacity = false) {
    if (keepingCapacity) {
      entries_.clear();
    } else {
      std::vector<Entry>().swap(entries_);
    }
  }

  /// Equal entries in the same order; the orderings are not compared.
  friend bool operator==(const VeltoSortedTupleArray& lhs, const VeltoSortedTupleArray& rhs)
    requires std::equality_comparable<Key> && std::equality_comparable<Value>
  {
    return lhs.entries_ == rhs.entries_;
  }

 private:
  template <class Range>
  static VeltoResult<VeltoSortedTupleArray> makeFrom(Range&& entries, Compare compare, VeltoCodeSite site) {
    VeltoSortedTupleArray array(std::move(compare));
    if constexpr (std::ranges::sized_range<Range>) array.entries_.reserve(static_cast<std::size_t>(std::ranges::size(entries)));
    for (auto&& entry : entries) {
      if constexpr (std::constructible_from<Entry, std::ranges::range_reference_t<Range>>) {
        array.entries_.push_back(Entry(std::forward<decltype(entry)>(entry)));
      } else {
        array.entries_.push_back(Entry{Key(std::forward<decltype(entry)>(entry).first), Value(std::forward<decltype(entry)>(entry).second)});
      }
    }
    std::stable_sort(array.entries_.begin(), array.entries_.end(),
                     [&array](const Entry& lhs, const Entry& rhs) { return array.compare_(lhs.key, rhs.key); });
    for (std::size_t i = 1; i < array.entries_.size(); ++i) {
      if (!array.compare_(array.entries_[i - 1].key, array.entries_[i].key)) {
        return VeltoResult<VeltoSortedTupleArray>::fromMessage("Duplicate key", {{"key", array.entries_[i].key}}, nullptr, site);
      }
    }
    return array;
  }

  void checkIndex(Index index) const {
    if (index < 0 || index >= count()) velto::detail::fatalStop("VeltoSortedTupleArray: index out of range");
  }

  // The first index whose key satisfies `atOrAfter` (a suffix-shaped test), or count().
  template <class AtOrAfter>
  Index boundary(const AtOrAfter& atOrAfter) const {
    const Entry* data = entries_.data();
    const auto at = [&](Index i) { return static_cast<bool>(atOrAfter(data[i].key)); };
    // Prefetching pays only once the array outgrows the caches; below that it is pure overhead.
    const Index first = count() * static_cast<Index>(sizeof(Entry)) < kPrefetchFromBytes
                            ? velto::detail::sorted_array::firstMatchByBisection(0, count(), at)
                            : velto::detail::sorted_array::firstMatchByBisection(0, count(), at,
                                                                                 [data](Index i) { __builtin_prefetch(data + i); });
    return first == velto::detail::sorted_array::kNoIndex ? count() : first;
  }

  template <class K>
  Index positionOf(const K& key) const {
    const Index at = lowerBound(key);
    if (at < count() && !compare_(key, entries_[static_cast<std::size_t>(at)].key)) return at;
    return velto::detail::sorted_array::kNoIndex;
  }

  static constexpr Index kPrefetchFromBytes = Index{1} << 18;

  std::vector<Entry> entries_;
  [[no_unique_address]] Compare compare_{};
};
