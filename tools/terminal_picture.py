"""Output of a program on a terminal as an SVG picture."""

import html
import re

COLUMNS = 118
CELL_WIDTH, LINE_HEIGHT, PADDING = 7.8, 17, 14
BACKGROUND, FOREGROUND = "#1b1f24", "#d7dce2"
# The style of the text behind an escape sequence.
STYLES = {
    "0": "",
    "1": "font-weight:bold",
    "2": "fill:#8b949e",
    "31;1": "fill:#ff7b72;font-weight:bold",
    "32": "fill:#7ee787",
}
SEQUENCE = re.compile(r"\033\[([0-9;]*)m")
CLEARED = re.compile(r"\r\033\[K")


def lines_of(output: str) -> list[str]:
    """The lines as they are left on the terminal; each begins with the style that the one before left on."""
    lines, style = [], ""
    for line in output.replace("\r\n", "\n").split("\n"):
        shown = CLEARED.split(line)[-1]
        lines.append(style + shown if shown else shown)
        sequences = [found[0] for found in SEQUENCE.finditer(line)]
        style = sequences[-1] if sequences else style
    return lines


def plain(line: str) -> str:
    return SEQUENCE.sub("", line)


def spans_of(line: str) -> list[tuple[str, str]]:
    """Texts with their style, cut at the last column."""
    spans, style, left = [], "", COLUMNS
    parts = SEQUENCE.split(line)
    for number, part in enumerate(parts):
        if number % 2:
            style = STYLES[part]
        elif part and left > 0:
            text = part if len(part) <= left else part[: left - 1] + "…"
            spans.append((text, style))
            left -= len(part)
    return spans


def svg(lines: list[str]) -> str:
    width = round(COLUMNS * CELL_WIDTH + 2 * PADDING)
    height = len(lines) * LINE_HEIGHT + 2 * PADDING
    picture = [
        '<?xml version="1.0" encoding="UTF-8"?>',
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}">',
        f'<rect width="100%" height="100%" rx="8" fill="{BACKGROUND}"/>',
        f'<g font-family="DejaVu Sans Mono,Menlo,Consolas,monospace" font-size="13" fill="{FOREGROUND}">',
    ]
    for number, line in enumerate(lines):
        column, texts = 0, []
        for text, style in spans_of(line):
            x = PADDING + column * CELL_WIDTH
            # The length keeps columns in line with fonts of another width.
            length = f'x="{x:.1f}" textLength="{len(text) * CELL_WIDTH:.1f}"'
            texts.append(f'<tspan {length} style="{style}">{html.escape(text)}</tspan>')
            column += len(text)
        y = PADDING + (number + 0.75) * LINE_HEIGHT
        picture.append(f'<text y="{y:.1f}" xml:space="preserve">{"".join(texts)}</text>')
    return "\n".join([*picture, "</g>", "</svg>"]) + "\n"
