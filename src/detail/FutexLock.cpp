#include "velto/detail/FutexLock.hpp"

#include <string>

#include "velto/detail/Fatal.hpp"

namespace velto::detail {

void FutexLock::lockContended(std::string_view owner) noexcept {
  if (isHeldByCurrentThread()) {
    fatalStop(std::string(owner) + ": lock re-entered by the thread that holds it (would deadlock)");
  }
  // No spinning of our own: a waiter polling the word pulls its cache line away from the holder
  // at every lock and unlock, while a sleeping waiter lets the holder re-take the lock alone at
  // full speed (measured: spinning here halved throughput with two threads). std::atomic::wait
  // polls briefly before it enters the kernel.
  //
  // The word says "held with sleepers" whenever this thread might sleep, so the unlocking thread
  // knows to wake one; a woken thread keeps saying so, since others may still sleep.
  std::uint32_t state = word_.exchange(2, std::memory_order_acquire);
  while (state != 0) {
    word_.wait(2, std::memory_order_relaxed);
    state = word_.exchange(2, std::memory_order_acquire);
  }
}

}  // namespace velto::detail
