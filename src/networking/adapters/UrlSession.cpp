#include "velto/networking/adapters/detail/UrlSession.hpp"

#include <curl/curl.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <exception>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/detail/Fatal.hpp"

namespace velto::detail {

namespace {

constexpr char kSessionFile[] = "Adapters/Concrete/URLSession";
constexpr std::string_view kUrlDomain = VeltoPlatformError::urlErrorDomain;
// How long the worker sleeps when nothing at all happens; libcurl shortens it to its own timers.
constexpr int kIdlePollMilliseconds = 60'000;

void initialiseCurlOnce() {
  // libcurl 7.84+ built "threadsafe" (Debian's is) makes this safe from any thread; the static
  // still keeps it to one call per process. Never cleaned up: other code may use libcurl too.
  static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (code != CURLE_OK) fatalStop("UrlSession: curl_global_init failed");
}

bool isTokenCharacter(unsigned char c) {
  if (c >= '0' && c <= '9') return true;
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') return true;
  return std::strchr("!#$%&'*+-.^_`|~", c) != nullptr && c != '\0';
}

bool isHeaderName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return isTokenCharacter(static_cast<unsigned char>(c)); });
}

bool isHeaderValue(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view lhs, std::string_view rhs) {
  return lhs.size() == rhs.size() &&
         std::equal(lhs.begin(), lhs.end(), rhs.begin(), [](char a, char b) { return asciiLower(a) == asciiLower(b); });
}

struct UrlErrorText {
  std::int64_t code;
  const char* description;
};

UrlErrorText urlErrorFor(int curlCode, long osErrno) {
  switch (static_cast<CURLcode>(curlCode)) {
    case CURLE_OPERATION_TIMEDOUT: return {-1001, "The request timed out."};
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return {-1003, "A server with the specified hostname could not be found."};
    case CURLE_COULDNT_CONNECT:
      if (osErrno == ENETUNREACH || osErrno == ENETDOWN) return {-1009, "The Internet connection appears to be offline."};
      return {-1004, "Could not connect to the server."};
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR: return {-1005, "The network connection was lost."};
    case CURLE_TOO_MANY_REDIRECTS: return {-1007, "too many HTTP redirects"};
    case CURLE_URL_MALFORMAT: return {-1000, "bad URL"};
    case CURLE_UNSUPPORTED_PROTOCOL: return {-1002, "unsupported URL"};
    case CURLE_WEIRD_SERVER_REPLY: return {-1011, "bad server response"};
    case CURLE_SSL_CONNECT_ERROR:
      return {-1200, "An SSL error has occurred and a secure connection to the server cannot be made."};
    case CURLE_PEER_FAILED_VERIFICATION: return {-1202, "The certificate for this server is invalid."};
    default: return {-1, "unknown error"};
  }
}

// The scheme of `url` when it starts with one ("scheme:"), else empty.
std::string_view schemeOf(std::string_view url) {
  if (url.empty() || !((url[0] | 0x20) >= 'a' && (url[0] | 0x20) <= 'z')) return {};
  for (std::size_t i = 1; i < url.size(); ++i) {
    const char c = url[i];
    if (c == ':') return url.substr(0, i);
    const bool schemeCharacter = ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
                                 c == '-' || c == '.';
    if (!schemeCharacter) return {};
  }
  return {};
}

struct CheckedUrl {
  std::shared_ptr<const VeltoPlatformError> error;  // set when the URL is refused
  std::string hostKey;                               // "scheme://host:port", lower case
};

// Refuses what libcurl must not fetch, with the error it earns before anything is sent: only
// absolute http and https URLs pass (libcurl would otherwise guess a scheme for "host/path").
// Gives the key under which the per-host connection limit counts the transfer.
CheckedUrl checkUrl(const std::string& url) {
  const std::string_view scheme = schemeOf(url);
  if (!scheme.empty() && !equalsIgnoringCase(scheme, "http") && !equalsIgnoringCase(scheme, "https")) {
    return {urlErrorFromCurl(CURLE_UNSUPPORTED_PROTOCOL, 0, "Only http and https URLs are fetched", url), {}};
  }
  CURLU* parsed = curl_url();
  if (parsed == nullptr) return {urlErrorFromCurl(CURLE_OUT_OF_MEMORY, 0, curl_easy_strerror(CURLE_OUT_OF_MEMORY), url), {}};
  CheckedUrl checked;
  const CURLUcode code = curl_url_set(parsed, CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME);
  if (code != CURLUE_OK) {
    checked.error = urlErrorFromCurl(CURLE_URL_MALFORMAT, 0, curl_url_strerror(code), url);
  } else {
    for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
      char* text = nullptr;
      if (curl_url_get(parsed, part, &text, CURLU_DEFAULT_PORT) == CURLUE_OK && text != nullptr) {
        checked.hostKey += text;
        curl_free(text);
      }
      checked.hostKey += part == CURLUPART_SCHEME ? "://" : part == CURLUPART_HOST ? ":" : "";
    }
    std::transform(checked.hostKey.begin(), checked.hostKey.end(), checked.hostKey.begin(), asciiLower);
  }
  curl_url_cleanup(parsed);
  return checked;
}

