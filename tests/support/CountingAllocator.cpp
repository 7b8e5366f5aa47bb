#include "support/CountingAllocator.hpp"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t allocationsOnThisThread = 0;
}

// Replacing the global allocation functions is allowed in exactly one place of a program; the
// test binaries link this file once through velto_test_support. Every unaligned form is replaced
// (the array forms forward to these), so that each allocation and its release meet the same
// allocator; the aligned forms stay with the runtime as a pair.
void* operator new(std::size_t size) {
  ++allocationsOnThisThread;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocationsOnThisThread;
  return std::malloc(size ? size : 1);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace velto::test {

AllocationCounter::AllocationCounter() noexcept : start_(allocationsOnThisThread) {}
std::size_t AllocationCounter::count() const noexcept { return allocationsOnThisThread - start_; }

}  // namespace velto::test
