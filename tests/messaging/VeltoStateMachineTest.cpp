#include <velto/messaging/VeltoStateMachine.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <future>
#include <latch>
#include <mutex>
#include <random>
#include <set>
#include <array>
#include <regex>
#include <thread>
#include <vector>

#include <velto/concurrency/VeltoSerialQueue.hpp>
#include <velto/core/VeltoImpetus.hpp>
#include <velto/detail/Organisation.hpp>

#include "MessagingTestSupport.hpp"
#include "support/FrameNames.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using Machine = VeltoStateMachine<int>;
using velto::test::argOf;
using velto::test::drain;
using velto::test::functionNames;
using velto::test::RecordingLogger;

struct Observer {
  virtual ~Observer() = default;
};
struct Screen : Observer {};
struct Badge : Observer {};

struct Delivery {
  int observer;
  int state;
  std::optional<int> previous;
  friend bool operator==(const Delivery&, const Delivery&) = default;
};
std::ostream& operator<<(std::ostream& out, const Delivery& d) {
  return out << "{observer " << d.observer << ", state " << d.state << ", previous "
             << (d.previous ? std::to_string(*d.previous) : "none") << "}";
}

// A producer that records the impetus name of every request and can finish it later.
struct Producer {
  std::mutex mutex;
  std::condition_variable arrived;
  std::vector<std::string> requests;
  std::vector<Machine::Completion> completions;
  std::vector<Via> trails;

  Machine::RequestProductionHandler handler() {
    return [this](const Via& via, Machine::Completion completion) {
      // Notified under the lock: a waiter may destroy the producer as soon as it sees the request.
      std::lock_guard guard(mutex);
      requests.push_back(via->impetus().name());
      completions.push_back(std::move(completion));
      trails.push_back(via);
      arrived.notify_all();
      return VeltoResultVoidSuccess;
    };
  }
  // The global queue is concurrent: requests may arrive in any order.
  std::vector<std::string> waitForCount(std::size_t count) {
    std::unique_lock guard(mutex);
    arrived.wait_for(guard, std::chrono::seconds(10), [&] { return requests.size() >= count; });
    return requests;
  }
  std::vector<std::string> waitFor(const std::string& name) {
    std::unique_lock guard(mutex);
    arrived.wait_for(guard, std::chrono::seconds(10),
                     [&] { return std::find(requests.begin(), requests.end(), name) != requests.end(); });
    return requests;
  }
};

struct StateMachineTest : testing::Test {
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  Via impetus = VeltoImpetus::create("tap", {}, VeltoCodeSite("App", "tap()", 1));
  std::vector<Delivery> deliveries;  // written by callbacks on the machine's queue

  Machine::Callback recorder(int id, std::optional<int> failOn = std::nullopt) {
    return [this, id, failOn](const int& state, const std::optional<int>& previous, const Via&) -> VeltoResult<void> {
      deliveries.push_back({id, state, previous});
      if (failOn == state) return VeltoResult<void>::fromMessage("observer refused");
      return VeltoResultVoidSuccess;
    };
  }
  static Via named(const char* name) { return VeltoImpetus::create(name, {}, VeltoCodeSite("App", "tap()", 1)); }
  static int mostRecentOf(Machine& machine) {
    return machine.serialQueue()->sync([&] { return machine.mostRecent(); });
  }
};
using VeltoStateMachineTest = StateMachineTest;

TEST_F(VeltoStateMachineTest, labelsItsQueueWithPrefixKindTypeAndUpperCaseUuid) {
  const auto machine = VeltoStateMachine<std::string>::create("idle", logger);
  const std::regex pattern(std::string(velto::detail::kOrganisationPrefix) +
                           R"(\.velto\.serial-queue\.state-machine\.std::string\.[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12})");
  EXPECT_TRUE(std::regex_match(machine->serialQueue()->label(), pattern)) << machine->serialQueue()->label();
}

