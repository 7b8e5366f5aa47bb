#include <velto/concurrency/VeltoUnfairLock.hpp>

#include <gtest/gtest.h>

#include "support/FrameNames.hpp"

#include <stdexcept>
#include <thread>
#include <vector>

#include "support/CountingAllocator.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;

using velto::test::functionNames;

TEST(VeltoUnfairLock, excludesConcurrentBodies) {
  VeltoUnfairLock lock;
  long counter = 0;  // only touched under the lock: a lapse shows as a lost update and under TSan
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) lock.protected_([&] { ++counter; });
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counter, 80000);
}

TEST(VeltoUnfairLock, returnsTheBodysValueWithoutAllocating) {
  VeltoUnfairLock lock;
  velto::test::AllocationCounter allocations;
  const int value = lock.protected_([] { return 42; });
  EXPECT_EQ(value, 42);
  EXPECT_EQ(allocations.count(), 0u);
}

TEST(VeltoUnfairLock, unlocksWhenTheBodyThrows) {
  VeltoUnfairLock lock;
  EXPECT_THROW(lock.protected_([]() -> int { throw std::runtime_error("body"); }), std::runtime_error);
  EXPECT_EQ(lock.protected_([] { return 1; }), 1) << "the lock stayed held after the exception";
}

TEST(VeltoUnfairLock, resultFormPassesSuccessAndAddsOneFrameToAFailure) {
  VeltoUnfairLock lock;
  const VeltoResult<int> success = lock.protected_([] { return VeltoResult<int>(5); });
  ASSERT_TRUE(success.hasValue());
  EXPECT_EQ(success.value(), 5);

  const VeltoError original("inner failure");
  const VeltoResult<int> failure = lock.protected_([&] { return VeltoResult<int>::failure(original); });
  ASSERT_TRUE(failure.isFailure());
  const auto& frames = failure.error().stackFrames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[1].codeSite().fileName(), "VeltoUnfairLock");
  EXPECT_EQ(frames[1].codeSite().functionName(), "protected(_:)");
  EXPECT_FALSE(frames[1].invokerSite());
  EXPECT_EQ(failure.error().uuid(), original.uuid()) << "a failure is wrapped, never replaced";
}

TEST(VeltoUnfairLock, viaFormHandsTheBodyAJunctionAndAddsItsFrameToAFailure) {
  VeltoUnfairLock lock;
  const auto impetus = VeltoImpetus::create("tap", {}, VeltoCodeSite("App", "tap()", 1));
  const VeltoResult<void> result = lock.protected_(
      [](const Via& via) {
        EXPECT_EQ(functionNames(via->stackFrames()), (std::vector<std::string_view>{"protected(_:via:)", "tap()"}));
        EXPECT_FALSE(via->stackFrames().front().invokerSite());
        return VeltoResult<void>::failure(VeltoError("body failed", {}, nullptr, VeltoCodeSite("Body", "body()", 2)).appending(via));
      },
      impetus);
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(functionNames(result.error().stackFrames()),
            (std::vector<std::string_view>{"body()", "protected(_:via:)", "tap()", "protected(_:via:)"}));
  EXPECT_EQ(result.error().stackFrames().back().codeSite().fileName(), "VeltoUnfairLock");
  EXPECT_TRUE(lock.protected_([] { return true; })) << "the lock is free after a failing body";
}

TEST(VeltoUnfairLockDeathTest, reenteringFromItsOwnBodyStops) {
  VeltoUnfairLock lock;
  EXPECT_DEATH(lock.protected_([&] { lock.protected_([] {}); }), "VeltoUnfairLock: lock re-entered");
}

}  // namespace
