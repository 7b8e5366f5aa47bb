// Helpers for the messaging suites: waiting for a component's queue (recorded args: support/RecordedArgs.hpp).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <velto/concurrency/VeltoSerialQueue.hpp>
#include <velto/core/VeltoAny.hpp>
#include <velto/core/VeltoError.hpp>

#include "support/RecordedArgs.hpp"

namespace velto::test {

/// Returns once everything submitted to `queue` before the call has run. Call it from a thread
/// that is not running work of that queue.
inline void drain(VeltoSerialQueue& queue) {
  queue.sync([] {});
}

}  // namespace velto::test
