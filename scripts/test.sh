#!/usr/bin/env bash
# Checks the include floors, then builds and runs the whole test suite under AddressSanitizer +
# UndefinedBehaviorSanitizer, then the suites that exercise threads (CONCURRENCY_SUITES) under
# ThreadSanitizer. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"

bash scripts/check-floors.sh

cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan

CONCURRENCY_SUITES="core;detail;dispatch;concurrency;encoding;messaging;collections;text;networking"
cmake --preset tsan -DVELTO_TEST_SUITES="$CONCURRENCY_SUITES" >/dev/null
cmake --build --preset tsan
ctest --preset tsan
