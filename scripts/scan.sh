#!/usr/bin/env bash
# Sets everything up (see setup.sh) and scans images with nubex-scan, printing
# each result document. With no image given, scans the sample picture.
#   bash scripts/scan.sh [nubex-scan options] [IMAGE|FOLDER...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh" >&2
build_dir=${NUBEX_BUILD_DIR:-$root/build}

pack=$build_dir/test-pack
sample=$build_dir/samples/sample.png
if [ ! -f "$sample" ] || [ ! -d "$pack" ]; then
  mkdir -p "$(dirname "$sample")"
  "$build_dir/nubex-test-pack" "$pack" "$sample"
fi

if [ $# -eq 0 ]; then
  set -- "$sample"
fi
exec "$build_dir/nubex-scan" --resources "$pack" "$@"
