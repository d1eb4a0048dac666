#!/usr/bin/env bash
# The main job: builds everything, creates a fresh stand-in server from examples/server under
# build/dev/demo, runs the patch task on it and shows what changed; then runs the patch a second
# time on the same server to show that it finds nothing left to do.
# examples/ is only read; every run starts again from a new server.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh dev

build=build/dev
rpxserver=$build/tools/rpxserver/rpxserver
nsfdb=$build/tools/nsfdb/nsfdb
module=$build/patch/libupdrpx.so
for tool in "$rpxserver" "$nsfdb" "$module"; do
  if [ ! -f "$tool" ]; then
    echo "run.sh: $tool is not built; the demo needs rpxserver, nsfdb and libupdrpx.so." >&2
    exit 1
  fi
done

demo=$build/demo
server=$demo/server
rm -rf "$demo"
mkdir -p "$demo"
"$rpxserver" init examples/server/scenario.json "$server" >"$demo/init.out"
cp -a "$server/data" "$demo/before"

# The replication note's title is padded with NUL bytes; show a run of them as its length.
squeeze_nul() { perl -pe 's/((?:\\u0000){2,})/"<" . length($1) \/ 6 . " NUL bytes>"/ge'; }
debug_log() { (ls "$server"/data/rpxtemp/updrpx_*.dbg 2>/dev/null || true) | sort | tail -n 1; }
line_count() { if [ -f "$1" ]; then wc -l <"$1"; else echo 0; fi; }

# Runs the patch once; its output goes to $demo/<name>.out, the status is shown.
run_patch() {
  local name=$1 started ended status=0
  started=$(date +%s.%N)
  "$rpxserver" run "$server" --module "$module" >"$demo/$name.out" 2>&1 || status=$?
  ended=$(date +%s.%N)
  printf 'rpxserver run: exit status %d, %.1f s (output in %s)\n' "$status" \
    "$(awk -v a="$started" -v b="$ended" 'BEGIN { print b - a }')" "$demo/$name.out"
  return "$status"
}

echo "== Example server created in $server (data before the patch kept in $demo/before)"
echo
echo "== First run: patch 3100 on an installation at build 3001"
console_before=$(line_count "$server/console.log")
run_patch first
echo
echo "-- Console"
tail -n +"$((console_before + 1))" "$server/console.log"
log=$(debug_log)
first_log_lines=$(line_count "$log")
echo
echo "-- Debug log: $log ($first_log_lines lines)"
echo
echo "-- What changed (before vs after)"
changed=0
while IFS= read -r -d '' old; do
  relative=${old#"$demo/before/"}
  new=$server/data/$relative
  if [ ! -f "$new" ]; then
    echo "$relative: removed"; changed=1; continue
  fi
  cmp -s "$old" "$new" && continue
  changed=1
  case "$relative" in
    *.nsf|*.ntf) echo "## $relative"; ("$nsfdb" diff "$old" "$new" || true) | squeeze_nul ;;
    *) echo "## $relative"; diff -u "$old" "$new" | tail -n +3 || true ;;
  esac
  echo
done < <(find "$demo/before" -type f -not -path '*/rpxtemp/*' -print0 | sort -z)
[ "$changed" -eq 1 ] || echo "(nothing changed)"

echo
echo "== Second run on the same server: nothing left to do"
console_before=$(line_count "$server/console.log")
run_patch second
echo "-- Console"
tail -n +"$((console_before + 1))" "$server/console.log"
echo "-- Debug log of the second run"
tail -n +"$((first_log_lines + 1))" "$(debug_log)"
if tail -n +"$((first_log_lines + 1))" "$(debug_log)" |
    grep -q "The database build is large than build number of the patch, so return."; then
  echo "The second run found the databases already at the patch's build."
else
  echo "run.sh: the second run did not report that the databases are up to date." >&2
  exit 1
fi
