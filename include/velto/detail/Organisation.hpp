// The organisation's reverse-domain prefix that starts every queue and session label the library
// makes ("dev.velto.velto.serial-queue.event-bus.int.<UUID>"). Defined once, here.
#pragma once

namespace velto::detail {

inline constexpr char kOrganisationPrefix[] = "dev.velto";

}  // namespace velto::detail
