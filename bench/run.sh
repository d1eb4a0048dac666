#!/usr/bin/env bash
# Runs the benchmarks and prints their figures.
#
#   bench/run.sh            full: release build; search over 1,000,000 documents, copy of a
#                           1024 MB file (cached and uncached), the whole patch on configuration
#                           databases of 10,000 to 300,000 documents. Takes a while (the
#                           databases are made once in build/release/bench-data and reused).
#   bench/run.sh --quick    a check that each benchmark runs and prints its figures, on tiny
#                           sizes, with the build in BUILD_DIR (default build/dev, as CI has it),
#                           its data in a temporary folder. The figures mean nothing there.
#
# Sizes of the full mode: RPX_BENCH_DOCS, RPX_BENCH_COPY_MB, RPX_BENCH_PATCH_DOCS (one size);
# RPX_BENCH_DIR moves the data folder.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

quick=0
if [[ "${1:-}" == "--quick" ]]; then
  quick=1
elif [[ $# -gt 0 ]]; then
  echo "usage: bench/run.sh [--quick]" >&2
  exit 2
fi

if [[ $quick == 1 ]]; then
  build="${BUILD_DIR:-$root/build/dev}"
  cmake --build "$build" --target search_bench copy_bench patch_bench
  data="$(mktemp -d)"
  trap 'rm -rf "$data"' EXIT
  export RPX_BENCH_DIR="$data"
  bench="$build/bench"
  echo "== search (quick)"
  "$bench/search_bench" --docs=2000 --runs=3 --seconds=1
  echo "== copy (quick)"
  "$bench/copy_bench" --copy-mb=8 --runs=2 --uncached-runs=1
  echo "== whole patch (quick)"
  "$bench/patch_bench" --quick
  exit 0
fi

launcher=()
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake --preset release -DRPX_BUILD_BENCH=ON "${launcher[@]}" >/dev/null
cmake --build --preset release --target search_bench copy_bench patch_bench

bench="$root/build/release/bench"
echo
echo "== search throughput (${RPX_BENCH_DOCS:-1000000} documents)"
"$bench/search_bench"
echo
echo "== file copy (${RPX_BENCH_COPY_MB:-1024} MB)"
"$bench/copy_bench"
echo
echo "== whole patch through rpxserver"
"$bench/patch_bench"
