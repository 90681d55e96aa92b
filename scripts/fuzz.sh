#!/usr/bin/env bash
# Runs the host's fuzz targets (the Y4M reader, the command line) for a while
# each; needs clang. What a run finds is left as crash-* files in the work
# folder: fix it, then keep the input in tools/sight/fuzz/<target>/ so that
# the test suite replays it.
#   scripts/fuzz.sh [seconds-per-target]     (default: 60)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
seconds=${1:-60}
dir=$(bash "$root/scripts/build.sh" --target sight_y4m_fuzz sight_options_fuzz | tail -n 1)
work="$dir/fuzz-work"
for target in y4m options; do
  mkdir -p "$work/$target"
  dict=()
  [ -f "$root/tools/sight/fuzz/$target.dict" ] && dict=(-dict="$root/tools/sight/fuzz/$target.dict")
  (cd "$work" && "$dir/tools/sight/sight_${target}_fuzz" -max_total_time="$seconds" -rss_limit_mb=2048 \
      "${dict[@]}" "$target" "$root/tools/sight/fuzz/$target")
done
