// VeltoStateMachine: one piece of state with observers, on a private serial queue, and an
// optional producer that computes new states on request, guarded by a time-out.
//
//   auto session = VeltoStateMachine<Session>::create(Session::signedOut(), logger,
//       [api](const auto& via, auto completion) {             // runs on the global queue
//         return api->refresh(via, [completion](Session s, const auto& via) { completion(s, via); });
//       },
//       /*requestProductionTimeout=*/30.0);
//   session->beginRegister(screen, callback, via);           // called at once with the current state
//   session->beginRequestProduction(via);                    // no-op while a request is outstanding
//   session->begin(via, [](const Session& now, const auto& publish, const auto& via) {
//     return now.expired() ? publish(Session::signedOut(), via) : VeltoResultVoidSuccess;
//   });
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "velto/concurrency/VeltoDispatchQueueVia.hpp"
#include "velto/concurrency/VeltoSerialQueue.hpp"
#include "velto/core/VeltoAny.hpp"
#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoLogging.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/Clock.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/TypeName.hpp"
#include "velto/dispatch/VeltoDispatchQueue.hpp"
#include "velto/dispatch/VeltoQualityOfService.hpp"
#include "velto/messaging/VeltoObservation.hpp"
#include "velto/messaging/detail/Observers.hpp"

namespace velto::detail {
inline constexpr char kStateMachineFile[] = "State Machine/VeltoStateMachine";
}  // namespace velto::detail

/// Holds the current state S (`mostRecent`), hands it to every observer at registration and
/// every new state to all observers, in registration order, on the machine's own
/// VeltoSerialQueue (labelled "<prefix>.velto.serial-queue.state-machine.<S>.<UUID>"). Created
/// by `create`, held by `std::shared_ptr`.
///
/// Observers: as on VeltoEventBus (weakly held, identity by complete object; the callback is
/// held strongly and must not capture its observer strongly). Unlike the bus, the machine drops
/// dead observers silently, registers duplicates without a warning, and records a new state
/// before delivering it, so after a failing observer `mostRecent` is already the new state.
/// All of these differences are deliberate and kept.
///
/// Production: `beginRequestProduction` asks the producer for a new state unless a request made
/// less than `requestProductionTimeout` seconds ago (inclusive) is still outstanding. The
/// producer runs on the global queue of default quality of service and delivers through its
/// completion, which publishes like `beginPublish`. Any publication ends the outstanding
/// request. Time is read from the clock given at creation (default: the wall clock, seconds
/// since 1970), so a wall-clock change moves time-outs. A machine made without a producer
/// ignores production requests (they do nothing and succeed).
///
/// Reading the state: `mostRecent()` only on the machine's queue (inside callbacks and
/// `begin` closures). Elsewhere, read it in `begin(via, ...)` or with a synchronous hop:
/// `machine->serialQueue()->sync([&] { return machine->mostRecent(); })`.
/// Lifetime: queued work holds the machine, so work pending when the last outside holder lets go
/// still runs, in order. A producer's completion holds the machine weakly: a state it delivers
/// after the machine is gone is dropped.
/// Thread safety: every operation may be called from any thread except where marked; callbacks
/// and `begin` closures run on the machine's queue, one at a time, and must not `sync` onto it.
template <class S>
class VeltoStateMachine : public std::enable_shared_from_this<VeltoStateMachine<S>> {
  static_assert(std::is_copy_constructible_v<S> && std::is_copy_assignable_v<S>,
                "a state is kept as mostRecent, handed to observers and recorded in the trail: S must be copyable");
  struct Token {};
  struct PublishScope;

 public:
  using Via = std::shared_ptr<const VeltoVia>;
  using CallbackWrapper = velto::detail::CallbackWrapper<S>;
  /// (the new state, the state before it (none at registration), the trail) -> success or failure.
  using Callback = typename CallbackWrapper::Closure;
  /// Delivers a produced state with its trail; may be called from any thread, any number of times.
  using Completion = std::function<void(S state, const Via& via)>;
  /// The producer: starts computing a state and hands it to the completion. A failure goes to the
  /// machine's logger as an error.
  using RequestProductionHandler = std::function<VeltoResult<void>(const Via& via, Completion completion)>;
  /// Seconds since 1970.
  using Clock = std::function<double()>;

  /// The publish operation handed to a `begin` closure: publishes synchronously, as the
  /// machine's `publish`. Valid only while that closure runs: a call after it returned stops
  /// the program with one line. Copyable, so that misuse is caught rather than prevented.
  class PublishOperation {
   public:
    VeltoResult<void> operator()(const S& state, const Via& via) const {
      if (!scope_->open.load(std::memory_order_acquire)) stop();
      const std::shared_ptr<VeltoStateMachine> machine = scope_->machine.lock();
      if (!machine) stop();
      return machine->publish(state, via);
    }

