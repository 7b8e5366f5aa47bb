// A small photo-sharing application's "share" path, end to end on the library's main road: an
// impetus starts the trail, each layer forks it, work hops onto a serial queue, the innermost
// call fails, the failure travels outward gaining one frame per layer, and because no caller
// can receive it on the queue it goes to the fallback logger, which prints it on the main
// thread as debug JSON with the whole trail.
#include <velto/velto.hpp>

#include <cstdio>
#include <string>

namespace {

using Via = std::shared_ptr<const VeltoVia>;

struct Photo {
  std::string name;
  std::size_t bytes;
  VeltoSensitiveString ownerToken;
};
BOOST_DESCRIBE_STRUCT(Photo, (), (name, bytes, ownerToken))

// The storage layer: refuses photos over its quota.
VeltoResult<std::string> storePhoto(const Via& via, const Photo& photo, VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/Storage", "storePhoto(via:photo:)"));
  if (photo.bytes > 1'000'000) {
    auto quota = VeltoPlatformError::make("DemoStorageDomain", 507, "Insufficient storage", {{"quotaBytes", 1'000'000}});
    return VeltoResult<std::string>::fromMessage("Photo exceeds the storage quota", {{"photo", photo}}, quota);
  }
  return "photos/" + photo.name;
}

// The upload service: confines its work to a serial queue.
class UploadService {
 public:
  explicit UploadService(std::shared_ptr<VeltoLogging> logger)
      : queue_(VeltoSerialQueue::create("com.example.demo.upload", std::move(logger))) {}

  // Asynchronous: returns at once; a failure on the queue goes to the queue's logger.
  void beginUpload(const Via& via, Photo photo, VeltoCodeSite caller = VeltoCodeSite::current()) {
    const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/UploadService", "beginUpload(photo:via:)"));
    queue_->async(junction, [photo = std::move(photo)](const Via& queueVia) -> VeltoResult<void> {
      auto stored = storePhoto(queueVia, photo);
      if (!stored) return VeltoResult<void>::fromError(stored.error(), {{"stage", std::string("store")}});
      return VeltoResultVoidSuccess;
    });
  }

  // Waits until everything submitted so far has run.
  void waitUntilIdle() { queue_->sync([] {}); }

 private:
  std::shared_ptr<VeltoSerialQueue> queue_;
};

// The screen's action handler.
void shareTapped(const Via& via, UploadService& uploads, VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/ShareScreen", "shareTapped(via:)"));
  uploads.beginUpload(junction, Photo{"sunset.heic", 4'200'000, VeltoSensitiveString("owner-secret-token")});
}

}  // namespace

int main() {
  UploadService uploads(VeltoFallbackLogger::create());
  shareTapped(VeltoImpetus::create("User tapped Share"), uploads);

  // The failure was logged from the queue's thread, so the fallback logger handed the printing
  // to the main queue; the application's main thread drains it.
  uploads.waitUntilIdle();
  if (!VeltoMainQueue::drainPending()) {
    std::fprintf(stderr, "demo: expected a logged failure\n");
    return 1;
  }
  return 0;
}
