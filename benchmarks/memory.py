"""What a coerced payload costs in memory.

Two figures, each from a child process of its own. `traced`: the peak of what Python's allocators
hand out while the payload is coerced, by tracemalloc, which is exact. `resident`: how far the
process' peak of resident memory rises meanwhile, which also sees memory that is not Python's.
"""

from __future__ import annotations

import gc
import sys
import tracemalloc
from pathlib import Path
from types import ModuleType
from typing import Any

import payloads
import plain
from quillmere.functions import _typed_shapes as native

MODULES = {"native": native, "plain": plain}
WHATS = ("graph", "state")


def _payload(what: str, nodes: int) -> tuple[Any, int]:
    if what == "graph":
        return payloads.graph_payload(nodes), nodes
    states = [payloads.containers_payload() for _ in range(nodes // 85)]
    return states, _state_nodes(states)


def _state_nodes(raw: Any) -> int:
    if isinstance(raw, dict):
        return 1 + sum(map(_state_nodes, raw.values()))
    return 1 + sum(map(_state_nodes, raw)) if isinstance(raw, list) else 1


def _coerce(module: ModuleType, what: str, raw: Any) -> Any:
    return module.coerce_graph(raw) if what == "graph" else module.coerce_state(raw)


def _status(field: str) -> int:
    """Bytes, from a line of the process' status such as "VmHWM: 1234 kB"."""
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith(field):
            return int(line.split()[1]) * 1024
    raise LookupError(field)


def traced(who: str, what: str, nodes: int) -> float:
    raw, counted = _payload(what, nodes)
    _coerce(MODULES[who], what, raw if what == "graph" else raw[:1])  # first-use costs
    gc.collect()
    tracemalloc.start()
    kept = _coerce(MODULES[who], what, raw)
    peak = tracemalloc.get_traced_memory()[1]
    del kept
    return peak / counted


def resident(who: str, what: str, nodes: int) -> float:
    if not sys.platform.startswith("linux"):
        return float("nan")
    raw, counted = _payload(what, nodes)
    gc.collect()
    Path("/proc/self/clear_refs").write_text("5")  # sets the peak back to what is resident now
    before = _status("VmRSS")
    kept = _coerce(MODULES[who], what, raw)
    peak = _status("VmHWM") - before
    del kept
    return peak / counted
