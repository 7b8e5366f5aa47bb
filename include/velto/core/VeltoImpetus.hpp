// VeltoImpetus: the root of a call trail, naming the outside event that started the work.
//
//   auto impetus = VeltoImpetus::create("Refresh requested");   // records this line
//   dispatcher->begin(endpoint, impetus);
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "velto/core/VeltoVia.hpp"

/// A named, time-stamped root cause. A value type that is also a trail: as a VeltoVia its
/// `impetus()` is a copy of itself and its `stackFrames()` its own single frame.
///
/// Thread safety: immutable.
class VeltoImpetus final : public VeltoVia {
 public:
  /// `timestampEpoch` is the wall-clock time now; the one frame holds `args`, no invoker site
  /// and `site` (the caller's own position by default).
  explicit VeltoImpetus(std::string name, VeltoAny args = {}, VeltoCodeSite site = VeltoCodeSite::current());

  /// A shared impetus, ready to pass as a trail. Prefer it to std::make_shared, whose call of
  /// the constructor would record a site inside the standard library instead of the caller's.
  [[nodiscard]] static std::shared_ptr<const VeltoImpetus> create(std::string name, VeltoAny args = {},
                                                                  VeltoCodeSite site = VeltoCodeSite::current()) {
    return std::make_shared<const VeltoImpetus>(std::move(name), std::move(args), site);
  }

  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  /// Seconds since 1970-01-01 00:00 UTC at creation, with fractions.
  [[nodiscard]] double timestampEpoch() const noexcept { return timestampEpoch_; }

  [[nodiscard]] VeltoImpetus impetus() const override { return *this; }
  [[nodiscard]] std::vector<VeltoStackFrame> stackFrames() const override { return stackFrames_; }
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const override;

  /// Equal in all fields (name, time stamp, frames by code sites, invoker sites and the same args).
  friend bool operator==(const VeltoImpetus& lhs, const VeltoImpetus& rhs) noexcept;

 private:
  void appendStackFrames(std::vector<VeltoStackFrame>& frames) const override {
    frames.insert(frames.end(), stackFrames_.begin(), stackFrames_.end());
  }
  [[nodiscard]] std::size_t stackFrameCount() const override { return stackFrames_.size(); }

  std::string name_;
  double timestampEpoch_;
  std::vector<VeltoStackFrame> stackFrames_;
};
