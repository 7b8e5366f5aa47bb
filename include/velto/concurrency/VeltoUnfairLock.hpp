// VeltoUnfairLock: the smallest lock for short critical sections, with forms that keep the call
// trail and add their frame to a failure passing through.
//
//   auto lock = VeltoUnfairLock::create();
//   int n = lock->protected_([&] { return ++counter; });                      // any value
//   VeltoResult<Item> item = lock->protected_([&] { return cache.find(key); });  // a result
//   VeltoResult<void> saved = lock->protected_([&](const auto& via) { return save(via); }, via);
#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/FutexLock.hpp"
#include "velto/detail/ResultTraits.hpp"

namespace velto::detail {
inline constexpr char kUnfairLockFile[] = "VeltoUnfairLock";
}  // namespace velto::detail

/// A non-recursive, unfair mutual-exclusion lock: one 32-bit futex word (free, held, held with
/// sleepers) plus a holder tag, never allocating per call. The `protected_` forms lock, run the
/// body and unlock on every way out, including an exception. Held by shared ownership
/// (`create()`) or as a member; not copyable, so the word's address is stable.
///
/// Fairness: none. A thread that just unlocked may take the lock again before a sleeping waiter
/// wakes; that is what makes it fast under contention, and why bodies must be short.
/// Re-entry: calling a `protected_` form from inside a body on the same lock would deadlock; the
/// waiting path sees that the caller is the holder and stops the program with one line instead.
/// Thread safety: any thread may call any `protected_` form, concurrently.
class VeltoUnfairLock {
 public:
  VeltoUnfairLock() noexcept = default;
  VeltoUnfairLock(const VeltoUnfairLock&) = delete;
  VeltoUnfairLock& operator=(const VeltoUnfairLock&) = delete;

  [[nodiscard]] static std::shared_ptr<VeltoUnfairLock> create() { return std::make_shared<VeltoUnfairLock>(); }

  /// Runs `body` under the lock and returns what it returns; an exception from `body` unlocks
  /// and propagates. (The plain and the throwing forms are one template in C++.)
  template <class Body>
    requires std::invocable<Body&> && (!velto::detail::isVeltoResult<std::invoke_result_t<Body&>>)
  std::invoke_result_t<Body&> protected_(Body&& body) {
    velto::detail::FutexLockGuard guard(lock_, velto::detail::kUnfairLockFile);
    return body();
  }

  /// Runs `body` under the lock; a failure comes back with one frame "protected(_:)" added.
  template <class Body>
    requires std::invocable<Body&> && velto::detail::isVeltoResult<std::invoke_result_t<Body&>>
  [[nodiscard]] std::invoke_result_t<Body&> protected_(Body&& body) {
    using Result = std::invoke_result_t<Body&>;
    velto::detail::FutexLockGuard guard(lock_, velto::detail::kUnfairLockFile);
    Result result = body();
    if (result.isFailure()) {
      return Result::fromError(result.error(), {}, VELTO_SITE(velto::detail::kUnfairLockFile, "protected(_:)"));
    }
    return result;
  }

  /// Forks `via` (frame "protected(_:via:)", no invoker site) before locking, runs `body` with the
  /// junction under the lock, and adds one frame "protected(_:via:)" to a failure.
  /// REQUIRES: `via` is not null (fatal stop otherwise).
  template <class Body>
    requires std::invocable<Body&, const std::shared_ptr<const VeltoVia>&> &&
             velto::detail::isVeltoResult<std::invoke_result_t<Body&, const std::shared_ptr<const VeltoVia>&>>
  [[nodiscard]] auto protected_(Body&& body, std::shared_ptr<const VeltoVia> via)
      -> std::invoke_result_t<Body&, const std::shared_ptr<const VeltoVia>&> {
    using Result = std::invoke_result_t<Body&, const std::shared_ptr<const VeltoVia>&>;
    const std::shared_ptr<const VeltoVia> junction =
        fork(std::move(via), {}, std::nullopt, VELTO_SITE(velto::detail::kUnfairLockFile, "protected(_:via:)"));
    velto::detail::FutexLockGuard guard(lock_, velto::detail::kUnfairLockFile);
    Result result = body(junction);
    if (result.isFailure()) {
      return Result::fromError(result.error(), {}, VELTO_SITE(velto::detail::kUnfairLockFile, "protected(_:via:)"));
    }
    return result;
  }

 private:
  velto::detail::FutexLock lock_;
};
