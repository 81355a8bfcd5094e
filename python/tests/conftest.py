import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import nubex

# Category identifiers of the generated colour pack: the share of blue, green
# and red of a picture, in percent.
BLUE, GREEN, RED = 5001, 5002, 5003


def _write_colour_network(xml):
    import openvino as ov
    from openvino import opset13 as ops
    pixels = ops.parameter([1, 3, 16, 16], ov.Type.f32, name="pixels")
    means = ops.reduce_mean(pixels, ops.constant(np.array([2, 3], dtype=np.int64)), keep_dims=False)
    shares = ops.divide(means, ops.constant(np.array(255.0, dtype=np.float32)))
    ov.save_model(ov.Model([shares], [pixels], "colour_shares"), str(xml), compress_to_fp16=False)


@pytest.fixture(scope="session")
def colour_pack(tmp_path_factory):
    """A resource directory with one classifier: 5001 Blue, 5002 Green, 5003 Red."""
    work = tmp_path_factory.mktemp("colour-pack")
    _write_colour_network(work / "colours.xml")
    (work / "classes.txt").write_text("5001, Blue, 50=50\n5002, Green, 50=50\n5003, Red, 50=50\n")
    tool = nubex.library_path().parent.parent / "bin" / "nubex-pack"
    subprocess.run([str(tool), "build", "--xml", str(work / "colours.xml"), "--bin", str(work / "colours.bin"),
                    "--details", "5000, Colours, 1.0", "--classes", str(work / "classes.txt"),
                    str(work / "res" / "colours")], check=True, capture_output=True)
    return work / "res"


@pytest.fixture(scope="module")
def engine(colour_pack):
    with nubex.Engine(resources=[colour_pack], threads=2) as engine:
        yield engine


def uniform_bgr(blue, green, red, width=20, height=10):
    picture = np.empty((height, width, 3), dtype=np.uint8)
    picture[:, :] = (blue, green, red)
    return picture


@pytest.fixture(scope="session")
def default_pack():
    """The default pack and its sample pictures (built by scripts/setup.sh), named by NUBEX_TEST_PACK
    and NUBEX_TEST_SAMPLES."""
    pack, samples = os.environ.get("NUBEX_TEST_PACK"), os.environ.get("NUBEX_TEST_SAMPLES")
    if not pack or not samples or not Path(pack).is_dir():
        pytest.skip("NUBEX_TEST_PACK and NUBEX_TEST_SAMPLES name no default pack")
    return Path(pack), Path(samples)
