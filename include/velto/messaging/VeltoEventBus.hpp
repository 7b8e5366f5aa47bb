// VeltoEventBus: delivers events of one type, one at a time and in order, to weakly held
// observers on a private serial queue.
//
//   auto bus = VeltoEventBus<CartEvent>::create(logger);
//   // The callback must not own its observer: capture it weakly (see examples/).
//   bus->beginRegister(screen, [weak = std::weak_ptr(screen)](const CartEvent& event,
//                                                             const std::optional<CartEvent>& previous,
//                                                             const std::shared_ptr<const VeltoVia>& via) {
//     if (auto screen = weak.lock()) return screen->show(event, via);
//     return VeltoResultVoidSuccess;
//   }, via);
//   bus->beginPublish(CartEvent::itemAdded, via);          // returns at once
//   VeltoObservation scoped = bus->observe(other, callback, via);   // deregisters when it goes
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "velto/concurrency/VeltoSerialQueue.hpp"
#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/TypeName.hpp"
#include "velto/dispatch/VeltoQualityOfService.hpp"
#include "velto/messaging/VeltoObservation.hpp"
#include "velto/messaging/detail/Observers.hpp"

namespace velto::detail {
inline constexpr char kEventBusFile[] = "Event Bus/VeltoEventBus";
}  // namespace velto::detail

/// Broadcasts events of type E to registered observers. Every operation hops onto the bus's own
/// VeltoSerialQueue (labelled "<prefix>.velto.serial-queue.event-bus.<E>.<UUID>"); the state it
/// guards (the observer list and `mostRecent`) changes only there, in the order the begin
/// operations were called. Created by `create`, held by `std::shared_ptr`.
///
/// Observers: any object held by `std::shared_ptr`. The bus keeps only a weak pointer and the
/// complete object's address, so a base and a derived pointer to one object are one observer.
/// The callback is held strongly: it must not capture its observer strongly, or the observer
/// never dies (capture a `std::weak_ptr` instead). An observer that dies without deregistering
/// is a zombie: the next publication reports it with the warning "Encountered zombie
/// observers" and drops it.
///
/// Delivery: each observer gets the event, the event delivered before it (none at first) and
/// the publication's trail, in registration order, on the bus's queue. A failing callback stops
/// the delivery of that event: later observers are skipped, `mostRecent` keeps the older event,
/// and the failure reaches the logger with the args "event" and "observerType".
///
/// Cost: a bus holds one idle serial queue (no thread). A publication costs eight allocations
/// (four trail forks, three for the recorded "event" argument, the queued work) plus one call
/// per observer; only the queued work is allocated on the publishing thread, the rest is made
/// and released on the bus's queue, and a liveness check of every registration (the zombie sweep). Registering and
/// deregistering cost O(1) on average however many observers there are.
/// Lifetime: queued work holds the bus, so work pending when the last outside holder lets go
/// still runs, in order; the bus is destroyed after it, on a pool thread.
/// Thread safety: the begin operations and `observe` may be called from any thread,
/// concurrently. Callbacks run on the bus's queue, one at a time, and must not `sync` onto it;
/// a begin operation called from a callback runs after the current publication.
template <class E>
class VeltoEventBus : public std::enable_shared_from_this<VeltoEventBus<E>> {
  static_assert(std::is_copy_constructible_v<E> && std::is_copy_assignable_v<E>,
                "an event is kept as mostRecent and recorded in the trail: E must be copyable");
  struct Token {};

 public:
  using Via = std::shared_ptr<const VeltoVia>;
  using CallbackWrapper = velto::detail::CallbackWrapper<E>;
  /// (the new event, the event delivered before it, the publication's trail) -> success or failure.
  using Callback = typename CallbackWrapper::Closure;

