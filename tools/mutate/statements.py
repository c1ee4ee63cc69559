"""Mutants of statements: left out, in another order, other ends of functions, loops that do not run."""

import re
import typing

from clang.cindex import Cursor, CursorKind, TypeKind

from edits import Piece, Span
from expressions import is_traced, replace_condition
from order import can_matter
from syntax import span_of, unwrapped
from values import FUNCTIONS

if typing.TYPE_CHECKING:
    from walker import Walker

JUMPS = (CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT)
END_OF_SWITCH = re.compile(r";(\s|default\s*:|break\s*;)*}")
LIMITS_OF_TRACE = "Trace::Limit"


def mutate(walker: "Walker", cursor: Cursor) -> bool:
    """True if the children are done too."""
    kind = cursor.kind
    if kind in FUNCTIONS:
        walker.function = cursor
    elif kind in BRANCHES:
        BRANCHES[kind](walker, cursor)
        return True
    elif kind == CursorKind.COMPOUND_STMT:
        _mutate_block(walker, cursor, False)
        return True
    elif kind == CursorKind.RETURN_STMT:
        _mutate_return(walker, cursor)
    elif kind == CursorKind.LAMBDA_EXPR:
        before, walker.in_lambda = walker.in_lambda, True
        walker.visit_children(cursor, False)
        walker.in_lambda = before
        return True
    elif kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL) and cursor.type.kind == TypeKind.BOOL:
        for child in walker.tree.children(cursor):
            replace_condition(walker, child)
    return False


def _mutate_if(walker: "Walker", cursor: Cursor) -> None:
    start = walker.tree.code.index("(", cursor.extent.start.offset)
    if "constexpr" in walker.tree.code[cursor.extent.start.offset : start]:
        return
    head, bodies = _split(walker, cursor, start)
    replaced = _mutate_head(walker, cursor, head, "condition")
    for body in bodies:
        _mutate_body(walker, cursor, body, replaced and len(bodies) == 1)


def _mutate_while(walker: "Walker", cursor: Cursor) -> None:
    start = walker.tree.code.index("(", cursor.extent.start.offset)
    head, bodies = _split(walker, cursor, start)
    _mutate_head(walker, cursor, head, "loop")
    for body in bodies:
        _mutate_body(walker, cursor, body, False)


def _split(walker: "Walker", cursor: Cursor, opening: int) -> tuple[list[Cursor], list[Cursor]]:
    """The children in the parentheses, and the branches."""
    closing = walker.tree.closing(opening)
    children = list(walker.tree.children(cursor))
    head = [child for child in children if child.extent.end.offset <= closing]
    return head, [child for child in children if child.extent.start.offset > closing]


def _mutate_head(walker: "Walker", cursor: Cursor, head: list[Cursor], role: str) -> bool:
    """True if the condition got mutants: it has none of its own if it declares a variable."""
    declared = [span_of(part) for part in head if part.kind in (CursorKind.VAR_DECL, CursorKind.DECL_STMT)]
    replaced = False
    for part in head:
        if span_of(part) not in declared and any(span.holds(span_of(part)) for span in declared):
            continue
        if span_of(part) not in declared:
            replace_condition(walker, part, role)
            replaced = True
        walker.visit(cursor, part, False)
    return replaced


def _mutate_for(walker: "Walker", cursor: Cursor) -> None:
    """The step is left alone: without it the loop does not end."""
    opening = walker.tree.code.index("(", cursor.extent.start.offset)
    head, bodies = _split(walker, cursor, opening)
    first = walker.tree.code.index(";", opening)
    second = walker.tree.code.index(";", first + 1)
    for part in head:
        if part.extent.start.offset > second:
            continue
        if part.extent.start.offset > first:
            replace_condition(walker, part, "loop")
        walker.visit(cursor, part, False)
    for body in bodies:
        _mutate_body(walker, cursor, body, False)


def _mutate_range_for(walker: "Walker", cursor: Cursor) -> None:
    *head, body = walker.tree.children(cursor)
    span = span_of(body)
    on = walker.add(cursor.extent.start.offset, "the loop does not run")
    walker.edit(span, f"{{ if ({on}) break; ", span, " }")
    for part in head:
        walker.visit(cursor, part, False)
    _mutate_body(walker, cursor, body, True)


def _mutate_do(walker: "Walker", cursor: Cursor) -> None:
    body, condition = walker.tree.children(cursor)
    _mutate_body(walker, cursor, body, False)
    replace_condition(walker, condition, "loop")
    walker.visit(cursor, condition, False)


def _mutate_default(walker: "Walker", cursor: Cursor) -> None:
    (body,) = walker.tree.children(cursor)
    _mutate_body(walker, cursor, body, False)


def _mutate_case(walker: "Walker", cursor: Cursor) -> None:
    """The label left out: its statements stay for the labels beside it."""
    *_, body = walker.tree.children(cursor)
    label = Span(cursor.extent.start.offset, body.extent.start.offset)
    walker.rebuild(label, "", f"`{walker.short(label)}` left out")
    _mutate_body(walker, cursor, body, False)


BRANCHES: dict[CursorKind, typing.Callable[["Walker", Cursor], None]] = {
    CursorKind.IF_STMT: _mutate_if,
    CursorKind.WHILE_STMT: _mutate_while,
    CursorKind.FOR_STMT: _mutate_for,
    CursorKind.CXX_FOR_RANGE_STMT: _mutate_range_for,
    CursorKind.DO_STMT: _mutate_do,
    CursorKind.CASE_STMT: _mutate_case,
    CursorKind.DEFAULT_STMT: _mutate_default,
}


