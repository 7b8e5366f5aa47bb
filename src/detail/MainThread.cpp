#include "velto/detail/MainThread.hpp"

#include <unistd.h>

namespace velto::detail {

bool isMainThread() noexcept {
  // On Linux the initial thread's id is the process id.
  static thread_local const bool isMain = gettid() == getpid();
  return isMain;
}

}  // namespace velto::detail
