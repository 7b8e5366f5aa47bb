#!/usr/bin/env bash
# Builds and runs the demo: the library's main road, end to end.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset default -DVELTO_BUILD_TESTS=OFF -DVELTO_BUILD_BENCHMARKS=OFF -DVELTO_BUILD_EXAMPLES=ON >/dev/null
cmake --build --preset default --target velto_demo
./build/default/examples/velto_demo
