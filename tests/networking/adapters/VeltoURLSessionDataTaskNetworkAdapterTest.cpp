#include <velto/networking/adapters/VeltoURLSessionDataTaskNetworkAdapter.hpp>

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/detail/UuidText.hpp>

#include "support/Bytes.hpp"
#include "support/FrameNames.hpp"
#include "support/LoopbackServer.hpp"
#include "support/RecordedArgs.hpp"
#include "support/RecordingEndpoint.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Adapter = VeltoURLSessionDataTaskNetworkAdapter;
using Via = std::shared_ptr<const VeltoVia>;
using velto::test::AuthorizingEndpoint;
using velto::test::RecordingEndpoint;
using velto::test::RecordingLogger;
using velto::test::UploadingEndpoint;
using velto::test::bytesOf;
using velto::test::textOf;

// What the adapter's two callbacks saw, in order.
struct Report {
  std::string callback;  // "onDownloadedFile" or "onCompleted"
  std::optional<std::int64_t> statusCode;
  std::string signature;
  std::optional<VeltoData> data;
  std::shared_ptr<const VeltoPlatformError> error;
  Via via;
  std::thread::id thread;
};

class ReportLog {
 public:
  void connect(Adapter& adapter, VeltoResult<void> downloadedResult = VeltoResultVoidSuccess,
               VeltoResult<void> completedResult = VeltoResultVoidSuccess) {
    adapter.setOnDownloadedFile([this, downloadedResult](const VeltoData& data, std::int64_t status,
                                                         const VeltoEndpointSignature& signature, const Via& via) {
      add({"onDownloadedFile", status, signature.stringRepresentation(), data, nullptr, via, std::this_thread::get_id()});
      return downloadedResult;
    });
    adapter.setOnCompleted([this, completedResult](std::optional<std::int64_t> status, const VeltoEndpointSignature& signature,
                                                   const std::shared_ptr<const VeltoPlatformError>& error, const Via& via) {
      add({"onCompleted", status, signature.stringRepresentation(), std::nullopt, error, via, std::this_thread::get_id()});
      return completedResult;
    });
  }
  /// The reports so far, once `count` onCompleted reports have arrived (30 s at most).
  std::vector<Report> waitForCompletions(std::size_t count) {
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, std::chrono::seconds(30), [&] { return completions_ >= count; });
    return reports_;
  }
  std::vector<Report> reports() {
    std::lock_guard guard(mutex_);
    return reports_;
  }

 private:
  void add(Report report) {
    std::lock_guard guard(mutex_);
    completions_ += report.callback == "onCompleted" ? 1 : 0;
    reports_.push_back(std::move(report));
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Report> reports_;
  std::size_t completions_ = 0;
};

struct AdapterTest : testing::Test {
  velto::test::LoopbackServer server;
  velto::test::Gate gate;
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::shared_ptr<Adapter> adapter = Adapter::create(logger);
  ReportLog log;
  Via impetus = VeltoImpetus::create("test", {}, VeltoCodeSite("Test/App", "tap()", 7));

  AdapterTest() {
    velto::test::addStandardRoutes(server, gate);
    server.start();
  }
  VeltoEndpointSignature signatureOf(const VeltoRequestSupporting& endpoint) { return endpoint.makeSignature().value(); }
};
using VeltoURLSessionDataTaskNetworkAdapterTest = AdapterTest;

