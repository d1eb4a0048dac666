#!/usr/bin/env bash
# Compiles every source file of common/src and patch/src with `g++ -std=c++17 -fsyntax-only`
# against a Notes C API toolkit's include folder, with the toolkit's Linux 64-bit defines, the
# toolkit first on the include path and the bundled notesapi/include nowhere on it.
#
#   scripts/toolkit-check.sh /path/to/notesapi/include
#
# Prints one line per file (PASS or FAIL, followed by any compiler messages, indented) and a
# summary; exits 1 when any file fails, 2 on wrong usage. Nothing is downloaded: the toolkit's
# headers must already be on this machine.
set -uo pipefail

if [ $# -ne 1 ] || [ ! -f "$1/global.h" ]; then
  echo "usage: $0 TOOLKIT_INCLUDE_DIR   (the folder that holds the toolkit's global.h)" >&2
  exit 2
fi
toolkit=$(cd "$1" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
cxx=${CXX:-g++}

# The same list as RPX_NOTES_DEFINES in CMakeLists.txt.
defines=$(sed -n '/^set(RPX_NOTES_DEFINES/,/)/p' "$root/CMakeLists.txt" |
  sed -e 's/^set(RPX_NOTES_DEFINES//' -e 's/)//' | tr -s ' \n' ' ')
if [ -z "${defines// /}" ]; then
  echo "cannot read RPX_NOTES_DEFINES from $root/CMakeLists.txt" >&2
  exit 2
fi
define_flags=()
for d in $defines; do define_flags+=("-D$d"); done

# ExpressionDocIds.cpp includes the expression table generated at build time.
generated=$(mktemp -d)
trap 'rm -rf "$generated"' EXIT
if ! cmake -DTABLE_FILE="$root/patch/data/expression_table.tsv" \
     -DOUTPUT_FILE="$generated/ExpressionTable.inc" \
     -P "$root/patch/cmake/ExpressionTable.cmake" >"$generated/table.log" 2>&1; then
  cat "$generated/table.log" >&2
  exit 2
fi

includes=(-I"$toolkit" -I"$root/common/include" -I"$root/patch/include" -I"$generated")

passed=0
failed=0
for source in "$root"/common/src/*.cpp "$root"/patch/src/*.cpp; do
  name=${source#"$root"/}
  if messages=$("$cxx" -std=c++17 -fsyntax-only -Wall -Wextra "${define_flags[@]}" \
                  "${includes[@]}" "$source" 2>&1); then
    echo "PASS $name"
    [ -n "$messages" ] && printf '%s\n' "$messages" | sed 's/^/    /'
    passed=$((passed + 1))
  else
    echo "FAIL $name"
    printf '%s\n' "$messages" | sed 's/^/    /'
    failed=$((failed + 1))
  fi
done

echo "$passed of $((passed + failed)) files compile against $toolkit"
[ "$failed" -eq 0 ]
