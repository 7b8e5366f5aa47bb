#include "velto/encoding/VeltoEncoder.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <cmath>

#include "encoding/EncodingNode.hpp"
#include "encoding/JsonWriter.hpp"

namespace velto::detail {

VeltoResult<boost::json::value> jsonDouble(double value, const EncodingContext& context) {
  if (std::isfinite(value)) return boost::json::value(value);
  if (!context.nonConformingFloats) {
    return VeltoResult<boost::json::value>::fromMessage(
        "Unable to encode a non-finite floating-point value directly in JSON", {{"value", value}});
  }
  const auto& strategy = *context.nonConformingFloats;
  if (std::isnan(value)) return jsonString(strategy.nan);
  return jsonString(value > 0 ? strategy.positiveInfinity : strategy.negativeInfinity);
}

EncodingNode::EncodingNode(boost::json::value& parentValue, std::string entryKey, boost::json::value initial,
                           const EncodingContext& encodingContext)
    : own(std::move(initial)), target(&own), parent(&parentValue), key(std::move(entryKey)), keyed(true),
      context(&encodingContext) {
  parent->as_object()[key] = nullptr;  // reserves the key's position
}

EncodingNode::EncodingNode(boost::json::value& parentValue, std::size_t elementIndex, boost::json::value initial,
                           const EncodingContext& encodingContext)
    : own(std::move(initial)), target(&own), parent(&parentValue), index(elementIndex), context(&encodingContext) {}

EncodingNode::~EncodingNode() {
  if (!parent) return;
  if (keyed) {
    parent->as_object()[key] = std::move(own);
  } else {
    parent->as_array()[index] = std::move(own);
  }
}

}  // namespace velto::detail

using velto::detail::EncodingNode;

namespace {

template <class Write>
VeltoResult<void> writeDouble(double value, const velto::detail::EncodingContext& context, Write&& write) {
  auto json = velto::detail::jsonDouble(value, context);
  if (!json) return VeltoResult<void>::fromError(json.error());
  write(std::move(json).value());
  return VeltoResultVoidSuccess;
}

}  // namespace

// ---- VeltoEncoder ------------------------------------------------------------------------------

VeltoKeyedEncodingContainer VeltoEncoder::keyedContainer() {
  if (!*written_ || !slot_->is_object()) slot_->emplace_object();
  *written_ = true;
  return VeltoKeyedEncodingContainer(std::make_unique<EncodingNode>(*slot_, *context_));
}

VeltoUnkeyedEncodingContainer VeltoEncoder::unkeyedContainer() {
  if (!*written_ || !slot_->is_array()) slot_->emplace_array();
  *written_ = true;
  return VeltoUnkeyedEncodingContainer(std::make_unique<EncodingNode>(*slot_, *context_));
}

VeltoSingleValueEncodingContainer VeltoEncoder::singleValueContainer() { return VeltoSingleValueEncodingContainer(*this); }

// ---- VeltoSingleValueEncodingContainer ---------------------------------------------------------

