#include "velto/networking/VeltoRequestDispatcher.hpp"

#include <mutex>
#include <utility>
#include <vector>

#include "velto/concurrency/VeltoDispatchQueueVia.hpp"
#include "velto/core/VeltoImpetus.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"

namespace {

constexpr char kDispatcherFile[] = "Networking/VeltoRequestDispatcher";

}  // namespace

std::shared_ptr<VeltoRequestDispatcher> VeltoRequestDispatcher::create(std::shared_ptr<VeltoLogging> logger,
                                                                       std::shared_ptr<VeltoNetworkAdapting> networkAdapter) {
  return std::make_shared<VeltoRequestDispatcher>(std::move(logger), std::move(networkAdapter));
}

namespace {

// The adapter's reports on their way to the dispatcher's queue. Appended on the adapter's thread
// and drained, in order, by one queue item at a time: a burst of completions costs one hop onto
// the queue, not one per report. Holds the dispatcher weakly (it holds the adapter).
class QueueDelivery final : public std::enable_shared_from_this<QueueDelivery> {
 public:
  using Via = std::shared_ptr<const VeltoVia>;
  struct Report {
    bool isBody;  // received (a body), else completed
    VeltoData data;
    std::optional<std::int64_t> statusCode;
    VeltoEndpointSignature signature;
    std::shared_ptr<const VeltoPlatformError> error;
    Via via;
  };

  QueueDelivery(std::shared_ptr<VeltoSerialQueue> queue, std::weak_ptr<VeltoRequestDispatcher> dispatcher)
      : queue_(std::move(queue)), dispatcher_(std::move(dispatcher)) {}

  void deliver(Report report) {
    bool postDrain = false;
    {
      std::lock_guard guard(mutex_);
      reports_.push_back(std::move(report));
      postDrain = !drainPosted_;
      drainPosted_ = true;
    }
    if (postDrain) queue_->async([self = shared_from_this()] { self->drain(); });
  }

 private:
  void drain() {
    std::vector<Report> batch;
    {
      std::lock_guard guard(mutex_);
      batch.swap(reports_);
      drainPosted_ = false;
    }
    const auto dispatcher = dispatcher_.lock();
    if (!dispatcher) return;
    for (Report& report : batch) {
      const Via junction = fork(report.via, {}, std::nullopt,
                                VELTO_SITE(kDispatcherFile, "createOnQueue(queue:logger:networkAdapter:)"));
      const VeltoResult<void> result =
          report.isBody ? dispatcher->received(std::move(report.data), *report.statusCode, report.signature, junction)
                        : dispatcher->completed(report.statusCode, report.signature, report.error, junction);
      if (const VeltoError* error = result.errorIfPresent()) queue_->logger()->logError(*error, junction);
    }
  }

  std::shared_ptr<VeltoSerialQueue> queue_;
  std::weak_ptr<VeltoRequestDispatcher> dispatcher_;
  std::mutex mutex_;
  std::vector<Report> reports_;
  bool drainPosted_ = false;
};

}  // namespace

std::shared_ptr<VeltoRequestDispatcher> VeltoRequestDispatcher::createOnQueue(
    std::shared_ptr<VeltoSerialQueue> queue, std::shared_ptr<VeltoLogging> logger,
    std::shared_ptr<VeltoNetworkAdapting> networkAdapter) {
  if (!queue) velto::detail::fatalStop("VeltoRequestDispatcher::createOnQueue: queue is null");
  auto dispatcher = create(std::move(logger), networkAdapter);
  auto delivery = std::make_shared<QueueDelivery>(std::move(queue), dispatcher);
  networkAdapter->setOnDownloadedFile([delivery](const VeltoData& bytes, std::int64_t statusCode,
                                                 const VeltoEndpointSignature& signature, const Via& via) {
    delivery->deliver({true, bytes, statusCode, signature, nullptr, via});
    return VeltoResultVoidSuccess;
  });
  networkAdapter->setOnCompleted([delivery](std::optional<std::int64_t> statusCode, const VeltoEndpointSignature& signature,
                                            const std::shared_ptr<const VeltoPlatformError>& error, const Via& via) {
    delivery->deliver({false, {}, statusCode, signature, error, via});
    return VeltoResultVoidSuccess;
  });
  return dispatcher;
}

VeltoRequestDispatcher::VeltoRequestDispatcher(std::shared_ptr<VeltoLogging> logger,
                                               std::shared_ptr<VeltoNetworkAdapting> networkAdapter)
    : logger_(std::move(logger)), networkAdapter_(std::move(networkAdapter)) {
  if (!logger_) velto::detail::fatalStop("VeltoRequestDispatcher: logger is null");
  if (!networkAdapter_) velto::detail::fatalStop("VeltoRequestDispatcher: networkAdapter is null");
}

VeltoRequestDispatcher::~VeltoRequestDispatcher() {
  if (endpointsBySignature_.empty()) return;
  const Via released = VeltoImpetus::create("Request dispatcher released with requests in flight", {},
                                            VELTO_SITE(kDispatcherFile, "deinit"));
  for (const auto& [signature, endpoint] : endpointsBySignature_) {
    (void)networkAdapter_->cancel(signature, released, VELTO_SITE(kDispatcherFile, "deinit"));
    auto cancelled = VeltoPlatformError::make(std::string(VeltoPlatformError::urlErrorDomain), -999, "cancelled");
    async(*VeltoDispatchQueue::global(), logger_, released,
          [endpoint = endpoint, cancelled](const Via& via) { return endpoint->completed(std::nullopt, cancelled, via); },
          VELTO_SITE(kDispatcherFile, "deinit"));
  }
}

