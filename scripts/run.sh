#!/usr/bin/env bash
# The main job: builds everything, creates a fresh stand-in server from examples/server under
# build/dev/demo, previews the patch, runs it with a backup and a report and shows what changed;
# then runs the patch a second time on the same server to show that it finds nothing left to do,
# and finally restores the backup and shows that the data is as it was before the patch.
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

# Runs the patch once (further arguments go to "rpxserver run"); its output goes to
# $demo/<name>.out, the status is shown.
run_patch() {
  local name=$1 started ended status=0
  shift
  started=$(date +%s.%N)
  "$rpxserver" run "$server" --module "$module" "$@" >"$demo/$name.out" 2>&1 || status=$?
  ended=$(date +%s.%N)
  printf 'rpxserver run: exit status %d, %.1f s (output in %s)\n' "$status" \
    "$(awk -v a="$started" -v b="$ended" 'BEGIN { print b - a }')" "$demo/$name.out"
  return "$status"
}

echo "== Example server created in $server (data before the patch kept in $demo/before)"
echo
echo "== Preview: what the patch would change (run on a copy; the server folder stays as it is)"
"$rpxserver" preview "$server" --module "$module" | squeeze_nul
if ! diff -r -q "$demo/before" "$server/data" >/dev/null; then
  echo "run.sh: the preview changed the server's data folder." >&2
  exit 1
fi
echo
echo "== First run: patch 3100 on an installation at build 3001, with a backup and a report"
console_before=$(line_count "$server/console.log")
run_patch first --backup --report "$demo/report.json"
grep '^rpxserver: backup ' "$demo/first.out" || true
echo "Report: $demo/report.json; its summary:"
sed -n '/^Report of the run/,$p' "$demo/first.out" | tail -n +2 | squeeze_nul
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

echo
echo "== Restore: the backup of the first run put back"
stamp=$(ls "$server/backup" | sort | head -n 1)
"$rpxserver" restore "$server" "$stamp"
echo "-- The data folder compared with the data before the patch (nsfdb dump for databases)"
different=0
while IFS= read -r -d '' old; do
  relative=${old#"$demo/before/"}
  new=$server/data/$relative
  case "$relative" in
    *.nsf|*.ntf) same=0; [ -f "$new" ] && cmp -s <("$nsfdb" dump "$old") <("$nsfdb" dump "$new") && same=1 ;;
    *) same=0; cmp -s "$old" "$new" && same=1 ;;
  esac
  if [ "$same" -eq 1 ]; then echo "$relative: as before"; else echo "$relative: DIFFERENT"; different=1; fi
done < <(find "$demo/before" -type f -not -path '*/rpxtemp/*' -print0 | sort -z)
while IFS= read -r -d '' new; do
  relative=${new#"$server/data/"}
  [ -f "$demo/before/$relative" ] || { echo "$relative: not there before the patch"; different=1; }
done < <(find "$server/data" -type f -not -path '*/rpxtemp/*' -print0 | sort -z)
if [ "$different" -ne 0 ]; then
  echo "run.sh: the restore did not give back the data of before the patch." >&2
  exit 1
fi
echo "The restore gave back every database and file as it was before the patch."