VeltoResult<void> VeltoSingleValueEncodingContainer::encodeNull() {
  *encoder_.slot_ = nullptr;
  *encoder_.written_ = true;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoSingleValueEncodingContainer::encode(bool value) {
  *encoder_.slot_ = value;
  *encoder_.written_ = true;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoSingleValueEncodingContainer::encode(std::int64_t value) {
  *encoder_.slot_ = value;
  *encoder_.written_ = true;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoSingleValueEncodingContainer::encode(std::uint64_t value) {
  *encoder_.slot_ = value;
  *encoder_.written_ = true;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoSingleValueEncodingContainer::encode(double value) {
  return writeDouble(value, *encoder_.context_, [&](boost::json::value json) {
    *encoder_.slot_ = std::move(json);
    *encoder_.written_ = true;
  });
}
VeltoResult<void> VeltoSingleValueEncodingContainer::encode(std::string_view text) {
  *encoder_.slot_ = velto::detail::jsonString(text);
  *encoder_.written_ = true;
  return VeltoResultVoidSuccess;
}

// ---- VeltoKeyedEncodingContainer ---------------------------------------------------------------

VeltoKeyedEncodingContainer::VeltoKeyedEncodingContainer(std::unique_ptr<EncodingNode> node) noexcept
    : node_(std::move(node)) {}
VeltoKeyedEncodingContainer::VeltoKeyedEncodingContainer(VeltoKeyedEncodingContainer&&) noexcept = default;
VeltoKeyedEncodingContainer& VeltoKeyedEncodingContainer::operator=(VeltoKeyedEncodingContainer&&) noexcept = default;
VeltoKeyedEncodingContainer::~VeltoKeyedEncodingContainer() = default;

namespace {
boost::json::object& objectOf(const std::unique_ptr<EncodingNode>& node) { return node->target->as_object(); }
boost::json::array& arrayOf(const std::unique_ptr<EncodingNode>& node) { return node->target->as_array(); }
boost::json::string_view jsonKey(std::string_view key) { return {key.data(), key.size()}; }
}  // namespace

VeltoResult<void> VeltoKeyedEncodingContainer::encodeNull(std::string_view key) {
  objectOf(node_)[jsonKey(key)] = nullptr;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoKeyedEncodingContainer::encode(std::string_view key, bool value) {
  objectOf(node_)[jsonKey(key)] = value;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoKeyedEncodingContainer::encode(std::string_view key, std::int64_t value) {
  objectOf(node_)[jsonKey(key)] = value;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoKeyedEncodingContainer::encode(std::string_view key, std::uint64_t value) {
  objectOf(node_)[jsonKey(key)] = value;
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoKeyedEncodingContainer::encode(std::string_view key, double value) {
  return writeDouble(value, *node_->context, [&](boost::json::value json) { objectOf(node_)[jsonKey(key)] = std::move(json); });
}
VeltoResult<void> VeltoKeyedEncodingContainer::encode(std::string_view key, std::string_view text) {
  objectOf(node_)[jsonKey(key)] = velto::detail::jsonString(text);
  return VeltoResultVoidSuccess;
}

namespace {
std::unique_ptr<EncodingNode> nested(std::unique_ptr<EncodingNode> node, const EncodingNode* up) {
  node->up = up;
  return node;
}
}  // namespace

VeltoKeyedEncodingContainer VeltoKeyedEncodingContainer::nestedKeyedContainer(std::string_view key) {
  return VeltoKeyedEncodingContainer(nested(
      std::make_unique<EncodingNode>(*node_->target, std::string(key), boost::json::object(), *node_->context), node_.get()));
}

VeltoUnkeyedEncodingContainer VeltoKeyedEncodingContainer::nestedUnkeyedContainer(std::string_view key) {
  return VeltoUnkeyedEncodingContainer(nested(
      std::make_unique<EncodingNode>(*node_->target, std::string(key), boost::json::array(), *node_->context), node_.get()));
}

bool VeltoKeyedEncodingContainer::contains(std::string_view key) const { return objectOf(node_).contains(jsonKey(key)); }
std::size_t VeltoKeyedEncodingContainer::count() const { return objectOf(node_).size(); }

// ---- VeltoUnkeyedEncodingContainer -------------------------------------------------------------

VeltoUnkeyedEncodingContainer::VeltoUnkeyedEncodingContainer(std::unique_ptr<EncodingNode> node) noexcept
    : node_(std::move(node)) {}
VeltoUnkeyedEncodingContainer::VeltoUnkeyedEncodingContainer(VeltoUnkeyedEncodingContainer&&) noexcept = default;
VeltoUnkeyedEncodingContainer& VeltoUnkeyedEncodingContainer::operator=(VeltoUnkeyedEncodingContainer&&) noexcept = default;
VeltoUnkeyedEncodingContainer::~VeltoUnkeyedEncodingContainer() = default;

VeltoResult<void> VeltoUnkeyedEncodingContainer::encodeNull() {
  arrayOf(node_).emplace_back(nullptr);
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoUnkeyedEncodingContainer::encode(bool value) {
  arrayOf(node_).emplace_back(value);
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoUnkeyedEncodingContainer::encode(std::int64_t value) {
  arrayOf(node_).emplace_back(value);
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoUnkeyedEncodingContainer::encode(std::uint64_t value) {
  arrayOf(node_).emplace_back(value);
  return VeltoResultVoidSuccess;
}
VeltoResult<void> VeltoUnkeyedEncodingContainer::encode(double value) {
  return writeDouble(value, *node_->context, [&](boost::json::value json) { arrayOf(node_).emplace_back(std::move(json)); });
}
VeltoResult<void> VeltoUnkeyedEncodingContainer::encode(std::string_view text) {
  arrayOf(node_).emplace_back(velto::detail::jsonString(text));
  return VeltoResultVoidSuccess;
}

VeltoKeyedEncodingContainer VeltoUnkeyedEncodingContainer::nestedKeyedContainer() {
  auto& array = arrayOf(node_);
  array.emplace_back(nullptr);  // reserves the element's position
  return VeltoKeyedEncodingContainer(nested(
      std::make_unique<EncodingNode>(*node_->target, array.size() - 1, boost::json::object(), *node_->context), node_.get()));
}

VeltoUnkeyedEncodingContainer VeltoUnkeyedEncodingContainer::nestedUnkeyedContainer() {
  auto& array = arrayOf(node_);
  array.emplace_back(nullptr);
  return VeltoUnkeyedEncodingContainer(nested(
      std::make_unique<EncodingNode>(*node_->target, array.size() - 1, boost::json::array(), *node_->context), node_.get()));
}

std::size_t VeltoUnkeyedEncodingContainer::count() const { return arrayOf(node_).size(); }

// ---- VeltoEncodingDocument ---------------------------------------------------------------------

struct VeltoEncodingDocument::State {
  boost::json::value tree;
  bool written = false;
  velto::detail::EncodingContext context;  // no strategy: non-finite doubles fail

  ~State() { velto::detail::releaseJson(std::move(tree)); }
};

VeltoEncodingDocument::VeltoEncodingDocument() : state_(std::make_unique<State>()) {}
VeltoEncodingDocument::~VeltoEncodingDocument() = default;

VeltoEncoder VeltoEncodingDocument::encoder() noexcept { return VeltoEncoder(state_->tree, state_->written, state_->context); }
bool VeltoEncodingDocument::hasValue() const noexcept { return state_->written; }
const boost::json::value& VeltoEncodingDocument::tree() const noexcept { return state_->tree; }

std::string VeltoEncodingDocument::jsonText(bool prettyPrint, bool sortKeys) const {
  std::string text;
  velto::detail::writeJson(state_->tree, {prettyPrint, sortKeys}, text);
  return text;
}
