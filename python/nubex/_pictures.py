"""Pictures in the engine's layout: blue, green, red bytes, top row first, each
row followed by width % 4 padding bytes."""
import io
import os

import numpy as np
from PIL import Image


def _from_pil(image):
    rgb = np.asarray(image.convert("RGB"), dtype=np.uint8)
    return rgb[:, :, ::-1]


def bgr_pixels(picture):
    """An HxWx3 BGR uint8 array from a path, encoded file bytes, a BGR array or a PIL image."""
    if isinstance(picture, (str, os.PathLike)):
        with Image.open(picture) as image:
            return _from_pil(image)
    if isinstance(picture, (bytes, bytearray, memoryview)):
        with Image.open(io.BytesIO(bytes(picture))) as image:
            return _from_pil(image)
    if isinstance(picture, Image.Image):
        return _from_pil(picture)
    if isinstance(picture, np.ndarray):
        if picture.dtype != np.uint8 or picture.ndim != 3 or picture.shape[2] != 3:
            raise ValueError(f"a picture array must be HxWx3 uint8 (blue, green, red), not {picture.dtype} "
                             f"{'x'.join(map(str, picture.shape))}")
        return picture
    raise TypeError(f"a picture is a path, encoded file bytes, an HxWx3 BGR uint8 array or a PIL image, "
                    f"not {type(picture).__name__}")


def engine_layout(picture):
    """(bytes, width, height) for ScanImage."""
    pixels = bgr_pixels(picture)
    height, width = pixels.shape[:2]
    if width == 0 or height == 0:
        raise ValueError("the picture is empty")
    rows = np.zeros((height, width * 3 + width % 4), dtype=np.uint8)
    rows[:, :width * 3] = pixels.reshape(height, width * 3)
    return rows.tobytes(), width, height
