#include "velto/detail/FutexLock.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include "velto/detail/Fatal.hpp"

namespace velto::detail {

void FutexLock::lockContended(std::string_view owner) noexcept {
  if (isHeldByCurrentThread()) {
    fatalStop(std::string(owner) + ": lock re-entered by the thread that holds it (would deadlock)");
  }
  // No spinning: a waiter polling the word pulls its cache line away from the holder at every
  // lock and unlock, while a sleeping waiter lets the holder re-take the lock alone at full speed
  // (std::atomic::wait polls before it sleeps, and with two threads that made the lock twice as
  // slow as std::mutex; the futex is used directly for that reason).
  //
  // The word says "held with sleepers" whenever this thread might sleep, so the unlocking thread
  // knows to wake one; a woken thread keeps saying so, since others may still sleep.
  std::uint32_t state = word_.exchange(2, std::memory_order_acquire);
  while (state != 0) {
    // Returns at once when the word is no longer 2; spurious wake-ups just loop.
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word_), FUTEX_WAIT_PRIVATE, 2u, nullptr, nullptr, 0);
    state = word_.exchange(2, std::memory_order_acquire);
  }
}

void FutexLock::wakeOne() noexcept {
  syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace velto::detail
