// The structured-encoder API on its own: documents written through the containers.
#include <velto/encoding/VeltoEncoder.hpp>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

// Writes a random value both through the containers and straight into a Boost.JSON model.
class RandomWriter {
 public:
  explicit RandomWriter(unsigned seed) : random_(seed) {}

  void keyed(VeltoKeyedEncodingContainer& container, boost::json::object& model, int depth) {
    for (int i = pick(5); i > 0; --i) {
      const std::string key = "k" + std::to_string(pick(6));  // repeats replace in place
      switch (pick(depth > 0 ? 6 : 4)) {
        case 0: {
          const auto number = static_cast<std::int64_t>(random_()) - 99;
          ASSERT_TRUE(container.encode(key, number));
          model[key] = number;
          break;
        }
        case 1: ASSERT_TRUE(container.encode(key, "s\"" + std::to_string(pick(9)))); model[key] = "s\"" + std::to_string(lastPick_); break;
        case 2: ASSERT_TRUE(container.encode(key, pick(2) == 1)); model[key] = lastPick_ == 1; break;
        case 3: ASSERT_TRUE(container.encodeNull(key)); model[key] = nullptr; break;
        case 4: {
          auto nested = container.nestedKeyedContainer(key);
          model[key] = boost::json::object();
          keyed(nested, model[key].as_object(), depth - 1);
          break;
        }
        default: {
          auto nested = container.nestedUnkeyedContainer(key);
          model[key] = boost::json::array();
          unkeyed(nested, model[key].as_array(), depth - 1);
        }
      }
      ASSERT_TRUE(container.contains(key));
    }
    EXPECT_EQ(container.count(), model.size());
  }

  void unkeyed(VeltoUnkeyedEncodingContainer& container, boost::json::array& model, int depth) {
    for (int i = pick(5); i > 0; --i) {
      switch (pick(depth > 0 ? 5 : 3)) {
        case 0: ASSERT_TRUE(container.encode(0.5 * pick(100) + 0.25)); model.emplace_back(0.5 * lastPick_ + 0.25); break;  // never integral: the text of 10.0 is "10"
        case 1: ASSERT_TRUE(container.encode(std::uint64_t{1} << 63)); model.emplace_back(std::uint64_t{1} << 63); break;
        case 2: ASSERT_TRUE(container.encodeNull()); model.emplace_back(nullptr); break;
        case 3: {
          auto nested = container.nestedKeyedContainer();
          auto& slot = model.emplace_back(boost::json::object());
          keyed(nested, slot.as_object(), depth - 1);
          break;
        }
        default: {
          auto nested = container.nestedUnkeyedContainer();
          auto& slot = model.emplace_back(boost::json::array());
          unkeyed(nested, slot.as_array(), depth - 1);
        }
      }
    }
    EXPECT_EQ(container.count(), model.size());
  }

 private:
  int pick(int bound) {
    last_ = random_();
    lastPick_ = static_cast<int>(last_ % static_cast<unsigned>(bound));
    return lastPick_;
  }
  std::mt19937 random_;
  unsigned last_ = 0;
  int lastPick_ = 0;
};

TEST(VeltoEncodingDocument, containersBuildTheSameTreeAsAModelAndItsTextParsesBack) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    VeltoEncodingDocument document;
    boost::json::object model;
    {
      auto encoder = document.encoder();
      auto root = encoder.keyedContainer();
      RandomWriter(seed).keyed(root, model, 4);
    }
    ASSERT_TRUE(document.hasValue());
    ASSERT_EQ(document.tree(), boost::json::value(model)) << "seed " << seed;
    EXPECT_EQ(boost::json::parse(document.jsonText()), document.tree());
    EXPECT_EQ(boost::json::parse(document.jsonText(true, true)), document.tree());
  }
}

TEST(VeltoEncodingDocument, textKeepsInsertionOrderUnlessSortedAndWritesShortestDoubles) {
  VeltoEncodingDocument document;
  EXPECT_FALSE(document.hasValue());
  EXPECT_EQ(document.jsonText(), "null");
  {
    auto encoder = document.encoder();
    auto root = encoder.keyedContainer();
    ASSERT_TRUE(root.encode("b", 1.5));
    auto list = root.nestedUnkeyedContainer("a");
    ASSERT_TRUE(list.encode(0.1));
    ASSERT_TRUE(root.encode("c", "x"));  // written while "a" is still open: "a" keeps its place
  }
  EXPECT_EQ(document.jsonText(), R"({"b":1.5,"a":[0.1],"c":"x"})");
  EXPECT_EQ(document.jsonText(false, true), R"({"a":[0.1],"b":1.5,"c":"x"})");
  EXPECT_EQ(document.jsonText(true), "{\n  \"b\" : 1.5,\n  \"a\" : [\n    0.1\n  ],\n  \"c\" : \"x\"\n}");
}

TEST(VeltoEncodingDocument, nonFiniteDoublesFailWithoutAStrategy) {
  VeltoEncodingDocument document;
  auto encoder = document.encoder();
  auto root = encoder.unkeyedContainer();
  const auto failed = root.encode(std::numeric_limits<double>::infinity());
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().message(), "Unable to encode a non-finite floating-point value directly in JSON");
  EXPECT_TRUE(root.encode(2.0));
  EXPECT_EQ(root.count(), 1u);
}

}  // namespace
