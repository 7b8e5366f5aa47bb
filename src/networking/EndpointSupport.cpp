#include "velto/networking/detail/EndpointSupport.hpp"

#include <boost/uuid/random_generator.hpp>

namespace velto::detail {

boost::uuids::uuid randomCorrelationID() {
  thread_local boost::uuids::random_generator generator;
  return generator();
}

// Floyd's check: `slow` follows at half speed, so a chain that loops meets it in linear time.
std::shared_ptr<const VeltoPlatformError> innermostError(std::shared_ptr<const VeltoPlatformError> error) {
  constexpr std::size_t kMaxLinks = 65'536;
  std::shared_ptr<const VeltoPlatformError> slow = error;
  bool advanceSlow = false;
  for (std::size_t links = 0; links < kMaxLinks; ++links) {
    auto next = error->underlyingError();
    if (!next || next == slow) return error;
    error = std::move(next);
    if (advanceSlow) slow = slow->underlyingError();
    advanceSlow = !advanceSlow;
  }
  return error;
}

bool isConnectivityCode(std::int64_t code) noexcept {
  switch (code) {
    case -1001:
    case -1003:
    case -1004:
    case -1005:
    case -1006:
    case -1007:
    case -1008:
    case -1009:
    case -1018:
    case -1020: return true;
    default: return false;
  }
}

TransportErrorClass classifyTransportError(const std::shared_ptr<const VeltoPlatformError>& error) {
  // The innermost error's domain is deliberately not examined: any domain's connectivity code counts.
  if (isConnectivityCode(innermostError(error)->code())) return TransportErrorClass::connectivity;
  if (error->code() == -999 && error->domain() == VeltoPlatformError::urlErrorDomain) return TransportErrorClass::cancelled;
  return TransportErrorClass::other;
}

}  // namespace velto::detail
