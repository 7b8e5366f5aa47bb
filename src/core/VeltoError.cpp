#include "velto/core/VeltoError.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ostream>

#include "velto/detail/Clock.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/UuidText.hpp"

namespace {

boost::uuids::uuid newRandomUuid() {
  // One generator per thread: boost's generators are not thread-safe.
  thread_local boost::uuids::random_generator generator;
  return generator();
}

void appendSite(std::string& out, const VeltoCodeSite& site) {
  out.append(site.fileName()).append(":").append(std::to_string(site.lineNumber())).append(" ").append(site.functionName());
}

void appendFrame(std::string& out, const VeltoStackFrame& frame) {
  out.append("{");
  appendSite(out, frame.codeSite());
  if (frame.invokerSite()) {
    out.append(" invoked from ");
    appendSite(out, *frame.invokerSite());
  }
  if (frame.args()) out.append(" args: ").append(frame.args().typeName());
  out.append("}");
}

// Copies `text`, escaping what would break a line: control characters and DEL.
void appendOnOneLine(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      out.push_back(c);
    } else if (c == '\n') {
      out.append("\\n");
    } else if (c == '\r') {
      out.append("\\r");
    } else if (c == '\t') {
      out.append("\\t");
    } else {
      out.append("\\x").push_back(kHex[byte >> 4]);
      out.push_back(kHex[byte & 0xF]);
    }
  }
}

std::string formatDouble(double value) {
  char buffer[64];
  const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return ec == std::errc() ? std::string(buffer, end) : std::string("?");
}

}  // namespace

VeltoError::VeltoError(std::string message, VeltoAny args, std::shared_ptr<const VeltoPlatformError> frameworkError,
                       VeltoCodeSite site)
    : frameworkError_(std::move(frameworkError)),
      message_(std::move(message)),
      timestampEpoch_(velto::detail::wallClockEpochSeconds()),
      uuid_(newRandomUuid()),
      stackFrames_{VeltoStackFrame(std::move(args), std::nullopt, site)} {}

std::string VeltoError::uuidString() const { return velto::detail::uuidText(uuid_); }

namespace velto::detail {

std::string uuidText(const boost::uuids::uuid& uuid) {
  std::string text = boost::uuids::to_string(uuid);
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace velto::detail

VeltoError VeltoError::appending(VeltoStackFrame stackFrame) const {
  VeltoError copy = *this;
  copy.stackFrames_.push_back(std::move(stackFrame));
  return copy;
}

VeltoError VeltoError::appending(const std::shared_ptr<const VeltoVia>& stackFramesFrom) const {
  if (!stackFramesFrom) velto::detail::fatalStop("VeltoError::appending: the trail is null");
  VeltoError copy = *this;
  std::vector<VeltoStackFrame> frames = stackFramesFrom->stackFrames();
  copy.stackFrames_.insert(copy.stackFrames_.end(), std::make_move_iterator(frames.begin()),
                           std::make_move_iterator(frames.end()));
  copy.impetus_ = stackFramesFrom->impetus();
  return copy;
}

std::string VeltoError::localizedDescription() const {
  return "The operation couldn\u2019t be completed. (VeltoError error 1.)";
}

const VeltoArgs& VeltoError::userInfo() const {
  static const VeltoArgs empty;
  return empty;
}

std::string VeltoError::summary() const {
  std::string out;
  appendOnOneLine(out, message_);
  if (!stackFrames_.empty()) {
    const VeltoCodeSite& site = stackFrames_.front().codeSite();
    out.append(" at ");
    appendOnOneLine(out, VeltoCodeSite::sanitized(site.fileName()).value_or(""));
    out.append(":").append(std::to_string(site.lineNumber())).append(" ");
    appendOnOneLine(out, site.functionName());
  }
  if (impetus_) {
    out.append(" (impetus \"");
    appendOnOneLine(out, impetus_->name());
    out.append("\")");
  }
  return out;
}

std::ostream& operator<<(std::ostream& stream, const VeltoError& error) { return stream << error.summary(); }

std::string VeltoError::debugDump() const {
  std::string out = "VeltoError(message: \"";
  out.append(message_).append("\", uuid: ").append(uuidString());
  out.append(", timestampEpoch: ").append(formatDouble(timestampEpoch_));
  out.append(", stackFrames: [");
  for (std::size_t i = 0; i < stackFrames_.size(); ++i) {
    if (i > 0) out.append(", ");
    appendFrame(out, stackFrames_[i]);
  }
  out.append("], impetus: ");
  if (impetus_) {
    out.append("\"").append(impetus_->name()).append("\" at ").append(formatDouble(impetus_->timestampEpoch()));
  } else {
    out.append("none");
  }
  out.append(", frameworkError: ");
  if (frameworkError_) {
    out.append(frameworkError_->domain()).append(" ").append(std::to_string(frameworkError_->code())).append(" \"");
    out.append(frameworkError_->localizedDescription()).append("\"");
  } else {
    out.append("none");
  }
  out.append(")");
  return out;
}
