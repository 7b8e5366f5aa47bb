#include <velto/messaging/VeltoEventBus.hpp>

#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/detail/Organisation.hpp>

#include "MessagingTestSupport.hpp"
#include "support/FrameNames.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using velto::test::argOf;
using velto::test::drain;
using velto::test::functionNames;
using velto::test::RecordingLogger;

struct Observer {
  virtual ~Observer() = default;
};
struct Screen : Observer {};
struct Badge : Observer {};
struct Plain {
  int first = 0;  // so that `member` has an address of its own
  int member = 0;
};

// One delivery as an observer saw it.
struct Delivery {
  int observer;
  int event;
  std::optional<int> previous;
  friend bool operator==(const Delivery&, const Delivery&) = default;
};
std::ostream& operator<<(std::ostream& out, const Delivery& d) {
  return out << "{observer " << d.observer << ", event " << d.event << ", previous "
             << (d.previous ? std::to_string(*d.previous) : "none") << "}";
}

struct EventBusTest : testing::Test {
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::shared_ptr<VeltoEventBus<int>> bus = VeltoEventBus<int>::create(logger);
  Via impetus = VeltoImpetus::create("tap", {}, VeltoCodeSite("App", "tap()", 1));
  // Written only by callbacks (on the bus's queue), read after `settle()`.
  std::vector<Delivery> deliveries;

  VeltoEventBus<int>::Callback recorder(int id, std::optional<int> failOn = std::nullopt) {
    return [this, id, failOn](const int& event, const std::optional<int>& previous, const Via&) -> VeltoResult<void> {
      deliveries.push_back({id, event, previous});
      if (failOn == event) return VeltoResult<void>::fromMessage("observer refused");
      return VeltoResultVoidSuccess;
    };
  }
  void settle() { drain(*bus->serialQueue()); }
};
using VeltoEventBusTest = EventBusTest;

TEST_F(VeltoEventBusTest, labelsItsQueueWithPrefixKindTypeAndUpperCaseUuid) {
  const auto strings = VeltoEventBus<std::string>::create(logger);
  const std::regex pattern(std::string(velto::detail::kOrganisationPrefix) +
                           R"(\.velto\.serial-queue\.event-bus\.std::string\.[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12})");
  EXPECT_TRUE(std::regex_match(strings->serialQueue()->label(), pattern)) << strings->serialQueue()->label();
  EXPECT_NE(VeltoEventBus<std::string>::create(logger)->serialQueue()->label(), strings->serialQueue()->label());
}

TEST_F(VeltoEventBusTest, deliversInOrderWithThePreviousEventAndSetsMostRecentWithoutObservers) {
  bus->beginPublish(1, impetus);  // no observers yet: still becomes mostRecent
  auto screen = std::make_shared<Screen>();
  bus->beginRegister(screen, recorder(0), impetus);
  bus->beginPublish(2, impetus);
  bus->beginPublish(3, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 2, 1}, {0, 3, 2}}));

  auto fresh = VeltoEventBus<int>::create(logger);
  std::optional<int> firstPrevious = 42;
  fresh->beginRegister(screen, [&](const int&, const std::optional<int>& previous, const Via&) {
    firstPrevious = previous;
    return VeltoResultVoidSuccess;
  }, impetus);
  fresh->beginPublish(7, impetus);
  drain(*fresh->serialQueue());
  EXPECT_EQ(firstPrevious, std::nullopt);
  EXPECT_TRUE(logger->warnings().empty());
}

TEST_F(VeltoEventBusTest, callbacksRunOnTheBusQueueAndSeeMostRecentThere) {
  auto screen = std::make_shared<Screen>();
  bool onQueue = false;
  std::optional<int> seenMostRecent;
  bus->beginRegister(screen, [&](const int&, const std::optional<int>&, const Via&) {
    onQueue = bus->serialQueue()->ensureOnQueue().hasValue();
    seenMostRecent = bus->mostRecent();
    return VeltoResultVoidSuccess;
  }, impetus);
  bus->beginPublish(5, impetus);
  bus->beginPublish(6, impetus);
  settle();
  EXPECT_TRUE(onQueue);
  EXPECT_EQ(seenMostRecent, 5) << "mostRecent changes only after every observer succeeded";
}

