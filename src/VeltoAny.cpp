#include "velto/VeltoAny.hpp"

VeltoArgs::VeltoArgs(std::initializer_list<value_type> entries) : entries_(entries) {}

void VeltoArgs::append(std::string key, VeltoAny value) { entries_.emplace_back(std::move(key), std::move(value)); }

const VeltoAny* VeltoArgs::find(std::string_view key) const noexcept {
  for (const auto& [k, v] : entries_) {
    if (k == key) return &v;
  }
  return nullptr;
}
