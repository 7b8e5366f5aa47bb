// VeltoEndpointOutcome<Payload>: how one request ended, as the endpoint hands it to its outcome
// callback: one of eight cases.
//
//   VeltoResult<void> show(VeltoEndpointBase<Query, Items>&, const VeltoEndpointOutcome<Items>& outcome, const Via&) {
//     using Outcome = VeltoEndpointOutcome<Items>;
//     if (const auto* success = outcome.getIf<Outcome::Success>()) render(success->payload);
//     else if (outcome.is<Outcome::ConnectivityError>()) showOfflineBanner();
//     return VeltoResultVoidSuccess;
//   }
#pragma once

#include <string_view>
#include <utility>
#include <variant>

#include <boost/describe/class.hpp>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoError.hpp"
#include "velto/networking/VeltoHttpStatusCode.hpp"

/// A tagged variant, cases in this order (the five with payloads first):
///   applicationError             the library's or the endpoint's own code failed (no body, an
///                                unknown status code, a parse failure, a premature failure)
///   nonConnectivityNetworkError  the transport failed for a reason other than connectivity
///   nonUserHttpError             the server answered with a code the user cannot act on
///                                (status code and body)
///   success                      a 2xx answer whose body parsed (status code and payload)
///   userError                    the server rejected the request as the user's error: 400
///                                (status code and body)
///   cancelled, connectivityError, unauthorized (403): no payload
/// Debug output names the case and labels its payload. Regular value type when Payload is.
/// Thread safety: as Payload.
template <class Payload>
class VeltoEndpointOutcome {
 public:
  struct ApplicationError {
    static constexpr std::string_view caseName = "applicationError";
    VeltoError error;
    BOOST_DESCRIBE_CLASS(ApplicationError, (), (error), (), ())
  };
  struct NonConnectivityNetworkError {
    static constexpr std::string_view caseName = "nonConnectivityNetworkError";
    VeltoError error;
    BOOST_DESCRIBE_CLASS(NonConnectivityNetworkError, (), (error), (), ())
  };
  struct NonUserHttpError {
    static constexpr std::string_view caseName = "nonUserHttpError";
    VeltoHttpStatusCode statusCode;
    VeltoData data;
    BOOST_DESCRIBE_CLASS(NonUserHttpError, (), (statusCode, data), (), ())
  };
  struct Success {
    static constexpr std::string_view caseName = "success";
    VeltoHttpStatusCode statusCode;
    Payload payload;
    BOOST_DESCRIBE_CLASS(Success, (), (statusCode, payload), (), ())
  };
  struct UserError {
    static constexpr std::string_view caseName = "userError";
    VeltoHttpStatusCode statusCode;
    VeltoData data;
    BOOST_DESCRIBE_CLASS(UserError, (), (statusCode, data), (), ())
  };
  struct Cancelled {
    static constexpr std::string_view caseName = "cancelled";
    BOOST_DESCRIBE_CLASS(Cancelled, (), (), (), ())
  };
  struct ConnectivityError {
    static constexpr std::string_view caseName = "connectivityError";
    BOOST_DESCRIBE_CLASS(ConnectivityError, (), (), (), ())
  };
  struct Unauthorized {
    static constexpr std::string_view caseName = "unauthorized";
    BOOST_DESCRIBE_CLASS(Unauthorized, (), (), (), ())
  };

  using Cases = std::variant<ApplicationError, NonConnectivityNetworkError, NonUserHttpError, Success, UserError,
                             Cancelled, ConnectivityError, Unauthorized>;

  [[nodiscard]] static VeltoEndpointOutcome applicationError(VeltoError error) {
    return VeltoEndpointOutcome(ApplicationError{std::move(error)});
  }
  [[nodiscard]] static VeltoEndpointOutcome nonConnectivityNetworkError(VeltoError error) {
    return VeltoEndpointOutcome(NonConnectivityNetworkError{std::move(error)});
  }
  [[nodiscard]] static VeltoEndpointOutcome nonUserHttpError(VeltoHttpStatusCode statusCode, VeltoData data) {
    return VeltoEndpointOutcome(NonUserHttpError{statusCode, std::move(data)});
  }
  [[nodiscard]] static VeltoEndpointOutcome success(VeltoHttpStatusCode statusCode, Payload payload) {
    return VeltoEndpointOutcome(Success{statusCode, std::move(payload)});
  }
  [[nodiscard]] static VeltoEndpointOutcome userError(VeltoHttpStatusCode statusCode, VeltoData data) {
    return VeltoEndpointOutcome(UserError{statusCode, std::move(data)});
  }
  [[nodiscard]] static VeltoEndpointOutcome cancelled() { return VeltoEndpointOutcome(Cancelled{}); }
  [[nodiscard]] static VeltoEndpointOutcome connectivityError() { return VeltoEndpointOutcome(ConnectivityError{}); }
  [[nodiscard]] static VeltoEndpointOutcome unauthorized() { return VeltoEndpointOutcome(Unauthorized{}); }

  [[nodiscard]] const Cases& cases() const noexcept { return cases_; }
  /// The case's name ("success", "nonUserHttpError", ...).
  [[nodiscard]] std::string_view caseName() const noexcept {
    return std::visit([](const auto& c) { return std::remove_cvref_t<decltype(c)>::caseName; }, cases_);
  }
  template <class Case>
  [[nodiscard]] bool is() const noexcept {
    return std::holds_alternative<Case>(cases_);
  }
  /// The case's payload when this is that case, else null.
  template <class Case>
  [[nodiscard]] const Case* getIf() const noexcept {
    return std::get_if<Case>(&cases_);
  }

 private:
  template <class Case>
  explicit VeltoEndpointOutcome(Case value) : cases_(std::move(value)) {}

  Cases cases_;
};