TEST_F(VeltoEventBusTest, publishOffTheQueueFailsAndChangesNothing) {
  auto screen = std::make_shared<Screen>();
  bus->beginRegister(screen, recorder(0), impetus);
  settle();
  const VeltoResult<void> result = bus->publish(9, impetus);
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(result.error().message(), "should be on serial queue");
  ASSERT_EQ(result.error().stackFrames().size(), 2u);
  EXPECT_EQ(result.error().stackFrames()[1].codeSite().functionName(), "publish(event:via:)");
  EXPECT_EQ(result.error().stackFrames()[1].codeSite().fileName(), "Event Bus/VeltoEventBus");
  ASSERT_NE(argOf<int>(result.error().stackFrames()[1], "event"), nullptr);
  EXPECT_EQ(*argOf<int>(result.error().stackFrames()[1], "event"), 9);
  settle();
  EXPECT_TRUE(deliveries.empty());
  EXPECT_EQ(bus->serialQueue()->sync([&] { return bus->mostRecent(); }), std::nullopt);
}

TEST_F(VeltoEventBusTest, duplicateRegistrationWarnsDeliversTwiceAndOneDeregistrationRemovesBoth) {
  auto screen = std::make_shared<Screen>();
  bus->beginRegister(screen, recorder(0), impetus);
  bus->beginRegister(std::static_pointer_cast<Observer>(screen), recorder(1), impetus);  // same object, base pointer
  bus->beginPublish(1, impetus);
  bus->beginDeregister(std::static_pointer_cast<Observer>(screen), impetus);
  bus->beginPublish(2, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 1, std::nullopt}, {1, 1, std::nullopt}}));
  const auto warnings = logger->warnings();
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].error.message(), "Already registered as an observer");
  ASSERT_NE(argOf<std::string>(warnings[0].error.stackFrames()[0], "observerType"), nullptr);
  EXPECT_EQ(*argOf<std::string>(warnings[0].error.stackFrames()[0], "observerType"), "Screen");
  EXPECT_EQ(functionNames(warnings[0].dispatchRoot->stackFrames()).back(), "tap()");
}

TEST_F(VeltoEventBusTest, subObjectsOfOneOwnerAreDistinctObservers) {
  auto owner = std::make_shared<Plain>();
  std::shared_ptr<int> member(owner, &owner->member);  // shares the owner's control block
  bus->beginRegister(owner, recorder(0), impetus);
  bus->beginRegister(member, recorder(1), impetus);
  bus->beginDeregister(owner, impetus);
  bus->beginPublish(1, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{1, 1, std::nullopt}}));
  EXPECT_TRUE(logger->warnings().empty());
}

TEST_F(VeltoEventBusTest, deadObserversAreReportedOnceByDynamicTypeAndNeverCalled) {
  std::shared_ptr<Observer> screen = std::make_shared<Screen>();
  auto badge = std::make_shared<Badge>();
  bus->beginRegister(screen, recorder(0), impetus);
  bus->beginRegister(badge, recorder(1), impetus);
  bus->beginRegister(screen, recorder(2), impetus);
  settle();
  screen.reset();
  bus->beginPublish(1, impetus);
  bus->beginPublish(2, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{1, 1, std::nullopt}, {1, 2, 1}}));
  const auto warnings = logger->warnings();
  ASSERT_EQ(warnings.size(), 2u) << "one duplicate warning, then exactly one zombie warning";
  EXPECT_EQ(warnings[1].error.message(), "Encountered zombie observers");
  const auto* types = argOf<std::vector<std::string>>(warnings[1].error.stackFrames()[0], "zombieObserverTypes");
  ASSERT_NE(types, nullptr);
  EXPECT_EQ(*types, (std::vector<std::string>{"Screen", "Screen"}));
  EXPECT_EQ(functionNames(warnings[1].dispatchRoot->stackFrames()).front(), "publish(event:via:)");
}