TEST_F(VeltoURLSessionDataTaskNetworkAdapterTest, buildsEachRequestFromItsEndpoint) {
  EXPECT_EQ(adapter->sessionDescription(), "dev.velto.velto.url-session.simple-network-adapter");
  EXPECT_EQ(adapter->logger(), logger);
  EXPECT_FALSE(adapter->onCompleted() || adapter->onDownloadedFile()) << "no callbacks until set";
  log.connect(*adapter);
  struct Case {
    std::shared_ptr<RecordingEndpoint> endpoint;
    std::string method;
    std::optional<std::string> authorization;
    std::optional<std::string> contentType;
    std::string body;
    std::int64_t status;
  };
  const std::vector<Case> cases{
      {std::make_shared<RecordingEndpoint>(server.url("/echo/200"), std::vector<VeltoSignatureParameter>{"b", 1}), "GET",
       std::nullopt, std::nullopt, "", 200},
      {std::make_shared<AuthorizingEndpoint>(server.url("/echo/201"), VeltoHttpAuthorization::bearer("tok en"),
                                             VeltoSupportedHttpVerb::post),
       "POST", "Bearer tok en", std::nullopt, "", 201},
      {std::make_shared<UploadingEndpoint>(server.url("/echo/202"), VeltoKnownMimeType::json,
                                           std::optional<VeltoData>(bytesOf(R"({"k":"v"})"))),
       "POST", std::nullopt, "application/json", R"({"k":"v"})", 202},
      {std::make_shared<UploadingEndpoint>(server.url("/echo/200?x=1"), VeltoKnownMimeType::form,
                                           std::optional<VeltoData>(bytesOf("a=1&b=%20"))),
       "POST", std::nullopt, "application/x-www-form-urlencoded", "a=1&b=%20", 200},
      {std::make_shared<UploadingEndpoint>(server.url("/echo/204"), VeltoKnownMimeType::json, std::optional<VeltoData>()),
       "POST", std::nullopt, "application/json", "", 204},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    // One at a time, so that the server sees them in this order.
    ASSERT_TRUE(adapter->begin(cases[i].endpoint, impetus).hasValue());
    log.waitForCompletions(i + 1);
  }
  const auto seen = server.recorded();
  ASSERT_EQ(seen.size(), cases.size());
  // Body then completion, for every request, under the signature, on the worker thread.
  const auto reports = log.reports();
  ASSERT_EQ(reports.size(), 2 * cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(i);
    EXPECT_EQ(seen[i].method, c.method);
    EXPECT_EQ(seen[i].header("X-Correlation-ID"), velto::detail::uuidText(c.endpoint->correlationID()));
    EXPECT_EQ(seen[i].hasHeader("Authorization") ? std::optional(seen[i].header("Authorization")) : std::nullopt,
              c.authorization);
    EXPECT_EQ(seen[i].hasHeader("Content-Type") ? std::optional(seen[i].header("Content-Type")) : std::nullopt,
              c.contentType);
    EXPECT_EQ(seen[i].body, c.body);
    if (c.method == "POST") {
      EXPECT_EQ(seen[i].header("Content-Length"), std::to_string(c.body.size()));
    }

    const Report& body = reports[2 * i];
    const Report& end = reports[2 * i + 1];
    const std::string signature = signatureOf(*c.endpoint).stringRepresentation();
    EXPECT_EQ(body.callback, "onDownloadedFile");
    EXPECT_EQ(end.callback, "onCompleted");
    EXPECT_EQ(body.signature, signature);
    EXPECT_EQ(end.signature, signature);
    EXPECT_EQ(body.statusCode, c.status);
    EXPECT_EQ(end.statusCode, c.status);
    EXPECT_EQ(textOf(*body.data), c.status == 204 ? std::string() : std::string(":").append(c.body))
        << "204: an empty body is still a body";
    EXPECT_FALSE(end.error);
    EXPECT_NE(end.thread, std::this_thread::get_id());
    EXPECT_EQ(end.thread, reports[0].thread);
    EXPECT_TRUE(c.endpoint->calls().empty()) << "the adapter reports; it leaves the endpoint to the dispatcher";
  }
  EXPECT_TRUE(logger->errors().empty());
}

