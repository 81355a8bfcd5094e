#!/usr/bin/env bash
# Installs the built engine into a temporary prefix and checks that hosts can
# use it with nothing but that prefix: the C host built with pkg-config, the
# C++ host built with find_package(NubexEngine), the Python host and the
# pack-building example, each run in a clean environment (no LD_LIBRARY_PATH)
# on the sample pictures. Then moves the prefix and checks it again.
# Run after scripts/setup.sh (scripts/test.sh does both).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${NUBEX_BUILD_DIR:-$root/build}
samples=$build_dir/samples
python=$root/.venv/bin/python   # has openvino and Pillow (requirements.txt)
work=$(mktemp -d "${TMPDIR:-/tmp}/nubex-install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0

fail() { echo "[install test] FAIL: $*" >&2; failures=$((failures + 1)); }
pass() { echo "[install test] ok: $*"; }
# A clean environment: only the system's programs, nothing pointing at the build.
clean() { env -i PATH=/usr/bin:/bin HOME="$work" "$@"; }

# expect NAME OUTPUT_FILE PATTERN...: every pattern (extended regex) must be in the output.
expect() {
  local name=$1 output=$2
  shift 2
  for pattern in "$@"; do
    if ! grep -Eq -- "$pattern" "$output"; then
      fail "$name: no '$pattern' in its output:"
      head -c 2000 "$output" >&2
      echo >&2
      return
    fi
  done
  pass "$name"
}

# Checks an installed tree: the layout, the library's name and run paths.
check_layout() {
  local prefix=$1 before=$failures
  local library=$prefix/lib/libNubexEngine.so.8
  [ -f "$library" ] && [ -L "$prefix/lib/libNubexEngine.so" ] || fail "no versioned library with its link in $prefix/lib"
  readelf -d "$library" | grep -q 'SONAME.*\[libNubexEngine\.so\.8\]' || fail "the library's SONAME is not libNubexEngine.so.8"
  # Run paths: relative only, so the prefix can move.
  for file in "$library" "$prefix/bin/nubex-scan" "$prefix/bin/nubex-pack"; do
    local runpath
    runpath=$(readelf -d "$file" | sed -n 's/.*R\(UN\)\?PATH.*\[\(.*\)\]/\2/p')
    case ":$runpath:" in
      *:/*) fail "$(basename "$file") has an absolute run path: $runpath" ;;
      *'$ORIGIN'*) ;;
      *) fail "$(basename "$file") has no \$ORIGIN run path: '$runpath'" ;;
    esac
  done
  for runtime in libopenvino.so.* libopenvino_intel_cpu_plugin.so libopenvino_ir_frontend.so.* libtbb.so.12; do
    compgen -G "$prefix/lib/nubex/openvino/$runtime" >/dev/null || fail "the install lacks $runtime"
  done
  # The default pack: real files, reached from "res" beside the library.
  [ -L "$prefix/lib/res" ] && [ "$(readlink "$prefix/lib/res")" = ../share/nubex/res ] ||
    fail "lib/res is not a relative link to ../share/nubex/res"
  [ -z "$(find "$prefix/share/nubex/res" -type l)" ] || fail "the installed pack holds links"
  [ "$(find "$prefix/share/nubex/res" -name 'NubexResource.*' -type f | wc -l)" -eq \
    "$(find -L "$build_dir/res" -name 'NubexResource.*' -type f | wc -l)" ] ||
    fail "the installed pack is incomplete"
  for file in include/nubex_engine.h lib/pkgconfig/nubex-engine.pc lib/cmake/NubexEngine/NubexEngineConfig.cmake \
              lib/cmake/NubexEngine/NubexEngineConfigVersion.cmake share/doc/NubexEngine/NOTICE \
              share/doc/NubexEngine/openvino/LICENSE; do
    [ -f "$prefix/$file" ] || fail "the install lacks $file"
  done
  # The exported target asks nothing of OpenVINO from the host.
  ! grep -Eq 'openvino::|find_dependency|OpenVINO_DIR' "$prefix"/lib/cmake/NubexEngine/*.cmake ||
    fail "the CMake package asks the host for OpenVINO"
  if [ "$failures" -eq "$before" ]; then pass "layout of $prefix"; fi
}

# Builds the C host with pkg-config alone and runs it on the samples.
check_c_host() {
  local prefix=$1 host=$work/c-host-$2
  clean PKG_CONFIG_PATH="$prefix/lib/pkgconfig" sh -c \
    "gcc -Wall -Werror '$root/examples/c_host/scan.c' -o '$host' \$(pkg-config --cflags --libs nubex-engine stb)" ||
    { fail "the C host does not build against $prefix"; return; }
  clean "$host" "$samples/astronaut.png" "8337, 9112" >"$work/c.out" 2>"$work/c.err" || fail "the C host failed"
  expect "C host finds the face ($2)" "$work/c.out" '^\{"scan_result":\[\{"Face":9[0-9.]*\},\{"Text":' '"face_details":\[\{' '"result":"True"'
  clean "$host" "$samples/sign.png" >"$work/c.out" 2>"$work/c.err" || fail "the C host failed"
  expect "C host reads the sign with every category ($2)" "$work/c.out" '"Explicit":' '"text_details":\[.*coffee' '"result":"True"'
}

# The C++ host: find_package(NubexEngine) with only CMAKE_PREFIX_PATH, several pictures on threads.
check_cpp_host() {
  local prefix=$1 build=$work/cpp-host-$2
  clean cmake -S "$root/examples/cpp_host" -B "$build" -DCMAKE_PREFIX_PATH="$prefix" >"$work/cpp.log" 2>&1 &&
    clean cmake --build "$build" >>"$work/cpp.log" 2>&1 || { fail "the C++ host does not build against $prefix"; cat "$work/cpp.log" >&2; return; }
  if readelf -d "$build/nubex-cpp-host" | grep -q 'NEEDED.*openvino'; then fail "the C++ host links OpenVINO itself"; fi
  clean "$build/nubex-cpp-host" --categories "8337, 9112" "$samples/astronaut.png" "$samples/sign.png" \
    >"$work/cpp.out" 2>"$work/cpp.err" || fail "the C++ host failed"
  expect "C++ host scans two pictures at once ($2)" "$work/cpp.out" \
    'astronaut\.png.\{"scan_result":\[\{"Face":9[0-9.]*\}.*"face_details"' 'sign\.png.\{"scan_result".*"text_details":\[.*daily'
}

prefix=$work/prefix
echo "[install test] installing into $prefix"
cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"
check_layout "$prefix"

# A plain link line finds what the library needs through its own run path.
clean gcc "$root/examples/c_host/scan.c" -I"$prefix/include" -I/usr/include/stb -L"$prefix/lib" \
  -Wl,-rpath,"$prefix/lib" -lNubexEngine -lstb -o "$work/plain-host" &&
  pass "gcc ... -lNubexEngine links without -rpath-link" || fail "gcc ... -lNubexEngine does not link"

check_c_host "$prefix" installed
check_cpp_host "$prefix" installed

clean "$python" "$root/examples/python_host/scan_ctypes.py" --library "$prefix/lib/libNubexEngine.so.8" \
  "$samples/sign.png" "8337, 9112" >"$work/py.out" 2>"$work/py.err" || fail "the Python host failed"
expect "Python host" "$work/py.out" '^\{"scan_result":\[\{"Face":[0-9.]*\},\{"Text":' '"text_details":\[.*fresh'

clean PYTHON="$python" bash "$root/examples/pack/build_pack.sh" "$prefix" "$work/pack" "$samples/astronaut.png" \
  >"$work/pack.out" 2>"$work/pack.err" || { fail "the pack example failed"; cat "$work/pack.err" >&2; }
expect "pack example" "$work/pack.out" '^ok: 5000 \(Colour Shares, 1.0\) is a classifier' \
  '^\{"path":"[^"]*","document":\{"scan_result":\[\{"Blue share":[0-9.]+\},\{"Green share":[0-9.]+\},\{"Red share":[0-9.]+\},\{"Face":9'

clean "$prefix/bin/nubex-scan" --categories 8337 "$samples/astronaut.png" >"$work/scan.out" 2>"$work/scan.err" ||
  fail "the installed nubex-scan failed"
expect "installed nubex-scan uses the installed pack" "$work/scan.out" \
  '^\{"path":"[^"]*astronaut\.png","document":\{"scan_result":\[\{"Face":9[0-9.]*\}\],"face_details"'

# The whole prefix moves: tools and freshly built hosts still work.
moved=$work/elsewhere/nubex
mkdir -p "$(dirname "$moved")"
mv "$prefix" "$moved"
echo "[install test] moved the prefix to $moved"
check_layout "$moved"
clean "$moved/bin/nubex-scan" --categories "8337, 9112" "$samples/sign.png" >"$work/scan.out" 2>"$work/scan.err" ||
  fail "nubex-scan fails after the move"
expect "moved nubex-scan" "$work/scan.out" '^\{"path":"[^"]*sign\.png","document":\{.*"text_details":\[.*since'
check_c_host "$moved" moved
check_cpp_host "$moved" moved

if [ "$failures" -ne 0 ]; then
  echo "[install test] $failures check(s) failed" >&2
  exit 1
fi
echo "[install test] all checks passed"
