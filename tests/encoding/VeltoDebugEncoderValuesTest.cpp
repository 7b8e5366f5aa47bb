// What C++ code records every day, rendered as a reader of the log expects: private state,
// dynamic types, keyword-named cases, causes of platform errors, text of every character type,
// paths, bytes, time, function pointers and shared values.
#include <velto/core/VeltoError.hpp>
#include <velto/core/VeltoPlatformError.hpp>
#include <velto/dispatch/VeltoQualityOfService.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <boost/describe.hpp>
#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/DebugRendering.hpp"

namespace {

using Options = VeltoDynamicDebugEncoderOptions;
using velto::test::debugJson;
using velto::test::jsonKeys;

const Options kPlain = velto::test::plainDebugOptions();

// ---- private members ------------------------------------------------------------------------

class Account {
 public:
  Account(std::string owner, int balance, int pin) : owner_(std::move(owner)), balance_(balance), pin_(pin) {}

 protected:
  std::string owner_;

 private:
  int balance_;
  int pin_;
  BOOST_DESCRIBE_CLASS(Account, (), (), (owner_), (balance_, pin_))
};

class SavingsAccount : public Account {
 public:
  SavingsAccount() : Account("ann", 10, 1234) {}

 private:
  double rate_ = 0.5;
  BOOST_DESCRIBE_CLASS(SavingsAccount, (Account), (), (), (rate_))
};

class OnlyPrivate {
  int hidden_ = 3;
  BOOST_DESCRIBE_CLASS(OnlyPrivate, (), (), (), (hidden_))
};

TEST(VeltoDebugEncoderValues, everyStoredMemberShowsWhateverItsAccess) {
  EXPECT_EQ(debugJson(Account("bob", 5, 42)), boost::json::parse(R"({"owner_":"bob","balance_":5,"pin_":42})"));
  EXPECT_EQ(jsonKeys(debugJson(SavingsAccount())), (std::vector<std::string>{"rate_", "owner_", "balance_", "pin_"}))
      << "own members first, then the base's, private ones included";
  EXPECT_EQ(debugJson(OnlyPrivate()), boost::json::parse(R"({"hidden_":3})"));
  const auto object = debugJson(std::make_shared<SavingsAccount>(), kPlain.withIncludeAddresses(false));
  EXPECT_EQ(object.at("pin_"), 1234) << "objects too";
}

// ---- dynamic types --------------------------------------------------------------------------

struct Shape {
  virtual ~Shape() = default;
  int sides = 0;
};
BOOST_DESCRIBE_STRUCT(Shape, (), (sides))
struct Square final : Shape {};

// Writes the type of what it refers to, seen through a reference to the base.
struct TypeOf {
  const VeltoPlatformError* error = nullptr;
  const Shape* shape = nullptr;
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& encoder) const {
    if (auto result = encoder.encodeType(*error, container, "error"); !result) return result;
    return encoder.encodeType(*shape, container, "shape");
  }
};

TEST(VeltoDebugEncoderValues, encodeTypeWritesTheDynamicType) {
  const VeltoError error("Failed");
  const Square square;
  const auto json = debugJson(TypeOf{&error, &square});
  EXPECT_EQ(json.at("error"), "VeltoError");
  EXPECT_EQ(json.at("shape"), "Square");

  const auto plain = VeltoPlatformError::make("Domain", 1, "plain");
  const Shape shape;
  const auto bases = debugJson(TypeOf{plain.get(), &shape});
  EXPECT_EQ(bases.at("error"), "BasicPlatformError") << "the library's own type, without its anonymous namespace";
  EXPECT_EQ(bases.at("shape"), "Shape");
}

// ---- keyword names ----------------------------------------------------------------------------

enum class Access { public_, private_, default_, value_, a_ };
BOOST_DESCRIBE_ENUM(Access, public_, private_, default_, value_, a_)

struct Keyworded {
  int delete_ = 1;
  int new_value_ = 2;
  int class_ = 3;
  Access access = Access::default_;
};
BOOST_DESCRIBE_STRUCT(Keyworded, (), (delete_, new_value_, class_, access))

TEST(VeltoDebugEncoderValues, keywordNamesPrintWithoutTheirUnderscore) {
  EXPECT_EQ(debugJson(VeltoQualityOfService::default_), "default");
  EXPECT_EQ(debugJson(VeltoQualityOfService::userInitiated), "userInitiated");
  EXPECT_EQ(debugJson(std::vector<Access>{Access::public_, Access::private_, Access::default_, Access::value_, Access::a_}),
            boost::json::parse(R"(["public","private","default","value_","a_"])"))
      << "only a keyword's underscore goes";
  EXPECT_EQ(debugJson(Keyworded()), boost::json::parse(R"({"delete":1,"new_value_":2,"class":3,"access":"default"})"));
}

