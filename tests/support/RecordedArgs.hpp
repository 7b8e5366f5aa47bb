// Reading the args dictionary recorded in a stack frame.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <velto/core/VeltoAny.hpp>
#include <velto/core/VeltoStackFrame.hpp>

namespace velto::test {

/// The value recorded under `key` in the args dictionary of `frame`, when it is a T.
template <class T>
const T* argOf(const VeltoStackFrame& frame, std::string_view key) {
  const VeltoArgs* args = frame.args().get<VeltoArgs>();
  if (args == nullptr) return nullptr;
  const VeltoAny* value = args->find(key);
  return value == nullptr ? nullptr : value->get<T>();
}

/// The keys of the args dictionary of `frame`, in order.
inline std::vector<std::string> argKeys(const VeltoStackFrame& frame) {
  std::vector<std::string> keys;
  if (const VeltoArgs* args = frame.args().get<VeltoArgs>()) {
    for (const auto& [key, value] : *args) keys.push_back(key);
  }
  return keys;
}

}  // namespace velto::test
