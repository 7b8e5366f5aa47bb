#include <velto/networking/VeltoRequestDispatcher.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <latch>
#include <map>
#include <random>
#include <set>
#include <thread>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/encoding/VeltoEmptyRequestParameters.hpp>
#include <velto/networking/VeltoHttpAuthorizationProviding.hpp>
#include <velto/networking/VeltoUploadingEndpointBase.hpp>
#include <velto/networking/adapters/VeltoURLSessionDataTaskNetworkAdapter.hpp>

#include "support/Bytes.hpp"
#include "support/FrameNames.hpp"
#include "support/LoopbackServer.hpp"
#include "support/RecordedArgs.hpp"
#include "support/RecordingEndpoint.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using velto::test::argKeys;
using velto::test::RecordingEndpoint;
using velto::test::RecordingLogger;
using Keys = std::vector<std::string>;

Keys lastFrameKeys(const VeltoError& error) { return argKeys(error.stackFrames().back()); }

// Received or completed under a signature the table does not hold.
void expectUnknown(const VeltoResult<void>& result) {
  ASSERT_TRUE(result.isFailure());
  EXPECT_EQ(result.error().message(), "Signature does not match any known endpoint");
  EXPECT_EQ(argKeys(result.error().stackFrames().front()), Keys{"endpointsBySignature"});
  EXPECT_EQ(result.error().stackFrames().front().codeSite().fileName(), "Networking/VeltoRequestDispatcher");
}

// An adapter that records what the dispatcher asks of it and fails `begin` on request.
class FakeAdapter final : public VeltoNetworkAdapting {
 public:
  void setOnDownloadedFile(OnDownloadedFile callback) override { onDownloadedFile_ = std::move(callback); }
  const OnDownloadedFile& onDownloadedFile() const override { return onDownloadedFile_; }
  void setOnCompleted(OnCompleted callback) override { onCompleted_ = std::move(callback); }
  const OnCompleted& onCompleted() const override { return onCompleted_; }

