// velto::detail::FutexLock: the library's cheapest mutual exclusion, one 32-bit word waited on
// through C++20 atomic wait/notify (a futex on Linux). Carries VeltoUnfairLock and the internal
// state of the dispatch queues.
//
//   velto::detail::FutexLock lock;
//   lock.lock("VeltoUnfairLock");   // the text names the owner in the re-entry stop
//   ...
//   lock.unlock();
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace velto::detail {

/// A three-state lock word (0 free, 1 held, 2 held with sleepers), unfair and not recursive.
///
/// Cost: an uncontended lock is one compare-exchange, an unlock one exchange; the kernel is
/// entered only when a thread must sleep or wake a sleeper. Under contention a waiter goes
/// straight to sleep on the word (a futex, without the polling std::atomic::wait does first), so
/// the running thread keeps the word's cache line and re-takes the lock without a transfer.
/// Re-entry by the holding thread is detected on the contended path only (the holder records
/// itself with one relaxed store) and stops the program with one line instead of hanging.
/// Thread safety: any thread may lock; only the holder may unlock.
class FutexLock {
 public:
  FutexLock() noexcept = default;
  FutexLock(const FutexLock&) = delete;
  FutexLock& operator=(const FutexLock&) = delete;

  /// Acquires the lock. `owner` names the lock's user in the fatal stop reached when the
  /// calling thread already holds it.
  void lock(std::string_view owner) noexcept {
    std::uint32_t expected = 0;
    if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      lockContended(owner);
    }
    holder_.store(threadToken(), std::memory_order_relaxed);
  }

  /// Acquires the lock when it is free; never waits.
  [[nodiscard]] bool tryLock() noexcept {
    std::uint32_t expected = 0;
    if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) return false;
    holder_.store(threadToken(), std::memory_order_relaxed);
    return true;
  }

  /// REQUIRES: the calling thread holds the lock (not checked).
  void unlock() noexcept {
    holder_.store(nullptr, std::memory_order_relaxed);
    if (word_.exchange(0, std::memory_order_release) == 2) wakeOne();
  }

  /// True when the calling thread holds the lock. Exact for the caller, racy for others.
  [[nodiscard]] bool isHeldByCurrentThread() const noexcept {
    return holder_.load(std::memory_order_relaxed) == threadToken();
  }

 private:
  // A distinct address per live thread, without a system call.
  [[nodiscard]] static const void* threadToken() noexcept {
    static thread_local const char token = 0;
    return &token;
  }

  void lockContended(std::string_view owner) noexcept;
  void wakeOne() noexcept;

  std::atomic<std::uint32_t> word_{0};
  std::atomic<const void*> holder_{nullptr};
};

/// Scoped holder of a FutexLock.
class FutexLockGuard {
 public:
  FutexLockGuard(FutexLock& lock, std::string_view owner) noexcept : lock_(lock) { lock_.lock(owner); }
  ~FutexLockGuard() { lock_.unlock(); }
  FutexLockGuard(const FutexLockGuard&) = delete;
  FutexLockGuard& operator=(const FutexLockGuard&) = delete;

 private:
  FutexLock& lock_;
};

}  // namespace velto::detail
