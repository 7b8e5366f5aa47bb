#include "velto/encoding/VeltoFallbackLogger.hpp"

#include <cstdio>
#include <string>

#include "velto/detail/MainThread.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"
#include "velto/encoding/VeltoDynamicDebugEncoder.hpp"

namespace {

void writeLine(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
}

void printReport(const VeltoError& combined, const char* kind) {
  auto encoded = VeltoDynamicDebugEncoder::encodeToString(combined, VeltoDynamicDebugEncoderOptions::forLogging());
  if (encoded) {
    writeLine("(FALLBACK LOGGER)");
    writeLine("Error");
    writeLine(encoded.value());
  } else {
    writeLine(std::string("meta-error. Failed to encode ") + kind + " in VeltoFallbackLogger " + combined.debugDump() + " " +
              encoded.error().debugDump());
  }
  std::fflush(stdout);
}

void report(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot, const char* kind) {
  VeltoError combined = dispatchRoot ? error.appending(dispatchRoot) : error;
  if (velto::detail::isMainThread()) {
    printReport(combined, kind);
    return;
  }
  VeltoDispatchQueue::main()->async([combined = std::move(combined), kind] { printReport(combined, kind); });
}

}  // namespace

void VeltoFallbackLogger::logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) {
  report(error, dispatchRoot, "error");
}

void VeltoFallbackLogger::logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) {
  report(warning, dispatchRoot, "warning");
}
