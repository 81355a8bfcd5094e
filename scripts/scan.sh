#!/usr/bin/env bash
# Sets everything up (see setup.sh), then scans pictures with nubex-scan and
# the default resource pack: prints one JSON line per picture and draws what
# was found into build/annotated/<picture name>.annotated.png.
# With no picture given, scans the sample portrait and the sample sign.
#   bash scripts/scan.sh [nubex-scan options] [IMAGE|FOLDER...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh" >&2
build_dir=${NUBEX_BUILD_DIR:-$root/build}

if [ $# -eq 0 ]; then
  set -- "$build_dir/samples/astronaut.png" "$build_dir/samples/sign.png"
fi
status=0
"$build_dir/nubex-scan" --annotate "$build_dir/annotated" "$@" || status=$?
echo "annotated pictures: $build_dir/annotated/" >&2
exit "$status"
