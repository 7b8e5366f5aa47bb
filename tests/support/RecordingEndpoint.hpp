// Endpoints for the networking tests that record every call the dispatcher and the adapter make.
//
//   auto endpoint = std::make_shared<velto::test::RecordingEndpoint>(server.url("/echo/200"));
//   dispatcher->begin(endpoint, via);
//   auto ended = endpoint->waitForEnd();        // the completed or failedPrematurely call
//   EXPECT_EQ(ended.statusCode, 200);
#pragma once

#include <boost/url/parse.hpp>
#include <boost/uuid/random_generator.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <velto/core/VeltoJunction.hpp>
#include <velto/networking/VeltoEncodedPayloadProviding.hpp>
#include <velto/networking/VeltoHttpAuthorizationProviding.hpp>
#include <velto/networking/VeltoRequestSupporting.hpp>

namespace velto::test {

/// Records initiated / store / completed / failedPrematurely calls, in order.
/// Thread safety: calls and reads from any thread.
class RecordingEndpoint : public VeltoRequestSupporting {
 public:
  struct Call {
    std::string name;  // "initiated", "store", "completed", "failedPrematurely"
    std::optional<std::int64_t> statusCode;
    VeltoData data;
    std::shared_ptr<const VeltoPlatformError> error;
    std::optional<VeltoError> failure;
    Via via;
    std::thread::id thread;
  };

  explicit RecordingEndpoint(std::string url, std::vector<VeltoSignatureParameter> parameters = {},
                             VeltoSupportedHttpVerb verb = VeltoSupportedHttpVerb::get)
      : url_(std::move(url)), parameters_(std::move(parameters)), verb_(verb) {}

  VeltoResult<boost::urls::url> makeUrl() const override {
    auto parsed = boost::urls::parse_uri_reference(url_);
    if (!parsed) return VeltoResult<boost::urls::url>::fromMessage("Unparseable test URL", {{"url", url_}});
    return boost::urls::url(*parsed);
  }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return parameters_; }
  VeltoSupportedHttpVerb httpVerb() const override { return verb_; }
  boost::uuids::uuid correlationID() const override { return correlationID_; }

  VeltoResult<void> initiated(Via via, VeltoCodeSite site) override {
    return record({"initiated", {}, {}, {}, {}, fork(via, {}, site, VeltoCodeSite("Test/Endpoint", "initiated(via:)", 1)), {}},
                  initiatedResult);
  }
  VeltoResult<void> store(VeltoData downloadedData, Via via, VeltoCodeSite site) override {
    return record({"store", {}, std::move(downloadedData), {}, {},
                   fork(via, {}, site, VeltoCodeSite("Test/Endpoint", "store(downloadedData:via:)", 1)), {}},
                  storeResult);
  }
  VeltoResult<void> completed(std::optional<std::int64_t> statusCode, std::shared_ptr<const VeltoPlatformError> error,
                              Via via, VeltoCodeSite site) override {
    return record({"completed", statusCode, {}, std::move(error), {},
                   fork(via, {}, site, VeltoCodeSite("Test/Endpoint", "completed(statusCode:error:via:)", 1)), {}},
                  endResult);
  }
  VeltoResult<void> failedPrematurely(VeltoError error, Via via, VeltoCodeSite site) override {
    return record({"failedPrematurely", {}, {}, {}, std::move(error),
                   fork(via, {}, site, VeltoCodeSite("Test/Endpoint", "failedPrematurely(error:via:)", 1)), {}},
                  endResult);
  }

  [[nodiscard]] std::vector<Call> calls() const {
    std::lock_guard guard(mutex_);
    return calls_;
  }
  /// The names of the calls so far, in order.
  [[nodiscard]] std::vector<std::string> callNames() const {
    std::lock_guard guard(mutex_);
    std::vector<std::string> names;
    for (const auto& call : calls_) names.push_back(call.name);
    return names;
  }
  /// The first completed or failedPrematurely call (waits up to `limit`; an empty name if none came).
  [[nodiscard]] Call waitForEnd(std::chrono::seconds limit = std::chrono::seconds(30)) const {
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, limit, [&] { return endIndex() >= 0; });
    const int index = endIndex();
    return index < 0 ? Call{} : calls_[static_cast<std::size_t>(index)];
  }

  // What the recorded operations return (success unless a test says otherwise).
  VeltoResult<void> initiatedResult = VeltoResultVoidSuccess;
  VeltoResult<void> storeResult = VeltoResultVoidSuccess;
  VeltoResult<void> endResult = VeltoResultVoidSuccess;

 private:
  VeltoResult<void> record(Call call, const VeltoResult<void>& result) {
    call.thread = std::this_thread::get_id();
    std::lock_guard guard(mutex_);
    calls_.push_back(std::move(call));
    changed_.notify_all();
    return result;
  }
  int endIndex() const {
    for (std::size_t i = 0; i < calls_.size(); ++i) {
      if (calls_[i].name == "completed" || calls_[i].name == "failedPrematurely") return static_cast<int>(i);
    }
    return -1;
  }

  std::string url_;
  std::vector<VeltoSignatureParameter> parameters_;
  VeltoSupportedHttpVerb verb_;
  boost::uuids::uuid correlationID_ = boost::uuids::random_generator()();
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Call> calls_;
};

/// A recording endpoint that authorises its requests with `authorization` (none: the
/// "supplied not authorization header value" failure).
class AuthorizingEndpoint final : public RecordingEndpoint, public VeltoHttpAuthorizationProviding {
 public:
  AuthorizingEndpoint(std::string url, std::optional<VeltoHttpAuthorization> authorization,
                      VeltoSupportedHttpVerb verb = VeltoSupportedHttpVerb::get)
      : RecordingEndpoint(std::move(url), {}, verb), authorization_(std::move(authorization)) {}
  std::optional<VeltoHttpAuthorization> httpAuthorization() const override { return authorization_; }

 private:
  std::optional<VeltoHttpAuthorization> authorization_;
};

/// A recording endpoint that sends `payload` as `mimeType`.
class UploadingEndpoint final : public RecordingEndpoint, public VeltoEncodedPayloadProviding {
 public:
  UploadingEndpoint(std::string url, VeltoKnownMimeType mimeType, VeltoResult<std::optional<VeltoData>> payload)
      : RecordingEndpoint(std::move(url), {}, VeltoSupportedHttpVerb::post),
        mimeType_(mimeType),
        payload_(std::move(payload)) {}
  VeltoKnownMimeType mimeType() const override { return mimeType_; }
  VeltoResult<std::optional<VeltoData>> makeEncodedPayload() const override { return payload_; }

 private:
  VeltoKnownMimeType mimeType_;
  VeltoResult<std::optional<VeltoData>> payload_;
};

}  // namespace velto::test
