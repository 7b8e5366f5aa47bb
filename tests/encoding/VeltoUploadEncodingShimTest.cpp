#include <velto/encoding/VeltoUploadEncodingShim.hpp>

#include <boost/describe.hpp>
#include <boost/url/parse_query.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include <velto/encoding/VeltoDictionaryCodingKey.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoEmptyRequestParameters.hpp>

#include "support/Bytes.hpp"
#include "support/FrameNames.hpp"

namespace {

std::string text(const VeltoResult<VeltoData>& body) {
  EXPECT_TRUE(body.hasValue()) << (body.isFailure() ? body.error().message() : "");
  if (body.isFailure()) return {};
  return velto::test::textOf(body.value());
}

// Sign-in parameters: what a debug dump hides is still sent in the clear.
struct SignIn : VeltoUploadEncodableObject<SignIn> {
  std::string user;
  VeltoSensitiveString password;
  VeltoSensitiveData token{VeltoData{}};
  VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer& container) const {
    if (auto r = encodeValueForUpload(user, container, "user"); !r) return r;
    if (auto r = encodeValueForUpload(password, container, "password"); !r) return r;
    return encodeValueForUpload(token, container, "token");
  }
};
BOOST_DESCRIBE_STRUCT(SignIn, (), (user, password, token))

TEST(VeltoUploadEncodingShim, sensitiveValuesAreHiddenInDumpsButSentInBodies) {
  const SignIn signIn{{}, "ada", VeltoSensitiveString("s3cret pass"), VeltoSensitiveData(VeltoData{std::byte{'k'}})};
  const auto dump = VeltoDynamicDebugEncoder::encodeToString(signIn, VeltoDynamicDebugEncoderOptions::forLogging());
  ASSERT_TRUE(dump.hasValue());
  EXPECT_EQ(dump.value().find("s3cret"), std::string::npos) << dump.value();
  EXPECT_NE(dump.value().find("[sensitive]"), std::string::npos) << dump.value();

  const VeltoUploadEncodingShim shim(signIn);
  EXPECT_EQ(text(shim.makeJsonData()), R"({"user":"ada","password":"s3cret pass","token":"aw=="})");
  EXPECT_EQ(text(shim.makeFormData()), "user=ada&password=s3cret+pass&token=aw%3D%3D");
}

// Entries of every kind a form can hold, written at run time under dictionary coding keys.
struct Entries {
  std::vector<std::pair<std::string, std::variant<std::string, std::int64_t, double, bool, std::vector<std::string>,
                                                  std::vector<std::int64_t>, VeltoEmptyRequestParameters>>>
      entries;
  VeltoResult<void> write(VeltoKeyedEncodingContainer& container) const {
    for (const auto& [name, value] : entries) {
      const VeltoDictionaryCodingKey key(name);
      auto written = std::visit([&](const auto& v) { return encodeValueForUpload(v, container, key); }, value);
      if (!written) return written;
    }
    return VeltoResultVoidSuccess;
  }
  VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& c, std::string_view key) const {
    auto nested = c.nestedKeyedContainer(key);
    return write(nested);
  }
  VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& c) const {
    auto nested = c.nestedKeyedContainer();
    return write(nested);
  }
  VeltoResult<void> encodeForUpload(VeltoEncoder& e) const {
    auto container = e.keyedContainer();
    return write(container);
  }
};

TEST(VeltoUploadEncodingShim, writesFormsByteForByte) {
  Entries e;
  e.entries = {{"q", std::string("caf\xC3\xA9 & cr\xC3\xA8me+50%")},
               {"page", std::int64_t{-2}},
               {"ratio", 0.1},
               {"exact", true},
               {"tag", std::vector<std::string>{"a b", "c=d"}},
               {"none", std::vector<std::string>{}},
               {"ids", std::vector<std::int64_t>{1, 2}},
               {"we*ird-._~!", std::string("*-._~!'()")}};
  const VeltoUploadEncodingShim shim(e);
  EXPECT_EQ(text(shim.makeFormData()),
            "q=caf%C3%A9+%26+cr%C3%A8me%2B50%25&page=-2&ratio=0.1&exact=true&tag=a+b&tag=c%3Dd&ids=1&ids=2"
            "&we*ird-._%7E%21=*-._%7E%21%27%28%29");
  EXPECT_EQ(text(shim.makeJsonData()),
            "{\"q\":\"caf\xC3\xA9 & cr\xC3\xA8me+50%\",\"page\":-2,\"ratio\":0.1,\"exact\":true,\"tag\":[\"a b\",\"c=d\"],"
            "\"none\":[],\"ids\":[1,2],\"we*ird-._~!\":\"*-._~!'()\"}");
  EXPECT_EQ(text(VeltoUploadEncodingShim(VeltoEmptyRequestParameters()).makeFormData()), "");
  EXPECT_EQ(text(VeltoUploadEncodingShim(VeltoEmptyRequestParameters()).makeJsonData()), "{}");
}

