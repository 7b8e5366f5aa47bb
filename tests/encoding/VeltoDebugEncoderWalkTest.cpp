// The debug encoder's walk: elements made on the fly, unbounded depth (also through custom
// encodings), sorted dictionaries walked in key order, and the streamed and tree-built documents
// agreeing on random values.
#include <velto/core/VeltoImpetus.hpp>
#include <velto/core/VeltoJunction.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <boost/describe.hpp>
#include <boost/json.hpp>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <functional>
#include <future>
#include <latch>
#include <limits>
#include <map>
#include <random>
#include <ranges>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "support/DebugRendering.hpp"

namespace {

using Options = VeltoDynamicDebugEncoderOptions;
using velto::test::debugJson;
using velto::test::debugText;

constexpr auto plain = &velto::test::plainDebugOptions;
Options noAddresses() { return plain().replacing({}, false); }
Options noNulls() { return plain().replacing({}, false, {}, {}, false); }
Options sortedDictionaries(bool sortProperties) { return plain().replacing({}, {}, {}, {}, {}, {}, {}, {}, true, sortProperties); }

// Checks that a text is one strict JSON document without building a tree (a parser that
// recurses, as Boost.JSON's does, overflows on a million levels), and records what the tests
// look at: the deepest nesting, how often a key occurs, and the integers and strings under it.
struct Scan {
  std::size_t maxDepth = 0;
  std::size_t keyCount = 0;
  std::vector<std::int64_t> integers;
  std::vector<std::string> strings;
  bool valid = false;
};

Scan scan(std::string_view text, std::string_view watchedKey) {
  Scan result;
  std::size_t i = 0;
  const auto space = [&] {
    while (i < text.size() && (text[i] == ' ' || text[i] == '\n' || text[i] == '\t' || text[i] == '\r')) ++i;
  };
  const auto string = [&](std::string& out) {
    if (i >= text.size() || text[i] != '"') return false;
    for (++i; i < text.size() && text[i] != '"'; ++i) {
      if (static_cast<unsigned char>(text[i]) < 0x20) return false;
      if (text[i] != '\\') {
        out.push_back(text[i]);
        continue;
      }
      if (++i >= text.size() || std::string_view("\"\\/bfnrtu").find(text[i]) == std::string_view::npos) return false;
      if (text[i] == 'u') {
        if (i + 4 >= text.size()) return false;
        for (int h = 1; h <= 4; ++h) if (!std::isxdigit(static_cast<unsigned char>(text[i + static_cast<std::size_t>(h)]))) return false;
        i += 4;
      }
      out.push_back('?');
    }
    if (i >= text.size()) return false;
    ++i;
    return true;
  };
  enum class Expect { value, key, after } expect = Expect::value;
  std::vector<char> open;
  bool watched = false;
  for (;;) {
    space();
    if (expect == Expect::after) {
      if (open.empty()) break;
      if (i >= text.size()) return result;
      const char c = text[i++];
      if (c == ',') expect = open.back() == '{' ? Expect::key : Expect::value;
      else if ((c == '}' && open.back() == '{') || (c == ']' && open.back() == '[')) open.pop_back();
      else return result;
      continue;
    }
    if (i >= text.size()) return result;
    if (expect == Expect::key) {
      std::string key;
      if (!string(key)) return result;
      space();
      if (i >= text.size() || text[i++] != ':') return result;
      watched = key == watchedKey;
      result.keyCount += watched;
      expect = Expect::value;
      continue;
    }
    const bool recording = std::exchange(watched, false);
    const char c = text[i];
    if (c == '{' || c == '[') {
      open.push_back(c);
      result.maxDepth = std::max(result.maxDepth, open.size());
      ++i;
      space();
      if (i < text.size() && text[i] == (c == '{' ? '}' : ']')) {
        ++i;
        open.pop_back();
        expect = Expect::after;
      } else {
        expect = c == '{' ? Expect::key : Expect::value;
      }
      continue;
    }
    expect = Expect::after;
    if (c == '"') {
      std::string value;
      if (!string(value)) return result;
      if (recording) result.strings.push_back(std::move(value));
    } else if (text.substr(i, 4) == "true" || text.substr(i, 4) == "null") {
      i += 4;
    } else if (text.substr(i, 5) == "false") {
      i += 5;
    } else {
      const std::size_t start = i;
      while (i < text.size() && std::string_view("+-.eE0123456789").find(text[i]) != std::string_view::npos) ++i;
      const std::string_view number = text.substr(start, i - start);
      if (number.empty()) return result;
      std::int64_t integer = 0;
      const auto parsed = std::from_chars(number.data(), number.data() + number.size(), integer);
      if (recording && parsed.ptr == number.data() + number.size()) result.integers.push_back(integer);
    }
  }
  result.valid = i == text.size();
  return result;
}

// Runs `body` on a thread whose whole stack is 256 KiB.
void onSmallStack(const std::function<void()>& body) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  pthread_t thread;
  auto* task = new std::function<void()>(body);
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  std::unique_ptr<std::function<void()>> run(static_cast<std::function<void()>*>(argument));
                  (*run)();
                  return nullptr;
                },
                task),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// ---- elements made on the fly ----------------------------------------------------------------

