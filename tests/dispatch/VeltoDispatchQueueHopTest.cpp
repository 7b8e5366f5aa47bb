// Hops between serial queues from work running on the pool: nothing may hang for want of a pool
// thread, and every queue keeps its order and runs one item at a time whoever runs it.
#include <velto/dispatch/VeltoDispatchQueue.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <latch>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Runs `scenario` on a thread of its own and fails the whole run if it has not finished within
// `limit`: a hung pool cannot be unwound, so the process ends instead of hanging the suite.
template <class F>
void mustFinishWithin(std::chrono::seconds limit, const char* what, F scenario) {
  auto finished = std::async(std::launch::async, std::move(scenario));
  if (finished.wait_for(limit) != std::future_status::ready) {
    std::fprintf(stderr, "FAILED: %s did not finish within %llds (a sync hop hung)\n", what,
                 static_cast<long long>(limit.count()));
    std::fflush(stderr);
    std::_Exit(1);
  }
  finished.get();
}

unsigned poolThreads() { return std::max(2u, std::thread::hardware_concurrency()); }

class VeltoDispatchQueueHop : public testing::TestWithParam<int> {};

// Every client's work posts to `shared` and then syncs onto it. The first clients meet at a latch
// so that every pool thread is inside client work when the syncs start: none is left to run
// `shared`'s posted work unless a waiting caller runs it.
TEST_P(VeltoDispatchQueueHop, clientsSyncingOntoASharedQueueWithPostedWorkAllFinish) {
  const int clients = GetParam();
  mustFinishWithin(60s, "clients syncing onto a shared queue", [clients] {
    auto shared = VeltoDispatchQueue::createSerial("shared");
    long posted = 0;  // shared-confined
    const int meeting = std::min<int>(clients, static_cast<int>(poolThreads()));
    std::latch allOnThePool(meeting);
    std::latch done(clients);
    std::vector<std::shared_ptr<VeltoDispatchQueue>> queues;
    std::atomic<int> wrong{0};
    for (int c = 0; c < clients; ++c) {
      queues.push_back(VeltoDispatchQueue::createSerial("client"));
      queues.back()->async([&, c] {
        if (c < meeting) allOnThePool.arrive_and_wait();
        shared->async([&] { ++posted; });
        const long seen = shared->sync([&] {
          if (!shared->isCurrent()) ++wrong;
          return posted;
        });
        if (seen < 1) ++wrong;  // the client's own post ran before its sync
        done.count_down();
      });
    }
    done.wait();
    EXPECT_EQ(shared->sync([&] { return posted; }), clients);
    EXPECT_EQ(wrong.load(), 0);
  });
}

// The same hop 2,000 times per client while other threads keep posting to `shared`.
TEST_P(VeltoDispatchQueueHop, repeatedHopsUnderTrafficAllFinishInOrder) {
  const int clients = GetParam();
  mustFinishWithin(120s, "repeated hops under traffic", [clients] {
    constexpr int kRounds = 2000;
    auto shared = VeltoDispatchQueue::createSerial("shared");
    std::vector<long> lastPost(static_cast<std::size_t>(clients), -1);  // shared-confined
    long traffic = 0;                                                   // shared-confined
    std::atomic<int> running{0};
    std::atomic<int> wrong{0};
    auto enter = [&] {
      if (running.fetch_add(1) != 0) ++wrong;
    };
    auto leave = [&] { running.fetch_sub(1); };
    std::atomic<bool> stopTraffic{false};
    std::thread trafficThread([&] {
      while (!stopTraffic.load()) {
        shared->async([&] {
          enter();
          ++traffic;
          leave();
        });
        std::this_thread::yield();
      }
    });
    std::latch done(clients);
    std::vector<std::shared_ptr<VeltoDispatchQueue>> queues;
    for (int c = 0; c < clients; ++c) {
      queues.push_back(VeltoDispatchQueue::createSerial("client"));
      auto client = queues.back();
      // Each round is a client item of its own, so the client queue itself is re-scheduled often.
      for (int round = 0; round < kRounds; ++round) {
        client->async([&, c, round] {
          shared->async([&, c, round] {
            enter();
            if (lastPost[static_cast<std::size_t>(c)] != round - 1) ++wrong;
            lastPost[static_cast<std::size_t>(c)] = round;
            leave();
          });
          const long seen = shared->sync([&, c] {
            enter();
            const long last = lastPost[static_cast<std::size_t>(c)];
            leave();
            return last;
          });
          if (seen != round) ++wrong;  // the post just made ran, and nothing of later rounds
          if (round == kRounds - 1) done.count_down();
        });
      }
    }
    done.wait();
    stopTraffic = true;
    trafficThread.join();
    shared->sync([] {});
    EXPECT_EQ(wrong.load(), 0) << "order or mutual exclusion was broken";
  });
}

