#!/usr/bin/env bash
# Builds the benchmarks (RelWithDebInfo) and runs them all, or those named: bench.sh via dispatch
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset default -DVELTO_BUILD_BENCHMARKS=ON -DVELTO_BUILD_TESTS=OFF -DVELTO_BUILD_EXAMPLES=OFF >/dev/null
cmake --build --preset default
for binary in build/default/bench/velto_bench_*; do
  name=${binary##*/velto_bench_}
  if [ $# -eq 0 ] || [[ " $* " == *" $name "* ]]; then
    echo "== $name"
    "$binary" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
  fi
done
