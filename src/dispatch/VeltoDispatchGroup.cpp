#include "velto/dispatch/VeltoDispatchGroup.hpp"

#include "velto/detail/Fatal.hpp"

void VeltoDispatchGroup::enter() {
  std::lock_guard guard(mutex_);
  ++count_;
}

void VeltoDispatchGroup::leave() {
  decltype(notifications_) ready;
  {
    std::lock_guard guard(mutex_);
    if (count_ <= 0) velto::detail::fatalStop("VeltoDispatchGroup: leave() without a matching enter()");
    if (--count_ > 0) return;
    ready.swap(notifications_);
    emptied_.notify_all();
  }
  for (auto& [queue, work] : ready) queue->async(std::move(work));
}

void VeltoDispatchGroup::async(VeltoDispatchQueue& queue, VeltoDispatchQueue::Work work) {
  enter();
  queue.async([this, work = std::move(work)]() mutable {
    VeltoDispatchQueue::Work(std::move(work))();
    leave();
  });
}

void VeltoDispatchGroup::notify(std::shared_ptr<VeltoDispatchQueue> queue, VeltoDispatchQueue::Work work) {
  {
    std::lock_guard guard(mutex_);
    if (count_ > 0) {
      notifications_.emplace_back(std::move(queue), std::move(work));
      return;
    }
  }
  queue->async(std::move(work));
}

void VeltoDispatchGroup::wait() {
  std::unique_lock guard(mutex_);
  emptied_.wait(guard, [this] { return count_ == 0; });
}

bool VeltoDispatchGroup::waitUntil(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock guard(mutex_);
  return emptied_.wait_until(guard, deadline, [this] { return count_ == 0; });
}

std::int64_t VeltoDispatchGroup::count() const {
  std::lock_guard guard(mutex_);
  return count_;
}