struct Tagged {
  int id = 0;
  std::string tag;
};
BOOST_DESCRIBE_STRUCT(Tagged, (), (id, tag))

// A map-like type whose iteration yields its pairs by value, as generated maps do.
struct Squares {
  using key_type = int;
  using mapped_type = std::string;
  struct Iterator {
    using value_type = std::pair<const int, std::string>;
    using difference_type = std::ptrdiff_t;
    int k = 0;
    value_type operator*() const { return {k, std::to_string(k * k)}; }
    Iterator& operator++() { return ++k, *this; }
    Iterator operator++(int) { return Iterator{k++}; }
    bool operator==(const Iterator&) const = default;
  };
  int count = 0;
  [[nodiscard]] Iterator begin() const { return {0}; }
  [[nodiscard]] Iterator end() const { return {count}; }
};

boost::json::array arrayOf(const auto& values) {
  boost::json::array array;
  for (const auto& value : values) array.emplace_back(value);
  return array;
}

TEST(VeltoDebugEncoderWalk, proxyElementsRenderTheirOwnValues) {
  std::mt19937 random(3);
  for (int trial = 0; trial < 150; ++trial) {
    std::vector<bool> bits;
    std::vector<int> model;
    for (int i = std::uniform_int_distribution<int>(0, 40)(random); i > 0; --i) {
      bits.push_back(random() % 2 == 0);
      model.push_back(bits.back());
    }
    boost::json::array expected;
    for (int bit : model) expected.emplace_back(bit != 0);
    EXPECT_EQ(debugJson(bits), expected) << "trial " << trial;

    const std::map<std::string, std::vector<bool>> flags{{"all", bits}, {"none", std::vector<bool>(model.size() % 3, false)}};
    const auto renderedFlags = debugJson(flags);
    EXPECT_EQ(renderedFlags.at("all"), expected);
    EXPECT_EQ(renderedFlags.at("none"), boost::json::value(boost::json::array(model.size() % 3, false)));
    EXPECT_EQ(debugJson(std::optional(std::vector{bits, bits})), boost::json::value(boost::json::array{expected, expected}));
  }
  const auto squares = debugJson(Squares{4}).as_array();  // integer keys: {"__key", "__value"} pairs
  ASSERT_EQ(squares.size(), 4u);
  for (std::int64_t k = 0; k < 4; ++k) {
    EXPECT_EQ(squares[static_cast<std::size_t>(k)].at("__key"), k);
    EXPECT_EQ(squares[static_cast<std::size_t>(k)].at("__value"), boost::json::value(std::to_string(k * k)));
  }
}

