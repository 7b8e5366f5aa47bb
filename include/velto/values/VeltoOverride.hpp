// VeltoOverride<T>: an optional parameter that either overrides a default or keeps it.
//
//   VeltoOverride<int> depth = VeltoOverride<int>::override(3);
//   int used = depth.resolve(10);                                  // 3
//   int lazy = VeltoOverride<int>::noOverride().resolve([] { return expensiveDefault(); });
//   VeltoResult<int> checked = depth.resolve([]() -> VeltoResult<int> { return loadDefault(); });
#pragma once

#include <concepts>
#include <functional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include <boost/describe/class.hpp>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"

/// A tagged variant with the cases `override` (use the payload) and `noOverride` (keep the
/// default), in that order. Regular value type when T is; the debug encoder prints the case
/// names. Thread safety: as T.
template <class T>
class VeltoOverride {
 public:
  struct Override {
    static constexpr std::string_view caseName = "override";
    T value;
    friend bool operator==(const Override&, const Override&) = default;
    BOOST_DESCRIBE_CLASS(Override, (), (value), (), ())
  };
  struct NoOverride {
    static constexpr std::string_view caseName = "noOverride";
    friend bool operator==(const NoOverride&, const NoOverride&) = default;
    BOOST_DESCRIBE_CLASS(NoOverride, (), (), (), ())
  };

  /// Keeps the default.
  VeltoOverride() noexcept(std::is_nothrow_default_constructible_v<NoOverride>) : cases_(NoOverride{}) {}

  [[nodiscard]] static VeltoOverride override(T value) { return VeltoOverride(Override{std::move(value)}); }
  [[nodiscard]] static VeltoOverride noOverride() { return VeltoOverride(); }

  [[nodiscard]] const std::variant<Override, NoOverride>& cases() const noexcept { return cases_; }
  [[nodiscard]] bool isOverride() const noexcept { return cases_.index() == 0; }

  /// The payload for `override`, else `base`.
  [[nodiscard]] T resolve(T base) const {
    if (const auto* o = std::get_if<Override>(&cases_)) return o->value;
    return base;
  }

  /// The payload for `override` (the generator is not called); for `noOverride` the value of
  /// one call of `generator`.
  template <class Generator>
    requires std::invocable<Generator&> && std::convertible_to<std::invoke_result_t<Generator&>, T> &&
             (!std::convertible_to<Generator, T>)
  [[nodiscard]] T resolve(Generator&& generator) const {
    if (const auto* o = std::get_if<Override>(&cases_)) return o->value;
    return std::invoke(generator);
  }

  /// A success with the payload for `override` (the generator is not called); for `noOverride`
  /// the generator's success unchanged, or its failure passed up the way
  /// `VeltoResult<T>::fromError` passes one: one frame added with the argument "override" (this
  /// value), no invoker site and the code site "VeltoParameterOverride" / "resolve(generator:)" /
  /// line 54. The caller's position is not recorded; the generator's own frames say where the
  /// failure came from.
  template <class Generator>
    requires std::invocable<Generator&> && std::same_as<std::invoke_result_t<Generator&>, VeltoResult<T>>
  [[nodiscard]] VeltoResult<T> resolve(Generator&& generator) const {
    if (const auto* o = std::get_if<Override>(&cases_)) return o->value;
    VeltoResult<T> generated = std::invoke(generator);
    if (generated.hasValue()) return generated;
    // The line is fixed so that recorded trails stay comparable with those of earlier releases.
    return VeltoResult<T>::fromError(generated.error(), {{"override", *this}},
                                     VeltoCodeSite("VeltoParameterOverride", "resolve(generator:)", 54));
  }

  friend bool operator==(const VeltoOverride&, const VeltoOverride&) = default;

 private:
  explicit VeltoOverride(Override value) : cases_(std::move(value)) {}

  std::variant<Override, NoOverride> cases_;
};
