// VeltoHttpAuthorization: how a request is authorised: the value of its "Authorization" header.
//
//   auto authorization = VeltoHttpAuthorization::bearer(session.token());
//   authorization.headerValue();        // "Bearer " followed by the token, unchanged
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <boost/describe/class.hpp>

#include "velto/encoding/VeltoSensitiveString.hpp"

/// A tagged variant with the one case `bearer` (payload: the token). The token is a secret: it
/// is held as a VeltoSensitiveString, so debug dumps that obfuscate sensitive content hide it.
/// Regular value type. Thread safety: immutable.
class VeltoHttpAuthorization {
 public:
  struct Bearer {
    static constexpr std::string_view caseName = "bearer";
    VeltoSensitiveString token;
    friend bool operator==(const Bearer&, const Bearer&) = default;
    BOOST_DESCRIBE_CLASS(Bearer, (), (token), (), ())
  };

  /// Bearer authorization with `token`, taken as it is: not trimmed, escaped or validated.
  [[nodiscard]] static VeltoHttpAuthorization bearer(std::string token) {
    return VeltoHttpAuthorization(Bearer{VeltoSensitiveString(std::move(token))});
  }

  [[nodiscard]] const std::variant<Bearer>& cases() const noexcept { return cases_; }

  /// The full header value: "Bearer " and the token (an empty token leaves the trailing space).
  [[nodiscard]] std::string headerValue() const { return "Bearer " + std::get<Bearer>(cases_).token.raw(); }

  friend bool operator==(const VeltoHttpAuthorization&, const VeltoHttpAuthorization&) = default;

 private:
  explicit VeltoHttpAuthorization(Bearer bearer) : cases_(std::move(bearer)) {}

  std::variant<Bearer> cases_;
};
