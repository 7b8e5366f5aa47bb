// The 61 HTTP status codes the library knows, with their case names, written out independently
// of the library's own table: the reference the status code and endpoint tests check against.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace velto::test {

inline const std::map<std::int64_t, std::string>& httpStatusCodeNames() {
  static const std::map<std::int64_t, std::string> table{
      {100, "continue"}, {101, "switchingProtocols"}, {102, "processing"}, {200, "ok"}, {201, "created"},
      {202, "accepted"}, {203, "nonAuthoritativeInformation"}, {204, "noContent"}, {205, "resetContent"},
      {206, "partialContent"}, {207, "multiStatus"}, {208, "alreadyReported"}, {226, "iMUsed"},
      {300, "multipleChoices"}, {301, "movedPermanently"}, {302, "found"}, {303, "seeOther"}, {304, "notModified"},
      {305, "useProxy"}, {306, "switchProxy"}, {307, "temporaryRedirect"}, {308, "permanentRedirect"},
      {400, "badRequest"}, {401, "unauthorized"}, {402, "paymentRequired"}, {403, "forbidden"}, {404, "notFound"},
      {405, "methodNotAllowed"}, {406, "notAcceptable"}, {407, "proxyAuthenticationRequired"},
      {408, "requestTimeout"}, {409, "conflict"}, {410, "gone"}, {411, "lengthRequired"},
      {412, "preconditionFailed"}, {413, "payloadTooLarge"}, {414, "uriTooLong"}, {415, "unsupportedMediaType"},
      {416, "rangeNotSatisfiable"}, {417, "expectationFailed"}, {418, "imATeapot"}, {421, "misdirectedRequest"},
      {422, "unprocessableEntity"}, {423, "locked"}, {424, "failedDependency"}, {426, "upgradeRequired"},
      {428, "preconditionRequired"}, {429, "tooManyRequests"}, {431, "requestHeaderFieldsTooLarge"},
      {451, "unavailableForLegalReasons"}, {500, "internalServerError"}, {501, "notImplemented"},
      {502, "badGateway"}, {503, "serviceUnavailable"}, {504, "gatewayTimeout"}, {505, "httpVersionNotSupported"},
      {506, "variantAlsoNegotiates"}, {507, "insufficientStorage"}, {508, "loopDetected"}, {510, "notExtended"},
      {511, "networkAuthenticationRequired"}};
  return table;
}

}  // namespace velto::test
