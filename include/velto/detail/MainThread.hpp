// The main-thread test, below the dispatch layer so that the debug encoder and the fallback
// logger share it: the process's initial thread, unless the host adopted another one
// (VeltoMainQueue::adoptCurrentThreadAsMain, which is the public face of both calls).
#pragma once

namespace velto::detail {

/// True on the main thread. Thread-safe.
[[nodiscard]] bool isMainThread() noexcept;

/// Makes the calling thread the main thread from now on.
void adoptCurrentThreadAsMain() noexcept;

}  // namespace velto::detail
