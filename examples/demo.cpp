// A small photo-sharing application's "share" path, end to end on the library's main road: an
// impetus starts the trail, each layer forks it, work hops onto a serial queue, the innermost
// call fails, the failure travels outward gaining one frame per layer, and because no caller
// can receive it on the queue it goes to the fallback logger, which prints it on the main
// thread as debug JSON with the whole trail.
//
// Then the road of one request, against an HTTP server this program starts on 127.0.0.1: an
// endpoint begun on the request dispatcher's serial queue, performed by the libcurl-backed
// adapter, its body parsed and its answer classified into an outcome; a duplicate refused, a
// 404, a cancelled request and a refused connection, each with its outcome.
#include <velto/velto.hpp>

#include <boost/json/parse.hpp>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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

// Passes reports on to another logger and counts them.
class CountingLogger final : public VeltoLogging {
 public:
  explicit CountingLogger(std::shared_ptr<VeltoLogging> next) : next_(std::move(next)) {}
  void logError(const VeltoError& error, const Via& dispatchRoot) override {
    ++errors_;
    next_->logError(error, dispatchRoot);
  }
  void logWarning(const VeltoError& warning, const Via& dispatchRoot) override { next_->logWarning(warning, dispatchRoot); }
  [[nodiscard]] int errorCount() const { return errors_.load(); }

 private:
  std::shared_ptr<VeltoLogging> next_;
  std::atomic<int> errors_ = 0;
};

// The screen's action handler.
void shareTapped(const Via& via, UploadService& uploads, VeltoCodeSite caller = VeltoCodeSite::current()) {
  const auto junction = fork(via, {}, caller, VELTO_SITE("Demo/ShareScreen", "shareTapped(via:)"));
  uploads.beginUpload(junction, Photo{"sunset.heic", 4'200'000, VeltoSensitiveString("owner-secret-token")});
}

// ---- The road of one request --------------------------------------------------------------

struct PhotoRecord {
  std::int64_t id;
  std::string name;
};

// GET /photos/<id>: the photo's record as JSON. The payload is parsed from the body.
class PhotoEndpoint final : public VeltoEndpointBase<VeltoEmptyRequestParameters, PhotoRecord> {
 public:
  PhotoEndpoint(std::string url, OnOutcome onOutcome)
      : VeltoEndpointBase(VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters(), nullptr, nullptr,
                          std::move(onOutcome)),
        url_(std::move(url)) {}
  VeltoResult<boost::urls::url> makeUrl() const override { return boost::urls::url(url_); }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {}; }
  VeltoResult<PhotoRecord> parse(const VeltoData& body) const override {
    boost::system::error_code failure;
    const auto json = boost::json::parse(std::string_view(reinterpret_cast<const char*>(body.data()), body.size()), failure);
    if (failure || !json.is_object() || !json.as_object().contains("id") || !json.as_object().contains("name")) {
      return VeltoResult<PhotoRecord>::fromMessage("Unexpected photo record", {{"body", body}});
    }
    return PhotoRecord{json.at("id").to_number<std::int64_t>(), std::string(json.at("name").as_string())};
  }

 private:
  std::string url_;
};

// One line per outcome, for people.
std::string describe(const PhotoEndpoint::Outcome& outcome) {
  using Outcome = PhotoEndpoint::Outcome;
  std::string text(outcome.caseName());
  if (const auto* success = outcome.getIf<Outcome::Success>()) {
    text += " " + std::to_string(rawValue(success->statusCode)) + ": photo " + std::to_string(success->payload.id) +
            " \"" + success->payload.name + "\"";
  } else if (const auto* failure = outcome.getIf<Outcome::NonUserHttpError>()) {
    text += " " + std::to_string(rawValue(failure->statusCode));
  } else if (const auto* failure = outcome.getIf<Outcome::ApplicationError>()) {
    text += ": " + failure->error.message();
  } else if (const auto* failure = outcome.getIf<Outcome::NonConnectivityNetworkError>()) {
    text += ": " + failure->error.message();
  }
  return text;
}

