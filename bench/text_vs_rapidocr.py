"""End-to-end text reading: the engine (through its C interface) against
rapidocr-openvino on the same pictures, on this machine, both with two
inference threads. Prints the mean time per picture of each and their ratio.

usage: text_vs_rapidocr.py LIBRARY RESOURCE_DIR PICTURE... (run with a Python
that has rapidocr-openvino installed; see scripts/bench-text.sh)"""

import ctypes
import sys
import time

import numpy as np
from PIL import Image
from rapidocr_openvino import RapidOCR

ROUNDS = 5


def engine(library_path, resources):
    library = ctypes.CDLL(library_path)
    library.ScanImage.restype = ctypes.c_void_p
    library.ScanImage.argtypes = [ctypes.c_char_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_int32, ctypes.c_char_p,
                                  ctypes.POINTER(ctypes.c_float), ctypes.c_float]
    library.ReleaseNubexMemory.argtypes = [ctypes.c_void_p]
    library.SetNubexResourceDirectory(resources.encode())
    library.InitializeNubexEngine()

    def read(picture):
        bgr = np.asarray(picture)[:, :, ::-1]
        height, width = bgr.shape[:2]
        padding = width % 4
        rows = np.concatenate([bgr.reshape(height, width * 3), np.zeros((height, padding), np.uint8)], axis=1)
        pixels = np.ascontiguousarray(rows).tobytes()
        scores = (ctypes.c_float * 4)()
        document = library.ScanImage(pixels, len(pixels), width, height, b"9112", scores, ctypes.c_float(50.0))
        text = ctypes.string_at(document).decode()
        library.ReleaseNubexMemory(document)
        return text

    return read


def mean_seconds(read, pictures):
    for picture in pictures:
        read(picture)  # warm up: networks load on first use
    start = time.perf_counter()
    for _ in range(ROUNDS):
        for picture in pictures:
            read(picture)
    return (time.perf_counter() - start) / (ROUNDS * len(pictures))


def main():
    library_path, resources, *paths = sys.argv[1:]
    pictures = [Image.open(path).convert("RGB") for path in paths]
    ours = mean_seconds(engine(library_path, resources), pictures)
    ocr = RapidOCR(inference_num_threads=2)
    theirs = mean_seconds(lambda picture: ocr(np.asarray(picture)[:, :, ::-1]), pictures)
    print(f"pictures: {len(pictures)}, rounds: {ROUNDS}")
    print(f"engine text scan     {1e3 * ours:8.1f} ms per picture")
    print(f"rapidocr-openvino    {1e3 * theirs:8.1f} ms per picture")
    print(f"engine / rapidocr    {ours / theirs:8.3f}")


if __name__ == "__main__":
    main()
