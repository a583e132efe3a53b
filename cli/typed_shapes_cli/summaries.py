"""Short texts for values of any size, safe to show on a terminal."""

import reprlib
from itertools import islice
from typing import Any

import numpy as np


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


brief = _Brief().repr


def array_facts(array: np.ndarray[Any, Any]) -> dict[str, str]:
    """What is worth knowing about an array in place of its entries."""
    facts = {"dtype": str(array.dtype), "shape": str(array.shape)}
    if array.dtype.kind not in "biuf" or array.size == 0:
        return facts
    missing = np.isnan(array)
    present = array[~missing]
    if present.size:
        facts |= {"min": _number(present.min()), "max": _number(present.max())}
    if array.dtype.kind == "f":
        facts["NaN"] = str(np.count_nonzero(missing))
    return facts


def array_summary(array: np.ndarray[Any, Any]) -> str:
    """The facts about an array in one line; a lone entry is shown itself."""
    facts = array_facts(array)
    text = f"{facts.pop('dtype')} {facts.pop('shape')}"
    if array.size == 1:
        return f"{text} holding {array.reshape(-1)[0]!s}"
    return " ".join([text, *(f"{name} {value}" for name, value in facts.items())])


def _number(value: Any) -> str:
    return f"{value:.6g}" if isinstance(value, np.floating) else str(value)
