// VeltoObservation: a registration with a VeltoEventBus or VeltoStateMachine that ends when the
// handle goes, like a scoped signal connection.
//
//   class Screen {
//     VeltoObservation observation_;   // declared last: ends first, while the screen is whole
//    public:
//     void start(const std::shared_ptr<Screen>& self) {
//       observation_ = bus->observe(self, [weak = std::weak_ptr(self)](const Event& e, const auto&, const auto&) {
//         if (auto screen = weak.lock()) screen->show(e);
//         return VeltoResultVoidSuccess;
//       }, via);
//     }
//   };
#pragma once

#include <functional>
#include <utility>

/// Owns one registration: destroying or `reset()`ting the handle submits its deregistration
/// (asynchronously, like the component's own deregister call); `release()` lets the registration
/// outlive the handle. Holds its component weakly, so a handle may outlive the bus or machine it
/// came from: ending it then does nothing. Deregistration removes every registration of the
/// observer on that component, not only the one this handle made.
///
/// Movable, not copyable. A default-made handle holds nothing.
/// Thread safety: one handle is used from one thread at a time; distinct handles are independent.
class VeltoObservation {
 public:
  VeltoObservation() noexcept = default;
  /// A handle that calls `end` once, when it is reset or destroyed.
  explicit VeltoObservation(std::function<void()> end) noexcept : end_(std::move(end)) {}
  ~VeltoObservation() { reset(); }

  VeltoObservation(const VeltoObservation&) = delete;
  VeltoObservation& operator=(const VeltoObservation&) = delete;
  VeltoObservation(VeltoObservation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
  /// Ends the registration held so far, then takes over `other`'s.
  VeltoObservation& operator=(VeltoObservation&& other) noexcept {
    if (this != &other) {
      reset();
      end_ = std::exchange(other.end_, nullptr);
    }
    return *this;
  }

  /// True while the handle still holds a registration.
  [[nodiscard]] bool isActive() const noexcept { return static_cast<bool>(end_); }
  [[nodiscard]] explicit operator bool() const noexcept { return isActive(); }

  /// Submits the deregistration now (if the handle holds one) and empties the handle.
  void reset() {
    if (auto end = std::exchange(end_, nullptr)) end();
  }

  /// Empties the handle without deregistering: the registration lives on until deregistered by hand.
  void release() noexcept { end_ = nullptr; }

 private:
  std::function<void()> end_;
};
