// VeltoAny: an immutable, type-erased box for any value, the type of every "dynamically
// typed" argument in the library (stack-frame args, user information of platform errors).
//
//   VeltoAny none;                                   // no value
//   VeltoAny count = 3;                              // any copyable value at all
//   VeltoAny args = {{"key", key}, {"event", event}};  // a VeltoArgs dictionary
//   if (const int* n = count.get<int>()) ...
//
// Recording a value never requires it to be described, printable or encodable: the box keeps
// the value and a pointer to its type's mirror (VeltoMirror.hpp), which the debug encoder
// walks later. Nothing of the encoder is included here.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "velto/core/VeltoMirror.hpp"

namespace velto::detail {

struct AnyBox {
  virtual ~AnyBox() = default;
  [[nodiscard]] virtual const void* data() const noexcept = 0;
  [[nodiscard]] virtual const VeltoTypeMirror& mirror() const noexcept = 0;
};

template <class T>
struct AnyBoxOf final : AnyBox {
  template <class... Args>
  explicit AnyBoxOf(Args&&... args) : value(std::forward<Args>(args)...) {}
  [[nodiscard]] const void* data() const noexcept override { return &value; }
  [[nodiscard]] const VeltoTypeMirror& mirror() const noexcept override { return mirrorOf<T>(); }
  const T value;
};

// Text is stored as std::string so that a recorded literal or buffer can never dangle.
template <class T>
using AnyStored = std::conditional_t<std::is_same_v<std::decay_t<T>, const char*> || std::is_same_v<std::decay_t<T>, char*>,
                                     std::string, std::decay_t<T>>;

}  // namespace velto::detail

/// Any value, or none. Immutable once made; copies share the one boxed value.
///
/// Cost: making one from a value allocates once (the box); copying is one atomic increment.
/// Thread safety: immutable; copies may be read and destroyed on any threads.
class VeltoAny {
 public:
  /// No value.
  VeltoAny() noexcept = default;
  /// No value (lets `std::nullopt` stand for "no args").
  VeltoAny(std::nullopt_t) noexcept {}  // NOLINT(google-explicit-constructor)

  /// Records `value` (copied, or moved from an rvalue: move-only values can be recorded too).
  /// Implicit, so that any value can be passed where the library records arguments. C strings
  /// are recorded as std::string.
  template <class T>
    requires(!std::is_same_v<std::remove_cvref_t<T>, VeltoAny> && !std::is_same_v<std::remove_cvref_t<T>, std::nullopt_t> &&
             std::is_constructible_v<velto::detail::AnyStored<T>, T &&>)
  VeltoAny(T&& value)  // NOLINT(google-explicit-constructor)
      : box_(std::make_shared<const velto::detail::AnyBoxOf<velto::detail::AnyStored<T>>>(std::forward<T>(value))) {}

  /// Records a `VeltoArgs` dictionary: `VeltoAny args = {{"key", k}, {"event", e}}`.
  VeltoAny(std::initializer_list<std::pair<std::string, VeltoAny>> entries);

  [[nodiscard]] bool hasValue() const noexcept { return box_ != nullptr; }
  [[nodiscard]] explicit operator bool() const noexcept { return hasValue(); }

  /// The recorded value's type; typeid(void) when there is none.
  [[nodiscard]] const std::type_info& type() const noexcept { return box_ ? box_->mirror().type : typeid(void); }
  /// The demangled name of the recorded value's type; "" when there is none.
  [[nodiscard]] std::string_view typeName() const { return box_ ? box_->mirror().typeName() : std::string_view(); }

  /// The recorded value when it is exactly a T, else null.
  template <class T>
  [[nodiscard]] const T* get() const noexcept {
    return box_ && box_->mirror().type == typeid(T) ? static_cast<const T*>(box_->data()) : nullptr;
  }

  /// The value and its mirror, for the debug encoder; a null reference when there is none.
  [[nodiscard]] VeltoValueRef ref() const noexcept {
    return box_ ? VeltoValueRef{box_->data(), &box_->mirror()} : VeltoValueRef{};
  }

  /// True when both hold the very same box (copies of one recording), or both hold none.
  [[nodiscard]] bool isSameRecording(const VeltoAny& other) const noexcept { return box_ == other.box_; }

 private:
  std::shared_ptr<const velto::detail::AnyBox> box_;
};

/// An arguments dictionary: string keys to any values, in insertion order (which is the
/// order debug output shows unless it sorts keys). Duplicate keys are kept as given.
class VeltoArgs {
 public:
  using value_type = std::pair<std::string, VeltoAny>;

  VeltoArgs() = default;
  VeltoArgs(std::initializer_list<value_type> entries);

  /// Appends one entry; keeps any earlier entry with the same key.
  void append(std::string key, VeltoAny value);
  /// The value of the first entry named `key`, or null.
  [[nodiscard]] const VeltoAny* find(std::string_view key) const noexcept;

  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
  [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
  [[nodiscard]] auto begin() const noexcept { return entries_.begin(); }
  [[nodiscard]] auto end() const noexcept { return entries_.end(); }

 private:
  std::vector<value_type> entries_;
};

inline VeltoAny::VeltoAny(std::initializer_list<std::pair<std::string, VeltoAny>> entries) : VeltoAny(VeltoArgs(entries)) {}
