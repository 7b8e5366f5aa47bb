// A small photo-sharing application's "upload" path, end to end on the library's main road:
// an impetus starts the trail, each layer forks it, the innermost call fails, and the failure
// travels outward gaining one frame per layer until the top prints it with its whole trail.
#include <velto/velto.hpp>

#include <cstdio>
#include <string>

namespace {

using Via = std::shared_ptr<const VeltoVia>;

void printSite(const char* label, const VeltoCodeSite& site) {
  std::printf("      %s %s:%llu %.*s\n", label, VeltoCodeSite::sanitized(site.fileName()).value_or("").c_str(),
              static_cast<unsigned long long>(site.lineNumber()), static_cast<int>(site.functionName().size()),
              site.functionName().data());
}

void printError(const VeltoError& error) {
  std::printf("error \"%s\" (uuid %s)\n", error.message().c_str(), error.uuidString().c_str());
  std::printf("  frames, innermost first:\n");
  int index = 0;
  for (const auto& frame : error.stackFrames()) {
    std::printf("    #%d\n", index++);
    printSite("at", frame.codeSite());
    if (frame.invokerSite()) printSite("called from", *frame.invokerSite());
    if (const auto* args = frame.args().get<VeltoArgs>()) {
      for (const auto& [key, value] : *args) {
        std::printf("      arg %s: %.*s\n", key.c_str(), static_cast<int>(value.typeName().size()), value.typeName().data());
      }
    }
  }
  if (error.impetus()) std::printf("  impetus: \"%s\"\n", error.impetus()->name().c_str());
  if (const auto& cause = error.frameworkError()) {
    std::printf("  caused by: %s %lld \"%s\"\n", cause->domain().c_str(), static_cast<long long>(cause->code()),
                cause->localizedDescription().c_str());
  }
}

// The storage layer: refuses photos over its quota.
VeltoResult<std::string> storePhoto(const Via& via, const std::string& name, std::size_t bytes,
                                    VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/Storage", "storePhoto(via:name:bytes:)"));
  (void)junction;
  if (bytes > 1'000'000) {
    auto quota = VeltoPlatformError::make("DemoStorageDomain", 507, "Insufficient storage");
    return VeltoResult<std::string>::fromMessage("Photo exceeds the storage quota", {{"name", name}, {"bytes", bytes}},
                                                 quota);
  }
  return "photos/" + name;
}

// The upload service: stores, then would notify followers.
VeltoResult<std::string> uploadPhoto(const Via& via, const std::string& name, std::size_t bytes,
                                     VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {{"name", name}}, caller, VELTO_SITE("Demo/UploadService", "uploadPhoto(via:name:bytes:)"));
  auto stored = storePhoto(junction, name, bytes);
  if (!stored) return VeltoResult<std::string>::fromError(stored.error(), {{"stage", std::string("store")}});
  return stored;
}

// The screen's action handler: the top, which holds the trail and reports.
VeltoResult<void> shareTapped(const Via& via, VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/ShareScreen", "shareTapped(via:)"));
  auto uploaded = uploadPhoto(junction, "sunset.heic", 4'200'000);
  if (!uploaded) return VeltoResult<void>::failure(uploaded.error().appending(junction));
  return VeltoResultVoidSuccess;
}

}  // namespace

int main() {
  const auto impetus = VeltoImpetus::create("User tapped Share");
  const auto result = shareTapped(impetus);
  if (result) {
    std::printf("shared\n");
    return 1;  // the demo's photo is meant to be refused
  }
  printError(result.error());
  return 0;
}
