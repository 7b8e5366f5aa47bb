// VeltoLogging: where failures go that no caller can receive (asynchronous work, observers,
// timers). The host application supplies one; VeltoFallbackLogger prints to standard output.
//
//   class MyLogger final : public VeltoLogging {
//     void logError(const VeltoError& e, const std::shared_ptr<const VeltoVia>& root) override { ... }
//     void logWarning(const VeltoError& w, const std::shared_ptr<const VeltoVia>& root) override { ... }
//   };
#pragma once

#include <memory>

#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoVia.hpp"

/// A sink for errors and warnings, each with its dispatch root: the trail active where the
/// failure surfaced. Held by shared ownership (`std::shared_ptr<VeltoLogging>`).
///
/// Thread safety: implementations must accept calls from any thread, concurrently.
class VeltoLogging {
 public:
  virtual ~VeltoLogging() = default;

  /// Reports an error with the trail active where it surfaced. Must not throw.
  virtual void logError(const VeltoError& error, const std::shared_ptr<const VeltoVia>& dispatchRoot) = 0;
  /// Reports a warning (also a VeltoError) with the trail active where it surfaced. Must not throw.
  virtual void logWarning(const VeltoError& warning, const std::shared_ptr<const VeltoVia>& dispatchRoot) = 0;

 protected:
  VeltoLogging() = default;
  VeltoLogging(const VeltoLogging&) = default;
  VeltoLogging& operator=(const VeltoLogging&) = default;
};
