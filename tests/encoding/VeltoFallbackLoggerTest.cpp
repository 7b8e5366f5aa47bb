#include <velto/encoding/VeltoFallbackLogger.hpp>
#include <velto/core/VeltoJunction.hpp>
#include <velto/core/VeltoPlatformError.hpp>
#include <velto/dispatch/VeltoMainQueue.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

struct Trail {
  std::shared_ptr<const VeltoImpetus> impetus = VeltoImpetus::create("Tapped", {}, VeltoCodeSite("App", "tap()", 1));
  std::shared_ptr<const VeltoJunction> junction = fork(impetus, {}, std::nullopt, VeltoCodeSite("Lib", "op(via:)", 2));
};

// What one report prints when logged on the main thread.
std::string printedFor(const VeltoError& error, const Trail& trail, bool warning) {
  testing::internal::CaptureStdout();
  if (warning) {
    VeltoFallbackLogger::create()->logWarning(error, trail.junction);
  } else {
    VeltoFallbackLogger::create()->logError(error, trail.junction);
  }
  return testing::internal::GetCapturedStdout();
}

// Errors and warnings alike: two header lines (the same word for both, deliberately), then the
// error joined with its trail.
TEST(VeltoFallbackLogger, onTheMainThreadPrintsTheJoinedErrorBeforeReturning) {
  ASSERT_TRUE(VeltoMainQueue::isMainThread());
  const Trail trail;
  const VeltoError error("Disk full", {{"path", std::string("/tmp/x")}}, nullptr, VeltoCodeSite("Store", "save()", 3));
  for (const bool warning : {false, true}) {
    const std::string printed = printedFor(error, trail, warning);
    const auto lines = linesOf(printed);
    ASSERT_GE(lines.size(), 3u) << printed;
    EXPECT_EQ(lines[0], "(FALLBACK LOGGER)");
    EXPECT_EQ(lines[1], "Error");
    const auto document = boost::json::parse(printed.substr(printed.find("Error\n") + 6));
    EXPECT_EQ(document.at("message"), "Disk full");
    EXPECT_EQ(document.at("uuid").as_string(), error.uuidString());
    const auto& frames = document.at("stackFrames").as_array();
    ASSERT_EQ(frames.size(), 3u) << "the error's own frame, then the trail's";
    EXPECT_EQ(frames[0].at("codeSite").at("functionName"), "save()");
    EXPECT_EQ(frames[1].at("codeSite").at("functionName"), "op(via:)");
    EXPECT_EQ(frames[2].at("codeSite").at("functionName"), "tap()");
    EXPECT_EQ(frames[0].at("args").at("path"), "/tmp/x");
    EXPECT_EQ(document.at("impetus").at("name"), "Tapped");
  }
}

TEST(VeltoFallbackLogger, fromOtherThreadsPrintsOnlyWhenTheMainQueueRuns) {
  const Trail trail;
  const auto logger = VeltoFallbackLogger::create();
  testing::internal::CaptureStdout();
  std::thread([&] {
    logger->logError(VeltoError("first"), trail.junction);
    logger->logError(VeltoError("second"), trail.junction);
  }).join();
  std::fflush(stdout);
  const std::string before = testing::internal::GetCapturedStdout();
  EXPECT_EQ(before, "") << "nothing until the main queue is drained";

  testing::internal::CaptureStdout();
  EXPECT_TRUE(VeltoMainQueue::drainPending());
  const std::string after = testing::internal::GetCapturedStdout();
  const auto first = after.find("\"first\"");
  const auto second = after.find("\"second\"");
  ASSERT_NE(first, std::string::npos) << after;
  ASSERT_NE(second, std::string::npos) << after;
  EXPECT_LT(first, second) << "printed in submission order";
}

// A value whose custom encoding refuses, with a cause of its own.
struct Refusing {
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const {
    const auto socket = VeltoPlatformError::make("Posix", 32, "Broken pipe");
    const auto stream = VeltoPlatformError::make("Stream", 4, "Stream closed", {}, socket);
    return VeltoResult<void>::fromMessage("Refused to render the session", {}, stream);
  }
};

// An error that cannot be encoded prints one meta-error line instead: the error, then why, its
// causes outermost first.
TEST(VeltoFallbackLogger, anUnencodableErrorPrintsOneMetaErrorLineSayingWhy) {
  ASSERT_TRUE(VeltoMainQueue::isMainThread());
  const Trail trail;
  const VeltoError badBytes("bad bytes", {{"name", std::string("caf\xC3")}});
  const VeltoError refused("Sync failed", {{"session", Refusing()}});
  for (const bool warning : {false, true}) {
    const std::string prefix = warning ? "meta-error. Failed to encode warning in VeltoFallbackLogger VeltoError(message: "
                                       : "meta-error. Failed to encode error in VeltoFallbackLogger VeltoError(message: ";
    const std::string bytesLine = printedFor(badBytes, trail, warning);
    const std::string refusedLine = printedFor(refused, trail, warning);
    for (const std::string* line : {&bytesLine, &refusedLine}) {
      ASSERT_EQ(line->find('\n'), line->size() - 1) << "one line: " << *line;
      EXPECT_EQ(line->rfind(prefix, 0), 0u) << *line;
    }
    EXPECT_EQ(bytesLine.find("\"bad bytes\""), prefix.size()) << bytesLine;
    EXPECT_NE(bytesLine.find("Failed to create string representation of encoded data"), std::string::npos);
    EXPECT_NE(bytesLine.find(badBytes.uuidString()), std::string::npos);
    EXPECT_EQ(refusedLine.find("\"Sync failed\""), prefix.size()) << refusedLine;
    std::size_t at = 0;
    for (const char* cause : {"Failed to encode for debug", "Refused to render the session", "Stream 4 \"Stream closed\"",
                              "Posix 32 \"Broken pipe\""}) {
      at = refusedLine.find(cause, at);
      ASSERT_NE(at, std::string::npos) << cause << ", in order, in " << refusedLine;
    }
  }
}

}  // namespace
