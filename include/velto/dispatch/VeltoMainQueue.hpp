// VeltoMainQueue: the main thread's side of the main queue. Nothing runs the main queue on its
// own: the application's main thread drains it, in one of three forms.
//
//   VeltoDispatchQueue::main()->async([] { updateScreen(); });   // from any thread
//   int main() {
//     ...
//     VeltoMainQueue::run();                          // until VeltoMainQueue::stop()
//   }
//   VeltoMainQueue::runUntil([&] { return done; });    // tests: until a condition holds
//   VeltoMainQueue::drainPending();                   // an existing event loop: once per turn
#pragma once

#include <chrono>
#include <functional>

/// Drains the main queue (VeltoDispatchQueue::main()) on the main thread.
///
/// The main thread is the process's initial thread unless `adoptCurrentThreadAsMain()` named
/// another (for hosts whose event loop runs elsewhere). Main-queue work runs only inside the calls
/// below, on that thread, one item at a time in submission order, with the main queue current.
/// A `sync` onto the main queue from another thread waits until the main thread drains up to
/// it, and the main thread runs its work (an exception it throws reaches the `sync` caller); it
/// waits for good if the main thread never drains. From the main thread outside main-queue work
/// it first runs the main queue's pending work, then its own, inline; from main-queue work it is
/// a fatal stop (it could never proceed).
///
/// Thread safety: `isMainThread`, `wakeUp` and `stop` may be called from any thread; the draining
/// calls only from the main thread (any other thread is a fatal stop).
class VeltoMainQueue {
 public:
  VeltoMainQueue() = delete;

  /// True on the main thread: the process's initial thread by default.
  [[nodiscard]] static bool isMainThread() noexcept;

  /// Makes the calling thread the main thread from now on. Call it once, before any main-queue
  /// work is submitted; changing the main thread while the main queue is being drained is not
  /// supported.
  static void adoptCurrentThreadAsMain() noexcept;

  /// Runs the main-queue work pending at the time of the call (work it submits waits for the
  /// next drain) and returns whether anything was run. Never waits for new work.
  static bool drainPending();

  /// Drains the main queue as work arrives until `done()` holds, or until `deadline`. Returns the
  /// last `done()`. `done()` is checked before the first wait, after every batch of main-queue
  /// work and after every `wakeUp()`; there is no periodic re-check, so whatever makes `done`
  /// true from another thread must call `wakeUp()` afterwards (or post to the main queue), or it
  /// is noticed only at the deadline.
  static bool runUntil(const std::function<bool()>& done,
                       std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max());

  /// Drains the main queue as work arrives until `deadline`.
  static void runUntil(std::chrono::steady_clock::time_point deadline);

  /// Drains the main queue as work arrives until `stop()` is called (a stop requested before
  /// `run` makes it return at once, once).
  static void run();

  /// Makes a waiting `runUntil` re-check its condition at once; does nothing else (no waiter: no
  /// effect). Any thread, any time; costs a mutex round trip and a notify.
  static void wakeUp();

  /// Makes the current or next `run()` return.
  static void stop();
};
