// Shared main of the benchmark binaries: warms the process into its multi-threaded state, runs
// the benchmarks, then prints "ratio <subject>/<anchor>" for every pair registered here.
//
//   VELTO_BENCH_RATIO(BM_VeltoFork, BM_MakeSharedJunctionSized, "fork vs bare make_shared (target <= 1.5)");
//
// A ratio is subject time / anchor time per iteration (lower is better for the subject), from
// the medians when the run has repetitions, else from the single run.
#pragma once

#include <string>

namespace velto::bench {

struct RatioRegistration {
  RatioRegistration(std::string subject, std::string anchor, std::string note);
};

}  // namespace velto::bench

#define VELTO_BENCH_CONCAT_INNER(a, b) a##b
#define VELTO_BENCH_CONCAT(a, b) VELTO_BENCH_CONCAT_INNER(a, b)
#define VELTO_BENCH_RATIO(subject, anchor, note)                                                  \
  static const ::velto::bench::RatioRegistration VELTO_BENCH_CONCAT(veltoRatio, __LINE__)(#subject, \
                                                                                         #anchor, note)
