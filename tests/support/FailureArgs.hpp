// Reading the named arguments a failure's frames recorded: names in order, and a value by name
// and type.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <velto/core/VeltoError.hpp>

namespace velto::test {

inline const VeltoArgs& argsOf(const VeltoError& error, std::size_t frame) {
  static const VeltoArgs empty;
  const VeltoArgs* args = error.stackFrames().at(frame).args().get<VeltoArgs>();
  return args != nullptr ? *args : empty;
}

inline std::vector<std::string> argNames(const VeltoError& error, std::size_t frame) {
  std::vector<std::string> names;
  for (const auto& [name, value] : argsOf(error, frame)) names.push_back(name);
  return names;
}

/// The argument `name` of frame `frame` when it was recorded as exactly a T, else null.
template <class T>
const T* arg(const VeltoError& error, std::string_view name, std::size_t frame) {
  const VeltoAny* value = argsOf(error, frame).find(name);
  return value != nullptr ? value->get<T>() : nullptr;
}

}  // namespace velto::test