// The server the requests go to, on 127.0.0.1 and a free port. /slow holds its answer until
// `release`, so that a request to it can be cancelled while it runs.
class PhotoServer {
 public:
  PhotoServer() {
    server_.set_tcp_nodelay(true);
    server_.Get(R"(/photos/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content(R"({"id":)" + std::string(req.matches[1]) + R"(,"name":"sunset.heic"})", "application/json");
    });
    server_.Get("/slow", [this](const httplib::Request&, httplib::Response& res) {
      std::unique_lock guard(mutex_);
      ++waiting_;
      changed_.notify_all();
      changed_.wait_for(guard, std::chrono::seconds(30), [&] { return released_; });
      res.set_content("{}", "application/json");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~PhotoServer() {
    release();
    server_.stop();
    thread_.join();
  }
  [[nodiscard]] bool isValid() const { return port_ > 0; }
  [[nodiscard]] std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  void waitForSlowRequest() {
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, std::chrono::seconds(30), [&] { return waiting_ > 0; });
  }
  void release() {
    std::lock_guard guard(mutex_);
    released_ = true;
    changed_.notify_all();
  }

 private:
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  int waiting_ = 0;
  bool released_ = false;
};

// A port on 127.0.0.1 bound but not listening: connecting to it is refused.
class ClosedPort {
 public:
  ClosedPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
      port_ = ntohs(address.sin_port);
    }
  }
  ~ClosedPort() { ::close(socket_); }
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;
  [[nodiscard]] std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

 private:
  int socket_;
  int port_ = 0;
};

bool runRequestRoad() {
  std::printf("\n== The road of one request\n");
  PhotoServer server;
  ClosedPort closed;
  if (!server.isValid()) {
    std::fprintf(stderr, "demo: could not start the loopback server\n");
    return false;
  }
  auto logger = VeltoFallbackLogger::create();
  auto queue = VeltoSerialQueue::create("dev.velto.demo.network", logger);
  auto adapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger);
  auto dispatcher = VeltoRequestDispatcher::createOnQueue(queue, logger, adapter);

  // Outcomes arrive on the global queue, in any order; they are printed in request order.
  struct Request {
    const char* label;
    std::string url;
    std::shared_ptr<PhotoEndpoint> endpoint;
    std::string outcome;
  };
  std::vector<Request> requests{{"GET /photos/7", server.url("/photos/7"), nullptr, {}},
                                {"GET /photos/7 again", server.url("/photos/7"), nullptr, {}},
                                {"GET /missing", server.url("/missing"), nullptr, {}},
                                {"GET /slow, then cancel", server.url("/slow"), nullptr, {}},
                                {"GET from a closed port", closed.url("/photos/9"), nullptr, {}},
                                {"GET /photos/7 once it ended", server.url("/photos/7"), nullptr, {}}};
  std::latch firstFive(5);
  std::latch last(1);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    std::latch& ended = i < 5 ? firstFive : last;
    requests[i].endpoint = std::make_shared<PhotoEndpoint>(
        requests[i].url, [&requests, &ended, i](auto&, const PhotoEndpoint::Outcome& outcome, const Via&) {
          requests[i].outcome = describe(outcome);
          ended.count_down();
          return VeltoResultVoidSuccess;
        });
  }
  auto begin = [&](std::size_t index) {
    // The application calls the dispatcher on its queue, where the adapter's reports arrive too.
    return queue->sync(VeltoImpetus::create("User opened the gallery"),
                       [&](const Via& via) { return dispatcher->begin(requests[index].endpoint, via); });
  };

  bool expected = true;
  for (std::size_t i = 0; i < 5; ++i) {
    const VeltoResult<void> begun = begin(i);
    if (i == 1) {
      // The same signature as the first, which is still in flight.
      std::printf("begin of the duplicate: %s\n", begun ? "accepted" : begun.error().message().c_str());
      expected = expected && begun.isFailure();
    }
  }
  server.waitForSlowRequest();
  (void)queue->sync(VeltoImpetus::create("User left the gallery"), [&](const Via& via) {
    return dispatcher->cancel(requests[3].endpoint->makeSignature().value(), via);
  });
  firstFive.wait();
  expected = expected && begin(5).hasValue();  // the first has ended: the signature is free again
  last.wait();

  for (const Request& request : requests) std::printf("%-30s -> %s\n", request.label, request.outcome.c_str());
  const bool empty = queue->sync([&] { return dispatcher->isEmpty(); });
  std::printf("dispatcher empty: %s\n", empty ? "yes" : "no");
  return empty && expected;
}

}  // namespace

int main() {
  auto logger = std::make_shared<CountingLogger>(VeltoFallbackLogger::create());
  UploadService uploads(logger);
  shareTapped(VeltoImpetus::create("User tapped Share"), uploads);

  // The failure was logged by the queue's work. On a pool thread the fallback logger hands the
  // printing to the main queue, which the application's main thread drains here; if the main
  // thread ran that work itself while waiting for the queue, the report printed at once.
  uploads.waitUntilIdle();
  VeltoMainQueue::drainPending();
  if (logger->errorCount() == 0) {
    std::fprintf(stderr, "demo: expected a logged failure\n");
    return 1;
  }

  const bool roadOk = runRequestRoad();
  VeltoMainQueue::drainPending();  // anything the road logged prints here
  return roadOk ? 0 : 1;
}
