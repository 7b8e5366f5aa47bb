#include "velto/detail/MainThread.hpp"

#include <atomic>
#include <thread>

namespace velto::detail {
namespace {

// Static initialisation runs on the process's initial thread before main().
std::atomic<std::thread::id> mainThreadId{std::this_thread::get_id()};

}  // namespace

bool isMainThread() noexcept { return mainThreadId.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

void setMainThreadToCurrent() noexcept { mainThreadId.store(std::this_thread::get_id(), std::memory_order_relaxed); }

}  // namespace velto::detail
