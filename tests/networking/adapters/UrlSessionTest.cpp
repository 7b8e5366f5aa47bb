#include <velto/networking/adapters/detail/UrlSession.hpp>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/Bytes.hpp"
#include "support/LoopbackServer.hpp"

namespace {

using velto::detail::UrlRequest;
using velto::detail::UrlResponse;
using velto::detail::UrlSession;
using velto::test::bytesOf;
using velto::test::Gate;
using velto::test::LoopbackServer;

struct Completed {
  std::optional<VeltoData> data;
  std::optional<UrlResponse> response;
  std::shared_ptr<const VeltoPlatformError> error;
  std::thread::id thread;

  [[nodiscard]] std::int64_t code() const { return error ? error->code() : 0; }
  [[nodiscard]] std::string body() const {
    return data ? velto::test::textOf(*data) : std::string("<none>");
  }
};

// Starts `request` and waits for its one completion (30 s at most, then a failure).
Completed fetch(UrlSession& session, UrlRequest request, std::string description = "task") {
  auto promise = std::make_shared<std::promise<Completed>>();
  auto future = promise->get_future();
  auto started = session.startTask(std::move(request), std::move(description),
                                   [promise](auto data, auto response, auto error) {
                                     promise->set_value(Completed{std::move(data), std::move(response),
                                                                  std::move(error), std::this_thread::get_id()});
                                   });
  EXPECT_TRUE(started.hasValue());
  if (future.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    ADD_FAILURE() << "no completion within 30 s";
    return {};
  }
  return future.get();
}

struct ServerFixture : testing::Test {
  LoopbackServer server;
  Gate gate;  // after the server: opens before the server stops

  ServerFixture() {
    velto::test::addStandardRoutes(server, gate);
    server.start();
  }
};
using UrlSessionTest = ServerFixture;

// One randomized request and what the echo server must answer to it.
struct Trial {
  UrlRequest request;
  bool cancel = false;
  bool stalls = false;
  std::int64_t expectedCode = 0;
  long expectedStatus = 0;
  std::string expectedBody;
};

Trial makeTrial(std::mt19937& random, const LoopbackServer& server) {
  static const int kStatuses[] = {200, 201, 204, 400, 401, 403, 404, 418, 500, 503};
  static const int kRedirects[] = {301, 302, 303, 307, 308};
  static const char* kMethods[] = {"GET", "POST", "PUT", "DELETE"};
  Trial trial;
  trial.cancel = random() % 8 == 0;
  if (trial.cancel && random() % 2 == 0) {
    // A request that cannot finish before the cancel: it must come back cancelled.
    trial.stalls = true;
    trial.request.url = server.url("/stall");
    trial.expectedCode = -999;
    return trial;
  }
  const int status = kStatuses[random() % std::size(kStatuses)];
  std::string method = kMethods[random() % std::size(kMethods)];
  // Printable ASCII but '%' (the server percent-decodes header values), bracketed: spaces at
  // either end are not part of a header value.
  std::string probe = "[";
  for (std::size_t n = random() % 40; n > 0; --n) {
    const char c = static_cast<char>(' ' + random() % 95);
    if (c != '%') probe.push_back(c);
  }
  probe.push_back(']');
  std::string body;
  if (method != "GET") {
    const std::size_t size = random() % 4 == 0 ? 0 : random() % (random() % 16 == 0 ? (1 << 20) : 4096);
    for (std::size_t i = 0; i < size; ++i) body.push_back(static_cast<char>(random()));
  }
  trial.request.method = method;
  trial.request.headers = {{"X-Probe", probe}};
  if (method != "GET") trial.request.body = bytesOf(body);
  std::string path = "/echo/" + std::to_string(status);
  bool bodyKept = true;
  if ((method == "GET" || method == "POST") && random() % 4 == 0) {
    const int kind = kRedirects[random() % std::size(kRedirects)];
    const int hops = static_cast<int>(random() % 19);  // 17 and 18 redirects are too many
    path = "/redirect/" + std::to_string(kind) + "/" + std::to_string(hops - 1) + "/" + std::to_string(status);
    if (hops == 0) path = "/echo/" + std::to_string(status);
    if (hops > 16) {
      trial.expectedCode = -1007;
    } else if (hops > 0 && kind != 307 && kind != 308) {
      bodyKept = false;  // POST turns into GET on 301, 302 and 303
    }
  }
  trial.request.url = server.url(path);
  if (trial.expectedCode == 0) {
    trial.expectedStatus = status;
    trial.expectedBody = status == 204 ? "" : probe + ":" + (bodyKept ? body : "");
  }
  return trial;
}

TEST_F(UrlSessionTest, randomTrafficFromSeveralThreadsMatchesTheEchoModel) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 60;
  UrlSession session({.description = "test.random"});
  std::vector<std::vector<Trial>> trials(kThreads);
  std::vector<std::vector<Completed>> results(kThreads, std::vector<Completed>(kPerThread));
  std::vector<std::vector<int>> completions(kThreads, std::vector<int>(kPerThread));
  std::mutex mutex;
  std::latch done(kThreads * kPerThread);
  for (int t = 0; t < kThreads; ++t) {
    std::mt19937 random(1234 + t);
    for (int i = 0; i < kPerThread; ++i) trials[t].push_back(makeTrial(random, server));
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const std::string description = std::to_string(t) + "/" + std::to_string(i);
        auto started = session.startTask(trials[t][i].request, description, [&, t, i](auto data, auto response, auto error) {
          std::lock_guard guard(mutex);
          ++completions[t][i];
          results[t][i] = Completed{std::move(data), std::move(response), std::move(error), std::this_thread::get_id()};
          done.count_down();
        });
        ASSERT_TRUE(started.hasValue());
        if (trials[t][i].cancel) session.cancelTasks(description);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  done.wait();
  gate.open();

  std::optional<std::thread::id> worker;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kPerThread; ++i) {
      const Trial& trial = trials[t][i];
      const Completed& result = results[t][i];
      SCOPED_TRACE(trial.request.method + " " + trial.request.url + " #" + std::to_string(t) + "/" + std::to_string(i));
      EXPECT_EQ(completions[t][i], 1);
      if (!worker) worker = result.thread;
      EXPECT_EQ(result.thread, *worker) << "every completion runs on the one worker thread";
      if (trial.cancel && !trial.stalls && result.code() == -999) continue;  // lost the race: fine
      ASSERT_EQ(result.code(), trial.expectedCode) << (result.error ? result.error->localizedDescription() : "");
      if (trial.expectedCode != 0) {
        EXPECT_FALSE(result.data);
        EXPECT_FALSE(result.response);
        EXPECT_EQ(result.error->domain(), "NSURLErrorDomain");
        continue;
      }
      ASSERT_TRUE(result.response);
      EXPECT_EQ(result.response->statusCode, trial.expectedStatus);
      EXPECT_EQ(result.body(), trial.expectedBody);
    }
  }
  for (auto& thread : threads) EXPECT_NE(thread.get_id(), *worker);
}