// clang 14 cannot compile libstdc++ 12's range adaptors; these cases run with g++.
#if !defined(__clang__) || __clang_major__ >= 15
TEST(VeltoDebugEncoderWalk, viewsYieldingValuesRenderEachOfThem) {
  std::mt19937 random(7);
  for (int trial = 0; trial < 150; ++trial) {
    const int size = std::uniform_int_distribution<int>(0, 40)(random);
    std::vector<int> numbers;
    for (int i = 0; i < size; ++i) numbers.push_back(std::uniform_int_distribution<int>(-1000, 1000)(random));

    const int low = std::uniform_int_distribution<int>(-50, 50)(random);
    EXPECT_EQ(debugJson(std::views::iota(low, low + size)), arrayOf(std::views::iota(low, low + size))) << "trial " << trial;

    const auto tripled = numbers | std::views::transform([](int n) { return 3 * n + 1; });
    std::vector<int> tripledModel;
    for (int n : numbers) tripledModel.push_back(3 * n + 1);
    EXPECT_EQ(debugJson(tripled), arrayOf(tripledModel));

    // Filter views iterate only when mutable: the walk iterates a copy of the view.
    const auto even = numbers | std::views::filter([](int n) { return n % 2 == 0; });
    std::vector<int> evenModel;
    for (int n : numbers) if (n % 2 == 0) evenModel.push_back(n);
    EXPECT_EQ(debugJson(even), arrayOf(evenModel));

    // Structures yielded by value.
    const auto tagged = std::views::iota(0, size % 5) | std::views::transform([&](int i) { return Tagged{i, "t" + std::to_string(numbers[static_cast<std::size_t>(i)])}; });
    const auto renderedTags = debugJson(tagged).as_array();
    ASSERT_EQ(renderedTags.size(), static_cast<std::size_t>(size % 5));
    for (std::size_t i = 0; i < renderedTags.size(); ++i) {
      EXPECT_EQ(renderedTags[i].at("id"), static_cast<std::int64_t>(i));
      EXPECT_EQ(renderedTags[i].at("tag"), boost::json::value("t" + std::to_string(numbers[i])));
    }
  }
  // A single view holds its element inside itself; filtered, it is walked through a copy.
  const auto single = std::views::single(Tagged{9, "only"}) | std::views::filter([](const Tagged&) { return true; });
  EXPECT_EQ(debugJson(single), boost::json::parse(R"([{"id":9,"tag":"only"}])"));
  EXPECT_EQ(debugJson(std::views::iota(0, 0)), boost::json::array());
  EXPECT_EQ(debugJson(std::optional(std::views::iota(3, 5))), boost::json::parse("[3,4]"));
}
#endif

// ---- depth ---------------------------------------------------------------------------------

struct Link {
  std::int64_t id = 0;
  std::shared_ptr<Link> next;
};
BOOST_DESCRIBE_STRUCT(Link, (), (id, next))

std::shared_ptr<Link> chainOf(std::int64_t length) {
  auto head = std::make_shared<Link>();
  Link* tail = head.get();
  for (std::int64_t i = 1; i < length; ++i) {
    tail->next = std::make_shared<Link>(Link{i, nullptr});
    tail = tail->next.get();
  }
  return head;
}

void releaseChain(std::shared_ptr<Link> head) {
  while (head) head = std::exchange(head->next, nullptr);
}

void expectWholeChain(const std::string& text, std::int64_t length, std::int64_t depth = 0) {
  const Scan shape = scan(text, "id");
  ASSERT_TRUE(shape.valid) << "not one JSON document";
  EXPECT_EQ(shape.maxDepth, static_cast<std::size_t>(depth ? depth : length));
  ASSERT_EQ(shape.integers.size(), static_cast<std::size_t>(length));
  for (std::int64_t i = 0; i < length; ++i) {
    if (shape.integers[static_cast<std::size_t>(i)] != i) {
      ADD_FAILURE() << "link " << i << " reads " << shape.integers[static_cast<std::size_t>(i)];
      break;
    }
  }
}

