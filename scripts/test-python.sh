#!/usr/bin/env bash
# Builds the Python package (python/) with pip, as a user would, into an
# environment of its own (<build>/python-env), and runs its tests against
# the installed package, the default pack and the samples of the build.
# Run after scripts/setup.sh (scripts/test.sh does both).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${NUBEX_BUILD_DIR:-$root/build}
env_dir=$build_dir/python-env

# The package's OpenVINO pin is the project's (requirements.txt), for the
# build and for the users.
pin=$(grep -E '^openvino==' "$root/requirements.txt")
if [ "$(grep -c "\"$pin\"" "$root/python/pyproject.toml")" -ne 2 ]; then
  echo "[python] python/pyproject.toml must require $pin to build and to run" >&2
  exit 1
fi

if [ ! -x "$env_dir/bin/python" ]; then
  python3 -m venv "$env_dir"
fi
stamp=$env_dir/.requirements.stamp
if ! cmp -s "$root/requirements.txt" "$stamp" 2>/dev/null; then
  "$env_dir/bin/pip" install -q --disable-pip-version-check -r "$root/requirements.txt" \
    "scikit-build-core>=0.10" pytest
  cp "$root/requirements.txt" "$stamp"
fi
echo "[python] building and installing python/"
CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)} "$env_dir/bin/pip" install -q \
  --disable-pip-version-check --no-build-isolation "$root/python"

# From elsewhere, so that the installed package is the one imported.
cd "$(mktemp -d)"
status=0
NUBEX_TEST_PACK=$build_dir/res NUBEX_TEST_SAMPLES=$build_dir/samples \
  "$env_dir/bin/python" -m pytest -q -p no:cacheprovider "$root/python/tests" || status=$?
# 5: no test was collected (for example a selection that matched none).
if [ "$status" -ne 0 ] && [ "$status" -ne 5 ]; then
  exit "$status"
fi

# The example host, in a clean environment.
out=$(env -i PATH=/usr/bin:/bin "$env_dir/bin/python" "$root/examples/python_host/scan.py" \
  --resources "$build_dir/res" --categories "8337,Text" "$build_dir/samples/astronaut.png" "$build_dir/samples/sign.png")
for expected in "astronaut.png: 512x512, ok" "face 9[0-9.]*% at" "sign.png: 640x360, ok" "text at .*: coffee"; do
  if ! grep -q -- "$expected" <<<"$out"; then
    echo "[python] the example host printed no '$expected':" >&2
    echo "$out" >&2
    exit 1
  fi
done
echo "[python] ok: the example host"
