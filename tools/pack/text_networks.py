"""The text resources, with in-graph adapters to the engine's contracts:
the PP-OCRv6 small detector and recogniser of the rapidocr wheel, and the
PP-OCRv4 detector of the rapidocr-openvino wheel for the presence gate. The
engine feeds raw BGR 0..255 planar values; PaddleOCR's networks take BGR
scaled to [-1, 1]. All three take pictures of any size (dynamic spatial
input) and declare what the engine needs to know in the IR's rt_info,
section "nubex". The pack builder quantises them to 8 bits (quantised()).

- 9112 detector: input [1, 3, 32..960, 32..960] (sides multiples of 32: the
  engine scales larger working images down into it, as PaddleOCR's default
  limit of 960 does); the DB probability map turned into pixel-and-link
  outputs [1, 2, H/2, W/2] and [1, 16, H/2, W/2]. The text "kernels" are
  where the map, max-pooled to half size, is at least TEXT_PROBABILITY; each
  kernel is grown as DB's "unclip" step grows it, in proportion to its
  thickness. Links keep the grown areas of neighbouring kernels (close lines
  of a page) apart: kernel pixels link to kernel pixels, and every grown
  pixel links to exactly one neighbour one step nearer to a kernel, so each
  component is one kernel and the pixels that lead to it.
- 9113 presence: input [1, 3, 1..PRESENCE_SIDE, 1..PRESENCE_SIDE]: the engine
  scales larger pictures down to fit (never up). [1, 2] =
  (1 - m, m) with m the area of strip-shaped text the detector finds,
  reaching 1 at PRESENCE_AREA pixels; round blobs (a cup, a face) and the
  text area around them do not count.
- 19112 recogniser: input [?, 3, 48, ?] (batch and width dynamic, stride 8),
  output [T, N, C] log-probabilities over the printable ASCII symbols and the
  space (declared as the alphabet) and the blank, last. Full-width forms and
  a few typographic marks are folded into their ASCII symbols; the network's
  other symbols (CJK and the rest of its 18,000) are left out and the
  remaining classes renormalised, so a Latin reading never turns into a
  look-alike glyph outside the alphabet.
"""

import string
import unicodedata

import numpy as np
import openvino as ov
from openvino import opset13 as ops

STRIDE = 32
RECOGNISER_HEIGHT = 48
RECOGNISER_STRIDE = 8        # the recogniser emits one step per 8 input columns
RECOGNISER_SQUEEZE = 1.0     # the lines are narrowed by this factor before reading
TEXT_PROBABILITY = 0.3
UNCLIP = 1.5
UNCLIP_SCALES = (1, 2, 3, 4, 6, 8, 11, 16)
UNCLIP_EXTRA = 1             # added to every scale's growth
UNCLIP_BASE = 2              # every text area grows by at least this much
DETECTOR_SIDE = 960          # the detector's input sides are bounded by this (0: unbounded)
GROWTH_REACH = 16            # text pixels are at most this far from a kernel
UNCLIP_COARSE = (4, 11)      # radii from which the unclip works on a grid 2 and 4 times coarser
PRESENCE_SIDE = 640
PRESENCE_PROBABILITY = 0.5
PRESENCE_THICKNESS = 48      # pixels (at the presence size) from which an area may be a blob
PRESENCE_AREA = 200          # text pixels at the presence size that make the score 1

QUANTISATION_LINES = 150
QUANTISATION_PICTURES = 24

# The recogniser's alphabet: printable ASCII and the space (blank after it).
ALPHABET = string.digits + string.ascii_letters + string.punctuation + " "
# Symbols that read as an ASCII symbol in English text.
FOLDED = {"\u2018": "'", "\u2019": "'", "\u201a": ",", "\u201c": '"', "\u201d": '"', "\u2013": "-",
          "\u2014": "-", "\u2212": "-", "\u2010": "-", "\u2011": "-", "\u00b7": ".", "\u2022": ".",
          "\u3000": " ", "\u00a0": " "}


def _declare(model, **values):
    for key, value in values.items():
        model.set_rt_info(str(value), ["nubex", key])


def _normalised_input(shape):
    image = ops.parameter(shape, ov.Type.f32, name="image")
    scaled = ops.subtract(ops.multiply(image, ops.constant(np.float32(1.0 / 127.5))), ops.constant(np.float32(1.0)))
    return image, scaled


def _attach(core, network, source, shape):
    """The network (a model or a file) reshaped, fed from source; the input of
    its final op's result (the DB map for a detector, the softmax for a
    recogniser)."""
    network = core.read_model(network) if isinstance(network, str) else network.clone()
    network.reshape({network.inputs[0]: ov.PartialShape(shape)})
    for target in list(network.inputs[0].get_target_inputs()):
        target.replace_source_output(source.output(0))
    return network.output(0).get_node().input_value(0)


