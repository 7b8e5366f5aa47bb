// VeltoEndpointSignature: the identity of an HTTP request: its URL and the parameters that make
// it distinct, reduced to one canonical string. The request dispatcher keys the requests in
// flight by it and refuses a second request with an equal signature.
//
//   VeltoEndpointSignature signature(boost::urls::url("https://api.example.com/items"), {"b c", 5});
//   signature.stringRepresentation();                // "https://api.example.com/items?5&b%20c"
//   auto parsed = VeltoEndpointSignature::make(signature.stringRepresentation());
//   parsed.value() == signature;                     // true
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/url/url.hpp>

#include "velto/core/VeltoCustomDebugEncoding.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/networking/VeltoSignatureParameter.hpp"

/// An immutable value: the URL unchanged, the relevant parameters percent-encoded and sorted
/// ascending (duplicates kept), and `stringRepresentation`: the URL's string, one "?", then the
/// sorted parameters joined by "&". The "?" is written even without parameters: a lone
/// trailing "?" is deliberate and kept.
///
/// Encoding of a parameter: its description's UTF-8 bytes, each outside the unreserved
/// characters and `! $ ' ( ) * + , ; = : [ ]` written as "%" and two upper-case hex digits
/// (so " " is "%20" and "&" is "%26", never confused with the separator). A description that
/// is not valid UTF-8 cannot be encoded: that parameter is silently left out.
///
/// Equality compares `stringRepresentation` only. Hashing feeds only `stringHashValue` (the
/// string's hash, computed once at construction): a hash-table look-up costs no walk over the
/// string, equality still compares the whole string. Hash values are stable for the life of
/// the process only; only `stringRepresentation` may be written out.
///
/// Cost: construction encodes, sorts and hashes once; copies copy the strings and the URL.
/// Thread safety: immutable; create, copy, compare and hash on any thread.
class VeltoEndpointSignature {
 public:
  /// The signature of `url` with `relevantParameters`, in any order. Never fails.
  VeltoEndpointSignature(boost::urls::url url, const std::vector<VeltoSignatureParameter>& relevantParameters);

  /// Parses a signature's string. The candidate is split on every "?": the first piece is the
  /// URL, the second (only the second: any later piece is ignored) is split on every "&" into
  /// parameters taken as already encoded (neither decoded nor encoded again; empty pieces
  /// kept, so "url?" gives one empty parameter). The pieces are sorted as at construction.
  ///
  /// A URL is any RFC 3986 URI reference (absolute, or relative such as "/items" or "items"),
  /// taken exactly as written; it is not normalised. The empty text is no URL.
  ///
  /// Failures, at "Networking/VeltoEndpointSignature" / "make(fromString:)":
  ///   "No 'url' token" (argument "candidate"): the candidate is empty, so it splits into no
  ///     pieces at all;
  ///   "Could not resolve url from 'url' token" (arguments "candidate", "urlToken"): the first
  ///     piece is not a URI reference (a space, a lone "%", a "#" twice, or nothing before "?").
  ///
  /// For a signature whose URL has no query, parsing its representation gives an equal
  /// signature. A URL that has a query of its own does not round-trip: its "?" splits it.
  [[nodiscard]] static VeltoResult<VeltoEndpointSignature> make(std::string_view fromString);

  [[nodiscard]] const boost::urls::url& url() const noexcept { return url_; }
  [[nodiscard]] const std::vector<std::string>& relevantParametersUrlEncodedSorted() const noexcept { return parameters_; }
  [[nodiscard]] const std::string& stringRepresentation() const noexcept { return stringRepresentation_; }
  /// The hash of `stringRepresentation`, computed at construction.
  [[nodiscard]] std::int64_t stringHashValue() const noexcept { return stringHashValue_; }
  /// The hash of the signature: `stringHashValue` fed, alone, to a hasher started with seed 0.
  [[nodiscard]] std::size_t hashValue() const noexcept;

  [[nodiscard]] friend bool operator==(const VeltoEndpointSignature& lhs, const VeltoEndpointSignature& rhs) noexcept {
    return lhs.stringRepresentation_ == rhs.stringRepresentation_;
  }

  /// The encoded form of one description, or none when it is not valid UTF-8.
  [[nodiscard]] static std::optional<std::string> percentEncoded(std::string_view description);

  /// Debug output: "stringHashValue", "url" (its string), "relevantParametersUrlEncodedSorted",
  /// "stringRepresentation".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  struct AlreadyEncoded {};
  VeltoEndpointSignature(boost::urls::url url, std::vector<std::string> encodedParameters, AlreadyEncoded);
  void finish();

  std::int64_t stringHashValue_ = 0;
  boost::urls::url url_;
  std::vector<std::string> parameters_;
  std::string stringRepresentation_;
};

template <>
struct std::hash<VeltoEndpointSignature> {
  std::size_t operator()(const VeltoEndpointSignature& signature) const noexcept { return signature.hashValue(); }
};

/// Debug output of a URL: its string. Declared here, with the type that exposes URLs; a unit that
/// records a boost::urls::url includes this header so that every unit renders URLs alike.
template <>
struct VeltoDebugConformance<boost::urls::url> {
  static VeltoResult<void> encodeForDynamicDebug(const boost::urls::url& url, VeltoEncoder& encoder,
                                                 VeltoDynamicDebugEncoder& dynamicEncoder);
  static VeltoResult<void> encodeForDynamicDebug(const boost::urls::url& url, VeltoKeyedEncodingContainer& container,
                                                 std::string_view key, VeltoDynamicDebugEncoder& dynamicEncoder);
  static VeltoResult<void> encodeForDynamicDebug(const boost::urls::url& url, VeltoUnkeyedEncodingContainer& container,
                                                 VeltoDynamicDebugEncoder& dynamicEncoder);
};
