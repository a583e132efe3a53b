"""Measure the module against plain Python and against the libraries nearest to it.

Prints tables, writes build/bench/results.json (and native.json and plain.json in pyperf's format),
and draws the pictures of docs/performance.md.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

import collect
import files
import pictures
import report

PAGE = files.ROOT / "docs" / "performance.md"
BEGIN, END = "<!-- tables: begin -->", "<!-- tables: end -->"


def write_tables(results: collect.Results) -> None:
    """Put the tables of this run into the page."""
    before, _, rest = PAGE.read_text().partition(BEGIN)
    _, _, after = rest.partition(END)
    PAGE.write_text(f"{before}{BEGIN}\n\n{report.markdown(results)}\n\n{END}{after}")


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("selected", nargs="?", default="", help="only works whose name has it")
    parser.add_argument("--quick", action="store_true", help="fewer rounds, one process")
    parser.add_argument("--again", action="store_true", help="show the last run, measure nothing")
    parser.add_argument("--markdown", action="store_true", help="put tables into the page")
    parser.add_argument("--pictures", type=Path, default=PAGE.parent / "pictures", metavar="FOLDER")
    parser.add_argument("--png", action="store_true", help="draw PNG instead of SVG")
    parser.add_argument(
        "--numpy",
        action="append",
        default=[],
        metavar="PYTHON",
        help="also the array works with another interpreter's NumPy; can be given several times",
    )
    return parser.parse_args()


def main() -> None:
    options = arguments()
    plan = collect.Plan(options.selected, options.quick)
    if options.again:
        results = files.read()
    else:
        results, rounds = collect.measured(plan)
        if plan.complete:
            files.write_pyperf(rounds)
        pythons = [*options.numpy, sys.executable] if options.numpy else []
        results["numpys"] = [collect.under_numpy(python, files.site(), plan) for python in pythons]
        files.write(results, plan.complete)
    report.show(results)
    if plan.complete:
        pictures.draw(results, options.pictures, "png" if options.png else "svg")
    if options.markdown and plan.complete:
        write_tables(results)


if __name__ == "__main__":
    main()
