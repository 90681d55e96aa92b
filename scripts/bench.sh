#!/usr/bin/env bash
# Installs what is missing, builds the benchmarks in Release, runs every
# benchmark program (one benchmark thread, all cases of a program interleaved
# at random, with repetitions) into a folder of JSON files, and turns the run
# into bench/RESULTS.md and bench/results.png.
#   scripts/bench.sh [--quick] [--repetitions N] [--min-time S] [--filter REGEX] [--out DIR]
#     --quick          3 repetitions of at least 0.05 s each (a check, not a result)
#     --repetitions N  repetitions of every case (default 5)
#     --min-time S     least time of one repetition in seconds (default 0.2)
#     --filter REGEX   only the cases whose names match (Google Benchmark's filter)
#     --out DIR        folder for the JSON files (default build/bench-results)
# JOBS (default 2) sets the build's parallel jobs.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
repetitions=5
min_time=0.2
filter=.
out="$root/build/bench-results"
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) repetitions=3 min_time=0.05 ;;
    --repetitions) repetitions=$2; shift ;;
    --min-time) min_time=$2; shift ;;
    --filter) filter=$2; shift ;;
    --out) out=$2; shift ;;
    *) echo "unknown option: $1" >&2; exit 2 ;;
  esac
  shift
done

bash "$root/scripts/install-deps.sh"
dir="$root/build"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DSIGHT_BENCH=ON >/dev/null
programs=()
for source in "$root"/bench/*_bench.cpp; do programs+=("sight_$(basename "$source" .cpp)"); done
cmake --build "$dir" -j "${JOBS:-2}" --target "${programs[@]}" >&2

mkdir -p "$out"
rm -f "$out"/*.json
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
started=$(date +%s)
load_start=$(cut -d ' ' -f 1-3 /proc/loadavg)
for program in "${programs[@]}"; do
  echo "running $program" >&2
  # From a scratch folder: some cases write their pictures into the working directory.
  (cd "$scratch" && "$dir/bench/$program" \
    --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions="$repetitions" \
    --benchmark_min_time="$min_time" \
    --benchmark_filter="$filter" \
    --benchmark_out="$out/$program.json" \
    --benchmark_out_format=json >/dev/null)
done
load_end=$(cut -d ' ' -f 1-3 /proc/loadavg)
seconds=$(( $(date +%s) - started ))

version() { dpkg-query -W -f='${Version}' "$1" 2>/dev/null || echo unknown; }
compiler=$(grep -m 1 '^CMAKE_CXX_COMPILER:' "$dir/CMakeCache.txt" | cut -d = -f 2)
cat >"$out/machine.json" <<EOF
{
  "cpu": "$(grep -m 1 '^model name' /proc/cpuinfo | cut -d : -f 2 | sed 's/^ *//')",
  "cores": $(nproc),
  "compiler": "$("$compiler" --version | head -n 1)",
  "opencv": "$(version libopencv-core-dev)",
  "eigen": "$(version libeigen3-dev)",
  "benchmark": "$(version libbenchmark-dev)",
  "library": "$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$dir/CMakeCache.txt")",
  "commit": "$(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo unknown)",
  "load_start": "$load_start",
  "load_end": "$load_end",
  "repetitions": $repetitions,
  "min_time": $min_time,
  "seconds": $seconds
}
EOF
# Debian's interpreter: the report needs only its standard library.
/usr/bin/python3 "$root/bench/report.py" "$out" "$root/bench"
echo "benchmarks took ${seconds} s; load average $load_start at the start, $load_end at the end" >&2
