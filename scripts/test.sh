#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite twice:
# once in the debug build and once under AddressSanitizer + UndefinedBehaviorSanitizer; then
# runs every fuzz target for RPX_FUZZ_SECONDS (default 30) under both sanitizers.
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
echo "== fuzz: each target for ${RPX_FUZZ_SECONDS:-30} s"
scripts/fuzz.sh "${RPX_FUZZ_SECONDS:-30}" || status=1
exit $status
