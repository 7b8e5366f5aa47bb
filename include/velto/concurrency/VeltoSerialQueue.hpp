// VeltoSerialQueue: a serial dispatch queue that knows whether the current code runs on it, and
// submits work with the call trail, reporting asynchronous failures to its logger.
//
//   auto queue = VeltoSerialQueue::create("com.example.store", logger, VeltoQualityOfService::utility);
//   queue->async([] { tidyUp(); });                                          // bare work
//   queue->async(via, [&](const auto& via) { return store(item, via); });    // failure -> logger
//   VeltoResult<int> n = queue->sync(via, [&](const auto& via) { return count(via); });
//   VeltoResult<void> onQueue = queue->ensureOnQueue();                      // in internal methods
#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "velto/concurrency/VeltoDispatchQueueVia.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/ResultTraits.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"
#include "velto/dispatch/VeltoQualityOfService.hpp"

namespace velto::detail {
inline constexpr char kSerialQueueFile[] = "VeltoSerialQueue";
}  // namespace velto::detail

/// Confines state to one serial VeltoDispatchQueue of its own. Owns the queue and its logger
/// strongly; held by `std::shared_ptr` (`create`). Costs one small queue object, no thread.
///
/// Ordering: one item at a time, in submission order, whatever the mix of `async` and `sync`.
/// `async` never runs work inline, even from the queue itself; `sync` runs it on the calling
/// thread (at once when the queue is idle, else after the work before it).
/// Lifetime: work still pending when the last holder lets go still runs, in order; submitted
/// work keeps what it captured (the trail, the logger) alive until it has run.
/// Deadlocks: `sync` onto this queue from work running on it would deadlock; it is detected and
/// stops the program with one line. Call `ensureOffQueue()` first where that can happen. Other
/// `sync` deadlocks (two queues `sync`ing onto each other) are the caller's to avoid; see
/// VeltoDispatchQueue.
/// Identity: each instance is its own queue, whatever its label.
/// Thread safety: every operation may be called from any thread, concurrently.
class VeltoSerialQueue {
 public:
  using Via = std::shared_ptr<const VeltoVia>;

  /// A new queue with `label` (diagnostics only) and `qualityOfService`, reporting failures of
  /// asynchronous work to `logger`. REQUIRES: `logger` is not null (fatal stop otherwise).
  VeltoSerialQueue(std::string label, std::shared_ptr<VeltoLogging> logger,
                   VeltoQualityOfService qualityOfService = VeltoQualityOfService::default_);
  VeltoSerialQueue(const VeltoSerialQueue&) = delete;
  VeltoSerialQueue& operator=(const VeltoSerialQueue&) = delete;

  [[nodiscard]] static std::shared_ptr<VeltoSerialQueue> create(
      std::string label, std::shared_ptr<VeltoLogging> logger,
      VeltoQualityOfService qualityOfService = VeltoQualityOfService::default_) {
    return std::make_shared<VeltoSerialQueue>(std::move(label), std::move(logger), qualityOfService);
  }

  [[nodiscard]] const std::string& label() const noexcept { return queue_->label(); }
  [[nodiscard]] const std::shared_ptr<VeltoLogging>& logger() const noexcept { return logger_; }
  [[nodiscard]] VeltoQualityOfService qualityOfService() const noexcept { return queue_->qualityOfService(); }

  /// Submits `execute` as it is; it runs later on the queue, never inline.
  void async(VeltoDispatchQueue::Work execute) { queue_->async(std::move(execute)); }

  /// Submits `execute` with the trail: `via` is forked ("async(via:execute:)", no invoker site)
  /// and handed to the queue's trail-keeping `async` (see VeltoDispatchQueueVia.hpp) with this
  /// queue's logger; a failure of `execute` goes to the logger with the trail as dispatch root.
  /// `execute` takes nothing or the trail and returns VeltoResult<void>.
  /// REQUIRES: `via` is not null (fatal stop otherwise).
  template <class F>
    requires velto::detail::AsyncResultWork<F>
  void async(Via via, F&& execute) {
    ::async(*queue_, logger_, forkForAsync(std::move(via)), std::forward<F>(execute), asyncSite());
  }

