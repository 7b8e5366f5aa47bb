#include "velto/core/VeltoAny.hpp"

VeltoArgs::VeltoArgs(std::initializer_list<value_type> entries) : entries_(entries) {}

void VeltoArgs::append(std::string key, VeltoAny value) { entries_.emplace_back(std::move(key), std::move(value)); }

const VeltoAny* VeltoArgs::find(std::string_view key) const noexcept {
  for (const auto& [k, v] : entries_) {
    if (k == key) return &v;
  }
  return nullptr;
}

#include <mutex>
#include <typeindex>
#include <unordered_map>

namespace velto::detail {
namespace {

struct ObjectMirrors {
  std::mutex mutex;
  std::unordered_map<std::type_index, const VeltoTypeMirror*> byType;
};

ObjectMirrors& objectMirrors() {
  static auto* mirrors = new ObjectMirrors();  // never destroyed: mirrors are used until exit
  return *mirrors;
}

}  // namespace

void registerObjectMirror(const std::type_info& type, const VeltoTypeMirror& mirror) noexcept {
  auto& mirrors = objectMirrors();
  std::lock_guard lock(mirrors.mutex);
  mirrors.byType.try_emplace(std::type_index(type), &mirror);
}

const VeltoTypeMirror* registeredObjectMirror(const std::type_info& type) noexcept {
  auto& mirrors = objectMirrors();
  std::lock_guard lock(mirrors.mutex);
  const auto it = mirrors.byType.find(std::type_index(type));
  return it == mirrors.byType.end() ? nullptr : it->second;
}

}  // namespace velto::detail
