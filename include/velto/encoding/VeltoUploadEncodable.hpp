// VeltoUploadEncodable: a value that may travel in a request body, written through the
// structured-encoder API (VeltoEncoder.hpp) at any of three destinations: under a key of a keyed
// container, as the next element of an unkeyed container, or as an encoder's whole value.
//
//   struct NewComment {
//     std::string text;
//     std::vector<std::string> tags;
//     VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& container, std::string_view key) const;
//     VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& container) const;
//     VeltoResult<void> encodeForUpload(VeltoEncoder& encoder) const;
//   };
//   // or, for a value uploaded as one object, derive from VeltoUploadEncodableObject (below):
//   struct NewComment : VeltoUploadEncodableObject<NewComment> {
//     std::string text;
//     std::vector<std::string> tags;
//     VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer& container) const {
//       if (auto r = encodeValueForUpload(text, container, "text"); !r) return r;
//       return encodeValueForUpload(tags, container, "tags");
//     }
//   };
//
// The library's conformances:
//   std::string, VeltoSensitiveString       the text (a sensitive string uploads its plain text)
//   bool, double                            the value
//   signed 64-bit integers                  the number (long, long long)
//   unsigned 8-, 32-, 64-bit integers       the number (unsigned char, unsigned int, unsigned
//                                           long, unsigned long long)
//   boost::uuids::uuid                      its canonical upper-case text (8-4-4-4-12)
//   VeltoSensitiveData                      its plain bytes in base64 (no line breaks)
//   std::vector, std::unordered_set         an array of the elements, each written as the next
//       of upload-encodable elements        element (a set in its own iteration order, unsorted);
//                                           an empty one is an empty array, never absent
//   an enumeration E with                   its case NAME as text, not its raw value ("post", not
//       VeltoUploadsCaseName<E> = true      "POST"); deliberate: a type that wants its raw value
//                                           on the wire writes its own operations
// int, short, float, other widths and char types deliberately have none: `int` uploads would
// silently depend on the platform's width, and float would widen to a different decimal text.
//
// A type you cannot change conforms by specialising VeltoUploadConformance<T> with the three
// operations as static functions taking `const T&` first.
//
// Failures: no conformance makes failures of its own; every failure comes from a container (a
// non-finite double) and is passed up unchanged. Collections stop at the first element that
// fails; what was written before stays in the container, and the caller discards the encoding.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include <boost/describe/enum_to_string.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/uuid/uuid.hpp>

#include "velto/core/VeltoResult.hpp"
#include "velto/detail/TypeName.hpp"
#include "velto/detail/UuidText.hpp"
#include "velto/encoding/VeltoEncoder.hpp"
#include "velto/encoding/VeltoRawRepresentable.hpp"
#include "velto/encoding/VeltoSensitiveData.hpp"
#include "velto/encoding/VeltoSensitiveString.hpp"

/// Specialise for a type you cannot change (see the header comment). The primary template is
/// empty: a type without a specialisation conforms through its own `encodeForUpload` members.
template <class T>
struct VeltoUploadConformance {};

/// Set to true for a raw-representable enumeration described with BOOST_DESCRIBE_ENUM to
/// upload its case name (see the header comment). Specialise it beside the enumeration, before
/// any upload of it is compiled, so that every translation unit sees the same answer.
template <class E>
inline constexpr bool VeltoUploadsCaseName = false;

