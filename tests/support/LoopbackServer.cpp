#include "support/LoopbackServer.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>

namespace velto::test {

class LoopbackServer::TunedServer final : public httplib::Server {
 public:
  // The packaged library listens with a backlog of 5: a burst of connects then waits for SYN
  // retransmissions (a second or more). Listening again on the bound socket raises it.
  bool raiseBacklog() { return ::listen(svr_sock_, SOMAXCONN) == 0; }
};

LoopbackServer::LoopbackServer() : server_(std::make_unique<TunedServer>()) {
  server_->new_task_queue = [] { return new httplib::ThreadPool(64); };
  server_->set_tcp_nodelay(true);
  server_->set_keep_alive_max_count(1'000'000);
  server_->set_keep_alive_timeout(30);
  server_->set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
    res.status = 500;
  });
}

LoopbackServer::~LoopbackServer() {
  if (thread_.joinable()) {
    server_->stop();
    thread_.join();
  }
}

void LoopbackServer::handle(std::string_view method, const std::string& pattern, Handler handler) {
  Handler recording = [this, handler = std::move(handler)](const httplib::Request& req, httplib::Response& res) {
    {
      std::lock_guard guard(mutex_);
      recorded_.push_back(RecordedRequest{req.method, req.path, req.headers, req.body});
    }
    handler(req, res);
  };
  if (method == "GET") {
    server_->Get(pattern, std::move(recording));
  } else if (method == "POST") {
    server_->Post(pattern, std::move(recording));
  } else if (method == "PUT") {
    server_->Put(pattern, std::move(recording));
  } else if (method == "DELETE") {
    server_->Delete(pattern, std::move(recording));
  } else {
    std::cerr << "LoopbackServer: unsupported method " << method << "\n";
    std::abort();
  }
}

void LoopbackServer::start() {
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0 || !server_->raiseBacklog()) {
    std::cerr << "LoopbackServer: could not listen on 127.0.0.1\n";
    std::abort();
  }
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  // The socket already accepts connections (the kernel queues them); this only waits for the
  // accept loop so that `stop` cannot race its start.
  while (!server_->is_running()) std::this_thread::yield();
}

std::string LoopbackServer::url(std::string_view pathAndQuery) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
}

std::vector<RecordedRequest> LoopbackServer::recorded() const {
  std::lock_guard guard(mutex_);
  return recorded_;
}

std::size_t LoopbackServer::count(std::string_view path) const {
  std::lock_guard guard(mutex_);
  std::size_t n = 0;
  for (const auto& request : recorded_) n += (path.empty() || request.path == path) ? 1 : 0;
  return n;
}

RefusingPort::RefusingPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (socket_ < 0 || ::bind(socket_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    std::cerr << "RefusingPort: could not bind a loopback port\n";
    std::abort();
  }
  port_ = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() { ::close(socket_); }

std::string RefusingPort::url(std::string_view pathAndQuery) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
}

namespace {

void echo(const httplib::Request& req, httplib::Response& res) {
  res.status = std::stoi(req.matches[1]);
  if (res.status != 204) res.set_content(req.get_header_value("X-Probe") + ":" + req.body, "application/octet-stream");
}

}  // namespace

void addStandardRoutes(LoopbackServer& server, Gate& gate) {
  for (const char* method : {"GET", "POST", "PUT", "DELETE"}) server.handle(method, R"(/echo/(\d+))", echo);
  auto redirect = [](const httplib::Request& req, httplib::Response& res) {
    const std::string kind = req.matches[1];
    const int left = std::stoi(req.matches[2]);
    const std::string status = req.matches[3];
    res.status = std::stoi(kind);
    res.set_header("Location", left == 0 ? "/echo/" + status
                                         : "/redirect/" + kind + "/" + std::to_string(left - 1) + "/" + status);
  };
  server.handle("GET", R"(/redirect/(\d+)/(\d+)/(\d+))", redirect);
  server.handle("POST", R"(/redirect/(\d+)/(\d+)/(\d+))", redirect);
  server.handle("GET", "/stall", [&gate](const httplib::Request&, httplib::Response& res) {
    gate.wait();
    res.set_content("late", "text/plain");
  });
  server.handle("GET", "/partial", [](const httplib::Request&, httplib::Response& res) {
    res.set_content_provider(100'000, "application/octet-stream", [](std::size_t, std::size_t, httplib::DataSink& sink) {
      const std::string chunk(1'000, 'x');
      sink.write(chunk.data(), chunk.size());
      return false;  // abandons the response: the connection closes
    });
  });
  server.handle("GET", "/trickle", [&gate](const httplib::Request&, httplib::Response& res) {
    res.set_content_provider(1 << 20, "application/octet-stream",
                             [&gate](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                               if (offset >= (1 << 16)) gate.wait();
                               const std::string chunk(std::min<std::size_t>(length, 1 << 14), 'y');
                               return sink.write(chunk.data(), chunk.size());
                             });
  });
  server.handle("GET", "/set-cookie", [](const httplib::Request&, httplib::Response& res) {
    res.status = 302;
    res.set_header("Set-Cookie", "session=secret; Path=/");
    res.set_header("Location", "/echo/200");
  });
}

}  // namespace velto::test
