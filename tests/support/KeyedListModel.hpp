// A reference model of the doubly linked keyed list: nodes in a vector, links as indices, no
// ownership. It follows the list's rules step by step, the deliberate interior-promotion quirk
// included, so randomized tests can compare every link of the real list against it; and a model
// of the count and cost caches built on it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace velto::test {

struct KeyedListModel {
  static constexpr int none = -1;
  struct Node {
    int key;
    int item;
    int tailward = none;
    int headward = none;
  };
  enum class Outcome { ok, notTail, notHead, notSingle, noTail };

  std::vector<Node> nodes;
  int headNode = none;
  int tailNode = none;
  std::size_t count = 0;

  [[nodiscard]] int key(int id) const { return nodes[static_cast<std::size_t>(id)].key; }
  Node& at(int id) { return nodes[static_cast<std::size_t>(id)]; }

  void addToHead(int id) {
    Node& node = at(id);
    if (headNode != none) {
      at(headNode).headward = id;
      node.tailward = headNode;
      node.headward = none;
      headNode = id;
    } else {
      node.tailward = node.headward = none;
      headNode = tailNode = id;
    }
    ++count;
  }

  int addToHead(int key, int item) {
    nodes.push_back({key, item});
    const int id = static_cast<int>(nodes.size()) - 1;
    addToHead(id);
    return id;
  }

  Outcome promoteToHead(int id) {
    Node& node = at(id);
    const int previous = node.headward;
    const int next = node.tailward;
    if (previous == none) return Outcome::ok;
    if (next != none) {
      at(previous).tailward = next;
      at(next).headward = previous;
      node.headward = none;
      node.tailward = headNode;
      headNode = id;
      return Outcome::ok;
    }
    if (tailNode == none || key(tailNode) != node.key) return Outcome::notTail;
    const int head = headNode;
    node.tailward = head;
    node.headward = none;
    at(previous).tailward = none;
    if (head != none) at(head).headward = id;
    tailNode = previous;
    headNode = id;
    return Outcome::ok;
  }

  Outcome remove(int id) {
    Node& node = at(id);
    const int previous = node.headward;
    const int next = node.tailward;
    if (previous != none && next != none) {
      at(previous).tailward = next;
      at(next).headward = previous;
    } else if (previous != none) {
      if (tailNode == none || key(tailNode) != node.key) return Outcome::notTail;
      at(previous).tailward = none;
      tailNode = previous;
    } else if (next != none) {
      if (headNode == none || key(headNode) != node.key) return Outcome::notHead;
      at(next).headward = none;
      headNode = next;
    } else {
      if (headNode == none || tailNode == none || node.key != key(headNode) || node.key != key(tailNode)) {
        return Outcome::notSingle;
      }
      headNode = tailNode = none;
    }
    node.tailward = node.headward = none;
    --count;
    return Outcome::ok;
  }

  // The removed node, or none with Outcome::noTail.
  std::pair<Outcome, int> removeTail() {
    if (tailNode == none) return {Outcome::noTail, none};
    const int tail = tailNode;
    const int previous = at(tail).headward;
    if (previous != none) at(previous).tailward = none;
    tailNode = previous;
    if (headNode != none && key(headNode) == key(tail)) headNode = none;
    --count;
    at(tail).headward = at(tail).tailward = none;
    return {Outcome::ok, tail};
  }

  // The node nearest the head with `key`, or none.
  [[nodiscard]] int find(int wanted) const {
    std::size_t steps = 0;
    for (int id = headNode; id != none && steps <= nodes.size(); id = nodes[static_cast<std::size_t>(id)].tailward, ++steps) {
      if (key(id) == wanted) return id;
    }
    return none;
  }

  // {outcome, removed?}
  std::pair<Outcome, bool> removeKey(int wanted) {
    const int found = find(wanted);
    if (found == none) return {Outcome::ok, false};
    const Outcome outcome = remove(found);
    return {outcome, outcome == Outcome::ok};
  }
};

