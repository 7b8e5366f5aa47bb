#include "velto/encoding/VeltoSpdlogLogger.hpp"

#if VELTO_HAS_SPDLOG

#include <spdlog/logger.h>

#include <exception>
#include <string>

#include "velto/detail/Fatal.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

namespace {

// The logging options on one line: a record is one line in every sink.
const VeltoDynamicDebugEncoderOptions& compactOptions() {
  static const VeltoDynamicDebugEncoderOptions options = VeltoDynamicDebugEncoderOptions::forLogging().withPrettyPrint(false);
  return options;
}

void report(spdlog::logger& logger, spdlog::level::level_enum level, const VeltoError& error,
            const std::shared_ptr<const VeltoVia>& dispatchRoot, const char* kind) noexcept {
  try {
    const VeltoError combined = dispatchRoot ? error.appending(dispatchRoot) : error;
    auto encoded = VeltoDynamicDebugEncoder::encodeToString(combined, compactOptions());
    if (encoded) {
      logger.log(level, encoded.value());
    } else {
      logger.log(level, std::string("meta-error. Failed to encode ") + kind + " in VeltoSpdlogLogger " + combined.debugDump() +
                            " " + encoded.error().debugDump());
    }
  } catch (const std::exception&) {
    // Out of memory while building the record: a logger has no one to hand the failure to.
  }
}

}  // namespace

std::shared_ptr<VeltoSpdlogLogger> VeltoSpdlogLogger::create(std::shared_ptr<spdlog::logger> logger) {
  if (!logger) velto::detail::fatalStop("VeltoSpdlogLogger::create: the spdlog logger is null");
  return std::make_shared<VeltoSpdlogLogger>(Token{}, std::move(logger));
}

VeltoSpdlogLogger::VeltoSpdlogLogger(Token, std::shared_ptr<spdlog::logger> logger) noexcept : logger_(std::move(logger)) {}

void VeltoSpdlogLogger::logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) {
  report(*logger_, spdlog::level::err, error, dispatchRoot, "error");
}

void VeltoSpdlogLogger::logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) {
  report(*logger_, spdlog::level::warn, warning, dispatchRoot, "warning");
}

#endif
