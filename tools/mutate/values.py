"""Mutants of single values: literals, enumerators, named constants."""

import re
import typing

from clang.cindex import Cursor, CursorKind, TypeKind

from constants import is_decayed
from edits import Span
from syntax import is_text_constant, span_of, unwrapped

if typing.TYPE_CHECKING:
    from walker import Walker

INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|[0-9][0-9']*)([uUlLzZ]*)$")
INTEGERS = {
    TypeKind.INT,
    TypeKind.UINT,
    TypeKind.LONG,
    TypeKind.ULONG,
    TypeKind.LONGLONG,
    TypeKind.ULONGLONG,
    TypeKind.SHORT,
    TypeKind.USHORT,
}
LITERALS = {
    CursorKind.INTEGER_LITERAL,
    CursorKind.CHARACTER_LITERAL,
    CursorKind.CXX_BOOL_LITERAL_EXPR,
    CursorKind.STRING_LITERAL,
}
FUNCTIONS = (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR)
# How numbers come out of macros; errno is not a number but an object.
NUMBERS_OF_MACROS = (CursorKind.INTEGER_LITERAL, CursorKind.BINARY_OPERATOR, CursorKind.CSTYLE_CAST_EXPR)
# Names of decisions, for a program that explains them.
TESTS = "Trace::Test"


def mutate_constant(walker: "Walker", parent: Cursor, cursor: Cursor) -> None:
    """A value that the compiler has to know."""
    if parent.kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL) and not walker.in_constant:
        return  # the bound of an array
    span = span_of(cursor)
    text = walker.short(span)
    if cursor.kind == CursorKind.INTEGER_LITERAL:
        for value in _other_integers(text):
            walker.rebuild(span, value, f"`{text}` to `{value}`{walker.place(span)}")
    elif cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
        walker.rebuild(span, f"(!{text})", _flip(text) + walker.place(span))
    elif cursor.kind == CursorKind.STRING_LITERAL and text != '""':
        walker.rebuild(span, '""', f"`{text}` empty{walker.place(span)}")


def mutate_macro(walker: "Walker", cursor: Cursor) -> None:
    """A number that a header names."""
    span = span_of(cursor)
    if unwrapped(cursor).kind in NUMBERS_OF_MACROS and cursor.type.get_canonical().kind in INTEGERS:
        on = walker.add(span.start, f"`{walker.short(span)}` to another value{walker.place(span)}")
        walker.edit(span, f"({on} ? !(", span, ") : ", span, ")")


def mutate_literal(walker: "Walker", parent: Cursor, cursor: Cursor) -> None:
    span = span_of(cursor)
    text = walker.short(span)
    if cursor.kind == CursorKind.INTEGER_LITERAL:
        _mutate_integer(walker, parent, span, text)
    elif cursor.kind == CursorKind.CHARACTER_LITERAL:
        on = walker.add(span.start, f"`{text}` to the next character{walker.place(span)}")
        walker.edit(span, f"({on} ? static_cast<char>({text} + 1) : ", span, ")")
    elif cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
        walker.edit(span, f"({walker.add(span.start, _flip(text) + walker.place(span))} != ", span, ")")
    else:
        _mutate_text(walker, parent, span, text)


def _flip(text: str) -> str:
    return f"`{text}` to `{'false' if text == 'true' else 'true'}`"


def _other_integers(text: str) -> list[str]:
    match = INTEGER.match(text)
    if match is None:
        return []
    digits = match.group(1).replace("'", "")
    value = int(digits, 8 if re.fullmatch(r"0[0-7]+", digits) else 0)
    return [f"{other}{match.group(2)}" for other in ([1] if value == 0 else [value + 1, value - 1])]


def _mutate_integer(walker: "Walker", parent: Cursor, span: Span, text: str) -> None:
    others = _other_integers(text)
    if others and parent.type.kind != TypeKind.POINTER:
        place = walker.place(span)
        switches = [f"{walker.add(span.start, f'`{text}` to `{other}`{place}')} ? {other} : " for other in others]
        walker.edit(span, f"({''.join(switches)}", span, ")")


