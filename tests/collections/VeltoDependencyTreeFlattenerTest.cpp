#include <velto/collections/VeltoDependencyTreeFlattener.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using Graph = std::vector<std::vector<int>>;

// A random graph over n nodes whose edges only lead to lower-numbered nodes: no cycles.
Graph randomAcyclic(std::mt19937& random, int n) {
  Graph graph(static_cast<std::size_t>(n));
  for (int node = 1; node < n; ++node) {
    const int edges = static_cast<int>(random() % 4);
    for (int e = 0; e < edges; ++e) graph[static_cast<std::size_t>(node)].push_back(static_cast<int>(random() % static_cast<unsigned>(node)));
  }
  return graph;
}

// The recursive post-order walk the flattener is documented to produce.
void postOrder(const Graph& graph, int node, std::set<int>& seen, std::vector<int>& out) {
  if (!seen.insert(node).second) return;
  for (int dependency : graph[static_cast<std::size_t>(node)]) postOrder(graph, dependency, seen, out);
  out.push_back(node);
}

TEST(VeltoDependencyTreeFlattener, placesEveryReachableNodeOnceAfterItsDependencies) {
  std::mt19937 random(2);
  for (int round = 0; round < 500; ++round) {
    const int n = 1 + static_cast<int>(random() % 30);
    const Graph graph = randomAcyclic(random, n);
    std::vector<int> roots;
    for (int r = static_cast<int>(random() % 4); r >= 0; --r) roots.push_back(static_cast<int>(random() % static_cast<unsigned>(n)));
    std::map<int, int> calls;
    const auto order = VeltoDependencyTreeFlattener::flatten(roots, [&](int node) {
      ++calls[node];
      return graph[static_cast<std::size_t>(node)];  // a temporary copy
    });
    ASSERT_TRUE(order.hasValue());
    std::set<int> seen;
    std::vector<int> expected;
    for (int root : roots) postOrder(graph, root, seen, expected);
    ASSERT_EQ(order.value(), expected);
    std::map<int, std::size_t> position;
    for (std::size_t i = 0; i < order.value().size(); ++i) position[order.value()[i]] = i;
    for (int node : order.value()) {
      ASSERT_EQ(calls[node], 1) << "dependencies listed once per node";
      for (int dependency : graph[static_cast<std::size_t>(node)]) ASSERT_LT(position.at(dependency), position.at(node));
    }
  }
}

TEST(VeltoDependencyTreeFlattener, reportsACycleAsTheNodesAroundIt) {
  std::mt19937 random(4);
  for (int round = 0; round < 300; ++round) {
    const int n = 2 + static_cast<int>(random() % 20);
    Graph graph = randomAcyclic(random, n);
    // One edge upwards closes a cycle through it wherever a path leads back down.
    const int low = static_cast<int>(random() % static_cast<unsigned>(n - 1));
    const int high = low + 1 + static_cast<int>(random() % static_cast<unsigned>(n - 1 - low));
    graph[static_cast<std::size_t>(low)].push_back(high);
    graph[static_cast<std::size_t>(high)].push_back(low);
    const auto order = VeltoDependencyTreeFlattener::flatten(std::vector<int>{n - 1, high},
                                                             [&](int node) { return graph[static_cast<std::size_t>(node)]; });
    ASSERT_TRUE(order.isFailure());
    EXPECT_EQ(order.error().message(), "Dependency cycle");
    const auto& cycle = *order.error().stackFrames()[0].args().get<VeltoArgs>()->find("cycle")->get<std::vector<int>>();
    ASSERT_GE(cycle.size(), 2u);
    EXPECT_EQ(cycle.front(), cycle.back());
    for (std::size_t i = 0; i + 1 < cycle.size(); ++i) {
      const auto& edges = graph[static_cast<std::size_t>(cycle[i])];
      EXPECT_NE(std::find(edges.begin(), edges.end(), cycle[i + 1]), edges.end()) << cycle[i] << " -> " << cycle[i + 1];
    }
  }
  const auto self = VeltoDependencyTreeFlattener::flatten(std::vector<std::string>{"a"}, [](const std::string&) {
    return std::vector<std::string>{"a"};
  });
  EXPECT_EQ(*self.error().stackFrames()[0].args().get<VeltoArgs>()->find("cycle")->get<std::vector<std::string>>(),
            (std::vector<std::string>{"a", "a"}));
}

TEST(VeltoDependencyTreeFlattener, walksChainsDeeperThanAnyStack) {
  constexpr int depth = 100000;
  const auto order = VeltoDependencyTreeFlattener::flatten(std::vector<int>{depth}, [](int node) {
    return node == 0 ? std::vector<int>{} : std::vector<int>{node - 1};
  });
  ASSERT_EQ(order.value().size(), static_cast<std::size_t>(depth + 1));
  EXPECT_EQ(order.value().front(), 0);
  EXPECT_EQ(order.value().back(), depth);
}

TEST(VeltoDependencyTreeFlattener, passesUpAFailingDependencyListWithTheNode) {
  const auto order = VeltoDependencyTreeFlattener::flatten(std::vector<int>{3}, [](int node) -> VeltoResult<std::vector<int>> {
    if (node == 1) return VeltoResult<std::vector<int>>::fromMessage("Manifest unreadable");
    return std::vector<int>{node - 1};
  });
  ASSERT_TRUE(order.isFailure());
  EXPECT_EQ(order.error().message(), "Manifest unreadable");
  ASSERT_EQ(order.error().stackFrames().size(), 2u);
  const VeltoStackFrame& wrap = order.error().stackFrames()[1];
  EXPECT_EQ(*wrap.args().get<VeltoArgs>()->find("node")->get<int>(), 1);
  EXPECT_EQ(wrap.codeSite().functionName(), "flatten(roots:dependenciesOf:)");
  ASSERT_TRUE(wrap.invokerSite().has_value());
  EXPECT_NE(std::string(wrap.invokerSite()->fileName()).find("VeltoDependencyTreeFlattenerTest"), std::string::npos)
      << "the caller's position";
}

}  // namespace
