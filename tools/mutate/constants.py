"""The named constants of a room: which of them a switch can change, and where they are used.

A constant that the compiler need not know becomes an ordinary one in the copy, so that its initialiser can hold
switches. It is initialised before main; each use records that its mutants were reached.
"""

import dataclasses

from clang.cindex import Cursor, CursorKind, StorageClass, TypeKind

from syntax import Tree, is_constexpr, is_text_constant, needs_constant

UNIT_OF_LOG = "logSource"


@dataclasses.dataclass
class Constant:
    tree: Tree
    cursor: Cursor
    needed: bool = False  # by the compiler
    used: bool = False  # at run time, itself or by another constant
    sources: set[str] = dataclasses.field(default_factory=set)  # constants in its initialiser
    # Numbers of its mutants, filled when they are made.
    numbers: range = range(0)

    def is_text(self) -> bool:
        return is_text_constant(self.cursor)

    def text(self) -> str:
        """Of its initialiser."""
        value = initialiser(self.tree, self.cursor)
        return "" if value is None else self.tree.text_of(value)


def is_global_constant(tree: Tree, cursor: Cursor) -> bool:
    if cursor.kind != CursorKind.VAR_DECL or cursor.spelling == UNIT_OF_LOG:
        return False
    if is_constexpr(tree, cursor):
        return True
    is_local = cursor.semantic_parent.kind in (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD)
    is_fixed = cursor.type.is_const_qualified() or is_text_constant(cursor)
    return is_fixed and cursor.is_definition() and (not is_local or cursor.storage_class == StorageClass.STATIC)


def is_decayed(parent: Cursor) -> bool:
    return parent.kind == CursorKind.UNEXPOSED_EXPR and parent.type.kind == TypeKind.POINTER


class Constants:
    def __init__(self, trees: list[Tree]) -> None:
        self.known: dict[str, Constant] = {}
        for tree in trees:
            for cursor in tree.top:
                self._find(tree, cursor)
        self._uses: list[tuple[str, str, bool]] = []
        for tree in trees:
            for cursor in tree.top:
                self._note_uses(tree, cursor, cursor, "", False)
        self._settle()

    def switched(self, cursor: Cursor) -> Constant | None:
        """The constant that a reference names, if a switch can change it."""
        constant = self.known.get(cursor.referenced.get_usr()) if cursor.referenced else None
        return constant if constant and not (constant.needed and not constant.is_text()) else None

    def numbers_of(self, constant: Constant) -> list[range]:
        """Of its mutants and of those constants by which it is initialised."""
        found = [constant.numbers]
        for source in constant.sources:
            found += self.numbers_of(self.known[source])
        return [numbers for numbers in found if numbers]

    def _find(self, tree: Tree, cursor: Cursor) -> None:
        if is_global_constant(tree, cursor):
            self.known[cursor.get_usr()] = Constant(tree, cursor)
        for child in tree.children(cursor):
            self._find(tree, child)

    def _note_uses(self, tree: Tree, parent: Cursor, cursor: Cursor, inside: str, needed: bool) -> None:
        usr = cursor.get_usr() if cursor.kind == CursorKind.VAR_DECL else ""
        if usr in self.known:
            inside = usr
        if cursor.kind == CursorKind.DECL_REF_EXPR and cursor.referenced is not None:
            used = cursor.referenced.get_usr()
            if used in self.known:
                # A text is switched where it decays; elsewhere the compiler needs its size.
                needed = needed or (self.known[used].is_text() and not is_decayed(parent))
                self._uses.append((used, inside, needed))
        if cursor.kind == CursorKind.STATIC_ASSERT:
            for child in cursor.get_children():
                self._note_uses(tree, cursor, child, inside, True)
        for child in (*tree.children(cursor), *tree.assertions(cursor)):
            self._note_uses(tree, cursor, child, inside, needed or needs_constant(tree, cursor, child))

    def _settle(self) -> None:
        for used, inside, needed in self._uses:
            self.known[used].needed |= needed
            self.known[used].used |= not needed and not inside
            if inside and not needed:
                self.known[inside].sources.add(used)
        for _ in self.known:  # as long as the longest chain at most
            for constant in self.known.values():
                for source in constant.sources:
                    self.known[source].needed |= constant.needed and is_constexpr(constant.tree, constant.cursor)
                    self.known[source].used |= constant.used


def initialiser(tree: Tree, constant: Cursor) -> Cursor | None:
    """Of a variable; none if it has none in the text."""
    children = [child for child in tree.children(constant) if not needs_constant(tree, constant, child)]
    expressions = [child for child in children if child.kind.is_expression() or child.kind.is_unexposed()]
    return expressions[-1] if expressions else None
