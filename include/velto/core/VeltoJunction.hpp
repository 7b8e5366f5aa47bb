// VeltoJunction: one frame added to a parent trail by `fork`.
//
//   const auto junction = fork(via, {}, std::nullopt, VELTO_SITE("VeltoUnfairLock", "protected(_:via:)"));
//   junction->stackFrames().front().codeSite().functionName();   // "protected(_:via:)"
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "velto/core/VeltoImpetus.hpp"
#include "velto/core/VeltoVia.hpp"

/// A parent trail plus one frame. Created through `fork` (or directly) and held by
/// `std::shared_ptr<const VeltoJunction>`.
///
/// Ownership: holds its parent strongly. Destroying the last holder of a very deep trail
/// releases it iteratively, without deep recursion.
/// Thread safety: immutable. Do not hold junctions through std::weak_ptr (the iterative
/// release relies on the parent links being the only way to reach an ancestor).
class VeltoJunction final : public VeltoVia {
 public:
  /// REQUIRES: `parent` is not null (fatal stop otherwise).
  VeltoJunction(std::shared_ptr<const VeltoVia> parent, VeltoStackFrame stackFrame);
  /// The same, building the frame in place (what `fork` uses).
  VeltoJunction(std::shared_ptr<const VeltoVia> parent, VeltoAny args, const std::optional<VeltoCodeSite>& invokerSite,
                const VeltoCodeSite& codeSite);
  ~VeltoJunction() override;

  VeltoJunction(const VeltoJunction&) = delete;
  VeltoJunction& operator=(const VeltoJunction&) = delete;

  [[nodiscard]] const std::shared_ptr<const VeltoVia>& parent() const noexcept { return parent_; }
  [[nodiscard]] const VeltoStackFrame& stackFrame() const noexcept { return stackFrame_; }

  /// The parent's impetus: the same (copied) impetus for every junction of one tree.
  [[nodiscard]] VeltoImpetus impetus() const override;
  /// This junction's frame, then the parent's frames in their order.
  [[nodiscard]] std::vector<VeltoStackFrame> stackFrames() const override;
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const override;

 private:
  [[nodiscard]] const VeltoJunction* asJunction() const noexcept override { return this; }

  // Mutable only so that the destructor can unlink a uniquely held chain iteratively.
  mutable std::shared_ptr<const VeltoVia> parent_;
  VeltoStackFrame stackFrame_;
};
