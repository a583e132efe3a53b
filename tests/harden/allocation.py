"""Every allocation of every call fails: one alone, two in a row, and all from there on.

Out may come MemoryError or what the call gives otherwise; the inputs stay as they were, and nothing
is kept. The interpreter's own allocators are made to fail, and in a second run the malloc below
everything, which C++ asks. So is every allocation of an import.
Words that are given choose the calls with these in their texts.
"""

import contextvars
import ctypes
import dataclasses
import gc
import importlib.machinery
import importlib.util
import itertools
import multiprocessing
import os
import re
import signal
import subprocess
import sys
import sysconfig
import tempfile
import traceback
import typing
from collections.abc import Callable
from contextlib import nullcontext
from pathlib import Path
from typing import Any

from harden.references import blocks_in_use

QUICK = "--quick" in sys.argv
LIBRARY = Path("build/harden/failing_malloc.so").absolute()
IS_PRELOADED = os.environ.get("LD_PRELOAD") == str(LIBRARY)
SETTLED = 24  # so many calls in a row that go through: the point lies behind the last allocation
REPEATS = 0 if QUICK or IS_PRELOADED else 200
# How many allocations fail in a row. Without an end to them the interpreter would spin for ever in
# the `with` statements of NumPy's Python code: it needs memory to leave one by an exception.
RUNS = (1, 2, 10_000)
# What the interpreter and NumPy do wrong without memory: the outcome, and a call without our module
# that shows it. An outcome is put down to them only where this run has seen such a call give it;
# which of its texts a SystemError has changes as code that is repeated gets specialised.
FOREIGN = [
    (r"SystemError: <function .* returned NULL", "PLAIN(1)"),
    (r"SystemError: error return without exception set", "np.allclose(HALF, HALF)"),
    (r"SystemError: <built-in method reduce of numpy.ufunc", "np.all(HALF.view(ArrayChild))"),
    (r"crashed in \S* ?PyContextVar_Set", "np.allclose(HALF.view(ArrayChild), HALF, rtol=0)"),
    (r"crashed in (lib\S+ )+PyObject_GetIter _PyEval_EvalFrameDefault", "PAIRS({1: 2})"),
    (r"crashed in _multiarray_umath", "np.isnan(HALF.view(ArrayChild))"),
    (r"inspect\.signature\(.* keeps blocks", "inspect.signature(rebound)"),
    (r"pickle\.loads\(.* keeps blocks", "pickle.loads(PICKLED_PLAIN)"),
]
FRAME = re.compile(r"(.*/)?(?P<library>.*)\((?P<symbol>\w*).*\) ?\[0x\w+\]")


def load(path: Path, name: str) -> Any:
    loader = importlib.machinery.ExtensionFileLoader(name, str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))  # type: ignore[arg-type]
    loader.exec_module(module)
    return module


def switches(run: int) -> tuple[Callable[[int], None], Callable[[], None]]:
    """How allocations are made to fail from the nth on, and how that ends."""
    if IS_PRELOADED:
        library = load(LIBRARY, "failing_malloc")
        return lambda n: library.fail(n, run), library.stop
    import _testcapi  # type: ignore[import-not-found]

    return lambda n: _testcapi.set_nomemory(n, n + run), _testcapi.remove_mem_hooks


class Import:
    """An import from the start; one that failed leaves nothing behind.

    The methods that `dataclass` writes are compiled beforehand: without memory the compiler of
    CPython 3.11 frees twice, with plain classes, too.
    """

    text, arguments, keywords = "import", (), {}  # type: ignore[var-annotated]

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
        load(self.path, "quillmere.functions._typed_shapes")

    def snapshot(self) -> None:
        return None


class Progress(ctypes.Structure):
    """The next point, how many ran out of memory, and how many in a row did not."""

    _fields_ = [(name, ctypes.c_long) for name in ("point", "met", "settled")]