// One task: its request and, once the worker has set it up, its easy handle. Created by the
// caller of startTask, set up, driven and destroyed on the worker thread.
struct Transfer {
  Transfer(UrlRequest request, std::string description, UrlTaskCompletion completion)
      : request(std::move(request)), description(std::move(description)), completion(std::move(completion)) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() {
    if (easy != nullptr) curl_easy_cleanup(easy);
    if (headerList != nullptr) curl_slist_free_all(headerList);
  }

  UrlRequest request;
  std::string description;
  UrlTaskCompletion completion;
  std::string hostKey;
  bool admitted = false;  // counted in its host's active transfers (else waiting in line)
  std::list<Transfer*>::iterator placeInLine;  // while waiting
  CURL* easy = nullptr;   // set once admitted, unless setting it up failed
  std::shared_ptr<const VeltoPlatformError> admissionError;
  curl_slist* headerList = nullptr;
  VeltoData received;
  char errorBuffer[CURL_ERROR_SIZE] = {};
};

std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* context) {
  auto* transfer = static_cast<Transfer*>(context);
  const std::size_t length = size * count;
  const auto* first = reinterpret_cast<const std::byte*>(bytes);
  transfer->received.insert(transfer->received.end(), first, first + length);
  return length;
}

// The transfers of one "scheme://host:port": those in the multi handle and those waiting for
// one of them to finish.
struct Host {
  long active = 0;
  std::list<Transfer*> waiting;
};

struct Command {
  enum class Kind { start, cancel, shutdown };
  Kind kind;
  std::unique_ptr<Transfer> transfer;
  std::string description;
};

}  // namespace

/// The state the worker thread owns; shared by the session object and the worker, so that a
/// session destroyed from its own completion leaves the worker a live core to finish with.
class UrlSessionCore {
 public:
  explicit UrlSessionCore(UrlSessionConfiguration configuration) : configuration_(std::move(configuration)) {
    initialiseCurlOnce();
    multi_ = curl_multi_init();
    if (multi_ == nullptr) fatalStop("UrlSession: curl_multi_init failed");
    // The per-host limit is kept here, not by libcurl: libcurl 7.88 can leave a transfer it
    // parked for a free connection waiting until its connect time-out (measured: a minute).
    curl_multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
  }
  UrlSessionCore(const UrlSessionCore&) = delete;
  UrlSessionCore& operator=(const UrlSessionCore&) = delete;
  ~UrlSessionCore() {
    if (multi_ != nullptr) curl_multi_cleanup(multi_);
  }

  [[nodiscard]] const UrlSessionConfiguration& configuration() const noexcept { return configuration_; }

  void post(Command command) {
    bool accepted = false;
    bool wake = false;
    {
      std::lock_guard guard(mutex_);
      if (!closed_) {
        commands_.push_back(std::move(command));
        accepted = true;
        wake = !wakeRequested_;
        wakeRequested_ = true;
      }
    }
    // One wake-up per batch of commands: the worker clears the flag when it takes the batch.
    if (wake) curl_multi_wakeup(multi_);
    if (!accepted && command.kind == Command::Kind::start) {
      // The worker has ended (reachable only from completions running during the shutdown):
      // nothing is sent, and the task still completes exactly once.
      auto error = urlCancelledError(command.transfer->request.url);
      complete(std::move(command.transfer), std::move(error));
    }
  }

  void run() {
    std::vector<Command> batch;
    while (!stopping_) {
      {
        std::lock_guard guard(mutex_);
        batch.swap(commands_);
        wakeRequested_ = false;
      }
      for (Command& command : batch) apply(command);
      batch.clear();
      if (stopping_) break;
      failAdmissions();
      int stillRunning = 0;
      curl_multi_perform(multi_, &stillRunning);
      finishDoneTransfers();
      failAdmissions();
      curl_multi_poll(multi_, nullptr, 0, kIdlePollMilliseconds, nullptr);
    }
    cancelAll();
  }

