// Waiting for a VeltoDispatchGroup with the outcome as a VeltoResult.
//
//   auto waited = wait(*group, 2.0);           // at most two seconds
//   if (!waited) return VeltoResult<void>::fromError(waited.error());
//   (void)wait(*group, std::nullopt);          // as long as it takes
#pragma once

#include <optional>

#include "velto/core/VeltoResult.hpp"
#include "velto/dispatch/VeltoDispatchGroup.hpp"

/// Blocks until `group` is empty; with a `timeout` in seconds, at most until the monotonic clock
/// passes now + timeout. A timed-out wait fails with "Dispatch Group timed out" and the args
/// {"timeout": timeout} (frame "wait(timeout:)", file "DispatchGroup+Result"). A timeout of zero
/// (or NaN, or negative) only tests for emptiness.
[[nodiscard]] VeltoResult<void> wait(VeltoDispatchGroup& group, std::optional<double> timeout);
