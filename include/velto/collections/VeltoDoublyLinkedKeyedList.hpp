// VeltoDoublyLinkedKeyedList<Key, Item>: a recency list of key/item pairs from a head (most
// recently added or promoted) to a tail (the next to be removed), the list behind the
// link-list-based count and cost caches.
//
//   auto list = VeltoDoublyLinkedKeyedList<std::string, int>::create();
//   auto a = list->addToHead("a", 1);
//   list->addToHead("b", 2);
//   if (auto promoted = list->promoteToHead(a); !promoted) log(promoted.error());
//   auto oldest = list->removeTail();           // the node of "b", detached
//   auto removed = list->remove(std::string("a"));  // success(true)
//
// Head and tail are recognised by key equality, never by identity, and a broken link is a
// failure value, not a crash. There is no index by key: lookups walk the chain.
#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"
#include "velto/encoding/VeltoEncoder.hpp"

namespace velto::detail {
inline constexpr char kDoublyLinkedKeyedListFile[] = "Data Structures/VeltoDoublyLinkedKeyedList";
}  // namespace velto::detail

/// A doubly linked list of nodes, each holding an immutable key and item.
///
/// Ownership runs from head to tail: the list owns its head and tail nodes, each node owns its
/// `tailward` neighbour, and `headward` is a weak back link that never keeps a node alive (a
/// back link whose target has died reads as empty). A node removed from the list has both
/// links empty and may be kept by its holder.
///
/// Head and tail: a node whose `headward` is empty is taken to be the head, one whose `tailward`
/// is empty the tail, and whether it is the list's head or tail is decided by `Key ==`.
/// Nothing checks that a node passed in belongs to this list or is not already linked.
///
/// Deliberately kept: promoting an interior node leaves the former head's `headward` empty
/// (only promoting the tail links the former head back). The former head is then taken to be a
/// head again: promoting it does nothing, removing it fails, and when it is later removed as
/// the tail the list is left with a head but no tail. The caches above rely on this exact
/// behaviour; do not "repair" it.
///
/// Cost: adding, promoting or removing a node and removing the tail are O(1); removal and
/// promotion by key walk from the head (O(n)). Destroying a list, or a node that still owns a
/// long `tailward` chain, releases the chain iteratively (no recursion, any length).
/// Failures: every failure leaves the list and the node exactly as they were. `count`
/// overflow or underflow is a fatal stop.
/// Thread safety: none. One thread at a time may use a list and its nodes (the caches hold
/// their lock around every call); that includes releasing the last reference to a node.
template <class Key, class Item>
class VeltoDoublyLinkedKeyedList : public std::enable_shared_from_this<VeltoDoublyLinkedKeyedList<Key, Item>> {
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  class Node;
  using NodePtr = std::shared_ptr<Node>;

  /// One entry of the list. Created by the list's `addToHead(key, item)` or by `create`.
  class Node {
   public:
    Node(Key key, Item item) : key_(std::move(key)), item_(std::move(item)) {}
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// A node with both links empty.
    [[nodiscard]] static NodePtr create(Key key, Item item) {
      return std::make_shared<Node>(std::move(key), std::move(item));
    }

    /// Releases the owned `tailward` chain one node at a time: nodes this one is the last owner
    /// of are destroyed in a loop, so a chain of any length never recurses.
    ~Node() {
      NodePtr next = std::move(tailward_);
      while (next && next.use_count() == 1) {
        NodePtr after = std::move(next->tailward_);
        next.reset();
        next = std::move(after);
      }
    }

    [[nodiscard]] const Key& key() const noexcept { return key_; }
    [[nodiscard]] const Item& item() const noexcept { return item_; }
    /// The neighbour one step toward the tail (owned), or null.
    [[nodiscard]] NodePtr tailward() const noexcept { return tailward_; }
    /// The neighbour one step toward the head, or null (also when that node has died).
    [[nodiscard]] NodePtr headward() const noexcept { return headward_.lock(); }

    /// Debug output: "item", "key", "tailward" (so the rest of the chain toward the tail
    /// follows; `headward` is left out and the rendering never loops back).
    VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                    VeltoDynamicDebugEncoder& dynamicEncoder) const {
      if (auto written = dynamicEncoder.encode(item_, container, "item"); !written) return written;
      if (auto written = dynamicEncoder.encode(key_, container, "key"); !written) return written;
      return dynamicEncoder.encode(tailward_, container, "tailward");
    }