  /// As `async(fork(via, {}, invokerSite, forkSite), execute)`, with every fork of the trail made
  /// on this queue when the work runs instead of on the calling thread. The trail `execute`
  /// receives, and a failure's report, are the same frame for frame; the caller pays for one
  /// queued item only, and the junctions are made and released by the queue's thread. Meant for
  /// components whose begin operations hop onto their own queue (a bus publishing events).
  /// REQUIRES: `via` is not null (fatal stop on the calling thread otherwise).
  template <class F>
    requires velto::detail::AsyncResultWork<F>
  void asyncForking(Via via, std::optional<VeltoCodeSite> invokerSite, VeltoCodeSite forkSite, F&& execute) {
    if (!via) velto::detail::fatalStop("fork: the trail to fork is null");
    queue_->async([via = std::move(via), invokerSite, forkSite, logger = logger_,
                   work = std::forward<F>(execute)]() mutable {
      const Via junction =
          velto::detail::asyncJunction(forkForAsync(fork(std::move(via), {}, invokerSite, forkSite)), asyncSite());
      velto::detail::runAsyncWork(work, junction, *logger);
    });
  }

  /// Runs `execute` on the calling thread as this queue's item and returns what it returns. A
  /// closure returning VeltoResult<T> (or an optional of one) takes the overload below.
  template <class F>
    requires std::invocable<F&> && (!velto::detail::isVeltoResult<std::invoke_result_t<F&>>) &&
             (!velto::detail::isOptionalVeltoResult<std::invoke_result_t<F&>>)
  std::invoke_result_t<F&> sync(F&& execute) {
    return queue_->sync(execute);
  }

  /// Runs `execute` through the queue's result-keeping `sync`; a failure comes back with one
  /// frame "sync(execute:)" added (file "VeltoSerialQueue"). An empty optional result is the
  /// failure "sync closure did not specify a result".
  template <class F>
    requires std::invocable<F&> && (velto::detail::isVeltoResult<std::invoke_result_t<F&>> ||
                                    velto::detail::isOptionalVeltoResult<std::invoke_result_t<F&>>)
  [[nodiscard]] auto sync(F&& execute) {
    auto result = ::sync(*queue_, execute);
    if (result.isFailure()) {
      return decltype(result)::fromError(result.error(), {},
                                         VELTO_SITE(velto::detail::kSerialQueueFile, "sync(execute:)"));
    }
    return result;
  }

  /// Runs `execute` synchronously with the trail: `via` is forked ("sync(via:execute:)") and handed
  /// to the queue's trail-keeping `sync`; a failure comes back with one frame "sync(via:execute:)".
  /// REQUIRES: `via` is not null (fatal stop otherwise).
  template <class F>
    requires std::invocable<F&, const Via&> &&
             (velto::detail::isVeltoResult<std::invoke_result_t<F&, const Via&>> ||
              velto::detail::isOptionalVeltoResult<std::invoke_result_t<F&, const Via&>>)
  [[nodiscard]] auto sync(Via via, F&& execute) {
    using velto::detail::kSerialQueueFile;
    Via junction = fork(std::move(via), {}, std::nullopt, VELTO_SITE(kSerialQueueFile, "sync(via:execute:)"));
    auto result = ::sync(*queue_, std::move(junction), execute, VELTO_SITE(kSerialQueueFile, "sync(via:execute:)"));
    if (result.isFailure()) {
      return decltype(result)::fromError(result.error(), {}, VELTO_SITE(kSerialQueueFile, "sync(via:execute:)"));
    }
    return result;
  }

  /// Success when the calling code runs on this queue (innermost `sync` included); otherwise the
  /// failure "should be on serial queue".
  [[nodiscard]] VeltoResult<void> ensureOnQueue() const;

  /// Success when the calling code does not run on this queue; otherwise the failure "should NOT
  /// be on serial queue".
  [[nodiscard]] VeltoResult<void> ensureOffQueue() const;

  /// Calls `body` with the underlying queue and returns what it returns.
  template <class F>
    requires std::invocable<F&, VeltoDispatchQueue&>
  decltype(auto) withDispatchQueue(F&& body) const {
    return body(*queue_);
  }

 private:
  // The frame `async(via:execute:)` adds before handing the trail to the trail-keeping `async`.
  static VeltoCodeSite asyncSite() noexcept { return VELTO_SITE(velto::detail::kSerialQueueFile, "async(via:execute:)"); }
  static Via forkForAsync(Via via) { return fork(std::move(via), {}, std::nullopt, asyncSite()); }

  std::shared_ptr<VeltoLogging> logger_;
  std::shared_ptr<VeltoDispatchQueue> queue_;
};
