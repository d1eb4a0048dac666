#!/usr/bin/env bash
# Builds the libFuzzer targets (preset "fuzz": clang, ASan + UBSan) and runs each for SECONDS
# (default 30) from its seed corpus in fuzz/corpus/. New inputs go to build/fuzz/corpus/, crash
# inputs to build/fuzz/artifacts/. Exits non-zero when a target finds a fault.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
scripts/deps.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
status=0
for seeds in fuzz/corpus/*/; do
  target="$(basename "$seeds")"
  corpus="build/fuzz/corpus/$target"
  artifacts="build/fuzz/artifacts"
  mkdir -p "$corpus" "$artifacts"
  echo "== fuzz $target for ${seconds}s"
  if ! "build/fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
       -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "$corpus" "$seeds" \
       >"build/fuzz/$target.log" 2>&1; then
    echo "!! $target found a fault (see build/fuzz/$target.log and $artifacts/):"
    tail -n 40 "build/fuzz/$target.log"
    status=1
  else
    grep -E '^(stat::number_of_executed_units|Done )' "build/fuzz/$target.log" || true
  fi
done
exit $status
