"""The syntax tree of a source as clang sees it, with parts that libclang omits: macros, operators, parentheses."""

import dataclasses
import pathlib
import re
from collections.abc import Iterator

import clang.cindex
from clang.cindex import Cursor, CursorKind, TypeKind

from edits import Span

# Their operands are not evaluated, or by the compiler alone.
OPAQUE = {
    CursorKind.STATIC_ASSERT,
    CursorKind.CXX_UNARY_EXPR,
    CursorKind.CXX_TYPEID_EXPR,
    CursorKind.PARM_DECL,
    CursorKind.ENUM_CONSTANT_DECL,
    CursorKind.TYPEDEF_DECL,
    CursorKind.TYPE_ALIAS_DECL,
}
# Expressions directly below them are arguments of templates.
CONSTANT_CHILDREN = {
    CursorKind.DECL_REF_EXPR,
    CursorKind.FUNCTION_DECL,
    CursorKind.CXX_METHOD,
}
# For a program that explains a decision.
FACTS = "Trace::Facts"
VARIABLES = {CursorKind.VAR_DECL, CursorKind.FIELD_DECL}
COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])+\'', re.DOTALL)


def span_of(cursor: Cursor) -> Span:
    return Span(cursor.extent.start.offset, cursor.extent.end.offset)


def blank(text: str) -> str:
    """The text with comments and literals blanked out; offsets stay."""
    return COMMENT_OR_TEXT.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


@dataclasses.dataclass
class Tree:
    """One file of a room, a source or a header, in the syntax tree of a source that includes it."""

    file: pathlib.Path
    text: str  # one character per byte, so that clang's offsets count characters
    own: list[Cursor]  # that stand at the top of the file

    def __post_init__(self) -> None:
        self.code = blank(self.text)
        macros = [span_of(cursor) for cursor in self.own if cursor.kind == CursorKind.MACRO_INSTANTIATION]
        self.macro_calls = {span.start: span for span in macros if self.text[span.end - 1] == ")"}
        self.macro_names = {span.start: span for span in macros if span.start not in self.macro_calls}
        preprocessing = (CursorKind.MACRO_INSTANTIATION, CursorKind.INCLUSION_DIRECTIVE, CursorKind.MACRO_DEFINITION)
        self.top = [cursor for cursor in self.own if cursor.kind not in preprocessing]

    def text_of(self, cursor: Cursor) -> str:
        span = span_of(cursor)
        return self.text[span.start : span.end]

    def is_macro_call(self, cursor: Cursor) -> bool:
        return cursor.extent.start.offset in self.macro_calls

    def is_opaque(self, cursor: Cursor) -> bool:
        """True if nothing in it does anything in the module."""
        is_facts = cursor.kind in VARIABLES and cursor.type.get_canonical().spelling.endswith(FACTS)
        return cursor.kind in OPAQUE or is_facts or cursor.extent.start.offset in self.macro_calls

    def children(self, cursor: Cursor) -> Iterator[Cursor]:
        """Those that stand in the text, within the cursor's own."""
        outer = span_of(cursor)
        for child in cursor.get_children():
            span = span_of(child)
            if span.start < span.end and outer.holds(span) and child.kind not in OPAQUE:
                yield child

    @staticmethod
    def assertions(cursor: Cursor) -> list[Cursor]:
        """Those that the compiler checks."""
        return [child for child in cursor.get_children() if child.kind == CursorKind.STATIC_ASSERT]

    def after_semicolon(self, span: Span) -> Span:
        """A statement's span with its semicolon."""
        return Span(span.start, self.code.index(";", span.end) + 1)

    def closing(self, opening: int) -> int:
        """Offset of the parenthesis that closes the one at opening."""
        depth = 0
        for offset in range(opening, len(self.code)):
            depth += {"(": 1, ")": -1}.get(self.code[offset], 0)
            if depth == 0:
                return offset
        raise ValueError(f"{self.file}: no end of the parenthesis at {opening}")

    def operator(self, left: Cursor, right: Cursor) -> str:
        """Between two operands."""
        return self.code[left.extent.end.offset : right.extent.start.offset].strip()


def unwrapped(cursor: Cursor) -> Cursor:
    """Below the implicit conversions, which stand for no text of their own."""
    while cursor.kind == CursorKind.UNEXPOSED_EXPR:
        children = list(cursor.get_children())
        if len(children) != 1 or span_of(children[0]) != span_of(cursor):
            break
        cursor = children[0]
    return cursor


def is_constexpr(tree: Tree, cursor: Cursor) -> bool:
    if cursor.kind != CursorKind.VAR_DECL:
        return False
    return "constexpr" in tree.code[cursor.extent.start.offset : cursor.location.offset].split()


def is_text_constant(cursor: Cursor) -> bool:
    """An array of characters, as all named texts are."""
    kinds = (TypeKind.CONSTANTARRAY, TypeKind.INCOMPLETEARRAY)
    return cursor.type.kind in kinds and cursor.type.get_array_element_type().get_canonical().spelling == "const char"


def needs_constant(tree: Tree, parent: Cursor, child: Cursor) -> bool:
    """True if the compiler has to know the child's value: of a case label, a bound, an argument of a template."""
    start = child.extent.start.offset
    if parent.kind == CursorKind.CASE_STMT:
        return span_of(next(tree.children(parent))) == span_of(child)
    if parent.kind in CONSTANT_CHILDREN:
        return child.kind != CursorKind.COMPOUND_STMT
    if parent.kind in VARIABLES:
        before = tree.code[parent.location.offset + len(parent.spelling) : start]
        return start < parent.location.offset or parent.is_bitfield() or is_bound(before)
    return False


def is_bound(before: str) -> bool:
    return before.count("[") > before.count("]") and "=" not in before and "(" not in before and "{" not in before


def parse(source: pathlib.Path, arguments: list[str], folder: pathlib.Path) -> dict[pathlib.Path, list[Cursor]]:
    """The top-level cursors of the source, and of each header of the directory that it includes."""
    options = clang.cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
    unit = clang.cindex.Index.create().parse(str(source), args=arguments, options=options)
    errors = [str(found) for found in unit.diagnostics if found.severity >= clang.cindex.Diagnostic.Error]
    if errors:
        raise SystemExit("mutate: clang cannot read the source\n" + "\n".join(errors))
    found: dict[pathlib.Path, list[Cursor]] = {}
    for cursor in unit.cursor.get_children():
        file = cursor.location.file
        if file is not None and file.name.startswith(f"{folder}/"):
            found.setdefault(pathlib.Path(file.name), []).append(cursor)
    return found
