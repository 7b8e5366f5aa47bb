#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "encoding/EncodingNode.hpp"
#include "encoding/JsonWriter.hpp"
#include "velto/detail/MainThread.hpp"

namespace velto::detail {

// The nested encodes that one custom encoding asked for with shared owners: each has its place
// reserved (a null entry or element) in the tree the hook wrote, and is walked after the hook.
struct DeferredEntries {
  struct Entry {
    VeltoValueRef item;
    std::shared_ptr<const void> owner;
    boost::json::value* root = nullptr;  // the value the hook's outermost container views
    std::vector<EncodingNode::PathStep> path;  // from `root` to the parent container
    std::string key;                           // keyed parents
    std::size_t index = 0;                     // unkeyed parents: the reserved element
    bool keyed = false;
    bool written = false;
    std::size_t member = 0;  // streamed hooks: the top-level member of the buffer it lies in
  };
  std::vector<Entry> entries;
};

namespace {

constexpr char kFile[] = "Encoding/Dynamic Debug Encoder/VeltoDynamicDebugEncoder";
constexpr std::string_view kNotOnMainThread = "Not encodable off main thread";
using Keys = VeltoDynamicDebugEncoder::Keys;

// Where one value goes: the whole value of an encoder, an entry of an object, or the next
// element of an array; in the text stream (`tree` null) or in a Boost.JSON tree.
struct Out {
  enum class Kind : std::uint8_t { encoder, keyed, unkeyed };
  Kind kind;
  boost::json::value* tree = nullptr;  // the encoder's slot, the parent object or the parent array
  bool* written = nullptr;             // encoder only
  std::string_view key{};              // keyed only
};

// An object or array the walk has opened.
struct Container {
  enum class Where : std::uint8_t { none, stream, tree };
  Where where = Where::none;
  boost::json::value* tree = nullptr;

  [[nodiscard]] Out keyed(std::string_view key) const { return {Out::Kind::keyed, tree, nullptr, key}; }
  [[nodiscard]] Out unkeyed() const { return {Out::Kind::unkeyed, tree}; }
};

struct Child {
  std::string_view label;
  VeltoValueRef value;
  VeltoValueRef pairKey{};    // set: the entry is a {"__key", "__value"} object
  bool labelled = false;      // else the key is "." and the child's position
  std::size_t position = 0;   // among all the value's children
};

// A custom encoding that left deferred entries, until they are walked (and, for a hook whose
// destination is the text stream, until what it wrote is streamed out).
struct HookWork {
  enum class Flush : std::uint8_t { none, value, members, elements };
  DeferredEntries deferred;
  boost::json::value buffer;  // streamed hooks: what the hook wrote
  bool bufferWritten = false;
  Flush flush = Flush::none;
  Out out{Out::Kind::encoder};  // Flush::value: the destination of the whole value
  std::string key;              // its key, owned
  bool closeStream = false;     // an object opened in the stream before the hook (its entries)
  bool opened = false;          // Flush::value: the wrapper object or array has been begun
  std::size_t nextEntry = 0;
  std::size_t nextMember = 0;
  std::size_t memberCount = 0;
  DeferredEntries::Entry* running = nullptr;  // a tree entry being walked
  std::vector<DeferredEntries::Entry*> unwritten;

  HookWork() = default;
  HookWork(HookWork&&) noexcept = default;
  HookWork& operator=(HookWork&&) = delete;
  ~HookWork() { releaseJson(std::move(buffer)); }
};

struct Frame {
  Container container;
  bool keyed = false;
  std::vector<Child> children;
  std::size_t next = 0;
  std::vector<std::shared_ptr<const void>> owners;
  std::vector<std::string> keys;  // reserved before use: children's labels point into it
  std::unique_ptr<HookWork> hook;
};

// Leaves written the moment they are visited: scalars with no rendering of their own.
bool plainScalar(const VeltoValueRef& value) {
  const VeltoTypeMirror* mirror = value.mirror;
  return mirror && mirror->scalar && !mirror->custom && !mirror->customChildren && !mirror->mainThreadOnly;
}

// Orders text keys by their first sixteen bytes before touching the text itself: sorting a
// large dictionary otherwise chases a pointer into a scattered key for every comparison. Equal
// keys (described keys may print alike) keep their order.
struct SortKey {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  std::string_view text;
  std::size_t index;