 private:
  void apply(Command& command) {
    switch (command.kind) {
      case Command::Kind::start:
        if (stopping_) {
          auto error = urlCancelledError(command.transfer->request.url);
          complete(std::move(command.transfer), std::move(error));
        } else {
          begin(std::move(command.transfer));
        }
        break;
      case Command::Kind::cancel: cancel(command.description); break;
      case Command::Kind::shutdown: stopping_ = true; break;
    }
  }

  void begin(std::unique_ptr<Transfer> transfer) {
    CheckedUrl checked = checkUrl(transfer->request.url);
    if (checked.error) return complete(std::move(transfer), std::move(checked.error));
    transfer->hostKey = std::move(checked.hostKey);
    Transfer* raw = transfer.get();
    if (!raw->description.empty()) byDescription_.emplace(raw->description, raw);
    transfers_.emplace(raw, std::move(transfer));
    Host& host = hosts_[raw->hostKey];
    raw->placeInLine = host.waiting.insert(host.waiting.end(), raw);
    admitWaiting(raw->hostKey);
  }

  // Moves transfers waiting for `hostKey` into the multi handle while the host has room. Calls
  // no completion: a transfer that cannot be set up is counted in and failed later, by
  // `failAdmissions`, so that no caller's bookkeeping is interrupted.
  void admitWaiting(const std::string& hostKey) {
    auto entry = hosts_.find(hostKey);
    if (entry == hosts_.end()) return;
    Host& host = entry->second;
    while (host.active < configuration_.maximumConnectionsPerHost && !host.waiting.empty()) {
      Transfer& transfer = *host.waiting.front();
      host.waiting.pop_front();
      ++host.active;
      transfer.admitted = true;
      transfer.easy = curl_easy_init();
      if (transfer.easy == nullptr || !configure(transfer)) {
        transfer.admissionError =
            urlErrorFromCurl(CURLE_OUT_OF_MEMORY, 0, "Could not set up the transfer", transfer.request.url);
      } else if (curl_multi_add_handle(multi_, transfer.easy) != CURLM_OK) {
        transfer.admissionError = urlErrorFromCurl(CURLE_FAILED_INIT, 0, "Could not add the transfer", transfer.request.url);
      }
      if (transfer.admissionError) {
        curl_easy_cleanup(transfer.easy);  // never in the multi handle
        transfer.easy = nullptr;
        failedAdmissions_.push_back(&transfer);
      }
    }
    if (host.active == 0 && host.waiting.empty()) hosts_.erase(entry);
  }

  void failAdmissions() {
    while (!failedAdmissions_.empty()) {
      Transfer& transfer = *failedAdmissions_.back();
      failedAdmissions_.pop_back();
      auto error = transfer.admissionError;
      complete(release(transfer), std::move(error));
    }
  }

