#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <velto/velto.hpp>

namespace {

struct Celsius {
  double value = 0;
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder& encoder, VeltoDynamicDebugEncoder&) const {
    return encoder.singleValueContainer().encode(text());
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoKeyedEncodingContainer& container, std::string_view key,
                                          VeltoDynamicDebugEncoder&) const {
    return container.encode(key, text());
  }
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer& container, VeltoDynamicDebugEncoder&) const {
    return container.encode(text());
  }
  [[nodiscard]] std::string text() const { return std::to_string(static_cast<int>(value)) + " C"; }
};

struct Labelled final {
  int id = 0;
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container, VeltoDynamicDebugEncoder&) const {
    return container.encode("label", "#" + std::to_string(id));
  }
};

// A type the test cannot change, given its rendering from outside.
struct Opaque {
  int secret = 7;
};

struct MissingKeyedForm {
  VeltoResult<void> encodeForDynamicDebug(VeltoEncoder&, VeltoDynamicDebugEncoder&) const;
  VeltoResult<void> encodeForDynamicDebug(VeltoUnkeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const;
};
struct WrongParameter {
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoEncoder&, VeltoDynamicDebugEncoder&) const;
};

}  // namespace

template <>
struct VeltoDebugConformance<Opaque> {
  static VeltoResult<void> encodeChildrenForDynamicDebug(const Opaque&, VeltoKeyedEncodingContainer& container,
                                                         VeltoDynamicDebugEncoder&) {
    return container.encode("secret", "[hidden]");
  }
};

// The concepts are what the encoder acts on, so a claim and the rendering cannot disagree.
static_assert(VeltoCustomDebugEncoding<Celsius> && !VeltoCustomDebugContainerEncoding<Celsius>);
static_assert(VeltoCustomDebugContainerEncoding<Labelled> && !VeltoCustomDebugEncoding<Labelled>);
static_assert(VeltoCustomDebugContainerEncoding<Opaque>);
static_assert(VeltoCustomDebugContainerEncoding<VeltoCodeSite> && VeltoCustomDebugContainerEncoding<VeltoStackFrame>);
static_assert(VeltoCustomDebugContainerEncoding<VeltoError> && VeltoCustomDebugContainerEncoding<VeltoFileSize>);
static_assert(VeltoCustomDebugEncoding<VeltoSensitiveString> && VeltoCustomDebugEncoding<VeltoEncodableAddress>);
static_assert(VeltoCustomDebugEncoding<boost::uuids::uuid> && VeltoCustomDebugEncoding<int*>);
static_assert(!VeltoCustomDebugEncoding<int> && !VeltoCustomDebugContainerEncoding<std::string>);
// A hook with a wrong signature is noticed as a hook, so recording the type stops the build
// (tests/compile-fail/) instead of rendering it by reflection.
static_assert(velto::detail::DeclaresCustomEncodingHook<MissingKeyedForm> && !VeltoCustomDebugEncoding<MissingKeyedForm>);
static_assert(velto::detail::DeclaresContainerEncodingHook<WrongParameter> &&
              !VeltoCustomDebugContainerEncoding<WrongParameter>);
static_assert(!velto::detail::DeclaresCustomEncodingHook<Opaque> && !velto::detail::DeclaresContainerEncodingHook<int>);

boost::json::value rendered(const auto& value) {
  return boost::json::parse(
      VeltoDynamicDebugEncoder::encodeToString(value, VeltoDynamicDebugEncoderOptions::forLogging()).value());
}

TEST(VeltoCustomDebugEncoding, eachDestinationUsesItsOwnForm) {
  EXPECT_EQ(rendered(Celsius{21}), boost::json::value("21 C"));
  EXPECT_EQ(rendered(std::vector<Celsius>{{1}, {2}}), boost::json::parse(R"(["1 C", "2 C"])"));
  EXPECT_EQ(rendered(std::map<std::string, Celsius>{{"in", {3}}}), boost::json::parse(R"({"in": "3 C"})"));
}

TEST(VeltoCustomDebugEncoding, containerHooksFillTheObjectTheEncoderOpens) {
  EXPECT_EQ(rendered(Labelled{4}), boost::json::parse(R"({"label": "#4"})"));
  EXPECT_EQ(rendered(std::vector<Opaque>{{}}), boost::json::parse(R"([{"secret": "[hidden]"}])"));
}
