"""Walks the tree of a file and makes its mutants: edits that switch them on, or texts to rebuild with."""

from clang.cindex import Cursor, CursorKind

import expressions
import statements
from constants import Constants, initialiser, is_global_constant
from edits import Edit, Piece, Span
from mutant import MutantList
from syntax import Tree, is_constexpr, needs_constant, span_of
from values import mutate_constant, other_text

LONGEST_PLACE = 80


class Walker:
    """Walks one file. Functions of expressions.py and statements.py add their edits to it."""

    def __init__(self, tree: Tree, constants: Constants, mutants: MutantList) -> None:
        self.tree = tree
        self.constants = constants
        self.mutants = mutants
        self.edits: list[Edit] = []
        # While it visits the initialiser of a constant: its places are reached where the constant is used.
        self.in_constant = False
        # In a table of arrays of characters, whose texts no switch can exchange.
        self.in_char_arrays = False
        self.in_lambda = False
        # Expressions without mutants, because those of the surrounding expression are as strong.
        self.unchanged: set[Span] = set()
        self.replaced: set[Span] = set()  # conditions that have their mutants
        self.function: Cursor | None = None
        self._around: list[Span] = []  # of the cursors that are being visited
        self._seen: set[tuple[CursorKind, Span]] = set()

    def add(self, offset: int, change: str) -> str:
        """The condition under which a new mutant is on."""
        number = self.mutants.add(self.tree.file, self.tree.text, offset, change)
        return f"::Mutants::{'IsOn' if self.in_constant else 'On'}({number})"

    def rebuild(self, span: Span, replacement: str, change: str) -> None:
        self.mutants.add(self.tree.file, self.tree.text, span.start, change, (span, replacement))

    def edit(self, span: Span, *pieces: Piece) -> None:
        self.edits.append(Edit(span, pieces))

    def short(self, span: Span) -> str:
        """The text of a span in one line, for people."""
        return " ".join(self.tree.text[span.start : span.end].split())

    def place(self, span: Span) -> str:
        """Tells the value of a span from others of its line: by the expression around it, if that is short."""
        around = next((outer for outer in reversed(self._around) if outer != span), span)
        text = self.short(around)
        return f" in `{text}`" if around != span and len(text) <= LONGEST_PLACE else ""

    def make_constants(self) -> None:
        """The mutants of the file's constants, which come first: uses refer to their numbers."""
        for constant in self.constants.known.values():
            if constant.tree is not self.tree or not constant.used:
                continue
            first = len(self.mutants.mutants) + 1
            self._make_constant(constant.cursor, constant.needed, constant.is_text())
            constant.numbers = range(first, len(self.mutants.mutants) + 1)

    def _make_constant(self, cursor: Cursor, needed: bool, is_text: bool) -> None:
        value = initialiser(self.tree, cursor)
        if value is None:
            return
        if is_text:
            other, change = other_text(self.short(span_of(value)))
            if needed:
                self.rebuild(span_of(value), other, change)
            else:
                self.add(span_of(value).start, change)
            return
        if not needed and is_constexpr(self.tree, cursor):
            self._make_variable(cursor)
        self.in_constant = True
        self.in_char_arrays = "char[" in cursor.type.get_canonical().spelling
        self.visit(cursor, value, needed)
        self.in_constant = self.in_char_arrays = False

    def _make_variable(self, cursor: Cursor) -> None:
        """In the copy the compiler does not evaluate the constant."""
        start = cursor.extent.start.offset
        end = cursor.location.offset
        declared = self.tree.code[start:end]
        in_class = cursor.semantic_parent.kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL)
        at = start + declared.index("constexpr")
        name = "" if "const" in declared.split() else "const"
        self.edit(Span(at, at + len("constexpr")), f"inline {name}" if in_class else name)
        if "inline" in declared.split():
            at = start + declared.index("inline")
            self.edit(Span(at, at + len("inline")), "static")

    def walk(self) -> None:
        for cursor in self.tree.top:
            self.visit(cursor, cursor, False)

    def visit(self, parent: Cursor, cursor: Cursor, constant: bool) -> None:
        """constant: the compiler has to know the value."""
        if self.tree.is_opaque(cursor) or self._has_seen(cursor):
            return
        if not self.in_constant and is_global_constant(self.tree, cursor):
            return
        self._around.append(span_of(cursor))
        if constant:
            mutate_constant(self, parent, cursor)
            self.visit_children(cursor, True)
        elif not expressions.mutate(self, parent, cursor) and not statements.mutate(self, cursor):
            self.visit_children(cursor, False)
        self._around.pop()

    def _has_seen(self, cursor: Cursor) -> bool:
        """Conversions and constructors stand around each other without a text of their own."""
        if cursor.kind in (CursorKind.UNEXPOSED_EXPR, CursorKind.CALL_EXPR):
            return False
        key = (cursor.kind, span_of(cursor))
        has_seen = key in self._seen
        self._seen.add(key)
        return has_seen

    def visit_children(self, cursor: Cursor, constant: bool) -> None:
        for child in self.tree.children(cursor):
            self.visit(cursor, child, constant or needs_constant(self.tree, cursor, child))
