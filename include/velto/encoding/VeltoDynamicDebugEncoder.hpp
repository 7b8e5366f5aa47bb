// VeltoDynamicDebugEncoder: turns any value at all into a JSON document for people reading logs
// and debug dumps: structures, object graphs with cycles, enumerations, collections, closures.
//
//   auto json = VeltoDynamicDebugEncoder::encodeToString(order, VeltoDynamicDebugEncoderOptions::forLogging());
//   if (json) std::puts(json.value().c_str());
//
// The value needs no encoding support of its own: the encoder walks its mirror (VeltoMirror.hpp)
// by display style, and types take over their own rendering through `encodeForDynamicDebug` /
// `encodeChildrenForDynamicDebug` (see VeltoMirror.hpp), which call back into the instance
// operations below for nested values.
//
// Reserved keys: "__type", "__address", "__previouslyEncodedAddress", "__debugDescription",
// "__key", "__value", "__anonymous". Objects (values reached through a smart pointer) are
// written once: any later occurrence anywhere in the document is only its type and address,
// which is what keeps cycles finite. Non-finite floating-point values become the strings
// "positive infinity", "negative infinity" and "NaN". Doubles are written in shortest
// round-trip form.
//
// Depth: none is imposed. The walk keeps its own stack on the heap, so a chain of a million
// objects renders completely on a thread with a small stack, and so does a chain that recurses
// through custom encodings: a hook's nested `encode` of a shared owner (std::shared_ptr,
// std::weak_ptr, VeltoAny) into a keyed or unkeyed container does not walk at once; it keeps a
// copy of the owner, reserves the entry's place and is walked after the hook returns. So an
// object reached both through such an entry and through a value the same hook wrote directly
// shows its full form under the direct value, even when that one comes later in the document.
//
// Cost: the document is written as text while the value is walked; only custom encodings (and
// every object when sortPropertyKeys is set) are built as Boost.JSON trees first.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoMirror.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoderOptions.hpp"
#include "velto/encoding/VeltoEncodableAddress.hpp"
#include "velto/encoding/VeltoEncoder.hpp"

namespace velto::detail {
struct DebugWalk;
struct DeferredEntries;

// Values that own what they show (copying them keeps it alive), so that a custom encoding's
// nested encode of one can wait until the hook has returned.
template <class T>
concept SharedOwner = isSpecialization<T, std::shared_ptr> || isSpecialization<T, std::weak_ptr> || std::is_same_v<T, VeltoAny>;
}  // namespace velto::detail

/// One debug encoding in progress. Made by `encodeToData` / `encodeToString` for one document
/// and never reused; custom encodings receive it to read `options()` and to encode nested values.
///
/// Failure: only a custom encoding's own failure, or a document with nothing at all to write (an
/// absent optional without includeNulls, a closure without includeClosures, a pointer without
/// includeAddresses at the top), fails; everything else renders, if only as an explanatory
/// string. Objects of a type without members or description print "Add custom handling for type
/// <type>" to standard output and render as their type and address only.
/// Thread safety: an instance is used by one thread. Values deriving from
/// VeltoMainThreadOnlyEncodable render only on the main thread ("Not encodable off main thread").
class VeltoDynamicDebugEncoder {
 public:
  struct Keys {
    static constexpr std::string_view type = "__type";
    static constexpr std::string_view address = "__address";
    static constexpr std::string_view previouslyEncodedAddress = "__previouslyEncodedAddress";
    static constexpr std::string_view debugDescription = "__debugDescription";
    static constexpr std::string_view key = "__key";
    static constexpr std::string_view value = "__value";
    static constexpr std::string_view anonymousCase = "__anonymous";
  };

  /// The document as UTF-8 bytes. Failure: "Failed to encode for debug" with the underlying
  /// error as its framework error.
  template <class T>
  [[nodiscard]] static VeltoResult<VeltoData> encodeToData(const T& item, const VeltoDynamicDebugEncoderOptions& options) {
    return encodeRefToData(velto::detail::refTo(item), options);
  }

  /// The document as text. Failures: those of encodeToData with one frame added, or "Failed to
  /// create string representation of encoded data" when the bytes are not valid UTF-8 (a recorded
  /// string that was not).
  template <class T>
  [[nodiscard]] static VeltoResult<std::string> encodeToString(const T& item,
                                                              const VeltoDynamicDebugEncoderOptions& options) {
    return encodeRefToString(velto::detail::refTo(item), options);
  }

  [[nodiscard]] static VeltoResult<VeltoData> encodeRefToData(VeltoValueRef item, const VeltoDynamicDebugEncoderOptions& options);
  [[nodiscard]] static VeltoResult<std::string> encodeRefToString(VeltoValueRef item,
                                                                 const VeltoDynamicDebugEncoderOptions& options);

