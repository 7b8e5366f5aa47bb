// VeltoFallbackLogger: the logger used where the application gives none. It prints each report
// on the main thread as debug JSON, with the whole trail.
//
//   auto logger = VeltoFallbackLogger::create();
//   logger->logError(error, via);    // prints now on the main thread, else via the main queue
//
// What it prints, to standard output, one line each:
//   (FALLBACK LOGGER)
//   Error
//   <the error joined with the dispatch root, as pretty debug JSON>
// or, when the error cannot be encoded (a recorded string that is not UTF-8, say), the single
// line "meta-error. Failed to encode error in VeltoFallbackLogger <error> <encoder's error>".
// Warnings print "Error" as their second line too; that is deliberate, so a warning is told
// from an error only by its content (its meta-error line says "warning").
#pragma once

#include <memory>

#include "velto/core/VeltoLogging.hpp"

/// Prints reports to standard output on the main thread. Stateless.
///
/// Both operations return at once from any thread. Called on the main thread, the report is
/// printed before the call returns; from any other thread it is printed when the main thread
/// next drains the main queue (VeltoMainQueue), in submission order, so a report made on the
/// main thread may overtake reports still waiting in the queue. Never fails, never retries.
/// Thread safety: any number of threads may log at once; no lock is taken.
class VeltoFallbackLogger final : public VeltoLogging {
 public:
  [[nodiscard]] static std::shared_ptr<VeltoFallbackLogger> create() { return std::make_shared<VeltoFallbackLogger>(); }

  void logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) override;
  void logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) override;
};
