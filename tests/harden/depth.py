"""Depth: every recursive operation, from a hundred levels to a million, on every kind of stack.

A cell may succeed or end in RecursionError or MemoryError, and crash only where plain classes crash
too, which is the interpreter's own matter; coercion, equality, making and dropping have no such
excuse. Before that, greedy callbacks run at the deepest level that is permitted on small stacks,
with the kernels that OpenBLAS has for different processors, and the levels are measured.
"""

import bisect
import copy
import dataclasses
import os
import pickle
import re
import resource
import subprocess
import sys
import threading
from collections import Counter
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from contextlib import nullcontext, suppress
from typing import Any

import greenlet
import numpy as np
from quillmere.functions import _typed_shapes as ts
from support import canonical_path

QUICK = ["--quick"] * ("--quick" in sys.argv)
LEVELS = (100, 100_000) if QUICK else (100, 1_000, 10_000, 100_000, 1_000_000)
KIB, MIB, MANY = 1 << 10, 1 << 20, 10**6
# Recursion limit, main thread's stack, stack of the thread to run in (0: the main one), greenlet.
PLACES = [
    (1000, 8 * MIB, 0, False), (MANY, 8 * MIB, 0, False), (MANY, 8 * MIB, 256 * KIB, False),
    (MANY, 8 * MIB, 256 * KIB, True), (1000, 8 * MIB, 256 * KIB, False), (MANY, -1, 0, False),
    (1000, 8 * MIB, 8 * MIB, False), (MANY, 8 * MIB, 8 * MIB, False),
][: 3 if QUICK else 8]  # fmt: skip

OURS = [ts.FunctionGraphNode, ts.StateSequence, ts.StateMapping]
FIELDS = {"Node": ["kind", "node", "children"], "Sequence": ["items_"], "Mapping": ["entries"]}
PLAIN = Node, Sequence, Mapping = [
    dataclasses.make_dataclass(*item, namespace={"__module__": __name__}) for item in FIELDS.items()
]
SHAPES: dict[str, Callable[[Any, Any], Any]] = {
    "graph": lambda _, inner: {"op": "x", "children": [inner] if inner else []},
    "list": lambda _, inner: [inner],
    "dict": lambda _, inner: {"a": inner},
    "node": lambda classes, inner: classes[0]("rank", "x", [inner] if inner else []),
    "sequence": lambda classes, inner: classes[1]((inner,)),
    "mapping": lambda classes, inner: classes[2]({"a": inner}),
}


def build(shape: str, levels: int, classes: Any = OURS, leaf: Any = None) -> Any:
    for _ in range(levels):
        leaf = SHAPES[shape](classes, leaf)
    return leaf


def levels_of(value: Any, levels: int = 0) -> int:
    while type(value) in OURS:
        inside = list(vars(value).values())[2 if type(value) is OURS[0] else 0]
        value = next(iter(inside.values() if type(inside) is dict else inside), None)
        levels += 1
    return levels


def pickled(shape: str, levels: int, classes: Any) -> bytes:
    """What no pickler could write at such a depth."""
    body = pickle.dumps(build(shape, 1, classes, ...), 2)[2:-1]
    head, tail = re.split(rb"c__builtin__\nEllipsis\nq.", body)
    return b"\x80\x02" + head * levels + b"N" + tail * levels + b"."


FINE = {"success", "RecursionError", "MemoryError", "crash that plain dataclasses have too"}
RAW, STATES, NODE, ONE = ["list", "dict"], ["sequence", "mapping"], ["node"], ts.StateScalar(1)
# Operation, shapes, the leaf of each payload, what is done and whether that went well, whether it
# may crash as plain classes do. Of a cell: p its payloads, s shape, n levels, c classes.
TABLE: list[tuple[str, list[str], tuple[Any, ...], Callable[..., bool], bool]] = [
    ("coerce", ["graph"], (None,), lambda p, s, n, c: levels_of(ts.coerce_graph(*p)) == n, False),
    ("coerce", RAW, (None,), lambda p, s, n, c: levels_of(ts.coerce_state(*p)) == n, False),
    ("equal", RAW + STATES, (ONE, ONE), lambda p, s, n, c: ts.states_equal(*p) is True, False),
    ("differ", RAW + STATES, (1, 2), lambda p, s, n, c: ts.states_equal(*p) is False, False),
    ("make", NODE + STATES, (), lambda p, s, n, c: levels_of(build(s, n)) == n, False),
    ("drop", NODE + STATES, (None,), lambda p, s, n, c: p.clear() is None, False),
    ("repr", NODE + STATES, (None,), lambda p, s, n, c: len(repr(*p)) > n, True),
    ("copy", NODE + STATES, (None,), lambda p, s, n, c: levels_of(copy.deepcopy(*p)) == n, True),
    ("dumps", NODE + STATES, (None,), lambda p, s, n, c: len(pickle.dumps(*p)) > n, True),
    ("loads", STATES, (), lambda p, s, n, c: levels_of(pickle.loads(pickled(s, n, c))) == n, True),
    ("==", STATES, (1, 1), lambda p, s, n, c: p[0] == p[1], True),
]
ALL_CELLS = [(*row, shape, levels, path, classes)
             for path in (nullcontext, canonical_path) for row in TABLE for shape in row[1]
             for levels in LEVELS for classes in ([PLAIN, OURS] if row[4] else [OURS])
             if path is nullcontext or not row[4]]  # fmt: skip
# What is the interpreter's own has no end on a stack without one: a repr copies each inner text.
CELLS = [[cell for cell in ALL_CELLS if place[1] > 0 or not cell[4]] for place in PLACES]


def on_thread(size: int, job: Callable[[], Any]) -> Any:
    threading.stack_size(size)
    with ThreadPoolExecutor(1) as pool:
        return pool.submit(job).result()


