// VeltoLazyFiniteCostCache<Key, Item, Cost>: a VeltoFiniteCache bounded by the summed cost of
// its items, purged in batches: past the trigger, it drops the least recently accessed entries
// until the total is at or below `postPurgeTarget`.
//
//   using Tiles = VeltoLazyFiniteCostCache<TileId, Bitmap, std::size_t>;
//   auto tiles = Tiles::create(
//       [](const Tiles::Node& node) { return node.item().byteCount(); },   // asked, never stored
//       {}, /*enforceThreadSafety=*/true,
//       [](const TileId& id) { return render(id); },                      // VeltoResult<Bitmap>
//       VeltoFiniteCacheThreshold<std::size_t>(48 << 20, 64 << 20));
//   VeltoResult<Bitmap> tile = tiles->get(TileId{3, 4});
//
// There is no creation without a cost producer and a threshold: the unbounded cache is the base
// VeltoFiniteCache.
#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "velto/collections/VeltoFiniteCache.hpp"
#include "velto/collections/VeltoFiniteCacheThreshold.hpp"
#include "velto/detail/Fatal.hpp"

namespace velto::detail {

template <class Cost>
concept LazyCacheCost = std::copyable<Cost> && requires(Cost a, const Cost b) {
  Cost(0);
  a += b;
  a -= b;
  { b <= b } -> std::convertible_to<bool>;
  { b > b } -> std::convertible_to<bool>;
};

template <class T, bool = std::is_trivially_copyable_v<T>>
struct HasLockFreeAtomic : std::false_type {};
template <class T>
struct HasLockFreeAtomic<T, true> : std::bool_constant<std::atomic<T>::is_always_lock_free> {};

// The total cost, readable from any thread: an atomic where the type has a lock-free one, else
// a value under a small mutex of its own (never the cache's lock, so a hook may read it).
template <class Cost, bool = HasLockFreeAtomic<Cost>::value>
class CostCell {
 public:
  [[nodiscard]] Cost load() const noexcept { return value_.load(std::memory_order_relaxed); }
  void store(const Cost& cost) noexcept { value_.store(cost, std::memory_order_relaxed); }

 private:
  std::atomic<Cost> value_{Cost(0)};
};
template <class Cost>
class CostCell<Cost, false> {
 public:
  [[nodiscard]] Cost load() const {
    const std::lock_guard guard(mutex_);
    return value_;
  }
  void store(const Cost& cost) {
    const std::lock_guard guard(mutex_);
    value_ = cost;
  }

 private:
  mutable std::mutex mutex_;
  Cost value_ = Cost(0);
};

// `total += cost` and `total -= cost`; for integer costs, leaving the type's range is the fatal
// stop of a counter overflow rather than undefined behaviour or a silent wrap.
template <class Cost>
void addCost(Cost& total, const Cost& cost) {
  if constexpr (std::is_integral_v<Cost> && !std::is_same_v<Cost, bool>) {
    if (__builtin_add_overflow(total, cost, &total)) fatalStop("VeltoLazyFiniteCostCache: totalCost overflow");
  } else {
    total += cost;
  }
}
template <class Cost>
void subtractCost(Cost& total, const Cost& cost) {
  if constexpr (std::is_integral_v<Cost> && !std::is_same_v<Cost, bool>) {
    if (__builtin_sub_overflow(total, cost, &total)) fatalStop("VeltoLazyFiniteCostCache: totalCost overflow");
  } else {
    total -= cost;
  }
}

}  // namespace velto::detail