TEST(VeltoDebugEncoderWalk, chainsOfAMillionObjectsRenderCompletelyOnAnyStack) {
  constexpr std::int64_t length = 1'000'000;
  auto head = chainOf(length);
  expectWholeChain(debugText(head, noAddresses()), length);
  onSmallStack([&] { expectWholeChain(debugText(head, noAddresses()), length); });
  releaseChain(std::move(head));
}

TEST(VeltoDebugEncoderWalk, deepChainsWithSortedKeysOrPrettyTextStayWhole) {
  constexpr std::int64_t length = 200'000;
  auto head = chainOf(length);
  const auto sorted = noAddresses().replacing({}, {}, {}, {}, {}, {}, {}, {}, {}, true);
  onSmallStack([&] {
    expectWholeChain(debugText(head, sorted), length);
    expectWholeChain(debugText(std::vector{std::optional(head)}, sorted), length, length + 1);
  });
  releaseChain(std::move(head));

  // Pretty text indents every level, so its size grows with the square of the depth.
  constexpr std::int64_t shallower = 3'000;
  auto short_ = chainOf(shallower);
  onSmallStack([&] {
    expectWholeChain(debugText(short_, noAddresses().replacing({}, {}, {}, {}, {}, {}, {}, true)), shallower);
    expectWholeChain(debugText(short_, sorted.replacing({}, {}, {}, {}, {}, {}, {}, true)), shallower);
  });
}

TEST(VeltoDebugEncoderWalk, trailsOfAMillionJunctionsRenderEveryParent) {
  constexpr std::size_t length = 1'000'000;
  std::shared_ptr<const VeltoVia> trail = VeltoImpetus::create("tap");
  for (std::size_t i = 0; i < length; ++i) {
    trail = fork(std::move(trail), {}, std::nullopt, VeltoCodeSite::interned("Lib/Deep", "step(via:)", i));
  }
  const auto check = [&](const std::string& text) {
    const Scan shape = scan(text, "parent");
    ASSERT_TRUE(shape.valid);
    EXPECT_EQ(shape.keyCount, length);
    EXPECT_GT(shape.maxDepth, length);
    EXPECT_NE(text.find("\"tap\""), std::string::npos) << "the impetus at the end of the trail";
  };
  // Only on the small stack: the default one runs the same code with more room, and a million
  // junctions under AddressSanitizer take minutes per rendering.
  onSmallStack([&] { check(debugText(trail, noAddresses())); });
}

// A node of a linked list that renders itself, in the manner of the library's keyed list: its
// entries hook writes the next node, whose hook writes the next...
struct HookNode {
  std::string item;
  std::int64_t key = 0;
  std::shared_ptr<HookNode> tailward;

  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto r = dynamicEncoder.encode(item, container, "item"); !r) return r;
    if (auto r = dynamicEncoder.encode(key, container, "key"); !r) return r;
    return dynamicEncoder.encode(tailward, container, "tailward");
  }
};

TEST(VeltoDebugEncoderWalk, customEncodingsNestingThroughSharedOwnersDoNotRecurse) {
  constexpr std::int64_t length = 1'000'000;
  auto head = std::make_shared<HookNode>(HookNode{"i0", 0, nullptr});
  HookNode* tail = head.get();
  for (std::int64_t i = 1; i < length; ++i) {
    tail->tailward = std::make_shared<HookNode>(HookNode{"i" + std::to_string(i), i, nullptr});
    tail = tail->tailward.get();
  }
  onSmallStack([&] {
    const std::string text = debugText(head, noNulls());
    const Scan keys = scan(text, "key");
    ASSERT_TRUE(keys.valid);
    ASSERT_EQ(keys.integers.size(), static_cast<std::size_t>(length));
    EXPECT_EQ(keys.integers.back(), length - 1);
    EXPECT_EQ(scan(text, "tailward").keyCount, static_cast<std::size_t>(length - 1)) << "the tail has no tailward";
  });
  while (head) head = std::exchange(head->tailward, nullptr);
}

