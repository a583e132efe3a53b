"""What is left to gain: graphs against the C loop of limit.cpp, and where the time of both goes."""

from __future__ import annotations

import importlib.util
import mmap
import os
import resource
import subprocess
import sysconfig
import time
from collections.abc import Callable
from typing import Any

import files
import payloads
from quillmere.functions import _typed_shapes as native

PAGE = mmap.PAGESIZE


def make_graph() -> Callable[[object], object]:
    """The loop, compiled with the options of the module's release build."""
    files.FOLDER.mkdir(parents=True, exist_ok=True)
    library = files.FOLDER / "limit.so"
    source = files.ROOT / "benchmarks" / "limit.cpp"
    command = [os.environ.get("CXX", "c++"), "-std=c++20", "-O3", "-DNDEBUG", "-shared", "-fPIC"]
    folders = [sysconfig.get_path("include"), str(files.ROOT / "src")]
    command += [*(f"-I{folder}" for folder in folders), f"{source}", "-o", f"{library}"]
    subprocess.run(command, check=True)
    spec = importlib.util.spec_from_file_location("limit", library)
    assert spec is not None and spec.loader is not None
    limit = importlib.util.module_from_spec(spec)
    limit.use_class(native.FunctionGraphNode)
    made = limit.make_graph(payloads.graph_payload(100))
    assert repr(made) == repr(native.coerce_graph(payloads.graph_payload(100)))
    return limit.make_graph  # type: ignore[no-any-return]


def _fault() -> float:
    """Seconds that the first touch of a page takes."""
    best = 1.0
    for _ in range(20):
        pages = mmap.mmap(-1, 4096 * PAGE)
        start = time.perf_counter()
        pages[::PAGE] = bytes(4096)
        best = min(best, (time.perf_counter() - start) / 4096)
        pages.close()
    return best


def parts(nodes: int, rounds: int) -> list[dict[str, Any]]:
    """Of the module and of the loop, in ns a node: to make one, of that page faults, to free it.

    The collector is left off: it has nothing to do with either.
    """
    raw = payloads.graph_payload(nodes)
    ways: dict[str, Callable[[object], object]] = {
        "native": native.coerce_graph,
        "C loop": make_graph(),
    }
    fault = _fault()
    rows = {who: {"make": 1e9, "faults": 1e9, "free": 1e9} for who in ways}
    for _ in range(rounds):
        for who, way in ways.items():
            before = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
            start = time.perf_counter()
            graph: object = way(raw)
            made = time.perf_counter()
            faults = resource.getrusage(resource.RUSAGE_SELF).ru_minflt - before
            del graph
            freed = time.perf_counter()
            taken = {"make": made - start, "faults": faults * fault, "free": freed - made}
            rows[who] = {
                what: min(rows[who][what], seconds * 1e9 / nodes) for what, seconds in taken.items()
            }
    return [{"who": who, "nodes": nodes, **row} for who, row in rows.items()]