   private:
    friend class VeltoDoublyLinkedKeyedList;
    const Key key_;
    const Item item_;
    NodePtr tailward_;
    std::weak_ptr<Node> headward_;
  };

  explicit VeltoDoublyLinkedKeyedList(Passkey) noexcept {}
  VeltoDoublyLinkedKeyedList(const VeltoDoublyLinkedKeyedList&) = delete;
  VeltoDoublyLinkedKeyedList& operator=(const VeltoDoublyLinkedKeyedList&) = delete;

  /// An empty list.
  [[nodiscard]] static std::shared_ptr<VeltoDoublyLinkedKeyedList> create() {
    return std::make_shared<VeltoDoublyLinkedKeyedList>(Passkey{});
  }

  /// Nodes added and not yet removed (kept by counting, never by walking).
  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  [[nodiscard]] NodePtr headNode() const noexcept { return headNode_; }
  [[nodiscard]] NodePtr tailNode() const noexcept { return tailNode_; }

  /// Links `node` in as the new head, overwriting whatever links it had; no check that its key
  /// is already present or that it is already linked (re-adding a linked node makes a cycle
  /// that is never released). REQUIRES: `node` is not null (fatal stop otherwise).
  void addToHead(const NodePtr& node) {
    if (!node) velto::detail::fatalStop("VeltoDoublyLinkedKeyedList::addToHead: null node");
    if (count_ == std::numeric_limits<std::size_t>::max()) {
      velto::detail::fatalStop("VeltoDoublyLinkedKeyedList: count overflow");
    }
    if (headNode_) {
      headNode_->headward_ = node;
      node->tailward_ = std::move(headNode_);
      node->headward_.reset();
      headNode_ = node;
    } else {
      node->tailward_.reset();
      node->headward_.reset();
      headNode_ = node;
      tailNode_ = node;
    }
    ++count_;
  }

  /// Creates a node for `key` and `item`, links it in as the head and returns it.
  NodePtr addToHead(Key key, Item item) {
    NodePtr node = Node::create(std::move(key), std::move(item));
    addToHead(node);
    return node;
  }

  /// Replaces the entry nearest the head with `key` by a new head node carrying `item`; the old
  /// node and its item are dropped. Promotion never inserts: an absent key fails with "Can't
  /// promote item as it isn't in list" ("key", "item"). A failure of the removal comes back
  /// wrapped with "key" and "item".
  [[nodiscard]] VeltoResult<NodePtr> promoteToHead(const Key& key, Item item) {
    auto removed = remove(key);
    if (removed.isFailure()) {
      return VeltoResult<NodePtr>::fromError(removed.error(), {{"key", key}, {"item", std::move(item)}},
                                             VeltoCodeSite(velto::detail::kDoublyLinkedKeyedListFile,
                                                           "promoteToHead(key:item:)", 121));
    }
    if (removed.value()) return addToHead(key, std::move(item));
    return VeltoResult<NodePtr>::fromMessage(
        "Can't promote item as it isn't in list", {{"key", key}, {"item", std::move(item)}}, nullptr,
        VeltoCodeSite(velto::detail::kDoublyLinkedKeyedListFile, "promoteToHead(key:item:)", 123));
  }

  /// Moves `node` to the head; `count` is unchanged. A node with no `headward` is taken to be
  /// the head already and nothing changes (it is not compared with `headNode`). A node with no
  /// `tailward` must match the tail by key, else "Node appears to be a tail node but doesn't
  /// match this doubly-linked list's tail node" ("node", "previous", "tailNode").
  /// Deliberately kept: promoting an interior node does not link the former head back to it.
  /// REQUIRES: `node` is not null (fatal stop otherwise).
  [[nodiscard]] VeltoResult<void> promoteToHead(const NodePtr& node) {
    if (!node) velto::detail::fatalStop("VeltoDoublyLinkedKeyedList::promoteToHead: null node");
    NodePtr previous = node->headward_.lock();
    if (!previous) return VeltoResultVoidSuccess;
    if (node->tailward_) {
      // Interior: the neighbours close the gap, the node goes in front of the head. The former
      // head's headward stays as it was (empty): deliberate, see the class comment.
      NodePtr next = std::move(node->tailward_);
      next->headward_ = std::move(node->headward_);
      node->headward_.reset();
      previous->tailward_ = std::move(next);
      node->tailward_ = std::move(headNode_);
      headNode_ = node;
      return VeltoResultVoidSuccess;
    }
    if (!tailNode_ || !(tailNode_->key_ == node->key_)) {
      return VeltoResult<void>::fromMessage(
          "Node appears to be a tail node but doesn't match this doubly-linked list's tail node",
          {{"node", node}, {"previous", previous}, {"tailNode", tailNode_}}, nullptr,
          VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "promoteToHead(node:)"));
    }
    // The former head moves under the node instead of being copied, and when the tail slot holds
    // this very node its reference moves to the head slot: fewer reference count round trips.
    node->tailward_ = std::move(headNode_);
    node->headward_.reset();
    previous->tailward_.reset();
    if (node->tailward_) node->tailward_->headward_ = node;
    if (tailNode_ == node) {
      headNode_ = std::move(tailNode_);
    } else {
      headNode_ = node;
    }
    tailNode_ = std::move(previous);
    return VeltoResultVoidSuccess;
  }

  /// Detaches the tail and returns it with both links empty. An empty list fails with "No tail
  /// to remove" ("self"). When the head's key equals the removed tail's key the head is cleared
  /// too (the single-node case, decided by key).
  [[nodiscard]] VeltoResult<NodePtr> removeTail() {
    if (!tailNode_) {
      return VeltoResult<NodePtr>::fromMessage("No tail to remove", {{"self", this->shared_from_this()}}, nullptr,
                                               VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "removeTail()"));
    }
    NodePtr tail = std::move(tailNode_);
    NodePtr previous = tail->headward_.lock();
    if (previous) previous->tailward_.reset();
    tailNode_ = std::move(previous);
    if (headNode_ && headNode_->key_ == tail->key_) headNode_.reset();
    decrementCount();
    tail->headward_.reset();
    tail->tailward_.reset();
    return tail;
  }

  /// Unlinks `node`, which is classified by its links: interior, tail (must match the tail by
  /// key), head (must match the head by key) or single (must match both). Failures, by case:
  /// "Node appears to be a tail node but doesn't match this doubly-linked list's tail node"
  /// ("node", "previous", "tailNode"); "Node appears to be a head node but doesn't match this
  /// doubly-linked list's head node" ("node", "next", "headNode"); "Node has no previous or
  /// next but doesn't match scenario where doubly-linked list contains a single node" ("self",
  /// "node"). REQUIRES: `node` is not null (fatal stop otherwise).
  [[nodiscard]] VeltoResult<void> remove(const NodePtr& node) {
    if (!node) velto::detail::fatalStop("VeltoDoublyLinkedKeyedList::remove: null node");
    NodePtr previous = node->headward_.lock();
    const NodePtr& next = node->tailward_;
    if (previous && next) {
      next->headward_ = previous;
      previous->tailward_ = next;
    } else if (previous) {
      if (!tailNode_ || !(tailNode_->key_ == node->key_)) {
        return VeltoResult<void>::fromMessage(
            "Node appears to be a tail node but doesn't match this doubly-linked list's tail node",
            {{"node", node}, {"previous", previous}, {"tailNode", tailNode_}}, nullptr,
            VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "remove(node:)"));
      }
      previous->tailward_.reset();
      tailNode_ = std::move(previous);
    } else if (next) {
      if (!headNode_ || !(headNode_->key_ == node->key_)) {
        return VeltoResult<void>::fromMessage(
            "Node appears to be a head node but doesn't match this doubly-linked list's head node",
            {{"node", node}, {"next", next}, {"headNode", headNode_}}, nullptr,
            VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "remove(node:)"));
      }
      next->headward_.reset();
      headNode_ = next;
    } else {
      if (!headNode_ || !tailNode_ || !(node->key_ == headNode_->key_) || !(node->key_ == tailNode_->key_)) {
        return VeltoResult<void>::fromMessage(
            "Node has no previous or next but doesn't match scenario where doubly-linked list contains a single node",
            {{"self", this->shared_from_this()}, {"node", node}}, nullptr,
            VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "remove(node:)"));
      }
      headNode_.reset();
      tailNode_.reset();
    }
    // The caller's reference keeps the node alive while its own links are cleared.
    node->tailward_.reset();
    node->headward_.reset();
    decrementCount();
    return VeltoResultVoidSuccess;
  }

  /// Removes the node nearest the head whose key equals `key`: success(true), or success(false)
  /// when none has it (nothing changes). A failure of `remove(node)` comes back wrapped with
  /// "keyToRemove". A chain that loops back on itself (only reachable by re-adding linked
  /// nodes) is walked once and then taken to hold no match, instead of hanging.
  [[nodiscard]] VeltoResult<bool> remove(const Key& key) {
    NodePtr found = find(key);
    if (!found) return false;
    auto removed = remove(found);
    if (removed.isFailure()) {
      return VeltoResult<bool>::fromError(removed.error(), {{"keyToRemove", key}},
                                          VELTO_SITE(velto::detail::kDoublyLinkedKeyedListFile, "remove(key:)"));
    }
    return true;
  }

  /// Debug output: "count", "headNode" (with the chain toward the tail), "tailNode".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto written = container.encode("count", count_); !written) return written;
    if (auto written = dynamicEncoder.encode(headNode_, container, "headNode"); !written) return written;
    return dynamicEncoder.encode(tailNode_, container, "tailNode");
  }

 private:
  // The first node from the head whose key equals `key`. Floyd's check (a second cursor at
  // half speed) ends the walk on a chain that loops back.
  [[nodiscard]] NodePtr find(const Key& key) const {
    const NodePtr* slot = &headNode_;
    const Node* slow = headNode_.get();
    bool advanceSlow = false;
    while (*slot) {
      if ((*slot)->key_ == key) return *slot;
      slot = &(*slot)->tailward_;
      if (advanceSlow) slow = slow->tailward_.get();
      advanceSlow = !advanceSlow;
      if (slot->get() == slow) return nullptr;
    }
    return nullptr;
  }

  void decrementCount() {
    if (count_ == 0) velto::detail::fatalStop("VeltoDoublyLinkedKeyedList: count underflow");
    --count_;
  }

  std::size_t count_ = 0;
  NodePtr headNode_;
  NodePtr tailNode_;
};