class Sweep:
    """One call, swept in a process of its own that may crash; the next one goes on from there."""

    def __init__(self, call: Any, run: int, stride: int) -> None:
        self.call, self.stride = call, stride
        self.is_import = type(call) is Import  # which repeated gets further, by the caches it fills
        self.repeats = REPEATS if run == 1 and not self.is_import else 0
        self.arm, self.disarm = switches(run)
        self.progress = multiprocessing.RawValue(Progress)  # shared with the processes

    def tell(self, text: str) -> None:
        os.write(self.told.fileno(), f"{text}\n".encode())

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
            ran_out = MemoryError in (*type(error).__mro__, type(error.__cause__))
            return "" if ran_out else f"{type(error).__name__}: {error}"
        finally:
            self.disarm()
        from support import describe

        return describe(result)

    def walk(self) -> None:
        now, before = self.progress, self.call.snapshot()
        expected = [None] if self.is_import else self.attempt(2**30)
        while now.settled < SETTLED:
            gc.collect()  # else the interpreter's free lists answer where an allocation would
            outcome = self.attempt(now.point)
            if outcome == "":
                now.met, now.settled = now.met + 1, 0
                if self.keeps_blocks():
                    self.tell(f"at {now.point}: keeps blocks")
            else:
                now.settled += 1
                if outcome != expected:
                    self.tell(f"at {now.point}: {outcome}")
            now.point += self.stride
            if self.is_import and outcome:
                break  # it is there now, in this process
        if self.call.snapshot() != before and "set" not in self.call.text:
            self.tell("the inputs changed")

    def keeps_blocks(self) -> bool:
        blocks = blocks_in_use()
        for _ in range(self.repeats):
            self.attempt(self.progress.point)
        return blocks_in_use() - blocks > 8 + self.repeats // 8

    def walk_in_a_process(self) -> int:
        child = os.fork()
        if child != 0:
            return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        signal.alarm(900)
        try:
            load(LIBRARY, "failing_malloc").report_crashes_to(self.told.fileno())
            # Without memory CPython 3.11 leaks where the hashes of two context variables collide,
            # as NumPy's and that of decimal may. A context of its own has only the one.
            contextvars.Context().run(self.walk)
            os._exit(0)
        finally:
            traceback.print_exc()
            os._exit(1)

    def run(self) -> tuple[int, list[str]]:
        """How often memory ran out, and what was found."""
        now, findings = self.progress, []
        while now.settled < SETTLED:
            with tempfile.TemporaryFile("w+") as self.told:
                status = self.walk_in_a_process()
                self.told.seek(0)
                lines = self.told.read().splitlines()
            assert status != 1, f"no sweep of {self.call.text}"
            frames = [frame for frame in map(FRAME.fullmatch, lines) if frame]
            findings += [line for line in lines if not FRAME.fullmatch(line)]
            if status != 0:
                crash = " ".join(frame["symbol"] or frame["library"] for frame in frames)
                findings.append(f"at {now.point}: crashed in {crash}, {status}")
                now.point, now.settled = now.point + self.stride, 0
        return now.met, findings


def sweep(text: str, path: Any, run: int, stride: int = 1) -> tuple[int, list[str]]:
    if text == "import":
        call: Any = Import()
    else:
        from harden.catalogue import Call

        call = Call(text)
    with path():
        points, findings = Sweep(call, run, stride).run()
    return points, [f"{text} ({path.__name__}) {finding}" for finding in findings]


def start_worker() -> None:
    sys.setrecursionlimit(150)  # payloads that contain themselves end soon
    # Of generators of the library that there is no memory to close.
    sys.unraisablehook = lambda _: None
    gc.collect()
    gc.freeze()


def report() -> tuple[bool, str]:
    # An import is only one in a process that has not made it yet.
    with multiprocessing.Pool(2, start_worker, maxtasksperchild=1) as pool:
        imports = itertools.product(["import"], [nullcontext], RUNS, [40 if QUICK else 1])
        imported = pool.starmap(sweep, imports, 1)
    from quillmere.functions import _typed_shapes as ts

    from harden.catalogue import PATHS, chosen_texts

    # Binding a name of the module again is not to fail in the middle.
    texts = [text for text in chosen_texts() if not text.startswith("rebound")]
    if QUICK and len(texts) > 20:  # no words chose them
        texts = texts[::3]
    with multiprocessing.Pool(2, start_worker, maxtasksperchild=40) as pool:
        witnesses = {text for _, text in FOREIGN}
        shown = pool.starmap(sweep, itertools.product(witnesses, [nullcontext], RUNS), 1)
        results = pool.starmap(sweep, itertools.product(texts, PATHS, RUNS), 1)
    seen = "\n".join(line for _, lines in shown for line in lines)
    known = [pattern for pattern, _ in FOREIGN if re.search(pattern, seen)]
    native = [f for f in gc.get_objects() if type(f) is type(ts.coerce_graph)]
    named = re.compile(rf"<function ({'|'.join(re.escape(f.__qualname__) for f in native)}) at")
    findings = [line for _, lines in [*results, *imported] for line in lines]
    ours = [
        line
        for line in findings
        if named.search(line) or not any(re.search(pattern, line) for pattern in known)
    ]
    print(*ours[:40], sep="\n")
    points, import_points = (sum(count for count, _ in part) for part in (results, imported))
    return bool(ours), (
        f"{points:,} allocations failed in {len(results)} sweeps over calls, {import_points:,} in "
        f"imports: {len(ours)} faults of ours, {len(findings) - len(ours)} of others"
    )


def main() -> int:
    if IS_PRELOADED:
        failed, figures = report()
        print(figures)
        return failed
    LIBRARY.parent.mkdir(parents=True, exist_ok=True)
    source, include = Path(__file__).with_name("failing_malloc.c"), sysconfig.get_path("include")
    build = [os.environ.get("CC", "cc"), "-O1", "-shared", "-fPIC", f"-I{include}"]
    subprocess.run([*build, str(source), "-o", str(LIBRARY)], check=True)
    failed, figures = report()
    env = {**os.environ, "LD_PRELOAD": str(LIBRARY), "PYTHONMALLOC": "malloc"}
    command = [sys.executable, "-m", "harden.allocation", *sys.argv[1:]]
    again = subprocess.run(command, env=env, stdout=subprocess.PIPE, text=True)
    *lines, preloaded = again.stdout.splitlines() or ["nothing"]
    print(*lines, sep="\n")
    print(f"figures: in Python's allocators {figures}; in malloc {preloaded}")
    return failed or again.returncode != 0


if __name__ == "__main__":
    sys.exit(main())
