#include <velto/values/VeltoFileSize.hpp>

#include <velto/core/VeltoAny.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();

// Every constructor: its bits, and whole bytes rounding down.
TEST(VeltoFileSize, constructorsCountBitsAndWholeBytes) {
  struct Case {
    VeltoFileSize size;
    std::uint64_t bits;
  };
  const std::uint64_t k = 1000, ki = 1024;
  const Case cases[] = {
      {VeltoFileSize::fromBits(7), 7},
      {VeltoFileSize::fromBits(15), 15},
      {VeltoFileSize::zero, 0},
      {VeltoFileSize::fromBytes(3), 24},
      {VeltoFileSize::fromKiloBits(3), 3 * k},
      {VeltoFileSize::fromKibiBits(3), 3 * ki},
      {VeltoFileSize::fromMegaBits(3), 3 * k * k},
      {VeltoFileSize::fromMebiBits(3), 3 * ki * ki},
      {VeltoFileSize::fromGigaBits(3), 3 * k * k * k},
      {VeltoFileSize::fromGibiBits(3), 3 * ki * ki * ki},
      {VeltoFileSize::fromTeraBits(3), 3 * k * k * k * k},
      {VeltoFileSize::fromTebiBits(3), 3 * ki * ki * ki * ki},
      {VeltoFileSize::fromPetaBits(3), 3 * k * k * k * k * k},
      {VeltoFileSize::fromPebiBits(3), 3 * ki * ki * ki * ki * ki},
      {VeltoFileSize::fromExaBits(3), 3 * k * k * k * k * k * k},
      {VeltoFileSize::fromExbiBits(3), 3 * ki * ki * ki * ki * ki * ki},
      {VeltoFileSize::fromKiloBytes(3), 8 * 3 * k},
      {VeltoFileSize::fromKibiBytes(3), 8 * 3 * ki},
      {VeltoFileSize::fromMegaBytes(3), 8 * 3 * k * k},
      {VeltoFileSize::fromMebiBytes(3), 8 * 3 * ki * ki},
      {VeltoFileSize::fromGigaBytes(3), 8 * 3 * k * k * k},
      {VeltoFileSize::fromGibiBytes(3), 8 * 3 * ki * ki * ki},
      {VeltoFileSize::fromTeraBytes(3), 8 * 3 * k * k * k * k},
      {VeltoFileSize::fromTebiBytes(3), 8 * 3 * ki * ki * ki * ki},
      {VeltoFileSize::fromPetaBytes(3), 8 * 3 * k * k * k * k * k},
      {VeltoFileSize::fromPebiBytes(3), 8 * 3 * ki * ki * ki * ki * ki},
      {VeltoFileSize::fromExaBytes(2), 8 * 2 * k * k * k * k * k * k},
      {VeltoFileSize::fromExbiBytes(1), 8 * ki * ki * ki * ki * ki * ki},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.size.bits(), c.bits) << "case " << &c - cases;
    EXPECT_EQ(c.size.bytesEntire(), c.bits / 8) << "case " << &c - cases;
  }
  EXPECT_EQ(VeltoFileSize::bitsFrom(5), 40u);
}

TEST(VeltoFileSize, bytesFromBitsRoundsInDoublePrecisionAboveTwoToThe53) {
  // 2^60 + 15 bits: the double nearest is 2^60, so the whole bytes are 2^57, not 2^57 + 1.
  const std::uint64_t bits = (std::uint64_t{1} << 60) + 15;
  EXPECT_EQ(VeltoFileSize::fromBits(bits).bytesEntire(), std::uint64_t{1} << 57);
  EXPECT_NE(VeltoFileSize::fromBits(bits).bytesEntire(), bits / 8);
  // The largest count: 2^64 - 1 becomes 2^64 as a double, so 2^61 whole bytes.
  EXPECT_EQ(VeltoFileSize::fromBits(kMax).bytesEntire(), std::uint64_t{1} << 61);
  // Byte constructors stay exact.
  EXPECT_EQ(VeltoFileSize::fromBytes((std::uint64_t{1} << 60) + 1).bytesEntire(), (std::uint64_t{1} << 60) + 1);
}