TEST_F(VeltoStateMachineTest, newObserversGetTheCurrentStateAtOnceAndDuplicatesAreSilent) {
  auto machine = Machine::create(7, logger);
  auto screen = std::make_shared<Screen>();
  machine->beginRegister(screen, recorder(0), impetus);
  machine->beginRegister(std::static_pointer_cast<Observer>(screen), recorder(1), impetus);
  machine->beginPublish(8, impetus);
  drain(*machine->serialQueue());
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 7, std::nullopt}, {1, 7, std::nullopt}, {0, 8, 7}, {1, 8, 7}}));
  EXPECT_TRUE(machine->isRegistered(screen));
  machine->beginDeregister(std::static_pointer_cast<Observer>(screen));
  EXPECT_FALSE(machine->isRegistered(screen)) << "one deregistration removes both";
  EXPECT_TRUE(logger->warnings().empty());
}

// isRegistered is a sync hop onto the machine's queue. Asked from work on more serial queues
// than the pool has threads, while publications keep the machine's queue busy, every hop must
// complete and see the registrations submitted before it.
TEST_F(VeltoStateMachineTest, isRegisteredFromWorkOnManyQueuesAtOnceCompletes) {
  auto machine = Machine::create(0, logger);
  constexpr int kClients = 16;
  constexpr int kRounds = 200;
  std::vector<std::shared_ptr<Screen>> screens;
  for (int i = 0; i < kClients; ++i) screens.push_back(std::make_shared<Screen>());
  std::vector<std::shared_ptr<VeltoSerialQueue>> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.push_back(VeltoSerialQueue::create("dev.velto.test.client." + std::to_string(i), logger));
  }
  std::atomic<int> wrongAnswers = 0;
  std::latch finished(kClients);
  for (int client = 0; client < kClients; ++client) {
    clients[client]->async([&, client] {
      for (int round = 0; round < kRounds; ++round) {
        machine->beginPublish(round, impetus);
        const bool registeredHere = round % 2 == 0;
        if (registeredHere) {
          machine->beginRegister(screens[client], [](const int&, const std::optional<int>&, const Via&) {
            return VeltoResultVoidSuccess;
          }, impetus);
        } else {
          machine->beginDeregister(screens[client]);
        }
        if (machine->isRegistered(screens[client]) != registeredHere) ++wrongAnswers;
      }
      finished.count_down();
    });
  }
  std::packaged_task<void()> wait([&] { finished.wait(); });
  auto waited = wait.get_future();
  std::thread waiter(std::move(wait));
  const bool completed = waited.wait_for(std::chrono::seconds(120)) == std::future_status::ready;
  if (!completed) {
    ADD_FAILURE() << "hops from client queues did not complete: pool starvation";
    std::_Exit(1);  // the blocked threads cannot be joined
  }
  waiter.join();
  EXPECT_EQ(wrongAnswers.load(), 0);
}

TEST_F(VeltoStateMachineTest, recordsTheNewStateBeforeDeliveryAndKeepsItAfterAFailure) {
  auto machine = Machine::create(1, logger);
  auto a = std::make_shared<Screen>();
  auto b = std::make_shared<Badge>();
  std::vector<int> seenInside;
  machine->beginRegister(a, [&](const int& state, const std::optional<int>&, const Via&) -> VeltoResult<void> {
    seenInside.push_back(machine->mostRecent());
    if (state == 2) return VeltoResult<void>::fromMessage("first observer refused");
    return VeltoResultVoidSuccess;
  }, impetus);
  machine->beginRegister(b, recorder(1), impetus);
  machine->beginPublish(2, impetus);
  machine->beginPublish(3, impetus);
  drain(*machine->serialQueue());
  EXPECT_EQ(seenInside, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{1, 1, std::nullopt}, {1, 3, 2}})) << "the second observer skipped 2";
  EXPECT_EQ(mostRecentOf(*machine), 3);

  const auto errors = logger->waitForErrors(1);
  ASSERT_EQ(errors.size(), 1u);
  const VeltoStackFrame& frame = errors[0].error.stackFrames().back();
  EXPECT_EQ(frame.codeSite().functionName(), "publish(state:via:)");
  EXPECT_EQ(frame.codeSite().fileName(), "State Machine/VeltoStateMachine");
  EXPECT_EQ(velto::test::argKeys(frame), (std::vector<std::string>{"state", "observerType"}));
  EXPECT_EQ(*argOf<int>(frame, "state"), 2);
  EXPECT_EQ(*argOf<std::string>(frame, "observerType"), "Screen");
}

