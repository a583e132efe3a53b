"""No call keeps or loses a reference, and the collector sees all that our objects hold.

Every call of the catalogue, or those with the words given in their texts, is made 10,000 times on
either path. With `--sites` the lines of the C++ sources that raise are listed that no call reaches.
"""

import contextlib
import dataclasses
import gc
import importlib
import itertools
import multiprocessing
import re
import sys
import typing
import weakref
from typing import Any

import numpy  # noqa: F401  # while it can: an import below is made to fail

WARM, CALLS, BLOCKS = 300, 10_000, 8
SHARED = (int, type(None))  # everybody has references to None and to small numbers
# Lines that raise once in a process, on a stack of its own, or late: tests of the suite reach them.
ELSEWHERE = {
    'raise(PyExc_RecursionError, "maximum stack depth': "a small stack",
    "raise(PyExc_ImportError,": "a second interpreter",
    "check(PyErr_WarnFormat(PyExc_RuntimeWarning, 1,": "another minor version",
    "raise(PyExc_RuntimeError,": "a second module object",
    "keywords must be strings": "a caller in C",
    "if (arrays > most_arrays_) raise_stack_exceeded()": "arrays 200,000 levels deep",
}
RAISES = re.compile(
    r"(?<!void )(?<!Refused )\b(raise|raise_from_pending|set_error|raise_stack_exceeded"
    r"|refuse\w*|PyErr_(Set|Warn|NoMemory)\w*)\("
)


def blocks_in_use() -> int:
    """How many blocks there are, but for garbage and the names in the interpreter's cache of
    attributes: NumPy looks them up by a new str each time, and up to 4,096 of these stay there."""
    gc.collect()
    sys._clear_type_cache()
    return sys.getallocatedblocks()


def keeps(text: str, path: Any, count: int) -> str:
    """What a call keeps or loses; "" where that is nothing."""
    from harden.catalogue import Call

    call = Call(text)
    inputs = call.inputs()
    # Recursion that ends by the limit is made shorter, and any call may raise.
    sys.setrecursionlimit(150)
    with path():
        for turn in range(6):  # caches of others fill up in the first ones, a leak goes on
            blocks = blocks_in_use()
            counts = [sys.getrefcount(value) for value in inputs]
            for _ in range(count if turn else WARM):
                with contextlib.suppress(Exception):
                    call()
            moved = blocks_in_use() - blocks
            now = [sys.getrefcount(value) for value in inputs]
            changed = [
                type(value).__name__
                for value, before, after in zip(inputs, counts, now, strict=True)
                if abs(after - before) > BLOCKS * (type(value) in SHARED)
            ]
            if turn and not changed and abs(moved) <= BLOCKS:
                return ""
    return f"{text} ({path.__name__}): {moved} blocks, references to {changed}"


class Holder:
    """What a field is bound to, so that its object is in a cycle."""


def native_functions() -> list[Any]:
    return [value for value in gc.get_objects() if type(value).__name__ == "native_function"]


def unseen_by_the_collector() -> list[str]:
    """Fields that hide a cycle, and functions that show more or less than they hold."""
    # The functions of a module never go; those of an import that failed do.
    union, typing.Union = typing.Union, None  # type: ignore[assignment]
    gc.disable()
    with contextlib.suppress(TypeError):
        importlib.import_module("quillmere.functions._typed_shapes")
    typing.Union, dead = union, native_functions()
    gc.enable()
    dead[0].__globals__.clear()

    from quillmere.functions import _typed_shapes as ts

    owners: list[tuple[Any, str]] = [(dead.pop(), "__annotations__")]
    for name in ("__doc__", "__module__", "attribute"):
        owners += [(dead.pop(), name) for _ in range(4)]
    for cls in filter(dataclasses.is_dataclass, vars(ts).values()):
        owners += [(object.__new__(cls), field.name) for field in dataclasses.fields(cls)]
    dead.clear()
    faults, holders = [], []
    while owners:
        owner, name = owners.pop()
        holder: Any = Holder()
        holder.owner = owner
        value = {"": holder} if name == "__annotations__" else holder
        set_attribute = object.__setattr__ if dataclasses.is_dataclass(owner) else setattr
        set_attribute(owner, name, value)
        shown = gc.get_referents(owner)
        shown += [v for part in shown if isinstance(part, dict) for v in part.values()]
        if not any(value is part for part in shown):
            faults.append(f"{type(owner).__name__}.{name} is not shown")
        holders.append((f"{type(owner).__name__}.{name}", weakref.ref(holder)))
        del owner, holder, value, shown
    gc.collect()
    faults += [f"not collected: {name}" for name, holder in holders if holder() is not None]
    for function in native_functions():
        held = [type(function), function.__name__, function.__qualname__, function.__module__]
        held += [function.__doc__, function.__annotations__, function.__globals__]
        held += [v for v in (function.__defaults__, function.__kwdefaults__) if v is not None]
        left = {id(value): value for value in gc.get_referents(function)}
        missing = [value for value in held if left.pop(id(value), left) is left]
        unknown = [value for value in left.values() if type(value) not in (tuple, dict)]
        if unknown or any(value is not function.__name__ for value in missing):
            faults.append(f"{function.__qualname__}: {missing} not shown, {unknown} shown")
    return faults


def look_at_sites() -> int:
    from harden.coverage import lines_run_by

    status, lines = lines_run_by("-m", "harden.references", "--once")
    sites = [line for line in lines if RAISES.search(line.text.partition("//")[0])]
    print(f"{len(sites)} lines raise")
    missed = [line for line in sites if line.count == 0 and line.reason is None]
    missed = [line for line in missed if not any(part in line.text for part in ELSEWHERE)]
    print(*(f"{line.place}: {line.text}" for line in missed), sep="\n")
    print(f"figures: {len(missed)} lines that raise were not reached")
    return status or bool(missed)


def main() -> int:
    if "--sites" in sys.argv:
        return look_at_sites()
    with multiprocessing.Pool(1) as pool:  # while this process has not imported the module
        faults = pool.apply(unseen_by_the_collector)
    from harden.catalogue import PATHS, chosen_texts

    once = "--once" in sys.argv
    count = 1 if once else CALLS // 20 if "--quick" in sys.argv else CALLS
    tasks = [*itertools.product(chosen_texts(), PATHS, [count])]
    if once:  # in this process: those of a pool end without writing how often lines ran
        for task in tasks:
            keeps(*task)
        return 0
    with multiprocessing.Pool(2) as pool:
        faults += filter(None, pool.starmap(keeps, tasks, 8))
    print(*faults, sep="\n")
    print(f"figures: {len(tasks)} calls made {count:,} times each, {len(faults)} faults")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