TEST(VeltoDebugEncoderWalk, deferredEntriesKeepTheirPlaceAndVanishWhenEmpty) {
  auto second = std::make_shared<HookNode>(HookNode{"b", 2, nullptr});
  const auto first = std::make_shared<HookNode>(HookNode{"a", 1, second});
  for (bool sorted : {false, true}) {
    const auto options = noNulls().replacing({}, {}, {}, {}, {}, {}, {}, {}, {}, sorted);
    EXPECT_EQ(debugText(first, options), R"({"item":"a","key":1,"tailward":{"item":"b","key":2}})");
    EXPECT_EQ(debugText(first, options.replacing({}, {}, {}, {}, true)),
              R"({"item":"a","key":1,"tailward":{"item":"b","key":2,"tailward":null}})");
  }
  // In an array and as a dictionary value, and the same object twice: its full form first.
  const std::vector<std::shared_ptr<HookNode>> twice{first, second};
  const auto json = debugJson(twice);
  EXPECT_TRUE(json.at(0).at("tailward").as_object().contains("__address"));
  EXPECT_TRUE(json.at(1).as_object().contains("__previouslyEncodedAddress"));
}

// Renders itself through all three destinations, nesting its inner value one container deeper
// (a deferred entry whose place is inside a container the hook opened), then an element after it.
struct Russian {
  std::int64_t id = 0;
  std::shared_ptr<const Russian> inner;

  VeltoResult<void> fill(VeltoKeyedEncodingContainer& container, VeltoDynamicDebugEncoder& dynamicEncoder) const {
    if (auto r = container.encode("id", id); !r) return r;
    auto nested = container.nestedUnkeyedContainer("inner");
    if (auto r = dynamicEncoder.encode(inner, nested); !r) return r;
    return nested.encode("after");
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder& dynamicEncoder) const {
    auto container = encoder.keyedContainer();
    return fill(container, dynamicEncoder);
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& parent, std::string_view key,
                                          VeltoDynamicDebugEncoder& dynamicEncoder) const {
    auto container = parent.nestedKeyedContainer(key);
    return fill(container, dynamicEncoder);
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& parent, VeltoDynamicDebugEncoder& dynamicEncoder) const {
    auto container = parent.nestedKeyedContainer();
    return fill(container, dynamicEncoder);
  }
};

TEST(VeltoDebugEncoderWalk, deferredEntriesInsideNestedContainersStayInOrderAtAnyDepth) {
  const auto two = std::make_shared<const Russian>(Russian{2, nullptr});
  const Russian one{1, two};
  for (bool sorted : {false, true}) {
    const auto options = noNulls().replacing({}, {}, {}, {}, {}, {}, {}, {}, {}, sorted);
    EXPECT_EQ(debugText(one, options), R"({"id":1,"inner":[{"id":2,"inner":["after"]},"after"]})");
    EXPECT_EQ(debugText(std::vector{one}, options), R"([{"id":1,"inner":[{"id":2,"inner":["after"]},"after"]}])");
    EXPECT_EQ(debugText(std::map<std::string, Russian>{{"k", one}}, options),
              R"({"k":{"id":1,"inner":[{"id":2,"inner":["after"]},"after"]}})");
    EXPECT_EQ(debugText(one, options.replacing({}, {}, {}, {}, true)), R"({"id":1,"inner":[{"id":2,"inner":[null,"after"]},"after"]})");
  }

  constexpr std::int64_t length = 100'000;
  std::shared_ptr<const Russian> chain;
  for (std::int64_t i = length - 1; i >= 0; --i) chain = std::make_shared<const Russian>(Russian{i, std::move(chain)});
  onSmallStack([&] {
    const std::string text = debugText(chain);
    const Scan ids = scan(text, "id");
    ASSERT_TRUE(ids.valid);
    ASSERT_EQ(ids.integers.size(), static_cast<std::size_t>(length));
    EXPECT_EQ(ids.integers.back(), length - 1);
    EXPECT_EQ(ids.maxDepth, static_cast<std::size_t>(2 * length));
  });
  // Released iteratively: each inner value is owned by exactly one outer one.
  while (chain) {
    auto inner = chain->inner;
    chain = std::move(inner);
  }
}

