#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoSensitiveData.hpp>
#include <velto/encoding/VeltoSensitiveString.hpp>
#include <velto/core/VeltoJunction.hpp>

#include <boost/describe.hpp>
#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <regex>
#include <set>
#include <thread>
#include <unordered_map>

#include "support/DebugRendering.hpp"

namespace {

using Options = VeltoDynamicDebugEncoderOptions;
using Data = Options::DataContentsBehaviour;
using velto::test::debugJson;
using velto::test::debugText;

constexpr auto plain = &velto::test::plainDebugOptions;
Options with(std::function<Options(const Options&)> change) { return change(plain()); }

struct Node {
  std::string name;
  std::shared_ptr<Node> next;
};
BOOST_DESCRIBE_STRUCT(Node, (), (name, next))

struct Animal {
  int legs = 4;
  virtual ~Animal() = default;
};
BOOST_DESCRIBE_STRUCT(Animal, (), (legs))

struct Dog : Animal {
  std::string name = "Rex";
};
BOOST_DESCRIBE_STRUCT(Dog, (Animal), (name))

struct Empty {};

struct Described {
  std::string text = "t";
  std::optional<int> missing;
  std::function<void()> callback = [] {};
  VeltoSensitiveString secret{"hunter2"};
};
BOOST_DESCRIBE_STRUCT(Described, (), (text, missing, callback, secret))

enum class Suit { hearts, spades };
BOOST_DESCRIBE_ENUM(Suit, hearts, spades)

struct Named {
  int id;
  std::string debugDescription() const { return "Named#" + std::to_string(id); }
  friend bool operator<(const Named& a, const Named& b) { return a.id < b.id; }
};

struct UiState : VeltoMainThreadOnlyEncodable {
  int x = 1;
};
BOOST_DESCRIBE_STRUCT(UiState, (), (x))

struct Failing {
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const {
    return VeltoResult<void>::fromMessage("custom failure");
  }
};

const std::regex addressPattern("0x[0-9a-f]{16}");

TEST(VeltoDynamicDebugEncoder, objectsAreWrittenOnceAcrossTheWholeDocument) {
  auto node = std::make_shared<Node>(Node{"loop", nullptr});
  node->next = node;
  const auto json = debugJson(node);
  const auto& outer = json.as_object();
  ASSERT_TRUE(outer.contains("__address"));
  EXPECT_TRUE(std::regex_match(std::string(outer.at("__address").as_string()), addressPattern));
  EXPECT_EQ(outer.at("name").as_string(), "loop");
  const auto& inner = outer.at("next").as_object();
  EXPECT_EQ(inner.size(), 1u) << boost::json::serialize(inner);
  EXPECT_EQ(inner.at("__previouslyEncodedAddress"), outer.at("__address"));

  const auto withoutAddresses = debugJson(node, with([](auto& o) { return o.replacing({}, false); }));
  EXPECT_TRUE(withoutAddresses.at("next").as_object().empty());
  node->next.reset();  // break the cycle so the test does not leak

  // A second occurrence elsewhere (not on the current path) is short too.
  auto shared = std::make_shared<Node>(Node{"shared", nullptr});
  const auto pair = debugJson(std::make_pair(shared, shared));
  EXPECT_TRUE(pair.at(".0").as_object().contains("name"));
  EXPECT_FALSE(pair.at(".1").as_object().contains("name"));
}

TEST(VeltoDynamicDebugEncoder, objectsListOwnPropertiesBeforeTheirBasesAndNameTheirDynamicType) {
  VeltoRegisterObjectType<Dog>();  // only ever seen as an Animal below
  std::shared_ptr<Animal> dog = std::make_shared<Dog>();
  const auto json = debugJson(dog, with([](auto& o) { return o.replacing({}, false, {}, {}, {}, true); }));
  const auto& object = json.as_object();
  std::vector<std::string> keys;
  for (const auto& entry : object) keys.emplace_back(entry.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"__type", "name", "legs"}));
  EXPECT_NE(std::string(object.at("__type").as_string()).find("Dog"), std::string::npos);

  const auto childless = debugJson(dog, with([](auto& o) { return o.replacing({}, false, false); }));
  EXPECT_TRUE(childless.as_object().empty()) << "no properties without includeChildrenOfReferenceTypes";
}

