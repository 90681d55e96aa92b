#!/usr/bin/env bash
# Installs the dependencies, then configures and builds into a build folder.
#   scripts/build.sh [--sanitize] [cmake --build arguments...]
# Prints the build folder on its last line.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir="$root/build"
options=()
if [ "${1:-}" = "--sanitize" ]; then
  shift
  dir="$root/build-sanitize"
  options+=(-DSIGHT_SANITIZE=ON -DSIGHT_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo)
fi
cmake -S "$root" -B "$dir" "${options[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)" "$@" >&2
echo "$dir"
