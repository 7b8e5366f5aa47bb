#include <velto/collections/VeltoSortedTupleArray.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Table = VeltoSortedTupleArray<int, int>;

std::vector<std::pair<int, int>> entriesOf(const Table& table) {
  std::vector<std::pair<int, int>> entries;
  for (const auto& [key, value] : table) entries.emplace_back(key, value);
  return entries;
}

// Every operation against std::map on random keys from a small range, so that hits, misses,
// replacements and both ends all occur often.
TEST(VeltoSortedTupleArray, behavesAsAnOrderedMapUnderRandomOperations) {
  std::mt19937 random(23);
  Table table;
  std::map<int, int> model;
  for (int step = 0; step < 20000; ++step) {
    const int key = static_cast<int>(random() % 64) - 32;
    const int value = static_cast<int>(random());
    switch (random() % 6) {
      case 0: {
        const Table::Index at = table.setValue(key, value);
        model[key] = value;
        ASSERT_EQ(at, std::distance(model.begin(), model.find(key)));
        break;
      }
      case 1: {
        const auto inserted = table.insert(key, value);
        const bool fresh = model.emplace(key, value).second;
        ASSERT_EQ(inserted.hasValue(), fresh);
        if (!fresh) {
          ASSERT_EQ(inserted.error().message(), "Duplicate key");
        }
        break;
      }
      case 2: {
        const auto removed = table.removeValue(key);
        const auto found = model.find(key);
        ASSERT_EQ(removed.has_value(), found != model.end());
        if (found != model.end()) {
          ASSERT_EQ(*removed, found->second);
          model.erase(found);
        }
        break;
      }
      case 3:
        if (!model.empty()) {
          const auto index = static_cast<Table::Index>(random() % model.size());
          const auto removed = table.removeAt(index);
          const auto position = std::next(model.begin(), index);
          ASSERT_EQ(removed.key, position->first);
          model.erase(position);
        }
        break;
      default: {
        const int* found = table.find(key);
        const auto expected = model.find(key);
        ASSERT_EQ(found != nullptr, expected != model.end());
        if (found) {
          ASSERT_EQ(*found, expected->second);
        }
        ASSERT_EQ(table.contains(key), found != nullptr);
        ASSERT_EQ(table.indexOf(key).has_value(), found != nullptr);
        ASSERT_EQ(table.lowerBound(key), std::distance(model.begin(), model.lower_bound(key)));
        ASSERT_EQ(table.upperBound(key), std::distance(model.begin(), model.upper_bound(key)));
      }
    }
    ASSERT_EQ(table.count(), static_cast<Table::Index>(model.size()));
    if (step % 64 == 0) {
      ASSERT_EQ(entriesOf(table), (std::vector<std::pair<int, int>>(model.begin(), model.end())));
    }
  }
}

TEST(VeltoSortedTupleArray, makeSortsAnyRangeAndRefusesRepeatedKeys) {
  const std::vector<std::pair<int, std::string>> rows{{3, "c"}, {1, "a"}, {2, "b"}};
  const auto made = VeltoSortedTupleArray<int, std::string>::make(rows);
  ASSERT_TRUE(made.hasValue());
  EXPECT_EQ(made.value()[0].value, "a");
  EXPECT_EQ(made.value()[2].key, 3);

  // A range of temporaries.
#if !defined(__clang__) || __clang_major__ >= 15  // clang 14 cannot build libstdc++ 12's range adaptors
  const auto squares = VeltoSortedTupleArray<int, int>::make(
      std::views::iota(0, 100) | std::views::reverse | std::views::transform([](int i) { return std::pair(i, i * i); }));
  EXPECT_EQ(*squares.value().find(9), 81);
#endif

  const auto repeated = Table::make({{1, 10}, {2, 20}, {1, 30}});
  ASSERT_TRUE(repeated.isFailure());
  EXPECT_EQ(repeated.error().message(), "Duplicate key");
  EXPECT_EQ(*repeated.error().stackFrames()[0].args().get<VeltoArgs>()->find("key")->get<int>(), 1);
  EXPECT_TRUE(Table::make(std::vector<std::pair<int, int>>{}).value().isEmpty());
}

TEST(VeltoSortedTupleArray, looksUpByAnyComparableKeyWithoutBuildingOne) {
  VeltoSortedTupleArray<std::string, int> ports;
  ports.setValue("https", 443);
  ports.setValue("http", 80);
  EXPECT_EQ(*ports.find(std::string_view("http")), 80);
  EXPECT_EQ(*ports.find("https"), 443);
  EXPECT_EQ(ports.find("ftp"), nullptr);
  *ports.find("http") = 8080;
  EXPECT_EQ(ports[0].value, 8080);
  EXPECT_EQ(ports.setValue("http", 81), 0) << "replaces in place";
  EXPECT_EQ(ports.count(), 2);
}

TEST(VeltoSortedTupleArray, followsItsOrdering) {
  VeltoSortedTupleArray<int, char, std::greater<>> descending;
  for (int key : {2, 9, 4}) descending.setValue(key, static_cast<char>('a' + key));
  EXPECT_EQ(descending[0].key, 9);
  EXPECT_EQ(descending.lowerBound(5), 1) << "the first key not before 5 in descending order is 4";
  EXPECT_EQ(*descending.removeValue(9), 'j');
}

TEST(VeltoSortedTupleArray, rendersAsADictionary) {
  const auto table = Table::make({{2, 20}, {1, 10}}).value();
  const auto text = VeltoDynamicDebugEncoder::encodeToString(table, VeltoDynamicDebugEncoderOptions::forLogging().withPrettyPrint(false));
  EXPECT_EQ(text.value(), R"([{"__key":1,"__value":10},{"__key":2,"__value":20}])") << "the encoder's form for keys that are not text";
}

TEST(VeltoSortedTupleArrayDeathTest, indicesOutOfRangeStop) {
  Table table = Table::make({{1, 1}}).value();
  EXPECT_DEATH({ [[maybe_unused]] auto entry = table[1]; }, "index out of range");
  EXPECT_DEATH(table.removeAt(-1), "index out of range");
}

}  // namespace
