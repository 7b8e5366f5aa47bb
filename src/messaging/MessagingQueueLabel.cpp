#include "velto/messaging/detail/Observers.hpp"

#include <boost/uuid/random_generator.hpp>

#include "velto/detail/Organisation.hpp"
#include "velto/detail/UuidText.hpp"

namespace velto::detail {

std::string messagingQueueLabel(std::string_view kind, std::string_view typeName) {
  thread_local boost::uuids::random_generator generator;
  std::string label(kOrganisationPrefix);
  label += ".velto.serial-queue.";
  label += kind;
  label += '.';
  label += typeName;
  label += '.';
  label += uuidText(generator());
  return label;
}

}  // namespace velto::detail
