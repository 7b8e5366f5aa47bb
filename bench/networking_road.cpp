// The road of a request (dispatcher, adapter, libcurl session, endpoint completion on the global
// queue) against the same loopback GETs driven through a bare libcurl multi handle with the same
// options and the same concurrency (six requests in flight to the host), both against one
// cpp-httplib server on 127.0.0.1 in this process. The session alone (no dispatcher, no queue
// hops) runs beside them, so that the ratios separate the transport from the road's two hops
// (worker -> the dispatcher's serial queue -> the global queue). On a shared machine pass
// --benchmark_enable_random_interleaving=true so that load drift hits all three alike.
#include <benchmark/benchmark.h>

#include <curl/curl.h>
#include <httplib.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/url/parse.hpp>
#include <boost/uuid/random_generator.hpp>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/networking/VeltoRequestDispatcher.hpp>
#include <velto/networking/adapters/VeltoURLSessionDataTaskNetworkAdapter.hpp>

#include "support/BenchMain.hpp"

namespace {

constexpr int kRequests = 2000;
constexpr long kConnectionsPerHost = 6;

class TunedServer final : public httplib::Server {
 public:
  bool raiseBacklog() { return ::listen(svr_sock_, SOMAXCONN) == 0; }
};

// One server for the whole run: /item/<n> answers a small JSON body, as octet-stream so that the
// server does not compress it (it would brotli-compress JSON for every request, and that cost,
// the same on both sides, would drown the clients' own).
struct LoopbackServer {
  TunedServer server;
  std::thread thread;
  int port = 0;

  LoopbackServer() {
    server.new_task_queue = [] { return new httplib::ThreadPool(16); };
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1'000'000);
    server.Get(R"(/item/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content(R"({"id":)" + std::string(req.matches[1]) + R"(,"name":"item"})", "application/octet-stream");
    });
    port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0 || !server.raiseBacklog()) std::abort();
    thread = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();
  }
  ~LoopbackServer() {
    server.stop();
    thread.join();
  }
  [[nodiscard]] std::string url(int n) const {
    return "http://127.0.0.1:" + std::to_string(port) + "/item/" + std::to_string(n);
  }
};

LoopbackServer& loopback() {
  static LoopbackServer server;
  return server;
}

