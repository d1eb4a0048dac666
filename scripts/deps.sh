#!/usr/bin/env bash
# Installs the build and test dependencies on Debian, only those that are missing.
# With the argument "fuzz" also what the fuzz targets need.
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config
          libgtest-dev libgmock-dev libbenchmark-dev
          libsqlite3-dev sqlite3 libicu-dev nlohmann-json3-dev rapidjson-dev)
# "deps.sh fuzz": also clang and its runtime libraries, which hold libFuzzer.
if [ "${1:-}" = fuzz ]; then
  packages+=(clang libclang-rt-dev)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
