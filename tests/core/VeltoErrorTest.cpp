#include <velto/core/VeltoError.hpp>
#include <velto/core/VeltoErrorFormatter.hpp>
#include <velto/core/VeltoInitializerError.hpp>
#include <velto/core/VeltoJunction.hpp>

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <sstream>
#include <set>

#include "support/FrameNames.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;

VeltoStackFrame frameAt(const char (&function)[2]) {
  return VeltoStackFrame({}, std::nullopt, VeltoCodeSite::interned("F", function, 1));
}

std::vector<std::string_view> functionNames(const VeltoError& error) {
  return velto::test::functionNames(error.stackFrames());
}

TEST(VeltoError, startsWithOneFrameAtItsLineAndNoImpetus) {
  const unsigned line = __LINE__ + 1;
  const VeltoError error("Key not found", {{"key", std::string("k")}});
  EXPECT_EQ(error.message(), "Key not found");
  ASSERT_EQ(error.stackFrames().size(), 1u);
  EXPECT_EQ(error.stackFrames()[0].codeSite().lineNumber(), line);
  EXPECT_FALSE(error.stackFrames()[0].invokerSite());
  ASSERT_NE(error.stackFrames()[0].args().get<VeltoArgs>(), nullptr);
  EXPECT_NE(error.stackFrames()[0].args().get<VeltoArgs>()->find("key"), nullptr);
  EXPECT_FALSE(error.impetus());
  EXPECT_EQ(error.frameworkError(), nullptr);
}

TEST(VeltoError, appendingFramesKeepsCreationOrderAndIdentity) {
  const VeltoError error("m", {}, nullptr, VeltoCodeSite("F", "a", 1));
  const VeltoError longer = error.appending(frameAt("b")).appending(frameAt("c"));
  EXPECT_EQ(functionNames(longer), (std::vector<std::string_view>{"a", "b", "c"}));
  EXPECT_EQ(longer.uuid(), error.uuid());
  EXPECT_EQ(longer.timestampEpoch(), error.timestampEpoch());
  EXPECT_EQ(longer.message(), "m");
  EXPECT_EQ(error.stackFrames().size(), 1u) << "appending returns a copy";
}

TEST(VeltoError, errorsMadeAtTheSameLineHaveDistinctRandomUuids) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const VeltoError error("same line");
    const std::string text = error.uuidString();
    EXPECT_TRUE(std::regex_match(text, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << text;
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(VeltoError, appendingATrailAddsItsFramesAfterAndTakesItsImpetus) {
  const auto impetus = VeltoImpetus::create("first", VeltoAny{}, VeltoCodeSite("I", "i", 1));
  const Via junction = fork(impetus, {}, std::nullopt, VeltoCodeSite("J", "j", 2));
  const VeltoError error("m", {}, nullptr, VeltoCodeSite("E", "e", 3));

  const VeltoError joined = error.appending(junction);
  EXPECT_EQ(functionNames(joined), (std::vector<std::string_view>{"e", "j", "i"}));
  ASSERT_TRUE(joined.impetus());
  EXPECT_EQ(*joined.impetus(), *impetus);
  EXPECT_EQ(joined.uuid(), error.uuid());

  const auto second = VeltoImpetus::create("second", VeltoAny{}, VeltoCodeSite("S", "s", 4));
  const VeltoError twice = joined.appending(second);
  EXPECT_EQ(functionNames(twice), (std::vector<std::string_view>{"e", "j", "i", "s"})) << "frames are added again";
  EXPECT_EQ(twice.impetus()->name(), "second") << "the later impetus replaces the earlier";
}

TEST(VeltoError, isAPlatformErrorOfItsOwnDomainAndKeepsItsCause) {
  const auto cause = VeltoPlatformError::make(std::string(VeltoPlatformError::urlErrorDomain), -1001, "timed out");
  const VeltoError error("Request failed", {}, cause);
  const VeltoPlatformError& asPlatform = error;
  EXPECT_EQ(asPlatform.domain(), "VeltoError");
  EXPECT_EQ(asPlatform.code(), 1);
  EXPECT_TRUE(asPlatform.userInfo().empty());
  EXPECT_EQ(asPlatform.localizedDescription().find("Request failed"), std::string::npos)
      << "the message is deliberately not the localized description";
  EXPECT_EQ(error.frameworkError(), cause);
  EXPECT_EQ(error.appending(frameAt("x")).frameworkError(), cause);
}

TEST(VeltoError, debugDumpNamesEveryField) {
  const auto impetus = VeltoImpetus::create("tap");
  const VeltoError error = VeltoError("boom", {}, VeltoPlatformError::make("D", 7, "desc")).appending(impetus);
  const std::string dump = error.debugDump();
  for (const std::string& part : {std::string("boom"), error.uuidString(), std::string("\"tap\""), std::string("D 7")}) {
    EXPECT_NE(dump.find(part), std::string::npos) << part << " missing in " << dump;
  }
  EXPECT_EQ(dump.find('\n'), std::string::npos);
}

TEST(VeltoError, summaryIsOneLineWithMessageInnermostSiteAndImpetus) {
  const VeltoError fresh("Disk full", {}, nullptr, VeltoCodeSite("/src/app/Store.cpp", "loadProfile(via:userId:)", 12));
  EXPECT_EQ(fresh.summary(), "Disk full at Store.cpp:12 loadProfile(via:userId:)");

  const auto impetus = VeltoImpetus::create("User opened the profile screen", VeltoAny{}, VeltoCodeSite("UI", "tap()", 3));
  const VeltoError joined = fresh.appending(frameAt("b")).appending(fork(impetus, {}, std::nullopt, VeltoCodeSite("J", "j", 2)));
  const std::string expected = R"(Disk full at Store.cpp:12 loadProfile(via:userId:) (impetus "User opened the profile screen"))";
  EXPECT_EQ(joined.summary(), expected) << "the innermost frame, not the outermost";

  std::ostringstream stream;
  stream << joined;
  EXPECT_EQ(stream.str(), expected);
  EXPECT_EQ(fmt::format("{}", joined), expected);
  EXPECT_EQ(fmt::format("[{:>12.4}]", fresh), "[        Disk]") << "string format options apply";
}

// Whatever bytes a message or an impetus name holds, the summary is one line without control
// characters, and undoing the escapes gives the original text back.
TEST(VeltoError, summaryEscapesControlCharactersReversibly) {
  const auto unescape = [](std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\\') {
        out += text[i];
      } else if (text[++i] == 'x') {
        out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
      } else {
        out += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : '\t';
      }
    }
    return out;
  };
  std::mt19937 random(7);
  const std::string alphabet = std::string("ab \n\r\t\x01\x1b\x7f\xc3\xa9") + '\0';
  for (int round = 0; round < 500; ++round) {
    std::string message, name;
    for (auto length = random() % 10; length > 0; --length) message += alphabet[random() % alphabet.size()];
    for (auto length = random() % 10; length > 0; --length) name += alphabet[random() % alphabet.size()];
    const VeltoError error = VeltoError(message, {}, nullptr, VeltoCodeSite("F", "f", 1)).appending(VeltoImpetus::create(name));
    const std::string summary = error.summary();
    for (const char c : summary) {
      ASSERT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) << summary;
    }
    const std::string_view text = summary;
    const std::size_t at = text.find(" at F:1 f (impetus \"");
    ASSERT_NE(at, std::string_view::npos) << summary;
    EXPECT_EQ(unescape(text.substr(0, at)), message);
    const std::size_t nameStart = at + std::string_view(" at F:1 f (impetus \"").size();
    EXPECT_EQ(unescape(text.substr(nameStart, text.size() - nameStart - 2)), name);
  }
}

