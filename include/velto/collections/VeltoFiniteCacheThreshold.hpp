// VeltoFiniteCacheThreshold<T>: the two measures of a lazily purged cache: the trigger above
// which a purge runs and the target a purge trims down to.
//
//   VeltoFiniteCacheThreshold<std::size_t> items(/*postPurgeTarget=*/800, /*purgeTriggerThresholdInc=*/1000);
//   auto cache = VeltoLazyFiniteCountCache<std::string, Image>::create({}, true, load, items);
//
// A cache between purges may hold anything up to the trigger; right after a purge it holds at
// most the target. The gap between the two sets how rarely the purge (a sort of the whole
// cache) runs.
#pragma once

#include <utility>

#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

/// A trigger and a target of the measure `T` (an unsigned count or a cost type). Regular value
/// type; nothing is checked: a target at or above the trigger makes every purge keep up to the
/// target, so a cache past its trigger sorts itself on every miss.
/// Thread safety: as T.
template <class T>
class VeltoFiniteCacheThreshold {
 public:
  VeltoFiniteCacheThreshold(T postPurgeTarget, T purgeTriggerThresholdInc)
      : postPurgeTarget_(std::move(postPurgeTarget)), purgeTriggerThresholdInc_(std::move(purgeTriggerThresholdInc)) {}

  /// The measure a purge trims down to.
  [[nodiscard]] const T& postPurgeTarget() const noexcept { return postPurgeTarget_; }
  /// The inclusive limit: a purge runs only when the measure is strictly greater.
  [[nodiscard]] const T& purgeTriggerThresholdInc() const noexcept { return purgeTriggerThresholdInc_; }

  [[nodiscard]] friend bool operator==(const VeltoFiniteCacheThreshold&, const VeltoFiniteCacheThreshold&) = default;

  /// Debug output: "postPurgeTarget", "purgeTriggerThresholdInc".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto written = dynamicEncoder.encode(postPurgeTarget_, container, "postPurgeTarget"); !written) return written;
    return dynamicEncoder.encode(purgeTriggerThresholdInc_, container, "purgeTriggerThresholdInc");
  }

 private:
  T postPurgeTarget_;
  T purgeTriggerThresholdInc_;
};
