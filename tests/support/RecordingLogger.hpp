// A VeltoLogging that records every report, for tests of work whose failures go to a logger.
//
//   auto logger = std::make_shared<velto::test::RecordingLogger>();
//   queue->async(via, [] { return VeltoResult<void>::fromMessage("boom"); });
//   auto reports = logger->waitForErrors(1);       // blocks until one error arrived
//   EXPECT_EQ(reports[0].error.message(), "boom");
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <velto/core/VeltoLogging.hpp>

namespace velto::test {

/// Stores (error, dispatch root) pairs. Thread safety: any thread may log and read, concurrently.
class RecordingLogger final : public VeltoLogging {
 public:
  struct Report {
    VeltoError error;
    std::shared_ptr<const VeltoVia> dispatchRoot;
  };

  void logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) override {
    record(errors_, error, dispatchRoot);
  }
  void logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) override {
    record(warnings_, warning, dispatchRoot);
  }

  /// The errors so far, once at least `count` have arrived (or after `timeout`, with fewer).
  [[nodiscard]] std::vector<Report> waitForErrors(std::size_t count,
                                                  std::chrono::seconds timeout = std::chrono::seconds(10)) {
    std::unique_lock guard(mutex_);
    arrived_.wait_for(guard, timeout, [&] { return errors_.size() >= count; });
    return errors_;
  }
  [[nodiscard]] std::vector<Report> errors() const {
    std::lock_guard guard(mutex_);
    return errors_;
  }
  [[nodiscard]] std::vector<Report> warnings() const {
    std::lock_guard guard(mutex_);
    return warnings_;
  }

 private:
  void record(std::vector<Report>& reports, const VeltoError& error, const std::shared_ptr<const VeltoVia>& root) {
    // Notified under the lock: a waiter that wakes may destroy the logger at once.
    std::lock_guard guard(mutex_);
    reports.push_back(Report{error, root});
    arrived_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Report> errors_;
  std::vector<Report> warnings_;
};

}  // namespace velto::test
