// fmt support for VeltoError: `fmt::format("{}", error)` gives `error.summary()`, the one-line
// form, and takes the string format options (width, fill, alignment: "{:>80}").
//
//   spdlogLogger->warn("sync failed: {}", error);
//
// Needs fmt (9 or later) on the include path; the rest of Velto does not, which is why this
// header is not part of velto.hpp. velto-umbrella: exclude
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "velto/core/VeltoError.hpp"

template <>
struct fmt::formatter<VeltoError> : fmt::formatter<std::string_view> {
  template <class FormatContext>
  auto format(const VeltoError& error, FormatContext& context) const {
    return fmt::formatter<std::string_view>::format(error.summary(), context);
  }
};
