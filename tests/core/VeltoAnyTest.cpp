#include <velto/core/VeltoAny.hpp>

#include <boost/describe.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

struct Point {
  int x;
  int y;
};
BOOST_DESCRIBE_STRUCT(Point, (), (x, y))

struct Base {
  int base = 1;
  virtual ~Base() = default;
};
BOOST_DESCRIBE_STRUCT(Base, (), (base))

struct Derived : Base {
  std::string own = "own";
};
BOOST_DESCRIBE_STRUCT(Derived, (Base), (own))

enum class Color { red, green };
BOOST_DESCRIBE_ENUM(Color, red, green)

enum class Undescribed { a = 4 };

struct Override {
  struct Replace {
    static constexpr std::string_view caseName = "override";
    double value;
  };
  struct Keep {
    static constexpr std::string_view caseName = "noOverride";
  };
  std::variant<Replace, Keep> variant;
  const std::variant<Replace, Keep>& cases() const { return variant; }
};
BOOST_DESCRIBE_STRUCT(Override::Replace, (), (value))
BOOST_DESCRIBE_STRUCT(Override::Keep, (), ())

struct Opaque {
  int hidden;
};

// Collects a value's children as (label, type name) pairs.
struct Collector final : VeltoChildSink {
  std::vector<std::pair<std::string, std::string>> children;
  std::vector<VeltoValueRef> refs;
  void child(std::string_view label, VeltoValueRef value) override {
    children.emplace_back(std::string(label), std::string(value.mirror->typeName()));
    refs.push_back(value);
  }
  void keepAlive(std::shared_ptr<const void> owner) override { owners.push_back(std::move(owner)); }
  std::vector<std::shared_ptr<const void>> owners;
};

Collector childrenOf(VeltoValueRef ref) {
  Collector collector;
  if (ref.mirror->children) ref.mirror->children(ref.value, collector);
  return collector;
}

TEST(VeltoAny, recordsAnyValueAndGivesItBackByExactType) {
  const VeltoAny none;
  EXPECT_FALSE(none.hasValue());
  EXPECT_EQ(none.type(), typeid(void));
  EXPECT_EQ(none.get<int>(), nullptr);

  const VeltoAny number = 3;
  ASSERT_NE(number.get<int>(), nullptr);
  EXPECT_EQ(*number.get<int>(), 3);
  EXPECT_EQ(number.get<long>(), nullptr) << "no conversions";
  EXPECT_EQ(number.typeName(), "int");

  const VeltoAny text = "literal";
  ASSERT_NE(text.get<std::string>(), nullptr) << "C strings are recorded as std::string";
  EXPECT_EQ(*text.get<std::string>(), "literal");

  const VeltoAny moveOnly = std::make_unique<int>(9);
  EXPECT_EQ(**moveOnly.get<std::unique_ptr<int>>(), 9);

  const VeltoAny opaque = Opaque{1};
  EXPECT_TRUE(opaque.hasValue()) << "recording needs no description";
}

TEST(VeltoAny, copiesShareOneRecording) {
  const VeltoAny original = std::string("shared");
  const VeltoAny copy = original;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(copy.isSameRecording(original));
  EXPECT_EQ(copy.get<std::string>(), original.get<std::string>());
  EXPECT_FALSE(VeltoAny(std::string("shared")).isSameRecording(original));
}

TEST(VeltoArgs, keepsInsertionOrderAndDuplicates) {
  VeltoArgs args{{"zeta", 1}, {"alpha", 2}};
  args.append("zeta", 3);
  std::vector<std::string> keys;
  for (const auto& [key, value] : args) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"zeta", "alpha", "zeta"}));
  EXPECT_EQ(*args.find("zeta")->get<int>(), 1) << "find returns the first";
  EXPECT_EQ(args.find("missing"), nullptr);

  const VeltoAny recorded = {{"key", std::string("k")}, {"event", 5}};
  ASSERT_NE(recorded.get<VeltoArgs>(), nullptr);
  EXPECT_EQ(recorded.get<VeltoArgs>()->size(), 2u);
  EXPECT_EQ(recorded.ref().mirror->style, VeltoDisplayStyle::dictionary);
  EXPECT_TRUE(recorded.ref().mirror->keysAreText);
}

TEST(VeltoMirror, classifiesTheDisplayStyles) {
  using enum VeltoDisplayStyle;
  EXPECT_EQ(VeltoAny(Point{1, 2}).ref().mirror->style, structure);
  EXPECT_EQ(VeltoAny(std::optional<int>()).ref().mirror->style, optional);
  EXPECT_EQ(VeltoAny(std::make_shared<Point>()).ref().mirror->style, optional);
  EXPECT_EQ(VeltoAny(std::pair<int, std::string>(1, "a")).ref().mirror->style, tuple);
  EXPECT_EQ(VeltoAny(std::vector<int>{1}).ref().mirror->style, collection);
  EXPECT_EQ(VeltoAny(std::set<int>{1}).ref().mirror->style, set);
  EXPECT_EQ(VeltoAny(std::map<int, int>{}).ref().mirror->style, dictionary);
  EXPECT_EQ(VeltoAny(Color::red).ref().mirror->style, enumeration);
  EXPECT_EQ(VeltoAny(std::variant<int, double>(1)).ref().mirror->style, enumeration);
  EXPECT_EQ(VeltoAny(Override{}).ref().mirror->style, enumeration);
  EXPECT_EQ(VeltoAny(std::string("s")).ref().mirror->style, none);
  EXPECT_EQ(VeltoAny(Opaque{}).ref().mirror->style, none);
}

