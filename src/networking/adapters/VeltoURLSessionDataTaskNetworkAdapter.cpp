#include "velto/networking/adapters/VeltoURLSessionDataTaskNetworkAdapter.hpp"

#include <utility>

#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/Organisation.hpp"
#include "velto/detail/UuidText.hpp"
#include "velto/networking/VeltoEncodedPayloadProviding.hpp"
#include "velto/networking/VeltoHttpAuthorizationProviding.hpp"
#include "velto/networking/VeltoKnownMimeType.hpp"
#include "velto/networking/VeltoSupportedHttpVerb.hpp"

namespace velto::detail {

namespace {

constexpr char kAdapterFile[] = "Adapters/Concrete/VeltoURLSessionDataTaskNetworkAdapter";

// `error` passed up: one frame more, with `args`, at `site`.
VeltoError passedUp(const VeltoError& error, VeltoAny args, VeltoCodeSite site) {
  return error.appending(VeltoStackFrame(std::move(args), std::nullopt, site));
}

}  // namespace

/// What a data task's completion needs, shared by the adapter and its running tasks: tasks that
/// complete while (or after) the adapter is destroyed still report through it.
struct NetworkAdapterReporter {
  std::shared_ptr<VeltoLogging> logger;
  VeltoResourceAdapting::OnDownloadedFile onDownloadedFile;
  VeltoResourceAdapting::OnCompleted onCompleted;

  void dataTaskCompletion(const VeltoEndpointSignature& signature, std::optional<VeltoData> data,
                          std::optional<UrlResponse> response, std::shared_ptr<const VeltoPlatformError> error,
                          const std::shared_ptr<const VeltoVia>& via, VeltoCodeSite site) const {
    const std::shared_ptr<const VeltoVia> junction =
        fork(via, {}, site, VELTO_SITE(kAdapterFile, "dataTaskCompletion(signature:data:response:error:via:)"));
    const std::optional<std::int64_t> statusCode =
        response ? std::optional<std::int64_t>(response->statusCode) : std::nullopt;
    auto logFailure = [&](const VeltoResult<void>& result) {
      if (result.hasValue()) return;
      logger->logError(passedUp(result.error(),
                                {{"signature", signature}, {"data", data}, {"response", response}, {"error", error},
                                 {"statusCode", statusCode}},
                                VELTO_SITE(kAdapterFile, "dataTaskCompletion(signature:data:response:error:via:)")),
                       junction);
    };
    if (data && statusCode && onDownloadedFile) logFailure(onDownloadedFile(*data, *statusCode, signature, junction));
    if (onCompleted) logFailure(onCompleted(statusCode, signature, error, junction));
  }
};

}  // namespace velto::detail

using velto::detail::kAdapterFile;
using velto::detail::passedUp;
using velto::detail::UrlRequest;

std::shared_ptr<VeltoURLSessionDataTaskNetworkAdapter> VeltoURLSessionDataTaskNetworkAdapter::create(
    std::shared_ptr<VeltoLogging> logger, Options options) {
  return std::make_shared<VeltoURLSessionDataTaskNetworkAdapter>(std::move(logger), options);
}

VeltoURLSessionDataTaskNetworkAdapter::VeltoURLSessionDataTaskNetworkAdapter(std::shared_ptr<VeltoLogging> logger,
                                                                             Options options)
    : options_(options), reporter_(std::make_shared<velto::detail::NetworkAdapterReporter>()) {
  if (!logger) velto::detail::fatalStop("VeltoURLSessionDataTaskNetworkAdapter: logger is null");
  reporter_->logger = std::move(logger);
  session_ = std::make_unique<velto::detail::UrlSession>(velto::detail::UrlSessionConfiguration{
      .description = std::string(velto::detail::kOrganisationPrefix) + sessionLabelSuffix,
      .maximumRedirects = options_.maximumRedirects,
      .maximumConnectionsPerHost = options_.maximumConnectionsPerHost,
  });
}

VeltoURLSessionDataTaskNetworkAdapter::~VeltoURLSessionDataTaskNetworkAdapter() = default;

const std::string& VeltoURLSessionDataTaskNetworkAdapter::sessionDescription() const noexcept {
  return session_->description();
}

const std::shared_ptr<VeltoLogging>& VeltoURLSessionDataTaskNetworkAdapter::logger() const noexcept {
  return reporter_->logger;
}

void VeltoURLSessionDataTaskNetworkAdapter::setOnDownloadedFile(OnDownloadedFile callback) {
  reporter_->onDownloadedFile = std::move(callback);
}

const VeltoResourceAdapting::OnDownloadedFile& VeltoURLSessionDataTaskNetworkAdapter::onDownloadedFile() const {
  return reporter_->onDownloadedFile;
}

void VeltoURLSessionDataTaskNetworkAdapter::setOnCompleted(OnCompleted callback) {
  reporter_->onCompleted = std::move(callback);
}

const VeltoResourceAdapting::OnCompleted& VeltoURLSessionDataTaskNetworkAdapter::onCompleted() const {
  return reporter_->onCompleted;
}

