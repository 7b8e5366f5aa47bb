#include "velto/core/VeltoImpetus.hpp"

#include <chrono>

#include "velto/detail/Clock.hpp"

VeltoImpetus::VeltoImpetus(std::string name, VeltoAny args, VeltoCodeSite site)
    : name_(std::move(name)),
      timestampEpoch_(velto::detail::wallClockEpochSeconds()),
      stackFrames_{VeltoStackFrame(std::move(args), std::nullopt, site)} {}

bool operator==(const VeltoImpetus& lhs, const VeltoImpetus& rhs) noexcept {
  if (lhs.name_ != rhs.name_ || lhs.timestampEpoch_ != rhs.timestampEpoch_ ||
      lhs.stackFrames_.size() != rhs.stackFrames_.size()) {
    return false;
  }
  for (std::size_t i = 0; i < lhs.stackFrames_.size(); ++i) {
    const auto& a = lhs.stackFrames_[i];
    const auto& b = rhs.stackFrames_[i];
    if (!(a.codeSite() == b.codeSite()) || a.invokerSite() != b.invokerSite() || !a.args().isSameRecording(b.args())) {
      return false;
    }
  }
  return true;
}
