// Boost.Asio fences its handlers with std::atomic_thread_fence, which g++ flags under
// ThreadSanitizer (-Wtsan); the pool's real synchronisation is its mutex, which TSan sees. The
// pragma must precede every include to cover <atomic>.
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif

#include "velto/dispatch/VeltoDispatchQueue.hpp"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <thread>

#include "dispatch/DispatchInternals.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/dispatch/VeltoMainQueue.hpp"

namespace velto::detail {
namespace {

constexpr std::string_view kLockOwner = "VeltoDispatchQueue";
// Items a pool drain runs before it yields its thread to other queues.
constexpr std::size_t kPoolDrainBudget = 1024;

// Work submitted to a global queue: runs on the pool with the queue marked as current.
class ConcurrentDispatchQueue final : public VeltoDispatchQueue {
 public:
  ConcurrentDispatchQueue(std::string label, VeltoQualityOfService qualityOfService)
      : VeltoDispatchQueue(std::move(label), qualityOfService, false) {}

 private:
  void submit(Work work) override {
    boost::asio::post(workerPool(), [this, work = std::move(work)]() mutable {
      QueueFrameScope frame(this);  // global queues are immortal: `this` never dangles
      try {
        Work(std::move(work))();
      } catch (...) {
        stopOnEscapedException(*this);
      }
    });
  }
  void runSync(WorkRef work) override {
    QueueFrameScope frame(this);
    work();
  }
};

}  // namespace

boost::asio::thread_pool& workerPool() {
  static auto* pool = new boost::asio::thread_pool(std::max(2u, std::thread::hardware_concurrency()));
  return *pool;
}

const QueueFrame*& currentQueueFrame() noexcept {
  static thread_local const QueueFrame* frame = nullptr;
  return frame;
}

void stopOnEscapedException(const VeltoDispatchQueue& queue) noexcept {
  fatalStop("an exception escaped work submitted asynchronously to dispatch queue \"" + queue.label() + "\"");
}

// A `sync` caller's place in the line: the drain that reaches it hands the queue over and stops.
// Mutex and condition variable (not an atomic wait) so the waiter may destroy the baton the
// moment it wakes.
struct SerialDispatchQueue::Baton {
  std::mutex mutex;
  std::condition_variable handedOver;
  bool done = false;

  void handOver() {
    std::lock_guard guard(mutex);
    done = true;
    handedOver.notify_one();
  }
  void wait() {
    std::unique_lock guard(mutex);
    handedOver.wait(guard, [this] { return done; });
  }
};

SerialDispatchQueue::SerialDispatchQueue(std::string label, VeltoQualityOfService qualityOfService, bool isMain)
    : VeltoDispatchQueue(std::move(label), qualityOfService, true), isMain_(isMain) {}

void SerialDispatchQueue::submit(Work work) {
  bool start = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    pending_.push_back(Item{std::move(work)});
    start = !owned_;
    owned_ = true;
  }
  if (start) schedule();
}

void SerialDispatchQueue::schedule() {
  if (isMain_) {
    MainLoop::shared().signal(true);
    return;
  }
  boost::asio::post(workerPool(), [self = std::static_pointer_cast<SerialDispatchQueue>(shared_from_this())] {
    self->drain(kPoolDrainBudget);
  });
}

void SerialDispatchQueue::drain(std::size_t budget) {
  QueueFrameScope frame(this);
  std::size_t ran = 0;
  try {
    for (;;) {
      {
        FutexLockGuard guard(lock_, kLockOwner);
        if (pending_.empty()) {
          owned_ = false;
          break;
        }
        if (ran < budget) std::swap(pending_, batch_);
      }
      if (batch_.empty()) {  // budget spent: let other queues have the thread
        schedule();
        return;
      }
      for (std::size_t i = 0; i < batch_.size(); ++i) {
        if (Baton* baton = batch_[i].baton) {
          // Items behind the waiting `sync` go back to the front of the line, then the queue
          // passes to the waiting thread, which lets go (or reschedules) when it is done.
          {
            FutexLockGuard guard(lock_, kLockOwner);
            pending_.insert(pending_.begin(), std::make_move_iterator(batch_.begin() + static_cast<std::ptrdiff_t>(i) + 1),
                            std::make_move_iterator(batch_.end()));
          }
          batch_.clear();
          baton->handOver();
          return;
        }
        Work(std::move(batch_[i].work))();  // the closure and its captures die right after it runs
      }
      ran += batch_.size();
      batch_.clear();
    }
  } catch (...) {
    stopOnEscapedException(*this);
  }
  if (isMain_) MainLoop::shared().signal(false);
}

void SerialDispatchQueue::release() {
  bool more = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    more = !pending_.empty();
    if (!more) owned_ = false;
  }
  if (more) {
    schedule();
  } else if (isMain_) {
    MainLoop::shared().signal(false);
  }
}

