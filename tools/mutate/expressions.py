"""Mutants of expressions: conditions, operators, arguments. Single values are in values.py."""

import typing

from clang.cindex import Cursor, CursorKind, TypeKind

from syntax import span_of, unwrapped
from values import LITERALS, is_fixed, mutate_literal, mutate_macro, mutate_name

if typing.TYPE_CHECKING:
    from walker import Walker

BOUNDARIES = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
EQUALITIES = ("==", "!=")
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<"}
LOGICAL = {"&&": "and", "||": "or"}
NAMES = (CursorKind.DECL_REF_EXPR, CursorKind.MEMBER_REF_EXPR)
# Records a decision and returns it; the other arguments are for a program that explains.
TRACED = "Trace::Result"
OUTCOME = 2
CLEARING = "memset_s"


def mutate(walker: "Walker", parent: Cursor, cursor: Cursor) -> bool:
    """True if the children are done too."""
    if span_of(cursor) in walker.unchanged:
        return True
    kind = cursor.kind
    if walker.tree.macro_names.get(cursor.extent.start.offset) == span_of(cursor):
        mutate_macro(walker, cursor)
        return True
    if kind in LITERALS:
        mutate_literal(walker, parent, cursor)
    elif kind == CursorKind.DECL_REF_EXPR:
        mutate_name(walker, parent, cursor)
    elif kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
        _mutate_binary(walker, cursor)
    elif kind == CursorKind.UNARY_OPERATOR:
        _mutate_step(walker, cursor)
    elif kind == CursorKind.CALL_EXPR:
        return _mutate_call(walker, cursor)
    elif kind == CursorKind.CONDITIONAL_OPERATOR:
        replace_condition(walker, next(walker.tree.children(cursor)))
    elif kind == CursorKind.UNEXPOSED_EXPR:
        _mutate_designated(walker, cursor)
    elif kind == CursorKind.INIT_LIST_EXPR:
        for child in walker.tree.children(cursor):
            _mutate_flag(walker, child)
    return False


def replace_condition(walker: "Walker", cursor: Cursor, role: str = "condition") -> None:
    """Mutants for the whole of a condition. role: and, or: an operand, which stands alone once it is always true or
    false; loop: one that would not end if it were always true."""
    inner = unwrapped(cursor)
    if walker.tree.is_macro_call(cursor) or inner.kind in LITERALS or not _is_expression(cursor):
        return
    span = span_of(cursor)
    if span in walker.replaced:
        return
    walker.replaced.add(span)
    text = walker.short(span)
    values = _values(walker, inner, role)
    if "true" in values:
        walker.edit(span, f"({walker.add(span.start, f'`{text}` always true')} || (", span, "))")
    if "false" in values:
        walker.edit(span, f"(!{walker.add(span.start, f'`{text}` always false')} && (", span, "))")


def _values(walker: "Walker", condition: Cursor, role: str) -> set[str]:
    """By which the condition is replaced. A test that notices an operand of && as always true notices that of the
    whole; || likewise."""
    values = {"condition": {"true", "false"}, "and": {"true"}, "or": {"false"}, "loop": {"false"}}[role]
    if condition.kind == CursorKind.BINARY_OPERATOR:
        values = values - {"&&": {"true"}, "||": {"false"}}.get(_operator_of(walker, condition), set())
    return values - {_traced_literal(walker, condition)}


def _is_expression(cursor: Cursor) -> bool:
    return cursor.kind.is_expression() or cursor.kind.is_unexposed()


def _mutate_flag(walker: "Walker", cursor: Cursor) -> None:
    """Unless it is a variable that the callee may write: one that is read has a conversion around it."""
    if cursor.type.kind == TypeKind.BOOL and cursor.kind not in NAMES:
        replace_condition(walker, cursor)


def _operands(walker: "Walker", cursor: Cursor) -> tuple[Cursor, Cursor]:
    children = list(walker.tree.children(cursor))
    return children[0], children[-1]


def _operator_of(walker: "Walker", cursor: Cursor) -> str:
    left, right = _operands(walker, cursor)
    return walker.tree.operator(left, right)


def _mutate_binary(walker: "Walker", cursor: Cursor) -> None:
    left, right = _operands(walker, cursor)
    sign = walker.tree.operator(left, right)
    if sign in LOGICAL:
        replace_condition(walker, left, LOGICAL[sign])
        replace_condition(walker, right, LOGICAL[sign])
    elif sign in EQUALITIES:
        _leave_values(walker, left, right)
    elif sign in BOUNDARIES and not _is_number(left) and not _is_number(right):
        _switch_operator(walker, cursor, sign, BOUNDARIES[sign])
    elif sign in ARITHMETIC and not (left.type.kind == right.type.kind == TypeKind.POINTER):
        _switch_operator(walker, cursor, sign, ARITHMETIC[sign])
    elif sign.endswith("=") and sign[:-1] in ARITHMETIC:
        _switch_operator(walker, cursor, sign, ARITHMETIC[sign[:-1]] + "=")
    elif sign == "=" and cursor.type.kind == TypeKind.BOOL:
        replace_condition(walker, right)