// ---- sorted dictionaries ------------------------------------------------------------------

struct Shared {
  std::int64_t n = 0;
};
BOOST_DESCRIBE_STRUCT(Shared, (), (n))

struct Handle {
  int rank = 0;
  [[nodiscard]] std::string debugDescription() const { return "h" + std::to_string(97 - rank); }
  bool operator<(const Handle& other) const { return rank < other.rank; }
};

// In document order, every object's first occurrence is its full form, later ones its address.
void expectFullFormsFirst(const boost::json::object& dictionary, std::size_t entries) {
  ASSERT_EQ(dictionary.size(), entries);
  std::unordered_set<std::string> seen;
  std::string previousKey;
  for (const auto& [key, value] : dictionary) {
    EXPECT_LT(previousKey, std::string(key)) << "entries in ascending key order";
    previousKey = key;
    const auto& object = value.as_object();
    if (object.contains("__address")) {
      EXPECT_TRUE(seen.insert(std::string(object.at("__address").as_string())).second);
      EXPECT_TRUE(object.contains("n"));
    } else {
      EXPECT_TRUE(seen.contains(std::string(object.at("__previouslyEncodedAddress").as_string())))
          << "short form of " << key << " before its full form";
    }
  }
}

TEST(VeltoDebugEncoderWalk, sortedDictionariesWalkTheirValuesInKeyOrder) {
  std::mt19937 random(11);
  for (int trial = 0; trial < 60; ++trial) {
    std::vector<std::shared_ptr<Shared>> objects;
    for (int i = 0; i < 1 + trial % 7; ++i) objects.push_back(std::make_shared<Shared>(Shared{i}));
    std::unordered_map<std::string, std::shared_ptr<Shared>> byText;
    std::map<Handle, std::shared_ptr<Shared>> byHandle;
    const int entries = 1 + static_cast<int>(random() % 30);
    for (int i = 0; i < entries; ++i) {
      const auto& object = objects[random() % objects.size()];
      byText.emplace("k" + std::to_string(random() % 1000), object);
      byHandle.emplace(Handle{static_cast<int>(random() % 90)}, object);
    }
    for (bool sortProperties : {false, true}) {
      expectFullFormsFirst(debugJson(byText, sortedDictionaries(sortProperties)).as_object(), byText.size());
      expectFullFormsFirst(debugJson(byHandle, sortedDictionaries(sortProperties)).as_object(), byHandle.size());
    }
  }
}

// Counts which of its hooks the walk used.
struct Probe {
  static inline int keyed = 0;
  static inline int other = 0;
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder&) const {
    ++other;
    return encoder.singleValueContainer().encode("whole");
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& parent, std::string_view key,
                                          VeltoDynamicDebugEncoder&) const {
    ++keyed;
    return parent.encode(key, "keyed");
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& parent, VeltoDynamicDebugEncoder&) const {
    ++other;
    return parent.encode("element");
  }
};

TEST(VeltoDebugEncoderWalk, dictionaryValuesGoThroughTheKeyedEntryStepSortedOrNot) {
  const std::unordered_map<std::string, Probe> probes{{"b", {}}, {"a", {}}, {"c", {}}};
  for (const auto& options : {plain(), sortedDictionaries(false), sortedDictionaries(true)}) {
    Probe::keyed = Probe::other = 0;
    const auto json = debugJson(probes, options);
    EXPECT_EQ(json, boost::json::parse(R"({"a":"keyed","b":"keyed","c":"keyed"})"));
    EXPECT_EQ(Probe::keyed, 3);
    EXPECT_EQ(Probe::other, 0);
  }
  EXPECT_EQ(debugText(probes, sortedDictionaries(false)), R"({"a":"keyed","b":"keyed","c":"keyed"})");
}

