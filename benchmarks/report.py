"""The results as tables, for the terminal and for the documentation."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from typing import Any

from rich.console import Console
from rich.table import Table

Results = dict[str, Any]
WIDTH = 160
PARTS = ("make", "faults", "free")
PEERS = (
    "plain",
    "msgspec Struct",
    "msgspec dataclass",
    "pydantic",
    "attrs + cattrs",
    "mashumaro",
    "dacite",
)


@dataclass(frozen=True)
class Sheet:
    title: str
    headings: tuple[str, ...]
    rows: Sequence[tuple[str, ...]]

    def rich(self) -> Table:
        table = Table(title=self.title)
        for i, heading in enumerate(self.headings):
            table.add_column(heading, justify="right" if i else "left", no_wrap=not i)
        for row in self.rows:
            style = "bold red" if {"below", "above"} & {*row} else None
            table.add_row(*row, style=style)
        return table

    def markdown(self) -> str:
        lines = [
            "| " + " | ".join(self.headings) + " |",
            "|---|" + "---:|" * (len(self.headings) - 1),
        ]
        lines += ["| " + " | ".join(row) + " |" for row in self.rows]
        return f"**{self.title}**\n\n" + "\n".join(lines)


def _time(seconds: float) -> str:
    if seconds < 1e-5:
        return f"{seconds * 1e9:,.0f} ns"
    return f"{seconds * 1e6:,.0f} µs" if seconds < 1e-2 else f"{seconds * 1e3:,.0f} ms"


def _ratio(ratio: float) -> str:
    return f"{ratio:.0f}" if ratio >= 100 else f"{ratio:.1f}" if ratio >= 10 else f"{ratio:.2f}"


def _verdict(met: bool | None, missed: str = "below") -> str:
    return "" if met is None else "met" if met else missed


def _work_row(work: dict[str, Any]) -> tuple[str, ...]:
    spread = f"{_ratio(work['lowest'])} to {_ratio(work['highest'])}"
    times = _time(work["native"]), _time(work["plain"])
    floor = f"{work['floor']:g}"
    return work["name"], *times, _ratio(work["ratio"]), spread, floor, _verdict(work["met"])


def works(results: Results) -> Iterator[Sheet]:
    headings = ("work", "native", "plain", "ratio", "in the processes", "floor", "")
    groups = dict.fromkeys(work["group"] for work in results["works"])
    for group in groups:
        rows = [_work_row(work) for work in results["works"] if work["group"] == group]
        yield Sheet(f"times as fast as plain Python: {group}", headings, rows)


def peers(results: Results) -> Iterator[Sheet]:
    if not results["peers"]:
        return
    rows = []
    for name, taken in results["peers"].items():
        times = [taken[peer] / taken["native"] for peer in PEERS]
        floor = results["peer_floors"].get(name)
        met = None if floor is None else times[1] >= floor
        shown = "" if floor is None else f"{floor:g}"
        rows.append((name, _time(taken["native"]), *map(_ratio, times), shown, _verdict(met)))
    headings = ("work", "native", *PEERS, "floor (Struct)", "")
    yield Sheet("times that the others take, native being 1", headings, rows)


def sizes(results: Results) -> Iterator[Sheet]:
    if "nodes" in results:
        headings: tuple[str, ...] = (
            "nodes",
            "native",
            "plain",
            "msgspec Struct",
            "C loop",
            "plain / native",
            "Struct / native",
            "C loop / native",
        )
        rows = []
        for point in results["nodes"]:
            taken = [point[who] for who in headings[1:5]]
            times = [f"{seconds * 1e9:.0f} ns" for seconds in taken]
            against = [_ratio(other / taken[0]) for other in taken[1:]]
            rows.append((f"{point['size']:,}", *times, *against))
        yield Sheet("coerce_graph, cost of a node", headings, rows)
    if "limit" in results:
        headings = ("nodes", "", "make", "of that page faults", "free")
        rows = [
            (f"{row['nodes']:,}", row["who"], *(f"{row[part]:.0f} ns" for part in PARTS))
            for row in results["limit"]
        ]
        yield Sheet("where the time of a node goes", headings, rows)
    if "throughput" in results:
        points = results["throughput"]
        headings = tuple(points[0])
        rows = [
            (f"{p['size'] >> 10:,} KiB", *(f"{p[what] / 1e9:.1f}" for what in headings[1:]))
            for p in points
        ]
        yield Sheet("GB/s", headings, rows)


def costs(results: Results) -> Iterator[Sheet]:
    if "memory" in results:
        rows = []
        for row in results["memory"]:
            # A page more or less a thousand nodes is the grain of the resident figure.
            met = row["native"] <= row["plain"] * (1 if row["how"] == "traced" else 1.01)
            figures = f"{row['native']:.1f}", f"{row['plain']:.1f}"
            rows.append((f"{row['what']}, {row['how']}", *figures, _verdict(met)))
        headings = ("peak, bytes a node", "native", "plain", "no more than plain")
        yield Sheet("memory", headings, rows)
    if "imports" in results:
        taken = results["imports"]
        ratio = taken["native"] / taken["plain"]
        times = f"{taken['native']:.2f} ms", f"{taken['plain']:.2f} ms"
        verdict = _verdict(ratio <= 0.9, missed="above")
        line = ("import after NumPy", *times, f"{ratio:.2f}", "0.9", verdict)
        yield Sheet("import", ("", "native", "plain", "ratio", "ceiling", ""), [line])


def numpys(results: Results) -> Iterator[Sheet]:
    if not results.get("numpys"):
        return
    rows = []
    for other in results["numpys"]:
        for work in other["works"]:
            times = _time(work["native"]), _time(work["plain"])
            row = (work["name"], other["numpy"], *times, _ratio(work["ratio"]))
            rows.append((*row, f"{work['floor']:g}", _verdict(work["met"])))
    headings = ("work", "NumPy", "native", "plain", "ratio", "floor", "")
    yield Sheet("the array works under several NumPys", headings, sorted(rows))


def sheets(results: Results) -> Iterator[Sheet]:
    for part in (works, peers, sizes, costs, numpys):
        yield from part(results)


def surroundings(results: Results) -> str:
    where = results["environment"]
    libraries = ", ".join(f"{name} {version}" for name, version in where["libraries"].items())
    load = " to ".join(f"{load:.1f}" for load in where["load"])
    return (
        f"CPython {where['python']}, NumPy {where['numpy']}, {libraries}. "
        f"{where['machine']}, load {load}."
    )


def show(results: Results) -> None:
    console = Console()
    if console.width < WIDTH:
        console = Console(width=WIDTH)
    for sheet in sheets(results):
        console.print(sheet.rich())
    console.print(surroundings(results))


def markdown(results: Results) -> str:
    return "\n\n".join([surroundings(results), *(sheet.markdown() for sheet in sheets(results))])
