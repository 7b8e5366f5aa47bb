#include "velto/detail/TypeName.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace velto::detail {
namespace {

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

std::string demangle(const char* mangledName) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(mangledName, nullptr, nullptr, &status),
                                              std::free);
  if (status != 0 || !text) return std::string(mangledName);
  // Spell the standard library's most common names as people write them.
  std::string name(text.get());
  replaceAll(name, "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string");
  replaceAll(name, "std::basic_string_view<char, std::char_traits<char> >", "std::string_view");
  replaceAll(name, "std::__cxx11::", "std::");
  return name;
}

}  // namespace velto::detail
