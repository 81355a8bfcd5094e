"""Checks of the text networks' in-graph adapters on small made-up networks:
no wheel and no pretrained weights needed (python -m unittest discover tools/pack)."""

import pathlib
import sys
import unittest

import numpy as np
import openvino as ov
from openvino import opset13 as ops

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import text_networks  # noqa: E402


def map_network():
    """A stand-in DB network: its "probability map" is the first channel of
    its input scaled back from [-1, 1] to [0, 1]."""
    image = ops.parameter([1, 3, -1, -1], ov.Type.f32, name="x")
    first = ops.slice(image, ops.constant(np.array([0], np.int64)), ops.constant(np.array([1], np.int64)),
                      ops.constant(np.array([1], np.int64)), ops.constant(np.array([1], np.int64)))
    probability = ops.multiply(ops.add(first, ops.constant(np.float32(1.0))), ops.constant(np.float32(0.5)))
    return ov.Model([ops.result(probability)], [image], "map")


def components(pixels, links):
    """Text pixels joined through their links, as the engine joins them."""
    def on(a, b):
        return b - a > np.log(0.8 / 0.2)
    text = on(pixels[0], pixels[1])
    height, width = text.shape
    parent = {p: p for p in zip(*np.nonzero(text))}

    def find(p):
        while parent[p] != p:
            p = parent[p]
        return p
    for k, (dx, dy) in enumerate(text_networks.NEIGHBOURS):
        for y, x in zip(*np.nonzero(text & on(links[2 * k], links[2 * k + 1]))):
            q = (y + dy, x + dx)
            if 0 <= q[0] < height and 0 <= q[1] < width and text[q]:
                parent[find((y, x))] = find(q)
    return len({find(p) for p in parent}), text


class Detector(unittest.TestCase):
    def run_detector(self, probability):
        core = ov.Core()
        compiled = core.compile_model(text_networks.build_detector(core, map_network()), "CPU")
        picture = np.repeat((probability * 255.0)[None, None].astype(np.float32), 3, axis=1)
        outputs = compiled(picture)
        return outputs["pixels"][0], outputs["links"][0]

    def test_close_lines_stay_apart_and_grow(self):
        probability = np.zeros((128, 256), np.float32)
        probability[40:46, 20:230] = 1.0   # two text lines whose grown areas meet
        probability[56:62, 20:230] = 1.0
        pixels, links = self.run_detector(probability)
        self.assertEqual(pixels.shape, (2, 64, 128))
        self.assertEqual(links.shape, (16, 64, 128))
        count, text = components(pixels, links)
        self.assertEqual(count, 2)
        rows = np.nonzero(text.any(axis=1))[0]
        self.assertLess(rows.min(), 20)   # grown beyond the kernels (rows 20-30 at half size)
        self.assertGreater(rows.max(), 31)

    def test_nothing_on_an_empty_map(self):
        pixels, _ = self.run_detector(np.zeros((64, 96), np.float32))
        self.assertFalse((pixels[1] > pixels[0]).any())

    def test_declares_its_stride(self):
        core = ov.Core()
        model = text_networks.build_detector(core, map_network())
        self.assertEqual(model.get_rt_info(["nubex", "stride"]).astype(str), "32")


class Presence(unittest.TestCase):
    def score(self, probability):
        core = ov.Core()
        compiled = core.compile_model(text_networks.build_presence(core, map_network()), "CPU")
        picture = np.repeat((probability * 255.0)[None, None].astype(np.float32), 3, axis=1)
        return float(compiled(picture)[0][0, 1])

    def test_strips_are_text_and_a_round_blob_is_not(self):
        strips = np.zeros((480, 640), np.float32)
        for top in range(100, 300, 40):
            strips[top:top + 12, 100:500] = 1.0
        self.assertGreater(self.score(strips), 0.5)
        blob = np.zeros((480, 640), np.float32)
        y, x = np.mgrid[:480, :640]
        # (a round blob counts as text once a box three times as long as the
        # thickness limit fits into it: 160 pixels across at the presence size)
        blob[(y - 240) ** 2 + (x - 320) ** 2 < 70 ** 2] = 1.0
        self.assertLess(self.score(blob), 0.5)
        self.assertLess(self.score(np.zeros((480, 640), np.float32)), 0.5)

    def test_input_is_bounded_so_the_engine_scales_large_pictures_down(self):
        core = ov.Core()
        shape = text_networks.build_presence(core, map_network()).input(0).get_partial_shape()
        self.assertEqual(shape[2].get_max_length(), text_networks.PRESENCE_SIDE)
        self.assertEqual(shape[3].get_max_length(), text_networks.PRESENCE_SIDE)


class Recogniser(unittest.TestCase):
    def test_symbols_fold_into_the_alphabet(self):
        symbols = ["a", "\uff21", "\u4e2d", "\u2019", "7", " "]
        columns = text_networks.class_columns(symbols)
        alphabet = text_networks.ALPHABET
        self.assertEqual(len(columns), len(alphabet) + 1)
        self.assertEqual(columns[alphabet.index("a")], [1])
        self.assertEqual(columns[alphabet.index("A")], [2])      # full-width A
        self.assertEqual(columns[alphabet.index("'")], [4])      # right single quote
        self.assertEqual(columns[alphabet.index(" ")], [6])
        self.assertEqual(columns[-1], [0])                       # the blank, last
        self.assertNotIn(3, [c for group in columns for c in group])  # CJK left out

    def test_output_is_steps_by_regions_by_classes(self):
        symbols = ["a", "b", "\u4e2d", " "]
        image = ops.parameter([-1, 3, 48, -1], ov.Type.f32, name="x")
        pooled = ops.avg_pool(image, [48, 8], [0, 0], [0, 0], [48, 8], True, "floor")      # [N, 3, 1, W/8]
        steps = ops.transpose(ops.squeeze(pooled, ops.constant(np.array([2], np.int64))),
                              ops.constant(np.array([0, 2, 1], np.int64)))                 # [N, T, 3]
        logits = ops.matmul(steps, ops.constant(np.ones((3, 5), np.float32)), False, False)
        network = ov.Model([ops.result(ops.softmax(logits, 2))], [image], "reader")
        core = ov.Core()
        model = text_networks.build_recogniser(core, network, symbols)
        self.assertEqual(model.get_rt_info(["nubex", "alphabet"]).astype(str), text_networks.ALPHABET)
        scores = core.compile_model(model, "CPU")(np.zeros((3, 3, 48, 64), np.float32))[0]
        self.assertEqual(scores.shape, (8, 3, len(text_networks.ALPHABET) + 1))
        # log-probabilities over the kept classes: a, b, space, blank share it evenly
        self.assertTrue(np.allclose(np.exp(scores).sum(axis=2), 1.0, atol=1e-4))
        self.assertAlmostEqual(float(np.exp(scores[0, 0, -1])), 0.25, places=4)


if __name__ == "__main__":
    unittest.main()