// ---- underlying errors --------------------------------------------------------------------------

TEST(VeltoDebugEncoderValues, platformErrorsShowTheirChainOfCausesUnderUserInfo) {
  const auto root = VeltoPlatformError::make("Posix", 2, "No such file");
  const auto middle = VeltoPlatformError::make("Store", 7, "Cannot open", {{"path", std::string("/x")}}, root);
  const auto top = VeltoPlatformError::make(std::string(VeltoPlatformError::urlErrorDomain), -1005, "Lost", {}, middle);

  const auto json = debugJson(top, kPlain.withIncludeAddresses(false));
  EXPECT_EQ(jsonKeys(json), (std::vector<std::string>{"code", "domain", "localizedDescription", "userInfo"}));
  const auto& cause = json.at("userInfo").at("NSUnderlyingError");
  EXPECT_EQ(cause.at("domain"), "Store");
  EXPECT_EQ(jsonKeys(cause.at("userInfo")), (std::vector<std::string>{"path", "NSUnderlyingError"}))
      << "the platform's own entries first";
  const auto& rootJson = cause.at("userInfo").at("NSUnderlyingError");
  EXPECT_EQ(rootJson, boost::json::parse(R"({"code":2,"domain":"Posix","localizedDescription":"No such file"})"))
      << "no userInfo when there is neither information nor a cause";

  // Wrapped in a VeltoError, the whole chain is still there.
  const VeltoError failure("Upload failed", {}, top);
  const auto wrapped = debugJson(failure, kPlain.withIncludeAddresses(false));
  EXPECT_EQ(wrapped.at("frameworkError").at("userInfo").at("NSUnderlyingError").at("userInfo").at("NSUnderlyingError"),
            rootJson);

  // A user-information entry of that name is the platform's own: it is not doubled.
  const auto explicitCause = VeltoPlatformError::make("D", 1, "d", {{"NSUnderlyingError", std::string("given")}}, root);
  EXPECT_EQ(debugJson(explicitCause).at("userInfo"), boost::json::parse(R"({"NSUnderlyingError":"given"})"));
}

// ---- text of every character type --------------------------------------------------------------

// Independent of the encoder's conversion: decodes the UTF-8 the document holds.
std::u32string decodeUtf8(std::string_view bytes) {
  std::u32string out;
  for (std::size_t i = 0; i < bytes.size();) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t code = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; k < length; ++k) code = (code << 6) | (static_cast<unsigned char>(bytes[i + k]) & 0x3F);
    out.push_back(code);
    i += length;
  }
  return out;
}

std::string textOf(const boost::json::value& json) { return std::string(json.as_string()); }

TEST(VeltoDebugEncoderValues, textOfEveryCharacterTypeRendersAsUtf8) {
  std::mt19937 random(20261123);
  for (int round = 0; round < 300; ++round) {
    // Code points from every plane and length class, and lone surrogates in the UTF-16 form.
    std::u32string expected;
    std::u16string utf16;
    const int length = std::uniform_int_distribution<int>(0, 12)(random);
    for (int i = 0; i < length; ++i) {
      char32_t code;
      switch (std::uniform_int_distribution<int>(0, 4)(random)) {
        case 0: code = std::uniform_int_distribution<char32_t>(0x20, 0x7E)(random); break;
        case 1: code = std::uniform_int_distribution<char32_t>(0x80, 0x7FF)(random); break;
        case 2: code = std::uniform_int_distribution<char32_t>(0xE000, 0xFFFD)(random); break;
        case 3: code = std::uniform_int_distribution<char32_t>(0x10000, 0x10FFFF)(random); break;
        default: code = std::uniform_int_distribution<char32_t>(0xD800, 0xDFFF)(random); break;
      }
      if (code >= 0xD800 && code <= 0xDFFF) {
        utf16.push_back(static_cast<char16_t>(code));
        // Lone surrogates become U+FFFD; a high one followed by a low one would pair, so the
        // generator follows every surrogate with a plain character.
        expected.push_back(0xFFFD);
        utf16.push_back(u'.');
        expected.push_back(U'.');
        continue;
      }
      expected.push_back(code);
      if (code >= 0x10000) {
        utf16.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
        utf16.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
      } else {
        utf16.push_back(static_cast<char16_t>(code));
      }
    }
    std::u32string utf32;
    for (char32_t code : expected) utf32.push_back(code);
    const std::wstring wide(utf32.begin(), utf32.end());

    ASSERT_EQ(decodeUtf8(textOf(debugJson(utf16))), expected) << "round " << round;
    ASSERT_EQ(decodeUtf8(textOf(debugJson(std::u16string_view(utf16)))), expected);
    ASSERT_EQ(decodeUtf8(textOf(debugJson(utf32))), expected);
    ASSERT_EQ(decodeUtf8(textOf(debugJson(std::u32string_view(utf32)))), expected);
    ASSERT_EQ(decodeUtf8(textOf(debugJson(wide))), expected);
    ASSERT_EQ(decodeUtf8(textOf(debugJson(std::wstring_view(wide)))), expected);
    const std::string utf8 = textOf(debugJson(utf32));
    const std::u8string u8(utf8.begin(), utf8.end());
    ASSERT_EQ(textOf(debugJson(u8)), utf8);
    ASSERT_EQ(textOf(debugJson(std::u8string_view(u8))), utf8);
    // Recorded in an argument dictionary, as the library records them.
    ASSERT_EQ(textOf(debugJson(VeltoAny(utf16))), utf8);
  }
}