  SortKey(std::string_view key, std::size_t at) : text(key), index(at) {
    unsigned char bytes[16] = {};
    std::memcpy(bytes, key.data(), std::min<std::size_t>(key.size(), sizeof bytes));
    for (std::size_t i = 0; i < 8; ++i) {
      high = (high << 8) | bytes[i];
      low = (low << 8) | bytes[8 + i];
    }
  }
  bool operator<(const SortKey& other) const {
    if (high != other.high) return high < other.high;
    if (low != other.low) return low < other.low;
    return text < other.text;
  }
};

void appendIndexKey(std::string& out, std::size_t index) {
  char buffer[24];
  buffer[0] = '.';
  const auto result = std::to_chars(buffer + 1, buffer + sizeof buffer, index);
  out.assign(buffer, result.ptr);
}

boost::json::value& resolve(boost::json::value* root, const std::vector<EncodingNode::PathStep>& path) {
  boost::json::value* value = root;
  for (const auto& step : path) {
    value = step.keyed ? &value->get_object()[boost::json::string_view(step.key.data(), step.key.size())]
                       : &value->get_array()[step.index];
  }
  return *value;
}

// Points the encoder's deferral list at one hook's for as long as the hook runs (or throws).
class DeferralScope {
 public:
  DeferralScope(DeferredEntries*& slot, DeferredEntries* now) noexcept : slot_(slot), saved_(std::exchange(slot, now)) {}
  ~DeferralScope() { slot_ = saved_; }
  DeferralScope(const DeferralScope&) = delete;
  DeferralScope& operator=(const DeferralScope&) = delete;

 private:
  DeferredEntries*& slot_;
  DeferredEntries* saved_;
};

}  // namespace

// The walk: one explicit stack of frames on the heap, so that no depth of the value grows the
// thread's stack. A step writes a scalar at once or opens a container and pushes a frame of its
// children; the loop takes the next child of the top frame, and closes and pops a frame when it
// is done. Custom encodings are plain calls; the nested encodes they defer become a frame too.
struct DebugWalk {
  VeltoDynamicDebugEncoder& encoder;
  const EncodingContext& context;
  JsonStream<ByteBuffer>* stream;  // null: every destination is a tree
  const bool includeNulls;
  const bool includeTypes;
  const bool includeAddresses;
  const bool includeChildren;
  const bool includeClosures;
  const bool sortDictionaryKeys;

  std::vector<Frame> frames;
  std::size_t depth = 0;
  std::vector<std::shared_ptr<const void>> stepOwners;  // owners met by the current step
  std::string indexKey;

  DebugWalk(VeltoDynamicDebugEncoder& e, const EncodingContext& c, JsonStream<ByteBuffer>* s)
      : encoder(e),
        context(c),
        stream(s),
        includeNulls(e.options_.includeNulls()),
        includeTypes(e.options_.includeTypes()),
        includeAddresses(e.options_.includeAddresses()),
        includeChildren(e.options_.includeChildrenOfReferenceTypes()),
        includeClosures(e.options_.includeClosures()),
        sortDictionaryKeys(e.options_.sortDictionaryKeys()) {}

  ~DebugWalk() {
    // A failed walk leaves frames whose hooks may hold deep trees: release them top first.
    while (depth > 0) frames[--depth].hook.reset();
  }

  // ---- output --------------------------------------------------------------------------

  // Writes the key of a stream destination; false for tree destinations.
  bool toStream(const Out& out) {
    if (out.tree) return false;
    if (out.kind == Out::Kind::keyed) stream->key(out.key);
    else if (out.kind == Out::Kind::encoder) *out.written = true;
    return true;
  }

  static void treePut(const Out& out, boost::json::value value) {
    switch (out.kind) {
      case Out::Kind::encoder:
        *out.tree = std::move(value);
        *out.written = true;
        break;
      case Out::Kind::keyed: out.tree->get_object()[boost::json::string_view(out.key.data(), out.key.size())] = std::move(value); break;
      case Out::Kind::unkeyed: out.tree->get_array().emplace_back(std::move(value)); break;
    }
  }

