#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite twice:
# once in the debug build and once under AddressSanitizer + UndefinedBehaviorSanitizer.
# Then checks that every benchmark runs (bench/run.sh --quick, on the debug build that is there
# already: no further build, and well under two minutes).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
status=0
for preset in dev asan; do
  echo "== $preset: build"
  scripts/build.sh "$preset"
  echo "== $preset: test"
  ctest --preset "$preset" || status=1
done
echo "== benchmarks: quick check"
bench/run.sh --quick || status=1
exit $status
