#include "velto/collections/VeltoArrayUtil.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "velto/core/VeltoStackFrame.hpp"
#include "velto/dispatch/VeltoDispatchGroup.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"

namespace velto::detail {
namespace {

// What the calling thread and its helpers share. Helpers hold it by shared_ptr because one may
// start after the call has returned; by then every partition is claimed (or the run stopped),
// so such a helper only touches the counters, never the caller's work.
struct PartitionRun {
  PartitionRun(std::size_t count, PartitionWorkRef partitionWork) : partitionCount(count), work(partitionWork) {}

  const std::size_t partitionCount;
  const PartitionWorkRef work;
  std::atomic<std::size_t> next{0};
  std::atomic<bool> stopped{false};
  // Counts the threads between entering (before a claim) and leaving (after the claimed
  // partition ran): when it is empty after the caller's own claims ran out, no partition runs.
  VeltoDispatchGroup claims;

  std::mutex outcomeMutex;
  std::optional<std::pair<std::size_t, VeltoError>> failure;
  std::exception_ptr exception;
};

void claimAndRun(PartitionRun& run) {
  while (!run.stopped.load()) {
    run.claims.enter();
    const std::size_t partition = run.next.fetch_add(1);
    // Read after entering: a stop set before the caller's wait ended is seen here.
    if (partition >= run.partitionCount || run.stopped.load()) {
      run.claims.leave();
      return;
    }
    try {
      VeltoResult<void> outcome = run.work(partition);
      if (const VeltoError* error = outcome.errorIfPresent()) {
        std::lock_guard guard(run.outcomeMutex);
        if (!run.failure && !run.exception) run.failure.emplace(partition, *error);
        run.stopped.store(true);
      }
    } catch (...) {
      std::lock_guard guard(run.outcomeMutex);
      if (!run.failure && !run.exception) run.exception = std::current_exception();
      run.stopped.store(true);
    }
    run.claims.leave();
  }
}

}  // namespace

VeltoResult<void> runPartitionedWork(std::size_t partitionCount, VeltoQualityOfService qualityOfService,
                                     PartitionWorkRef work, VeltoCodeSite site) {
  auto run = std::make_shared<PartitionRun>(partitionCount, work);
  // The pool has max(2, hardware threads) threads; more helpers than that would only queue.
  const std::size_t poolThreads = std::max(2u, std::thread::hardware_concurrency());
  const std::size_t helpers = std::min(partitionCount - 1, poolThreads);
  if (helpers > 0) {
    VeltoDispatchQueue& queue = *VeltoDispatchQueue::global(qualityOfService);
    for (std::size_t i = 0; i < helpers; ++i) queue.async([run] { claimAndRun(*run); });
  }
  claimAndRun(*run);
  run->claims.wait();

  std::lock_guard guard(run->outcomeMutex);
  if (run->exception) std::rethrow_exception(run->exception);
  if (run->failure) {
    return VeltoResult<void>::failure(run->failure->second.appending(VeltoStackFrame(
        {{"partition", run->failure->first}, {"partitionCount", partitionCount}}, site,
        VELTO_SITE("Util/VeltoArrayUtil", "parallelPartitionedWork(count:partitionCount:work:)"))));
  }
  return VeltoResultVoidSuccess;
}

}  // namespace velto::detail