namespace velto::detail {

template <class T>
concept OwnUploadEncoding = requires(const T& value, VeltoKeyedEncodingContainer& keyed, std::string_view key,
                                     VeltoUnkeyedEncodingContainer& unkeyed, VeltoEncoder& encoder) {
  { value.encodeForUpload(keyed, key) } -> std::same_as<VeltoResult<void>>;
  { value.encodeForUpload(unkeyed) } -> std::same_as<VeltoResult<void>>;
  { value.encodeForUpload(encoder) } -> std::same_as<VeltoResult<void>>;
};

template <class T>
concept TraitUploadEncoding = requires(const T& value, VeltoKeyedEncodingContainer& keyed, std::string_view key,
                                       VeltoUnkeyedEncodingContainer& unkeyed, VeltoEncoder& encoder) {
  { VeltoUploadConformance<T>::encodeForUpload(value, keyed, key) } -> std::same_as<VeltoResult<void>>;
  { VeltoUploadConformance<T>::encodeForUpload(value, unkeyed) } -> std::same_as<VeltoResult<void>>;
  { VeltoUploadConformance<T>::encodeForUpload(value, encoder) } -> std::same_as<VeltoResult<void>>;
};

template <class T>
concept UploadSigned64 = std::same_as<T, long> || std::same_as<T, long long>;

template <class T>
concept UploadUnsigned = std::same_as<T, unsigned char> || std::same_as<T, unsigned int> ||
                         std::same_as<T, unsigned long> || std::same_as<T, unsigned long long>;

template <class T>
concept UploadScalar = std::same_as<T, bool> || std::same_as<T, double> || UploadSigned64<T> || UploadUnsigned<T>;

/// Base64 of `bytes` in one line, with "=" padding.
[[nodiscard]] std::string base64Text(const VeltoData& bytes);

}  // namespace velto::detail

/// A type with the three upload operations, as members or through VeltoUploadConformance.
template <class T>
concept VeltoUploadEncodable = velto::detail::OwnUploadEncoding<T> || velto::detail::TraitUploadEncoding<T>;

/// A text usable as a coding key: a string (its own text) or a value with `stringValue()`
/// (VeltoDictionaryCodingKey).
template <class K>
concept VeltoCodingKey = std::is_convertible_v<const K&, std::string_view> || requires(const K& key) {
  { key.stringValue() } -> std::convertible_to<std::string_view>;
};

/// Writes `value` under `key` of `container`.
template <VeltoUploadEncodable T, VeltoCodingKey K>
[[nodiscard]] VeltoResult<void> encodeValueForUpload(const T& value, VeltoKeyedEncodingContainer& container, const K& key) {
  std::string_view text;
  if constexpr (std::is_convertible_v<const K&, std::string_view>) text = key;
  else text = key.stringValue();
  if constexpr (velto::detail::TraitUploadEncoding<T>) return VeltoUploadConformance<T>::encodeForUpload(value, container, text);
  else return value.encodeForUpload(container, text);
}

/// Appends `value` as the next element of `container`.
template <VeltoUploadEncodable T>
[[nodiscard]] VeltoResult<void> encodeValueForUpload(const T& value, VeltoUnkeyedEncodingContainer& container) {
  if constexpr (velto::detail::TraitUploadEncoding<T>) return VeltoUploadConformance<T>::encodeForUpload(value, container);
  else return value.encodeForUpload(container);
}

/// Writes `value` as the encoder's whole value.
template <VeltoUploadEncodable T>
[[nodiscard]] VeltoResult<void> encodeValueForUpload(const T& value, VeltoEncoder& encoder) {
  if constexpr (velto::detail::TraitUploadEncoding<T>) return VeltoUploadConformance<T>::encodeForUpload(value, encoder);
  else return value.encodeForUpload(encoder);
}

/// Gives Derived the three upload operations of a value uploaded as one object: Derived writes
/// its entries with `VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer&) const`
/// (under a key: a nested object; as an element: a nested object; whole: the top-level object).
template <class Derived>
class VeltoUploadEncodableObject {
 public:
  VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& container, std::string_view key) const {
    auto nested = container.nestedKeyedContainer(key);
    return self().encodeFieldsForUpload(nested);
  }
  VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& container) const {
    auto nested = container.nestedKeyedContainer();
    return self().encodeFieldsForUpload(nested);
  }
  VeltoResult<void> encodeForUpload(VeltoEncoder& encoder) const {
    auto container = encoder.keyedContainer();
    return self().encodeFieldsForUpload(container);
  }

  // Stateless, so a deriving value type's defaulted comparison still compares only its own fields.
  friend bool operator==(const VeltoUploadEncodableObject&, const VeltoUploadEncodableObject&) = default;

 private:
  const Derived& self() const { return static_cast<const Derived&>(*this); }
};

// ---- the library's conformances ---------------------------------------------------------------