TEST_F(VeltoStateMachineTest, aFailingRegistrationCallIsLoggedAndTheRegistrationStays) {
  auto machine = Machine::create(5, logger);
  auto screen = std::make_shared<Screen>();
  machine->beginRegister(screen, recorder(0, 5), impetus);
  machine->beginPublish(6, impetus);
  drain(*machine->serialQueue());
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 5, std::nullopt}, {0, 6, 5}}));
  const auto errors = logger->waitForErrors(1);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(functionNames(errors[0].error.stackFrames()).back(), "beginRegister(observer:callback:via:)");
  EXPECT_EQ(functionNames(errors[0].dispatchRoot->stackFrames()),
            (std::vector<std::string_view>{"async(via:) inner",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "beginRegister(observer:callback:via:)", "tap()"}));
}

TEST_F(VeltoStateMachineTest, dropsDeadObserversSilently) {
  auto machine = Machine::create(0, logger);
  auto screen = std::make_shared<Screen>();
  auto badge = std::make_shared<Badge>();
  machine->beginRegister(screen, recorder(0), impetus);
  machine->beginRegister(badge, recorder(1), impetus);
  drain(*machine->serialQueue());
  screen.reset();
  machine->beginPublish(1, impetus);
  drain(*machine->serialQueue());
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 0, std::nullopt}, {1, 0, std::nullopt}, {1, 1, 0}}));
  EXPECT_TRUE(logger->warnings().empty());
  EXPECT_TRUE(logger->errors().empty());
}

TEST_F(VeltoStateMachineTest, publishOffTheQueueFailsAndChangesNothing) {
  auto machine = Machine::create(3, logger);
  const VeltoResult<void> result = machine->publish(4, impetus);
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(result.error().message(), "should be on serial queue");
  EXPECT_EQ(*argOf<int>(result.error().stackFrames().back(), "state"), 4);
  EXPECT_EQ(mostRecentOf(*machine), 3);
  EXPECT_TRUE(machine->ensureOffQueue().hasValue());
  EXPECT_TRUE(machine->serialQueue()->sync([&] { return machine->ensureOnQueue().hasValue(); }));
}

// The time-out is inclusive: exactly at timestamp + timeout the request is still outstanding.
TEST_F(VeltoStateMachineTest, productionRequestsWaitForTheInclusiveTimeOut) {
  auto producer = std::make_shared<Producer>();
  auto now = std::make_shared<std::atomic<double>>(100.0);
  auto machine = Machine::create(0, logger, producer->handler(), 10.0, [now] { return now->load(); });

  // The clock is read when the request runs on the queue: settle before moving it.
  const auto requestAt = [&](double time, const char* name) {
    now->store(time);
    machine->beginRequestProduction(named(name));
    drain(*machine->serialQueue());
  };
  requestAt(100.0, "at 100");
  requestAt(105.0, "at 105");
  requestAt(110.0, "at 110");
  EXPECT_TRUE(logger->warnings().empty());

  const double late = std::nextafter(110.0, 200.0);
  requestAt(late, "a hair after 110");
  machine->beginPublish(1, impetus);  // any publication ends the outstanding request
  machine->beginRequestProduction(named("after publish"));
  auto requests = producer->waitForCount(3);
  std::sort(requests.begin(), requests.end());
  EXPECT_EQ(requests, (std::vector<std::string>{"a hair after 110", "after publish", "at 100"}));

  const auto warnings = logger->warnings();
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].error.message(), "Production request timed out, will be abandoned");
  const VeltoStackFrame& frame = warnings[0].error.stackFrames()[0];
  EXPECT_EQ(velto::test::argKeys(frame),
            (std::vector<std::string>{"lastProductionRequestTimestamp", "requestProductionTimeout", "now"}));
  EXPECT_EQ(*argOf<double>(frame, "lastProductionRequestTimestamp"), 100.0);
  EXPECT_EQ(*argOf<double>(frame, "requestProductionTimeout"), 10.0);
  EXPECT_EQ(*argOf<double>(frame, "now"), late);
  EXPECT_EQ(warnings[0].dispatchRoot->impetus().name(), "a hair after 110");
}

