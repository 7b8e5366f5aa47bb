#include <velto/encoding/VeltoUploadEncodable.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

static_assert(VeltoUploadEncodable<VeltoClosedRange<double>> && VeltoUploadEncodable<VeltoClosedRange<std::string>>);
static_assert(VeltoUploadEncodable<VeltoDomain<std::int64_t>> && VeltoUploadEncodable<VeltoDoubleDomain>);
static_assert(VeltoUploadEncodable<std::vector<VeltoDomain<double>>>);
static_assert(!VeltoUploadEncodable<VeltoDomain<int>> && !VeltoUploadEncodable<VeltoClosedRange<float>>,
              "bounds without an upload encoding of their own have none either");

struct Placed {
  std::string whole;
  std::string keyed;
  std::string element;
};

template <class T>
Placed placed(const T& value) {
  Placed out;
  {
    VeltoEncodingDocument document;
    auto encoder = document.encoder();
    EXPECT_TRUE(encodeValueForUpload(value, encoder));
    out.whole = document.jsonText();
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().keyedContainer();
    EXPECT_TRUE(encodeValueForUpload(value, container, "k"));
    out.keyed = document.jsonText();
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().unkeyedContainer();
    EXPECT_TRUE(encodeValueForUpload(value, container));
    out.element = document.jsonText();
  }
  return out;
}

TEST(VeltoUploadEncodableRanges, writesMinAndMaxAtEveryDestination) {
  const Placed range = placed(VeltoClosedRange<double>(0.5, 2));
  EXPECT_EQ(range.whole, R"({"min":0.5,"max":2})");
  EXPECT_EQ(range.keyed, R"({"k":{"min":0.5,"max":2}})");
  EXPECT_EQ(range.element, R"([{"min":0.5,"max":2}])");
  EXPECT_EQ(placed(VeltoDomain<std::uint64_t>(10, 2)).whole, R"({"min":10,"max":2})") << "orientation kept";
  EXPECT_EQ(placed(VeltoClosedRange<std::string>("a", "b")).keyed, R"({"k":{"min":"a","max":"b"}})");
  EXPECT_EQ(placed(VeltoDoubleDomain::normalReversed).whole, R"({"min":1,"max":0})");
  EXPECT_EQ(placed(std::vector<VeltoDomain<double>>{}).keyed, R"({"k":[]})");
}

TEST(VeltoUploadEncodableRanges, aNonFiniteBoundFailsAsTheEncoderSays) {
  VeltoEncodingDocument document;
  auto encoder = document.encoder();
  const auto written = encodeValueForUpload(VeltoDomain<double>(0, std::numeric_limits<double>::infinity()), encoder);
  EXPECT_TRUE(written.isFailure());
  // The double domain whose range overflows still has finite bounds, and only those are sent.
  EXPECT_EQ(placed(VeltoDoubleDomain::greatestFiniteMagnitude).whole,
            R"({"min":-1.7976931348623157e+308,"max":1.7976931348623157e+308})");
}

// Whatever finite bounds a double domain has, its upload is the object of "min" and "max" in
// that order, each in its shortest round-trip form (which std::from_chars reads back exactly).
TEST(VeltoUploadEncodableRanges, doubleDomainsUploadTheirExactBounds) {
  std::mt19937_64 random(29);
  const auto shortest = [](double value) {
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
  };
  for (int i = 0; i < 2000; ++i) {
    double bounds[2];
    for (double& bound : bounds) {
      do {
        bound = std::bit_cast<double>(random());
      } while (!std::isfinite(bound));
    }
    const VeltoDoubleDomain domain(bounds[0], bounds[1]);
    ASSERT_EQ(placed(domain).whole, "{\"min\":" + shortest(bounds[0]) + ",\"max\":" + shortest(bounds[1]) + "}");
    ASSERT_EQ(placed(VeltoClosedRange<double>(std::min(bounds[0], bounds[1]), std::max(bounds[0], bounds[1]))).element,
              "[{\"min\":" + shortest(std::min(bounds[0], bounds[1])) + ",\"max\":" + shortest(std::max(bounds[0], bounds[1])) + "}]");
  }
}

}  // namespace