def _leave_values(walker: "Walker", *operands: Cursor) -> None:
    """Makes no mutants of constant operands: a test that catches an equality that is always false catches these too."""
    walker.unchanged |= {span_of(operand) for operand in operands if is_fixed(operand)}


def _is_number(cursor: Cursor) -> bool:
    """One that is mutated itself: a number off by one and a boundary off by one are the same."""
    return unwrapped(cursor).kind == CursorKind.INTEGER_LITERAL


def _switch_operator(walker: "Walker", cursor: Cursor, sign: str, other: str) -> None:
    left, right = (span_of(operand) for operand in _operands(walker, cursor))
    between = walker.tree.text[left.end : right.start]
    span = span_of(cursor)
    on = walker.add(left.end, f"`{sign}` to `{other}` in `{walker.short(span)}`")
    walker.edit(span, f"({on} ? (", left, f") {other} (", right, ") : (", left, between, right, "))")


def _mutate_step(walker: "Walker", cursor: Cursor) -> None:
    span = span_of(cursor)
    text = walker.tree.text_of(cursor)
    for sign, other in (("++", "--"), ("--", "++")):
        if not text.startswith(sign) and not text.endswith(sign):
            continue
        operand = span_of(next(walker.tree.children(cursor)))
        on = walker.add(span.start, f"`{sign}` to `{other}` in `{walker.short(span)}`")
        if text.startswith(sign):
            walker.edit(span, f"({on} ? {other}", operand, f" : {sign}", operand, ")")
        else:
            walker.edit(span, f"({on} ? ", operand, f"{other} : ", operand, f"{sign})")


def _mutate_call(walker: "Walker", cursor: Cursor) -> bool:
    """True if the children are done too."""
    if cursor.referenced is None:
        return False
    if cursor.spelling.startswith("operator"):
        _mutate_operator_call(walker, cursor, cursor.spelling.removeprefix("operator"))
        return False
    arguments = [argument for argument in cursor.get_arguments() if argument is not None]
    if is_traced(cursor):
        # Its outcome is that of the call, which is mutated as a condition.
        if unwrapped(arguments[OUTCOME]).kind not in LITERALS:
            walker.visit(cursor, arguments[OUTCOME], False)
        return True
    if cursor.spelling == CLEARING:
        return True
    for argument in arguments:
        _mutate_flag(walker, argument)
    _exchange_arguments(walker, arguments)
    return False


def _mutate_operator_call(walker: "Walker", cursor: Cursor, sign: str) -> None:
    left, right = _operands(walker, cursor)
    if sign in EQUALITIES:
        _leave_values(walker, left, right)
    elif sign in BOUNDARIES and left != right:
        _switch_operator(walker, cursor, sign, BOUNDARIES[sign])


def is_traced(cursor: Cursor) -> bool:
    if cursor.kind != CursorKind.CALL_EXPR or cursor.referenced is None:
        return False
    named = cursor.referenced
    return f"{named.semantic_parent.spelling}::{named.spelling}" == TRACED


def _traced_literal(walker: "Walker", cursor: Cursor) -> str:
    """The outcome of a decision that is always the same; empty for any other expression."""
    if not is_traced(cursor):
        return ""
    outcome = unwrapped(list(cursor.get_arguments())[OUTCOME])
    return walker.tree.text_of(outcome) if outcome.kind in LITERALS else ""


def _exchange_arguments(walker: "Walker", arguments: list[Cursor]) -> None:
    """Of two neighbours that are plain names of one type, each in the other's place."""
    index = 0
    while index + 1 < len(arguments):
        first, second = arguments[index : index + 2]
        index += 1
        if not _are_exchangeable(walker, first, second):
            continue
        one, other = span_of(first), span_of(second)
        on = walker.add(one.start, f"`{walker.short(one)}` and `{walker.short(other)}` exchanged")
        walker.edit(one, f"({on} ? {walker.tree.text_of(second)} : ", one, ")")
        walker.edit(other, f"({on} ? {walker.tree.text_of(first)} : ", other, ")")
        index += 1


def _are_exchangeable(walker: "Walker", first: Cursor, second: Cursor) -> bool:
    named = [unwrapped(argument) for argument in (first, second)]
    if any(cursor.kind not in NAMES or cursor.referenced is None for cursor in named):
        return False
    same_type = named[0].type.get_canonical() == named[1].type.get_canonical()
    return same_type and walker.tree.text_of(first) != walker.tree.text_of(second)


def _mutate_designated(walker: "Walker", cursor: Cursor) -> None:
    """`.field = value`: the value left out, unless it has mutants of its own as a literal or a condition."""
    children = list(walker.tree.children(cursor))
    if len(children) != 2 or children[0].kind != CursorKind.MEMBER_REF:
        return
    value = unwrapped(children[1])
    if children[1].type.kind == TypeKind.BOOL:
        replace_condition(walker, children[1])
    elif value.kind in (*NAMES, CursorKind.CALL_EXPR) and not is_fixed(value):
        span = span_of(children[1])
        on = walker.add(span.start, f"`{walker.short(span)}` left out")
        walker.edit(span, f"({on} ? std::remove_cvref_t<decltype(", span, ")>{} : ", span, ")")
