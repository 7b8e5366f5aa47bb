// VeltoDispatchQueue: the queues everything asynchronous in Velto runs on: serial queues
// multiplexed over one shared worker pool, global concurrent queues by quality of service, and
// the main queue drained by the application's main thread (see VeltoMainQueue).
//
//   auto queue = VeltoDispatchQueue::createSerial("com.example.store");
//   queue->async([] { /* runs later, on a pool thread, after earlier work of `queue` */ });
//   int size = queue->sync([&] { return items.size(); });        // inline when `queue` is idle
//   queue->asyncAfter(std::chrono::steady_clock::now() + 50ms, [] { ... });
//   if (queue->isCurrent()) { ... }
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "velto/dispatch/VeltoQualityOfService.hpp"

namespace velto::detail {

/// A non-owning reference to a callable taking nothing and returning nothing.
class WorkRef {
 public:
  template <class F>
    requires(!std::is_same_v<std::remove_cv_t<F>, WorkRef>)  // copies stay copies, not references to a reference
  explicit WorkRef(F& work) noexcept
      : object_(static_cast<void*>(std::addressof(work))), call_([](void* object) { (*static_cast<F*>(object))(); }) {}
  void operator()() const { call_(object_); }

 private:
  void* object_;
  void (*call_)(void*);
};

}  // namespace velto::detail

/// A queue of work items. Serial queues run one item at a time in submission order; the global
/// queues run items concurrently on the shared pool. Created through `createSerial`, `global`
/// or `main`, held by `std::shared_ptr`.
///
/// Execution: every queue runs on one process-wide worker pool of max(2, hardware threads)
/// threads, started on first use; a serial queue costs no thread, only a small object (a few
/// hundred bytes while idle, label included), and occupies a pool thread only while it has work. A busy serial queue
/// gives its pool thread back after a bounded burst of items, so one queue cannot starve the
/// others. The main queue never runs on the pool: the main thread drains it (VeltoMainQueue).
///
/// Inline or never: `async` and `asyncAfter` never run the work on the calling thread before they
/// return, not even when called from the queue itself. `sync` onto a serial queue runs the work on
/// the calling thread: at once when the queue is idle, otherwise after the work submitted before
/// it, with the queue marked as current for the duration. `sync` onto the main queue is the
/// exception: its work runs on the main thread (VeltoMainQueue).
///
/// Who runs queued work: a thread waiting in `sync` never waits for a free pool thread. If the
/// queue it waits for is waiting for one, the caller runs the work queued ahead of its own itself,
/// in order, with that queue current (so such earlier `async` work may run on a thread that
/// later called `sync`, even on the thread that submitted it); when the queue is let go with a
/// `sync` caller in line, it passes straight to that caller. Cost: no thread is ever added; a
/// `sync` caller may spend its wait running the target's earlier work instead of sleeping, at
/// most the items queued ahead of it, and a chain of such hops nests on the caller's stack (one
/// level per queue in the chain).
///
/// Lifetime: pending work keeps its queue alive; releasing the last outside holder of a serial
/// queue with work pending still runs that work, in order, and the queue ends after it. Work
/// items are destroyed right after they run, on the thread that ran them.
///
/// Failure: work must not throw. An exception escaping asynchronously submitted work stops the
/// program with one line naming the queue; an exception escaping `sync` work reaches the caller
/// of `sync` and the queue moves on.
///
/// Deadlocks a `sync` can cause: (1) `sync` onto a serial queue from work running on that same
/// queue (directly, or through a chain of nested `sync` calls such as A -> B -> A) can never
/// proceed; it is detected and stops the program with one line instead of hanging. (2) Two serial
/// queues whose work `sync`s onto each other deadlock like two locks taken in opposite orders;
/// that is not always detected (it is when one thread ends up running both sides). Any other hop
/// completes, however many queues and threads `sync` at once: pool threads blocked in `sync`
/// cannot starve the queues they wait for. Waiting on the pool from the pool by other means
/// (a group wait, a future) is not covered.
///
/// Thread safety: every operation may be called from any thread, concurrently.
class VeltoDispatchQueue : public std::enable_shared_from_this<VeltoDispatchQueue> {
 public:
  using Work = std::function<void()>;

  /// A new serial queue. `label` is for diagnostics only: two queues with one label are still
  /// two queues.
  [[nodiscard]] static std::shared_ptr<VeltoDispatchQueue> createSerial(
      std::string label, VeltoQualityOfService qualityOfService = VeltoQualityOfService::unspecified);

  /// The process-wide concurrent queue of a class. All classes share the one worker pool.
  [[nodiscard]] static const std::shared_ptr<VeltoDispatchQueue>& global(
      VeltoQualityOfService qualityOfService = VeltoQualityOfService::default_);

  /// The serial queue drained by the main thread (VeltoMainQueue). Work submitted to it, by `async`
  /// or `sync`, runs only on the main thread while it drains.
  [[nodiscard]] static const std::shared_ptr<VeltoDispatchQueue>& main();

  /// The queue whose work the calling thread is running, or null. Inside nested `sync` calls,
  /// the innermost queue.
  [[nodiscard]] static const VeltoDispatchQueue* current() noexcept;

  virtual ~VeltoDispatchQueue();
  VeltoDispatchQueue(const VeltoDispatchQueue&) = delete;
  VeltoDispatchQueue& operator=(const VeltoDispatchQueue&) = delete;

  [[nodiscard]] const std::string& label() const noexcept { return label_; }
  [[nodiscard]] VeltoQualityOfService qualityOfService() const noexcept { return qualityOfService_; }
  [[nodiscard]] bool isSerial() const noexcept { return serial_; }

  /// True while the calling thread runs work of this queue (innermost `sync` counts, the queue a
  /// `sync` was called from does not).
  [[nodiscard]] bool isCurrent() const noexcept { return current() == this; }

  /// Submits `work` and returns at once; it runs later, never on the calling thread.
  void async(Work work) { submit(std::move(work)); }

  /// Submits `work` to run on this queue once the monotonic clock reaches `deadline` (at once,
  /// but still asynchronously, for a deadline in the past). The pending timer keeps the queue alive.
  void asyncAfter(std::chrono::steady_clock::time_point deadline, Work work);

  /// Runs `work` as this queue's current item and returns its result (or rethrows its exception):
  /// on the calling thread, or on the main thread for the main queue. See the class comment for
  /// the deadlocks it can cause.
  template <class F>
  std::invoke_result_t<F&> sync(F&& work) {
    using R = std::invoke_result_t<F&>;
    if constexpr (std::is_void_v<R>) {
      auto run = [&work] { work(); };
      runSync(velto::detail::WorkRef(run));
    } else {
      std::optional<R> result;
      auto run = [&work, &result] { result.emplace(work()); };
      runSync(velto::detail::WorkRef(run));
      return std::move(*result);
    }
  }

 protected:
  VeltoDispatchQueue(std::string label, VeltoQualityOfService qualityOfService, bool serial);

  virtual void submit(Work work) = 0;
  virtual void runSync(velto::detail::WorkRef work) = 0;

 private:
  std::string label_;
  VeltoQualityOfService qualityOfService_;
  bool serial_;
};
