#include <velto/collections/VeltoDictionaryOfDictionaries.hpp>

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using Nested = VeltoDictionaryOfDictionaries<int, int, int>;

// The same values under the same key pairs, and no empty group.
void expectSame(const Nested& nested, const std::map<std::pair<int, int>, int>& model) {
  ASSERT_EQ(nested.count(), model.size());
  std::set<int> groups;
  for (const auto& [keys, value] : model) {
    groups.insert(keys.first);
    const int* stored = nested.value(keys.first, keys.second);
    ASSERT_NE(stored, nullptr);
    ASSERT_EQ(*stored, value);
  }
  ASSERT_EQ(nested.dictionaryCount(), groups.size());
  std::size_t visited = 0;
  nested.forEach([&](int outer, int inner, int value) {
    ++visited;
    EXPECT_EQ(model.at({outer, inner}), value);
  });
  ASSERT_EQ(visited, model.size());
  for (const auto& [outer, group] : nested) ASSERT_FALSE(group.empty()) << "group " << outer << " kept empty";
}

TEST(VeltoDictionaryOfDictionaries, keepsValuesUnderKeyPairsAndDropsEmptyGroups) {
  std::mt19937 random(31);
  Nested nested;
  std::map<std::pair<int, int>, int> model;
  for (int step = 0; step < 20000; ++step) {
    const int outer = static_cast<int>(random() % 6), inner = static_cast<int>(random() % 6);
    const int value = static_cast<int>(random() % 1000);
    switch (random() % 5) {
      case 0:
      case 1: {
        const auto previous = nested.setValue(outer, inner, value);
        const auto found = model.find({outer, inner});
        ASSERT_EQ(previous.has_value(), found != model.end());
        if (previous) {
          ASSERT_EQ(*previous, found->second);
        }
        model[{outer, inner}] = value;
        break;
      }
      case 2:
      case 3: {
        const auto removed = nested.removeValue(outer, inner);
        ASSERT_EQ(removed.has_value(), model.erase({outer, inner}) == 1);
        break;
      }
      default: {
        const auto group = nested.removeDictionary(outer);
        std::size_t expected = 0;
        for (auto it = model.lower_bound({outer, INT_MIN}); it != model.end() && it->first.first == outer;) {
          ASSERT_EQ(group->at(it->first.second), it->second);
          it = model.erase(it);
          ++expected;
        }
        ASSERT_EQ(group.has_value(), expected > 0);
        if (group) {
          ASSERT_EQ(group->size(), expected);
        }
      }
    }
    const auto first = model.lower_bound({outer, INT_MIN});
    ASSERT_EQ(nested.dictionary(outer) != nullptr, first != model.end() && first->first.first == outer);
    if (step % 32 == 0) expectSame(nested, model);
  }
  Nested copy = nested;
  EXPECT_TRUE(copy == nested);
  copy.removeAll();
  EXPECT_TRUE(copy.isEmpty());
  EXPECT_EQ(copy.dictionaryCount(), 0u);
}

// A value whose moves can be made to throw, as an allocation inside a real value may.
struct Fragile {
  static inline bool failMoves = false;
  int payload = 0;
  explicit Fragile(int p) : payload(p) {}
  Fragile(const Fragile&) = default;
  Fragile(Fragile&& other) : payload(other.payload) {
    if (failMoves) throw std::runtime_error("move failed");
  }
  Fragile& operator=(const Fragile&) = default;
  Fragile& operator=(Fragile&&) = default;
  bool operator==(const Fragile&) const = default;
};

TEST(VeltoDictionaryOfDictionaries, aThrowingInsertionLeavesNoEmptyGroup) {
  VeltoDictionaryOfDictionaries<std::string, int, Fragile> nested;
  nested.setValue("kept", 1, Fragile(1));
  Fragile::failMoves = true;
  EXPECT_THROW(nested.setValue("new", 1, Fragile(2)), std::runtime_error);
  Fragile::failMoves = false;
  EXPECT_EQ(nested.dictionary("new"), nullptr);
  EXPECT_EQ(nested.dictionaryCount(), 1u);
  EXPECT_EQ(nested.count(), 1u);
}

}  // namespace
