// Boost.Asio fences its handlers with std::atomic_thread_fence, which g++ flags under
// ThreadSanitizer (-Wtsan); the pool's real synchronisation is its mutex, which TSan sees. The
// pragma must precede every include to cover <atomic>.
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif

#include "velto/dispatch/VeltoMainQueue.hpp"

#include <atomic>
#include <thread>

#include "dispatch/DispatchInternals.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/MainThread.hpp"

namespace {

void requireMainThread(const char* operation) {
  if (!VeltoMainQueue::isMainThread()) {
    velto::detail::fatalStop(std::string("VeltoMainQueue::") + operation + " called off the main thread");
  }
}

// Waits until something changes for the main loop or `deadline` passes; false at the deadline.
bool waitForSignal(velto::detail::MainLoop& loop, std::uint64_t seen, std::chrono::steady_clock::time_point deadline) {
  std::unique_lock guard(loop.mutex);
  auto changed = [&] { return loop.signals != seen || loop.drainScheduled; };
  if (deadline == std::chrono::steady_clock::time_point::max()) {
    loop.changed.wait(guard, changed);
    return true;
  }
  return loop.changed.wait_until(guard, deadline, changed);
}

std::uint64_t signalsNow(velto::detail::MainLoop& loop) {
  std::lock_guard guard(loop.mutex);
  return loop.signals;
}

}  // namespace

bool VeltoMainQueue::isMainThread() noexcept { return velto::detail::isMainThread(); }

void VeltoMainQueue::adoptCurrentThreadAsMain() noexcept { velto::detail::adoptCurrentThreadAsMain(); }

bool VeltoMainQueue::drainPending() {
  requireMainThread("drainPending");
  auto& loop = velto::detail::MainLoop::shared();
  {
    std::lock_guard guard(loop.mutex);
    if (!loop.drainScheduled) return false;
    loop.drainScheduled = false;
  }
  velto::detail::mainSerialQueue().drain(1);
  return true;
}

bool VeltoMainQueue::runUntil(const std::function<bool()>& done, std::chrono::steady_clock::time_point deadline) {
  requireMainThread("runUntil");
  auto& loop = velto::detail::MainLoop::shared();
  for (;;) {
    const std::uint64_t seen = signalsNow(loop);
    drainPending();
    if (done()) return true;
    if (!waitForSignal(loop, seen, deadline)) return done();
  }
}

void VeltoMainQueue::runUntil(std::chrono::steady_clock::time_point deadline) {
  (void)runUntil([] { return false; }, deadline);
}

void VeltoMainQueue::run() {
  requireMainThread("run");
  auto& loop = velto::detail::MainLoop::shared();
  for (;;) {
    const std::uint64_t seen = signalsNow(loop);
    drainPending();
    {
      std::lock_guard guard(loop.mutex);
      if (loop.stopRequested) {
        loop.stopRequested = false;
        return;
      }
    }
    waitForSignal(loop, seen, std::chrono::steady_clock::time_point::max());
  }
}

void VeltoMainQueue::wakeUp() { velto::detail::MainLoop::shared().signal(false); }

void VeltoMainQueue::stop() {
  auto& loop = velto::detail::MainLoop::shared();
  {
    std::lock_guard guard(loop.mutex);
    loop.stopRequested = true;
    ++loop.signals;
  }
  loop.changed.notify_all();
}
