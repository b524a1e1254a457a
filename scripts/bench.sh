#!/usr/bin/env bash
# Installs what is missing (with the peer tools), builds an optimised tree without sanitizers and runs
# the benchmarks: the micro-benchmarks of the cipher, the log filter and the mapped views, then VELQ
# against the I/O floor and against age, openssl and gpg on the same files (bench/peers.py).
# Extra arguments go to bench/peers.py, e.g. `scripts/bench.sh --size-mib 256 --runs 1 --big-gib 0`.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" bench

build="$root/build/bench"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQ_BUILD_TESTS=OFF \
    -DVELQ_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j "$(nproc)"

for b in "$build"/bench/velq_*_bench; do
    "$b" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
done
python3 "$root/bench/peers.py" "$build" "$@"