  VeltoResult<void> begin(std::shared_ptr<VeltoRequestSupporting> endpoint, Via, VeltoCodeSite) override {
    begun.push_back(endpoint->makeSignature().value().stringRepresentation());
    if (failNextBegin) {
      failNextBegin = false;
      return VeltoResult<void>::fromMessage("Adapter refused");
    }
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> cancel(const VeltoEndpointSignature& signature, Via, VeltoCodeSite) override {
    cancelled.push_back(signature.stringRepresentation());
    return VeltoResultVoidSuccess;
  }

  bool failNextBegin = false;
  std::vector<std::string> begun;
  std::vector<std::string> cancelled;

 private:
  OnDownloadedFile onDownloadedFile_;
  OnCompleted onCompleted_;
};

struct DispatcherTest : testing::Test {
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  Via impetus = VeltoImpetus::create("test", {}, VeltoCodeSite("Test/App", "tap()", 7));
};
using VeltoRequestDispatcherTest = DispatcherTest;

// A random walk over begin / received / completed / cancel on a few signatures, checked against
// a model of the table, the adapter's calls and each endpoint's calls. A cancel of an unknown
// signature succeeds and calls nothing.
TEST_F(VeltoRequestDispatcherTest, randomOperationsMatchAModelOfTheTable) {
  for (int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    auto adapter = std::make_shared<FakeAdapter>();
    auto dispatcher = VeltoRequestDispatcher::create(logger, adapter);
    std::map<std::string, std::shared_ptr<RecordingEndpoint>> inFlight;  // the model
    struct Expectation {
      std::shared_ptr<RecordingEndpoint> endpoint;
      std::vector<std::string> calls;  // the calls it must see, in order
    };
    std::vector<Expectation> expected;
    std::map<RecordingEndpoint*, std::size_t> indexOf;
    std::size_t adapterBegins = 0;
    std::size_t adapterCancels = 0;
    auto signatureOf = [](int n) {
      return VeltoEndpointSignature(boost::urls::url("http://127.0.0.1/item"), {n});
    };

    for (int step = 0; step < 300; ++step) {
      const int n = static_cast<int>(random() % 5);
      const VeltoEndpointSignature signature = signatureOf(n);
      const std::string key = signature.stringRepresentation();
      const bool known = inFlight.contains(key);
      switch (random() % 4) {
        case 0: {  // begin
          const bool unsignable = random() % 10 == 0;
          auto endpoint = std::make_shared<RecordingEndpoint>(unsignable ? "http://bad host/" : "http://127.0.0.1/item",
                                                             std::vector<VeltoSignatureParameter>{n});
          const bool adapterFails = random() % 8 == 0;
          const bool initiatedFails = random() % 8 == 0;
          if (initiatedFails) endpoint->initiatedResult = VeltoResult<void>::fromMessage("Initiation refused");
          adapter->failNextBegin = adapterFails;
          const VeltoResult<void> result = dispatcher->begin(endpoint, impetus);
          adapter->failNextBegin = false;
          indexOf[endpoint.get()] = expected.size();
          if (unsignable) {
            ASSERT_TRUE(result.isFailure());
            EXPECT_EQ(result.error().message(), "Unparseable test URL");
            EXPECT_EQ(lastFrameKeys(result.error()), Keys{"endpoint"});
            expected.push_back({endpoint, {}});
          } else if (known) {
            ASSERT_TRUE(result.isFailure());
            EXPECT_EQ(result.error().message(), "Redundant request");
            EXPECT_EQ(argKeys(result.error().stackFrames().front()), Keys{"extantEndpoint"});
            EXPECT_EQ(lastFrameKeys(result.error()), (Keys{"endpoint", "endpointSignature"}));
            // The endpoint fails prematurely on the global queue, with the error as made (not as
            // passed up), and a trail through the dispatcher's begin and the async hop.
            const auto end = endpoint->waitForEnd();
            ASSERT_EQ(end.name, "failedPrematurely");
            EXPECT_EQ(end.failure->uuid(), result.error().uuid());
            EXPECT_EQ(end.failure->stackFrames().size(), 1u);
            EXPECT_NE(end.thread, std::this_thread::get_id());
            const auto names = velto::test::functionNames(end.via->stackFrames());
            EXPECT_NE(std::find(names.begin(), names.end(), "async(errorLogger:via:fileName:functionName:lineNumber:execute:)"),
                      names.end());
            EXPECT_NE(std::find(names.begin(), names.end(), "begin(endpoint:via:)"), names.end());
            expected.push_back({endpoint, {"failedPrematurely"}});
          } else {
            ++adapterBegins;
            inFlight[key] = endpoint;
            std::vector<std::string> calls;
            if (adapterFails) {
              ASSERT_TRUE(result.isFailure());
              EXPECT_EQ(result.error().message(), "Adapter refused");
            } else {
              calls.push_back("initiated");
              EXPECT_EQ(result.isFailure(), initiatedFails);
              if (initiatedFails) {
                EXPECT_EQ(result.error().message(), "Initiation refused");
              }
            }
            if (result.isFailure()) {
              EXPECT_EQ(lastFrameKeys(result.error()), (Keys{"endpoint", "endpointSignature"}));
            }
            expected.push_back({endpoint, calls});
          }
          break;
        }
        case 1: {  // received
          const bool storeFails = random() % 6 == 0;
          if (known && storeFails) inFlight[key]->storeResult = VeltoResult<void>::fromMessage("Store refused");
          const VeltoResult<void> result = dispatcher->received(VeltoData(static_cast<std::size_t>(step)), 200, signature, impetus);
          if (!known) {
            expectUnknown(result);
            break;
          }
          expected[indexOf[inFlight[key].get()]].calls.push_back("store");
          EXPECT_EQ(result.isFailure(), storeFails);
          if (storeFails) {
            EXPECT_EQ(lastFrameKeys(result.error()), (Keys{"downloadedData", "statusCode", "signature", "correspondingEndpoint"}));
          }
          inFlight[key]->storeResult = VeltoResultVoidSuccess;
          break;
        }
        case 2: {  // completed
          const VeltoResult<void> result = dispatcher->completed(404, signature, nullptr, impetus);
          if (!known) {
            expectUnknown(result);
            break;
          }
          expected[indexOf[inFlight[key].get()]].calls.push_back("completed");
          inFlight.erase(key);
          break;
        }
        case 3: {  // cancel
          EXPECT_TRUE(dispatcher->cancel(signature, impetus).hasValue());
          adapterCancels += known ? 1 : 0;
          break;
        }
      }
      ASSERT_EQ(dispatcher->isEmpty(), inFlight.empty());
      ASSERT_EQ(adapter->begun.size(), adapterBegins);
      ASSERT_EQ(adapter->cancelled.size(), adapterCancels);
    }
    for (const auto& [key, endpoint] : inFlight) {
      ASSERT_TRUE(dispatcher->completed(std::nullopt, endpoint->makeSignature().value(), nullptr, impetus).hasValue());
      expected[indexOf[endpoint.get()]].calls.push_back("completed");
    }
    EXPECT_TRUE(dispatcher->isEmpty());
    for (const Expectation& expectation : expected) {
      if (!expectation.calls.empty()) (void)expectation.endpoint->waitForEnd();
      EXPECT_EQ(expectation.endpoint->callNames(), expectation.calls);
    }
  }
}

// --- The whole road on a loopback server -------------------------------------------------

struct RoadTest : DispatcherTest {
  velto::test::LoopbackServer server;
  velto::test::Gate gate;
  std::shared_ptr<VeltoSerialQueue> queue = VeltoSerialQueue::create("test.dispatcher", logger);
  std::shared_ptr<VeltoURLSessionDataTaskNetworkAdapter> adapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger);
  std::shared_ptr<VeltoRequestDispatcher> dispatcher = VeltoRequestDispatcher::createOnQueue(queue, logger, adapter);

