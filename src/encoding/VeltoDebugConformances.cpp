// Debug renderings of the library's own types and of the standard and Boost types it ships
// conformances for.
#include <cinttypes>
#include <cstdio>

#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoInitializerError.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/detail/UuidText.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"
#include "velto/encoding/VeltoEncodableAddress.hpp"
#include "velto/encoding/VeltoSensitiveData.hpp"
#include "velto/encoding/VeltoSensitiveString.hpp"
#include "velto/values/VeltoDoubleDomain.hpp"
#include "velto/values/VeltoFileSize.hpp"

namespace {

using Result = VeltoResult<void>;

constexpr std::string_view kUnderlyingErrorKey = "NSUnderlyingError";

// Writes the same text at any of the three destinations.
Result writeText(std::string_view text, VeltoEncoder& encoder) { return encoder.singleValueContainer().encode(text); }
Result writeText(std::string_view text, VeltoKeyedEncodingContainer& container, std::string_view key) {
  return container.encode(key, text);
}
Result writeText(std::string_view text, VeltoUnkeyedEncodingContainer& container) { return container.encode(text); }

#define VELTO_TRY(expression)                 \
  do {                                        \
    if (auto veltoTried = (expression); !veltoTried) return veltoTried; \
  } while (false)

std::string base64Lines(const VeltoData& data) {
  static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  encoded.reserve((data.size() + 2) / 3 * 4 + data.size() / 57 + 2);
  std::size_t lineLength = 0;
  auto put = [&](char c) {
    encoded.push_back(c);
    if (++lineLength == 76) {
      encoded.push_back('\n');
      lineLength = 0;
    }
  };
  std::size_t i = 0;
  for (; i + 3 <= data.size(); i += 3) {
    const auto n = (std::to_integer<std::uint32_t>(data[i]) << 16) | (std::to_integer<std::uint32_t>(data[i + 1]) << 8) |
                   std::to_integer<std::uint32_t>(data[i + 2]);
    put(alphabet[n >> 18]);
    put(alphabet[(n >> 12) & 63]);
    put(alphabet[(n >> 6) & 63]);
    put(alphabet[n & 63]);
  }
  if (const std::size_t rest = data.size() - i; rest > 0) {
    std::uint32_t n = std::to_integer<std::uint32_t>(data[i]) << 16;
    if (rest == 2) n |= std::to_integer<std::uint32_t>(data[i + 1]) << 8;
    put(alphabet[n >> 18]);
    put(alphabet[(n >> 12) & 63]);
    put(rest == 2 ? alphabet[(n >> 6) & 63] : '=');
    put('=');
  }
  // Every line, the last one too, ends with a line feed.
  if (lineLength > 0) encoded.push_back('\n');
  return encoded;
}

// "byteCount", then by the data behaviour "base64"; `sensitive` hides the contents when the
// encoder obfuscates.
Result encodeBytes(const VeltoData& data, VeltoKeyedEncodingContainer& container, VeltoDynamicDebugEncoder& encoder,
                   bool sensitive) {
  VELTO_TRY(container.encode("byteCount", static_cast<std::uint64_t>(data.size())));
  const auto limit = encoder.options().dataBehaviour().includedLimit();
  if (!limit) return VeltoResultVoidSuccess;
  if (sensitive && encoder.options().obfuscateSensitiveContent()) return container.encode("base64", "[sensitive]");
  const bool tooLarge = data.size() > UINT64_MAX / 8 || data.size() * 8 >= limit->bits();
  if (tooLarge) return container.encode("base64", "[too large to be encoded]");
  return container.encode("base64", base64Lines(data));
}

}  // namespace

// ---- standard and Boost types ------------------------------------------------------------------


Result VeltoDebugConformance<boost::uuids::uuid>::encodeForDynamicDebug(const boost::uuids::uuid& uuid, VeltoEncoder& encoder,
                                                                       VeltoDynamicDebugEncoder&) {
  return writeText(velto::detail::uuidText(uuid), encoder);
}
Result VeltoDebugConformance<boost::uuids::uuid>::encodeForDynamicDebug(const boost::uuids::uuid& uuid,
                                                                       VeltoKeyedEncodingContainer& container,
                                                                       std::string_view key, VeltoDynamicDebugEncoder&) {
  return writeText(velto::detail::uuidText(uuid), container, key);
}
Result VeltoDebugConformance<boost::uuids::uuid>::encodeForDynamicDebug(const boost::uuids::uuid& uuid,
                                                                       VeltoUnkeyedEncodingContainer& container,
                                                                       VeltoDynamicDebugEncoder&) {
  return writeText(velto::detail::uuidText(uuid), container);
}

