#!/usr/bin/env bash
# Installs the dependencies, builds the library and runs the demo hosts:
# the pixel layer's pictures, the colour-key tracker following a moving card,
# the hot spots reacting to an object that crosses them, and the command-line
# host `sight` on its built-in synthetic clip (nothing to download).
#   scripts/demo.sh [output-directory]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dir=$(bash "$root/scripts/build.sh" --target sight_demo object_tracking_demo hot_spots_demo sight | tail -n 1)
out="${1:-$root/sight-demo}"
"$dir/tools/sight_demo" "$out"
echo
"$dir/tools/object_tracking_demo"
echo
"$dir/tools/hot_spots_demo"

sight="$dir/tools/sight/sight"
echo
echo "sight on its synthetic clip: JSON Lines in $out/*.jsonl, painted frames beside them"
run() {  # name, then the sight command line
  local name=$1
  shift
  "$sight" "$@" >"$out/$name.jsonl"
  echo "\$ sight $*   ($(wc -l <"$out/$name.jsonl") lines; the first two:)"
  head -n 2 "$out/$name.jsonl"
}
run track track --preview "$out/track.mp4"
run hotspots hotspots --tolerance 0.5 --preview "$out/hotspots.mp4"
run corners corners --min-corners 100 --max-corners 150 --preview "$out/corners.mp4"
run decomb decomb --preview "$out/decomb.y4m"
run align align --iterations 3
