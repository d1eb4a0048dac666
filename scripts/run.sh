#!/usr/bin/env bash
# The main job: builds everything and runs the patch against a fresh copy of the example server.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh dev
if [ ! -x build/dev/tools/rpxserver/rpxserver ] || [ ! -f build/dev/patch/libupdrpx.so ]; then
  echo "run.sh: the patch task (libupdrpx.so) and the stand-in server (rpxserver) are not built yet;" >&2
  echo "run.sh: only the common library and its tests exist in this version." >&2
  exit 1
fi
