#!/usr/bin/env bash
# Builds a resource folder from a network of your own and scans with it:
#   bash build_pack.sh PREFIX WORK_DIR PICTURE
# PREFIX is the engine's install prefix (its bin/ holds nubex-pack and
# nubex-scan); the network is written with the openvino Python package
# (PYTHON, default python3, must import openvino).
set -euo pipefail
prefix=$1 work=$2 picture=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "$work"

# 1. An OpenVINO IR pair: colour_shares.xml and .bin.
"${PYTHON:-python3}" "$here/make_network.py" "$work/colour_shares.xml"

# 2. The class table: one line per output class, "category, name, raw=published...".
#    The calibration points map the network's percentage to the one reported
#    (here unchanged).
cat > "$work/classes.txt" <<'TABLE'
5001, Blue share, 50=50
5002, Green share, 50=50
5003, Red share, 50=50
TABLE

# 3. The resource folder (enciphered), checked as the engine will load it.
#    (nubex-pack carries the engine's code, which reports that no "res/" is
#    beside the program: nubex-pack needs none.)
"$prefix/bin/nubex-pack" build --xml "$work/colour_shares.xml" --bin "$work/colour_shares.bin" \
  --details "5000, Colour Shares, 1.0" --classes "$work/classes.txt" "$work/res/colour-shares"
"$prefix/bin/nubex-pack" inspect "$work/res/colour-shares"
"$prefix/bin/nubex-pack" verify --kind classifier "$work/res/colour-shares"

# 4. A scan with the new categories beside the default pack's.
"$prefix/bin/nubex-scan" --resources "$work/res" --categories "5001, 5002, 5003, 8337" "$picture"