   private:
    friend class VeltoStateMachine;
    explicit PublishOperation(std::shared_ptr<PublishScope> scope) noexcept : scope_(std::move(scope)) {}
    [[noreturn]] static void stop() {
      velto::detail::fatalStop(
          "VeltoStateMachine: publish operation used after its begin(via:onSerialQueue:) closure returned");
    }
    std::shared_ptr<PublishScope> scope_;
  };
  /// (the current state, the publish operation, the trail) -> success or failure.
  using Closure = std::function<VeltoResult<void>(const S& state, const PublishOperation& publish, const Via& via)>;

  /// A machine without a producer: only publications change its state.
  /// REQUIRES: `logger` is not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoStateMachine> create(S initialState, std::shared_ptr<VeltoLogging> logger) {
    return std::make_shared<VeltoStateMachine>(Token{}, std::move(initialState), std::move(logger), nullptr, 0.0,
                                               nullptr);
  }

  /// A machine with a producer (an empty one means none) and its time-out in seconds; `clock`
  /// (default: the wall clock) is read for every production request, on the machine's queue.
  /// REQUIRES: `logger` is not null (fatal stop otherwise).
  [[nodiscard]] static std::shared_ptr<VeltoStateMachine> create(S initialState, std::shared_ptr<VeltoLogging> logger,
                                                                 RequestProductionHandler requestProductionHandler,
                                                                 double requestProductionTimeout, Clock clock = nullptr) {
    return std::make_shared<VeltoStateMachine>(Token{}, std::move(initialState), std::move(logger),
                                               std::move(requestProductionHandler), requestProductionTimeout,
                                               std::move(clock));
  }

  VeltoStateMachine(Token, S initialState, std::shared_ptr<VeltoLogging> logger, RequestProductionHandler handler,
                    double requestProductionTimeout, Clock clock)
      : serialQueue_(VeltoSerialQueue::create(
            velto::detail::messagingQueueLabel("state-machine", velto::detail::typeName<S>()), std::move(logger), VeltoQualityOfService::unspecified)),
        requestProductionHandler_(std::move(handler)),
        requestProductionTimeout_(requestProductionTimeout),
        clock_(clock ? std::move(clock) : Clock(&velto::detail::wallClockEpochSeconds)),
        mostRecent_(std::move(initialState)) {}
  VeltoStateMachine(const VeltoStateMachine&) = delete;
  VeltoStateMachine& operator=(const VeltoStateMachine&) = delete;

  /// Appends a registration and, on the queue, calls the callback at once with (`mostRecent`, no
  /// previous state, the trail). A failure of that call goes to the logger with one frame added;
  /// the registration stays. No duplicate check: registering twice gives two entries.
  /// REQUIRES: `observer`, `callback` and `via` are not null (fatal stop otherwise).
  template <class T, class F>
  void beginRegister(const std::shared_ptr<T>& observer, F&& callback, Via via,
                     VeltoCodeSite site = VeltoCodeSite::current()) {
    using velto::detail::kStateMachineFile;
    auto wrapper = velto::detail::makeCallbackWrapper<S>(observer, std::forward<F>(callback), "VeltoStateMachine");
    serialQueue_->asyncForking(std::move(via), site,
                               VELTO_SITE(kStateMachineFile, "beginRegister(observer:callback:via:)"),
                               [self = this->shared_from_this(), wrapper = std::move(wrapper)](const Via& trail) {
                                 return self->registerOnQueue(wrapper, trail);
                               });
  }

  /// As `beginRegister`, returning a handle that deregisters `observer` when it goes. The handle
  /// holds the machine weakly.
  template <class T, class F>
  [[nodiscard]] VeltoObservation observe(const std::shared_ptr<T>& observer, F&& callback, Via via,
                                         VeltoCodeSite site = VeltoCodeSite::current()) {
    beginRegister(observer, std::forward<F>(callback), std::move(via), site);
    return VeltoObservation([machine = this->weak_from_this(),
                             key = velto::detail::observerKeyOf(observer, "VeltoStateMachine")] {
      if (auto self = machine.lock()) self->beginDeregisterKey(key);
    });
  }

  /// Removes every registration of `observer` (plain asynchronous work, no trail). Holds the
  /// observer weakly meanwhile. REQUIRES: `observer` is not null (fatal stop otherwise).
  template <class T>
  void beginDeregister(const std::shared_ptr<T>& observer) {
    beginDeregisterKey(velto::detail::observerKeyOf(observer, "VeltoStateMachine"));
  }

  /// Whether `observer` has a registration, after all work submitted before this call. Blocks for
  /// a synchronous hop onto the machine's queue. REQUIRES: not called from the machine's queue
  /// (a `sync` onto the running queue stops the program) and `observer` is not null.
  template <class T>
  [[nodiscard]] bool isRegistered(const std::shared_ptr<T>& observer) {
    const velto::detail::ObserverKey key = velto::detail::observerKeyOf(observer, "VeltoStateMachine");
    return serialQueue_->sync([&] {
      return observers_->contains(key);
    });
  }

  /// Asks the producer for a new state unless a request is outstanding; returns at once. On the
  /// queue: a request made at time t is outstanding while now <= t + timeout (inclusive); later,
  /// the warning "Production request timed out, will be abandoned" (args
  /// "lastProductionRequestTimestamp", "requestProductionTimeout", "now") is logged and a new
  /// request made. The abandoned request is not cancelled: a late result is still published.
  /// Without a producer: nothing happens.
  /// REQUIRES: `via` is not null (fatal stop otherwise).
  void beginRequestProduction(Via via, VeltoCodeSite site = VeltoCodeSite::current()) {
    if (!requestProductionHandler_) return;
    serialQueue_->asyncForking(std::move(via), site,
                               VELTO_SITE(velto::detail::kStateMachineFile, "beginRequestProduction(via:)"),
                               [self = this->shared_from_this()](const Via& trail) {
                                 return self->requestProductionOnQueue(trail);
                               });
  }

  /// Publishes `state` when its turn comes (see `publish`); returns at once. A failure goes to the
  /// machine's logger. REQUIRES: `via` is not null (fatal stop otherwise).
  void beginPublish(S state, Via via, VeltoCodeSite site = VeltoCodeSite::current()) {
    serialQueue_->asyncForking(std::move(via), site,
                               VELTO_SITE(velto::detail::kStateMachineFile, "beginPublish(state:via:)"),
                               [self = this->shared_from_this(), state = std::move(state)](const Via& trail) {
                                 return self->publish(state, trail);
                               });
  }

  /// Runs `closure` on the machine's queue with (`mostRecent`, a publish operation, the trail), so
  /// it can read the state and publish its successor with nothing in between. A failure goes to
  /// the logger with one frame added. REQUIRES: `closure` and `via` are not null (fatal stop).
  void begin(Via via, Closure closure, VeltoCodeSite site = VeltoCodeSite::current()) {
    using velto::detail::kStateMachineFile;
    if (!closure) velto::detail::fatalStop("VeltoStateMachine: begin(via:onSerialQueue:) closure is empty");
    auto run = [self = this->shared_from_this(), closure = std::move(closure)](const Via& trail) -> VeltoResult<void> {
      auto scope = std::make_shared<PublishScope>();
      scope->machine = self;
      const S current = self->mostRecent_;  // a copy: the closure may publish while it holds this
      VeltoResult<void> result = closure(current, PublishOperation(scope), trail);
      scope->open.store(false, std::memory_order_release);
      if (result.isFailure()) {
        return VeltoResult<void>::fromError(result.error(), {}, VELTO_SITE(kStateMachineFile, "begin(via:onSerialQueue:)"));
      }
      return VeltoResultVoidSuccess;
    };
    serialQueue_->asyncForking(std::move(via), site, VELTO_SITE(kStateMachineFile, "begin(via:onSerialQueue:)"),
                               std::move(run));
  }

  /// The publication step; call it only from the machine's queue. Off the queue it changes
  /// nothing and fails with "should be on serial queue" (one frame, args "state"). Ends any
  /// outstanding production request, drops dead observers silently, makes `state` the current
  /// state, then calls every observer in order with (state, previous state, trail); the first
  /// failure is returned with one frame added (args "state", "observerType") and the rest are
  /// skipped, `mostRecent` staying the new state.
  [[nodiscard]] VeltoResult<void> publish(const S& state, const Via& via) {
    using velto::detail::kStateMachineFile;
    const VeltoAny stateArg(state);
    const Via junction = fork(via, {{"state", stateArg}}, std::nullopt, VELTO_SITE(kStateMachineFile, "publish(state:via:)"));
    if (VeltoResult<void> onQueue = serialQueue_->ensureOnQueue(); onQueue.isFailure()) {
      return VeltoResult<void>::fromError(onQueue.error(), {{"state", stateArg}},
                                          VELTO_SITE(kStateMachineFile, "publish(state:via:)"));
    }
    lastProductionRequestTimestamp_.reset();
    if (observers_->hasZombies()) static_cast<void>(mutableObservers().sweepZombies());
    const std::optional<S> previous(std::exchange(mostRecent_, state));
    const std::shared_ptr<const Observers> snapshot = observers_;  // re-entrant changes cannot touch this loop
    for (const CallbackWrapper& wrapper : snapshot->entries()) {
      if (Observers::isRemoved(wrapper)) continue;
      VeltoResult<void> delivered = wrapper.closure(state, previous, junction);
      if (delivered.isFailure()) {
        return VeltoResult<void>::fromError(delivered.error(),
                                            {{"state", stateArg}, {"observerType", wrapper.keyObjectTypeName()}},
                                            VELTO_SITE(kStateMachineFile, "publish(state:via:)"));
      }
    }
    return VeltoResultVoidSuccess;
  }

  /// The current state. REQUIRES: the caller runs on the machine's queue (fatal stop otherwise);
  /// see the class comment for reading it elsewhere.
  [[nodiscard]] const S& mostRecent() const {
    if (serialQueue_->ensureOnQueue().isFailure()) {
      velto::detail::fatalStop("VeltoStateMachine::mostRecent read off the machine's queue");
    }
    return mostRecent_;
  }

  [[nodiscard]] VeltoResult<void> ensureOnQueue() const { return serialQueue_->ensureOnQueue(); }
  [[nodiscard]] VeltoResult<void> ensureOffQueue() const { return serialQueue_->ensureOffQueue(); }

  [[nodiscard]] double requestProductionTimeout() const noexcept { return requestProductionTimeout_; }
  [[nodiscard]] bool hasRequestProductionHandler() const noexcept { return static_cast<bool>(requestProductionHandler_); }
  [[nodiscard]] const std::shared_ptr<VeltoSerialQueue>& serialQueue() const noexcept { return serialQueue_; }
  [[nodiscard]] const std::shared_ptr<VeltoLogging>& logger() const noexcept { return serialQueue_->logger(); }

 private:
  using Observers = velto::detail::ObserverList<S>;

  struct PublishScope {
    std::weak_ptr<VeltoStateMachine> machine;
    std::atomic<bool> open{true};
  };

  Observers& mutableObservers() {
    if (observers_.use_count() > 1) observers_ = std::make_shared<Observers>(*observers_);
    return *observers_;
  }

  void beginDeregisterKey(velto::detail::ObserverKey key) {
    serialQueue_->async([self = this->shared_from_this(), key = std::move(key)] {
      self->mutableObservers().removeAll(key);
    });
  }

  VeltoResult<void> registerOnQueue(const CallbackWrapper& wrapper, const Via& via) {
    mutableObservers().append(wrapper);
    const S current = mostRecent_;  // a copy: the callback may publish while it holds this
    VeltoResult<void> called = wrapper.closure(current, std::nullopt, via);
    if (called.isFailure()) {
      return VeltoResult<void>::fromError(
          called.error(), {}, VELTO_SITE(velto::detail::kStateMachineFile, "beginRegister(observer:callback:via:)"));
    }
    return VeltoResultVoidSuccess;
  }

  VeltoResult<void> requestProductionOnQueue(const Via& via) {
    using velto::detail::kStateMachineFile;
    const double now = clock_();
    if (lastProductionRequestTimestamp_) {
      const double last = *lastProductionRequestTimestamp_;
      if (now <= last + requestProductionTimeout_) return VeltoResultVoidSuccess;  // still outstanding
      logger()->logWarning(VeltoError("Production request timed out, will be abandoned",
                                      {{"lastProductionRequestTimestamp", last},
                                       {"requestProductionTimeout", requestProductionTimeout_},
                                       {"now", now}},
                                      nullptr, VELTO_SITE(kStateMachineFile, "beginRequestProduction(via:)")),
                           via);
    }
    lastProductionRequestTimestamp_ = now;
    Completion completion = [machine = this->weak_from_this()](S state, const Via& trail) {
      if (auto self = machine.lock()) {
        self->beginPublish(std::move(state), trail, VELTO_SITE(velto::detail::kStateMachineFile, "beginRequestProduction(via:)"));
      }
    };
    ::async(*VeltoDispatchQueue::global(VeltoQualityOfService::default_), logger(), via,
            [handler = requestProductionHandler_, completion = std::move(completion)](const Via& trail) {
              return handler(trail, completion);
            },
            VELTO_SITE(kStateMachineFile, "beginRequestProduction(via:)"));
    return VeltoResultVoidSuccess;
  }

  std::shared_ptr<VeltoSerialQueue> serialQueue_;
  const RequestProductionHandler requestProductionHandler_;
  const double requestProductionTimeout_;
  const Clock clock_;
  // Confined to the machine's queue. `observers_` is shared only with a running delivery loop.
  std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
  S mostRecent_;
  std::optional<double> lastProductionRequestTimestamp_;
};
