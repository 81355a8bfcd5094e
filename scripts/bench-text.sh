#!/usr/bin/env bash
# End-to-end text reading of the engine against rapidocr-openvino on the
# sample pictures. rapidocr-openvino pins an older OpenVINO, so it lives in a
# venv of its own (.cache/rapidocr-venv).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh" >&2
venv=$root/.cache/rapidocr-venv
if [ ! -x "$venv/bin/python" ] || ! "$venv/bin/python" -c "import rapidocr_openvino" 2>/dev/null; then
  python3 -m venv "$venv"
  "$venv/bin/pip" install -q --disable-pip-version-check rapidocr-openvino==1.4.4 pillow
fi
samples=$root/build/samples
"$venv/bin/python" "$root/bench/text_vs_rapidocr.py" "$root/build/libNubexEngine.so" "$root/build/res" \
  "$samples/sign.png" "$samples/page.png" "$samples"/words/word0*.png