TEST_F(VeltoEventBusTest, aFailingObserverStopsDeliveryAndKeepsTheOlderMostRecent) {
  auto a = std::make_shared<Screen>();
  auto b = std::make_shared<Badge>();
  auto c = std::make_shared<Screen>();
  bus->beginPublish(1, impetus);
  bus->beginRegister(a, recorder(0), impetus);
  bus->beginRegister(b, recorder(1, 2), impetus);
  bus->beginRegister(c, recorder(2), impetus);
  bus->beginPublish(2, impetus);
  bus->beginPublish(3, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 2, 1}, {1, 2, 1}, {0, 3, 1}, {1, 3, 1}, {2, 3, 1}}));

  const auto errors = logger->waitForErrors(1);
  ASSERT_EQ(errors.size(), 1u);
  const VeltoError& error = errors[0].error;
  EXPECT_EQ(error.message(), "observer refused");
  ASSERT_EQ(error.stackFrames().size(), 2u);
  const VeltoStackFrame& publishFrame = error.stackFrames()[1];
  EXPECT_EQ(publishFrame.codeSite().functionName(), "publish(event:via:)");
  EXPECT_EQ(velto::test::argKeys(publishFrame), (std::vector<std::string>{"event", "observerType"}));
  EXPECT_EQ(*argOf<int>(publishFrame, "event"), 2);
  EXPECT_EQ(*argOf<std::string>(publishFrame, "observerType"), "Badge");
}

// The exact trail an observer receives, and the dispatch root of a failure it returns.
TEST_F(VeltoEventBusTest, observersAndFailuresCarryTheWholeTrail) {
  auto screen = std::make_shared<Screen>();
  std::vector<VeltoStackFrame> seen;
  bus->beginRegister(screen, [&](const int&, const std::optional<int>&, const Via& via) {
    seen = via->stackFrames();
    return VeltoResult<void>::fromMessage("nope");
  }, impetus);
  const VeltoCodeSite caller = VeltoCodeSite::current();
  bus->beginPublish(4, impetus, caller);
  const auto errors = logger->waitForErrors(1);
  settle();

  EXPECT_EQ(functionNames(seen),
            (std::vector<std::string_view>{"publish(event:via:)",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "beginPublish(event:via:)", "tap()"}));
  ASSERT_EQ(seen.size(), 5u);
  EXPECT_EQ(seen[0].codeSite().fileName(), "Event Bus/VeltoEventBus");
  EXPECT_EQ(*argOf<int>(seen[0], "event"), 4);
  EXPECT_EQ(seen[1].codeSite().fileName(), "Via/DispatchQueue+VeltoVia");
  ASSERT_TRUE(seen[1].invokerSite().has_value());
  EXPECT_EQ(seen[1].invokerSite()->fileName(), "VeltoSerialQueue");
  EXPECT_EQ(seen[2].codeSite().fileName(), "VeltoSerialQueue");
  EXPECT_FALSE(seen[2].invokerSite().has_value());
  EXPECT_EQ(seen[3].codeSite().fileName(), "Event Bus/VeltoEventBus");
  EXPECT_EQ(seen[3].invokerSite(), caller);

  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(functionNames(errors[0].dispatchRoot->stackFrames()),
            (std::vector<std::string_view>{"async(via:) inner",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "beginPublish(event:via:)", "tap()"}));
  EXPECT_EQ(functionNames(errors[0].error.stackFrames()).back(), "publish(event:via:)");
}

