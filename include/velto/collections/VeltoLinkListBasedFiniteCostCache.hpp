// VeltoLinkListBasedFiniteCostCache<Key, Item, Cost>: a thread-safe get-or-produce cache whose
// items' summed cost stays at or below `maxCost`, evicting the least recently used items.
//
//   using Tiles = VeltoLinkListBasedFiniteCostCache<TileId, Bitmap, std::size_t>;
//   auto tiles = Tiles::create(
//       [](const TileId& id) -> VeltoResult<Tiles::CostedItem> {
//         auto bitmap = render(id);
//         if (!bitmap) return VeltoResult<Tiles::CostedItem>::fromError(bitmap.error());
//         return Tiles::CostedItem(bitmap.value().byteCount(), bitmap.value());
//       },
//       64 << 20);
//   VeltoResult<Bitmap> tile = tiles->get(TileId{3, 4});
//   auto visible = tiles->get(std::unordered_set<TileId>{{3, 4}, {3, 5}});  // one lock for the set
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velto/collections/VeltoDoublyLinkedKeyedList.hpp"
#include "velto/concurrency/VeltoUnfairLock.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

namespace velto::detail {
inline constexpr char kLinkListBasedFiniteCostCacheFile[] = "Data Structures/VeltoLinkListBasedFiniteCostCache";

template <class Cost>
concept CacheCost = requires(Cost a, const Cost b) {
  Cost(0);
  a += b;
  a -= b;
  { b < b } -> std::convertible_to<bool>;
  { b > b } -> std::convertible_to<bool>;
};

// The published copy of the total cost: an atomic when Cost allows one.
template <class Cost, bool = std::is_trivially_copyable_v<Cost>>
struct PublishedCost {
  std::atomic<Cost> value{Cost(0)};
  void store(const Cost& cost) noexcept { value.store(cost, std::memory_order_relaxed); }
};
template <class Cost>
struct PublishedCost<Cost, false> {
  void store(const Cost&) noexcept {}
};
}  // namespace velto::detail

/// Get-or-produce cache with a limit on the summed cost of its items (each produced item
/// reports its own cost) and least-recently-used eviction.
///
/// A hit moves the entry to the head of the recency list and returns the item stored when the
/// key was first produced. A miss calls the producer, refuses an item whose cost is not
/// strictly below `maxCost`, stores the item at the head and evicts from the tail while
/// `totalCost` exceeds `maxCost`. Deliberately kept: an item whose cost equals `maxCost` is
/// refused although it alone would fit. Deliberately kept as well: a hit on an interior entry
/// leaves the former head without a back link (see VeltoDoublyLinkedKeyedList), so a later
/// eviction can fail with "No tail to remove".
///
/// `Cost` is made from the literal 0 and supports `+=`, `-=`, `<` and `>` (any arithmetic type
/// does). Ownership: created as a std::shared_ptr (`create`); owns the producer, list and map.
/// Cost: a hit or a miss is O(1) apart from the producer and the evictions it causes.
/// Thread safety: every operation but `count`, `totalCost` and `maxCost` runs under the cache's
/// one VeltoUnfairLock, the producer and callbacks included: they block every other user of the
/// cache and must not call back into it (that is a fatal stop). `count` and `totalCost` are read
/// without the lock (race-free, possibly stale); for a `Cost` that is not trivially copyable no
/// lock-free read exists, and `totalCost` takes the lock instead.
template <class Key, class Item, class Cost, class Hash = std::hash<Key>>
  requires velto::detail::CacheCost<Cost>
class VeltoLinkListBasedFiniteCostCache {
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  /// An item with the cost it adds to the cache. Regular value type when Item is.
  class CostedItem {
   public:
    CostedItem(Cost cost, Item item) : cost_(std::move(cost)), item_(std::move(item)) {}
    [[nodiscard]] const Cost& cost() const noexcept { return cost_; }
    [[nodiscard]] const Item& item() const noexcept { return item_; }

    /// Debug output: "cost", "item".
    VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                    VeltoDynamicDebugEncoder& dynamicEncoder) const {
      if (auto written = dynamicEncoder.encode(cost_, container, "cost"); !written) return written;
      return dynamicEncoder.encode(item_, container, "item");
    }

