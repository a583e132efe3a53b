"""Finds the first place where two state payloads differ, by the rules of their equality.

One walk decides whether they differ and where, so that the two answers cannot contradict each
other. It asks the library about each leaf, and about arrays block by block. To ask about whole
subtrees on the way down would take time quadratic in the depth, and to ask about whole arrays would
take several times their memory for what NumPy computes in between.
"""

from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass
from itertools import count
from math import prod
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.outcomes import PathStep, format_path
from typed_shapes_cli.summaries import brief, cell_text

BLOCK = 1 << 16  # cells that the library compares at once
TELL_EVERY = 1 << 14
LEAVES = {bool, int, float, str, type(None)}

Entries = Iterator[tuple[PathStep, Any, Any]]


@dataclass(frozen=True)
class Difference:
    """Where two payloads differ and what stands there on either side."""

    at: str
    left: str
    right: str


def first_difference(
    a: Any, b: Any, tell: Callable[[int], None] = lambda entries: None
) -> Difference | None:
    """The first difference of two payloads, or None where they are equal states.

    `tell` hears now and then how many entries were compared.
    """
    path: list[PathStep] = []
    levels: list[Entries] = [iter([("", a, b)])]
    for compared in count():
        if not levels:
            break
        if compared % TELL_EVERY == 0:
            tell(compared)
        entry = next(levels[-1], None)
        if entry is None:
            levels.pop()
            del path[-1:]
            continue
        step, x, y = entry
        if _flat(x) and _flat(y) and shapes.states_equal(x, y):
            continue
        entries = _entries(x, y)
        if entries is not None:
            path.append(step)
            levels.append(entries)
        elif (cell := _unequal_cell(x, y)) is not None:
            at = format_path([*path, step, *cell][1:])
            return Difference(at, *(_show_both(x[cell], y[cell]) if cell else _show_both(x, y)))
    return None


def _flat(value: Any) -> bool:
    """Whether a container holds none: most of what is large, and settled by one question."""
    if type(value) is dict:
        return LEAVES.issuperset(map(type, value.values()))
    return type(value) is list and LEAVES.issuperset(map(type, value))


def _entries(a: Any, b: Any) -> Entries | None:
    """The entries of two values side by side, if the values are alike but for their entries."""
    if isinstance(a, dict) and isinstance(b, dict):
        return _by_key(_by_text(a), _by_text(b))
    if isinstance(a, list | tuple) and isinstance(b, list | tuple) and len(a) == len(b):
        return ((index, x, y) for index, (x, y) in enumerate(zip(a, b, strict=True)))
    return None


class _Absent:
    def __repr__(self) -> str:
        return "(absent)"


ABSENT = _Absent()


def _by_text(mapping: Mapping[Any, Any]) -> dict[str, Any]:
    return {str(key): value for key, value in mapping.items()}


def _by_key(a: dict[str, Any], b: dict[str, Any]) -> Entries:
    if a.keys() == b.keys():
        return ((key, value, b[key]) for key, value in a.items())
    alone = next(key for key in [*a, *b] if (key in a) != (key in b))
    return iter([(alone, a.get(alone, ABSENT), b.get(alone, ABSENT))])


def _unequal_cell(a: Any, b: Any) -> tuple[int, ...] | None:
    """The first cell in which two arrays differ, () for values without cells, None if equal."""
    arrays = isinstance(a, np.ndarray) and isinstance(b, np.ndarray)
    if not arrays or a.shape != b.shape or a.dtype != b.dtype:
        return None if shapes.states_equal([a], [b]) else ()
    boxes = [tuple((0, length) for length in a.shape)]
    while boxes:
        box = boxes.pop()
        cells = prod(stop - start for start, stop in box)
        if cells <= BLOCK:
            part = tuple(slice(start, stop) for start, stop in box)
            if shapes.states_equal(a[part], b[part]):
                continue
            if cells <= 1:
                return tuple(start for start, _ in box)
        axis, (start, stop) = next((i, span) for i, span in enumerate(box) if span[1] - span[0] > 1)
        middle = (start + stop) // 2
        # The half that comes first in the order of the cells is looked at first.
        for half in ((middle, stop), (start, middle)):
            boxes.append((*box[:axis], half, *box[axis + 1 :]))
    return None


def _show_both(a: Any, b: Any) -> tuple[str, str]:
    if isinstance(a, list | tuple) and isinstance(b, list | tuple):
        return f"{len(a)} entries", f"{len(b)} entries"
    left, right = _show(a), _show(b)
    if left == right:
        return f"{type(a).__name__} {left}", f"{type(b).__name__} {right}"
    return left, right


def _show(value: Any) -> str:
    if isinstance(value, np.ndarray):
        return f"array {brief(value)}"
    return cell_text(value)