TEST_F(VeltoEventBusTest, keepsEachPublishersOrderUnderEightConcurrentPublishers) {
  constexpr int kPublishers = 8;
  constexpr int kEvents = 1500;
  using Event = std::pair<int, int>;  // (publisher, sequence number)
  auto pairs = VeltoEventBus<Event>::create(logger);
  struct Checker {
    std::array<int, kPublishers> last{};
    int count = 0;
    int inside = 0;  // plain on purpose: overlapping callbacks show up here and under TSan
    bool ordered = true;
    bool overlapped = false;
  };
  std::array<std::shared_ptr<Checker>, 3> checkers;
  for (auto& checker : checkers) {
    checker = std::make_shared<Checker>();
    checker->last.fill(-1);
    pairs->beginRegister(checker, [raw = checker.get()](const Event& event, const std::optional<Event>&, const Via&) {
      if (++raw->inside != 1) raw->overlapped = true;
      if (event.second != raw->last[static_cast<std::size_t>(event.first)] + 1) raw->ordered = false;
      raw->last[static_cast<std::size_t>(event.first)] = event.second;
      ++raw->count;
      --raw->inside;
      return VeltoResultVoidSuccess;
    }, impetus);
  }
  std::latch start(kPublishers);
  std::vector<std::thread> publishers;
  for (int p = 0; p < kPublishers; ++p) {
    publishers.emplace_back([&, p] {
      start.arrive_and_wait();
      for (int i = 0; i < kEvents; ++i) pairs->beginPublish({p, i}, impetus);
    });
  }
  for (auto& thread : publishers) thread.join();
  drain(*pairs->serialQueue());
  for (const auto& checker : checkers) {
    EXPECT_EQ(checker->count, kPublishers * kEvents);
    EXPECT_TRUE(checker->ordered);
    EXPECT_FALSE(checker->overlapped);
    for (int last : checker->last) EXPECT_EQ(last, kEvents - 1);
  }
  EXPECT_TRUE(logger->errors().empty());
}

// A callback may publish synchronously on the queue: the outer delivery goes on over the list
// it started with, and its event becomes mostRecent last.
TEST_F(VeltoEventBusTest, aCallbackThatPublishesReentrantlyDoesNotDisturbTheOuterDelivery) {
  auto texts = VeltoEventBus<std::string>::create(logger);
  auto a = std::make_shared<Screen>();
  auto b = std::make_shared<Badge>();
  std::vector<std::string> log;
  texts->beginRegister(a, [&](const std::string& event, const std::optional<std::string>& previous, const Via& via) {
    log.push_back("a:" + event + "<" + previous.value_or("-"));
    if (event == "outer and long enough to live on the heap") {
      texts->beginDeregister(b, via);  // runs later: b still gets the outer event
      EXPECT_TRUE(texts->publish("inner", via).hasValue());
    }
    return VeltoResultVoidSuccess;
  }, impetus);
  texts->beginRegister(b, [&](const std::string& event, const std::optional<std::string>& previous, const Via&) {
    log.push_back("b:" + event + "<" + previous.value_or("-"));
    return VeltoResultVoidSuccess;
  }, impetus);
  texts->beginPublish("outer and long enough to live on the heap", impetus);
  drain(*texts->serialQueue());
  texts->beginPublish("next", impetus);  // after the deregistration the callback submitted
  drain(*texts->serialQueue());
  EXPECT_EQ(log, (std::vector<std::string>{"a:outer and long enough to live on the heap<-", "a:inner<-", "b:inner<-",
                                           "b:outer and long enough to live on the heap<-",
                                           "a:next<outer and long enough to live on the heap"}));
}

