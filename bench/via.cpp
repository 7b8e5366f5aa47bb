// The call trail's hot operations against what a user would write without it.
#include <velto/core/VeltoImpetus.hpp>
#include <velto/core/VeltoJunction.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <memory>

#include "support/BenchMain.hpp"

namespace {

// A plain struct with the junction's footprint: what a bare shared allocation of one costs.
struct JunctionSized {
  std::array<std::byte, sizeof(VeltoJunction)> bytes{};
};

// One fork: one allocation, one frame copy, the parent's count raised (and all undone).
void BM_VeltoFork(benchmark::State& state) {
  const auto impetus = VeltoImpetus::create("bench");
  const VeltoCodeSite caller = VeltoCodeSite::current();
  for (auto _ : state) {
    auto junction = fork(impetus, {}, caller, VELTO_SITE("Bench/Via", "fork(bench:)"));
    benchmark::DoNotOptimize(junction);
  }
}
BENCHMARK(BM_VeltoFork);

void BM_MakeSharedJunctionSized(benchmark::State& state) {
  for (auto _ : state) {
    auto object = std::make_shared<const JunctionSized>();
    benchmark::DoNotOptimize(object);
  }
}
BENCHMARK(BM_MakeSharedJunctionSized);

// The floor of any shared trail node: the allocation plus holding the parent (one atomic
// increment, one decrement). The gap between this and the bare allocation is not ours to close.
struct JunctionSizedWithParent {
  std::shared_ptr<const VeltoVia> parent;
  std::array<std::byte, sizeof(VeltoJunction) - sizeof(std::shared_ptr<const VeltoVia>)> bytes{};
};

void BM_MakeSharedWithParentCopy(benchmark::State& state) {
  const std::shared_ptr<const VeltoVia> parent = VeltoImpetus::create("bench");
  for (auto _ : state) {
    auto object = std::make_shared<const JunctionSizedWithParent>(JunctionSizedWithParent{parent});
    benchmark::DoNotOptimize(object);
  }
}
BENCHMARK(BM_MakeSharedWithParentCopy);

// Reading the frames of a 20-deep trail (error path): one vector, 21 frame copies.
void BM_VeltoStackFrames20Deep(benchmark::State& state) {
  std::shared_ptr<const VeltoVia> via = VeltoImpetus::create("bench");
  for (int i = 0; i < 20; ++i) via = fork(via, {}, std::nullopt, VELTO_SITE("Bench/Via", "depth"));
  for (auto _ : state) {
    auto frames = via->stackFrames();
    benchmark::DoNotOptimize(frames);
  }
}
BENCHMARK(BM_VeltoStackFrames20Deep);

// Anchor: copying a 21-element vector of frames already gathered.
void BM_VectorCopy21Frames(benchmark::State& state) {
  std::shared_ptr<const VeltoVia> via = VeltoImpetus::create("bench");
  for (int i = 0; i < 20; ++i) via = fork(via, {}, std::nullopt, VELTO_SITE("Bench/Via", "depth"));
  const auto gathered = via->stackFrames();
  for (auto _ : state) {
    auto frames = gathered;
    benchmark::DoNotOptimize(frames);
  }
}
BENCHMARK(BM_VectorCopy21Frames);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoFork, BM_MakeSharedJunctionSized, "fork vs bare make_shared of a junction-sized struct; target <= 1.5");
VELTO_BENCH_RATIO(BM_VeltoFork, BM_MakeSharedWithParentCopy, "fork vs the floor of a shared node: allocation + parent copy");
VELTO_BENCH_RATIO(BM_VeltoStackFrames20Deep, BM_VectorCopy21Frames, "reading a 20-deep trail vs copying its frames");
