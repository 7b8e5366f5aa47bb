// VeltoDictionaryOfDictionaries<OuterKey, InnerKey, Value>: values under two keys, grouped by
// the first, with no empty group ever kept.
//
//   VeltoDictionaryOfDictionaries<std::string, int, double> prices;     // shop -> item -> price
//   prices.setValue("north", 17, 2.5);
//   if (const double* price = prices.value("north", 17)) show(*price);
//   prices.removeValue("north", 17);                                    // "north" goes with it
//   for (const auto& [shop, items] : prices) { ... }
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>

/// A dictionary of dictionaries over std::unordered_map: an outer key selects an inner
/// dictionary, an inner key a value in it. Regular value type; it owns its values.
///
/// Invariant: no inner dictionary is empty. Removing the last value of a group removes the
/// group, so `dictionaryCount()` counts outer keys with at least one value and
/// `dictionary(outer)` is either null or non-empty. `count()` (all values) is kept, O(1).
/// Cost: average O(1) per access, as two hash lookups. Pointers returned by the lookups stay
/// valid until that value or its group is removed (rehashing does not move values).
/// Thread safety: as for std::unordered_map: const calls may run concurrently, mutation needs
/// exclusive access.
template <class OuterKey, class InnerKey, class Value, class OuterHash = std::hash<OuterKey>,
          class InnerHash = std::hash<InnerKey>>
class VeltoDictionaryOfDictionaries {
 public:
  using Dictionary = std::unordered_map<InnerKey, Value, InnerHash>;
  using Dictionaries = std::unordered_map<OuterKey, Dictionary, OuterHash>;
  using key_type = OuterKey;
  using mapped_type = Dictionary;
  using const_iterator = typename Dictionaries::const_iterator;

  /// The value under `outer` then `inner`, or null.
  [[nodiscard]] const Value* value(const OuterKey& outer, const InnerKey& inner) const {
    const auto group = dictionaries_.find(outer);
    if (group == dictionaries_.end()) return nullptr;
    const auto found = group->second.find(inner);
    return found == group->second.end() ? nullptr : &found->second;
  }
  [[nodiscard]] Value* value(const OuterKey& outer, const InnerKey& inner) {
    return const_cast<Value*>(std::as_const(*this).value(outer, inner));
  }
  [[nodiscard]] bool contains(const OuterKey& outer, const InnerKey& inner) const { return value(outer, inner) != nullptr; }

  /// The inner dictionary of `outer` (never empty), or null.
  [[nodiscard]] const Dictionary* dictionary(const OuterKey& outer) const {
    const auto group = dictionaries_.find(outer);
    return group == dictionaries_.end() ? nullptr : &group->second;
  }

  /// Stores `value` under `outer` then `inner` and returns the value it replaced, if any.
  std::optional<Value> setValue(const OuterKey& outer, const InnerKey& inner, Value value) {
    const auto [group, newGroup] = dictionaries_.try_emplace(outer);
    typename Dictionary::iterator slot;
    bool inserted = false;
    try {
      std::tie(slot, inserted) = group->second.try_emplace(inner, std::move(value));
    } catch (...) {
      if (newGroup) dictionaries_.erase(group);  // never leave an empty group behind
      throw;
    }
    if (inserted) {
      ++count_;
      return std::nullopt;
    }
    // try_emplace left `value` unmoved when the key was present.
    std::optional<Value> previous(std::move(slot->second));
    slot->second = std::move(value);  // NOLINT(bugprone-use-after-move)
    return previous;
  }

  /// Removes and returns the value under `outer` then `inner` (none when absent); the group goes
  /// with its last value.
  std::optional<Value> removeValue(const OuterKey& outer, const InnerKey& inner) {
    const auto group = dictionaries_.find(outer);
    if (group == dictionaries_.end()) return std::nullopt;
    const auto found = group->second.find(inner);
    if (found == group->second.end()) return std::nullopt;
    std::optional<Value> removed(std::move(found->second));
    group->second.erase(found);
    --count_;
    if (group->second.empty()) dictionaries_.erase(group);
    return removed;
  }

  /// Removes and returns the whole group of `outer`; none when there is none.
  std::optional<Dictionary> removeDictionary(const OuterKey& outer) {
    const auto group = dictionaries_.find(outer);
    if (group == dictionaries_.end()) return std::nullopt;
    std::optional<Dictionary> removed(std::move(group->second));
    dictionaries_.erase(group);
    count_ -= removed->size();
    return removed;
  }

  void removeAll() noexcept {
    dictionaries_.clear();
    count_ = 0;
  }

  /// The number of values in all groups.
  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  /// The number of groups (outer keys).
  [[nodiscard]] std::size_t dictionaryCount() const noexcept { return dictionaries_.size(); }
  [[nodiscard]] bool isEmpty() const noexcept { return count_ == 0; }

  /// The groups, in the outer map's order (unspecified); each is (outer key, inner dictionary).
  [[nodiscard]] const Dictionaries& dictionaries() const noexcept { return dictionaries_; }
  [[nodiscard]] const_iterator begin() const noexcept { return dictionaries_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return dictionaries_.end(); }

  /// Calls `body(outer, inner, value)` for every value, group by group.
  template <class Body>
  void forEach(Body&& body) const {
    for (const auto& [outer, group] : dictionaries_) {
      for (const auto& [inner, value] : group) body(outer, inner, value);
    }
  }

  /// The same values under the same keys.
  friend bool operator==(const VeltoDictionaryOfDictionaries& lhs, const VeltoDictionaryOfDictionaries& rhs) {
    return lhs.count_ == rhs.count_ && lhs.dictionaries_ == rhs.dictionaries_;
  }

 private:
  Dictionaries dictionaries_;
  std::size_t count_ = 0;
};
