#include "velto/concurrency/VeltoDispatchGroupResult.hpp"

#include "velto/concurrency/VeltoDispatchQueueVia.hpp"

namespace {
constexpr char kFile[] = "DispatchGroup+Result";
}  // namespace

VeltoResult<void> wait(VeltoDispatchGroup& group, std::optional<double> timeout) {
  if (!timeout) {
    group.wait();
    return VeltoResultVoidSuccess;
  }
  if (group.waitUntil(velto::detail::deadlineAfterSeconds(*timeout))) return VeltoResultVoidSuccess;
  return VeltoResult<void>::failure(
      VeltoError("Dispatch Group timed out", {{"timeout", *timeout}}, nullptr, VELTO_SITE(kFile, "wait(timeout:)")));
}
