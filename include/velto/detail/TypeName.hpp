// Demangled type names: the one helper behind "__type", observer and event type names in
// queue labels, and error domains.
//
//   velto::detail::typeName<std::vector<int>>()  // "std::vector<int, std::allocator<int> >"
#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

namespace velto::detail {

/// The compiler's demangled text for a mangled name; the mangled text itself when it does
/// not demangle.
[[nodiscard]] std::string demangle(const char* mangledName);

/// The demangled name of `type` (cv-qualifiers and references are not part of a type_info).
[[nodiscard]] inline std::string typeName(const std::type_info& type) { return demangle(type.name()); }

/// The demangled name of T, computed once per type and kept for the life of the process.
template <class T>
[[nodiscard]] const std::string& typeName() {
  static const std::string name = demangle(typeid(T).name());
  return name;
}

}  // namespace velto::detail
