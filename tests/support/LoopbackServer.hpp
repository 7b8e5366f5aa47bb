// A real HTTP server on 127.0.0.1 (cpp-httplib) for the networking tests, and a gate that holds
// handlers until a test lets them go.
//
//   velto::test::LoopbackServer server;
//   server.handle("GET", "/hello", [](const httplib::Request&, httplib::Response& res) {
//     res.set_content("hi", "text/plain");
//   });
//   server.start();
//   std::string url = server.url("/hello");         // "http://127.0.0.1:<port>/hello"
//   auto seen = server.recorded();                  // every request, recorded before it is answered
#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace velto::test {

/// What the server saw of one request.
struct RecordedRequest {
  std::string method;
  std::string path;
  httplib::Headers headers;
  std::string body;

  [[nodiscard]] bool hasHeader(const std::string& name) const { return headers.find(name) != headers.end(); }
  [[nodiscard]] std::string header(const std::string& name) const {
    auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
};

/// Holds handlers in `wait` until `open`; opens by itself when destroyed, so that a failing test
/// never leaves a server thread stuck. Thread safety: any thread may wait and open.
class Gate {
 public:
  Gate() = default;
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() { open(); }

  void open() {
    std::lock_guard guard(mutex_);
    opened_ = true;
    changed_.notify_all();
  }
  /// Counts one arrival, then blocks until the gate opens (at most `limit`).
  void wait(std::chrono::seconds limit = std::chrono::seconds(30)) {
    std::unique_lock guard(mutex_);
    ++arrivals_;
    changed_.notify_all();
    changed_.wait_for(guard, limit, [&] { return opened_; });
  }
  /// Blocks until `count` callers are waiting or have waited (at most `limit`); true if they are.
  [[nodiscard]] bool waitForArrivals(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(30)) {
    std::unique_lock guard(mutex_);
    return changed_.wait_for(guard, limit, [&] { return arrivals_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool opened_ = false;
  std::size_t arrivals_ = 0;
};

/// A cpp-httplib server bound to 127.0.0.1 on a free port, tuned for bursts: TCP_NODELAY, a
/// listen backlog of SOMAXCONN (the packaged library listens with 5), 64 handler threads and
/// unlimited keep-alive requests per connection. Register handlers, then `start`; the
/// destructor stops the server and joins its threads (open every Gate a handler waits on first,
/// or let the Gate's own destructor do it by declaring it after the server).
class LoopbackServer {
 public:
  using Handler = httplib::Server::Handler;

  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// Registers `handler` for `method` ("GET", "POST", "PUT", "DELETE") and the path regex
  /// `pattern`; every request is recorded before the handler runs. REQUIRES: before `start`.
  void handle(std::string_view method, const std::string& pattern, Handler handler);
  /// Starts serving on the server's own thread; returns once it accepts connections.
  void start();

  [[nodiscard]] int port() const noexcept { return port_; }
  /// "http://127.0.0.1:<port>" followed by `pathAndQuery`.
  [[nodiscard]] std::string url(std::string_view pathAndQuery) const;
  /// Every request so far, in arrival order.
  [[nodiscard]] std::vector<RecordedRequest> recorded() const;
  /// How many requests so far had `path` (all paths when empty).
  [[nodiscard]] std::size_t count(std::string_view path = {}) const;

 private:
  class TunedServer;

  std::unique_ptr<TunedServer> server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<RecordedRequest> recorded_;
};

/// A port on 127.0.0.1 that is bound but not listening while the object lives: connecting to
/// it is refused at once, and no other process can take it meanwhile.
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  /// "http://127.0.0.1:<port>" followed by `pathAndQuery`.
  [[nodiscard]] std::string url(std::string_view pathAndQuery = "/") const;

 private:
  int socket_;
  int port_ = 0;
};

/// The routes most networking tests share (register before `start`):
///   /echo/<status>                 answers <status> with "<X-Probe header>:<request body>" (204: no body),
///                                  for GET, POST, PUT and DELETE;
///   /redirect/<kind>/<n>/<status>  answers <kind> (301, 302, 303, 307, 308) with a Location one
///                                  hop nearer /echo/<status>: n + 1 redirects in all (GET, POST);
///   /stall                         waits at `gate`, then answers 200 "late";
///   /partial                       promises 100,000 bytes, sends 1,000 and closes the connection;
///   /trickle                       sends 64 KiB of a 1 MiB body, then waits at `gate` for the rest;
///   /set-cookie                    answers 302 with a Set-Cookie header and Location /echo/200.
void addStandardRoutes(LoopbackServer& server, Gate& gate);

}  // namespace velto::test