TEST_F(VeltoEventBusTest, workPendingWhenTheLastHolderLetsGoStillRuns) {
  auto screen = std::make_shared<Screen>();
  std::latch blocker(1);
  auto done = std::make_shared<std::latch>(1);
  auto count = std::make_shared<int>(0);
  std::weak_ptr<VeltoEventBus<int>> weakBus = bus;
  bus->serialQueue()->async([&] { blocker.wait(); });  // holds the queue so everything below is pending
  bus->beginRegister(screen, [count](const int&, const std::optional<int>&, const Via&) {
    ++*count;
    return VeltoResultVoidSuccess;
  }, impetus);
  for (int i = 0; i < 100; ++i) bus->beginPublish(i, impetus);
  bus->serialQueue()->async([done] { done->count_down(); });
  bus.reset();
  EXPECT_FALSE(weakBus.expired()) << "pending work holds the bus";
  blocker.count_down();
  done->wait();
  EXPECT_EQ(*count, 100);
}

TEST_F(VeltoEventBusTest, observationDeregistersWhenItGoesAndOutlivesItsBus) {
  auto screen = std::make_shared<Screen>();
  auto badge = std::make_shared<Badge>();
  {
    VeltoObservation observation = bus->observe(screen, recorder(0), impetus);
    VeltoObservation moved = std::move(observation);
    EXPECT_FALSE(observation.isActive());
    EXPECT_TRUE(moved.isActive());
    bus->beginPublish(1, impetus);
  }
  VeltoObservation kept = bus->observe(badge, recorder(1), impetus);
  kept.release();
  EXPECT_FALSE(kept.isActive());
  bus->beginPublish(2, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{0, 1, std::nullopt}, {1, 2, 1}}));

  VeltoObservation outliving = bus->observe(screen, recorder(2), impetus);
  settle();
  bus.reset();
  outliving.reset();  // the bus is gone: nothing to do, nothing touched
  EXPECT_FALSE(outliving.isActive());
}

TEST_F(VeltoEventBusTest, deregisterAllRemovesEveryObserver) {
  auto a = std::make_shared<Screen>();
  auto b = std::make_shared<Badge>();
  bus->beginRegister(a, recorder(0), impetus);
  bus->beginRegister(b, recorder(1), impetus);
  bus->beginDeregisterAllObservers();
  bus->beginPublish(1, impetus);
  bus->beginRegister(a, recorder(2), impetus);
  bus->beginPublish(2, impetus);
  settle();
  EXPECT_EQ(deliveries, (std::vector<Delivery>{{2, 2, 1}}));
  EXPECT_TRUE(logger->warnings().empty());
}

