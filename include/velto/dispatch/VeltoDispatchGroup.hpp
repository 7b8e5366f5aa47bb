// VeltoDispatchGroup: counts outstanding work so that a thread can wait for it, or have a
// closure run when it is all done.
//
//   auto group = VeltoDispatchGroup::create();
//   group->async(*queue, [] { loadA(); });
//   group->enter();  startCallback([group] { group->leave(); });
//   group->notify(VeltoDispatchQueue::main(), [] { showAll(); });
//   if (!group->waitUntil(std::chrono::steady_clock::now() + 1s)) { /* timed out */ }
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "velto/dispatch/VeltoDispatchQueue.hpp"

/// A counter of entered-but-not-left work. Created by `create()` (or as a plain member), not
/// copyable. Notifications hold their queue and closure until the group empties, then are
/// submitted asynchronously (never run inline by `leave`) in the order they were registered; a
/// group destroyed while not empty drops its notifications without running them.
///
/// Deadlocks: `wait` blocks the calling thread. Waiting from work on a serial queue for group
/// work submitted to that same queue never ends, and waiting on pool threads for work that needs
/// a pool thread can exhaust the pool; prefer `notify` there.
///
/// Thread safety: every operation may be called from any thread, concurrently.
class VeltoDispatchGroup {
 public:
  VeltoDispatchGroup() = default;
  VeltoDispatchGroup(const VeltoDispatchGroup&) = delete;
  VeltoDispatchGroup& operator=(const VeltoDispatchGroup&) = delete;

  [[nodiscard]] static std::shared_ptr<VeltoDispatchGroup> create() { return std::make_shared<VeltoDispatchGroup>(); }

  /// Counts one more outstanding piece of work.
  void enter();

  /// Marks one piece of work done; when none is left, wakes the waiters and submits the
  /// notifications (asynchronously, to their queues). REQUIRES: more enters than leaves so far
  /// (an unbalanced leave is a fatal stop).
  void leave();

  /// Enters, submits `work` to `queue` asynchronously, and leaves after it ran. REQUIRES: the
  /// group outlives the work (it is not kept alive by it).
  void async(VeltoDispatchQueue& queue, VeltoDispatchQueue::Work work);

  /// Submits `work` to `queue` once the group is empty: at once (asynchronously) when it is
  /// empty now. Each notification runs once.
  void notify(std::shared_ptr<VeltoDispatchQueue> queue, VeltoDispatchQueue::Work work);

  /// Blocks until the group is empty.
  void wait();

  /// Blocks until the group is empty or the monotonic clock reaches `deadline`; false when the
  /// deadline came first. A deadline in the past only tests for emptiness.
  [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline);

  /// Outstanding work now (racy unless the caller knows no one else enters or leaves).
  [[nodiscard]] std::int64_t count() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable emptied_;
  std::int64_t count_ = 0;
  std::vector<std::pair<std::shared_ptr<VeltoDispatchQueue>, VeltoDispatchQueue::Work>> notifications_;
};