TEST_F(UrlSessionTest, transportFailuresBecomeUrlLoadingErrorsWithCurlDetails) {
  UrlSession session({.description = "test.errors"});
  velto::test::RefusingPort refusing;
  struct Case {
    std::string url;
    std::int64_t code;
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
  };
  const std::vector<Case> cases{
      {refusing.url("/"), -1004},
      {server.url("/stall"), -1001, std::chrono::seconds(1)},
      {server.url("/partial"), -1005},
      {server.url("/redirect/302/16/200"), -1007},
      {"https://127.0.0.1:" + std::to_string(server.port()) + "/echo/200", -1200},
      {"ftp://127.0.0.1/file", -1002},
      {"mailto:someone@127.0.0.1", -1002},
      {"127.0.0.1:" + std::to_string(server.port()) + "/echo/200", -1000},
      {"http://[::1/", -1000},
      {"", -1000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    const Completed result = fetch(session, {.url = c.url, .timeout = c.timeout});
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code(), c.code) << result.error->localizedDescription();
    EXPECT_EQ(result.error->domain(), "NSURLErrorDomain");
    EXPECT_FALSE(result.data);
    EXPECT_FALSE(result.response);
    const VeltoAny* failingUrl = result.error->userInfo().find("NSErrorFailingURLStringKey");
    ASSERT_NE(failingUrl, nullptr);
    EXPECT_EQ(*failingUrl->get<std::string>(), c.url);
    ASSERT_NE(result.error->userInfo().find("curlCode"), nullptr);
    const VeltoAny* message = result.error->userInfo().find("curlMessage");
    ASSERT_NE(message, nullptr);
    EXPECT_FALSE(message->get<std::string>()->empty());
  }
  // Sixteen redirects are still followed.
  EXPECT_EQ(fetch(session, {.url = server.url("/redirect/302/15/200")}).response.value_or(UrlResponse{}).statusCode, 200);
}