namespace velto::detail {

// A value written as one scalar in each of the three places.
template <class T, class Scalar = T>
struct ScalarUploadForms {
  static VeltoResult<void> encodeForUpload(const T& value, VeltoKeyedEncodingContainer& container, std::string_view key) {
    return container.encode(key, scalar(value));
  }
  static VeltoResult<void> encodeForUpload(const T& value, VeltoUnkeyedEncodingContainer& container) {
    return container.encode(scalar(value));
  }
  static VeltoResult<void> encodeForUpload(const T& value, VeltoEncoder& encoder) {
    return encoder.singleValueContainer().encode(scalar(value));
  }

 private:
  static Scalar scalar(const T& value) {
    if constexpr (std::is_convertible_v<const T&, Scalar>) return value;
    else return VeltoUploadConformance<T>::text(value);
  }
};

// Every element, in iteration order, as the next element of `container`; stops at a failure.
// (std::vector<bool>'s proxies are read into a bool bound to `element`.)
template <class Range>
VeltoResult<void> uploadElements(const Range& range, VeltoUnkeyedEncodingContainer& container) {
  using Element = typename Range::value_type;
  for (const Element& element : range) {
    if (auto written = encodeValueForUpload(element, container); !written) return written;
  }
  return VeltoResultVoidSuccess;
}

template <class Range>
struct CollectionUploadForms {
  static VeltoResult<void> encodeForUpload(const Range& value, VeltoKeyedEncodingContainer& container, std::string_view key) {
    auto nested = container.nestedUnkeyedContainer(key);
    return uploadElements(value, nested);
  }
  static VeltoResult<void> encodeForUpload(const Range& value, VeltoUnkeyedEncodingContainer& container) {
    auto nested = container.nestedUnkeyedContainer();
    return uploadElements(value, nested);
  }
  static VeltoResult<void> encodeForUpload(const Range& value, VeltoEncoder& encoder) {
    auto container = encoder.unkeyedContainer();
    return uploadElements(value, container);
  }
};

}  // namespace velto::detail

template <class T>
  requires velto::detail::UploadScalar<T>
struct VeltoUploadConformance<T> : velto::detail::ScalarUploadForms<T> {};

template <>
struct VeltoUploadConformance<std::string> : velto::detail::ScalarUploadForms<std::string, std::string_view> {};

template <>
struct VeltoUploadConformance<VeltoSensitiveString> : velto::detail::ScalarUploadForms<VeltoSensitiveString, std::string_view> {
  static std::string_view text(const VeltoSensitiveString& value) noexcept { return value.raw(); }
};

template <>
struct VeltoUploadConformance<VeltoSensitiveData> : velto::detail::ScalarUploadForms<VeltoSensitiveData, std::string> {
  static std::string text(const VeltoSensitiveData& value) { return velto::detail::base64Text(value.raw()); }
};

template <>
struct VeltoUploadConformance<boost::uuids::uuid> : velto::detail::ScalarUploadForms<boost::uuids::uuid, std::string> {
  static std::string text(const boost::uuids::uuid& value) { return velto::detail::uuidText(value); }
};

template <class E>
  requires(std::is_enum_v<E> && VeltoUploadsCaseName<E>)
struct VeltoUploadConformance<E> : velto::detail::ScalarUploadForms<E, std::string> {
  static_assert(VeltoRawRepresentable<E>, "VeltoUploadsCaseName is for raw-representable enumerations");
  static_assert(boost::describe::has_describe_enumerators<E>::value,
                "VeltoUploadsCaseName needs the case names: describe the enumeration with BOOST_DESCRIBE_ENUM");
  /// The case name ("continue" for `continue_`); a value that is no case (made by a cast) is its
  /// underlying number.
  static std::string text(const E& value) {
    if (const char* name = boost::describe::enum_to_string(value, nullptr)) {
      return std::string(velto::detail::spelledName(name));
    }
    return std::to_string(static_cast<std::underlying_type_t<E>>(value));
  }
};

template <VeltoUploadEncodable T, class Allocator>
struct VeltoUploadConformance<std::vector<T, Allocator>> : velto::detail::CollectionUploadForms<std::vector<T, Allocator>> {};

template <VeltoUploadEncodable T, class Hash, class Equal, class Allocator>
struct VeltoUploadConformance<std::unordered_set<T, Hash, Equal, Allocator>>
    : velto::detail::CollectionUploadForms<std::unordered_set<T, Hash, Equal, Allocator>> {};