  // A fresh object (or array) at a tree destination. An encoder already holding one keeps it,
  // so that entries written through two keyed containers merge.
  static boost::json::value& treeOpen(const Out& out, boost::json::kind kind) {
    boost::json::value fresh;
    if (kind == boost::json::kind::object) fresh.emplace_object();
    else fresh.emplace_array();
    switch (out.kind) {
      case Out::Kind::encoder:
        if (!*out.written || out.tree->kind() != kind) *out.tree = std::move(fresh);
        *out.written = true;
        return *out.tree;
      case Out::Kind::keyed: {
        auto& slot = out.tree->get_object()[boost::json::string_view(out.key.data(), out.key.size())];
        slot = std::move(fresh);
        return slot;
      }
      case Out::Kind::unkeyed:
      default: return out.tree->get_array().emplace_back(std::move(fresh));
    }
  }

  void putNull(const Out& out) {
    if (toStream(out)) stream->null();
    else treePut(out, nullptr);
  }
  void putString(const Out& out, std::string_view text) {
    if (toStream(out)) stream->string(text);
    else treePut(out, jsonString(text));
  }

  VeltoResult<void> putScalar(const Out& out, const VeltoScalar& scalar) {
    if (const auto* real = std::get_if<double>(&scalar)) {
      if (!std::isfinite(*real)) {
        auto json = jsonDouble(*real, context);  // the strategy's text, or the failure
        if (!json) return VeltoResult<void>::fromError(json.error());
        putString(out, json.value().get_string());
        return VeltoResultVoidSuccess;
      }
    }
    if (toStream(out)) {
      std::visit(
          [&](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, std::string_view>) stream->string(value);
            else if constexpr (std::is_same_v<T, bool>) stream->boolean(value);
            else stream->number(value);
          },
          scalar);
    } else {
      std::visit(
          [&](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, std::string_view>) treePut(out, jsonString(value));
            else treePut(out, boost::json::value(value));
          },
          scalar);
    }
    return VeltoResultVoidSuccess;
  }

  Container open(const Out& out, boost::json::kind kind) {
    if (toStream(out)) {
      if (kind == boost::json::kind::object) stream->beginObject();
      else stream->beginArray();
      return {Container::Where::stream};
    }
    return {Container::Where::tree, &treeOpen(out, kind)};
  }

  void close(const Container& container) {
    if (container.where == Container::Where::stream) stream->end();
  }

  // ---- frames --------------------------------------------------------------------------

  Frame& push(Container container, bool keyed) {
    if (depth == frames.size()) frames.emplace_back();
    Frame& frame = frames[depth++];
    frame.container = container;
    frame.keyed = keyed;
    frame.next = 0;
    frame.owners.swap(stepOwners);
    return frame;
  }

  void pop() {
    Frame& frame = frames[--depth];
    frame.children.clear();
    frame.owners.clear();
    frame.keys.clear();
    frame.hook.reset();
  }

  // ---- the walk ------------------------------------------------------------------------

  VeltoResult<void> run(VeltoValueRef item, const Out& out) {
    const std::size_t base = depth;
    auto result = step(item, out);
    stepOwners.clear();
    while (result && depth > base) {
      Frame& frame = frames[depth - 1];
      if (frame.hook) {
        result = advanceHook(*frame.hook);
      } else if (frame.next < frame.children.size()) {
        const Child child = frame.children[frame.next++];
        Out childOut = frame.container.unkeyed();
        if (frame.keyed) {
          if (child.labelled) {
            childOut = frame.container.keyed(child.label);
          } else {
            appendIndexKey(indexKey, child.position);
            childOut = frame.container.keyed(indexKey);
          }
        }
        if (child.pairKey) {
          Frame& pair = push(open(childOut, boost::json::kind::object), true);
          pair.children.push_back({Keys::key, child.pairKey, {}, true});
          pair.children.push_back({Keys::value, child.value, {}, true});
        } else if (auto failed = step(child.value, childOut); !failed) {
          result = std::move(failed);
        }
      } else {
        close(frame.container);
        pop();
      }
      stepOwners.clear();
    }
    return result;
  }

  // The entry step: main-thread-only values, custom encodings, then the walk by display style.
  // Optionals are transparent: the loop goes on with the present value at the same destination.
  VeltoResult<void> step(VeltoValueRef item, const Out& out) {
    for (;;) {
      if (!item.mirror) {
        if (includeNulls) putNull(out);
        return VeltoResultVoidSuccess;
      }
      const VeltoTypeMirror& mirror = *item.mirror;
      if (mirror.mainThreadOnly && !isMainThread()) {
        putString(out, kNotOnMainThread);
        return VeltoResultVoidSuccess;
      }
      if (mirror.custom) return custom(item, out);
      VeltoDisplayStyle style = mirror.style;
      // A value type that supplies its own entries renders as a structure whatever its shape.
      if (mirror.customChildren && style != VeltoDisplayStyle::class_) style = VeltoDisplayStyle::structure;

      switch (style) {
        case VeltoDisplayStyle::structure: {
          const Container container = open(out, boost::json::kind::object);
          if (includeTypes) putString(container.keyed(Keys::type), encoder.typeText(item));
          if (mirror.customChildren) return customChildren(item, container);
          return pushChildren(item, container, true);
        }
        case VeltoDisplayStyle::class_: return object(item, out);
        case VeltoDisplayStyle::enumeration: return enumeration(item, out);
        case VeltoDisplayStyle::tuple: return pushChildren(item, open(out, boost::json::kind::object), true);
        case VeltoDisplayStyle::optional: {
          struct First final : VeltoChildSink {
            std::vector<std::shared_ptr<const void>>& owners;
            VeltoValueRef value{};
            explicit First(std::vector<std::shared_ptr<const void>>& o) : owners(o) {}
            void child(std::string_view, VeltoValueRef v) override {
              if (!value) value = v;
            }
            void keepAlive(std::shared_ptr<const void> owner) override { owners.push_back(std::move(owner)); }
          } first(stepOwners);
          if (mirror.children) mirror.children(item.value, first);
          if (!first.value) {
            if (includeNulls) putNull(out);
            return VeltoResultVoidSuccess;
          }
          item = first.value;
          continue;
        }
        case VeltoDisplayStyle::collection:
        case VeltoDisplayStyle::set: return pushChildren(item, open(out, boost::json::kind::array), false);
        case VeltoDisplayStyle::dictionary: return dictionary(item, out);
        case VeltoDisplayStyle::none:
        default: return opaque(item, out);
      }
    }
  }

  // Gathers a value's children (or dictionary entries) into the top frame. With `direct`, as
  // long as every child so far is a plain scalar it is written at once instead: most leaves of
  // structures and collections never reach the frame.
  struct Visit final : VeltoChildSink, VeltoEntrySink {
    DebugWalk& walk;
    Frame& frame;
    bool direct;
    std::size_t position = 0;
    VeltoResult<void> result;
    Visit(DebugWalk& w, Frame& f, bool writeLeaves) : walk(w), frame(f), direct(writeLeaves) {}

    void child(std::string_view label, VeltoValueRef value) override {
      const std::size_t at = position++;
      if (direct && plainScalar(value)) {
        if (!result) return;
        Out out = frame.container.unkeyed();
        if (frame.keyed) {
          if (label.empty()) appendIndexKey(walk.indexKey, at);
          out = frame.container.keyed(label.empty() ? std::string_view(walk.indexKey) : label);
        }
        if (auto failed = walk.putScalar(out, value.mirror->scalar(value.value)); !failed) result = std::move(failed);
        return;
      }
      direct = false;
      frame.children.push_back({label, value, {}, !label.empty(), at});
    }
    // Text keys are read while the entry is at hand (a large dictionary's entries are scattered
    // in memory; each later visit would miss the cache again).
    bool textKeys = false;
    std::vector<SortKey>* order = nullptr;
    void entry(VeltoValueRef key, VeltoValueRef value) override {
      if (textKeys) {
        const std::string_view label = std::get<std::string_view>(key.mirror->scalar(key.value));
        if (order) order->emplace_back(label, position);
        frame.children.push_back({label, value, {}, true, position++});
      } else {
        frame.children.push_back({{}, value, key, false, position++});
      }
    }
    void keepAlive(std::shared_ptr<const void> owner) override { frame.owners.push_back(std::move(owner)); }
  };

  VeltoResult<void> pushChildren(VeltoValueRef item, Container container, bool keyed, std::size_t* seen = nullptr,
                                 bool direct = true) {
    Frame& frame = push(container, keyed);
    Visit visit(*this, frame, direct && container.where != Container::Where::none);
    if (item.mirror->children) item.mirror->children(item.value, visit);
    if (seen) *seen = visit.position;
    return visit.result;
  }

  // An object seen through a base: its dynamic type's mirror when that type is registered.
  static VeltoValueRef mostDerived(VeltoValueRef item) {
    if (!item.mirror->dynamicType) return item;
    const std::type_info& type = item.mirror->dynamicType(item.value);
    if (type == item.mirror->type) return item;
    const VeltoTypeMirror* mirror = registeredObjectMirror(type);
    return mirror ? VeltoValueRef{item.mirror->mostDerived(item.value), mirror} : item;
  }

  VeltoResult<void> object(VeltoValueRef reached, const Out& out) {
    const VeltoValueRef item = mostDerived(reached);
    const VeltoTypeMirror& mirror = *item.mirror;
    const Container container = open(out, boost::json::kind::object);
    if (includeTypes) putString(container.keyed(Keys::type), encoder.typeText(item));

    const VeltoEncodableAddress address(mirror.identity(item.value));
    const bool seen = !encoder.encodedAddresses_.insert(address).second;
    if (includeAddresses) {
      putString(container.keyed(seen ? Keys::previouslyEncodedAddress : Keys::address), address.debugDescription());
    }
    if (seen || !includeChildren) {
      close(container);
      return VeltoResultVoidSuccess;
    }
    if (mirror.customChildren) return customChildren(item, container);

    std::size_t children = 0;
    if (auto result = pushChildren(item, container, true, &children); !result || children > 0) return result;
    if (mirror.debugDescription) {
      putString(container.keyed(Keys::debugDescription), mirror.debugDescription(item.value));
      return VeltoResultVoidSuccess;
    }
    const std::string line = "Add custom handling for type " + std::string(encoder.typeText(item)) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> enumeration(VeltoValueRef item, const Out& out) {
    (void)pushChildren(item, {}, true, nullptr, false);
    Frame& frame = frames[depth - 1];
    if (frame.children.empty()) {
      const std::string name = item.mirror->caseName ? item.mirror->caseName(item.value) : std::string();
      pop();
      putString(out, name);
      return VeltoResultVoidSuccess;
    }
    frame.children.resize(1);  // the payload
    Child& payload = frame.children.front();
    if (!payload.labelled) payload = {Keys::anonymousCase, payload.value, {}, true};
    frame.container = open(out, boost::json::kind::object);
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> dictionary(VeltoValueRef item, const Out& out) {
    Frame& frame = push({}, true);
    const bool textKeys = item.mirror->keysAreText;
    std::vector<SortKey> order;
    if (item.mirror->entries) {
      Visit visit(*this, frame, false);
      visit.textKeys = textKeys;
      if (sortDictionaryKeys && textKeys) visit.order = &order;
      item.mirror->entries(item.value, visit);
    }
    if (frame.children.empty()) {  // an empty dictionary is an empty object
      frame.container = open(out, boost::json::kind::object);
      return VeltoResultVoidSuccess;
    }
    if (!textKeys) {
      if (!frame.children.front().pairKey.mirror->debugDescription) {  // an array of {"__key", "__value"} objects
        frame.keyed = false;
        frame.container = open(out, boost::json::kind::array);
        return VeltoResultVoidSuccess;
      }
      frame.keys.reserve(frame.children.size());
      for (Child& child : frame.children) {
        const VeltoValueRef key = child.pairKey;
        child.label = frame.keys.emplace_back(key.mirror->debugDescription ? key.mirror->debugDescription(key.value) : std::string());
        child.pairKey = {};
        child.labelled = true;
        if (sortDictionaryKeys) order.emplace_back(child.label, child.position);
      }
    }
    // Sorted, the values are walked in key order too, so that the first occurrence of a shared
    // object (its full form) comes first in the document.
    if (sortDictionaryKeys) {
      std::stable_sort(order.begin(), order.end());
      std::vector<Child> sorted;
      sorted.reserve(order.size());
      for (const SortKey& key : order) sorted.push_back(frame.children[key.index]);
      frame.children.swap(sorted);
    }
    frame.container = open(out, boost::json::kind::object);
    // Leading scalar values are written here; the loop takes over at the first other one.
    while (frame.next < frame.children.size() && plainScalar(frame.children[frame.next].value)) {
      const Child& child = frame.children[frame.next++];
      if (auto result = putScalar(frame.container.keyed(child.label), child.value.mirror->scalar(child.value.value)); !result) {
        return result;
      }
    }
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> opaque(VeltoValueRef item, const Out& out) {
    const VeltoTypeMirror& mirror = *item.mirror;
    if (mirror.scalar) return putScalar(out, mirror.scalar(item.value));
    if (mirror.isClosure) {
      if (includeClosures) putString(out, "[closure]");
      return VeltoResultVoidSuccess;
    }
    putString(out, "Non-encodable, non-displayable type '" + std::string(encoder.typeText(item)) +
                       "'. This can happen if CustomMirror conformance forgets 'displayStyle' parameter");
    return VeltoResultVoidSuccess;
  }

  // ---- custom encodings ----------------------------------------------------------------

  // The whole value by the type's own hook. A stream destination gets a tree to write into,
  // streamed out once the hook (and what it deferred) is done.
  VeltoResult<void> custom(VeltoValueRef item, const Out& out) {
    const VeltoCustomDebugHooks& hooks = *item.mirror->custom;
    HookWork local;
    HookWork* const work = &local;
    VeltoResult<void> result;
    {
      const DeferralScope scope(encoder.deferrals_, &work->deferred);
      if (out.tree) {
        switch (out.kind) {
          case Out::Kind::encoder: {
            VeltoEncoder target(*out.tree, *out.written, context);
            result = hooks.toEncoder(item.value, target, encoder);
            break;
          }
          case Out::Kind::keyed: {
            auto parent = keyedView(*out.tree, context);
            result = hooks.toKeyed(item.value, parent, out.key, encoder);
            break;
          }
          case Out::Kind::unkeyed: {
            auto parent = unkeyedView(*out.tree, context);
            result = hooks.toUnkeyed(item.value, parent, encoder);
            break;
          }
        }
      } else {
        switch (out.kind) {
          case Out::Kind::encoder: {
            VeltoEncoder target(work->buffer, work->bufferWritten, context);
            result = hooks.toEncoder(item.value, target, encoder);
            work->flush = HookWork::Flush::value;
            work->out = out;
            break;
          }
          case Out::Kind::keyed: {
            work->buffer.emplace_object();
            {
              auto parent = keyedView(work->buffer, context);
              result = hooks.toKeyed(item.value, parent, out.key, encoder);
            }
            work->flush = HookWork::Flush::members;
            break;
          }
          case Out::Kind::unkeyed: {
            work->buffer.emplace_array();
            {
              auto parent = unkeyedView(work->buffer, context);
              result = hooks.toUnkeyed(item.value, parent, encoder);
            }
            work->flush = HookWork::Flush::elements;
            break;
          }
        }
      }
    }
    if (!result) return result;
    return startHook(std::move(local));
  }

  // The entries of an object the walk has opened, by the type's own hook.
  VeltoResult<void> customChildren(VeltoValueRef item, const Container& container) {
    HookWork local;
    HookWork* const work = &local;
    VeltoResult<void> result;
    {
      const DeferralScope scope(encoder.deferrals_, &work->deferred);
      if (container.where == Container::Where::tree) {
        auto view = keyedView(*container.tree, context);
        result = item.mirror->customChildren(item.value, view, encoder);
      } else {
        work->buffer.emplace_object();
        {
          auto view = keyedView(work->buffer, context);
          result = item.mirror->customChildren(item.value, view, encoder);
        }
        work->flush = HookWork::Flush::members;
        work->closeStream = true;
      }
    }
    if (!result) return result;
    return startHook(std::move(local));
  }

  // After a hook returned: nothing more to do, or a frame that walks its deferred entries and
  // streams its buffer.
  VeltoResult<void> startHook(HookWork&& local) {
    if (local.deferred.entries.empty()) {
      flushWhole(local);
      return VeltoResultVoidSuccess;
    }
    auto work = std::make_unique<HookWork>(std::move(local));
    for (auto& entry : work->deferred.entries) {
      if (entry.root == &local.buffer) entry.root = &work->buffer;  // the buffer's new home
    }
    if (work->flush != HookWork::Flush::none) {
      // Each entry lies in one top-level member of the buffer; the members are streamed in
      // order, and an entry reserved at the top level is walked straight into the stream.
      const boost::json::value& buffer = work->buffer;
      work->memberCount = buffer.is_object() ? buffer.get_object().size() : buffer.is_array() ? buffer.get_array().size() : 0;
      for (auto& entry : work->deferred.entries) {
        if (entry.path.empty()) {
          entry.member = entry.keyed ? static_cast<std::size_t>(buffer.get_object().find(entry.key) - buffer.get_object().begin())
                                     : entry.index;
        } else {
          const auto& first = entry.path.front();
          entry.member = first.keyed ? static_cast<std::size_t>(buffer.get_object().find(first.key) - buffer.get_object().begin())
                                     : first.index;
        }
      }
      std::stable_sort(work->deferred.entries.begin(), work->deferred.entries.end(),
                       [](const auto& a, const auto& b) { return a.member < b.member; });
    }
    Frame& frame = push({}, false);
    frame.hook = std::move(work);
    return VeltoResultVoidSuccess;
  }

  // Streams what a hook without deferred entries wrote.
  void flushWhole(const HookWork& work) {
    switch (work.flush) {
      case HookWork::Flush::none: return;
      case HookWork::Flush::value:
        if (work.bufferWritten) {
          toStream(work.out);
          writeJson(work.buffer, false, *stream);
        }
        break;
      case HookWork::Flush::members:
        for (const auto& member : work.buffer.get_object()) {
          stream->key(member.key());
          writeJson(member.value(), false, *stream);
        }
        break;
      case HookWork::Flush::elements:
        for (const auto& element : work.buffer.get_array()) writeJson(element, false, *stream);
        break;
    }
    if (work.closeStream) stream->end();
  }

  // One move of a hook frame: walk the next deferred entry or stream the next member; pops the
  // frame when all is done.
  VeltoResult<void> advanceHook(HookWork& work) {
    if (work.running) {
      if (!work.running->written) work.unwritten.push_back(work.running);
      work.running = nullptr;
    }
    auto& entries = work.deferred.entries;
    if (work.flush == HookWork::Flush::none) {
      if (work.nextEntry < entries.size()) return runInTree(work, entries[work.nextEntry++]);
      removeUnwritten(work);
      pop();
      return VeltoResultVoidSuccess;
    }

    if (work.flush == HookWork::Flush::value && !work.opened) {
      work.opened = true;
      if (!work.bufferWritten) {
        pop();
        return VeltoResultVoidSuccess;
      }
      if (!work.buffer.is_structured()) {
        toStream(work.out);
        writeJson(work.buffer, false, *stream);
        pop();
        return VeltoResultVoidSuccess;
      }
      open(work.out, work.buffer.kind());
    }

    while (work.nextMember < work.memberCount) {
      if (work.nextEntry < entries.size() && entries[work.nextEntry].member == work.nextMember) {
        auto& entry = entries[work.nextEntry++];
        if (!entry.path.empty()) return runInTree(work, entry);
        // Reserved at the top: walked straight into the stream, in its place.
        ++work.nextMember;
        const Out out = entry.keyed ? Out{Out::Kind::keyed, nullptr, nullptr, entry.key} : Out{Out::Kind::unkeyed};
        return step(entry.item, out);
      }
      removeUnwritten(work);
      const std::size_t member = work.nextMember++;
      if (work.buffer.is_object()) {
        const auto& pair = work.buffer.get_object().begin()[member];
        stream->key(pair.key());
        writeJson(pair.value(), false, *stream);
      } else {
        writeJson(work.buffer.get_array()[member], false, *stream);
      }
    }
    if (work.flush == HookWork::Flush::value || work.closeStream) stream->end();
    pop();
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> runInTree(HookWork& work, DeferredEntries::Entry& entry) {
    boost::json::value& parent = resolve(entry.root, entry.path);
    boost::json::value* slot = entry.keyed ? &parent.get_object()[boost::json::string_view(entry.key.data(), entry.key.size())]
                                           : &parent.get_array()[entry.index];
    work.running = &entry;
    return step(entry.item, {Out::Kind::encoder, slot, &entry.written});
  }

  // Placeholders of entries that wrote nothing are taken out again, last first so that the
  // reserved positions of the others stay where they were.
  static void removeUnwritten(HookWork& work) {
    for (auto it = work.unwritten.rbegin(); it != work.unwritten.rend(); ++it) {
      auto& entry = **it;
      boost::json::value& parent = resolve(entry.root, entry.path);
      if (entry.keyed) {
        parent.get_object().stable_erase(boost::json::string_view(entry.key.data(), entry.key.size()));
      } else {
        auto& array = parent.get_array();
        array.erase(array.begin() + static_cast<std::ptrdiff_t>(entry.index));
      }
    }
    work.unwritten.clear();
  }
};

}  // namespace velto::detail

using velto::detail::DebugWalk;
using velto::detail::EncodingContext;
using velto::detail::EncodingNode;
using velto::detail::Out;

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

  // The text is written while the value is walked; only sorted property keys need the whole
  // document as a tree first.
  VeltoData bytes;
  velto::detail::ByteBuffer buffer(bytes);
  velto::detail::JsonStream<velto::detail::ByteBuffer> stream(buffer, options.prettyPrint());
  bool written = false;
  VeltoResult<void> result;
  if (options.sortPropertyKeys()) {
    boost::json::value document;
    {
      DebugWalk walk(encoder, context, nullptr);
      result = walk.run(item, {Out::Kind::encoder, &document, &written});
    }
    if (result && written) velto::detail::writeJson(document, true, stream);
    velto::detail::releaseJson(std::move(document));
  } else {
    DebugWalk walk(encoder, context, &stream);
    result = walk.run(item, {Out::Kind::encoder, nullptr, &written});
  }

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
  buffer.finish();
  return bytes;
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

// Nested encodes from custom encodings walk at once, into the hook's own tree, with a walk of
// their own (one level of the C++ stack per hook that encodes a value type inside another).
VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoEncoder& toEncoder) {
  DebugWalk walk(*this, EncodingNode::contextOf(toEncoder), nullptr);
  return walk.run(item, {Out::Kind::encoder, &EncodingNode::slotOf(toEncoder), &EncodingNode::writtenOf(toEncoder)});
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoKeyedEncodingContainer& toKeyedParent,
                                                      std::string_view forKey) {
  DebugWalk walk(*this, EncodingNode::contextOf(toKeyedParent), nullptr);
  return walk.run(item, {Out::Kind::keyed, &EncodingNode::targetOf(toKeyedParent), nullptr, forKey});
}

VeltoResult<void> VeltoDynamicDebugEncoder::encodeRef(VeltoValueRef item, VeltoUnkeyedEncodingContainer& toUnkeyedParent) {
  DebugWalk walk(*this, EncodingNode::contextOf(toUnkeyedParent), nullptr);
  return walk.run(item, {Out::Kind::unkeyed, &EncodingNode::targetOf(toUnkeyedParent)});
}

VeltoResult<void> VeltoDynamicDebugEncoder::defer(VeltoValueRef item, std::shared_ptr<const void> owner,
                                                  VeltoKeyedEncodingContainer* keyed, VeltoUnkeyedEncodingContainer* unkeyed,
                                                  std::string_view key) {
  velto::detail::DeferredEntries::Entry entry;
  entry.item = item;
  entry.owner = std::move(owner);
  const EncodingNode& node = keyed ? EncodingNode::nodeOf(*keyed) : EncodingNode::nodeOf(*unkeyed);
  entry.path = node.pathFromRoot(entry.root);
  if (keyed) {
    entry.keyed = true;
    entry.key = std::string(key);
    node.target->get_object()[boost::json::string_view(key.data(), key.size())] = nullptr;  // reserves the place
  } else {
    auto& array = node.target->get_array();
    array.emplace_back(nullptr);
    entry.index = array.size() - 1;
  }
  deferrals_->entries.push_back(std::move(entry));
  return VeltoResultVoidSuccess;
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