def _pool(value, radius):
    """Square max pool of the given radius, as a row pass and a column pass."""
    size = 2 * radius + 1
    rows = ops.max_pool(value, [1, 1], [1, 1], [0, radius], [0, radius], [1, size], "floor").output(0)
    return ops.max_pool(rows, [1, 1], [1, 1], [radius, 0], [radius, 0], [size, 1], "floor").output(0)


def _unclip(mask):
    """DB's "unclip": grow every text area by about UNCLIP times its half
    thickness. Thick areas survive erosion by larger radii and are grown
    further; the union of the scales grows each area in proportion to its size.
    Larger radii are worked at a coarser grid (a block is a kernel where all
    of it is), as their growth need not be exact to a pixel."""
    grown = _pool(mask, UNCLIP_BASE) if UNCLIP_BASE > 0 else mask
    for radius in UNCLIP_SCALES:
        factor = 4 if radius >= UNCLIP_COARSE[1] else 2 if radius >= UNCLIP_COARSE[0] else 1
        coarse = mask
        if factor > 1:
            coarse = ops.negative(ops.max_pool(ops.negative(mask), [factor, factor], [1, 1], [0, 0], [0, 0],
                                               [factor, factor], "floor").output(0))
        eroded = ops.negative(_pool(ops.negative(coarse), radius // factor))
        scaled = _pool(eroded, int(round((radius + UNCLIP * radius + UNCLIP_EXTRA) / factor)))
        if factor > 1:
            scaled = ops.interpolate(scaled, ops.constant(np.array([factor, factor], dtype=np.float32)), "nearest",
                                     "scales", axes=ops.constant(np.array([2, 3], dtype=np.int64)))
        grown = ops.maximum(grown, scaled)
    return grown


def _constant(value):
    return ops.constant(np.float32(value))


# The engine's neighbour order: row by row around the pixel.
NEIGHBOURS = ((-1, -1), (0, -1), (1, -1), (-1, 0), (1, 0), (-1, 1), (0, 1), (1, 1))


def _neighbours(value):
    """[1, 8, H, W]: channel k holds neighbour k's value (0 outside the picture)."""
    weights = np.zeros((8, 1, 3, 3), dtype=np.float32)
    for k, (dx, dy) in enumerate(NEIGHBOURS):
        weights[k, 0, 1 + dy, 1 + dx] = 1.0
    return ops.convolution(value, ops.constant(weights), [1, 1], [1, 1], [1, 1], [1, 1])


def _links(kernel, grown):
    """The text pixels and their links, [1, 8, H, W] (on = 1). A grown
    pixel's steps are its distance to the nearest kernel pixel (in pixels,
    diagonals counting one); text pixels are the grown pixels at most
    GROWTH_REACH steps out. Link k is on where both are kernel pixels, or where
    the pixel is grown and neighbour k is the first of its text neighbours one
    step nearer to a kernel, so each component is one kernel and the pixels
    that lead to it."""
    level = kernel
    steps = None
    for _ in range(GROWTH_REACH):
        outside = ops.subtract(_constant(1.0), level)
        steps = outside if steps is None else ops.add(steps, outside)
        level = _pool(level, 1)
    text = ops.multiply(level, grown)
    # steps + 1 on text pixels, 0 elsewhere: a neighbour one step nearer holds steps
    counted = ops.multiply(ops.add(steps, _constant(1.0)), text)
    beside = _neighbours(counted)
    nearer = ops.less(ops.abs(ops.subtract(beside, steps)), _constant(0.5))
    nearer = ops.multiply(ops.convert(nearer, ov.Type.f32), ops.subtract(text, kernel))  # grown, not kernel
    running = ops.cumsum(nearer, ops.constant(np.int64(1)))
    first = ops.multiply(nearer, ops.convert(ops.less(running, _constant(1.5)), ov.Type.f32))
    return text, ops.maximum(ops.multiply(kernel, _neighbours(kernel)), first)


def _on_off(value):
    """A pair of channels (0, +-10) whose softmax is on where value is 1."""
    positive = ops.subtract(ops.multiply(value, _constant(20.0)), _constant(10.0))
    return [ops.multiply(value, _constant(0.0)), positive]


def build_detector(core, network):
    """network: the DB network, a file or a model."""
    side = ov.Dimension(STRIDE, DETECTOR_SIDE) if DETECTOR_SIDE else ov.Dimension()
    shape = ov.PartialShape([1, 3, side, side])
    image, scaled = _normalised_input(shape)
    probability = _attach(core, network, scaled, shape)
    halved = ops.max_pool(probability, [2, 2], [1, 1], [1, 1], [1, 1], [3, 3], "floor").output(0)
    kernel = ops.convert(ops.greater_equal(halved, _constant(TEXT_PROBABILITY)), ov.Type.f32)
    text, links = _links(kernel, _unclip(kernel))
    pixels = ops.concat(_on_off(text), axis=1)
    off, on = _on_off(links)  # [1, 8, H, W] each, interleaved into pairs
    pairs = ops.concat([ops.unsqueeze(off, ops.constant(np.int64(2))), ops.unsqueeze(on, ops.constant(np.int64(2)))], 2)
    spatial = ops.gather(ops.shape_of(pixels), ops.constant(np.array([2, 3], dtype=np.int64)), ops.constant(np.int64(0)))
    links = ops.reshape(pairs, ops.concat([ops.constant(np.array([1, 16], dtype=np.int64)), spatial], 0), False)
    pixels.output(0).get_tensor().set_names({"pixels"})
    links.output(0).get_tensor().set_names({"links"})
    model = ov.Model([pixels, links], [image], "text_detection_db")
    _declare(model, stride=STRIDE)
    return model


def _pool_box(value, radius_y, radius_x):
    """Max pool over a (2 radius_y + 1) x (2 radius_x + 1) box, row and column passes."""
    rows = ops.max_pool(value, [1, 1], [1, 1], [0, radius_x], [0, radius_x], [1, 2 * radius_x + 1], "floor").output(0)
    return ops.max_pool(rows, [1, 1], [1, 1], [radius_y, 0], [radius_y, 0], [2 * radius_y + 1, 1], "floor").output(0)


def _opening(mask, radius_y, radius_x):
    """What of the mask a box of that size fits into (erosion, then dilation)."""
    eroded = ops.negative(_pool_box(ops.negative(mask), radius_y, radius_x))
    return _pool_box(eroded, radius_y, radius_x)


def build_presence(core, network):
    """Text presence: the detector on the picture, which the engine scales
    down to at most PRESENCE_SIDE pixels a side (input bounded to it). Text areas are strips: an area that a square
    of PRESENCE_THICKNESS fits into and that is not long (no box three times as
    long fits into it either way) is a blob (a cup, a face), and the text area
    around it is not counted. The score reaches 1 at PRESENCE_AREA text pixels."""
    # Bounded: the engine scales larger pictures down to fit (never up).
    side = ov.Dimension(1, PRESENCE_SIDE)
    shape = [1, 3, -1, -1]
    image = ops.parameter(ov.PartialShape([1, 3, side, side]), ov.Type.f32, name="image")
    scaled = ops.subtract(ops.multiply(image, _constant(1.0 / 127.5)), _constant(1.0))
    probability = _attach(core, network, scaled, shape)
    text = ops.convert(ops.greater_equal(probability, _constant(PRESENCE_PROBABILITY)), ov.Type.f32)
    coarse = ops.max_pool(text, [2, 2], [1, 1], [0, 0], [0, 0], [2, 2], "floor").output(0)  # a cell holding text
    half = PRESENCE_THICKNESS // 4  # the square's half side on the coarse grid
    blob = _opening(coarse, half, half)
    long = ops.maximum(_opening(coarse, half, 3 * half), _opening(coarse, 3 * half, half))
    round_blob = ops.multiply(blob, ops.subtract(_constant(1.0), long))
    beside = _pool_box(round_blob, half, half)
    strips = ops.multiply(coarse, ops.subtract(_constant(1.0), beside))
    area = ops.multiply(ops.reduce_sum(strips, ops.constant(np.array([1, 2, 3], dtype=np.int64)), False), _constant(4.0))
    presence = ops.clamp(ops.divide(area, _constant(float(PRESENCE_AREA))), 0.0, 1.0)
    presence = ops.reshape(presence, ops.constant(np.array([1, 1], dtype=np.int64)), False)
    scores = ops.concat([ops.subtract(_constant(1.0), presence), presence], axis=1)
    scores.output(0).get_tensor().set_names({"text_presence"})
    model = ov.Model([scores], [image], "text_presence_db")
    _declare(model, stride=STRIDE)
    return model


def folded_symbol(symbol):
    """The alphabet symbol a network symbol reads as, or None."""
    symbol = FOLDED.get(symbol, symbol)
    if len(symbol) == 1 and symbol in ALPHABET:
        return symbol
    narrowed = unicodedata.normalize("NFKC", symbol) if len(symbol) == 1 and 0xFF01 <= ord(symbol) <= 0xFF5E else ""
    return narrowed if len(narrowed) == 1 and narrowed in ALPHABET else None


def class_columns(symbols):
    """For each alphabet symbol and then the blank, the network's classes it
    gathers. symbols: the network's classes after its blank (class 0), the
    space last, as PaddleOCR's recognisers order them."""
    columns = [[] for _ in range(len(ALPHABET) + 1)]
    for index, symbol in enumerate(symbols):
        folded = folded_symbol(symbol)
        if folded is not None:
            columns[ALPHABET.index(folded)].append(index + 1)
    columns[len(ALPHABET)].append(0)
    return columns


def read_symbols(onnx_path):
    """The recogniser's symbol list as rapidocr ships it: one symbol a line in
    the ONNX file's metadata entry "character"; the space follows them."""
    data = open(onnx_path, "rb").read()
    key = b"\n\tcharacter\x12"
    at = data.rfind(key)
    if at < 0:
        raise ValueError(f"{onnx_path} carries no symbol list")
    at += len(key)
    length, shift = 0, 0
    while True:
        byte = data[at]
        at += 1
        length |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            break
    return data[at:at + length].decode("utf-8").splitlines() + [" "]


def quantised(core, onnx_path, kind):
    """The network with 8-bit weights and activations where it keeps its
    readings (NNCF post-training quantisation, calibrated on rendered text:
    lines for the recogniser, pages and signs for a detector); kind is
    "recogniser" or "detector"."""
    import nncf

    import calibration

    network = core.read_model(onnx_path)
    if kind == "recogniser":
        network.reshape({network.inputs[0]: ov.PartialShape([-1, 3, RECOGNISER_HEIGHT, -1])})
        samples = [_paddle_input(line) for line in calibration.text_lines(QUANTISATION_LINES)]
        options = {"model_type": nncf.ModelType.TRANSFORMER}
    else:
        network.reshape({network.inputs[0]: ov.PartialShape([1, 3, -1, -1])})
        samples = []
        for picture in calibration.pictures(QUANTISATION_PICTURES):
            height, width = picture.shape[:2]
            size = (max(STRIDE, round(width / STRIDE) * STRIDE), max(STRIDE, round(height / STRIDE) * STRIDE))
            from PIL import Image
            resized = np.asarray(Image.fromarray(picture).resize(size, Image.BILINEAR))
            samples.append(_paddle_input(resized))
        options = {}
    return nncf.quantize(network, nncf.Dataset(samples), subset_size=len(samples),
                         preset=nncf.QuantizationPreset.MIXED, **options)


def _paddle_input(bgr):
    """A BGR uint8 picture as PaddleOCR's networks take it: [1, 3, H, W] in [-1, 1]."""
    return (bgr.astype(np.float32).transpose(2, 0, 1)[None] / 127.5 - 1.0).astype(np.float32)


def build_recogniser(core, network, symbols):
    shape = [-1, 3, RECOGNISER_HEIGHT, -1]
    image, scaled = _normalised_input(shape)
    if RECOGNISER_SQUEEZE != 1.0:
        scaled = ops.interpolate(scaled, ops.constant(np.array([RECOGNISER_SQUEEZE], dtype=np.float32)), "linear",
                                 "scales", axes=ops.constant(np.array([3], dtype=np.int64)))
    probabilities = _attach(core, network, scaled, shape)  # [N, T, C], softmax
    classes = probabilities.get_partial_shape()[2].get_length()
    if classes != len(symbols) + 1:
        raise ValueError(f"the recogniser has {classes} classes for {len(symbols)} symbols and the blank")
    columns = class_columns(symbols)
    gathered = [index for group in columns for index in group]
    mapping = np.zeros((len(gathered), len(columns)), dtype=np.float32)
    row = 0
    for target, group in enumerate(columns):
        for _ in group:
            mapping[row, target] = 1.0
            row += 1
    picked = ops.gather(probabilities, ops.constant(np.array(gathered, dtype=np.int64)), ops.constant(np.int64(2)))
    merged = ops.matmul(picked, ops.constant(mapping), False, False)  # [N, T, symbols + blank]
    total = ops.reduce_sum(merged, ops.constant(np.array([2], dtype=np.int64)), True)
    floor = _constant(1e-12)
    logits = ops.subtract(ops.log(ops.maximum(merged, floor)), ops.log(ops.maximum(total, floor)))
    sequence = ops.transpose(logits, ops.constant(np.array([1, 0, 2], dtype=np.int64)))  # [T, N, C]
    sequence.output(0).get_tensor().set_names({"logits"})
    model = ov.Model([sequence], [image], "text_recognition_ppocr")
    _declare(model, alphabet=ALPHABET, stride=RECOGNISER_STRIDE)
    return model
