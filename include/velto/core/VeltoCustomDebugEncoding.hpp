// VeltoCustomDebugEncoding, VeltoCustomDebugContainerEncoding: the two ways a type takes over
// its own rendering by the debug encoder, as concepts over the hook members the encoder calls.
//
//   struct Celsius {
//     double value;
//     // Whole rendering, at any of the three destinations:
//     VeltoResult<void> encodeForDynamicDebug(VeltoEncoder&, VeltoDynamicDebugEncoder&) const;
//     VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer&, std::string_view key,
//                                             VeltoDynamicDebugEncoder&) const;
//     VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const;
//   };
//   static_assert(VeltoCustomDebugEncoding<Celsius>);
//
//   struct Point {
//     double x, y;
//     // Only the entries of the object the encoder opens ("__type", the address entry first):
//     VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const;
//   };
//   static_assert(VeltoCustomDebugContainerEncoding<Point>);
//
// For a type you cannot change, the same operations as static functions taking `const T&` first
// in a specialisation of VeltoDebugConformance<T> (VeltoMirror.hpp) satisfy the concepts too.
//
// A type with hooks makes VeltoResult complete in its header (includes velto/core/VeltoResult.hpp)
// so that its hooks can be instantiated wherever it is recorded.
//
// A type that declares a hook but misses the concept (a missing `const`, a wrong parameter or
// result type, a missing destination form) does not compile where it is recorded or encoded:
// the error names the concept, instead of the encoder silently falling back to reflection.
#pragma once

#include <concepts>
#include <string_view>
#include <type_traits>
#include <utility>

class VeltoEncoder;
class VeltoKeyedEncodingContainer;
class VeltoUnkeyedEncodingContainer;
class VeltoDynamicDebugEncoder;
template <class T>
class VeltoResult;

/// Marker base: values of a deriving type are only rendered on the main thread; anywhere else
/// the debug encoder writes "Not encodable off main thread" in their place. The library has no
/// deriving type; it is meant for values that touch main-thread-only state.
struct VeltoMainThreadOnlyEncodable {};

/// Specialise for a type you cannot change to give it custom debug rendering (static functions
/// taking `const T&` first, otherwise as the member hooks).
template <class T>
struct VeltoDebugConformance {};

namespace velto::detail {

// The hook's result type is read with decltype alone, which does not need VeltoResult to be
// complete: the concepts then answer the same in every translation unit, whatever it includes
// (a different answer in two units would give one type two different mirrors).
template <class T>
using OwnEncoderHookResult =
    decltype(std::declval<const T&>().encodeForDynamicDebug(std::declval<VeltoEncoder&>(), std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using OwnKeyedHookResult = decltype(std::declval<const T&>().encodeForDynamicDebug(
    std::declval<VeltoKeyedEncodingContainer&>(), std::declval<std::string_view>(), std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using OwnUnkeyedHookResult = decltype(std::declval<const T&>().encodeForDynamicDebug(
    std::declval<VeltoUnkeyedEncodingContainer&>(), std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using OwnChildrenHookResult = decltype(std::declval<const T&>().encodeChildrenForDynamicDebug(
    std::declval<VeltoKeyedEncodingContainer&>(), std::declval<VeltoDynamicDebugEncoder&>()));

template <class T>
using TraitEncoderHookResult = decltype(VeltoDebugConformance<T>::encodeForDynamicDebug(
    std::declval<const T&>(), std::declval<VeltoEncoder&>(), std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using TraitKeyedHookResult = decltype(VeltoDebugConformance<T>::encodeForDynamicDebug(
    std::declval<const T&>(), std::declval<VeltoKeyedEncodingContainer&>(), std::declval<std::string_view>(),
    std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using TraitUnkeyedHookResult = decltype(VeltoDebugConformance<T>::encodeForDynamicDebug(
    std::declval<const T&>(), std::declval<VeltoUnkeyedEncodingContainer&>(), std::declval<VeltoDynamicDebugEncoder&>()));
template <class T>
using TraitChildrenHookResult = decltype(VeltoDebugConformance<T>::encodeChildrenForDynamicDebug(
    std::declval<const T&>(), std::declval<VeltoKeyedEncodingContainer&>(), std::declval<VeltoDynamicDebugEncoder&>()));

template <template <class> class Result, class T>
concept HookReturnsVoidResult = requires { typename Result<T>; } && std::same_as<Result<T>, VeltoResult<void>>;

template <class T>
concept OwnCustomEncoding = HookReturnsVoidResult<OwnEncoderHookResult, T> && HookReturnsVoidResult<OwnKeyedHookResult, T> &&
                            HookReturnsVoidResult<OwnUnkeyedHookResult, T>;

template <class T>
concept TraitCustomEncoding = HookReturnsVoidResult<TraitEncoderHookResult, T> &&
                              HookReturnsVoidResult<TraitKeyedHookResult, T> &&
                              HookReturnsVoidResult<TraitUnkeyedHookResult, T>;

template <class T>
concept OwnContainerEncoding = HookReturnsVoidResult<OwnChildrenHookResult, T>;

template <class T>
concept TraitContainerEncoding = HookReturnsVoidResult<TraitChildrenHookResult, T>;

// Whether T declares a hook at all, whatever its signature. A class that is not final is probed
// by name (a member of that name makes the probe's lookup ambiguous); any type is also probed by
// calling the hook with arguments that convert to anything, which catches final classes.
struct HookNameProbe {
  int encodeForDynamicDebug;
  int encodeChildrenForDynamicDebug;
};
template <class T>
struct HookNameProbeOf : T, HookNameProbe {};

struct AnyHookArgument {
  template <class U>
  operator U&() const;  // never defined: only named in unevaluated operands
};

template <class T>
concept DeclaresCustomEncodingHook =
    (std::is_class_v<T> && !std::is_final_v<T> && !requires { &HookNameProbeOf<T>::encodeForDynamicDebug; }) ||
    requires { std::declval<T&>().encodeForDynamicDebug(std::declval<AnyHookArgument>(), std::declval<AnyHookArgument>()); } ||
    requires {
      std::declval<T&>().encodeForDynamicDebug(std::declval<AnyHookArgument>(), std::declval<AnyHookArgument>(),
                                               std::declval<AnyHookArgument>());
    };

template <class T>
concept DeclaresContainerEncodingHook =
    (std::is_class_v<T> && !std::is_final_v<T> && !requires { &HookNameProbeOf<T>::encodeChildrenForDynamicDebug; }) ||
    requires {
      std::declval<T&>().encodeChildrenForDynamicDebug(std::declval<AnyHookArgument>(), std::declval<AnyHookArgument>());
    };

}  // namespace velto::detail

/// A type that writes its whole debug form itself, at each of the three destinations (the
/// encoder's whole value, an entry under a key, the next element of an array). The debug
/// encoder calls the form matching the destination and never walks the value's members.
template <class T>
concept VeltoCustomDebugEncoding = velto::detail::OwnCustomEncoding<T> || velto::detail::TraitCustomEncoding<T>;

/// A type that writes only the entries of the JSON object the encoder opens for it (after
/// "__type", and for objects the address entry, as the options ask).
template <class T>
concept VeltoCustomDebugContainerEncoding =
    velto::detail::OwnContainerEncoding<T> || velto::detail::TraitContainerEncoding<T>;
