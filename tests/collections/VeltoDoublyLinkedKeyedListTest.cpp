#include <velto/collections/VeltoDoublyLinkedKeyedList.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <unordered_map>
#include <random>
#include <string>
#include <vector>

#include "support/FailureArgs.hpp"
#include "support/KeyedListModel.hpp"

namespace {

using List = VeltoDoublyLinkedKeyedList<std::string, int>;
using NodePtr = List::NodePtr;
using Outcome = velto::test::KeyedListModel::Outcome;
using velto::test::arg;
using velto::test::argNames;

// Everything observable about a list and the given nodes, to show a failure changed nothing.
struct Snapshot {
  std::size_t count;
  List::Node* head;
  List::Node* tail;
  std::vector<std::pair<List::Node*, List::Node*>> links;  // tailward, headward per node
  bool operator==(const Snapshot&) const = default;
};

Snapshot snapshot(const List& list, const std::vector<NodePtr>& nodes) {
  Snapshot shot{list.count(), list.headNode().get(), list.tailNode().get(), {}};
  for (const auto& node : nodes) shot.links.emplace_back(node->tailward().get(), node->headward().get());
  return shot;
}

std::vector<std::string> keysFromHead(const List& list) {
  std::vector<std::string> keys;
  for (NodePtr node = list.headNode(); node; node = node->tailward()) keys.push_back(node->key());
  return keys;
}

// C -> B -> A, head to tail.
struct ThreeNodes {
  std::shared_ptr<List> list = List::create();
  NodePtr a = list->addToHead("A", 1);
  NodePtr b = list->addToHead("B", 2);
  NodePtr c = list->addToHead("C", 3);
  std::vector<NodePtr> all() const { return {a, b, c}; }
};

TEST(VeltoDoublyLinkedKeyedList, removeTailOnAnEmptyListFailsWithItself) {
  auto list = List::create();
  auto removed = list->removeTail();
  ASSERT_TRUE(removed.isFailure());
  EXPECT_EQ(removed.error().message(), "No tail to remove");
  EXPECT_EQ(argNames(removed.error(), 0), std::vector<std::string>{"self"});
  EXPECT_EQ(*arg<std::shared_ptr<List>>(removed.error(), "self", 0), list);
  EXPECT_EQ(removed.error().stackFrames()[0].codeSite().fileName(), "Data Structures/VeltoDoublyLinkedKeyedList");
  EXPECT_EQ(removed.error().stackFrames()[0].codeSite().functionName(), "removeTail()");
  EXPECT_EQ(list->count(), 0u);
}

TEST(VeltoDoublyLinkedKeyedList, promotingAnAbsentKeyFailsAndAddsNothing) {
  ThreeNodes three;
  const Snapshot before = snapshot(*three.list, three.all());
  auto promoted = three.list->promoteToHead(std::string("Z"), 9);
  ASSERT_TRUE(promoted.isFailure());
  EXPECT_EQ(promoted.error().message(), "Can't promote item as it isn't in list");
  EXPECT_EQ(argNames(promoted.error(), 0), (std::vector<std::string>{"key", "item"}));
  EXPECT_EQ(*arg<std::string>(promoted.error(), "key", 0), "Z");
  EXPECT_EQ(*arg<int>(promoted.error(), "item", 0), 9);
  const auto& site = promoted.error().stackFrames()[0].codeSite();
  EXPECT_EQ(site.functionName(), "promoteToHead(key:item:)");
  EXPECT_EQ(site.lineNumber(), 123u);
  EXPECT_EQ(snapshot(*three.list, three.all()), before);
}

// Kept on purpose: the former head is not linked back to an interior node promoted past it.
TEST(VeltoDoublyLinkedKeyedList, promotingAnInteriorNodeLeavesTheFormerHeadWithoutBackLink) {
  ThreeNodes three;
  ASSERT_TRUE(three.list->promoteToHead(three.b));
  EXPECT_EQ(keysFromHead(*three.list), (std::vector<std::string>{"B", "C", "A"}));
  EXPECT_EQ(three.c->headward(), nullptr);
  EXPECT_EQ(three.a->headward(), three.c);
  EXPECT_EQ(three.list->tailNode(), three.a);

  const Snapshot before = snapshot(*three.list, three.all());
  auto removed = three.list->remove(three.c);
  ASSERT_TRUE(removed.isFailure());
  EXPECT_EQ(removed.error().message(), "Node appears to be a head node but doesn't match this doubly-linked list's head node");
  EXPECT_EQ(argNames(removed.error(), 0), (std::vector<std::string>{"node", "next", "headNode"}));
  EXPECT_EQ(*arg<NodePtr>(removed.error(), "node", 0), three.c);
  EXPECT_EQ(*arg<NodePtr>(removed.error(), "next", 0), three.a);
  EXPECT_EQ(*arg<NodePtr>(removed.error(), "headNode", 0), three.b);
  EXPECT_EQ(snapshot(*three.list, three.all()), before);

  // By key the same failure comes back wrapped, and once more through promotion (line 121).
  auto byKey = three.list->remove(std::string("C"));
  ASSERT_TRUE(byKey.isFailure());
  ASSERT_EQ(byKey.error().stackFrames().size(), 2u);
  EXPECT_EQ(byKey.error().stackFrames()[1].codeSite().functionName(), "remove(key:)");
  EXPECT_EQ(argNames(byKey.error(), 1), std::vector<std::string>{"keyToRemove"});
  EXPECT_EQ(*arg<std::string>(byKey.error(), "keyToRemove", 1), "C");
  auto promoted = three.list->promoteToHead(std::string("C"), 30);
  ASSERT_TRUE(promoted.isFailure());
  ASSERT_EQ(promoted.error().stackFrames().size(), 3u);
  const auto& outer = promoted.error().stackFrames()[2];
  EXPECT_EQ(outer.codeSite().functionName(), "promoteToHead(key:item:)");
  EXPECT_EQ(outer.codeSite().lineNumber(), 121u);
  EXPECT_EQ(argNames(promoted.error(), 2), (std::vector<std::string>{"key", "item"}));
  EXPECT_EQ(*arg<int>(promoted.error(), "item", 2), 30);
  EXPECT_EQ(snapshot(*three.list, three.all()), before);

  // The former head is now taken to be a head: promoting it does nothing.
  ASSERT_TRUE(three.list->promoteToHead(three.c));
  EXPECT_EQ(snapshot(*three.list, three.all()), before);
}

TEST(VeltoDoublyLinkedKeyedList, aLooseNodeIsNotTheSingleNode) {
  ThreeNodes three;
  NodePtr stranger = List::Node::create("A", 7);
  const Snapshot before = snapshot(*three.list, three.all());
  auto removed = three.list->remove(stranger);
  ASSERT_TRUE(removed.isFailure());
  EXPECT_EQ(removed.error().message(),
            "Node has no previous or next but doesn't match scenario where doubly-linked list contains a single node");
  EXPECT_EQ(argNames(removed.error(), 0), (std::vector<std::string>{"self", "node"}));
  EXPECT_EQ(*arg<std::shared_ptr<List>>(removed.error(), "self", 0), three.list);
  EXPECT_EQ(*arg<NodePtr>(removed.error(), "node", 0), stranger);
  EXPECT_EQ(snapshot(*three.list, three.all()), before);
}

TEST(VeltoDoublyLinkedKeyedList, aForeignTailIsRefusedByKey) {
  ThreeNodes three;
  auto other = List::create();
  NodePtr foreignTail = other->addToHead("X", 1);
  NodePtr foreignHead = other->addToHead("Y", 2);
  const Snapshot before = snapshot(*three.list, three.all());
  const Snapshot otherBefore = snapshot(*other, {foreignTail, foreignHead});
  for (int promote = 0; promote < 2; ++promote) {
    auto failed = promote ? three.list->promoteToHead(foreignTail) : three.list->remove(foreignTail);
    ASSERT_TRUE(failed.isFailure());
    EXPECT_EQ(failed.error().message(),
              "Node appears to be a tail node but doesn't match this doubly-linked list's tail node");
    EXPECT_EQ(failed.error().stackFrames()[0].codeSite().functionName(), promote ? "promoteToHead(node:)" : "remove(node:)");
    EXPECT_EQ(argNames(failed.error(), 0), (std::vector<std::string>{"node", "previous", "tailNode"}));
    EXPECT_EQ(*arg<NodePtr>(failed.error(), "previous", 0), foreignHead);
    EXPECT_EQ(*arg<NodePtr>(failed.error(), "tailNode", 0), three.a);
    EXPECT_EQ(snapshot(*three.list, three.all()), before);
    EXPECT_EQ(snapshot(*other, {foreignTail, foreignHead}), otherBefore);
  }
}

// Head and tail checks compare keys only (the model removes by key nearest the head): a node of
// key "M" from nowhere passes as the single node once head and tail are both "M".
TEST(VeltoDoublyLinkedKeyedList, aLooseNodeOfTheSingleNodesKeyPassesAsIt) {
  auto single = List::create();
  single->addToHead("M", 1);
  ASSERT_TRUE(single->remove(List::Node::create("M", 9)));
  EXPECT_EQ(single->count(), 0u);
  EXPECT_EQ(single->headNode(), nullptr);
}

// The real list against the index-based model over random operations, every link compared
// after every step, duplicate keys and failing operations included.
TEST(VeltoDoublyLinkedKeyedList, followsTheModelOverRandomOperations) {
  std::map<std::string, int> seen;  // outcomes met, so the run is known to reach every failure
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 random(seed);
    auto list = VeltoDoublyLinkedKeyedList<int, int>::create();
    using IntList = VeltoDoublyLinkedKeyedList<int, int>;
    velto::test::KeyedListModel model;
    std::vector<IntList::NodePtr> nodes;  // by model id
    std::unordered_map<const IntList::Node*, int> ids;
    const auto idOf = [&](const IntList::NodePtr& node) -> int {
      if (!node) return velto::test::KeyedListModel::none;
      const auto found = ids.find(node.get());
      return found == ids.end() ? -2 : found->second;
    };
    const auto keep = [&](IntList::NodePtr node) {
      ids.emplace(node.get(), static_cast<int>(nodes.size()));
      nodes.push_back(std::move(node));
    };
    for (int step = 0; step < 1500; ++step) {
      const int key = static_cast<int>(random() % 12);
      const int item = step;
      const unsigned op = random() % 10;
      const int pick = nodes.empty() ? -1 : static_cast<int>(random() % nodes.size());
      std::string expected;
      std::string actual;
      if (op < 3 || nodes.empty()) {
        keep(list->addToHead(key, item));
        model.addToHead(key, item);
      } else if (op == 3) {
        const auto [outcome, removed] = model.removeTail();
        expected = velto::test::messageOf(outcome);
        auto result = list->removeTail();
        if (result) {
          EXPECT_EQ(idOf(result.value()), removed);
        } else {
          actual = result.error().message();
        }
      } else if (op < 6) {
        expected = velto::test::messageOf(model.promoteToHead(pick));
        auto result = list->promoteToHead(nodes[static_cast<std::size_t>(pick)]);
        if (!result) actual = result.error().message();
      } else if (op < 8) {
        expected = velto::test::messageOf(model.remove(pick));
        auto result = list->remove(nodes[static_cast<std::size_t>(pick)]);
        if (!result) actual = result.error().message();
      } else if (op == 8) {
        const auto [outcome, removed] = model.removeKey(key);
        expected = velto::test::messageOf(outcome);
        auto result = list->remove(key);
        if (result) {
          EXPECT_EQ(result.value(), removed);
        } else {
          actual = result.error().message();
        }
      } else {
        const auto [outcome, removed] = model.removeKey(key);
        expected = velto::test::messageOf(outcome);
        if (outcome == Outcome::ok && !removed) expected = "Can't promote item as it isn't in list";
        if (outcome == Outcome::ok && removed) model.addToHead(key, item);
        auto result = list->promoteToHead(key, item);
        if (result) {
          keep(result.value());
        } else {
          actual = result.error().message();
        }
      }
      ASSERT_EQ(actual, expected) << "seed " << seed << " step " << step << " op " << op;
      ++seen[actual];
      ASSERT_EQ(nodes.size(), model.nodes.size());
      ASSERT_EQ(list->count(), model.count) << "seed " << seed << " step " << step;
      ASSERT_EQ(idOf(list->headNode()), model.headNode) << "seed " << seed << " step " << step;
      ASSERT_EQ(idOf(list->tailNode()), model.tailNode) << "seed " << seed << " step " << step;
      for (std::size_t i = 0; i < nodes.size(); ++i) {
        ASSERT_EQ(idOf(nodes[i]->tailward()), model.nodes[i].tailward) << "seed " << seed << " step " << step << " node " << i;
        ASSERT_EQ(idOf(nodes[i]->headward()), model.nodes[i].headward) << "seed " << seed << " step " << step << " node " << i;
      }
    }
  }
  EXPECT_EQ(seen.size(), 6u) << "not every outcome was reached";
  for (const auto& [message, times] : seen) EXPECT_GT(times, 0) << message;
}

