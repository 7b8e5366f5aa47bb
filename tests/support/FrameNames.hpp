// The function texts of a list of frames, in order: what most trail assertions compare.
#pragma once

#include <string_view>
#include <vector>

#include <velto/core/VeltoStackFrame.hpp>

namespace velto::test {

/// Views into the frames' code sites; valid while the frames' texts are (process lifetime).
inline std::vector<std::string_view> functionNames(const std::vector<VeltoStackFrame>& frames) {
  std::vector<std::string_view> names;
  names.reserve(frames.size());
  for (const auto& frame : frames) names.push_back(frame.codeSite().functionName());
  return names;
}

}  // namespace velto::test
