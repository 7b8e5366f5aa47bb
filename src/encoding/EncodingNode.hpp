// Internals of the structured-encoder API: the encoding context and the storage behind containers.
#pragma once

#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velto/encoding/VeltoEncoder.hpp"

namespace velto::detail {

/// How non-finite floating-point values are written; without one they fail.
struct NonConformingFloatStrategy {
  std::string positiveInfinity;
  std::string negativeInfinity;
  std::string nan;
};

struct EncodingContext {
  std::optional<NonConformingFloatStrategy> nonConformingFloats;
};

/// The JSON value for `value` under `context`, or the failure a non-finite value without a
/// strategy gives.
[[nodiscard]] VeltoResult<boost::json::value> jsonDouble(double value, const EncodingContext& context);
[[nodiscard]] inline boost::json::value jsonString(std::string_view text) { return boost::json::value(boost::json::string_view(text.data(), text.size())); }

/// A container's storage: a view of a value owned elsewhere, or (nested) a value of its own
/// that is put into the parent, at the place reserved for it, when the container ends.
struct EncodingNode {
  EncodingNode(boost::json::value& target, const EncodingContext& context) noexcept
      : target(&target), context(&context) {}
  EncodingNode(boost::json::value& parent, std::string key, boost::json::value initial, const EncodingContext& context);
  EncodingNode(boost::json::value& parent, std::size_t index, boost::json::value initial, const EncodingContext& context);
  ~EncodingNode();
  EncodingNode(const EncodingNode&) = delete;

  static VeltoKeyedEncodingContainer keyedView(boost::json::value& object, const EncodingContext& context) {
    return VeltoKeyedEncodingContainer(std::make_unique<EncodingNode>(object, context));
  }
  static boost::json::value& targetOf(VeltoKeyedEncodingContainer& c) noexcept { return *c.node_->target; }
  static boost::json::value& targetOf(VeltoUnkeyedEncodingContainer& c) noexcept { return *c.node_->target; }
  static const EncodingContext& contextOf(VeltoKeyedEncodingContainer& c) noexcept { return *c.node_->context; }
  static const EncodingContext& contextOf(VeltoUnkeyedEncodingContainer& c) noexcept { return *c.node_->context; }
  static boost::json::value& slotOf(VeltoEncoder& e) noexcept { return *e.slot_; }
  static bool& writtenOf(VeltoEncoder& e) noexcept { return *e.written_; }
  static const EncodingContext& contextOf(VeltoEncoder& e) noexcept { return *e.context_; }

  static VeltoUnkeyedEncodingContainer unkeyedView(boost::json::value& array, const EncodingContext& context) {
    return VeltoUnkeyedEncodingContainer(std::make_unique<EncodingNode>(array, context));
  }
  EncodingNode& operator=(const EncodingNode&) = delete;

  /// Where this container's value sits, as the steps from the value its outermost container
  /// views down to it. Valid once every nested container on the way has ended.
  struct PathStep {
    std::string key;
    std::size_t index;
    bool keyed;
  };
  [[nodiscard]] std::vector<PathStep> pathFromRoot(boost::json::value*& root) const {
    std::vector<PathStep> steps;
    const EncodingNode* node = this;
    for (; node->parent && node->up; node = node->up) steps.push_back({node->key, node->index, node->keyed});
    root = node->target;
    return {steps.rbegin(), steps.rend()};
  }
  static const EncodingNode& nodeOf(const VeltoKeyedEncodingContainer& c) noexcept { return *c.node_; }
  static const EncodingNode& nodeOf(const VeltoUnkeyedEncodingContainer& c) noexcept { return *c.node_; }

  boost::json::value own;
  boost::json::value* target;
  boost::json::value* parent = nullptr;
  const EncodingNode* up = nullptr;  // the container a nested one was opened from
  std::string key;
  std::size_t index = 0;
  bool keyed = false;
  const EncodingContext* context;
};

/// Views of values owned by the caller, which must outlive them.
[[nodiscard]] inline VeltoKeyedEncodingContainer keyedView(boost::json::value& object, const EncodingContext& context) {
  return EncodingNode::keyedView(object, context);
}
[[nodiscard]] inline VeltoUnkeyedEncodingContainer unkeyedView(boost::json::value& array, const EncodingContext& context) {
  return EncodingNode::unkeyedView(array, context);
}

}  // namespace velto::detail
