// VeltoFiniteCache<Key, Item>: a get-or-produce cache whose entries record when they were last
// accessed and which is purged in batches, the base of the lazy count and cost caches.
//
//   auto pages = VeltoFiniteCache<std::string, Page>::create({}, /*enforceThreadSafety=*/true,
//       [](const std::string& url) { return fetch(url); });         // VeltoResult<Page>
//   VeltoResult<Page> page = pages->get("https://example.com/");     // produced once, then cached
//   auto some = pages->get(std::unordered_set<std::string>{"/a", "/b"});  // one lock, one clock read
//
// The base cache never purges; VeltoLazyFiniteCountCache and VeltoLazyFiniteCostCache bound it.
// A subclass shapes the purge through the virtual hooks `isValid`, `added`, `replacedAllNodes`,
// `isShrinkRequired` and `shrink`.
#pragma once

#include <time.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velto/concurrency/VeltoUnfairLock.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

namespace velto::detail {
inline constexpr char kFiniteCacheFile[] = "Data Structures/VeltoFiniteCache";

/// Seconds since 1970 from the coarse real-time clock: a vDSO read without a system call,
/// advancing once per scheduler tick (a few milliseconds), which is all recency needs.
[[nodiscard]] inline double coarseWallClockEpochSeconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// A time stamp as an unsigned integer ordered as the stamps are: NaN lowest (least recent),
/// then -infinity up to +infinity; -0 and +0 map alike, so they tie as they compare.
[[nodiscard]] inline std::uint64_t recencyRank(double stamp) noexcept {
  if (std::isnan(stamp)) return 0;
  if (stamp == 0) stamp = 0.0;
  const auto bits = std::bit_cast<std::uint64_t>(stamp);
  return (bits & (std::uint64_t{1} << 63)) != 0 ? ~bits : bits | (std::uint64_t{1} << 63);
}
}  // namespace velto::detail

/// Get-or-produce cache with per-entry access stamps and batch purges run by its subclasses.
///
/// A hit stamps the entry with the clock's reading and returns the item stored when the key was
/// first produced; it never purges. A miss calls the producer, asks `isValid` about the proposed
/// node, stores it, reports it to `added` and then purges: when `isShrinkRequired` says so, all
/// entries are sorted most recently accessed first and `shrink` picks the prefix to keep. The
/// order is total: equal stamps are ordered by when the access happened (so a stopped clock gives
/// exact least-recently-used order), and a NaN stamp counts as least recent.
///
/// The clock (`dateProducer`, seconds since 1970) is read once per get, before locking. An empty
/// date producer stands for the coarse real-time clock.
///
/// Ownership: created as a std::shared_ptr (`create`); owns the producers and the entries.
/// Entries leave only by purges; there is no removal or clearing.
/// Cost: a hit is one clock read, one hash lookup and one stamp store. A purge collects and sorts
/// compact records of all entries (O(n log n)) and erases the dropped ones; the gap between a
/// subclass's trigger and target decides how many misses share that cost.
/// Exceptions: one thrown by the producer, a hook or a callback propagates; the producer's and
/// `isValid`'s store nothing, a later hook's may leave `count` out of step with the entries.
/// Thread safety: with `enforceThreadSafety` every operation but `count` (and the subclasses'
/// `threshold` and `totalCost`) runs under the cache's VeltoUnfairLock, the producer, hooks and
/// callbacks included: a slow producer blocks every user of the cache. Without it the cache takes
/// no lock and must be confined to one thread. Either way, a producer, hook or callback calling
/// back into the same cache is a fatal stop (a locked cache would deadlock, an unlocked one would
/// change under its own feet). `count` is read without the lock (race-free, possibly stale).
template <class Key, class Item, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
class VeltoFiniteCache {
 protected:
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  /// One entry: its key, the stamp of its last access and its item. Owned by the cache; hooks
  /// and callbacks see it by reference for the duration of their call. Copyable, so that a
  /// refused node can be recorded in a failure.
  class Node {
   public:
    Node(Key key, double lastAccessed, Item item)
        : key_(std::move(key)), lastAccessed_(lastAccessed), item_(std::move(item)) {}