VeltoResult<void> VeltoURLSessionDataTaskNetworkAdapter::begin(std::shared_ptr<VeltoRequestSupporting> endpoint,
                                                               Via via, VeltoCodeSite site) {
  const Via junction = fork(std::move(via), {}, site, VELTO_SITE(kAdapterFile, "begin(endpoint:via:)"));
  std::optional<VeltoEndpointSignature> signature;

  // Step 10: an error before the task started.
  auto failBeforeStart = [&](const VeltoError& error) -> VeltoResult<void> {
    const auto& onCompleted = reporter_->onCompleted;
    if (onCompleted && signature) {
      const VeltoResult<void> reported =
          onCompleted(std::nullopt, *signature, std::make_shared<const VeltoError>(error), junction);
      if (reported.isFailure()) {
        reporter_->logger->logError(passedUp(reported.error(), {{"endpoint", endpoint}, {"error", error}},
                                             VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")),
                                    junction);
      }
    } else if (!onCompleted) {
      reporter_->logger->logError(
          VeltoError("Couldn't call onCompleted to indicate an error before initiating request as no onCompleted "
                     "handler provided",
                     {{"endpoint", endpoint}}, std::make_shared<const VeltoError>(error),
                     VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")),
          junction);
    } else {
      // No signature to report under: the callback cannot name the request.
      reporter_->logger->logError(
          passedUp(error, {{"endpoint", endpoint}}, VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")), junction);
    }
    return VeltoResult<void>::fromError(error, {{"endpoint", endpoint}}, VELTO_SITE(kAdapterFile, "begin(endpoint:via:)"));
  };

  if (!endpoint) velto::detail::fatalStop("VeltoURLSessionDataTaskNetworkAdapter::begin: endpoint is null");
  VeltoResult<VeltoEndpointSignature> made = endpoint->makeSignature();
  if (made.isFailure()) return failBeforeStart(made.error());
  signature.emplace(std::move(made).value());

  UrlRequest request;
  request.url = std::string(signature->url().buffer());
  request.timeout = options_.timeout;
  request.method = std::string(VeltoRawValueTraits<VeltoSupportedHttpVerb>::rawValue(endpoint->httpVerb()));
  request.headers.emplace_back("X-Correlation-ID", velto::detail::uuidText(endpoint->correlationID()));

  if (const auto* authorizing = dynamic_cast<const VeltoHttpAuthorizationProviding*>(endpoint.get())) {
    const std::optional<VeltoHttpAuthorization> authorization = authorizing->httpAuthorization();
    if (!authorization) {
      // The wording of this message is kept as it always was.
      return failBeforeStart(
          VeltoError("Endpoint conforms to VeltoHttpAuthorizationProviding but supplied not authorization header value",
                     {{"endpoint", endpoint}, {"signature", *signature}}, nullptr,
                     VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")));
    }
    request.headers.emplace_back("Authorization", authorization->headerValue());
  }

  if (const auto* uploading = dynamic_cast<const VeltoEncodedPayloadProviding*>(endpoint.get())) {
    request.headers.emplace_back("Content-Type",
                                 std::string(VeltoRawValueTraits<VeltoKnownMimeType>::rawValue(uploading->mimeType())));
    VeltoResult<std::optional<VeltoData>> payload = uploading->makeEncodedPayload();
    if (payload.isFailure()) {
      return failBeforeStart(passedUp(payload.error(), {}, VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")));
    }
    request.body = std::move(payload).value();
  }

  const VeltoResult<void> started = session_->startTask(
      std::move(request), signature->stringRepresentation(),
      [reporter = reporter_, signature = *signature, junction](std::optional<VeltoData> data,
                                                               std::optional<velto::detail::UrlResponse> response,
                                                               std::shared_ptr<const VeltoPlatformError> error) {
        reporter->dataTaskCompletion(signature, std::move(data), std::move(response), std::move(error), junction,
                                     VELTO_SITE(kAdapterFile, "begin(endpoint:via:)"));
      });
  if (started.isFailure()) {
    return failBeforeStart(passedUp(started.error(), {}, VELTO_SITE(kAdapterFile, "begin(endpoint:via:)")));
  }
  return VeltoResultVoidSuccess;
}

VeltoResult<void> VeltoURLSessionDataTaskNetworkAdapter::cancel(const VeltoEndpointSignature& signature, Via via,
                                                                VeltoCodeSite site) {
  const Via junction = fork(std::move(via), {}, site, VELTO_SITE(kAdapterFile, "cancel(signature:via:)"));
  session_->cancelTasks(signature.stringRepresentation());
  return VeltoResultVoidSuccess;
}

void VeltoURLSessionDataTaskNetworkAdapter::dataTaskCompletion(const VeltoEndpointSignature& signature,
                                                               std::optional<VeltoData> data,
                                                               std::optional<velto::detail::UrlResponse> response,
                                                               std::shared_ptr<const VeltoPlatformError> error, Via via,
                                                               VeltoCodeSite site) {
  reporter_->dataTaskCompletion(signature, std::move(data), std::move(response), std::move(error), via, site);
}