TEST(VeltoDynamicDebugEncoder, objectsWithoutChildrenUseTheirDescriptionOrPrintAHint) {
  const auto named = debugJson(std::make_shared<Named>(Named{7}), with([](auto& o) { return o.replacing({}, false); }));
  EXPECT_EQ(named.at("__debugDescription"), "Named#7");

  testing::internal::CaptureStdout();
  const auto empty = debugJson(std::make_shared<Empty>(), with([](auto& o) { return o.replacing({}, false); }));
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(empty.as_object().empty());
  EXPECT_EQ(printed.rfind("Add custom handling for type ", 0), 0u) << printed;
  EXPECT_NE(printed.find("Empty\n"), std::string::npos) << printed;
}

TEST(VeltoDynamicDebugEncoder, tuplesEnumerationsVariantsAndCollectionsFollowTheirStyles) {
  EXPECT_EQ(debugJson(std::make_tuple(1, std::string("a"))), boost::json::parse(R"({".0":1,".1":"a"})"));
  EXPECT_EQ(debugText(std::vector<int>{3, 1, 2}), "[3,1,2]");
  EXPECT_EQ(debugText(std::set<std::string>{"b", "a"}), R"(["a","b"])");
  EXPECT_EQ(debugJson(Suit::spades), "spades");
  EXPECT_EQ(debugJson(std::variant<int, std::string>(5)), boost::json::parse(R"({"__anonymous":5})"));
  EXPECT_EQ(debugJson(VeltoOverride<int>::override(3)), boost::json::parse(R"({"override":3})"));
  EXPECT_EQ(debugJson(VeltoOverride<int>::noOverride()), "noOverride");
  EXPECT_EQ(debugJson(Data::includeContents(VeltoFileSize::fromBytes(1))).as_object().begin()->key(), "includeContents");
}

