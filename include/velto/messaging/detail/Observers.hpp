// Observer bookkeeping shared by VeltoEventBus and VeltoStateMachine: the weak identity of an
// observer object, the registration record, and the label of a messaging queue.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/TypeName.hpp"

namespace velto::detail {

/// Who an observer is, without keeping it alive: a weak pointer sharing the observer's control
/// block, and the address of the complete object (so a base and a derived pointer to one object
/// are one observer, and two sub-objects of one owner are two). Matching compares both, which
/// stays exact after the observer died: the control block outlives every weak pointer to it, so
/// a new object at a reused address never matches a dead one.
struct ObserverKey {
  std::weak_ptr<const void> object;
  const void* address = nullptr;

  [[nodiscard]] bool isSameObserver(const ObserverKey& other) const noexcept {
    return address == other.address && !object.owner_before(other.object) && !other.object.owner_before(object);
  }
  [[nodiscard]] bool isAlive() const noexcept { return !object.expired(); }
};

template <class T>
[[nodiscard]] const void* completeObjectAddress(const T* object) noexcept {
  if constexpr (std::is_polymorphic_v<T>) {
    return dynamic_cast<const void*>(object);
  } else {
    return static_cast<const void*>(object);
  }
}

template <class T>
[[nodiscard]] const std::type_info& dynamicTypeOf(const T& object) noexcept {
  return typeid(object);  // the dynamic type for polymorphic T, the static one otherwise
}

/// REQUIRES: `observer` is not null (fatal stop naming `component` otherwise).
template <class T>
[[nodiscard]] ObserverKey observerKeyOf(const std::shared_ptr<T>& observer, const char* component) {
  if (!observer) fatalStop(std::string(component) + ": observer is null");
  const void* address = completeObjectAddress(observer.get());
  return ObserverKey{std::shared_ptr<const void>(observer, address), address};
}

/// One registration: the callback (held strongly), the observer (held weakly) and the
/// observer's dynamic type, kept so that a dead observer can still be named.
template <class Value>
struct CallbackWrapper {
  using Via = std::shared_ptr<const VeltoVia>;
  using Closure = std::function<VeltoResult<void>(const Value&, const std::optional<Value>&, const Via&)>;

  Closure closure;
  ObserverKey keyObject;
  const std::type_info* keyObjectType = &typeid(void);

  /// The demangled name of the observer's dynamic type (computed on demand: reports only).
  [[nodiscard]] std::string keyObjectTypeName() const { return typeName(*keyObjectType); }
};

template <class Value, class T, class Closure>
[[nodiscard]] CallbackWrapper<Value> makeCallbackWrapper(const std::shared_ptr<T>& observer, Closure&& closure,
                                                         const char* component) {
  ObserverKey key = observerKeyOf(observer, component);
  typename CallbackWrapper<Value>::Closure callback(std::forward<Closure>(closure));
  if (!callback) fatalStop(std::string(component) + ": callback is empty");
  return CallbackWrapper<Value>{std::move(callback), std::move(key), &dynamicTypeOf(*observer)};
}

/// The registrations of a bus or a state machine, in registration order, confined to its queue.
///
/// Removal leaves a tombstone (an entry without a closure) that iteration skips; the entries are
/// compacted once tombstones outnumber live ones, so a removal costs O(1) amortised and order is
/// kept. An index from the observer's address to its positions makes the identity look-ups of
/// registration, deregistration and `isRegistered` O(1) on average, whatever the list's length.
/// The index is built only past `kIndexedFrom` entries: a short list is scanned faster.
template <class Value>
class ObserverList {
 public:
  using Wrapper = CallbackWrapper<Value>;
  static constexpr std::size_t kIndexedFrom = 32;

  /// Every entry, tombstones included (`isRemoved`): iterate and skip those.
  [[nodiscard]] const std::vector<Wrapper>& entries() const noexcept { return entries_; }
  [[nodiscard]] static bool isRemoved(const Wrapper& entry) noexcept { return !entry.closure; }
  /// The number of registrations (zombies included, tombstones not).
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size() - tombstones_; }

