// Observers on a VeltoEventBus and a VeltoStateMachine, and the one pattern they depend on: the
// callback captures its observer weakly. The bus holds the observer weakly but the callback
// strongly, so a callback that captured `shared_from_this()` would keep its observer alive for
// ever; with a weak capture, the badge below dies when the application lets go of it.
#include <velto/velto.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace {

using Via = std::shared_ptr<const VeltoVia>;

struct CartChanged {
  int itemCount;
};

// A badge showing how many items are in the cart. Lives as long as its screen holds it.
class CartBadge : public std::enable_shared_from_this<CartBadge> {
 public:
  void startObserving(VeltoEventBus<CartChanged>& bus, const Via& via) {
    // Weak capture: the callback must not keep the badge alive.
    observation_ = bus.observe(shared_from_this(), [weak = weak_from_this()](const CartChanged& event,
                                                                             const std::optional<CartChanged>&,
                                                                             const Via&) {
      if (auto badge = weak.lock()) badge->show(event.itemCount);
      return VeltoResultVoidSuccess;
    }, via);
  }
  [[nodiscard]] int shown() const { return shown_; }

 private:
  void show(int count) {
    shown_ = count;
    std::printf("badge shows %d\n", count);
  }
  int shown_ = 0;
  VeltoObservation observation_;  // ends the registration when the badge goes
};

struct Session {
  std::string user;
};

}  // namespace

int main() {
  auto logger = VeltoFallbackLogger::create();
  Via via = VeltoImpetus::create("App launched");

  auto cart = VeltoEventBus<CartChanged>::create(logger);
  auto badge = std::make_shared<CartBadge>();
  badge->startObserving(*cart, via);
  cart->beginPublish(CartChanged{1}, via);
  cart->beginPublish(CartChanged{2}, via);
  cart->serialQueue()->sync([] {});  // wait for the deliveries
  const std::weak_ptr<CartBadge> gone = badge;
  badge.reset();  // the badge dies at once: the bus never owned it
  cart->beginPublish(CartChanged{3}, via);

  auto session = VeltoStateMachine<Session>::create(Session{"guest"}, logger);
  auto header = std::make_shared<int>(0);  // any object can observe
  session->beginRegister(header, [weak = std::weak_ptr(header)](const Session& now, const std::optional<Session>& before,
                                                                const Via&) {
    if (weak.lock()) std::printf("header: %s (was %s)\n", now.user.c_str(), before ? before->user.c_str() : "-");
    return VeltoResultVoidSuccess;
  }, via);
  session->begin(via, [](const Session& now, const auto& publish, const Via& trail) {
    return now.user == "guest" ? publish(Session{"ada"}, trail) : VeltoResultVoidSuccess;
  });
  const std::string user = session->serialQueue()->sync([&] { return session->mostRecent().user; });
  cart->serialQueue()->sync([] {});

  if (!gone.expired() || user != "ada") {
    std::fprintf(stderr, "observers: unexpected state\n");
    return 1;
  }
  std::printf("badge released; session user %s\n", user.c_str());
  return 0;
}