TEST_F(VeltoStateMachineTest, producedStatesArePublishedEvenFromAnAbandonedRequest) {
  auto producer = std::make_shared<Producer>();
  auto now = std::make_shared<std::atomic<double>>(0.0);
  auto machine = Machine::create(0, logger, producer->handler(), 1.0, [now] { return now->load(); });
  auto screen = std::make_shared<Screen>();
  std::vector<VeltoStackFrame> trail;
  machine->beginRegister(screen, [&](const int& state, const std::optional<int>&, const Via& via) {
    if (state == 11) trail = via->stackFrames();
    return VeltoResultVoidSuccess;
  }, impetus);
  machine->beginRequestProduction(named("first"));
  producer->waitFor("first");
  now->store(5.0);
  machine->beginRequestProduction(named("second"));
  producer->waitFor("second");

  Machine::Completion first;
  Machine::Completion second;
  Via firstTrail;
  {
    std::lock_guard guard(producer->mutex);
    first = producer->completions[0];
    second = producer->completions[1];
    firstTrail = producer->trails[0];
  }
  EXPECT_EQ(functionNames(firstTrail->stackFrames()),
            (std::vector<std::string_view>{"async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "beginRequestProduction(via:)", "tap()"}));
  EXPECT_EQ(firstTrail->stackFrames()[0].invokerSite()->fileName(), "State Machine/VeltoStateMachine");
  second(22, firstTrail);
  first(11, firstTrail);  // the abandoned request finishes last and still wins
  drain(*machine->serialQueue());
  EXPECT_EQ(mostRecentOf(*machine), 11);
  EXPECT_EQ(functionNames(trail).front(), "publish(state:via:)");
  EXPECT_EQ(functionNames(trail)[3], "beginPublish(state:via:)");

  machine.reset();
  first(33, firstTrail);  // the machine is gone: dropped, nothing touched
}

TEST_F(VeltoStateMachineTest, aFailingProducerIsLoggedAndAMachineWithoutOneIgnoresRequests) {
  auto failing = Machine::create(0, logger, [](const Via&, Machine::Completion) {
    return VeltoResult<void>::fromMessage("backend down");
  }, 10.0);
  failing->beginRequestProduction(impetus);
  const auto errors = logger->waitForErrors(1);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].error.message(), "backend down");
  EXPECT_EQ(functionNames(errors[0].dispatchRoot->stackFrames()).front(), "async(via:) inner");

  auto plain = Machine::create(4, logger);
  EXPECT_FALSE(plain->hasRequestProductionHandler());
  plain->beginRequestProduction(impetus);
  plain->beginRequestProduction(impetus);
  drain(*plain->serialQueue());
  EXPECT_EQ(mostRecentOf(*plain), 4);
  EXPECT_TRUE(logger->warnings().empty());
  EXPECT_EQ(logger->errors().size(), 1u);
}

// Read-modify-publish inside one `begin` closure cannot lose an update, whoever calls it.
TEST_F(VeltoStateMachineTest, beginReadsAndPublishesWithNothingInBetween) {
  auto machine = Machine::create(0, logger);
  constexpr int kThreads = 8;
  constexpr int kIncrements = 300;
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int i = 0; i < kIncrements; ++i) {
        machine->begin(impetus, [](const int& state, const Machine::PublishOperation& publish, const Via& via) {
          return publish(state + 1, via);
        });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mostRecentOf(*machine), kThreads * kIncrements);
  EXPECT_TRUE(logger->errors().empty());
}

