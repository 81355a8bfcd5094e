"""Reads the real-picture benchmark's pictures with the default pack's text
networks, fed as the engine feeds networks of dynamic input, and writes what
it read in the benchmark's format, so report.py scores it as "engine-text".
A development check of the networks (not part of the product): it stands in
for the engine to compare network variants.

usage: check_text_networks.py MANIFEST OUT_JSONL [--cache DIR] [--sets S,S]
       [--threads N] [--set NAME=VALUE ...]   (overrides text_networks constants)

Needs OpenCV (cv2) and SciPy in the Python that runs it, which are not among
the project's requirements, besides OpenVINO (and NNCF for --quantise).
"""

import argparse
import json
import pathlib
import sys
import time
import zipfile

import cv2
import numpy as np
import openvino as ov
from scipy.sparse import coo_matrix
from scipy.sparse.csgraph import connected_components

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import text_networks  # noqa: E402

POSITIVE = 0.8
MINIMUM_SIDE = 10.0
MINIMUM_AREA = 300.0
MINIMUM_CONFIDENCE = 0.5
BATCH = 8
PRESENCE_THRESHOLD = 0.5
MAX_ELEMENTS = 1 << 24


def round_to(value, stride):
    return max(stride, int(round(value / stride)) * stride)


def working_size(width, height):
    if width <= 320:
        return 2 * width, 2 * height
    if width <= 600:
        return 600, int(height * (600.0 / width))
    if width <= 1280:
        return width, height
    return 1280, int(height * (1280.0 / width))


def planar(image):
    return np.ascontiguousarray(image.astype(np.float32).transpose(2, 0, 1)[None])


