#include "velto/core/VeltoCodeSite.hpp"

#include <mutex>
#include <string>
#include <unordered_set>

namespace {

// Interned texts live until exit. std::unordered_set never moves its nodes, so the views
// handed out stay valid while the set grows.
std::string_view intern(std::string_view text) {
  static std::mutex mutex;
  static auto* table = new std::unordered_set<std::string>();  // never destroyed: sites outlive statics
  std::lock_guard lock(mutex);
  return *table->emplace(text).first;
}

}  // namespace

VeltoCodeSite VeltoCodeSite::interned(std::string_view fileName, std::string_view functionName,
                                      std::uint64_t lineNumber) {
  return VeltoCodeSite(intern(fileName), intern(functionName), lineNumber);
}

std::optional<std::string> VeltoCodeSite::sanitized(std::string_view filePath) {
  const auto slash = filePath.rfind('/');
  return std::string(slash == std::string_view::npos ? filePath : filePath.substr(slash + 1));
}
