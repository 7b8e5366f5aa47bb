// The main-thread test: the process's initial thread unless the application names another.
#pragma once

namespace velto::detail {

/// True on the thread the library treats as the main thread. Thread-safe, wait-free.
[[nodiscard]] bool isMainThread() noexcept;

/// Makes the calling thread the main thread (for applications whose main loop runs elsewhere).
void setMainThreadToCurrent() noexcept;

}  // namespace velto::detail
