"""Every allocation of every call fails: one alone, and then all from there on.

Out may come MemoryError or what the call gives otherwise; the inputs stay as they were, and nothing
is kept. The interpreter's own allocators are made to fail, and in a second run the malloc below
everything, which C++ asks. So is every allocation of an import.
Words that are given choose the calls with these in their texts.
"""

from __future__ import annotations

import dataclasses
import gc
import importlib.machinery
import importlib.util
import itertools
import mmap
import multiprocessing
import os
import re
import signal
import subprocess
import sys
import sysconfig
import traceback
import typing
from collections.abc import Callable
from contextlib import nullcontext
from pathlib import Path
from typing import Any

LIBRARY = Path("build/harden/failing_malloc.so").absolute()
SETTLED = 6  # so many calls in a row that go through: the point lies behind the last allocation
REPEATS = 200
# How many allocations fail in a row. Without an end to them the interpreter would spin for ever in
# the `with` statements of NumPy's Python code: it needs memory to leave one by an exception.
RUNS = (1, 10_000)
# What the interpreter and NumPy do wrong without memory: the outcome, and a call without our module
# that shows it. An outcome is only put down to them where this run has seen the call give it, too.
FOREIGN = [
    (r"SystemError: <function .* returned NULL", "PLAIN(1)"),
    (r"SystemError: error return without exception set", "np.allclose(HALF, HALF)"),
    (r"SystemError: <built-in method reduce of numpy.ufunc", "np.all(HALF.view(ArrayChild))"),
    (r"crashed in \S* ?PyContextVar_Set", "np.allclose(HALF, HALF)"),
    (r"crashed in (lib\S+ )+PyObject_GetIter _PyEval_EvalFrameDefault", "PAIRS({1: 2})"),
    (r"crashed in _multiarray_umath", "np.isnan(HALF.view(ArrayChild))"),
]


def load(path: Path, name: str, attempt: Any = None) -> Any:
    loader = importlib.machinery.ExtensionFileLoader(name, str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))  # type: ignore[arg-type]
    if attempt is not None:
        attempt.module = module
    loader.exec_module(module)
    return module


def switches(run: int) -> tuple[Callable[[int], None], Callable[[], None]]:
    """How allocations are made to fail from the nth on, and how that ends."""
    if "LD_PRELOAD" in os.environ:
        library = load(LIBRARY, "failing_malloc")
        return lambda n: library.fail(n, run), library.stop
    import _testcapi  # type: ignore[import-not-found]

    return lambda n: _testcapi.set_nomemory(n, n + run), _testcapi.remove_mem_hooks


class Import:
    """An import from the start; one that failed leaves nothing behind.

    The methods that `dataclass` writes are compiled beforehand: without memory the compiler of
    CPython 3.11 frees twice, with plain classes, too.
    """

    text = "import"
    arguments, keywords = (), {}  # type: ignore[var-annotated]

    def __init__(self) -> None:
        import numpy  # noqa: F401

        self.path = Path(importlib.util.find_spec("quillmere.functions._typed_shapes").origin)  # type: ignore
        code: dict[str, Any] = {}

        def run(text: str, *namespaces: Any) -> None:
            if text not in code:
                code[text] = compile(text, "<string>", "exec")
            exec(code[text], *namespaces)

        dataclasses.exec = run  # type: ignore[attr-defined]
        union, typing.Union = typing.Union, None  # type: ignore[assignment]
        try:
            self.function()  # gets as far as the last class
        except TypeError:
            typing.Union = union

    def function(self) -> None:
        load(self.path, "quillmere.functions._typed_shapes", self)

    def snapshot(self) -> None:
        return None


class Sweep:
    """One call, swept in a process of its own that may crash; the next one goes on from there."""

    def __init__(self, call: Any, run: int, repeats: int) -> None:
        self.call, self.repeats = call, repeats if run == 1 else 0
        self.arm, self.disarm = switches(run)
        self.stride = 1
        self.findings: list[str] = []
        self.shared = mmap.mmap(-1, 16)  # the point, and how many of them ran out of memory

    def attempt(self, point: int) -> Any:
        """What a call gives with the allocation at this point failing; "" where memory ran out."""
        function, arguments, keywords = self.call.function, self.call.arguments, self.call.keywords
        result: Any = None
        try:
            self.arm(point)
            result = function(*arguments, **keywords) if keywords else function(*arguments)
        except BaseException as error:
            self.disarm()
            # Making a class, the interpreter wraps what __set_name__ raises in an error of its own.
            ran_out = MemoryError in (type(error), type(error.__cause__))
            return "" if ran_out else f"{type(error).__name__}: {error}"
        finally:
            self.disarm()
        from support import describe

        return describe(result)

    def walk(self, point: int, tell: Callable[[str], None]) -> None:
        before, expected = self.call.snapshot(), None
        once = isinstance(self.call, Import)
        if not once:
            expected = self.attempt(2**30)
        settled = met = 0
        while settled < SETTLED:
            self.shared[:16] = point.to_bytes(8) + met.to_bytes(8)
            gc.collect()  # else the interpreter's free lists answer where an allocation would
            outcome = self.attempt(point)
            settled = 0 if outcome == "" else settled + 1
            met += outcome == ""
            if outcome == "":
                if self.keeps_blocks(point):
                    tell(f"at {point}: keeps blocks\n")
            elif once and outcome == [None]:
                break
            elif outcome != expected:
                tell(f"at {point}: {outcome}\n")
            point += self.stride
        if self.call.snapshot() != before and "set" not in self.call.text:
            tell("the inputs changed\n")
        self.shared[:16] = point.to_bytes(8) + met.to_bytes(8)

    def keeps_blocks(self, point: int) -> bool:
        blocks = sys.getallocatedblocks()
        for _ in range(self.repeats):
            self.attempt(point)
        gc.collect()
        return sys.getallocatedblocks() - blocks > 8 + self.repeats // 8

    def run(self) -> tuple[int, list[str]]:
        points = point = settled = 0
        while True:
            reader, writer = os.pipe()
            child = os.fork()
            if child == 0:
                signal.alarm(900)
                try:
                    load(LIBRARY, "failing_malloc").report_crashes_to(writer)
                    self.walk(point, lambda text: os.write(writer, text.encode()) and None)
                    os._exit(0)
                except BaseException:
                    traceback.print_exc()
                    os._exit(1)
            os.close(writer)
            with os.fdopen(reader) as told:
                lines = told.read().splitlines()
            status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
            point = int.from_bytes(self.shared[:8])
            met = int.from_bytes(self.shared[8:16])
            points += met
            assert status != 1, f"no sweep of {self.call.text}"
            if status != 0:
                lines[-1:] = [f"at {point}: crashed in {''.join(lines[-1:])}, {status}"]
            self.findings += lines
            settled = settled + 1 if met == 0 else 0
            if status == 0 and (not isinstance(self.call, Import) or settled > 4 * SETTLED):
                return points, self.findings
            point += self.stride


