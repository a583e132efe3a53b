"""The pictures of docs/performance.md."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import matplotlib as mpl
from matplotlib import pyplot as plt
from matplotlib.axes import Axes
from matplotlib.figure import Figure
from matplotlib.ticker import FuncFormatter

Results = dict[str, Any]
NATIVE, PLAIN, OTHER, PALE = "#1f5fa8", "#c8553d", "#4f8a4b", "#9a9a9a"
STYLE: Any = {
    "svg.hashsalt": "typed shapes",
    "svg.fonttype": "path",
    "font.size": 10,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.axisbelow": True,
    "grid.color": "#e4e4e4",
    "figure.facecolor": "white",
}


def _number(value: float, _position: int) -> str:
    return f"{value:,.0f}" if value >= 1 else f"{value:g}"


def ratio_picture(results: Results) -> Figure:
    works = [work for work in results["works"] if work["group"] == "payloads"][::-1]
    figure, axes = plt.subplots(figsize=(8, 0.29 * len(works) + 1.0))
    places = range(len(works))
    colours = [NATIVE if work["met"] else PLAIN for work in works]
    axes.barh(places, [work["ratio"] for work in works], color=colours, height=0.62)
    for place, work in zip(places, works, strict=True):
        axes.plot([work["floor"]] * 2, [place - 0.42, place + 0.42], color="black", linewidth=1.6)
        right = max(work["ratio"], work["floor"])
        axes.text(right * 1.06, place, f"{work['ratio']:.3g}", va="center", fontsize=8.5)
    axes.set_yticks(places, [work["name"] for work in works])
    axes.set_xscale("log")
    axes.set_xlim(1, 600)
    axes.set_ylim(-0.7, len(works) - 0.3)
    axes.xaxis.set_major_formatter(FuncFormatter(_number))
    axes.set_xlabel("times as fast as plain Python (mark: the floor; red: below it)")
    axes.grid(axis="x")
    axes.tick_params(axis="y", length=0)
    return figure


def _line(axes: Axes, curve: list[dict[str, float]], what: str, colour: str, dashed: bool) -> None:
    axes.plot(
        [point["size"] for point in curve],
        [point[what] for point in curve],
        color=colour,
        linestyle="--" if dashed else "-",
        marker="o",
        markersize=3.5,
        label=what,
    )


def nodes_picture(results: Results) -> Figure:
    figure, axes = plt.subplots(figsize=(7, 4))
    curve = [
        {name: value if name == "size" else value * 1e9 for name, value in point.items()}
        for point in results["nodes"]
    ]
    for who, colour in (("plain", PLAIN), ("msgspec Struct", OTHER), ("native", NATIVE)):
        _line(axes, curve, who, colour, dashed=False)
    _line(axes, curve, "C loop", PALE, dashed=True)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_yticks([100, 200, 500, 1_000, 2_000, 5_000, 10_000])
    axes.set_ylim(100, 20_000)
    axes.minorticks_off()
    for axis in (axes.xaxis, axes.yaxis):
        axis.set_major_formatter(FuncFormatter(_number))
    axes.set_xlabel("nodes in the graph")
    axes.set_ylabel("ns a node")
    axes.grid()
    axes.legend(frameon=False, ncols=4, loc="lower center", bbox_to_anchor=(0.5, 1.0))
    return figure


def _size(value: float, _position: int) -> str:
    return f"{value / 2**20:.0f} MiB" if value >= 2**20 else f"{value / 2**10:.0f} KiB"


def throughput_picture(results: Results) -> Figure:
    figure, (left, right) = plt.subplots(1, 2, figsize=(10, 3.8), sharex=True)
    curve = [
        {name: value if name == "size" else value / 1e9 for name, value in point.items()}
        for point in results["throughput"]
    ]
    for axes, lines in (
        (left, (("mask check", NATIVE, False), ("mask, one pass", PALE, True))),
        (
            right,
            (
                ("array equality", NATIVE, False),
                ("arrays, memcmp", PALE, True),
                ("arrays, np.array_equal", OTHER, True),
            ),
        ),
    ):
        for what, colour, dashed in lines:
            _line(axes, curve, what, colour, dashed)
        axes.set_xscale("log", base=2)
        axes.set_xticks([point["size"] for point in curve][::4])
        axes.xaxis.set_major_formatter(FuncFormatter(_size))
        axes.set_ylim(0, axes.get_ylim()[1] * 1.2)
        axes.set_ylabel("GB/s")
        axes.grid()
        axes.legend(frameon=False)
    left.set_xlabel("size of the mask")
    right.set_xlabel("size of each array")
    return figure


PICTURES = {"ratios": ratio_picture, "nodes": nodes_picture, "throughput": throughput_picture}


def draw(results: Results, folder: Path, suffix: str = "svg") -> None:
    mpl.use("Agg")
    folder.mkdir(parents=True, exist_ok=True)
    with mpl.rc_context(STYLE):
        for name, picture in PICTURES.items():
            figure = picture(results)
            figure.tight_layout()
            extra = {"metadata": {"Date": None}} if suffix == "svg" else {"dpi": 110}
            figure.savefig(folder / f"{name}.{suffix}", **extra)
            plt.close(figure)
