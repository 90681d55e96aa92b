#!/usr/bin/env bash
# Installs the dependencies, builds the library and runs the demo hosts:
# the pixel layer's pictures, the colour-key tracker following a moving card,
# and the hot spots reacting to an object that crosses them.
#   scripts/demo.sh [output-directory]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dir=$(bash "$root/scripts/build.sh" --target sight_demo object_tracking_demo hot_spots_demo | tail -n 1)
"$dir/tools/sight_demo" "${1:-$root/sight-demo}"
echo
"$dir/tools/object_tracking_demo"
echo
"$dir/tools/hot_spots_demo"
