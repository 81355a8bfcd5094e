"""Typed scan results, read from the engine's result document."""
import json
from dataclasses import dataclass
from typing import Dict, Mapping, Optional, Tuple


@dataclass(frozen=True)
class Category:
    identifier: int
    name: str


@dataclass(frozen=True)
class Box:
    """A square in image pixels; it may reach outside the image."""
    left: int
    top: int
    right: int
    bottom: int

    @property
    def width(self) -> int:
        return self.right - self.left

    @property
    def height(self) -> int:
        return self.bottom - self.top


@dataclass(frozen=True)
class Face:
    score: float
    box: Box


@dataclass(frozen=True)
class TextLine:
    """A line of text: its words, left to right, and the corners of its box
    (top-left, top-right, bottom-right, bottom-left) as (x, y)."""
    words: Tuple[str, ...]
    corners: Tuple[Tuple[int, int], ...]

    @property
    def text(self) -> str:
        return " ".join(self.words)


@dataclass(frozen=True)
class ScanResult:
    """What a scan found.

    scores: percentage by category name, in the order the engine accepted the
    categories (-1 when a category has no calibration record); scores_by_id the
    same by category identifier. ok is False when the engine met a problem,
    described by error. document is the engine's JSON text as it came.
    """
    scores: Dict[str, float]
    scores_by_id: Dict[int, float]
    faces: Tuple[Face, ...]
    text_lines: Tuple[TextLine, ...]
    width: int
    height: int
    error: str
    ok: bool
    document: str


def _face(entry) -> Face:
    corners = entry["location"]["vertices"]  # top-left, top-right, bottom-left, bottom-right
    top_left, bottom_right = corners[0], corners[3]
    return Face(score=float(entry["score"]),
                box=Box(left=int(top_left["x"]), top=int(top_left["y"]),
                        right=int(bottom_right["x"]), bottom=int(bottom_right["y"])))


def _text_line(entry: str) -> TextLine:
    fields = entry.split(",", 8)
    numbers = [int(float(value)) for value in fields[:8]]
    words = tuple(fields[8].split()) if len(fields) > 8 else ()
    return TextLine(words=words, corners=tuple(zip(numbers[0::2], numbers[1::2])))


def read_document(document: str, identifiers: Mapping[str, int]) -> ScanResult:
    """identifiers: category identifier by name, for scores_by_id."""
    data = json.loads(document)
    scores: Dict[str, float] = {}
    scores_by_id: Dict[int, float] = {}
    for entry in data.get("scan_result", []):
        for name, score in entry.items():
            scores[name] = float(score)
            identifier: Optional[int] = identifiers.get(name)
            if identifier is not None:
                scores_by_id[identifier] = float(score)
    return ScanResult(
        scores=scores,
        scores_by_id=scores_by_id,
        faces=tuple(_face(entry) for entry in data.get("face_details", [])),
        text_lines=tuple(_text_line(entry) for entry in data.get("text_details", [])),
        width=int(data.get("img_width", 0)),
        height=int(data.get("img_height", 0)),
        error=str(data.get("error_code", "")),
        ok=data.get("result") == "True",
        document=document,
    )
