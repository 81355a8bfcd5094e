"""NubexEngine for Python: scans still images for kinds of content.

    import nubex

    with nubex.Engine(resources=["my-pack/res"]) as engine:
        result = engine.scan("picture.png", categories=[8337, 9112])
        print(result.scores, result.faces, [line.text for line in result.text_lines])
"""
from ._engine import Engine, EngineError, ForkedEngineError, default_resources, library_path
from ._results import Box, Category, Face, ScanResult, TextLine

__version__ = "8.0.9.6"
__all__ = ["Engine", "EngineError", "ForkedEngineError", "ScanResult", "Face", "Box", "TextLine", "Category",
           "library_path", "default_resources"]
