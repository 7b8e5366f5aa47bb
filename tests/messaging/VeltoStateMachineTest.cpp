#include <velto/messaging/VeltoStateMachine.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <future>
#include <latch>
#include <mutex>
#include <regex>
#include <thread>
#include <vector>

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
      {
        std::lock_guard guard(mutex);
        requests.push_back(via->impetus().name());
        completions.push_back(std::move(completion));
        trails.push_back(via);
      }
      arrived.notify_all();
      return VeltoResultVoidSuccess;
    };
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
  EXPECT_EQ(*argOf<std::string>(frame, "observerType"), "(anonymous namespace)::Screen");
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
  EXPECT_EQ(producer->waitFor("after publish"),
            (std::vector<std::string>{"at 100", "a hair after 110", "after publish"}));

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
