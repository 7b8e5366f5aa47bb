// VeltoMirror: how a C++ type describes itself for debug output (the mirror vocabulary).
//
// Every type gets one static `VeltoTypeMirror`, built at compile time from the static type:
// its display style, its labelled children in order, and the hooks by which it takes over its
// own rendering. The debug encoder walks mirrors; nothing here depends on it (its types are
// only declared), so recording a value (VeltoAny) never pulls the encoder in.
//
// How a type is classified, first match wins:
//   std::optional, std::weak_ptr, std::shared_ptr, std::unique_ptr  optional (a present
//       smart pointer's child is the object: style `class_`, identity = its address)
//   VeltoAny                                optional (transparent around what it holds)
//   VeltoArgs                               dictionary with string keys, insertion order
//   const char*, char*                      optional around the text (null: absent)
//   std::wstring, std::u8/u16/u32string     optional around the UTF-8 text
//       and their views
//   char[N]                                 no style, the text up to the first NUL
//   std::filesystem::path                   no style, its native text
//   std::byte                               no style, a number
//   std::chrono::duration                   no style, seconds (a double)
//   std::chrono::time_point                 no style, seconds since the clock's epoch (1970
//                                           for system_clock)
//   function pointers                       no style, a closure
//   std::pair, std::tuple                   tuple, unlabelled children
//   std::variant                            enumeration, anonymous payload
//   a tagged variant (see below)            enumeration, payload labelled by the case name
//   enum / enum class                       enumeration; case name from BOOST_DESCRIBE_ENUM,
//                                           else the underlying number
//   map-like (key_type + mapped_type)       dictionary
//   set-like (key_type only)                set
//   other ranges (not text)                 collection
//   BOOST_DESCRIBE_STRUCT/_CLASS types      structure: own members (private ones too), then
//                                           each base's
//   bool, arithmetic, text                  no style, a scalar
//   std::function, lambdas                  no style, a closure
//   anything else                           no style, nothing known
//
// Tagged variants: a class whose `cases()` returns a `const std::variant<Cases...>&`, where
// each case type has `static constexpr std::string_view caseName` and is described with
// BOOST_DESCRIBE_STRUCT. A case with no members has no payload; one member is the payload;
// several members form a labelled tuple.
//
// Taking over the rendering (checked before the walk, for any type): the concepts
//   VeltoCustomDebugEncoding and VeltoCustomDebugContainerEncoding (VeltoCustomDebugEncoding.hpp),
//   by member hooks or, for a type you cannot change, a specialization of
//   VeltoDebugConformance<T> declared before the type is recorded. A type that declares a hook
//   with the wrong signature fails to compile here. `std::string debugDescription() const` is the
//   custom debug-string member; deriving from VeltoMainThreadOnlyEncodable marks values rendered
//   only on the main thread.
//
// Names of members and cases drop the trailing underscore that a C++ keyword forces on them
// (`default_` prints "default"; see velto::detail::spelledName).
//
// A smart pointer to a value that is no object of its own (std::string, a vector, a number)
// renders as an object with its address whose only child, "pointee", is the value.
//
// Objects seen through a pointer to a polymorphic base render with their dynamic type's name
// and, once that type's mirror exists (VeltoRegisterObjectType<Derived>(), or any recorded
// std::shared_ptr<Derived>), with its own members. Identity is the complete object's address.
#pragma once

#include <boost/describe/bases.hpp>
#include <boost/describe/enum_to_string.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/describe/modifiers.hpp>
#include <boost/mp11/algorithm.hpp>
#include <boost/uuid/uuid.hpp>

#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <ranges>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <variant>

#include "velto/core/VeltoCustomDebugEncoding.hpp"
#include "velto/detail/TypeName.hpp"
#include "velto/detail/Utf8Text.hpp"

class VeltoAny;
class VeltoArgs;

