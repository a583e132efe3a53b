"""Run the jobs that try to break the module, and write their figures into docs/reliability.md.

`run.py` runs all of them, which takes two hours; `run.py --quick` what fits into every CI run, and
writes nothing; names of rows run only these. Every job can be run by itself, too: it prints what it
found, and on its last line the figures.
"""

import argparse
import datetime
import os
import random
import re
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "reliability.md"
END_OF_FIGURES = "<!-- end of the figures -->"
PATH = f"{Path(sys.executable).parent}:{os.environ['PATH']}"
ENVIRONMENT = {**os.environ, "PATH": PATH, "PYTHONPATH": f"{ROOT / 'tests'}"}
SUITE = "env TYPED_SHAPES_CASES=1000 scripts/sanitize.sh -q"
INSTRUMENTED = "tests/harden/instrumented.sh"


def job(words: str) -> str:
    return f"python -m harden.{words}"


def fuzz(cases: int, runner: str, which: str = "paths_agree") -> str:
    """The suite's own comparison with so many cases for each generator, from a seed of this run."""
    settings = f"TYPED_SHAPES_SEED={random.getrandbits(40)} TYPED_SHAPES_CASES={cases}"
    options = f"-q -p no:cacheprovider tests/test_agreement.py -k {which}"
    return f"env {settings} {runner} {options}"


# The rows of the page, in its order: what is run for the figures, and what in every CI run.
ROWS: dict[str, tuple[list[str], list[str]]] = {
    "interpreter": ([INSTRUMENTED, fuzz(3_000, INSTRUMENTED), SUITE], [SUITE]),
    "valgrind": (["tests/harden/valgrind.sh"], []),
    "allocation": ([job("allocation")], [job("allocation --quick")]),
    "references": ([job("references"), job("references --sites")], [job("references --quick")]),
    "hostile": ([fuzz(16_000, INSTRUMENTED, "hostile")], []),
    "depth": ([job("depth")], [job("depth --quick")]),
    "threads": ([job("threads")], [job("threads --quick")]),
    "fuzz": ([fuzz(435_000, "python -m pytest -n 2")], [fuzz(18_000, "python -m pytest -n 2")]),
    "coverage": ([job("coverage")], [job("coverage")]),
    "rules": (["python scripts/source_rules.py"], []),
}


def readable(figures: str) -> str:
    """The last line of a job, or of pytest, for a reader who knows neither."""
    figures = re.sub(r", \d+ deselected| in [\d.]+s( \([\d:]+\))?", "", figures)
    figures = re.sub(r"\b(\d+) passed", r"\1 tests passed", figures)
    return figures.replace("nullcontext", "fast path").replace("canonical_path", "canonical path")


def run(commands: list[str]) -> tuple[bool, str]:
    """Whether all of them passed, and their figures."""
    passed, figures = True, []
    for command in commands:
        print("    ", command, flush=True)
        words = command.split()
        done = subprocess.run(words, cwd=ROOT, env=ENVIRONMENT, text=True, stdout=subprocess.PIPE)
        lines = done.stdout.splitlines() or [""]
        passed &= done.returncode == 0
        figures.append(readable(lines[-1].removeprefix("figures: ").strip("= ")))
        if done.returncode != 0:
            print(*lines[-60:], f"FAILED with {done.returncode}: {command}", sep="\n")
    return passed, "; ".join(figures)


def write(number: int, figures: str, taken: str) -> None:
    before, mark, after = PAGE.read_text().partition(END_OF_FIGURES)
    row = re.compile(rf"^(\| {number} \| [^|]*) \|.*", re.MULTILINE)
    table, found = row.subn(lambda old: f"{old[1]} | {figures} | {taken} |", before)
    assert found == 1, f"{found} rows {number} in {PAGE}"
    PAGE.write_text(table + mark + after)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("rows", nargs="*", choices=[[], *ROWS])
    options = parser.parse_args()
    failed = []
    for number, (name, commands) in enumerate(ROWS.items(), 1):
        if (options.rows and name not in options.rows) or not commands[options.quick]:
            continue
        began = time.monotonic()
        passed, figures = run(commands[options.quick])
        seconds = time.monotonic() - began
        print(f"{'ok  ' if passed else 'FAIL'} {name}, {seconds:.0f} s: {figures}", flush=True)
        failed += [] if passed else [name]
        if not options.quick:
            taken = f"{datetime.date.today()}, {seconds / 60:.0f} min"
            write(number, figures if passed else f"FAILED: {figures}", taken)
    print(f"{len(failed)} rows failed {failed}" if failed else "every row passed")
    return bool(failed)


if __name__ == "__main__":
    sys.exit(main())
