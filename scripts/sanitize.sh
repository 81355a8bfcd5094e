#!/usr/bin/env bash
# Builds the engine and its tests with a sanitizer and runs the whole suite.
#   bash scripts/sanitize.sh address   address and undefined-behaviour sanitizers (build-asan/)
#   bash scripts/sanitize.sh thread    thread sanitizer (build-tsan/)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
kind=${1:-address}
case "$kind" in
  address) build_dir=$root/build-asan ;;
  thread) build_dir=$root/build-tsan ;;
  *) echo "usage: $0 address|thread" >&2; exit 2 ;;
esac
NUBEX_BUILD_DIR=$build_dir NUBEX_BUILD_TYPE=RelWithDebInfo \
  NUBEX_CMAKE_ARGS="-DNUBEX_SANITIZE=$kind -DNUBEX_BUILD_BENCHMARKS=OFF" "$root/scripts/setup.sh"
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
