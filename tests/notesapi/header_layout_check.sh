#!/bin/sh
# Each platform header compiled alone: global.h, globerr.h and names.h must compile, every other
# header must fail (it needs global.h first), and every header must compile after global.h.
# Usage: header_layout_check.sh COMPILER INCLUDE_DIR [DEFINE...]
compiler=$1
include=$2
shift 2
defines=""
for define in "$@"; do defines="$defines -D$define"; done
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
failures=0
for header in "$include"/*.h; do
    name=$(basename "$header")
    printf '#include "%s"\n' "$name" > "$work/alone.cpp"
    printf '#include "global.h"\n#include "%s"\n' "$name" > "$work/after.cpp"
    if $compiler -std=c++17 -fsyntax-only $defines -I"$include" "$work/alone.cpp" 2>/dev/null; then
        alone=compiles
    else
        alone=fails
    fi
    case $name in
        global.h | globerr.h | names.h) expected=compiles ;;
        *) expected=fails ;;
    esac
    if [ "$alone" != "$expected" ]; then
        echo "$name alone: $alone, expected: $expected"
        failures=$((failures + 1))
    fi
    if ! $compiler -std=c++17 -fsyntax-only $defines -I"$include" "$work/after.cpp" 2>"$work/errors"; then
        echo "$name after global.h does not compile:"
        cat "$work/errors"
        failures=$((failures + 1))
    fi
done
# Names that a header does not make visible in the toolkit, although a header next to it declares
# them: the toolkit's osmem.h leaves pool.h out, MAXPATH is in names.h only, and no header
# declares QWORD (global.h has NDQWORD). Code that relied on them would build here only.
for pair in osmem.h:OSLockBlock osmem.h:BLOCKID global.h:MAXPATH global.h:QWORD; do
    name=${pair%%:*}
    symbol=${pair#*:}
    printf '#include "global.h"\n#include "%s"\n#if defined(%s)\n#error macro\n#endif\nint %s;\n' \
        "$name" "$symbol" "$symbol" > "$work/absent.cpp"
    if ! $compiler -std=c++17 -fsyntax-only $defines -I"$include" "$work/absent.cpp" 2>/dev/null; then
        echo "$symbol is visible after global.h and $name; the toolkit's $name does not declare it"
        failures=$((failures + 1))
    fi
done
[ "$failures" -eq 0 ]
