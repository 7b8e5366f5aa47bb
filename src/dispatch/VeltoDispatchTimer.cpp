// Boost.Asio fences its handlers with std::atomic_thread_fence, which g++ flags under
// ThreadSanitizer (-Wtsan); the pool's real synchronisation is its mutex, which TSan sees. The
// pragma must precede every include to cover <atomic>.
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif

#include "velto/dispatch/VeltoDispatchTimer.hpp"

#include <cstdint>
#include <mutex>

#include "dispatch/DispatchInternals.hpp"

// Everything but the asio timer's own completion runs under `mutex`; a completion re-checks the
// generation it was armed with, so a re-armed or cancelled wait can never deliver.
struct VeltoDispatchTimer::State : std::enable_shared_from_this<State> {
  explicit State(std::shared_ptr<VeltoDispatchQueue> queue)
      : timer(velto::detail::workerPool()), target(std::move(queue)) {}

  std::mutex mutex;
  boost::asio::steady_timer timer;
  std::shared_ptr<VeltoDispatchQueue> target;
  Work handler;
  std::chrono::steady_clock::time_point next;
  std::chrono::steady_clock::duration interval{};
  std::uint64_t generation = 0;
  bool scheduled = false;
  bool suspended = true;
  bool cancelled = false;
  bool armed = false;
  bool missed = false;    // a tick came while suspended
  bool inFlight = false;  // an event is submitted and has not finished

  void disarm() {
    ++generation;
    armed = false;
    timer.cancel();
  }

  void arm() {
    ++generation;
    armed = true;
    timer.expires_at(next);
    timer.async_wait([self = shared_from_this(), armedGeneration = generation](const boost::system::error_code&) {
      self->onTick(armedGeneration);
    });
  }

  void onTick(std::uint64_t armedGeneration) {
    std::lock_guard guard(mutex);
    if (armedGeneration != generation || cancelled) return;
    armed = false;
    if (suspended) {
      missed = true;
      return;
    }
    deliver();
    advance();
  }

  void deliver() {
    if (inFlight || !handler) return;
    inFlight = true;
    target->async([self = shared_from_this(), work = handler] {
      work();
      std::lock_guard guard(self->mutex);
      self->inFlight = false;
    });
  }

  void advance() {
    if (interval <= std::chrono::steady_clock::duration::zero()) {
      scheduled = false;
      return;
    }
    next += interval;
    const auto now = std::chrono::steady_clock::now();
    if (next <= now) next += ((now - next) / interval + 1) * interval;  // skip the missed periods
    arm();
  }
};

VeltoDispatchTimer::VeltoDispatchTimer(std::shared_ptr<State> state) : state_(std::move(state)) {}

std::shared_ptr<VeltoDispatchTimer> VeltoDispatchTimer::create(std::shared_ptr<VeltoDispatchQueue> target) {
  if (!target) target = VeltoDispatchQueue::global();
  return std::shared_ptr<VeltoDispatchTimer>(new VeltoDispatchTimer(std::make_shared<State>(std::move(target))));
}

VeltoDispatchTimer::~VeltoDispatchTimer() { cancel(); }

void VeltoDispatchTimer::setEventHandler(Work handler) {
  std::lock_guard guard(state_->mutex);
  if (!state_->cancelled) state_->handler = std::move(handler);
}

void VeltoDispatchTimer::schedule(std::chrono::steady_clock::time_point start,
                                  std::chrono::steady_clock::duration interval) {
  State& state = *state_;
  std::lock_guard guard(state.mutex);
  if (state.cancelled) return;
  state.next = start;
  state.interval = interval;
  state.scheduled = true;
  state.missed = false;
  if (state.armed) state.disarm();
  if (!state.suspended) state.arm();
}

void VeltoDispatchTimer::resume() {
  State& state = *state_;
  std::lock_guard guard(state.mutex);
  if (state.cancelled || !state.suspended) return;
  state.suspended = false;
  if (state.missed) {
    state.missed = false;
    state.deliver();
    state.advance();
  } else if (state.scheduled && !state.armed) {
    state.arm();
  }
}

void VeltoDispatchTimer::suspend() {
  std::lock_guard guard(state_->mutex);
  state_->suspended = true;
}

void VeltoDispatchTimer::cancel() {
  State& state = *state_;
  Work dropped;
  {
    std::lock_guard guard(state.mutex);
    if (state.cancelled) return;
    state.cancelled = true;
    dropped = std::move(state.handler);
    state.handler = nullptr;
    state.disarm();
  }
  // `dropped` dies here, outside the lock: its captures may own this very timer.
}

bool VeltoDispatchTimer::isCancelled() const {
  std::lock_guard guard(state_->mutex);
  return state_->cancelled;
}
