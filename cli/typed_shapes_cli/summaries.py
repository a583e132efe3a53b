"""Short texts for values of any size, safe to show on a terminal."""

import reprlib
from itertools import islice
from typing import Any

import numpy as np

from typed_shapes_cli.outcomes import printable


class _Brief(reprlib.Repr):
    """Cuts long values, and says of arrays what they are instead of what they hold."""

    def __init__(self) -> None:
        super().__init__()
        self.maxlevel = 4
        self.maxdict = self.maxlist = self.maxtuple = 8
        self.maxstring = self.maxother = self.maxlong = 60

    def repr_ndarray(self, array: np.ndarray[Any, Any], level: int) -> str:
        return array_summary(array)

    def repr_dict(self, mapping: dict[Any, Any], level: int) -> str:
        """Keeps the order of the payload, which reprlib would sort."""
        if level <= 0 < len(mapping):
            return "{...}"
        pairs = islice(mapping.items(), self.maxdict)
        parts = [f"{self.repr1(k, level - 1)}: {self.repr1(v, level - 1)}" for k, v in pairs]
        if len(mapping) > self.maxdict:
            parts.append("...")
        return "{" + ", ".join(parts) + "}"


_BRIEF = _Brief()


def brief(value: Any) -> str:
    """The repr of a value, cut where it is long."""
    return printable(_BRIEF.repr(value))


def cell_text(cell: Any) -> str:
    """An entry of an array: a text as Python writes it, anything else as NumPy prints it."""
    if not isinstance(cell, np.generic):
        return brief(cell)
    return brief(cell.item()) if cell.dtype.kind in "SU" else _cut(str(cell))


def array_facts(array: np.ndarray[Any, Any]) -> dict[str, str]:
    """What is worth knowing about an array in place of its entries; takes no copy of it."""
    facts = {"dtype": printable(str(array.dtype)), "shape": str(array.shape)}
    if array.dtype.kind in "biu" and array.size:
        facts |= {"min": _number(array.min()), "max": _number(array.max())}
    elif array.dtype.kind == "f" and array.size:
        missing = int(np.count_nonzero(np.isnan(array)))
        if missing < array.size:
            # Of these two functions NaN is never the result where there is anything else.
            low, high = np.fmin.reduce(array, axis=None), np.fmax.reduce(array, axis=None)
            facts |= {"min": _number(low), "max": _number(high)}
        facts["NaN"] = str(missing)
    return facts


def array_summary(array: np.ndarray[Any, Any]) -> str:
    """The facts about an array in one line; a lone entry is shown itself."""
    facts = array_facts(array)
    text = f"{facts.pop('dtype')} {facts.pop('shape')}"
    if array.size == 1:
        return f"{text} holding {cell_text(array[(0,) * array.ndim])}"
    return " ".join([text, *(f"{name} {value}" for name, value in facts.items())])


def _number(value: Any) -> str:
    return f"{value:.6g}" if isinstance(value, np.floating) else str(value)


def _cut(text: str) -> str:
    """Shortens a text in its middle, as reprlib does."""
    half = _BRIEF.maxother // 2 - 1
    text = text if len(text) <= _BRIEF.maxother else f"{text[:half]}...{text[-half:]}"
    return printable(text)
