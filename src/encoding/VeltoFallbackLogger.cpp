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

// The encoder's error, then each error under it (a VeltoError's framework error, another
// error's underlying one), so the line says why encoding failed: the encoder's own error is
// always "Failed to encode for debug", and the generic description of a VeltoError cause says
// nothing ("The operation couldn't be completed. (VeltoError error 1.)"); its message does.
std::string dumpWithCauses(const VeltoError& error) {
  std::string out = error.debugDump();
  std::shared_ptr<const VeltoPlatformError> cause = error.frameworkError();
  // Errors are immutable, so a chain cannot loop; the bound only keeps a line a line.
  for (int depth = 0; cause && depth < 16; ++depth) {
    out.append(" caused by: ");
    if (const auto* inner = dynamic_cast<const VeltoError*>(cause.get())) {
      out.append(inner->debugDump());
      cause = inner->frameworkError();
    } else {
      out.append(cause->domain()).append(" ").append(std::to_string(cause->code()));
      out.append(" \"").append(cause->localizedDescription()).append("\"");
      cause = cause->underlyingError();
    }
  }
  return out;
}

void printReport(const VeltoError& combined, const char* kind) {
  auto encoded = VeltoDynamicDebugEncoder::encodeToString(combined, VeltoDynamicDebugEncoderOptions::forLogging());
  if (encoded) {
    writeLine("(FALLBACK LOGGER)");
    writeLine("Error");
    writeLine(encoded.value());
  } else {
    writeLine(std::string("meta-error. Failed to encode ") + kind + " in VeltoFallbackLogger " + combined.debugDump() + " " +
              dumpWithCauses(encoded.error()));
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