def _mutate_body(walker: "Walker", parent: Cursor, body: Cursor, is_only_branch: bool) -> None:
    """is_only_branch: there is a mutant in which the body does not run, and nothing in its place."""
    if body.kind == CursorKind.COMPOUND_STMT:
        _mutate_block(walker, body, is_only_branch)
    elif body.kind in BRANCHES or body.kind == CursorKind.RETURN_STMT:
        walker.visit(parent, body, False)
    elif body.kind not in JUMPS:
        _mutate_run(walker, [body], is_only_branch)
        walker.visit(parent, body, False)


def _mutate_block(walker: "Walker", cursor: Cursor, is_only_branch: bool) -> None:
    children = list(walker.tree.children(cursor))
    run: list[Cursor] = []
    alone = is_only_branch and len(children) == 1
    for child in children:
        if _is_removable(child):
            run.append(child)
            continue
        _mutate_run(walker, run, alone)
        run = []
        if not alone:
            _remove_jump(walker, child, cursor.extent.end.offset)
    _mutate_run(walker, run, alone)
    for child in children:
        walker.visit(cursor, child, False)


def _is_removable(cursor: Cursor) -> bool:
    """Not a value that is only named, so that the compiler does not complain."""
    is_expression = cursor.kind.is_expression() or cursor.kind.is_unexposed()
    return is_expression and cursor.type.kind != TypeKind.INVALID and cursor.kind != CursorKind.CSTYLE_CAST_EXPR


def _remove_jump(walker: "Walker", cursor: Cursor, end: int) -> None:
    """end: of the block. Behind the jump that leaves a switch last of all there is nothing to run."""
    is_plain_return = cursor.kind == CursorKind.RETURN_STMT and not list(walker.tree.children(cursor))
    rest = walker.tree.code[cursor.extent.end.offset : end]
    is_last_of_switch = cursor.kind == CursorKind.BREAK_STMT and END_OF_SWITCH.fullmatch(rest)
    if (cursor.kind in JUMPS or is_plain_return) and not is_last_of_switch:
        span = walker.tree.after_semicolon(span_of(cursor))
        before = walker.tree.text[: span.start].rstrip().rsplit("\n", maxsplit=1)[-1].strip()
        walker.edit(span, f"{{ if (!{_switch(walker, span, f'left out behind `{before}`')}) {{ ", span, " } }")


def _mutate_run(walker: "Walker", run: list[Cursor], alone: bool) -> None:
    """Statements in a row: each left out, each two neighbours exchanged. alone: leaving the only one out makes the
    same program as a condition that is always false."""
    run = [statement for statement in run if not _is_traced(walker, statement)]
    if not run:
        return
    spans = [_statement_span(walker, statement) for statement in run]
    removed = [_switch(walker, span, "left out") if not alone else "" for span in spans]
    exchanged = [_exchange(walker, run, spans, index) for index in range(len(run))]
    if not any(removed) and not any(exchanged):
        return
    pieces: list[Piece] = []
    for index, span in enumerate(spans):
        if index > 0:
            pieces.append(Span(spans[index - 1].end, span.start))
        off = [f"!{switch}" for switch in (removed[index], exchanged[index - 1] if index else "") if switch]
        pieces.append("{ ")
        if exchanged[index]:
            pieces += [f"if ({exchanged[index]}) {{ ", spans[index + 1], " } "]
        pieces += [f"if ({' && '.join(off) or 'true'}) {{ ", span, " } }"]
    walker.edit(Span(spans[0].start, spans[-1].end), *pieces)


def _statement_span(walker: "Walker", cursor: Cursor) -> Span:
    """With its semicolon; libclang ends a macro's call at its name."""
    span = walker.tree.macro_calls.get(cursor.extent.start.offset, span_of(cursor))
    return walker.tree.after_semicolon(span)


def _switch(walker: "Walker", span: Span, change: str) -> str:
    return walker.add(span.start, f"`{walker.short(span)}` {change}")


def _exchange(walker: "Walker", run: list[Cursor], spans: list[Span], index: int) -> str:
    """The switch that exchanges a statement with the next one; empty if that cannot change anything."""
    if index + 1 == len(run) or spans[index].end > spans[index + 1].start:
        return ""
    if not can_matter(walker.tree, run[index], run[index + 1]):
        return ""
    return _switch(walker, spans[index], f"exchanged with `{walker.short(spans[index + 1])}`")


def _is_traced(walker: "Walker", statement: Cursor) -> bool:
    """Notes something for a program that explains, and does nothing in the module."""
    return is_traced(unwrapped(statement)) or walker.tree.text_of(statement).startswith(LIMITS_OF_TRACE)


def _mutate_return(walker: "Walker", cursor: Cursor) -> None:
    values = list(walker.tree.children(cursor))
    if not values:
        return
    value = values[0]
    if value.type.kind == TypeKind.BOOL:
        replace_condition(walker, value)
        return
    if walker.in_lambda or walker.function is None or _has_no_other_end(walker, value):
        return
    if walker.function.result_type.kind in (TypeKind.LVALUEREFERENCE, TypeKind.VOID):
        return
    span = walker.tree.after_semicolon(span_of(cursor))
    on = walker.add(span.start, f"`{walker.short(span)}` returns an empty value")
    walker.edit(span, f"{{ if ({on}) return {{}}; ", span, " }")


def _has_no_other_end(walker: "Walker", value: Cursor) -> bool:
    """Empty already, or a literal, which has mutants of its own."""
    inner = unwrapped(value)
    empty = ("{}", "nullptr", "std::nullopt", "0", "-1", '""')
    return walker.tree.text_of(value) in empty or inner.kind == CursorKind.INTEGER_LITERAL
