#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoEncodableAddress.hpp>
#include <velto/encoding/VeltoSensitiveData.hpp>
#include <velto/encoding/VeltoSensitiveString.hpp>

#include <gtest/gtest.h>

#include <unordered_set>

namespace {

VeltoData bytes(std::initializer_list<int> values) {
  VeltoData data;
  for (int v : values) data.push_back(std::byte(v));
  return data;
}

TEST(VeltoSensitiveString, comparesAndHashesAsItsText) {
  const VeltoSensitiveString a("secret");
  EXPECT_EQ(a, VeltoSensitiveString("secret"));
  EXPECT_NE(a, VeltoSensitiveString("other"));
  EXPECT_EQ(std::hash<VeltoSensitiveString>()(a), std::hash<std::string>()("secret"));
}

TEST(VeltoSensitiveString, convertsBetweenEncodingsWithoutLoss) {
  const VeltoSensitiveString text("caf\xC3\xA9");  // "café"
  EXPECT_EQ(text.data(VeltoStringEncoding::utf8)->raw(), bytes({'c', 'a', 'f', 0xC3, 0xA9}));
  EXPECT_EQ(text.data(VeltoStringEncoding::isoLatin1)->raw(), bytes({'c', 'a', 'f', 0xE9}));
  EXPECT_FALSE(text.data(VeltoStringEncoding::ascii)) << "no lossy conversion";
  EXPECT_EQ(text.data(VeltoStringEncoding::utf16BigEndian)->raw(), bytes({0, 'c', 0, 'a', 0, 'f', 0, 0xE9}));

  const VeltoSensitiveString emoji("\xF0\x9F\x98\x80");  // U+1F600, a surrogate pair in UTF-16
  const auto utf16 = emoji.data(VeltoStringEncoding::utf16LittleEndian);
  ASSERT_TRUE(utf16);
  EXPECT_EQ(utf16->raw(), bytes({0x3D, 0xD8, 0x00, 0xDE}));
  EXPECT_EQ(utf16->string(VeltoStringEncoding::utf16LittleEndian), emoji);

  EXPECT_FALSE(VeltoSensitiveString("bad \xC3").data(VeltoStringEncoding::utf16BigEndian));
}

TEST(VeltoSensitiveData, decodesOnlyWhatDecodes) {
  EXPECT_EQ(VeltoSensitiveData(bytes({'h', 'i'})).string(VeltoStringEncoding::ascii), VeltoSensitiveString("hi"));
  EXPECT_FALSE(VeltoSensitiveData(bytes({0xC3})).string(VeltoStringEncoding::utf8));
  EXPECT_FALSE(VeltoSensitiveData(bytes({0x80})).string(VeltoStringEncoding::ascii));
  EXPECT_FALSE(VeltoSensitiveData(bytes({0x00, 0xD8})).string(VeltoStringEncoding::utf16LittleEndian)) << "lone surrogate";
  EXPECT_FALSE(VeltoSensitiveData(bytes({0x00})).string(VeltoStringEncoding::utf16LittleEndian)) << "odd length";
  EXPECT_EQ(VeltoSensitiveData(bytes({0xE9})).string(VeltoStringEncoding::isoLatin1), VeltoSensitiveString("\xC3\xA9"));
  EXPECT_EQ(VeltoSensitiveData(bytes({1, 2})), VeltoSensitiveData(bytes({1, 2})));
}

TEST(VeltoEncodableAddress, identifiesObjectsAndPrintsSixteenHexDigits) {
  const int a = 1;
  const int b = 2;
  EXPECT_EQ(VeltoEncodableAddress::of(a), VeltoEncodableAddress(&a));
  EXPECT_NE(VeltoEncodableAddress::of(a), VeltoEncodableAddress::of(b));
  std::unordered_set<VeltoEncodableAddress> set{VeltoEncodableAddress::of(a), VeltoEncodableAddress(&a)};
  EXPECT_EQ(set.size(), 1u);
  EXPECT_EQ(VeltoEncodableAddress(reinterpret_cast<const void*>(0xABCDEF)).debugDescription(), "0x0000000000abcdef");
  EXPECT_EQ(VeltoEncodableAddress(nullptr).debugDescription(), "0x0000000000000000");
}

TEST(VeltoEncodableAddress, buffersWithoutABaseAddressFail) {
  const std::vector<int> values{1, 2, 3};
  const auto fromBuffer = VeltoEncodableAddress::make(std::span<const int>(values));
  ASSERT_TRUE(fromBuffer.hasValue());
  EXPECT_EQ(fromBuffer.value().pointer(), values.data());

  const auto empty = VeltoEncodableAddress::make(std::span<const std::byte>());
  ASSERT_TRUE(empty.isFailure());
  EXPECT_EQ(empty.error().message(), "UnsafeBufferPointer has no baseAddress");
  const auto* cause = dynamic_cast<const VeltoInitializerError*>(empty.error().frameworkError().get());
  ASSERT_NE(cause, nullptr);
  EXPECT_EQ(cause->message(), "UnsafeBufferPointer has no baseAddress");
}

TEST(VeltoEncodableAddress, isWrittenEvenWithoutIncludeAddresses) {
  const int a = 1;
  const auto options = VeltoDynamicDebugEncoderOptions::forLogging().replacing({}, false, {}, {}, {}, {}, {}, false);
  EXPECT_EQ(VeltoDynamicDebugEncoder::encodeToString(VeltoEncodableAddress(reinterpret_cast<const void*>(0x10)), options).value(),
            "\"0x0000000000000010\"");
  EXPECT_TRUE(VeltoDynamicDebugEncoder::encodeToString(std::vector{VeltoEncodableAddress::of(a)}, options).hasValue());
}

}  // namespace
