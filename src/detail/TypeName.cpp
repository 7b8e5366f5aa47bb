#include "velto/detail/TypeName.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string_view>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace velto::detail {
namespace {

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// The position of the '>' closing the '<' at `open`, or npos when the brackets do not balance.
std::size_t closingAngle(std::string_view text, std::size_t open) {
  int depth = 0;
  for (std::size_t at = open; at < text.size(); ++at) {
    if (text[at] == '<') ++depth;
    if (text[at] == '>' && --depth == 0) return at;
  }
  return std::string_view::npos;
}

// Template arguments split at the commas of their own level (not those of nested argument
// lists or of function types such as `void (int, int)`).
std::vector<std::string_view> splitArguments(std::string_view list) {
  std::vector<std::string_view> arguments;
  int depth = 0;
  std::size_t start = 0;
  for (std::size_t at = 0; at < list.size(); ++at) {
    const char c = list[at];
    if (c == '<' || c == '(' || c == '[' || c == '{') ++depth;
    if (c == '>' || c == ')' || c == ']' || c == '}') --depth;
    if (c == ',' && depth == 0) {
      arguments.push_back(trimmed(list.substr(start, at - start)));
      start = at + 1;
    }
  }
  arguments.push_back(trimmed(list.substr(start)));
  return arguments;
}

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':';
}

// Whether `argument` is `family<inner>`.
bool isInstance(std::string_view argument, std::string_view family, std::string_view inner) {
  return argument.size() == family.size() + inner.size() + 2 && argument.starts_with(family) &&
         argument[family.size()] == '<' && argument.substr(family.size() + 1, inner.size()) == inner &&
         argument.back() == '>';
}

// Whether the last of `arguments` is the default the standard library supplies for it.
bool lastIsDefault(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) return false;
  const std::string& last = arguments.back();
  const std::string& first = arguments.front();
  for (std::string_view family : {"std::char_traits", "std::less", "std::equal_to", "std::hash", "std::default_delete"}) {
    if (isInstance(last, family, first)) return true;
  }
  if (isInstance(last, "std::allocator", first)) return true;
  // The allocator of a map: std::allocator<std::pair<Key const, Value>>.
  return arguments.size() >= 3 &&
         isInstance(last, "std::allocator", "std::pair<" + first + " const, " + arguments[1] + ">");
}

std::optional<std::string_view> stringAlias(std::string_view name, std::string_view character) {
  const bool view = name == "std::basic_string_view";
  if (!view && name != "std::basic_string") return std::nullopt;
  if (character == "char") return view ? "std::string_view" : "std::string";
  if (character == "wchar_t") return view ? "std::wstring_view" : "std::wstring";
  if (character == "char8_t") return view ? "std::u8string_view" : "std::u8string";
  if (character == "char16_t") return view ? "std::u16string_view" : "std::u16string";
  if (character == "char32_t") return view ? "std::u32string_view" : "std::u32string";
  return std::nullopt;
}

// Rewrites every template argument list in `text`; none when the brackets do not balance.
std::optional<std::string> rewriteArguments(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '<') {
      out.push_back(text[at]);
      continue;
    }
    const std::size_t close = closingAngle(text, at);
    if (close == std::string_view::npos) return std::nullopt;
    std::vector<std::string> arguments;
    for (std::string_view argument : splitArguments(text.substr(at + 1, close - at - 1))) {
      auto rewritten = rewriteArguments(argument);
      if (!rewritten) return std::nullopt;
      arguments.push_back(std::move(*rewritten));
    }
    std::size_t nameStart = out.size();
    while (nameStart > 0 && isNameCharacter(out[nameStart - 1])) --nameStart;
    const std::string name = out.substr(nameStart);
    if (name.starts_with("std::")) {
      while (lastIsDefault(arguments)) arguments.pop_back();
      if (arguments.size() == 1) {
        if (const auto alias = stringAlias(name, arguments.front())) {
          out.replace(nameStart, std::string::npos, *alias);
          at = close;
          continue;
        }
      }
    }
    out.push_back('<');
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      if (i > 0) out.append(", ");
      out.append(arguments[i]);
    }
    out.push_back('>');
    at = close;
  }
  return out;
}

std::string clean(std::string name) {
  replaceAll(name, "std::__cxx11::", "std::");
  replaceAll(name, "std::__1::", "std::");
  replaceAll(name, "(anonymous namespace)::", "");
  // Names of operators (in lambdas' enclosing functions) hold unbalanced angle brackets: such
  // names keep their argument lists as the compiler wrote them.
  if (name.find("operator") != std::string::npos) return name;
  if (auto rewritten = rewriteArguments(name)) return std::move(*rewritten);
  return name;
}

}  // namespace

std::string demangle(const char* mangledName) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(mangledName, nullptr, nullptr, &status),
                                              std::free);
  if (status != 0 || !text) return std::string(mangledName);
  return clean(std::string(text.get()));
}

const std::string& typeName(const std::type_info& type) {
  // Node-based: references to the names stay valid while the table grows.
  static std::shared_mutex mutex;
  static std::unordered_map<std::type_index, std::string> names;
  {
    std::shared_lock lock(mutex);
    if (auto found = names.find(type); found != names.end()) return found->second;
  }
  std::string name = demangle(type.name());
  std::unique_lock lock(mutex);
  return names.try_emplace(type, std::move(name)).first->second;
}

}  // namespace velto::detail