// ---- streamed and tree-built documents -----------------------------------------------------

struct Tree {
  std::string label;
  double weight = 0;
  std::optional<std::int64_t> maybe;
  std::vector<bool> flags;
  std::map<std::string, double> scores;
  std::vector<std::shared_ptr<Tree>> children;
  std::shared_ptr<HookNode> list;
  std::variant<int, std::string> either;
};
BOOST_DESCRIBE_STRUCT(Tree, (), (label, weight, maybe, flags, scores, children, list, either))

std::shared_ptr<Tree> randomTree(std::mt19937& random, int depth, std::vector<std::shared_ptr<Tree>>& made) {
  if (!made.empty() && random() % 6 == 0) return made[random() % made.size()];  // shared, or a cycle back
  static const double specials[] = {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                    std::nan(""), 0.1, -2.5e-300, 1e21};
  auto tree = std::make_shared<Tree>();
  made.push_back(tree);
  tree->label = "t\"\\\n" + std::to_string(random() % 100);
  tree->weight = random() % 3 == 0 ? specials[random() % 6] : std::ldexp(static_cast<double>(random()), -20);
  if (random() % 2) tree->maybe = static_cast<std::int64_t>(random()) - (1LL << 31);
  for (unsigned i = random() % 4; i > 0; --i) tree->flags.push_back(random() % 2);
  for (unsigned i = random() % 4; i > 0; --i) tree->scores["s" + std::to_string(random() % 50)] = random() % 7;
  if (random() % 2) tree->list = std::make_shared<HookNode>(HookNode{"x", 1, random() % 2 ? std::make_shared<HookNode>() : nullptr});
  if (random() % 2) tree->either = std::string("e");
  if (depth > 0) {
    for (unsigned i = random() % 4; i > 0; --i) tree->children.push_back(randomTree(random, depth - 1, made));
  }
  return tree;
}

TEST(VeltoDebugEncoderWalk, streamedAndTreeBuiltDocumentsAgreeOnRandomValues) {
  std::mt19937 random(23);
  for (int trial = 0; trial < 80; ++trial) {
    std::vector<std::shared_ptr<Tree>> made;
    const auto root = randomTree(random, 4, made);
    const auto options = plain().replacing({}, trial % 2 == 0, {}, trial % 3 != 0, trial % 4 != 0, trial % 5 == 0);
    const auto streamed = debugJson(root, options);
    EXPECT_EQ(debugJson(root, options.replacing({}, {}, {}, {}, {}, {}, {}, {}, {}, true)), streamed) << "trial " << trial;
    EXPECT_EQ(debugJson(root, options.replacing({}, {}, {}, {}, {}, {}, {}, true)), streamed) << "trial " << trial;
    for (auto& tree : made) tree->children.clear();  // break the cycles
  }
}

TEST(VeltoDebugEncoderWalk, threadsEncodingSharedValuesAtOnceAgree) {
  std::mt19937 random(5);
  std::vector<std::shared_ptr<Tree>> made;
  const auto root = randomTree(random, 5, made);
  const std::string expected = debugText(root);
  constexpr int threads = 4;
  std::latch start(threads);
  std::vector<std::future<std::string>> results;
  for (int t = 0; t < threads; ++t) {
    results.push_back(std::async(std::launch::async, [&] {
      start.arrive_and_wait();
      std::string last;
      for (int i = 0; i < 20; ++i) last = debugText(root);
      return last;
    }));
  }
  for (auto& result : results) EXPECT_EQ(result.get(), expected);
  for (auto& tree : made) tree->children.clear();
}

}  // namespace
