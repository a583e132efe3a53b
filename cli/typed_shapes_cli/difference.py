"""Finds the first place where two state payloads differ, by the rules of their equality."""

from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.outcomes import PathStep, format_path, printable
from typed_shapes_cli.summaries import brief


@dataclass(frozen=True)
class Difference:
    """Where two payloads differ and what stands there on either side."""

    at: str
    left: str
    right: str


def first_difference(a: Any, b: Any) -> Difference | None:
    """The first difference of two payloads, or None where they are equal states."""
    if shapes.states_equal(a, b):
        return None
    path: list[PathStep] = []
    while True:
        step = _differing_entry(a, b)
        if step is None:
            return Difference(format_path(path), *_show_both(a, b))
        path += step[0]
        a, b = step[1:]


def _differing_entry(a: Any, b: Any) -> tuple[list[PathStep], Any, Any] | None:
    """The first entry of two unequal values that is unequal itself, if they are alike so far."""
    if isinstance(a, dict) and isinstance(b, dict):
        return _differing_key(_by_text(a), _by_text(b))
    if isinstance(a, list | tuple) and isinstance(b, list | tuple) and len(a) == len(b):
        for index, (x, y) in enumerate(zip(a, b, strict=True)):
            if not shapes.states_equal(x, y):
                return [index], x, y
    if isinstance(a, np.ndarray) and isinstance(b, np.ndarray):
        return _differing_cell(a, b)
    return None


class _Absent:
    def __repr__(self) -> str:
        return "(absent)"


ABSENT = _Absent()


def _by_text(mapping: Mapping[Any, Any]) -> dict[str, Any]:
    return {str(key): value for key, value in mapping.items()}


def _differing_key(a: dict[str, Any], b: dict[str, Any]) -> tuple[list[PathStep], Any, Any] | None:
    for key in [*a, *b]:
        if (key in a) != (key in b):
            return [key], a.get(key, ABSENT), b.get(key, ABSENT)
    for key, value in a.items():
        if not shapes.states_equal(value, b[key]):
            return [key], value, b[key]
    return None


def _differing_cell(
    a: np.ndarray[Any, Any], b: np.ndarray[Any, Any]
) -> tuple[list[PathStep], Any, Any] | None:
    if a.shape != b.shape or a.dtype != b.dtype or a.ndim == 0:
        return None
    unequal = np.asarray(a != b)
    if a.dtype.kind in "fc":
        unequal &= ~(np.isnan(a) & np.isnan(b))
    if not unequal.any():
        return None
    cell = np.unravel_index(int(np.flatnonzero(unequal)[0]), a.shape)
    return [int(index) for index in cell], a[cell], b[cell]


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
    return printable(str(value)) if isinstance(value, np.generic) else brief(value)
