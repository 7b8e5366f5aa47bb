#include <velto/encoding/VeltoBoxedNumber.hpp>
#include <velto/encoding/VeltoBoxedValue.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <gtest/gtest.h>

namespace {

std::string render(const auto& value) {
  return VeltoDynamicDebugEncoder::encodeToString(value, VeltoDynamicDebugEncoderOptions::forLogging().replacing(
                                                             {}, {}, {}, {}, {}, {}, {}, false))
      .value();
}

TEST(VeltoBoxedNumber, rendersByItsStorageCode) {
  EXPECT_EQ(render(VeltoBoxedNumber::fromBool(true)), "true") << "boxed booleans are booleans, not 1";
  EXPECT_EQ(render(VeltoBoxedNumber::fromBool(false)), "false");
  EXPECT_EQ(render(VeltoBoxedNumber::fromInt64(-42)), "-42");
  EXPECT_EQ(render(VeltoBoxedNumber::fromDouble(2.5)), "2.5");
  EXPECT_EQ(render(VeltoBoxedNumber::fromFloat(0.5f)), "0.5");
  for (int code : {1, 2, 3, 4, 8, 9, 10, 11, 14, 15}) {
    EXPECT_EQ(render(VeltoBoxedNumber::withStorageCode(code, 2.9)), "2") << "integer code " << code;
  }
  for (int code : {5, 6, 12, 13, 16}) {
    EXPECT_EQ(render(VeltoBoxedNumber::withStorageCode(code, std::int64_t{3})), "3") << "double code " << code;
  }
  EXPECT_EQ(render(VeltoBoxedNumber::withStorageCode(17, std::int64_t{1})), "\"Unhanded NSNumber type '17\"");
  EXPECT_EQ(render(std::vector{VeltoBoxedNumber::withStorageCode(0, 1.0)}), "[\"Unhanded NSNumber type '0\"]");
  EXPECT_EQ(render(VeltoBoxedNumber::withStorageCode(4, 1e300).int64Value()), "9223372036854775807")
      << "out-of-range doubles saturate";
}

TEST(VeltoBoxedValue, rendersKnownGeometryAndExplainsTheRest) {
  EXPECT_EQ(render(VeltoBoxedValue::point(1, 2.5)), R"({"x":1,"y":2.5})");
  EXPECT_EQ(render(VeltoBoxedValue::rect(1, 2, 3, 4)), R"({"x":1,"y":2,"width":3,"height":4})");
  EXPECT_EQ(render(VeltoBoxedValue::range(5, 6)), R"({"location":5,"length":6})");
  EXPECT_EQ(render(VeltoBoxedValue::size(3, 4)), R"({"concreteType":"Unhandled NSValue concrete type '{CGSize=dd}'"})");
  EXPECT_EQ(render(std::make_tuple(VeltoBoxedValue::point(0, 0))), R"({".0":{"x":0,"y":0}})");
  EXPECT_EQ(render(std::vector{VeltoBoxedValue::range(1, 2)}), R"([{"location":1,"length":2}])");
}

}  // namespace
