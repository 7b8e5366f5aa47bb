// Demangled type names, spelled the way C++ programmers write them: the one helper behind
// "__type", observer and event type names in queue labels, and error domains.
//
//   velto::detail::typeName<std::vector<int>>()             // "std::vector<int>"
//   velto::detail::typeName<std::map<std::string, int>>()   // "std::map<std::string, int>"
//   velto::detail::spelledName("default_")                  // "default"
#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

namespace velto::detail {

/// The compiler's demangled text for a mangled name, cleaned for reading: trailing default
/// template arguments (allocators, comparators, hashers, equality, char traits, deleters)
/// dropped, the standard library's inline namespaces (`std::__cxx11::`, `std::__1::`) and
/// "(anonymous namespace)::" removed, `std::basic_string<char>` and its siblings spelled
/// `std::string`, `std::wstring`, ..., and `> >` closed as `>>`. The mangled text itself when
/// it does not demangle. Not cached: prefer typeName().
[[nodiscard]] std::string demangle(const char* mangledName);

/// The cleaned demangled name of `type` (cv-qualifiers and references are not part of a
/// type_info). Computed once per type and kept for the life of the process; the reference
/// stays valid forever. Thread-safe.
[[nodiscard]] const std::string& typeName(const std::type_info& type);

/// The cleaned demangled name of T, computed once per type and kept for the life of the process.
template <class T>
[[nodiscard]] const std::string& typeName() {
  static const std::string& name = typeName(typeid(T));
  return name;
}

/// `name` without the trailing underscore that a declaration adds when the name it wants is a
/// C++ keyword (`default_` -> `default`, `delete_` -> `delete`); any other name is returned as
/// it is (`value_`, `__type` and `a_` keep their underscores).
[[nodiscard]] constexpr std::string_view spelledName(std::string_view name) noexcept {
  constexpr std::string_view keywords[] = {
      "alignas",   "alignof",      "and",        "and_eq",      "asm",          "auto",      "bitand",
      "bitor",     "bool",         "break",      "case",        "catch",        "char",      "char8_t",
      "char16_t",  "char32_t",     "class",      "compl",       "concept",      "const",     "consteval",
      "constexpr", "constinit",    "const_cast", "continue",    "co_await",     "co_return", "co_yield",
      "decltype",  "default",      "delete",     "do",          "double",       "dynamic_cast", "else",
      "enum",      "explicit",     "export",     "extern",      "false",        "float",     "for",
      "friend",    "goto",         "if",         "inline",      "int",          "long",      "mutable",
      "namespace", "new",          "noexcept",   "not",         "not_eq",       "nullptr",   "operator",
      "or",        "or_eq",        "private",    "protected",   "public",       "register",  "reinterpret_cast",
      "requires",  "return",       "short",      "signed",      "sizeof",       "static",    "static_assert",
      "static_cast", "struct",     "switch",     "template",    "this",         "thread_local", "throw",
      "true",      "try",          "typedef",    "typeid",      "typename",     "union",     "unsigned",
      "using",     "virtual",      "void",       "volatile",    "wchar_t",      "while",     "xor",
      "xor_eq"};
  if (name.size() < 2 || name.back() != '_') return name;
  const std::string_view stem = name.substr(0, name.size() - 1);
  for (std::string_view keyword : keywords) {
    if (keyword == stem) return stem;
  }
  return name;
}

}  // namespace velto::detail