TEST(VeltoUploadEncodingShim, refusesWhatAFormCannotHold) {
  const auto topLevel = VeltoUploadEncodingShim(std::vector<std::string>{"a"}).makeFormData();
  ASSERT_TRUE(topLevel.isFailure());
  EXPECT_EQ(topLevel.error().message(), "Form body needs a keyed container at the top level");

  Entries nestedObject;
  nestedObject.entries = {{"fine", std::string("x")}, {"inner", VeltoEmptyRequestParameters()}};
  const auto object = VeltoUploadEncodingShim(nestedObject).makeFormData();
  ASSERT_TRUE(object.isFailure());
  EXPECT_EQ(object.error().message(), "Form body cannot hold nested containers");
  const VeltoArgs* args = object.error().stackFrames().front().args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  EXPECT_EQ(*args->find("key")->get<std::string>(), "inner");

  const auto nestedArray =
      VeltoUploadEncodingShim(std::vector<std::vector<std::string>>{{"a"}}).makeJsonData();  // fine as JSON
  EXPECT_EQ(text(nestedArray), "[[\"a\"]]");
}

TEST(VeltoUploadEncodingShim, refusesTextThatIsNotUtf8) {
  Entries badValue;
  badValue.entries = {{"k", std::string("ok\xC3")}};
  Entries badKey;
  badKey.entries = {{"\xFF", std::string("ok")}};
  for (const Entries* entries : {&badValue, &badKey}) {
    const VeltoUploadEncodingShim shim(*entries);
    for (const auto& body : {shim.makeJsonData(), shim.makeFormData()}) {
      ASSERT_TRUE(body.isFailure());
      EXPECT_EQ(body.error().message(), "Upload text is not valid UTF-8");
    }
  }
}

TEST(VeltoUploadEncodingShim, passesEncoderFailuresUpUnchanged) {
  Entries entries;
  entries.entries = {{"x", std::nan("")}};
  const VeltoUploadEncodingShim shim(entries);
  for (const auto& body : {shim.makeJsonData(), shim.makeFormData()}) {
    ASSERT_TRUE(body.isFailure());
    EXPECT_EQ(body.error().message(), "Unable to encode a non-finite floating-point value directly in JSON");
    for (std::string_view name : velto::test::functionNames(body.error().stackFrames())) {
      EXPECT_EQ(name.find("make"), std::string_view::npos) << "no frame added on the way out: " << name;
    }
  }
}

// Random flat forms decode, with a general-purpose URL library, back to the entries written.
TEST(VeltoUploadEncodingShim, randomFormsDecodeBackToTheirEntries) {
  std::mt19937 random(99);
  static const std::vector<std::string> pieces{"a", "Z", "9", " ", "+", "&", "=", "%", "%2B", "?", "#", "/", "*",
                                               "~", "\xC3\xA9", "\xF0\x9F\x98\x80", "\n", "-._"};
  auto randomText = [&] {
    std::string text;
    for (auto n = random() % 6; n > 0; --n) text += pieces[random() % pieces.size()];
    return text;
  };
  for (int round = 0; round < 1000; ++round) {
    Entries entries;
    std::vector<std::pair<std::string, std::string>> expected;
    for (auto n = random() % 6; n > 0; --n) {
      std::string name = randomText() + std::to_string(entries.entries.size());  // distinct names
      switch (random() % 3) {
        case 0: {
          std::string value = randomText();
          expected.emplace_back(name, value);
          entries.entries.emplace_back(name, value);
          break;
        }
        case 1: {
          const auto value = static_cast<std::int64_t>(random()) - (1LL << 31);
          expected.emplace_back(name, std::to_string(value));
          entries.entries.emplace_back(name, value);
          break;
        }
        default: {
          std::vector<std::string> values;
          for (auto k = random() % 4; k > 0; --k) {
            values.push_back(randomText());
            expected.emplace_back(name, values.back());
          }
          entries.entries.emplace_back(name, values);
        }
      }
    }
    const std::string form = text(VeltoUploadEncodingShim(entries).makeFormData());
    boost::urls::encoding_opts plus;
    plus.space_as_plus = true;
    std::vector<std::pair<std::string, std::string>> decoded;
    if (!form.empty()) {
      auto parsed = boost::urls::parse_query(form);
      ASSERT_TRUE(parsed.has_value()) << form;
      for (const auto& param : *parsed) {
        ASSERT_TRUE(param.has_value) << form;
        decoded.emplace_back(param.key.decode(plus), param.value.decode(plus));
      }
    }
    ASSERT_EQ(decoded, expected) << form;
  }
}

}  // namespace
