#!/usr/bin/env bash
# Builds and runs the benchmarks. Exits non-zero if a goal is missed (docs/PERFORMANCE.md).
#
# usage: ./bench.sh [OPTION...]          the cost of the provider; options are passed to the benchmark program, for example
#                                        --benchmark_filter=Collection
#        ./bench.sh compare [--quick | --places DISKS:MS[:PERHOST],...] [--runs N] [--json FILE]
#                                        the provider beside smartctl, smartd and lsscsi, on the same simulated machines
#        ./bench.sh compare --vm         the same on a real kernel, in the virtual machine of tests/vm
set -euo pipefail
cd "$(dirname "$0")"

targets=(TAVStorageProvider tavlog tavalert) groups=(build)
run=(build/release/bin/provider_bench)
if [ "${1:-}" != compare ]; then
    targets+=(provider_bench)
elif [ "${2:-}" = --vm ]; then
    shift 2
    targets+=(tavstrg vm_guest compare_real) groups+=(vm)
    run=(tests/vm/run.sh --phases compare)
else
    shift
    targets+=(compare_run) groups+=(compare)
    run=(build/release/bin/compare_run)
    PATH=$PATH:/usr/sbin # smartctl and smartd
fi
scripts/install-deps.sh "${groups[@]}"
mkdir -p build
cmake --preset release >build/release.configure.log || { cat build/release.configure.log; exit 1; }
cmake --build --preset release -j "$(nproc)" --target "${targets[@]}" -- --quiet
exec "${run[@]}" "$@"
