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
#include <exception>
#include <limits>
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

// A `sync` caller's place in the line. On a pool queue it is woken when the queue is handed to it
// (`dequeued` tells whether its own item was already taken off the line); on the main queue the
// main thread runs `remoteWork` for it and wakes it when that is done. Mutex and condition
// variable (not an atomic wait) so the waiter may destroy it the moment it wakes.
struct SerialDispatchQueue::Waiter {
  const WorkRef* remoteWork = nullptr;
  std::exception_ptr error;  // thrown by `remoteWork`
  std::mutex mutex;
  std::condition_variable woken;
  bool ready = false;
  bool dequeued = false;

  void wake(bool itemDequeued) {
    std::lock_guard guard(mutex);
    ready = true;
    dequeued = itemDequeued;
    woken.notify_one();  // under the mutex: the waiter cannot vanish before this returns
  }
  // Returns whether the waiter's item was already taken off the line.
  bool wait() {
    std::unique_lock guard(mutex);
    woken.wait(guard, [this] { return ready; });
    ready = false;
    return dequeued;
  }
};

SerialDispatchQueue::SerialDispatchQueue(std::string label, VeltoQualityOfService qualityOfService, bool isMain)
    : VeltoDispatchQueue(std::move(label), qualityOfService, true), isMain_(isMain) {}

void SerialDispatchQueue::submit(Work work) {
  bool start = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    pending_.push_back(Item{std::move(work)});
    start = state_ == State::idle;
    if (start) state_ = State::scheduled;
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
  {
    FutexLockGuard guard(lock_, kLockOwner);
    if (state_ != State::scheduled) return;  // a `sync` caller claimed it since it was scheduled
    state_ = State::running;
  }
  if (runOwned(nullptr, budget) == Stop::letGo && isMain_) MainLoop::shared().signal(false);
}

SerialDispatchQueue::Stop SerialDispatchQueue::runOwned(const Waiter* self, std::size_t budget) {
  QueueFrameScope frame(this);
  std::size_t ran = 0;
  try {
    for (;;) {
      {
        FutexLockGuard guard(lock_, kLockOwner);
        if (pending_.empty()) {  // never for a waiter: its own item is still in line
          state_ = State::idle;
          return Stop::letGo;
        }
        if (ran < budget) std::swap(pending_, batch_);
      }
      if (batch_.empty()) {  // budget spent: let other queues have the thread
        release();
        return Stop::letGo;
      }
      for (std::size_t i = 0; i < batch_.size(); ++i) {
        Waiter* waiter = batch_[i].waiter;
        if (!waiter) {
          Work(std::move(batch_[i].work))();  // the closure and its captures die right after it runs
          continue;
        }
        if (waiter->remoteWork) {  // main queue: the main thread runs a sync caller's work for it
          try {
            (*waiter->remoteWork)();
          } catch (...) {
            waiter->error = std::current_exception();
          }
          waiter->wake(true);
          continue;
        }
        // A waiting `sync` caller's turn: the items behind it go back to the front of the line and
        // the queue passes to it; it lets go (or passes the queue on) when its work is done.
        {
          FutexLockGuard guard(lock_, kLockOwner);
          --waiters_;
          pending_.insert(pending_.begin(), std::make_move_iterator(batch_.begin() + static_cast<std::ptrdiff_t>(i) + 1),
                          std::make_move_iterator(batch_.end()));
        }
        batch_.clear();
        if (waiter == self) return Stop::ownTurn;
        waiter->wake(true);
        return Stop::handedOver;
      }
      ran += batch_.size();
      batch_.clear();
    }
  } catch (...) {
    stopOnEscapedException(*this);
  }
}

void SerialDispatchQueue::release() {
  Waiter* next = nullptr;
  bool dequeued = false;
  bool scheduleAgain = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    if (pending_.empty()) {
      state_ = State::idle;
    } else if (waiters_ > 0) {
      // The queue stays running and goes to the first waiter, which runs the work ahead of it:
      // a thread blocked in `sync` must never wait for a free pool thread.
      auto first = std::find_if(pending_.begin(), pending_.end(), [](const Item& item) { return item.waiter; });
      next = first->waiter;
      if (first == pending_.begin()) {
        pending_.erase(first);
        --waiters_;
        dequeued = true;
      }
    } else {
      state_ = State::scheduled;
      scheduleAgain = true;
    }
  }
  if (next) {
    next->wake(dequeued);
  } else if (scheduleAgain) {
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
      if (state_ == State::idle) {
        state_ = State::running;
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
  if (!isMain_) {
    runSyncFromOtherThread(work);
  } else if (VeltoMainQueue::isMainThread()) {
    runSyncOnMainThread(work);
  } else {
    // Main-queue work runs on the main thread only: this thread waits while the main thread's
    // drain runs `work` in its turn.
    Waiter waiter;
    waiter.remoteWork = &work;
    bool start = false;
    {
      FutexLockGuard guard(lock_, kLockOwner);
      pending_.push_back(Item{nullptr, &waiter});
      start = state_ == State::idle;
      if (start) state_ = State::scheduled;
    }
    if (start) schedule();
    (void)waiter.wait();
    if (waiter.error) std::rethrow_exception(waiter.error);
  }
}

void SerialDispatchQueue::runSyncOnMainThread(WorkRef work) {
  acquireAsMainThread();
  struct Release {
    SerialDispatchQueue* queue;
    ~Release() { queue->release(); }
  } releaseOnExit{this};
  QueueFrameScope frame(this);
  work();
}

void SerialDispatchQueue::runSyncFromOtherThread(WorkRef work) {
  bool idle = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    idle = state_ == State::idle;
    if (idle) state_ = State::running;
  }
  if (!idle) waitForTurn();
  struct Release {
    SerialDispatchQueue* queue;
    ~Release() { queue->release(); }
  } releaseOnExit{this};
  QueueFrameScope frame(this);
  work();
}

// Out of line so the idle path of `sync` builds no waiter.
void SerialDispatchQueue::waitForTurn() {
  Waiter waiter;
  bool claimed = false;
  {
    FutexLockGuard guard(lock_, kLockOwner);
    if (state_ == State::idle) {  // let go since the first look
      state_ = State::running;
      return;
    }
    pending_.push_back(Item{nullptr, &waiter});
    ++waiters_;
    // Scheduled means waiting for a pool thread that may never come free (every pool thread
    // may be blocked in `sync` like this one): run the work ahead of this call here instead.
    claimed = state_ == State::scheduled;
    if (claimed) state_ = State::running;
  }
  for (;;) {
    if (!claimed && waiter.wait()) return;  // handed over with the item already off the line
    claimed = false;
    if (runOwned(&waiter, std::numeric_limits<std::size_t>::max()) == Stop::ownTurn) return;
  }
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
