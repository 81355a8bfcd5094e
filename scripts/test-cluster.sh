#!/usr/bin/env bash
# Runs the cluster recipe (python -m nubex.cluster) on a local Dask cluster of
# two worker processes, scheduler on 127.0.0.1, over the sample pictures and
# one unreadable file, and checks its JSON Lines (python/tests/test_cluster.py).
# Uses the Python environment of scripts/test-python.sh (<build>/python-env),
# adding the pinned Dask distributed; installs the package there only when the
# installed one differs from python/nubex. Run after scripts/setup.sh
# (scripts/test.sh runs it after test-python.sh).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${NUBEX_BUILD_DIR:-$root/build}
env_dir=$build_dir/python-env
python=$env_dir/bin/python

if [ ! -x "$python" ]; then
  python3 -m venv "$env_dir"
fi
pin=$(grep -oE '"distributed==[^"]+"' "$root/python/pyproject.toml" | tr -d '"')
if [ "$("$python" -c 'import distributed; print("distributed==" + distributed.__version__)' 2>/dev/null)" != "$pin" ]; then
  "$env_dir/bin/pip" install -q --disable-pip-version-check "$pin"
fi

installed=$(cd / && "$python" -c 'import nubex, os; print(os.path.dirname(nubex.__file__))' 2>/dev/null || true)
current=yes
if [ -z "$installed" ]; then
  current=no
else
  for source in "$root"/python/nubex/*.py; do
    cmp -s "$source" "$installed/$(basename "$source")" || current=no
  done
fi
if [ "$current" = no ]; then
  echo "[cluster] building and installing python/"
  "$env_dir/bin/pip" install -q --disable-pip-version-check -r "$root/requirements.txt" "scikit-build-core>=0.10" pytest
  CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)} "$env_dir/bin/pip" install -q \
    --disable-pip-version-check --no-build-isolation "$root/python"
fi

# From elsewhere, so that the installed package is the one imported.
cd "$(mktemp -d)"
NUBEX_TEST_CLUSTER=1 NUBEX_TEST_PACK=$build_dir/res NUBEX_TEST_SAMPLES=$build_dir/samples \
  "$python" -m pytest -q -p no:cacheprovider "$root/python/tests/test_cluster.py"
echo "[cluster] ok: python -m nubex.cluster on two worker processes"
