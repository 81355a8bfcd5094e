"""The content classifier: NudeNet's detector (YOLOv8n, from the nudenet
wheel) reduced in-graph to one score per class, the highest confidence of
that class over all anchors. The first stage runs at 320 x 320; the second
stage, for uncertain scores, is the same network at 416 x 416. Input raw BGR
0..255 planar; NudeNet takes RGB scaled to 0..1."""

import numpy as np
import openvino as ov
from openvino import opset13 as ops

LABELS = [
    "Female genitalia covered", "Female face", "Buttocks exposed", "Female breast exposed",
    "Female genitalia exposed", "Male breast exposed", "Anus exposed", "Feet exposed", "Belly covered",
    "Feet covered", "Armpits covered", "Armpits exposed", "Male face", "Belly exposed",
    "Male genitalia exposed", "Anus covered", "Female breast covered", "Buttocks covered",
]
FIRST_STAGE_SIZE = 320
SECOND_STAGE_SIZE = 416


def build(core: ov.Core, onnx_path: str, size: int) -> ov.Model:
    network = core.read_model(onnx_path)
    network.reshape({network.inputs[0]: ov.PartialShape([1, 3, size, size])})
    image = ops.parameter([1, 3, size, size], ov.Type.f32, name="image")
    rgb = ops.gather(image, ops.constant(np.array([2, 1, 0], dtype=np.int64)), ops.constant(np.int64(1)))
    scaled = ops.multiply(rgb, ops.constant(np.float32(1.0 / 255.0)))
    for target in list(network.inputs[0].get_target_inputs()):
        target.replace_source_output(scaled.output(0))
    detections = network.output(0).get_node().input_value(0)  # [1, 4 + classes, anchors]
    classes = detections.get_partial_shape()[1].get_length() - 4
    class_scores = ops.slice(detections, np.array([0, 4, 0]), np.array([1, 4 + classes, 2 ** 31 - 1]),
                             np.array([1, 1, 1]))
    scores = ops.reduce_max(class_scores, ops.constant(np.array([2], dtype=np.int64)), False)  # [1, classes]
    scores.output(0).get_tensor().set_names({"class_scores"})
    return ov.Model([scores], [image], f"content_classifier_{size}")