class NullLogger final : public VeltoLogging {
  void logError(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
  void logWarning(const VeltoError&, const std::shared_ptr<const VeltoVia>&) override {}
};

// Counts outcomes down; the benchmark waits for zero.
class Countdown {
 public:
  void reset(int count) {
    std::lock_guard guard(mutex_);
    left_ = count;
  }
  void countDown() {
    std::lock_guard guard(mutex_);
    if (--left_ == 0) done_.notify_all();
  }
  void wait() {
    std::unique_lock guard(mutex_);
    done_.wait(guard, [&] { return left_ == 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  int left_ = 0;
};

// The least an endpoint can do: keep the body, count its completion.
class BenchEndpoint final : public VeltoRequestSupporting {
 public:
  BenchEndpoint(boost::urls::url url, Countdown& countdown) : url_(std::move(url)), countdown_(countdown) {}
  VeltoResult<boost::urls::url> makeUrl() const override { return url_; }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {}; }
  VeltoSupportedHttpVerb httpVerb() const override { return VeltoSupportedHttpVerb::get; }
  boost::uuids::uuid correlationID() const override { return correlationID_; }
  VeltoResult<void> initiated(Via, VeltoCodeSite) override { return VeltoResultVoidSuccess; }
  VeltoResult<void> store(VeltoData downloadedData, Via, VeltoCodeSite) override {
    data_ = std::move(downloadedData);
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> completed(std::optional<std::int64_t> statusCode, std::shared_ptr<const VeltoPlatformError> error,
                              Via, VeltoCodeSite) override {
    if (error || statusCode != 200 || data_.empty()) std::abort();
    countdown_.countDown();
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> failedPrematurely(VeltoError, Via, VeltoCodeSite) override { std::abort(); }

 private:
  boost::urls::url url_;
  Countdown& countdown_;
  boost::uuids::uuid correlationID_ = boost::uuids::random_generator()();
  VeltoData data_;
};

// 2,000 GETs begun on the dispatcher's serial queue, timed until the last endpoint completed on
// the global queue. Endpoints are made outside the timed region.
void BM_VeltoRequestDispatcherLoopbackGets(benchmark::State& state) {
  auto logger = std::make_shared<NullLogger>();
  auto queue = VeltoSerialQueue::create("bench.dispatcher", logger);
  auto adapter = VeltoURLSessionDataTaskNetworkAdapter::create(logger, {.maximumConnectionsPerHost = kConnectionsPerHost});
  auto dispatcher = VeltoRequestDispatcher::createOnQueue(queue, logger, adapter);
  const std::shared_ptr<const VeltoVia> impetus = VeltoImpetus::create("bench");
  Countdown countdown;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<std::shared_ptr<VeltoRequestSupporting>> endpoints;
    for (int i = 0; i < kRequests; ++i) {
      endpoints.push_back(std::make_shared<BenchEndpoint>(boost::urls::url(loopback().url(i)), countdown));
    }
    countdown.reset(kRequests);
    state.ResumeTiming();
    queue->async(impetus, [&](const std::shared_ptr<const VeltoVia>& via) {
      for (const auto& endpoint : endpoints) {
        if (dispatcher->begin(endpoint, via).isFailure()) std::abort();
      }
      return VeltoResultVoidSuccess;
    });
    countdown.wait();
  }
  state.SetItemsProcessed(state.iterations() * kRequests);
}
BENCHMARK(BM_VeltoRequestDispatcherLoopbackGets)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(7)->UseRealTime();

// The session alone (no dispatcher, no endpoints, no queue hops): what the road adds on top of
// the worker thread and its command queue.
void BM_UrlSessionLoopbackGets(benchmark::State& state) {
  velto::detail::UrlSession session({.description = "bench.session", .maximumConnectionsPerHost = kConnectionsPerHost});
  std::vector<std::string> urls;
  for (int i = 0; i < kRequests; ++i) urls.push_back(loopback().url(i));
  Countdown countdown;
  for (auto _ : state) {
    countdown.reset(kRequests);
    for (int i = 0; i < kRequests; ++i) {
      velto::detail::UrlRequest request;
      request.url = urls[i];
      request.headers = {{"X-Correlation-ID", "5D1B5E4A-8D1C-4E53-9F7C-2B0E3A4C5D6E"}};
      auto started = session.startTask(std::move(request), urls[i] + "?", [&](auto data, auto response, auto error) {
        if (error || !data || response->statusCode != 200) std::abort();
        countdown.countDown();
      });
      if (started.isFailure()) std::abort();
    }
    countdown.wait();
  }
  state.SetItemsProcessed(state.iterations() * kRequests);
}
BENCHMARK(BM_UrlSessionLoopbackGets)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(7)->UseRealTime();

std::size_t appendBody(char* bytes, std::size_t size, std::size_t count, void* context) {
  auto* body = static_cast<std::vector<std::byte>*>(context);
  const auto* first = reinterpret_cast<const std::byte*>(bytes);
  body->insert(body->end(), first, first + size * count);
  return size * count;
}

// The same GETs through one multi handle on the calling thread, 6 in flight at a time (the next
// added as one finishes: what libcurl's own per-host limit would do, without its parking of
// pending transfers, which in 7.88 can stall one for its connect time-out), an easy handle per
// request with the session's options, the body kept, the status checked.
void BM_BareCurlMultiLoopbackGets(benchmark::State& state) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* multi = curl_multi_init();
  curl_multi_setopt(multi, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
  std::vector<std::string> urls;
  for (int i = 0; i < kRequests; ++i) urls.push_back(loopback().url(i));
  std::vector<std::vector<std::byte>> bodies(kRequests);
  std::vector<curl_slist*> headers(kRequests, nullptr);
  auto add = [&](int i) {
    bodies[i].clear();
    headers[i] = curl_slist_append(nullptr, "X-Correlation-ID: 5D1B5E4A-8D1C-4E53-9F7C-2B0E3A4C5D6E");
    headers[i] = curl_slist_append(headers[i], "Expect:");
    headers[i] = curl_slist_append(headers[i], "Content-Type:");
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, urls[i].c_str());
    curl_easy_setopt(easy, CURLOPT_PRIVATE, static_cast<void*>(&headers[i]));
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 16L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 60'000L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 60L);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers[i]);
    curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &appendBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &bodies[i]);
    curl_multi_add_handle(multi, easy);
  };
  for (auto _ : state) {
    int added = 0;
    for (; added < kConnectionsPerHost; ++added) add(added);
    int finished = 0;
    while (finished < kRequests) {
      int running = 0;
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        if (message->data.result != CURLE_OK || status != 200) std::abort();
        void* headerSlot = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &headerSlot);
        curl_multi_remove_handle(multi, easy);
        curl_easy_cleanup(easy);
        curl_slist_free_all(*static_cast<curl_slist**>(headerSlot));
        ++finished;
        if (added < kRequests) add(added++);
      }
      if (finished < kRequests) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
  }
  curl_multi_cleanup(multi);
  state.SetItemsProcessed(state.iterations() * kRequests);
}
BENCHMARK(BM_BareCurlMultiLoopbackGets)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(7)->UseRealTime();
VELTO_BENCH_RATIO(BM_UrlSessionLoopbackGets, BM_BareCurlMultiLoopbackGets,
                  "2,000 loopback GETs, the session alone vs bare libcurl multi");
VELTO_BENCH_RATIO(BM_VeltoRequestDispatcherLoopbackGets, BM_BareCurlMultiLoopbackGets,
                  "2,000 loopback GETs, dispatcher + adapter vs bare libcurl multi (target <= 1.11)");

}  // namespace
