#include <velto/encoding/VeltoSpdlogLogger.hpp>

#if VELTO_HAS_SPDLOG

#include <velto/core/VeltoJunction.hpp>

#include <boost/json.hpp>
#include <gtest/gtest.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <latch>
#include <mutex>
#include <set>
#include <thread>

namespace {

// Keeps every record a logger passes on: level and formatted payload.
class CapturingSink final : public spdlog::sinks::base_sink<std::mutex> {
 public:
  struct Record {
    spdlog::level::level_enum level;
    std::string text;
  };
  std::vector<Record> records() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return records_;
  }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    records_.push_back({message.level, std::string(message.payload.data(), message.payload.size())});
  }
  void flush_() override {}

 private:
  std::vector<Record> records_;
};

struct Fixture {
  std::shared_ptr<CapturingSink> sink = std::make_shared<CapturingSink>();
  std::shared_ptr<VeltoSpdlogLogger> logger = VeltoSpdlogLogger::create(std::make_shared<spdlog::logger>("velto-test", sink));
  std::shared_ptr<const VeltoImpetus> impetus = VeltoImpetus::create("Tapped", {}, VeltoCodeSite("App", "tap()", 1));
  std::shared_ptr<const VeltoJunction> junction = fork(impetus, {}, std::nullopt, VeltoCodeSite("Lib", "op(via:)", 2));
};

std::vector<std::string> functionNames(const boost::json::value& document) {
  std::vector<std::string> names;
  for (const auto& frame : document.at("stackFrames").as_array()) {
    names.emplace_back(frame.at("codeSite").at("functionName").as_string());
  }
  return names;
}

TEST(VeltoSpdlogLogger, oneRecordPerReportAtItsLevelWithTheJoinedErrorAsCompactJson) {
  Fixture fixture;
  const VeltoError error("Disk full", {{"path", std::string("/tmp/x")}}, nullptr, VeltoCodeSite("Store", "save()", 3));
  fixture.logger->logError(error, fixture.junction);
  fixture.logger->logWarning(VeltoError("Low battery", {}, nullptr, VeltoCodeSite("Power", "poll()", 4)), fixture.impetus);

  const auto records = fixture.sink->records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, spdlog::level::err);
  EXPECT_EQ(records[1].level, spdlog::level::warn);
  for (const auto& record : records) EXPECT_EQ(record.text.find('\n'), std::string::npos) << "one line: " << record.text;

  const auto document = boost::json::parse(records[0].text);
  EXPECT_EQ(document.at("message"), "Disk full");
  EXPECT_EQ(document.at("uuid").as_string(), error.uuidString());
  EXPECT_EQ(functionNames(document), (std::vector<std::string>{"save()", "op(via:)", "tap()"}))
      << "the error's frames, then the dispatch root's";
  EXPECT_EQ(document.at("stackFrames").at(0).at("args").at("path"), "/tmp/x");
  EXPECT_EQ(document.at("impetus").at("name"), "Tapped");
  EXPECT_EQ(functionNames(boost::json::parse(records[1].text)), (std::vector<std::string>{"poll()", "tap()"}));
}

TEST(VeltoSpdlogLogger, anUnencodableErrorIsOneMetaErrorRecordAtTheSameLevel) {
  Fixture fixture;
  const VeltoError error("bad bytes", {{"name", std::string("caf\xC3")}});
  fixture.logger->logWarning(error, fixture.junction);
  const auto records = fixture.sink->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, spdlog::level::warn);
  EXPECT_EQ(records[0].text.rfind("meta-error. Failed to encode warning in VeltoSpdlogLogger VeltoError(message: \"bad bytes\"", 0), 0u)
      << records[0].text;
  EXPECT_NE(records[0].text.find(error.uuidString()), std::string::npos);
}

TEST(VeltoSpdlogLogger, concurrentReportsEachLandAsOneCompleteRecord) {
  Fixture fixture;
  constexpr int kThreads = 8;
  constexpr int kReportsEach = 50;
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      start.arrive_and_wait();
      for (int report = 0; report < kReportsEach; ++report) {
        fixture.logger->logError(VeltoError(std::to_string(thread) + "/" + std::to_string(report)), fixture.junction);
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::set<std::string> messages;
  for (const auto& record : fixture.sink->records()) {
    messages.insert(std::string(boost::json::parse(record.text).at("message").as_string()));
  }
  EXPECT_EQ(messages.size(), static_cast<std::size_t>(kThreads * kReportsEach));
}

TEST(VeltoSpdlogLoggerDeathTest, aNullLoggerStops) {
  EXPECT_DEATH((void)VeltoSpdlogLogger::create(nullptr), "VeltoSpdlogLogger::create: the spdlog logger is null");
}

}  // namespace

#endif
