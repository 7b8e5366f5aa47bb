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
// These types form one API and live in one header. The document model (Boost.JSON values)
// stays out of this header.
//
// Backends. The containers write into a document tree of Boost.JSON values; nothing in them
// knows about debug output. Two consumers sit on top:
//   - VeltoEncodingDocument (below) owns a tree, hands out its top-level VeltoEncoder, and
//     gives back the tree or its JSON text (compact or pretty, keys sorted on demand, doubles in
//     shortest round-trip form). A request-body encoder writes a value through
//     `document.encoder()` and then sends `document.jsonText()`, or walks `document.tree()` to
//     produce another format (an application/x-www-form-urlencoded body reads the top-level
//     object's entries).
//   - The debug encoder streams JSON text directly while it walks a value and gives custom
//     encodings containers over a small tree of their own, streamed out when they return.
// Another encoding plugs in the same way: write through the containers, then turn the tree into
// its own format.
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

/// A document being written through the containers, and what was written: its tree or its
/// JSON text. Non-finite doubles fail to encode ("Unable to encode a non-finite floating-point
/// value directly in JSON"), as JSON cannot hold them.
///
///   VeltoEncodingDocument document;
///   auto encoder = document.encoder();
///   auto body = encoder.keyedContainer();
///   if (auto r = body.encode("name", name); !r) return r;
///   send(document.jsonText());
///
/// Ownership: owns the tree; encoders and containers from it are views that must end before
/// the document does. Cost: the tree holds every value written (Boost.JSON's allocation).
/// Thread safety: none; one thread writes and reads a document.
class VeltoEncodingDocument {
 public:
  VeltoEncodingDocument();
  ~VeltoEncodingDocument();
  VeltoEncodingDocument(const VeltoEncodingDocument&) = delete;
  VeltoEncodingDocument& operator=(const VeltoEncodingDocument&) = delete;

  /// The destination of the document's single top-level value.
  [[nodiscard]] VeltoEncoder encoder() noexcept;
  /// Whether a top-level value has been written.
  [[nodiscard]] bool hasValue() const noexcept;
  /// The tree written so far (null before anything is written). Include
  /// <boost/json/value.hpp> to read it.
  [[nodiscard]] const boost::json::value& tree() const noexcept;
  /// The JSON text of the tree. Strings are written byte for byte (only what JSON requires is
  /// escaped); an empty document is the text "null".
  [[nodiscard]] std::string jsonText(bool prettyPrint = false, bool sortKeys = false) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