VeltoResult<void> VeltoRequestDispatcher::begin(std::shared_ptr<VeltoRequestSupporting> endpoint, Via via,
                                                VeltoCodeSite site) {
  const Via junction = fork(std::move(via), {}, site, VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
  if (!endpoint) velto::detail::fatalStop("VeltoRequestDispatcher::begin: endpoint is null");
  VeltoResult<VeltoEndpointSignature> made = endpoint->makeSignature();
  if (made.isFailure()) {
    return VeltoResult<void>::fromError(made.error(), {{"endpoint", endpoint}},
                                        VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
  }
  const VeltoEndpointSignature& signature = made.value();

  if (auto extant = endpointsBySignature_.find(signature); extant != endpointsBySignature_.end()) {
    const VeltoError redundant("Redundant request", {{"extantEndpoint", extant->second}}, nullptr,
                               VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
    async(*VeltoDispatchQueue::global(), logger_, junction,
          [endpoint, redundant](const Via& via) { return endpoint->failedPrematurely(redundant, via); },
          VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
    return VeltoResult<void>::fromError(redundant, {{"endpoint", endpoint}, {"endpointSignature", signature}},
                                        VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
  }
  endpointsBySignature_.emplace(signature, endpoint);

  if (VeltoResult<void> begun = networkAdapter_->begin(endpoint, junction); begun.isFailure()) {
    return VeltoResult<void>::fromError(begun.error(), {{"endpoint", endpoint}, {"endpointSignature", signature}},
                                        VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
  }
  if (VeltoResult<void> initiated = endpoint->initiated(junction); initiated.isFailure()) {
    return VeltoResult<void>::fromError(initiated.error(), {{"endpoint", endpoint}, {"endpointSignature", signature}},
                                        VELTO_SITE(kDispatcherFile, "begin(endpoint:via:)"));
  }
  return VeltoResultVoidSuccess;
}

VeltoResult<void> VeltoRequestDispatcher::cancel(const VeltoEndpointSignature& signature, Via via, VeltoCodeSite site) {
  const Via junction = fork(std::move(via), {}, site, VELTO_SITE(kDispatcherFile, "cancel(signature:via:)"));
  if (!endpointsBySignature_.contains(signature)) return VeltoResultVoidSuccess;
  if (VeltoResult<void> cancelled = networkAdapter_->cancel(signature, junction); cancelled.isFailure()) {
    return VeltoResult<void>::fromError(cancelled.error(), {}, VELTO_SITE(kDispatcherFile, "cancel(signature:via:)"));
  }
  return VeltoResultVoidSuccess;
}

VeltoResult<void> VeltoRequestDispatcher::received(VeltoData downloadedData, std::int64_t statusCode,
                                                   const VeltoEndpointSignature& signature, Via via,
                                                   VeltoCodeSite site) {
  const Via junction = fork(std::move(via), {}, site,
                            VELTO_SITE(kDispatcherFile, "received(downloadedData:statusCode:signature:via:)"));
  auto found = endpointsBySignature_.find(signature);
  if (found == endpointsBySignature_.end()) {
    return VeltoResult<void>::fromMessage(
        "Signature does not match any known endpoint", {{"endpointsBySignature", endpointsBySignature_}}, nullptr,
        VELTO_SITE(kDispatcherFile, "received(downloadedData:statusCode:signature:via:)"));
  }
  const std::shared_ptr<VeltoRequestSupporting>& endpoint = found->second;
  // The bytes stay here too: a failure records them.
  if (VeltoResult<void> stored = endpoint->store(downloadedData, junction); stored.isFailure()) {
    return VeltoResult<void>::fromError(stored.error(),
                                        {{"downloadedData", std::move(downloadedData)},
                                         {"statusCode", statusCode},
                                         {"signature", signature},
                                         {"correspondingEndpoint", endpoint}},
                                        VELTO_SITE(kDispatcherFile, "received(downloadedData:statusCode:signature:via:)"));
  }
  return VeltoResultVoidSuccess;
}

VeltoResult<void> VeltoRequestDispatcher::completed(std::optional<std::int64_t> statusCode,
                                                    const VeltoEndpointSignature& signature,
                                                    std::shared_ptr<const VeltoPlatformError> error, Via via,
                                                    VeltoCodeSite site) {
  const Via junction =
      fork(std::move(via), {}, site, VELTO_SITE(kDispatcherFile, "completed(statusCode:signature:error:via:)"));
  auto found = endpointsBySignature_.find(signature);
  if (found == endpointsBySignature_.end()) {
    return VeltoResult<void>::fromMessage("Signature does not match any known endpoint",
                                          {{"endpointsBySignature", endpointsBySignature_}}, nullptr,
                                          VELTO_SITE(kDispatcherFile, "completed(statusCode:signature:error:via:)"));
  }
  std::shared_ptr<VeltoRequestSupporting> endpoint = std::move(found->second);
  endpointsBySignature_.erase(found);
  async(*VeltoDispatchQueue::global(), logger_, junction,
        [endpoint = std::move(endpoint), statusCode, error = std::move(error)](const Via& via) {
          return endpoint->completed(statusCode, error, via);
        },
        VELTO_SITE(kDispatcherFile, "completed(statusCode:signature:error:via:)"));
  return VeltoResultVoidSuccess;
}
