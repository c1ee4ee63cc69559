"""Decides whether the order of two adjacent statements can matter."""

import re
import typing

from clang.cindex import Cursor, CursorKind

from syntax import Tree, unwrapped

# Of the C library, work in memory alone.
IN_MEMORY = ("strcmp", "strncmp", "strcasecmp", "strncasecmp", "strlen", "strchr", "memcpy", "memset")
# Change nothing that the program could see before or after.
PAUSES = ("Pause", "memset_s")


def can_matter(tree: Tree, first: Cursor, second: Cursor) -> bool:
    """False if one of them is a log line, or if both work only in memory and neither names a target of the other.

    A pause counts as such a statement too: its place shows only beside a call of ours or of the system.
    """
    pair = (first, second)
    if any(tree.is_macro_call(statement) for statement in pair):
        return False
    if not all(_is_pause(statement) or _is_in_memory(statement) for statement in pair):
        return True
    if any(_is_pause(statement) for statement in pair):
        return False
    targets = [_target(tree, statement) for statement in pair]
    return any(_names(tree.text_of(other), target) for target, other in zip(targets, reversed(pair)))


def _is_pause(statement: Cursor) -> bool:
    call = unwrapped(statement)
    return call.kind == CursorKind.CALL_EXPR and call.spelling in PAUSES


def _is_in_memory(statement: Cursor) -> bool:
    """It calls nothing but the standard library, and no atomic of that, which other threads may read."""
    return all(_is_standard(call) for call in _calls(statement))


def _calls(cursor: Cursor) -> typing.Iterator[Cursor]:
    if cursor.kind in (CursorKind.CALL_EXPR, CursorKind.LAMBDA_EXPR):
        yield cursor
    for child in cursor.get_children():
        yield from _calls(child)


def _is_standard(call: Cursor) -> bool:
    named = call.referenced
    if call.kind == CursorKind.LAMBDA_EXPR or named is None:
        return False
    if named.spelling in IN_MEMORY:
        return True
    owner = named.semantic_parent
    while owner.semantic_parent is not None and owner.semantic_parent.kind != CursorKind.TRANSLATION_UNIT:
        if "atomic" in owner.spelling:
            return False
        owner = owner.semantic_parent
    is_implicit = call.spelling == "" or named.is_default_method() or named.kind == CursorKind.CONSTRUCTOR
    return owner.spelling == "std" or is_implicit


def _target(tree: Tree, statement: Cursor) -> str:
    """The object that an assignment, a step or a call of a member changes."""
    statement = unwrapped(statement)
    children = list(tree.children(statement))
    named = children[0].referenced if children else None
    if named is not None and named.kind == CursorKind.CXX_METHOD:
        owner = list(tree.children(children[0]))
        return tree.text_of(owner[0]) if owner else tree.text_of(children[0])
    return tree.text_of(children[0]) if children else tree.text_of(statement)


def _names(text: str, target: str) -> bool:
    return re.search(rf"\b{re.escape(target)}(?!\w)", text) is not None
