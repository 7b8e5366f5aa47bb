// Trail-keeping work on a VeltoDispatchQueue: asynchronous and delayed work reports a failure
// to a logger with the trail as dispatch root; synchronous work returns its VeltoResult.
//
//   async(*queue, logger, via, [](const std::shared_ptr<const VeltoVia>& via) { return save(via); });
//   delay(*queue, 0.5, logger, via, [] { return refresh(); });
//   VeltoResult<int> n = sync(*queue, via, [&](const auto& via) { return count(via); });
//
// Every frame made here names the file "Via/DispatchQueue+VeltoVia". This header sits on the
// dispatch floor (it includes the queue), although it lives beside the trail types.
#pragma once

#include <chrono>
#include <concepts>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/ResultTraits.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"

namespace velto::detail {

inline constexpr char kDispatchQueueViaFile[] = "Via/DispatchQueue+VeltoVia";

/// A closure of an asynchronous or delayed operation: no argument, or the trail, returning
/// VeltoResult<void>.
template <class F>
concept AsyncResultWork = std::copy_constructible<std::decay_t<F>> &&
                          (std::is_same_v<std::invoke_result_t<std::decay_t<F>&>, VeltoResult<void>> ||
                           std::is_same_v<std::invoke_result_t<std::decay_t<F>&, const std::shared_ptr<const VeltoVia>&>,
                                          VeltoResult<void>>);

template <class F>
VeltoResult<void> invokeWithTrail(F& work, const std::shared_ptr<const VeltoVia>& via) {
  if constexpr (std::is_invocable_v<F&, const std::shared_ptr<const VeltoVia>&>) {
    return work(via);
  } else {
    return work();
  }
}

/// J of trail-keeping `async`: `via` forked with `invokerSite` and the operation's own site.
inline std::shared_ptr<const VeltoVia> asyncJunction(std::shared_ptr<const VeltoVia> via, VeltoCodeSite invokerSite) {
  return fork(std::move(via), {}, invokerSite,
              VELTO_SITE(kDispatchQueueViaFile, "async(errorLogger:via:fileName:functionName:lineNumber:execute:)"));
}

/// Runs `work` (trail-keeping `async`'s body on the target queue) with the trail `junction`; on
/// failure reports to `logger` with the inner junction K (parent `junction`, "async(via:) inner")
/// as dispatch root. K is made only then: nothing but the report can see it.
template <class F>
void runAsyncWork(F& work, const std::shared_ptr<const VeltoVia>& junction, VeltoLogging& logger) {
  const VeltoResult<void> result = invokeWithTrail(work, junction);
  if (const VeltoError* error = result.errorIfPresent()) {
    logger.logError(*error, fork(junction, {}, std::nullopt, VELTO_SITE(kDispatchQueueViaFile, "async(via:) inner")));
  }
}

/// `seconds` as a steady-clock deadline from now: NaN and negative delays count as 0, delays
/// beyond 100 years as 100 years (the clock's range ends at about 292).
std::chrono::steady_clock::time_point deadlineAfterSeconds(double seconds) noexcept;

/// `seconds` as a steady-clock duration, clamped as for `deadlineAfterSeconds`.
std::chrono::steady_clock::duration durationFromSeconds(double seconds) noexcept;

inline void requireLogger(const std::shared_ptr<VeltoLogging>& logger) {
  if (!logger) fatalStop("Via/DispatchQueue+VeltoVia: errorLogger is null");
}

/// The failure of a `sync` whose closure left the result slot empty.
template <class Result>
Result missingSyncResult(VeltoCodeSite site) {
  return Result::fromMessage("sync closure did not specify a result", {}, nullptr, site);
}

}  // namespace velto::detail

/// Submits `execute` to `queue` asynchronously, keeping the trail. On the calling thread `via` is
/// forked once (J: no args, `site` as invoker site); when the work runs, a junction K (parent J,
/// "async(via:) inner") is made, `execute` runs (a closure taking the trail receives J, not K:
/// deliberate, kept for compatibility with `delay` and `sync`, which pass their inner junction),
/// and a failure goes to `errorLogger->logError` with K as dispatch root. Never runs inline.
/// REQUIRES: `errorLogger` and `via` are not null (fatal stop otherwise).
template <class F>
  requires velto::detail::AsyncResultWork<F>
void async(VeltoDispatchQueue& queue, std::shared_ptr<VeltoLogging> errorLogger, std::shared_ptr<const VeltoVia> via,
           F&& execute, VeltoCodeSite site = VeltoCodeSite::current()) {
  using velto::detail::kDispatchQueueViaFile;
  velto::detail::requireLogger(errorLogger);
  std::shared_ptr<const VeltoVia> junction = velto::detail::asyncJunction(std::move(via), site);
  queue.async([junction = std::move(junction), logger = std::move(errorLogger),
               work = std::forward<F>(execute)]() mutable { velto::detail::runAsyncWork(work, junction, *logger); });
}

/// Submits the bare `execute` to run on `queue` after `seconds` on the monotonic clock (0: still
/// asynchronously). Records no trail.
inline void delay(VeltoDispatchQueue& queue, double seconds, VeltoDispatchQueue::Work execute) {
  queue.asyncAfter(velto::detail::deadlineAfterSeconds(seconds), std::move(execute));
}

