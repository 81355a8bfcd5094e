"""Writes a tiny classifier as OpenVINO IR: the mean of each colour plane of a
32x32 picture, as a share of 255. The engine feeds raw 0..255 pixels in blue,
green, red planes, so output class 0 is blue, 1 green and 2 red.

    python3 make_network.py OUT.xml      (OUT.bin is written beside it)
"""
import sys

import numpy as np
import openvino as ov
from openvino import opset13 as ops

pixels = ops.parameter([1, 3, 32, 32], ov.Type.f32, name="pixels")
means = ops.reduce_mean(pixels, ops.constant(np.array([2, 3], dtype=np.int64)), keep_dims=False)
shares = ops.divide(means, ops.constant(np.array(255.0, dtype=np.float32)))
shares.set_friendly_name("shares")
ov.save_model(ov.Model([shares], [pixels], "colour_shares"), sys.argv[1], compress_to_fp16=False)
