#include <velto/detail/TypeName.hpp>

#include <boost/mp11/algorithm.hpp>
#include <boost/mp11/list.hpp>
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <functional>
#include <latch>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

struct Local {};

struct Ordered {};
auto operator<(Ordered, Ordered) {
  struct InOperator {};
  return InOperator{};
}

template <class T>
struct CountingAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = CountingAllocator<U>;
  };
};

template <class T, class Extra>
struct Pairish {};

// A model of how programmers spell types: each wrapper knows its spelling, and every
// combination of two wrappers around every leaf is demangled and compared with the model.
struct Int { using type = int; static std::string spell() { return "int"; } };
struct Text { using type = std::string; static std::string spell() { return "std::string"; } };
struct Wide { using type = std::wstring; static std::string spell() { return "std::wstring"; } };
struct U8 { using type = std::u8string; static std::string spell() { return "std::u8string"; } };
struct U16View { using type = std::u16string_view; static std::string spell() { return "std::u16string_view"; } };
struct Real { using type = double; static std::string spell() { return "double"; } };

template <class Inner> struct Vector {
  using type = std::vector<typename Inner::type>;
  static std::string spell() { return "std::vector<" + Inner::spell() + ">"; }
};
template <class Inner> struct Deque {
  using type = std::deque<typename Inner::type>;
  static std::string spell() { return "std::deque<" + Inner::spell() + ">"; }
};
template <class Inner> struct List {
  using type = std::list<typename Inner::type>;
  static std::string spell() { return "std::list<" + Inner::spell() + ">"; }
};
template <class Inner> struct Set {
  using type = std::set<typename Inner::type>;
  static std::string spell() { return "std::set<" + Inner::spell() + ">"; }
};
template <class Inner> struct MapFromText {
  using type = std::map<std::string, typename Inner::type>;
  static std::string spell() { return "std::map<std::string, " + Inner::spell() + ">"; }
};
template <class Inner> struct MapToInt {
  using type = std::map<typename Inner::type, int>;
  static std::string spell() { return "std::map<" + Inner::spell() + ", int>"; }
};
template <class Inner> struct HashMap {
  using type = std::unordered_map<int, typename Inner::type>;
  static std::string spell() { return "std::unordered_map<int, " + Inner::spell() + ">"; }
};
template <class Inner> struct Optional {
  using type = std::optional<typename Inner::type>;
  static std::string spell() { return "std::optional<" + Inner::spell() + ">"; }
};
template <class Inner> struct Unique {
  using type = std::unique_ptr<typename Inner::type>;
  static std::string spell() { return "std::unique_ptr<" + Inner::spell() + ">"; }
};
template <class Inner> struct PairWithInt {
  using type = std::pair<typename Inner::type, int>;
  static std::string spell() { return "std::pair<" + Inner::spell() + ", int>"; }
};

using Leaves = boost::mp11::mp_list<Int, Text, Wide, U8, U16View, Real>;
template <class F>
void forEachWrapper(F&& f) {
  f.template operator()<Vector>();
  f.template operator()<Deque>();
  f.template operator()<List>();
  f.template operator()<Set>();
  f.template operator()<MapFromText>();
  f.template operator()<MapToInt>();
  f.template operator()<HashMap>();
  f.template operator()<Optional>();
  f.template operator()<Unique>();
  f.template operator()<PairWithInt>();
}

TEST(TypeName, spellsEveryNestingOfStandardContainersAsWritten) {
  int checked = 0;
  forEachWrapper([&]<template <class> class Outer>() {
    forEachWrapper([&]<template <class> class Inner>() {
      boost::mp11::mp_for_each<Leaves>([&](auto leaf) {
        using Model = Outer<Inner<decltype(leaf)>>;
        EXPECT_EQ(velto::detail::typeName<typename Model::type>(), Model::spell());
        ++checked;
      });
    });
  });
  EXPECT_EQ(checked, 600);
}

TEST(TypeName, keepsArgumentsThatAreNotTheDefaults) {
  using velto::detail::typeName;
  EXPECT_EQ((typeName<std::map<int, int, std::greater<int>>>()), "std::map<int, int, std::greater<int>>");
  EXPECT_EQ((typeName<std::vector<int, CountingAllocator<int>>>()), "std::vector<int, CountingAllocator<int>>");
  // Only the standard library's templates have these defaults.
  EXPECT_EQ((typeName<Pairish<int, std::allocator<int>>>()), "Pairish<int, std::allocator<int>>");
  EXPECT_EQ((typeName<std::set<long, std::less<int>>>()), "std::set<long, std::less<int>>");
  EXPECT_EQ((typeName<std::array<int, 3>>()), "std::array<int, 3ul>");
  EXPECT_EQ(typeName<std::function<void(int, std::string)>>(), "std::function<void (int, std::string)>");
  EXPECT_EQ(typeName<void (*)(std::vector<int>)>(), "void (*)(std::vector<int>)");
  EXPECT_EQ(typeName<Local>(), "Local") << "no anonymous namespace";
  EXPECT_EQ(typeName<std::basic_string<char16_t>>(), "std::u16string");
  EXPECT_EQ(typeName<std::u32string_view>(), "std::u32string_view");
  EXPECT_EQ(typeName(typeid(std::vector<std::vector<int>>)), "std::vector<std::vector<int>>");
}

TEST(TypeName, leavesNamesItCannotParseAsTheCompilerWroteThem) {
  EXPECT_EQ(velto::detail::demangle("not a mangled name"), "not a mangled name");
  // A local type of an operator: its name holds an unbalanced angle bracket.
  const auto local = Ordered{} < Ordered{};
  const std::string name = velto::detail::typeName(typeid(local));
  EXPECT_NE(name.find("operator<"), std::string::npos) << name;
  EXPECT_TRUE(name.ends_with("::InOperator")) << name;
}

TEST(TypeName, isComputedOnceAndSharedAcrossThreads) {
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<const std::string*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      seen[i] = &velto::detail::typeName(typeid(std::map<std::string, std::vector<Local>>));
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto* name : seen) {
    EXPECT_EQ(name, seen[0]) << "one cached text per type";
    EXPECT_EQ(*name, "std::map<std::string, std::vector<Local>>");
  }
}

TEST(TypeName, dropsTheUnderscoreOnlyFromKeywordNames) {
  using velto::detail::spelledName;
  EXPECT_EQ(spelledName("default_"), "default");
  EXPECT_EQ(spelledName("delete_"), "delete");
  EXPECT_EQ(spelledName("private_"), "private");
  EXPECT_EQ(spelledName("value_"), "value_");
  EXPECT_EQ(spelledName("a_"), "a_");
  EXPECT_EQ(spelledName("_"), "_");
  EXPECT_EQ(spelledName("__type"), "__type");
  EXPECT_EQ(spelledName("default__"), "default__");
  EXPECT_EQ(spelledName("default"), "default");
  EXPECT_EQ(spelledName(""), "");
  static_assert(spelledName("class_") == "class");
}

}  // namespace
