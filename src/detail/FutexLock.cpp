#include "velto/detail/FutexLock.hpp"

#include <string>

#include "velto/detail/Fatal.hpp"

namespace velto::detail {
namespace {
// A few hundred nanoseconds of pause instructions: longer than the sections this lock is for.
constexpr int kSpins = 100;
}  // namespace

void FutexLock::lockContended(std::string_view owner) noexcept {
  if (isHeldByCurrentThread()) {
    fatalStop(std::string(owner) + ": lock re-entered by the thread that holds it (would deadlock)");
  }
  // Spin briefly while the holder is likely still on a CPU: a hand-over inside the spin costs
  // no system call on either side. Once others sleep, join them rather than burn the CPU.
  for (int spin = 0; spin < kSpins; ++spin) {
    std::uint32_t state = word_.load(std::memory_order_relaxed);
    if (state == 0 &&
        word_.compare_exchange_weak(state, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      return;
    }
    if (state == 2) break;  // others already sleep: join them rather than burn the CPU
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }
  // From here on the word says "held with sleepers" whenever this thread might sleep, so the
  // unlocking thread knows to wake one.
  std::uint32_t state = word_.exchange(2, std::memory_order_acquire);
  while (state != 0) {
    word_.wait(2, std::memory_order_relaxed);
    state = word_.exchange(2, std::memory_order_acquire);
  }
}

}  // namespace velto::detail
