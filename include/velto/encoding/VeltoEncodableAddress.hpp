// VeltoEncodableAddress: a machine address as a hashable, printable value: the identity the
// debug encoder uses to recognise objects it has already written, and an explicit address in
// debug output.
//
//   auto address = VeltoEncodableAddress::of(*object);        // an object's identity
//   VeltoEncodableAddress raw(pointer);                        // any typed or untyped pointer
//   auto fromBuffer = VeltoEncodableAddress::make(std::span<const int>(values));  // may fail
//   address.debugDescription();                                // "0x00007f12a4c01230"
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "velto/core/VeltoInitializerError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/detail/DebugTextForms.hpp"

/// An opaque address. Equality and hashing are those of the pointer value. Regular value type.
/// It never dereferences, owns or keeps alive what it points at.
/// Thread safety: immutable.
class VeltoEncodableAddress : public velto::detail::DebugTextForms<VeltoEncodableAddress> {
 public:
  /// The address of a typed or untyped pointer (null included). Never fails.
  explicit VeltoEncodableAddress(const volatile void* pointer) noexcept
      : pointer_(reinterpret_cast<std::uintptr_t>(pointer)) {}

  /// The identity (address) of an object.
  template <class T>
  [[nodiscard]] static VeltoEncodableAddress of(const T& object) noexcept {
    return VeltoEncodableAddress(static_cast<const volatile void*>(std::addressof(object)));
  }

  /// The base address of a buffer. Fails, with a VeltoInitializerError as its framework error,
  /// when the buffer has none (an empty buffer made from no storage). The message names
  /// UnsafeBufferPointer for every kind of buffer; that text is kept as it is on purpose.
  template <class T, std::size_t Extent>
  [[nodiscard]] static VeltoResult<VeltoEncodableAddress> make(std::span<T, Extent> buffer,
                                                              VeltoCodeSite site = VeltoCodeSite::current()) {
    if (buffer.data() == nullptr) return noBaseAddress(site);
    return VeltoEncodableAddress(static_cast<const volatile void*>(buffer.data()));
  }

  [[nodiscard]] const void* pointer() const noexcept { return reinterpret_cast<const void*>(pointer_); }
  /// "0x" and the address as 16 zero-padded lower-case hexadecimal digits.
  [[nodiscard]] std::string debugDescription() const;

  friend bool operator==(const VeltoEncodableAddress&, const VeltoEncodableAddress&) = default;

  /// Debug output: its debugDescription, whatever the encoder's includeAddresses says.
  [[nodiscard]] std::string debugText(const VeltoDynamicDebugEncoder&) const { return debugDescription(); }

 private:
  [[nodiscard]] static VeltoResult<VeltoEncodableAddress> noBaseAddress(VeltoCodeSite site);
  std::uintptr_t pointer_;
};

template <>
struct std::hash<VeltoEncodableAddress> {
  std::size_t operator()(const VeltoEncodableAddress& address) const noexcept {
    return std::hash<const void*>()(address.pointer());
  }
};
