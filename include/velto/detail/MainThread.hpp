// The main-thread test below the dispatch layer: the process's initial thread (the same rule as
// VeltoMainQueue::isMainThread, which the dispatch layer offers publicly).
#pragma once

namespace velto::detail {

/// True on the process's initial thread. Thread-safe, wait-free after the first call per thread.
[[nodiscard]] bool isMainThread() noexcept;

}  // namespace velto::detail
