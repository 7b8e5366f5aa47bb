#include "velto/concurrency/VeltoSerialQueue.hpp"

#include "velto/detail/Fatal.hpp"

using velto::detail::kSerialQueueFile;

VeltoSerialQueue::VeltoSerialQueue(std::string label, std::shared_ptr<VeltoLogging> logger,
                                   VeltoQualityOfService qualityOfService)
    : logger_(std::move(logger)), queue_(VeltoDispatchQueue::createSerial(std::move(label), qualityOfService)) {
  if (!logger_) velto::detail::fatalStop("VeltoSerialQueue: logger is null");
}

VeltoResult<void> VeltoSerialQueue::ensureOnQueue() const {
  if (queue_->isCurrent()) return VeltoResultVoidSuccess;
  return VeltoResult<void>::fromMessage("should be on serial queue", {}, nullptr,
                                        VELTO_SITE(kSerialQueueFile, "ensureOnQueue()"));
}

VeltoResult<void> VeltoSerialQueue::ensureOffQueue() const {
  if (!queue_->isCurrent()) return VeltoResultVoidSuccess;
  return VeltoResult<void>::fromMessage("should NOT be on serial queue", {}, nullptr,
                                        VELTO_SITE(kSerialQueueFile, "ensureOffQueue()"));
}