  /// A bus with no observers and no `mostRecent`, reporting to `logger`.
  /// REQUIRES: `logger` is not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoEventBus> create(std::shared_ptr<VeltoLogging> logger) {
    return std::make_shared<VeltoEventBus>(Token{}, std::move(logger));
  }

  VeltoEventBus(Token, std::shared_ptr<VeltoLogging> logger)
      : serialQueue_(VeltoSerialQueue::create(
            velto::detail::messagingQueueLabel("event-bus", velto::detail::typeName<E>()), std::move(logger), VeltoQualityOfService::unspecified)) {}
  VeltoEventBus(const VeltoEventBus&) = delete;
  VeltoEventBus& operator=(const VeltoEventBus&) = delete;

  /// Appends a registration of `observer` with `callback`; returns at once. The observer sees
  /// only events published after the registration runs (never the current `mostRecent`).
  /// Registering an observer that is already registered logs the warning "Already registered as
  /// an observer" (args "observerType") and registers it again, so it is called twice per event:
  /// deliberate, kept. An observer that dies before its registration runs becomes a zombie.
  /// REQUIRES: `observer`, `callback` and `via` are not null (fatal stop otherwise).
  template <class T, class F>
  void beginRegister(const std::shared_ptr<T>& observer, F&& callback, Via via,
                     VeltoCodeSite site = VeltoCodeSite::current()) {
    using velto::detail::kEventBusFile;
    auto wrapper = velto::detail::makeCallbackWrapper<E>(observer, std::forward<F>(callback), "VeltoEventBus");
    serialQueue_->asyncForking(std::move(via), site, VELTO_SITE(kEventBusFile, "beginRegister(observer:callback:via:)"),
                               [self = this->shared_from_this(), wrapper = std::move(wrapper)](const Via& trail) {
                                 return self->registerOnQueue(wrapper, trail);
                               });
  }

  /// As `beginRegister`, returning a handle that deregisters `observer` (with this trail) when it
  /// is destroyed or reset. The handle holds the bus weakly.
  template <class T, class F>
  [[nodiscard]] VeltoObservation observe(const std::shared_ptr<T>& observer, F&& callback, Via via,
                                         VeltoCodeSite site = VeltoCodeSite::current()) {
    beginRegister(observer, std::forward<F>(callback), via, site);
    return VeltoObservation(
        [bus = this->weak_from_this(), key = velto::detail::observerKeyOf(observer, "VeltoEventBus"),
         via = std::move(via), site] {
          if (auto self = bus.lock()) self->beginDeregisterKey(key, via, site);
        });
  }

  /// Removes every registration of `observer`; returns at once. Unknown observers are a silent
  /// success. Holds the observer weakly meanwhile: it still matches if it dies before this runs.
  /// REQUIRES: `observer` and `via` are not null (fatal stop otherwise).
  template <class T>
  void beginDeregister(const std::shared_ptr<T>& observer, Via via, VeltoCodeSite site = VeltoCodeSite::current()) {
    beginDeregisterKey(velto::detail::observerKeyOf(observer, "VeltoEventBus"), std::move(via), site);
  }

  /// Removes every registration; returns at once.
  void beginDeregisterAllObservers() {
    serialQueue_->async([self = this->shared_from_this()] { self->observers_ = std::make_shared<Observers>(); });
  }

  /// Publishes `event` to the observers registered when its turn comes; returns at once. A
  /// failure goes to the bus's logger (see `publish`).
  /// REQUIRES: `via` is not null (fatal stop otherwise).
  void beginPublish(E event, Via via, VeltoCodeSite site = VeltoCodeSite::current()) {
    serialQueue_->asyncForking(std::move(via), site, VELTO_SITE(velto::detail::kEventBusFile, "beginPublish(event:via:)"),
                               [self = this->shared_from_this(), event = std::move(event)](const Via& trail) {
                                 return self->publish(event, trail);
                               });
  }

  /// The delivery step behind `beginPublish`; call it only from the bus's queue. Off the queue it
  /// changes nothing and fails with "should be on serial queue" (one frame, args "event").
  /// Sweeps zombies (one warning listing their types), then calls every observer in order; the
  /// first failure is returned with one frame added (args "event", "observerType"), leaving
  /// `mostRecent` unchanged. On success `mostRecent` becomes `event`.
  [[nodiscard]] VeltoResult<void> publish(const E& event, const Via& via) {
    using velto::detail::kEventBusFile;
    const VeltoAny eventArg(event);
    const Via junction = fork(via, {{"event", eventArg}}, std::nullopt, VELTO_SITE(kEventBusFile, "publish(event:via:)"));
    if (VeltoResult<void> onQueue = serialQueue_->ensureOnQueue(); onQueue.isFailure()) {
      return VeltoResult<void>::fromError(onQueue.error(), {{"event", eventArg}},
                                          VELTO_SITE(kEventBusFile, "publish(event:via:)"));
    }
    sweepZombies(junction);
    // A snapshot: a callback that publishes re-entrantly cannot change the list under this loop.
    const std::shared_ptr<const Observers> snapshot = observers_;
    const std::optional<E> previous = mostRecent_;
    for (const CallbackWrapper& wrapper : snapshot->entries()) {
      if (Observers::isRemoved(wrapper)) continue;
      VeltoResult<void> delivered = wrapper.closure(event, previous, junction);
      if (delivered.isFailure()) {
        return VeltoResult<void>::fromError(delivered.error(),
                                            {{"event", eventArg}, {"observerType", wrapper.keyObjectTypeName()}},
                                            VELTO_SITE(kEventBusFile, "publish(event:via:)"));
      }
    }
    mostRecent_ = event;
    return VeltoResultVoidSuccess;
  }

  /// The last event delivered to all observers; none before the first. Read it on the bus's
  /// queue (from a callback); elsewhere it would race with publications.
  /// REQUIRES: the caller runs on the bus's queue (fatal stop otherwise).
  [[nodiscard]] const std::optional<E>& mostRecent() const {
    requireOnQueue("mostRecent");
    return mostRecent_;
  }

  /// The number of registrations, zombies included until the next publication sweeps them.
  /// REQUIRES: the caller runs on the bus's queue (fatal stop otherwise).
  [[nodiscard]] std::size_t observerCount() const {
    requireOnQueue("observerCount");
    return observers_->size();
  }

  /// The bus's queue (for its label, `ensureOnQueue`, or to run work in line with the bus's own).
  [[nodiscard]] const std::shared_ptr<VeltoSerialQueue>& serialQueue() const noexcept { return serialQueue_; }
  [[nodiscard]] const std::shared_ptr<VeltoLogging>& logger() const noexcept { return serialQueue_->logger(); }

 private:
  using Observers = velto::detail::ObserverList<E>;

  void requireOnQueue(const char* what) const {
    if (serialQueue_->ensureOnQueue().isFailure()) {
      velto::detail::fatalStop(std::string("VeltoEventBus::") + what + " read off the bus's queue");
    }
  }

  // The list to change in place, copied first only while a delivery loop holds a snapshot.
  Observers& mutableObservers() {
    if (observers_.use_count() > 1) observers_ = std::make_shared<Observers>(*observers_);
    return *observers_;
  }

  void beginDeregisterKey(velto::detail::ObserverKey key, Via via, VeltoCodeSite site) {
    serialQueue_->asyncForking(std::move(via), site,
                               VELTO_SITE(velto::detail::kEventBusFile, "beginDeregister(observer:via:)"),
                               [self = this->shared_from_this(), key = std::move(key)] {
                                 self->mutableObservers().removeAll(key);
                                 return VeltoResultVoidSuccess;
                               });
  }

  VeltoResult<void> registerOnQueue(const CallbackWrapper& wrapper, const Via& via) {
    if (observers_->contains(wrapper.keyObject)) {
      logger()->logWarning(VeltoError("Already registered as an observer", {{"observerType", wrapper.keyObjectTypeName()}},
                                      nullptr,
                                      VELTO_SITE(velto::detail::kEventBusFile, "beginRegister(observer:callback:via:)")),
                           via);
    }
    mutableObservers().append(wrapper);
    return VeltoResultVoidSuccess;
  }

  void sweepZombies(const Via& via) {
    if (!observers_->hasZombies()) return;
    std::vector<std::string> zombieTypes = mutableObservers().sweepZombies();
    logger()->logWarning(VeltoError("Encountered zombie observers", {{"zombieObserverTypes", std::move(zombieTypes)}},
                                    nullptr, VELTO_SITE(velto::detail::kEventBusFile, "publish(event:via:)")),
                         via);
  }

  std::shared_ptr<VeltoSerialQueue> serialQueue_;
  // Confined to the bus's queue. Shared only with a running delivery loop's snapshot.
  std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
  std::optional<E> mostRecent_;
};