TEST_F(VeltoURLSessionDataTaskNetworkAdapterTest, failuresBeforeTheTaskGoToOnCompletedAndBackWithNothingSent) {
  log.connect(*adapter);
  auto unauthorized = std::make_shared<AuthorizingEndpoint>(server.url("/echo/200"), std::nullopt);
  struct Case {
    std::shared_ptr<RecordingEndpoint> endpoint;
    std::string message;
  };
  const std::vector<Case> cases{
      {unauthorized, "Endpoint conforms to VeltoHttpAuthorizationProviding but supplied not authorization header value"},
      {std::make_shared<AuthorizingEndpoint>(server.url("/echo/200"), VeltoHttpAuthorization::bearer("abc\r\nX-Admin: yes")),
       "Request header value holds a line break or NUL"},
      {std::make_shared<UploadingEndpoint>(server.url("/echo/200"), VeltoKnownMimeType::json,
                                           VeltoResult<std::optional<VeltoData>>::fromMessage("Non-finite double", {{"value", 1.0}})),
       "Non-finite double"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const auto& [endpoint, message] = cases[i];
    SCOPED_TRACE(message);
    const VeltoResult<void> begun = adapter->begin(endpoint, impetus);
    ASSERT_TRUE(begun.isFailure());
    EXPECT_EQ(begun.error().message(), message);
    const VeltoStackFrame& last = begun.error().stackFrames().back();
    EXPECT_EQ(last.codeSite().fileName(), "Adapters/Concrete/VeltoURLSessionDataTaskNetworkAdapter");
    EXPECT_EQ(last.codeSite().functionName(), "begin(endpoint:via:)");
    EXPECT_NE(last.args().get<VeltoArgs>()->find("endpoint"), nullptr);
    // Reported synchronously, on this thread, with no status code.
    const auto reports = log.reports();
    ASSERT_EQ(reports.size(), i + 1);
    EXPECT_EQ(reports[i].callback, "onCompleted");
    EXPECT_EQ(reports[i].thread, std::this_thread::get_id());
    EXPECT_FALSE(reports[i].statusCode);
    EXPECT_EQ(reports[i].signature, signatureOf(*endpoint).stringRepresentation());
    const auto* reported = dynamic_cast<const VeltoError*>(reports[i].error.get());
    ASSERT_NE(reported, nullptr);
    EXPECT_EQ(reported->uuid(), begun.error().uuid()) << "the same error, reported and returned";
  }
  const auto* first = dynamic_cast<const VeltoError*>(log.reports()[0].error.get());
  const VeltoArgs& args = *first->stackFrames().front().args().get<VeltoArgs>();
  EXPECT_NE(args.find("endpoint"), nullptr);
  EXPECT_NE(args.find("signature"), nullptr);

  // Without onCompleted the logger hears of it instead.
  auto bare = Adapter::create(logger);
  const VeltoResult<void> begun = bare->begin(unauthorized, impetus);
  ASSERT_TRUE(begun.isFailure());
  const auto logged = logger->errors();
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].error.message(),
            "Couldn't call onCompleted to indicate an error before initiating request as no onCompleted handler provided");
  EXPECT_EQ(velto::test::functionNames(logged[0].dispatchRoot->stackFrames()).front(), "begin(endpoint:via:)");

  // A signature that cannot be made cannot be reported by signature: it is logged.
  const VeltoResult<void> unsigned_ = adapter->begin(std::make_shared<RecordingEndpoint>("http://bad host/"), impetus);
  ASSERT_TRUE(unsigned_.isFailure());
  EXPECT_EQ(unsigned_.error().message(), "Unparseable test URL");
  EXPECT_EQ(logger->errors().size(), 2u);
  EXPECT_EQ(log.reports().size(), cases.size());
  EXPECT_EQ(server.count(), 0u) << "nothing may reach the server";
}

