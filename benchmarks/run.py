"""Time every work on the native module and on its plain-Python version, in turn in one process.

Prints a table of ratios with the floor of each, and the cost of a graph node over sizes against
msgspec.
"""

from __future__ import annotations

import argparse
import gc
import statistics
import timeit
from collections.abc import Callable, Iterator
from typing import Any

import msgspec
import plain
from quillmere.functions import _typed_shapes as native
from rich.console import Console
from rich.table import Table
from works import WORKS, Work, graph_payload

ROUNDS = 9
ROUND_SECONDS = 0.02


class Struct(msgspec.Struct):
    """The nearest that msgspec has to a graph node; it knows one spelling and checks types only."""

    type: str
    node: Any = None
    children: list[Struct] = msgspec.field(default_factory=list)
    config: dict[str, Any] = msgspec.field(default_factory=dict)
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


def timer(statement: str, names: dict[str, Any]) -> Callable[[], float]:
    """A function that times one round: seconds for one execution of the statement."""
    timed = timeit.Timer(statement, "gc.enable()", globals={**names, "gc": gc})
    number = 1
    while timed.timeit(number) < ROUND_SECONDS:
        number *= 2
    return lambda: timed.timeit(number) / number


def in_turn(*timers: Callable[[], float]) -> Iterator[float]:
    """The median of each timer, the rounds taken in turn so that all meet the same noise."""
    rounds = [[run() for run in timers] for _ in range(ROUNDS)]
    return map(statistics.median, zip(*rounds, strict=True))


def measure(work: Work) -> tuple[float, float]:
    ours, theirs = in_turn(
        timer(work.statement, work.setup(native)), timer(work.statement, work.setup(plain))
    )
    return ours, theirs


def ratio_table(selected: str) -> Table:
    table = Table(title="times as fast as plain Python")
    for heading in ("work", "native", "plain", "ratio", "floor", ""):
        table.add_column(heading, justify="left" if heading == "work" else "right")
    for work in WORKS:
        if selected not in work.name:
            continue
        ours, theirs = measure(work)
        ratio = theirs / ours
        table.add_row(
            work.name,
            f"{ours * 1e9:,.0f} ns",
            f"{theirs * 1e9:,.0f} ns",
            f"{ratio:.1f}",
            f"{work.floor:g}",
            "" if ratio >= work.floor else "below",
        )
    return table


def graph_table() -> Table:
    """Cost per node over sizes, against msgspec."""
    table = Table(title="coerce_graph, ns a node")
    for heading in ("nodes", "native", "msgspec Struct", "ratio"):
        table.add_column(heading, justify="right")
    for nodes in (100, 1_000, 10_000, 100_000, 1_000_000):
        raw = graph_payload(nodes)
        names = {"raw": raw, "Struct": Struct, "convert": msgspec.convert}
        ours, theirs = in_turn(
            timer("coerce_graph(raw)", {"raw": raw, "coerce_graph": native.coerce_graph}),
            timer("convert(raw, Struct)", names),
        )
        table.add_row(
            f"{nodes:,}",
            f"{ours / nodes * 1e9:.0f}",
            f"{theirs / nodes * 1e9:.0f}",
            f"{theirs / ours:.2f}",
        )
    return table


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("selected", nargs="?", default="", help="only works whose name has it")
    options = parser.parse_args()
    console = Console()
    console.print(ratio_table(options.selected))
    if options.selected in "graph":
        console.print(graph_table())


if __name__ == "__main__":
    main()