    [[nodiscard]] const Key& key() const noexcept { return key_; }
    /// Seconds since 1970 of the latest get that found or stored this entry.
    [[nodiscard]] double lastAccessed() const noexcept { return lastAccessed_; }
    [[nodiscard]] const Item& item() const noexcept { return item_; }

    /// Debug output: "key", "lastAccessed", "item".
    VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                    VeltoDynamicDebugEncoder& dynamicEncoder) const {
      if (auto written = dynamicEncoder.encode(key_, container, "key"); !written) return written;
      if (auto written = dynamicEncoder.encode(lastAccessed_, container, "lastAccessed"); !written) return written;
      return dynamicEncoder.encode(item_, container, "item");
    }

   private:
    friend class VeltoFiniteCache;
    Key key_;
    double lastAccessed_;
    std::uint64_t accessOrder_ = 0;  // breaks ties between equal stamps, later accesses first
    Item item_;
  };

 private:
  using Map = std::unordered_map<Key, Node, Hash, KeyEqual>;

 public:
  /// Nodes handed to the hooks, valid for the duration of the call.
  using NodeRefs = std::span<const Node* const>;

  /// All entries, as `isShrinkRequired` sees them: a view of the cache's own storage (nothing
  /// is copied), in no particular order, valid for the duration of the call.
  class Nodes {
   public:
    class Iterator {
     public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Node;
      using difference_type = std::ptrdiff_t;
      using pointer = const Node*;
      using reference = const Node&;
      Iterator() = default;
      explicit Iterator(typename Map::const_iterator at) : at_(at) {}
      reference operator*() const { return at_->second; }
      pointer operator->() const { return &at_->second; }
      Iterator& operator++() {
        ++at_;
        return *this;
      }
      Iterator operator++(int) {
        Iterator before = *this;
        ++at_;
        return before;
      }
      friend bool operator==(const Iterator&, const Iterator&) = default;

     private:
      typename Map::const_iterator at_;
    };
    explicit Nodes(const Map& map) noexcept : map_(map) {}
    [[nodiscard]] Iterator begin() const { return Iterator(map_.begin()); }
    [[nodiscard]] Iterator end() const { return Iterator(map_.end()); }
    [[nodiscard]] std::size_t size() const noexcept { return map_.size(); }
    [[nodiscard]] bool empty() const noexcept { return map_.empty(); }

   private:
    const Map& map_;
  };

  using DateProducer = std::function<double()>;
  using ItemProducer = std::function<VeltoResult<Item>(const Key&)>;
  using KeySet = std::unordered_set<Key, Hash, KeyEqual>;
  using ItemMap = std::unordered_map<Key, Item, Hash, KeyEqual>;

  VeltoFiniteCache(Passkey, DateProducer dateProducer, bool enforceThreadSafety, ItemProducer itemProducer)
      : dateProducer_(std::move(dateProducer)),
        enforceThreadSafety_(enforceThreadSafety),
        itemProducer_(std::move(itemProducer)) {
    if (!itemProducer_) velto::detail::fatalStop("VeltoFiniteCache: empty item producer");
  }
  VeltoFiniteCache(const VeltoFiniteCache&) = delete;
  VeltoFiniteCache& operator=(const VeltoFiniteCache&) = delete;
  virtual ~VeltoFiniteCache() = default;

  /// An empty cache that never purges. An empty `dateProducer` stands for the coarse real-time
  /// clock. REQUIRES: `itemProducer` is not empty (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoFiniteCache> create(DateProducer dateProducer, bool enforceThreadSafety,
                                                                ItemProducer itemProducer) {
    return std::make_shared<VeltoFiniteCache>(Passkey{}, std::move(dateProducer), enforceThreadSafety,
                                              std::move(itemProducer));
  }

  /// The cached item for `key`, produced, validated, stored and followed by a purge on a miss.
  /// Failures come wrapped in a frame "get(key:)" with "key" inside the body and once more
  /// outside it (with the lock's "protected(_:)" between the two when locked): the producer's
  /// failure (nothing stored), or "Node is not valid" with "key" and "proposed" (the refused
  /// node; nothing stored).
  [[nodiscard]] VeltoResult<Item> get(const Key& key) { return getProbe(key); }

  /// `get(key)` for a key given in another form that Hash and KeyEqual accept directly (both
  /// transparent), so a hit builds no Key; a miss builds one from `probe`.
  template <class Probe>
    requires(!std::is_same_v<Probe, Key>) && (!std::is_same_v<Probe, KeySet>) &&
            requires { typename Hash::is_transparent; typename KeyEqual::is_transparent; } &&
            std::constructible_from<Key, const Probe&>
  [[nodiscard]] VeltoResult<Item> get(const Probe& probe) {
    return getProbe(probe);
  }

  /// The items for every key of `keys`, walked in the set's iteration order under one lock and
  /// one clock read; hits and misses as for `get(key)`, and one purge at the end when anything
  /// was stored (also when a failure stopped the walk). Failures: the producer's, or "Item is not
  /// valid" with "proposed"; both with "keys" (the whole set) in frames "get(keys:)" inside and
  /// outside the body. Items stored before a failure stay cached. An item fetched early may be
  /// purged by the end of the walk; the result still holds it.
  [[nodiscard]] VeltoResult<ItemMap> get(const KeySet& keys) {
    using velto::detail::kFiniteCacheFile;
    const double now = readClock();
    VeltoResult<ItemMap> result = enforceThreadSafety_ ? lock_.protected_([&] { return getSetLocked(keys, now); })
                                                       : getSetLocked(keys, now);
    if (result.isFailure()) {
      result = VeltoResult<ItemMap>::fromError(result.error(), {{"keys", keys}}, VELTO_SITE(kFiniteCacheFile, "get(keys:)"));
    }
    return result;
  }

  /// The stored keys. Does not change any stamp.
  [[nodiscard]] KeySet keys() const {
    return locked([&] {
      KeySet keys;
      keys.reserve(nodesByKey_.size());
      for (const auto& entry : nodesByKey_) keys.insert(entry.first);
      return keys;
    });
  }

  /// `transform(key, item)` for every entry, in the storage's iteration order. Does not change
  /// any stamp; `transform` must not call back into this cache.
  template <class Transform>
    requires std::invocable<Transform&, const Key&, const Item&>
  [[nodiscard]] auto map(Transform&& transform) const {
    using T = std::invoke_result_t<Transform&, const Key&, const Item&>;
    return locked([&] {
      std::vector<T> mapped;
      mapped.reserve(nodesByKey_.size());
      for (const auto& [key, node] : nodesByKey_) mapped.push_back(transform(key, node.item_));
      return mapped;
    });
  }

  /// The items of the entries for which `isIncluded(key, node)` is true. Does not change any
  /// stamp; `isIncluded` must not call back into this cache.
  template <class Predicate>
    requires std::predicate<Predicate&, const Key&, const Node&>
  [[nodiscard]] ItemMap filter(Predicate&& isIncluded) const {
    return locked([&] {
      ItemMap items;
      for (const auto& [key, node] : nodesByKey_) {
        if (isIncluded(key, node)) items.emplace(key, node.item_);
      }
      return items;
    });
  }

  /// Entries as counted by `added` and `replacedAllNodes`, read without the lock: race-free,
  /// possibly stale.
  [[nodiscard]] std::size_t count() const noexcept { return count_.load(std::memory_order_relaxed); }
  [[nodiscard]] bool enforceThreadSafety() const noexcept { return enforceThreadSafety_; }

 protected:
  /// Whether a proposed node may be stored. Base: always.
  [[nodiscard]] virtual bool isValid(const Node& /*node*/) { return true; }

  /// Called with the nodes just stored. Base: adds their number to `count` (overflow is a
  /// fatal stop).
  virtual void added(NodeRefs nodes) {
    const std::size_t count = count_.load(std::memory_order_relaxed);
    if (nodes.size() > std::numeric_limits<std::size_t>::max() - count) {
      velto::detail::fatalStop("VeltoFiniteCache: count overflow");
    }
    count_.store(count + nodes.size(), std::memory_order_relaxed);
  }

  /// Called after a purge with the nodes kept. Base: sets `count` to their number.
  virtual void replacedAllNodes(NodeRefs nodes) { count_.store(nodes.size(), std::memory_order_relaxed); }

  /// Whether a purge must run after a miss. Base: never.
  [[nodiscard]] virtual bool isShrinkRequired(const Nodes& /*nodes*/) { return false; }

  /// The nodes to keep, given all of them most recently accessed first: a prefix of the
  /// argument (anything else is a fatal stop). Base: all of them.
  [[nodiscard]] virtual NodeRefs shrink(NodeRefs nodeInMostToLeastAccessedOrder) { return nodeInMostToLeastAccessedOrder; }

 private:
  // Marks the body of an operation; a second entry while one runs is the re-entry the class
  // comment forbids (a locked cache stops in its lock before it gets here).
  class BusyScope {
   public:
    explicit BusyScope(const VeltoFiniteCache& cache) noexcept : cache_(cache) {
      if (cache_.busy_) {
        velto::detail::fatalStop(
            "VeltoFiniteCache: called back from its own producer, hook or callback (or an unlocked cache used by two "
            "threads at once)");
      }
      cache_.busy_ = true;
    }
    ~BusyScope() { cache_.busy_ = false; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

   private:
    const VeltoFiniteCache& cache_;
  };

  // A purge sorts these rather than the nodes: a compact, cache-friendly pass over integers.
  struct Record {
    std::uint64_t rank;
    std::uint64_t order;
    typename Map::iterator entry;
  };

  template <class Body>
  auto locked(Body&& body) const {
    if (enforceThreadSafety_) {
      return lock_.protected_([&] {
        BusyScope busy(*this);
        return body();
      });
    }
    BusyScope busy(*this);
    return body();
  }

  template <class Probe>
  VeltoResult<Item> getProbe(const Probe& probe) {
    using velto::detail::kFiniteCacheFile;
    const double now = readClock();
    // One named result returned on every path, so that it is built in the caller's slot.
    VeltoResult<Item> result = enforceThreadSafety_ ? lock_.protected_([&] { return getLocked(probe, now); })
                                                    : getLocked(probe, now);
    if (result.isFailure()) {
      result = VeltoResult<Item>::fromError(result.error(), {{"key", Key(probe)}}, VELTO_SITE(kFiniteCacheFile, "get(key:)"));
    }
    return result;
  }

  template <class Probe>
  VeltoResult<Item> getLocked(const Probe& probe, double now) {
    using velto::detail::kFiniteCacheFile;
    BusyScope busy(*this);
    if (const auto found = nodesByKey_.find(probe); found != nodesByKey_.end()) {
      touch(found->second, now);
      return found->second.item_;
    }
    const auto miss = [&](const Key& key) -> VeltoResult<Item> {
      auto produced = itemProducer_(key);
      if (produced.isFailure()) {
        return VeltoResult<Item>::fromError(produced.error(), {{"key", key}}, VELTO_SITE(kFiniteCacheFile, "get(key:)"));
      }
      Node proposed(key, now, std::move(produced).value());
      if (!isValid(proposed)) {
        return VeltoResult<Item>::fromMessage("Node is not valid", {{"key", key}, {"proposed", std::move(proposed)}},
                                              nullptr, VELTO_SITE(kFiniteCacheFile, "get(key:)"));
      }
      // A copy to return: with a stamp that sorts low (a clock stepping back, NaN) the purge
      // may drop the very node just stored.
      Item item = proposed.item_;
      store(key, std::move(proposed));
      purge();
      return item;
    };
    if constexpr (std::is_same_v<Probe, Key>) {
      return miss(probe);
    } else {
      return miss(Key(probe));
    }
  }

  VeltoResult<ItemMap> getSetLocked(const KeySet& keys, double now) {
    using velto::detail::kFiniteCacheFile;
    BusyScope busy(*this);
    ItemMap items;
    items.reserve(keys.size());
    std::optional<VeltoResult<ItemMap>> failure;
    bool stored = false;
    try {
      for (const Key& key : keys) {
        if (const auto found = nodesByKey_.find(key); found != nodesByKey_.end()) {
          touch(found->second, now);
          items.emplace(key, found->second.item_);
          continue;
        }
        auto produced = itemProducer_(key);
        if (produced.isFailure()) {
          failure = VeltoResult<ItemMap>::fromError(produced.error(), {{"keys", keys}},
                                                    VELTO_SITE(kFiniteCacheFile, "get(keys:)"));
          break;
        }
        Node proposed(key, now, std::move(produced).value());
        if (!isValid(proposed)) {
          failure = VeltoResult<ItemMap>::fromMessage("Item is not valid", {{"keys", keys}, {"proposed", std::move(proposed)}},
                                                      nullptr, VELTO_SITE(kFiniteCacheFile, "get(keys:)"));
          break;
        }
        items.emplace(key, proposed.item_);
        store(key, std::move(proposed));
        stored = true;
      }
    } catch (...) {
      if (stored) purge();
      throw;
    }
    if (stored) purge();
    if (failure) return std::move(*failure);
    return items;
  }

  // The default clock is called directly rather than through an empty std::function.
  [[nodiscard]] double readClock() const {
    return dateProducer_ ? dateProducer_() : velto::detail::coarseWallClockEpochSeconds();
  }

  void touch(Node& node, double now) {
    node.lastAccessed_ = now;
    node.accessOrder_ = nextAccessOrder();
  }

  [[nodiscard]] std::uint64_t nextAccessOrder() {
    if (accessCounter_ == std::numeric_limits<std::uint64_t>::max()) {
      velto::detail::fatalStop("VeltoFiniteCache: access counter overflow");
    }
    return ++accessCounter_;
  }

  void store(const Key& key, Node node) {
    node.accessOrder_ = nextAccessOrder();
    const Node* stored = &nodesByKey_.try_emplace(key, std::move(node)).first->second;
    added(NodeRefs(&stored, 1));
  }

  void purge() {
    if (!isShrinkRequired(Nodes(nodesByKey_))) return;
    records_.clear();
    records_.reserve(nodesByKey_.size());
    for (auto entry = nodesByKey_.begin(); entry != nodesByKey_.end(); ++entry) {
      records_.push_back({velto::detail::recencyRank(entry->second.lastAccessed_), entry->second.accessOrder_, entry});
    }
    std::sort(records_.begin(), records_.end(), [](const Record& a, const Record& b) {
      return a.rank != b.rank ? a.rank > b.rank : a.order > b.order;
    });
    sorted_.clear();
    sorted_.reserve(records_.size());
    for (const Record& record : records_) sorted_.push_back(&record.entry->second);
    const NodeRefs all(sorted_);
    const NodeRefs kept = shrink(all);
    if (kept.size() > all.size() || (!kept.empty() && kept.data() != all.data())) {
      velto::detail::fatalStop("VeltoFiniteCache: shrink(nodeInMostToLeastAccessedOrder:) returned other than a prefix of its argument");
    }
    for (std::size_t i = kept.size(); i < records_.size(); ++i) nodesByKey_.erase(records_[i].entry);
    replacedAllNodes(kept);
  }

  // Written only inside the body; atomic so that `count()` may read it without the lock.
  std::atomic<std::size_t> count_{0};
  const DateProducer dateProducer_;
  const bool enforceThreadSafety_;
  const ItemProducer itemProducer_;
  mutable VeltoUnfairLock lock_;
  Map nodesByKey_;
  std::uint64_t accessCounter_ = 0;
  mutable bool busy_ = false;
  // Scratch space of the purge, kept to spare two allocations per purge.
  std::vector<Record> records_;
  std::vector<const Node*> sorted_;
};
