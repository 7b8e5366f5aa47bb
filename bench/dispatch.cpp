// Dispatch and locking against their usual C++ stand-ins: Boost.Asio strands on a 2-thread
// thread_pool, and std::mutex. Ratios are subject time / anchor time (lower favours Velto).
#include <benchmark/benchmark.h>

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>

#include <malloc.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <velto/concurrency/VeltoSerialQueue.hpp>
#include <velto/concurrency/VeltoUnfairLock.hpp>

#include "support/BenchMain.hpp"

namespace {

namespace asio = boost::asio;

class NullLogger final : public VeltoLogging {
  void logError(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
  void logWarning(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
};

asio::thread_pool& asioPool() {
  static asio::thread_pool pool(2);
  return pool;
}

constexpr int kClosures = 1'000'000;

// Throughput of one producer posting empty closures onto one serial queue; the time includes
// waiting for the last closure to run.
void BM_VeltoSerialQueueAsync(benchmark::State& state) {
  auto queue = VeltoDispatchQueue::createSerial("bench.async");
  for (auto _ : state) {
    for (int i = 0; i < kClosures; ++i) queue->async([] {});
    queue->sync([] {});
  }
  state.SetItemsProcessed(state.iterations() * kClosures);
}
BENCHMARK(BM_VeltoSerialQueueAsync)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();

void BM_AsioStrandAsync(benchmark::State& state) {
  auto strand = asio::make_strand(asioPool());
  for (auto _ : state) {
    for (int i = 0; i < kClosures; ++i) asio::post(strand, [] {});
    std::promise<void> done;
    asio::post(strand, [&] { done.set_value(); });
    done.get_future().wait();
  }
  state.SetItemsProcessed(state.iterations() * kClosures);
}
BENCHMARK(BM_AsioStrandAsync)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();
VELTO_BENCH_RATIO(BM_VeltoSerialQueueAsync, BM_AsioStrandAsync, "1,000,000 async closures, one producer (target <= 0.5)");

// The simplest serial executor: one dedicated thread over a mutex, a condition variable and a
// deque. A reference point only: it costs a thread per queue.
class MutexDequeWorker {
 public:
  MutexDequeWorker() : thread_([this] { run(); }) {}
  ~MutexDequeWorker() {
    post(nullptr);
    thread_.join();
  }
  void post(std::function<void()> work) {
    {
      std::lock_guard guard(mutex_);
      items_.push_back(std::move(work));
    }
    ready_.notify_one();
  }

 private:
  void run() {
    for (;;) {
      std::unique_lock guard(mutex_);
      ready_.wait(guard, [this] { return !items_.empty(); });
      std::function<void()> work = std::move(items_.front());
      items_.pop_front();
      guard.unlock();
      if (!work) return;
      work();
    }
  }
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> items_;
  std::thread thread_;
};

void BM_MutexDequeWorkerAsync(benchmark::State& state) {
  MutexDequeWorker worker;
  for (auto _ : state) {
    for (int i = 0; i < kClosures; ++i) worker.post([] {});
    std::promise<void> done;
    worker.post([&] { done.set_value(); });
    done.get_future().wait();
  }
  state.SetItemsProcessed(state.iterations() * kClosures);
}
BENCHMARK(BM_MutexDequeWorkerAsync)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();
VELTO_BENCH_RATIO(BM_VeltoSerialQueueAsync, BM_MutexDequeWorkerAsync, "async vs a thread-per-queue mutex+deque worker (report)");

// A synchronous round trip onto an idle queue: Velto runs it inline on the caller.
void BM_VeltoSerialQueueSync(benchmark::State& state) {
  auto queue = VeltoDispatchQueue::createSerial("bench.sync");
  int value = 0;
  for (auto _ : state) {
    queue->sync([&] { ++value; });
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_VeltoSerialQueueSync)->Repetitions(5);

void BM_AsioStrandSyncPromise(benchmark::State& state) {
  auto strand = asio::make_strand(asioPool());
  int value = 0;
  for (auto _ : state) {
    std::promise<void> done;
    asio::post(strand, [&] {
      ++value;
      done.set_value();
    });
    done.get_future().wait();
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_AsioStrandSyncPromise)->Repetitions(5);

void BM_StdMutexLockUnlock(benchmark::State& state) {
  std::mutex mutex;
  int value = 0;
  for (auto _ : state) {
    std::lock_guard guard(mutex);
    ++value;
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_StdMutexLockUnlock)->Repetitions(5);
VELTO_BENCH_RATIO(BM_VeltoSerialQueueSync, BM_AsioStrandSyncPromise, "sync round trip, idle queue (target <= 0.01)");
VELTO_BENCH_RATIO(BM_VeltoSerialQueueSync, BM_StdMutexLockUnlock, "sync round trip vs bare lock/unlock (report)");

// A hop from work on one serial queue onto another: `a`'s work (inline, `a` is idle) syncs onto
// `b`. Idle: nobody else uses `b`. Contended: two threads keep up to 64 closures each posted to
// `b`, so the hop usually waits for `b`'s earlier work.
class Posters {
 public:
  template <class Post>
  explicit Posters(Post post) {
    for (int i = 0; i < 2; ++i) {
      threads_.emplace_back([this, post] {
        while (!stop_.load(std::memory_order_relaxed)) {
          if (inFlight_.load(std::memory_order_relaxed) >= 128) {
            std::this_thread::yield();
            continue;
          }
          inFlight_.fetch_add(1, std::memory_order_relaxed);
          post([this] { inFlight_.fetch_sub(1, std::memory_order_relaxed); });
        }
      });
    }
  }
  ~Posters() {
    stop_ = true;
    for (auto& thread : threads_) thread.join();
    while (inFlight_.load() != 0) std::this_thread::yield();
  }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<int> inFlight_{0};
  std::vector<std::thread> threads_;
};

void BM_VeltoSyncHopIdle(benchmark::State& state) {
  auto a = VeltoDispatchQueue::createSerial("bench.hop.a");
  auto b = VeltoDispatchQueue::createSerial("bench.hop.b");
  int value = 0;
  for (auto _ : state) {
    a->sync([&] { b->sync([&] { ++value; }); });
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_VeltoSyncHopIdle)->Repetitions(5);

// The strand version must post and wait: a strand cannot run a handler on the caller's thread.
void asioHop(asio::strand<asio::thread_pool::executor_type>& a, asio::strand<asio::thread_pool::executor_type>& b,
             int& value) {
  std::promise<void> done;
  asio::post(a, [&] {
    std::promise<void> inner;
    asio::post(b, [&] {
      ++value;
      inner.set_value();
    });
    inner.get_future().wait();
    done.set_value();
  });
  done.get_future().wait();
}

void BM_AsioStrandHopIdle(benchmark::State& state) {
  auto a = asio::make_strand(asioPool());
  auto b = asio::make_strand(asioPool());
  int value = 0;
  for (auto _ : state) asioHop(a, b, value);
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_AsioStrandHopIdle)->Repetitions(5)->UseRealTime();
VELTO_BENCH_RATIO(BM_VeltoSyncHopIdle, BM_AsioStrandHopIdle, "sync hop queue to queue, idle (report)");

void BM_VeltoSyncHopContended(benchmark::State& state) {
  auto a = VeltoDispatchQueue::createSerial("bench.hop.a");
  auto b = VeltoDispatchQueue::createSerial("bench.hop.b");
  int value = 0;
  {
    Posters posters([&](std::function<void()> work) { b->async(std::move(work)); });
    for (auto _ : state) {
      a->sync([&] { b->sync([&] { ++value; }); });
    }
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_VeltoSyncHopContended)->Repetitions(5)->UseRealTime();

void BM_AsioStrandHopContended(benchmark::State& state) {
  auto a = asio::make_strand(asioPool());
  auto b = asio::make_strand(asioPool());
  int value = 0;
  {
    Posters posters([&](std::function<void()> work) { asio::post(b, std::move(work)); });
    for (auto _ : state) asioHop(a, b, value);
  }
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_AsioStrandHopContended)->Repetitions(5)->UseRealTime();
VELTO_BENCH_RATIO(BM_VeltoSyncHopContended, BM_AsioStrandHopContended,
                  "sync hop queue to queue, two threads posting to the target (report)");

// The lock around a one-increment section, alone and with two threads fighting for it.
VeltoUnfairLock unfairLock;
std::mutex stdMutex;
long unfairCounter = 0;
long mutexCounter = 0;

void BM_VeltoUnfairLockUncontended(benchmark::State& state) {
  VeltoUnfairLock lock;
  long counter = 0;
  for (auto _ : state) lock.protected_([&] { ++counter; });
  benchmark::DoNotOptimize(counter);
}
BENCHMARK(BM_VeltoUnfairLockUncontended)->Repetitions(5);

void BM_StdMutexUncontended(benchmark::State& state) {
  std::mutex mutex;
  long counter = 0;
  for (auto _ : state) {
    std::lock_guard guard(mutex);
    ++counter;
  }
  benchmark::DoNotOptimize(counter);
}
BENCHMARK(BM_StdMutexUncontended)->Repetitions(5);
VELTO_BENCH_RATIO(BM_VeltoUnfairLockUncontended, BM_StdMutexUncontended, "uncontended (target <= 1.0)");

void BM_VeltoUnfairLockContended(benchmark::State& state) {
  for (auto _ : state) unfairLock.protected_([] { ++unfairCounter; });
}
BENCHMARK(BM_VeltoUnfairLockContended)->Threads(2)->UseRealTime()->Repetitions(5);

void BM_StdMutexContended(benchmark::State& state) {
  for (auto _ : state) {
    std::lock_guard guard(stdMutex);
    ++mutexCounter;
  }
}
BENCHMARK(BM_StdMutexContended)->Threads(2)->UseRealTime()->Repetitions(5);
VELTO_BENCH_RATIO(BM_VeltoUnfairLockContended, BM_StdMutexContended, "2 contending threads (target <= 0.77, i.e. >= 1.3x)");

long threadCount() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Threads:", 0) == 0) return std::stol(line.substr(8));
  }
  return -1;
}

constexpr int kIdleQueues = 10'000;

// 10,000 live serial queues, each used once and then idle: threads in the process and heap
// bytes per idle queue (wrapper, dispatch queue and label) as counters.
void BM_VeltoSerialQueueIdle10k(benchmark::State& state) {
  auto logger = std::make_shared<NullLogger>();
  VeltoDispatchQueue::global()->sync([] {});  // the pool is up before counting
  double bytesPerQueue = 0;
  long threadsAdded = 0;
  long threads = 0;
  for (auto _ : state) {
    const long threadsBefore = threadCount();
    const std::size_t heapBefore = mallinfo2().uordblks;
    std::vector<std::shared_ptr<VeltoSerialQueue>> queues;
    queues.reserve(kIdleQueues);
    const std::size_t heapVector = mallinfo2().uordblks;
    for (int i = 0; i < kIdleQueues; ++i) {
      queues.push_back(VeltoSerialQueue::create("com.velto.bench.idle-queue", logger));
      queues.back()->async([] {});
    }
    for (auto& queue : queues) queue->sync([] {});
    bytesPerQueue = static_cast<double>(mallinfo2().uordblks - heapVector) / kIdleQueues;
    threads = threadCount();
    threadsAdded = threads - threadsBefore;
    benchmark::DoNotOptimize(heapBefore);
  }
  state.counters["bytesPerIdleQueue"] = bytesPerQueue;
  state.counters["threadsAdded"] = static_cast<double>(threadsAdded);
  state.counters["processThreads"] = static_cast<double>(threads);
  state.counters["veltoPoolThreads"] = static_cast<double>(std::max(2u, std::thread::hardware_concurrency()));
}
BENCHMARK(BM_VeltoSerialQueueIdle10k)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);

void BM_AsioStrandIdle10k(benchmark::State& state) {
  double bytesPerStrand = 0;
  for (auto _ : state) {
    using Strand = asio::strand<asio::thread_pool::executor_type>;
    std::vector<Strand> strands;
    strands.reserve(kIdleQueues);
    const std::size_t heapVector = mallinfo2().uordblks;
    for (int i = 0; i < kIdleQueues; ++i) {
      strands.push_back(asio::make_strand(asioPool()));
      asio::post(strands.back(), [] {});
    }
    for (auto& strand : strands) {
      std::promise<void> done;
      asio::post(strand, [&] { done.set_value(); });
      done.get_future().wait();
    }
    bytesPerStrand = static_cast<double>(mallinfo2().uordblks - heapVector) / kIdleQueues;
  }
  state.counters["bytesPerIdleStrand"] = bytesPerStrand;
}
BENCHMARK(BM_AsioStrandIdle10k)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);
VELTO_BENCH_RATIO(BM_VeltoSerialQueueIdle10k, BM_AsioStrandIdle10k,
                  "10,000 queues used once (report; memory and threads in the counters: < 1024 bytes, +0 threads)");

}  // namespace