def sweep(task: tuple[str, bool, int, int]) -> tuple[int, list[str]]:
    text, canonical, run, repeats = task
    if text == "import":
        imported = Sweep(Import(), run, 0)
        imported.stride = repeats
        return imported.run()
    from support import canonical_path

    from harden.catalogue import Call

    call = Call(text)
    with canonical_path() if canonical else nullcontext():
        points, findings = Sweep(call, run, repeats).run()
    return points, [f"{text}{' (canonical)' * canonical} {finding}" for finding in findings]


def start_worker() -> None:
    sys.setrecursionlimit(150)  # payloads that contain themselves end soon
    gc.collect()
    gc.freeze()


def native_names() -> list[str]:
    """The names of our own functions: what is said of them is said of us."""
    from quillmere.functions import _typed_shapes as ts

    found = [vars(value) if isinstance(value, type) else {"": value} for value in vars(ts).values()]
    members = [getattr(member, "__func__", member) for part in found for member in part.values()]
    return [re.escape(m.__qualname__) for m in members if type(m) is type(ts.coerce_graph)]


def report(quick: bool) -> int:
    from harden.catalogue import every_text

    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    texts = [text for text in every_text() if not words or any(word in text for word in words)]
    # Binding a name of the module again is not to fail in the middle.
    texts = [text for text in texts if not text.startswith("rebound")]
    texts = texts[:: 3 if quick and not words else 1]
    repeats = 0 if quick or "LD_PRELOAD" in os.environ else REPEATS
    paths = itertools.product(texts, (False, True), RUNS, [repeats])
    with multiprocessing.Pool(2, start_worker, maxtasksperchild=40) as pool:
        shown = pool.map(sweep, [(text, False, run, 0) for run in RUNS for _, text in FOREIGN])
        results = pool.map(sweep, [*paths], 1)
    # An import is only one in a process that has not made it yet.
    spawn = multiprocessing.get_context("spawn")
    with spawn.Pool(2, start_worker, maxtasksperchild=1) as pool:
        imported = pool.map(sweep, [("import", False, run, 40 if quick else 1) for run in RUNS], 1)
    known = [
        pattern
        for (pattern, _), (_, lines) in zip([*FOREIGN, *FOREIGN], shown, strict=True)
        if any(re.search(pattern, line) for line in lines)
    ]
    findings = [line for _, lines in [*results, *imported] for line in lines]
    native = re.compile(rf"<function ({'|'.join(native_names())}) at")
    foreign = [f for f in findings if any(re.search(pattern, f) for pattern in known)]
    ours = [f for f in findings if native.search(f) or f not in foreign]
    print(*ours[:40], sep="\n")
    points, import_points = (sum(count for count, _ in part) for part in (results, imported))
    print(
        f"{points:,} points of {len(results)} sweeps and {import_points:,} of an import: "
        f"{len(ours)} faults, {len(findings) - len(ours)} of the interpreter and NumPy"
    )
    return bool(ours)


def main() -> int:
    if "--inner" in sys.argv:
        return report("--quick" in sys.argv)
    LIBRARY.parent.mkdir(parents=True, exist_ok=True)
    source, include = Path(__file__).with_name("failing_malloc.c"), sysconfig.get_path("include")
    build = [os.environ.get("CC", "cc"), "-O1", "-shared", "-fPIC", f"-I{include}"]
    subprocess.run([*build, str(source), "-o", str(LIBRARY)], check=True)
    command = [sys.executable, "-m", "harden.allocation", "--inner", *sys.argv[1:]]
    preload = {"LD_PRELOAD": str(LIBRARY), "PYTHONMALLOC": "malloc"}
    failed, figures = False, []
    for name, extra in ("the interpreter's allocators", {}), ("malloc", preload):
        done = subprocess.run(command, env={**os.environ, **extra}, stdout=-1, text=True)
        print(done.stdout)
        figures.append(f"{name}: {(done.stdout.splitlines() or ['nothing'])[-1]}")
        failed |= done.returncode != 0
    print("figures:", "; ".join(figures))
    return failed


if __name__ == "__main__":
    sys.exit(main())
