#include <velto/concurrency/VeltoAutoreleasePool.hpp>

#include <gtest/gtest.h>

namespace {

using Via = std::shared_ptr<const VeltoVia>;

TEST(VeltoAutoreleasePool, passesAValueAndAddsOneFrameToAFailure) {
  EXPECT_EQ(autoReleasePool([] { return VeltoResult<int>(3); }).value(), 3);
  const VeltoResult<int> failed = autoReleasePool([] { return VeltoResult<int>::fromMessage("no"); });
  ASSERT_TRUE(failed.isFailure());
  const auto& frames = failed.error().stackFrames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[1].codeSite().fileName(), "AutoreleasePool+VeltoResult");
  EXPECT_EQ(frames[1].codeSite().functionName(), "autoReleasePool(invoking:)");
}

TEST(VeltoAutoreleasePool, viaFormForksTwiceAndAddsOneFrameToAFailure) {
  const auto impetus = VeltoImpetus::create("start", {}, VeltoCodeSite("App", "start()", 1));
  std::size_t depth = 0;
  const VeltoResult<void> failed = autoReleasePool(
      [&](const Via& via) {
        depth = via->stackFrames().size();
        for (const auto& frame : via->stackFrames()) {
          if (frame.codeSite().functionName() == "start()") continue;
          EXPECT_EQ(frame.codeSite().functionName(), "autoReleasePool(invoking:via:)");
          EXPECT_EQ(frame.codeSite().fileName(), "AutoreleasePool+VeltoResult");
        }
        return VeltoResult<void>::fromMessage("inner");
      },
      impetus);
  EXPECT_EQ(depth, 3u) << "two junctions over the impetus";
  ASSERT_TRUE(failed.isFailure());
  ASSERT_EQ(failed.error().stackFrames().size(), 2u);
  EXPECT_EQ(failed.error().stackFrames()[1].codeSite().functionName(), "autoReleasePool(invoking:via:)");
}

}  // namespace
