// VeltoSupportedHttpVerb: the request methods the library sends.
//
//   rawValue(VeltoSupportedHttpVerb::get);              // "GET"
//   fromRawValue<VeltoSupportedHttpVerb>("POST");       // VeltoSupportedHttpVerb::post
//   fromRawValue<VeltoSupportedHttpVerb>("post");       // std::nullopt: exact, case-sensitive
#pragma once

#include <optional>
#include <string_view>

#include <boost/describe/enum.hpp>

#include "velto/encoding/VeltoRawRepresentable.hpp"

/// HTTP verbs, raw values "GET" and "POST". Debug output shows the case name ("get").
enum class VeltoSupportedHttpVerb { get, post };
BOOST_DESCRIBE_ENUM(VeltoSupportedHttpVerb, get, post)

template <>
struct VeltoRawValueTraits<VeltoSupportedHttpVerb> {
  using RawValue = std::string_view;
  [[nodiscard]] static constexpr std::string_view rawValue(VeltoSupportedHttpVerb verb) noexcept {
    return verb == VeltoSupportedHttpVerb::get ? "GET" : "POST";
  }
  /// Only the exact strings convert.
  [[nodiscard]] static constexpr std::optional<VeltoSupportedHttpVerb> fromRawValue(std::string_view raw) noexcept {
    if (raw == "GET") return VeltoSupportedHttpVerb::get;
    if (raw == "POST") return VeltoSupportedHttpVerb::post;
    return std::nullopt;
  }
};
