#include <velto/networking/VeltoKnownMimeType.hpp>

#include <gtest/gtest.h>

namespace {

TEST(VeltoKnownMimeType, convertsOnlyTheExactRawValues) {
  for (VeltoKnownMimeType type : {VeltoKnownMimeType::form, VeltoKnownMimeType::json}) {
    EXPECT_EQ(fromRawValue<VeltoKnownMimeType>(rawValue(type)), type);
  }
  EXPECT_EQ(rawValue(VeltoKnownMimeType::form), "application/x-www-form-urlencoded");
  EXPECT_EQ(rawValue(VeltoKnownMimeType::json), "application/json");
  for (const char* other : {"Application/JSON", "application/json; charset=utf-8", "text/plain", ""}) {
    EXPECT_FALSE(fromRawValue<VeltoKnownMimeType>(other)) << other;
  }
}

}  // namespace
