// VeltoInitializerError: the error a constructor raises when it refuses its arguments.
// The library offers it to clients (and uses it where a factory rejects a pointer buffer).
//
//   if (!baseAddress) return VeltoResult<Address>::fromMessage("bad", {}, std::make_shared<VeltoInitializerError>("..."));
#pragma once

#include <string>

#include "velto/core/VeltoPlatformError.hpp"

/// A platform error with one field, `message`. As an error object: domain "VeltoInitializerError"
/// (its type name), code 1, no user information; the message is not its localized description
/// (deliberately, as for VeltoError). Regular value type.
/// Thread safety: immutable.
class VeltoInitializerError final : public VeltoPlatformError {
 public:
  explicit VeltoInitializerError(std::string message) : message_(std::move(message)) {}

  [[nodiscard]] const std::string& message() const noexcept { return message_; }

  [[nodiscard]] std::string domain() const override;
  [[nodiscard]] std::int64_t code() const override { return 1; }
  [[nodiscard]] std::string localizedDescription() const override;
  [[nodiscard]] const VeltoArgs& userInfo() const override;
  [[nodiscard]] std::shared_ptr<const VeltoPlatformError> underlyingError() const override { return nullptr; }
  /// Debug output: "message".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const override;

  [[nodiscard]] friend bool operator==(const VeltoInitializerError& lhs, const VeltoInitializerError& rhs) noexcept {
    return lhs.message_ == rhs.message_;
  }

 private:
  std::string message_;
};
