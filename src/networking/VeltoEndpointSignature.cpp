#include "velto/networking/VeltoEndpointSignature.hpp"

#include <algorithm>
#include <array>
#include <charconv>

#include <boost/url/parse.hpp>

#include "encoding/JsonWriter.hpp"
#include "velto/encoding/VeltoEncoder.hpp"

namespace {

constexpr char kFile[] = "Networking/VeltoEndpointSignature";

// Bytes that pass unencoded: RFC 3986 unreserved characters and ! $ ' ( ) * + , ; = : [ ].
constexpr std::array<bool, 256> kPassing = [] {
  std::array<bool, 256> passing{};
  for (int c = 'A'; c <= 'Z'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (int c = 'a'; c <= 'z'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (int c = '0'; c <= '9'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (char c : std::string_view("-._~!$'()*+,;=:[]")) passing[static_cast<unsigned char>(c)] = true;
  return passing;
}();

// The final mix of a 64-bit hasher (MurmurHash3's fmix64) started from seed 0.
std::size_t mixed(std::uint64_t value) noexcept {
  std::uint64_t h = value;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ULL;
  h ^= h >> 33;
  return static_cast<std::size_t>(h);
}

}  // namespace

std::optional<std::string> VeltoEndpointSignature::percentEncoded(std::string_view description) {
  if (!velto::detail::isValidUtf8(description)) return std::nullopt;
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(description.size());
  for (char c : description) {
    const auto byte = static_cast<unsigned char>(c);
    if (kPassing[byte]) {
      encoded.push_back(c);
    } else {
      const char escape[3] = {'%', kHex[byte >> 4], kHex[byte & 0x0F]};
      encoded.append(escape, 3);
    }
  }
  return encoded;
}

VeltoEndpointSignature::VeltoEndpointSignature(boost::urls::url url,
                                               const std::vector<VeltoSignatureParameter>& relevantParameters)
    : url_(std::move(url)) {
  parameters_.reserve(relevantParameters.size());
  for (const VeltoSignatureParameter& parameter : relevantParameters) {
    if (auto encoded = percentEncoded(parameter.description())) parameters_.push_back(std::move(*encoded));
  }
  finish();
}

VeltoEndpointSignature::VeltoEndpointSignature(boost::urls::url url, std::vector<std::string> encodedParameters,
                                               AlreadyEncoded)
    : url_(std::move(url)), parameters_(std::move(encodedParameters)) {
  finish();
}

void VeltoEndpointSignature::finish() {
  std::sort(parameters_.begin(), parameters_.end());
  const std::string_view urlText = url_.buffer();
  std::size_t size = urlText.size() + 1;
  for (const std::string& parameter : parameters_) size += parameter.size() + 1;
  stringRepresentation_.reserve(size);
  stringRepresentation_.append(urlText);
  stringRepresentation_.push_back('?');
  for (std::size_t i = 0; i < parameters_.size(); ++i) {
    if (i > 0) stringRepresentation_.push_back('&');
    stringRepresentation_.append(parameters_[i]);
  }
  stringHashValue_ = static_cast<std::int64_t>(std::hash<std::string_view>()(stringRepresentation_));
}

std::size_t VeltoEndpointSignature::hashValue() const noexcept {
  return mixed(static_cast<std::uint64_t>(stringHashValue_));
}

VeltoResult<VeltoEndpointSignature> VeltoEndpointSignature::make(std::string_view fromString) {
  using Result = VeltoResult<VeltoEndpointSignature>;
  // The lines are fixed so that recorded trails stay comparable with those of earlier releases.
  if (fromString.empty()) {
    return Result::fromMessage("No 'url' token", {{"candidate", std::string(fromString)}}, nullptr,
                               VeltoCodeSite(kFile, "make(fromString:)", 52));
  }
  const std::size_t firstMark = fromString.find('?');
  const std::string_view urlToken = fromString.substr(0, firstMark);
  auto parsed = boost::urls::parse_uri_reference(urlToken);
  if (urlToken.empty() || !parsed) {
    return Result::fromMessage("Could not resolve url from 'url' token",
                               {{"candidate", std::string(fromString)}, {"urlToken", std::string(urlToken)}}, nullptr,
                               VeltoCodeSite(kFile, "make(fromString:)", 55));
  }
  std::vector<std::string> pieces;
  if (firstMark != std::string_view::npos) {
    std::string_view second = fromString.substr(firstMark + 1);
    second = second.substr(0, second.find('?'));
    for (;;) {
      const std::size_t ampersand = second.find('&');
      pieces.emplace_back(second.substr(0, ampersand));
      if (ampersand == std::string_view::npos) break;
      second.remove_prefix(ampersand + 1);
    }
  }
  return VeltoEndpointSignature(boost::urls::url(*parsed), std::move(pieces), AlreadyEncoded{});
}

VeltoResult<void> VeltoEndpointSignature::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                                        VeltoDynamicDebugEncoder&) const {
  if (auto written = container.encode("stringHashValue", stringHashValue_); !written) return written;
  if (auto written = container.encode("url", std::string_view(url_.buffer())); !written) return written;
  {
    auto parameters = container.nestedUnkeyedContainer("relevantParametersUrlEncodedSorted");
    for (const std::string& parameter : parameters_) {
      if (auto written = parameters.encode(parameter); !written) return written;
    }
  }
  return container.encode("stringRepresentation", stringRepresentation_);
}

VeltoResult<void> VeltoDebugConformance<boost::urls::url>::encodeForDynamicDebug(const boost::urls::url& url,
                                                                               VeltoEncoder& encoder,
                                                                               VeltoDynamicDebugEncoder&) {
  return encoder.singleValueContainer().encode(std::string_view(url.buffer()));
}

VeltoResult<void> VeltoDebugConformance<boost::urls::url>::encodeForDynamicDebug(const boost::urls::url& url,
                                                                               VeltoKeyedEncodingContainer& container,
                                                                               std::string_view key,
                                                                               VeltoDynamicDebugEncoder&) {
  return container.encode(key, std::string_view(url.buffer()));
}

VeltoResult<void> VeltoDebugConformance<boost::urls::url>::encodeForDynamicDebug(const boost::urls::url& url,
                                                                               VeltoUnkeyedEncodingContainer& container,
                                                                               VeltoDynamicDebugEncoder&) {
  return container.encode(std::string_view(url.buffer()));
}
