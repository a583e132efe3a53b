"""What the tests share: a way onto the canonical path, and outcomes that can be compared."""

import bisect
import contextlib
import dataclasses
import os
import random
import subprocess
import sys
import threading
import warnings
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Mapping
from pathlib import Path
from types import FunctionType
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as ts

# How many cases each seeded generator makes, and the seed of the first: raise the one for a longer
# look; set both, the number to 1, to see one case again.
CASES = int(os.environ.get("TYPED_SHAPES_CASES", "4000"))
SEED = int(os.environ.get("TYPED_SHAPES_SEED", "0"))

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


def describe(*values: Any) -> Any:
    """Values as one comparable tree, in which every object is numbered where it is first met: what
    is shared, among the values as well, stands as its number."""
    numbers: dict[int, int] = {}
    kept: list[Any] = []  # items that are made to be looked at, too: else two have one id

    def look(value: Any) -> Any:
        kind, number = type(value), len(numbers)
        if value is None or kind is bool:
            return value
        kept.append(value)
        if numbers.setdefault(id(value), number) != number:
            return numbers[id(value)]
        if issubclass(kind, np.ndarray):
            items: Any = np.ndarray.tobytes(value)
            if value.dtype.hasobject or value.dtype.char in "gG":  # long doubles are padded
                items = [*map(look, value.flat)]
            base = numbers.get(id(value.base))
            return kind.__name__, value.shape, value.strides, value.dtype.str, items, base
        if issubclass(kind, dict):
            return kind.__name__, [(look(key), look(item)) for key, item in dict.items(value)]
        if issubclass(kind, (list, tuple)):
            return kind.__name__, [look(item) for item in kind.__iter__(value)]
        if dataclasses.is_dataclass(kind) or kind is Registered:
            return kind.__name__, [(name, look(item)) for name, item in vars(value).items()]
        if issubclass(kind, (str, int, bytes)):
            return kind.__name__, value
        return kind.__name__, repr(value) if issubclass(kind, (float, complex, np.generic)) else ""

    return [look(value) for value in values]


def outcome(function: Callable[..., Any], *arguments: Any) -> Any:
    """What a call gives and leaves behind: the result or the exception, described together with
    the arguments, and the warnings on the way."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        came: tuple[str, ...] = ("returns",)
        returned = None
        try:
            returned = function(*arguments)
        except BaseException as error:
            cause, context = type(error.__cause__).__name__, type(error.__context__).__name__
            came = ("raises", type(error).__name__, str(error), cause, context)
    return (*came, describe(arguments, returned)), sorted(str(w.message) for w in caught)


def python_calls(call: Callable[[], Any]) -> list[str]:
    """The Python functions that run during a call: none, where the fast path took all of it."""
    entered: list[str] = []
    sys.setprofile(lambda frame, event, _: event == "call" and entered.append(frame.f_code.co_name))
    try:
        call()
    finally:
        sys.setprofile(None)
    return entered[isinstance(call, FunctionType) :]  # the call itself does not count


def both_paths(make: Callable[[], Any]) -> tuple[Any, Any]:
    """The outcomes of one call on either path, each with a function and arguments of its own."""
    fast = outcome(*make())
    with canonical_path():
        canonical = outcome(*make())
    return fast, canonical


Witness = Callable[[random.Random], Any]


def agree(
    make: Any, source: Callable[[], random.Random], again: str, witness: Witness | None = None
) -> str:
    """Send what a generator makes down both paths, compare with what the witness says of the same
    source, and say what came of it in one word."""
    fast, canonical = both_paths(lambda: make(source()))
    expected = witness(source()) if witness else canonical
    if not fast == canonical == expected:
        sides = f"fast: {fast}\ncanonical: {canonical}\nexpected: {expected}"
        raise AssertionError(f"{make.__name__}, again with {again}\n{sides}")
    came, returned = fast[0][0], fast[0][-1][1]
    return str(returned) if type(returned) is bool else came


def agree_on(make: Any, seeds: Iterable[int], witness: Witness) -> Counter[str]:
    """How often which outcome came of the cases of these seeds."""
    seen: Counter[str] = Counter()
    for seed in seeds:
        again = f"TYPED_SHAPES_SEED={seed} TYPED_SHAPES_CASES=1"
        text = f"{make.__name__} {seed}"
        seen[agree(make, lambda text=text: random.Random(text), again, witness)] += 1
    assert not python_calls(ts.WindowSpec)  # still: else one path was compared with itself
    return seen


# --- Payload parts that only look like the builtin ones ---

DictSubclass, ListSubclass = type("DictSubclass", (dict,), {}), type("ListSubclass", (list,), {})
FloatSubclass, ArrayChild = (
    type("FloatSubclass", (float,), {}),
    type("ArrayChild", (np.ndarray,), {}),
)


class StrSubclass(str):
    def __str__(self) -> str:
        return "shown otherwise"

    def __radd__(self, other: object) -> str:
        return "added otherwise"


class EmptyLookingStr(str):
    def __bool__(self) -> bool:
        return False


class Nameless:
    """What any two of a class show themselves as."""

    def __repr__(self) -> str:
        return "nameless"


DICT_METHODS = "__contains__ __getitem__ get keys items".split()


def of_data(name: str) -> Callable[..., Any]:
    return lambda self, *arguments: getattr(self.data, name)(*arguments)


class Registered(Nameless):
    """A mapping by registration only."""

    def __init__(self, data: dict[Any, Any]) -> None:
        self.data = data

    __contains__, __getitem__, get, keys, items = map(of_data, DICT_METHODS)


Mapping.register(Registered)


class Claims(Nameless):
    """An object whose `__class__` is a lie."""

    def __init__(self, claimed: type) -> None:
        self.claimed = claimed

    __class__ = property(lambda self: self.claimed)  # type: ignore[assignment]


def allocations(call: Callable[[Any], Any], payload: Any) -> int:
    """How many blocks of memory a call asks for: with so many it misses none."""
    import pytest  # not by scripts that patch the standard library first

    testcapi = pytest.importorskip("_testcapi")
    if hasattr(sys, "gettotalrefcount"):
        pytest.skip("an interpreter with assertions aborts where there is no memory")

    def misses_none(number: int) -> bool:
        try:
            testcapi.set_nomemory(number)
            call(payload)
        except MemoryError:
            return False
        except ts.SchemaError:
            pass
        finally:
            testcapi.remove_mem_hooks()
        return True

    return bisect.bisect_left(range(1 << 17), True, key=misses_none)


# --- Processes ---

BEFORE = """
import dataclasses, gc, importlib.util, sys
name = "quillmere.functions._typed_shapes"
def refusal(call, *arguments):
    try:
        call(*arguments)
    except BaseException as error:
        return f"{type(error).__name__}: {error}"
"""


def run_alone(code: str, python: str | Path = sys.executable) -> str:
    """What a script prints in a process of its own."""
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH" or python == sys.executable}
    command = [python, "-c", BEFORE + code]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, env=env)
    assert done.returncode == 0, done.stderr
    return done.stdout
