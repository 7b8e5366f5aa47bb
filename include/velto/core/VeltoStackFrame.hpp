// VeltoStackFrame: one frame of a call trail: where it was made, who called, what was recorded.
//
//   VeltoStackFrame frame({{"key", key}}, VeltoCodeSite::current(), VELTO_SITE("Cache", "get(key:)"));
#pragma once

#include <optional>
#include <utility>

#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoCodeSite.hpp"

/// One frame: `args` (any value the operation chose to record, usually none), `codeSite` (where
/// the frame was made) and `invokerSite` (the caller's site, when the operation received one).
///
/// Regular value type. Copying never allocates: the code sites are views of static texts and
/// the args box is shared. Thread safety: immutable.
class VeltoStackFrame {
 public:
  VeltoStackFrame(VeltoAny args, std::optional<VeltoCodeSite> invokerSite, VeltoCodeSite codeSite) noexcept
      : args_(std::move(args)), codeSite_(codeSite), invokerSite_(invokerSite) {}

  [[nodiscard]] const VeltoAny& args() const noexcept { return args_; }
  [[nodiscard]] const VeltoCodeSite& codeSite() const noexcept { return codeSite_; }
  [[nodiscard]] const std::optional<VeltoCodeSite>& invokerSite() const noexcept { return invokerSite_; }

  /// Debug output: "args" (any value), "codeSite", "invokerSite" (absent ones follow the
  /// encoder's null policy); the first failure stops and is passed on.
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  VeltoAny args_;
  VeltoCodeSite codeSite_;
  std::optional<VeltoCodeSite> invokerSite_;
};
