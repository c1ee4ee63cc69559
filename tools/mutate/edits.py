"""Edits of a source text. An edit replaces a span by pieces; a piece is new text or a span of the old text, whose own
edits are applied to it, as often as it occurs."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Span:
    """From start to end, exclusive, in characters of the file."""

    start: int
    end: int

    def holds(self, other: "Span") -> bool:
        return self.start <= other.start and other.end <= self.end


Piece = str | Span


@dataclasses.dataclass(frozen=True)
class Edit:
    span: Span
    pieces: tuple[Piece, ...]


def render(text: str, edits: list[Edit], span: Span) -> str:
    """The text of the span with all edits that lie in it. Edits may hold each other but not overlap otherwise; of two
    with the same span, the one that comes first in the list is the outer one."""
    inside = [(edit.span.start, -edit.span.end, rank, edit) for rank, edit in enumerate(edits) if span.holds(edit.span)]
    return _render(text, [edit for *_, edit in sorted(inside, key=lambda item: item[:3])], span)


def _render(text: str, edits: list[Edit], span: Span) -> str:
    out = []
    position = span.start
    index = 0
    while index < len(edits):
        outer = edits[index]
        index += 1
        inner = []
        while index < len(edits) and edits[index].span.start < outer.span.end:
            inner.append(edits[index])
            index += 1
        out.append(text[position : outer.span.start])
        for piece in outer.pieces:
            if isinstance(piece, str):
                out.append(piece)
            else:
                out.append(_render(text, [edit for edit in inner if piece.holds(edit.span)], piece))
        position = outer.span.end
    out.append(text[position : span.end])
    return "".join(out)