TEST_F(VeltoStateMachineTest, beginPassesItsTrailAndReportsFailuresWithItsFrame) {
  auto machine = Machine::create(1, logger);
  auto screen = std::make_shared<Screen>();
  std::vector<VeltoStackFrame> seen;
  machine->beginRegister(screen, [&](const int& state, const std::optional<int>&, const Via& via) -> VeltoResult<void> {
    if (state == 2) {
      seen = via->stackFrames();
      return VeltoResult<void>::fromMessage("no");
    }
    return VeltoResultVoidSuccess;
  }, impetus);
  machine->begin(impetus, [](const int& state, const Machine::PublishOperation& publish, const Via& via) {
    return publish(state + 1, via);
  });
  const auto errors = logger->waitForErrors(1);
  drain(*machine->serialQueue());
  EXPECT_EQ(functionNames(seen),
            (std::vector<std::string_view>{"publish(state:via:)",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "begin(via:onSerialQueue:)", "tap()"}));
  ASSERT_EQ(errors.size(), 1u);
  const auto names = functionNames(errors[0].error.stackFrames());
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names[1], "publish(state:via:)");
  EXPECT_EQ(names[2], "begin(via:onSerialQueue:)");
  EXPECT_EQ(mostRecentOf(*machine), 2);
}

TEST_F(VeltoStateMachineTest, observationDeregistersWhenItGoesAndOutlivesItsMachine) {
  auto machine = Machine::create(0, logger);
  auto screen = std::make_shared<Screen>();
  {
    VeltoObservation observation = machine->observe(screen, recorder(0), impetus);
    EXPECT_TRUE(machine->isRegistered(screen));
  }
  EXPECT_FALSE(machine->isRegistered(screen));
  VeltoObservation outliving = machine->observe(screen, recorder(1), impetus);
  drain(*machine->serialQueue());
  machine.reset();
  outliving.reset();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 0, std::nullopt}, {1, 0, std::nullopt}}));
}

TEST_F(VeltoStateMachineTest, workPendingWhenTheLastHolderLetsGoStillRuns) {
  auto machine = VeltoStateMachine<std::vector<int>>::create({}, logger);
  std::latch blocker(1);
  auto sum = std::make_shared<int>(0);
  auto done = std::make_shared<std::latch>(1);
  auto screen = std::make_shared<Screen>();
  machine->serialQueue()->async([&] { blocker.wait(); });
  machine->beginRegister(screen, [sum](const std::vector<int>& state, const auto&, const Via&) {
    for (int v : state) *sum += v;
    return VeltoResultVoidSuccess;
  }, impetus);
  for (int i = 1; i <= 50; ++i) machine->beginPublish(std::vector<int>(static_cast<std::size_t>(i), 1), impetus);
  machine->serialQueue()->async([done] { done->count_down(); });
  machine.reset();
  blocker.count_down();
  done->wait();
  EXPECT_EQ(*sum, 50 * 51 / 2);
}

