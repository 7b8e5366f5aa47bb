// Counts global operator new calls made by the current thread, so a test can show that an
// operation allocates exactly as often as its contract says.
//
//   velto::test::AllocationCounter counter;
//   auto junction = fork(via, {}, std::nullopt, site);
//   EXPECT_EQ(counter.count(), 1u);
#pragma once

#include <cstddef>

namespace velto::test {

/// Allocations made on this thread since construction. Not thread-safe by design: it reads a
/// thread-local tally, so other threads' allocations never disturb a count.
class AllocationCounter {
 public:
  AllocationCounter() noexcept;
  [[nodiscard]] std::size_t count() const noexcept;

 private:
  std::size_t start_;
};

}  // namespace velto::test
