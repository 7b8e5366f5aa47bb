// VeltoSetToggleResult and toggle(set, member): insert a member that is absent, remove one that
// is present, and say which happened.
//
//   std::unordered_set<std::string> selected;
//   if (toggle(selected, "row 3") == VeltoSetToggleResult::inserted) highlight("row 3");
#pragma once

#include <boost/describe/enum.hpp>

/// What toggle() did. Thread safety: a plain value.
enum class VeltoSetToggleResult { inserted, removed };
BOOST_DESCRIBE_ENUM(VeltoSetToggleResult, inserted, removed)

/// Removes `member` from `set` when present (removed), else inserts it (inserted). Works with
/// any set type offering find, erase and insert (std::set, std::unordered_set). Thread safety:
/// as the set.
template <class Set>
VeltoSetToggleResult toggle(Set& set, const typename Set::key_type& member) {
  if (const auto found = set.find(member); found != set.end()) {
    set.erase(found);
    return VeltoSetToggleResult::removed;
  }
  set.insert(member);
  return VeltoSetToggleResult::inserted;
}