  bool configure(Transfer& transfer) {
    CURL* easy = transfer.easy;
    const UrlRequest& request = transfer.request;
    bool ok = true;
    auto set = [&](CURLoption option, auto value) { ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK; };
    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_PRIVATE, static_cast<void*>(&transfer));
    set(CURLOPT_ERRORBUFFER, transfer.errorBuffer);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, configuration_.maximumRedirects);
    set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    set(CURLOPT_PROXY, "");
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_ACCEPT_ENCODING, "");
    const long timeoutMilliseconds = std::max<long>(1, static_cast<long>(request.timeout.count()));
    set(CURLOPT_CONNECTTIMEOUT_MS, timeoutMilliseconds);
    set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(CURLOPT_LOW_SPEED_TIME, std::max<long>(1, (timeoutMilliseconds + 999) / 1000));
    set(CURLOPT_WRITEFUNCTION, &receiveBody);
    set(CURLOPT_WRITEDATA, static_cast<void*>(&transfer));

    bool hasContentType = false;
    for (const auto& [name, value] : request.headers) {
      hasContentType = hasContentType || equalsIgnoringCase(name, "Content-Type");
      // "Name;" sends a header with an empty value; "Name:" would remove it.
      const std::string line = value.empty() ? name + ";" : name + ": " + value;
      curl_slist* extended = curl_slist_append(transfer.headerList, line.c_str());
      if (extended == nullptr) return false;
      transfer.headerList = extended;
    }
    // libcurl would announce a form body and wait for "100 Continue" on large bodies; the
    // requests say what they send and send it at once.
    for (const char* suppressed : {"Expect:", hasContentType ? nullptr : "Content-Type:"}) {
      if (suppressed == nullptr) continue;
      curl_slist* extended = curl_slist_append(transfer.headerList, suppressed);
      if (extended == nullptr) return false;
      transfer.headerList = extended;
    }
    set(CURLOPT_HTTPHEADER, transfer.headerList);

    static const char kNoBytes[] = "";
    const char* body = request.body ? reinterpret_cast<const char*>(request.body->data()) : kNoBytes;
    const auto bodySize = static_cast<curl_off_t>(request.body ? request.body->size() : 0);
    if (request.method == "GET" && !request.body) {
      set(CURLOPT_HTTPGET, 1L);
    } else if (request.method == "HEAD") {
      set(CURLOPT_NOBODY, 1L);
    } else {
      set(CURLOPT_POSTFIELDSIZE_LARGE, bodySize);
      set(CURLOPT_POSTFIELDS, body == nullptr ? kNoBytes : body);
      if (request.method != "POST") set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    return ok;
  }

  void finishDoneTransfers() {
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
      if (message->msg != CURLMSG_DONE) continue;
      // The message dies with remove_handle: read it first.
      CURL* easy = message->easy_handle;
      const CURLcode result = message->data.result;
      void* privateData = nullptr;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &privateData);
      auto& transfer = *static_cast<Transfer*>(privateData);
      if (result == CURLE_OK) {
        long status = 0;
        char* effectiveUrl = nullptr;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &effectiveUrl);
        UrlResponse response{status, effectiveUrl != nullptr ? std::string(effectiveUrl) : transfer.request.url};
        completeWithBody(release(transfer), std::move(response));
      } else {
        long osErrno = 0;
        curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &osErrno);
        const std::string_view text =
            transfer.errorBuffer[0] != '\0' ? std::string_view(transfer.errorBuffer) : curl_easy_strerror(result);
        auto error = urlErrorFromCurl(result, osErrno, text, transfer.request.url);
        complete(release(transfer), std::move(error));
      }
    }
  }

  void cancel(const std::string& description) {
    if (description.empty()) return;
    auto [first, last] = byDescription_.equal_range(description);
    std::vector<Transfer*> cancelled;
    for (auto it = first; it != last; ++it) cancelled.push_back(it->second);
    for (Transfer* transfer : cancelled) {
      auto error = urlCancelledError(transfer->request.url);
      complete(release(*transfer), std::move(error));
    }
  }

  void cancelAll() {
    while (!transfers_.empty()) {
      Transfer& transfer = *transfers_.begin()->first;
      auto error = urlCancelledError(transfer.request.url);
      complete(release(transfer), std::move(error));
    }
    // Commands that arrived with or after the shutdown (their completions may post more):
    // nothing may be left uncompleted.
    for (;;) {
      std::vector<Command> late;
      {
        std::lock_guard guard(mutex_);
        late.swap(commands_);
        if (late.empty()) {
          closed_ = true;
          return;
        }
      }
      for (Command& command : late) apply(command);
    }
  }

  // Takes a started transfer out of the session (description index, multi handle and host
  // count, or its host's waiting line) and admits what waits for its host; the caller completes
  // it. Calls no completion.
  std::unique_ptr<Transfer> release(Transfer& transfer) {
    if (!transfer.description.empty()) {
      auto [first, last] = byDescription_.equal_range(transfer.description);
      for (auto it = first; it != last; ++it) {
        if (it->second == &transfer) {
          byDescription_.erase(it);
          break;
        }
      }
    }
    if (transfer.admissionError) std::erase(failedAdmissions_, &transfer);
    auto owned = transfers_.extract(&transfer);
    const std::string hostKey = transfer.hostKey;
    if (auto entry = hosts_.find(hostKey); entry != hosts_.end()) {
      Host& host = entry->second;
      if (transfer.admitted) {
        if (transfer.easy != nullptr) curl_multi_remove_handle(multi_, transfer.easy);
        --host.active;
      } else {
        host.waiting.erase(transfer.placeInLine);
      }
      if (host.active == 0 && host.waiting.empty()) {
        hosts_.erase(entry);
      } else {
        admitWaiting(hostKey);
      }
    }
    return std::move(owned.mapped());
  }

  void completeWithBody(std::unique_ptr<Transfer> transfer, UrlResponse response) {
    UrlTaskCompletion completion = std::move(transfer->completion);
    VeltoData body = std::move(transfer->received);
    transfer.reset();
    invoke(completion, std::optional<VeltoData>(std::move(body)), std::optional<UrlResponse>(std::move(response)), nullptr);
  }

  void complete(std::unique_ptr<Transfer> transfer, std::shared_ptr<const VeltoPlatformError> error) {
    UrlTaskCompletion completion = std::move(transfer->completion);
    transfer.reset();
    invoke(completion, std::nullopt, std::nullopt, std::move(error));
  }

  void invoke(UrlTaskCompletion& completion, std::optional<VeltoData> data, std::optional<UrlResponse> response,
              std::shared_ptr<const VeltoPlatformError> error) {
    if (!completion) return;
    try {
      completion(std::move(data), std::move(response), std::move(error));
    } catch (...) {
      fatalStop("UrlSession " + configuration_.description + ": a task completion threw");
    }
  }

  UrlSessionConfiguration configuration_;
  CURLM* multi_ = nullptr;

  std::mutex mutex_;
  std::vector<Command> commands_;
  bool wakeRequested_ = false;
  bool closed_ = false;

  // Worker thread only.
  bool stopping_ = false;
  std::unordered_map<Transfer*, std::unique_ptr<Transfer>> transfers_;  // started, not completed
  std::unordered_multimap<std::string, Transfer*> byDescription_;
  std::unordered_map<std::string, Host> hosts_;
  std::vector<Transfer*> failedAdmissions_;
};