def run_cells(place: int, first: int) -> None:
    """What a child does: print the outcome of cell after cell."""
    limit, _, size, in_greenlet = PLACES[place]

    def job() -> None:
        for _, _, leaves, call, _, shape, levels, path, classes in CELLS[place][first:]:
            payloads = [build(shape, levels, classes, leaf) for leaf in leaves]
            sys.setrecursionlimit(limit)
            try:
                with path():
                    right = call(payloads, shape, levels, classes) or classes is PLAIN
                outcome = "success" if right else "WRONG"
            except (RecursionError, MemoryError) as error:
                outcome = type(error).__name__
            sys.setrecursionlimit(1000)
            print(outcome, flush=True)

    start = (lambda: greenlet.greenlet(job).switch()) if in_greenlet else job
    on_thread(size, start) if size else start()


def sweep(place: int) -> Counter[str]:
    """All cells of one place; behind a cell that crashes a new process goes on."""
    stack = PLACES[place][1], resource.getrlimit(resource.RLIMIT_STACK)[1]
    limit = lambda: resource.setrlimit(resource.RLIMIT_STACK, stack)  # noqa: E731
    outcomes, cells = list[str](), CELLS[place]
    while len(outcomes) < len(cells):
        command = [sys.executable, "-m", "harden.depth", f"{place}", f"{len(outcomes)}", *QUICK]
        done = subprocess.run(command, stdout=subprocess.PIPE, text=True, preexec_fn=limit)
        outcomes += [*done.stdout.split(), f"CRASH {done.returncode}"]
    counts = Counter[str]()
    for i, (name, _, _, _, may_crash, shape, levels, path, classes) in enumerate(cells):
        if may_crash and classes is OURS and outcomes[i - 1 : i + 1] == ["CRASH -11"] * 2:
            outcomes[i] = "crash that plain dataclasses have too"
        if classes is OURS:
            counts[outcomes[i]] += 1
            if outcomes[i] not in FINE:
                print(outcomes[i], PLACES[place], name, shape, levels, path.__name__, flush=True)
    return counts


class Greedy:
    """Needs much of the stack in each callback, and calls the module anew."""

    __hash__ = object.__hash__

    def __eq__(self, _: object) -> bool:
        np.einsum("i,i", np.ones(3), np.linalg.inv(np.eye(3))[0])
        with suppress(RecursionError):
            ts.states_equal([np.array([[1]], object)], [np.array([[1]], object)])
        return True

    def __str__(self) -> str:
        return str(self == self)


def deepest(size: int, shape: str, call: Callable[..., Any], leaf: Any = None) -> int:
    """The most levels that a call takes on a stack of this size."""

    def is_too_deep(levels: int) -> bool:
        try:
            call(build(shape, levels, leaf=leaf))
        except RecursionError:
            return True
        return False

    levels = range(20_000)
    return on_thread(size, lambda: bisect.bisect_left(levels, True, 10, key=is_too_deep)) - 1


def look_at_the_stack() -> None:
    """What a child does: name each call before it is made, and print what it came to."""
    sys.setrecursionlimit(MANY)
    taken = []
    equal = lambda value: ts.states_equal(value, value)  # noqa: E731
    calls = [("coerce_graph", "graph", ts.coerce_graph, {"op": Greedy()}),
             ("coerce_state", "list", ts.coerce_state, {Greedy(): 1}),
             ("states_equal", "sequence", equal, ts.StateScalar(Greedy()))]  # fmt: skip
    for size in (96, 128, 256):  # small ones first: threads take over the larger of others
        for name, *call in calls:
            print(f"{name} with a greedy callback in {size} KiB:", end=" ", flush=True)
            print(deepest(size * KIB, *call), "levels", flush=True)
    for name, shape, call, _ in calls:
        for path in (nullcontext, canonical_path):
            with path():
                one, two = (deepest(size, shape, call) for size in (MIB, 2 * MIB))
            taken.append(f"{name} {path.__name__} {MIB // (two - one)}")
    print("bytes of stack for a level:", ", ".join(taken))


def with_kernels(processor: str) -> tuple[bool, str]:
    """Whether a child survives with the kernels for a processor, and what came of it."""
    environment = {**os.environ, "OPENBLAS_CORETYPE": processor}
    bare = [sys.executable, "-c", "import numpy; numpy.linalg.inv(numpy.eye(9))"]
    if subprocess.run(bare, env=environment).returncode != 0:
        return True, "do not run on this processor"
    command = [sys.executable, "-m", "harden.depth", "stack"]
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, text=True)
    *_, last = ["", *done.stdout.splitlines()]
    print(f"kernels for {processor}:", done.stdout, sep="\n", flush=True)
    return done.returncode == 0, f"CRASH {done.returncode} in {last}" * bool(
        done.returncode
    ) or last


def main() -> int:
    if sys.argv[1:] == ["stack"]:
        look_at_the_stack()
        return 0
    if sys.argv[1:] != QUICK:
        run_cells(*map(int, sys.argv[1:3]))
        return 0
    kernels = {name: with_kernels(name) for name in ("Haswell", "Zen", "SkylakeX")}
    stack = ", ".join(f"kernels for {name}: {text}" for name, (_, text) in kernels.items())
    with ThreadPoolExecutor(2) as pool:
        total = sum(pool.map(sweep, range(len(PLACES))), Counter())
    counts = ", ".join(f"{number} {outcome}" for outcome, number in total.items())
    print(f"figures: {total.total():,} attempts: {counts}; {stack}")
    return int(not FINE.issuperset(total) or not all(passed for passed, _ in kernels.values()))


if __name__ == "__main__":
    sys.exit(main())