  RoadTest() {
    velto::test::addStandardRoutes(server, gate);
    server.start();
  }
  VeltoResult<void> beginOnQueue(const std::shared_ptr<VeltoRequestSupporting>& endpoint,
                                 const std::shared_ptr<VeltoRequestDispatcher>& through = nullptr) {
    return queue->sync(impetus, [&](const Via& via) { return (through ? through : dispatcher)->begin(endpoint, via); });
  }
  bool isEmptyOnQueue() { return queue->sync([&] { return dispatcher->isEmpty(); }); }
};
using VeltoRequestDispatcherRoadTest = RoadTest;

bool containsInOrder(const std::vector<std::string_view>& names, const std::vector<std::string_view>& wanted) {
  auto at = names.begin();
  for (const auto& name : wanted) {
    at = std::find(at, names.end(), name);
    if (at == names.end()) return false;
    ++at;
  }
  return true;
}

TEST_F(VeltoRequestDispatcherRoadTest, oneRequestTravelsAndKeepsItsTrailBackToTheEndpoint) {
  auto endpoint = std::make_shared<RecordingEndpoint>(server.url("/echo/201"));
  ASSERT_TRUE(beginOnQueue(endpoint).hasValue());
  const auto end = endpoint->waitForEnd();
  ASSERT_EQ(end.name, "completed");
  EXPECT_EQ(end.statusCode, 201);
  EXPECT_FALSE(end.error);
  const auto calls = endpoint->calls();
  ASSERT_EQ(endpoint->callNames(), (std::vector<std::string>{"initiated", "store", "completed"}));
  EXPECT_EQ(velto::test::textOf(calls[1].data), ":");
  const auto names = velto::test::functionNames(end.via->stackFrames());
  EXPECT_TRUE(containsInOrder(names, {"completed(statusCode:error:via:)",
                                      "completed(statusCode:signature:error:via:)",
                                      "dataTaskCompletion(signature:data:response:error:via:)",
                                      "begin(endpoint:via:)",  // the adapter's
                                      "begin(endpoint:via:)",  // the dispatcher's
                                      "sync(via:execute:)"}))
      << testing::PrintToString(names);
  EXPECT_EQ(end.via->impetus().name(), "test");
  EXPECT_TRUE(isEmptyOnQueue());
  EXPECT_TRUE(logger->errors().empty());
}

