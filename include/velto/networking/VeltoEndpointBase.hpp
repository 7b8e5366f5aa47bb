// VeltoEndpointBase<Parameters, Payload>: the class concrete endpoints derive from. It holds the
// verb, the request parameters, a correlation identifier and three callbacks, keeps the
// downloaded body, and on completion classifies the result into a VeltoEndpointOutcome that it
// hands to its outcome callback. A subclass supplies the URL, the relevant parameters and the
// decoding of the body.
//
//   class ItemsEndpoint final : public VeltoEndpointBase<ItemsQuery, std::vector<Item>> {
//    public:
//     using VeltoEndpointBase::VeltoEndpointBase;
//     VeltoResult<boost::urls::url> makeUrl() const override { return boost::urls::url(base_ + "/items"); }
//     std::vector<VeltoSignatureParameter> relevantParameters() const override { return {requestParameters().page}; }
//     VeltoResult<std::vector<Item>> parse(const VeltoData& downloadedData) const override { return decodeItems(downloadedData); }
//   };
//   auto endpoint = std::make_shared<ItemsEndpoint>(VeltoSupportedHttpVerb::get, ItemsQuery{2}, nullptr, nullptr,
//       [](auto& endpoint, const auto& outcome, const auto& via) { return show(outcome); });
//   dispatcher->begin(endpoint, via);
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <boost/uuid/uuid.hpp>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"
#include "velto/encoding/VeltoUploadEncodable.hpp"
#include "velto/networking/VeltoEndpointOutcome.hpp"
#include "velto/networking/VeltoHttpStatusCode.hpp"
#include "velto/networking/VeltoRequestSupporting.hpp"
#include "velto/networking/VeltoSupportedHttpVerb.hpp"
#include "velto/networking/detail/EndpointSupport.hpp"

/// One HTTP request with its callbacks. Create it with std::make_shared (the dispatcher holds it
/// by std::shared_ptr while it is in flight); not copyable.
///
/// Callbacks, each called with this endpoint, its argument and the operation's forked trail;
/// each may fail, and the operation then passes the failure up:
///   onInitiated (optional)  the request has been handed to the transport;
///   onDownloaded (optional) a body arrived (after it was stored);
///   onOutcome (required)    the request ended, with its outcome.
/// They run on whatever thread drives the operation (the dispatcher runs `completed` on a pool
/// thread). A callback that captures the endpoint strongly keeps it alive: capture it weakly.
///
/// Classification in `completed` (kept exactly, asymmetries included):
///   no error, no stored body              applicationError "No network error but no downloaded data"
///   no error, status absent or unknown    applicationError "Could not parse status code"
///   200-208, 226                          `parse`, then success; a parse failure becomes
///                                         applicationError with that error passed up
///   400                                   userError (status code and body)
///   403                                   unauthorized
///   every other known code (1xx, 3xx,     nonUserHttpError (status code and body); deliberately
///     401, 402, 404 and up)               401 is not unauthorized and only 400 is a user error
///   error whose innermost underlying      connectivityError (the innermost error's domain is
///     error has a connectivity code       deliberately not examined)
///   URL-loading error -999 (outermost)    cancelled
///   any other error                       nonConnectivityNetworkError: the error itself when it
///                                         is a VeltoError, else "Network error" wrapping it
/// These are outcomes: `completed` fails only when `onOutcome` fails.
///
/// Trails: every operation forks the given trail with its own site, file
/// "Networking/VeltoEndpointBase", and the operation's name.
/// Cost: `completed` parses the body once and makes one outcome; the rest is a fork and a call.
/// Thread safety: no lock. `store` writes the body that `completed` reads: the transport calls
/// them in that order, one after the other, for one request; never call them concurrently.
template <class Parameters, class Payload>
  requires VeltoUploadEncodable<Parameters>