/// Conformances shipped with the library for standard and Boost types; their operations are
/// defined with the debug encoder.
///   boost::uuids::uuid  the canonical upper-case text
///   char                a string holding the one character
///   VeltoData           "byteCount" and, by the data behaviour, "base64"
///   T*, std::span<T>    only with includeAddresses: "__type" and "__address" (else nothing)
template <>
struct VeltoDebugConformance<boost::uuids::uuid> {
  static VeltoResult<void> encodeForDynamicDebug(const boost::uuids::uuid&, VeltoEncoder&, VeltoDynamicDebugEncoder&);
  static VeltoResult<void> encodeForDynamicDebug(const boost::uuids::uuid&, VeltoKeyedEncodingContainer&, std::string_view,
                                                 VeltoDynamicDebugEncoder&);
  static VeltoResult<void> encodeForDynamicDebug(const boost::uuids::uuid&, VeltoUnkeyedEncodingContainer&,
                                                 VeltoDynamicDebugEncoder&);
};

template <>
struct VeltoDebugConformance<char> {
  static VeltoResult<void> encodeForDynamicDebug(const char&, VeltoEncoder&, VeltoDynamicDebugEncoder&);
  static VeltoResult<void> encodeForDynamicDebug(const char&, VeltoKeyedEncodingContainer&, std::string_view,
                                                 VeltoDynamicDebugEncoder&);
  static VeltoResult<void> encodeForDynamicDebug(const char&, VeltoUnkeyedEncodingContainer&, VeltoDynamicDebugEncoder&);
};

template <>
struct VeltoDebugConformance<std::vector<std::byte>> {
  static constexpr std::string_view debugTypeName = "VeltoData";
  static VeltoResult<void> encodeChildrenForDynamicDebug(const std::vector<std::byte>&, VeltoKeyedEncodingContainer&,
                                                         VeltoDynamicDebugEncoder&);
};

namespace velto::detail {
VeltoResult<void> encodeAddressOnly(const void* address, std::string_view typeName, VeltoEncoder&, VeltoDynamicDebugEncoder&);
VeltoResult<void> encodeAddressOnly(const void* address, std::string_view typeName, VeltoKeyedEncodingContainer&,
                                    std::string_view key, VeltoDynamicDebugEncoder&);
VeltoResult<void> encodeAddressOnly(const void* address, std::string_view typeName, VeltoUnkeyedEncodingContainer&,
                                    VeltoDynamicDebugEncoder&);
}  // namespace velto::detail

// C strings are text and function pointers closures (see the classification below), not addresses.
template <class T>
  requires(!std::is_same_v<T, char> && !std::is_same_v<T, const char> && !std::is_function_v<T>)
struct VeltoDebugConformance<T*> {
  template <class Destination, class... Rest>
  static auto encodeForDynamicDebug(T* const& pointer, Destination& destination, Rest&&... rest) {
    const void* address = const_cast<const void*>(static_cast<const volatile void*>(pointer));
    return velto::detail::encodeAddressOnly(address, velto::detail::typeName<T*>(), destination,
                                            std::forward<Rest>(rest)...);
  }
};

template <class T, std::size_t Extent>
struct VeltoDebugConformance<std::span<T, Extent>> {
  template <class Destination, class... Rest>
  static auto encodeForDynamicDebug(const std::span<T, Extent>& buffer, Destination& destination, Rest&&... rest) {
    return velto::detail::encodeAddressOnly(static_cast<const void*>(buffer.data()),
                                            velto::detail::typeName<std::span<T, Extent>>(), destination,
                                            std::forward<Rest>(rest)...);
  }
};

/// The display styles of the reflective walk. `none` covers scalars, text, closures and
/// opaque values.
enum class VeltoDisplayStyle { none, structure, class_, enumeration, tuple, optional, collection, dictionary, set };

struct VeltoTypeMirror;

/// A borrowed view of one value with its type's mirror. Valid only while the value lives: for
/// children, as long as the sink that received it keeps what it was handed to keep alive.
struct VeltoValueRef {
  const void* value = nullptr;
  const VeltoTypeMirror* mirror = nullptr;
  [[nodiscard]] explicit operator bool() const noexcept { return mirror != nullptr; }
};