// Every combination of what a data task can complete with, against the completion rules.
TEST_F(VeltoURLSessionDataTaskNetworkAdapterTest, dataTaskCompletionFollowsItsRulesForEveryCombination) {
  const VeltoEndpointSignature signature(boost::urls::url("http://127.0.0.1/x"), {"p"});
  const auto failing = VeltoResult<void>::fromMessage("callback failed");
  for (int combination = 0; combination < 64; ++combination) {
    SCOPED_TRACE(combination);
    const bool hasData = combination & 1, hasResponse = combination & 2, hasError = combination & 4;
    const bool downloadedSet = combination & 8, completedSet = combination & 16, callbacksFail = combination & 32;
    auto local = std::make_shared<RecordingLogger>();
    auto subject = Adapter::create(local);
    ReportLog reports;
    reports.connect(*subject, callbacksFail ? failing : VeltoResultVoidSuccess, callbacksFail ? failing : VeltoResultVoidSuccess);
    if (!downloadedSet) subject->setOnDownloadedFile({});
    if (!completedSet) subject->setOnCompleted({});
    const auto error = hasError ? VeltoPlatformError::make("NSURLErrorDomain", -1005, "lost") : nullptr;
    subject->dataTaskCompletion(signature, hasData ? std::optional<VeltoData>(VeltoData{}) : std::nullopt,
                                hasResponse ? std::optional(velto::detail::UrlResponse{418, "u"}) : std::nullopt, error,
                                impetus);
    const bool expectDownload = hasData && hasResponse && downloadedSet;
    const auto seen = reports.reports();
    ASSERT_EQ(seen.size(), (expectDownload ? 1u : 0u) + (completedSet ? 1u : 0u));
    if (expectDownload) {
      EXPECT_EQ(seen[0].callback, "onDownloadedFile");
      EXPECT_EQ(seen[0].statusCode, 418);
      EXPECT_TRUE(seen[0].data && seen[0].data->empty());
    }
    if (completedSet) {
      EXPECT_EQ(seen.back().callback, "onCompleted");
      EXPECT_EQ(seen.back().statusCode, hasResponse ? std::optional<std::int64_t>(418) : std::nullopt);
      EXPECT_EQ(seen.back().error, error);
      EXPECT_EQ(velto::test::functionNames(seen.back().via->stackFrames()).front(),
                "dataTaskCompletion(signature:data:response:error:via:)");
    }
    const auto logged = local->errors();
    ASSERT_EQ(logged.size(), callbacksFail ? seen.size() : 0u);
    for (const auto& report : logged) {
      EXPECT_EQ(report.error.message(), "callback failed");
      EXPECT_EQ(velto::test::argKeys(report.error.stackFrames().back()),
                (std::vector<std::string>{"signature", "data", "response", "error", "statusCode"}));
    }
  }
}

TEST_F(VeltoURLSessionDataTaskNetworkAdapterTest, destroyedAdaptersCompleteTheirRequestsAsCancelled) {
  log.connect(*adapter);
  for (const char* parameter : {"1", "2", "3"}) {
    ASSERT_TRUE(adapter->begin(std::make_shared<RecordingEndpoint>(server.url("/stall"),
                                                                   std::vector<VeltoSignatureParameter>{parameter}),
                               impetus)
                    .hasValue());
  }
  ASSERT_TRUE(gate.waitForArrivals(3));
  adapter.reset();
  const auto reports = log.reports();  // complete by now: destruction joined the worker
  ASSERT_EQ(reports.size(), 3u);
  for (const auto& report : reports) EXPECT_EQ(report.error->code(), -999);

  // Released from its own callback while another request stalls. The callback waits until the
  // test has let go, so that it holds the last reference.
  struct Slot {
    std::mutex mutex;
    std::shared_ptr<Adapter> adapter;
  };
  auto slot = std::make_shared<Slot>();
  std::promise<std::int64_t> stalledEnd;
  std::promise<void> testLetGo;
  std::promise<void> released;
  {
    auto self = Adapter::create(logger);
    self->setOnCompleted([&, slot, letGo = testLetGo.get_future().share()](
                             std::optional<std::int64_t>, const VeltoEndpointSignature& signature,
                             const std::shared_ptr<const VeltoPlatformError>& error, const Via&) {
      if (signature.stringRepresentation().find("stall") != std::string::npos) {
        stalledEnd.set_value(error ? error->code() : 0);
        return VeltoResultVoidSuccess;
      }
      letGo.wait();
      std::shared_ptr<Adapter> last;
      {
        std::lock_guard guard(slot->mutex);
        last = std::move(slot->adapter);
      }
      last.reset();  // destroys the adapter on its own worker, inside its own callback
      released.set_value();
      return VeltoResultVoidSuccess;
    });
    slot->adapter = self;
    ASSERT_TRUE(self->begin(std::make_shared<RecordingEndpoint>(server.url("/stall")), impetus).hasValue());
    ASSERT_TRUE(gate.waitForArrivals(4));
    ASSERT_TRUE(self->begin(std::make_shared<RecordingEndpoint>(server.url("/echo/200")), impetus).hasValue());
  }
  testLetGo.set_value();
  released.get_future().get();
  EXPECT_EQ(stalledEnd.get_future().get(), -999);
}

}  // namespace
