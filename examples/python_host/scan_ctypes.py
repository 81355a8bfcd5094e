#!/usr/bin/env python3
"""A Python host: scans a picture with the installed engine through ctypes and
prints the result document, then the faces and text lines it found.

    python3 scan_ctypes.py --library <prefix>/lib/libNubexEngine.so.8 PICTURE [CATEGORIES]

Without --library the engine is looked up as NUBEX_LIBRARY, then through
pkg-config (nubex-engine). Pictures are read with Pillow.
"""
import argparse
import ctypes
import json
import os
import subprocess
import sys

from PIL import Image


def find_library(given):
    if given:
        return given
    if os.environ.get("NUBEX_LIBRARY"):
        return os.environ["NUBEX_LIBRARY"]
    libdir = subprocess.run(["pkg-config", "--variable=libdir", "nubex-engine"],
                            capture_output=True, text=True, check=True).stdout.strip()
    return os.path.join(libdir, "libNubexEngine.so.8")


def load_engine(path):
    engine = ctypes.CDLL(path)
    # Texts the engine returns are its own: kept as c_void_p so that they can
    # be given back with ReleaseNubexMemory.
    engine.InitializeNubexEngine.restype = ctypes.c_uint32
    engine.DeInitializeNubexEngine.argtypes = [ctypes.c_int32]
    engine.GetNubexEngineVersion.restype = ctypes.c_void_p
    engine.GetNubexCategories.argtypes = [ctypes.POINTER(ctypes.POINTER(ctypes.c_void_p))]
    engine.GetNubexCategories.restype = ctypes.c_int32
    engine.ScanImage.argtypes = [ctypes.c_char_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_int32,
                                 ctypes.c_char_p, ctypes.POINTER(ctypes.c_float), ctypes.c_float]
    engine.ScanImage.restype = ctypes.c_void_p
    engine.ReleaseNubexMemory.argtypes = [ctypes.c_void_p]
    return engine


def take_text(engine, pointer):
    """Copies an engine text and gives the original back."""
    try:
        return ctypes.string_at(pointer).decode("utf-8")
    finally:
        engine.ReleaseNubexMemory(pointer)


def all_categories(engine):
    listed = ctypes.POINTER(ctypes.c_void_p)()
    count = engine.GetNubexCategories(ctypes.byref(listed))
    identifiers = [take_text(engine, listed[i]).split("\t")[0] for i in range(count)]
    engine.ReleaseNubexMemory(ctypes.cast(listed, ctypes.c_void_p))
    return ",".join(identifiers)


def engine_layout(path):
    """Blue, green, red bytes, each row padded by width % 4 bytes."""
    picture = Image.open(path).convert("RGB")
    width, height = picture.size
    red, green, blue = picture.split()
    bgr = Image.merge("RGB", (blue, green, red)).tobytes()
    row = width * 3
    padding = bytes(width % 4)
    data = b"".join(bgr[y * row:(y + 1) * row] + padding for y in range(height))
    return data, width, height


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--library")
    parser.add_argument("picture")
    parser.add_argument("categories", nargs="?")
    arguments = parser.parse_args()

    engine = load_engine(find_library(arguments.library))
    print(take_text(engine, engine.GetNubexEngineVersion()), file=sys.stderr)
    engine.InitializeNubexEngine()
    categories = arguments.categories or all_categories(engine)
    data, width, height = engine_layout(arguments.picture)
    scores = (ctypes.c_float * (categories.count(",") + 1))()
    document = take_text(engine, engine.ScanImage(data, len(data), width, height, categories.encode(),
                                                  scores, 50.0))
    engine.DeInitializeNubexEngine(-1)

    print(document)
    result = json.loads(document)
    for face in result.get("face_details", []):
        corners = face["location"]["vertices"]
        print(f"face {face['score']:.1f}% from ({corners[0]['x']}, {corners[0]['y']}) "
              f"to ({corners[3]['x']}, {corners[3]['y']})", file=sys.stderr)
    for line in result.get("text_details", []):
        print("text:", line.split(",", 8)[8], file=sys.stderr)
    return 0 if result["result"] == "True" else 1


if __name__ == "__main__":
    sys.exit(main())
