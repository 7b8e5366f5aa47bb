#include "velto/text/VeltoBinaryVersion.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

#include <charconv>
#include <memory>

#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"
#include "velto/text/VeltoRegex.hpp"

namespace {

constexpr char kFile[] = "VeltoBinaryVersion";

std::vector<std::string_view> splitOnDots(std::string_view string) {
  std::vector<std::string_view> tokens;
  std::size_t start = 0;
  for (;;) {
    const std::size_t dot = string.find('.', start);
    if (dot == std::string_view::npos) {
      tokens.push_back(string.substr(start));
      return tokens;
    }
    tokens.push_back(string.substr(start, dot - start));
    start = dot + 1;
  }
}

std::vector<std::string> owned(const std::vector<std::string_view>& tokens) { return {tokens.begin(), tokens.end()}; }

bool allAsciiDigits(std::string_view token) noexcept {
  if (token.empty()) return false;
  for (const char c : token) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// Made once: compiling a fixed pattern either always works or never does.
const VeltoResult<std::shared_ptr<const VeltoRegex>>& componentRegex() {
  static const VeltoResult<std::shared_ptr<const VeltoRegex>> regex = VeltoRegex::make(R"(^\d+$)");
  return regex;
}

}  // namespace

const VeltoBinaryVersion& VeltoBinaryVersion::zero() {
  static const VeltoBinaryVersion zero({0, 0, 0});
  return zero;
}

VeltoResult<VeltoBinaryVersion> VeltoBinaryVersion::make(std::vector<std::uint64_t> components) {
  if (components.empty()) {
    return VeltoResult<VeltoBinaryVersion>::fromMessage("No components", {{"components", components}}, nullptr,
                                                        VELTO_SITE(kFile, "make(components:)"));
  }
  return VeltoBinaryVersion(std::move(components));
}

VeltoResult<VeltoBinaryVersion> VeltoBinaryVersion::make(std::string_view string) {
  const std::vector<std::string_view> tokens = splitOnDots(string);
  if (tokens.empty()) {
    return VeltoResult<VeltoBinaryVersion>::fromMessage("No components",
                                                        {{"string", std::string(string)}, {"tokens", owned(tokens)}},
                                                        nullptr, VELTO_SITE(kFile, "make(string:)"));
  }
  const auto& regex = componentRegex();
  if (regex.isFailure()) {
    return VeltoResult<VeltoBinaryVersion>::fromMessage("Failed to create regex",
                                                        {{"string", std::string(string)}, {"tokens", owned(tokens)}},
                                                        std::make_shared<VeltoError>(regex.error()),
                                                        VELTO_SITE(kFile, "make(string:)"));
  }
  std::vector<std::uint64_t> components;
  components.reserve(tokens.size());
  for (const std::string_view token : tokens) {
    const auto args = [&] {
      return VeltoAny{{"string", std::string(string)},
                      {"tokens", owned(tokens)},
                      {"regex", regex.value()},
                      {"components", components},
                      {"token", std::string(token)}};
    };
    // A token of ASCII digits always matches, so the regex runs only for the others (which ICU
    // may still accept, e.g. other scripts' digits, and which then fail to parse below).
    if (!allAsciiDigits(token) && !regex.value()->test(token)) {
      return VeltoResult<VeltoBinaryVersion>::fromMessage("Invalid component", args(), nullptr,
                                                          VELTO_SITE(kFile, "make(string:)"));
    }
    std::uint64_t component = 0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), component);
    if (error != std::errc() || end != token.data() + token.size()) {
      return VeltoResult<VeltoBinaryVersion>::fromMessage("Failed to parse component", args(), nullptr,
                                                          VELTO_SITE(kFile, "make(string:)"));
    }
    components.push_back(component);
  }
  return VeltoBinaryVersion(std::move(components));
}

std::string VeltoBinaryVersion::stringified() const {
  std::string out;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    if (i != 0) out += '.';
    out += std::to_string(components_[i]);
  }
  return out;
}

std::string VeltoBinaryVersion::encodedJson() const {
  std::string out = "{\"components\":[";
  for (std::size_t i = 0; i < components_.size(); ++i) {
    if (i != 0) out += ',';
    out += std::to_string(components_[i]);
  }
  out += "]}";
  return out;
}

VeltoResult<VeltoBinaryVersion> VeltoBinaryVersion::makeFromJson(std::string_view json) {
  const auto invalid = [&] {
    return VeltoResult<VeltoBinaryVersion>::fromMessage("Invalid JSON", {{"json", std::string(json)}}, nullptr,
                                                        VELTO_SITE(kFile, "init(from:)"));
  };
  boost::system::error_code ec;
  const boost::json::value parsed = boost::json::parse(boost::json::string_view(json.data(), json.size()), ec);
  if (ec || !parsed.is_object()) return invalid();
  const boost::json::value* array = parsed.as_object().if_contains("components");
  if (array == nullptr || !array->is_array()) return invalid();
  std::vector<std::uint64_t> components;
  for (const boost::json::value& element : array->as_array()) {
    if (element.is_uint64()) {
      components.push_back(element.get_uint64());
    } else if (element.is_int64() && element.get_int64() >= 0) {
      components.push_back(static_cast<std::uint64_t>(element.get_int64()));
    } else {
      return invalid();
    }
  }
  auto made = make(std::move(components));
  if (made.isFailure()) return VeltoResult<VeltoBinaryVersion>::fromError(made.error(), {{"json", std::string(json)}}, VELTO_SITE(kFile, "init(from:)"));
  return made;
}

VeltoResult<void> VeltoBinaryVersion::encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                                     VeltoDynamicDebugEncoder& dynamicEncoder) const {
  return dynamicEncoder.encode(components_, container, "components");
}
