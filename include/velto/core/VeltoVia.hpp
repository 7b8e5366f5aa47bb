// VeltoVia: the call trail that led to a call, from its impetus (the outside cause) through
// every operation that passed work on. Every fallible or work-handing operation of the library
// takes one and forks it once on entry.
//
//   auto impetus = VeltoImpetus::create("User tapped Save");
//   VeltoResult<void> save(const std::shared_ptr<const VeltoVia>& via, VeltoCodeSite caller = VeltoCodeSite::current()) {
//     const auto junction = fork(via, {}, caller, VELTO_SITE("Model/Document", "save(via:)"));
//     return write(junction);                       // pass the junction on, never the caller's via
//   }
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoStackFrame.hpp"

class VeltoImpetus;
class VeltoJunction;

/// A call trail. Implemented by VeltoImpetus (a root) and VeltoJunction (one frame on a parent).
///
/// Ownership: trails are shared (`std::shared_ptr<const VeltoVia>`) and immutable; a junction
/// holds its parent strongly, so holding a leaf keeps the path to the impetus alive. A trail is
/// a tree growing at its leaves and can never hold a cycle.
/// Thread safety: immutable; any thread may read, copy and fork a trail.
class VeltoVia {
 public:
  virtual ~VeltoVia() = default;

  /// The root cause of the trail (a copy of the impetus at the root).
  [[nodiscard]] virtual VeltoImpetus impetus() const = 0;

  /// Every frame of the trail, innermost (latest fork) first, the impetus's own frame last.
  /// Rebuilt on every call in time proportional to the depth; meant for error and logging
  /// paths, not hot paths. No depth limit.
  [[nodiscard]] virtual std::vector<VeltoStackFrame> stackFrames() const = 0;

  /// Debug output of the stored fields: an impetus writes "name", "timestampEpoch",
  /// "stackFrames"; a junction "parent", "stackFrame".
  virtual VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                          VeltoDynamicDebugEncoder& dynamicEncoder) const = 0;

 protected:
  VeltoVia() = default;
  VeltoVia(const VeltoVia&) = default;
  VeltoVia& operator=(const VeltoVia&) = default;

 private:
  friend class VeltoJunction;
  // Lets junctions walk their ancestors in a loop (no recursion, however deep the trail).
  [[nodiscard]] virtual const VeltoJunction* asJunction() const noexcept { return nullptr; }
  // Appends this trail's frames to `frames` (the roots: without an intermediate vector).
  virtual void appendStackFrames(std::vector<VeltoStackFrame>& frames) const {
    auto own = stackFrames();
    frames.insert(frames.end(), own.begin(), own.end());
  }
  [[nodiscard]] virtual std::size_t stackFrameCount() const { return stackFrames().size(); }
};

/// Extends `via` by one frame: a new junction whose parent is `via` and whose frame holds
/// `args`, `invokerSite` and the fork site (the forking operation's own position). `via` itself
/// is never changed.
///
/// REQUIRES: `via` is not null (a null trail is a fatal stop).
/// Cost: exactly one allocation; the frame is copied, never its texts.
[[nodiscard]] std::shared_ptr<const VeltoJunction> fork(std::shared_ptr<const VeltoVia> via, VeltoAny args,
                                                       std::optional<VeltoCodeSite> invokerSite,
                                                       VeltoCodeSite forkSite);
