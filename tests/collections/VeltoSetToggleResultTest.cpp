#include <velto/collections/VeltoSetToggleResult.hpp>

#include <boost/describe/enum_to_string.hpp>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_set>

namespace {

TEST(VeltoSetToggleResult, togglingFlipsOneMemberOfHashedAndOrderedSets) {
  std::unordered_set<std::string> hashed{"a"};
  EXPECT_EQ(toggle(hashed, "b"), VeltoSetToggleResult::inserted);
  EXPECT_EQ(hashed, (std::unordered_set<std::string>{"a", "b"}));
  EXPECT_EQ(toggle(hashed, "b"), VeltoSetToggleResult::removed);
  EXPECT_EQ(hashed, (std::unordered_set<std::string>{"a"}));
  std::set<int> ordered{1, 2, 3};
  EXPECT_EQ(toggle(ordered, 2), VeltoSetToggleResult::removed);
  EXPECT_EQ(toggle(ordered, 0), VeltoSetToggleResult::inserted);
  EXPECT_EQ(ordered, (std::set<int>{0, 1, 3}));
}

TEST(VeltoSetToggleResult, isHashableAndNamed) {
  std::unordered_set<VeltoSetToggleResult> results{VeltoSetToggleResult::inserted, VeltoSetToggleResult::removed,
                                                   VeltoSetToggleResult::inserted};
  EXPECT_EQ(results.size(), 2u);
  EXPECT_STREQ(boost::describe::enum_to_string(VeltoSetToggleResult::removed, ""), "removed");
}

}  // namespace
