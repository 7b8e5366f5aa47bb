// Internals shared by the dispatch sources: the worker pool, the per-thread current-queue chain,
// the serial queue and the main loop. Never included by public headers (Boost.Asio stays here).
#pragma once

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "velto/detail/FutexLock.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"

namespace velto::detail {

/// The process-wide pool under every queue, created on first use and never destroyed (work
/// may still be pending when static destructors run).
boost::asio::thread_pool& workerPool();

/// One link of the calling thread's chain of queues it is running work for, innermost first.
struct QueueFrame {
  const VeltoDispatchQueue* queue;
  const QueueFrame* outer;
};

/// The innermost frame of the calling thread, or null.
const QueueFrame*& currentQueueFrame() noexcept;

/// Marks the calling thread as running work of `queue` for the scope's lifetime.
class QueueFrameScope {
 public:
  explicit QueueFrameScope(const VeltoDispatchQueue* queue) noexcept
      : frame_{queue, currentQueueFrame()} {
    currentQueueFrame() = &frame_;
  }
  ~QueueFrameScope() { currentQueueFrame() = frame_.outer; }
  QueueFrameScope(const QueueFrameScope&) = delete;
  QueueFrameScope& operator=(const QueueFrameScope&) = delete;

 private:
  QueueFrame frame_;
};

/// Stops the program: `work` of `queue` threw out of an asynchronous item.
[[noreturn]] void stopOnEscapedException(const VeltoDispatchQueue& queue) noexcept;

/// A serial queue. Ownership protocol: `state_` is `running` while exactly one party (a pool
/// drain, the main thread's drain, or a `sync` caller) runs the queue's work; `scheduled` while a
/// pool post (or, for the main queue, the main thread) is due to claim it and nobody runs it yet.
/// Whoever lets go with work pending hands the queue to the first waiting `sync` caller if there
/// is one (so a waiter never depends on a free pool thread), else schedules it. A `sync` caller
/// that finds the queue scheduled claims it and runs the work ahead of its own itself.
class SerialDispatchQueue final : public VeltoDispatchQueue {
 public:
  SerialDispatchQueue(std::string label, VeltoQualityOfService qualityOfService, bool isMain);

  /// Claims the queue if it is scheduled (a stale call does nothing) and runs its work until it
  /// is empty, a waiting `sync` caller's turn comes, or `budget` items have run
  /// (then lets go: to the first waiting `sync` caller, else back onto the pool).
  void drain(std::size_t budget);

 private:
  struct Waiter;
  struct Item {
    Work work;
    Waiter* waiter = nullptr;  // set for a `sync` caller waiting for its turn
  };
  enum class State : std::uint8_t { idle, scheduled, running };
  enum class Stop : std::uint8_t { letGo, ownTurn, handedOver };

  void submit(Work work) override;
  void runSync(velto::detail::WorkRef work) override;
  void runSyncOnMainThread(velto::detail::WorkRef work);
  void runSyncFromOtherThread(velto::detail::WorkRef work);
  void waitForTurn();
  Stop runOwned(const Waiter* self, std::size_t budget);
  void schedule();
  void release();
  void acquireAsMainThread();

  FutexLock lock_;
  State state_ = State::idle;
  const bool isMain_;
  std::size_t waiters_ = 0;  // pending items that are `sync` callers waiting to be handed the queue
  std::vector<Item> pending_;
  std::vector<Item> batch_;  // only touched by the owner
};

/// The main thread's side of the main queue.
struct MainLoop {
  std::mutex mutex;
  std::condition_variable changed;
  bool drainScheduled = false;  // the main queue is owned for a drain the main thread must run
  bool stopRequested = false;
  std::uint64_t signals = 0;  // bumped on every change a waiting main thread may care about

  static MainLoop& shared();
  void signal(bool scheduleDrain);
};

SerialDispatchQueue& mainSerialQueue();

}  // namespace velto::detail