  [[nodiscard]] const VeltoDynamicDebugEncoderOptions& options() const noexcept { return options_; }
  /// The identities of every object whose entry has been opened so far.
  [[nodiscard]] const std::unordered_set<VeltoEncodableAddress>& encodedAddresses() const noexcept { return encodedAddresses_; }
  /// The item being encoded.
  [[nodiscard]] VeltoValueRef contents() const noexcept { return contents_; }

  /// Writes `item` as the whole value of `encoder`.
  template <class T>
  VeltoResult<void> encode(const T& item, VeltoEncoder& toEncoder) {
    return encodeRef(velto::detail::refTo(item), toEncoder);
  }
  /// Writes `item` as the entry `forKey` of `toKeyedParent` (left out if nothing is written).
  /// Called from a custom encoding with a shared owner, the entry is written after the hook
  /// returns, at the place it was asked for; until then `contains(forKey)` already answers true.
  template <class T>
  VeltoResult<void> encode(const T& item, VeltoKeyedEncodingContainer& toKeyedParent, std::string_view forKey) {
    if constexpr (velto::detail::SharedOwner<T>) {
      if (deferrals_) return deferOwned(std::make_shared<const T>(item), toKeyedParent, forKey);
    }
    return encodeRef(velto::detail::refTo(item), toKeyedParent, forKey);
  }
  /// Writes `item` as the next element of `toUnkeyedParent` (none if nothing is written).
  /// Shared owners from a custom encoding are written after the hook returns, in their place.
  template <class T>
  VeltoResult<void> encode(const T& item, VeltoUnkeyedEncodingContainer& toUnkeyedParent) {
    if constexpr (velto::detail::SharedOwner<T>) {
      if (deferrals_) return deferOwned(std::make_shared<const T>(item), toUnkeyedParent);
    }
    return encodeRef(velto::detail::refTo(item), toUnkeyedParent);
  }
  VeltoResult<void> encodeRef(VeltoValueRef item, VeltoEncoder& toEncoder);
  VeltoResult<void> encodeRef(VeltoValueRef item, VeltoKeyedEncodingContainer& toKeyedParent, std::string_view forKey);
  VeltoResult<void> encodeRef(VeltoValueRef item, VeltoUnkeyedEncodingContainer& toUnkeyedParent);

  /// Writes the text of `item`'s dynamic type under `forKey`.
  template <class T>
  VeltoResult<void> encodeType(const T& item, VeltoKeyedEncodingContainer& toKeyed, std::string_view forKey) {
    return toKeyed.encode(forKey, typeText(velto::detail::refTo(item)));
  }
  /// Writes `address` as "0x" and 16 lower-case hexadecimal digits under `forKey`.
  VeltoResult<void> encodeAddress(const VeltoEncodableAddress& address, VeltoKeyedEncodingContainer& toKeyed,
                                  std::string_view forKey);

  /// The text of a value's dynamic type: its demangled name (an object's dynamic type when it
  /// is polymorphic).
  [[nodiscard]] std::string_view typeText(VeltoValueRef item);

  VeltoDynamicDebugEncoder(const VeltoDynamicDebugEncoder&) = delete;
  VeltoDynamicDebugEncoder& operator=(const VeltoDynamicDebugEncoder&) = delete;

 private:
  friend struct velto::detail::DebugWalk;
  VeltoDynamicDebugEncoder(VeltoValueRef contents, const VeltoDynamicDebugEncoderOptions& options) noexcept
      : contents_(contents), options_(options) {}

  template <class T>
  VeltoResult<void> deferOwned(std::shared_ptr<const T> owner, VeltoKeyedEncodingContainer& parent, std::string_view key) {
    const VeltoValueRef ref = velto::detail::refTo(*owner);
    return defer(ref, std::move(owner), &parent, nullptr, key);
  }
  template <class T>
  VeltoResult<void> deferOwned(std::shared_ptr<const T> owner, VeltoUnkeyedEncodingContainer& parent) {
    const VeltoValueRef ref = velto::detail::refTo(*owner);
    return defer(ref, std::move(owner), nullptr, &parent, {});
  }
  VeltoResult<void> defer(VeltoValueRef item, std::shared_ptr<const void> owner, VeltoKeyedEncodingContainer* keyed,
                          VeltoUnkeyedEncodingContainer* unkeyed, std::string_view key);

  VeltoValueRef contents_;
  VeltoDynamicDebugEncoderOptions options_;
  std::unordered_set<VeltoEncodableAddress> encodedAddresses_;
  std::unordered_map<const std::type_info*, std::string> dynamicTypeNames_;
  // The entries that the custom encoding now running has left to walk after it returns; null
  // outside custom encodings.
  velto::detail::DeferredEntries* deferrals_ = nullptr;
};
