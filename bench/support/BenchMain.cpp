#include "support/BenchMain.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <thread>
#include <vector>

namespace velto::bench {
namespace {

struct Ratio {
  std::string subject, anchor, note;
};

std::vector<Ratio>& ratios() {
  static std::vector<Ratio> list;
  return list;
}

// Keeps the time per iteration of every run: plain runs by name, and medians of repetitions.
class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.error_occurred) continue;
      std::string name = run.benchmark_name();
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Aggregate && !median) continue;
      if (median) name = name.substr(0, name.rfind("_median"));
      if (median || !medians_.count(name)) times_[name] = run.GetAdjustedRealTime();
      if (median) medians_[name] = true;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times_;
  std::map<std::string, bool> medians_;
};

// Longest run name that starts with `prefix` as a whole benchmark name (plain, or with /args).
const double* find(const std::map<std::string, double>& times, const std::string& name) {
  auto it = times.find(name);
  if (it != times.end()) return &it->second;
  for (const auto& [key, value] : times) {
    if (key.rfind(name + "/", 0) == 0) return &value;
  }
  return nullptr;
}

}  // namespace

RatioRegistration::RatioRegistration(std::string subject, std::string anchor, std::string note) {
  ratios().push_back({std::move(subject), std::move(anchor), std::move(note)});
}

}  // namespace velto::bench

int main(int argc, char** argv) {
  // libstdc++ and glibc skip atomics until a process has started a thread: measure both sides
  // in the multi-threaded state a real application is in.
  std::thread([] {}).join();

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velto::bench::CollectingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n");
  for (const auto& ratio : velto::bench::ratios()) {
    const double* subject = velto::bench::find(reporter.times_, ratio.subject);
    const double* anchor = velto::bench::find(reporter.times_, ratio.anchor);
    if (!subject || !anchor || *anchor == 0) continue;
    std::printf("ratio %s / %s = %.3f  (%s)\n", ratio.subject.c_str(), ratio.anchor.c_str(), *subject / *anchor,
                ratio.note.c_str());
  }
  return 0;
}