/// As `async` with a logger, but the work runs `seconds` later on the monotonic clock, J's frame
/// is "delay(by:errorLogger:via:fileName:functionName:lineNumber:execute:)", the inner junction K
/// is also named "async(via:) inner" (the same text, on purpose), and a closure taking the trail
/// receives K. A failure goes to `errorLogger` with K as dispatch root.
/// REQUIRES: `errorLogger` and `via` are not null (fatal stop otherwise).
template <class F>
  requires velto::detail::AsyncResultWork<F>
void delay(VeltoDispatchQueue& queue, double seconds, std::shared_ptr<VeltoLogging> errorLogger,
           std::shared_ptr<const VeltoVia> via, F&& execute, VeltoCodeSite site = VeltoCodeSite::current()) {
  using velto::detail::kDispatchQueueViaFile;
  velto::detail::requireLogger(errorLogger);
  std::shared_ptr<const VeltoVia> junction =
      fork(std::move(via), {}, site,
           VELTO_SITE(kDispatchQueueViaFile, "delay(by:errorLogger:via:fileName:functionName:lineNumber:execute:)"));
  queue.asyncAfter(velto::detail::deadlineAfterSeconds(seconds), [junction = std::move(junction),
                                                                 logger = std::move(errorLogger),
                                                                 work = std::forward<F>(execute)]() mutable {
    const std::shared_ptr<const VeltoVia> inner =
        fork(junction, {}, std::nullopt, VELTO_SITE(kDispatchQueueViaFile, "async(via:) inner"));
    const VeltoResult<void> result = velto::detail::invokeWithTrail(work, inner);
    if (const VeltoError* error = result.errorIfPresent()) logger->logError(*error, inner);
  });
}

/// Runs `execute` synchronously on `queue` (see VeltoDispatchQueue::sync for where it runs and
/// the deadlocks it can cause) and returns its result. `execute` returns a VeltoResult<T>, or a
/// std::optional of one to leave the result unspecified: an empty optional gives the failure
/// "sync closure did not specify a result" (frame "sync(execute:)"). An exception from `execute`
/// propagates.
template <class F>
  requires std::invocable<F&> && (velto::detail::isVeltoResult<std::invoke_result_t<F&>> ||
                                  velto::detail::isOptionalVeltoResult<std::invoke_result_t<F&>>)
[[nodiscard]] auto sync(VeltoDispatchQueue& queue, F&& execute) {
  using Returned = std::remove_cvref_t<std::invoke_result_t<F&>>;
  if constexpr (velto::detail::isVeltoResult<Returned>) {
    std::optional<Returned> slot;
    queue.sync([&] { slot.emplace(execute()); });
    return std::move(*slot);
  } else {
    using Result = typename Returned::value_type;
    Returned slot = queue.sync([&] { return execute(); });
    if (slot) return std::move(*slot);
    return velto::detail::missingSyncResult<Result>(
        VELTO_SITE(velto::detail::kDispatchQueueViaFile, "sync(execute:)"));
  }
}

/// Runs `execute` synchronously on `queue` with the trail: `via` is forked on the calling thread
/// (J: `site` as invoker site, "sync(via:fileName:functionName:lineNumber:execute:)"), and on the
/// queue `execute` receives K (parent J, "sync(via:) inner"). Results as for `sync` above
/// ("sync closure did not specify a result" with frame
/// "sync(via:fileName:functionName:lineNumber:execute:)").
/// REQUIRES: `via` is not null (fatal stop otherwise).
template <class F>
  requires std::invocable<F&, const std::shared_ptr<const VeltoVia>&> &&
           (velto::detail::isVeltoResult<std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&>> ||
            velto::detail::isOptionalVeltoResult<std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&>>)
[[nodiscard]] auto sync(VeltoDispatchQueue& queue, std::shared_ptr<const VeltoVia> via, F&& execute,
                        VeltoCodeSite site = VeltoCodeSite::current()) {
  using velto::detail::kDispatchQueueViaFile;
  using Returned = std::remove_cvref_t<std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&>>;
  const std::shared_ptr<const VeltoVia> junction =
      fork(std::move(via), {}, site,
           VELTO_SITE(kDispatchQueueViaFile, "sync(via:fileName:functionName:lineNumber:execute:)"));
  auto runInner = [&] {
    const std::shared_ptr<const VeltoVia> inner =
        fork(junction, {}, std::nullopt, VELTO_SITE(kDispatchQueueViaFile, "sync(via:) inner"));
    return execute(inner);
  };
  if constexpr (velto::detail::isVeltoResult<Returned>) {
    std::optional<Returned> slot;
    queue.sync([&] { slot.emplace(runInner()); });
    return std::move(*slot);
  } else {
    using Result = typename Returned::value_type;
    Returned slot = queue.sync(runInner);
    if (slot) return std::move(*slot);
    return velto::detail::missingSyncResult<Result>(
        VELTO_SITE(kDispatchQueueViaFile, "sync(via:fileName:functionName:lineNumber:execute:)"));
  }
}