/// A finite cache whose items each have a cost, computed by `costProducer` from the node every
/// time it is needed (never stored). A node costing more than the trigger is refused ("Node is
/// not valid", or "Item is not valid" from `get(keys)`); one costing exactly the trigger is
/// accepted. A purge runs when `totalCost` exceeds `threshold.purgeTriggerThresholdInc` and drops
/// entries from the least recently accessed end, starting from `totalCost`, until the running
/// total is at or below `threshold.postPurgeTarget`; `totalCost` then becomes the sum of the
/// kept nodes' costs, asked anew.
///
/// `Cost` is made from the literal 0 and supports `+=`, `-=`, `<=` and `>` (any arithmetic type
/// does). Integer totals leaving their type's range are a fatal stop. The cost producer should
/// answer the same for the same node: a purge stops once it has dropped everything, however
/// the answers drift.
/// Ownership, cost, exceptions and thread safety as VeltoFiniteCache; `threshold` is immutable
/// and `totalCost` is read without the cache's lock (race-free, possibly stale; through a small
/// mutex of its own when `Cost` has no lock-free atomic).
template <class Key, class Item, class Cost, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
  requires velto::detail::LazyCacheCost<Cost>
class VeltoLazyFiniteCostCache : public VeltoFiniteCache<Key, Item, Hash, KeyEqual> {
  using Base = VeltoFiniteCache<Key, Item, Hash, KeyEqual>;

 public:
  using typename Base::DateProducer;
  using typename Base::ItemProducer;
  using typename Base::Node;
  using typename Base::NodeRefs;
  using typename Base::Nodes;
  using CostProducer = std::function<Cost(const Node&)>;
  using Threshold = VeltoFiniteCacheThreshold<Cost>;

  VeltoLazyFiniteCostCache(typename Base::Passkey passkey, CostProducer costProducer, DateProducer dateProducer,
                           bool enforceThreadSafety, ItemProducer itemProducer, Threshold threshold)
      : Base(passkey, std::move(dateProducer), enforceThreadSafety, std::move(itemProducer)),
        costProducer_(std::move(costProducer)),
        threshold_(std::move(threshold)) {
    if (!costProducer_) velto::detail::fatalStop("VeltoLazyFiniteCostCache: empty cost producer");
  }

  /// An empty cache with `totalCost` 0. An empty `dateProducer` stands for the coarse real-time
  /// clock. REQUIRES: neither producer is empty (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoLazyFiniteCostCache> create(CostProducer costProducer, DateProducer dateProducer,
                                                                        bool enforceThreadSafety, ItemProducer itemProducer,
                                                                        Threshold threshold) {
    return std::make_shared<VeltoLazyFiniteCostCache>(typename Base::Passkey{}, std::move(costProducer),
                                                      std::move(dateProducer), enforceThreadSafety,
                                                      std::move(itemProducer), std::move(threshold));
  }

  [[nodiscard]] const Threshold& threshold() const noexcept { return threshold_; }
  /// Summed cost of the entries, as last added or recomputed by a purge.
  [[nodiscard]] Cost totalCost() const { return totalCost_.load(); }

 protected:
  [[nodiscard]] bool isValid(const Node& node) override {
    return costProducer_(node) <= threshold_.purgeTriggerThresholdInc();
  }

  void added(NodeRefs nodes) override {
    Base::added(nodes);
    Cost total = totalCost_.load();
    for (const Node* node : nodes) velto::detail::addCost(total, costProducer_(*node));
    totalCost_.store(total);
  }

  void replacedAllNodes(NodeRefs nodes) override {
    Base::replacedAllNodes(nodes);
    Cost total = Cost(0);
    for (const Node* node : nodes) velto::detail::addCost(total, costProducer_(*node));
    totalCost_.store(total);
  }

  [[nodiscard]] bool isShrinkRequired(const Nodes& /*nodes*/) override {
    return totalCost_.load() > threshold_.purgeTriggerThresholdInc();
  }

  [[nodiscard]] NodeRefs shrink(NodeRefs nodeInMostToLeastAccessedOrder) override {
    Cost running = totalCost_.load();
    std::size_t kept = nodeInMostToLeastAccessedOrder.size();
    while (kept > 0 && running > threshold_.postPurgeTarget()) {
      --kept;
      velto::detail::subtractCost(running, costProducer_(*nodeInMostToLeastAccessedOrder[kept]));
    }
    return nodeInMostToLeastAccessedOrder.first(kept);
  }

 private:
  const CostProducer costProducer_;
  const Threshold threshold_;
  // Written only inside the cache's body.
  velto::detail::CostCell<Cost> totalCost_;
};
