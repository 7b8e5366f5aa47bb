// The fallback logger's meta-error line says why an error could not be encoded.
#include <velto/core/VeltoError.hpp>
#include <velto/core/VeltoPlatformError.hpp>
#include <velto/dispatch/VeltoMainQueue.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoFallbackLogger.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

// A value whose custom encoding refuses, with a cause of its own.
struct Refusing {
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer&, VeltoDynamicDebugEncoder&) const {
    const auto socket = VeltoPlatformError::make("Posix", 32, "Broken pipe");
    const auto stream = VeltoPlatformError::make("Stream", 4, "Stream closed", {}, socket);
    return VeltoResult<void>::fromMessage("Refused to render the session", {}, stream);
  }
};

std::string printedFor(const VeltoError& error, bool warning) {
  testing::internal::CaptureStdout();
  if (warning) {
    VeltoFallbackLogger::create()->logWarning(error, nullptr);
  } else {
    VeltoFallbackLogger::create()->logError(error, nullptr);
  }
  return testing::internal::GetCapturedStdout();
}

TEST(VeltoFallbackLogger, metaErrorLineShowsWhyEncodingFailed) {
  ASSERT_TRUE(VeltoMainQueue::isMainThread());
  const VeltoError error("Sync failed", {{"session", Refusing()}});
  for (const bool warning : {false, true}) {
    const std::string printed = printedFor(error, warning);
    ASSERT_EQ(printed.find('\n'), printed.size() - 1) << "one line: " << printed;
    const std::string prefix =
        warning ? "meta-error. Failed to encode warning in " : "meta-error. Failed to encode error in ";
    EXPECT_EQ(printed.rfind(prefix, 0), 0u) << printed;
    EXPECT_NE(printed.find("Sync failed"), std::string::npos) << "the error itself: " << printed;
    EXPECT_NE(printed.find("Failed to encode for debug"), std::string::npos) << printed;
    // The causes, outermost first: the refusal, then its chain.
    const auto refusal = printed.find("Refused to render the session");
    const auto stream = printed.find("Stream 4 \"Stream closed\"");
    const auto socket = printed.find("Posix 32 \"Broken pipe\"");
    ASSERT_NE(refusal, std::string::npos) << printed;
    ASSERT_NE(stream, std::string::npos) << printed;
    ASSERT_NE(socket, std::string::npos) << printed;
    EXPECT_LT(refusal, stream);
    EXPECT_LT(stream, socket);
  }
}

}  // namespace
