// VeltoError: a failure as a value: message, when and where it arose (stack frames, innermost
// first), a unique identity, the impetus of the trail it last joined, and any underlying
// platform error.
//
//   VeltoError error("Key not found", {{"key", key}});                 // one frame: this line
//   error = error.appending(VeltoStackFrame({}, std::nullopt, VELTO_SITE("Cache", "get(key:)")));
//   error = error.appending(via);          // the trail's frames follow; impetus = the trail's
#pragma once

#include <boost/uuid/uuid.hpp>

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velto/core/VeltoImpetus.hpp"
#include "velto/core/VeltoPlatformError.hpp"
#include "velto/core/VeltoStackFrame.hpp"
#include "velto/core/VeltoVia.hpp"

/// A failure record. Regular value type; `appending` returns modified copies that keep the
/// message, time stamp, uuid and framework error, so every copy on the way out is the "same"
/// error (compare `uuid()`).
///
/// As a platform error object its domain is "VeltoError" (its type name), its code 1 and its
/// user information empty; its message is deliberately not mapped to the localized description.
/// Thread safety: immutable; copies may travel between threads.
class VeltoError final : public VeltoPlatformError {
 public:
  /// A new error with one frame (`args`, no invoker site, `site`), no impetus, the wall-clock
  /// time now and a new random (version 4) uuid.
  explicit VeltoError(std::string message, VeltoAny args = {},
                      std::shared_ptr<const VeltoPlatformError> frameworkError = nullptr,
                      VeltoCodeSite site = VeltoCodeSite::current());

  /// The platform error this failure wraps, when it wraps one.
  [[nodiscard]] const std::shared_ptr<const VeltoPlatformError>& frameworkError() const noexcept { return frameworkError_; }
  /// The impetus of the trail last joined by `appending(stackFramesFrom)`; none before that.
  [[nodiscard]] const std::optional<VeltoImpetus>& impetus() const noexcept { return impetus_; }
  [[nodiscard]] const std::string& message() const noexcept { return message_; }
  /// Seconds since 1970 at creation.
  [[nodiscard]] double timestampEpoch() const noexcept { return timestampEpoch_; }
  [[nodiscard]] const boost::uuids::uuid& uuid() const noexcept { return uuid_; }
  /// The uuid in canonical upper-case text (36 characters with hyphens).
  [[nodiscard]] std::string uuidString() const;
  /// Innermost first: the creating line's frame, then the frames added on the way out.
  [[nodiscard]] const std::vector<VeltoStackFrame>& stackFrames() const noexcept { return stackFrames_; }

  /// A copy with `stackFrame` added at the end.
  [[nodiscard]] VeltoError appending(VeltoStackFrame stackFrame) const;
  /// A copy with all of `via`'s frames added at the end, in their order, and `impetus` replaced
  /// by `via`'s impetus. REQUIRES: `via` is not null (fatal stop otherwise).
  [[nodiscard]] VeltoError appending(const std::shared_ptr<const VeltoVia>& stackFramesFrom) const;

  /// One line for people: the message, the innermost frame's site (the file's last path
  /// component, as in the debug JSON) and, once the error joined a trail, its impetus:
  ///   Disk full at Store.cpp:12 loadProfile(via:userId:) (impetus "User opened the profile screen")
  /// Control characters of the message and the impetus name are escaped ("\n", "\t", "\x1B"),
  /// so the text stays one line whatever they hold. The debug JSON is the full form. Also what
  /// `operator<<` writes and, with VeltoErrorFormatter.hpp, what fmt formats.
  [[nodiscard]] std::string summary() const;

  /// One line with every field, for places where the debug encoder itself failed.
  [[nodiscard]] std::string debugDump() const;

  [[nodiscard]] std::string domain() const override { return "VeltoError"; }
  [[nodiscard]] std::int64_t code() const override { return 1; }
  [[nodiscard]] std::string localizedDescription() const override;
  [[nodiscard]] const VeltoArgs& userInfo() const override;
  [[nodiscard]] std::shared_ptr<const VeltoPlatformError> underlyingError() const override { return nullptr; }

  /// Debug output of the fields in declaration order: "frameworkError", "impetus", "message",
  /// "timestampEpoch", "uuid", "stackFrames".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const override;

 private:
  std::shared_ptr<const VeltoPlatformError> frameworkError_;
  std::optional<VeltoImpetus> impetus_;
  std::string message_;
  double timestampEpoch_;
  boost::uuids::uuid uuid_;
  std::vector<VeltoStackFrame> stackFrames_;
};

/// Writes `error.summary()`.
std::ostream& operator<<(std::ostream& stream, const VeltoError& error);