// Random sequences of registrations, deregistrations, deaths, publications, begin closures and
// production requests at random clock times, compared with a sequential model. The later seeds
// use enough objects for the list to grow past its indexed size and to be compacted repeatedly.
TEST_F(VeltoStateMachineTest, matchesASequentialModelOnRandomSequences) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto modelLogger = std::make_shared<RecordingLogger>();
    auto producer = std::make_shared<Producer>();
    auto now = std::make_shared<double>(0.0);  // set on the machine's queue, read there
    constexpr double kTimeout = 5.0;
    auto machine = Machine::create(0, modelLogger, producer->handler(), kTimeout, [now] { return *now; });
    std::vector<Delivery> seen;  // written on the machine's queue only

    struct Entry {
      int object;
      int registration;
      std::optional<int> failOn;
    };
    const unsigned kSlots = seed > 30 ? 64 : 3;
    std::vector<std::shared_ptr<Observer>> slots(kSlots);
    std::vector<int> objectIdOf(kSlots);
    std::set<int> dead;
    int nextObject = 0;
    int nextRegistration = 0;
    std::vector<Entry> entries;
    int state = 0;
    std::optional<double> outstanding;
    std::vector<std::string> expectedRequests;
    std::vector<Delivery> expected;
    std::size_t expectedWarnings = 0;
    std::size_t expectedErrors = 0;

    const auto deliverModel = [&](int newState) {
      outstanding.reset();
      std::erase_if(entries, [&](const Entry& e) { return dead.contains(e.object); });
      const int previous = std::exchange(state, newState);
      for (const Entry& e : entries) {
        expected.push_back({e.registration, newState, previous});
        if (e.failOn == newState) {
          ++expectedErrors;
          break;
        }
      }
    };

    for (int step = 0, steps = seed > 30 ? 1200 : 120; step < steps; ++step) {
      const auto slot = static_cast<std::size_t>(random() % kSlots);
      auto& object = slots[slot];
      switch (random() % 7) {
        case 0: {  // register
          if (!object) {
            object = std::make_shared<Screen>();
            objectIdOf[slot] = nextObject++;
          }
          const int registration = nextRegistration++;
          const std::optional<int> failOn =
              random() % 4 == 0 ? std::optional<int>(static_cast<int>(random() % 8)) : std::nullopt;
          entries.push_back({objectIdOf[slot], registration, failOn});
          expected.push_back({registration, state, std::nullopt});
          if (failOn == state) ++expectedErrors;
          machine->beginRegister(object, [&seen, registration, failOn](const int& value, const std::optional<int>& previous, const Via&) {
            seen.push_back({registration, value, previous});
            return failOn == value ? VeltoResult<void>::fromMessage("refused") : VeltoResultVoidSuccess;
          }, impetus);
          break;
        }
        case 1: {  // deregister
          if (!object) break;
          std::erase_if(entries, [&](const Entry& e) { return e.object == objectIdOf[slot]; });
          machine->beginDeregister(object);
          break;
        }
        case 2: {  // the observer dies, in line with the machine's work
          if (!object) break;
          dead.insert(objectIdOf[slot]);
          machine->serialQueue()->async([dying = std::move(object)] {});
          object = nullptr;
          break;
        }
        case 3: {  // publish
          const int value = static_cast<int>(random() % 8);
          deliverModel(value);
          machine->beginPublish(value, impetus);
          break;
        }
        case 4: {  // read and publish the successor in one closure
          deliverModel((state + 1) % 8);
          machine->begin(impetus, [](const int& current, const Machine::PublishOperation& publish, const Via& via) {
            return publish((current + 1) % 8, via);
          });
          break;
        }
        default: {  // a production request, the clock moved on by 0 to 7 seconds first
          const double time = static_cast<double>(step) * 2.0 + static_cast<double>(random() % 8);
          machine->serialQueue()->async([now, time] { *now = time; });
          const std::string name = "request " + std::to_string(step);
          machine->beginRequestProduction(VeltoImpetus::create(name, {}, VeltoCodeSite("App", "tap()", 1)));
          if (outstanding && time <= *outstanding + kTimeout) break;  // still outstanding: dropped
          if (outstanding) ++expectedWarnings;
          outstanding = time;
          expectedRequests.push_back(name);
          break;
        }
      }
    }
    drain(*machine->serialQueue());
    ASSERT_EQ(seen, expected);
    EXPECT_EQ(mostRecentOf(*machine), state);
    EXPECT_EQ(modelLogger->warnings().size(), expectedWarnings);
    EXPECT_EQ(modelLogger->waitForErrors(expectedErrors).size(), expectedErrors);
    if (!expectedRequests.empty()) {
      auto requests = producer->waitForCount(expectedRequests.size());
      std::sort(requests.begin(), requests.end());
      std::sort(expectedRequests.begin(), expectedRequests.end());
      EXPECT_EQ(requests, expectedRequests);
    }
  }
}

using VeltoStateMachineDeathTest = StateMachineTest;

TEST_F(VeltoStateMachineDeathTest, aPublishOperationUsedAfterItsClosureReturnedStops) {
  EXPECT_DEATH(
      {
        auto machine = Machine::create(0, logger);
        std::promise<Machine::PublishOperation> escaped;
        machine->begin(impetus, [&](const int&, const Machine::PublishOperation& publish, const Via&) {
          escaped.set_value(publish);
          return VeltoResultVoidSuccess;
        });
        auto publish = escaped.get_future().get();
        drain(*machine->serialQueue());
        (void)publish(1, impetus);
      },
      "publish operation used after its begin\\(via:onSerialQueue:\\) closure returned");
}

TEST_F(VeltoStateMachineDeathTest, readingMostRecentOffTheQueueStops) {
  auto machine = Machine::create(0, logger);
  EXPECT_DEATH((void)machine->mostRecent(), "mostRecent read off the machine's queue");
}

}  // namespace