TEST(UrlSessionErrors, curlResultsMapToTheCodesOutcomesClassify) {
  const std::vector<std::tuple<CURLcode, long, std::int64_t>> table{
      {CURLE_OPERATION_TIMEDOUT, 0, -1001},     {CURLE_COULDNT_RESOLVE_HOST, 0, -1003},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, -1004}, {CURLE_COULDNT_CONNECT, ENETUNREACH, -1009},
      {CURLE_COULDNT_CONNECT, ENETDOWN, -1009}, {CURLE_GOT_NOTHING, 0, -1005},
      {CURLE_PARTIAL_FILE, 0, -1005},           {CURLE_SEND_ERROR, 0, -1005},
      {CURLE_RECV_ERROR, 0, -1005},             {CURLE_TOO_MANY_REDIRECTS, 0, -1007},
      {CURLE_URL_MALFORMAT, 0, -1000},          {CURLE_UNSUPPORTED_PROTOCOL, 0, -1002},
      {CURLE_WEIRD_SERVER_REPLY, 0, -1011},     {CURLE_SSL_CONNECT_ERROR, 0, -1200},
      {CURLE_PEER_FAILED_VERIFICATION, 0, -1202}, {CURLE_OUT_OF_MEMORY, 0, -1},
      {CURLE_ABORTED_BY_CALLBACK, 0, -1},
  };
  for (const auto& [curlCode, osErrno, expected] : table) {
    auto error = velto::detail::urlErrorFromCurl(curlCode, osErrno, "detail", "http://127.0.0.1/");
    EXPECT_EQ(error->code(), expected) << curl_easy_strerror(curlCode);
    EXPECT_EQ(error->domain(), "NSURLErrorDomain");
    EXPECT_EQ(*error->userInfo().find("curlCode")->get<int>(), static_cast<int>(curlCode));
    EXPECT_EQ(*error->userInfo().find("curlMessage")->get<std::string>(), "detail");
    EXPECT_FALSE(error->underlyingError());
  }
  EXPECT_EQ(velto::detail::urlCancelledError("http://127.0.0.1/")->code(), -999);
}

TEST_F(UrlSessionTest, refusesBrokenHeadersWithNothingSent) {
  UrlSession session({.description = "test.headers"});
  const std::vector<std::pair<std::string, std::string>> broken{
      {"Authorization", "Bearer abc\r\nX-Injected: 1"}, {"Authorization", "Bearer abc\n"},
      {"X-Correlation-ID", "\rA"},                     {"X-Value", std::string("a\0b", 3)},
      {"Bad Name", "v"},                               {"Bad:Name", "v"},
      {"", "v"},                                       {"X-Line\n", "v"},
  };
  std::atomic<int> calls = 0;
  for (const auto& header : broken) {
    const auto started = session.startTask({.url = server.url("/echo/200"), .headers = {{"Accept", "*/*"}, header}},
                                           "broken", [&](auto, auto, auto) { ++calls; });
    ASSERT_TRUE(started.isFailure()) << header.first;
    const VeltoError& error = started.error();
    EXPECT_TRUE(error.message() == "Request header value holds a line break or NUL" ||
                error.message() == "Request header name is not a valid HTTP token")
        << error.message();
    EXPECT_EQ(*error.stackFrames().front().args().get<VeltoArgs>()->find("headerName")->get<std::string>(), header.first);
  }
  // The server is reachable: one good request arrives, and it is the only one.
  EXPECT_EQ(fetch(session, {.url = server.url("/echo/200"), .headers = {{"X-Probe", "ok"}}}).body(), "ok:");
  EXPECT_EQ(server.count(), 1u);
  EXPECT_EQ(calls.load(), 0);
}

TEST_F(UrlSessionTest, sendsWhatTheRequestSaysAndKeepsNoCookies) {
  UrlSession session({.description = "test.sent"});
  VeltoData big(2 << 20);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::byte>((i * 7 + i / 256) & 0xff);

  const Completed bare = fetch(session, {.url = server.url("/echo/200"), .method = "POST"});
  const Completed typed = fetch(session, {.url = server.url("/echo/201"), .method = "POST",
                                          .headers = {{"Content-Type", "application/json"}},
                                          .body = bytesOf(R"({"a":[1,"\u00e9"]})")});
  const Completed large = fetch(session, {.url = server.url("/echo/200"), .method = "POST", .body = big});
  const Completed cookie = fetch(session, {.url = server.url("/set-cookie")});
  const Completed again = fetch(session, {.url = server.url("/echo/200")});
  EXPECT_EQ(bare.response->statusCode, 200);
  EXPECT_EQ(typed.body(), R"(:{"a":[1,"\u00e9"]})");
  ASSERT_TRUE(large.data);
  ASSERT_EQ(large.data->size(), big.size() + 1);
  EXPECT_TRUE(std::equal(big.begin(), big.end(), large.data->begin() + 1)) << "large body differs";
  EXPECT_EQ(cookie.response->statusCode, 200);
  EXPECT_EQ(cookie.response->url, server.url("/echo/200"));
  EXPECT_EQ(again.response->statusCode, 200);

  const auto seen = server.recorded();
  ASSERT_EQ(seen.size(), 6u);
  EXPECT_EQ(seen[0].method, "POST");
  EXPECT_FALSE(seen[0].hasHeader("Content-Type")) << seen[0].header("Content-Type");
  EXPECT_EQ(seen[0].header("Content-Length"), "0");
  EXPECT_EQ(seen[1].header("Content-Type"), "application/json");
  EXPECT_FALSE(seen[2].hasHeader("Expect")) << "large bodies are sent at once";
  EXPECT_EQ(seen[2].body.size(), big.size());
  for (const auto& request : seen) {
    EXPECT_FALSE(request.hasHeader("Cookie")) << request.path << " carried " << request.header("Cookie");
    EXPECT_FALSE(request.hasHeader("Authorization")) << request.path;
    EXPECT_TRUE(request.hasHeader("Accept-Encoding")) << request.path;
  }
}

