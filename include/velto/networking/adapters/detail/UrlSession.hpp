// UrlSession: the HTTP client under VeltoURLSessionDataTaskNetworkAdapter, in place of the
// platform's URL-loading session: one libcurl multi handle driven by one worker thread.
//
//   velto::detail::UrlSession session({.description = "dev.velto.example"});
//   auto started = session.startTask({.url = "http://127.0.0.1:8080/items", .method = "GET"}, "items?",
//                                    [](std::optional<VeltoData> data, std::optional<UrlResponse> response,
//                                       std::shared_ptr<const VeltoPlatformError> error) { ... });  // worker thread
//   session.cancelTasks("items?");     // the task completes with NSURLErrorDomain -999
//
// libcurl stays inside the source file; this header names none of its types.
#pragma once

#include <boost/describe/class.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoResult.hpp"

namespace velto::detail {

/// How a session behaves; fixed at construction.
struct UrlSessionConfiguration {
  /// The session's label, for diagnostics (the worker thread carries a short form of it).
  std::string description;
  /// Redirects followed per request; one more fails the request with -1007.
  long maximumRedirects = 16;
  /// Transfers running at once to one "scheme://host:port" (so at most as many connections);
  /// further ones wait in line, first come first served, and cost no libcurl handle while
  /// they wait. The session keeps this limit itself: libcurl 7.88's own per-host limit can
  /// leave a parked transfer waiting until its connect time-out.
  long maximumConnectionsPerHost = 6;
};

/// One request: method, headers, body and idle time-out. Methods other than GET, POST and HEAD
/// are sent as given, with the body when there is one.
struct UrlRequest {
  std::string url{};
  std::string method = "GET";
  /// Sent in order; a header the client would add by itself (Accept) is replaced by one of the
  /// same name. Names must be HTTP tokens and values must hold no CR, LF or NUL.
  std::vector<std::pair<std::string, std::string>> headers{};
  /// The body; none sends no body (a POST then sends "Content-Length: 0").
  std::optional<VeltoData> body{};
  /// The request fails with -1001 when no byte moves either way for this long (connecting
  /// included). Whole seconds, at least one, once connected: libcurl's low-speed check.
  std::chrono::milliseconds timeout{std::chrono::seconds(60)};
};

/// What the server answered to the request's last hop (after redirects).
struct UrlResponse {
  long statusCode = 0;
  std::string url{};
};
BOOST_DESCRIBE_STRUCT(UrlResponse, (), (statusCode, url))

/// A task's completion: on success the body (present, possibly empty) and the response; on
/// failure no body, no response and an NSURLErrorDomain error.
using UrlTaskCompletion = std::function<void(std::optional<VeltoData> data, std::optional<UrlResponse> response,
                                             std::shared_ptr<const VeltoPlatformError> error)>;

class UrlSessionCore;

/// A running HTTP client. Owns one worker thread and one libcurl multi handle; every easy handle
/// is made, driven and freed on that thread only. Starting and cancelling are commands queued to
/// the worker, so they return at once from any thread.
///
/// Behaviour: no cookie engine, no .netrc or stored credentials, no cache, no proxy (the
/// environment is not read), TLS peers verified, HTTP/2 over TLS where the server offers it,
/// redirects followed (POST turns into GET on 301, 302 and 303), gzip, deflate, brotli and zstd
/// bodies decoded. Only http and https URLs are fetched.
///
/// Completions run on the worker thread, one at a time, outside every lock of the session; they
/// may start and cancel tasks and may destroy the session. They must not block for long: every
/// transfer of the session waits meanwhile.
///
/// Lifetime: destroying the session completes every task not yet finished with -999 (on the
/// worker thread), then joins the worker. Destroyed from one of its own completions it cannot
/// join itself: the worker then finishes those cancellations after the completion returns and
/// ends on its own. A completion that waits for the thread destroying the session deadlocks.
///
/// Thread safety: every operation may be called from any thread, concurrently.
class UrlSession {
 public:
  explicit UrlSession(UrlSessionConfiguration configuration);
  ~UrlSession();
  UrlSession(const UrlSession&) = delete;
  UrlSession& operator=(const UrlSession&) = delete;

  [[nodiscard]] const std::string& description() const noexcept;

  /// Queues `request` as a task labelled `taskDescription` (empty: no label, never cancelled by
  /// description); `completion` is called exactly once, on the worker thread. Transport failures,
  /// a malformed or unsupported URL included, arrive through `completion`.
  /// Fails at once, with nothing sent and `completion` never called, when a header name is not an
  /// HTTP token ("Request header name is not a valid HTTP token", args `headerName`) or a value
  /// holds CR, LF or NUL ("Request header value holds a line break or NUL", args `headerName`;
  /// the value itself is not recorded, it may be a secret).
  [[nodiscard]] VeltoResult<void> startTask(UrlRequest request, std::string taskDescription,
                                            UrlTaskCompletion completion);

  /// Cancels every task labelled `taskDescription` that has been started (by any thread, before
  /// this call) and has not completed; each then completes with -999. Unknown or empty labels
  /// cancel nothing.
  void cancelTasks(std::string taskDescription);

 private:
  std::shared_ptr<UrlSessionCore> core_;
  std::thread worker_;
};

/// The NSURLErrorDomain error for a finished libcurl transfer: `curlCode` is the CURLcode,
/// `osErrno` the transfer's last system error (CURLINFO_OS_ERRNO), `curlMessage` the transfer's
/// error text. Timed out -1001, resolve -1003, connect -1004 (-1009 when the network is
/// unreachable or down), nothing, partial, send or receive -1005, too many redirects -1007,
/// malformed URL -1000, unsupported protocol -1002, weird reply -1011, TLS connect -1200, peer
/// certificate -1202, anything else -1. The user information keeps "curlCode" and
/// "curlMessage", and "NSErrorFailingURLStringKey" holds `url`.
[[nodiscard]] std::shared_ptr<const VeltoPlatformError> urlErrorFromCurl(int curlCode, long osErrno,
                                                                         std::string_view curlMessage,
                                                                         std::string_view url);

/// The -999 NSURLErrorDomain error of a cancelled task.
[[nodiscard]] std::shared_ptr<const VeltoPlatformError> urlCancelledError(std::string_view url);

}  // namespace velto::detail