// 1,000 requests begun from four threads, a third of them sharing a signature with another,
// some stalled and some cancelled: every endpoint ends exactly once and the table empties.
TEST_F(VeltoRequestDispatcherRoadTest, aThousandConcurrentRequestsEachEndExactlyOnce) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 250;
  std::vector<std::vector<std::shared_ptr<RecordingEndpoint>>> endpoints(kThreads);
  std::vector<std::vector<bool>> cancelled(kThreads);
  std::set<int> cancelledKeys;  // a cancel reaches whichever endpoint of that signature is in flight
  std::vector<std::vector<int>> keys(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    std::mt19937 random(99 + t);
    for (int i = 0; i < kPerThread; ++i) {
      const int key = static_cast<int>(random() % 700);  // shared signatures across threads
      keys[t].push_back(key);
      const bool stalls = random() % 40 == 0;
      const std::string path = stalls ? "/stall" : "/echo/" + std::to_string(200 + static_cast<int>(random() % 2) * 204);
      endpoints[t].push_back(
          std::make_shared<RecordingEndpoint>(server.url(path), std::vector<VeltoSignatureParameter>{key}));
      cancelled[t].push_back(stalls || random() % 10 == 0);
      if (cancelled[t].back()) cancelledKeys.insert(key);
    }
  }
  std::latch begun(kThreads * kPerThread);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        auto endpoint = endpoints[t][i];
        queue->async(impetus, [&, endpoint](const Via& via) {
          const VeltoResult<void> result = dispatcher->begin(endpoint, via);
          begun.count_down();
          return result;  // a redundant request's failure goes to the queue's logger
        });
        if (cancelled[t][i]) {
          queue->async(impetus, [&, endpoint](const Via& via) {
            return dispatcher->cancel(endpoint->makeSignature().value(), via);
          });
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  begun.wait();
  std::map<std::string, int> outcomes;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kPerThread; ++i) {
      const auto end = endpoints[t][i]->waitForEnd();
      const auto names = endpoints[t][i]->callNames();
      ASSERT_EQ(std::count_if(names.begin(), names.end(),
                              [](const auto& name) { return name == "completed" || name == "failedPrematurely"; }),
                1)
          << testing::PrintToString(names);
      if (end.name == "failedPrematurely") {
        EXPECT_EQ(end.failure->message(), "Redundant request");
        ++outcomes["redundant"];
      } else if (end.error) {
        EXPECT_EQ(end.error->code(), -999) << end.error->localizedDescription();
        EXPECT_TRUE(cancelledKeys.contains(keys[t][i]));
        ++outcomes["cancelled"];
      } else {
        EXPECT_TRUE(end.statusCode == 200 || end.statusCode == 404) << end.statusCode.value_or(-1);
        EXPECT_EQ(names, (std::vector<std::string>{"initiated", "store", "completed"}));
        ++outcomes["answered"];
      }
    }
  }
  EXPECT_TRUE(isEmptyOnQueue());
  EXPECT_GT(outcomes["redundant"], 0);
  EXPECT_GT(outcomes["cancelled"], 0);
  EXPECT_GT(outcomes["answered"], 0);
  EXPECT_EQ(logger->errors().size(), static_cast<std::size_t>(outcomes["redundant"]))
      << "the only failures: redundant begins, logged by the queue";
}

TEST_F(VeltoRequestDispatcherRoadTest, releasingTheDispatcherCancelsWhatIsInFlight) {
  std::vector<std::shared_ptr<RecordingEndpoint>> stalled;
  for (int i = 0; i < 3; ++i) {
    stalled.push_back(std::make_shared<RecordingEndpoint>(server.url("/stall"), std::vector<VeltoSignatureParameter>{i}));
    ASSERT_TRUE(beginOnQueue(stalled.back()).hasValue());
  }
  ASSERT_TRUE(gate.waitForArrivals(3));
  queue->sync([&] {
    dispatcher.reset();
    adapter.reset();  // the dispatcher held the last reference to the adapter
  });
  for (const auto& endpoint : stalled) {
    const auto end = endpoint->waitForEnd();
    ASSERT_EQ(end.name, "completed");
    EXPECT_EQ(end.error->code(), -999);
    EXPECT_EQ(end.via->impetus().name(), "Request dispatcher released with requests in flight");
  }
  queue->sync([] {});  // the adapter's late reports found no dispatcher and did nothing
  for (const auto& endpoint : stalled) EXPECT_EQ(endpoint->callNames(), (std::vector<std::string>{"initiated", "completed"}));
}