TEST(VeltoFileSize, equalityAndOrderReadBitsOnly) {
  EXPECT_EQ(VeltoFileSize::fromBytes(1000), VeltoFileSize::fromKiloBytes(1));
  EXPECT_EQ(VeltoFileSize::fromKiloBits(8), VeltoFileSize::fromKiloBytes(1));
  EXPECT_EQ(VeltoFileSize::fromBits(8192), VeltoFileSize::fromKibiBytes(1));
  EXPECT_LT(VeltoFileSize::fromKiloBytes(1), VeltoFileSize::fromKibiBytes(1));
  EXPECT_FALSE(VeltoFileSize::fromBits(8) < VeltoFileSize::fromBytes(1));
  EXPECT_GT(VeltoFileSize::fromBits(9), VeltoFileSize::fromBytes(1));
}

TEST(VeltoFileSize, sumAddsBitsAndRecomputesBytes) {
  const auto sum = VeltoFileSize::fromBits(5) + VeltoFileSize::fromBits(4);
  EXPECT_EQ(sum.bits(), 9u);
  EXPECT_EQ(sum.bytesEntire(), 1u);
  const auto edge = VeltoFileSize::fromBits(kMax - 1) + VeltoFileSize::fromBits(1);
  EXPECT_EQ(edge.bits(), kMax);
}

TEST(VeltoFileSize, differenceCarriesMagnitudeAndSign) {
  const auto down = VeltoFileSize::fromBits(10) - VeltoFileSize::fromBits(25);
  ASSERT_TRUE(down.isNegative());
  EXPECT_EQ(down.magnitude().bits(), 15u);
  EXPECT_EQ(down.magnitude().bytesEntire(), 1u);
  EXPECT_EQ(down, VeltoFileSize::Diff::negative(VeltoFileSize::fromBits(15)));

  const auto up = VeltoFileSize::fromBits(25) - VeltoFileSize::fromBits(10);
  EXPECT_EQ(up, VeltoFileSize::Diff::positive(VeltoFileSize::fromBits(15)));
  EXPECT_NE(up, down);

  const auto same = VeltoFileSize::fromBytes(2) - VeltoFileSize::fromBits(16);
  EXPECT_EQ(same, VeltoFileSize::Diff::positive(VeltoFileSize::zero));
  EXPECT_EQ(std::get<VeltoFileSize::Diff::Positive>(same.cases()).caseName, "positive");

  const auto extreme = VeltoFileSize::fromBits(0) - VeltoFileSize::fromBits(kMax);
  EXPECT_EQ(extreme.magnitude().bits(), kMax);
}

TEST(VeltoFileSize, diffMirrorsAsAnEnumerationForDebugOutput) {
  const VeltoAny recorded = VeltoFileSize::fromBits(1) - VeltoFileSize::fromBits(2);
  const VeltoValueRef ref = recorded.ref();
  EXPECT_EQ(ref.mirror->style, VeltoDisplayStyle::enumeration);
  EXPECT_EQ(ref.mirror->caseName(ref.value), "negative");
}

TEST(VeltoFileSizeDeathTest, overflowStopsTheProcess) {
  EXPECT_DEATH((void)VeltoFileSize::fromExbiBytes(2), "VeltoFileSize");
  EXPECT_DEATH((void)VeltoFileSize::fromExaBytes(3), "VeltoFileSize");
  EXPECT_DEATH((void)VeltoFileSize::fromExbiBits(16), "VeltoFileSize");
  EXPECT_DEATH((void)VeltoFileSize::fromBytes(kMax / 8 + 1), "VeltoFileSize");
  EXPECT_DEATH((void)VeltoFileSize::bitsFrom(kMax), "VeltoFileSize");
  EXPECT_DEATH((void)(VeltoFileSize::fromBits(kMax) + VeltoFileSize::fromBits(1)), "VeltoFileSize");
  // The byte count itself overflows before the bits do.
  EXPECT_DEATH((void)VeltoFileSize::fromKiloBytes(kMax / 1000 + 1), "VeltoFileSize");
}

TEST(VeltoFileSize, largestAcceptedCountsSucceed) {
  EXPECT_EQ(VeltoFileSize::fromExbiBits(15).bits(), 15 * (std::uint64_t{1} << 60));
  EXPECT_EQ(VeltoFileSize::fromBytes(kMax / 8).bytesEntire(), kMax / 8);
  EXPECT_EQ(VeltoFileSize::fromExbiBytes(0), VeltoFileSize::zero);
}

}  // namespace