TEST(VeltoInitializerError, carriesItsMessageAsAPlatformError) {
  const VeltoInitializerError error("UnsafeBufferPointer has no baseAddress");
  EXPECT_EQ(error.message(), "UnsafeBufferPointer has no baseAddress");
  EXPECT_EQ(error.domain(), "VeltoInitializerError");
  EXPECT_EQ(error.code(), 1);
  EXPECT_EQ(error, VeltoInitializerError("UnsafeBufferPointer has no baseAddress"));
}

TEST(VeltoPlatformError, wrapsExceptionsThrownByCallables) {
  const auto fromStd = VeltoPlatformError::fromException(std::make_exception_ptr(std::runtime_error("disk full")));
  EXPECT_EQ(fromStd->domain(), VeltoPlatformError::exceptionDomain);
  EXPECT_EQ(fromStd->localizedDescription(), "disk full");
  ASSERT_NE(fromStd->userInfo().find("type"), nullptr);
  EXPECT_EQ(*fromStd->userInfo().find("type")->get<std::string>(), "std::runtime_error");

  const VeltoError thrown("thrown as a value");
  const auto fromVelto = VeltoPlatformError::fromException(std::make_exception_ptr(thrown));
  const auto* asError = dynamic_cast<const VeltoError*>(fromVelto.get());
  ASSERT_NE(asError, nullptr);
  EXPECT_EQ(asError->uuid(), thrown.uuid());

  EXPECT_EQ(VeltoPlatformError::fromException(std::make_exception_ptr(42))->code(), 2);
}

TEST(VeltoPlatformError, keepsItsUnderlyingChain) {
  const auto root = VeltoPlatformError::make("Root", 1, "root");
  const auto top = VeltoPlatformError::make("Top", 2, "top", {{"k", 1}}, root);
  EXPECT_EQ(top->underlyingError(), root);
  EXPECT_EQ(top->underlyingError()->underlyingError(), nullptr);
  EXPECT_EQ(top->userInfo().size(), 1u);
}

using VeltoErrorDeathTest = testing::Test;

TEST(VeltoErrorDeathTest, appendingANullTrailStops) {
  EXPECT_DEATH((void)VeltoError("m").appending(std::shared_ptr<const VeltoVia>()), "trail is null");
}

}  // namespace