Result VeltoDebugConformance<char>::encodeForDynamicDebug(const char& c, VeltoEncoder& encoder, VeltoDynamicDebugEncoder&) {
  return writeText(std::string_view(&c, 1), encoder);
}
Result VeltoDebugConformance<char>::encodeForDynamicDebug(const char& c, VeltoKeyedEncodingContainer& container,
                                                         std::string_view key, VeltoDynamicDebugEncoder&) {
  return writeText(std::string_view(&c, 1), container, key);
}
Result VeltoDebugConformance<char>::encodeForDynamicDebug(const char& c, VeltoUnkeyedEncodingContainer& container,
                                                         VeltoDynamicDebugEncoder&) {
  return writeText(std::string_view(&c, 1), container);
}

Result VeltoDebugConformance<std::vector<std::byte>>::encodeChildrenForDynamicDebug(const std::vector<std::byte>& data,
                                                                                   VeltoKeyedEncodingContainer& container,
                                                                                   VeltoDynamicDebugEncoder& encoder) {
  return encodeBytes(data, container, encoder, false);
}

// Pointers and buffers: only with includeAddresses, as {"__type", "__address"}; "__type" is
// written whatever includeTypes says.
namespace velto::detail {

Result encodeAddressOnly(const void* address, std::string_view typeName, VeltoEncoder& encoder,
                         VeltoDynamicDebugEncoder& dynamicEncoder) {
  if (!dynamicEncoder.options().includeAddresses()) return VeltoResultVoidSuccess;
  auto container = encoder.keyedContainer();
  VELTO_TRY(container.encode(VeltoDynamicDebugEncoder::Keys::type, typeName));
  return dynamicEncoder.encodeAddress(VeltoEncodableAddress(address), container, VeltoDynamicDebugEncoder::Keys::address);
}

Result encodeAddressOnly(const void* address, std::string_view typeName, VeltoKeyedEncodingContainer& parent,
                         std::string_view key, VeltoDynamicDebugEncoder& dynamicEncoder) {
  if (!dynamicEncoder.options().includeAddresses()) return VeltoResultVoidSuccess;
  auto container = parent.nestedKeyedContainer(key);
  VELTO_TRY(container.encode(VeltoDynamicDebugEncoder::Keys::type, typeName));
  return dynamicEncoder.encodeAddress(VeltoEncodableAddress(address), container, VeltoDynamicDebugEncoder::Keys::address);
}

Result encodeAddressOnly(const void* address, std::string_view typeName, VeltoUnkeyedEncodingContainer& parent,
                         VeltoDynamicDebugEncoder& dynamicEncoder) {
  if (!dynamicEncoder.options().includeAddresses()) return VeltoResultVoidSuccess;
  auto container = parent.nestedKeyedContainer();
  VELTO_TRY(container.encode(VeltoDynamicDebugEncoder::Keys::type, typeName));
  return dynamicEncoder.encodeAddress(VeltoEncodableAddress(address), container, VeltoDynamicDebugEncoder::Keys::address);
}

}  // namespace velto::detail

// ---- addresses and sensitive values ------------------------------------------------------------

std::string VeltoEncodableAddress::debugDescription() const {
  char buffer[19];
  std::snprintf(buffer, sizeof buffer, "0x%016" PRIxPTR, pointer_);
  return buffer;
}

VeltoResult<VeltoEncodableAddress> VeltoEncodableAddress::noBaseAddress(VeltoCodeSite site) {
  constexpr char message[] = "UnsafeBufferPointer has no baseAddress";
  return VeltoResult<VeltoEncodableAddress>::fromMessage(message, {}, std::make_shared<const VeltoInitializerError>(message),
                                                         site);
}

