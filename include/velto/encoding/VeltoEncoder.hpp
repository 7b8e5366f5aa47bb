// The structured-encoder API: a destination for one value (`VeltoEncoder`) and the keyed,
// unkeyed and single-value containers written into it. The debug encoder builds its JSON
// document through it, and types that render themselves write through it.
//
//   VeltoResult<void> Point::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
//                                                         VeltoDynamicDebugEncoder&) const {
//     if (auto r = container.encode("x", x); !r) return r;
//     auto tags = container.nestedUnkeyedContainer("tags");       // committed when `tags` ends
//     for (const auto& tag : tags_) if (auto r = tags.encode(tag); !r) return r;
//     return VeltoResultVoidSuccess;
//   }
//
// These four types form one API and live in one header. The document model (Boost.JSON values)
// stays out of this header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "velto/core/VeltoResult.hpp"

namespace boost::json {
class value;
}  // namespace boost::json

namespace velto::detail {
struct EncodingContext;
struct EncodingNode;
}  // namespace velto::detail

class VeltoKeyedEncodingContainer;
class VeltoUnkeyedEncodingContainer;
class VeltoSingleValueEncodingContainer;

namespace velto::detail {
template <class T>
concept EncodableInteger = std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>;

// The convenience forms of a container that writes scalars without keys: text of any spelling,
// integers of any width, floats. Each forwards to the derived container's core writes.
template <class Container>
class ScalarEncodingForms {
 public:
  VeltoResult<void> encode(const char* text) { return self().encode(std::string_view(text)); }
  VeltoResult<void> encode(const std::string& text) { return self().encode(std::string_view(text)); }
  template <EncodableInteger T>
  VeltoResult<void> encode(T value) {
    if constexpr (std::is_signed_v<T>) return self().encode(static_cast<std::int64_t>(value));
    else return self().encode(static_cast<std::uint64_t>(value));
  }
  VeltoResult<void> encode(float value) { return self().encode(static_cast<double>(value)); }

 private:
  Container& self() { return static_cast<Container&>(*this); }
};
}  // namespace velto::detail

/// A destination for exactly one value: the document itself, or one entry or element being
/// written. Asking for a keyed container twice returns views of the same object (entries
/// merge); asking for a different kind replaces what was there.
///
/// Ownership: a view; it never outlives the walk step that handed it out.
/// Thread safety: none; an encoding runs on one thread.
class VeltoEncoder {
 public:
  [[nodiscard]] VeltoKeyedEncodingContainer keyedContainer();
  [[nodiscard]] VeltoUnkeyedEncodingContainer unkeyedContainer();
  [[nodiscard]] VeltoSingleValueEncodingContainer singleValueContainer();
  /// Whether anything has been written to this destination yet.
  [[nodiscard]] bool hasValue() const noexcept { return *written_; }

  VeltoEncoder(boost::json::value& slot, bool& written, const velto::detail::EncodingContext& context) noexcept
      : slot_(&slot), written_(&written), context_(&context) {}

 private:
  friend class VeltoSingleValueEncodingContainer;
  friend struct velto::detail::EncodingNode;
  boost::json::value* slot_;
  bool* written_;
  const velto::detail::EncodingContext* context_;
};

/// Writes one scalar into its destination. Each write may fail (a non-finite floating-point
/// value where the encoding has no strategy for it), with the failure passed on unchanged.
class VeltoSingleValueEncodingContainer : public velto::detail::ScalarEncodingForms<VeltoSingleValueEncodingContainer> {
 public:
  VeltoResult<void> encodeNull();
  VeltoResult<void> encode(bool value);
  VeltoResult<void> encode(std::int64_t value);
  VeltoResult<void> encode(std::uint64_t value);
  VeltoResult<void> encode(double value);
  VeltoResult<void> encode(std::string_view text);
  using velto::detail::ScalarEncodingForms<VeltoSingleValueEncodingContainer>::encode;

 private:
  friend class VeltoEncoder;
  explicit VeltoSingleValueEncodingContainer(VeltoEncoder encoder) noexcept : encoder_(encoder) {}
  VeltoEncoder encoder_;
};