// Random sequences of registrations, deregistrations, publications, failures and deaths, compared
// with a sequential model of the observer list, mostRecent and the reports. The later seeds use
// enough objects for the list to grow past its indexed size and to be compacted repeatedly.
TEST_F(VeltoEventBusTest, matchesASequentialModelOnRandomSequences) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto model_logger = std::make_shared<RecordingLogger>();
    auto subject = VeltoEventBus<int>::create(model_logger);
    std::vector<Delivery> seen;  // written on the bus's queue only

    struct Entry {
      int object;
      int registration;
      std::optional<int> failOn;
    };
    const int kSlots = seed > 45 ? 64 : 4;
    std::vector<std::shared_ptr<Observer>> slots(static_cast<std::size_t>(kSlots));
    std::vector<int> objectIdOf(static_cast<std::size_t>(kSlots));
    std::map<int, std::string> typeOfObject;
    std::set<int> deadObjects;
    int nextObject = 0;
    int nextRegistration = 0;
    std::vector<Entry> entries;
    std::optional<int> mostRecent;
    std::vector<Delivery> expected;
    std::vector<std::pair<std::string, std::vector<std::string>>> expectedWarnings;
    int expectedErrors = 0;

    for (int step = 0, steps = seed > 45 ? 1500 : 150; step < steps; ++step) {
      const int slot = static_cast<int>(random() % kSlots);
      auto& object = slots[static_cast<std::size_t>(slot)];
      switch (random() % 6) {
        case 0:
        case 1: {  // register (spawning an object when the slot is empty)
          if (!object) {
            const bool screen = random() % 2 == 0;
            object = screen ? std::shared_ptr<Observer>(std::make_shared<Screen>())
                            : std::shared_ptr<Observer>(std::make_shared<Badge>());
            objectIdOf[static_cast<std::size_t>(slot)] = nextObject;
            typeOfObject[nextObject] = screen ? "Screen" : "Badge";
            ++nextObject;
          }
          const int id = objectIdOf[static_cast<std::size_t>(slot)];
          const int registration = nextRegistration++;
          const std::optional<int> failOn = random() % 4 == 0 ? std::optional<int>(static_cast<int>(random() % 10)) : std::nullopt;
          if (std::any_of(entries.begin(), entries.end(), [&](const Entry& e) { return e.object == id; })) {
            expectedWarnings.push_back({"Already registered as an observer", {typeOfObject[id]}});
          }
          entries.push_back({id, registration, failOn});
          subject->beginRegister(object, [&seen, registration, failOn](const int& event, const std::optional<int>& previous, const Via&) {
            seen.push_back({registration, event, previous});
            return failOn == event ? VeltoResult<void>::fromMessage("refused") : VeltoResultVoidSuccess;
          }, impetus);
          break;
        }
        case 2: {  // deregister
          if (!object) break;
          const int id = objectIdOf[static_cast<std::size_t>(slot)];
          std::erase_if(entries, [&](const Entry& e) { return e.object == id; });
          subject->beginDeregister(object, impetus);
          break;
        }
        case 3: {  // the object dies, in line with the bus's work
          if (!object) break;
          deadObjects.insert(objectIdOf[static_cast<std::size_t>(slot)]);
          subject->serialQueue()->async([dying = std::move(object)] {});
          object = nullptr;
          break;
        }
        default: {  // publish
          const int event = static_cast<int>(random() % 10);
          std::vector<std::string> zombies;
          std::erase_if(entries, [&](const Entry& e) {
            if (!deadObjects.contains(e.object)) return false;
            zombies.push_back(typeOfObject[e.object]);
            return true;
          });
          if (!zombies.empty()) expectedWarnings.push_back({"Encountered zombie observers", zombies});
          bool failed = false;
          for (const Entry& e : entries) {
            expected.push_back({e.registration, event, mostRecent});
            if (e.failOn == event) {
              failed = true;
              break;
            }
          }
          if (failed) {
            ++expectedErrors;
          } else {
            mostRecent = event;
          }
          subject->beginPublish(event, impetus);
        }
      }
    }
    drain(*subject->serialQueue());
    ASSERT_EQ(seen, expected);
    EXPECT_EQ(subject->serialQueue()->sync([&] { return subject->mostRecent(); }), mostRecent);
    EXPECT_EQ(subject->serialQueue()->sync([&] { return subject->observerCount(); }), entries.size())
        << "zombies stay listed until a publication sweeps them";
    const auto warnings = model_logger->warnings();
    ASSERT_EQ(warnings.size(), expectedWarnings.size());
    for (std::size_t i = 0; i < warnings.size(); ++i) {
      EXPECT_EQ(warnings[i].error.message(), expectedWarnings[i].first);
      const auto* types = warnings[i].error.message() == "Encountered zombie observers"
                              ? argOf<std::vector<std::string>>(warnings[i].error.stackFrames()[0], "zombieObserverTypes")
                              : nullptr;
      if (types != nullptr) {
        EXPECT_EQ(*types, expectedWarnings[i].second);
      } else {
        EXPECT_EQ(*argOf<std::string>(warnings[i].error.stackFrames()[0], "observerType"), expectedWarnings[i].second[0]);
      }
    }
    EXPECT_EQ(model_logger->waitForErrors(static_cast<std::size_t>(expectedErrors)).size(), static_cast<std::size_t>(expectedErrors));
  }
}

using VeltoEventBusDeathTest = EventBusTest;

TEST_F(VeltoEventBusDeathTest, readingMostRecentOffTheQueueStops) {
  EXPECT_DEATH((void)bus->mostRecent(), "mostRecent read off the bus's queue");
}

}  // namespace
