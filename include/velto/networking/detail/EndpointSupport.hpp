// The non-template parts of VeltoEndpointBase: identifiers and the classification rules.
#pragma once

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <memory>

#include "velto/core/VeltoPlatformError.hpp"

namespace velto::detail {

inline constexpr char kEndpointBaseFile[] = "Networking/VeltoEndpointBase";

/// A fresh random (version 4) UUID.
[[nodiscard]] boost::uuids::uuid randomCorrelationID();

/// The error at the end of `error`'s chain of underlying errors (`error` itself when it has
/// none). Only a hand-written error type can make a chain that never ends: one that comes back
/// to an error already passed ends at the error before the repeat, and any chain ends after
/// 65,536 links, so the walk always stops. REQUIRES: `error` is not null.
[[nodiscard]] std::shared_ptr<const VeltoPlatformError> innermostError(std::shared_ptr<const VeltoPlatformError> error);

/// Whether `code` is one of the URL-loading codes that mean the server could not be reached:
/// -1001 timed out, -1003 host not found, -1004 cannot connect, -1005 connection lost, -1006
/// name lookup failed, -1007 too many redirects, -1008 resource unavailable, -1009 not
/// connected, -1018 roaming off, -1020 data not allowed.
[[nodiscard]] bool isConnectivityCode(std::int64_t code) noexcept;

enum class TransportErrorClass { connectivity, cancelled, other };

/// Connectivity when the innermost error's code is a connectivity code, whatever its domain;
/// else cancelled when the outermost error is the URL-loading domain's -999; else other.
/// REQUIRES: `error` is not null.
[[nodiscard]] TransportErrorClass classifyTransportError(const std::shared_ptr<const VeltoPlatformError>& error);

}  // namespace velto::detail