/// A JSON object being written: entries keep the order in which their keys were first written
/// (writing a key again replaces its value in place).
///
/// Ownership: a container from `keyedContainer()` is a view of its destination. A nested one
/// (`nestedKeyedContainer`) holds its own object and puts it under its key, at the position the
/// key was opened at, when it is destroyed. REQUIRES: a nested container ends before its parent.
/// Thread safety: none; an encoding runs on one thread.
class VeltoKeyedEncodingContainer {
 public:
  VeltoKeyedEncodingContainer(VeltoKeyedEncodingContainer&&) noexcept;
  VeltoKeyedEncodingContainer& operator=(VeltoKeyedEncodingContainer&&) noexcept;
  ~VeltoKeyedEncodingContainer();

  VeltoResult<void> encodeNull(std::string_view key);
  VeltoResult<void> encode(std::string_view key, bool value);
  VeltoResult<void> encode(std::string_view key, std::int64_t value);
  VeltoResult<void> encode(std::string_view key, std::uint64_t value);
  VeltoResult<void> encode(std::string_view key, double value);
  VeltoResult<void> encode(std::string_view key, std::string_view text);
  VeltoResult<void> encode(std::string_view key, const char* text) { return encode(key, std::string_view(text)); }
  VeltoResult<void> encode(std::string_view key, const std::string& text) { return encode(key, std::string_view(text)); }
  template <velto::detail::EncodableInteger T>
  VeltoResult<void> encode(std::string_view key, T value) {
    if constexpr (std::is_signed_v<T>) return encode(key, static_cast<std::int64_t>(value));
    else return encode(key, static_cast<std::uint64_t>(value));
  }
  VeltoResult<void> encode(std::string_view key, float value) { return encode(key, static_cast<double>(value)); }

  [[nodiscard]] VeltoKeyedEncodingContainer nestedKeyedContainer(std::string_view key);
  [[nodiscard]] VeltoUnkeyedEncodingContainer nestedUnkeyedContainer(std::string_view key);
  /// Whether an entry named `key` has been written.
  [[nodiscard]] bool contains(std::string_view key) const;
  [[nodiscard]] std::size_t count() const;

 private:
  friend class VeltoEncoder;
  friend class VeltoUnkeyedEncodingContainer;
  friend struct velto::detail::EncodingNode;
  explicit VeltoKeyedEncodingContainer(std::unique_ptr<velto::detail::EncodingNode> node) noexcept;
  std::unique_ptr<velto::detail::EncodingNode> node_;
};

/// A JSON array being written, in order. Ownership and thread safety as for the keyed container.
class VeltoUnkeyedEncodingContainer : public velto::detail::ScalarEncodingForms<VeltoUnkeyedEncodingContainer> {
 public:
  VeltoUnkeyedEncodingContainer(VeltoUnkeyedEncodingContainer&&) noexcept;
  VeltoUnkeyedEncodingContainer& operator=(VeltoUnkeyedEncodingContainer&&) noexcept;
  ~VeltoUnkeyedEncodingContainer();

  VeltoResult<void> encodeNull();
  VeltoResult<void> encode(bool value);
  VeltoResult<void> encode(std::int64_t value);
  VeltoResult<void> encode(std::uint64_t value);
  VeltoResult<void> encode(double value);
  VeltoResult<void> encode(std::string_view text);
  using velto::detail::ScalarEncodingForms<VeltoUnkeyedEncodingContainer>::encode;

  [[nodiscard]] VeltoKeyedEncodingContainer nestedKeyedContainer();
  [[nodiscard]] VeltoUnkeyedEncodingContainer nestedUnkeyedContainer();
  /// Elements written so far.
  [[nodiscard]] std::size_t count() const;

 private:
  friend class VeltoEncoder;
  friend class VeltoKeyedEncodingContainer;
  friend struct velto::detail::EncodingNode;
  explicit VeltoUnkeyedEncodingContainer(std::unique_ptr<velto::detail::EncodingNode> node) noexcept;
  std::unique_ptr<velto::detail::EncodingNode> node_;
};