class Reader:
    def __init__(self, core, detector, presence, recogniser, threads):
        config = {"INFERENCE_NUM_THREADS": threads}
        self.detector = core.compile_model(detector, "CPU", config)
        self.presence = core.compile_model(presence, "CPU", config)
        self.recogniser = core.compile_model(recogniser, "CPU", config)
        alphabet = recogniser.get_rt_info(["nubex", "alphabet"]).astype(str)
        self.alphabet = alphabet
        self.times = {"detector": 0.0, "recogniser": 0.0}
        self.stride = int(recogniser.get_rt_info(["nubex", "stride"]).astype(str))

    def presence_score(self, image):
        """The picture at its own size (unbounded input), each side rounded to
        the stride; within 2^24 elements."""
        height, width = image.shape[:2]
        scale = min(1.0, (MAX_ELEMENTS / (3.0 * width * height)) ** 0.5)
        stride = text_networks.STRIDE
        size = (round_to(width * scale, stride), round_to(height * scale, stride))
        resized = cv2.resize(image.astype(np.float32), size, interpolation=cv2.INTER_LINEAR)
        return float(self.presence(planar(resized))[0][0, 1])

    def regions(self, working):
        height, width = working.shape[:2]
        scale = min(1.0, (MAX_ELEMENTS / (3.0 * width * height)) ** 0.5)
        bounds = self.detector.inputs[0].get_partial_shape()
        if bounds[2].get_max_length() > 0 and bounds[3].get_max_length() > 0:
            scale = min(scale, bounds[3].get_max_length() / width, bounds[2].get_max_length() / height)
        stride = text_networks.STRIDE
        size = (round_to(width * scale, stride), round_to(height * scale, stride))
        if bounds[3].get_max_length() > 0:  # rounding stays within the bounds
            size = (min(size[0], bounds[3].get_max_length() // stride * stride),
                    min(size[1], bounds[2].get_max_length() // stride * stride))
        resized = cv2.resize(working.astype(np.float32), size, interpolation=cv2.INTER_LINEAR)
        started = time.perf_counter()
        outputs = self.detector(planar(resized))
        self.times["detector"] += time.perf_counter() - started
        pixels, links = outputs["pixels"][0], outputs["links"][0]
        return decode_pixel_link(pixels, links, (width, height))

    def read(self, working, boxes):
        crops = [self.cut(working, box) for box in boxes]
        order = sorted(range(len(crops)), key=lambda i: crops[i].shape[1])
        readings = [None] * len(crops)
        for start in range(0, len(order), BATCH):
            chosen = order[start:start + BATCH]
            widest = max(crops[i].shape[1] for i in chosen)
            batch = np.full((len(chosen), 3, crops[chosen[0]].shape[0], widest), 127.5, np.float32)
            for row, i in enumerate(chosen):
                batch[row, :, :, :crops[i].shape[1]] = crops[i].astype(np.float32).transpose(2, 0, 1)
            started = time.perf_counter()
            scores = self.recogniser(batch)[0]  # [T, N, C]
            self.times["recogniser"] += time.perf_counter() - started
            for row, i in enumerate(chosen):
                readings[i] = self.decode(scores[:, row, :])
        return readings

    def cut(self, working, box):
        corners = cv2.boxPoints(box)
        start = starting_corner(corners)
        a, b, c = corners[start], corners[(start + 1) % 4], corners[(start + 2) % 4]
        length = float(np.hypot(*(b - a)))
        thickness = float(np.hypot(*(c - b)))
        height = text_networks.RECOGNISER_HEIGHT
        if thickness >= 1.5 * length:  # turned 90 degrees counter-clockwise
            a, b, c = b, c, corners[(start + 3) % 4]
            length, thickness = thickness, length
        width = int(round(height * length / max(thickness, 1e-6)))
        width = -(-max(width, 1) // self.stride) * self.stride
        width = min(width, 50 * height)
        source = np.float32([a, b, c])
        target = np.float32([[0, 0], [width - 1, 0], [width - 1, height - 1]])
        matrix = cv2.getAffineTransform(source, target)
        return cv2.warpAffine(working, matrix, (width, height), flags=cv2.INTER_LINEAR,
                              borderMode=cv2.BORDER_CONSTANT)

    def decode(self, scores):
        scores = scores - scores.max(axis=1, keepdims=True)
        probabilities = np.exp(scores)
        probabilities /= probabilities.sum(axis=1, keepdims=True)
        best = probabilities.argmax(axis=1)
        blank = probabilities.shape[1] - 1
        text, previous, maxima = [], blank, []
        for t, index in enumerate(best):
            if index != blank:
                maxima.append(probabilities[t, index])
                if index != previous:
                    text.append(self.alphabet[index])
            previous = index
        confidence = float(np.mean(maxima)) if maxima else 0.0
        return "".join(text).strip(), confidence


def starting_corner(corners):
    order = sorted(range(4), key=lambda i: (corners[i][0], i))
    first, second = order[0], order[1]
    a, b = corners[first], corners[second]
    if a[1] != b[1]:
        return first if a[1] < b[1] else second
    return first if a[0] <= b[0] else second


def decode_pixel_link(pixels, links, size):
    def on(pair_first, pair_second):
        m = np.maximum(pair_first, pair_second)
        return np.exp(pair_second - m) / (np.exp(pair_first - m) + np.exp(pair_second - m)) >= POSITIVE

    positive = on(pixels[0], pixels[1])
    height, width = positive.shape
    index = np.arange(height * width).reshape(height, width)
    sources, targets = [], []
    for k, (dx, dy) in enumerate(text_networks.NEIGHBOURS):
        # q = p + (dx, dy) for every p whose neighbour exists
        rows = slice(max(0, -dy), height - max(0, dy))
        cols = slice(max(0, -dx), width - max(0, dx))
        rows_q = slice(max(0, dy), height - max(0, -dy))
        cols_q = slice(max(0, dx), width - max(0, -dx))
        joined = positive[rows, cols] & positive[rows_q, cols_q] & on(links[2 * k], links[2 * k + 1])[rows, cols]
        sources.append(index[rows, cols][joined])
        targets.append(index[rows_q, cols_q][joined])
    sources, targets = np.concatenate(sources), np.concatenate(targets)
    graph = coo_matrix((np.ones(len(sources), np.int8), (sources, targets)), shape=(height * width,) * 2)
    _, component = connected_components(graph, directed=False)
    labels = np.zeros((height, width), np.int32)
    # numbered in raster order of their first pixel, as the engine numbers them
    first_pixels = {}
    for flat in index[positive]:
        first_pixels.setdefault(component[flat], len(first_pixels) + 1)
    lookup = np.zeros(component.max() + 1, np.int32)
    for c, label in first_pixels.items():
        lookup[c] = label
    labels[positive] = lookup[component[index[positive]]]
    roots = first_pixels
    grid = cv2.resize(labels, size, interpolation=cv2.INTER_NEAREST)
    boxes = []
    for label in range(1, len(roots) + 1):
        mask = (grid == label).astype(np.uint8)
        contours, _ = cv2.findContours(mask, cv2.RETR_CCOMP, cv2.CHAIN_APPROX_SIMPLE)
        if not contours:
            continue
        box = cv2.minAreaRect(contours[0])
        (w, h) = box[1]
        if min(w, h) >= MINIMUM_SIDE and w * h >= MINIMUM_AREA:
            boxes.append(box)
    return boxes


def group_lines(found, working, image):
    """The engine's grouping of readings into lines (text_lines.cpp)."""
    sx, sy = image[0] / working[0], image[1] / working[1]
    words = []
    for box, text in found:
        corners = cv2.boxPoints(box)
        xs = np.clip(corners[:, 0].astype(int), 0, working[0] - 1)
        ys = np.clip(corners[:, 1].astype(int), 0, working[1] - 1)
        xs = np.clip((xs * sx).astype(int), 0, image[0] - 1)
        ys = np.clip((ys * sy).astype(int), 0, image[1] - 1)
        words.append(((xs.min(), ys.min(), xs.max(), ys.max()), text))
    words.sort(key=lambda w: (w[0][1], w[0][0]))
    lines, row = [], []

    def cut(row):
        row.sort(key=lambda w: w[0][0])
        group = []
        for word in row:
            if group:
                previous = group[-1][0]
                if word[0][0] - previous[2] > 0.75 * (previous[3] - previous[1]):
                    lines.append(" ".join(w[1] for w in group))
                    group = []
            group.append(word)
        if group:
            lines.append(" ".join(w[1] for w in group))

    for word in words:
        if row:
            previous = row[-1][0]
            middle = word[0][1] + (word[0][3] - word[0][1]) // 2
            if middle < previous[1] or middle > previous[3]:
                cut(row)
                row = []
        row.append(word)
    if row:
        cut(row)
    return lines


def read_symbols(paths, args):
    if not args.symbols:
        return text_networks.read_symbols(paths[args.recogniser])
    if args.symbols.endswith(".onnx"):
        return text_networks.read_symbols(paths[args.symbols])
    with open(paths[args.symbols], encoding="utf-8") as handle:
        return [line.rstrip("\n") for line in handle] + [" "]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("manifest")
    parser.add_argument("out")
    parser.add_argument("--cache", default=str(HERE.parents[1] / ".cache" / "pack-sources"))
    parser.add_argument("--sets", default="scene,printed,scanned,faces,closeups,textfree")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--set", action="append", default=[])
    parser.add_argument("--detector", default="rapidocr/models/PP-OCRv6_det_small.onnx")
    parser.add_argument("--recogniser", default="rapidocr/models/PP-OCRv6_rec_small.onnx")
    parser.add_argument("--wheel", default="rapidocr-3.10.0-py3-none-any.whl")
    parser.add_argument("--symbols", default="", help="the recogniser's dictionary in the wheel (else its metadata)")
    parser.add_argument("--presence", default="rapidocr_openvino/models/ch_PP-OCRv4_det_infer.onnx")
    parser.add_argument("--presence-wheel", default="rapidocr_openvino-1.4.4-py3-none-any.whl")
    parser.add_argument("--quantise", action="store_true", help="8-bit networks, as the pack builder makes them")
    args = parser.parse_args()
    for assignment in args.set:
        name, value = assignment.split("=", 1)
        setattr(text_networks, name, type(getattr(text_networks, name))(eval(value)))

    work = pathlib.Path("/tmp/check-text-networks")
    work.mkdir(exist_ok=True)
    archive = zipfile.ZipFile(pathlib.Path(args.cache) / args.wheel)
    paths = {}
    for member in (args.detector, args.recogniser) + ((args.symbols,) if args.symbols else ()):
        if pathlib.Path(member).is_absolute():  # a network outside the wheel (a variant)
            paths[member] = member
            continue
        target = work / pathlib.Path(member).name
        if not target.exists():
            target.write_bytes(archive.read(member))
        paths[member] = str(target)
    presence = work / pathlib.Path(args.presence).name
    if not presence.exists():
        presence.write_bytes(zipfile.ZipFile(pathlib.Path(args.cache) / args.presence_wheel).read(args.presence))
    core = ov.Core()

    def network(path, kind):
        if not args.quantise:
            return path
        done = work / (pathlib.Path(path).stem + "-int8.xml")
        if not done.exists():
            ov.save_model(text_networks.quantised(core, path, kind), str(done))
        return str(done)

    reader = Reader(core, text_networks.build_detector(core, network(paths[args.detector], "detector")),
                    text_networks.build_presence(core, network(str(presence), "detector")),
                    text_networks.build_recogniser(core, network(paths[args.recogniser], "recogniser"),
                                                   read_symbols(paths, args)),
                    args.threads)
    manifest = pathlib.Path(args.manifest)
    pictures = [p for p in json.loads(manifest.read_text()) if p["set"] in args.sets.split(",")]
    first = True
    with open(args.out, "w") as out:
        for picture in pictures:
            path = pathlib.Path(picture["path"])
            if not path.exists():  # a manifest moved with its pictures
                path = manifest.parent / path.name
            image = cv2.imread(str(path), cv2.IMREAD_COLOR)
            for attempt in range(2 if first else 1):  # the first picture once more, untimed
                reader.times = {"detector": 0.0, "recogniser": 0.0}
                start = time.perf_counter()
                score = reader.presence_score(image)
                lines = []
                gate = time.perf_counter() - start
                if score > PRESENCE_THRESHOLD:
                    working = working_size(image.shape[1], image.shape[0])
                    resized = cv2.resize(image, working, interpolation=cv2.INTER_LINEAR) \
                        if working != (image.shape[1], image.shape[0]) else image
                    boxes = reader.regions(resized)
                    found = []
                    for box, (text, confidence) in zip(boxes, reader.read(resized, boxes)):
                        if confidence >= MINIMUM_CONFIDENCE and text:
                            found.append((box, text))
                    lines = group_lines(found, working, (image.shape[1], image.shape[0]))
                seconds = time.perf_counter() - start
            first = False
            record = {"id": picture["id"], "lines": lines, "faces": [], "seconds": seconds, "error": "",
                      "score": 100.0 * score, "gate_seconds": gate,
                      "detector_seconds": reader.times["detector"], "recogniser_seconds": reader.times["recogniser"]}
            out.write(json.dumps(record) + "\n")
            out.flush()
            print(f"{picture['id']}: {score:.2f} {seconds:.2f}s (gate {gate:.2f} detector {reader.times['detector']:.2f} "
                  f"recogniser {reader.times['recogniser']:.2f}) {len(lines)} lines", file=sys.stderr)


if __name__ == "__main__":
    main()
