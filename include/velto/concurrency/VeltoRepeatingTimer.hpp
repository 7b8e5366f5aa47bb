// VeltoRepeatingTimer: calls a handler periodically, each firing with a fresh trail of its own,
// and reports the handler's failures to a logger.
//
//   auto timer = VeltoRepeatingTimer::create([weakModel](const auto& via) { return poll(weakModel, via); },
//                                            logger, 1.0, 30.0);
//   timer->resume();    // first firing one second later, then every 30 seconds
//   timer->suspend();   // held back until the next resume()
//   timer.reset();      // no firing after this
#pragma once

#include <functional>
#include <memory>

#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/concurrency/VeltoUnfairLock.hpp"

class VeltoDispatchTimer;

/// A periodic handler on a timer source whose events run on the default global queue, one at
/// a time (never concurrently with itself). Each firing makes a new impetus "Repeatig timer
/// fired" (spelt so on purpose: logs and tools match that text) and passes it as the handler's
/// trail; a failure goes to `logger` with the impetus as dispatch root.
///
/// Lifecycle: created suspended with no timer source; the first `resume()` creates the source,
/// first firing `resumeInterval` seconds later, then every `repeatInterval` seconds in the phase
/// of that first schedule (later resumes do not reschedule). Held by `std::shared_ptr`
/// (`create`); the source holds the timer only weakly, so the timer ends when its owner releases
/// it, and no handler call starts after that (one already running finishes).
/// Thread safety: `resume()` and `suspend()` are not synchronised with each other: call them from
/// one thread or queue. The handler runs on pool threads. `logger()` and `setLogger()` may be
/// called from any thread, also while the handler runs: a firing reports to the logger it read
/// after its handler returned, so a replaced logger may still receive one failure in flight.
class VeltoRepeatingTimer : public std::enable_shared_from_this<VeltoRepeatingTimer> {
 public:
  using Handler = std::function<VeltoResult<void>(const std::shared_ptr<const VeltoVia>&)>;

  /// Stores the values; nothing fires until `resume()`. Intervals are in seconds (NaN or negative
  /// count as 0; a repeat interval of 0 fires once). REQUIRES: `logger` is not null (fatal stop).
  /// Use `create`: `resume()` needs the timer to be held by a std::shared_ptr.
  VeltoRepeatingTimer(Handler handler, std::shared_ptr<VeltoLogging> logger, double resumeInterval,
                      double repeatInterval);
  ~VeltoRepeatingTimer();
  VeltoRepeatingTimer(const VeltoRepeatingTimer&) = delete;
  VeltoRepeatingTimer& operator=(const VeltoRepeatingTimer&) = delete;

  [[nodiscard]] static std::shared_ptr<VeltoRepeatingTimer> create(Handler handler, std::shared_ptr<VeltoLogging> logger,
                                                                   double resumeInterval, double repeatInterval) {
    return std::make_shared<VeltoRepeatingTimer>(std::move(handler), std::move(logger), resumeInterval, repeatInterval);
  }

  /// Starts the timer (creating its source on the first call) or lets it continue after
  /// `suspend()`; does nothing while it runs.
  void resume();
  /// Holds firings back; does nothing before the first `resume()` or while suspended.
  void suspend();

  /// The logger failures go to. Any thread.
  [[nodiscard]] std::shared_ptr<VeltoLogging> logger() const;
  /// Replaces the logger for later failures. Any thread. REQUIRES: `logger` is not null (fatal
  /// stop, as in the constructor).
  void setLogger(std::shared_ptr<VeltoLogging> logger);

  [[nodiscard]] bool isSuspended() const noexcept { return isSuspended_; }
  [[nodiscard]] double resumeInterval() const noexcept { return resumeInterval_; }
  [[nodiscard]] double repeatInterval() const noexcept { return repeatInterval_; }

 private:
  void fire(const std::shared_ptr<const VeltoVia>& impetus);

  Handler handler_;
  mutable VeltoUnfairLock loggerLock_;  // guards `logger_`: firings read it on pool threads
  std::shared_ptr<VeltoLogging> logger_;
  double resumeInterval_;
  double repeatInterval_;
  bool isSuspended_ = true;
  std::shared_ptr<VeltoDispatchTimer> timer_;
};
