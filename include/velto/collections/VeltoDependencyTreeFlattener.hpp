// VeltoDependencyTreeFlattener: the nodes of a dependency tree (or any graph without cycles) in
// an order where every node comes after everything it depends on.
//
//   std::unordered_map<std::string, std::vector<std::string>> needs{{"app", {"net", "log"}}, {"net", {"log"}}};
//   auto order = VeltoDependencyTreeFlattener::flatten(std::vector<std::string>{"app"},
//       [&](const std::string& module) { return needs[module]; });
//   // order.value(): "log", "net", "app"; a cycle fails with "Dependency cycle"
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <ranges>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoStackFrame.hpp"

namespace velto::detail::flattener {

template <class T>
inline constexpr bool isVeltoResult = false;
template <class T>
inline constexpr bool isVeltoResult<VeltoResult<T>> = true;

}  // namespace velto::detail::flattener

/// Static operations only; holds no state. Thread safety: `flatten` touches nothing shared
/// beyond what the caller's callable touches.
class VeltoDependencyTreeFlattener {
 public:
  VeltoDependencyTreeFlattener() = delete;

  /// Every node reachable from `roots`, each once, dependencies before their dependents: a
  /// depth-first walk that visits the roots in order and each node's dependencies in the order
  /// `dependenciesOf` lists them, and places a node when all of its dependencies are placed.
  /// Nodes are told apart with Hash and Equal (a node met again through another path is not
  /// repeated), so shared dependencies and repeated roots appear once.
  ///
  /// `dependenciesOf(node)` returns any range of nodes (a temporary is fine), or a
  /// VeltoResult of a vector of nodes; it is called once per distinct node.
  ///
  /// Failures: "Dependency cycle" (argument "cycle": the nodes of the cycle in walk order, the
  /// first repeated at the end; one frame at `site`, the caller's position) when a node depends
  /// on itself, directly or not; a failure of `dependenciesOf`, passed up with one frame more
  /// (argument "node", invoker `site`, code site "Util/VeltoDependencyTreeFlattener" /
  /// "flatten(roots:dependenciesOf:)"). An exception from `dependenciesOf` propagates.
  ///
  /// Cost: O(nodes + edges) time and memory; the walk keeps its own stack, so chains of any depth
  /// never exhaust the thread's stack.
  template <std::ranges::input_range Roots, class DependenciesOf, class Hash = std::hash<std::ranges::range_value_t<Roots>>,
            class Equal = std::equal_to<std::ranges::range_value_t<Roots>>>
    requires std::copyable<std::ranges::range_value_t<Roots>> &&
             std::invocable<DependenciesOf&, const std::ranges::range_value_t<Roots>&>
  [[nodiscard]] static VeltoResult<std::vector<std::ranges::range_value_t<Roots>>> flatten(
      Roots&& roots, DependenciesOf&& dependenciesOf, VeltoCodeSite site = VeltoCodeSite::current()) {
    using Node = std::ranges::range_value_t<Roots>;
    using Flat = VeltoResult<std::vector<Node>>;
    enum class State { onPath, placed };
    struct Frame {
      Node node;
      std::vector<Node> dependencies;
      std::size_t next = 0;
    };

    std::vector<Node> order;
    std::unordered_map<Node, State, Hash, Equal> states;
    std::vector<Frame> path;

    // Opens a frame for `node`, or returns a failure of its dependency list.
    const auto enter = [&](const Node& node) -> std::optional<VeltoError> {
      std::vector<Node> dependencies;
      using Listed = std::invoke_result_t<DependenciesOf&, const Node&>;
      if constexpr (velto::detail::flattener::isVeltoResult<Listed>) {
        Listed listed = std::invoke(dependenciesOf, node);
        if (const VeltoError* error = listed.errorIfPresent()) {
          return error->appending(VeltoStackFrame({{"node", node}}, site, ownSite()));
        }
        for (auto&& dependency : std::move(listed).value()) dependencies.push_back(Node(std::forward<decltype(dependency)>(dependency)));
      } else {
        for (auto&& dependency : std::invoke(dependenciesOf, node)) dependencies.push_back(Node(std::forward<decltype(dependency)>(dependency)));
      }
      states.insert_or_assign(node, State::onPath);
      path.push_back(Frame{node, std::move(dependencies), 0});
      return std::nullopt;
    };

    for (auto&& root : roots) {
      const Node start(root);
      if (states.contains(start)) continue;
      if (auto failure = enter(start)) return Flat::failure(std::move(*failure));
      while (!path.empty()) {
        Frame& top = path.back();
        if (top.next == top.dependencies.size()) {
          states.insert_or_assign(top.node, State::placed);
          order.push_back(std::move(top.node));
          path.pop_back();
          continue;
        }
        const Node& dependency = top.dependencies[top.next++];
        const auto seen = states.find(dependency);
        if (seen == states.end()) {
          const Node copy(dependency);  // `top` moves when the path grows
          if (auto failure = enter(copy)) return Flat::failure(std::move(*failure));
        } else if (seen->second == State::onPath) {
          std::vector<Node> cycle;
          std::size_t from = path.size();
          while (from > 0 && !Equal()(path[from - 1].node, dependency)) --from;
          for (std::size_t i = from - 1; i < path.size(); ++i) cycle.push_back(path[i].node);
          cycle.push_back(dependency);
          return Flat::fromMessage("Dependency cycle", {{"cycle", std::move(cycle)}}, nullptr, site);
        }
      }
    }
    return order;
  }

 private:
  static VeltoCodeSite ownSite(VeltoCodeSite site = VELTO_SITE("Util/VeltoDependencyTreeFlattener",
                                                                "flatten(roots:dependenciesOf:)")) {
    return site;
  }
};
