#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "encoding/EncodingNode.hpp"
#include "encoding/JsonWriter.hpp"
#include "velto/detail/MainThread.hpp"

namespace velto::detail {
namespace {

constexpr char kFile[] = "Encoding/Dynamic Debug Encoder/VeltoDynamicDebugEncoder";
constexpr std::string_view kNotOnMainThread = "Not encodable off main thread";
constexpr std::string_view kTooDeep = "[nesting too deep to be encoded]";

// Where one value goes: the whole value of an encoder, an entry of an object, or the next
// element of an array. Values are built in place; the parent is not written to while a child
// is being built, so references into it stay valid.
struct Destination {
  enum class Kind { encoder, keyed, unkeyed };
  Destination(Kind destinationKind, boost::json::value* destinationTarget, bool* destinationWritten = nullptr,
              std::string_view destinationKey = {}) noexcept
      : kind(destinationKind), target(destinationTarget), written(destinationWritten), key(destinationKey) {}

  Kind kind;
  boost::json::value* target;  // the encoder's slot, the parent object or the parent array
  bool* written;               // encoder only
  std::string_view key;        // keyed only

  void put(boost::json::value value) const {
    switch (kind) {
      case Kind::encoder:
        *target = std::move(value);
        *written = true;
        break;
      case Kind::keyed: target->get_object()[boost::json::string_view(key.data(), key.size())] = std::move(value); break;
      case Kind::unkeyed: target->get_array().emplace_back(std::move(value)); break;
    }
  }

  // A fresh object (or array) at the destination. An encoder already holding an object keeps it,
  // so that entries written through two keyed containers merge.
  boost::json::value& open(boost::json::kind kind) const {
    boost::json::value fresh;
    if (kind == boost::json::kind::object) fresh.emplace_object();
    else fresh.emplace_array();
    switch (this->kind) {
      case Kind::encoder:
        if (!*written || target->kind() != kind) *target = std::move(fresh);
        *written = true;
        return *target;
      case Kind::keyed: {
        auto& slot = target->get_object()[boost::json::string_view(key.data(), key.size())];
        slot = std::move(fresh);
        return slot;
      }
      case Kind::unkeyed:
      default: return target->get_array().emplace_back(std::move(fresh));
    }
  }
};

std::string indexKey(std::size_t index) { return "." + std::to_string(index); }

// Collects a value's children so that the walk can stop at the first failure and count them.
struct ChildList final : VeltoChildSink {
  struct Child {
    std::string_view label;
    VeltoValueRef value;
  };
  std::vector<Child> children;
  void child(std::string_view label, VeltoValueRef value) override { children.push_back({label, value}); }
};


}  // namespace

struct DebugWalk {
  VeltoDynamicDebugEncoder& encoder;
  const EncodingContext& context;

  [[nodiscard]] const VeltoDynamicDebugEncoderOptions& options() const { return encoder.options_; }

  // The three entry steps: main-thread-only values, custom encodings, then the walk.
  VeltoResult<void> entry(VeltoValueRef item, const Destination& destination) {
    if (!item.mirror) {
      if (options().includeNulls()) destination.put(nullptr);
      return VeltoResultVoidSuccess;
    }
    if (encoder.depth_ >= VeltoDynamicDebugEncoder::maxDepth) {
      destination.put(jsonString(kTooDeep));
      return VeltoResultVoidSuccess;
    }
    ++encoder.depth_;
    auto result = enter(item, destination);
    --encoder.depth_;
    return result;
  }

  VeltoResult<void> enter(VeltoValueRef item, const Destination& destination) {
    if (item.mirror->mainThreadOnly && !isMainThread()) {
      destination.put(jsonString(kNotOnMainThread));
      return VeltoResultVoidSuccess;
    }
    if (item.mirror->custom) return custom(item, destination);
    return walk(item, destination);
  }

  VeltoResult<void> custom(VeltoValueRef item, const Destination& destination) {
    const VeltoCustomDebugHooks& hooks = *item.mirror->custom;
    switch (destination.kind) {
      case Destination::Kind::encoder: {
        VeltoEncoder target(*destination.target, *destination.written, context);
        return hooks.toEncoder(item.value, target, encoder);
      }
      case Destination::Kind::keyed: {
        auto parent = keyedView(*destination.target, context);
        return hooks.toKeyed(item.value, parent, destination.key, encoder);
      }
      case Destination::Kind::unkeyed:
      default: {
        auto parent = unkeyedView(*destination.target, context);
        return hooks.toUnkeyed(item.value, parent, encoder);
      }
    }
  }

  VeltoResult<void> customChildren(VeltoValueRef item, boost::json::value& object) {
    auto container = keyedView(object, context);
    return item.mirror->customChildren(item.value, container, encoder);
  }

