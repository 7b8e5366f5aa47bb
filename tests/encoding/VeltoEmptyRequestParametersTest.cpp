#include <velto/encoding/VeltoEmptyRequestParameters.hpp>

#include <gtest/gtest.h>

#include <velto/encoding/VeltoUploadEncodable.hpp>

namespace {

// An empty object at each destination, also beside other entries and elements.
TEST(VeltoEmptyRequestParameters, uploadsAnEmptyObjectAtEveryDestination) {
  const VeltoEmptyRequestParameters none;
  {
    VeltoEncodingDocument document;
    auto encoder = document.encoder();
    ASSERT_TRUE(encodeValueForUpload(none, encoder));
    EXPECT_EQ(document.jsonText(), "{}");
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().keyedContainer();
    ASSERT_TRUE(container.encode("a", 1));
    ASSERT_TRUE(encodeValueForUpload(none, container, "none"));
    ASSERT_TRUE(container.encode("b", 2));
    EXPECT_EQ(document.jsonText(), R"({"a":1,"none":{},"b":2})");
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().unkeyedContainer();
    ASSERT_TRUE(encodeValueForUpload(none, container));
    ASSERT_TRUE(container.encode(1));
    EXPECT_EQ(document.jsonText(), "[{},1]");
  }
}

}  // namespace