/// Receives the children of a value in mirror order. An empty label means "unlabelled".
/// Children produced on the fly (elements of views yielding values, proxies such as
/// std::vector<bool>'s, a locked std::weak_ptr) are materialised, and what owns them is handed
/// to `keepAlive` before the visit returns: a sink that uses a child after the visit must hold
/// every owner it was given at least that long.
class VeltoChildSink {
 public:
  virtual void child(std::string_view label, VeltoValueRef value) = 0;
  virtual void keepAlive(std::shared_ptr<const void> owner) = 0;

 protected:
  ~VeltoChildSink() = default;
};

/// Receives the entries of a dictionary in its own iteration order; owners as for VeltoChildSink.
class VeltoEntrySink {
 public:
  virtual void entry(VeltoValueRef key, VeltoValueRef value) = 0;
  virtual void keepAlive(std::shared_ptr<const void> owner) = 0;

 protected:
  ~VeltoEntrySink() = default;
};

/// A value's own encodable form: JSON scalars. Text views point into the value.
using VeltoScalar = std::variant<bool, std::int64_t, std::uint64_t, double, std::string_view>;

/// The three operations of a type that writes its whole debug form itself.
struct VeltoCustomDebugHooks {
  VeltoResult<void> (*toEncoder)(const void* value, VeltoEncoder&, VeltoDynamicDebugEncoder&);
  VeltoResult<void> (*toKeyed)(const void* value, VeltoKeyedEncodingContainer&, std::string_view key,
                               VeltoDynamicDebugEncoder&);
  VeltoResult<void> (*toUnkeyed)(const void* value, VeltoUnkeyedEncodingContainer&, VeltoDynamicDebugEncoder&);
};

/// What the debug encoder knows of one type. One static instance per type, built on first use.
/// Thread safety: built under the language's thread-safe static initialisation, then immutable.
struct VeltoTypeMirror {
  const std::type_info& type;
  std::string_view (*staticTypeName)();
  VeltoDisplayStyle style = VeltoDisplayStyle::none;
  /// Children in mirror order (members, elements, the present optional's value, an
  /// enumeration's payload labelled by its case name or unlabelled). Null: no children.
  void (*children)(const void* value, VeltoChildSink& sink) = nullptr;
  /// Dictionary entries. Null unless `style` is dictionary.
  void (*entries)(const void* value, VeltoEntrySink& sink) = nullptr;
  /// Dictionaries: whether every key is text (then written as a JSON object).
  bool keysAreText = false;
  /// Objects: the object's identity (its address).
  const void* (*identity)(const void* value) = nullptr;
  /// Polymorphic types: the dynamic type, and the address of the complete (most derived)
  /// object. Null: the static type is the whole story.
  const std::type_info& (*dynamicType)(const void* value) = nullptr;
  const void* (*mostDerived)(const void* value) = nullptr;
  /// Enumerations: the case's plain printed name.
  std::string (*caseName)(const void* value) = nullptr;
  /// The value's own encodable form, when it has one.
  VeltoScalar (*scalar)(const void* value) = nullptr;
  /// The custom debug-string member, when the type has one.
  std::string (*debugDescription)(const void* value) = nullptr;
  /// Whole custom rendering, when the type takes it over.
  const VeltoCustomDebugHooks* custom = nullptr;
  /// Container custom rendering (entries of an object the encoder opened).
  VeltoResult<void> (*customChildren)(const void* value, VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) = nullptr;
  bool isClosure = false;
  bool mainThreadOnly = false;

  [[nodiscard]] std::string_view typeName() const { return staticTypeName(); }
};

