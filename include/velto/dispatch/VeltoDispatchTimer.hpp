// VeltoDispatchTimer: a timer source that submits its event handler to a queue, first at a start
// deadline and then periodically, one event at a time.
//
//   auto timer = VeltoDispatchTimer::create();                 // handler runs on a global queue
//   timer->setEventHandler([] { poll(); });
//   timer->schedule(std::chrono::steady_clock::now() + 1s, 250ms);
//   timer->resume();                                           // created suspended
//   ...
//   timer->cancel();                                           // or release it
#pragma once

#include <chrono>
#include <memory>

#include "velto/dispatch/VeltoDispatchQueue.hpp"

/// A periodic timer source on the monotonic clock. Created suspended: nothing is delivered until
/// `resume()`. Held by `std::shared_ptr`; releasing the last holder cancels it.
///
/// Delivery: at every tick the handler is submitted to the target queue asynchronously, unless
/// the previous event is still pending or running; ticks that pass meanwhile, or while the source
/// is suspended, are merged into at most one event (delivered on `resume()` for a suspension).
/// So the handler never runs concurrently with itself, even on a concurrent queue. Ticks keep the
/// phase of the first deadline; a late tick skips the periods it missed.
///
/// Suspension is a flag, not a count: any number of `suspend()` calls are undone by one
/// `resume()`. After `cancel()` (or release) no new event is delivered; an event already
/// submitted still runs.
///
/// Thread safety: every operation may be called from any thread, concurrently.
class VeltoDispatchTimer {
 public:
  using Work = VeltoDispatchQueue::Work;

  /// A suspended, unscheduled timer whose events go to `target` (null: the default global queue).
  [[nodiscard]] static std::shared_ptr<VeltoDispatchTimer> create(std::shared_ptr<VeltoDispatchQueue> target = nullptr);

  ~VeltoDispatchTimer();
  VeltoDispatchTimer(const VeltoDispatchTimer&) = delete;
  VeltoDispatchTimer& operator=(const VeltoDispatchTimer&) = delete;

  /// Replaces the handler; events submitted before keep the handler they were submitted with.
  void setEventHandler(Work handler);

  /// Sets the first deadline and the period (a period of zero or less fires once), replacing
  /// any earlier schedule.
  void schedule(std::chrono::steady_clock::time_point start, std::chrono::steady_clock::duration interval);

  /// Lets events through.
  void resume();
  /// Holds events back until the next `resume()`.
  void suspend();
  /// Stops the timer for good and drops the handler.
  void cancel();

  [[nodiscard]] bool isCancelled() const;

 private:
  struct State;
  explicit VeltoDispatchTimer(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};
