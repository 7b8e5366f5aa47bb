#include <velto/values/VeltoDoubleDomain.hpp>
#include <velto/values/VeltoLinearInterpolable.hpp>

#include <gtest/gtest.h>

namespace {

static_assert(VeltoLinearInterpolable<VeltoDoubleDomain>, "the double domain moves towards another one");
static_assert(VeltoLinearInterpolable<short> && !VeltoLinearInterpolable<const char*>);

struct Tracked {
  double value;
  mutable int ownCalls = 0;
  // Deliberately not the scalar formula, to see which one runs.
  Tracked lerpOpenTowards(double ratio, const Tracked& towards) const {
    ++ownCalls;
    return Tracked(towards.value * ratio);
  }
  explicit operator double() const { return value; }
  explicit Tracked(double v) : value(v) {}
};
static_assert(VeltoScalarInterpolable<Tracked>);

TEST(VeltoLinearInterpolable, aTypesOwnInterpolationWinsOverTheScalarOne) {
  const Tracked from(10);
  EXPECT_EQ(velto::detail::lerpOpenTowards(from, 0.5, Tracked(20)).value, 10) << "20 x 0.5, not 15";
  EXPECT_EQ(from.ownCalls, 1);
}

TEST(VeltoLinearInterpolable, scalarsExtrapolateAndRoundBack) {
  EXPECT_EQ(velto::detail::lerpOpenTowards(10, 1.5, 20), 25);
  EXPECT_EQ(velto::detail::lerpOpenTowards(10, -1.0, 20), 0);
  EXPECT_EQ(velto::detail::lerpOpenTowards(0, 0.25, 3), 1) << "0.75 rounds to 1";
  EXPECT_EQ(velto::detail::lerpOpenTowards<unsigned char>(250, 2.0, 255), 255) << "saturates";
  EXPECT_EQ(velto::detail::lerpOpenTowards(VeltoDoubleDomain::normal, 0.5, VeltoDoubleDomain(2, 3)), VeltoDoubleDomain(1, 2));
}

}  // namespace
