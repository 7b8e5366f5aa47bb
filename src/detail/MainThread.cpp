#include "velto/detail/MainThread.hpp"

#include <unistd.h>

#include <atomic>
#include <thread>

namespace velto::detail {
namespace {

std::atomic<bool> mainThreadAdopted{false};
std::atomic<std::thread::id> adoptedMainThread{};

}  // namespace

bool isMainThread() noexcept {
  if (mainThreadAdopted.load(std::memory_order_acquire)) {
    return adoptedMainThread.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }
  // On Linux the initial thread's id is the process id.
  static thread_local const bool isInitialThread = gettid() == getpid();
  return isInitialThread;
}

void adoptCurrentThreadAsMain() noexcept {
  adoptedMainThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
  mainThreadAdopted.store(true, std::memory_order_release);
}

}  // namespace velto::detail
