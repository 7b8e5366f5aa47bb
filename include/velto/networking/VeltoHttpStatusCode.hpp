// VeltoHttpStatusCode: the 61 HTTP response status codes the library names, each case's value
// being its code.
//
//   fromRawValue<VeltoHttpStatusCode>(418);          // VeltoHttpStatusCode::imATeapot
//   fromRawValue<VeltoHttpStatusCode>(419);          // std::nullopt: no case
//   rawValue(VeltoHttpStatusCode::iMUsed);           // 226
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "velto/core/VeltoCustomDebugEncoding.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoRawRepresentable.hpp"

/// Known status codes, in declaration order; the value of each case is its code. The
/// spellings `iMUsed`, `imATeapot` and `switchProxy` are deliberate and kept. Codes without a
/// case (103, 209-225, 227-299, 309-399, 419, 420, 425, 427, 430, 432-450, 452-499, 509, below
/// 100, above 511) convert to none. Debug output shows the case name ("imATeapot", "continue").
enum class VeltoHttpStatusCode : std::int64_t {
  continue_ = 100,  // printed as "continue"
  switchingProtocols = 101,
  processing = 102,
  ok = 200,
  created = 201,
  accepted = 202,
  nonAuthoritativeInformation = 203,
  noContent = 204,
  resetContent = 205,
  partialContent = 206,
  multiStatus = 207,
  alreadyReported = 208,
  iMUsed = 226,
  multipleChoices = 300,
  movedPermanently = 301,
  found = 302,
  seeOther = 303,
  notModified = 304,
  useProxy = 305,
  switchProxy = 306,
  temporaryRedirect = 307,
  permanentRedirect = 308,
  badRequest = 400,
  unauthorized = 401,
  paymentRequired = 402,
  forbidden = 403,
  notFound = 404,
  methodNotAllowed = 405,
  notAcceptable = 406,
  proxyAuthenticationRequired = 407,
  requestTimeout = 408,
  conflict = 409,
  gone = 410,
  lengthRequired = 411,
  preconditionFailed = 412,
  payloadTooLarge = 413,
  uriTooLong = 414,
  unsupportedMediaType = 415,
  rangeNotSatisfiable = 416,
  expectationFailed = 417,
  imATeapot = 418,
  misdirectedRequest = 421,
  unprocessableEntity = 422,
  locked = 423,
  failedDependency = 424,
  upgradeRequired = 426,
  preconditionRequired = 428,
  tooManyRequests = 429,
  requestHeaderFieldsTooLarge = 431,
  unavailableForLegalReasons = 451,
  internalServerError = 500,
  notImplemented = 501,
  badGateway = 502,
  serviceUnavailable = 503,
  gatewayTimeout = 504,
  httpVersionNotSupported = 505,
  variantAlsoNegotiates = 506,
  insufficientStorage = 507,
  loopDetected = 508,
  notExtended = 510,
  networkAuthenticationRequired = 511,
};

