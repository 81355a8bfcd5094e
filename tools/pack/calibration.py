"""Rendered pictures to calibrate the text networks' 8-bit quantisation: text
lines as the recogniser sees them and pages and signs as the detector sees
them, in the DejaVu fonts, from words of Python's own docstrings. Seeded, so
a build renders the same pictures every time."""

import glob
import random
import re

import numpy as np
from PIL import Image, ImageDraw, ImageFilter, ImageFont

FONTS = sorted(glob.glob("/usr/share/fonts/truetype/dejavu/DejaVu*.ttf"))


def _vocabulary():
    import argparse
    import collections
    import json
    import pathlib
    import subprocess
    import zipfile
    text = " ".join(module.__doc__ or "" for module in (argparse, collections, json, pathlib, subprocess, zipfile))
    words = sorted(set(re.findall(r"[A-Za-z0-9][A-Za-z0-9'.,:;()/-]*", text)))
    return [w for w in words if len(w) <= 14]


def _phrase(chooser, words, count):
    phrase = []
    for _ in range(count):
        word = chooser.choice(words)
        roll = chooser.random()
        if roll < 0.15:
            word = word.upper()
        elif roll < 0.3:
            word = word.capitalize()
        elif roll < 0.38:
            word = str(chooser.randint(0, 99999))
        phrase.append(word)
    return " ".join(phrase)


def _colours(chooser):
    light = tuple(chooser.randint(170, 255) for _ in range(3))
    dark = tuple(chooser.randint(0, 90) for _ in range(3))
    return (dark, light) if chooser.random() < 0.3 else (light, dark)


def text_lines(count, seed=5):
    """BGR uint8 lines of height 48, cut with a margin as regions are."""
    chooser = random.Random(seed)
    words = _vocabulary()
    lines = []
    for _ in range(count):
        font = ImageFont.truetype(chooser.choice(FONTS), chooser.randint(20, 40))
        text = _phrase(chooser, words, chooser.randint(1, 8))
        background, ink = _colours(chooser)
        left, top, right, bottom = font.getbbox(text)
        margin = int((bottom - top) * chooser.uniform(0.15, 0.45))
        image = Image.new("RGB", (right - left + 2 * margin, bottom - top + 2 * margin), background)
        ImageDraw.Draw(image).text((margin - left, margin - top), text, font=font, fill=ink)
        if chooser.random() < 0.3:
            image = image.filter(ImageFilter.GaussianBlur(chooser.uniform(0.3, 1.2)))
        width = max(8, int(round(48 * image.width / image.height / 8)) * 8)
        image = image.resize((min(width, 2400), 48), Image.BILINEAR)
        lines.append(np.asarray(image)[:, :, ::-1].copy())
    return lines


def pictures(count, seed=7):
    """BGR uint8 pictures with text: printed pages and signs on a busy ground."""
    chooser = random.Random(seed)
    words = _vocabulary()
    out = []
    for index in range(count):
        width, height = chooser.choice([(640, 480), (800, 600), (960, 1248), (1280, 960)])
        noise = np.random.default_rng(seed + index).integers(0, 255, (height // 16 + 1, width // 16 + 1, 3))
        if index % 2 == 0:  # a page
            image = Image.new("RGB", (width, height), tuple(chooser.randint(225, 255) for _ in range(3)))
            draw = ImageDraw.Draw(image)
            size = chooser.randint(14, 26)
            font = ImageFont.truetype(chooser.choice(FONTS), size)
            y = chooser.randint(10, 60)
            while y < height - size:
                draw.text((chooser.randint(20, 60), y), _phrase(chooser, words, chooser.randint(3, 12)), font=font,
                          fill=(20, 20, 20))
                y += int(size * chooser.uniform(1.2, 1.8))
        else:  # signs on a coloured, blotchy ground
            ground = Image.fromarray(noise.astype(np.uint8)).resize((width, height), Image.BICUBIC)
            image = ground.filter(ImageFilter.GaussianBlur(6))
            draw = ImageDraw.Draw(image)
            for _ in range(chooser.randint(2, 6)):
                font = ImageFont.truetype(chooser.choice(FONTS), chooser.randint(18, 90))
                text = _phrase(chooser, words, chooser.randint(1, 3))
                background, ink = _colours(chooser)
                x, y = chooser.randint(0, width // 2), chooser.randint(0, height - 100)
                left, top, right, bottom = draw.textbbox((x, y), text, font=font)
                draw.rectangle((left - 10, top - 10, right + 10, bottom + 10), fill=background)
                draw.text((x, y), text, font=font, fill=ink)
        out.append(np.asarray(image)[:, :, ::-1].copy())
    return out