// --- Outcomes of real requests --------------------------------------------------------------

// An endpoint whose payload is its body as text, and which records its one outcome.
template <class Base>
class TextEndpoint : public Base {
 public:
  using Outcome = typename Base::Outcome;
  template <class... Args>
  TextEndpoint(std::string url, std::promise<Outcome>& outcome, Args&&... args)
      : Base(std::forward<Args>(args)..., nullptr, nullptr,
             [&outcome](auto&, const Outcome& o, const Via&) {
               outcome.set_value(o);
               return VeltoResultVoidSuccess;
             }),
        url_(std::move(url)) {}
  VeltoResult<boost::urls::url> makeUrl() const override {
    auto parsed = boost::urls::parse_uri_reference(url_);
    if (!parsed) return VeltoResult<boost::urls::url>::fromMessage("Unparseable test URL");
    return boost::urls::url(*parsed);
  }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {}; }
  VeltoResult<std::string> parse(const VeltoData& data) const override {
    return velto::test::textOf(data);
  }

 private:
  std::string url_;
};
using GetEndpoint = TextEndpoint<VeltoEndpointBase<VeltoEmptyRequestParameters, std::string>>;

std::shared_ptr<GetEndpoint> makeGet(std::string url, std::promise<GetEndpoint::Outcome>& outcome) {
  return std::make_shared<GetEndpoint>(std::move(url), outcome, VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters());
}

class TokenEndpoint final : public GetEndpoint, public VeltoHttpAuthorizationProviding {
 public:
  TokenEndpoint(std::string url, std::promise<Outcome>& outcome, std::string token)
      : GetEndpoint(std::move(url), outcome, VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters()),
        token_(std::move(token)) {}
  std::optional<VeltoHttpAuthorization> httpAuthorization() const override { return VeltoHttpAuthorization::bearer(token_); }

 private:
  std::string token_;
};

struct Comment : VeltoUploadEncodableObject<Comment> {
  std::string text;
  std::vector<std::string> tags;
  double score = 0;
  VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer& container) const {
    if (auto r = encodeValueForUpload(text, container, "text"); !r) return r;
    if (auto r = encodeValueForUpload(tags, container, "tags"); !r) return r;
    return encodeValueForUpload(score, container, "score");
  }
};
using PostEndpoint = TextEndpoint<VeltoUploadingEndpointBase<Comment, std::string>>;

