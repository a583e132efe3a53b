"""No call keeps or loses a reference, and the collector sees all that our objects hold.

Every call of the catalogue, or those with the words given in their texts, is made 10,000 times on
either path. With `--sites` the lines of the C++
sources that raise are listed that no call reaches; their counts come from a run of this job on the
module that counts its lines.
"""

from __future__ import annotations

import contextlib
import gc
import json
import multiprocessing
import re
import subprocess
import sys
import tomllib
import weakref
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
WARM, CALLS, BLOCKS = 300, 10_000, 8
SHARED = (int, type(None))  # everybody has references to None and to small numbers
# Lines that raise once in a process or on a stack of its own: tests of the suite reach them.
ELSEWHERE = {
    'raise(PyExc_RecursionError, "maximum stack depth': "a small stack",
    "raise(PyExc_ImportError,": "a second interpreter",
    "check(PyErr_WarnFormat(PyExc_RuntimeWarning, 1,": "another minor version",
    "raise(PyExc_RuntimeError,": "a second module object",
}
RAISES = re.compile(
    r"(?<!void )\b(raise|raise_exception|raise_schema_error|raise_argument_count|raise_from_pending"
    r"|refuse\w*|PyErr_(Set|Warn|NoMemory)\w*)\("
)


def keeps(text: str, canonical: bool, count: int) -> str:
    """What a call keeps or loses; "" where that is nothing."""
    from support import canonical_path

    from harden.catalogue import Call

    call = Call(text)
    inputs = call.inputs()
    # Recursion that ends by the limit is made shorter, and any call may raise.
    sys.setrecursionlimit(150)
    with canonical_path() if canonical else contextlib.nullcontext():
        for turn in range(6):  # caches of others fill up in the first ones, a leak goes on
            counts = [sys.getrefcount(value) for value in inputs]
            gc.collect()
            blocks = sys.getallocatedblocks()
            for _ in range(count if turn else WARM):
                with contextlib.suppress(Exception):
                    call()
            gc.collect()
            moved = sys.getallocatedblocks() - blocks
            now = [sys.getrefcount(value) for value in inputs]
            changed = [
                type(value).__name__
                for value, before, after in zip(inputs, counts, now, strict=True)
                if abs(after - before) > BLOCKS * (type(value) in SHARED)
            ]
            if turn and not changed and abs(moved) <= BLOCKS:
                return ""
    return f"{text}{' (canonical)' * canonical}: {moved} blocks, references to {changed}"


class Holder:
    """What a field is bound to, so that its object is in a cycle."""


def native_functions(members: Any) -> list[Any]:
    found = [vars(value) if isinstance(value, type) else {"": value} for value in members]
    values = [getattr(value, "__func__", value) for part in found for value in part.values()]
    return [value for value in values if type(value).__name__ == "native_function"]


def uncollected_cycles(_: object = None) -> list[str]:
    """The fields through which a cycle is not seen, of records and of functions."""
    from harden.allocation import Import

    # The classes and functions of an import that failed can go; those of a module never do.
    dead = vars(Import().module)
    functions = {f.__qualname__: f for f in native_functions(dead.values())}
    dead.clear()
    import dataclasses

    from quillmere.functions import _typed_shapes as ts

    owners: list[tuple[Any, str]] = []
    for cls in (v for v in vars(ts).values() if dataclasses.is_dataclass(v)):
        owners += [(object.__new__(cls), field.name) for field in dataclasses.fields(cls)]
    for name in ("__doc__", "__module__", "attribute"):
        owners += [(functions.popitem()[1], name) for _ in range(4)]
    owners.append((functions.popitem()[1], "__annotations__"))
    functions.clear()
    holders: list[tuple[str, Any]] = []
    while owners:
        owner, name = owners.pop()
        holder: Any = Holder()
        holder.owner = owner
        value = {"": holder} if name == "__annotations__" else holder
        set_attribute = object.__setattr__ if dataclasses.is_dataclass(owner) else setattr
        set_attribute(owner, name, value)
        if not any(value is seen for seen in [*gc.get_referents(owner), *attributes(owner)]):
            holders.append((f"{owner!r:.80}.{name} is not shown", holder))
        holders.append((f"{type(owner).__name__}.{name}", weakref.ref(holder)))
        del owner, holder, value
    gc.collect()
    return [name for name, holder in holders if holder() is not None]


def attributes(owner: Any) -> Any:
    """What an instance holds through its dictionary, where it has one by now."""
    return (v for d in gc.get_referents(owner) if isinstance(d, dict) for v in d.values())


def hidden_referents() -> list[str]:
    """Functions of which the collector is told more or less than they hold."""
    from quillmere.functions import _typed_shapes as ts

    faults = []
    for function in native_functions(vars(ts).values()):
        held = [type(function), function.__name__, function.__qualname__, function.__module__]
        held += [function.__doc__, function.__annotations__, function.__globals__]
        held += [v for v in (function.__defaults__, function.__kwdefaults__) if v is not None]
        shown = {id(value): value for value in gc.get_referents(function)}
        missing = [value for value in held if shown.pop(id(value), shown) is shown]
        unknown = [value for value in shown.values() if type(value) not in (tuple, dict)]
        if unknown or any(value is not function.__name__ for value in missing):
            faults.append(f"{function.__qualname__}: {missing} not shown, {unknown} shown")
    return faults


def unreached_sites(report: Path) -> list[str]:
    """The lines that raise and were not reached, without a reason in uncovered.toml."""
    reasons = tomllib.loads((ROOT / "tests/harden/uncovered.toml").read_text())
    sites, missed = 0, []
    for file in json.loads(report.read_text())["files"]:
        texts = (ROOT / file["file"]).read_text().splitlines()
        counts: dict[int, int] = {}
        for line in file["lines"]:
            number = line["line_number"]
            counts[number] = counts.get(number, 0) + line["count"]
        for number, count in counts.items():
            text = texts[number - 1].strip()
            if not RAISES.search(text.partition("//")[0]):
                continue
            sites += 1
            listed = [*reasons.get(file["file"], {}), *ELSEWHERE]
            if count == 0 and not any(part in text for part in listed):
                missed.append(f"{file['file']}:{number}: {text}")
    print(f"{sites} lines raise")
    return missed


def main() -> int:
    quick = "--quick" in sys.argv
    if "--sites" in sys.argv:
        report = ROOT / "build/coverage/references.json"
        again = [sys.executable, "-m", "harden.coverage", "--json", str(report)]
        job = [sys.executable, "-m", "harden.references", "--once"]
        subprocess.run([*again, *job], check=True)
        missed = unreached_sites(report)
        print(*missed, sep="\n")
        print(f"figures: {len(missed)} lines that raise are reached by no call")
        return bool(missed)
    from harden.catalogue import every_text

    if "--once" in sys.argv:  # in this process: those of a pool end without writing the counts
        for text in every_text():
            for path in (False, True):
                keeps(text, path, 1)
        return 0
    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    texts = [text for text in every_text() if not words or any(word in text for word in words)]
    tasks = [
        (text, path, CALLS // 20 if quick else CALLS) for text in texts for path in (False, True)
    ]
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        cycles = pool.map(uncollected_cycles, [None])[0]
    with multiprocessing.Pool(2) as pool:
        faults = [fault for fault in pool.starmap(keeps, tasks, 8) if fault]
    faults += [f"not collected: {name}" for name in cycles] + hidden_referents()
    print(*faults, sep="\n")
    print(f"figures: {len(tasks)} calls made {tasks[0][2]:,} times each, {len(faults)} faults")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
