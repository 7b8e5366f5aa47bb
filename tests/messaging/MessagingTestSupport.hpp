// Helpers for the messaging suites: waiting for a component's queue, reading recorded args.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <velto/concurrency/VeltoSerialQueue.hpp>
#include <velto/core/VeltoAny.hpp>
#include <velto/core/VeltoError.hpp>

namespace velto::test {

/// Returns once everything submitted to `queue` before the call has run. Call it from a thread
/// that is not running work of that queue.
inline void drain(VeltoSerialQueue& queue) {
  queue.sync([] {});
}

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