TEST_F(VeltoRequestDispatcherRoadTest, everyAnswerAndTransportFailureBecomesItsOutcome) {
  struct Case {
    std::string url;
    std::string outcome;
    std::optional<std::int64_t> status = std::nullopt;
    std::string payload = "";
  };
  velto::test::RefusingPort refusing;
  const std::string https = "https://127.0.0.1:" + std::to_string(server.port());
  const std::vector<Case> cases{
      {server.url("/echo/200"), "success", 200, ":"},
      {server.url("/echo/204"), "success", 204, ""},
      {server.url("/redirect/302/3/201"), "success", 201, ":"},
      {server.url("/echo/400"), "userError", 400, ":"},
      {server.url("/echo/401"), "nonUserHttpError", 401, ":"},
      {server.url("/echo/403"), "unauthorized"},
      {server.url("/echo/404"), "nonUserHttpError", 404, ":"},
      {server.url("/echo/500"), "nonUserHttpError", 500, ":"},
      {server.url("/echo/299"), "applicationError"},
      {server.url("/redirect/307/16/200"), "connectivityError"},
      {server.url("/partial"), "connectivityError"},
      {refusing.url(), "connectivityError"},
      {https + "/echo/200", "nonConnectivityNetworkError"},
      {"ftp://127.0.0.1/file", "nonConnectivityNetworkError"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    std::promise<GetEndpoint::Outcome> outcome;
    ASSERT_TRUE(beginOnQueue(makeGet(c.url, outcome)).hasValue());
    const auto ended = outcome.get_future().get();
    EXPECT_EQ(ended.caseName(), c.outcome);
    if (const auto* success = ended.getIf<GetEndpoint::Outcome::Success>()) {
      EXPECT_EQ(rawValue(success->statusCode), c.status);
      EXPECT_EQ(success->payload, c.payload);
    }
    if (const auto* failure = ended.getIf<GetEndpoint::Outcome::NonUserHttpError>()) {
      EXPECT_EQ(rawValue(failure->statusCode), c.status);
      EXPECT_EQ(failure->data.size(), c.payload.size());
    }
    if (const auto* failure = ended.getIf<GetEndpoint::Outcome::NonConnectivityNetworkError>()) {
      EXPECT_EQ(failure->error.message(), "Network error");
      EXPECT_EQ(failure->error.frameworkError()->domain(), "NSURLErrorDomain");
    }
  }
  EXPECT_TRUE(isEmptyOnQueue());
}

TEST_F(VeltoRequestDispatcherRoadTest, cancelledStalledAndRefusedRequestsGetTheirOutcomes) {
  auto quickAdapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger, {.timeout = std::chrono::seconds(1)});
  auto quick = VeltoRequestDispatcher::createOnQueue(queue, logger, quickAdapter);
  std::promise<GetEndpoint::Outcome> timedOut, cancelled, injected;
  auto toCancel = makeGet(server.url("/stall?second"), cancelled);
  ASSERT_TRUE(beginOnQueue(makeGet(server.url("/stall"), timedOut), quick).hasValue());
  ASSERT_TRUE(beginOnQueue(toCancel).hasValue());
  ASSERT_TRUE(gate.waitForArrivals(2));
  ASSERT_TRUE(queue->sync(impetus, [&](const Via& via) {
                  return dispatcher->cancel(toCancel->makeSignature().value(), via);
                }).hasValue());
  const VeltoResult<void> refused =
      beginOnQueue(std::make_shared<TokenEndpoint>(server.url("/echo/200"), injected, "abc\r\nX-Admin: 1"));
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().message(), "Request header value holds a line break or NUL");

  EXPECT_EQ(timedOut.get_future().get().caseName(), "connectivityError");
  EXPECT_EQ(cancelled.get_future().get().caseName(), "cancelled");
  const auto rejected = injected.get_future().get();
  ASSERT_EQ(rejected.caseName(), "nonConnectivityNetworkError");
  EXPECT_EQ(rejected.getIf<GetEndpoint::Outcome::NonConnectivityNetworkError>()->error.uuid(), refused.error().uuid());
  EXPECT_TRUE(isEmptyOnQueue());
  EXPECT_TRUE(queue->sync([&] { return quick->isEmpty(); }));
  EXPECT_EQ(server.count("/echo/200"), 0u) << "the refused request was never sent";
}

TEST_F(VeltoRequestDispatcherRoadTest, uploadedBodiesArriveByteForByte) {
  Comment comment;
  comment.text = "red & \"blue\" shoes, 100% \u00e9t\u00e9 \n";
  comment.tags = {"a b", "", "=&?"};
  comment.score = 0.1;
  for (const VeltoKnownMimeType mimeType : {VeltoKnownMimeType::json, VeltoKnownMimeType::form}) {
    std::promise<PostEndpoint::Outcome> outcome;
    auto endpoint = std::make_shared<PostEndpoint>(server.url("/echo/201"), outcome, VeltoSupportedHttpVerb::post,
                                                   mimeType, comment);
    const VeltoData expected = endpoint->makeEncodedPayload().value().value();
    ASSERT_TRUE(beginOnQueue(endpoint).hasValue());
    const auto ended = outcome.get_future().get();
    ASSERT_EQ(ended.caseName(), "success");
    const std::string sent = velto::test::textOf(expected);
    EXPECT_EQ(ended.getIf<PostEndpoint::Outcome::Success>()->payload, ":" + sent);
    const auto seen = server.recorded().back();
    EXPECT_EQ(seen.body, sent);
    EXPECT_EQ(seen.header("Content-Type"), std::string(rawValue(mimeType)));
  }
}

}  // namespace