struct CStrings {
  const char* name = "ann";
  const char* missing = nullptr;
  char buffer[8] = "abc";
  char full[3] = {'x', 'y', 'z'};
};
BOOST_DESCRIBE_STRUCT(CStrings, (), (name, missing, buffer, full))

TEST(VeltoDebugEncoderValues, cStringsAndCharBuffersAreText) {
  EXPECT_EQ(debugJson(CStrings()), boost::json::parse(R"({"name":"ann","missing":null,"buffer":"abc","full":"xyz"})"))
      << "a buffer without a NUL is text to its end";
  EXPECT_EQ(jsonKeys(debugJson(CStrings(), kPlain.withIncludeNulls(false))),
            (std::vector<std::string>{"name", "buffer", "full"}))
      << "a null C string is an absent value";
  EXPECT_EQ(debugJson("literal"), "literal");
  char mutableText[] = "mutable";
  char* pointer = mutableText;
  EXPECT_EQ(debugJson(pointer), "mutable");
  EXPECT_EQ(debugJson(std::vector<const char*>{"a", nullptr, "b"}), boost::json::parse(R"(["a",null,"b"])"));
  EXPECT_EQ(debugJson(VeltoAny("recorded")), "recorded");
}

// ---- paths, bytes, time, function pointers -------------------------------------------------------

int twice(int x) { return 2 * x; }