namespace velto::detail {

struct HttpStatusCodeCase {
  std::int64_t code;
  std::string_view name;
};

/// The cases in declaration order, with their printed names.
inline constexpr std::array<HttpStatusCodeCase, 61> kHttpStatusCodeCases{{
    HttpStatusCodeCase{100, "continue"},
    HttpStatusCodeCase{101, "switchingProtocols"},
    HttpStatusCodeCase{102, "processing"},
    HttpStatusCodeCase{200, "ok"},
    HttpStatusCodeCase{201, "created"},
    HttpStatusCodeCase{202, "accepted"},
    HttpStatusCodeCase{203, "nonAuthoritativeInformation"},
    HttpStatusCodeCase{204, "noContent"},
    HttpStatusCodeCase{205, "resetContent"},
    HttpStatusCodeCase{206, "partialContent"},
    HttpStatusCodeCase{207, "multiStatus"},
    HttpStatusCodeCase{208, "alreadyReported"},
    HttpStatusCodeCase{226, "iMUsed"},
    HttpStatusCodeCase{300, "multipleChoices"},
    HttpStatusCodeCase{301, "movedPermanently"},
    HttpStatusCodeCase{302, "found"},
    HttpStatusCodeCase{303, "seeOther"},
    HttpStatusCodeCase{304, "notModified"},
    HttpStatusCodeCase{305, "useProxy"},
    HttpStatusCodeCase{306, "switchProxy"},
    HttpStatusCodeCase{307, "temporaryRedirect"},
    HttpStatusCodeCase{308, "permanentRedirect"},
    HttpStatusCodeCase{400, "badRequest"},
    HttpStatusCodeCase{401, "unauthorized"},
    HttpStatusCodeCase{402, "paymentRequired"},
    HttpStatusCodeCase{403, "forbidden"},
    HttpStatusCodeCase{404, "notFound"},
    HttpStatusCodeCase{405, "methodNotAllowed"},
    HttpStatusCodeCase{406, "notAcceptable"},
    HttpStatusCodeCase{407, "proxyAuthenticationRequired"},
    HttpStatusCodeCase{408, "requestTimeout"},
    HttpStatusCodeCase{409, "conflict"},
    HttpStatusCodeCase{410, "gone"},
    HttpStatusCodeCase{411, "lengthRequired"},
    HttpStatusCodeCase{412, "preconditionFailed"},
    HttpStatusCodeCase{413, "payloadTooLarge"},
    HttpStatusCodeCase{414, "uriTooLong"},
    HttpStatusCodeCase{415, "unsupportedMediaType"},
    HttpStatusCodeCase{416, "rangeNotSatisfiable"},
    HttpStatusCodeCase{417, "expectationFailed"},
    HttpStatusCodeCase{418, "imATeapot"},
    HttpStatusCodeCase{421, "misdirectedRequest"},
    HttpStatusCodeCase{422, "unprocessableEntity"},
    HttpStatusCodeCase{423, "locked"},
    HttpStatusCodeCase{424, "failedDependency"},
    HttpStatusCodeCase{426, "upgradeRequired"},
    HttpStatusCodeCase{428, "preconditionRequired"},
    HttpStatusCodeCase{429, "tooManyRequests"},
    HttpStatusCodeCase{431, "requestHeaderFieldsTooLarge"},
    HttpStatusCodeCase{451, "unavailableForLegalReasons"},
    HttpStatusCodeCase{500, "internalServerError"},
    HttpStatusCodeCase{501, "notImplemented"},
    HttpStatusCodeCase{502, "badGateway"},
    HttpStatusCodeCase{503, "serviceUnavailable"},
    HttpStatusCodeCase{504, "gatewayTimeout"},
    HttpStatusCodeCase{505, "httpVersionNotSupported"},
    HttpStatusCodeCase{506, "variantAlsoNegotiates"},
    HttpStatusCodeCase{507, "insufficientStorage"},
    HttpStatusCodeCase{508, "loopDetected"},
    HttpStatusCodeCase{510, "notExtended"},
    HttpStatusCodeCase{511, "networkAuthenticationRequired"},
}};

inline constexpr std::int64_t kFirstHttpStatusCode = 100;
inline constexpr std::int64_t kLastHttpStatusCode = 511;

// Dense table over 100...511: the case's position in kHttpStatusCodeCases, or -1 for none.
inline constexpr std::array<std::int8_t, kLastHttpStatusCode - kFirstHttpStatusCode + 1> kHttpStatusCodeIndex = [] {
  std::array<std::int8_t, kLastHttpStatusCode - kFirstHttpStatusCode + 1> index{};
  for (auto& entry : index) entry = -1;
  for (std::size_t i = 0; i < kHttpStatusCodeCases.size(); ++i) {
    index[static_cast<std::size_t>(kHttpStatusCodeCases[i].code - kFirstHttpStatusCode)] = static_cast<std::int8_t>(i);
  }
  return index;
}();

/// The case's printed name ("continue" for `continue_`). REQUIRES: `code` is one of the cases;
/// any other value (made by a cast) gives "".
[[nodiscard]] constexpr std::string_view httpStatusCodeName(VeltoHttpStatusCode code) noexcept {
  const auto raw = static_cast<std::int64_t>(code);
  if (raw < kFirstHttpStatusCode || raw > kLastHttpStatusCode) return {};
  const std::int8_t position = kHttpStatusCodeIndex[static_cast<std::size_t>(raw - kFirstHttpStatusCode)];
  return position < 0 ? std::string_view() : kHttpStatusCodeCases[static_cast<std::size_t>(position)].name;
}

}  // namespace velto::detail

template <>
struct VeltoRawValueTraits<VeltoHttpStatusCode> {
  using RawValue = std::int64_t;
  [[nodiscard]] static constexpr std::int64_t rawValue(VeltoHttpStatusCode code) noexcept {
    return static_cast<std::int64_t>(code);
  }
  /// One look-up in a dense table over 100...511; anything outside that range is none at once.
  [[nodiscard]] static constexpr std::optional<VeltoHttpStatusCode> fromRawValue(std::int64_t raw) noexcept {
    using namespace velto::detail;
    if (raw < kFirstHttpStatusCode || raw > kLastHttpStatusCode) return std::nullopt;
    if (kHttpStatusCodeIndex[static_cast<std::size_t>(raw - kFirstHttpStatusCode)] < 0) return std::nullopt;
    return static_cast<VeltoHttpStatusCode>(raw);
  }
};

/// Debug output: the case name as a string, at every destination. (The enumeration has more
/// cases than Boost.Describe can list, so it names its cases itself.)
template <>
struct VeltoDebugConformance<VeltoHttpStatusCode> {
  static VeltoResult<void> encodeForDynamicDebug(const VeltoHttpStatusCode& code, VeltoEncoder& encoder,
                                                 VeltoDynamicDebugEncoder& dynamicEncoder);
  static VeltoResult<void> encodeForDynamicDebug(const VeltoHttpStatusCode& code, VeltoKeyedEncodingContainer& container,
                                                 std::string_view key, VeltoDynamicDebugEncoder& dynamicEncoder);
  static VeltoResult<void> encodeForDynamicDebug(const VeltoHttpStatusCode& code, VeltoUnkeyedEncodingContainer& container,
                                                 VeltoDynamicDebugEncoder& dynamicEncoder);
};