  VeltoResult<void> children(const std::vector<ChildList::Child>& children, boost::json::value& object) {
    for (std::size_t i = 0; i < children.size(); ++i) {
      const auto& child = children[i];
      const std::string generated = child.label.empty() ? indexKey(i) : std::string();
      const std::string_view key = child.label.empty() ? std::string_view(generated) : child.label;
      if (auto result = entry(child.value, {Destination::Kind::keyed, &object, nullptr, key}); !result) return result;
    }
    return VeltoResultVoidSuccess;
  }

  static ChildList childrenOf(VeltoValueRef item) {
    ChildList list;
    if (item.mirror->children) item.mirror->children(item.value, list);
    return list;
  }

  VeltoResult<void> walk(VeltoValueRef item, const Destination& destination) {
    const VeltoTypeMirror& mirror = *item.mirror;
    VeltoDisplayStyle style = mirror.style;
    // A value type that supplies its own entries renders as a structure whatever its shape.
    if (mirror.customChildren && style != VeltoDisplayStyle::class_) style = VeltoDisplayStyle::structure;

    switch (style) {
      case VeltoDisplayStyle::structure: {
        auto& object = destination.open(boost::json::kind::object);
        if (options().includeTypes()) object.get_object()[VeltoDynamicDebugEncoder::Keys::type] = jsonString(encoder.typeText(item));
        if (mirror.customChildren) return customChildren(item, object);
        // The children are gathered while the value is alive; `object` is not touched meanwhile.
        ChildList list = childrenOf(item);
        return children(list.children, object);
      }
      case VeltoDisplayStyle::class_: return object(item, destination);
      case VeltoDisplayStyle::enumeration: return enumeration(item, destination);
      case VeltoDisplayStyle::tuple: {
        auto& object = destination.open(boost::json::kind::object);
        ChildList list = childrenOf(item);
        return children(list.children, object);
      }
      case VeltoDisplayStyle::optional: return optional(item, destination);
      case VeltoDisplayStyle::collection:
      case VeltoDisplayStyle::set: {
        auto& array = destination.open(boost::json::kind::array);
        ChildList list = childrenOf(item);
        for (const auto& child : list.children) {
          if (auto result = entry(child.value, {Destination::Kind::unkeyed, &array}); !result) return result;
        }
        return VeltoResultVoidSuccess;
      }
      case VeltoDisplayStyle::dictionary: return dictionary(item, destination);
      case VeltoDisplayStyle::none:
      default: return opaque(item, destination);
    }
  }

  // An object seen through a base: its dynamic type's mirror when that type is registered.
  static VeltoValueRef mostDerived(VeltoValueRef item) {
    if (!item.mirror->dynamicType) return item;
    const std::type_info& type = item.mirror->dynamicType(item.value);
    if (type == item.mirror->type) return item;
    const VeltoTypeMirror* mirror = registeredObjectMirror(type);
    return mirror ? VeltoValueRef{item.mirror->mostDerived(item.value), mirror} : item;
  }

