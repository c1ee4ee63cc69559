"""Reads the published names and limits from src/module/published.h, for example PUBLISHED.periodScan."""

import pathlib
import re
import types

HEADER = pathlib.Path(__file__).resolve().parents[2] / "src/module/published.h"
CONSTANT = re.compile(r'^inline constexpr [\w ]+ (\w+)(?:\[\] = "([^"]*)"| = (\d+));$', re.MULTILINE)


def read_published():
    text = HEADER.read_text(encoding="utf-8")
    constants = {name: int(number) if number else word for name, word, number in CONSTANT.findall(text)}
    if len(constants) != text.count("inline constexpr"):
        raise ValueError(f"cannot read all constants of {HEADER}")
    return types.SimpleNamespace(**constants)


PUBLISHED = read_published()