def other_text(text: str) -> tuple[str, str]:
    """In place of a text, with the name of the change."""
    return ('"?"', '`""` to `"?"`') if text == '""' else ('""', f"`{text}` empty")


def _mutate_text(walker: "Walker", parent: Cursor, span: Span, text: str) -> None:
    other, change = other_text(text)
    change += walker.place(span)
    in_table = parent.kind == CursorKind.INIT_LIST_EXPR and not walker.in_char_arrays
    if is_decayed(parent) or in_table:
        walker.edit(span, f"({walker.add(span.start, change)} ? {other} : ", span, ")")
    elif parent.kind == CursorKind.INIT_LIST_EXPR:
        walker.rebuild(span, other, change)


def mutate_name(walker: "Walker", parent: Cursor, cursor: Cursor) -> None:
    """An enumerator or a constant."""
    named = cursor.referenced
    if named is None:
        return
    constant = walker.constants.switched(cursor)
    if named.kind == CursorKind.ENUM_CONSTANT_DECL:
        _mutate_enumerator(walker, cursor)
    elif constant is not None and constant.is_text():
        if is_decayed(parent) and constant.numbers:
            other, _ = other_text(constant.text())
            on = f"::Mutants::On({constant.numbers.start})"
            walker.edit(span_of(cursor), f"({on} ? {other} : ", span_of(cursor), ")")
    elif constant is not None:
        numbers = walker.constants.numbers_of(constant)
        if numbers and not walker.in_constant:
            reached = "".join(f"::Mutants::Reach({known.start}, {known.stop - 1}), " for known in numbers)
            walker.edit(span_of(cursor), f"({reached}", span_of(cursor), ")")
    elif named.get_usr() not in walker.constants.known:
        _mutate_foreign_constant(walker, parent, cursor)


def _mutate_foreign_constant(walker: "Walker", parent: Cursor, cursor: Cursor) -> None:
    """A constant of another room, at this use."""
    named = cursor.referenced
    file = named.location.file
    is_ours = file is not None and file.name.startswith(str(walker.mutants.root))
    if named.kind != CursorKind.VAR_DECL or named.semantic_parent.kind in FUNCTIONS or not is_ours:
        return
    span = span_of(cursor)
    text = walker.short(span)
    if is_text_constant(named):
        if is_decayed(parent):
            walker.edit(span, f"({walker.add(span.start, f'`{text}` empty{walker.place(span)}')} ? \"\" : ", span, ")")
    elif named.type.is_const_qualified() and named.type.get_canonical().kind in INTEGERS:
        walker.edit(
            span, f"({walker.add(span.start, f'`{text}` plus 1{walker.place(span)}')} ? ", span, " + 1 : ", span, ")"
        )


def _mutate_enumerator(walker: "Walker", cursor: Cursor) -> None:
    """The next one in its place."""
    named = cursor.referenced
    if cursor.type.get_canonical().spelling == TESTS:
        return
    siblings = [child for child in named.semantic_parent.get_children() if child.kind == CursorKind.ENUM_CONSTANT_DECL]
    others = [child for child in siblings if child.enum_value != named.enum_value]
    if not others:
        return
    following = [child for child in others if child.enum_value > named.enum_value]
    other = (following or others)[0].spelling
    span = span_of(cursor)
    prefix = walker.tree.text[span.start : span.end - len(named.spelling)]
    on = walker.add(span.start, f"`{named.spelling}` to `{other}`{walker.place(span)}")
    walker.edit(span, f"({on} ? {prefix}{other} : ", span, ")")


def is_fixed(cursor: Cursor) -> bool:
    """A literal or an enumerator, with a sign or without."""
    inner = unwrapped(cursor)
    if inner.kind == CursorKind.UNARY_OPERATOR:
        inner = unwrapped(next(inner.get_children()))
    if inner.kind == CursorKind.DECL_REF_EXPR and inner.referenced is not None:
        return inner.referenced.kind == CursorKind.ENUM_CONSTANT_DECL
    return inner.kind in LITERALS
