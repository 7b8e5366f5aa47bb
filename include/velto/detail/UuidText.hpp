// Identifiers as the library prints them: canonical text in upper case.
#pragma once

#include <boost/uuid/uuid.hpp>

#include <string>

namespace velto::detail {

/// The 36-character canonical form with hyphens, upper case (e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F").
[[nodiscard]] std::string uuidText(const boost::uuids::uuid& uuid);

}  // namespace velto::detail