struct Everyday {
  std::filesystem::path path = "/var/log/app/today.log";
  std::byte flags{0xA5};
  std::chrono::milliseconds timeout{1500};
  std::chrono::system_clock::time_point when = std::chrono::system_clock::from_time_t(1'700'000'000);
  int (*transform)(int) = &twice;
};
BOOST_DESCRIBE_STRUCT(Everyday, (), (path, flags, timeout, when, transform))

TEST(VeltoDebugEncoderValues, pathsBytesTimeAndFunctionPointersRenderAsTheirMeaning) {
  EXPECT_EQ(debugJson(Everyday()), boost::json::parse(R"({"path":"/var/log/app/today.log","flags":165,"timeout":1.5,
                                                       "when":1700000000.0,"transform":"[closure]"})"));
  EXPECT_EQ(jsonKeys(debugJson(Everyday(), kPlain.withIncludeClosures(false))),
            (std::vector<std::string>{"path", "flags", "timeout", "when"}));
  EXPECT_EQ(debugJson(std::chrono::nanoseconds(250)), 2.5e-7);
  EXPECT_EQ(debugJson(std::chrono::hours(2)), 7200);
  EXPECT_EQ(debugJson(std::chrono::duration<double, std::milli>(-0.5)), -0.0005);
  EXPECT_EQ(debugJson(std::filesystem::path()), "");
  EXPECT_EQ(debugJson(std::vector<std::byte>{std::byte{1}}).at("byteCount"), 1) << "a byte buffer stays a buffer";

  // A deep path is one string, whatever its number of components.
  std::filesystem::path deep;
  for (int i = 0; i < 1000; ++i) deep /= "d";
  EXPECT_EQ(textOf(debugJson(deep)).size(), 1999u);
}

// ---- shared values ------------------------------------------------------------------------------

TEST(VeltoDebugEncoderValues, sharedValuesAreObjectsHoldingTheValue) {
  const auto text = std::make_shared<std::string>("shared");
  const auto numbers = std::make_shared<std::vector<int>>(std::vector<int>{1, 2});
  const auto typed = kPlain.withIncludeTypes(true);

  testing::internal::CaptureStdout();
  const auto json = debugJson(std::make_tuple(text, numbers, text, std::make_shared<int>(7)), typed);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "no hint to add custom handling";

  const auto& first = json.at(".0");
  EXPECT_EQ(jsonKeys(first), (std::vector<std::string>{"__type", "__address", "pointee"}));
  EXPECT_EQ(first.at("__type"), "std::string");
  EXPECT_EQ(first.at("pointee"), "shared");
  EXPECT_EQ(json.at(".1").at("__type"), "std::vector<int>");
  EXPECT_EQ(json.at(".1").at("pointee"), boost::json::parse("[1,2]"));
  EXPECT_EQ(json.at(".2").at("__previouslyEncodedAddress"), first.at("__address")) << "still written once";
  EXPECT_FALSE(json.at(".2").as_object().contains("pointee"));
  EXPECT_EQ(json.at(".3").at("pointee"), 7);

  const auto map = std::make_shared<std::map<std::string, std::vector<std::string>>>();
  (*map)["k"] = {"v"};
  const auto mapJson = debugJson(map, typed);
  EXPECT_EQ(mapJson.at("__type"), "std::map<std::string, std::vector<std::string>>");
  EXPECT_EQ(mapJson.at("pointee"), boost::json::parse(R"({"k":["v"]})"));
}

// ---- options by name ------------------------------------------------------------------------------

TEST(VeltoDebugEncoderValues, optionsByNameByCopyAndByPositionAgree) {
  using Data = Options::DataContentsBehaviour;
  EXPECT_EQ(Options(Options::Fields{}), Options::forLogging());
  std::mt19937 random(7);
  std::bernoulli_distribution coin;
  for (int round = 0; round < 200; ++round) {
    const Data data = coin(random) ? Data::excludeContents()
                                   : Data::includeContents(VeltoFileSize::fromBytes(random() % 4096));
    bool b[9];
    for (bool& flag : b) flag = coin(random);
    const Options positional(data, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8]);
    const Options named({.dataBehaviour = data,
                         .includeAddresses = b[0],
                         .includeChildrenOfReferenceTypes = b[1],
                         .includeClosures = b[2],
                         .includeNulls = b[3],
                         .includeTypes = b[4],
                         .obfuscateSensitiveContent = b[5],
                         .prettyPrint = b[6],
                         .sortDictionaryKeys = b[7],
                         .sortPropertyKeys = b[8]});
    const Options chained = Options::forLogging()
                                .withDataBehaviour(data)
                                .withIncludeAddresses(b[0])
                                .withIncludeChildrenOfReferenceTypes(b[1])
                                .withIncludeClosures(b[2])
                                .withIncludeNulls(b[3])
                                .withIncludeTypes(b[4])
                                .withObfuscateSensitiveContent(b[5])
                                .withPrettyPrint(b[6])
                                .withSortDictionaryKeys(b[7])
                                .withSortPropertyKeys(b[8]);
    const Options replaced =
        Options::forLogging().replacing(VeltoOverride<Data>::override(data), b[0], b[1], b[2], b[3], b[4], b[5], b[6],
                                        b[7], b[8]);
    ASSERT_EQ(named, positional) << "round " << round;
    ASSERT_EQ(chained, positional) << "round " << round;
    ASSERT_EQ(replaced, positional) << "round " << round;
    ASSERT_EQ(Options(positional.fields()), positional);
    // One changed field changes exactly that field.
    const Options flipped = positional.withPrettyPrint(!b[6]);
    ASSERT_NE(flipped, positional);
    ASSERT_EQ(flipped.withPrettyPrint(b[6]), positional);
    ASSERT_EQ(flipped.includeTypes(), b[4]);
    // Replacing keeps what it is not given.
    ASSERT_EQ(positional.replacing(VeltoOverride<Data>::noOverride()), positional);
    ASSERT_EQ(positional.replacing(VeltoOverride<Data>::noOverride(), {}, {}, {}, {}, {}, {}, {}, {}, !b[8]),
              positional.withSortPropertyKeys(!b[8]));
  }
  // What a designated list does not name keeps the logging preset.
  const Options compact({.prettyPrint = false});
  EXPECT_FALSE(compact.prettyPrint());
  EXPECT_TRUE(compact.obfuscateSensitiveContent());
  EXPECT_EQ(compact.withPrettyPrint(true), Options::forLogging());
}

}  // namespace