UrlSession::UrlSession(UrlSessionConfiguration configuration)
    : core_(std::make_shared<UrlSessionCore>(std::move(configuration))) {
  worker_ = std::thread([core = core_] {
    // Thread names hold 15 characters.
    pthread_setname_np(pthread_self(), "velto-urlsess");
    core->run();
  });
}

UrlSession::~UrlSession() {
  core_->post(Command{Command::Kind::shutdown, nullptr, {}});
  if (worker_.get_id() == std::this_thread::get_id()) {
    // Destroyed from one of its own completions: the worker finishes the cancellations once
    // that completion returns, then ends; it holds the core until then.
    worker_.detach();
  } else {
    worker_.join();
  }
}

const std::string& UrlSession::description() const noexcept { return core_->configuration().description; }

VeltoResult<void> UrlSession::startTask(UrlRequest request, std::string taskDescription, UrlTaskCompletion completion) {
  for (const auto& [name, value] : request.headers) {
    if (!isHeaderName(name)) {
      return VeltoResult<void>::fromMessage("Request header name is not a valid HTTP token", {{"headerName", name}},
                                            nullptr, VELTO_SITE(kSessionFile, "dataTask(with:completionHandler:)"));
    }
    if (!isHeaderValue(value)) {
      return VeltoResult<void>::fromMessage("Request header value holds a line break or NUL", {{"headerName", name}},
                                            nullptr, VELTO_SITE(kSessionFile, "dataTask(with:completionHandler:)"));
    }
  }
  core_->post(Command{Command::Kind::start,
                      std::make_unique<Transfer>(std::move(request), std::move(taskDescription), std::move(completion)),
                      {}});
  return VeltoResultVoidSuccess;
}

void UrlSession::cancelTasks(std::string taskDescription) {
  if (taskDescription.empty()) return;
  core_->post(Command{Command::Kind::cancel, nullptr, std::move(taskDescription)});
}

std::shared_ptr<const VeltoPlatformError> urlErrorFromCurl(int curlCode, long osErrno, std::string_view curlMessage,
                                                           std::string_view url) {
  const UrlErrorText text = urlErrorFor(curlCode, osErrno);
  VeltoArgs userInfo{{"curlCode", curlCode}, {"curlMessage", std::string(curlMessage)},
                     {"NSErrorFailingURLStringKey", std::string(url)}};
  return VeltoPlatformError::make(std::string(kUrlDomain), text.code, text.description, std::move(userInfo));
}

std::shared_ptr<const VeltoPlatformError> urlCancelledError(std::string_view url) {
  return VeltoPlatformError::make(std::string(kUrlDomain), -999, "cancelled",
                                  VeltoArgs{{"NSErrorFailingURLStringKey", std::string(url)}});
}

}  // namespace velto::detail
