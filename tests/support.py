"""What the tests share: a way onto the canonical path, and outcomes that can be compared."""

from __future__ import annotations

import contextlib
import dataclasses
import os
import threading
import warnings
from collections.abc import Callable, Iterator, Mapping
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as ts

# How many cases each seeded generator makes; raise it for a longer look.
CASES = int(os.environ.get("TYPED_SHAPES_CASES", "4000"))


CANONICAL: list[None] = []  # one item for everybody who is on the canonical path
CANONICAL_LOCK = threading.Lock()
ITERABLE = ts.Iterable


@contextlib.contextmanager
def canonical_path() -> Iterator[None]:
    """Send every call to the canonical path: a global that nothing uses is bound anew."""
    with CANONICAL_LOCK:
        CANONICAL.append(None)
        ts.Iterable = object()
    try:
        yield
    finally:
        with CANONICAL_LOCK:
            CANONICAL.pop()
            if not CANONICAL:
                ts.Iterable = ITERABLE


def describe(value: Any, shared: set[int]) -> Any:
    """A value as a comparable tree; leaves with whether they are the payload's own objects."""
    if dataclasses.is_dataclass(type(value)):
        items = [(f.name, getattr(value, f.name, "unset")) for f in dataclasses.fields(value)]
        return type(value).__name__, [(name, describe(item, shared)) for name, item in items]
    if type(value) is dict:
        is_shared = id(value) in shared
        items = [(describe(k, shared), describe(v, shared)) for k, v in value.items()]
        return "dict", is_shared, items
    if type(value) in (list, tuple):
        return type(value).__name__, [describe(item, shared) for item in value]
    if issubclass(type(value), np.ndarray):
        return "array", id(value) in shared, value.shape, str(value.dtype), value.tobytes()
    plain = issubclass(type(value), (str, int, float, type(None)))
    text = repr(value) if plain else ""
    return type(value).__name__, text, id(value) in shared or text != ""


def outcome(call: Callable[[], Any], shared: set[int] = frozenset()) -> Any:  # type: ignore[assignment]
    """What a call gives: the described result or the exception, and the warnings on the way."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            Hostile.armed = True
            try:
                returned = call()
            finally:
                Hostile.armed = False
            result: Any = ("returns", describe(returned, shared))
        except BaseException as error:
            cause = type(error.__cause__).__name__
            result = ("raises", type(error).__name__, str(error), cause)
    return result, sorted(str(w.message) for w in caught)


def both_paths(make_call: Callable[[], Callable[[], Any]]) -> tuple[Any, Any]:
    """The outcomes of one call on either path, each on a payload of its own."""
    fast = outcome(make_call())
    with canonical_path():
        canonical = outcome(make_call())
    return fast, canonical


# --- Payload parts that only look like the builtin ones ---


class DictChild(dict):
    pass


class ListChild(list):
    pass


class StrChild(str):
    def __str__(self) -> str:
        return "shown otherwise"

    def __radd__(self, other: object) -> str:
        return "added otherwise"


class EmptyLookingStr(str):
    def __bool__(self) -> bool:
        return False


class ArrayChild(np.ndarray):
    pass


class Registered:
    """A mapping by registration only."""

    def __init__(self, data: dict[Any, Any]) -> None:
        self.data = data

    def __contains__(self, key: object) -> bool:
        return key in self.data

    def __getitem__(self, key: object) -> Any:
        return self.data[key]

    def get(self, key: object, default: Any = None) -> Any:
        return self.data.get(key, default)

    def keys(self) -> Any:
        return self.data.keys()

    def items(self) -> Any:
        return self.data.items()


Mapping.register(Registered)


class Claims:
    """An object whose `__class__` is a lie."""

    def __init__(self, claimed: type) -> None:
        self.claimed = claimed

    @property  # type: ignore[misc]
    def __class__(self) -> type:  # type: ignore[override]
        return self.claimed


class Hostile:
    """Raises, or runs an action, in the slot it is told to, after a delay; logs every call.

    Tame while a payload is made and while an outcome is described.
    """

    armed = False

    def __init__(self, log: list[str], slot: str, delay: int, action: Callable[[], None]) -> None:
        self.log, self.slot, self.delay, self.action = log, slot, delay, action

    def _meet(self, slot: str) -> None:
        if not Hostile.armed:
            return
        self.log.append(slot)
        if slot == self.slot:
            if self.delay == 0:
                self.action()
            self.delay -= 1

    def __eq__(self, other: object) -> bool:
        self._meet("eq")
        return self is other

    def __hash__(self) -> int:
        self._meet("hash")
        return hash("type")

    def __str__(self) -> str:
        self._meet("str")
        return "hostile"

    def __repr__(self) -> str:
        self._meet("repr")
        return "hostile"

    def __bool__(self) -> bool:
        self._meet("bool")
        return True

    @property  # type: ignore[misc]
    def __class__(self) -> type:  # type: ignore[override]
        self._meet("class")
        return Hostile


SLOTS = ("eq", "hash", "str", "repr", "bool", "class")