TEST(VeltoMirror, structureChildrenAreMembersInDeclarationOrder) {
  const VeltoAny point = Point{1, 2};
  const auto collected = childrenOf(point.ref());
  ASSERT_EQ(collected.children.size(), 2u);
  EXPECT_EQ(collected.children[0], (std::pair<std::string, std::string>{"x", "int"}));
  EXPECT_EQ(collected.children[1].first, "y");
  EXPECT_EQ(std::get<std::int64_t>(collected.refs[1].mirror->scalar(collected.refs[1].value)), 2);
}

TEST(VeltoMirror, objectsListOwnMembersBeforeTheirBasesAndKnowTheirIdentityAndDynamicType) {
  const std::shared_ptr<Base> object = std::make_shared<Derived>();
  const VeltoAny recorded = object;
  const auto outer = childrenOf(recorded.ref());
  ASSERT_EQ(outer.refs.size(), 1u);
  const VeltoValueRef objectRef = outer.refs[0];
  EXPECT_EQ(objectRef.mirror->style, VeltoDisplayStyle::class_);
  EXPECT_EQ(objectRef.mirror->identity(objectRef.value), object.get());
  EXPECT_EQ(objectRef.mirror->dynamicType(objectRef.value), typeid(Derived));

  const std::shared_ptr<Derived> derived = std::make_shared<Derived>();
  const VeltoAny recordedDerived = derived;
  const auto members = childrenOf(childrenOf(recordedDerived.ref()).refs[0]);
  ASSERT_EQ(members.children.size(), 2u);
  EXPECT_EQ(members.children[0].first, "own");
  EXPECT_EQ(members.children[1].first, "base");
}

TEST(VeltoMirror, absentOptionalsAndNullPointersHaveNoChild) {
  EXPECT_TRUE(childrenOf(VeltoAny(std::optional<int>()).ref()).children.empty());
  EXPECT_TRUE(childrenOf(VeltoAny(std::shared_ptr<Point>()).ref()).children.empty());
  EXPECT_TRUE(childrenOf(VeltoAny(std::weak_ptr<Point>()).ref()).children.empty());
  EXPECT_EQ(childrenOf(VeltoAny(std::optional<int>(4)).ref()).children.size(), 1u);
}

TEST(VeltoMirror, enumerationsNameTheirCaseAndLabelTheirPayload) {
  const VeltoAny color = Color::green;
  EXPECT_EQ(color.ref().mirror->caseName(color.ref().value), "green");
  EXPECT_TRUE(childrenOf(color.ref()).children.empty());

  const VeltoAny undescribed = Undescribed::a;
  EXPECT_EQ(undescribed.ref().mirror->caseName(undescribed.ref().value), "4");

  const VeltoAny replace = Override{Override::Replace{2.5}};
  EXPECT_EQ(replace.ref().mirror->caseName(replace.ref().value), "override");
  const auto payload = childrenOf(replace.ref());
  ASSERT_EQ(payload.children.size(), 1u);
  EXPECT_EQ(payload.children[0], (std::pair<std::string, std::string>{"override", "double"}));

  const VeltoAny keep = Override{Override::Keep{}};
  EXPECT_EQ(keep.ref().mirror->caseName(keep.ref().value), "noOverride");
  EXPECT_TRUE(childrenOf(keep.ref()).children.empty());

  const auto anonymous = childrenOf(VeltoAny(std::variant<int, double>(1.5)).ref());
  ASSERT_EQ(anonymous.children.size(), 1u);
  EXPECT_EQ(anonymous.children[0].first, "") << "std::variant payloads are anonymous";
}

TEST(VeltoMirror, dictionariesKnowWhetherTheirKeysAreText) {
  EXPECT_TRUE(VeltoAny(std::unordered_map<std::string, int>{}).ref().mirror->keysAreText);
  EXPECT_FALSE(VeltoAny(std::map<int, int>{}).ref().mirror->keysAreText);

  struct Entries final : VeltoEntrySink {
    int count = 0;
    void entry(VeltoValueRef key, VeltoValueRef) override { count += key.mirror->type == typeid(int); }
    void keepAlive(std::shared_ptr<const void>) override {}
  } entries;
  const VeltoAny map = std::map<int, int>{{1, 2}, {3, 4}};
  map.ref().mirror->entries(map.ref().value, entries);
  EXPECT_EQ(entries.count, 2);
}

TEST(VeltoMirror, scalarsClosuresAndOpaqueValues) {
  const VeltoAny flag = true;
  EXPECT_TRUE(std::get<bool>(flag.ref().mirror->scalar(flag.ref().value)));
  const VeltoAny big = std::uint64_t{18'446'744'073'709'551'615u};
  EXPECT_EQ(std::get<std::uint64_t>(big.ref().mirror->scalar(big.ref().value)), 18'446'744'073'709'551'615u);
  const VeltoAny real = 1.5f;
  EXPECT_EQ(std::get<double>(real.ref().mirror->scalar(real.ref().value)), 1.5);

  EXPECT_TRUE(VeltoAny(std::function<void()>([] {})).ref().mirror->isClosure);
  EXPECT_TRUE(VeltoAny([](int x) { return x; }).ref().mirror->isClosure);
  const VeltoAny opaque = Opaque{};
  EXPECT_EQ(opaque.ref().mirror->scalar, nullptr);
  EXPECT_FALSE(opaque.ref().mirror->isClosure);
}

}  // namespace
