#include <velto/values/VeltoPointerUtil.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <string>

#include "support/FailureArgs.hpp"

namespace {

using velto::test::argsOf;

VeltoData bytes(std::initializer_list<int> values) {
  VeltoData data;
  for (int value : values) data.push_back(static_cast<std::byte>(value));
  return data;
}

TEST(VeltoPointerUtil, arrayFromPointerCopiesCountElements) {
  const int values[] = {4, 5, 6, 7};
  EXPECT_EQ(VeltoPointerUtil::arrayFromPointer(values, 3), (std::vector<int>{4, 5, 6}));
  EXPECT_TRUE(VeltoPointerUtil::arrayFromPointer(values, 0).empty());
  EXPECT_TRUE(VeltoPointerUtil::arrayFromPointer<int>(nullptr, 0).empty());
}

TEST(VeltoPointerUtil, pointerFromDataAddressesTheFirstByte) {
  const VeltoData data = bytes({9, 8});
  ASSERT_NE(VeltoPointerUtil::pointerFromData(data), nullptr);
  EXPECT_EQ(VeltoPointerUtil::pointerFromData<std::uint8_t>(data)[1], 8);
  EXPECT_EQ(VeltoPointerUtil::pointerFromData(VeltoData{}), nullptr);
}

TEST(VeltoPointerUtil, executeWithUnsafePointerPassesTheLengthInBytes) {
  const VeltoData data = bytes({1, 2, 3, 4});
  const auto result = VeltoPointerUtil::executeWithUnsafePointer<std::uint16_t, std::size_t>(
      data, [](const std::uint16_t*, std::size_t length) -> std::optional<VeltoResult<std::size_t>> { return length; });
  EXPECT_EQ(result.value(), 4u);

  const auto sum = VeltoPointerUtil::executeWithUnsafePointer<std::uint8_t, int>(
      data, [](const std::uint8_t* base, std::size_t length) -> std::optional<VeltoResult<int>> {
        return std::accumulate(base, base + length, 0);
      });
  EXPECT_EQ(sum.value(), 10);
}

TEST(VeltoPointerUtil, emptyDataHasNoBaseAddress) {
  bool called = false;
  const auto result = VeltoPointerUtil::executeWithUnsafePointer<std::uint8_t, int>(
      VeltoData{}, [&](const std::uint8_t*, std::size_t) -> std::optional<VeltoResult<int>> {
        called = true;
        return 1;
      });
  ASSERT_TRUE(result.isFailure());
  EXPECT_FALSE(called);
  EXPECT_EQ(result.error().message(), "Failed to get base address");
  EXPECT_EQ(result.error().stackFrames()[0].codeSite(),
            VeltoCodeSite("Util/VeltoPointerUtil", "executeWithUnsafePointer(data:executeUnsafe:)", 30));
}

TEST(VeltoPointerUtil, missingResultAndFailuresAreReported) {
  const VeltoData data = bytes({1});
  const auto nothing = VeltoPointerUtil::executeWithUnsafePointer<std::uint8_t, std::string>(
      data, [](const std::uint8_t*, std::size_t) -> std::optional<VeltoResult<std::string>> { return std::nullopt; });
  ASSERT_TRUE(nothing.isFailure());
  EXPECT_EQ(nothing.error().message(), "No execution result");
  EXPECT_EQ(nothing.error().stackFrames()[0].codeSite().lineNumber(), 35u);
  const VeltoArgs& args = argsOf(nothing.error(), 0);
  EXPECT_EQ(*args.find("data")->get<VeltoData>(), data);
  EXPECT_EQ(*args.find("T")->get<std::string>(), "unsigned char");
  EXPECT_EQ(*args.find("U")->get<std::string>(), velto::detail::typeName<std::string>());

  const auto failed = VeltoPointerUtil::executeWithUnsafePointer<std::uint8_t, int>(
      data, [](const std::uint8_t*, std::size_t) -> std::optional<VeltoResult<int>> {
        return VeltoResult<int>::fromMessage("Inner failure");
      });
  ASSERT_TRUE(failed.isFailure());
  EXPECT_EQ(failed.error().message(), "Inner failure");
  ASSERT_EQ(failed.error().stackFrames().size(), 2u) << "passed up with one frame";
  EXPECT_EQ(failed.error().stackFrames()[1].codeSite().lineNumber(), 40u);
  EXPECT_NE(argsOf(failed.error(), 1).find("data"), nullptr);
}

TEST(VeltoPointerUtilDeathTest, negativeCountStops) {
  const int values[] = {1};
  EXPECT_DEATH((void)VeltoPointerUtil::arrayFromPointer(values, -1), "negative");
}

}  // namespace
