#!/usr/bin/env bash
# Installs the dependencies, builds the library and runs the demo host.
#   scripts/demo.sh [output-directory]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dir=$(bash "$root/scripts/build.sh" --target sight_demo | tail -n 1)
"$dir/tools/sight_demo" "${1:-$root/sight-demo}"
