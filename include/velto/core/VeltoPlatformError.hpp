// VeltoPlatformError: the library's error object model (domain, code, description, user
// information, underlying error), the C++ form of the platform error objects that transports
// and facilities report and that a VeltoError may wrap as its `frameworkError`.
//
//   auto timedOut = VeltoPlatformError::make(VeltoPlatformError::urlErrorDomain, -1001, "The request timed out.");
//   VeltoError error("Request failed", {}, timedOut);
//   error.frameworkError()->code();   // -1001
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "velto/core/VeltoAny.hpp"

class VeltoKeyedEncodingContainer;
class VeltoDynamicDebugEncoder;

/// An immutable error object, shared by `std::shared_ptr<const VeltoPlatformError>`.
/// VeltoError and VeltoInitializerError are platform errors too; `make` creates a plain one.
///
/// Thread safety: implementations are immutable; share them freely across threads.
class VeltoPlatformError {
 public:
  /// The URL-loading domain: transport failures carry its codes (-1001 timed out, -1003 host
  /// not found, -1004 cannot connect, -1005 connection lost, -1009 not connected, -999 cancelled).
  static constexpr std::string_view urlErrorDomain = "NSURLErrorDomain";
  /// The domain of C++ exceptions thrown by a caller's callable and wrapped by the library.
  static constexpr std::string_view exceptionDomain = "VeltoCppException";

  virtual ~VeltoPlatformError() = default;

  [[nodiscard]] virtual std::string domain() const = 0;
  [[nodiscard]] virtual std::int64_t code() const = 0;
  [[nodiscard]] virtual std::string localizedDescription() const = 0;
  /// Extra information, in insertion order; often empty.
  [[nodiscard]] virtual const VeltoArgs& userInfo() const = 0;
  /// The error that caused this one, if any (outcome classification follows this chain).
  [[nodiscard]] virtual std::shared_ptr<const VeltoPlatformError> underlyingError() const = 0;

  /// Debug output: "code", "domain", "localizedDescription", then "userInfo" when it is not
  /// empty. Errors with fields of their own (VeltoError, VeltoInitializerError) write those.
  virtual VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                          VeltoDynamicDebugEncoder& dynamicEncoder) const;

  /// A plain error object with the given fields.
  [[nodiscard]] static std::shared_ptr<const VeltoPlatformError> make(
      std::string domain, std::int64_t code, std::string localizedDescription, VeltoArgs userInfo = {},
      std::shared_ptr<const VeltoPlatformError> underlyingError = nullptr);

  /// Wraps an exception thrown by a caller's callable: a VeltoError or platform error thrown as
  /// such is kept as it is; a std::exception becomes an error of `exceptionDomain`, code 1, with
  /// its what() text and its dynamic type under "type"; anything else code 2, "unknown exception".
  /// REQUIRES: `exception` is not null.
  [[nodiscard]] static std::shared_ptr<const VeltoPlatformError> fromException(std::exception_ptr exception);

 protected:
  VeltoPlatformError() = default;
  VeltoPlatformError(const VeltoPlatformError&) = default;
  VeltoPlatformError& operator=(const VeltoPlatformError&) = default;
};
