#!/usr/bin/env bash
# Installs the dependencies, builds everything and runs the whole test suite.
#   scripts/test.sh              optimised build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-sanitize/
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dir=$(bash "$root/scripts/build.sh" "$@" | tail -n 1)
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$dir" --output-on-failure -j "$(nproc)"
