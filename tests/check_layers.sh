#!/usr/bin/env bash
# Every folder of src/ includes only itself and the folders below it.
set -euo pipefail
src=$1
declare -A allowed=(
  [base]="base"
  [resources]="resources base"
  [inference]="inference base"
  [engine]="engine inference resources base"
  [detectors]="detectors inference resources base"
  [scan]="scan detectors engine inference resources base"
  [api]="api scan engine base"
)
status=0
for layer in "${!allowed[@]}"; do
  for included in $(grep -ho '#include "[a-z_]*/' "$src/$layer"/* | sed 's/#include "//; s/\///' | sort -u); do
    if [[ " ${allowed[$layer]} " != *" $included "* ]]; then
      echo "src/$layer includes src/$included:"; grep -l "#include \"$included/" "$src/$layer"/* || true
      status=1
    fi
  done
done
for folder in "$src"/*/; do
  name=$(basename "$folder")
  [[ -n "${allowed[$name]+x}" ]] || { echo "src/$name is in no layer"; status=1; }
done
exit $status
