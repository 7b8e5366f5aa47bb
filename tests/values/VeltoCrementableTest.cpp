#include <velto/values/VeltoCrementable.hpp>

#include <boost/describe/enum.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

enum class Quality { low, medium, high };
BOOST_DESCRIBE_ENUM(Quality, low, medium, high)

// Declaration order, not numeric order, decides the steps.
enum class Shuffled { c = 30, a = 10, b = 20 };
BOOST_DESCRIBE_ENUM(Shuffled, c, a, b)

enum class Undescribed { one, two };
static_assert(!VeltoCrementable<Undescribed> && !VeltoCrementable<bool> && !VeltoCrementable<double>);

// A bounded counter of its own: the member form.
struct Dial {
  int position = 0;
  bool increment() { return position < 2 ? (++position, true) : false; }
  bool decrement() { return position > 0 ? (--position, true) : false; }
};
static_assert(VeltoCrementable<Dial>);

template <class T>
void stepsAndSaturatesAtBothLimits() {
  using Limits = std::numeric_limits<T>;
  T value = static_cast<T>(Limits::max() - 1);
  EXPECT_TRUE(veltoIncrement(value));
  EXPECT_EQ(value, Limits::max());
  EXPECT_FALSE(veltoIncrement(value)) << "no wrap past the maximum";
  EXPECT_EQ(value, Limits::max());
  value = static_cast<T>(Limits::lowest() + 1);
  EXPECT_TRUE(veltoDecrement(value));
  EXPECT_FALSE(veltoDecrement(value)) << "no wrap past the minimum";
  EXPECT_EQ(value, Limits::lowest());
}

TEST(VeltoCrementable, integersOfEveryWidthSaturate) {
  stepsAndSaturatesAtBothLimits<std::int8_t>();
  stepsAndSaturatesAtBothLimits<std::uint8_t>();
  stepsAndSaturatesAtBothLimits<char>();
  stepsAndSaturatesAtBothLimits<short>();
  stepsAndSaturatesAtBothLimits<unsigned>();
  stepsAndSaturatesAtBothLimits<std::int64_t>();
  stepsAndSaturatesAtBothLimits<std::uint64_t>();
  static_assert([] {
    int v = 1;
    veltoIncrement(v);
    return v;
  }() == 2);
}

TEST(VeltoCrementable, describedEnumerationsStepThroughTheirCasesInDeclarationOrder) {
  Quality q = Quality::low;
  EXPECT_FALSE(veltoDecrement(q));
  EXPECT_TRUE(veltoIncrement(q));
  EXPECT_TRUE(veltoIncrement(q));
  EXPECT_EQ(q, Quality::high);
  EXPECT_FALSE(veltoIncrement(q));
  EXPECT_EQ(q, Quality::high);

  Shuffled s = Shuffled::c;
  EXPECT_TRUE(veltoIncrement(s));
  EXPECT_EQ(s, Shuffled::a);
  EXPECT_TRUE(veltoIncrement(s));
  EXPECT_EQ(s, Shuffled::b);
  EXPECT_FALSE(veltoIncrement(s));

  auto stray = static_cast<Quality>(7);
  EXPECT_FALSE(veltoIncrement(stray)) << "a value that is no case stays put";
  EXPECT_EQ(stray, static_cast<Quality>(7));
}

TEST(VeltoCrementable, typesOfYourOwnStepThemselves) {
  Dial dial;
  EXPECT_TRUE(veltoIncrement(dial));
  EXPECT_TRUE(veltoIncrement(dial));
  EXPECT_FALSE(veltoIncrement(dial));
  EXPECT_EQ(dial.position, 2);
  EXPECT_TRUE(veltoDecrement(dial));
  EXPECT_EQ(dial.position, 1);
}

}  // namespace
