#!/usr/bin/env bash
# Sets everything up (see setup.sh) and runs the whole test suite: the unit,
# scan, soak and boundary tests, the fuzz targets replayed over their corpus,
# the install with the example hosts built against it (test-install.sh), the
# Python package (test-python.sh), the cluster recipe on a local cluster of two
# worker processes (test-cluster.sh), and each fuzz target fuzzed for a fixed
# number of runs (clang build).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh"
build_dir=${NUBEX_BUILD_DIR:-$root/build}
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" "$@"
"$root/scripts/test-install.sh"
"$root/scripts/test-python.sh"
"$root/scripts/test-cluster.sh"
"$root/scripts/fuzz.sh"