TEST(VeltoDynamicDebugEncoder, dictionariesAreObjectsOnlyWhenTheirKeysAreTextOrDescribed) {
  const auto numbers = debugJson(std::map<int, std::string>{{2, "b"}, {1, "a"}});
  ASSERT_TRUE(numbers.is_array());
  EXPECT_EQ(numbers.as_array()[0], boost::json::parse(R"({"__key":1,"__value":"a"})"));

  const auto described = debugJson(std::map<Named, int>{{Named{2}, 20}, {Named{1}, 10}});
  EXPECT_EQ(described, boost::json::parse(R"({"Named#1":10,"Named#2":20})"));

  const std::unordered_map<std::string, int> words{{"pear", 1}, {"apple", 2}, {"fig", 3}, {"kiwi", 4}};
  const auto sortedText = VeltoDynamicDebugEncoder::encodeToString(
      words, with([](auto& o) { return o.replacing({}, {}, {}, {}, {}, {}, {}, {}, true); }));
  EXPECT_EQ(sortedText.value(), R"({"apple":2,"fig":3,"kiwi":4,"pear":1})");

  VeltoArgs args{{"zeta", 1}, {"alpha", 2}};
  EXPECT_EQ(debugText(args), R"({"zeta":1,"alpha":2})")
      << "unsorted dictionaries keep their own order";
  EXPECT_EQ(debugJson(std::map<int, int>{}), boost::json::object());
}

TEST(VeltoDynamicDebugEncoder, scalarsNonFiniteNumbersAndShortestDoubles) {
  EXPECT_EQ(debugJson(std::numeric_limits<double>::infinity()), "positive infinity");
  EXPECT_EQ(debugJson(-std::numeric_limits<double>::infinity()), "negative infinity");
  EXPECT_EQ(debugJson(std::nan("")), "NaN");
  EXPECT_EQ(debugJson(std::vector<float>{-INFINITY}), boost::json::parse(R"(["negative infinity"])"));
  EXPECT_EQ(debugText(std::vector<double>{1.5, 0.1, 1e21, 3}), "[1.5,0.1,1e+21,3]");
  EXPECT_EQ(debugText(std::uint64_t{18446744073709551615u}), "18446744073709551615");
  EXPECT_EQ(debugJson(true), true);
  EXPECT_EQ(debugJson('x'), "x");
}

TEST(VeltoDynamicDebugEncoder, optionsDecideNullsClosuresTypesAndSensitiveContent) {
  const auto all = debugJson(Described{});
  EXPECT_TRUE(all.at("missing").is_null());
  EXPECT_EQ(all.at("callback"), "[closure]");
  EXPECT_EQ(all.at("secret"), "hunter2");
  EXPECT_FALSE(all.as_object().contains("__type"));

  const auto trimmed = debugJson(Described{}, with([](auto& o) { return o.replacing({}, {}, {}, false, false, true, true); }));
  EXPECT_FALSE(trimmed.as_object().contains("missing"));
  EXPECT_FALSE(trimmed.as_object().contains("callback"));
  EXPECT_EQ(trimmed.at("secret"), "[sensitive]");
  EXPECT_NE(std::string(trimmed.at("__type").as_string()).find("Described"), std::string::npos);
}

TEST(VeltoDynamicDebugEncoder, prettyPrintingAndSortedPropertyKeysShapeTheText) {
  const VeltoArgs args{{"b", 1}, {"a", std::vector<int>{1, 2}}};
  const auto pretty = VeltoDynamicDebugEncoder::encodeToString(args, with([](auto& o) {
                                                                  return o.replacing({}, {}, {}, {}, {}, {}, {}, true, {}, true);
                                                                }));
  EXPECT_EQ(pretty.value(), "{\n  \"a\" : [\n    1,\n    2\n  ],\n  \"b\" : 1\n}");
}

TEST(VeltoDynamicDebugEncoder, byteBuffersShowContentsBelowTheLimitOnly) {
  const auto limit = VeltoFileSize::fromBytes(100);
  const auto options = with([&](auto& o) { return o.replacing(VeltoOverride<Data>::override(Data::includeContents(limit))); });

  const VeltoData atLimit(100, std::byte{0xAB});
  EXPECT_EQ(debugJson(atLimit, options), boost::json::parse(R"({"byteCount":100,"base64":"[too large to be encoded]"})"));

  const VeltoData below(99, std::byte{0xAB});
  const auto written = debugJson(below, options);
  const std::string base64(written.at("base64").as_string());
  EXPECT_EQ(base64.size(), 132u + 2u) << "two lines, each ended by a line feed";
  EXPECT_EQ(base64[76], '\n');
  EXPECT_EQ(base64.back(), '\n');
  EXPECT_EQ(base64.substr(0, 4), "q6ur");

  EXPECT_EQ(debugJson(VeltoData{std::byte{'M'}}, plain()).at("base64"), "TQ==\n");
  const auto excluded = with([](auto& o) { return o.replacing(VeltoOverride<Data>::override(Data::excludeContents())); });
  EXPECT_EQ(debugJson(below, excluded), boost::json::parse(R"({"byteCount":99})"));
}

TEST(VeltoDynamicDebugEncoder, sensitiveDataHidesContentsButKeepsItsSize) {
  const VeltoSensitiveData secret(VeltoData{std::byte{1}, std::byte{2}});
  const auto obfuscate = with([](auto& o) { return o.replacing({}, {}, {}, {}, {}, {}, true); });
  EXPECT_EQ(debugJson(secret, obfuscate), boost::json::parse(R"({"byteCount":2,"base64":"[sensitive]"})"));
  EXPECT_EQ(debugJson(secret, plain()).at("base64"), "AQI=\n");
  const auto excluded = obfuscate.replacing(VeltoOverride<Data>::override(Data::excludeContents()));
  EXPECT_EQ(debugJson(secret, excluded), boost::json::parse(R"({"byteCount":2})"));
}

TEST(VeltoDynamicDebugEncoder, pointersShowOnlyWithAddresses) {
  int value = 3;
  const auto shown = debugJson(std::make_tuple(&value));
  EXPECT_TRUE(std::regex_match(std::string(shown.at(".0").at("__address").as_string()), addressPattern));
  EXPECT_EQ(shown.at(".0").at("__type"), "int*");

  const auto noAddresses = with([](auto& o) { return o.replacing({}, false); });
  EXPECT_TRUE(debugJson(std::make_tuple(&value, 1), noAddresses).as_object().size() == 1u);
  const auto topLevel = VeltoDynamicDebugEncoder::encodeToData(&value, noAddresses);
  ASSERT_TRUE(topLevel.isFailure()) << "nothing at all to write";
  EXPECT_EQ(topLevel.error().message(), "Failed to encode for debug");
}

TEST(VeltoDynamicDebugEncoder, mainThreadOnlyValuesRenderOnlyOnTheMainThread) {
  EXPECT_EQ(debugJson(UiState{}).at("x"), 1);
  boost::json::value offMain;
  std::thread([&] { offMain = debugJson(std::vector<UiState>{UiState{}}); }).join();
  EXPECT_EQ(offMain, boost::json::parse(R"(["Not encodable off main thread"])"));
}

TEST(VeltoDynamicDebugEncoder, failuresNameTheirSitesAndKeepTheirCause) {
  const auto data = VeltoDynamicDebugEncoder::encodeToData(Failing{}, plain());
  ASSERT_TRUE(data.isFailure());
  const VeltoError& error = data.error();
  EXPECT_EQ(error.message(), "Failed to encode for debug");
  EXPECT_EQ(error.stackFrames().at(0).codeSite(),
            VeltoCodeSite("Encoding/Dynamic Debug Encoder/VeltoDynamicDebugEncoder", "encodeToData(_:options:)", 79));
  const auto* cause = dynamic_cast<const VeltoError*>(error.frameworkError().get());
  ASSERT_NE(cause, nullptr);
  EXPECT_EQ(cause->message(), "custom failure");

  const auto text = VeltoDynamicDebugEncoder::encodeToString(Failing{}, plain());
  ASSERT_EQ(text.error().stackFrames().size(), 2u);
  EXPECT_EQ(text.error().stackFrames()[1].codeSite().functionName(), "encodeToString(_:options:)");
  EXPECT_EQ(text.error().stackFrames()[1].codeSite().lineNumber(), 93u);

  const auto closure = VeltoDynamicDebugEncoder::encodeToData(std::function<void()>([] {}),
                                                              with([](auto& o) { return o.replacing({}, {}, {}, false); }));
  EXPECT_TRUE(closure.isFailure()) << "a top-level value that writes nothing fails";
}

TEST(VeltoDynamicDebugEncoder, invalidUtf8IsKeptInTheBytesButFailsAsText) {
  const std::string broken = "caf\xC3";
  const auto data = VeltoDynamicDebugEncoder::encodeToData(broken, plain());
  ASSERT_TRUE(data.hasValue());
  EXPECT_EQ(data.value().size(), 6u) << "quotes and the four bytes, none dropped";

  const auto text = VeltoDynamicDebugEncoder::encodeToString(broken, plain());
  ASSERT_TRUE(text.isFailure());
  EXPECT_EQ(text.error().message(), "Failed to create string representation of encoded data");
  EXPECT_EQ(text.error().stackFrames()[0].codeSite().lineNumber(), 96u);
  EXPECT_EQ(text.error().frameworkError(), nullptr);
}

TEST(VeltoDynamicDebugEncoder, errorsShowMessageFramesArgumentsImpetusAndCause) {
  const auto impetus = VeltoImpetus::create("Tapped", {}, VeltoCodeSite("/src/App/Screen.cpp", "tap()", 5));
  const auto junction = fork(impetus, {}, VeltoCodeSite("/src/App/Screen.cpp", "tap()", 6), VeltoCodeSite("Lib", "op(via:)", 9));
  const auto cause = VeltoPlatformError::make("NSURLErrorDomain", -1001, "timed out", {{"url", std::string("http://x")}});
  const VeltoError error = VeltoError("Request failed", {{"statusCode", 504}}, cause, VeltoCodeSite("/a/Net.cpp", "send()", 40))
                               .appending(junction);

  const auto json = debugJson(error);
  EXPECT_EQ(json.at("message"), "Request failed");
  EXPECT_EQ(json.at("uuid").as_string(), error.uuidString());
  EXPECT_EQ(json.at("impetus").at("name"), "Tapped");
  const auto& frames = json.at("stackFrames").as_array();
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].at("args"), boost::json::parse(R"({"statusCode":504})"));
  EXPECT_EQ(frames[0].at("codeSite"), boost::json::parse(R"j({"fileName":"Net.cpp","functionName":"send()","lineNumber":40})j"));
  EXPECT_TRUE(frames[0].at("invokerSite").is_null());
  EXPECT_EQ(frames[1].at("invokerSite").at("lineNumber"), 6);
  EXPECT_EQ(frames[2].at("codeSite").at("functionName"), "tap()");
  const auto& framework = json.at("frameworkError");
  EXPECT_EQ(framework.at("code"), -1001);
  EXPECT_EQ(framework.at("domain"), "NSURLErrorDomain");
  EXPECT_EQ(framework.at("userInfo"), boost::json::parse(R"({"url":"http://x"})"));

  const auto bare = debugJson(VeltoPlatformError::make("D", 1, "d"), with([](auto& o) { return o.replacing({}, false); }));
  EXPECT_EQ(bare.as_object().size(), 3u) << "no userInfo entry when it is empty";
}

TEST(VeltoDynamicDebugEncoder, libraryValuesRenderTheirStoredFields) {
  EXPECT_EQ(debugText(VeltoFileSize::fromBytes(3)), R"({"bits":24,"bytesEntire":3})");
  EXPECT_EQ(debugText(VeltoFileSize::fromBytes(3) - VeltoFileSize::fromBytes(5)), R"({"negative":{"bits":16,"bytesEntire":2}})");
}

void freeFunction() {}
struct WithMember {
  int field;
};

// Logging anything at all must compile and produce a document (or the documented failure).
TEST(VeltoDynamicDebugEncoder, rendersValuesOfEveryKindWithoutDescriptions) {
  const auto options = plain().replacing({}, false);
  const int array[3] = {1, 2, 3};
  const std::string text = "x";
  void (*function)() = &freeFunction;
  int WithMember::*member = &WithMember::field;

  EXPECT_TRUE(VeltoDynamicDebugEncoder::encodeToString(std::atomic<int>{1}, options).hasValue());
  EXPECT_EQ(debugText(array, options), "[1,2,3]");
  EXPECT_EQ(debugText(std::array<int, 2>{4, 5}, options), "[4,5]");
  const auto referenced = debugJson(std::cref(text), options);
  EXPECT_TRUE(referenced.is_string() || referenced.is_object());
  EXPECT_EQ(debugText(std::vector<std::optional<int>>{1, std::nullopt}, options), "[1,null]");
  EXPECT_EQ(debugText(std::byte{7}, options), "7");
  EXPECT_EQ(debugText(function, options), "\"[closure]\"");
  EXPECT_EQ(debugJson(std::make_tuple(function)).at(".0"), "[closure]");
  EXPECT_TRUE(VeltoDynamicDebugEncoder::encodeToString(member, options).hasValue());
  EXPECT_TRUE(debugJson(nullptr, options).is_string());
  EXPECT_TRUE(debugJson(VeltoAny()).is_null());
}

}  // namespace