   private:
    Cost cost_;
    Item item_;
  };

  using List = VeltoDoublyLinkedKeyedList<Key, CostedItem>;
  using Node = typename List::Node;
  using ItemProducer = std::function<VeltoResult<CostedItem>(const Key&)>;
  using KeySet = std::unordered_set<Key, Hash>;
  using ItemMap = std::unordered_map<Key, Item, Hash>;

  VeltoLinkListBasedFiniteCostCache(Passkey, ItemProducer itemProducer, Cost maxCost)
      : itemProducer_(std::move(itemProducer)), maxCost_(std::move(maxCost)) {}
  VeltoLinkListBasedFiniteCostCache(const VeltoLinkListBasedFiniteCostCache&) = delete;
  VeltoLinkListBasedFiniteCostCache& operator=(const VeltoLinkListBasedFiniteCostCache&) = delete;

  /// An empty cache. REQUIRES: `itemProducer` is not empty (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoLinkListBasedFiniteCostCache> create(ItemProducer itemProducer, Cost maxCost) {
    if (!itemProducer) velto::detail::fatalStop("VeltoLinkListBasedFiniteCostCache: empty item producer");
    return std::make_shared<VeltoLinkListBasedFiniteCostCache>(Passkey{}, std::move(itemProducer), std::move(maxCost));
  }

  /// The cached item for `key`, produced first on a miss. Every failure arrives wrapped twice in
  /// frames of "get(key:)" with "key" (inside and outside the lock): a producer failure (nothing
  /// stored); "Item cost exceeds entire cache's maxCost" ("key", "newItem"; nothing stored); a
  /// failed promotion of a hit ("key", "extant"); a failed eviction ("key"); "Removed tail key
  /// wasn't in cache" ("key", "removedTailNode"). After a failed eviction the new item stays
  /// cached and `totalCost` may exceed `maxCost`.
  [[nodiscard]] VeltoResult<Item> get(const Key& key) {
    auto result = lock_.protected_([&] { return getLocked<false>(key, nullptr); });
    if (result.isFailure()) {
      return VeltoResult<Item>::fromError(result.error(), {{"key", key}},
                                          VELTO_SITE(velto::detail::kLinkListBasedFiniteCostCacheFile, "get(key:)"));
    }
    return result;
  }

  /// The items for every key of `keys`, each fetched as by `get(key)` in the set's iteration
  /// order, under one lock for the whole set. Failures are those of `get(key)` with "keys" (the
  /// whole set) in place of "key" and the site "get(keys:)"; the first one ends the walk, and
  /// items stored for earlier keys stay cached. An item fetched early may already have been
  /// evicted by a later key; the result still holds it.
  [[nodiscard]] VeltoResult<ItemMap> get(const KeySet& keys) {
    auto result = lock_.protected_([&]() -> VeltoResult<ItemMap> {
      ItemMap items;
      items.reserve(keys.size());
      for (const Key& key : keys) {
        auto item = getLocked<true>(key, &keys);
        if (item.isFailure()) return VeltoResult<ItemMap>::failure(item.error());
        items.insert_or_assign(key, std::move(item).value());
      }
      return items;
    });
    if (result.isFailure()) {
      return VeltoResult<ItemMap>::fromError(result.error(), {{"keys", keys}},
                                             VELTO_SITE(velto::detail::kLinkListBasedFiniteCostCacheFile, "get(keys:)"));
    }
    return result;
  }

  /// The cached keys. Does not change recency.
  [[nodiscard]] KeySet keys() {
    return lock_.protected_([&] {
      KeySet keys;
      keys.reserve(itemsByKey_.size());
      for (const auto& entry : itemsByKey_) keys.insert(entry.first);
      return keys;
    });
  }

  /// `transform(key, node)` for every cached entry (the node's item is the CostedItem), in the
  /// map's iteration order, under the lock. Does not change recency.
  template <class Transform>
    requires std::invocable<Transform&, const Key&, const std::shared_ptr<Node>&>
  [[nodiscard]] auto map(Transform&& transform) {
    using T = std::invoke_result_t<Transform&, const Key&, const std::shared_ptr<Node>&>;
    return lock_.protected_([&] {
      std::vector<T> mapped;
      mapped.reserve(itemsByKey_.size());
      for (const auto& [key, node] : itemsByKey_) mapped.push_back(transform(key, node));
      return mapped;
    });
  }

  /// The items of the entries `isIncluded(key, node)` accepts, under the lock. Does not change
  /// recency.
  template <class Predicate>
    requires std::predicate<Predicate&, const Key&, const std::shared_ptr<Node>&>
  [[nodiscard]] ItemMap filter(Predicate&& isIncluded) {
    return lock_.protected_([&] {
      ItemMap items;
      for (const auto& [key, node] : itemsByKey_) {
        if (isIncluded(key, node)) items.insert_or_assign(key, node->item().item());
      }
      return items;
    });
  }

  /// Cached items, read without the lock: race-free, possibly stale.
  [[nodiscard]] std::size_t count() const noexcept { return count_.load(std::memory_order_relaxed); }
  /// Summed cost of the cached items, read without the lock (race-free, possibly stale) when
  /// Cost is trivially copyable, else under the lock.
  [[nodiscard]] Cost totalCost() const {
    if constexpr (std::is_trivially_copyable_v<Cost>) {
      return publishedCost_.value.load(std::memory_order_relaxed);
    } else {
      return lock_.protected_([&] { return totalCost_; });
    }
  }
  [[nodiscard]] const Cost& maxCost() const noexcept { return maxCost_; }

 private:
  // The shared body of both gets; `keys` is the whole set for get(keys:) and names the failure
  // arguments and code site.
  template <bool ForSet>
  VeltoResult<Item> getLocked(const Key& key, const KeySet* keys) {
    using velto::detail::kLinkListBasedFiniteCostCacheFile;
    const auto keyArgument = [&]() -> std::pair<std::string, VeltoAny> {
      if constexpr (ForSet) return {"keys", *keys};
      else return {"key", key};
    };
    const auto site = [](VeltoCodeSite single, VeltoCodeSite set) { return ForSet ? set : single; };

    if (const auto found = itemsByKey_.find(key); found != itemsByKey_.end()) {
      const std::shared_ptr<Node>& extant = found->second;
      if (auto promoted = linkedList_->promoteToHead(extant); promoted.isFailure()) {
        return VeltoResult<Item>::fromError(promoted.error(), {keyArgument(), {"extant", extant}},
                                            site(VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(key:)"),
                                                 VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(keys:)")));
      }
      return extant->item().item();
    }
    auto produced = itemProducer_(key);
    if (produced.isFailure()) {
      return VeltoResult<Item>::fromError(produced.error(), {keyArgument()},
                                          site(VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(key:)"),
                                               VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(keys:)")));
    }
    // Deliberate: "less than", so an item costing exactly maxCost is refused.
    if (!(produced.value().cost() < maxCost_)) {
      return VeltoResult<Item>::fromMessage("Item cost exceeds entire cache's maxCost",
                                            {keyArgument(), {"newItem", std::move(produced).value()}}, nullptr,
                                            site(VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(key:)"),
                                                 VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(keys:)")));
    }
    // The map keeps the list's new node without another reference count round trip; only when an
    // eviction is about to erase that very entry does the node get a reference of its own.
    const std::shared_ptr<Node>* newNode =
        &itemsByKey_.insert_or_assign(key, linkedList_->addToHead(key, std::move(produced).value())).first->second;
    std::shared_ptr<Node> newNodeKept;
    std::size_t count = count_.load(std::memory_order_relaxed);
    if (count == std::numeric_limits<std::size_t>::max()) {
      velto::detail::fatalStop("VeltoLinkListBasedFiniteCostCache: count overflow");
    }
    count_.store(++count, std::memory_order_relaxed);
    totalCost_ += (*newNode)->item().cost();
    publishedCost_.store(totalCost_);
    while (totalCost_ > maxCost_) {
      auto removed = linkedList_->removeTail();
      if (removed.isFailure()) {
        return VeltoResult<Item>::fromError(removed.error(), {keyArgument()},
                                            site(VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(key:)"),
                                                 VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(keys:)")));
      }
      const std::shared_ptr<Node>& removedTailNode = removed.value();
      const auto entry = itemsByKey_.find(removedTailNode->key());
      if (entry == itemsByKey_.end()) {
        return VeltoResult<Item>::fromMessage("Removed tail key wasn't in cache",
                                              {keyArgument(), {"removedTailNode", removedTailNode}}, nullptr,
                                              site(VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(key:)"),
                                                   VELTO_SITE(kLinkListBasedFiniteCostCacheFile, "get(keys:)")));
      }
      if (entry->first == key) {
        newNodeKept = *newNode;
        newNode = &newNodeKept;
      }
      itemsByKey_.erase(entry);
      if (count == 0) velto::detail::fatalStop("VeltoLinkListBasedFiniteCostCache: count underflow");
      count_.store(--count, std::memory_order_relaxed);
      totalCost_ -= removedTailNode->item().cost();
      publishedCost_.store(totalCost_);
    }
    return (*newNode)->item().item();
  }

  // Written only under the lock; atomic so that `count()` may read it without the lock.
  std::atomic<std::size_t> count_{0};
  Cost totalCost_ = Cost(0);
  velto::detail::PublishedCost<Cost> publishedCost_;
  const ItemProducer itemProducer_;
  const std::shared_ptr<List> linkedList_ = List::create();
  std::unordered_map<Key, std::shared_ptr<Node>, Hash> itemsByKey_;
  mutable VeltoUnfairLock lock_;
  const Cost maxCost_;
};