  [[nodiscard]] bool contains(const ObserverKey& key) const {
    bool found = false;
    forEachPositionOf(key, [&](std::size_t) {
      found = true;
      return false;
    });
    return found;
  }

  void append(Wrapper wrapper) {
    entries_.push_back(std::move(wrapper));
    if (indexed_) {
      index_.emplace(entries_.back().keyObject.address, entries_.size() - 1);
    } else if (entries_.size() > kIndexedFrom) {
      rebuildIndex();
    }
  }

  /// Removes every registration of `key`.
  void removeAll(const ObserverKey& key) {
    std::vector<std::size_t> positions;
    forEachPositionOf(key, [&](std::size_t position) {
      positions.push_back(position);
      return true;
    });
    for (const std::size_t position : positions) bury(position);
    compactIfSparse();
  }

  void clear() {
    entries_.clear();
    index_.clear();
    indexed_ = false;
    tombstones_ = 0;
  }

  [[nodiscard]] bool hasZombies() const noexcept {
    for (const Wrapper& entry : entries_) {
      if (!isRemoved(entry) && !entry.keyObject.isAlive()) return true;
    }
    return false;
  }

  /// Removes the registrations whose observer has died and returns those observers' type names
  /// in registration order. Allocates nothing when there are none.
  [[nodiscard]] std::vector<std::string> sweepZombies() {
    std::vector<std::string> zombieTypes;
    for (std::size_t position = 0; position < entries_.size(); ++position) {
      const Wrapper& entry = entries_[position];
      if (isRemoved(entry) || entry.keyObject.isAlive()) continue;
      zombieTypes.push_back(entry.keyObjectTypeName());
      bury(position);
    }
    if (!zombieTypes.empty()) compactIfSparse();
    return zombieTypes;
  }

 private:
  // Calls `visit(position)` for each live entry of `key` until it returns false.
  template <class F>
  void forEachPositionOf(const ObserverKey& key, F&& visit) const {
    if (indexed_) {
      const auto [first, last] = index_.equal_range(key.address);
      for (auto at = first; at != last; ++at) {
        if (entries_[at->second].keyObject.isSameObserver(key) && !visit(at->second)) return;
      }
      return;
    }
    for (std::size_t position = 0; position < entries_.size(); ++position) {
      const Wrapper& entry = entries_[position];
      if (!isRemoved(entry) && entry.keyObject.isSameObserver(key) && !visit(position)) return;
    }
  }

  void bury(std::size_t position) {
    Wrapper& entry = entries_[position];
    if (indexed_) {
      const auto [first, last] = index_.equal_range(entry.keyObject.address);
      for (auto at = first; at != last; ++at) {
        if (at->second == position) {
          index_.erase(at);
          break;
        }
      }
    }
    entry.closure = nullptr;  // releases what the callback captured now, not at compaction
    entry.keyObject = ObserverKey{};
    ++tombstones_;
  }

  void compactIfSparse() {
    if (tombstones_ == 0 || tombstones_ < size()) return;
    std::erase_if(entries_, [](const Wrapper& entry) { return isRemoved(entry); });
    tombstones_ = 0;
    if (entries_.size() > kIndexedFrom) {
      rebuildIndex();
    } else {
      index_.clear();
      indexed_ = false;
    }
  }

  void rebuildIndex() {
    index_.clear();
    index_.reserve(entries_.size());
    for (std::size_t position = 0; position < entries_.size(); ++position) {
      if (!isRemoved(entries_[position])) index_.emplace(entries_[position].keyObject.address, position);
    }
    indexed_ = true;
  }

  std::vector<Wrapper> entries_;
  std::unordered_multimap<const void*, std::size_t> index_;
  bool indexed_ = false;
  std::size_t tombstones_ = 0;
};

/// `<organisation prefix>.velto.serial-queue.<kind>.<typeName>.<new upper-case UUID>`.
[[nodiscard]] std::string messagingQueueLabel(std::string_view kind, std::string_view typeName);

}  // namespace velto::detail