TEST_F(UrlSessionTest, cancelEndsATransferMidBodyAndIgnoresUnknownLabels) {
  UrlSession session({.description = "test.cancel"});
  auto promise = std::make_shared<std::promise<Completed>>();
  auto future = promise->get_future();
  ASSERT_TRUE(session
                  .startTask({.url = server.url("/trickle")}, "sig?a",
                             [promise](auto data, auto response, auto error) {
                               promise->set_value(Completed{std::move(data), std::move(response), std::move(error), {}});
                             })
                  .hasValue());
  ASSERT_TRUE(gate.waitForArrivals(1)) << "the body never reached its midpoint";
  session.cancelTasks("sig?");
  session.cancelTasks("");
  session.cancelTasks("sig?a ");
  EXPECT_EQ(future.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout)
      << "a cancel of another label ended the task";
  session.cancelTasks("sig?a");
  const Completed result = future.get();  // before the gate opens: the cancel ended it
  EXPECT_EQ(result.code(), -999);
  EXPECT_EQ(result.error->localizedDescription(), "cancelled");
  EXPECT_FALSE(result.data);
  session.cancelTasks("sig?a");  // finished: nothing happens
}

TEST_F(UrlSessionTest, admitsSixTransfersPerHostInOrderAndCancelsThoseWaiting) {
  constexpr int kTasks = 20;
  UrlSession session({.description = "test.limit"});
  std::vector<std::int64_t> codes(kTasks, 1);
  std::mutex mutex;
  std::latch done(kTasks);
  for (int i = 0; i < kTasks; ++i) {
    ASSERT_TRUE(session
                    .startTask({.url = server.url("/stall")}, std::to_string(i),
                               [&, i](auto, auto, auto error) {
                                 std::lock_guard guard(mutex);
                                 codes[i] = error ? error->code() : 0;
                                 done.count_down();
                               })
                    .hasValue());
  }
  ASSERT_TRUE(gate.waitForArrivals(6));
  // The first six hold the host's connections; the rest wait in line and never reach the server.
  for (int i = 6; i < kTasks; ++i) session.cancelTasks(std::to_string(i));
  gate.open();
  done.wait();
  std::vector<std::int64_t> expected(kTasks, -999);
  std::fill(expected.begin(), expected.begin() + 6, 0);
  EXPECT_EQ(codes, expected);
  EXPECT_EQ(server.count("/stall"), 6u);
}

TEST_F(UrlSessionTest, destroyingTheSessionCompletesRunningTasksAsCancelled) {
  constexpr int kTasks = 8;
  std::vector<int> codes;
  std::mutex mutex;
  {
    UrlSession session({.description = "test.destroy"});
    for (int i = 0; i < kTasks; ++i) {
      // Half still queued behind the connection limit, half at the server.
      ASSERT_TRUE(session
                      .startTask({.url = server.url("/stall")}, "stall", [&](auto, auto, auto error) {
                        std::lock_guard guard(mutex);
                        codes.push_back(error ? error->code() : 0);
                      })
                      .hasValue());
    }
    ASSERT_TRUE(gate.waitForArrivals(6));
  }
  EXPECT_EQ(codes, std::vector<int>(kTasks, -999));
}

TEST_F(UrlSessionTest, completionsMayStartTheNextTask) {
  auto session = std::make_shared<UrlSession>(velto::detail::UrlSessionConfiguration{.description = "test.chain"});
  std::promise<std::vector<std::string>> chainDone;
  std::vector<std::string> chain;
  // Each completion starts the next request from the worker thread.
  std::function<void(int)> next = [&](int step) {
    auto started = session->startTask({.url = server.url("/echo/200"), .headers = {{"X-Probe", std::to_string(step)}}},
                                      "chain", [&, step](auto data, auto, auto) {
                                        chain.push_back(Completed{std::move(data), {}, {}, {}}.body());
                                        if (step < 3) {
                                          next(step + 1);
                                        } else {
                                          chainDone.set_value(chain);
                                        }
                                      });
    ASSERT_TRUE(started.hasValue());
  };
  next(1);
  EXPECT_EQ(chainDone.get_future().get(), (std::vector<std::string>{"1:", "2:", "3:"}));
}

}  // namespace
