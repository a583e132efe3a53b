"""What runs in child processes: one measurement each, printed as JSON.

    python benchmarks/worker.py '{"job": "works", "selected": "graph"}'

Only NumPy and the module are needed for "works", so that it runs under any interpreter.
"""

from __future__ import annotations

import json
import sys
from typing import Any

import plain
from quillmere.functions import _typed_shapes as native
from timing import Effort, Timer, in_turn


def works(effort: Effort, selected: str) -> dict[str, dict[str, Any]]:
    """The rounds of each work on the native module and on the plain version, in seconds."""
    from works import WORKS

    taken: dict[str, dict[str, Any]] = {}
    for work in WORKS:
        if selected in work.name:
            timers = {
                "native": Timer(work.statement, work.setup(native), effort),
                "plain": Timer(work.statement, work.setup(plain), effort),
            }
            loops = {who: timer.loops for who, timer in timers.items()}
            taken[work.name] = {**in_turn(timers, effort), "loops": loops}
    return taken


def loop(selected: str, seconds: float) -> int:
    """One native work over and over, for a profiler to look at; how often it was done."""
    from works import WORKS

    work = next(work for work in WORKS if work.name == selected)
    timer = Timer(work.statement, work.setup(native), Effort(seconds=0.1))
    times = max(1, round(seconds / 0.1))
    for _ in range(times):
        timer.round()
    return times * timer.loops


def result(order: dict[str, Any]) -> Any:
    effort = Effort(**order.get("effort", {}))
    match order["job"]:
        case "works":
            return works(effort, order["selected"])
        case "peers":
            import peers

            return peers.measured(effort, order["selected"])
        case "kept":
            import peers

            return peers.kept(order["who"], order["calls"])
        case "loop":
            return loop(order["selected"], order["seconds"])
        case "nodes":
            import sizes

            return sizes.nodes(effort, order["largest"])
        case "limit":
            import limit

            return limit.parts(order["nodes"], order["rounds"])
        case "throughput":
            import sizes

            return sizes.throughput(effort, order["largest"])
        case "traced" | "resident" as how:
            import memory

            return getattr(memory, how)(order["who"], order["what"], order["nodes"])
        case job:
            raise ValueError(f"no such job: {job}")


if __name__ == "__main__":
    json.dump(result(json.loads(sys.argv[1])), sys.stdout)
