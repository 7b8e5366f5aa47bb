#include <velto/encoding/VeltoFallbackLogger.hpp>
#include <velto/dispatch/VeltoMainQueue.hpp>
#include <velto/core/VeltoJunction.hpp>

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

// The JSON document after the two header lines.
boost::json::value documentOf(const std::string& printed) {
  const auto start = printed.find("Error\n");
  return boost::json::parse(printed.substr(start + 6));
}

struct Trail {
  std::shared_ptr<const VeltoImpetus> impetus = VeltoImpetus::create("Tapped", {}, VeltoCodeSite("App", "tap()", 1));
  std::shared_ptr<const VeltoJunction> junction = fork(impetus, {}, std::nullopt, VeltoCodeSite("Lib", "op(via:)", 2));
};

TEST(VeltoFallbackLogger, onTheMainThreadPrintsTheJoinedErrorBeforeReturning) {
  ASSERT_TRUE(VeltoMainQueue::isMainThread());
  const Trail trail;
  const VeltoError error("Disk full", {{"path", std::string("/tmp/x")}}, nullptr, VeltoCodeSite("Store", "save()", 3));

  testing::internal::CaptureStdout();
  VeltoFallbackLogger::create()->logError(error, trail.junction);
  const std::string printed = testing::internal::GetCapturedStdout();

  const auto lines = linesOf(printed);
  ASSERT_GE(lines.size(), 3u) << printed;
  EXPECT_EQ(lines[0], "(FALLBACK LOGGER)");
  EXPECT_EQ(lines[1], "Error");
  const auto document = documentOf(printed);
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

TEST(VeltoFallbackLogger, warningsPrintTheSameHeaderLines) {
  const Trail trail;
  testing::internal::CaptureStdout();
  VeltoFallbackLogger::create()->logWarning(VeltoError("Low battery"), trail.impetus);
  const auto lines = linesOf(testing::internal::GetCapturedStdout());
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "(FALLBACK LOGGER)");
  EXPECT_EQ(lines[1], "Error") << "deliberately the same word for warnings";
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

TEST(VeltoFallbackLogger, anUnencodableErrorPrintsOneMetaErrorLine) {
  const Trail trail;
  const VeltoError error("bad bytes", {{"name", std::string("caf\xC3")}});
  testing::internal::CaptureStdout();
  VeltoFallbackLogger::create()->logWarning(error, trail.junction);
  const auto lines = linesOf(testing::internal::GetCapturedStdout());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("meta-error. Failed to encode warning in VeltoFallbackLogger VeltoError(message: \"bad bytes\"", 0), 0u)
      << lines[0];
  EXPECT_NE(lines[0].find("Failed to create string representation of encoded data"), std::string::npos);
  EXPECT_NE(lines[0].find(error.uuidString()), std::string::npos);
}

}  // namespace
