#!/usr/bin/env bash
# Sets everything up (see setup.sh) and runs the whole test suite.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh"
build_dir=${NUBEX_BUILD_DIR:-$root/build}
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" "$@"