INSTANTIATE_TEST_SUITE_P(Clients, VeltoDispatchQueueHop, testing::Values(2, 4, 16));

// Random async and sync hops between 50 queues. Syncs only go to a queue of higher index, so
// there is no self-sync and no cycle of nested syncs; everything must finish. For every pair
// (submitter, queue) items carry a ticket and must run in ticket order; every queue must run one
// item at a time and be current while it does.
class Soak {
 public:
  static constexpr int kQueues = 50;
  static constexpr int kExternal = kQueues;  // the test thread as a submitter

  explicit Soak(unsigned seed, int budget) : seed_(seed), budget_(budget) {
    for (int q = 0; q < kQueues; ++q) queues_[static_cast<std::size_t>(q)].queue = VeltoDispatchQueue::createSerial("soak");
  }

  void run() {
    outstanding_ = 1;  // held by the test thread until it has seeded its work
    std::mt19937 random(seed_);
    for (int i = 0; i < 200; ++i) hop(kExternal, random);
    if (--outstanding_ == 0) allDone_.set_value();
    allDone_.get_future().wait();
  }

  [[nodiscard]] int faults() const { return faults_.load(); }
  [[nodiscard]] long itemsRun() const { return itemsRun_.load(); }
  [[nodiscard]] long submitted() const { return submitted_.load(); }

 private:
  struct Slot {
    std::shared_ptr<VeltoDispatchQueue> queue;
    std::atomic<int> running{0};
    std::array<long, kQueues + 1> nextSeen{};  // per submitter; confined to this queue
    std::array<long, kQueues> nextSent{};      // per target; confined to this queue as a submitter
  };

  std::array<long, kQueues>& sentFrom(int source) {
    return source == kExternal ? externalSent_ : queues_[static_cast<std::size_t>(source)].nextSent;
  }

  // Runs on queue `target` as the item `ticket` from `source`.
  void body(int source, int target, long ticket, unsigned itemSeed) {
    Slot& slot = queues_[static_cast<std::size_t>(target)];
    if (slot.running.fetch_add(1) != 0) ++faults_;
    if (!slot.queue->isCurrent()) ++faults_;
    long& seen = slot.nextSeen[static_cast<std::size_t>(source)];
    if (seen != ticket) ++faults_;
    seen = ticket + 1;
    itemsRun_.fetch_add(1);
    slot.running.fetch_sub(1);
    std::mt19937 random(itemSeed);
    const int hops = static_cast<int>(random() % 4);  // 1.5 on average: runs until the budget is spent
    for (int i = 0; i < hops; ++i) hop(target, random);
    slot.running.fetch_add(1);  // still this queue's item: nothing else of it may have run meanwhile
    if (slot.running.load() != 1 || !slot.queue->isCurrent()) ++faults_;
    slot.running.fetch_sub(1);
  }

  // One submission from `source` (a queue's work, or the test thread) chosen at random.
  void hop(int source, std::mt19937& random) {
    if (budget_.fetch_sub(1) <= 0) return;
    submitted_.fetch_add(1);
    const bool canSync = source == kExternal || source + 1 < kQueues;
    const bool sync = canSync && random() % 2 == 0;
    int target = 0;
    if (sync) {
      const int low = source == kExternal ? 0 : source + 1;
      target = low + static_cast<int>(random() % static_cast<unsigned>(kQueues - low));
    } else {
      target = static_cast<int>(random() % kQueues);
    }
    const long ticket = sentFrom(source)[static_cast<std::size_t>(target)]++;
    const unsigned itemSeed = static_cast<unsigned>(random());
    auto& queue = queues_[static_cast<std::size_t>(target)].queue;
    if (sync) {
      queue->sync([=, this] { body(source, target, ticket, itemSeed); });
    } else {
      ++outstanding_;
      queue->async([=, this] {
        body(source, target, ticket, itemSeed);
        if (--outstanding_ == 0) allDone_.set_value();
      });
    }
  }

