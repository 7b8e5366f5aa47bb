// VeltoSpdlogLogger: sends the library's reports to an application's spdlog logger, so failures
// no caller could receive land in the application's own logs with their whole trail.
//
//   auto logger = VeltoSpdlogLogger::create(spdlog::default_logger());
//   VeltoSerialQueue queue("com.example.worker", logger);
//
// Each report is one record: errors at spdlog's error level, warnings at its warning level, the
// text being the compact (one-line) debug JSON of the error joined with its dispatch root: the
// error's own frames, then the trail's, and the trail's impetus. Should the encoder refuse the
// error (a recorded string that is not UTF-8, say), the record holds
//   meta-error. Failed to encode <error|warning> in VeltoSpdlogLogger <error dump> <encoder's error dump>
// instead, at the same level. Nothing is thrown out of a report.
//
// Exists when Velto was built with spdlog (VELTO_HAS_SPDLOG is 1); spdlog's headers are needed
// only to make the spdlog::logger you pass in.
#pragma once

#include <memory>

#include "velto/core/VeltoLogging.hpp"
#include "velto/detail/VeltoBuildConfig.hpp"

#if VELTO_HAS_SPDLOG

namespace spdlog {
class logger;
}

/// Forwards reports to one spdlog logger, held strongly for the adapter's lifetime.
/// Thread safety: any number of threads may report at once; spdlog's logger does its own
/// locking (use a `_mt` sink), and the encoding runs on the reporting thread.
class VeltoSpdlogLogger final : public VeltoLogging {
  struct Token {};

 public:
  /// REQUIRES: `logger` is not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoSpdlogLogger> create(std::shared_ptr<spdlog::logger> logger);
  VeltoSpdlogLogger(Token, std::shared_ptr<spdlog::logger> logger) noexcept;

  [[nodiscard]] const std::shared_ptr<spdlog::logger>& logger() const noexcept { return logger_; }

  void logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) override;
  void logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) override;

 private:
  std::shared_ptr<spdlog::logger> logger_;
};

#endif
