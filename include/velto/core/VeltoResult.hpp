// VeltoResult<T>: the outcome of every fallible operation: a value of T or a VeltoError.
// VeltoResult<void> succeeds without a value (`VeltoResultVoidSuccess`).
//
//   VeltoResult<int> parse(std::string_view text) {
//     if (text.empty()) return VeltoResult<int>::fromMessage("Empty text");   // new failure, this line
//     return 42;                                                             // a value
//   }
//   VeltoResult<int> load(std::string_view text) {
//     auto parsed = parse(text);
//     if (!parsed) return VeltoResult<int>::fromError(parsed.error());       // passed outward, one frame more
//     return parsed.value() + 1;
//   }
//
// There are no mapping or chaining operations: callers inspect the case directly.
#pragma once

#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "velto/core/VeltoError.hpp"
#include "velto/detail/Fatal.hpp"

/// A value of T or a failure. Regular value type when T is. Thread safety: as T.
template <class T>
class [[nodiscard]] VeltoResult {
  static_assert(!std::is_same_v<T, VeltoError>, "a VeltoResult of a VeltoError is ambiguous");
  static_assert(!std::is_reference_v<T>, "hold references through pointers or std::reference_wrapper");

 public:
  using value_type = T;

  /// The value case.
  VeltoResult(T value) : storage_(std::in_place_index<0>, std::move(value)) {}  // NOLINT(google-explicit-constructor)

  /// The failure case holding `error` unchanged.
  [[nodiscard]] static VeltoResult failure(VeltoError error) { return VeltoResult(std::move(error), 0); }

  /// The failure case holding a new error made with these arguments (see VeltoError).
  [[nodiscard]] static VeltoResult fromMessage(std::string message, VeltoAny args = {},
                                               std::shared_ptr<const VeltoPlatformError> frameworkError = nullptr,
                                               VeltoCodeSite site = VeltoCodeSite::current()) {
    return failure(VeltoError(std::move(message), std::move(args), std::move(frameworkError), site));
  }

  /// Passes a callee's failure outward: `error` with one frame added (`args`, no invoker site,
  /// `site`, the current line by default).
  [[nodiscard]] static VeltoResult fromError(const VeltoError& error, VeltoAny args = {},
                                             VeltoCodeSite site = VeltoCodeSite::current()) {
    return failure(error.appending(VeltoStackFrame(std::move(args), std::nullopt, site)));
  }

  [[nodiscard]] bool hasValue() const noexcept { return storage_.index() == 0; }
  [[nodiscard]] bool isFailure() const noexcept { return storage_.index() == 1; }
  [[nodiscard]] explicit operator bool() const noexcept { return hasValue(); }

  /// REQUIRES: hasValue() (fatal stop otherwise).
  [[nodiscard]] const T& value() const& {
    if (!hasValue()) velto::detail::fatalStop("VeltoResult::value() called on a failure");
    return *std::get_if<0>(&storage_);
  }
  [[nodiscard]] T& value() & {
    if (!hasValue()) velto::detail::fatalStop("VeltoResult::value() called on a failure");
    return *std::get_if<0>(&storage_);
  }
  [[nodiscard]] T&& value() && { return std::move(value()); }

  /// REQUIRES: isFailure() (fatal stop otherwise).
  [[nodiscard]] const VeltoError& error() const {
    if (!isFailure()) velto::detail::fatalStop("VeltoResult::error() called on a value");
    return *std::get_if<1>(&storage_);
  }

  /// The value, or null for a failure.
  [[nodiscard]] const T* valueIfPresent() const noexcept { return std::get_if<0>(&storage_); }
  /// The error, or null for a value.
  [[nodiscard]] const VeltoError* errorIfPresent() const noexcept { return std::get_if<1>(&storage_); }

 private:
  VeltoResult(VeltoError error, int) : storage_(std::in_place_index<1>, std::move(error)) {}

  std::variant<T, VeltoError> storage_;
};

/// Success without a value, or a failure.
template <>
class [[nodiscard]] VeltoResult<void> {
 public:
  using value_type = void;

  /// Success (the same as VeltoResultVoidSuccess).
  constexpr VeltoResult() noexcept = default;

  [[nodiscard]] static VeltoResult failure(VeltoError error) {
    VeltoResult result;
    result.error_.emplace(std::move(error));
    return result;
  }
  [[nodiscard]] static VeltoResult fromMessage(std::string message, VeltoAny args = {},
                                               std::shared_ptr<const VeltoPlatformError> frameworkError = nullptr,
                                               VeltoCodeSite site = VeltoCodeSite::current()) {
    return failure(VeltoError(std::move(message), std::move(args), std::move(frameworkError), site));
  }
  [[nodiscard]] static VeltoResult fromError(const VeltoError& error, VeltoAny args = {},
                                             VeltoCodeSite site = VeltoCodeSite::current()) {
    return failure(error.appending(VeltoStackFrame(std::move(args), std::nullopt, site)));
  }

  [[nodiscard]] bool hasValue() const noexcept { return !error_.has_value(); }
  [[nodiscard]] bool isFailure() const noexcept { return error_.has_value(); }
  [[nodiscard]] explicit operator bool() const noexcept { return hasValue(); }

  /// REQUIRES: isFailure() (fatal stop otherwise).
  [[nodiscard]] const VeltoError& error() const {
    if (!isFailure()) velto::detail::fatalStop("VeltoResult::error() called on a success");
    return *error_;
  }
  [[nodiscard]] const VeltoError* errorIfPresent() const noexcept { return error_ ? &*error_ : nullptr; }

 private:
  std::optional<VeltoError> error_;
};

/// The shared success without a value.
inline constinit const VeltoResult<void> VeltoResultVoidSuccess{};