  unsigned seed_;
  std::atomic<int> budget_;
  std::array<Slot, kQueues> queues_;
  std::array<long, kQueues> externalSent_{};
  std::atomic<long> outstanding_{0};
  std::promise<void> allDone_;
  std::atomic<int> faults_{0};
  std::atomic<long> itemsRun_{0};
  std::atomic<long> submitted_{0};
};

TEST(VeltoDispatchQueueSoak, randomHopsBetweenFiftyQueuesFinishInOrderOneAtATime) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  mustFinishWithin(180s, "random hops between 50 queues", [seed] {
    constexpr int kBudget = 20000;
    Soak soak(seed, kBudget);
    soak.run();
    EXPECT_EQ(soak.faults(), 0) << "order, exclusion or the current queue was wrong";
    EXPECT_EQ(soak.itemsRun(), soak.submitted()) << "submissions were lost";
    EXPECT_GT(soak.submitted(), kBudget / 2) << "the random work died out early: the soak proved little";
  });
}

// Syncs from pool work onto a queue that a waiting caller helps drain: that caller runs the other
// queue's earlier async work, which must see its own queue as current and the caller's queue not.
TEST(VeltoDispatchQueueHelping, workRunByAWaitingCallerSeesItsOwnQueueAsCurrent) {
  mustFinishWithin(60s, "helped work", [] {
    constexpr int kRounds = 500;
    auto target = VeltoDispatchQueue::createSerial("target");
    std::vector<std::shared_ptr<VeltoDispatchQueue>> clients;
    for (unsigned i = 0; i < poolThreads() + 2; ++i) clients.push_back(VeltoDispatchQueue::createSerial("client"));
    std::atomic<int> wrong{0};
    std::latch done(static_cast<std::ptrdiff_t>(clients.size()) * kRounds);
    for (int round = 0; round < kRounds; ++round) {
      for (auto& client : clients) {
        client->async([&, client = client.get()] {
          target->async([&, client] {
            if (VeltoDispatchQueue::current() != target.get() || client->isCurrent()) ++wrong;
          });
          target->sync([&, client] {
            if (!target->isCurrent() || client->isCurrent()) ++wrong;
          });
          if (!client->isCurrent()) ++wrong;  // back on the client once the hop returns
          done.count_down();
        });
      }
    }
    done.wait();
    EXPECT_EQ(wrong.load(), 0);
  });
}

TEST(VeltoDispatchQueueHelping, exceptionFromSyncWorkAfterHelpingReachesTheCaller) {
  mustFinishWithin(60s, "throwing hop", [] {
    auto target = VeltoDispatchQueue::createSerial("target");
    auto client = VeltoDispatchQueue::createSerial("client");
    std::promise<bool> caught;
    int ran = 0;  // target-confined
    client->async([&] {
      target->async([&] { ++ran; });
      try {
        target->sync([]() -> int { throw std::runtime_error("no"); });
        caught.set_value(false);
      } catch (const std::runtime_error&) {
        caught.set_value(true);
      }
    });
    EXPECT_TRUE(caught.get_future().get());
    EXPECT_EQ(target->sync([&] { return ran; }), 1) << "the queue stayed owned after the exception";
  });
}

// A -> B -> A where the hop onto B waits for B's earlier work and B is handed over: still caught.
TEST(VeltoDispatchQueueDeathTest, syncBackOntoTheOuterQueueAfterWaitingStops) {
  EXPECT_DEATH(
      {
        auto a = VeltoDispatchQueue::createSerial("a-outer");
        auto b = VeltoDispatchQueue::createSerial("b-inner");
        std::promise<void> never;
        std::promise<void> gate;
        std::shared_future<void> open = gate.get_future().share();
        b->async([open] { open.wait(); });
        a->async([&] {
          gate.set_value();
          b->sync([&] { a->sync([] {}); });
        });
        never.get_future().wait();
      },
      "\"a-outer\" .*would deadlock");
}

}  // namespace