void SerialDispatchQueue::acquireAsMainThread() {
  // The main thread is the main queue's only drainer, so waiting for a drain it should run
  // itself would hang: it drains until the queue is free instead.
  MainLoop& loop = MainLoop::shared();
  for (;;) {
    std::uint64_t seen = 0;
    {
      std::lock_guard guard(loop.mutex);
      seen = loop.signals;
    }
    {
      FutexLockGuard guard(lock_, kLockOwner);
      if (!owned_) {
        owned_ = true;
        return;
      }
    }
    if (VeltoMainQueue::drainPending()) continue;
    std::unique_lock guard(loop.mutex);
    loop.changed.wait(guard, [&] { return loop.signals != seen; });
  }
}

void SerialDispatchQueue::runSync(WorkRef work) {
  for (const QueueFrame* frame = currentQueueFrame(); frame; frame = frame->outer) {
    if (frame->queue == this) {
      fatalStop("sync onto serial queue \"" + label() + "\" from work running on it would deadlock");
    }
  }
  if (isMain_ && VeltoMainQueue::isMainThread()) {
    acquireAsMainThread();
  } else {
    Baton baton;
    bool idle = false;
    {
      FutexLockGuard guard(lock_, kLockOwner);
      idle = !owned_;
      if (idle) {
        owned_ = true;
      } else {
        pending_.push_back(Item{nullptr, &baton});
      }
    }
    if (!idle) baton.wait();
  }
  struct Release {
    SerialDispatchQueue* queue;
    ~Release() { queue->release(); }
  } releaseOnExit{this};
  QueueFrameScope frame(this);
  work();
}

MainLoop& MainLoop::shared() {
  static auto* loop = new MainLoop();
  return *loop;
}

void MainLoop::signal(bool scheduleDrain) {
  {
    std::lock_guard guard(mutex);
    if (scheduleDrain) drainScheduled = true;
    ++signals;
  }
  changed.notify_all();
}

SerialDispatchQueue& mainSerialQueue() {
  return static_cast<SerialDispatchQueue&>(*VeltoDispatchQueue::main());
}

}  // namespace velto::detail

VeltoDispatchQueue::VeltoDispatchQueue(std::string label, VeltoQualityOfService qualityOfService, bool serial)
    : label_(std::move(label)), qualityOfService_(qualityOfService), serial_(serial) {}

VeltoDispatchQueue::~VeltoDispatchQueue() = default;

std::shared_ptr<VeltoDispatchQueue> VeltoDispatchQueue::createSerial(std::string label,
                                                                     VeltoQualityOfService qualityOfService) {
  return std::make_shared<velto::detail::SerialDispatchQueue>(std::move(label), qualityOfService, false);
}

const std::shared_ptr<VeltoDispatchQueue>& VeltoDispatchQueue::global(VeltoQualityOfService qualityOfService) {
  using velto::detail::ConcurrentDispatchQueue;
  static const auto* queues = new std::array<std::shared_ptr<VeltoDispatchQueue>, 6>{
      std::make_shared<ConcurrentDispatchQueue>("velto.global.user-interactive", VeltoQualityOfService::userInteractive),
      std::make_shared<ConcurrentDispatchQueue>("velto.global.user-initiated", VeltoQualityOfService::userInitiated),
      std::make_shared<ConcurrentDispatchQueue>("velto.global.default", VeltoQualityOfService::default_),
      std::make_shared<ConcurrentDispatchQueue>("velto.global.utility", VeltoQualityOfService::utility),
      std::make_shared<ConcurrentDispatchQueue>("velto.global.background", VeltoQualityOfService::background),
      std::make_shared<ConcurrentDispatchQueue>("velto.global.unspecified", VeltoQualityOfService::unspecified),
  };
  return (*queues)[static_cast<std::size_t>(qualityOfService)];
}

const std::shared_ptr<VeltoDispatchQueue>& VeltoDispatchQueue::main() {
  static const auto* queue = new std::shared_ptr<VeltoDispatchQueue>(
      std::make_shared<velto::detail::SerialDispatchQueue>("velto.main", VeltoQualityOfService::userInteractive, true));
  return *queue;
}

const VeltoDispatchQueue* VeltoDispatchQueue::current() noexcept {
  const velto::detail::QueueFrame* frame = velto::detail::currentQueueFrame();
  return frame ? frame->queue : nullptr;
}

void VeltoDispatchQueue::asyncAfter(std::chrono::steady_clock::time_point deadline, Work work) {
  auto timer = std::make_shared<boost::asio::steady_timer>(velto::detail::workerPool(), deadline);
  timer->async_wait([timer, self = shared_from_this(), work = std::move(work)](const boost::system::error_code&) mutable {
    self->async(std::move(work));
  });
}
