#include <velto/collections/VeltoSetToggleResult.hpp>

#include <boost/describe/enum_to_string.hpp>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_set>

namespace {

TEST(VeltoSetToggleResult, togglingTwiceRestoresTheSet) {
  std::unordered_set<std::string> set{"a"};
  EXPECT_EQ(toggle(set, "b"), VeltoSetToggleResult::inserted);
  EXPECT_EQ(set, (std::unordered_set<std::string>{"a", "b"}));
  EXPECT_EQ(toggle(set, "b"), VeltoSetToggleResult::removed);
  EXPECT_EQ(set, (std::unordered_set<std::string>{"a"}));
}

TEST(VeltoSetToggleResult, worksOnOrderedSetsAndLeavesOtherMembers) {
  std::set<int> set{1, 2, 3};
  EXPECT_EQ(toggle(set, 2), VeltoSetToggleResult::removed);
  EXPECT_EQ(set, (std::set<int>{1, 3}));
  EXPECT_EQ(toggle(set, 0), VeltoSetToggleResult::inserted);
  EXPECT_EQ(set, (std::set<int>{0, 1, 3}));
}

TEST(VeltoSetToggleResult, isHashableAndNamed) {
  std::unordered_set<VeltoSetToggleResult> results{VeltoSetToggleResult::inserted, VeltoSetToggleResult::removed,
                                                   VeltoSetToggleResult::inserted};
  EXPECT_EQ(results.size(), 2u);
  EXPECT_STREQ(boost::describe::enum_to_string(VeltoSetToggleResult::removed, ""), "removed");
}

}  // namespace
