#!/usr/bin/env bash
# Builds the release preset and runs the benchmarks, printing their figures.
#
#   bench/run.sh                 search over 1,000,000 documents, copy of a 200 MB file
#   RPX_BENCH_DOCS=100000 RPX_BENCH_COPY_MB=50 bench/run.sh
#
# Databases and files are made once in build/release/bench-data (RPX_BENCH_DIR to move it)
# and reused by later runs.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

launcher=()
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake --preset release -DRPX_BUILD_BENCH=ON "${launcher[@]}" >/dev/null
cmake --build --preset release --target search_bench copy_bench

bench="$root/build/release/bench"
echo
echo "== search throughput (${RPX_BENCH_DOCS:-1000000} documents) =="
"$bench/search_bench" --benchmark_color=false "$@"
echo
echo "== file copy (${RPX_BENCH_COPY_MB:-200} MB) =="
"$bench/copy_bench" --benchmark_color=false
