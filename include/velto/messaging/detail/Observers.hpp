// Observer bookkeeping shared by VeltoEventBus and VeltoStateMachine: the weak identity of an
// observer object, the registration record, and the label of a messaging queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>
#include <cstddef>

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

/// The positions of the registrations whose observer has died, in order. Allocates nothing
/// when there are none.
template <class Value>
[[nodiscard]] std::vector<std::size_t> zombieIndices(const std::vector<CallbackWrapper<Value>>& observers) {
  std::vector<std::size_t> zombies;
  for (std::size_t index = 0; index < observers.size(); ++index) {
    if (!observers[index].keyObject.isAlive()) zombies.push_back(index);
  }
  return zombies;
}

/// Removes the entries at `indices` (ascending), keeping the order of the rest. Only the given
/// positions go: an observer that died after they were collected waits for the next sweep.
template <class Entry>
void removeIndices(std::vector<Entry>& entries, const std::vector<std::size_t>& indices) {
  std::size_t next = 0;
  std::size_t kept = 0;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    if (next < indices.size() && indices[next] == index) {
      ++next;
      continue;
    }
    if (kept != index) entries[kept] = std::move(entries[index]);
    ++kept;
  }
  entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(kept), entries.end());
}

/// `<organisation prefix>.velto.serial-queue.<kind>.<typeName>.<new upper-case UUID>`.
[[nodiscard]] std::string messagingQueueLabel(std::string_view kind, std::string_view typeName);

}  // namespace velto::detail
