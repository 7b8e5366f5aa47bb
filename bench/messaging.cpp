// The event bus and the state machine against what a C++ user would otherwise write: an Asio
// strand that posts each event and loops over a std::vector<std::function>, and Boost.Signals2
// emitting synchronously. Ratios are subject time / anchor time (lower favours Velto).
#include <benchmark/benchmark.h>

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/signals2/signal.hpp>

#include <malloc.h>

#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/messaging/VeltoEventBus.hpp>
#include <velto/messaging/VeltoStateMachine.hpp>

#include "support/BenchMain.hpp"

namespace {

namespace asio = boost::asio;
using Via = std::shared_ptr<const VeltoVia>;

class NullLogger final : public VeltoLogging {
  void logError(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
  void logWarning(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
};

asio::thread_pool& asioPool() {
  static asio::thread_pool pool(2);
  return pool;
}

constexpr int kEvents = 100'000;
struct Observer {
  long sum = 0;
};

// Events published by one thread to N observers; the time runs until the last observer has
// taken the last event (a latch it counts down).
void BM_VeltoEventBusPublish(benchmark::State& state) {
  const auto observerCount = static_cast<int>(state.range(0));
  auto bus = VeltoEventBus<int>::create(std::make_shared<NullLogger>());
  const Via impetus = VeltoImpetus::create("bench");
  std::vector<std::shared_ptr<Observer>> observers;
  std::unique_ptr<std::latch> done;
  for (int i = 0; i < observerCount; ++i) {
    observers.push_back(std::make_shared<Observer>());
    const bool last = i == observerCount - 1;
    bus->beginRegister(observers.back(), [raw = observers.back().get(), last, &done](const int& event, const std::optional<int>&, const Via&) {
      raw->sum += event;
      if (last && event == kEvents - 1) done->count_down();
      return VeltoResultVoidSuccess;
    }, impetus);
  }
  bus->serialQueue()->sync([] {});
  for (auto _ : state) {
    done = std::make_unique<std::latch>(1);
    for (int i = 0; i < kEvents; ++i) bus->beginPublish(i, impetus);
    done->wait();
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_VeltoEventBusPublish)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();

void BM_AsioStrandVectorPublish(benchmark::State& state) {
  const auto observerCount = static_cast<int>(state.range(0));
  auto strand = asio::make_strand(asioPool());
  std::vector<std::shared_ptr<Observer>> observers;
  std::vector<std::function<void(const int&)>> callbacks;
  std::unique_ptr<std::latch> done;
  for (int i = 0; i < observerCount; ++i) {
    observers.push_back(std::make_shared<Observer>());
    const bool last = i == observerCount - 1;
    callbacks.emplace_back([raw = observers.back().get(), last, &done](const int& event) {
      raw->sum += event;
      if (last && event == kEvents - 1) done->count_down();
    });
  }
  for (auto _ : state) {
    done = std::make_unique<std::latch>(1);
    for (int i = 0; i < kEvents; ++i) {
      asio::post(strand, [&callbacks, i] {
        for (auto& callback : callbacks) callback(i);
      });
    }
    done->wait();
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_AsioStrandVectorPublish)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();

// Synchronous emission on the publishing thread: no hop, no trail (report only).
void BM_Signals2Emit(benchmark::State& state) {
  const auto observerCount = static_cast<int>(state.range(0));
  boost::signals2::signal<void(int)> signal;
  std::vector<std::shared_ptr<Observer>> observers;
  for (int i = 0; i < observerCount; ++i) {
    observers.push_back(std::make_shared<Observer>());
    signal.connect([raw = observers.back().get()](int event) { raw->sum += event; });
  }
  for (auto _ : state) {
    for (int i = 0; i < kEvents; ++i) signal(i);
  }
  benchmark::DoNotOptimize(observers.front()->sum);
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_Signals2Emit)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();

const velto::bench::RatioRegistration kPublish1("BM_VeltoEventBusPublish/1", "BM_AsioStrandVectorPublish/1",
                                                "1 observer (target <= 0.5, i.e. >= 2x the throughput)");
const velto::bench::RatioRegistration kPublish10("BM_VeltoEventBusPublish/10", "BM_AsioStrandVectorPublish/10",
                                                 "10 observers (report)");
const velto::bench::RatioRegistration kPublish100("BM_VeltoEventBusPublish/100", "BM_AsioStrandVectorPublish/100",
                                                  "100 observers (target <= 1.0)");
const velto::bench::RatioRegistration kSignals1("BM_VeltoEventBusPublish/1", "BM_Signals2Emit/1",
                                                "1 observer vs synchronous Signals2 (report)");
const velto::bench::RatioRegistration kSignals100("BM_VeltoEventBusPublish/100", "BM_Signals2Emit/100",
                                                  "100 observers vs synchronous Signals2 (report)");

constexpr int kObservers = 10'000;

// 10,000 observers registered, then deregistered one by one (each deregistration scans the
// list), waiting for the bus to finish.
void BM_VeltoEventBusRegisterDeregister10k(benchmark::State& state) {
  auto bus = VeltoEventBus<int>::create(std::make_shared<NullLogger>());
  const Via impetus = VeltoImpetus::create("bench");
  std::vector<std::shared_ptr<Observer>> observers;
  for (int i = 0; i < kObservers; ++i) observers.push_back(std::make_shared<Observer>());
  for (auto _ : state) {
    for (auto& observer : observers) {
      bus->beginRegister(observer, [](const int&, const std::optional<int>&, const Via&) { return VeltoResultVoidSuccess; },
                         impetus);
    }
    for (auto& observer : observers) bus->beginDeregister(observer, impetus);
    bus->serialQueue()->sync([] {});
  }
}
BENCHMARK(BM_VeltoEventBusRegisterDeregister10k)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();

void BM_Signals2ConnectDisconnect10k(benchmark::State& state) {
  boost::signals2::signal<void(int)> signal;
  std::vector<boost::signals2::connection> connections;
  connections.reserve(kObservers);
  for (auto _ : state) {
    connections.clear();
    for (int i = 0; i < kObservers; ++i) connections.push_back(signal.connect([](int) {}));
    for (auto& connection : connections) connection.disconnect();
    signal(0);  // lets the signal drop its disconnected slots
  }
}
BENCHMARK(BM_Signals2ConnectDisconnect10k)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();
const velto::bench::RatioRegistration kRegister("BM_VeltoEventBusRegisterDeregister10k", "BM_Signals2ConnectDisconnect10k",
                                                "10,000 registrations and deregistrations (report)");

long threadCount() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Threads:", 0) == 0) return std::stol(line.substr(8));
  }
  return -1;
}

constexpr int kIdleBuses = 10'000;

// 10,000 live buses, each with one observer and one event delivered, then idle: heap bytes per
// bus and threads added, as counters (targets: 0 threads).
void BM_VeltoEventBusIdle10k(benchmark::State& state) {
  auto logger = std::make_shared<NullLogger>();
  const Via impetus = VeltoImpetus::create("bench");
  auto observer = std::make_shared<Observer>();
  VeltoDispatchQueue::global()->sync([] {});
  double bytesPerBus = 0;
  long threadsAdded = 0;
  for (auto _ : state) {
    const long threadsBefore = threadCount();
    std::vector<std::shared_ptr<VeltoEventBus<int>>> buses;
    buses.reserve(kIdleBuses);
    const std::size_t heapBefore = mallinfo2().uordblks;
    for (int i = 0; i < kIdleBuses; ++i) {
      buses.push_back(VeltoEventBus<int>::create(logger));
      buses.back()->beginRegister(observer, [](const int&, const std::optional<int>&, const Via&) { return VeltoResultVoidSuccess; },
                                  impetus);
      buses.back()->beginPublish(i, impetus);
    }
    for (auto& bus : buses) bus->serialQueue()->sync([] {});
    bytesPerBus = static_cast<double>(mallinfo2().uordblks - heapBefore) / kIdleBuses;
    threadsAdded = threadCount() - threadsBefore;
  }
  state.counters["bytesPerIdleBus"] = bytesPerBus;
  state.counters["threadsAdded"] = static_cast<double>(threadsAdded);
}
BENCHMARK(BM_VeltoEventBusIdle10k)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(3);

// The same for strands with a vector of one callback and a last value each (the anchor's bytes).
void BM_AsioStrandVectorIdle10k(benchmark::State& state) {
  struct StrandBus {
    asio::strand<asio::thread_pool::executor_type> strand;
    std::vector<std::function<void(const int&)>> callbacks;
    std::optional<int> mostRecent;
  };
  double bytesPerBus = 0;
  for (auto _ : state) {
    std::vector<std::unique_ptr<StrandBus>> buses;
    buses.reserve(kIdleBuses);
    const std::size_t heapBefore = mallinfo2().uordblks;
    for (int i = 0; i < kIdleBuses; ++i) {
      buses.push_back(std::make_unique<StrandBus>(StrandBus{asio::make_strand(asioPool()), {}, {}}));
      StrandBus* bus = buses.back().get();
      bus->callbacks.emplace_back([](const int&) {});
      asio::post(bus->strand, [bus, i] {
        for (auto& callback : bus->callbacks) callback(i);
        bus->mostRecent = i;
      });
    }
    for (auto& bus : buses) {
      std::latch done(1);
      asio::post(bus->strand, [&] { done.count_down(); });
      done.wait();
    }
    bytesPerBus = static_cast<double>(mallinfo2().uordblks - heapBefore) / kIdleBuses;
  }
  state.counters["bytesPerIdleBus"] = bytesPerBus;
}
BENCHMARK(BM_AsioStrandVectorIdle10k)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(3);
const velto::bench::RatioRegistration kIdle("BM_VeltoEventBusIdle10k", "BM_AsioStrandVectorIdle10k",
                                            "10,000 buses used once (report; bytes and threads in the counters)");

// A state machine's publication, for scale beside the bus (one observer).
void BM_VeltoStateMachinePublish(benchmark::State& state) {
  auto machine = VeltoStateMachine<int>::create(0, std::make_shared<NullLogger>());
  const Via impetus = VeltoImpetus::create("bench");
  auto observer = std::make_shared<Observer>();
  std::unique_ptr<std::latch> done;
  machine->beginRegister(observer, [raw = observer.get(), &done](const int& value, const std::optional<int>&, const Via&) {
    raw->sum += value;
    if (value == kEvents) done->count_down();
    return VeltoResultVoidSuccess;
  }, impetus);
  machine->serialQueue()->sync([] {});
  for (auto _ : state) {
    done = std::make_unique<std::latch>(1);
    for (int i = 1; i <= kEvents; ++i) machine->beginPublish(i, impetus);
    done->wait();
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_VeltoStateMachinePublish)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(5)->UseRealTime();
const velto::bench::RatioRegistration kMachine("BM_VeltoStateMachinePublish", "BM_AsioStrandVectorPublish/1",
                                               "state machine, 1 observer (report)");

}  // namespace
