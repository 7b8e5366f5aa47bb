// VeltoLazyFiniteCountCache<Key, Item>: a VeltoFiniteCache bounded by its number of items,
// purged in batches: past the trigger, it keeps the `postPurgeTarget` most recently accessed.
//
//   auto thumbnails = VeltoLazyFiniteCountCache<std::string, Image>::create(
//       {}, /*enforceThreadSafety=*/true,
//       [](const std::string& path) { return loadImage(path); },        // VeltoResult<Image>
//       VeltoFiniteCacheThreshold<std::size_t>(/*postPurgeTarget=*/200, /*purgeTriggerThresholdInc=*/256));
//   VeltoResult<Image> image = thumbnails->get("photos/cat.png");
//
// With a target of 200 and a trigger of 256, the 257th entry sorts the cache and drops 57;
// the next purge comes 57 misses later. There is no creation without a threshold: a count
// cache without a bound is the base VeltoFiniteCache.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "velto/collections/VeltoFiniteCache.hpp"
#include "velto/collections/VeltoFiniteCacheThreshold.hpp"

/// A finite cache that purges when `count` exceeds `threshold.purgeTriggerThresholdInc` and
/// then keeps exactly `threshold.postPurgeTarget` entries (or all, when fewer), the most
/// recently accessed. The trigger test reads `count`, not the nodes it is given. Between purges
/// `count` may sit anywhere up to the trigger; a hit never purges, even above it.
///
/// Ownership, cost, exceptions and thread safety as VeltoFiniteCache; `threshold` is immutable
/// and read without the lock.
template <class Key, class Item, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
class VeltoLazyFiniteCountCache : public VeltoFiniteCache<Key, Item, Hash, KeyEqual> {
  using Base = VeltoFiniteCache<Key, Item, Hash, KeyEqual>;

 public:
  using typename Base::DateProducer;
  using typename Base::ItemProducer;
  using typename Base::Node;
  using typename Base::NodeRefs;
  using typename Base::Nodes;
  using Threshold = VeltoFiniteCacheThreshold<std::size_t>;

  VeltoLazyFiniteCountCache(typename Base::Passkey passkey, DateProducer dateProducer, bool enforceThreadSafety,
                            ItemProducer itemProducer, Threshold threshold)
      : Base(passkey, std::move(dateProducer), enforceThreadSafety, std::move(itemProducer)), threshold_(threshold) {}

  /// An empty cache. An empty `dateProducer` stands for the coarse real-time clock.
  /// REQUIRES: `itemProducer` is not empty (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoLazyFiniteCountCache> create(DateProducer dateProducer,
                                                                         bool enforceThreadSafety,
                                                                         ItemProducer itemProducer, Threshold threshold) {
    return std::make_shared<VeltoLazyFiniteCountCache>(typename Base::Passkey{}, std::move(dateProducer),
                                                       enforceThreadSafety, std::move(itemProducer), threshold);
  }

  [[nodiscard]] const Threshold& threshold() const noexcept { return threshold_; }

 protected:
  [[nodiscard]] bool isShrinkRequired(const Nodes& /*nodes*/) override {
    return this->count() > threshold_.purgeTriggerThresholdInc();
  }

  [[nodiscard]] NodeRefs shrink(NodeRefs nodeInMostToLeastAccessedOrder) override {
    if (nodeInMostToLeastAccessedOrder.size() <= threshold_.postPurgeTarget()) return nodeInMostToLeastAccessedOrder;
    return nodeInMostToLeastAccessedOrder.first(threshold_.postPurgeTarget());
  }

 private:
  const Threshold threshold_;
};
