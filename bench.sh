#!/usr/bin/env bash
# Builds and runs the benchmarks; exits non-zero when a goal is missed. Options go to the benchmark program, for example
# ./bench.sh --benchmark_filter=Collection
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-deps.sh build
mkdir -p build
cmake --preset release >build/release.configure.log || { cat build/release.configure.log; exit 1; }
cmake --build --preset release -j "$(nproc)" --target provider_bench TAVStorageProvider tavlog tavalert -- --quiet
exec build/release/bin/provider_bench "$@"
