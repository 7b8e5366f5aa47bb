#include <velto/core/VeltoImpetus.hpp>
#include <velto/core/VeltoJunction.hpp>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/CountingAllocator.hpp"
#include "support/FrameNames.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;

std::shared_ptr<const VeltoJunction> forkNamed(const Via& via, const char (&function)[2]) {
  return fork(via, {}, std::nullopt, VeltoCodeSite::interned("Test", function, 1));
}

std::vector<std::string_view> functionNames(const Via& via) { return velto::test::functionNames(via->stackFrames()); }

TEST(VeltoImpetus, hasOneFrameWithoutInvokerSiteAtItsCreation) {
  const unsigned line = __LINE__ + 1;
  const VeltoImpetus impetus("User tapped", {{"button", std::string("save")}});
  const auto frames = impetus.stackFrames();
  ASSERT_EQ(frames.size(), 1u);
  const VeltoStackFrame& frame = frames.front();
  EXPECT_FALSE(frame.invokerSite().has_value());
  EXPECT_EQ(frame.codeSite().lineNumber(), line);
  EXPECT_NE(frame.args().get<VeltoArgs>(), nullptr);
  EXPECT_EQ(impetus.name(), "User tapped");
}

TEST(VeltoImpetus, timestampIsWallClockSecondsSince1970) {
  const double before = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const VeltoImpetus impetus("now");
  const double after = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  EXPECT_GE(impetus.timestampEpoch(), before);
  EXPECT_LE(impetus.timestampEpoch(), after);
  EXPECT_EQ(impetus.impetus(), impetus) << "an impetus's impetus is a copy of itself";
}

TEST(VeltoJunction, forkPutsItsFrameBeforeThoseOfItsParent) {
  const auto impetus = VeltoImpetus::create("root", VeltoAny{}, VeltoCodeSite("Root", "R", 1));
  const VeltoCodeSite caller("Caller.cpp", "caller()", 77);
  const auto junction = fork(impetus, 5, caller, VeltoCodeSite("Lib", "op(via:)", 9));

  const auto frames = junction->stackFrames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].codeSite(), VeltoCodeSite("Lib", "op(via:)", 9));
  EXPECT_EQ(frames[0].invokerSite(), caller);
  ASSERT_NE(frames[0].args().get<int>(), nullptr);
  EXPECT_EQ(*frames[0].args().get<int>(), 5);
  EXPECT_EQ(frames[1].codeSite(), VeltoCodeSite("Root", "R", 1));
  EXPECT_FALSE(frames[1].invokerSite());
  EXPECT_EQ(junction->parent(), impetus);
}

TEST(VeltoJunction, readsInnermostFirstAtAnyDepthAndReportsTheRootImpetus) {
  const auto impetus = VeltoImpetus::create("root", VeltoAny{}, VeltoCodeSite("Root", "R", 1));
  Via via = impetus;
  for (const char* name : {"a", "b", "c", "d"}) via = fork(via, {}, std::nullopt, VeltoCodeSite::interned("T", name, 1));
  EXPECT_EQ(functionNames(via), (std::vector<std::string_view>{"d", "c", "b", "a", "R"}));
  EXPECT_EQ(via->impetus(), *impetus);
  EXPECT_EQ(via->impetus().timestampEpoch(), impetus->timestampEpoch());
}

TEST(VeltoJunction, siblingsShareTheParentButNotEachOther) {
  const auto impetus = VeltoImpetus::create("root", VeltoAny{}, VeltoCodeSite("Root", "R", 1));
  const auto parent = forkNamed(impetus, "p");
  const auto left = forkNamed(parent, "l");
  const auto right = forkNamed(parent, "r");
  EXPECT_EQ(functionNames(left), (std::vector<std::string_view>{"l", "p", "R"}));
  EXPECT_EQ(functionNames(right), (std::vector<std::string_view>{"r", "p", "R"}));
  EXPECT_EQ(functionNames(parent), (std::vector<std::string_view>{"p", "R"})) << "forking never changes the parent";
}

TEST(VeltoJunction, forkMakesExactlyOneAllocation) {
  const auto impetus = VeltoImpetus::create("root");
  const VeltoAny args = 42;  // recorded beforehand: the box is the caller's, not the fork's
  const velto::test::AllocationCounter counter;
  const auto junction = fork(impetus, args, VeltoCodeSite::current(), VeltoCodeSite("Lib/LongerThanSmallString", "an operation(with:labels:)", 1));
  EXPECT_EQ(counter.count(), 1u);
}

TEST(VeltoJunction, holdingALeafKeepsThePathAlive) {
  std::weak_ptr<const VeltoImpetus> weakRoot;
  std::shared_ptr<const VeltoJunction> leaf;
  {
    auto impetus = VeltoImpetus::create("root");
    weakRoot = impetus;
    leaf = forkNamed(forkNamed(impetus, "a"), "b");
  }
  EXPECT_FALSE(weakRoot.expired());
  leaf.reset();
  EXPECT_TRUE(weakRoot.expired());
}

TEST(VeltoJunction, veryDeepTrailsReadAndReleaseWithoutRecursion) {
  constexpr std::size_t depth = 300'000;
  const auto impetus = VeltoImpetus::create("root");
  Via via = impetus;
  for (std::size_t i = 0; i < depth; ++i) via = fork(std::move(via), {}, std::nullopt, VeltoCodeSite::interned("T", "f", i));
  EXPECT_EQ(via->stackFrames().size(), depth + 1);
  EXPECT_EQ(via->stackFrames().front().codeSite().lineNumber(), depth - 1);
  EXPECT_EQ(via->impetus().name(), "root");
  via.reset();  // must not overflow the stack
  EXPECT_EQ(impetus.use_count(), 1);
}

TEST(VeltoJunction, isReadAndForkedFromManyThreadsAtOnce) {
  const auto impetus = VeltoImpetus::create("root");
  const auto shared = forkNamed(impetus, "s");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        const auto mine = forkNamed(shared, "m");
        ASSERT_EQ(mine->stackFrames().size(), 3u);
        ASSERT_EQ(mine->impetus().name(), "root");
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(shared.use_count(), 1);
}

using VeltoJunctionDeathTest = testing::Test;

TEST(VeltoJunctionDeathTest, forkingANullTrailStops) {
  EXPECT_DEATH((void)fork(nullptr, {}, std::nullopt, VeltoCodeSite("T", "f", 1)), "trail to fork is null");
}

}  // namespace
