// VeltoLinkListBasedFiniteCountCache<Key, Item>: a thread-safe get-or-produce cache holding at
// most `maxItemCount` items, evicting the least recently used one.
//
//   auto thumbnails = VeltoLinkListBasedFiniteCountCache<std::string, Image>::create(
//       [](const std::string& path) { return loadImage(path); },   // VeltoResult<Image>
//       64);
//   VeltoResult<Image> image = thumbnails->get("photos/cat.png");   // produced once, then cached
//
// Callers never insert: a miss calls the producer given at creation, stores its item at the
// head of a VeltoDoublyLinkedKeyedList and evicts from the tail while over the limit.
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

namespace velto::detail {
inline constexpr char kLinkListBasedFiniteCountCacheFile[] = "Data Structures/VeltoLinkListBasedFiniteCountCache";
}  // namespace velto::detail

/// Get-or-produce cache with a limit on the number of items and least-recently-used eviction.
///
/// A hit moves the entry to the head of the recency list and returns the item stored when the
/// key was first produced (a cached item is never replaced). A miss calls the producer; its
/// failure is returned wrapped and nothing is stored. With `maxItemCount` 0 every get produces,
/// stores, immediately evicts and returns the item.
///
/// Deliberately kept: a hit on an entry that is neither head nor tail leaves the former head
/// without a back link (see VeltoDoublyLinkedKeyedList). When that entry is later evicted the
/// list has no tail, and every eviction after that fails with "No tail to remove": the get
/// returns that failure (wrapped with "key" and "newNode") while its new item stays cached and
/// `count` stays above the limit. For example, limit 3 and gets of A, B, C, B, D, E, F: F fails.
///
/// Ownership: created as a std::shared_ptr (`create`); owns the producer, the list and the map.
/// Entries leave only by eviction.
/// Cost: a hit or a miss is O(1) apart from the producer: one hash lookup, a few link updates.
/// Thread safety: every operation but `count` and `maxItemCount` runs under the cache's one
/// VeltoUnfairLock, the producer included, so a slow producer blocks every other user of the
/// cache and a producer must not call back into the same cache (that is a fatal stop).
/// `count` is read without the lock (race-free, but possibly stale).
template <class Key, class Item, class Hash = std::hash<Key>>
class VeltoLinkListBasedFiniteCountCache {
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  using List = VeltoDoublyLinkedKeyedList<Key, Item>;
  using Node = typename List::Node;
  using ItemProducer = std::function<VeltoResult<Item>(const Key&)>;

  VeltoLinkListBasedFiniteCountCache(Passkey, ItemProducer itemProducer, std::size_t maxItemCount)
      : itemProducer_(std::move(itemProducer)), maxItemCount_(maxItemCount) {}
  VeltoLinkListBasedFiniteCountCache(const VeltoLinkListBasedFiniteCountCache&) = delete;
  VeltoLinkListBasedFiniteCountCache& operator=(const VeltoLinkListBasedFiniteCountCache&) = delete;

  /// An empty cache. REQUIRES: `itemProducer` is not empty (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoLinkListBasedFiniteCountCache> create(ItemProducer itemProducer,
                                                                                   std::size_t maxItemCount) {
    if (!itemProducer) velto::detail::fatalStop("VeltoLinkListBasedFiniteCountCache: empty item producer");
    return std::make_shared<VeltoLinkListBasedFiniteCountCache>(Passkey{}, std::move(itemProducer), maxItemCount);
  }

  /// The cached item for `key`, produced first on a miss. Every failure arrives wrapped twice in
  /// frames of "get(key:)" with "key" (inside and outside the lock): a producer failure; a
  /// failed promotion of a hit (adds "extant", the node); a failed eviction (adds "newNode",
  /// the node just stored, which stays cached). An exception from the producer propagates and
  /// stores nothing.
  [[nodiscard]] VeltoResult<Item> get(const Key& key) {
    auto result = lock_.protected_([&] { return getLocked(key); });
    if (result.isFailure()) {
      return VeltoResult<Item>::fromError(result.error(), {{"key", key}},
                                          VELTO_SITE(velto::detail::kLinkListBasedFiniteCountCacheFile, "get(key:)"));
    }
    return result;
  }

  /// The cached keys. Does not change recency.
  [[nodiscard]] std::unordered_set<Key, Hash> keys() {
    return lock_.protected_([&] {
      std::unordered_set<Key, Hash> keys;
      keys.reserve(itemsByKey_.size());
      for (const auto& entry : itemsByKey_) keys.insert(entry.first);
      return keys;
    });
  }

  /// `transform(key, node)` for every cached entry, in the map's iteration order, under the lock
  /// (so `transform` must not call back into this cache). Does not change recency.
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

  /// Cached items, read without the lock: race-free, possibly stale.
  [[nodiscard]] std::size_t count() const noexcept { return count_.load(std::memory_order_relaxed); }
  [[nodiscard]] std::size_t maxItemCount() const noexcept { return maxItemCount_; }

 private:
  VeltoResult<Item> getLocked(const Key& key) {
    if (const auto found = itemsByKey_.find(key); found != itemsByKey_.end()) {
      const std::shared_ptr<Node>& extant = found->second;
      if (auto promoted = linkedList_->promoteToHead(extant); promoted.isFailure()) {
        return VeltoResult<Item>::fromError(promoted.error(), {{"key", key}, {"extant", extant}},
                                            VELTO_SITE(velto::detail::kLinkListBasedFiniteCountCacheFile, "get(key:)"));
      }
      return extant->item();
    }
    auto produced = itemProducer_(key);
    if (produced.isFailure()) {
      return VeltoResult<Item>::fromError(produced.error(), {{"key", key}},
                                          VELTO_SITE(velto::detail::kLinkListBasedFiniteCountCacheFile, "get(key:)"));
    }
    // The map keeps the list's new node without another reference count round trip; only when an
    // eviction is about to erase that very entry does the node get a reference of its own.
    const std::shared_ptr<Node>* newNode =
        &itemsByKey_.insert_or_assign(key, linkedList_->addToHead(key, std::move(produced).value())).first->second;
    std::shared_ptr<Node> newNodeKept;
    std::size_t count = count_.load(std::memory_order_relaxed);
    if (count == std::numeric_limits<std::size_t>::max()) {
      velto::detail::fatalStop("VeltoLinkListBasedFiniteCountCache: count overflow");
    }
    count_.store(++count, std::memory_order_relaxed);
    while (count > maxItemCount_) {
      auto removed = linkedList_->removeTail();
      if (removed.isFailure()) {
        return VeltoResult<Item>::fromError(removed.error(), {{"key", key}, {"newNode", *newNode}},
                                            VELTO_SITE(velto::detail::kLinkListBasedFiniteCountCacheFile, "get(key:)"));
      }
      if (removed.value()->key() == key) {
        newNodeKept = *newNode;
        newNode = &newNodeKept;
      }
      itemsByKey_.erase(removed.value()->key());
      if (count == 0) velto::detail::fatalStop("VeltoLinkListBasedFiniteCountCache: count underflow");
      count_.store(--count, std::memory_order_relaxed);
    }
    return (*newNode)->item();
  }

  // Written only under the lock; atomic so that `count()` may read it without the lock.
  std::atomic<std::size_t> count_{0};
  const ItemProducer itemProducer_;
  const std::shared_ptr<List> linkedList_ = List::create();
  std::unordered_map<Key, std::shared_ptr<Node>, Hash> itemsByKey_;
  VeltoUnfairLock lock_;
  const std::size_t maxItemCount_;
};
