#!/usr/bin/env python3
"""A Python host with the nubex package (pip install ./python): scans pictures
and prints what was found.

    python3 scan.py [--resources DIR]... [--categories 8337,Text] PICTURE...

The engine's console lines arrive as records of the "nubex.engine" logger
(shown here from warnings up, on standard error).
"""
import argparse
import logging
import sys

import nubex


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--resources", action="append", default=[], help="a resource directory (repeatable)")
    parser.add_argument("--categories", help="identifiers or names, comma-separated (default: all)")
    parser.add_argument("pictures", nargs="+")
    arguments = parser.parse_args()
    logging.basicConfig(level=logging.WARNING, format="%(name)s: %(message)s")

    with nubex.Engine(resources=arguments.resources) as engine:
        for picture in arguments.pictures:
            result = engine.scan(picture, categories=arguments.categories)
            print(f"{picture}: {result.width}x{result.height}, {'ok' if result.ok else 'failed: ' + result.error}")
            for identifier, score in result.scores_by_id.items():
                print(f"  category {identifier}: {score:.2f}%")
            for face in result.faces:
                box = face.box
                print(f"  face {face.score:.1f}% at ({box.left}, {box.top}), {box.width}x{box.height}")
            for line in result.text_lines:
                print(f"  text at {line.corners[0]}: {line.text}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
