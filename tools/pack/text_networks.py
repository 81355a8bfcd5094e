"""The text resources, from the PP-OCRv4 networks in the rapidocr-openvino
wheel, with in-graph adapters to the engine's contracts. The engine feeds raw
BGR 0..255 planar values; PaddleOCR's networks take BGR scaled to [-1, 1].

- 9112 detector: DB probability map turned into pixel-and-link outputs
  [1, 2, H/2, W/2] and [1, 16, H/2, W/2]. A pixel is text where the map,
  halved by a max pool, is at least 0.3, after the text areas are grown as
  DB's "unclip" step grows them; every link between text pixels is on, so
  components are the 8-connected text areas.
- 9113 presence: the same detector at a lower size; [1, 2] = (1 - m, m) with
  m the share of the picture that is text, reaching 1 at 1 %.
- 19112 recogniser: [T, 1, 37] log-probabilities over "0-9a-z" and the blank,
  upper and lower case merged; every other symbol counts as blank.
"""

import numpy as np
import openvino as ov
from openvino import opset13 as ops

ALPHABET = "0123456789abcdefghijklmnopqrstuvwxyz"
DETECTOR_SIZE = (736, 992)   # height, width: multiples of 32
PRESENCE_SIZE = (320, 448)
RECOGNISER_SIZE = (48, 240)
TEXT_PROBABILITY = 0.3
UNCLIP = 1.5
PRESENCE_FULL_SHARE = 0.01
UNCLIP_SCALES = (1, 2, 3, 4, 6, 8, 11, 16)


def _logit(p):
    return float(np.log(p / (1.0 - p)))


def _normalised_input(height, width):
    image = ops.parameter([1, 3, height, width], ov.Type.f32, name="image")
    scaled = ops.subtract(ops.multiply(image, ops.constant(np.float32(1.0 / 127.5))), ops.constant(np.float32(1.0)))
    return image, scaled


def _attach(core, onnx_path, source, height, width):
    """The DB network reshaped to the size, fed from source; its probability map."""
    network = core.read_model(onnx_path)
    network.reshape({network.inputs[0]: ov.PartialShape([1, 3, height, width])})
    for target in list(network.inputs[0].get_target_inputs()):
        target.replace_source_output(source.output(0))
    return network.output(0).get_node().input_value(0)  # [1, 1, H, W]


def _pool(value, radius):
    """Square max pool of the given radius, as a row pass and a column pass."""
    size = 2 * radius + 1
    rows = ops.max_pool(value, [1, 1], [1, 1], [0, radius], [0, radius], [1, size], "floor").output(0)
    return ops.max_pool(rows, [1, 1], [1, 1], [radius, 0], [radius, 0], [size, 1], "floor").output(0)


def _unclip(mask):
    """DB's "unclip": grow every text area by about UNCLIP times its half
    thickness. Thick areas survive erosion by larger radii and are grown
    further; the union of the scales grows each area in proportion to its size."""
    grown = None
    for radius in UNCLIP_SCALES:
        eroded = ops.negative(_pool(ops.negative(mask), radius))
        scaled = _pool(eroded, radius + int(round(UNCLIP * radius)))
        grown = scaled if grown is None else ops.maximum(grown, scaled)
    return grown


def build_detector(core, onnx_path):
    height, width = DETECTOR_SIZE
    image, scaled = _normalised_input(height, width)
    probability = _attach(core, onnx_path, scaled, height, width)
    halved = ops.max_pool(probability, [2, 2], [2, 2], [0, 0], [0, 0], [2, 2], "floor").output(0)
    mask = ops.convert(ops.greater_equal(halved, ops.constant(np.float32(TEXT_PROBABILITY))), ov.Type.f32)
    text = _unclip(mask)  # 0 or 1
    positive = ops.subtract(ops.multiply(text, ops.constant(np.float32(20.0))), ops.constant(np.float32(10.0)))
    zeros = ops.multiply(text, ops.constant(np.float32(0.0)))
    pixels = ops.concat([zeros, positive], axis=1)
    link_pairs = np.tile(np.array([0.0, 10.0], dtype=np.float32), 8).reshape(1, 16, 1, 1)
    links = ops.add(zeros, ops.constant(link_pairs))
    pixels.output(0).get_tensor().set_names({"pixels"})
    links.output(0).get_tensor().set_names({"links"})
    return ov.Model([pixels, links], [image], "text_detection_db")


def build_presence(core, onnx_path):
    height, width = PRESENCE_SIZE
    image, scaled = _normalised_input(height, width)
    probability = _attach(core, onnx_path, scaled, height, width)
    text = ops.convert(ops.greater_equal(probability, ops.constant(np.float32(TEXT_PROBABILITY))), ov.Type.f32)
    share = ops.reduce_mean(text, ops.constant(np.array([1, 2, 3], dtype=np.int64)), False)  # [1]
    presence = ops.minimum(ops.divide(share, ops.constant(np.float32(PRESENCE_FULL_SHARE))),
                           ops.constant(np.float32(1.0)))
    presence = ops.reshape(presence, ops.constant(np.array([1, 1], dtype=np.int64)), False)
    scores = ops.concat([ops.subtract(ops.constant(np.float32(1.0)), presence), presence], axis=1)
    scores.output(0).get_tensor().set_names({"text_presence"})
    return ov.Model([scores], [image], "text_presence_db")


def _class_map(dictionary_path):
    """For each alphabet symbol the output columns it gathers (blank is 0)."""
    with open(dictionary_path, encoding="utf-8") as handle:
        symbols = [line.rstrip("\n") for line in handle]
    columns = {c: [] for c in ALPHABET}
    for index, symbol in enumerate(symbols):
        if symbol.lower() in columns:
            columns[symbol.lower()].append(index + 1)
    return [columns[c] for c in ALPHABET]


def build_recogniser(core, onnx_path, dictionary_path):
    height, width = RECOGNISER_SIZE
    image, scaled = _normalised_input(height, width)
    network = core.read_model(onnx_path)
    network.reshape({network.inputs[0]: ov.PartialShape([1, 3, height, width])})
    for target in list(network.inputs[0].get_target_inputs()):
        target.replace_source_output(scaled.output(0))
    probabilities = network.output(0).get_node().input_value(0)  # [1, T, C], softmax
    classes = probabilities.get_partial_shape()[2].get_length()
    mapping = np.zeros((classes, len(ALPHABET) + 1), dtype=np.float32)
    for symbol, columns in enumerate(_class_map(dictionary_path)):
        mapping[columns, symbol] = 1.0
    mapped = mapping.sum(axis=1) > 0
    mapping[~mapped, len(ALPHABET)] = 1.0  # blank and every other symbol
    merged = ops.matmul(probabilities, ops.constant(mapping), False, False)  # [1, T, 37]
    logits = ops.log(ops.maximum(merged, ops.constant(np.float32(1e-12))))
    sequence = ops.transpose(logits, ops.constant(np.array([1, 0, 2], dtype=np.int64)))  # [T, 1, 37]
    sequence.output(0).get_tensor().set_names({"logits"})
    return ov.Model([sequence], [image], "text_recognition_ppocr")