namespace velto::detail {

template <class T>
const VeltoTypeMirror& mirrorOf() noexcept;
template <class T>
const VeltoTypeMirror& objectMirrorOf() noexcept;

/// The object mirrors of polymorphic types, by dynamic type, so that an object seen through a
/// base pointer renders with its own members. Thread-safe.
void registerObjectMirror(const std::type_info& type, const VeltoTypeMirror& mirror) noexcept;
[[nodiscard]] const VeltoTypeMirror* registeredObjectMirror(const std::type_info& type) noexcept;

template <class Case>
const VeltoTypeMirror& casePayloadTupleMirror() noexcept;

template <class T>
VeltoValueRef refTo(const T& value) noexcept {
  return VeltoValueRef{&value, &mirrorOf<T>()};
}

// ---- traits -------------------------------------------------------------------------------

template <class T, template <class...> class Template>
inline constexpr bool isSpecialization = false;
template <template <class...> class Template, class... Args>
inline constexpr bool isSpecialization<Template<Args...>, Template> = true;

template <class T>
concept Text = std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>;

template <class T>
concept CharPointer = std::is_same_v<T, const char*> || std::is_same_v<T, char*>;

template <class T>
concept CharArray = std::is_array_v<T> && std::is_same_v<std::remove_cv_t<std::remove_extent_t<T>>, char> &&
                    std::extent_v<T> != 0;

// Text in the other standard character types, written as UTF-8.
template <class T>
concept OtherText = (isSpecialization<T, std::basic_string> || isSpecialization<T, std::basic_string_view>) &&
                    !std::is_same_v<typename T::value_type, char> &&
                    requires(const T& t) { utf8Text(std::basic_string_view<typename T::value_type>(t)); };

// std::filesystem::path (and look-alikes) on a platform whose native paths are char strings;
// recognised by shape so that <filesystem> stays out of this header.
template <class T>
concept PathLike = requires(const T& t) {
  typename T::string_type;
  { t.native() } -> std::same_as<const std::string&>;
  t.filename();
  t.has_root_path();
};

template <class T>
concept FunctionPointer = std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>;

template <class T>
inline constexpr bool isDuration = false;
template <class Rep, class Period>
inline constexpr bool isDuration<std::chrono::duration<Rep, Period>> = true;

template <class T>
inline constexpr bool isTimePoint = false;
template <class Clock, class Duration>
inline constexpr bool isTimePoint<std::chrono::time_point<Clock, Duration>> = true;

template <class T>
concept MapLike = requires {
  typename T::key_type;
  typename T::mapped_type;
} && requires(const T& t) { t.begin(); t.end(); };

template <class T>
concept SetLike = requires { typename T::key_type; } && !MapLike<T> && requires(const T& t) { t.begin(); t.end(); };

template <class T>
concept RangeLike = !Text<T> && !CharArray<T> && !OtherText<T> && !PathLike<T> && !MapLike<T> && !SetLike<T> &&
                    (requires(const T& t) {
                      std::begin(t);
                      std::end(t);
                    } || (std::ranges::view<T> && std::copyable<T> && std::ranges::forward_range<T>));

template <class T>
concept Described = boost::describe::has_describe_members<T>::value || boost::describe::has_describe_bases<T>::value;

template <class T>
concept TaggedVariant = requires(const T& t) {
  { t.cases() };
  requires isSpecialization<std::remove_cvref_t<decltype(t.cases())>, std::variant>;
};

template <class T>
concept Callable = isSpecialization<T, std::function> || (std::is_class_v<T> && requires { &T::operator(); });

template <class T>
concept HasDebugDescription = requires(const T& t) {
  { t.debugDescription() } -> std::convertible_to<std::string>;
};

template <class T>
concept TraitTypeName = requires {
  { VeltoDebugConformance<T>::debugTypeName } -> std::convertible_to<std::string_view>;
};

template <class T>
std::string_view staticTypeNameOf() {
  if constexpr (TraitTypeName<T>) {
    return VeltoDebugConformance<T>::debugTypeName;
  } else {
    return typeName<T>();
  }
}

// The result type of debug hooks, spelled dependently so that VeltoResult need only be complete
// where a hook is actually instantiated.
template <class T>
using HookResult = VeltoResult<std::conditional_t<true, void, T>>;

template <class T>
const T& as(const void* value) noexcept {
  return *static_cast<const T*>(value);
}

// ---- hooks --------------------------------------------------------------------------------

template <class T>
struct CustomHooks {
  static HookResult<T> toEncoder(const void* v, VeltoEncoder& e, VeltoDynamicDebugEncoder& d) {
    if constexpr (OwnCustomEncoding<T>) {
      return as<T>(v).encodeForDynamicDebug(e, d);
    } else {
      return VeltoDebugConformance<T>::encodeForDynamicDebug(as<T>(v), e, d);
    }
  }
  static HookResult<T> toKeyed(const void* v, VeltoKeyedEncodingContainer& k, std::string_view key,
                                   VeltoDynamicDebugEncoder& d) {
    if constexpr (OwnCustomEncoding<T>) {
      return as<T>(v).encodeForDynamicDebug(k, key, d);
    } else {
      return VeltoDebugConformance<T>::encodeForDynamicDebug(as<T>(v), k, key, d);
    }
  }
  static HookResult<T> toUnkeyed(const void* v, VeltoUnkeyedEncodingContainer& u, VeltoDynamicDebugEncoder& d) {
    if constexpr (OwnCustomEncoding<T>) {
      return as<T>(v).encodeForDynamicDebug(u, d);
    } else {
      return VeltoDebugConformance<T>::encodeForDynamicDebug(as<T>(v), u, d);
    }
  }
  static constexpr VeltoCustomDebugHooks hooks{&toEncoder, &toKeyed, &toUnkeyed};
};

template <class T>
HookResult<T> customChildren(const void* v, VeltoKeyedEncodingContainer& k, VeltoDynamicDebugEncoder& d) {
  if constexpr (OwnContainerEncoding<T>) {
    return as<T>(v).encodeChildrenForDynamicDebug(k, d);
  } else {
    return VeltoDebugConformance<T>::encodeChildrenForDynamicDebug(as<T>(v), k, d);
  }
}

// ---- children -----------------------------------------------------------------------------

// Own described members first, then each described base's, depth first in declaration order.
template <class T>
void describedChildren(const T& value, VeltoChildSink& sink) {
  if constexpr (boost::describe::has_describe_members<T>::value) {
    // Every stored member, whatever its access: a dump shows the whole state.
    using Members = boost::describe::describe_members<T, boost::describe::mod_any_access>;
    boost::mp11::mp_for_each<Members>([&](auto member) {
      sink.child(spelledName(member.name), refTo(value.*member.pointer));
    });
  }
  if constexpr (boost::describe::has_describe_bases<T>::value) {
    using Bases = boost::describe::describe_bases<T, boost::describe::mod_any_access>;
    boost::mp11::mp_for_each<Bases>([&](auto base) {
      using Base = typename decltype(base)::type;
      describedChildren<Base>(static_cast<const Base&>(value), sink);
    });
  }
}

template <class Tuple>
void tupleChildren(const void* v, VeltoChildSink& sink) {
  std::apply([&](const auto&... element) { (sink.child(std::string_view(), refTo(element)), ...); }, as<Tuple>(v));
}

// The range as the walk iterates it: itself when it can be iterated const, else a copy of the
// view (filter views cache their begin and iterate only when mutable), kept alive by the sink
// because its elements may live inside it.
template <class Range, class Sink>
decltype(auto) iterableRange(const void* v, Sink& sink) {
  if constexpr (requires(const Range& r) { std::begin(r); }) {
    return as<Range>(v);
  } else {
    auto copy = std::make_shared<Range>(as<Range>(v));
    sink.keepAlive(copy);
    return *copy;
  }
}

// Elements that are not lvalues (iota and transform views, std::vector<bool>'s proxies) are
// copied into storage the sink keeps: a pointer to the temporary would dangle before it is read.
template <class Range>
void rangeChildren(const void* v, VeltoChildSink& sink) {
  auto&& range = iterableRange<Range>(v, sink);
  using Reference = decltype(*std::begin(range));
  if constexpr (std::is_lvalue_reference_v<Reference>) {
    for (const auto& element : range) sink.child(std::string_view(), refTo(element));
  } else {
    using Value = std::iter_value_t<decltype(std::begin(range))>;
    auto storage = std::make_shared<std::deque<Value>>();  // a deque never moves its elements
    for (auto&& element : range) {
      storage->emplace_back(std::forward<decltype(element)>(element));
      sink.child(std::string_view(), refTo(storage->back()));
    }
    sink.keepAlive(std::move(storage));
  }
}

template <class Map>
void mapEntries(const void* v, VeltoEntrySink& sink) {
  auto&& map = iterableRange<Map>(v, sink);
  using Reference = decltype(*std::begin(map));
  if constexpr (std::is_lvalue_reference_v<Reference>) {
    for (const auto& [key, value] : map) sink.entry(refTo(key), refTo(value));
  } else {
    using Value = std::iter_value_t<decltype(std::begin(map))>;
    auto storage = std::make_shared<std::deque<Value>>();
    for (auto&& element : map) {
      const auto& [key, value] = storage->emplace_back(std::forward<decltype(element)>(element));
      sink.entry(refTo(key), refTo(value));
    }
    sink.keepAlive(std::move(storage));
  }
}

template <class Case>
void casePayload(const Case& c, VeltoChildSink& sink) {
  using Members = boost::describe::describe_members<Case, boost::describe::mod_any_access>;
  constexpr std::size_t count = boost::mp11::mp_size<Members>::value;
  if constexpr (count == 1) {
    using Member = boost::mp11::mp_front<Members>;
    sink.child(spelledName(Case::caseName), refTo(c.*Member::pointer));
  } else if constexpr (count > 1) {
    sink.child(spelledName(Case::caseName), {&c, &casePayloadTupleMirror<Case>()});
  }
}

template <class T>
std::string enumCaseName(const void* v) {
  const T value = as<T>(v);
  if constexpr (boost::describe::has_describe_enumerators<T>::value) {
    if (const char* name = boost::describe::enum_to_string(value, nullptr)) return std::string(spelledName(name));
  }
  return std::to_string(static_cast<std::underlying_type_t<T>>(value));
}

template <class T>
VeltoScalar scalarOf(const void* v) {
  const T& value = as<T>(v);
  if constexpr (std::is_same_v<T, bool>) {
    return value;
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<double>(value);
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    return static_cast<std::int64_t>(value);
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<std::uint64_t>(value);
  } else {
    return std::string_view(value);
  }
}

// ---- the classification -------------------------------------------------------------------

template <class T>
VeltoTypeMirror makeMirror() noexcept {
  VeltoTypeMirror m{typeid(T), &staticTypeNameOf<T>};
  if constexpr (DeclaresCustomEncodingHook<T>) {
    static_assert(VeltoCustomDebugEncoding<T>,
                  "this type declares encodeForDynamicDebug but does not satisfy VeltoCustomDebugEncoding: all three "
                  "destination forms, const, returning VeltoResult<void> (see VeltoCustomDebugEncoding.hpp)");
  }
  if constexpr (DeclaresContainerEncodingHook<T>) {
    static_assert(VeltoCustomDebugContainerEncoding<T>,
                  "this type declares encodeChildrenForDynamicDebug but does not satisfy "
                  "VeltoCustomDebugContainerEncoding: const, (VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&), "
                  "returning VeltoResult<void> (see VeltoCustomDebugEncoding.hpp)");
  }
  if constexpr (VeltoCustomDebugEncoding<T>) m.custom = &CustomHooks<T>::hooks;
  if constexpr (VeltoCustomDebugContainerEncoding<T>) m.customChildren = &customChildren<T>;
  if constexpr (HasDebugDescription<T>) m.debugDescription = [](const void* v) { return std::string(as<T>(v).debugDescription()); };
  m.mainThreadOnly = std::is_base_of_v<VeltoMainThreadOnlyEncodable, T>;
  if constexpr (std::is_polymorphic_v<T>) {
    // Seen through a reference to a base, a value still names its own type.
    m.dynamicType = [](const void* v) -> const std::type_info& { return typeid(as<T>(v)); };
    m.mostDerived = [](const void* v) { return dynamic_cast<const void*>(&as<T>(v)); };
  }

  if constexpr (isSpecialization<T, std::optional>) {
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      if (const auto& o = as<T>(v)) sink.child(std::string_view(), refTo(*o));
    };
  } else if constexpr (isSpecialization<T, std::shared_ptr> || isSpecialization<T, std::unique_ptr>) {
    using Object = typename T::element_type;
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      if (const auto* object = as<T>(v).get()) sink.child(std::string_view(), {object, &objectMirrorOf<Object>()});
    };
  } else if constexpr (isSpecialization<T, std::weak_ptr>) {
    using Object = typename T::element_type;
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      if (auto object = as<T>(v).lock()) {
        sink.child(std::string_view(), {object.get(), &objectMirrorOf<Object>()});
        sink.keepAlive(std::move(object));  // the object may have no other owner left
      }
    };
  } else if constexpr (std::is_same_v<T, VeltoAny>) {
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      if (const VeltoValueRef inner = as<T>(v).ref()) sink.child(std::string_view(), inner);
    };
  } else if constexpr (std::is_same_v<T, VeltoArgs>) {
    m.style = VeltoDisplayStyle::dictionary;
    m.keysAreText = true;
    m.entries = [](const void* v, VeltoEntrySink& sink) {
      for (const auto& [key, value] : as<T>(v)) sink.entry(refTo(key), refTo(value));
    };
  } else if constexpr (CharPointer<T>) {
    // A C string is its text; a null one is an absent value. The view is handed to the sink to
    // keep, as the walk may write the child after the visit.
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      if (const char* text = as<T>(v)) {
        auto view = std::make_shared<const std::string_view>(text);
        sink.child(std::string_view(), refTo(*view));
        sink.keepAlive(std::move(view));
      }
    };
  } else if constexpr (OtherText<T>) {
    // Transparent around its UTF-8 form, made for the visit and kept by the sink.
    m.style = VeltoDisplayStyle::optional;
    m.children = [](const void* v, VeltoChildSink& sink) {
      auto text = std::make_shared<const std::string>(utf8Text(std::basic_string_view<typename T::value_type>(as<T>(v))));
      sink.child(std::string_view(), refTo(*text));
      sink.keepAlive(std::move(text));
    };
  } else if constexpr (CharArray<T>) {
    // A char buffer holds text up to its first NUL (all of it when there is none).
    m.scalar = [](const void* v) -> VeltoScalar {
      const auto& text = as<T>(v);
      return std::string_view(text, static_cast<std::size_t>(std::find(text, text + std::extent_v<T>, '\0') - text));
    };
  } else if constexpr (PathLike<T>) {
    m.scalar = [](const void* v) -> VeltoScalar { return std::string_view(as<T>(v).native()); };
  } else if constexpr (std::is_same_v<T, std::byte>) {
    m.scalar = [](const void* v) -> VeltoScalar { return static_cast<std::uint64_t>(std::to_integer<unsigned>(as<T>(v))); };
  } else if constexpr (isDuration<T>) {
    m.scalar = [](const void* v) -> VeltoScalar { return std::chrono::duration<double>(as<T>(v)).count(); };
  } else if constexpr (isTimePoint<T>) {
    // Seconds since the clock's epoch: 1970 for the system clock, like every timestamp here.
    m.scalar = [](const void* v) -> VeltoScalar {
      return std::chrono::duration<double>(as<T>(v).time_since_epoch()).count();
    };
  } else if constexpr (FunctionPointer<T>) {
    m.isClosure = true;
  } else if constexpr (isSpecialization<T, std::pair> || isSpecialization<T, std::tuple>) {
    m.style = VeltoDisplayStyle::tuple;
    m.children = &tupleChildren<T>;
  } else if constexpr (isSpecialization<T, std::variant>) {
    m.style = VeltoDisplayStyle::enumeration;
    m.caseName = [](const void* v) {
      return std::visit([](const auto& alternative) { return typeName<std::remove_cvref_t<decltype(alternative)>>(); },
                        as<T>(v));
    };
    m.children = [](const void* v, VeltoChildSink& sink) {
      std::visit(
          [&](const auto& alternative) {
            if constexpr (!std::is_same_v<std::remove_cvref_t<decltype(alternative)>, std::monostate>) {
              sink.child(std::string_view(), refTo(alternative));
            }
          },
          as<T>(v));
    };
  } else if constexpr (TaggedVariant<T>) {
    m.style = VeltoDisplayStyle::enumeration;
    m.caseName = [](const void* v) {
      return std::visit([](const auto& c) { return std::string(spelledName(std::remove_cvref_t<decltype(c)>::caseName)); },
                        as<T>(v).cases());
    };
    m.children = [](const void* v, VeltoChildSink& sink) {
      std::visit([&](const auto& c) { casePayload(c, sink); }, as<T>(v).cases());
    };
  } else if constexpr (std::is_enum_v<T>) {
    m.style = VeltoDisplayStyle::enumeration;
    m.caseName = &enumCaseName<T>;
  } else if constexpr (MapLike<T>) {
    m.style = VeltoDisplayStyle::dictionary;
    m.keysAreText = Text<std::remove_cvref_t<typename T::key_type>>;
    m.entries = &mapEntries<T>;
  } else if constexpr (SetLike<T>) {
    m.style = VeltoDisplayStyle::set;
    m.children = &rangeChildren<T>;
  } else if constexpr (RangeLike<T>) {
    m.style = VeltoDisplayStyle::collection;
    m.children = &rangeChildren<T>;
  } else if constexpr (Described<T>) {
    m.style = VeltoDisplayStyle::structure;
    m.children = [](const void* v, VeltoChildSink& sink) { describedChildren(as<T>(v), sink); };
  } else if constexpr (std::is_arithmetic_v<T> || Text<T>) {
    m.scalar = &scalarOf<T>;
  } else if constexpr (Callable<T>) {
    m.isClosure = true;
  }
  return m;
}

