"""Run the jobs that try to break the module, and write their figures into docs/reliability.md.

`run.py` runs all of them, which may take an hour; `run.py --quick` what fits into every CI run, and
writes nothing; names of rows run only these. Every job can be run by itself, too: it prints what it
found, and on its last line the figures.
"""

from __future__ import annotations

import argparse
import datetime
import json
import os
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "reliability.md"
RESULTS = ROOT / "build" / "harden" / "results.json"
START, END = "<!-- figures: written by `make harden` -->", "<!-- end of the figures -->"
PYTHON = sys.executable


def job(name: str, *options: str) -> list[str]:
    return [PYTHON, "-m", f"harden.{name}", *options]


def script(name: str, *options: str) -> list[str]:
    return [f"tests/harden/{name}.sh", *options]


@dataclass
class Row:
    name: str
    what: str
    full: list[list[str]]
    quick: list[list[str]]


def plain(name: str, what: str) -> Row:
    return Row(name, what, [job(name)], [job(name, "--quick")])


FUZZ_THERE = ["env", "TYPED_SHAPES_CASES=20000", *script("instrumented", "--run", "harden.fuzz")]
SUITE_THERE = ["scripts/sanitize.sh", "-q"]
HOSTILE_THERE = script("instrumented", "--run", "harden.hostile")
ROWS = [
    Row(
        "interpreter",
        "Suite and fuzz on a CPython that hides nothing; suite under ASan, UBSan on the stock one",
        [script("instrumented"), FUZZ_THERE, SUITE_THERE],
        [SUITE_THERE],
    ),
    Row("valgrind", "Suite under memcheck on Debian's interpreter", [script("valgrind")], []),
    plain("allocation", "Every allocation of every call and of an import fails"),
    Row(
        "references",
        "Blocks and reference counts over 10,000 calls; lines that raise; cycles",
        [job("references"), job("references", "--sites")],
        [job("references", "--quick")],
    ),
    Row(
        "hostile",
        "Hostile callbacks, on the instrumented interpreter",
        [HOSTILE_THERE],
        [job("hostile", "--quick")],
    ),
    plain("depth", "Depth, on every kind of stack"),
    plain("threads", "Twelve threads on shared payloads; the suite in eight"),
    Row(
        "fuzz",
        "Seeded calls down both paths; calls evolved from bytes under ASan",
        [job("fuzz"), script("fuzz_bytes", "--seconds", "600")],
        [job("fuzz", "--quick")],
    ),
    plain("coverage", "Lines of C++ that the suite runs"),
    Row("faults", "Planted faults, each killed by a named job", [job("faults")], []),
    Row("rules", "Rules over the C++ sources", [[PYTHON, "scripts/source_rules.py"]], []),
]


def run(row: Row, quick: bool) -> tuple[bool, list[str], float]:
    """Whether every command of the row passed, their figures, and the seconds they took."""
    began, passed, figures = time.monotonic(), True, []
    env = {**os.environ, "PYTHONPATH": f"{ROOT / 'tests'}"}
    for command in row.quick if quick else row.full:
        done = subprocess.run(command, cwd=ROOT, env=env, text=True, stdout=subprocess.PIPE)
        lines = done.stdout.splitlines() or [""]
        passed &= done.returncode == 0
        figures.append(lines[-1].removeprefix("figures: ").strip("= "))
        if done.returncode != 0:
            print(*lines[-60:], f"FAILED with {done.returncode}: {' '.join(command)}", sep="\n")
    return passed, figures, time.monotonic() - began


def table(results: dict[str, dict[str, str]]) -> str:
    lines = ["| | what | figures | taken |", "|---|---|---|---|"]
    for number, row in enumerate(ROWS, 1):
        result = results.get(row.name, {"figures": "not run", "taken": ""})
        lines.append(f"| {number} | {row.what} | {result['figures']} | {result['taken']} |")
    return "\n".join(lines)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("rows", nargs="*", choices=[[], *(row.name for row in ROWS)])
    options = parser.parse_args()
    failed = []
    for row in ROWS:
        if (options.rows and row.name not in options.rows) or (options.quick and not row.quick):
            continue
        passed, figures, seconds = run(row, options.quick)
        print(
            f"{'ok  ' if passed else 'FAIL'} {row.name}, {seconds:.0f} s: {'; '.join(figures)}",
            flush=True,
        )
        failed += [] if passed else [row.name]
        taken = f"{datetime.date.today()}, {seconds / 60:.0f} min"
        state = "" if passed else "FAILED: "
        if not options.quick:
            results = json.loads(RESULTS.read_text()) if RESULTS.exists() else {}
            results[row.name] = {"figures": state + "; ".join(figures), "taken": taken}
            RESULTS.parent.mkdir(parents=True, exist_ok=True)
            RESULTS.write_text(json.dumps(results, indent=1))
            before, _, rest = PAGE.read_text().partition(START)
            after = rest.partition(END)[2]
            PAGE.write_text(f"{before}{START}\n\n{table(results)}\n\n{END}{after}")
    print(f"{len(failed)} rows failed {failed}" if failed else "every row passed")
    return bool(failed)


if __name__ == "__main__":
    sys.exit(main())