// Rendering options: no addresses or types, so the exact JSON is stable.
VeltoDynamicDebugEncoderOptions plainOptions() {
  using Options = VeltoDynamicDebugEncoderOptions;
  return Options(Options::DataContentsBehaviour::excludeContents(), false, true, true, true, false, false, false, false,
                 false);
}

TEST(VeltoDoublyLinkedKeyedList, nodeRendersItemKeyAndTheChainTowardTheTail) {
  ThreeNodes three;
  auto text = VeltoDynamicDebugEncoder::encodeToString(three.list->headNode(), plainOptions());
  ASSERT_TRUE(text) << text.error().message();
  EXPECT_EQ(boost::json::parse(text.value()),
            boost::json::parse(R"({"item":3,"key":"C","tailward":{"item":2,"key":"B","tailward":{"item":1,"key":"A","tailward":null}}})"))
      << text.value();
  EXPECT_EQ(text.value().find("headward"), std::string::npos);
}

// Each node's hook writes its "tailward" node: a million nested levels, none dropped or
// reordered. Then a detached head that still owns the whole chain is released without recursion.
TEST(VeltoDoublyLinkedKeyedList, aMillionNodeChainRendersAndIsReleased) {
  auto list = VeltoDoublyLinkedKeyedList<int, int>::create();
  for (int i = 0; i < 1'000'000; ++i) list->addToHead(i, i);
  auto text = VeltoDynamicDebugEncoder::encodeToString(list->headNode(), plainOptions());
  ASSERT_TRUE(text) << text.error().message();
  long expectedKey = 999'999;
  for (std::size_t at = text.value().find("\"key\""); at != std::string::npos; at = text.value().find("\"key\"", at + 1)) {
    ASSERT_EQ(std::strtol(text.value().c_str() + text.value().find(':', at) + 1, nullptr, 10), expectedKey--);
  }
  EXPECT_EQ(expectedKey, -1);
  VeltoDoublyLinkedKeyedList<int, int>::NodePtr chain = list->headNode();
  list.reset();
  EXPECT_EQ(chain->key(), 999'999);
  chain.reset();
}

TEST(VeltoDoublyLinkedKeyedListDeathTest, countUnderflowStops) {
  // Only a node shared by two lists gets there: `first` ends with a tail it never counted.
  auto first = List::create();
  auto second = List::create();
  NodePtr shared = first->addToHead("X", 1);
  second->addToHead(shared);
  second->addToHead("Y", 2);  // links `shared` back to a node `first` never held
  ASSERT_TRUE(first->removeTail());
  EXPECT_EQ(first->count(), 0u);
  ASSERT_NE(first->tailNode(), nullptr);
  EXPECT_DEATH((void)first->removeTail(), "count underflow");
}

}  // namespace