template <class T>
const VeltoTypeMirror& mirrorOf() noexcept {
  static const VeltoTypeMirror mirror = makeMirror<std::remove_cvref_t<T>>();
  return mirror;
}

// An object reached through a pointer: identity is its address, children its described members
// (own first, then each base's), the dynamic type when it is polymorphic.
template <class T>
const VeltoTypeMirror& objectMirrorOf() noexcept {
  static const VeltoTypeMirror mirror = [] {
    VeltoTypeMirror m = makeMirror<std::remove_cv_t<T>>();
    m.style = VeltoDisplayStyle::class_;
    m.identity = [](const void* v) { return v; };
    m.children = nullptr;
    m.entries = nullptr;
    m.caseName = nullptr;
    m.scalar = nullptr;
    using Object = std::remove_cv_t<T>;
    if constexpr (Described<Object>) {
      m.children = [](const void* v, VeltoChildSink& sink) { describedChildren(as<Object>(v), sink); };
    } else if constexpr (!std::is_polymorphic_v<Object>) {
      // A shared value that is no object of its own (a string, a vector, a number): an object
      // whose only child is the value, so that it shows next to its address.
      const VeltoTypeMirror& value = mirrorOf<Object>();
      if (!m.customChildren && !m.debugDescription &&
          (value.style != VeltoDisplayStyle::none || value.scalar || value.isClosure)) {
        m.children = [](const void* v, VeltoChildSink& sink) { sink.child("pointee", refTo(as<Object>(v))); };
      }
    }
    if constexpr (std::is_polymorphic_v<T>) {
      m.dynamicType = [](const void* v) -> const std::type_info& { return typeid(as<std::remove_cv_t<T>>(v)); };
      m.mostDerived = [](const void* v) { return dynamic_cast<const void*>(&as<std::remove_cv_t<T>>(v)); };
      // Identity is the complete object's address, whichever base it is seen through.
      m.identity = m.mostDerived;
    }
    return m;
  }();
  if constexpr (std::is_polymorphic_v<T>) {
    // Registered once the static exists: the registry keeps its address.
    [[maybe_unused]] static const bool registered = (registerObjectMirror(typeid(T), mirror), true);
  }
  return mirror;
}

// Several payload values of one case: a tuple labelled by the case's member names.
template <class Case>
const VeltoTypeMirror& casePayloadTupleMirror() noexcept {
  static const VeltoTypeMirror mirror = [] {
    VeltoTypeMirror m = makeMirror<Case>();
    m.style = VeltoDisplayStyle::tuple;
    return m;
  }();
  return mirror;
}

}  // namespace velto::detail

/// Makes objects of dynamic type T render with T's own members (then its bases') when they are
/// reached through a pointer to a base. Holding any std::shared_ptr<T> in a recorded value does
/// the same; call this when objects are only ever handed around as their base.
template <class T>
void VeltoRegisterObjectType() noexcept {
  (void)velto::detail::objectMirrorOf<T>();
}