class VeltoEndpointBase : public VeltoRequestSupporting,
                          public std::enable_shared_from_this<VeltoEndpointBase<Parameters, Payload>> {
 public:
  using Outcome = VeltoEndpointOutcome<Payload>;
  using OnDownloaded = std::function<VeltoResult<void>(VeltoEndpointBase&, const VeltoData&, const Via&)>;
  using OnInitiated = std::function<VeltoResult<void>(VeltoEndpointBase&, const Via&)>;
  using OnOutcome = std::function<VeltoResult<void>(VeltoEndpointBase&, const Outcome&, const Via&)>;

  /// A fresh random `correlationID`, no body yet.
  /// REQUIRES: `onOutcome` is set (fatal stop otherwise).
  VeltoEndpointBase(VeltoSupportedHttpVerb httpVerb, Parameters requestParameters, OnDownloaded onDownloaded,
                    OnInitiated onInitiated, OnOutcome onOutcome)
      : correlationID_(velto::detail::randomCorrelationID()),
        httpVerb_(httpVerb),
        onDownloaded_(std::move(onDownloaded)),
        onInitiated_(std::move(onInitiated)),
        onOutcome_(std::move(onOutcome)),
        requestParameters_(std::make_shared<const Parameters>(std::move(requestParameters))) {
    if (!onOutcome_) velto::detail::fatalStop("VeltoEndpointBase: onOutcome is required");
  }
  VeltoEndpointBase(const VeltoEndpointBase&) = delete;
  VeltoEndpointBase& operator=(const VeltoEndpointBase&) = delete;

  [[nodiscard]] boost::uuids::uuid correlationID() const override { return correlationID_; }
  [[nodiscard]] VeltoSupportedHttpVerb httpVerb() const override { return httpVerb_; }
  [[nodiscard]] const Parameters& requestParameters() const noexcept { return *requestParameters_; }
  [[nodiscard]] const OnDownloaded& onDownloaded() const noexcept { return onDownloaded_; }
  [[nodiscard]] const OnInitiated& onInitiated() const noexcept { return onInitiated_; }
  [[nodiscard]] const OnOutcome& onOutcome() const noexcept { return onOutcome_; }
  /// The body most recently stored; none before the first `store`.
  [[nodiscard]] const std::optional<VeltoData>& downloadedData() const noexcept { return downloadedData_; }

  /// Calls `onInitiated` when set; its failure is passed up with a frame for this operation.
  [[nodiscard]] VeltoResult<void> initiated(Via via, VeltoCodeSite site = VeltoCodeSite::current()) override {
    const Via junction = fork(std::move(via), {}, site, VELTO_SITE(velto::detail::kEndpointBaseFile, "initiated(via:)"));
    if (!onInitiated_) return VeltoResultVoidSuccess;
    if (auto called = onInitiated_(*this, junction); !called) {
      return VeltoResult<void>::fromError(called.error(), {},
                                          VELTO_SITE(velto::detail::kEndpointBaseFile, "initiated(via:)"));
    }
    return VeltoResultVoidSuccess;
  }

  /// Replaces the stored body with `downloadedData` (it does not append), then calls
  /// `onDownloaded` when set; its failure is passed up with the argument "downloadedData".
  [[nodiscard]] VeltoResult<void> store(VeltoData downloadedData, Via via,
                                        VeltoCodeSite site = VeltoCodeSite::current()) override {
    const Via junction =
        fork(std::move(via), {}, site, VELTO_SITE(velto::detail::kEndpointBaseFile, "store(downloadedData:via:)"));
    downloadedData_ = std::move(downloadedData);
    if (!onDownloaded_) return VeltoResultVoidSuccess;
    if (auto called = onDownloaded_(*this, *downloadedData_, junction); !called) {
      return VeltoResult<void>::fromError(called.error(), {{"downloadedData", *downloadedData_}},
                                          VELTO_SITE(velto::detail::kEndpointBaseFile, "store(downloadedData:via:)"));
    }
    return VeltoResultVoidSuccess;
  }

  /// Classifies (see the class comment) and calls `onOutcome`; its failure is passed up with the
  /// arguments "self", "statusCode" and "newOutcome".
  [[nodiscard]] VeltoResult<void> completed(std::optional<std::int64_t> statusCode,
                                            std::shared_ptr<const VeltoPlatformError> error, Via via,
                                            VeltoCodeSite site = VeltoCodeSite::current()) override {
    const Via junction = fork(std::move(via), {}, site,
                              VELTO_SITE(velto::detail::kEndpointBaseFile, "completed(statusCode:error:via:)"));
    Outcome outcome = error ? classifyError(std::move(error)) : classifyResponse(statusCode);
    if (auto called = onOutcome_(*this, outcome, junction); !called) {
      return VeltoResult<void>::fromError(
          called.error(), {{"self", weakSelf()}, {"statusCode", statusCode}, {"newOutcome", std::move(outcome)}},
          VELTO_SITE(velto::detail::kEndpointBaseFile, "completed(statusCode:error:via:)"));
    }
    return VeltoResultVoidSuccess;
  }

  /// Makes the outcome applicationError with `error` (raised before the request could start)
  /// and calls `onOutcome`; its failure is passed up with the arguments "self" and "error".
  [[nodiscard]] VeltoResult<void> failedPrematurely(VeltoError error, Via via,
                                                    VeltoCodeSite site = VeltoCodeSite::current()) override {
    const Via junction =
        fork(std::move(via), {}, site, VELTO_SITE(velto::detail::kEndpointBaseFile, "failedPrematurely(error:via:)"));
    const Outcome outcome = Outcome::applicationError(error);
    if (auto called = onOutcome_(*this, outcome, junction); !called) {
      return VeltoResult<void>::fromError(called.error(), {{"self", weakSelf()}, {"error", std::move(error)}},
                                          VELTO_SITE(velto::detail::kEndpointBaseFile, "failedPrematurely(error:via:)"));
    }
    return VeltoResultVoidSuccess;
  }

  /// Decodes a 2xx body. Subclasses override it and do not call this version, which always fails
  /// with "Sub-classes should implement (and NOT call super)" (argument "downloadedData").
  [[nodiscard]] virtual VeltoResult<Payload> parse(const VeltoData& downloadedData) const {
    return VeltoResult<Payload>::fromMessage("Sub-classes should implement (and NOT call super)",
                                             {{"downloadedData", downloadedData}}, nullptr,
                                             VELTO_SITE(velto::detail::kEndpointBaseFile, "parse(downloadedData:)"));
  }

  /// Debug output: "correlationID", "downloadedData", "httpVerb", "onDownloaded", "onInitiated",
  /// "onOutcome", "requestParameters".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const override {
    if (auto r = dynamicEncoder.encode(correlationID_, container, "correlationID"); !r) return r;
    if (auto r = dynamicEncoder.encode(downloadedData_, container, "downloadedData"); !r) return r;
    if (auto r = dynamicEncoder.encode(httpVerb_, container, "httpVerb"); !r) return r;
    if (auto r = dynamicEncoder.encode(onDownloaded_, container, "onDownloaded"); !r) return r;
    if (auto r = dynamicEncoder.encode(onInitiated_, container, "onInitiated"); !r) return r;
    if (auto r = dynamicEncoder.encode(onOutcome_, container, "onOutcome"); !r) return r;
    return dynamicEncoder.encode(*requestParameters_, container, "requestParameters");
  }

 protected:
  /// The parameters as shared, for subclasses that hand them on without a copy.
  [[nodiscard]] const std::shared_ptr<const Parameters>& sharedRequestParameters() const noexcept {
    return requestParameters_;
  }

 private:
  // Recorded as a weak reference: an error kept in an outcome must not keep its endpoint alive.
  [[nodiscard]] std::weak_ptr<const VeltoEndpointBase> weakSelf() const { return this->weak_from_this(); }

  // A response without a transport error.
  Outcome classifyResponse(std::optional<std::int64_t> statusCode) const {
    constexpr auto site = VELTO_SITE(velto::detail::kEndpointBaseFile, "completed(statusCode:error:via:)");
    if (!downloadedData_) {
      return Outcome::applicationError(VeltoError("No network error but no downloaded data",
                                                  {{"self", weakSelf()}, {"statusCode", statusCode}}, nullptr, site));
    }
    const std::optional<VeltoHttpStatusCode> code =
        statusCode ? fromRawValue<VeltoHttpStatusCode>(*statusCode) : std::nullopt;
    if (!code) return Outcome::applicationError(VeltoError("Could not parse status code", {{"self", weakSelf()}}, nullptr, site));
    switch (*code) {
      case VeltoHttpStatusCode::ok:
      case VeltoHttpStatusCode::created:
      case VeltoHttpStatusCode::accepted:
      case VeltoHttpStatusCode::nonAuthoritativeInformation:
      case VeltoHttpStatusCode::noContent:
      case VeltoHttpStatusCode::resetContent:
      case VeltoHttpStatusCode::partialContent:
      case VeltoHttpStatusCode::multiStatus:
      case VeltoHttpStatusCode::alreadyReported:
      case VeltoHttpStatusCode::iMUsed: {
        auto parsed = parse(*downloadedData_);
        if (parsed.isFailure()) return Outcome::applicationError(parsed.error().appending(VeltoStackFrame({}, std::nullopt, site)));
        return Outcome::success(*code, std::move(parsed).value());
      }
      case VeltoHttpStatusCode::badRequest: return Outcome::userError(*code, *downloadedData_);
      case VeltoHttpStatusCode::forbidden: return Outcome::unauthorized();
      default: return Outcome::nonUserHttpError(*code, *downloadedData_);
    }
  }

  // A transport error.
  static Outcome classifyError(std::shared_ptr<const VeltoPlatformError> error) {
    using velto::detail::TransportErrorClass;
    switch (velto::detail::classifyTransportError(error)) {
      case TransportErrorClass::connectivity: return Outcome::connectivityError();
      case TransportErrorClass::cancelled: return Outcome::cancelled();
      case TransportErrorClass::other: break;
    }
    if (const auto* veltoError = dynamic_cast<const VeltoError*>(error.get())) {
      return Outcome::nonConnectivityNetworkError(*veltoError);
    }
    return Outcome::nonConnectivityNetworkError(
        VeltoError("Network error", {}, std::move(error),
                   VELTO_SITE(velto::detail::kEndpointBaseFile, "completed(statusCode:error:via:)")));
  }

  boost::uuids::uuid correlationID_;
  std::optional<VeltoData> downloadedData_;
  VeltoSupportedHttpVerb httpVerb_;
  OnDownloaded onDownloaded_;
  OnInitiated onInitiated_;
  OnOutcome onOutcome_;
  std::shared_ptr<const Parameters> requestParameters_;
};