inline std::string messageOf(KeyedListModel::Outcome outcome) {
  switch (outcome) {
    case KeyedListModel::Outcome::ok: return "";
    case KeyedListModel::Outcome::notTail:
      return "Node appears to be a tail node but doesn't match this doubly-linked list's tail node";
    case KeyedListModel::Outcome::notHead:
      return "Node appears to be a head node but doesn't match this doubly-linked list's head node";
    case KeyedListModel::Outcome::notSingle:
      return "Node has no previous or next but doesn't match scenario where doubly-linked list contains a single node";
    case KeyedListModel::Outcome::noTail: return "No tail to remove";
  }
  return "?";
}

// The list-based count and cost caches over the list model: a hit promotes, a miss produces,
// adds at the head and evicts from the tail while over the limit (the count, or the summed cost
// for a cost cache, which also refuses an item costing the whole limit).
struct LinkedCacheModel {
  KeyedListModel list;
  std::map<int, int> idsByKey;
  std::vector<long> costs;  // by node id
  std::size_t count = 0;
  long totalCost = 0;
  long limit;
  bool byCost;
  LinkedCacheModel(long limit, bool byCost) : limit(limit), byCost(byCost) {}

  // {innermost failure message or "", item, whether the producer ran}
  struct Get {
    std::string message;
    int item = -1;
    bool produced = false;
  };
  Get get(int key, int newItem, long cost, bool producerFails) {
    if (const auto found = idsByKey.find(key); found != idsByKey.end()) {
      const KeyedListModel::Outcome outcome = list.promoteToHead(found->second);
      if (outcome != KeyedListModel::Outcome::ok) return {messageOf(outcome)};
      return {"", list.nodes[static_cast<std::size_t>(found->second)].item};
    }
    if (producerFails) return {"Cannot produce", -1, true};
    if (byCost && !(cost < limit)) return {"Item cost exceeds entire cache's maxCost", -1, true};
    const int id = list.addToHead(key, newItem);
    costs.resize(list.nodes.size());
    costs[static_cast<std::size_t>(id)] = cost;
    idsByKey[key] = id;
    ++count;
    totalCost += cost;
    while (byCost ? totalCost > limit : count > static_cast<std::size_t>(limit)) {
      const auto [outcome, removed] = list.removeTail();
      if (outcome != KeyedListModel::Outcome::ok) return {messageOf(outcome), -1, true};
      if (byCost && !idsByKey.contains(list.key(removed))) return {"Removed tail key wasn't in cache", -1, true};
      idsByKey.erase(list.key(removed));
      --count;
      totalCost -= costs[static_cast<std::size_t>(removed)];
    }
    return {"", newItem, true};
  }

  // The cache's entries as {key, item, tailward key, headward key} (-1 for no node) against the
  // model: "" when they agree, else the first difference.
  [[nodiscard]] std::string divergence(const std::vector<std::tuple<int, int, int, int>>& entries) const {
    if (entries.size() != idsByKey.size() || entries.size() != count) {
      return std::to_string(entries.size()) + " entries, model " + std::to_string(idsByKey.size()) + " keys, count " +
             std::to_string(count);
    }
    const auto keyOf = [&](int id) { return id == KeyedListModel::none ? -1 : list.key(id); };
    for (const auto& [key, item, tailwardKey, headwardKey] : entries) {
      const auto found = idsByKey.find(key);
      if (found == idsByKey.end()) return "key " + std::to_string(key) + " not in the model";
      const KeyedListModel::Node& node = list.nodes[static_cast<std::size_t>(found->second)];
      if (item != node.item || tailwardKey != keyOf(node.tailward) || headwardKey != keyOf(node.headward)) {
        return "key " + std::to_string(key) + " has item " + std::to_string(item) + " between " + std::to_string(headwardKey) +
               " and " + std::to_string(tailwardKey);
      }
    }
    return "";
  }
};

}  // namespace velto::test