std::string_view VeltoSensitiveString::debugText(const VeltoDynamicDebugEncoder& dynamicEncoder) const {
  return dynamicEncoder.options().obfuscateSensitiveContent() ? std::string_view("[sensitive]") : std::string_view(string_);
}

std::optional<VeltoSensitiveData> VeltoSensitiveString::data(VeltoStringEncoding encoding) const {
  auto bytes = velto::detail::encodeText(string_, encoding);
  if (!bytes) return std::nullopt;
  return VeltoSensitiveData(std::move(*bytes));
}

std::optional<VeltoSensitiveString> VeltoSensitiveData::string(VeltoStringEncoding encoding) const {
  auto text = velto::detail::decodeText(data_, encoding);
  if (!text) return std::nullopt;
  return VeltoSensitiveString(std::move(*text));
}

Result VeltoSensitiveData::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                         VeltoDynamicDebugEncoder& dynamicEncoder) const {
  return encodeBytes(data_, container, dynamicEncoder, true);
}

// ---- the call trail and errors -----------------------------------------------------------------

Result VeltoCodeSite::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                    VeltoDynamicDebugEncoder&) const {
  if (const auto fileName = sanitized(fileName_)) VELTO_TRY(container.encode("fileName", *fileName));
  VELTO_TRY(container.encode("functionName", functionName_));
  return container.encode("lineNumber", lineNumber_);
}

Result VeltoStackFrame::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                      VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(dynamicEncoder.encode(args_, container, "args"));
  VELTO_TRY(dynamicEncoder.encode(codeSite_, container, "codeSite"));
  return dynamicEncoder.encode(invokerSite_, container, "invokerSite");
}

Result VeltoImpetus::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                   VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(container.encode("name", name_));
  VELTO_TRY(dynamicEncoder.encode(timestampEpoch_, container, "timestampEpoch"));
  return dynamicEncoder.encode(stackFrames_, container, "stackFrames");
}

Result VeltoJunction::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                    VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(dynamicEncoder.encode(parent_, container, "parent"));
  return dynamicEncoder.encode(stackFrame_, container, "stackFrame");
}

Result VeltoPlatformError::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                         VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(container.encode("code", code()));
  VELTO_TRY(container.encode("domain", domain()));
  VELTO_TRY(container.encode("localizedDescription", localizedDescription()));
  // The underlying error belongs to the user information, under the key the platform uses for
  // it, so that a chain of causes shows in full (each cause rendered as an error object).
  auto underlying = underlyingError();
  if (underlying && !userInfo().find(kUnderlyingErrorKey)) {
    VeltoArgs withCause = userInfo();
    withCause.append(std::string(kUnderlyingErrorKey), std::move(underlying));
    return dynamicEncoder.encode(withCause, container, "userInfo");
  }
  if (userInfo().empty()) return VeltoResultVoidSuccess;
  return dynamicEncoder.encode(userInfo(), container, "userInfo");
}

Result VeltoError::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                 VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(dynamicEncoder.encode(frameworkError_, container, "frameworkError"));
  VELTO_TRY(dynamicEncoder.encode(impetus_, container, "impetus"));
  VELTO_TRY(container.encode("message", message_));
  VELTO_TRY(dynamicEncoder.encode(timestampEpoch_, container, "timestampEpoch"));
  VELTO_TRY(dynamicEncoder.encode(uuid_, container, "uuid"));
  return dynamicEncoder.encode(stackFrames_, container, "stackFrames");
}

Result VeltoInitializerError::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                            VeltoDynamicDebugEncoder&) const {
  return container.encode("message", message_);
}

// ---- values ------------------------------------------------------------------------------------

Result VeltoFileSize::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container, VeltoDynamicDebugEncoder&) const {
  VELTO_TRY(container.encode("bits", bits_));
  return container.encode("bytesEntire", bytesEntire_);
}

Result VeltoDoubleDomain::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                        VeltoDynamicDebugEncoder& dynamicEncoder) const {
  VELTO_TRY(dynamicEncoder.encode(min_, container, "min"));
  VELTO_TRY(dynamicEncoder.encode(max_, container, "max"));
  return dynamicEncoder.encode(range_, container, "range");
}
