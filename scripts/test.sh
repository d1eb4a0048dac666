#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite twice: once in the debug build
# and once under AddressSanitizer + UndefinedBehaviorSanitizer (there without the long fault
# sweep and kill-and-rerun runs, label "robust", which the debug build runs). Then runs every
# fuzz target for RPX_FUZZ_SECONDS (default 30) under both sanitizers, and checks that every
# benchmark runs (bench/run.sh --quick, on the debug build that is there already).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
status=0
for preset in dev asan; do
  echo "== $preset: build"
  scripts/build.sh "$preset"
  echo "== $preset: test"
  if [ "$preset" = asan ]; then
    ctest --preset "$preset" -LE robust || status=1
  else
    ctest --preset "$preset" || status=1
  fi
done
echo "== fuzz: each target for ${RPX_FUZZ_SECONDS:-30} s"
scripts/fuzz.sh "${RPX_FUZZ_SECONDS:-30}" || status=1
echo "== benchmarks: quick check"
bench/run.sh --quick || status=1
exit $status
