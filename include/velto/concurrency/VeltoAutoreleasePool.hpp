// Running a closure "inside an autorelease pool" with the library's frame rules. C++ has no
// autorelease pools, so no pool is opened: the operations only run the closure and add their
// frame to a failure, which keeps trails identical to those of platforms that have one.
//
//   VeltoResult<Image> image = autoReleasePool([&] { return decode(bytes); });
//   VeltoResult<void> done = autoReleasePool([&](const auto& via) { return importAll(via); }, via);
#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoJunction.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/core/VeltoVia.hpp"
#include "velto/detail/ResultTraits.hpp"

namespace velto::detail {
inline constexpr char kAutoreleasePoolFile[] = "AutoreleasePool+VeltoResult";
}  // namespace velto::detail

/// Runs `invoking` and returns its result; a failure comes back with one frame
/// "autoReleasePool(invoking:)" (file "AutoreleasePool+VeltoResult").
template <class F>
  requires std::invocable<F&> && velto::detail::isVeltoResult<std::invoke_result_t<F&>>
[[nodiscard]] std::invoke_result_t<F&> autoReleasePool(F&& invoking) {
  using Result = std::invoke_result_t<F&>;
  Result result = invoking();
  if (result.isFailure()) {
    return Result::fromError(result.error(), {},
                             VELTO_SITE(velto::detail::kAutoreleasePoolFile, "autoReleasePool(invoking:)"));
  }
  return result;
}

/// Forks `via` (frame "autoReleasePool(invoking:via:)"), forks once more on that junction (same
/// text: the pool's own level), runs `invoking` with the inner junction and returns its result; a
/// failure comes back with one frame "autoReleasePool(invoking:via:)".
/// REQUIRES: `via` is not null (fatal stop otherwise).
template <class F>
  requires std::invocable<F&, const std::shared_ptr<const VeltoVia>&> &&
           velto::detail::isVeltoResult<std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&>>
[[nodiscard]] auto autoReleasePool(F&& invoking, std::shared_ptr<const VeltoVia> via)
    -> std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&> {
  using velto::detail::kAutoreleasePoolFile;
  using Result = std::invoke_result_t<F&, const std::shared_ptr<const VeltoVia>&>;
  const std::shared_ptr<const VeltoVia> junction =
      fork(std::move(via), {}, std::nullopt, VELTO_SITE(kAutoreleasePoolFile, "autoReleasePool(invoking:via:)"));
  const std::shared_ptr<const VeltoVia> inner =
      fork(junction, {}, std::nullopt, VELTO_SITE(kAutoreleasePoolFile, "autoReleasePool(invoking:via:)"));
  Result result = invoking(inner);
  if (result.isFailure()) {
    return Result::fromError(result.error(), {}, VELTO_SITE(kAutoreleasePoolFile, "autoReleasePool(invoking:via:)"));
  }
  return result;
}