  VeltoResult<void> object(VeltoValueRef reached, const Destination& destination) {
    const VeltoValueRef item = mostDerived(reached);
    const VeltoTypeMirror& mirror = *item.mirror;
    auto& object = destination.open(boost::json::kind::object);
    auto& entries = object.get_object();
    if (options().includeTypes()) entries[VeltoDynamicDebugEncoder::Keys::type] = jsonString(encoder.typeText(item));

    const VeltoEncodableAddress address(mirror.identity(item.value));
    const bool seen = !encoder.encodedAddresses_.insert(address).second;
    if (options().includeAddresses()) {
      entries[seen ? VeltoDynamicDebugEncoder::Keys::previouslyEncodedAddress : VeltoDynamicDebugEncoder::Keys::address] =
          jsonString(address.debugDescription());
    }
    if (seen || !options().includeChildrenOfReferenceTypes()) return VeltoResultVoidSuccess;
    if (mirror.customChildren) return customChildren(item, object);

    ChildList list = childrenOf(item);
    if (!list.children.empty()) return children(list.children, object);
    if (mirror.debugDescription) {
      entries[VeltoDynamicDebugEncoder::Keys::debugDescription] = jsonString(mirror.debugDescription(item.value));
      return VeltoResultVoidSuccess;
    }
    const std::string line = "Add custom handling for type " + std::string(encoder.typeText(item)) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> enumeration(VeltoValueRef item, const Destination& destination) {
    ChildList list = childrenOf(item);
    if (list.children.empty()) {
      destination.put(jsonString(item.mirror->caseName ? item.mirror->caseName(item.value) : std::string()));
      return VeltoResultVoidSuccess;
    }
    const auto& payload = list.children.front();
    auto& object = destination.open(boost::json::kind::object);
    const std::string_view key = payload.label.empty() ? VeltoDynamicDebugEncoder::Keys::anonymousCase : payload.label;
    return entry(payload.value, {Destination::Kind::keyed, &object, nullptr, key});
  }

  VeltoResult<void> optional(VeltoValueRef item, const Destination& destination) {
    // Children of weak pointers are only valid during the visit, so the walk happens inside it.
    struct Present final : VeltoChildSink {
      DebugWalk& walk;
      const Destination& destination;
      bool present = false;
      VeltoResult<void> result;
      Present(DebugWalk& w, const Destination& d) : walk(w), destination(d) {}
      void child(std::string_view, VeltoValueRef value) override {
        if (present) return;
        present = true;
        if (value.mirror->mainThreadOnly && !isMainThread()) {
          destination.put(jsonString(kNotOnMainThread));
        } else if (value.mirror->custom) {
          result = walk.custom(value, destination);
        } else if (walk.encoder.depth_ >= VeltoDynamicDebugEncoder::maxDepth) {
          destination.put(jsonString(kTooDeep));
        } else {
          ++walk.encoder.depth_;
          result = walk.walk(value, destination);
          --walk.encoder.depth_;
        }
      }
    } present(*this, destination);
    if (item.mirror->children) item.mirror->children(item.value, present);
    if (!present.present && options().includeNulls()) destination.put(nullptr);
    return present.result;
  }

  VeltoResult<void> dictionary(VeltoValueRef item, const Destination& destination) {
    if (!item.mirror->entries) {
      destination.open(boost::json::kind::object);
      return VeltoResultVoidSuccess;
    }
    // One pass over the entries wherever possible: large dictionaries are scattered in memory,
    // and every extra visit of an entry is a cache miss.
    struct Visit final : VeltoEntrySink {
      DebugWalk& walk;
      const Destination& destination;
      const bool textKeys;
      const bool sorted;
      boost::json::value* object = nullptr;
      boost::json::value* array = nullptr;
      bool describedKeys = false;
      bool first = true;
      VeltoResult<void> result;
      // Sorted dictionaries: each value is rendered during the visit, next to its key, and the
      // rendered entries are sorted and moved into place afterwards.
      struct Rendered {
        std::string key;
        boost::json::value json;
        bool written = false;
      };
      std::vector<Rendered> keyed;

      Visit(DebugWalk& w, const Destination& d, bool text, bool sort) : walk(w), destination(d), textKeys(text), sorted(sort) {}

      void entry(VeltoValueRef key, VeltoValueRef value) override {
        if (first) {
          first = false;
          describedKeys = !textKeys && key.mirror->debugDescription;
          if (textKeys || describedKeys) {
            if (!sorted) object = &destination.open(boost::json::kind::object);
          } else {
            array = &destination.open(boost::json::kind::array);
          }
        }
        if (!result) return;
        if (array) {
          auto& pair = Destination{Destination::Kind::unkeyed, array}.open(boost::json::kind::object);
          result = walk.entry(key, {Destination::Kind::keyed, &pair, nullptr, VeltoDynamicDebugEncoder::Keys::key});
          if (result) {
            result = walk.entry(value, {Destination::Kind::keyed, &pair, nullptr, VeltoDynamicDebugEncoder::Keys::value});
          }
          return;
        }
        std::string text = textKeys ? std::string(std::get<std::string_view>(key.mirror->scalar(key.value)))
                                    : (key.mirror->debugDescription ? key.mirror->debugDescription(key.value) : std::string());
        if (sorted) {
          auto& rendered = keyed.emplace_back(Rendered{std::move(text), {}, false});
          result = walk.entry(value, {Destination::Kind::encoder, &rendered.json, &rendered.written});
        } else {
          result = walk.entry(value, {Destination::Kind::keyed, object, nullptr, text});
        }
      }
    } visit(*this, destination, item.mirror->keysAreText, options().sortDictionaryKeys());
    item.mirror->entries(item.value, visit);

    if (visit.first) {  // an empty dictionary is an empty object
      destination.open(boost::json::kind::object);
      return VeltoResultVoidSuccess;
    }
    if (!visit.result || !visit.sorted || visit.array) return visit.result;
    std::stable_sort(visit.keyed.begin(), visit.keyed.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    auto& object = destination.open(boost::json::kind::object).get_object();
    object.reserve(visit.keyed.size());
    for (auto& rendered : visit.keyed) {
      if (rendered.written) object[rendered.key] = std::move(rendered.json);
    }
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> opaque(VeltoValueRef item, const Destination& destination) {
    const VeltoTypeMirror& mirror = *item.mirror;
    if (mirror.scalar) {
      const VeltoScalar scalar = mirror.scalar(item.value);
      if (const auto* real = std::get_if<double>(&scalar)) {
        auto json = jsonDouble(*real, context);
        if (!json) return VeltoResult<void>::fromError(json.error());
        destination.put(std::move(json).value());
      } else {
        std::visit(
            [&](const auto& value) {
              using T = std::decay_t<decltype(value)>;
              if constexpr (std::is_same_v<T, std::string_view>) destination.put(jsonString(value));
              else if constexpr (!std::is_same_v<T, double>) destination.put(boost::json::value(value));
            },
            scalar);
      }
      return VeltoResultVoidSuccess;
    }
    if (mirror.isClosure) {
      if (options().includeClosures()) destination.put(jsonString("[closure]"));
      return VeltoResultVoidSuccess;
    }
    destination.put(jsonString("Non-encodable, non-displayable type '" + std::string(encoder.typeText(item)) +
                               "'. This can happen if CustomMirror conformance forgets 'displayStyle' parameter"));
    return VeltoResultVoidSuccess;
  }
};

}  // namespace velto::detail

using velto::detail::DebugWalk;
using velto::detail::Destination;
using velto::detail::EncodingContext;
using velto::detail::EncodingNode;

namespace {

const EncodingContext& debugContext() {
  static const EncodingContext context{velto::detail::NonConformingFloatStrategy{"positive infinity", "negative infinity", "NaN"}};
  return context;
}

}  // namespace

VeltoResult<VeltoData> VeltoDynamicDebugEncoder::encodeRefToData(VeltoValueRef item,
                                                                const VeltoDynamicDebugEncoderOptions& options) {
  const EncodingContext& context = debugContext();
  VeltoDynamicDebugEncoder encoder(item, options);
  DebugWalk walk{encoder, context};

  boost::json::value document;
  bool written = false;
  auto result = walk.entry(item, {Destination::Kind::encoder, &document, &written});
  std::shared_ptr<const VeltoPlatformError> cause;
  if (!result) {
    cause = std::make_shared<const VeltoError>(result.error());
  } else if (!written) {
    cause = VeltoPlatformError::make("VeltoEncodingError", 0, "Top-level value did not encode any values.");
  }
  if (cause) {
    return VeltoResult<VeltoData>::fromMessage("Failed to encode for debug", {}, std::move(cause),
                                               VeltoCodeSite(velto::detail::kFile, "encodeToData(_:options:)", 79));
  }

  std::string text;
  velto::detail::writeJson(document, {options.prettyPrint(), options.sortPropertyKeys()}, text);
  const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
  return VeltoData(bytes, bytes + text.size());
}

VeltoResult<std::string> VeltoDynamicDebugEncoder::encodeRefToString(VeltoValueRef item,
                                                                    const VeltoDynamicDebugEncoderOptions& options) {
  auto data = encodeRefToData(item, options);
  if (!data) {
    return VeltoResult<std::string>::fromError(data.error(), {},
                                               VeltoCodeSite(velto::detail::kFile, "encodeToString(_:options:)", 93));
  }
  std::string text(reinterpret_cast<const char*>(data.value().data()), data.value().size());
  if (!velto::detail::isValidUtf8(text)) {
    return VeltoResult<std::string>::fromMessage("Failed to create string representation of encoded data", {}, nullptr,
                                                 VeltoCodeSite(velto::detail::kFile, "encodeToString(_:options:)", 96));
  }
  return text;
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoEncoder& toEncoder) {
  DebugWalk walk{*this, EncodingNode::contextOf(toEncoder)};
  return walk.entry(item, {Destination::Kind::encoder, &EncodingNode::slotOf(toEncoder), &EncodingNode::writtenOf(toEncoder)});
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoKeyedEncodingContainer& toKeyedParent,
                                                      std::string_view forKey) {
  DebugWalk walk{*this, EncodingNode::contextOf(toKeyedParent)};
  return walk.entry(item, {Destination::Kind::keyed, &EncodingNode::targetOf(toKeyedParent), nullptr, forKey});
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoUnkeyedEncodingContainer& toUnkeyedParent) {
  DebugWalk walk{*this, EncodingNode::contextOf(toUnkeyedParent)};
  return walk.entry(item, {Destination::Kind::unkeyed, &EncodingNode::targetOf(toUnkeyedParent)});
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeAddress(const VeltoEncodableAddress& address,
                                                          VeltoKeyedEncodingContainer& toKeyed, std::string_view forKey) {
  return toKeyed.encode(forKey, address.debugDescription());
}

std::string_view VeltoDynamicDebugEncoder::typeText(VeltoValueRef item) {
  if (!item.mirror) return "nil";
  if (!item.mirror->dynamicType) return item.mirror->typeName();
  const std::type_info& type = item.mirror->dynamicType(item.value);
  if (type == item.mirror->type) return item.mirror->typeName();
  auto [it, inserted] = dynamicTypeNames_.try_emplace(&type);
  if (inserted) it->second = velto::detail::typeName(type);
  return it->second;
}
