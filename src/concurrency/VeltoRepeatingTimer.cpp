#include "velto/concurrency/VeltoRepeatingTimer.hpp"

#include "velto/concurrency/VeltoDispatchQueueVia.hpp"
#include "velto/core/VeltoImpetus.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/dispatch/VeltoDispatchTimer.hpp"

namespace {
constexpr char kFile[] = "VeltoRepeatingTimer";
}  // namespace

VeltoRepeatingTimer::VeltoRepeatingTimer(Handler handler, std::shared_ptr<VeltoLogging> logger, double resumeInterval,
                                         double repeatInterval)
    : handler_(std::move(handler)),
      logger_(std::move(logger)),
      resumeInterval_(resumeInterval),
      repeatInterval_(repeatInterval) {
  if (!logger_) velto::detail::fatalStop("VeltoRepeatingTimer: logger is null");
}

VeltoRepeatingTimer::~VeltoRepeatingTimer() {
  if (timer_) {
    timer_->setEventHandler(nullptr);
    timer_->cancel();
  }
}

void VeltoRepeatingTimer::resume() {
  if (!timer_) {
    timer_ = VeltoDispatchTimer::create();
    timer_->schedule(velto::detail::deadlineAfterSeconds(resumeInterval_),
                     velto::detail::durationFromSeconds(repeatInterval_));
    timer_->setEventHandler([weakSelf = weak_from_this()] {
      auto impetus = VeltoImpetus::create("Repeatig timer fired", {}, VELTO_SITE(kFile, "resume()"));
      if (auto self = weakSelf.lock()) self->fire(std::move(impetus));
    });
  }
  if (isSuspended_) {
    isSuspended_ = false;
    timer_->resume();
  }
}

void VeltoRepeatingTimer::suspend() {
  if (!isSuspended_ && timer_) {
    isSuspended_ = true;
    timer_->suspend();
  }
}

std::shared_ptr<VeltoLogging> VeltoRepeatingTimer::logger() const {
  return loggerLock_.protected_([this] { return logger_; });
}

void VeltoRepeatingTimer::setLogger(std::shared_ptr<VeltoLogging> logger) {
  if (!logger) velto::detail::fatalStop("VeltoRepeatingTimer: logger is null");
  // The old logger is released outside the lock: its destructor may do anything.
  loggerLock_.protected_([&] { logger_.swap(logger); });
}

void VeltoRepeatingTimer::fire(const std::shared_ptr<const VeltoVia>& impetus) {
  const VeltoResult<void> result = handler_(impetus);
  if (const VeltoError* error = result.errorIfPresent()) logger()->logError(*error, impetus);
}
